// qFineHistogramPriv.h: the 6-bit colour histogram the quality palette is chosen from.
//
// 64 x 64 x 64 cells, a cell per top six bits of red, green and blue. Like the median cut's
// histogram, a cell keeps the exact sums of its pixels' 8-bit values, so the colour chosen for a
// group of cells is the true mean of its pixels; the cells are four values wide instead of eight,
// which keeps near colours (skin tones, a sky's gradient) apart.
#pragma once

#include <cstdint>

#include "qimg/core/qPixel.h"

struct qColorCell {
    uint32_t red;
    uint32_t green;
    uint32_t blue;
    uint32_t count;
};

constexpr int kFineSide = 64;
constexpr int kFineCells = kFineSide * kFineSide * kFineSide;
// A cell stops counting at 2^24 pixels, so its 32-bit sums cannot overflow (255 * 2^24 < 2^32).
constexpr uint32_t kFineCellCap = 1u << 24;

inline int q_fine_cell(int red, int green, int blue) {
    return ((red >> 2) << 12) | ((green >> 2) << 6) | (blue >> 2);
}

inline void q_count_colour(qColorCell* histogram, qPixRA p) {
    qColorCell& cell = histogram[q_fine_cell(p.red, p.green, p.blue)];
    if (cell.count >= kFineCellCap) return;
    cell.red += p.red;
    cell.green += p.green;
    cell.blue += p.blue;
    cell.count += 1;
}
