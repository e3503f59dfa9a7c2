// qIColorQuantizer.h: qIColorQuantizer, the adaptive palette chooser behind qColorQuantProxy.
//
// A quantizer gathers the colours of one or more images (prescan) and then chooses a palette
// for them (select_colors). qHeckbertQuantizer, the median cut, is the one implementation.
#pragma once

#include "qimg/core/qExport.h"
#include "qimg/core/qGeometry.h"

class qIColormap;
class qIImageBuffer;

class QIMG_API qIColorQuantizer {
public:
    virtual ~qIColorQuantizer();
    // Adds the pixels of `area` whose alpha is at least `min_alpha` to the colour statistics;
    // every call adds to the same statistics. ST_OK; ST_NO_MEMORY; ST_BAD_ARGUMENT null image, an
    // area the image does not cover, or an indexed image without colour map; ST_UNSUPPORTED a pixel
    // type other than PT_BGRA32 and PT_INDEX8. After a failure the statistics are as they were.
    virtual int prescan(const qIImageBuffer* image, qRect area, unsigned char min_alpha) = 0;
    // Chooses at most n colours (n - 1 plus a transparent white entry when add_transparent)
    // for the pixels prescanned so far. ST_OK; ST_BAD_ARGUMENT when nothing was prescanned yet.
    virtual int select_colors(int n, bool add_transparent) = 0;
    // The palette built so far; null before the first successful prescan. Owned by the
    // quantizer.
    virtual const qIColormap* colormap() const = 0;
};
