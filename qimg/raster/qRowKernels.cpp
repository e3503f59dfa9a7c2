// Vectorised row converters for the hot table cells.
//
// Every kernel here must write exactly the bytes of the portable converter of its cell; the
// randomized transfer tests and the blit fuzzer compare both against a plain reference. The
// x86-64 baseline (SSE2) kernels are written with the compiler's generic vectors, 4 pixels per
// step; the AVX2 kernels (8 pixels) and the AVX-512 over composite (16 pixels) use intrinsics in
// functions compiled for their instruction set, and the best the processor runs is chosen once.
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
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "qimg/raster/qPixelOpsPriv.h"
#include "qimg/raster/qRowKernelsPriv.h"

#ifdef QIMG_TEST_HOOKS
namespace {
thread_local int g_kernel_limit = 3;
}  // namespace
void qimg_limit_kernels(int level) {
    g_kernel_limit = level;
}
int q_kernel_limit() {
    return g_kernel_limit;
}
#endif

#if defined(QIMG_SCALAR_ONLY) || !defined(__x86_64__) || !defined(__GNUC__)

qRowConverter q_fast_row_converter(qPixelOp, qTypeSlot, qTypeSlot) {
    return nullptr;
}

void q_copy_bytes(unsigned char* dst, const unsigned char* src, size_t bytes) {
    if (bytes) std::memmove(dst, src, bytes);
}

bool q_stream_fill32(unsigned char*, size_t, uint32_t) {
    return false;
}

qGather32 q_fast_gather32() {
    return nullptr;
}

#else

#include <immintrin.h>

// The 8-lane helpers pass 256-bit vectors by value; they are always inlined into functions
// compiled for AVX2, so the calling-convention difference the compiler warns about never occurs.
#pragma GCC diagnostic ignored "-Wpsabi"
// g++ 12's AVX-512 intrinsics start some results from a deliberately undefined vector, which
// its own flow analysis then reports as maybe uninitialized.
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#define QIMG_INLINE inline __attribute__((always_inline))
#define QIMG_AVX2 __attribute__((target("avx2")))

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

// ---- the entry points, one per instruction set ----------------------------------------------

