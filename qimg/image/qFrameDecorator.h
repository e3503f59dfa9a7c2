// qFrameDecorator.h: qFrameDecorator, a frame around one plain image.
//
// Places a leaf (qDirectImage, qIndexImage or qColorIndexImage) at an offset on a logical screen
// of its own size, and gives it the frame operations a leaf lacks, so that the facade can treat
// the images callers hand over and the frames of a GIF alike. The decorator owns what it holds.
//
//   qFrameDecorator frame;
//   frame.attach(leaf, qPoint(10, 20));   // takes `leaf`; the screen size becomes its size
//   frame.Draw(&view, qRect(view.size()), qPoint(0, 0), 1.0f, 1.0f, false);
//                                          // the leaf lands 10 right of, 20 below rect's corner
//
// Palette edits are passed to the held component when it has a palette side (a qColorIndexImage
// edits its own map, a qIndexImage refuses) and refused otherwise.
#pragma once

#include "qimg/core/qComponent.h"
#include "qimg/core/qExport.h"
#include "qimg/core/qIndexColor.h"

class qIImageBuffer;

class QIMG_API qFrameDecorator : public qIFrame, public qIIndexColor {
public:
    qFrameDecorator() = default;
    // Destroys the held component.
    ~qFrameDecorator() override;
    qFrameDecorator(const qFrameDecorator&) = delete;
    qFrameDecorator& operator=(const qFrameDecorator&) = delete;

    // Empties the decorator, then takes ownership of `leaf`, places it at `offset` and makes
    // the screen size the leaf's size. ST_OK; ST_BAD_ARGUMENT for a null leaf (the decorator stays
    // empty). Attaching the component already held keeps it and only resets offset and screen size.
    int attach(qIComponent* leaf, qPoint offset);
    // Empties the decorator, then holds a clone of `source`'s component with its offset and
    // screen size. ST_OK; ST_BAD_ARGUMENT for a null or invalid source (a decorator copied from
    // itself is emptied first, so it is invalid); ST_NO_MEMORY when the clone fails. Empty after a
    // failure.
    int copy_from(const qFrameDecorator* source);

    // ---- qIComponent -----------------------------------------------------------------------
    // A new decorator made by copy_from(this); null when this one is not valid or memory runs
    // out.
    qIComponent* clone() const override;
    // Shifts `point` by the offset times the scale factors (each product truncated toward zero
    // and held to the int range) and passes the call to the held component. An empty decorator
    // draws nothing and returns ST_OK. Scale factors are passed on unchanged.
    int Draw(qImageEdit* target, qRect rect, qPoint point, float scale_x, float scale_y,
             bool opaque) const override;
    // A held component that is valid.
    bool valid() const override;
    // The screen size when both its width and height are > 0, else (0, 0).
    qSize size() const override;
    // The held component's; AT_NONE when empty.
    qAlphaType alpha_hint() const override;
    // The held component's (borrowed); null when empty.
    const qIColormap* colormap() const override;
    // The held component's pixel_index at `point` minus the offset; -1 when empty.
    int pixel_index(qPoint point) const override;
    qComponentType component_type() const override { return CT_FRAME; }
    // The held frame's current leaf, or the held leaf itself; null when empty.
    qIComponent* current_leaf() const override;

    // ---- qIFrame ---------------------------------------------------------------------------
    // Colour reduction. A held frame does the work itself (the call is passed on unchanged).
    // Otherwise a successful reduction replaces the held pixel buffer (true colour or indexed)
    // by a new qColorIndexImage with its own copy of the palette; offset and screen size stay.
    // Transparent pixels are those of alpha 0. Beyond the shared codes: ST_BAD_ARGUMENT also
    // for an empty decorator (the generated form checks this only after a bad cmap_type);
    // ST_UNSUPPORTED also for pixels other than PT_BGRA32 and PT_INDEX8; ST_NOT_IMPLEMENTED for a
    // held component that is neither a frame nor a pixel buffer. Whatever fails, the held leaf
    // stays as it was.
    int quantize_colors(int num_colors, qCmapType cmap_type, qQuantizer quantizer, bool opaque,
                        float color_strength, float alpha_strength, unsigned char min_alpha,
                        qIMonitor* monitor) override;
    int quantize_colors(const qIColormap* colormap, qQuantizer quantizer, bool opaque,
                        float color_strength, float alpha_strength, qIMonitor* monitor) override;
    // Stores `size` as it comes (a size with a side <= 0 reads back as (0, 0)); 0.
    int set_screen_size(qSize size) override;
    // Stores `offset`; 0.
    int set_offset(qPoint offset) override;
    // This offset, plus the held frame's offset when the decorator holds a frame.
    qPoint offset() const override;
    // A held frame's answer; otherwise the mean colour of the held image's pixels with alpha
    // >= 1 (each channel rounded half up), alpha 255; opaque black when every pixel is fully
    // transparent. (0, 0, 0, 0) for an empty decorator, a held component without pixels, or
    // when the palette cannot be made (unsupported pixel type, no memory).
    qPixRA get_rep_color() const override;

    // ---- qIIndexColor: passed to the held component's palette side -------------------------
    // Without one: set_opaque_all does nothing, the setters give false, min_t_index -1.
    void set_opaque_all() override;
    bool set_transparent(int index) override;
    bool set_ex_transparent(int index) override;
    bool set_color(int index, qPixRA color) override;
    int min_t_index() const override;

private:
    // The given-map form with the mapping of `palette_kind` (qIndexImage::map_from_image).
    int reduce_to(const qIColormap* colormap, qCmapType palette_kind, qQuantizer quantizer,
                  bool opaque, float color_strength, float alpha_strength, qIMonitor* monitor);
    // Destroys the held component; screen size and offset back to (0, 0).
    void clear();
    // The held component's palette side, null when it has none.
    qIIndexColor* palette_side() const;
    // The held component as a frame, or as a pixel buffer; null when it is not one.
    qIFrame* held_frame() const;
    const qIImageBuffer* held_pixels() const;

    qIComponent* held_ = nullptr;
    qSize screen_size_;
    qPoint offset_;
};
