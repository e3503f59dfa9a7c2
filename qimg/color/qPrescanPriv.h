// qPrescanPriv.h: what every quantizer's prescan does before and while it counts pixels.
#pragma once

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qGeometry.h"
#include "qimg/core/qImageBuffer.h"
#include "qimg/core/qPixel.h"
#include "qimg/core/qStatus.h"
#include "qimg/palette/qIColormap.h"
#include "qimg/palette/qSafeColormap.h"

// Checks a prescan's image and area. ST_OK with `area` emptied when it was empty and
// `source_map` set to the colour map of an indexed image; ST_BAD_ARGUMENT null image, an indexed
// image that is not a qIIndexImage or has no colour map, or an area the image does not cover
// (also one whose rows have no address); ST_UNSUPPORTED a pixel type other than PT_BGRA32 and
// PT_INDEX8.
int q_check_prescan(const qIImageBuffer* image, qRect& area, const qIColormap*& source_map);

// Makes a quantizer's palette and its histogram of `cells` zeroed cells on the first prescan;
// later prescans keep counting into them. ST_NO_MEMORY leaves neither.
template <class Cell>
int q_prepare_histogram(qSafeColormap*& palette, Cell*& histogram, int cells) {
    if (histogram && palette) return ST_OK;
    delete palette;
    delete[] histogram;
    palette = q_new<qSafeColormap>();
    histogram = q_new_array<Cell>(cells);
    if (palette && histogram) return ST_OK;
    delete palette;
    delete[] histogram;
    palette = nullptr;
    histogram = nullptr;
    return ST_NO_MEMORY;
}

// Calls add(colour) for every pixel of `area` whose alpha is at least `min_alpha`; indexed
// pixels through `source_map` (read once per entry). The arguments are those q_check_prescan
// accepted.
template <class Add>
void q_for_each_counted(const qIImageBuffer* image, qRect area, const qIColormap* source_map,
                        unsigned char min_alpha, Add&& add) {
    if (!source_map) {
        for (int y = area.y; y < area.y + area.height; ++y) {
            const auto* row = reinterpret_cast<const qPixRA*>(image->pixel_address(y, 0)) + area.x;
            for (int x = 0; x < area.width; ++x) {
                if (row[x].alpha >= min_alpha) add(row[x]);
            }
        }
        return;
    }
    qPixRA colour[256];
    bool counted[256];
    for (int i = 0; i < 256; ++i) {
        colour[i] = source_map->get_color(i);
        counted[i] = colour[i].alpha >= min_alpha;
    }
    for (int y = area.y; y < area.y + area.height; ++y) {
        const unsigned char* row = image->pixel_address(y, 0) + area.x;
        for (int x = 0; x < area.width; ++x) {
            if (counted[row[x]]) add(colour[row[x]]);
        }
    }
}
