// qGifFrame.h: qGifFrame, one image of a GIF stream placed on the animation's screen.
//
// A frame holds an 8-bit index image (decoded from the stream), the offset of that image on the
// logical screen, its local colour table when the stream gave one, and a copy of the graphic
// control record that preceded it (delay, disposal, transparent index). The index image refers
// to the local colour map, or else to the animation's global one, so a frame that uses the
// global map is only usable while its animation lives. Drawing and pixel queries go to the
// index image; the frame draws only its own image (disposal and delays are the player's).
//
//   qGifFrame frame;
//   frame.read(&source, global_map, &control, monitor);   // after a 0x2C introducer
//   frame.Draw(&view, qRect(0, 0, 100, 80), qPoint(0, 0), 1.0f, 1.0f, false);
#pragma once

#include "qimg/core/qComponent.h"
#include "qimg/core/qExport.h"
#include "qimg/core/qIndexColor.h"
#include "qimg/gif/qGifControl.h"

class qColormap;
class qGifControl;
class qGifStreamParser;
class qIFileR;
struct qGifColorTable;
class qIndexImage;
class qLzwDecoder;

class QIMG_API qGifFrame : public qIFrame, public qIIndexColor {
public:
    // An empty frame: no image, no colour table, no control record, offset (0, 0).
    qGifFrame() = default;
    ~qGifFrame() override;
    qGifFrame(const qGifFrame&) = delete;
    qGifFrame& operator=(const qGifFrame&) = delete;

    // Destroys the image, the local colour map and the control record; offset (0, 0), not
    // interlaced.
    void clear();

    // Reads one image after its 0x2C introducer: the descriptor, the local colour table and the
    // image data. `global_colormap` (borrowed, may be null) colours the image when it has no
    // table of its own; `control` (may be null) is copied into the frame and gives the
    // transparent index. ST_OK; ST_CANCELLED when the monitor stopped it; ST_NO_MEMORY;
    // ST_READ_ERROR data cut short; ST_BAD_ARGUMENT no colour map at all (or a null source);
    // ST_UNSUPPORTED a width or height of 0, or an image whose buffer would exceed 2^31 - 1 bytes;
    // ST_UNDECODABLE undecodable image data. The frame may be left partly filled on failure; the
    // reader discards it.
    int read(qIFileR* source, const qIColormap* global_colormap, const qGifControl* control,
             qIMonitor* monitor);
    // Decodes the image data (code size byte and data sub-blocks) into a new index image of
    // `size` coloured by `colormap` with transparent index `transparent`. Indices the data do
    // not reach are 0; indices beyond width x height are ignored. The monitor hears the byte
    // position of the source after each sub-block it decodes. Codes as for read().
    int decode_image(qIFileR* source, qSize size, const qIColormap* colormap, int transparent,
                     qIMonitor* monitor);
    // Empties this frame, then makes it a copy of `source`: its own copy of a local colour map,
    // else a reference to `global_colormap`; the control record, indices, offset and interlace
    // flag. ST_OK; ST_BAD_ARGUMENT null source or no image; ST_UNDECODABLE neither a local map nor
    // `global_colormap`; ST_NO_MEMORY. Empty after a failure.
    int copy_from(const qGifFrame* source, const qIColormap* global_colormap);

    // Display time in milliseconds (the control's hundredths x 10); 0 without a control record.
    int frame_delay() const;
    // Disposal method 0..7 from the control record; 0 without one.
    int frame_disposal() const;
    // The image's rectangle on the screen: offset and image size ((0, 0) without an image).
    qRect frame_rect() const;

    // Read access for players and tests (borrowed; null when absent).
    const qIndexImage* image() const { return image_; }
    const qColormap* local_colormap() const { return local_colormap_; }
    const qGifControl* control() const { return control_; }
    bool interlaced() const { return interlaced_; }

    // ---- qIComponent -----------------------------------------------------------------------
    // A copy made by copy_from(this, null): null for a frame without an image or without a
    // local colour map (a frame on the global map cannot live alone).
    qIComponent* clone() const override;
    // The image drawn with `point` shifted by offset x scale (single precision, truncated
    // toward zero). ST_BAD_ARGUMENT without an image or with a scale factor below 0.000001.
    int Draw(qImageEdit* target, qRect rect, qPoint point, float scale_x, float scale_y,
             bool opaque) const override;
    // An image that is valid (pixels and a colour map).
    bool valid() const override;
    // The extent on the screen: image size plus offset; (0, 0) without an image.
    qSize size() const override;
    qAlphaType alpha_hint() const override;
    const qIColormap* colormap() const override;
    // The index at `point` in screen coordinates; -1 outside the image or without one.
    int pixel_index(qPoint point) const override;
    qComponentType component_type() const override { return CT_GIF_FRAME; }
    // The index image when valid, else null.
    qIComponent* current_leaf() const override;

