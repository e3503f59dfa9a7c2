// Row kernels for the x86-64 baseline (SSE2): the compiler's generic vectors, 4 pixels per step,
// which every x86-64 processor runs; and the palette look-up of PT_INDEX8 sources.
#include <cstdint>
#include <cstring>

#include "qimg/raster/qRowKernelsIsaPriv.h"
#include "qimg/raster/qVectorLanesPriv.h"

#ifdef QIMG_X86_KERNELS

template <bool kOpacity>
void q_over_8888_sse2(unsigned char* d, const unsigned char* s, int n, const qRowContext& c) {
    over_row<4, kOpacity>(d, s, n, c.opacity);
}
template <bool kOpacity>
void q_blend_8888_sse2(unsigned char* d, const unsigned char* s, int n, const qRowContext& c) {
    blend_row<4, kOpacity>(d, s, n, c.opacity);
}
template void q_over_8888_sse2<false>(unsigned char*, const unsigned char*, int,
                                      const qRowContext&);
template void q_over_8888_sse2<true>(unsigned char*, const unsigned char*, int, const qRowContext&);
template void q_blend_8888_sse2<false>(unsigned char*, const unsigned char*, int,
                                       const qRowContext&);
template void q_blend_8888_sse2<true>(unsigned char*, const unsigned char*, int,
                                      const qRowContext&);

// PT_INDEX8 -> PT_BGRA32: four indices per load, each a 32-bit table word.
void q_copy_index8_8888(unsigned char* dst, const unsigned char* src, int count,
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

#endif
