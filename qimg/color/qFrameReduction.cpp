#include "qimg/color/qColorQuantProxy.h"
#include "qimg/color/qFrameReductionPriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/palette/qIColormap.h"

int q_generate_palette(qColorQuantProxy& quant, const qIImageBuffer* image, int num_colors,
                       qCmapType cmap_type, bool opaque, unsigned char min_alpha,
                       const qIColormap*& palette) {
    palette = nullptr;
    // The palette holds a transparent entry exactly when transparency is to be kept.
    const bool add_transparent = !opaque;
    if (cmap_type == CM_ADAPTIVE || cmap_type == CM_QUALITY) {
        if (!image) return ST_BAD_ARGUMENT;
        int rc = quant.create_quantizer(cmap_type);
        if (rc == 0) rc = quant.prescan_quantize(image, min_alpha);
        if (rc == 0) rc = quant.select_colors(num_colors, add_transparent);
        if (rc != 0) return rc;
        palette = quant.colormap();
    } else {
        const int rc = quant.create_fixed_colormap(num_colors, cmap_type, add_transparent);
        if (rc != 0) return rc;
        palette = quant.fixed_colormap();
    }
    return palette ? 0 : ST_BAD_ARGUMENT;
}

qPixRA q_representative_color(const qIImageBuffer* image) {
    constexpr qPixRA kNoAnswer{0, 0, 0, 0};
    if (!image) return kNoAnswer;
    // Two places with the second one reserved for transparency leave a single box: the whole
    // histogram, whose representative is the mean colour.
    qColorQuantProxy quant;
    if (quant.create_quantizer() != 0 || quant.prescan_quantize(image, 1) != 0 ||
        quant.select_colors(2, true) != 0) {
        return kNoAnswer;
    }
    const qIColormap* palette = quant.colormap();
    return palette ? palette->get_color(0) : kNoAnswer;
}
