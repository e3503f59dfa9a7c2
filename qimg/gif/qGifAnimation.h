// qGifAnimation.h: qGifAnimation, a GIF stream held as frames on a logical screen.
//
// What reading a GIF file builds: the logical screen size, the global colour map, the comments,
// the loop count and one qGifFrame per image, with a cursor on the current frame. A still GIF
// is an animation of one frame. As a frame (qIFrame) it draws and reports its current frame
// only; as an animation (qIAnimation) it reports each frame's rectangle, delay and disposal and
// moves the cursor. It does not compose frames: a player asks for those values, moves the
// cursor and composes on its own surface.
//
//   qGifAnimation animation;
//   qMemoryR source(bytes, length);
//   int rc = animation.read(&source, nullptr);       // frames read before an error stay
//   do {
//       animation.Draw(&view, rect, qPoint(0, 0), 1.0f, 1.0f, false);
//       wait(animation.frame_delay());
//   } while (animation.next_frame(false) == 0);
#pragma once

#include "qimg/core/qComponent.h"
#include "qimg/core/qExport.h"
#include "qimg/core/qIndexColor.h"
#include "qimg/gif/qGifReadOptions.h"
#include "qimg/gif/qObjArray.h"
#include "qimg/palette/qColormap.h"

class qGifControl;
class qGifFrame;
class qGifStreamParser;
class qIFileR;
class qMemoryR;

class QIMG_API qGifAnimation : public qIAnimation, public qIIndexColor {
public:
    // An empty animation: no frames, screen (0, 0), loop count 1.
    qGifAnimation();
    ~qGifAnimation() override;
    qGifAnimation(const qGifAnimation&) = delete;
    qGifAnimation& operator=(const qGifAnimation&) = delete;

    // ---- the stream reader -----------------------------------------------------------------
    // Empties the animation, then reads a whole GIF stream from `source` up to its trailer;
    // nothing after the trailer is read. `monitor` (may be null) hears the byte position after
    // each image data sub-block and stops the reading by answering false. 0 at the trailer;
    // ST_CANCELLED stopped by the monitor; ST_NO_MEMORY; ST_READ_ERROR the stream ends or fails
    // before the trailer; ST_BAD_ARGUMENT null source, or an image without any colour map;
    // ST_UNSUPPORTED an image of width or height 0 or too large; ST_BAD_FORMAT a broken layout
    // (signature, a graphic control or application block size, a graphic control terminator);
    // ST_UNDECODABLE undecodable image data. Whatever was read before an error stays: screen,
    // global map, loop count, comments, complete frames.
    int read(qIFileR* source, qIMonitor* monitor);
    // The same, with reading rules and limits (qGifReadOptions); ST_LIMIT_EXCEEDED for a stream
    // beyond a limit. read(source, monitor) reads with the default options.
    int read(qIFileR* source, qIMonitor* monitor, const qGifReadOptions& options);
    // The header, the logical screen descriptor and the global colour table. ST_OK, ST_NO_MEMORY,
    // ST_READ_ERROR, ST_BAD_FORMAT.
    int read_header(qIFileR* source);
    // Reads data sub-blocks up to and including the terminator and discards them. 0 or
    // ST_READ_ERROR.
    int skip_sub_blocks(qIFileR* source);
    // The rest of an application extension; a "NETSCAPE2.0" looping sub-block sets the loop
    // count. 0, ST_READ_ERROR, ST_BAD_FORMAT (identifier block size not 11).
    int read_application(qIFileR* source);
    // Appends the bytes of all data sub-blocks to `comment` (no terminating zero). ST_OK,
    // ST_NO_MEMORY, ST_READ_ERROR.
    int read_comment(qIFileR* source, qObjArray<char>* comment);

    // Destroys every frame, every comment and the global colour map; screen (0, 0), background
    // -1, no version, aspect byte 0, current frame 0, loop count 1. The count of completed passes
    // is kept.
    void reset();
    // Empties this animation, then makes it a deep copy of `source`, whose frames then refer
    // to this animation's own copy of the global map. ST_OK; ST_BAD_ARGUMENT for a null or invalid
    // source; ST_NO_MEMORY; a frame copy's code. Empty after a failure.
    int copy_from(const qGifAnimation* source);

