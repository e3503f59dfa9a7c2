// qImageProxy.h: qImageProxy, the facade through which callers use qimg's images.
//
// A proxy holds at most one image component and owns it: a frame around a copy of an image the
// caller handed over (Set), or a clone of another proxy's image. Every member forwards to the
// held component through the capability it needs (frame, animation, palette editing, leaf) and
// gives a fixed answer when the component lacks it or the proxy is empty.
//
//   qDirectImage picture;                    // the caller's image
//   picture.Create_buffer(qSize(64, 48), PT_BGRA32, nullptr);
//   qImageProxy proxy;
//   proxy.Set(&picture);                     // 0: the proxy keeps its own copy
//   qImageEdit view;                         // the caller's memory
//   view.Bind(memory, qSize(640, 480), 640 * 4, PT_BGRA32);
//   proxy.Draw(&view, qRect(100, 50, 128, 96), qPoint(0, 0), 2.0f, 2.0f, false);
//
// Proxies are not copyable by value; Set(const qImageProxy*) makes a deep copy, so two proxies
// never share an image.
#pragma once

#include "qimg/core/qComponent.h"
#include "qimg/core/qExport.h"
#include "qimg/core/qGeometry.h"
#include "qimg/core/qPixel.h"
#include "qimg/core/qTypes.h"

class qIColormap;
class qIDirectImage;
class qIFileR;
class qIIndexColor;
class qIIndexImage;
class qGifAnimation;
class qGifPushReader;
struct qGifReadOptions;
class qIMonitor;
class qImageEdit;

class QIMG_API qImageProxy {
public:
    // An empty proxy.
    qImageProxy() = default;
    // Destroys the held image and everything below it.
    ~qImageProxy();
    qImageProxy(const qImageProxy&) = delete;
    qImageProxy& operator=(const qImageProxy&) = delete;

    // ---- filling ---------------------------------------------------------------------------
    // Every Set empties the proxy and leaves it empty unless it succeeds; the caller keeps its
    // image and may change or destroy it afterwards.

    // Holds a copy of a true-colour image, placed at (0, 0) on a screen of its size.
    // ST_OK; ST_BAD_ARGUMENT for a null or invalid image; ST_UNSUPPORTED for an image the copy
    // cannot take; ST_NO_MEMORY when memory runs out.
    int Set(const qIDirectImage* image);
    // Holds a copy of an index image with a private copy of its colour map (so palette edits
    // never reach the caller's map); the copy's transparent index is the image's min_t_index().
    // ST_OK; ST_BAD_ARGUMENT for a null or invalid image; ST_NO_MEMORY when memory runs out or the
    // map cannot be copied; ST_UNSUPPORTED for pixels that are no indices.
    int Set(const qIIndexImage* image);
    // Holds a deep copy of `other`'s image. ST_OK; ST_BAD_ARGUMENT when `other` is null or not
    // valid (a proxy handed to its own Set is emptied first, so it ends empty with
    // ST_BAD_ARGUMENT); ST_NO_MEMORY when memory runs out.
    int Set(const qImageProxy* other);
    // Reads a GIF file, still or animated, and holds it as an animation (frame 0 current; a
    // still GIF is one frame, so is_animation() is false). `monitor` (may be null) hears the
    // byte position after each image data sub-block and stops the reading by answering false.
    // A stream that breaks off (no trailer, ST_READ_ERROR) or is stopped (1) after at least one
    // complete frame still gives 0 with the frames read so far. A logical screen declared empty
    // takes the size of the first frame's image. ST_OK; ST_READ_ERROR the file cannot be opened or
    // is cut short; ST_NO_MEMORY, or an empty screen without any frame; otherwise the reader's code
    // (1, ST_BAD_ARGUMENT, ST_UNSUPPORTED, ST_BAD_FORMAT, ST_UNDECODABLE). When the file cannot be
    // opened or memory runs out before reading, the proxy keeps what it held; otherwise it holds
    // the new animation or, on failure, nothing.
    int read_gif(const char* path, qIMonitor* monitor);
    // The same from any byte source, for GIF bytes that are not in a file (qMemoryR over
    // memory the caller holds). The source is read from its current position and not closed.
    // ST_BAD_ARGUMENT (proxy unchanged) for a null source; otherwise as above.
    int read_gif(qIFileR* source, qIMonitor* monitor);
    // Both with reading rules and limits (qGifReadOptions): ST_LIMIT_EXCEEDED for a stream beyond
    // a limit before any complete frame; otherwise as above.
    int read_gif(const char* path, qIMonitor* monitor, const qGifReadOptions& options);
    int read_gif(qIFileR* source, qIMonitor* monitor, const qGifReadOptions& options);
    // Holds the animation a push reader has read, once the data have ended: the reader's end()
    // status under the rules above (frames complete before a cut or a stop are kept). The
    // reader is left waiting for begin(). ST_BAD_ARGUMENT (proxy unchanged) for a null reader
    // or one that was not begun.
    int read_gif(qGifPushReader* reader);

