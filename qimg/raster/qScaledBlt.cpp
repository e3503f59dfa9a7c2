// qImageEdit::ScaledBlt: nearest-neighbour magnification into a view.
//
// Each destination column samples the source column whose centre is nearest the centre of its
// magnified position; the columns are worked out once per call into a column map, the source
// row once per destination row. The sampled source pixels of a row are gathered into a
// contiguous row and handed to the block transfer's row converter, so the pixel arithmetic is
// the very same code as BitBlt's.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qMonitor.h"
#include "qimg/core/qStatus.h"
#include "qimg/raster/qImageEdit.h"
#include "qimg/raster/qRowKernelsIsaPriv.h"
#include "qimg/raster/qRowKernelsPriv.h"
#include "qimg/raster/qScaledClipPriv.h"
#include "qimg/raster/qTransferPlanPriv.h"

#ifdef QIMG_X86_KERNELS
#include <immintrin.h>
#endif

namespace {

constexpr int kRun = 128;  // pixels gathered and converted at a time

template <int Bytes>
void gather(unsigned char* out, const unsigned char* row, const int* columns, int count, int) {
    for (int i = 0; i < count; ++i) {
        std::memcpy(out + static_cast<size_t>(i) * Bytes,
                    row + static_cast<size_t>(columns[i]) * Bytes, Bytes);
    }
}

#ifdef QIMG_X86_KERNELS
// ---- the sampling kernels for AVX2 and AVX-512 --------------------------------------------------
// Both take the samples of one row, whose columns rise with the output position and lie in
// 0 .. row_pixels - 1, and write exactly what gather4 below writes.
#pragma GCC diagnostic push
// The 256-bit helper is always inlined into a function compiled for AVX2, so the
// calling-convention difference the compiler warns about never occurs.
#pragma GCC diagnostic ignored "-Wpsabi"
// g++ 12's AVX-512 intrinsics start some results from a deliberately undefined vector, which
// its own flow analysis then reports as maybe uninitialized.
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

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

#pragma GCC diagnostic pop
#endif

// Gathers the samples of one source row: (out, row, columns, count, pixels in the row).
using Gather = void (*)(unsigned char*, const unsigned char*, const int*, int, int);

// Whole 32-bit pixels, four per step with two 64-bit stores.
void gather4(unsigned char* out, const unsigned char* row, const int* columns, int count,
             int row_pixels) {
    int i = 0;
    for (; i + 4 <= count; i += 4) {
        uint32_t p[4];
        for (int k = 0; k < 4; ++k)
            std::memcpy(&p[k], row + 4 * static_cast<size_t>(columns[i + k]), 4);
        const uint64_t pairs[2] = {p[0] | uint64_t{p[1]} << 32, p[2] | uint64_t{p[3]} << 32};
        std::memcpy(out + 4 * static_cast<size_t>(i), pairs, sizeof pairs);
    }
    gather<4>(out + 4 * static_cast<size_t>(i), row, columns + i, count - i, row_pixels);
}

Gather gather_for(int bytes) {
    switch (bytes) {
        case 1:
            return gather<1>;
        case 2:
            return gather<2>;
        case 3:
            return gather<3>;
        default: {
#ifdef QIMG_X86_KERNELS
            const int tier = q_kernel_tier();
            if (tier >= 3) return gather32_avx512;
            if (tier >= 2) return gather32_avx2;
#endif
            return gather4;
        }
    }
}

// Rows read at a stride defeat the hardware prefetchers: at 0.5x every row read is a new stream
// and the source is far larger than the caches. So each run asks for the cache lines of the next
// run (its source samples and its destination pixels) before working on its own.
constexpr int kLine = 64;

struct Prefetch {
    int step;  // destination pixels per source cache line, at least 1 (samples are monotonic)
    int src_bytes;
    size_t dst_bytes;

    void run(const unsigned char* from, const int* columns, unsigned char* to, int begin,
             int end) const {
        for (int i = begin; i < end; i += step) {
            __builtin_prefetch(from + static_cast<size_t>(columns[i]) * src_bytes);
        }
        for (size_t b = begin * dst_bytes; b < end * dst_bytes; b += kLine) {
            __builtin_prefetch(to + b, 1);
        }
    }
};

// The column map and the sampled source row, in one block freed on every way out.
struct Scratch {
    void* block = nullptr;
    ~Scratch() { q_free(block); }
};

}  // namespace

