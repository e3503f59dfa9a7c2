// qRowKernelsPriv.h: the vectorised row converters, chosen at run time.
//
// Each kernel gives exactly the bytes of the portable converter of the same table cell (the
// randomized transfer tests and the blit fuzzer compare them); they only exist for speed. The
// processor is asked once which instruction sets it has; builds with QIMG_SCALAR_ONLY have no
// kernels at all. The kernels, one file per instruction set: qRowKernelsIsaPriv.h.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qimg/core/qExport.h"
#include "qimg/raster/qRowConvertersPriv.h"

// The fast kernel for a table cell, or null when there is none for this processor.
qRowConverter q_fast_row_converter(qPixelOp op, qTypeSlot src, qTypeSlot dst);

// memmove of `bytes` bytes, with vector moves (and streaming stores for large blocks) where the
// processor has them; overlapping ranges are moved as memmove moves them.
void q_copy_bytes(unsigned char* dst, const unsigned char* src, size_t bytes);

// Stores `pixels` copies of the 32-bit `word` from `row` on with streaming stores, for fills far
// larger than the caches. False, with nothing written, where this build or processor has none
// (or the row is not word-aligned).
bool q_stream_fill32(unsigned char* row, size_t pixels, uint32_t word);

// The tier of kernels to use: 0 the portable code only (always so without vector kernels),
// 1 the x86-64 baseline (SSE2), 2 AVX2, 3 AVX-512; the processor's best, or lower in test builds
// that capped it.
int q_kernel_tier();

#ifdef QIMG_TEST_HOOKS
// Builds with the test hooks only: caps the kernels chosen on this thread
// so one processor can check every tier against the reference. 0 portable scalar kernels,
// 1 the x86-64 baseline (SSE2), 2 AVX2, 3 or more the best the processor runs (the default).
QIMG_API void qimg_limit_kernels(int level);
int q_kernel_limit();
#endif
