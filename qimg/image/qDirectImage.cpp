#include "qimg/image/qDirectImage.h"

#include <cstring>

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qCheckedMathPriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/image/qPixelBlockPriv.h"
#include "qimg/raster/qImageAlias.h"
#include "qimg/raster/qImageEdit.h"

namespace {

// Where the alpha byte sits in each pixel layout that has one.
struct AlphaLayout {
    int pixel_bytes;
    int alpha_offset;
};

}  // namespace

qDirectImage::~qDirectImage() {
    clear();
}

void qDirectImage::clear() {
    q_free(pixels_);
    pixels_ = nullptr;
    type_ = static_cast<qPixelType>(0);
    width_ = 0;
    height_ = 0;
    alpha_hint_ = AT_NONE;
}

int qDirectImage::fail(int code) {
    clear();
    return code;
}

int qDirectImage::Create_buffer(qSize size, qPixelType type, const unsigned char* fill) {
    clear();
    const int bytes = q_buffer_bytes(size.width, size.height, type);
    if (bytes <= 0) return fail(ST_UNSUPPORTED);
    pixels_ = static_cast<unsigned char*>(q_malloc(static_cast<size_t>(bytes)));
    if (!pixels_) return fail(ST_NO_MEMORY);
    type_ = type;
    width_ = size.width;
    height_ = size.height;
    if (fill) {
        // The fill goes through the same engine as every other write, so the rule of which
        // colour fits which buffer lives in one place (FillRect refuses non-PT_BGRA32 images).
        qImageEdit view;
        int rc = view.Bind(static_cast<qIImageBuffer*>(this));
        if (rc == 0) rc = view.FillRect(qRect(size), type, fill, nullptr);
        if (rc != 0) return fail(rc);
    }
    return 0;
}

int qDirectImage::copy_from(const qIDirectImage* source) {
    clear();
    if (!source || !source->valid()) return ST_BAD_ARGUMENT;
    const qSize size = source->size();
    const qPixelType type = source->pixel_type();
    const int rc = Create_buffer(size, type, nullptr);
    if (rc != 0) return rc;
    const size_t bytes = q_row_pixel_bytes(size.width, type);
    for (int row = 0; row < size.height; ++row) {
        const unsigned char* from = source->pixel_address(row, 0);
        // A source that calls itself valid but cannot address one of its rows is not one.
        if (!from) return fail(ST_BAD_ARGUMENT);
        std::memcpy(pixel_address(row, 0), from, bytes);
    }
    return 0;
}

qAlphaType qDirectImage::Get_alpha_hint() {
    AlphaLayout layout{};
    switch (type_) {
        case PT_BGRA32:
            layout = {4, 3};
            break;
        case PT_GRAY_ALPHA16:
            layout = {2, 1};
            break;
        case PT_ALPHA8:
            layout = {1, 0};
            break;
        case PT_BGR24:
        case PT_GRAY8:
            return alpha_hint_ = AT_OPAQUE;
        default:
            return alpha_hint_ = AT_NONE;
    }
    qAlphaType found = AT_OPAQUE;
    for (int row = 0; row < height_; ++row) {
        const unsigned char* alpha = pixel_address(row, 0) + layout.alpha_offset;
        for (int column = 0; column < width_; ++column, alpha += layout.pixel_bytes) {
            if (*alpha == 255) continue;
            if (*alpha != 0) return alpha_hint_ = AT_TRANSLUCENT;  // nothing can change it now
            found = AT_BILEVEL;
        }
    }
    return alpha_hint_ = found;
}

qIComponent* qDirectImage::clone() const {
    return q_new_copy<qDirectImage>(this);
}

int qDirectImage::Draw(qImageEdit* target, qRect rect, qPoint point, float scale_x, float scale_y,
                       bool opaque) const {
    if (!target) return ST_BAD_ARGUMENT;
    qImageAlias source;
    const int rc = source.Bind(this);
    if (rc != 0) return rc;
    // Only an image known to be opaque may skip the alpha arithmetic; an unscanned one blends.
    const qBltMode mode = opaque || alpha_hint_ == AT_OPAQUE ? BLT_COPY : BLT_BLEND;
    return target->ScaledBlt(rect, &source, point, scale_x, scale_y, 1, mode, 255, nullptr);
}

bool qDirectImage::valid() const {
    return type_ != 0 && width_ > 0 && height_ > 0 && pixels_ != nullptr;
}

qIComponent* qDirectImage::current_leaf() const {
    return const_cast<qDirectImage*>(this);
}

unsigned char* qDirectImage::pixel_address(int row, int column) const {
    return q_block_pixel_address(pixels_, width_, type_, row, column);
}
