// qVectorLanesPriv.h: the over composite and the source-alpha blend in the compiler's generic
// vectors, N pixels per step, for the baseline kernels and the tails of the AVX-512 ones.
//
// How the over composite loses its division without changing a result. Each colour byte is
// d + trunc((s - d) * a / na) with na in 1..255. The AVX2 and AVX-512 kernels divide once per
// pixel and multiply per channel (see over_8888_avx2). The portable-vector kernel works in single
// precision: with
//     scale = fl(fl(a / na) * (1 + 2^-18)),
// fl((s - d) * scale) is never below the exact quotient's magnitude (the factor outweighs three
// roundings of 2^-24) and exceeds it by at most 255 * 2^-17.9 < 1/255, while an inexact quotient
// lies at least 1/na >= 1/255 below the next integer. Truncating the float therefore gives the
// integer quotient for every (s - d, a, da). Both are checked exhaustively over all 33 million
// triples by the tests. a = 0 gives scale 0 and a = 255 gives na = 255 and the source colour, so
// no lane needs a branch, and a group of pixels that are all transparent or all opaque is
// skipped or copied whole.
//
// The templates are always inlined into the kernel that uses them and compiled for that
// kernel's instruction set, so each file that includes this keeps its own copy (hence the
// unnamed namespace).
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "qimg/raster/qPixelOpsPriv.h"
#include "qimg/raster/qRowKernelsIsaPriv.h"

#ifdef QIMG_X86_KERNELS

namespace {

template <int N>
struct Lanes {
    typedef uint32_t u32 __attribute__((vector_size(4 * N)));
    typedef int32_t i32 __attribute__((vector_size(4 * N)));
    typedef float f32 __attribute__((vector_size(4 * N)));
};

template <class V>
QIMG_INLINE V load(const unsigned char* p) {
    V v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
template <class V>
QIMG_INLINE void store(unsigned char* p, V v) {
    std::memcpy(p, &v, sizeof v);
}

// ((t * 257) >> 16) for t = x * y + 127: the scaled product, lane by lane.
template <class I>
QIMG_INLINE I scaled_product(I x, I y) {
    const I t = x * y + 127;
    return (t + (t << 8)) >> 16;
}

// True when every lane of v equals `value`. An OR over 64-bit pieces keeps this free of
// instruction-set specific intrinsics, so the same template serves both widths.
template <class I>
QIMG_INLINE bool all_equal(I v, int value) {
    const I differ = v ^ value;
    uint64_t pieces[sizeof(I) / 8];
    std::memcpy(pieces, &differ, sizeof pieces);
    uint64_t any = 0;
    for (uint64_t piece : pieces) any |= piece;
    return any == 0;
}

// Over composite of N PT_BGRA32 source pixels onto N PT_BGRA32 destination pixels.
template <int N, bool kOpacity>
QIMG_INLINE void over_group(unsigned char* dst, const unsigned char* src, int k) {
    using u32 = typename Lanes<N>::u32;
    using i32 = typename Lanes<N>::i32;
    using f32 = typename Lanes<N>::f32;
    const u32 s = load<u32>(src);
    i32 a = reinterpret_cast<i32>(s >> 24);
    if constexpr (kOpacity) a = scaled_product(a, i32{} + k);
    if (all_equal(a, 0)) return;
    if (all_equal(a, 255)) {
        store(dst, s | 0xff000000u);
        return;
    }
    const u32 d = load<u32>(dst);
    const i32 di = reinterpret_cast<i32>(d);
    const i32 si = reinterpret_cast<i32>(s);
    const i32 da = di >> 24 & 255;
    const i32 na = da + scaled_product(255 - da, a);
    const i32 safe_na = na < 1 ? 1 : na;
    const f32 scale = __builtin_convertvector(a, f32) / __builtin_convertvector(safe_na, f32) *
                      (1.0f + 1.0f / 262144.0f);
    i32 out = na << 24;
    for (int shift = 0; shift < 24; shift += 8) {
        const i32 sc = si >> shift & 255;
        const i32 dc = di >> shift & 255;
        const f32 diff = __builtin_convertvector(sc - dc, f32);
        out |= (dc + __builtin_convertvector(diff * scale, i32)) << shift;
    }
    store(dst, out);
}

// Source-alpha blend of N PT_BGRA32 pixels onto PT_BGRA32: alpha a always, colour moved by a.
template <int N, bool kOpacity>
QIMG_INLINE void blend_group(unsigned char* dst, const unsigned char* src, int k) {
    using u32 = typename Lanes<N>::u32;
    using i32 = typename Lanes<N>::i32;
    const u32 s = load<u32>(src);
    i32 a = reinterpret_cast<i32>(s >> 24);
    if constexpr (kOpacity) a = scaled_product(a, i32{} + k);
    if (all_equal(a, 255)) {
        store(dst, s);
        return;
    }
    const i32 di = load<i32>(dst);
    if (all_equal(a, 0)) {
        store(dst, di & 0x00ffffff);
        return;
    }
    const i32 si = reinterpret_cast<i32>(s);
    i32 out = a << 24;
    for (int shift = 0; shift < 24; shift += 8) {
        const i32 sc = si >> shift & 255;
        const i32 dc = di >> shift & 255;
        out |= (dc + scaled_product(sc - dc, a)) << shift;
    }
    store(dst, out);
}

// The scalar converter of the same cell finishes the last count % N pixels.
template <int N, bool kOpacity>
QIMG_INLINE void over_row(unsigned char* dst, const unsigned char* src, int count, int k) {
    int i = 0;
    for (; i + N <= count; i += N) over_group<N, kOpacity>(dst + 4 * i, src + 4 * i, k);
    using Alpha = std::conditional_t<kOpacity, qAlphaTimesOpacity, qAlphaFromSource>;
    for (; i < count; ++i) {
        qOpOver::apply<qDstBGRA32, Alpha>(dst + 4 * i, qSrcBGRA32::read(src + 4 * i, nullptr), k);
    }
}

template <int N, bool kOpacity>
QIMG_INLINE void blend_row(unsigned char* dst, const unsigned char* src, int count, int k) {
    int i = 0;
    for (; i + N <= count; i += N) blend_group<N, kOpacity>(dst + 4 * i, src + 4 * i, k);
    using Alpha = std::conditional_t<kOpacity, qAlphaTimesOpacity, qAlphaFromSource>;
    for (; i < count; ++i) {
        qOpBlend::apply<qDstBGRA32, Alpha>(dst + 4 * i, qSrcBGRA32::read(src + 4 * i, nullptr), k);
    }
}

}  // namespace

#endif
