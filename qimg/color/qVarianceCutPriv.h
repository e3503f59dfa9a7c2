// qVarianceCutPriv.h: the first palette of the quality kind, by variance-minimising cuts.
#pragma once

#include "qimg/color/qFineHistogramPriv.h"
#include "qimg/core/qExport.h"

// Cuts the occupied cells of a kFineCells histogram into at most n boxes (n >= 1) and writes the
// pixel-weighted mean of each box, rounded half up, opaque, to palette[0..count-1]. Returns the
// count (0 for an empty histogram), or ST_NO_MEMORY when the working tables cannot be allocated.
QIMG_API int q_variance_cut(const qColorCell* histogram, int n, qPixRA* palette);
