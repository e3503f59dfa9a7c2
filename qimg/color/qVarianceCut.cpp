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

namespace {

// Cumulative tables are one larger per side: plane 0 is the zero border.
constexpr int kSide = kFineSide + 1;

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

inline size_t at(int r, int g, int b) {
    return (static_cast<size_t>(r) * kSide + g) * kSide + b;
}

// Cells lo < c <= hi on every axis (table coordinates).
struct Box {
    int lo[3];
    int hi[3];
};

class Cutter {
public:
    explicit Cutter(Moment* table) : m_(table) {}

    // One pass: running sums along blue (line), over the green-blue plane (area), and plane by
    // plane along red from the table's previous plane.
    void accumulate(const qColorCell* histogram) {
        Moment area[kSide];
        for (int r = 1; r < kSide; ++r) {
            for (Moment& a : area) a = Moment{};
            for (int g = 1; g < kSide; ++g) {
                Moment line{};
                for (int b = 1; b < kSide; ++b) {
                    const qColorCell& c = histogram[((r - 1) << 12) | ((g - 1) << 6) | (b - 1)];
                    if (c.count) {
                        const double sr = c.red, sg = c.green, sb = c.blue;
                        line += Moment{c.count, c.red, c.green, c.blue,
                                       (sr * sr + sg * sg + sb * sb) / c.count};
                    }
                    area[b] += line;
                    Moment m = m_[at(r - 1, g, b)];
                    m += area[b];
                    m_[at(r, g, b)] = m;
                }
            }
        }
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
    Moment* m_;
};

}  // namespace

int q_variance_cut(const qColorCell* histogram, int n, qPixRA* palette) {
    constexpr int kMaxBoxes = 256;
    if (n > kMaxBoxes) n = kMaxBoxes;
    if (n < 1) n = 1;
    Moment* table = q_new_array<Moment>(static_cast<size_t>(kSide) * kSide * kSide);
    if (!table) return -1;
    Cutter cutter(table);
    cutter.accumulate(histogram);

    Box boxes[kMaxBoxes];
    double spreads[kMaxBoxes];
    boxes[0] = Box{
        {        0,         0,         0},
        {kFineSide, kFineSide, kFineSide}
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
