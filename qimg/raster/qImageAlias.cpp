#include "qimg/raster/qImageAlias.h"

#include <cstdint>

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qImageBuffer.h"
#include "qimg/core/qStatus.h"

namespace {
// Address arithmetic on caller-supplied pointers, strides and columns is done on integers:
// whatever numbers a caller passes, forming the address is never undefined behaviour.
unsigned char* offset_address(unsigned char* base, int64_t offset) {
    return reinterpret_cast<unsigned char*>(reinterpret_cast<uintptr_t>(base) +
                                            static_cast<uintptr_t>(offset));
}
}  // namespace

qImageAlias::~qImageAlias() {
    release();
}

void qImageAlias::release() {
    delete[] rows_;
    rows_ = nullptr;
    type_ = static_cast<qPixelType>(0);
    width_ = 0;
    height_ = 0;
    delete cmap_;
    cmap_ = nullptr;
}

int qImageAlias::Bind(unsigned char* pixels, qSize size, int stride, qPixelType type) {
    release();
    if (!pixels) return ST_BAD_ARGUMENT;
    if (size.height < 0) return ST_NO_MEMORY;
    rows_ = q_new_array<unsigned char*>(static_cast<size_t>(size.height));
    if (!rows_) return ST_NO_MEMORY;
    for (int r = 0; r < size.height; ++r) rows_[r] = offset_address(pixels, int64_t{r} * stride);
    width_ = size.width;
    height_ = size.height;
    type_ = type;
    return 0;
}

int qImageAlias::Bind(const qIImageBuffer* buffer) {
    release();
    if (!buffer) return ST_BAD_ARGUMENT;
    const qSize size = buffer->size();
    if (size.height < 0) return ST_NO_MEMORY;
    rows_ = q_new_array<unsigned char*>(static_cast<size_t>(size.height));
    if (!rows_) return ST_NO_MEMORY;
    for (int r = 0; r < size.height; ++r) {
        rows_[r] = buffer->pixel_address(r, 0);
        // A buffer that claims rows it cannot address would have us write through null.
        if (!rows_[r]) {
            release();
            return ST_BAD_ARGUMENT;
        }
    }
    width_ = size.width;
    height_ = size.height;
    type_ = buffer->pixel_type();
    if (const auto* indexed = dynamic_cast<const qIIndexImage*>(buffer)) {
        return attach_palette(indexed->colormap(), indexed->min_t_index());
    }
    return 0;
}

int qImageAlias::attach_palette(const qIColormap* palette, int transparent_index) {
    delete cmap_;
    cmap_ = q_new<qSafeColormap>(palette, transparent_index);
    return cmap_ && cmap_->valid_index(0) ? 0 : ST_NO_MEMORY;
}

unsigned char* qImageAlias::pixel_address(int row, int column) const {
    if (!valid() || row < 0 || row >= height_) return nullptr;
    return offset_address(rows_[row], int64_t{bits_per_pixel()} * column / 8);
}
