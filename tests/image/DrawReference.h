// DrawReference.h: a naive model of drawing an image into caller memory, for the image and proxy
// tests, plus a PT_BGRA32 canvas whose rows are allocated to their exact size.
//
// The model is the one a caller has in mind: the image, magnified by `scale` with nearest
// neighbour sampling, is laid so that its magnified position `pos` lands on rect's top-left
// corner; every target pixel inside rect, inside the target and inside the magnified image takes
// the sampled pixel under the transfer mode. It is written for clarity, pixel by pixel, with no
// clipping arithmetic. Tests use positions and sizes where the engine's edge rounding agrees
// with the model (any position at scale 1; even positions and extents at scale 2).
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "qimg/core/qGeometry.h"
#include "qimg/core/qPixel.h"
#include "qimg/core/qTypes.h"
#include "qimg/raster/qImageEdit.h"

namespace draw_reference {

// ((x * y + 127) * 257) >> 16, the engine's product of two bytes.
inline int scaled_product(int x, int y) {
    return ((x * y + 127) * 257) >> 16;
}

// One destination pixel of a PT_BGRA32 target after the source pixel `s` arrives under `mode`
// at opacity 255.
inline qPixRA apply(qPixRA d, qPixRA s, qBltMode mode) {
    const int a = s.alpha;
    switch (mode) {
        case BLT_COPY:
            return s;
        case BLT_OVER: {
            if (a == 0) return d;
            if (a == 255) return qPixRA{s.blue, s.green, s.red, 255};
            const int na = d.alpha + scaled_product(255 - d.alpha, a);
            auto mix = [&](int dc, int sc) {
                return static_cast<unsigned char>(dc + (sc - dc) * a / na);
            };
            return qPixRA{mix(d.blue, s.blue), mix(d.green, s.green), mix(d.red, s.red),
                          static_cast<unsigned char>(na)};
        }
        case BLT_BLEND: {
            auto mix = [&](int dc, int sc) {
                return static_cast<unsigned char>(dc + ((((sc - dc) * a + 127) * 257) >> 16));
            };
            if (a == 0) return qPixRA{d.blue, d.green, d.red, 0};
            if (a == 255) return s;
            return qPixRA{mix(d.blue, s.blue), mix(d.green, s.green), mix(d.red, s.red),
                          static_cast<unsigned char>(a)};
        }
    }
    return d;
}

// A PT_BGRA32 target of exactly width * height pixels (stride 4 * width), so that ASan catches
// a write one pixel past any row.
class Canvas {
public:
    Canvas(int width, int height, qPixRA background) : width_(width), height_(height) {
        pixels_.reset(new qPixRA[static_cast<size_t>(width) * height]);
        for (int i = 0; i < width * height; ++i) pixels_[i] = background;
        view.Bind(reinterpret_cast<unsigned char*>(pixels_.get()), qSize(width, height), width * 4,
                  PT_BGRA32);
    }
    qPixRA& at(int x, int y) { return pixels_[static_cast<size_t>(y) * width_ + x]; }
    int width() const { return width_; }
    int height() const { return height_; }

    qImageEdit view;

private:
    int width_;
    int height_;
    std::unique_ptr<qPixRA[]> pixels_;
};

// Draws, by the model, an image of `size` whose sampled pixels `pixel(column, row)` gives, into
// `canvas`.
inline void draw(Canvas& canvas, qRect rect, qPoint pos, float scale, qSize size, qBltMode mode,
                 const std::function<qPixRA(int, int)>& pixel) {
    for (int y = rect.y; y < rect.y + rect.height; ++y) {
        for (int x = rect.x; x < rect.x + rect.width; ++x) {
            if (x < 0 || y < 0 || x >= canvas.width() || y >= canvas.height()) continue;
            const int64_t mx = int64_t{pos.x} + (x - rect.x);
            const int64_t my = int64_t{pos.y} + (y - rect.y);
            if (mx < 0 || my < 0) continue;
            // Pixel centre to pixel centre.
            const auto column = static_cast<int64_t>(std::floor((mx + 0.5) / scale));
            const auto row = static_cast<int64_t>(std::floor((my + 0.5) / scale));
            if (column >= size.width || row >= size.height) continue;
            canvas.at(x, y) = apply(canvas.at(x, y),
                                    pixel(static_cast<int>(column), static_cast<int>(row)), mode);
        }
    }
}

// Compares two canvases and reports the first pixel that differs.
inline ::testing::AssertionResult same_pixels(Canvas& actual, Canvas& expected) {
    for (int y = 0; y < expected.height(); ++y) {
        for (int x = 0; x < expected.width(); ++x) {
            const qPixRA a = actual.at(x, y);
            const qPixRA e = expected.at(x, y);
            if (!(a == e)) {
                return ::testing::AssertionFailure()
                       << "first difference at (" << x << ", " << y << "): got (" << +a.blue << ", "
                       << +a.green << ", " << +a.red << ", " << +a.alpha << "), expected ("
                       << +e.blue << ", " << +e.green << ", " << +e.red << ", " << +e.alpha << ")";
            }
        }
    }
    return ::testing::AssertionSuccess();
}

}  // namespace draw_reference
