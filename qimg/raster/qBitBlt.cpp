// qImageEdit::BitBlt: the block transfer between two views.
#include <cstddef>
#include <cstdint>
#include <limits>

#include "qimg/core/qMonitor.h"
#include "qimg/core/qStatus.h"
#include "qimg/raster/qImageEdit.h"
#include "qimg/raster/qTransferPlanPriv.h"

namespace {

// The destination area and the equally sized source area, in 64 bits so that no rectangle or
// position a caller passes can overflow while it is cut.
struct TransferArea {
    int64_t dx, dy, sx, sy, width, height;
};

// Cuts the two areas against their views, source first, then destination; every cut is applied
// to both so they stay the same size and aligned. True when something is left to draw; the
// area then lies inside both views and every field fits in an int.
bool clip_transfer(TransferArea& a, qSize src_size, qSize dst_size) {
    if (a.sx < 0) {
        a.dx -= a.sx;
        a.width += a.sx;
        a.sx = 0;
    }
    if (a.sx + a.width > src_size.width) a.width = src_size.width - a.sx;
    if (a.sy < 0) {
        a.dy -= a.sy;
        a.height += a.sy;
        a.sy = 0;
    }
    if (a.sy + a.height > src_size.height) a.height = src_size.height - a.sy;
    if (a.dx < 0) {
        a.sx -= a.dx;
        a.width += a.dx;
        a.dx = 0;
    }
    if (a.dx + a.width > dst_size.width) a.width = dst_size.width - a.dx;
    if (a.dy < 0) {
        a.sy -= a.dy;
        a.height += a.dy;
        a.dy = 0;
    }
    if (a.dy + a.height > dst_size.height) a.height = dst_size.height - a.dy;
    return a.dx >= 0 && a.dy >= 0 && a.sx >= 0 && a.sy >= 0 && a.width > 0 && a.height > 0;
}

// Bytes of `width` pixels of `bits` each.
size_t q_row_span(int width, int bits) {
    return static_cast<size_t>(width) * static_cast<size_t>(bits) / 8;
}

// `base` + `bytes`, formed on integers: caller strides and offsets are taken as given.
unsigned char* offset(unsigned char* base, size_t bytes) {
    return reinterpret_cast<unsigned char*>(reinterpret_cast<uintptr_t>(base) + bytes);
}

// True when `next` lies exactly `offset` bytes after `first` (compared as numbers: the rows
// of a view need not belong to one allocation).
bool follows(const unsigned char* next, const unsigned char* first, size_t offset) {
    return reinterpret_cast<uintptr_t>(next) == reinterpret_cast<uintptr_t>(first) + offset;
}

}  // namespace

int qImageEdit::BitBlt(qRect dst_rect, const qImageAlias* src, qPoint src_pos, qBltMode mode,
                       unsigned char opacity, qIMonitor* monitor) {
    if (!src) return ST_BAD_ARGUMENT;
    TransferArea area{dst_rect.x, dst_rect.y,     src_pos.x,
                      src_pos.y,  dst_rect.width, dst_rect.height};
    if (!clip_transfer(area, src->size(), size())) return 0;

    qTransferPlan plan;
    const int status = q_plan_transfer(*this, *src, mode, opacity, qTransferKind::block, &plan);
    if (status != 0) return status;

    const int width = static_cast<int>(area.width);
    const int height = static_cast<int>(area.height);
    // The clipped area lies inside both views, so both row tables exist and cover its rows.
    unsigned char* const* src_rows = src->row_table() + area.sy;
    unsigned char* const* dst_rows = row_table() + area.dy;
    const size_t src_skip = q_row_span(static_cast<int>(area.sx), src->bits_per_pixel());
    const size_t dst_skip = q_row_span(static_cast<int>(area.dx), bits_per_pixel());
    // Without a monitor nobody sees the rows one by one, so rows that follow each other in
    // memory on both sides are converted as one run (one memmove for a whole copied image).
    const size_t src_row = q_row_span(width, src->bits_per_pixel());
    const size_t dst_row = q_row_span(width, bits_per_pixel());
    const int max_run = monitor ? 1 : std::numeric_limits<int>::max() / width;
    for (int row = 0; row < height;) {
        int run = 1;
        while (run < max_run && row + run < height &&
               follows(src_rows[row + run], src_rows[row], run * src_row) &&
               follows(dst_rows[row + run], dst_rows[row], run * dst_row)) {
            ++run;
        }
        plan.convert(offset(dst_rows[row], dst_skip), offset(src_rows[row], src_skip), width * run,
                     plan.context);
        row += run;
        if (monitor && !monitor->progress(row, height, 0, 1)) return ST_CANCELLED;
    }
    return 0;
}
