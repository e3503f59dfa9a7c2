// Row kernels for AVX2: intrinsics, 8 pixels per step, in functions compiled for AVX2.
//
// The over composite here divides once per pixel instead of once per channel (see
// q_over_8888_avx2); the portable-vector kernel's way of losing the division is described in
// qVectorLanesPriv.h.
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "qimg/raster/qPixelOpsPriv.h"
#include "qimg/raster/qRowKernelsIsaPriv.h"

#ifdef QIMG_X86_KERNELS
#include <immintrin.h>

// The 8-lane helpers pass 256-bit vectors by value; they are always inlined into functions
// compiled for AVX2, so the calling-convention difference the compiler warns about never occurs.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace {

// One pixel per 32-bit lane. Products of two bytes fit the low 16 bits of a lane whose high half
// is zero, so the 16-bit multiplies give them exactly; a signed difference times an alpha uses
// madd, whose lane result is diff * alpha when the alpha's high half is zero.

QIMG_AVX2 QIMG_INLINE __m256i scaled_product_avx2(__m256i x, __m256i y) {
    const __m256i t = _mm256_add_epi32(_mm256_mullo_epi16(x, y), _mm256_set1_epi32(127));
    return _mm256_mulhi_epu16(t, _mm256_set1_epi32(257));
}

// Byte `channel` of every pixel, as a 32-bit lane. Byte 0 is a mask, which unlike the byte
// shuffle runs on every vector pipe (shuffles and shifts are what these kernels queue for).
QIMG_AVX2 QIMG_INLINE __m256i channel_avx2(__m256i v, int channel) {
    if (channel == 0) return _mm256_and_si256(v, _mm256_set1_epi32(255));
    const char c = static_cast<char>(channel), z = -1;
    const __m256i pick =
        _mm256_setr_epi8(c, z, z, z, c + 4, z, z, z, c + 8, z, z, z, c + 12, z, z, z, c, z, z, z,
                         c + 4, z, z, z, c + 8, z, z, z, c + 12, z, z, z);
    return _mm256_shuffle_epi8(v, pick);
}

QIMG_AVX2 QIMG_INLINE __m256i join_avx2(__m256i b, __m256i g, __m256i r, __m256i a) {
    return _mm256_or_si256(_mm256_or_si256(b, _mm256_slli_epi32(g, 8)),
                           _mm256_or_si256(_mm256_slli_epi32(r, 16), _mm256_slli_epi32(a, 24)));
}

template <bool kOpacity>
QIMG_AVX2 QIMG_INLINE __m256i alpha_avx2(__m256i s, __m256i k) {
    const __m256i a = _mm256_srli_epi32(s, 24);
    return kOpacity ? scaled_product_avx2(a, k) : a;
}

// The AVX2 over composite works on bytes and 16-bit lanes and divides once per pixel, not per
// channel. With x = |s - d| and na in 1..255, the colour byte is d + sign(s - d) * floor(x * a /
// na), and floor(x * a / na) = floor(x * R / 2^16) for R = ceil(a * 2^16 / na):
//  - R is exact from one float division: a * 2^16 / na <= 2^16, so the correctly rounded quotient
//    is within 2^-9 of it, while a quotient that is not an integer lies at least 1/na >= 1/255
//    from the next one; rounding up the float gives the integer R.
//  - x * R / 2^16 exceeds x * a / na by less than x / 2^16 <= 255 / 65536 < 1/255 <= 1/na, which is
//    the least distance from an inexact x * a / na to the integer above it.
// So one unsigned 16-bit high multiply per channel gives the exact quotient. R fits 16 bits
// unless a = na (a destination alpha of 0, a source alpha of 255, and 645 other pairs); then the
// composite is the source colour, which a blend puts in. a = 0 gives R = 0 and leaves the colour.

}  // namespace