    // Read access for players and tests (borrowed; null / -1 outside the lists).
    qGifFrame* frame(int index) const;
    int num_comments() const { return comments_.count(); }
    const qObjArray<char>* comment(int index) const;
    const qColormap* global_colormap() const { return global_colormap_; }
    int background() const { return background_; }
    // The header's version, "87a" or "89a"; "" before a header was read.
    const char* version() const;
    // The screen descriptor's pixel aspect ratio byte as stored: 0 for none, else the aspect
    // (width / height) is (byte + 15) / 64.
    int pixel_aspect() const { return pixel_aspect_; }
    // Passes to play: 1 by default, n + 1 for a looping count n, -1 for endless.
    int loop_count() const { return loop_count_; }
    int passes() const { return passes_; }

    // ---- qIComponent: the current frame's answers, or the fixed ones without one -----------
    qIComponent* clone() const override;
    int Draw(qImageEdit* target, qRect rect, qPoint point, float scale_x, float scale_y,
             bool opaque) const override;  // ST_BAD_ARGUMENT without a current frame
    // A non-empty screen and a valid current frame.
    bool valid() const override;
    // The logical screen size.
    qSize size() const override { return screen_size_; }
    qAlphaType alpha_hint() const override;  // AT_BILEVEL without a current frame
    const qIColormap* colormap() const override;
    int pixel_index(qPoint point) const override;
    qComponentType component_type() const override { return CT_ANIMATION; }
    qIComponent* current_leaf() const override;

    // ---- qIFrame -----------------------------------------------------------------------------
    // Colour reduction reaches the current frame only; ST_BAD_ARGUMENT without one.
    int quantize_colors(int num_colors, qCmapType cmap_type, qQuantizer quantizer, bool opaque,
                        float color_strength, float alpha_strength, unsigned char min_alpha,
                        qIMonitor* monitor) override;
    int quantize_colors(const qIColormap* colormap, qQuantizer quantizer, bool opaque,
                        float color_strength, float alpha_strength, qIMonitor* monitor) override;
    // Stores the screen size without a test; 0.
    int set_screen_size(qSize size) override;
    int set_offset(qPoint offset) override;  // the current frame's; ST_BAD_ARGUMENT without one
    qPoint offset() const override;
    qPixRA get_rep_color() const override;

    // ---- qIAnimation ---------------------------------------------------------------------------
    int frame_delay() override;  // milliseconds; -1 without a current frame
    int num_frames() override { return frames_.count(); }
    int current_frame() override { return current_; }
    int frame_disposal() override;
    qRect frame_rect() override;
    void rewind() override;
    int seek_frame(int position, int origin) override;
    int next_frame(bool endless) override;

    // ---- qIIndexColor: the current frame's edits ---------------------------------------------
    void set_opaque_all() override;
    bool set_transparent(int index) override;
    bool set_ex_transparent(int index) override;
    bool set_color(int index, qPixRA color) override;
    int min_t_index() const override;

private:
    friend class qGifStreamParser;  // fills the animation as the stream is read
    int read_in_place(qMemoryR* source, qGifStreamParser* parser);

    // The frame under the cursor, or null.
    qGifFrame* current() const;

    qObjArray<qGifFrame*> frames_;
    qObjArray<qObjArray<char>*> comments_;
    qSize screen_size_;
    // &global_colormap_record_ when the stream has a global table, else null. Kept inside the
    // animation, so the table costs no allocation of its own object.
    qColormap* global_colormap_ = nullptr;
    qColormap global_colormap_record_;
    int background_ = -1;
    int version_ = 0;  // 87 or 89 once read
    int pixel_aspect_ = 0;
    int current_ = 0;
    int loop_count_ = 1;
    int passes_ = 0;
};
