#include "qimg/gif/qGifFrame.h"

#include <cstring>

#include "qimg/color/qColorQuantProxy.h"
#include "qimg/color/qFrameReductionPriv.h"
#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qCheckedMathPriv.h"
#include "qimg/core/qMonitor.h"
#include "qimg/core/qNoValuePriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFormatPriv.h"
#include "qimg/gif/qIFileR.h"
#include "qimg/gif/qLzwDecoder.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"

qGifFrame::~qGifFrame() {
    clear();
}

void qGifFrame::clear() {
    delete control_;
    control_ = nullptr;
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

// ---- reading -----------------------------------------------------------------------------------

int qGifFrame::read(qIFileR* source, const qIColormap* global_colormap, const qGifControl* control,
                    qIMonitor* monitor) {
    clear();
    if (source == nullptr) return ST_BAD_ARGUMENT;
    unsigned char descriptor[kGifImageDescriptorBytes];
    if (source->read(descriptor, kGifImageDescriptorBytes) != kGifImageDescriptorBytes)
        return ST_READ_ERROR;
    offset_ = qPoint(q_gif_u16(descriptor), q_gif_u16(descriptor + 2));
    const qSize size(q_gif_u16(descriptor + 4), q_gif_u16(descriptor + 6));
    const unsigned char packed = descriptor[8];
    interlaced_ = (packed & kGifInterlacedFlag) != 0;

    if ((packed & kGifColorTableFlag) != 0) {
        const int n = 2 << (packed & kGifColorTableSizeMask);
        unsigned char table[kGifMaxColorTableBytes];
        if (source->read(table, 3 * n) != 3 * n) return ST_READ_ERROR;
        local_colormap_ = q_new<qColormap>();
        if (local_colormap_ == nullptr) return fail(ST_NO_MEMORY);
        const int rc = local_colormap_->create(n);
        if (rc != 0) return fail(rc);
        for (int i = 0; i < n; ++i) {
            const unsigned char* rgb = table + 3 * i;
            local_colormap_->set_color(i, qPixRA{rgb[2], rgb[1], rgb[0], 255});
        }
    }

    int transparent = -1;
    if (control != nullptr) {
        control_ = q_new<qGifControl>(*control);
        if (control_ == nullptr) return fail(ST_NO_MEMORY);
        transparent = control->transparent;
    }
    const qIColormap* colormap = local_colormap_ != nullptr
                                     ? static_cast<const qIColormap*>(local_colormap_)
                                     : global_colormap;
    return decode_image(source, size, colormap, transparent, monitor);
}

int qGifFrame::decode_image(qIFileR* source, qSize size, const qIColormap* colormap,
                            int transparent, qIMonitor* monitor) {
    if (source == nullptr) return ST_BAD_ARGUMENT;
    unsigned char min_code_size;
    if (source->read(&min_code_size, 1) != 1) return ST_READ_ERROR;
    const int width = size.width > 0 ? size.width : 0;
    const int height = size.height > 0 ? size.height : 0;
    // An image whose buffer the index image would refuse (above 2^31 - 1 bytes) is refused now,
    // before anything is allocated for it.
    if (width > 0 && height > 0 && q_buffer_bytes(width, height, PT_INDEX8) < 0)
        return ST_UNSUPPORTED;
    const int64_t pixels = int64_t{width} * height;  // fits: the buffer above fits an int

    // Rows stored in order are decoded straight into the new image's buffer: one buffer per
    // image and no copy, the rows spread to their stride afterwards. Interlaced rows (and empty
    // sizes, which the index image refuses after decoding) go through the decoder's own block.
    qLzwDecoder decoder;
    qIndexImage* image = nullptr;
    const bool direct = pixels > 0 && !interlaced_;
    if (direct) {
        image = q_new<qIndexImage>();
        if (image == nullptr) return fail(ST_NO_MEMORY);
        const int rc = image->Create_buffer(qSize(width, height), PT_INDEX8);
        if (rc != 0) {
            delete image;
            return fail(rc);
        }
        decoder.init_into(min_code_size, image->pixel_address(0, 0),
                          q_buffer_bytes(width, height, PT_INDEX8));
    } else {
        decoder.init(min_code_size, static_cast<unsigned int>(pixels));
    }
    const int rc = decode_data(source, &decoder, monitor);
    if (rc != 0) {
        delete image;
        return rc;
    }

    if (!direct) {
        image = q_new<qIndexImage>();
        if (image == nullptr) return fail(ST_NO_MEMORY);
        const int created = image->Create_buffer(qSize(width, height), PT_INDEX8);
        if (created != 0) {
            delete image;
            return fail(created);
        }
    }
    place_rows(decoder, image, direct);
    const int linked = image->set_colormap(colormap, transparent);
    if (linked != 0) {
        delete image;
        return fail(linked);
    }
    delete image_;
    image_ = image;
    return 0;
}

int qGifFrame::decode_data(qIFileR* source, qLzwDecoder* decoder, qIMonitor* monitor) {
    const int total = monitor != nullptr ? source->size() : 0;
    unsigned char block[kGifMaxSubBlockBytes];
    int state = 1;  // the decoder's last answer: 1 wants data, 0 has seen the end code
    for (;;) {
        unsigned char n;
        if (source->read(&n, 1) != 1) return ST_READ_ERROR;
        if (n == 0) break;
        if (source->read(block, n) != n) return ST_READ_ERROR;
        if (state != 1) continue;  // after the end code: read past, no progress
        state = decoder->feed(block, n);
        if (state < 0) return ST_UNDECODABLE;
        if (monitor != nullptr && !monitor->progress(source->seek(0, 1), total, 0, 1)) return 1;
    }
    decoder->finish();
    return decoder->output() == nullptr || decoder->output_size() == 0 ? ST_UNDECODABLE : 0;
}

// Puts the decoded indices into the image's rows, `width` per row from the output's start, in
// stored or interlaced order; pixels the output does not reach are 0, indices beyond width x
// height are ignored. `direct`: the output was decoded into the image's own buffer, rows packed
// one after the other (unless the data overflowed it, see qLzwDecoder::init_into).
void qGifFrame::place_rows(const qLzwDecoder& decoder, qIndexImage* image, bool direct) const {
    const qSize size = image->size();
    const int width = size.width;
    const int height = size.height;
    const int64_t pixels = int64_t{width} * height;
    const int64_t available = decoder.output_size();
    const unsigned char* out = decoder.output();
    if (direct) {
        unsigned char* packed = image->pixel_address(0, 0);
        if (!decoder.in_caller_buffer()) {
            std::memcpy(packed, out, static_cast<size_t>(pixels));  // the output outgrew it
        } else if (available < pixels) {
            std::memset(packed + available, 0, static_cast<size_t>(pixels - available));
        }
        // Spread the packed rows to their stride, last row first so nothing is overwritten
        // before it has moved.
        for (int row = height - 1; row > 0; --row) {
            unsigned char* dst = image->pixel_address(row, 0);
            const unsigned char* src = packed + int64_t{row} * width;
            if (dst != src) std::memmove(dst, src, static_cast<size_t>(width));
        }
        return;
    }
    int64_t taken = 0;
    auto fill_row = [&](int row) {
        unsigned char* dst = image->pixel_address(row, 0);
        const int64_t n = q_max(0, q_min(width, available - taken));
        std::memcpy(dst, out + taken, static_cast<size_t>(n));
        std::memset(dst + n, 0, static_cast<size_t>(width - n));
        taken += width;
    };
    if (!interlaced_) {
        for (int row = 0; row < height; ++row) fill_row(row);
    } else {
        for (const qGifInterlacePass& pass : kGifInterlacePasses) {
            for (int row = pass.start; row < height; row += pass.step) fill_row(row);
        }
    }
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
        control_ = q_new<qGifControl>(*source->control_);
        if (control_ == nullptr) return fail(ST_NO_MEMORY);
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
    if (cmap_type == CM_ADAPTIVE && image_ == nullptr) return ST_BAD_ARGUMENT;
    // The front, and the palette it made, live until this call returns; by then the frame holds
    // its own copy.
    qColorQuantProxy quant;
    const qIColormap* palette = nullptr;
    const int rc =
        q_generate_palette(quant, image_, num_colors, cmap_type, opaque, min_alpha, palette);
    if (rc != 0) return rc;
    return quantize_colors(palette, quantizer, opaque, color_strength, alpha_strength, monitor);
}

int qGifFrame::quantize_colors(const qIColormap* colormap, qQuantizer quantizer, bool opaque,
                               float color_strength, float alpha_strength, qIMonitor* monitor) {
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
                                     monitor);
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
        control_ = q_new<qGifControl>();
        if (control_ == nullptr) return false;
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