template <bool kOpacity>
QIMG_AVX2 void q_over_8888_avx2(unsigned char* dst, const unsigned char* src, int count,
                                const qRowContext& ctx) {
    const __m256i k = _mm256_set1_epi32(ctx.opacity);
    const __m256i v255 = _mm256_set1_epi32(255);
    const __m256i one = _mm256_set1_epi32(1);
    const __m256i whole = _mm256_set1_epi32(65536);  // R when a = na
    const __m256i opaque = _mm256_set1_epi32(static_cast<int>(0xff000000u));
    const __m256i zero = _mm256_setzero_si256();
    // R of each pixel into the four 16-bit lanes of its channels, for the pixels that the byte
    // unpacks put in their low (pixels 0, 1 of each half) and high (2, 3) results.
    const __m256i spread_low = _mm256_setr_epi8(0, 1, 0, 1, 0, 1, 0, 1, 4, 5, 4, 5, 4, 5, 4, 5, 0,
                                                1, 0, 1, 0, 1, 0, 1, 4, 5, 4, 5, 4, 5, 4, 5);
    const __m256i spread_high =
        _mm256_setr_epi8(8, 9, 8, 9, 8, 9, 8, 9, 12, 13, 12, 13, 12, 13, 12, 13, 8, 9, 8, 9, 8, 9,
                         8, 9, 12, 13, 12, 13, 12, 13, 12, 13);
    const __m256i v257 = _mm256_set1_epi32(257);
    int i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m256i s = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 4 * i));
        const __m256i a = alpha_avx2<kOpacity>(s, k);
        if (_mm256_testz_si256(a, a)) continue;
        __m256i* out = reinterpret_cast<__m256i*>(dst + 4 * i);
        // Below full opacity no alpha reaches 255, so only the plain rule can copy a group.
        if (!kOpacity && _mm256_testc_si256(s, opaque)) {
            _mm256_storeu_si256(out, s);
            continue;
        }
        const __m256i d = _mm256_loadu_si256(out);
        __m256i na, r;
        if (_mm256_testc_si256(d, opaque)) {
            // An opaque destination stays opaque, and ceil(a * 2^16 / 255) = 257 a + (a > 0).
            na = v255;
            r = _mm256_add_epi32(_mm256_mullo_epi16(a, v257), _mm256_min_epi32(a, one));
        } else {
            const __m256i da = _mm256_srli_epi32(d, 24);
            na = _mm256_add_epi32(da, scaled_product_avx2(_mm256_sub_epi32(v255, da), a));
            const __m256 quotient = _mm256_div_ps(_mm256_cvtepi32_ps(_mm256_slli_epi32(a, 16)),
                                                  _mm256_cvtepi32_ps(_mm256_max_epi32(na, one)));
            r = _mm256_cvttps_epi32(_mm256_ceil_ps(quotient));
        }

        // x = |s - d| and its direction, byte by byte.
        const __m256i up = _mm256_subs_epu8(s, d);
        const __m256i down = _mm256_subs_epu8(d, s);
        const __m256i x = _mm256_or_si256(up, down);
        const __m256i q_low =
            _mm256_mulhi_epu16(_mm256_unpacklo_epi8(x, zero), _mm256_shuffle_epi8(r, spread_low));
        const __m256i q_high =
            _mm256_mulhi_epu16(_mm256_unpackhi_epi8(x, zero), _mm256_shuffle_epi8(r, spread_high));
        const __m256i q = _mm256_packus_epi16(q_low, q_high);
        // The result lies between d and s, so byte arithmetic cannot wrap.
        __m256i result = _mm256_blendv_epi8(_mm256_add_epi8(d, q), _mm256_sub_epi8(d, q),
                                            _mm256_cmpeq_epi8(up, zero));
        result = _mm256_blendv_epi8(result, s, _mm256_cmpeq_epi32(r, whole));
        result = _mm256_blendv_epi8(result, _mm256_slli_epi32(na, 24), opaque);
        _mm256_storeu_si256(out, result);
    }
    using Alpha = std::conditional_t<kOpacity, qAlphaTimesOpacity, qAlphaFromSource>;
    for (; i < count; ++i) {
        qOpOver::apply<qDstBGRA32, Alpha>(dst + 4 * i, qSrcBGRA32::read(src + 4 * i, nullptr),
                                          ctx.opacity);
    }
}

