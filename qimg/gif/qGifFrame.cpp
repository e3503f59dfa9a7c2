#include "qimg/gif/qGifFrame.h"

#include "qimg/color/qColorQuantProxy.h"
#include "qimg/color/qFrameReductionPriv.h"
#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qCheckedMathPriv.h"
#include "qimg/core/qMonitor.h"
#include "qimg/core/qNoValuePriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"

qGifFrame::~qGifFrame() {
    clear();
}

void qGifFrame::clear() {
    control_ = nullptr;
    control_record_.reset();
    delete image_;
    image_ = nullptr;
    delete local_colormap_;
    local_colormap_ = nullptr;
    offset_ = qPoint();
    interlaced_ = false;
}

int qGifFrame::fail(int code) {
    clear();
    return code;
}

// ---- copying -----------------------------------------------------------------------------------

int qGifFrame::copy_from(const qGifFrame* source, const qIColormap* global_colormap) {
    if (source == this) return source->valid() ? 0 : ST_BAD_ARGUMENT;
    clear();
    if (source == nullptr) return ST_BAD_ARGUMENT;
    const qIColormap* colormap = global_colormap;
    if (source->local_colormap_ != nullptr) {
        local_colormap_ = q_new<qColormap>();
        if (local_colormap_ == nullptr) return ST_NO_MEMORY;
        const int rc = local_colormap_->copy_from(source->local_colormap_);
        if (rc != 0) return fail(rc);
        colormap = local_colormap_;
    } else if (colormap == nullptr) {
        return fail(ST_UNDECODABLE);
    }
    if (source->control_ != nullptr) {
        control_record_ = *source->control_;
        control_ = &control_record_;
    }
    if (source->image_ == nullptr) return fail(ST_BAD_ARGUMENT);
    image_ = q_new<qIndexImage>();
    if (image_ == nullptr) return fail(ST_NO_MEMORY);
    const int rc = image_->copy_from(source->image_, colormap);
    if (rc != 0) return fail(rc);
    offset_ = source->offset_;
    interlaced_ = source->interlaced_;
    return 0;
}

qIComponent* qGifFrame::clone() const {
    return q_new_copy<qGifFrame>(this, nullptr);
}

// ---- queries and drawing -------------------------------------------------------------------

int qGifFrame::frame_delay() const {
    return control_ != nullptr ? control_->delay * 10 : 0;
}

int qGifFrame::frame_disposal() const {
    return control_ != nullptr ? control_->disposal : 0;
}

qRect qGifFrame::frame_rect() const {
    return qRect(offset_, image_ != nullptr ? image_->size() : qSize());
}

int qGifFrame::Draw(qImageEdit* target, qRect rect, qPoint point, float scale_x, float scale_y,
                    bool opaque) const {
    // Written so that NaN factors are refused too.
    if (!(scale_x >= 0.000001f) || !(scale_y >= 0.000001f) || image_ == nullptr)
        return ST_BAD_ARGUMENT;
    const float shift_x = static_cast<float>(offset_.x) * scale_x;
    const float shift_y = static_cast<float>(offset_.y) * scale_y;
    const qPoint shift(q_truncate_to_int(shift_x), q_truncate_to_int(shift_y));
    return image_->Draw(target, rect, point - shift, scale_x, scale_y, opaque);
}

bool qGifFrame::valid() const {
    return image_ != nullptr && image_->valid();
}

qSize qGifFrame::size() const {
    if (image_ == nullptr) return qSize();
    const qSize s = image_->size();
    return qSize(q_saturate(int64_t{s.width} + offset_.x),
                 q_saturate(int64_t{s.height} + offset_.y));
}

qAlphaType qGifFrame::alpha_hint() const {
    return image_ != nullptr ? image_->alpha_hint() : AT_NONE;
}

const qIColormap* qGifFrame::colormap() const {
    return image_ != nullptr ? image_->colormap() : nullptr;
}

int qGifFrame::pixel_index(qPoint point) const {
    return image_ != nullptr ? image_->pixel_index(point - offset_) : kNoValue;
}