int qImageEdit::ScaledBlt(qRect dst_rect, const qImageAlias* src, qPoint src_pos, float scale_x,
                          float scale_y, int method, qBltMode mode, unsigned char opacity,
                          qIMonitor* monitor) {
    if (!src) return ST_BAD_ARGUMENT;
    if (scale_x == 1.0f && scale_y == 1.0f) {
        return BitBlt(dst_rect, src, src_pos, mode, opacity, monitor);
    }
    if (method != 1) return ST_UNSUPPORTED;
    // A factor of 0 or below, or one that is not a number, has no usable reciprocal.
    if (!(scale_x > 0 && scale_y > 0) || !std::isfinite(scale_x) || !std::isfinite(scale_y)) {
        return ST_BAD_ARGUMENT;
    }

    const int sw = src->width();
    const int sh = src->height();
    qScaledArea area{dst_rect.x, dst_rect.y, dst_rect.width, dst_rect.height, src_pos.x, src_pos.y};
    if (!q_clip_scaled(area, scale_x, scale_y, sw, sh, width(), height())) return 0;
    // A source without pixels has nothing to sample.
    if (!src->valid()) return 0;

    const int count = static_cast<int>(area.width);
    const int rows = static_cast<int>(area.height);
    const float ix = 1.0f / scale_x;
    const float iy = 1.0f / scale_y;

    // count <= INT_MAX, so the block size cannot wrap a 64-bit size_t.
    const int src_bytes = src->bits_per_pixel() / 8;
    const size_t map_bytes = sizeof(int) * static_cast<size_t>(count);
    const size_t row_bytes = static_cast<size_t>(count) * static_cast<size_t>(src_bytes);
    Scratch scratch;
    scratch.block = q_malloc(map_bytes + row_bytes);
    if (!scratch.block) return ST_NO_MEMORY;
    int* columns = static_cast<int*>(scratch.block);
    unsigned char* sampled = static_cast<unsigned char*>(scratch.block) + map_bytes;
    for (int i = 0; i < count; ++i) columns[i] = q_source_column(area.px, i, ix, sw);

    qTransferPlan plan;
    const int status = q_plan_transfer(*this, *src, mode, opacity, qTransferKind::scaled, &plan);
    if (status != 0) return status;

    // Rows that sample the same source row (every magnification above 1) reuse its gathered
    // pixels; each destination row is then one call of the row converter. A copy between equal
    // layouts gathers straight into the destination and repeats a row by copying it. Short runs
    // keep the source reads and the destination writes of a row overlapping.
    const Gather gather_row = gather_for(src_bytes);
    const size_t dst_bytes = static_cast<size_t>(bits_per_pixel() / 8);
    const double line_pixels = static_cast<double>(scale_x) * kLine / src_bytes;
    const Prefetch prefetch{line_pixels < 1      ? 1
                            : line_pixels > kRun ? kRun
                                                 : static_cast<int>(line_pixels),
                            src_bytes, dst_bytes};
    int gathered = -1;
    const unsigned char* previous = nullptr;
    for (int j = 0; j < rows; ++j) {
        const int r = q_sample_index((static_cast<double>(area.py) + j + 0.5) * iy, sh);
        unsigned char* to = pixel_address(static_cast<int>(area.y) + j, static_cast<int>(area.x));
        if (r == gathered) {
            if (plan.identity) {
                q_copy_bytes(to, previous, row_bytes);
            } else {
                plan.convert(to, sampled, count, plan.context);
            }
        } else {
            const unsigned char* from = src->pixel_address(r, 0);
            prefetch.run(from, columns, to, 0, count < kRun ? count : kRun);
            for (int i = 0; i < count; i += kRun) {
                const int n = count - i < kRun ? count - i : kRun;
                const int next_end = count - (i + n) < kRun ? count : i + n + kRun;
                prefetch.run(from, columns, to, i + n, next_end);
                const size_t at = static_cast<size_t>(i);
                if (plan.identity) {
                    gather_row(to + at * dst_bytes, from, columns + i, n, sw);
                } else {
                    gather_row(sampled + at * src_bytes, from, columns + i, n, sw);
                    plan.convert(to + at * dst_bytes, sampled + at * src_bytes, n, plan.context);
                }
            }
        }
        gathered = r;
        previous = to;
        if (monitor && !monitor->progress(j + 1, rows, 0, 1)) return ST_CANCELLED;
    }
    return 0;
}