template <bool kOpacity>
void over_8888_sse2(unsigned char* d, const unsigned char* s, int n, const qRowContext& c) {
    over_row<4, kOpacity>(d, s, n, c.opacity);
}
template <bool kOpacity>
void blend_8888_sse2(unsigned char* d, const unsigned char* s, int n, const qRowContext& c) {
    blend_row<4, kOpacity>(d, s, n, c.opacity);
}
// ---- AVX2: the same arithmetic with intrinsics, 8 pixels per step ---------------------------
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
template <bool kOpacity>
QIMG_AVX2 void over_8888_avx2(unsigned char* dst, const unsigned char* src, int count,
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

// ---- AVX-512: the AVX2 over composite on 16 pixels, with mask registers -----------------------
// The same arithmetic as over_8888_avx2; what changes is the shape. R is taken with one rounding
// conversion toward +infinity, each pixel's R goes to both 16-bit halves of its lane, and the
// colour quotients come from two high multiplies on the even and the odd bytes, so no byte
// unpacks or packs are needed. Directions and the a = na pixels are mask registers.

#define QIMG_AVX512 __attribute__((target("avx512f,avx512bw")))

QIMG_AVX512 QIMG_INLINE __m512i scaled_product_avx512(__m512i x, __m512i y) {
    const __m512i t = _mm512_add_epi32(_mm512_mullo_epi16(x, y), _mm512_set1_epi32(127));
    return _mm512_mulhi_epu16(t, _mm512_set1_epi32(257));
}

template <bool kOpacity>
QIMG_AVX512 void over_8888_avx512(unsigned char* dst, const unsigned char* src, int count,
                                  const qRowContext& ctx) {
    const __m512i k = _mm512_set1_epi32(ctx.opacity);
    const __m512i v255 = _mm512_set1_epi32(255);
    const __m512i one = _mm512_set1_epi32(1);
    const __m512i whole = _mm512_set1_epi32(65536);  // R when a = na
    const __m512i opaque = _mm512_set1_epi32(static_cast<int>(0xff000000u));
    const __m512i low_bytes = _mm512_set1_epi16(255);
    const __m512i v257 = _mm512_set1_epi32(257);
    constexpr __mmask64 kAlphaBytes = 0x8888888888888888ull;
    int i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m512i s = _mm512_loadu_si512(src + 4 * i);
        const __m512i a = kOpacity ? scaled_product_avx512(_mm512_srli_epi32(s, 24), k)
                                   : _mm512_srli_epi32(s, 24);
        if (_mm512_test_epi32_mask(a, a) == 0) continue;
        unsigned char* out = dst + 4 * i;
        if (!kOpacity && _mm512_cmpge_epu32_mask(s, opaque) == 0xffff) {
            _mm512_storeu_si512(out, s);
            continue;
        }
        const __m512i d = _mm512_loadu_si512(out);
        __m512i na, r;
        if (_mm512_cmpge_epu32_mask(d, opaque) == 0xffff) {
            na = v255;
            r = _mm512_add_epi32(_mm512_mullo_epi16(a, v257), _mm512_min_epu32(a, one));
        } else {
            const __m512i da = _mm512_srli_epi32(d, 24);
            na = _mm512_add_epi32(da, scaled_product_avx512(_mm512_sub_epi32(v255, da), a));
            const __m512 quotient = _mm512_div_ps(_mm512_cvtepi32_ps(_mm512_slli_epi32(a, 16)),
                                                  _mm512_cvtepi32_ps(_mm512_max_epi32(na, one)));
            r = _mm512_cvt_roundps_epi32(quotient, _MM_FROUND_TO_POS_INF | _MM_FROUND_NO_EXC);
        }
        const __m512i x = _mm512_or_si512(_mm512_subs_epu8(s, d), _mm512_subs_epu8(d, s));
        const __m512i r_both = _mm512_or_si512(r, _mm512_slli_epi32(r, 16));
        const __m512i q_even = _mm512_mulhi_epu16(_mm512_and_si512(x, low_bytes), r_both);
        const __m512i q_odd = _mm512_mulhi_epu16(_mm512_srli_epi16(x, 8), r_both);
        const __m512i q = _mm512_or_si512(q_even, _mm512_slli_epi16(q_odd, 8));
        // The result lies between d and s, so byte arithmetic cannot wrap.
        __m512i result =
            _mm512_mask_sub_epi8(_mm512_add_epi8(d, q), _mm512_cmplt_epu8_mask(s, d), d, q);
        result = _mm512_mask_mov_epi32(result, _mm512_cmpeq_epi32_mask(r, whole), s);
        result = _mm512_mask_mov_epi8(result, kAlphaBytes, _mm512_slli_epi32(na, 24));
        _mm512_storeu_si512(out, result);
    }
    over_row<4, kOpacity>(dst + 4 * i, src + 4 * i, count - i, ctx.opacity);
}

// The AVX2 form of the sampling below: 8 samples within 16 consecutive source pixels come from
// one or two loads and lane permutes; near the row's end the loads are masked.
QIMG_AVX2 QIMG_INLINE __m256i load_row_avx2(const unsigned char* at, int left) {
    if (left >= 8) return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at));
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    return _mm256_maskload_epi32(reinterpret_cast<const int*>(at),
                                 _mm256_cmpgt_epi32(_mm256_set1_epi32(left), lanes));
}

