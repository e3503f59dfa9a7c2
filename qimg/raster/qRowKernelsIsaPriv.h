// qRowKernelsIsaPriv.h: the row kernels of each instruction set.
//
// One file per instruction set: qRowKernelsSse2.cpp (the compiler's generic vectors on the
// x86-64 baseline), qRowKernelsAvx2.cpp and qRowKernelsAvx512.cpp (intrinsics, in functions
// compiled for their instruction set through target attributes, so the library itself needs no
// special flags). qRowKernels.cpp asks the processor once and picks from these; the scaled
// transfer keeps its own sampling kernels. Every kernel writes exactly the bytes of the portable
// converter of its cell. Declarations carry the target attributes of their definitions: g++
// would take a declaration without them for a different version of the function.
//
// Builds with QIMG_SCALAR_ONLY, and targets other than x86-64, have none of these.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qimg/raster/qRowConvertersPriv.h"

#if !defined(QIMG_SCALAR_ONLY) && defined(__x86_64__) && defined(__GNUC__)
#define QIMG_X86_KERNELS 1

#define QIMG_INLINE inline __attribute__((always_inline))
#define QIMG_AVX2 __attribute__((target("avx2")))
#define QIMG_AVX512 __attribute__((target("avx512f,avx512bw")))

// ---- x86-64 baseline (SSE2), 4 pixels per step -------------------------------------------------
// Over composite and source-alpha blend, PT_BGRA32 onto PT_BGRA32.
template <bool kOpacity>
void q_over_8888_sse2(unsigned char* dst, const unsigned char* src, int count,
                      const qRowContext& ctx);
template <bool kOpacity>
void q_blend_8888_sse2(unsigned char* dst, const unsigned char* src, int count,
                       const qRowContext& ctx);
// PT_INDEX8 -> PT_BGRA32 copy, four indices per load.
void q_copy_index8_8888(unsigned char* dst, const unsigned char* src, int count,
                        const qRowContext& ctx);

// ---- AVX2, 8 pixels per step -------------------------------------------------------------------
template <bool kOpacity>
QIMG_AVX2 void q_over_8888_avx2(unsigned char* dst, const unsigned char* src, int count,
                                const qRowContext& ctx);
template <bool kOpacity>
QIMG_AVX2 void q_blend_8888_avx2(unsigned char* dst, const unsigned char* src, int count,
                                 const qRowContext& ctx);
// PT_BGR24 -> PT_BGRA32 copy.
QIMG_AVX2 void q_copy_888_8888_avx2(unsigned char* dst, const unsigned char* src, int count,
                                    const qRowContext& ctx);
// q_copy_bytes and q_stream_fill32 (qRowKernelsPriv.h) for processors with AVX2.
QIMG_AVX2 void q_copy_bytes_avx2(unsigned char* dst, const unsigned char* src, size_t bytes);
QIMG_AVX2 void q_stream_fill32_avx2(unsigned char* row, size_t pixels, uint32_t word);

// ---- AVX-512 (byte and word instructions), 16 pixels per step ---------------------------------
template <bool kOpacity>
QIMG_AVX512 void q_over_8888_avx512(unsigned char* dst, const unsigned char* src, int count,
                                    const qRowContext& ctx);

#endif