template <bool kOpacity>
QIMG_AVX2 void q_blend_8888_avx2(unsigned char* dst, const unsigned char* src, int count,
                                 const qRowContext& ctx) {
    const __m256i k = _mm256_set1_epi32(ctx.opacity);
    const __m256i v255 = _mm256_set1_epi32(255);
    const __m256i colour = _mm256_set1_epi32(0x00ffffff);
    int i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m256i s = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 4 * i));
        const __m256i a = alpha_avx2<kOpacity>(s, k);
        __m256i* out = reinterpret_cast<__m256i*>(dst + 4 * i);
        if (!kOpacity && _mm256_movemask_epi8(_mm256_cmpeq_epi32(a, v255)) == -1) {
            _mm256_storeu_si256(out, s);
            continue;
        }
        const __m256i d = _mm256_loadu_si256(out);
        if (_mm256_testz_si256(a, a)) {
            _mm256_storeu_si256(out, _mm256_and_si256(d, colour));
            continue;
        }
        __m256i c[3];
        for (int ch = 0; ch < 3; ++ch) {
            const __m256i dc = channel_avx2(d, ch);
            const __m256i diff = _mm256_sub_epi32(channel_avx2(s, ch), dc);
            const __m256i t = _mm256_add_epi32(_mm256_madd_epi16(diff, a), _mm256_set1_epi32(127));
            const __m256i moved =
                _mm256_srai_epi32(_mm256_add_epi32(t, _mm256_slli_epi32(t, 8)), 16);
            c[ch] = _mm256_add_epi32(dc, moved);
        }
        _mm256_storeu_si256(out, join_avx2(c[0], c[1], c[2], a));
    }
    using Alpha = std::conditional_t<kOpacity, qAlphaTimesOpacity, qAlphaFromSource>;
    for (; i < count; ++i) {
        qOpBlend::apply<qDstBGRA32, Alpha>(dst + 4 * i, qSrcBGRA32::read(src + 4 * i, nullptr),
                                           ctx.opacity);
    }
}

template void q_over_8888_avx2<false>(unsigned char*, const unsigned char*, int,
                                      const qRowContext&);
template void q_over_8888_avx2<true>(unsigned char*, const unsigned char*, int, const qRowContext&);
template void q_blend_8888_avx2<false>(unsigned char*, const unsigned char*, int,
                                       const qRowContext&);
template void q_blend_8888_avx2<true>(unsigned char*, const unsigned char*, int,
                                      const qRowContext&);

namespace {

// PT_BGR24 -> PT_BGRA32: 8 pixels per step. Each 128-bit half loads 16 bytes of which 12 are
// 4 pixels; the loop stops while a whole 16-byte load still lies inside the row.
template <bool kStream>
QIMG_AVX2 QIMG_INLINE int expand_888_8888_avx2(unsigned char* dst, const unsigned char* src,
                                               int count) {
    const __m256i shuffle = _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1,
                                             0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
    const __m256i alpha = _mm256_set1_epi32(static_cast<int>(0xff000000u));
    int i = 0;
    // The second half reads bytes 3i + 12 .. 3i + 27, so 3i + 28 <= 3 * count.
    for (; 3 * static_cast<int64_t>(i) + 28 <= 3 * static_cast<int64_t>(count); i += 8) {
        const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 3 * i));
        const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 3 * i + 12));
        const __m256i both = _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
        const __m256i out = _mm256_or_si256(_mm256_shuffle_epi8(both, shuffle), alpha);
        if constexpr (kStream) {
            _mm256_stream_si256(reinterpret_cast<__m256i*>(dst + 4 * i), out);
        } else {
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 4 * i), out);
        }
    }
    return i;
}

void expand_888_8888(unsigned char* dst, const unsigned char* src, int count) {
    for (int i = 0; i < count; ++i) {
        qOpCopy::apply<qDstBGRA32, qAlphaFromSource>(dst + 4 * i,
                                                     qSrcBGR24::read(src + 3 * i, nullptr), 255);
    }
}

