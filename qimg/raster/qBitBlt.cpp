// qImageEdit::BitBlt: the block transfer between two views.
#include <cstdint>

#include "qimg/core/qMonitor.h"
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

}  // namespace

int qImageEdit::BitBlt(qRect dst_rect, const qImageAlias* src, qPoint src_pos, qBltMode mode,
                       unsigned char opacity, qIMonitor* monitor) {
    if (!src) return -5;
    TransferArea area{dst_rect.x, dst_rect.y,     src_pos.x,
                      src_pos.y,  dst_rect.width, dst_rect.height};
    if (!clip_transfer(area, src->size(), size())) return 0;

    qTransferPlan plan;
    const int status = q_plan_transfer(*this, *src, mode, opacity, qTransferKind::block, &plan);
    if (status != 0) return status;

    const int width = static_cast<int>(area.width);
    const int height = static_cast<int>(area.height);
    for (int row = 0; row < height; ++row) {
        const unsigned char* from =
            src->pixel_address(static_cast<int>(area.sy) + row, static_cast<int>(area.sx));
        unsigned char* to =
            pixel_address(static_cast<int>(area.dy) + row, static_cast<int>(area.dx));
        // A view bound with type 0 has no addresses; only a copy of nothing can reach here.
        if (from && to) plan.convert(to, from, width, plan.context);
        if (monitor && !monitor->progress(row + 1, height, 0, 1)) return 1;
    }
    return 0;
}
