// qImageEdit.h: qImageEdit, the writable view.
//
// The same view as qImageAlias, bound only to writable memory, with the operations that write:
// the block transfer, the rectangle fill, the scaled transfer and colour mapping. All of them
// clip to both views, work row by row through the row tables, call the optional monitor after
// each row and stop (result 1) when it answers false.
#pragma once

#include "qimg/core/qTypes.h"
#include "qimg/raster/qImageAlias.h"

class qIExColormap;
class qIImageBuffer;
class qIMonitor;

class QIMG_API qImageEdit : public qImageAlias {
public:
    qImageEdit() = default;
    ~qImageEdit() override;

    // The bindings of qImageAlias, for memory that may be written.
    int Bind(unsigned char* pixels, qSize size, int stride, qPixelType type);
    int Bind(qIImageBuffer* buffer);
    int Bind(qIndexImage* image);

    // Copies the area of `src` that starts at `src_pos` into `dst_rect` of this view, clipped
    // to both, converting pixel types and applying `mode` with constant `opacity` (255 = none).
    // Any 32-bit rectangle and position is accepted; nothing outside either view is touched.
    // 0 (also when nothing is left after clipping, which is tested first), ST_CANCELLED (the rows
    // reported so far stay written), ST_BAD_ARGUMENT null source or a missing palette copy,
    // ST_UNSUPPORTED unsupported mode or pixel-type pair; nothing is written on ST_BAD_ARGUMENT or
    // ST_UNSUPPORTED. A PT_INDEX8 destination takes indices only from a source whose palette copy
    // equals its own; from any other source it is left unchanged (result 0). Without a monitor,
    // rows that follow each other in memory are converted in one run.
    int BitBlt(qRect dst_rect, const qImageAlias* src, qPoint src_pos, qBltMode mode,
               unsigned char opacity, qIMonitor* monitor);

    // Paints the PT_BGRA32 colour at `colour` into `dst_rect`, clipped to the view; PT_BGRA32
    // and PT_BGR24 views only (the latter ignores the alpha byte). 0 (also for an empty area,
    // which is tested first), ST_CANCELLED (rows reported so far stay painted), ST_BAD_ARGUMENT
    // null colour, ST_UNSUPPORTED unsupported view or colour type; nothing is written on
    // ST_BAD_ARGUMENT or ST_UNSUPPORTED.
    int FillRect(qRect dst_rect, qPixelType colour_type, const unsigned char* colour,
                 qIMonitor* monitor);

    // BitBlt magnified by (scale_x, scale_y) with nearest-neighbour sampling (method 1);
    // factors of exactly 1.0 are BitBlt, whatever `method`. `src_pos` is a position in the
    // magnified source. Checks in order: null source (ST_BAD_ARGUMENT), factors 1.0, method other
    // than 1 (ST_UNSUPPORTED), a factor that is 0, negative, NaN or infinite (ST_BAD_ARGUMENT: it
    // has no usable reciprocal), clipping (0 when nothing is left), the column map (ST_NO_MEMORY
    // when it cannot be allocated), mode and pixel-type pair (ST_UNSUPPORTED; no PT_INDEX8
    // destination and no other same-type copies than PT_BGRA32 and PT_BGR24), a PT_INDEX8 source
    // without palette copy (ST_BAD_ARGUMENT). Extreme finite factors (1e-30, 1e30) draw the clipped
    // result. ST_CANCELLED, rows so far stay written.
    int ScaledBlt(qRect dst_rect, const qImageAlias* src, qPoint src_pos, float scale_x,
                  float scale_y, int method, qBltMode mode, unsigned char opacity,
                  qIMonitor* monitor);

    // Maps the source pixels to indices of `map` in this PT_INDEX8 view, nearest colour.
    // 0, ST_CANCELLED, ST_BAD_ARGUMENT indexed source without palette copy, ST_UNSUPPORTED
    // unsupported types, ST_UNMAPPABLE a pixel that cannot be mapped.
    int map_colors(qRect area, const qImageAlias* source, qPoint source_origin,
                   const qIExColormap* map, bool opaque, qIMonitor* monitor);
    // The same with serpentine error diffusion of colour (and of alpha when alpha_strength > 0).
    // Adds ST_NO_MEMORY when the error rows cannot be allocated.
    int dither_colors(qRect area, const qImageAlias* source, qPoint source_origin,
                      const qIExColormap* map, bool opaque, float color_strength,
                      float alpha_strength, qIMonitor* monitor);
};
