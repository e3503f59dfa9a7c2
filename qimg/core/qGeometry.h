// qGeometry.h: integer geometry: qPoint, qSize and qRect.
//
// All three are plain values of signed 32-bit fields. Their arithmetic never overflows: sums,
// differences and rectangle edges are worked out in 64 bits and saturated to the 32-bit range,
// so any numbers a caller or a file hands over give a defined answer.
#pragma once

#include "qimg/core/qExport.h"

// A position: column x, row y.
struct QIMG_API qPoint {
    int x = 0;
    int y = 0;

    constexpr qPoint() = default;
    constexpr qPoint(int x_, int y_) : x(x_), y(y_) {}

    friend constexpr bool operator==(qPoint a, qPoint b) = default;
};

// Component-wise sum and difference of two points (a frame adds an inner frame's offset to its
// own, and turns a screen position into a position in its image), saturated to the int range.
QIMG_API qPoint operator+(qPoint a, qPoint b);
QIMG_API qPoint operator-(qPoint a, qPoint b);

// A size. A width or height <= 0 means empty.
struct QIMG_API qSize {
    int width = 0;
    int height = 0;

    constexpr qSize() = default;
    constexpr qSize(int width_, int height_) : width(width_), height(height_) {}

    constexpr bool empty() const { return width <= 0 || height <= 0; }
    friend constexpr bool operator==(qSize a, qSize b) = default;
};

// An origin and a size: columns x .. x + width - 1, rows y .. y + height - 1. Empty when width
// or height is <= 0.
struct QIMG_API qRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    constexpr qRect() = default;
    constexpr qRect(int x_, int y_, int width_, int height_)
        : x(x_), y(y_), width(width_), height(height_) {}
    constexpr qRect(qPoint pos, qSize size)
        : x(pos.x), y(pos.y), width(size.width), height(size.height) {}
    constexpr explicit qRect(qSize size) : width(size.width), height(size.height) {}

    constexpr qPoint pos() const { return qPoint(x, y); }
    constexpr qSize size() const { return qSize(width, height); }
    constexpr bool empty() const { return width <= 0 || height <= 0; }

    // The common part of this rectangle and `other`: left and top are the larger origins, right
    // and bottom the smaller far edges. When that leaves no area the size becomes (0, 0) and the
    // origin stays (left, top). Far edges beyond the int range are taken at their true value.
    qRect intersect(qRect other) const;
    // The same, stored into this rectangle.
    void intersect_with(qRect other) { *this = intersect(other); }

    friend constexpr bool operator==(const qRect& a, const qRect& b) = default;
};
