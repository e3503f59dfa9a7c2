// qPixelOpsPriv.h: the per-pixel arithmetic of every transfer, written once.
//
// The block transfer and the scaled transfer both draw through the row converters built from
// these pieces, and the SIMD kernels must give the very same bytes. All arithmetic is on ints
// holding 0..255; right shifts of negative values round toward minus infinity (arithmetic
// shifts), and the one division truncates toward zero.
//
//   source readers   expand one stored pixel to (b, g, r, a)
//   destination      PT_BGRA32 (4 bytes, alpha written) or PT_BGR24 (3 bytes, no alpha)
//   alpha rules      the source alpha, or the source alpha scaled by the constant opacity
//   operations       copy, over composite, source-alpha blend
#pragma once

#include <cstdint>
#include <cstring>

#include "qimg/core/qPixel.h"

// ((x * y + 127) * 257) >> 16: the product of two bytes as a byte. Equal to y when x is 255;
// it differs from round(x * y / 255) in 128 of the 65536 pairs, and this formula is the rule.
constexpr int q_scaled_product(int x, int y) {
    return ((x * y + 127) * 257) >> 16;
}

// Moves destination byte d toward source byte s by alpha a; stays within 0..255.
constexpr int q_channel_blend(int d, int s, int a) {
    return d + ((((s - d) * a + 127) * 257) >> 16);
}

// The alpha after compositing alpha a over a destination of alpha da.
constexpr int q_over_alpha(int da, int a) {
    return da + q_scaled_product(255 - da, a);
}

// One colour byte of the over composite: d moved toward s by a / na, truncating toward zero
// (C++ integer division), so the result lies between d and s.
constexpr int q_over_channel(int d, int s, int a, int na) {
    return d + ((s - d) * a) / na;
}

// ---- source readers: one stored pixel -> (b, g, r, a) ---------------------------------------
// `palette` is the 256-entry table of an indexed source (entries past the source palette's
// count are zero), ignored by the others.

struct qSrcBGRA32 {
    static constexpr int bytes = 4;
    static constexpr bool opaque = false;
    static qPixRA read(const unsigned char* p, const qPixRA*) { return {p[0], p[1], p[2], p[3]}; }
};
struct qSrcBGR24 {
    static constexpr int bytes = 3;
    static constexpr bool opaque = true;
    static qPixRA read(const unsigned char* p, const qPixRA*) { return {p[0], p[1], p[2], 255}; }
};
struct qSrcGrayAlpha16 {
    static constexpr int bytes = 2;
    static constexpr bool opaque = false;
    static qPixRA read(const unsigned char* p, const qPixRA*) { return {p[0], p[0], p[0], p[1]}; }
};
struct qSrcGray8 {
    static constexpr int bytes = 1;
    static constexpr bool opaque = true;
    static qPixRA read(const unsigned char* p, const qPixRA*) { return {p[0], p[0], p[0], 255}; }
};
struct qSrcIndex8 {
    static constexpr int bytes = 1;
    static constexpr bool opaque = false;
    static qPixRA read(const unsigned char* p, const qPixRA* palette) { return palette[p[0]]; }
};

// ---- destinations ----------------------------------------------------------------------------

struct qDstBGRA32 {
    static constexpr int bytes = 4;
    static constexpr bool has_alpha = true;
};
struct qDstBGR24 {
    static constexpr int bytes = 3;
    static constexpr bool has_alpha = false;
};

inline void q_put_colour(unsigned char* d, qPixRA s) {
    d[0] = s.blue;
    d[1] = s.green;
    d[2] = s.red;
}

// ---- alpha rules -----------------------------------------------------------------------------

struct qAlphaFromSource {
    static int alpha(qPixRA s, int) { return s.alpha; }
};
struct qAlphaTimesOpacity {
    static int alpha(qPixRA s, int opacity) { return q_scaled_product(s.alpha, opacity); }
};

// ---- operations ------------------------------------------------------------------------------

// Convert and copy: the source alpha is stored, not applied.
struct qOpCopy {
    template <class Dst, class Alpha>
    static void apply(unsigned char* d, qPixRA s, int) {
        q_put_colour(d, s);
        if constexpr (Dst::has_alpha) d[3] = s.alpha;
    }
};

// Over composite onto a PT_BGRA32 destination: alpha 0 leaves the pixel, 255 replaces it, the
// rest composite with the destination alpha.
struct qOpOver {
    template <class Dst, class Alpha>
    static void apply(unsigned char* d, qPixRA s, int opacity) {
        static_assert(Dst::has_alpha, "the over composite needs a destination alpha");
        const int a = Alpha::alpha(s, opacity);
        if (a == 0) return;
        if (a == 255) {
            q_put_colour(d, s);
            d[3] = 255;
            return;
        }
        const int na = q_over_alpha(d[3], a);
        d[0] = static_cast<unsigned char>(q_over_channel(d[0], s.blue, a, na));
        d[1] = static_cast<unsigned char>(q_over_channel(d[1], s.green, a, na));
        d[2] = static_cast<unsigned char>(q_over_channel(d[2], s.red, a, na));
        d[3] = static_cast<unsigned char>(na);
    }
};

// Source-alpha blend: a PT_BGRA32 destination takes the alpha first, in every case; the colour
// then stays (a = 0), is replaced (a = 255) or moves toward the source by a.
struct qOpBlend {
    template <class Dst, class Alpha>
    static void apply(unsigned char* d, qPixRA s, int opacity) {
        const int a = Alpha::alpha(s, opacity);
        if constexpr (Dst::has_alpha) d[3] = static_cast<unsigned char>(a);
        if (a == 0) return;
        if (a == 255) {
            q_put_colour(d, s);
            return;
        }
        d[0] = static_cast<unsigned char>(q_channel_blend(d[0], s.blue, a));
        d[1] = static_cast<unsigned char>(q_channel_blend(d[1], s.green, a));
        d[2] = static_cast<unsigned char>(q_channel_blend(d[2], s.red, a));
    }
};
