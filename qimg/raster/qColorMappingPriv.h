// qColorMappingPriv.h: what the plain and the diffusing colour mappers share.
//
// Both mappers turn the pixels of a source view (PT_BGRA32, or PT_INDEX8 through the view's
// palette copy) into indices of a qIExColormap, row by row, into a PT_INDEX8 view. Here: the
// checks and clipping done once per call, the two ways of reading a source pixel, and the two
// ways of asking the map (through the interface, or straight from the cache of a qGifColormap
// without a virtual call per pixel). The mapper is chosen once per call by instantiating a row
// template for one reader and one look-up.
#pragma once

#include <cstdint>
#include <typeinfo>

#include "qimg/color/qGifColormap.h"
#include "qimg/core/qGeometry.h"
#include "qimg/core/qMonitor.h"
#include "qimg/palette/qIColormap.h"
#include "qimg/palette/qSafeColormap.h"
#include "qimg/raster/qImageEdit.h"

// Rows and columns one call maps, after checks and clipping.
struct qMappingJob {
    qRect area;                                     // destination pixels, inside the destination
    int source_x = 0;                               // source column of the area's first column
    const qSafeColormap* source_palette = nullptr;  // the palette copy of a PT_INDEX8 source
    qPixelType source_type = static_cast<qPixelType>(0);
};

// Checks the views and clips `area` to the destination. 0 with `job` filled (an empty area is
// no error); ST_BAD_ARGUMENT null source or map, an indexed source without palette copy, or a
// source that does not cover the clipped area from `source_origin`'s column on (row y always reads
// source row y); ST_UNSUPPORTED a destination that is not PT_INDEX8 or a source that is neither
// PT_BGRA32 nor PT_INDEX8. Nothing is written.
int q_prepare_mapping(const qImageEdit& destination, qRect area, const qImageAlias* source,
                      qPoint source_origin, const qIExColormap* map, qMappingJob& job);

// Tells the monitor that `done` of `total` rows are finished; false when it asks to stop.
inline bool q_report_row(qIMonitor* monitor, int done, int total) {
    return !monitor || monitor->progress(done, total, 0, 1);
}

// ---- reading a source row --------------------------------------------------------------------

struct qBgra32Reader {
    const qPixRA* row = nullptr;
    void start(const unsigned char* address) { row = reinterpret_cast<const qPixRA*>(address); }
    qPixRA operator()(int x) const { return row[x]; }
};

struct qIndex8Reader {
    const unsigned char* row = nullptr;
    qPixRA colour[256];
    explicit qIndex8Reader(const qSafeColormap* palette) {
        for (int i = 0; i < 256; ++i) colour[i] = palette->get_color(i);
    }
    void start(const unsigned char* address) { row = address; }
    qPixRA operator()(int x) const { return colour[row[x]]; }
};

// ---- asking the map --------------------------------------------------------------------------

// Any qIExColormap, through its virtual look-ups.
struct qVirtualLookup {
    const qIExColormap* map;
    int transparent;  // map->min_t_index(), asked once per call
    int nearest(int r, int g, int b) const {
        return map->nearest_index(static_cast<unsigned char>(r), static_cast<unsigned char>(g),
                                  static_cast<unsigned char>(b));
    }
    int with_alpha(int r, int g, int b, int a) const {
        return map->map_color(static_cast<unsigned char>(r), static_cast<unsigned char>(g),
                              static_cast<unsigned char>(b), static_cast<unsigned char>(a));
    }
};

// Exactly a qGifColormap: the same answers, read from its cache inline.
struct qCacheLookup {
    const qGifColormap* map;
    int transparent;  // map->min_t_index()
    int below_half;   // map_color's answer for alpha below 128 (the wrapped map's transparent)
    int nearest(int r, int g, int b) const {
        return map->lookup(static_cast<unsigned char>(r), static_cast<unsigned char>(g),
                           static_cast<unsigned char>(b));
    }
    int with_alpha(int r, int g, int b, int a) const {
        return a < 128 ? below_half : nearest(r, g, b);
    }
};

// Calls `run(reader, lookup)` with the reader for the job's source type and the fastest look-up
// that gives the map's own answers.
template <class Run>
int q_dispatch_mapping(const qMappingJob& job, const qIExColormap* map, Run&& run) {
    const int transparent = map->min_t_index();
    // typeid, not dynamic_cast: a class derived from qGifColormap may answer differently.
    if (typeid(*map) == typeid(qGifColormap)) {
        const qCacheLookup lookup{static_cast<const qGifColormap*>(map), transparent,
                                  map->map_color(0, 0, 0, 0)};
        if (job.source_type == PT_BGRA32) return run(qBgra32Reader{}, lookup);
        return run(qIndex8Reader(job.source_palette), lookup);
    }
    const qVirtualLookup lookup{map, transparent};
    if (job.source_type == PT_BGRA32) return run(qBgra32Reader{}, lookup);
    return run(qIndex8Reader(job.source_palette), lookup);
}
