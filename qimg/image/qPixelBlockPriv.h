// qPixelBlockPriv.h: the pixel block shared by the image leaves.
//
// qDirectImage and qIndexImage keep their pixels the same way: `height` rows of
// row_bytes(width, type) bytes each (padded to 4 bytes), row 0 first, in one block.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qimg/core/qCheckedMathPriv.h"
#include "qimg/core/qPixel.h"

// Address of pixel (row, column):  pixels + row_bytes(width, type) * row + bpp * column / 8.
// Null for a negative row or column or a missing block. The upper bounds are the caller's to
// respect; the address is formed on integers so that even a wrong one is not undefined behaviour.
inline unsigned char* q_block_pixel_address(unsigned char* pixels, int width, qPixelType type,
                                            int row, int column) {
    if (row < 0 || column < 0 || !pixels) return nullptr;
    const int64_t offset =
        int64_t{row_bytes(width, type)} * row + int64_t{bits_per_pixel(type)} * column / 8;
    return reinterpret_cast<unsigned char*>(reinterpret_cast<uintptr_t>(pixels) +
                                            static_cast<uintptr_t>(offset));
}

// Bytes holding the pixels of one row, without its padding:  (width * bpp + 7) / 8.
inline size_t q_row_pixel_bytes(int width, qPixelType type) {
    return static_cast<size_t>((int64_t{width} * bits_per_pixel(type) + 7) / 8);
}
