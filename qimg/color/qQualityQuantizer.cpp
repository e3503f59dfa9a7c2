#include "qimg/color/qQualityQuantizer.h"

#include <cstddef>

#include "qimg/color/qFineHistogramPriv.h"
#include "qimg/color/qPaletteRefinementPriv.h"
#include "qimg/color/qPrescanPriv.h"
#include "qimg/color/qVarianceCutPriv.h"
#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qImageBuffer.h"
#include "qimg/core/qStatus.h"
#include "qimg/palette/qSafeColormap.h"

namespace {

constexpr qPixRA kBlack{0, 0, 0, 255};
constexpr qPixRA kTransparentWhite{255, 255, 255, 0};

}  // namespace

qQualityQuantizer::~qQualityQuantizer() {
    delete palette_;
    delete[] histogram_;
}

void qQualityQuantizer::track(qPixRA p) {
    const uint32_t key = (uint32_t{p.red} << 16 | uint32_t{p.green} << 8 | p.blue) | 1u << 24;
    uint32_t slot = (key * 2654435761u) >> 23;  // 9 bits: 0..511
    while (seen_[slot] != 0) {
        if (seen_[slot] == key) return;
        slot = (slot + 1) & (kTrackSlots - 1);
    }
    if (distinct_count_ == 256) {
        too_many_ = true;
        return;
    }
    seen_[slot] = key;
    distinct_[distinct_count_++] = qPixRA{p.blue, p.green, p.red, 255};
}

inline void qQualityQuantizer::add(qPixRA p) {
    q_count_colour(histogram_, p);
    if (!too_many_) track(p);
}

int qQualityQuantizer::prescan(const qIImageBuffer* image, qRect area, unsigned char min_alpha) {
    const qIColormap* source_map = nullptr;
    const int status = q_check_prescan(image, area, source_map);
    if (status != ST_OK) return status;
    if (q_prepare_histogram(palette_, histogram_, kFineCells) != ST_OK) return ST_NO_MEMORY;
    q_for_each_counted(image, area, source_map, min_alpha, [this](qPixRA p) { add(p); });
    return ST_OK;
}

int qQualityQuantizer::select_colors(int n, bool add_transparent) {
    if (!histogram_ || !palette_) return ST_BAD_ARGUMENT;
    if (add_transparent) n -= 1;
    const int room = qSafeColormap::kCapacity - (add_transparent ? 1 : 0);
    if (n > room) n = room;
    if (n < 1) n = 1;

    qPixRA chosen[256];
    int count = 0;
    if (!too_many_ && distinct_count_ <= n) {
        for (int i = 0; i < distinct_count_; ++i) chosen[count++] = distinct_[i];
    } else {
        count = q_variance_cut(histogram_, n, chosen);
        if (count < 0) return ST_NO_MEMORY;
        if (count > 0 &&
            q_refine_palette(histogram_, kFineCells, chosen, count, kRefinePasses) < 0) {
            return ST_NO_MEMORY;
        }
    }
    if (count == 0) chosen[count++] = kBlack;
    // Unlike the median cut, no entry of an earlier choice is left behind.
    palette_->clear();
    for (int i = 0; i < count; ++i) palette_->set_color(i, chosen[i]);
    if (add_transparent) palette_->set_color(count, kTransparentWhite);
    return ST_OK;
}

const qIColormap* qQualityQuantizer::colormap() const {
    return palette_;
}
