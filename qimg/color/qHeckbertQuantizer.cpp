// Median-cut colour selection.
//
// Method. The prescan counts every pixel into a histogram of 32768 cells, five bits per channel
// (the cell of a colour is its top five bits of red, green and blue). A cell keeps, besides its
// pixel count, the exact sums of the full 8-bit channel values of its pixels, so the colour that
// finally represents a group of cells is the true mean of the pixels, not the centre of a cell:
// a picture with few colours comes back with exactly those colours.
//
// select_colors starts from one box around the whole histogram, shrinks it to the cells that are
// occupied, and then repeatedly cuts one box in two until it has n boxes or no box can be cut.
// Each box becomes one palette entry.
//
// Policies.
//  - Which box is cut: while fewer than half of the wanted boxes exist, the box holding the most
//    occupied cells; after that, the box with the largest (weighted) volume. Cutting by
//    population first spends the early cuts where the colours are, cutting by volume later keeps
//    rare but distant colours (a small red sign in a green landscape) from being swallowed by a
//    big box. The lowest-numbered box wins a tie, so the result does not depend on anything but
//    the histogram. A box with zero volume (one cell wide in every channel) is never cut.
//  - Which axis: the longest side, measured in weighted units (cell width 8 times the channel
//    weights red 2, green 3, blue 1, the same weights the nearest-colour search uses, since the
//    eye is most sensitive to green and least to blue). Ties go to green, then red.
//  - Where: at the middle of the box's extent, in cells. A cut at the pixel median would need
//    a second pass over the box per cut; since both halves are shrunk to their occupied cells
//    right after the cut, the midpoint already adapts to where the colours are.
//  - After every cut both halves are shrunk to their occupied cells; the shrinking keeps the
//    invariant that each face of a box touches an occupied cell, so both halves of a cut are
//    never empty.
//
// Precision. Five bits per channel keeps the histogram at 512 KiB, small enough to allocate per
// quantizer and to scan while cutting; the exact sums recover the precision lost by the cells.
// A cell stops counting at 2^24 pixels so that its 32-bit sums cannot overflow; sums over a box
// are taken in 64 bits. The mean is rounded half up.
//
// Bounds. The palette has room for 256 entries, so n is clamped to that room (255 when the
// transparent entry is added); nothing a caller passes writes past the palette.
#include "qimg/color/qHeckbertQuantizer.h"

#include <cstddef>
#include <cstdint>

#include "qimg/color/qPrescanPriv.h"
#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qImageBuffer.h"
#include "qimg/core/qStatus.h"
#include "qimg/palette/qSafeColormap.h"

namespace {

using Cell = qHeckbertQuantizer::Cell;

constexpr int kMaxBoxes = qSafeColormap::kCapacity;
constexpr qPixRA kTransparentWhite{255, 255, 255, 0};

inline int cell_index(int r5, int g5, int b5) {
    return (r5 << 10) | (g5 << 5) | b5;
}

inline void add_pixel(Cell* histogram, qPixRA p) {
    Cell& cell = histogram[cell_index(p.red >> 3, p.green >> 3, p.blue >> 3)];
    if (cell.count >= qHeckbertQuantizer::kCellCap) return;
    cell.red += p.red;
    cell.green += p.green;
    cell.blue += p.blue;
    cell.count += 1;
}

// A box of histogram cells, bounds inclusive, in cell coordinates 0..31.
struct Box {
    int lo[3];  // red, green, blue
    int hi[3];
    int volume;
    int colors;  // occupied cells inside the box
};

enum Axis { kRed = 0, kGreen = 1, kBlue = 2 };

// Scaled side length per axis: cell width 8 times the weights 2, 3, 1.
constexpr int kAxisScale[3] = {16, 24, 8};

class BoxCutter {
public:
    explicit BoxCutter(const Cell* histogram) : h_(histogram) {}

    // True when some cell with coordinate `c` on `axis` is occupied inside the box's other
    // two ranges.
    bool plane_occupied(const Box& box, int axis, int c) const {
        int lo[3] = {box.lo[0], box.lo[1], box.lo[2]};
        int hi[3] = {box.hi[0], box.hi[1], box.hi[2]};
        lo[axis] = hi[axis] = c;
        for (int r = lo[0]; r <= hi[0]; ++r) {
            for (int g = lo[1]; g <= hi[1]; ++g) {
                const Cell* cell = h_ + cell_index(r, g, lo[2]);
                for (int b = lo[2]; b <= hi[2]; ++b, ++cell) {
                    if (cell->count) return true;
                }
            }
        }
        return false;
    }

