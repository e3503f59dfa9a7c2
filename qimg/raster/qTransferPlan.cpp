// The mode dispatches of the transfers: one row converter chosen per call.
#include <cstring>

#include "qimg/core/qStatus.h"
#include "qimg/raster/qImageAlias.h"
#include "qimg/raster/qTransferPlanPriv.h"

namespace {

bool is_opaque_type(qPixelType type) {
    return type == PT_BGR24 || type == PT_GRAY8;
}

// The dispatches, in the order they are tried. Each answers 0 with `plan` filled, or a status.
class Dispatch {
public:
    Dispatch(const qImageAlias& dst, const qImageAlias& src, unsigned char opacity,
             qTransferKind kind, qTransferPlan* plan)
        : dst_(dst),
          src_(src),
          d_(dst.pixel_type()),
          s_(src.pixel_type()),
          k_(opacity),
          kind_(kind),
          plan_(plan) {}

    int copy() {
        if (kind_ == qTransferKind::block) {
            if (d_ == PT_INDEX8) return index_copy();
            if (d_ == s_) {
                plan_->context.block_bits = bits_per_pixel(d_);
                return use(q_row_block_copy);
            }
        }
        return pixel(OP_COPY);
    }

    int over() {
        if (d_ == PT_BGR24 || d_ == PT_GRAY8) return source_alpha();
        if (k_ == 255) return is_opaque_type(s_) ? copy() : pixel(OP_OVER);
        const int status = pixel(OP_OVER_OPACITY);
        // Every alpha scales to 0 at opacity 0: the destination stays as it is.
        if (status == 0 && k_ == 0) return use(q_row_nothing);
        return status;
    }

    int blend() { return k_ == 255 ? source_alpha() : pixel(OP_BLEND_OPACITY); }

private:
    // BLT_OVER onto a destination without alpha, and BLT_BLEND at full opacity.
    int source_alpha() { return is_opaque_type(s_) ? copy() : pixel(OP_BLEND); }

    // An indexed destination takes indices only from a source with the same palette; any other
    // source leaves it untouched (there is no remapping), though every row is still reported.
    int index_copy() {
        const qSafeColormap* dst_map = dst_.colormap();
        if (!dst_map) return ST_BAD_ARGUMENT;
        const qSafeColormap* src_map = src_.colormap();
        if (!src_map || !src_map->equals(*dst_map)) return use(q_row_nothing);
        if (s_ == PT_INDEX8) {
            plan_->context.block_bits = 8;
            return use(q_row_block_copy);
        }
        if (s_ == PT_INDEX16) return use(q_row_index16_to_index8);
        return ST_UNSUPPORTED;
    }

    int pixel(qPixelOp op) {
        const qTypeSlot src_slot = q_type_slot(s_);
        const qRowConverter convert = q_row_converter(op, src_slot, q_type_slot(d_));
        if (!convert) return ST_UNSUPPORTED;
        if (src_slot == SLOT_INDEX8) {
            const qSafeColormap* map = src_.colormap();
            if (!map) return ST_BAD_ARGUMENT;
            // Indices past the palette's entries read as (0, 0, 0, 0): the rest stays zero.
            std::memcpy(plan_->palette, map->colors(),
                        sizeof(qPixRA) * static_cast<size_t>(map->num_colors()));
            plan_->context.palette = plan_->palette;
        }
        plan_->context.opacity = k_;
        plan_->identity = op == OP_COPY && src_slot == q_type_slot(d_);
        return use(convert);
    }

    int use(qRowConverter convert) {
        plan_->convert = convert;
        return 0;
    }

    const qImageAlias& dst_;
    const qImageAlias& src_;
    qPixelType d_;
    qPixelType s_;
    int k_;
    qTransferKind kind_;
    qTransferPlan* plan_;
};

}  // namespace

int q_plan_transfer(const qImageAlias& dst, const qImageAlias& src, qBltMode mode,
                    unsigned char opacity, qTransferKind kind, qTransferPlan* plan) {
    Dispatch dispatch(dst, src, opacity, kind, plan);
    switch (mode) {
        case BLT_COPY:
            return dispatch.copy();
        case BLT_OVER:
            return dispatch.over();
        case BLT_BLEND:
            return dispatch.blend();
        default:
            return ST_UNSUPPORTED;
    }
}
