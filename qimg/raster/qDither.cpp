// Serpentine error diffusion (qImageEdit::dither_colors).
//
// Method. Each pixel is mapped to a palette entry after adding to it a share of the errors of
// its already mapped neighbours; its own error (wanted minus got, through the error table) is
// passed on. Even rows run left to right, odd rows right to left (the parity of the absolute
// row), so the errors do not drift towards one side of the picture:
//
//                 this row:   ...   r  [x]  ->   (r = running error, pixel just done)
//        previous row's E:   E[x-d]  E[x]  E[x+d]
//
//     diffused = (3 E[x+d] + 5 E[x] + 1 E[x-d] + 7 r) / 16      (d = +1 or -1, the direction)
//
// There is one error row per channel, updated in place: when pixel x is computed, E[x] and
// E[x+d] still hold the previous row's errors while E[x-d] has already been overwritten with
// this row's error of the previous pixel, and E[x] is overwritten with the new one right after.
// So the rows need no second buffer and no copy between rows; the 1/16 share of the previous
// row's corner is taken from the pixel just done instead (which therefore weighs 8/16). The
// rows have a guard cell at each end (-1 and width), never written and always 0, so the first
// and last pixels need no special case.
//
// Precision. All per-pixel arithmetic is integer. The strengths and the error limit are folded
// into two 1024-entry tables, built once per call (qDitherPriv.h). Table entries never exceed
// 240 in size, so a diffused error lies within -240..240, a wanted value within -240..495 and a
// table index (wanted minus a palette value 0..255) within -495..495: always inside the table.
// The division truncates toward zero.
//
// Alpha. With transparency kept and alpha_strength > 0, alpha is diffused like a colour channel
// and a pixel whose wanted alpha is below 128 takes the transparent entry; otherwise alpha is
// two-level (alpha 0 exactly gives the transparent entry). A pixel that got the transparent
// entry passes on no colour error: its colour is not seen, so there is nothing to correct.
#include <cstddef>
#include <cstdint>

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/raster/qColorMappingPriv.h"
#include "qimg/raster/qDitherPriv.h"

namespace {

enum DitherAlpha {
    kOpaque,    // source alpha ignored, every pixel gets a colour
    kTwoLevel,  // alpha 0 gives the transparent entry, colour diffused
    kDiffused,  // colour and alpha diffused
};

// The four error rows, each width + 2 cells addressed -1..width.
struct ErrorRows {
    int32_t* channel[4];  // blue, green, red, alpha; each points at cell 0
};

inline int clamp_byte(int v) {
    return v < 0 ? 0 : (v > 255 ? 255 : v);
}

struct Tables {
    int16_t color[kErrorTableSize];
    int16_t alpha[kErrorTableSize];
};

struct PaletteCopy {
    qPixRA colour[256];
    const qIExColormap* map;
    qPixRA operator[](int index) const {
        return index < 256 ? colour[index] : map->get_color(index);
    }
};

// One row in direction d. False when a pixel has no index.
template <DitherAlpha kAlpha, class Reader, class Lookup>
bool dither_row(unsigned char* out, const Reader& in, int width, int y, const Lookup& lookup,
                const PaletteCopy& palette, const Tables& tables, const ErrorRows& rows) {
    const int16_t* color_table = tables.color + kErrorTableOffset;
    const int16_t* alpha_table = tables.alpha + kErrorTableOffset;
    int32_t* eb = rows.channel[0];
    int32_t* eg = rows.channel[1];
    int32_t* er = rows.channel[2];
    int32_t* ea = rows.channel[3];
    const int d = (y & 1) ? -1 : 1;
    int x = d > 0 ? 0 : width - 1;
    int rb = 0, rg = 0, rr = 0, ra = 0;
    for (int n = 0; n < width; ++n, x += d) {
        const qPixRA p = in(x);
        const int want_b = p.blue + (3 * eb[x + d] + 5 * eb[x] + eb[x - d] + 7 * rb) / 16;
        const int want_g = p.green + (3 * eg[x + d] + 5 * eg[x] + eg[x - d] + 7 * rg) / 16;
        const int want_r = p.red + (3 * er[x + d] + 5 * er[x] + er[x - d] + 7 * rr) / 16;
        int want_a = 0;
        int index;
        if constexpr (kAlpha == kDiffused) {
            want_a = p.alpha + (3 * ea[x + d] + 5 * ea[x] + ea[x - d] + 7 * ra) / 16;
            index = lookup.with_alpha(clamp_byte(want_r), clamp_byte(want_g), clamp_byte(want_b),
                                      clamp_byte(want_a));
        } else if constexpr (kAlpha == kTwoLevel) {
            index = p.alpha == 0 ? lookup.transparent
                                 : lookup.nearest(clamp_byte(want_r), clamp_byte(want_g),
                                                  clamp_byte(want_b));
        } else {
            index = lookup.nearest(clamp_byte(want_r), clamp_byte(want_g), clamp_byte(want_b));
        }
        if (index < 0) return false;
        out[x] = static_cast<unsigned char>(index);

        const qPixRA got = palette[index];
        if (kAlpha == kOpaque || got.alpha != 0) {
            rb = color_table[want_b - got.blue];
            rg = color_table[want_g - got.green];
            rr = color_table[want_r - got.red];
        } else {
            rb = rg = rr = 0;
        }
        if constexpr (kAlpha == kDiffused) ra = alpha_table[want_a - got.alpha];
        eb[x] = rb;
        eg[x] = rg;
        er[x] = rr;
        ea[x] = ra;
    }
    return true;
}

}  // namespace

