// The row kernels' dispatch: which instruction sets the processor has, asked once, and the table
// of the fast paths with one column per instruction set. The kernels themselves live in one file
// per instruction set (qRowKernelsIsaPriv.h).
#include <cstdint>
#include <cstring>

#include "qimg/raster/qRowKernelsIsaPriv.h"
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

#ifndef QIMG_X86_KERNELS

qRowConverter q_fast_row_converter(qPixelOp, qTypeSlot, qTypeSlot) {
    return nullptr;
}

void q_copy_bytes(unsigned char* dst, const unsigned char* src, size_t bytes) {
    if (bytes) std::memmove(dst, src, bytes);
}

bool q_stream_fill32(unsigned char*, size_t, uint32_t) {
    return false;
}

int q_kernel_tier() {
    return 0;
}

#else

namespace {

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
    {OP_OVER,          SLOT_BGRA32, SLOT_BGRA32, q_over_8888_sse2<false>,  q_over_8888_avx2<false>,  q_over_8888_avx512<false>},
    {OP_OVER_OPACITY,  SLOT_BGRA32, SLOT_BGRA32, q_over_8888_sse2<true>,   q_over_8888_avx2<true>,   q_over_8888_avx512<true>},
    {OP_BLEND,         SLOT_BGRA32, SLOT_BGRA32, q_blend_8888_sse2<false>, q_blend_8888_avx2<false>, nullptr},
    {OP_BLEND_OPACITY, SLOT_BGRA32, SLOT_BGRA32, q_blend_8888_sse2<true>,  q_blend_8888_avx2<true>,  nullptr},
    {OP_COPY,          SLOT_BGR24,  SLOT_BGRA32, nullptr,                  q_copy_888_8888_avx2,     nullptr},
    {OP_COPY,          SLOT_INDEX8, SLOT_BGRA32, q_copy_index8_8888,       q_copy_index8_8888,       nullptr},
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

}  // namespace

int q_kernel_tier() {
    const int tier = processor_tier();
#ifdef QIMG_TEST_HOOKS
    const int limit = q_kernel_limit() < 0 ? 0 : q_kernel_limit();
    return tier < limit ? tier : limit;
#else
    return tier;
#endif
}

void q_copy_bytes(unsigned char* dst, const unsigned char* src, size_t bytes) {
    if (q_kernel_tier() >= 2) {
        q_copy_bytes_avx2(dst, src, bytes);
    } else if (bytes) {
        std::memmove(dst, src, bytes);
    }
}

bool q_stream_fill32(unsigned char* row, size_t pixels, uint32_t word) {
    if (q_kernel_tier() < 2 || reinterpret_cast<uintptr_t>(row) % 4 != 0) return false;
    q_stream_fill32_avx2(row, pixels, word);
    return true;
}

qRowConverter q_fast_row_converter(qPixelOp op, qTypeSlot src, qTypeSlot dst) {
    const int tier = q_kernel_tier();
    if (tier <= 0) return nullptr;
    for (const FastLine& line : kFastLines) {
        if (line.op != op || line.src != src || line.dst != dst) continue;
        if (tier >= 3 && line.avx512) return line.avx512;
        return tier >= 2 && line.avx2 ? line.avx2 : line.sse2;
    }
    return nullptr;
}

#endif