    // Shrinks the box to its occupied cells, red first, then green, then blue (each with the
    // ranges already shrunk), and recomputes its volume and colour count. An empty box keeps
    // its bounds.
    void update(Box& box) const {
        for (int axis = 0; axis < 3; ++axis) {
            if (box.hi[axis] > box.lo[axis]) {
                for (int c = box.lo[axis]; c <= box.hi[axis]; ++c) {
                    if (plane_occupied(box, axis, c)) {
                        box.lo[axis] = c;
                        break;
                    }
                }
            }
            if (box.hi[axis] > box.lo[axis]) {
                for (int c = box.hi[axis]; c >= box.lo[axis]; --c) {
                    if (plane_occupied(box, axis, c)) {
                        box.hi[axis] = c;
                        break;
                    }
                }
            }
        }
        box.volume = 0;
        for (int axis = 0; axis < 3; ++axis) {
            const int side = (box.hi[axis] - box.lo[axis]) * kAxisScale[axis];
            box.volume += side * side;
        }
        int colors = 0;
        for (int r = box.lo[0]; r <= box.hi[0]; ++r) {
            for (int g = box.lo[1]; g <= box.hi[1]; ++g) {
                const Cell* cell = h_ + cell_index(r, g, box.lo[2]);
                for (int b = box.lo[2]; b <= box.hi[2]; ++b, ++cell) colors += cell->count != 0;
            }
        }
        box.colors = colors;
    }

    // Pixel-weighted mean of the box, rounded half up; opaque black for an empty box.
    qPixRA representative(const Box& box) const {
        int64_t total = 0, red = 0, green = 0, blue = 0;
        for (int r = box.lo[0]; r <= box.hi[0]; ++r) {
            for (int g = box.lo[1]; g <= box.hi[1]; ++g) {
                const Cell* cell = h_ + cell_index(r, g, box.lo[2]);
                for (int b = box.lo[2]; b <= box.hi[2]; ++b, ++cell) {
                    total += cell->count;
                    red += cell->red;
                    green += cell->green;
                    blue += cell->blue;
                }
            }
        }
        if (total == 0) return qPixRA{0, 0, 0, 255};
        const auto mean = [total](int64_t sum) {
            return static_cast<unsigned char>((sum + total / 2) / total);
        };
        return qPixRA{mean(blue), mean(green), mean(red), 255};
    }

    // Cuts boxes[0..count) until there are n boxes or none can be cut; returns the count.
    int median_cut(Box* boxes, int count, int n) const {
        while (count < n) {
            const bool by_population = count * 2 <= n;
            const int chosen =
                by_population ? largest_population(boxes, count) : largest_volume(boxes, count);
            if (chosen < 0) break;
            Box& old_box = boxes[chosen];
            Box& new_box = boxes[count];
            new_box = old_box;
            const int axis = longest_axis(old_box);
            const int lb = (old_box.lo[axis] + old_box.hi[axis]) / 2;
            old_box.hi[axis] = lb;
            new_box.lo[axis] = lb + 1;
            update(old_box);
            update(new_box);
            ++count;
        }
        return count;
    }

private:
    static int largest_population(const Box* boxes, int count) {
        int chosen = -1, best = 0;
        for (int i = 0; i < count; ++i) {
            if (boxes[i].volume > 0 && boxes[i].colors > best) {
                best = boxes[i].colors;
                chosen = i;
            }
        }
        return chosen;
    }
    static int largest_volume(const Box* boxes, int count) {
        int chosen = -1, best = 0;
        for (int i = 0; i < count; ++i) {
            if (boxes[i].volume > best) {
                best = boxes[i].volume;
                chosen = i;
            }
        }
        return chosen;
    }
    // Green unless red is strictly longer; blue only when strictly longer than both.
    static int longest_axis(const Box& box) {
        const int red = (box.hi[kRed] - box.lo[kRed]) * kAxisScale[kRed];
        const int green = (box.hi[kGreen] - box.lo[kGreen]) * kAxisScale[kGreen];
        const int blue = (box.hi[kBlue] - box.lo[kBlue]) * kAxisScale[kBlue];
        int axis = kGreen, longest = green;
        if (red > longest) axis = kRed, longest = red;
        if (blue > longest) axis = kBlue;
        return axis;
    }

    const Cell* h_;
};

}  // namespace

qHeckbertQuantizer::~qHeckbertQuantizer() {
    delete palette_;
    delete[] histogram_;
}

int qHeckbertQuantizer::prescan(const qIImageBuffer* image, qRect area, unsigned char min_alpha) {
    // Everything is checked before the first pixel is counted, so a failed prescan leaves the
    // histogram as it was.
    const qIColormap* source_map = nullptr;
    const int status = q_check_prescan(image, area, source_map);
    if (status != ST_OK) return status;
    if (q_prepare_histogram(palette_, histogram_, kCells) != ST_OK) return ST_NO_MEMORY;

    q_for_each_counted(image, area, source_map, min_alpha,
                       [this](qPixRA p) { add_pixel(histogram_, p); });
    return ST_OK;
}

int qHeckbertQuantizer::select_colors(int n, bool add_transparent) {
    if (!histogram_ || !palette_) return ST_BAD_ARGUMENT;
    if (add_transparent) n -= 1;
    const int room = kMaxBoxes - (add_transparent ? 1 : 0);
    if (n > room) n = room;

    Box boxes[kMaxBoxes];
    boxes[0] = Box{
        {0,  0,  0 },
        {31, 31, 31},
        0, 0
    };
    const BoxCutter cutter(histogram_);
    cutter.update(boxes[0]);
    const int count = cutter.median_cut(boxes, 1, n);

    for (int i = 0; i < count; ++i) palette_->set_color(i, cutter.representative(boxes[i]));
    if (add_transparent) palette_->set_color(count, kTransparentWhite);
    return 0;
}

const qIColormap* qHeckbertQuantizer::colormap() const {
    return palette_;
}
