// qRowConvertersPriv.h: the row converters of the transfers and the table that holds them.
//
// A row converter turns `count` source pixels into `count` destination pixels, left to right.
// It never clips and never sees a stride: the transfer resolves the clip and the row addresses
// first and calls one converter, chosen once per call, for every row. The scaled transfer first
// gathers the sampled source pixels of a row into a small contiguous run and then calls the
// same converters, so every pixel operation exists exactly once.
#pragma once

#include <cstddef>

#include "qimg/core/qPixel.h"

// What the converter needs besides the two rows; filled once per call.
struct qRowContext {
    const qPixRA* palette = nullptr;  // 256 entries for a PT_INDEX8 source (unused ones zero)
    int opacity = 255;                // constant opacity, for the rules that use it
    int block_bits = 0;               // bits per pixel of a same-type block copy
};

using qRowConverter = void (*)(unsigned char* dst, const unsigned char* src, int count,
                               const qRowContext& ctx);

// The pixel operations of the table. The alpha of the "opacity" variants is the scaled product
// of the source alpha and the constant opacity; the others use the source alpha as it is.
enum qPixelOp : int {
    OP_COPY,           // convert and copy, alpha copied
    OP_OVER,           // over composite onto PT_BGRA32, source alpha
    OP_OVER_OPACITY,   // over composite onto PT_BGRA32, source alpha x opacity
    OP_BLEND,          // source-alpha blend, source alpha
    OP_BLEND_OPACITY,  // source-alpha blend, source alpha x opacity
    kPixelOpCount,
};

// The pixel types that take part in converting transfers, as table indices.
enum qTypeSlot : int {
    SLOT_BGRA32,
    SLOT_BGR24,
    SLOT_GRAY_ALPHA16,
    SLOT_GRAY8,
    SLOT_INDEX8,
    kSourceSlotCount,
    kDestSlotCount = 2,  // only PT_BGRA32 and PT_BGR24 are converted into
    SLOT_NONE = -1,
};

constexpr qTypeSlot q_type_slot(qPixelType type) {
    switch (type) {
        case PT_BGRA32:
            return SLOT_BGRA32;
        case PT_BGR24:
            return SLOT_BGR24;
        case PT_GRAY_ALPHA16:
            return SLOT_GRAY_ALPHA16;
        case PT_GRAY8:
            return SLOT_GRAY8;
        case PT_INDEX8:
            return SLOT_INDEX8;
        default:
            return SLOT_NONE;
    }
}

// Bytes of one pixel of a source slot (all slots are whole bytes).
constexpr int q_slot_bytes(qTypeSlot slot) {
    constexpr int bytes[kSourceSlotCount] = {4, 3, 2, 1, 1};
    return slot >= 0 && slot < kSourceSlotCount ? bytes[slot] : 0;
}

// The converter for `op` from `src` into `dst`, or null when the pair does not exist for that
// operation (the transfer then answers ST_UNSUPPORTED). Picks the fastest kernel the processor runs
// unless the build forces the portable ones (QIMG_SCALAR_ONLY).
qRowConverter q_row_converter(qPixelOp op, qTypeSlot src, qTypeSlot dst);

// Same-type rows moved as blocks of count * block_bits / 8 bytes.
void q_row_block_copy(unsigned char* dst, const unsigned char* src, int count,
                      const qRowContext& ctx);
// PT_INDEX16 onto PT_INDEX8: the first byte of each source pixel.
void q_row_index16_to_index8(unsigned char* dst, const unsigned char* src, int count,
                             const qRowContext& ctx);
// Writes nothing (a transfer that has nothing to change still reports every row).
void q_row_nothing(unsigned char* dst, const unsigned char* src, int count, const qRowContext& ctx);
