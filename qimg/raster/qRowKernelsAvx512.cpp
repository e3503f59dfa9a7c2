// Row kernels for AVX-512 with byte and word instructions: the over composite on 16 pixels.
//
// The same arithmetic as over_8888_avx2; what changes is the shape. R is taken with one rounding
// conversion toward +infinity, each pixel's R goes to both 16-bit halves of its lane, and the
// colour quotients come from two high multiplies on the even and the odd bytes, so no byte
// unpacks or packs are needed. Directions and the a = na pixels are mask registers.

#include <cstdint>
#include <cstring>

#include "qimg/raster/qRowKernelsIsaPriv.h"
#include "qimg/raster/qVectorLanesPriv.h"

#ifdef QIMG_X86_KERNELS
#include <immintrin.h>

#pragma GCC diagnostic ignored "-Wpsabi"
// g++ 12's AVX-512 intrinsics start some results from a deliberately undefined vector, which
// its own flow analysis then reports as maybe uninitialized.
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

namespace {

QIMG_AVX512 QIMG_INLINE __m512i scaled_product_avx512(__m512i x, __m512i y) {
    const __m512i t = _mm512_add_epi32(_mm512_mullo_epi16(x, y), _mm512_set1_epi32(127));
    return _mm512_mulhi_epu16(t, _mm512_set1_epi32(257));
}

}  // namespace

template <bool kOpacity>
QIMG_AVX512 void q_over_8888_avx512(unsigned char* dst, const unsigned char* src, int count,
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

template void q_over_8888_avx512<false>(unsigned char*, const unsigned char*, int,
                                        const qRowContext&);
template void q_over_8888_avx512<true>(unsigned char*, const unsigned char*, int,
                                       const qRowContext&);

#endif
