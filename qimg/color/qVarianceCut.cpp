// Variance-minimising cuts (after Xiaolin Wu's quantizer).
//
// Method. The cells are summed into cumulative tables (pixel count, channel sums, sum of squared
// colours), so the totals of any box come from eight table reads. Starting from one box around
// the whole histogram, the box whose colours spread most (largest sum of squared distances to
// its mean) is cut in two, at the plane and along the axis where the two halves together keep
// the least squared error. That greedy choice puts palette entries where the error is, unlike a
// cut at the middle of the longest side.
//
// Precision. A cell counts as all its pixels sitting at the cell's mean: the spread inside a
// cell is the same for every way of cutting, so it cannot change which cut is best. Counts and
// sums are 64-bit integers; squares are doubles.
#include <cstddef>

#include "qimg/color/qVarianceCutPriv.h"
#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qStatus.h"

namespace {

// Up to this many colours the cuts run on 5-bit cells (two fine cells per side): the boxes of
// a small palette are wide, the result after refinement is the same on photographs, and the
// tables shrink from 11 MiB to 1.4 MiB. Larger palettes keep the fine cells (0.6 dB better at 256).
constexpr int kCoarseUpTo = 64;

struct Moment {
    int64_t count, red, green, blue;
    double squares;

    Moment& operator+=(const Moment& o) {
        count += o.count, red += o.red, green += o.green, blue += o.blue, squares += o.squares;
        return *this;
    }
    Moment& operator-=(const Moment& o) {
        count -= o.count, red -= o.red, green -= o.green, blue -= o.blue, squares -= o.squares;
        return *this;
    }
};

// Cells lo < c <= hi on every axis (table coordinates).
struct Box {
    int lo[3];
    int hi[3];
};

class Cutter {
public:
    // Cumulative tables are one larger per side than the cells: plane 0 is the zero border.
    Cutter(Moment* table, int shift) : m_(table), shift_(shift), side_((kFineSide >> shift) + 1) {}

    int cells_per_side() const { return side_ - 1; }

    static size_t table_size(int shift) {
        const size_t side = (kFineSide >> shift) + 1;
        return side * side * side;
    }

    // One pass: running sums along blue (line), over the green-blue plane (area), and plane by
    // plane along red from the table's previous plane.
    void accumulate(const qColorCell* histogram) {
        Moment area[kFineSide + 1];
        for (int r = 1; r < side_; ++r) {
            for (Moment& a : area) a = Moment{};
            for (int g = 1; g < side_; ++g) {
                Moment line{};
                for (int b = 1; b < side_; ++b) {
                    line += cell(histogram, r - 1, g - 1, b - 1);
                    area[b] += line;
                    Moment m = m_[at(r - 1, g, b)];
                    m += area[b];
                    m_[at(r, g, b)] = m;
                }
            }
        }
    }

    // The fine cells of cell (r, g, b), each counted as its pixels at the cell's mean.
    Moment cell(const qColorCell* histogram, int r, int g, int b) const {
        Moment sum{};
        const int n = 1 << shift_;
        for (int fr = r * n; fr < (r + 1) * n; ++fr) {
            for (int fg = g * n; fg < (g + 1) * n; ++fg) {
                for (int fb = b * n; fb < (b + 1) * n; ++fb) {
                    const qColorCell& c = histogram[(fr << 12) | (fg << 6) | fb];
                    if (c.count == 0) continue;
                    const double sr = c.red, sg = c.green, sb = c.blue;
                    sum += Moment{c.count, c.red, c.green, c.blue,
                                  (sr * sr + sg * sg + sb * sb) / c.count};
                }
            }
        }
        return sum;
    }

    Moment totals(const Box& x) const {
        Moment s = m_[at(x.hi[0], x.hi[1], x.hi[2])];
        s -= m_[at(x.hi[0], x.hi[1], x.lo[2])];
        s -= m_[at(x.hi[0], x.lo[1], x.hi[2])];
        s += m_[at(x.hi[0], x.lo[1], x.lo[2])];
        s -= m_[at(x.lo[0], x.hi[1], x.hi[2])];
        s += m_[at(x.lo[0], x.hi[1], x.lo[2])];
        s += m_[at(x.lo[0], x.lo[1], x.hi[2])];
        s -= m_[at(x.lo[0], x.lo[1], x.lo[2])];
        return s;
    }

