// qTestImages.h: tiny image buffers for the colour tests, independent of the library's image
// classes: a true-colour buffer over one exactly sized std::vector (rows are not padded), so
// AddressSanitizer catches a read past the last pixel. Plus the palette cache's nearest-colour rule
// written plainly.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "common/TestKit.h"
#include "qimg/core/qImageBuffer.h"
#include "qimg/palette/qIColormap.h"

namespace qtest {

class BgraImage : public qIDirectImage {
public:
    BgraImage(int width, int height, qPixRA fill = qPixRA{0, 0, 0, 255})
        : width_(width),
          height_(height),
          pixels_(static_cast<size_t>(width) * static_cast<size_t>(height), fill) {}
    bool valid() const override { return width_ > 0 && height_ > 0; }
    unsigned char* pixel_address(int row, int column) const override {
        if (row < 0 || column < 0 || pixels_.empty()) return nullptr;
        auto* base = const_cast<qPixRA*>(pixels_.data());
        return reinterpret_cast<unsigned char*>(base + static_cast<size_t>(row) * width_ + column);
    }
    qSize size() const override { return qSize(width_, height_); }
    qPixelType pixel_type() const override { return PT_BGRA32; }

    qPixRA& at(int x, int y) { return pixels_[static_cast<size_t>(y) * width_ + x]; }
    const qPixRA& at(int x, int y) const { return pixels_[static_cast<size_t>(y) * width_ + x]; }
    int width() const { return width_; }
    int height() const { return height_; }

private:
    int width_, height_;
    std::vector<qPixRA> pixels_;
};

inline qPixRA random_colour(std::mt19937& rng, int alpha = 255) {
    return rgba(static_cast<int>(rng() & 255), static_cast<int>(rng() & 255),
                static_cast<int>(rng() & 255), alpha);
}

// Weighted squared distance from the centre of the 5-bit cell of (r, g, b) to `c`.
inline int64_t cell_distance(int r, int g, int b, qPixRA c) {
    const int64_t dr = (r >> 3) * 8 + 4 - c.red;
    const int64_t dg = (g >> 3) * 8 + 4 - c.green;
    const int64_t db = (b >> 3) * 8 + 4 - c.blue;
    return 4 * dr * dr + 9 * dg * dg + db * db;
}

// The cache's answer for one cell, worked out directly: the candidates of the cell's 4 x 4 x 4
// block by the pruning rule (every channel weighed 4 d^2 against the block's outer cell
// centres), then the candidate with the smallest weighted distance 4 dR^2 + 9 dG^2 + dB^2 from
// the cell's centre, the lower index winning a tie.
inline int cache_nearest(const qIColormap& map, int r, int g, int b) {
    const int centre[3] = {(r >> 3) * 8 + 4, (g >> 3) * 8 + 4, (b >> 3) * 8 + 4};
    int lo_edge[3], hi_edge[3];
    for (int c = 0; c < 3; ++c) {
        lo_edge[c] = (centre[c] >> 5) * 32 + 4;
        hi_edge[c] = lo_edge[c] + 24;
    }
    const int n = map.num_colors();
    std::vector<int64_t> least(static_cast<size_t>(n));
    int64_t bound = INT32_MAX;
    for (int i = 0; i < n; ++i) {
        const qPixRA e = map.get_color(i);
        int64_t lo = 0, hi = 0;
        if (e.alpha == 0) {
            lo = hi = INT32_MAX;
        } else {
            const int value[3] = {e.red, e.green, e.blue};
            for (int c = 0; c < 3; ++c) {
                const int64_t to_lo = value[c] - lo_edge[c], to_hi = value[c] - hi_edge[c];
                const int64_t nearest = value[c] < lo_edge[c]   ? to_lo
                                        : value[c] > hi_edge[c] ? to_hi
                                                                : 0;
                const int64_t farthest =
                    value[c] <= lo_edge[c] + 12 ? to_hi : to_lo;  // the other side of the block
                lo += 4 * nearest * nearest;
                hi += 4 * farthest * farthest;
            }
        }
        least[static_cast<size_t>(i)] = lo;
        if (hi < bound) bound = hi;
    }
    int best = -1;
    int64_t best_distance = 0;
    for (int i = 0; i < n; ++i) {
        if (least[static_cast<size_t>(i)] > bound) continue;
        const int64_t d = qtest::cell_distance(r, g, b, map.get_color(i));
        if (best < 0 || d < best_distance) best = i, best_distance = d;
    }
    return best;
}

}  // namespace qtest
