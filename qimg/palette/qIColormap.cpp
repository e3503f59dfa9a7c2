#include "qimg/palette/qIColormap.h"

#include "qimg/core/qNoValuePriv.h"

qIColormap::~qIColormap() = default;
qIExColormap::~qIExColormap() = default;

// Both queries reach the entries only through num_colors() and get_color(), so they hold for
// every kind of map.
qAlphaType qIColormap::alpha_hint() const {
    qAlphaType result = AT_OPAQUE;
    for (int i = 0; i < num_colors(); ++i) {
        const unsigned char alpha = get_color(i).alpha;
        if (alpha == 255) continue;
        if (alpha != 0) return AT_TRANSLUCENT;
        result = AT_BILEVEL;
    }
    return result;
}

int qIColormap::min_t_index() const {
    for (int i = 0; i < num_colors(); ++i) {
        if (get_color(i).alpha == 0) return i;
    }
    return kNoValue;
}
