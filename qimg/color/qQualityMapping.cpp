#include "qimg/color/qQualityMappingPriv.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "qimg/color/qColorMappingPriv.h"
#include "qimg/color/qFineHistogramPriv.h"
#include "qimg/color/qIColormap.h"
#include "qimg/color/qNearestSearchPriv.h"
#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/raster/qImageEdit.h"

namespace {

// Nearest entries of whole 6-bit cells, worked out when a cell is first met. A cell whose
// nearest entry beats the runner-up by more than the cell's diameter (4 * sqrt(3) / 2 twice)
// maps every colour inside it to that entry; the others keep the entry as the search's start.
class CellCache {
public:
    CellCache(const qNearestSearch& search, uint16_t* cells) : search_(search), cells_(cells) {}

    int nearest(int r, int g, int b) const {
        uint16_t& cell = cells_[q_fine_cell(r, g, b)];
        if (cell == 0) cell = fill(r, g, b);
        if (cell >> 8 == kSure) return cell & 0xff;
        return search_.nearest(static_cast<float>(r), static_cast<float>(g),
                               static_cast<float>(b), cell & 0xff);
    }

private:
    static constexpr int kSure = 1, kUnsure = 2;

    uint16_t fill(int r, int g, int b) const {
        const auto centre = [](int v) { return static_cast<float>((v & ~3) + 1.5); };
        const qNearestSearch::Answer a = search_.nearest_two(centre(r), centre(g), centre(b));
        const float diameter = 3.0f * std::sqrt(3.0f);
        const bool sure = std::sqrt(a.second) - std::sqrt(a.nearest) > diameter + 0.01f;
        return static_cast<uint16_t>((sure ? kSure : kUnsure) << 8 | a.index);
    }

    const qNearestSearch& search_;
    uint16_t* cells_;
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

template <class Reader>
int map_rows(qImageEdit& destination, const qImageAlias& source, Reader in,
             const qIColormap* palette, const CellCache& cache, bool dither, bool opaque,
             int strength16, ErrorRows rows, qIMonitor* monitor) {
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
            Rgb error{0, 0, 0};
            const qPixRA match = entries[index];
            const int miss = squared(p.red - match.red) + squared(p.green - match.green) +
                             squared(p.blue - match.blue);
            if (dither && miss > kMatchDistance) {
                // Floyd-Steinberg weights, from neighbours of similar colour only.
                Rgb sum{0, 0, 0};
                const auto take = [&](const Rgb& e, qPixRA from, int weight) {
                    if (from.alpha == 0 || !similar(from, p)) return;
                    sum.r += weight * e.r, sum.g += weight * e.g, sum.b += weight * e.b;
                };
                take(here[x - d], here_from[x - d], 7);
                take(above[x - d], above_from[x - d], 3);
                take(above[x], above_from[x], 5);
                take(above[x + d], above_from[x + d], 1);
                const auto desired = [&](int value, int s) {
                    const int e = std::clamp(s * strength16 / 256, -kErrorLimit, kErrorLimit);
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
    if (!source.valid() || source.size() != destination.size()) return ST_BAD_ARGUMENT;

    const qNearestSearch search(palette->colors(), palette->num_colors());
    auto* cells = static_cast<uint16_t*>(q_calloc(kFineCells, sizeof(uint16_t)));
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
        {errors, errors + row},
        {colours, colours + row}
    };
    // Strength in 1/16 units of the 16ths of the weights: 256 is full diffusion.
    const int strength16 = strength > 0 ? static_cast<int>(std::lround(std::min(strength, 1.0f) * 16)) : 0;
    const CellCache cache(search, cells);
    const bool diffuse = dither && strength16 > 0;
    const int status =
        type == PT_BGRA32
            ? map_rows(destination, source, qBgra32Reader{}, palette, cache, diffuse, opaque,
                       strength16, rows, monitor)
            : map_rows(destination, source, qIndex8Reader(source.colormap()), palette, cache,
                       diffuse, opaque, strength16, rows, monitor);
    q_free(cells);
    q_free(block);
    return status;
}
