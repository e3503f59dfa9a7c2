// qPaletteRefinementPriv.h: k-means passes that move a palette towards its pixels.
#pragma once

#include "qimg/color/qFineHistogramPriv.h"
#include "qimg/core/qExport.h"

// Squared error of a palette over histogram cells: each occupied cell counts as `count` pixels at
// the cell's mean colour, each taking its nearest opaque entry. For tests and the refinement.
QIMG_API double q_palette_error(const qColorCell* cells, int cell_count, const qPixRA* palette,
                                int size);

// Up to `passes` Lloyd passes over the occupied cells of cells[0..cell_count-1]: every cell goes
// to its nearest entry, every entry moves to the mean of its cells (rounded to whole values; an
// entry without cells stays). A pass is kept only when it lowers q_palette_error, so the palette
// never gets worse than it came. Returns the final error, or ST_BAD_ARGUMENT (a size outside
// 1..256, a negative cell count) or ST_NO_MEMORY (the working memory), both negative, with the
// palette unchanged. Entries keep their alpha.
QIMG_API double q_refine_palette(const qColorCell* cells, int cell_count, qPixRA* palette, int size,
                                 int passes);
