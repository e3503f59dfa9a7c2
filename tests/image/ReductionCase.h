// ReductionCase.h: one call of either quantize_colors form, written as data, so that tables of
// reductions stay tables.
#pragma once

#include "qimg/core/qComponent.h"

namespace qtest {

struct Reduction {
    bool given;             // the given-map form (else the generated-palette form)
    const qIColormap* map;  // given form
    int num_colors;         // generated form
    qCmapType kind;         // generated form
    qQuantizer quantizer;
    bool opaque;
    qIMonitor* monitor;
};

inline Reduction given(const qIColormap* map, qQuantizer quantizer, bool opaque,
                       qIMonitor* monitor = nullptr) {
    return Reduction{true, map, 0, CM_CUBE, quantizer, opaque, monitor};
}

inline Reduction generated(int num_colors, qCmapType kind, qQuantizer quantizer, bool opaque,
                           qIMonitor* monitor = nullptr) {
    return Reduction{false, nullptr, num_colors, kind, quantizer, opaque, monitor};
}

// Full colour diffusion, alpha diffused as well, min_alpha 1.
inline int reduce(qIFrame& frame, const Reduction& r) {
    return r.given ? frame.quantize_colors(r.map, r.quantizer, r.opaque, 1.0f, 1.0f, r.monitor)
                   : frame.quantize_colors(r.num_colors, r.kind, r.quantizer, r.opaque, 1.0f, 1.0f,
                                           1, r.monitor);
}

}  // namespace qtest
