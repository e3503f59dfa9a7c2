#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "qimg/color/qFineHistogramPriv.h"
#include "qimg/color/qNearestSearchPriv.h"
#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/palette/qIColormap.h"
#include "qimg/raster/qColorMappingPriv.h"
#include "qimg/raster/qImageEdit.h"
#include "qimg/raster/qQualityMappingPriv.h"

namespace {

// Nearest entries of whole 6-bit cells, worked out when a cell is first met: the entries that
// can be nearest to some colour of the cell. Every colour of a cell lies within h = 1.5 * sqrt(3)
// of its centre, so an entry farther from the centre than the centre's nearest entry plus 2h is
// never the answer. Most cells are left with one entry, which the cell's 16-bit slot holds
// itself; the others point into a pool of candidate lists. The slots (512 KiB) stay in the
// processor's second-level cache, which is what makes the look-up fast. A cell with more than
// kMax candidates, or met when the pool is full, falls back to the full search.
class CellCache {
public:
    static constexpr int kMax = 4;
    struct Cell {
        uint8_t count;        // kMax + 1: too many candidates, entry[0] is where the search starts
        uint8_t entry[kMax];  // ascending; shorter lists repeat entry[0] at the end
    };
    // A slot holds 0 while its cell is not worked out, else 1 + the number of its list. Lists
    // 0..255 are the one-entry lists of the palette's entries, list kFullSearch stands for the
    // full search, and the pool follows. With large palettes even a cell with one entry goes
    // through its list: one path for all cells, without a branch that would guess wrong on
    // every other pixel. With small palettes nearly every cell has one entry, the branch guesses
    // right, and the slot alone answers.
    static constexpr int kFullSearch = 256;
    static constexpr int kLists = 65535;
    static constexpr int kSmallPalette = 64;

    CellCache(const qNearestSearch& search, const qPixRA* palette, uint16_t* slots, Cell* lists)
        : search_(search),
          palette_(palette),
          slots_(slots),
          lists_(lists),
          uniform_(search.size() > kSmallPalette) {
        for (int e = 0; e < 256; ++e) {
            lists_[e].count = 1;
            for (uint8_t& entry : lists_[e].entry) entry = static_cast<uint8_t>(e);
        }
        lists_[kFullSearch].count = kMax + 1;
        lists_[kFullSearch].entry[0] = 0;
    }

    int nearest(int r, int g, int b) const {
        uint16_t& slot = slots_[q_fine_cell(r, g, b)];
        if (slot == 0) slot = fill(r, g, b);
        if (!uniform_ && slot <= kFullSearch) return slot - 1;
        const Cell& cell = lists_[slot - 1];
        if (cell.count > kMax) {
            return search_.nearest(static_cast<float>(r), static_cast<float>(g),
                                   static_cast<float>(b), cell.entry[0]);
        }
        // A fixed number of rounds without branches: the count varies from cell to cell and a
        // loop over it mispredicts. Candidates are in index order and the padding repeats the
        // first, so the first of equally near entries wins.
        int best = cell.entry[0], best_d = INT32_MAX;
        for (int i = 0; i < kMax; ++i) {
            const qPixRA e = palette_[cell.entry[i]];
            const int dr = r - e.red, dg = g - e.green, db = b - e.blue;
            const int d = dr * dr + dg * dg + db * db;
            best = d < best_d ? cell.entry[i] : best;
            best_d = d < best_d ? d : best_d;
        }
        return best;
    }

private:
    uint16_t fill(int r, int g, int b) const {
        const auto centre = [](int v) { return static_cast<float>((v & ~3) + 1.5); };
        const float cr = centre(r), cg = centre(g), cb = centre(b);
        float nearest = 0;
        const int first = search_.nearest(cr, cg, cb, -1, &nearest);
        const float reach = std::sqrt(nearest) + 3.0f * std::sqrt(3.0f) + 0.01f;
        constexpr int kLoose = 32;
        uint8_t loose[kLoose];
        const int found = search_.within(cr, cg, cb, reach * reach, loose, kLoose);
        Cell cell{};
        int kept = 0;
        for (int i = 0; i < found && i < kLoose && kept <= kMax; ++i) {
            if (loose[i] == first || may_beat(loose[i], first, r & ~3, g & ~3, b & ~3)) {
                if (kept < kMax) cell.entry[kept] = loose[i];
                ++kept;
            }
        }
        if (found <= kLoose && kept == 1) return static_cast<uint16_t>(cell.entry[0] + 1);
        if (used_ == kLists) return kFullSearch + 1;  // pool full
        if (found > kLoose || kept > kMax) {
            cell.count = kMax + 1;
            cell.entry[0] = static_cast<uint8_t>(first);
        } else {
            cell.count = static_cast<uint8_t>(kept);
            for (int i = kept; i < kMax; ++i) cell.entry[i] = cell.entry[0];
        }
        lists_[used_] = cell;
        return static_cast<uint16_t>(1 + used_++);
    }

