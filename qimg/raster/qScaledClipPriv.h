// qScaledClipPriv.h: the clip and the sampling positions of the scaled transfer.
//
// Positions are worked out in double from the caller's integers and the factors' reciprocals,
// exactly as written below; the reciprocal 1 / scale_y and the one used for the column map are
// rounded to single precision first. A result is turned into an integer only through
// q_trunc_clamped, so even factors like 1e-30 or 1e30, whose positions lie far outside any
// integer range, give a defined (and clipped) answer.
#pragma once

#include <cmath>
#include <cstdint>

#include "qimg/core/qGeometry.h"

// trunc(v) as an integer; NaN counts as 0 and magnitudes are capped at 2^62, far beyond any
// position or size a view can have.
inline int64_t q_trunc_clamped(double v) {
    constexpr double limit = 4611686018427387904.0;  // 2^62
    if (!(v == v)) return 0;
    if (v >= limit) return INT64_C(4611686018427387904);
    if (v <= -limit) return -INT64_C(4611686018427387904);
    return static_cast<int64_t>(v);
}

// Source index trunc(position) clamped to 0 .. count - 1 (count > 0).
inline int q_sample_index(double position, int count) {
    if (!(position > 0)) return 0;  // also NaN
    if (position >= count - 1) return count - 1;
    return static_cast<int>(position);
}

// The destination area of a scaled transfer and the magnified-source position at its top-left.
struct qScaledArea {
    int64_t x, y, width, height;  // destination rectangle
    int64_t px, py;               // position in the magnified source
};

// Cuts `a` so that it samples only inside the source (sw x sh) and writes only inside the
// destination (tw x th). True when something is left; then 0 <= x, x + width <= tw, and the same
// for y, and px, py >= 0. Factors must be positive and finite.
inline bool q_clip_scaled(qScaledArea& a, float scale_x, float scale_y, int sw, int sh, int tw,
                          int th) {
    const double ix = 1.0 / static_cast<double>(scale_x);
    const double iy = static_cast<float>(1.0f / scale_y);

    // Source extent of the area (trunc is exact in double; no integer conversion needed).
    double x0 = std::trunc((static_cast<double>(a.px) + 0.5) * ix);
    double y0 = std::trunc((static_cast<double>(a.py) + 0.5) * iy);
    double ew = std::trunc(static_cast<double>(a.width) * ix + 0.5);
    double eh = std::trunc(static_cast<double>(a.height) * iy + 0.5);

    if (a.px < 0) {
        a.x -= a.px;
        a.width += a.px;
        a.px = 0;
        x0 = std::trunc(0.5 * ix);
        ew = std::trunc(static_cast<double>(a.width) * ix + 0.5);
    }
    if (x0 + ew > sw) a.width -= q_trunc_clamped((x0 + ew - sw) * static_cast<double>(scale_x));
    if (a.py < 0) {
        a.y -= a.py;
        a.height += a.py;
        a.py = 0;
        y0 = std::trunc(0.5 * iy);
        eh = std::trunc(static_cast<double>(a.height) * iy + 0.5);
    }
    if (y0 + eh > sh) a.height -= q_trunc_clamped((y0 + eh - sh) * static_cast<double>(scale_y));

    if (a.x < 0) {
        a.width += a.x;
        a.px -= a.x;
        a.x = 0;
    }
    if (a.x + a.width > tw) a.width = tw - a.x;
    if (a.y < 0) {
        a.height += a.y;
        a.py -= a.y;
        a.y = 0;
    }
    if (a.y + a.height > th) a.height = th - a.y;
    return a.x >= 0 && a.y >= 0 && a.width > 0 && a.height > 0;
}

// Source column of destination column i: trunc((px + i + 0.5) / scale_x) with the reciprocal
// rounded to single precision, clamped into the source.
inline int q_source_column(int64_t px, int i, float ix, int sw) {
    return q_sample_index((static_cast<double>(px) + i + 0.5) * static_cast<double>(ix), sw);
}
