#include "qimg/image/qIndexImage.h"

#include "qimg/color/qGifColormap.h"
#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qCheckedMathPriv.h"
#include "qimg/core/qNoValuePriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/image/qPixelBlockPriv.h"
#include "qimg/palette/qIColormap.h"
#include "qimg/raster/qImageAlias.h"
#include "qimg/raster/qImageEdit.h"
#include "qimg/raster/qQualityMappingPriv.h"

qIndexImage::~qIndexImage() {
    clear();
}

void qIndexImage::clear() {
    q_free(pixels_);
    pixels_ = nullptr;
    type_ = static_cast<qPixelType>(0);
    width_ = 0;
    height_ = 0;
    colormap_ = nullptr;
    transparent_ = -1;
}

int qIndexImage::fail(int code) {
    clear();
    return code;
}

int qIndexImage::Create_buffer(qSize size, qPixelType type) {
    clear();
    const int bytes = q_buffer_bytes(size.width, size.height, type);
    if (bytes <= 0) return fail(ST_UNSUPPORTED);
    // Zeroed: a large block comes as fresh zero pages, which cost no memory until written.
    pixels_ = static_cast<unsigned char*>(q_calloc(static_cast<size_t>(bytes) + kSpareBytes, 1));
    if (!pixels_) return fail(ST_NO_MEMORY);
    type_ = type;
    width_ = size.width;
    height_ = size.height;
    return 0;
}

int qIndexImage::set_colormap(const qIColormap* colormap, int transparent_index) {
    if (!colormap || !colormap->valid_index(0)) return ST_BAD_ARGUMENT;
    colormap_ = colormap;
    if (transparent_index >= 0 && transparent_index < colormap->num_colors()) {
        transparent_ = transparent_index;
    }
    return 0;
}

int qIndexImage::set_colormap_keeping(const qIColormap* colormap, int transparent_index) {
    const int rc = set_colormap(colormap, transparent_index);
    if (rc == 0 && transparent_index >= 0 && transparent_index <= 255) {
        transparent_ = transparent_index;
    }
    return rc;
}

int qIndexImage::copy_from(const qIIndexImage* source, const qIColormap* colormap) {
    clear();
    if (!source) return ST_BAD_ARGUMENT;
    if (!colormap) colormap = source->colormap();
    if (!colormap) return ST_BAD_ARGUMENT;
    const int rc = Create_buffer(source->size(), PT_INDEX8);
    if (rc != 0) return rc;
    colormap_ = colormap;
    transparent_ = source->min_t_index();

    // The indices are moved by the block transfer rather than by memcpy: it knows every source
    // layout (PT_INDEX16 included) and refuses the ones that hold no indices. Both views get a
    // palette copy made from equal entries with the same transparent entry, which is what lets
    // the transfer copy indices unchanged.
    qImageEdit destination;
    qImageAlias from;
    int status = destination.Bind(this);
    if (status == 0) status = from.Bind(static_cast<const qIImageBuffer*>(source));
    // A map whose entries differ from the source's would make the transfer skip every pixel
    // and leave the buffer uninitialised: refuse it instead.
    if (status == 0 && !(from.colormap() && destination.colormap()->equals(*from.colormap()))) {
        status = ST_BAD_ARGUMENT;
    }
    if (status == 0) {
        status = destination.BitBlt(qRect(size()), &from, qPoint(0, 0), BLT_COPY, 255, nullptr);
    }
    return status == 0 ? 0 : fail(status);
}

int qIndexImage::map_from_image(const qIImageBuffer* source, qQuantizer quantizer, bool opaque,
                                float color_strength, float alpha_strength, qIMonitor* monitor,
                                qCmapType palette_kind) {
    if (!valid()) return ST_BAD_ARGUMENT;
    // The source is read through the buffer binding, so an indexed source brings a palette copy
    // in which its transparent index counts as alpha 0.
    qImageEdit destination;
    qImageAlias from;
    int status = destination.Bind(this);
    if (status == 0) status = from.Bind(source);
    if (status != 0) return status;
    if (palette_kind == CM_QUALITY) {
        return q_map_exact(destination, from, colormap_, quantizer != QT_NEAREST, opaque,
                           color_strength, monitor);
    }

    // The cache is 64 KiB: on the heap, not on the caller's stack.
    qGifColormap* nearest = q_new<qGifColormap>();
    if (!nearest) return ST_NO_MEMORY;
    nearest->attach(colormap_);
    const qRect area(size());
    if (quantizer == QT_NEAREST) {
        status = destination.map_colors(area, &from, qPoint(0, 0), nearest, opaque, monitor);
    } else {
        status = destination.dither_colors(area, &from, qPoint(0, 0), nearest, opaque,
                                           color_strength, alpha_strength, monitor);
    }
    delete nearest;
    return status;
}

qIComponent* qIndexImage::clone() const {
    return valid() ? q_new_copy<qIndexImage>(this) : nullptr;
}

int qIndexImage::Draw(qImageEdit* target, qRect rect, qPoint point, float scale_x, float scale_y,
                      bool opaque) const {
    if (!target) return ST_BAD_ARGUMENT;
    qImageAlias source;
    const int rc = source.Bind(this);
    if (rc != 0) return rc;
    const qBltMode mode = opaque || alpha_hint() == AT_OPAQUE ? BLT_COPY : BLT_OVER;
    return target->ScaledBlt(rect, &source, point, scale_x, scale_y, 1, mode, 255, nullptr);
}

bool qIndexImage::valid() const {
    return type_ != 0 && width_ > 0 && height_ > 0 && colormap_ != nullptr &&
           colormap_->valid_index(0) && pixels_ != nullptr;
}

qAlphaType qIndexImage::alpha_hint() const {
    if (transparent_ >= 0) return AT_BILEVEL;
    return colormap_ ? colormap_->alpha_hint() : AT_NONE;
}

int qIndexImage::pixel_index(qPoint point) const {
    if (point.x < 0 || point.x >= width_ || point.y < 0 || point.y >= height_) return kNoValue;
    const unsigned char* pixel = pixel_address(point.y, point.x);
    return pixel ? *pixel : kNoValue;
}

qIComponent* qIndexImage::current_leaf() const {
    return const_cast<qIndexImage*>(this);
}

unsigned char* qIndexImage::pixel_address(int row, int column) const {
    return q_block_pixel_address(pixels_, width_, type_, row, column);
}

int qIndexImage::min_t_index() const {
    if (!valid()) return kNoValue;
    return transparent_ >= 0 ? transparent_ : colormap_->min_t_index();
}