    // ---- queries ---------------------------------------------------------------------------
    // The proxy holds a usable image.
    bool valid() const;
    // The logical screen size; (0, 0) when empty.
    qSize size() const;
    // The held image's kind of transparency; AT_NONE when empty.
    qAlphaType alpha_hint() const;
    // Where the image sits on the screen; (0, 0) when empty.
    qPoint offset() const;
    // The colour map of an indexed image (borrowed, valid until the proxy changes); null for
    // true colour and when empty.
    const qIColormap* colormap() const;
    // The colour index at `point` in screen coordinates; -1 where there is none.
    int pixel_index(qPoint point) const;
    // The leaf shown now (borrowed); null when empty.
    const qILeaf* current_leaf() const;
    // CT_DIRECT_IMAGE or CT_INDEX_IMAGE for the leaf shown now; CT_NONE when there is none.
    qComponentType current_leaf_type() const;
    // True only for an animation of more than one frame.
    bool is_animation() const;
    // The frames of an animation; 0 for anything else (an image handed over by Set included).
    int num_frames() const;
    // The transparent palette entry; -1 when there is none or no palette.
    int min_t_index() const;
    // A representative colour of the image (of an animation's current frame): the mean colour
    // of its pixels with alpha >= 1, alpha 255; opaque black when every pixel is transparent;
    // (0, 0, 0, 0) when it cannot be worked out (empty proxy, no memory).
    qPixRA get_rep_color() const;
    // Draws the image as qIComponent::Draw describes, `point` being a position on the screen.
    // ST_BAD_ARGUMENT also when the proxy is not valid.
    int Draw(qImageEdit* target, qRect rect, qPoint point, float scale_x, float scale_y,
             bool opaque) const;

    // ---- changes ---------------------------------------------------------------------------
    // The logical screen size; 0, or ST_BAD_ARGUMENT when the proxy is empty.
    int set_screen_size(qSize size);
    // The image's position on the screen; 0, or ST_BAD_ARGUMENT when the proxy is empty.
    int set_offset(qPoint offset);
    // Palette edits of an indexed image, on the proxy's own copy of the palette. Refused
    // (nothing done, false) for true colour, for an index outside the palette and when empty.
    void set_opaque_all();
    bool set_transparent(int index);
    bool set_ex_transparent(int index);
    bool set_color(int index, qPixRA color);
    // Colour reduction of the image (an animation's current frame) as qIFrame::quantize_colors
    // describes both forms; the image then becomes an 8-bit indexed image with its own copy of
    // the palette. ST_BAD_ARGUMENT also when the proxy is empty.
    int quantize_colors(const qIColormap* colormap, qQuantizer quantizer, bool opaque,
                        float color_strength, float alpha_strength, qIMonitor* monitor);
    int quantize_colors(int num_colors, qCmapType cmap_type, qQuantizer quantizer, bool opaque,
                        float color_strength, float alpha_strength, unsigned char min_alpha,
                        qIMonitor* monitor);

    // The animation behind the proxy (borrowed; valid until the proxy changes), so that a caller
    // can step through the frames of a GIF read by read_gif(): seek_frame, frame_rect,
    // frame_delay, frame_disposal (see qFrameComposer for playing them). Null when the proxy
    // holds no animation, as after Set().
    qIAnimation* animation() const;

private:
    // Destroys the held component.
    void clear();
    // Holds `animation` (taken over), read with status `rc`, under read_gif's rules; the result.
    int hold_read(qGifAnimation* animation, int rc);
    // Takes `leaf` (already filled) into a new frame and holds it; frees it on failure.
    int hold_in_frame(qIComponent* leaf);
    // The held component as a frame, animation or palette side; null when it is none.
    qIFrame* frame() const;
    qIIndexColor* palette_side() const;

    qIComponent* component_ = nullptr;
};