    // Sum of squared distances of the box's cells to their mean.
    static double spread(const Moment& s) {
        if (s.count == 0) return 0;
        const double r = static_cast<double>(s.red), g = static_cast<double>(s.green),
                     b = static_cast<double>(s.blue);
        return s.squares - (r * r + g * g + b * b) / static_cast<double>(s.count);
    }

    // What a part keeps of the between-part error: |sum|^2 / count (larger is better).
    static double score(const Moment& s) {
        const double r = static_cast<double>(s.red), g = static_cast<double>(s.green),
                     b = static_cast<double>(s.blue);
        return (r * r + g * g + b * b) / static_cast<double>(s.count);
    }

    // Cuts `box` into itself and `other`; false when no plane leaves both halves occupied.
    bool cut(Box& box, Box& other) const {
        const Moment whole = totals(box);
        double best = -1;
        int best_axis = -1, best_plane = 0;
        for (int axis = 0; axis < 3; ++axis) {
            for (int plane = box.lo[axis] + 1; plane < box.hi[axis]; ++plane) {
                Box low = box;
                low.hi[axis] = plane;
                const Moment lower = totals(low);
                if (lower.count == 0) continue;
                Moment upper = whole;
                upper -= lower;
                if (upper.count == 0) break;
                const double s = score(lower) + score(upper);
                if (s > best) best = s, best_axis = axis, best_plane = plane;
            }
        }
        if (best_axis < 0) return false;
        other = box;
        box.hi[best_axis] = best_plane;
        other.lo[best_axis] = best_plane;
        return true;
    }

private:
    size_t at(int r, int g, int b) const {
        return (static_cast<size_t>(r) * side_ + g) * side_ + b;
    }

    Moment* m_;
    int shift_;
    int side_;
};

}  // namespace

int q_variance_cut(const qColorCell* histogram, int n, qPixRA* palette) {
    constexpr int kMaxBoxes = 256;
    if (n > kMaxBoxes) n = kMaxBoxes;
    if (n < 1) n = 1;
    const int shift = n <= kCoarseUpTo ? 1 : 0;
    Moment* table = q_new_array<Moment>(Cutter::table_size(shift));
    if (!table) return ST_NO_MEMORY;
    Cutter cutter(table, shift);
    cutter.accumulate(histogram);
    const int side = cutter.cells_per_side();

    Box boxes[kMaxBoxes];
    double spreads[kMaxBoxes];
    boxes[0] = Box{
        {0,    0,    0   },
        {side, side, side}
    };
    spreads[0] = Cutter::spread(cutter.totals(boxes[0]));
    int count = 1;
    while (count < n) {
        // The box with the largest spread; the lowest number wins a tie.
        int chosen = -1;
        for (int i = 0; i < count; ++i) {
            if (spreads[i] > 0 && (chosen < 0 || spreads[i] > spreads[chosen])) chosen = i;
        }
        if (chosen < 0) break;
        if (!cutter.cut(boxes[chosen], boxes[count])) {
            spreads[chosen] = 0;  // one occupied plane per axis: nothing left to gain
            continue;
        }
        spreads[chosen] = Cutter::spread(cutter.totals(boxes[chosen]));
        spreads[count] = Cutter::spread(cutter.totals(boxes[count]));
        ++count;
    }

    int written = 0;
    for (int i = 0; i < count; ++i) {
        const Moment s = cutter.totals(boxes[i]);
        if (s.count == 0) continue;
        const auto mean = [&](int64_t sum) {
            return static_cast<unsigned char>((sum + s.count / 2) / s.count);
        };
        palette[written++] = qPixRA{mean(s.blue), mean(s.green), mean(s.red), 255};
    }
    delete[] table;
    return written;
}