qIComponent* qGifFrame::current_leaf() const {
    return valid() ? image_ : nullptr;
}

int qGifFrame::quantize_colors(int num_colors, qCmapType cmap_type, qQuantizer quantizer,
                               bool opaque, float color_strength, float alpha_strength,
                               unsigned char min_alpha, qIMonitor* monitor) {
    // A frame without image has nothing to prescan; the given-map form says ST_BAD_ARGUMENT for it
    // too.
    if ((cmap_type == CM_ADAPTIVE || cmap_type == CM_QUALITY) && image_ == nullptr) {
        return ST_BAD_ARGUMENT;
    }
    // The front, and the palette it made, live until this call returns; by then the frame holds
    // its own copy.
    qColorQuantProxy quant;
    const qIColormap* palette = nullptr;
    const int rc =
        q_generate_palette(quant, image_, num_colors, cmap_type, opaque, min_alpha, palette);
    if (rc != 0) return rc;
    return reduce_to(palette, cmap_type, quantizer, opaque, color_strength, alpha_strength,
                     monitor);
}

int qGifFrame::quantize_colors(const qIColormap* colormap, qQuantizer quantizer, bool opaque,
                               float color_strength, float alpha_strength, qIMonitor* monitor) {
    return reduce_to(colormap, CM_ADAPTIVE, quantizer, opaque, color_strength, alpha_strength,
                     monitor);
}

int qGifFrame::reduce_to(const qIColormap* colormap, qCmapType palette_kind, qQuantizer quantizer,
                         bool opaque, float color_strength, float alpha_strength,
                         qIMonitor* monitor) {
    if (!valid()) return ST_BAD_ARGUMENT;
    qIndexImage* reduced = q_new<qIndexImage>();
    if (reduced == nullptr) return ST_NO_MEMORY;
    qColormap* palette = nullptr;
    int rc = reduced->Create_buffer(image_->size(), PT_INDEX8);
    if (rc == 0) {
        palette = q_new<qColormap>();
        rc = palette != nullptr ? palette->copy_from(colormap) : ST_NO_MEMORY;
    }
    // No entry is marked transparent: the palette's own alphas say what is.
    if (rc == 0) rc = reduced->set_colormap(palette, -1);
    if (rc == 0) {
        rc = reduced->map_from_image(image_, quantizer, opaque, color_strength, alpha_strength,
                                     monitor, palette_kind);
    }
    if (rc != 0) {
        // Cancelled or failed: image and palette stay as they were.
        delete reduced;
        delete palette;
        return rc;
    }
    // The old image may refer to the old local map: it goes first.
    delete image_;
    image_ = reduced;
    delete local_colormap_;
    local_colormap_ = palette;
    return 0;
}

int qGifFrame::set_screen_size(qSize) {
    return ST_NOT_IMPLEMENTED;
}

int qGifFrame::set_offset(qPoint offset) {
    offset_ = offset;
    return 0;
}

qPoint qGifFrame::offset() const {
    return valid() ? offset_ : qPoint();
}

qPixRA qGifFrame::get_rep_color() const {
    return q_representative_color(image_);
}

// ---- palette and transparency edits ------------------------------------------------------------

void qGifFrame::set_opaque_all() {
    if (control_ != nullptr) control_->transparent = -1;
}

bool qGifFrame::set_transparent(int index) {
    return index >= 0 && min_t_index() < 0 && set_ex_transparent(index);
}

bool qGifFrame::set_ex_transparent(int index) {
    set_opaque_all();
    if (index < 0) return true;
    const qIColormap* map = colormap();
    if (map == nullptr || index >= map->num_colors()) return false;
    if (control_ == nullptr) {
        control_record_.reset();
        control_ = &control_record_;
    }
    control_->transparent = index;
    return true;
}

bool qGifFrame::set_color(int index, qPixRA color) {
    return index >= 0 && local_colormap_ != nullptr && local_colormap_->set_color(index, color);
}

int qGifFrame::min_t_index() const {
    return image_ != nullptr ? image_->min_t_index() : kNoValue;
}
