#include "qimg/color/qColorQuantProxy.h"

#include "qimg/color/qHeckbertQuantizer.h"
#include "qimg/color/qQualityQuantizer.h"
#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qImageBuffer.h"
#include "qimg/core/qStatus.h"
#include "qimg/palette/qSafeColormap.h"

namespace {

constexpr qPixRA kBlack{0, 0, 0, 255};
constexpr qPixRA kWhite{255, 255, 255, 255};
constexpr qPixRA kTransparentWhite{255, 255, 255, 0};

inline qPixRA grey(int v) {
    const auto c = static_cast<unsigned char>(v);
    return qPixRA{c, c, c, 255};
}

// Value of level j of a channel with `levels` levels spread over 0..255, rounded half up, so
// the ends are always exactly 0 and 255.
inline int level_value(int j, int levels) {
    const int d = levels - 1;
    return (255 * j + d / 2) / d;
}

// Cube shapes, largest first: the first that fits n is taken.
struct CubeShape {
    int entries, red, green, blue;
};
constexpr CubeShape kCubes[] = {
    {216, 6, 6, 6},
    {180, 6, 6, 5},
    {150, 5, 6, 5},
    {125, 5, 5, 5},
    {100, 5, 5, 4},
    {80,  4, 5, 4},
    {64,  4, 4, 4},
    {48,  4, 4, 3},
    {36,  3, 4, 3},
    {27,  3, 3, 3},
    {18,  3, 3, 2},
    {12,  2, 3, 2},
    {8,   2, 2, 2},
};

// Writes from index `next`; returns the next free index.
int fill_gray(qSafeColormap& map, int n, int next) {
    for (int k = next; k < n; ++k) map.set_color(k, grey(level_value(k, n)));
    return next > n ? next : n;
}

int fill_cube(qSafeColormap& map, int n, int next) {
    for (const CubeShape& cube : kCubes) {
        if (cube.entries > n) continue;
        for (int r = 0; r < cube.red; ++r) {
            for (int g = 0; g < cube.green; ++g) {
                for (int b = 0; b < cube.blue; ++b) {
                    map.set_color(
                        next++, qPixRA{static_cast<unsigned char>(level_value(b, cube.blue)),
                                       static_cast<unsigned char>(level_value(g, cube.green)),
                                       static_cast<unsigned char>(level_value(r, cube.red)), 255});
                }
            }
        }
        return next;
    }
    map.set_color(next++, kBlack);
    map.set_color(next++, kWhite);
    return next;
}

}  // namespace

qColorQuantProxy::~qColorQuantProxy() {
    release();
}

void qColorQuantProxy::release() {
    delete quantizer_;
    delete fixed_;
    quantizer_ = nullptr;
    fixed_ = nullptr;
}

int qColorQuantProxy::create_quantizer(qCmapType kind) {
    release();
    if (kind == CM_QUALITY) {
        quantizer_ = q_new<qQualityQuantizer>();
    } else if (kind == CM_ADAPTIVE) {
        quantizer_ = q_new<qHeckbertQuantizer>();
    } else {
        return ST_UNSUPPORTED;
    }
    return quantizer_ ? ST_OK : ST_NO_MEMORY;
}

int qColorQuantProxy::prescan_quantize(const qIImageBuffer* image, unsigned char min_alpha) {
    if (!quantizer_ || !image) return ST_BAD_ARGUMENT;
    const qSize size = image->size();
    return quantizer_->prescan(image, qRect(0, 0, size.width, size.height), min_alpha);
}

int qColorQuantProxy::select_colors(int n, bool add_transparent) {
    return quantizer_ ? quantizer_->select_colors(n, add_transparent) : ST_BAD_ARGUMENT;
}

const qIColormap* qColorQuantProxy::colormap() const {
    return quantizer_ ? quantizer_->colormap() : nullptr;
}

const qIColormap* qColorQuantProxy::fixed_colormap() const {
    return fixed_;
}

int qColorQuantProxy::create_fixed_colormap(int n, qCmapType kind, bool add_transparent) {
    release();
    fixed_ = q_new<qSafeColormap>();
    if (!fixed_) return ST_NO_MEMORY;
    if (kind != CM_CUBE && kind != CM_GRAY) return ST_UNSUPPORTED;

    if (add_transparent) n -= 1;
    const int room = qSafeColormap::kCapacity - (add_transparent ? 1 : 0);
    if (n > room) n = room;

    int next = 0;
    if (n == 1) {
        // One colour: black. The cube would add black and white after it, more than was asked.
        fixed_->set_color(next++, kBlack);
    } else if (kind == CM_GRAY) {
        if (n > 1) next = fill_gray(*fixed_, n, next);
    } else {
        next = fill_cube(*fixed_, n, next);
    }
    if (add_transparent) fixed_->set_color(next, kTransparentWhite);
    return 0;
}