// Outputs of this size or more go around the caches with streaming stores: a transfer that
// large (a 1080p BGRA32 image and up, with its source a quarter or more of the 32 MiB L3 of the
// AMD EPYC (Zen 4) the benchmarks were measured on, bench/README.md) would only evict what the
// caller uses, and it runs at memory speed either way.
constexpr size_t kStreamBytes = size_t{8} << 20;

}  // namespace

QIMG_AVX2 void q_copy_888_8888_avx2(unsigned char* dst, const unsigned char* src, int count,
                                    const qRowContext&) {
    int i = 0;
    const uintptr_t address = reinterpret_cast<uintptr_t>(dst);
    if (static_cast<size_t>(count) * 4 >= kStreamBytes && address % 4 == 0) {
        // Whole pixels up to a 32-byte boundary, then streaming stores.
        i = static_cast<int>((32 - address % 32) % 32 / 4);
        expand_888_8888(dst, src, i);
        i += expand_888_8888_avx2<true>(dst + 4 * i, src + 3 * i, count - i);
        _mm_sfence();
    } else {
        i = expand_888_8888_avx2<false>(dst, src, count);
    }
    expand_888_8888(dst + 4 * i, src + 3 * i, count - i);
}

namespace {

bool ranges_overlap(const unsigned char* a, const unsigned char* b, size_t bytes) {
    const uintptr_t x = reinterpret_cast<uintptr_t>(a), y = reinterpret_cast<uintptr_t>(b);
    return x < y + bytes && y < x + bytes;
}

// The C library's copy of a few kilobytes takes a string instruction that runs at under half the
// speed of plain vector moves on the AMD EPYC (Zen 4) of the benchmarks (rows of a 1080p image:
// 2.8 against 6 Gpixel/s), so rows are copied 128 bytes per step here; ranges that overlap keep
// memmove.
template <bool kStream>
QIMG_AVX2 QIMG_INLINE size_t copy_blocks_avx2(unsigned char* dst, const unsigned char* src,
                                              size_t bytes) {
    size_t i = 0;
    for (; i + 128 <= bytes; i += 128) {
        __m256i v[4];
        for (int j = 0; j < 4; ++j) {
            v[j] = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i + 32 * j));
        }
        for (int j = 0; j < 4; ++j) {
            __m256i* out = reinterpret_cast<__m256i*>(dst + i + 32 * j);
            if constexpr (kStream) {
                _mm256_stream_si256(out, v[j]);
            } else {
                _mm256_storeu_si256(out, v[j]);
            }
        }
    }
    return i;
}

}  // namespace

QIMG_AVX2 void q_copy_bytes_avx2(unsigned char* dst, const unsigned char* src, size_t bytes) {
    if (bytes < 256 || ranges_overlap(dst, src, bytes)) {
        if (bytes) std::memmove(dst, src, bytes);
        return;
    }
    size_t i = 0;
    if (bytes >= kStreamBytes) {
        i = (32 - reinterpret_cast<uintptr_t>(dst) % 32) % 32;  // up to the first aligned block
        std::memcpy(dst, src, i);
        i += copy_blocks_avx2<true>(dst + i, src + i, bytes - i);
        _mm_sfence();
    } else {
        i = copy_blocks_avx2<false>(dst, src, bytes);
    }
    std::memcpy(dst + i, src + i, bytes - i);
}

// Whole pixels up to a 32-byte boundary, then 128-byte blocks of streaming stores.
QIMG_AVX2 void q_stream_fill32_avx2(unsigned char* row, size_t pixels, uint32_t word) {
    size_t i = 0;
    for (; i < pixels && reinterpret_cast<uintptr_t>(row + 4 * i) % 32 != 0; ++i) {
        std::memcpy(row + 4 * i, &word, 4);
    }
    const __m256i v = _mm256_set1_epi32(static_cast<int>(word));
    for (; i + 32 <= pixels; i += 32) {
        for (int j = 0; j < 4; ++j) {
            _mm256_stream_si256(reinterpret_cast<__m256i*>(row + 4 * i + 32 * j), v);
        }
    }
    _mm_sfence();
    for (; i < pixels; ++i) std::memcpy(row + 4 * i, &word, 4);
}

#endif
