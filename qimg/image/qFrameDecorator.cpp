#include "qimg/image/qFrameDecorator.h"

#include "qimg/color/qColorQuantProxy.h"
#include "qimg/color/qFrameReductionPriv.h"
#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qCheckedMathPriv.h"
#include "qimg/core/qImageBuffer.h"
#include "qimg/core/qNoValuePriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/image/qColorIndexImage.h"

qFrameDecorator::~qFrameDecorator() {
    clear();
}

void qFrameDecorator::clear() {
    delete held_;
    held_ = nullptr;
    screen_size_ = qSize();
    offset_ = qPoint();
}

qIIndexColor* qFrameDecorator::palette_side() const {
    return dynamic_cast<qIIndexColor*>(held_);
}

qIFrame* qFrameDecorator::held_frame() const {
    return dynamic_cast<qIFrame*>(held_);
}

const qIImageBuffer* qFrameDecorator::held_pixels() const {
    return dynamic_cast<const qIImageBuffer*>(held_);
}

int qFrameDecorator::attach(qIComponent* leaf, qPoint offset) {
    // Emptying first would destroy a leaf that is handed back in; keep it instead.
    if (leaf != held_) delete held_;
    held_ = nullptr;
    screen_size_ = qSize();
    offset_ = qPoint();
    if (!leaf) return ST_BAD_ARGUMENT;
    held_ = leaf;
    offset_ = offset;
    screen_size_ = leaf->size();
    return 0;
}

int qFrameDecorator::copy_from(const qFrameDecorator* source) {
    clear();
    if (!source || !source->valid()) return ST_BAD_ARGUMENT;
    held_ = source->held_->clone();
    if (!held_) return ST_NO_MEMORY;
    screen_size_ = source->screen_size_;
    offset_ = source->offset_;
    return 0;
}

qIComponent* qFrameDecorator::clone() const {
    return q_new_copy<qFrameDecorator>(this);
}

int qFrameDecorator::Draw(qImageEdit* target, qRect rect, qPoint point, float scale_x,
                          float scale_y, bool opaque) const {
    // The offset is in screen pixels, `point` in pixels of the magnified image. The products
    // are taken in single precision, as the factors are, and truncated toward zero.
    const float shift_x = static_cast<float>(offset_.x) * scale_x;
    const float shift_y = static_cast<float>(offset_.y) * scale_y;
    const qPoint shift(q_truncate_to_int(shift_x), q_truncate_to_int(shift_y));
    if (!held_) return 0;
    return held_->Draw(target, rect, point - shift, scale_x, scale_y, opaque);
}

bool qFrameDecorator::valid() const {
    return held_ && held_->valid();
}

qSize qFrameDecorator::size() const {
    return screen_size_.empty() ? qSize() : screen_size_;
}

qAlphaType qFrameDecorator::alpha_hint() const {
    return held_ ? held_->alpha_hint() : AT_NONE;
}

const qIColormap* qFrameDecorator::colormap() const {
    return held_ ? held_->colormap() : nullptr;
}

int qFrameDecorator::pixel_index(qPoint point) const {
    return held_ ? held_->pixel_index(point - offset_) : kNoValue;
}

qIComponent* qFrameDecorator::current_leaf() const {
    if (const auto* frame = dynamic_cast<const qIFrame*>(held_)) return frame->current_leaf();
    return held_;
}

int qFrameDecorator::quantize_colors(int num_colors, qCmapType cmap_type, qQuantizer quantizer,
                                     bool opaque, float color_strength, float alpha_strength,
                                     unsigned char min_alpha, qIMonitor* monitor) {
    if (qIFrame* frame = held_frame()) {
        return frame->quantize_colors(num_colors, cmap_type, quantizer, opaque, color_strength,
                                      alpha_strength, min_alpha, monitor);
    }
    // Only the adaptive and quality palettes read the pixels. Without a pixel buffer it answers as
    // the given-map form would: ST_BAD_ARGUMENT when empty, ST_NOT_IMPLEMENTED for a component that
    // holds no pixels.
    if ((cmap_type == CM_ADAPTIVE || cmap_type == CM_QUALITY) && !held_pixels()) {
        return held_ ? ST_NOT_IMPLEMENTED : ST_BAD_ARGUMENT;
    }
    // The front, and the palette it made, live until this call returns; the new image has its
    // own copy by then.
    qColorQuantProxy quant;
    const qIColormap* palette = nullptr;
    const int rc =
        q_generate_palette(quant, held_pixels(), num_colors, cmap_type, opaque, min_alpha, palette);
    if (rc != 0) return rc;
    return reduce_to(palette, cmap_type, quantizer, opaque, color_strength, alpha_strength,
                     monitor);
}

int qFrameDecorator::quantize_colors(const qIColormap* colormap, qQuantizer quantizer, bool opaque,
                                     float color_strength, float alpha_strength,
                                     qIMonitor* monitor) {
    return reduce_to(colormap, CM_ADAPTIVE, quantizer, opaque, color_strength, alpha_strength,
                     monitor);
}

int qFrameDecorator::reduce_to(const qIColormap* colormap, qCmapType palette_kind,
                               qQuantizer quantizer, bool opaque, float color_strength,
                               float alpha_strength, qIMonitor* monitor) {
    if (!valid()) return ST_BAD_ARGUMENT;
    if (qIFrame* frame = held_frame()) {
        return frame->quantize_colors(colormap, quantizer, opaque, color_strength, alpha_strength,
                                      monitor);
    }
    const qIImageBuffer* pixels = held_pixels();
    if (!pixels) return ST_NOT_IMPLEMENTED;

    qColorIndexImage* reduced = q_new<qColorIndexImage>();
    if (!reduced) return ST_NO_MEMORY;
    int rc = reduced->Create_buffer(held_->size(), PT_INDEX8);
    if (rc == 0) rc = reduced->copy_colormap(colormap);
    if (rc == 0) {
        rc = reduced->map_from_image(pixels, quantizer, opaque, color_strength, alpha_strength,
                                     monitor, palette_kind);
    }
    if (rc != 0) {
        // Cancelled or failed: the old leaf stays, untouched.
        delete reduced;
        return rc;
    }
    delete held_;
    held_ = reduced;
    return 0;
}

int qFrameDecorator::set_screen_size(qSize size) {
    screen_size_ = size;
    return 0;
}

int qFrameDecorator::set_offset(qPoint offset) {
    offset_ = offset;
    return 0;
}

qPoint qFrameDecorator::offset() const {
    if (const auto* frame = dynamic_cast<const qIFrame*>(held_)) return frame->offset() + offset_;
    return offset_;
}

qPixRA qFrameDecorator::get_rep_color() const {
    if (const qIFrame* frame = held_frame()) return frame->get_rep_color();
    // Null (empty, or no pixels held) gives the colour that stands for "no answer".
    return q_representative_color(held_pixels());
}

void qFrameDecorator::set_opaque_all() {
    if (qIIndexColor* side = palette_side()) side->set_opaque_all();
}

bool qFrameDecorator::set_transparent(int index) {
    qIIndexColor* side = palette_side();
    return side && side->set_transparent(index);
}

bool qFrameDecorator::set_ex_transparent(int index) {
    qIIndexColor* side = palette_side();
    return side && side->set_ex_transparent(index);
}

bool qFrameDecorator::set_color(int index, qPixRA color) {
    qIIndexColor* side = palette_side();
    return side && side->set_color(index, color);
}

int qFrameDecorator::min_t_index() const {
    const qIIndexColor* side = palette_side();
    return side ? side->min_t_index() : kNoValue;
}
