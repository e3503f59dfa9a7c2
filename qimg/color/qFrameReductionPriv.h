// qFrameReductionPriv.h: the palette work every frame kind shares when it reduces its image.
//
// A frame (the decorator around a plain image, a GIF frame) reduces its image in two forms: with
// a palette it generates, or with one the caller gives. The generated form only makes the palette
// here and then runs the frame's own given-palette form, which maps through
// qIndexImage::map_from_image. The representative colour is the one-box median cut of the image.
#pragma once

#include "qimg/core/qPixel.h"
#include "qimg/core/qTypes.h"

class qColorQuantProxy;
class qIColormap;
class qIImageBuffer;

// Makes the palette of a generated-palette reduction in `quant`:
//   CM_ADAPTIVE  median cut of `image` (pixels of alpha >= min_alpha), up to num_colors entries;
//   CM_QUALITY   the same from qQualityQuantizer;
//   otherwise    the fixed cube or grey ramp of num_colors entries (ST_UNSUPPORTED for an unknown
//   kind).
// With `opaque` false the last entry is transparent white and the colours take the other places.
// Sizes above the 256-entry room are clamped by the quantizer front. On 0, `palette` is the
// front's map (borrowed: it lives as long as `quant` holds it). ST_BAD_ARGUMENT for CM_ADAPTIVE
// without an image; the front's codes otherwise (ST_NO_MEMORY, ST_BAD_ARGUMENT an indexed image
// without colour map, ST_UNSUPPORTED an unsupported pixel type).
int q_generate_palette(qColorQuantProxy& quant, const qIImageBuffer* image, int num_colors,
                       qCmapType cmap_type, bool opaque, unsigned char min_alpha,
                       const qIColormap*& palette);

// The pixel-weighted mean colour of the pixels of `image` whose alpha is at least 1, each
// channel rounded half up, with alpha 255 (a one-box median cut); opaque black when no pixel
// counts. (0, 0, 0, 0) for a null image or when the palette cannot be made.
qPixRA q_representative_color(const qIImageBuffer* image);
