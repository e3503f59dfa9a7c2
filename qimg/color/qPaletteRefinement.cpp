// Palette refinement by k-means over the histogram.
//
// The cuts that make the first palette look at one axis at a time and never move a colour once
// its box is set. Lloyd's passes fix both: each pass sends every occupied cell to its nearest
// entry and moves each entry to the mean of what it got, which can only lower the squared error
// before rounding. Entries are rounded to whole 8-bit values, which may undo a tiny gain, so a
// pass whose rounded palette is not better than the last is dropped and the refinement stops.
// Working on cells instead of pixels keeps a pass at the cost of the occupied cells (tens of
// thousands for a photograph) whatever the image size; the search starts from each cell's entry
// of the previous pass, which is nearly always still the answer.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "qimg/color/qNearestSearchPriv.h"
#include "qimg/color/qPaletteRefinementPriv.h"
#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qStatus.h"

namespace {

// Squared distance of a cell's pixels, taken at the cell's mean, to an entry.
double cell_error(const qColorCell& c, qPixRA entry) {
    const double n = c.count;
    const double dr = c.red / n - entry.red, dg = c.green / n - entry.green,
                 db = c.blue / n - entry.blue;
    return (dr * dr + dg * dg + db * db) * n;
}

inline int nearest_to_cell(const qNearestSearch& search, const qColorCell& c, int hint) {
    const float n = static_cast<float>(c.count);
    return search.nearest(static_cast<float>(c.red) / n, static_cast<float>(c.green) / n,
                          static_cast<float>(c.blue) / n, hint);
}

// Sends every occupied cell to its nearest entry (assignment[i], starting from the one already
// there) and returns the squared error.
double assign(const qColorCell* cells, int cell_count, const qPixRA* palette, int size,
              uint8_t* assignment) {
    const qNearestSearch search(palette, size);
    double error = 0;
    for (int i = 0; i < cell_count; ++i) {
        const qColorCell& c = cells[i];
        if (c.count == 0) continue;
        const int e = nearest_to_cell(search, c, assignment[i]);
        if (e < 0) continue;
        assignment[i] = static_cast<uint8_t>(e);
        error += cell_error(c, palette[e]);
    }
    return error;
}

}  // namespace

double q_palette_error(const qColorCell* cells, int cell_count, const qPixRA* palette, int size) {
    const qNearestSearch search(palette, size);
    double error = 0;
    for (int i = 0; i < cell_count; ++i) {
        const qColorCell& c = cells[i];
        if (c.count == 0) continue;
        const int e = nearest_to_cell(search, c, -1);
        if (e >= 0) error += cell_error(c, palette[e]);
    }
    return error;
}

double q_refine_palette(const qColorCell* cells, int cell_count, qPixRA* palette, int size,
                        int passes) {
    if (size < 1 || size > 256 || cell_count < 0) return ST_BAD_ARGUMENT;
    int occupied = 0;
    for (int i = 0; i < cell_count; ++i) occupied += cells[i].count != 0;
    // The passes run over a packed copy of the occupied cells: a photograph fills a tenth of a
    // 6-bit histogram, and the copy stays in cache.
    constexpr size_t kCellBytes = sizeof(qColorCell) + 1;  // the cell and its entry
    if (static_cast<size_t>(occupied) > SIZE_MAX / kCellBytes) return ST_NO_MEMORY;
    auto* packed = static_cast<qColorCell*>(q_malloc(static_cast<size_t>(occupied) * kCellBytes));
    if (!packed) return ST_NO_MEMORY;
    auto* assignment = reinterpret_cast<uint8_t*>(packed + occupied);
    for (int i = 0, n = 0; i < cell_count; ++i) {
        if (cells[i].count != 0) packed[n++] = cells[i];
    }
    std::memset(assignment, 0, static_cast<size_t>(occupied));
    double error = assign(packed, occupied, palette, size, assignment);
    qPixRA trial[256];
    for (int pass = 0; pass < passes && error > 0; ++pass) {
        int64_t sums[256][4] = {};
        for (int i = 0; i < occupied; ++i) {
            const qColorCell& c = packed[i];
            int64_t* s = sums[assignment[i]];
            s[0] += c.red, s[1] += c.green, s[2] += c.blue, s[3] += c.count;
        }
        std::memcpy(trial, palette, sizeof(qPixRA) * static_cast<size_t>(size));
        for (int e = 0; e < size; ++e) {
            const int64_t n = sums[e][3];
            if (n == 0 || palette[e].alpha == 0) continue;
            trial[e].red = static_cast<unsigned char>((sums[e][0] + n / 2) / n);
            trial[e].green = static_cast<unsigned char>((sums[e][1] + n / 2) / n);
            trial[e].blue = static_cast<unsigned char>((sums[e][2] + n / 2) / n);
        }
        const double trial_error = assign(packed, occupied, trial, size, assignment);
        if (!(trial_error < error)) break;
        error = trial_error;
        std::memcpy(palette, trial, sizeof(qPixRA) * static_cast<size_t>(size));
    }
    q_free(packed);
    return error;
}