    // ---- qIFrame ---------------------------------------------------------------------------
    // Colour reduction: a successful call replaces the index image by a new one mapped to a
    // copy of the palette, which becomes the frame's local colour map (so a frame that used the
    // animation's global map owns its palette afterwards, and set_color works). Offset,
    // interlace flag and control record stay; the record's transparent index then no longer
    // describes the image (drawing and min_t_index() go by the new palette's alpha-0 entry).
    // The median cut (and the quality kind's palette) reads the pixels through the colour map as
    // stored, and the transparent pixels are those of the image's transparent index. Whatever
    // fails, image and local colour map stay as they were.
    int quantize_colors(int num_colors, qCmapType cmap_type, qQuantizer quantizer, bool opaque,
                        float color_strength, float alpha_strength, unsigned char min_alpha,
                        qIMonitor* monitor) override;
    int quantize_colors(const qIColormap* colormap, qQuantizer quantizer, bool opaque,
                        float color_strength, float alpha_strength, qIMonitor* monitor) override;
    // A single frame has no screen of its own: ST_NOT_IMPLEMENTED.
    int set_screen_size(qSize size) override;
    int set_offset(qPoint offset) override;
    // The offset when valid, else (0, 0).
    qPoint offset() const override;
    // The mean colour of the image's pixels with alpha >= 1 (as its colour map gives them, each
    // channel rounded half up), alpha 255; opaque black when no pixel counts. (0, 0, 0, 0)
    // without an image or when the palette cannot be made (no memory).
    qPixRA get_rep_color() const override;

    // ---- qIIndexColor ----------------------------------------------------------------------
    // Transparency edits change the control record only; the decoded image keeps the
    // transparent index it was given, so drawing and min_t_index() go by that.
    // Clears the control record's transparent index.
    void set_opaque_all() override;
    // set_ex_transparent(index) when index >= 0 and no transparent index is set; else false.
    bool set_transparent(int index) override;
    // Clears the transparent index, then (index >= 0) makes `index` the control record's
    // transparent index, creating a record when there is none. true for index < 0; false for
    // an index outside the colour map, a frame without image or map, or out of memory.
    bool set_ex_transparent(int index) override;
    // Edits the local colour map; false without one (a frame on the global map cannot change
    // colours) or outside it.
    bool set_color(int index, qPixRA color) override;
    // The image's transparent index or its map's first transparent entry; -1 without an image.
    int min_t_index() const override;

private:
    friend class qGifStreamParser;  // reads an image in the same steps as read(), piece by piece

    // The steps of read(): the descriptor's offset and interlace flag, the local colour table
    // and a copy of the control record (`control` may be null).
    int start(const unsigned char* descriptor, const qGifColorTable& table,
              const qGifControl* control);
    static qSize descriptor_size(const unsigned char* descriptor);
    // The local colour map when there is one, else `global_colormap`.
    const qIColormap* image_colormap(const qIColormap* global_colormap) const;
    // Starts `decoder` on the image data of an image of `size`; for rows stored in order,
    // `*image` is the new index image the decoder fills directly (else null). ST_OK,
    // ST_UNSUPPORTED (too large), ST_NO_MEMORY.
    int start_data(qSize size, int min_code_size, qLzwDecoder* decoder, qIndexImage** image);
    // After the last data sub-block: makes `image` (taken over) the frame's index image.
    // `browser_rules`: see qGifReadOptions.
    int finish_data(qLzwDecoder* decoder, qIndexImage* image, qSize size,
                    const qIColormap* colormap, int transparent, bool browser_rules);

    // The given-map form with the mapping of `palette_kind` (qIndexImage::map_from_image).
    int reduce_to(const qIColormap* colormap, qCmapType palette_kind, qQuantizer quantizer,
                  bool opaque, float color_strength, float alpha_strength, qIMonitor* monitor);
    int fail(int code);
    // Feeds the data sub-blocks to `decoder`; 0, 1, ST_READ_ERROR or ST_UNDECODABLE.
    int decode_data(qIFileR* source, qLzwDecoder* decoder, qIMonitor* monitor);
    void place_rows(const qLzwDecoder& decoder, qIndexImage* image, bool direct) const;

    qIndexImage* image_ = nullptr;
    qPoint offset_;
    bool interlaced_ = false;
    qColormap* local_colormap_ = nullptr;
    // The control record: &control_record_ when the frame has one, else null. Kept inside the
    // frame, so a record costs no allocation of its own.
    qGifControl* control_ = nullptr;
    qGifControl control_record_;
};