    // Whether entry e is nearer than entry f (or as near with a lower index) to some colour of
    // the cell whose lowest corner is (r, g, b). |p - e|^2 - |p - f|^2 is linear in p, so its
    // minimum over the cell is at the corner that goes furthest along e - f.
    bool may_beat(int e, int f, int r, int g, int b) const {
        const qPixRA pe = palette_[e], pf = palette_[f];
        const int de[3] = {pe.red - pf.red, pe.green - pf.green, pe.blue - pf.blue};
        const int lo[3] = {r, g, b};
        const int ce = pe.red * pe.red + pe.green * pe.green + pe.blue * pe.blue;
        const int cf = pf.red * pf.red + pf.green * pf.green + pf.blue * pf.blue;
        int difference = ce - cf;
        for (int c = 0; c < 3; ++c) difference -= 2 * (de[c] > 0 ? lo[c] + 3 : lo[c]) * de[c];
        return difference < 0 || (difference == 0 && e < f);
    }

    const qNearestSearch& search_;
    const qPixRA* palette_;
    uint16_t* slots_;
    Cell* lists_;
    mutable int used_ = kFullSearch + 1;
    bool uniform_;
};

struct Rgb {
    int r, g, b;
};

inline int squared(int v) {
    return v * v;
}

inline bool similar(qPixRA a, qPixRA b) {
    return std::abs(a.red - b.red) + std::abs(a.green - b.green) + std::abs(a.blue - b.blue) <=
           kEdgeDistance;
}

// Error rows: the previous row's errors and colours, and the current row's, indexed x + 1 so
// that x = -1 and x = width are guards (never written). A guard or a transparent pixel has
// alpha 0 in `from` and passes no error.
struct ErrorRows {
    Rgb* error[2];
    qPixRA* from[2];
};

template <bool dither, class Reader>
int map_rows(qImageEdit& destination, const qImageAlias& source, Reader& in,
             const qIColormap* palette, const CellCache& cache, bool opaque, int strength256,
             ErrorRows rows, qIMonitor* monitor) {
    const int width = destination.width(), height = destination.height();
    const int transparent = palette->min_t_index();
    const qPixRA* entries = palette->colors();
    for (int y = 0; y < height; ++y) {
        in.start(source.pixel_address(y, 0));
        unsigned char* out = destination.pixel_address(y, 0);
        Rgb* above = rows.error[y & 1] + 1;
        Rgb* here = rows.error[(y + 1) & 1] + 1;
        qPixRA* above_from = rows.from[y & 1] + 1;
        qPixRA* here_from = rows.from[(y + 1) & 1] + 1;
        const int d = (y & 1) ? -1 : 1;
        const int first = d > 0 ? 0 : width - 1;
        for (int i = 0, x = first; i < width; ++i, x += d) {
            const qPixRA p = in(x);
            if (!opaque && p.alpha == 0) {
                if (transparent < 0) return ST_UNMAPPABLE;
                out[x] = static_cast<unsigned char>(transparent);
                here[x] = Rgb{0, 0, 0};
                here_from[x] = qPixRA{};
                continue;
            }
            int index = cache.nearest(p.red, p.green, p.blue);
            if constexpr (!dither) {
                out[x] = static_cast<unsigned char>(index);
                continue;
            }
            Rgb error{0, 0, 0};
            const qPixRA match = entries[index];
            const int miss = squared(p.red - match.red) + squared(p.green - match.green) +
                             squared(p.blue - match.blue);
            if (miss > kMatchDistance) {
                // Floyd-Steinberg weights, from neighbours of similar colour only.
                Rgb sum{0, 0, 0};
                // Without branches: whether a neighbour counts changes from pixel to pixel.
                const auto take = [&](const Rgb& e, qPixRA from, int weight) {
                    const int w = weight * ((from.alpha != 0) & similar(from, p));
                    sum.r += w * e.r, sum.g += w * e.g, sum.b += w * e.b;
                };
                take(here[x - d], here_from[x - d], 7);
                take(above[x - d], above_from[x - d], 3);
                take(above[x], above_from[x], 5);
                take(above[x + d], above_from[x + d], 1);
                const auto desired = [&](int value, int s) {
                    const int e = std::clamp(s * strength256 * kDiffusedEighths / (16 * 256 * 8),
                                             -kErrorLimit, kErrorLimit);
                    return std::clamp(value + e, 0, 255);
                };
                const int r = desired(p.red, sum.r), g = desired(p.green, sum.g),
                          b = desired(p.blue, sum.b);
                index = cache.nearest(r, g, b);
                const qPixRA chosen = entries[index];
                error = Rgb{r - chosen.red, g - chosen.green, b - chosen.blue};
            }
            out[x] = static_cast<unsigned char>(index);
            here[x] = error;
            here_from[x] = qPixRA{p.blue, p.green, p.red, 255};
        }
        if (!q_report_row(monitor, y + 1, height)) return ST_CANCELLED;
    }
    return ST_OK;
}

}  // namespace