QIMG_AVX2 void gather32_avx2(unsigned char* out, const unsigned char* row, const int* columns,
                             int count, int row_pixels) {
    int i = 0;
    for (; i + 8 <= count; i += 8) {
        const int first = columns[i];
        const int span = columns[i + 7] - first;
        if (span >= 16) {
            for (int k = i; k < i + 8; ++k) {
                std::memcpy(out + 4 * k, row + 4 * static_cast<size_t>(columns[k]), 4);
            }
            continue;
        }
        const __m256i offsets =
            _mm256_sub_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(columns + i)),
                             _mm256_set1_epi32(first));
        const int left = row_pixels - first;  // at least 1: `first` lies in the row
        const unsigned char* at = row + 4 * static_cast<size_t>(first);
        __m256i pixels = _mm256_permutevar8x32_epi32(load_row_avx2(at, left), offsets);
        if (span >= 8) {
            // Offsets 8..15 take the second load; the permute uses their low three bits.
            const __m256i high =
                _mm256_permutevar8x32_epi32(load_row_avx2(at + 32, left - 8), offsets);
            pixels =
                _mm256_blendv_epi8(pixels, high, _mm256_cmpgt_epi32(offsets, _mm256_set1_epi32(7)));
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 4 * i), pixels);
    }
    for (; i < count; ++i) std::memcpy(out + 4 * i, row + 4 * static_cast<size_t>(columns[i]), 4);
}

// Sampled 32-bit pixels, 16 at a time. The columns rise with the output position, so at scale
// factors of about 0.5 and up the 16 samples lie within 32 consecutive source pixels: one or
// two loads of the row and a lane permute give them, where a gather would load each pixel.
// Loads are masked at the row's end, and wider spans take the gather instruction.
QIMG_AVX512 void gather32_avx512(unsigned char* out, const unsigned char* row, const int* columns,
                                 int count, int row_pixels) {
    int i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m512i index = _mm512_loadu_si512(columns + i);
        const int first = columns[i];
        const int span = columns[i + 15] - first;
        __m512i pixels;
        if (span < 32) {
            const __m512i offsets = _mm512_sub_epi32(index, _mm512_set1_epi32(first));
            const int left = row_pixels - first;  // at least 1: `first` lies in the row
            const unsigned char* at = row + 4 * static_cast<size_t>(first);
            const __m512i low = _mm512_maskz_loadu_epi32(
                left >= 16 ? 0xffff : static_cast<__mmask16>((1u << left) - 1), at);
            if (span < 16) {
                pixels = _mm512_permutexvar_epi32(offsets, low);
            } else {
                // span < 32 and every column lies in the row, so left > 16 here.
                const int rest = left - 16;
                const __m512i high = _mm512_maskz_loadu_epi32(
                    rest >= 16 ? 0xffff : static_cast<__mmask16>((1u << rest) - 1), at + 64);
                pixels = _mm512_permutex2var_epi32(low, offsets, high);
            }
        } else {
            pixels = _mm512_i32gather_epi32(index, row, 4);
        }
        _mm512_storeu_si512(out + 4 * i, pixels);
    }
    for (; i < count; ++i) std::memcpy(out + 4 * i, row + 4 * static_cast<size_t>(columns[i]), 4);
}

