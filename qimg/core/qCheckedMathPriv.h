// qCheckedMathPriv.h: size arithmetic that cannot overflow silently.
//
// Every byte count the library computes from a width, a height or a pixel type goes through
// these helpers. Sizes come from callers and from files, so they may be any 32-bit numbers: the
// helpers work in 64 bits and answer -1 when the result does not fit the int range in which the
// library keeps all sizes and strides.
#pragma once

#include <cstdint>
#include <limits>

#include "qimg/core/qNoValuePriv.h"
#include "qimg/core/qPixel.h"

constexpr int64_t q_min(int64_t a, int64_t b) {
    return a < b ? a : b;
}
constexpr int64_t q_max(int64_t a, int64_t b) {
    return a > b ? a : b;
}

// Clamps a 64-bit value into the int range.
constexpr int q_saturate(int64_t v) {
    constexpr int64_t lo = std::numeric_limits<int>::min();
    constexpr int64_t hi = std::numeric_limits<int>::max();
    return static_cast<int>(v < lo ? lo : (v > hi ? hi : v));
}

// Bytes of a whole buffer of `height` rows of `width` pixels of `type`, each row padded to 4
// bytes:  row_bytes(width, type) * height.
// -1 when the stride has no value (unsupported type, width <= 0), when height <= 0, or when the
// product exceeds INT_MAX: such a buffer is refused like a size with no value.
inline int q_buffer_bytes(int width, int height, qPixelType type) {
    const int stride = row_bytes(width, type);
    if (stride <= 0 || height <= 0) return kNoValue;
    const int64_t total = int64_t{stride} * height;
    return total > std::numeric_limits<int>::max() ? kNoValue : static_cast<int>(total);
}

// A floating-point value truncated toward zero to an int, saturated at the ends of the int range
// (NaN gives 0). The plain conversion is undefined behaviour once the value leaves the range, and
// products of caller offsets and scale factors can.
constexpr int q_truncate_to_int(double v) {
    constexpr double lo = static_cast<double>(std::numeric_limits<int>::min());
    constexpr double hi = static_cast<double>(std::numeric_limits<int>::max());
    if (!(v == v)) return 0;
    if (v <= lo) return std::numeric_limits<int>::min();
    if (v >= hi) return std::numeric_limits<int>::max();
    return static_cast<int>(v);
}
