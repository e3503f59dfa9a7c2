// Nearest-colour mapping (qImageEdit::map_colors) and the checks every mapper shares.
//
// Each pixel goes to the nearest palette entry on its own; nothing is carried from pixel to
// pixel. With transparency kept, a pixel of alpha 0 takes the map's transparent entry and every
// other pixel an opaque colour, whatever its alpha: partial alphas are not kept by nearest
// mapping (the diffusing mapper can dither them).
#include <cstdint>

#include "qimg/core/qStatus.h"
#include "qimg/raster/qColorMappingPriv.h"

int q_prepare_mapping(const qImageEdit& destination, qRect area, const qImageAlias* source,
                      qPoint source_origin, const qIExColormap* map, qMappingJob& job) {
    if (!source || !map) return ST_BAD_ARGUMENT;
    if (destination.pixel_type() != PT_INDEX8 || !destination.valid()) return ST_UNSUPPORTED;
    const qPixelType type = source->pixel_type();
    if (type != PT_BGRA32 && type != PT_INDEX8) return ST_UNSUPPORTED;
    if (type == PT_INDEX8 && !source->colormap()) return ST_BAD_ARGUMENT;

    const qRect clipped = area.intersect(qRect(destination.size()));
    job = qMappingJob{};
    job.source_type = type;
    job.source_palette = source->colormap();
    if (clipped.empty()) return 0;
    // A destination column maps to the source column that is as far from source_origin as the
    // column is from the area's left edge; clipping moves both together.
    const int64_t source_x = int64_t{source_origin.x} + (int64_t{clipped.x} - area.x);
    if (!source->valid() || source_x < 0 || source_x + clipped.width > source->width() ||
        int64_t{clipped.y} + clipped.height > source->height()) {
        return ST_BAD_ARGUMENT;
    }
    job.area = clipped;
    job.source_x = static_cast<int>(source_x);
    return 0;
}

namespace {

// One row, left to right. False when a pixel has no index.
template <bool kKeepTransparency, class Reader, class Lookup>
bool map_row(unsigned char* out, const Reader& in, int width, const Lookup& lookup) {
    for (int x = 0; x < width; ++x) {
        const qPixRA p = in(x);
        const int index = kKeepTransparency && p.alpha == 0
                              ? lookup.transparent
                              : lookup.nearest(p.red, p.green, p.blue);
        if (index < 0) return false;
        out[x] = static_cast<unsigned char>(index);
    }
    return true;
}

}  // namespace

int qImageEdit::map_colors(qRect area, const qImageAlias* source, qPoint source_origin,
                           const qIExColormap* map, bool opaque, qIMonitor* monitor) {
    qMappingJob job;
    const int status = q_prepare_mapping(*this, area, source, source_origin, map, job);
    if (status != 0 || job.area.empty()) return status;

    return q_dispatch_mapping(job, map, [&](auto reader, const auto& lookup) {
        const qRect& a = job.area;
        for (int y = a.y; y < a.y + a.height; ++y) {
            reader.start(source->pixel_address(y, job.source_x));
            unsigned char* out = pixel_address(y, a.x);
            const bool ok = opaque ? map_row<false>(out, reader, a.width, lookup)
                                   : map_row<true>(out, reader, a.width, lookup);
            if (!ok) return ST_UNMAPPABLE;
            if (!q_report_row(monitor, y - a.y + 1, a.height)) return ST_CANCELLED;
        }
        return ST_OK;
    });
}
