#include "qimg/core/qGeometry.h"

#include "qimg/core/qCheckedMathPriv.h"

qPoint operator+(qPoint a, qPoint b) {
    return qPoint(q_saturate(int64_t{a.x} + b.x), q_saturate(int64_t{a.y} + b.y));
}

qPoint operator-(qPoint a, qPoint b) {
    return qPoint(q_saturate(int64_t{a.x} - b.x), q_saturate(int64_t{a.y} - b.y));
}

qRect qRect::intersect(qRect other) const {
    const int left = x > other.x ? x : other.x;
    const int top = y > other.y ? y : other.y;
    // The far edges may lie past INT_MAX; in 64 bits they need no care.
    const int64_t right = q_min(int64_t{x} + width, int64_t{other.x} + other.width);
    const int64_t bottom = q_min(int64_t{y} + height, int64_t{other.y} + other.height);
    const int64_t w = right - left;
    const int64_t h = bottom - top;
    if (w <= 0 || h <= 0) return qRect(left, top, 0, 0);
    // w <= the width of either rectangle, so it fits in an int; likewise h.
    return qRect(left, top, static_cast<int>(w), static_cast<int>(h));
}