template <bool kOpacity>
QIMG_AVX2 void blend_8888_avx2(unsigned char* dst, const unsigned char* src, int count,
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
// large (a 1080p BGRA32 image and up, with its source a quarter or more of this machine's
// 32 MiB L3) would only evict what the caller uses, and it runs at memory speed either way.
constexpr size_t kStreamBytes = size_t{8} << 20;

QIMG_AVX2 void copy_888_8888_avx2(unsigned char* dst, const unsigned char* src, int count,
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

// PT_INDEX8 -> PT_BGRA32: four indices per load, each a 32-bit table word.
void copy_index8_8888(unsigned char* dst, const unsigned char* src, int count,
                      const qRowContext& ctx) {
    uint32_t table[256];
    std::memcpy(table, ctx.palette, sizeof table);
    int i = 0;
    for (; i + 4 <= count; i += 4) {
        uint32_t four;
        std::memcpy(&four, src + i, 4);
        const uint32_t words[4] = {table[four & 255], table[four >> 8 & 255],
                                   table[four >> 16 & 255], table[four >> 24]};
        std::memcpy(dst + 4 * i, words, sizeof words);
    }
    for (; i < count; ++i) std::memcpy(dst + 4 * i, &table[src[i]], 4);
}

bool ranges_overlap(const unsigned char* a, const unsigned char* b, size_t bytes) {
    const uintptr_t x = reinterpret_cast<uintptr_t>(a), y = reinterpret_cast<uintptr_t>(b);
    return x < y + bytes && y < x + bytes;
}

// The C library's copy of a few kilobytes takes a string instruction that runs at under half the
// speed of plain vector moves on this machine's processor (rows of a 1080p image: 2.8 against
// 6 Gpixel/s), so rows are copied 128 bytes per step here; ranges that overlap keep memmove.
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

QIMG_AVX2 void copy_bytes_avx2(unsigned char* dst, const unsigned char* src, size_t bytes) {
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
QIMG_AVX2 void stream_fill32_avx2(unsigned char* row, size_t pixels, uint32_t word) {
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

struct FastLine {
    qPixelOp op;
    qTypeSlot src;
    qTypeSlot dst;
    qRowConverter sse2;
    qRowConverter avx2;
    qRowConverter avx512;  // null: the AVX2 kernel serves
};

// clang-format off
constexpr FastLine kFastLines[] = {
    {OP_OVER,          SLOT_BGRA32, SLOT_BGRA32, over_8888_sse2<false>,  over_8888_avx2<false>,  over_8888_avx512<false>},
    {OP_OVER_OPACITY,  SLOT_BGRA32, SLOT_BGRA32, over_8888_sse2<true>,   over_8888_avx2<true>,   over_8888_avx512<true>},
    {OP_BLEND,         SLOT_BGRA32, SLOT_BGRA32, blend_8888_sse2<false>, blend_8888_avx2<false>, nullptr},
    {OP_BLEND_OPACITY, SLOT_BGRA32, SLOT_BGRA32, blend_8888_sse2<true>,  blend_8888_avx2<true>,  nullptr},
    {OP_COPY,          SLOT_BGR24,  SLOT_BGRA32, nullptr,                copy_888_8888_avx2,     nullptr},
    {OP_COPY,          SLOT_INDEX8, SLOT_BGRA32, copy_index8_8888,       copy_index8_8888,       nullptr},
};
// clang-format on

// 1: x86-64 baseline, 2: AVX2, 3: AVX-512 with byte and word instructions.
int processor_tier() {
    static const int tier = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw")
                                ? 3
                            : __builtin_cpu_supports("avx2") ? 2
                                                             : 1;
    return tier;
}

// The processor's tier, lowered by the test limit; 0 means the portable code only.
int usable_tier() {
    const int tier = processor_tier();
#ifdef QIMG_TEST_HOOKS
    const int limit = q_kernel_limit() < 0 ? 0 : q_kernel_limit();
    return tier < limit ? tier : limit;
#else
    return tier;
#endif
}

}  // namespace

void q_copy_bytes(unsigned char* dst, const unsigned char* src, size_t bytes) {
    if (usable_tier() >= 2) {
        copy_bytes_avx2(dst, src, bytes);
    } else if (bytes) {
        std::memmove(dst, src, bytes);
    }
}

bool q_stream_fill32(unsigned char* row, size_t pixels, uint32_t word) {
    if (usable_tier() < 2 || reinterpret_cast<uintptr_t>(row) % 4 != 0) return false;
    stream_fill32_avx2(row, pixels, word);
    return true;
}

qGather32 q_fast_gather32() {
    const int tier = usable_tier();
    return tier >= 3 ? gather32_avx512 : tier >= 2 ? gather32_avx2 : nullptr;
}

qRowConverter q_fast_row_converter(qPixelOp op, qTypeSlot src, qTypeSlot dst) {
    const int tier = usable_tier();
    if (tier <= 0) return nullptr;
    for (const FastLine& line : kFastLines) {
        if (line.op != op || line.src != src || line.dst != dst) continue;
        if (tier >= 3 && line.avx512) return line.avx512;
        return tier >= 2 && line.avx2 ? line.avx2 : line.sse2;
    }
    return nullptr;
}

#endif
