// The table of row converters: every supported (operation, source, destination) cell, one line
// each, instantiated from the per-pixel operations of qPixelOpsPriv.h.
#include <array>
#include <cstring>

#include "qimg/raster/qPixelOpsPriv.h"
#include "qimg/raster/qRowConvertersPriv.h"
#include "qimg/raster/qRowKernelsPriv.h"

namespace {

// The portable kernel of every converter: one template, instantiated per table line.
template <class Src, class Dst, class Op, class Alpha>
void convert_row(unsigned char* dst, const unsigned char* src, int count, const qRowContext& ctx) {
    for (int i = 0; i < count; ++i) {
        Op::template apply<Dst, Alpha>(dst, Src::read(src, ctx.palette), ctx.opacity);
        src += Src::bytes;
        dst += Dst::bytes;
    }
}

struct ConverterLine {
    qPixelOp op;
    qTypeSlot src;
    qTypeSlot dst;
    qRowConverter scalar;
};

using A = qAlphaFromSource;
using K = qAlphaTimesOpacity;

// Every pair the dispatches can ask for, one line each. A pair missing here is unsupported.
constexpr ConverterLine kLines[] = {
  // clang-format off
    {OP_COPY,          SLOT_BGRA32,        SLOT_BGRA32, convert_row<qSrcBGRA32,      qDstBGRA32, qOpCopy,  A>},
    {OP_COPY,          SLOT_BGR24,         SLOT_BGRA32, convert_row<qSrcBGR24,       qDstBGRA32, qOpCopy,  A>},
    {OP_COPY,          SLOT_GRAY_ALPHA16,  SLOT_BGRA32, convert_row<qSrcGrayAlpha16, qDstBGRA32, qOpCopy,  A>},
    {OP_COPY,          SLOT_GRAY8,         SLOT_BGRA32, convert_row<qSrcGray8,       qDstBGRA32, qOpCopy,  A>},
    {OP_COPY,          SLOT_INDEX8,        SLOT_BGRA32, convert_row<qSrcIndex8,      qDstBGRA32, qOpCopy,  A>},
    {OP_COPY,          SLOT_BGRA32,        SLOT_BGR24,  convert_row<qSrcBGRA32,      qDstBGR24,  qOpCopy,  A>},
    {OP_COPY,          SLOT_BGR24,         SLOT_BGR24,  convert_row<qSrcBGR24,       qDstBGR24,  qOpCopy,  A>},
    {OP_COPY,          SLOT_GRAY_ALPHA16,  SLOT_BGR24,  convert_row<qSrcGrayAlpha16, qDstBGR24,  qOpCopy,  A>},
    {OP_COPY,          SLOT_GRAY8,         SLOT_BGR24,  convert_row<qSrcGray8,       qDstBGR24,  qOpCopy,  A>},
    {OP_COPY,          SLOT_INDEX8,        SLOT_BGR24,  convert_row<qSrcIndex8,      qDstBGR24,  qOpCopy,  A>},

    {OP_OVER,          SLOT_BGRA32,        SLOT_BGRA32, convert_row<qSrcBGRA32,      qDstBGRA32, qOpOver,  A>},
    {OP_OVER,          SLOT_GRAY_ALPHA16,  SLOT_BGRA32, convert_row<qSrcGrayAlpha16, qDstBGRA32, qOpOver,  A>},
    {OP_OVER,          SLOT_INDEX8,        SLOT_BGRA32, convert_row<qSrcIndex8,      qDstBGRA32, qOpOver,  A>},

    {OP_OVER_OPACITY,  SLOT_BGRA32,        SLOT_BGRA32, convert_row<qSrcBGRA32,      qDstBGRA32, qOpOver,  K>},
    {OP_OVER_OPACITY,  SLOT_BGR24,         SLOT_BGRA32, convert_row<qSrcBGR24,       qDstBGRA32, qOpOver,  K>},
    {OP_OVER_OPACITY,  SLOT_GRAY_ALPHA16,  SLOT_BGRA32, convert_row<qSrcGrayAlpha16, qDstBGRA32, qOpOver,  K>},
    {OP_OVER_OPACITY,  SLOT_GRAY8,         SLOT_BGRA32, convert_row<qSrcGray8,       qDstBGRA32, qOpOver,  K>},
    {OP_OVER_OPACITY,  SLOT_INDEX8,        SLOT_BGRA32, convert_row<qSrcIndex8,      qDstBGRA32, qOpOver,  K>},

    {OP_BLEND,         SLOT_BGRA32,        SLOT_BGRA32, convert_row<qSrcBGRA32,      qDstBGRA32, qOpBlend, A>},
    {OP_BLEND,         SLOT_GRAY_ALPHA16,  SLOT_BGRA32, convert_row<qSrcGrayAlpha16, qDstBGRA32, qOpBlend, A>},
    {OP_BLEND,         SLOT_INDEX8,        SLOT_BGRA32, convert_row<qSrcIndex8,      qDstBGRA32, qOpBlend, A>},
    {OP_BLEND,         SLOT_BGRA32,        SLOT_BGR24,  convert_row<qSrcBGRA32,      qDstBGR24,  qOpBlend, A>},
    {OP_BLEND,         SLOT_GRAY_ALPHA16,  SLOT_BGR24,  convert_row<qSrcGrayAlpha16, qDstBGR24,  qOpBlend, A>},
    {OP_BLEND,         SLOT_INDEX8,        SLOT_BGR24,  convert_row<qSrcIndex8,      qDstBGR24,  qOpBlend, A>},

    {OP_BLEND_OPACITY, SLOT_BGRA32,        SLOT_BGRA32, convert_row<qSrcBGRA32,      qDstBGRA32, qOpBlend, K>},
    {OP_BLEND_OPACITY, SLOT_BGR24,         SLOT_BGRA32, convert_row<qSrcBGR24,       qDstBGRA32, qOpBlend, K>},
    {OP_BLEND_OPACITY, SLOT_GRAY_ALPHA16,  SLOT_BGRA32, convert_row<qSrcGrayAlpha16, qDstBGRA32, qOpBlend, K>},
    {OP_BLEND_OPACITY, SLOT_GRAY8,         SLOT_BGRA32, convert_row<qSrcGray8,       qDstBGRA32, qOpBlend, K>},
    {OP_BLEND_OPACITY, SLOT_INDEX8,        SLOT_BGRA32, convert_row<qSrcIndex8,      qDstBGRA32, qOpBlend, K>},
    {OP_BLEND_OPACITY, SLOT_BGRA32,        SLOT_BGR24,  convert_row<qSrcBGRA32,      qDstBGR24,  qOpBlend, K>},
    {OP_BLEND_OPACITY, SLOT_BGR24,         SLOT_BGR24,  convert_row<qSrcBGR24,       qDstBGR24,  qOpBlend, K>},
    {OP_BLEND_OPACITY, SLOT_GRAY_ALPHA16,  SLOT_BGR24,  convert_row<qSrcGrayAlpha16, qDstBGR24,  qOpBlend, K>},
    {OP_BLEND_OPACITY, SLOT_GRAY8,         SLOT_BGR24,  convert_row<qSrcGray8,       qDstBGR24,  qOpBlend, K>},
    {OP_BLEND_OPACITY, SLOT_INDEX8,        SLOT_BGR24,  convert_row<qSrcIndex8,      qDstBGR24,  qOpBlend, K>},
  // clang-format on
};

using Table = std::array<std::array<std::array<qRowConverter, kDestSlotCount>, kSourceSlotCount>,
                         kPixelOpCount>;

// The list above as a dense [op][src][dst] table, so a lookup is three indices.
constexpr Table make_table() {
    Table table{};
    for (const ConverterLine& line : kLines) table[line.op][line.src][line.dst] = line.scalar;
    return table;
}
constexpr Table kTable = make_table();

}  // namespace

qRowConverter q_row_converter(qPixelOp op, qTypeSlot src, qTypeSlot dst) {
    if (op < 0 || op >= kPixelOpCount || src < 0 || src >= kSourceSlotCount || dst < 0 ||
        dst >= kDestSlotCount) {
        return nullptr;
    }
    const qRowConverter scalar = kTable[op][src][dst];
    if (!scalar) return nullptr;
    const qRowConverter fast = q_fast_row_converter(op, src, dst);
    return fast ? fast : scalar;
}

void q_row_block_copy(unsigned char* dst, const unsigned char* src, int count,
                      const qRowContext& ctx) {
    const size_t bytes = static_cast<size_t>(count) * static_cast<size_t>(ctx.block_bits) / 8;
    // Moved as memmove moves: source and destination may be rows of one buffer.
    q_copy_bytes(dst, src, bytes);
}

void q_row_index16_to_index8(unsigned char* dst, const unsigned char* src, int count,
                             const qRowContext&) {
    for (int i = 0; i < count; ++i) dst[i] = src[2 * static_cast<size_t>(i)];
}

void q_row_nothing(unsigned char*, const unsigned char*, int, const qRowContext&) {}
