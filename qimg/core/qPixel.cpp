#include "qimg/core/qPixel.h"

#include <cstdint>
#include <limits>

#include "qimg/core/qNoValuePriv.h"

int bits_per_pixel(qPixelType type) {
    switch (type) {
        case PT_BGRA32:
            return 32;
        case PT_BGR24:
            return 24;
        case PT_GRAY_ALPHA16:
        case PT_INDEX16:
            return 16;
        case PT_GRAY8:
        case PT_ALPHA8:
        case PT_INDEX8:
            return 8;
    }
    return 0;
}

int row_bytes(int width, qPixelType type) {
    const int bits = bits_per_pixel(type);
    if (bits == 0 || width <= 0) return kNoValue;
    // ((bits * width + 31) / 32) * 4, in 64 bits: bits * width alone can pass 2^31.
    const int64_t stride = (int64_t{bits} * width + 31) / 32 * 4;
    return stride > std::numeric_limits<int>::max() ? kNoValue : static_cast<int>(stride);
}