int q_map_exact(qImageEdit& destination, const qImageAlias& source, const qIColormap* palette,
                bool dither, bool opaque, float strength, qIMonitor* monitor) {
    if (!palette || palette->num_colors() < 1 || palette->num_colors() > 256 ||
        !palette->colors()) {
        return ST_BAD_ARGUMENT;
    }
    if (destination.pixel_type() != PT_INDEX8 || !destination.valid()) return ST_UNSUPPORTED;
    const qPixelType type = source.pixel_type();
    if (type != PT_BGRA32 && type != PT_INDEX8) return ST_UNSUPPORTED;
    if (type == PT_INDEX8 && !source.colormap()) return ST_BAD_ARGUMENT;
    if (!source.valid() || source.width() < destination.width() ||
        source.height() < destination.height()) {
        return ST_BAD_ARGUMENT;
    }

    const qNearestSearch search(palette->colors(), palette->num_colors());
    // The cell slots, then the pool of candidate lists.
    auto* cells = static_cast<uint16_t*>(
        q_calloc(kFineCells * sizeof(uint16_t) + CellCache::kLists * sizeof(CellCache::Cell), 1));
    // Two rows of errors and two of colours, each width + 2 long.
    const size_t row = static_cast<size_t>(destination.width()) + 2;
    void* block = nullptr;
    if (cells && row <= SIZE_MAX / (2 * (sizeof(Rgb) + sizeof(qPixRA)))) {
        block = q_calloc(row, 2 * (sizeof(Rgb) + sizeof(qPixRA)));
    }
    if (!cells || !block) {
        q_free(cells);
        q_free(block);
        return ST_NO_MEMORY;
    }
    auto* errors = static_cast<Rgb*>(block);
    auto* colours = reinterpret_cast<qPixRA*>(errors + 2 * row);
    const ErrorRows rows{
        {errors,  errors + row },
        {colours, colours + row}
    };
    const int strength256 =
        strength > 0 ? static_cast<int>(std::lround(std::min(strength, 1.0f) * 256)) : 0;
    const CellCache cache(search, palette->colors(), cells,
                          reinterpret_cast<CellCache::Cell*>(cells + kFineCells));
    const bool diffuse = dither && strength256 > 0;
    // The mapper is chosen once: source reader, and whether to diffuse.
    const auto run = [&](auto& reader) {
        return diffuse ? map_rows<true>(destination, source, reader, palette, cache, opaque,
                                        strength256, rows, monitor)
                       : map_rows<false>(destination, source, reader, palette, cache, opaque,
                                         strength256, rows, monitor);
    };
    int status = 0;
    if (type == PT_BGRA32) {
        qBgra32Reader reader;
        status = run(reader);
    } else {
        qIndex8Reader reader(source.colormap());
        status = run(reader);
    }
    q_free(cells);
    q_free(block);
    return status;
}