int qImageEdit::dither_colors(qRect area, const qImageAlias* source, qPoint source_origin,
                              const qIExColormap* map, bool opaque, float color_strength,
                              float alpha_strength, qIMonitor* monitor) {
    if (!source || !map) return ST_BAD_ARGUMENT;
    Tables tables;
    q_fill_error_table(tables.color, color_strength);
    q_fill_error_table(tables.alpha, alpha_strength);

    // The error rows are sized for the area as clipped to this view.
    const qRect clipped = area.intersect(qRect(size()));
    if (clipped.width < 1) return ST_NO_MEMORY;
    const size_t cells = static_cast<size_t>(clipped.width) + 2;
    auto* block = static_cast<int32_t*>(q_calloc(4 * cells, sizeof(int32_t)));
    if (!block) return ST_NO_MEMORY;
    const ErrorRows rows{
        {block + 1, block + cells + 1, block + 2 * cells + 1, block + 3 * cells + 1}
    };

    qMappingJob job;
    int status = q_prepare_mapping(*this, area, source, source_origin, map, job);
    if (status == 0 && !job.area.empty()) {
        PaletteCopy palette;
        palette.map = map;
        for (int i = 0; i < 256; ++i) palette.colour[i] = map->get_color(i);
        const DitherAlpha mode = opaque ? kOpaque : (alpha_strength > 0 ? kDiffused : kTwoLevel);

        status = q_dispatch_mapping(job, map, [&](auto reader, const auto& lookup) {
            const qRect& a = job.area;
            for (int y = a.y; y < a.y + a.height; ++y) {
                reader.start(source->pixel_address(y, job.source_x));
                unsigned char* out = pixel_address(y, a.x);
                bool ok;
                switch (mode) {
                    case kOpaque:
                        ok = dither_row<kOpaque>(out, reader, a.width, y, lookup, palette, tables,
                                                 rows);
                        break;
                    case kTwoLevel:
                        ok = dither_row<kTwoLevel>(out, reader, a.width, y, lookup, palette, tables,
                                                   rows);
                        break;
                    default:
                        ok = dither_row<kDiffused>(out, reader, a.width, y, lookup, palette, tables,
                                                   rows);
                        break;
                }
                if (!ok) return ST_UNMAPPABLE;
                if (!q_report_row(monitor, y - a.y + 1, a.height)) return ST_CANCELLED;
            }
            return ST_OK;
        });
    }
    q_free(block);
    return status;
}
