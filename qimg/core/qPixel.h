// qPixel.h: one colour value and the pixel storage layouts.
//
//   qPixRA          one colour with alpha, in the memory order of a PT_BGRA32 pixel
//   qPixelType      how one pixel is stored
//   bits_per_pixel  storage size of a pixel type
//   row_bytes       the stride rule: every row starts on a multiple of 4 bytes
#pragma once

#include "qimg/core/qExport.h"

// One colour with alpha: four bytes in this memory order. Alpha 255 is opaque, 0 fully
// transparent. The same layout is one PT_BGRA32 pixel and one colour-map entry, so pixels and
// entries are copied as whole 32-bit words. qPixRA{16, 32, 48, 255} is red 48, green 32, blue 16,
// opaque.
struct qPixRA {
    unsigned char blue;
    unsigned char green;
    unsigned char red;
    unsigned char alpha;

    friend constexpr bool operator==(const qPixRA&, const qPixRA&) = default;
};
static_assert(sizeof(qPixRA) == 4, "qPixRA is exactly one 32-bit pixel");

// How one pixel is stored. Any other value (0 included) has no storage size: buffers of it are
// refused (ST_UNSUPPORTED).
enum qPixelType : int {
    PT_BGRA32 = 1,        // 32 bits: blue, green, red, alpha
    PT_BGR24 = 2,         // 24 bits: blue, green, red; opaque
    PT_GRAY_ALPHA16 = 3,  // 16 bits: grey level, alpha
    PT_GRAY8 = 4,         // 8 bits: grey level; opaque
    PT_ALPHA8 = 7,        // 8 bits: alpha only
    PT_INDEX8 = 11,       // 8 bits: index into the image's colour map
    PT_INDEX16 = 21,      // 16 bits: index, then a byte the library never reads
};

// Bits of one pixel of `type`: 32, 24, 16 or 8; 0 for a value that is not a pixel type.
QIMG_API int bits_per_pixel(qPixelType type);

// Bytes from one row to the next for `width` pixels of `type`:
//   ((bits_per_pixel(type) * width + 31) / 32) * 4
// -1 when the type has no size, when width <= 0, or when the stride would not fit in 32 bits.
// Examples: 10 pixels of PT_BGR24 take 32 bytes, 3 of PT_GRAY8 take 4.
// A buffer holds stride * height bytes; where the library creates one, a product above
// 2^31 - 1 is refused as a size with no value (ST_UNSUPPORTED).
QIMG_API int row_bytes(int width, qPixelType type);
