// qQualityMappingPriv.h: how CM_QUALITY turns pixels into palette indices.
//
// Every pixel gets the entry nearest to its own colour (plain squared RGB distance, no cell
// rounding), or, with dithering, an error diffusion that keeps its noise where it helps:
//  - a pixel that a palette colour matches (within kMatchDistance) takes it and passes no error
//    on, so flat areas the palette holds stay clean and palette colours come back exactly;
//  - error is passed only between pixels of similar colour (within kEdgeDistance), so it does
//    not leak across edges into the other side;
//  - a pixel passes on 7/8 of its error, and what a pixel receives is limited to kErrorLimit per
//    channel, so error cannot build up into streaks and worms; the share kept back costs little
//    banding but takes much of the noise out of smooth gradients.
// The mapping and dithering of the other palette kinds (qImageEdit) are not touched by this.
#pragma once

#include "qimg/core/qExport.h"

class qIColormap;
class qIMonitor;
class qImageAlias;
class qImageEdit;

// Sum of absolute channel differences up to which two neighbours share error.
constexpr int kEdgeDistance = 96;
// Squared distance up to which a pixel counts as matched by an entry.
constexpr int kMatchDistance = 24;
// Largest error, per channel, a pixel receives.
constexpr int kErrorLimit = 32;
// Share of a pixel's error passed on, in eighths (at strength 1).
constexpr int kDiffusedEighths = 7;

// Fills `destination` (PT_INDEX8, at most the size of `source`, whose top-left part is read)
// with indices of `palette` for the pixels
// of `source` (PT_BGRA32, or PT_INDEX8 with a palette copy). `dither` turns the diffusion on,
// with its error scaled by `strength` (0 or below: none). With `opaque` false a pixel of alpha 0
// takes the palette's first transparent entry and any other pixel an opaque one; with `opaque`
// true alpha is ignored. ST_OK; ST_CANCELLED when `monitor` cancels (rows done stay written);
// ST_NO_MEMORY; ST_BAD_ARGUMENT null palette, an empty one, a smaller source, or an indexed
// source without palette copy; ST_UNSUPPORTED other pixel types; ST_UNMAPPABLE a transparent
// pixel and a palette without transparent entry.
QIMG_API int q_map_exact(qImageEdit& destination, const qImageAlias& source,
                         const qIColormap* palette, bool dither, bool opaque, float strength,
                         qIMonitor* monitor);
