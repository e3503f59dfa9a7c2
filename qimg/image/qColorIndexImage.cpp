#include "qimg/image/qColorIndexImage.h"

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qNoValuePriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"

qColorIndexImage::~qColorIndexImage() {
    clear();
}

void qColorIndexImage::clear() {
    // The index image refers to the map, so it goes first.
    delete index_image_;
    index_image_ = nullptr;
    delete colormap_;
    colormap_ = nullptr;
}

int qColorIndexImage::Create_buffer(qSize size, qPixelType type) {
    delete index_image_;
    index_image_ = q_new<qIndexImage>();
    if (!index_image_) return ST_NO_MEMORY;
    const int rc = index_image_->Create_buffer(size, type);
    if (rc != 0) return rc;
    return colormap_ ? index_image_->set_colormap(colormap_, -1) : 0;
}

int qColorIndexImage::copy_colormap(const qIColormap* source) {
    qColormap* fresh = q_new<qColormap>();
    int rc = fresh ? fresh->copy_from(source) : ST_NO_MEMORY;
    if (rc != 0) {
        delete fresh;
        fresh = nullptr;
    }
    // The old map goes whatever happened; the index image must not keep a reference to it.
    if (index_image_) index_image_->clear_colormap();
    delete colormap_;
    colormap_ = fresh;
    if (rc != 0) return rc;
    return index_image_ ? index_image_->set_colormap(colormap_, -1) : 0;
}

int qColorIndexImage::copy_from(const qIIndexImage* source) {
    clear();
    if (!source || !source->valid()) return ST_BAD_ARGUMENT;
    qColormap* map = q_new<qColormap>();
    qIndexImage* image = nullptr;
    if (map && map->copy_from(source->colormap()) == 0) image = q_new<qIndexImage>();
    if (!image) {
        // Allocation, or a source map that cannot be copied (more than 256 entries).
        delete map;
        return ST_NO_MEMORY;
    }
    const int rc = image->copy_from(source, map);
    if (rc != 0) {
        delete image;
        delete map;
        return rc;
    }
    index_image_ = image;
    colormap_ = map;
    return 0;
}

int qColorIndexImage::map_from_image(const qIImageBuffer* source, qQuantizer quantizer, bool opaque,
                                     float color_strength, float alpha_strength, qIMonitor* monitor,
                                     qCmapType palette_kind) {
    if (!index_image_) return ST_BAD_ARGUMENT;
    return index_image_->map_from_image(source, quantizer, opaque, color_strength, alpha_strength,
                                        monitor, palette_kind);
}

qIComponent* qColorIndexImage::clone() const {
    return q_new_copy<qColorIndexImage>(this);
}

int qColorIndexImage::Draw(qImageEdit* target, qRect rect, qPoint point, float scale_x,
                           float scale_y, bool opaque) const {
    if (!index_image_) return ST_BAD_ARGUMENT;
    return index_image_->Draw(target, rect, point, scale_x, scale_y, opaque);
}

bool qColorIndexImage::valid() const {
    return index_image_ && index_image_->valid() && colormap_ && colormap_->valid_index(0);
}

qSize qColorIndexImage::size() const {
    return index_image_ ? index_image_->size() : qSize();
}

qAlphaType qColorIndexImage::alpha_hint() const {
    return colormap_ ? colormap_->alpha_hint() : AT_NONE;
}

const qIColormap* qColorIndexImage::colormap() const {
    return colormap_;
}

int qColorIndexImage::pixel_index(qPoint point) const {
    return index_image_ ? index_image_->pixel_index(point) : kNoValue;
}

qIComponent* qColorIndexImage::current_leaf() const {
    return const_cast<qColorIndexImage*>(this);
}

unsigned char* qColorIndexImage::pixel_address(int row, int column) const {
    return index_image_ ? index_image_->pixel_address(row, column) : nullptr;
}

qPixelType qColorIndexImage::pixel_type() const {
    return index_image_ ? index_image_->pixel_type() : static_cast<qPixelType>(0);
}

void qColorIndexImage::set_opaque_all() {
    if (colormap_) colormap_->set_opaque_all();
}

bool qColorIndexImage::set_transparent(int index) {
    return colormap_ && colormap_->set_transparent(index);
}

bool qColorIndexImage::set_ex_transparent(int index) {
    return colormap_ && colormap_->set_ex_transparent(index);
}

bool qColorIndexImage::set_color(int index, qPixRA color) {
    return colormap_ && colormap_->set_color(index, color);
}

int qColorIndexImage::min_t_index() const {
    return valid() ? colormap_->min_t_index() : kNoValue;
}
