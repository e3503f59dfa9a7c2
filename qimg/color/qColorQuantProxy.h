// qColorQuantProxy.h: qColorQuantProxy, the front for choosing palettes.
//
// Two ways to a palette of at most 256 entries:
//   adaptive  create_quantizer(), prescan_quantize() one or more images, select_colors(n),
//             then colormap()
//   fixed     create_fixed_colormap(n, CM_CUBE or CM_GRAY), then fixed_colormap()
// The proxy holds one working object at a time (a quantizer or a fixed map); the palettes it
// hands out are borrowed and live until the proxy is destroyed or starts over.
//
//   qColorQuantProxy quant;
//   quant.create_quantizer();
//   quant.prescan_quantize(&image, 1);
//   quant.select_colors(16, true);           // up to 15 colours + transparent white
//   const qIColormap* palette = quant.colormap();
#pragma once

#include "qimg/core/qExport.h"
#include "qimg/core/qTypes.h"

class qIColormap;
class qIColorQuantizer;
class qIImageBuffer;
class qSafeColormap;

class QIMG_API qColorQuantProxy {
public:
    qColorQuantProxy() = default;
    ~qColorQuantProxy();
    qColorQuantProxy(const qColorQuantProxy&) = delete;
    qColorQuantProxy& operator=(const qColorQuantProxy&) = delete;

    // Drops what the proxy held and starts a new quantizer with an empty histogram: the median
    // cut for CM_ADAPTIVE, qQualityQuantizer for CM_QUALITY. ST_OK; ST_NO_MEMORY when it cannot
    // be allocated; ST_UNSUPPORTED for another kind (the proxy then holds nothing).
    int create_quantizer(qCmapType kind = CM_ADAPTIVE);
    // Adds every pixel of `image` whose alpha is at least `min_alpha` to the histogram.
    // ST_OK; ST_NO_MEMORY; ST_BAD_ARGUMENT no quantizer (create_quantizer not called, or a fixed
    // map held), null image, or an indexed image without colour map; ST_UNSUPPORTED a pixel type
    // other than PT_BGRA32 and PT_INDEX8. A failed call leaves the histogram unchanged.
    int prescan_quantize(const qIImageBuffer* image, unsigned char min_alpha);
    // Chooses at most n entries, the last of them transparent white when add_transparent
    // (see qHeckbertQuantizer::select_colors). ST_OK; ST_BAD_ARGUMENT without a quantizer or before
    // the first successful prescan_quantize.
    int select_colors(int n, bool add_transparent);
    // The quantizer's palette; null without a quantizer or before the first prescan.
    const qIColormap* colormap() const;

    // Drops what the proxy held and builds a fixed palette of n entries at most:
    //   CM_GRAY  n evenly spaced grey levels from 0 to 255 (black alone for n = 1; nothing
    //            for n < 1);
    //   CM_CUBE  the largest colour cube of 8, 12, 18, 27, 36, 48, 64, 80, 100, 125, 150, 180
    //            or 216 entries that fits n, red slowest and blue fastest; black and white for
    //            2 <= n < 8; black alone for n = 1 (a cube of one colour); black and white for
    //            n < 1.
    // With add_transparent one of the n places goes to a last entry, white with alpha 0.
    // n is clamped to the room of the 256-entry map (255 places plus the transparent entry).
    // ST_OK; ST_NO_MEMORY (nothing held); ST_UNSUPPORTED any other kind, CM_ADAPTIVE included (an
    // empty map is then held).
    int create_fixed_colormap(int n, qCmapType kind, bool add_transparent);
    // The map built by create_fixed_colormap; null when the proxy holds none.
    const qIColormap* fixed_colormap() const;

private:
    void release();

    // At most one of the two is held.
    qIColorQuantizer* quantizer_ = nullptr;
    qSafeColormap* fixed_ = nullptr;
};
