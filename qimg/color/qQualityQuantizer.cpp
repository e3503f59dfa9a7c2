#include "qimg/color/qQualityQuantizer.h"

#include <cstddef>

#include "qimg/color/qFineHistogramPriv.h"
#include "qimg/color/qPaletteRefinementPriv.h"
#include "qimg/color/qSafeColormap.h"
#include "qimg/color/qVarianceCutPriv.h"
#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qImageBuffer.h"
#include "qimg/core/qStatus.h"

namespace {

constexpr qPixRA kBlack{0, 0, 0, 255};
constexpr qPixRA kTransparentWhite{255, 255, 255, 0};

bool rows_addressable(const qIImageBuffer* image, qRect area) {
    for (int y = area.y; y < area.y + area.height; ++y) {
        if (!image->pixel_address(y, 0)) return false;
    }
    return true;
}

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
    if (!image) return ST_BAD_ARGUMENT;
    const qPixelType type = image->pixel_type();
    const qIColormap* source_map = nullptr;
    if (type == PT_INDEX8) {
        const auto* indexed = dynamic_cast<const qIIndexImage*>(image);
        if (!indexed || !(source_map = indexed->colormap())) return ST_BAD_ARGUMENT;
    } else if (type != PT_BGRA32) {
        return ST_UNSUPPORTED;
    }
    const qSize size = image->size();
    if (area.empty()) {
        area = qRect();
    } else if (area.x < 0 || area.y < 0 || int64_t{area.x} + area.width > size.width ||
               int64_t{area.y} + area.height > size.height || !rows_addressable(image, area)) {
        return ST_BAD_ARGUMENT;
    }
    if (!histogram_ || !palette_) {
        delete palette_;
        delete[] histogram_;
        palette_ = q_new<qSafeColormap>();
        histogram_ = q_new_array<qColorCell>(kFineCells);
        if (!palette_ || !histogram_) {
            delete palette_;
            delete[] histogram_;
            palette_ = nullptr;
            histogram_ = nullptr;
            return ST_NO_MEMORY;
        }
    }
    if (type == PT_BGRA32) {
        for (int y = area.y; y < area.y + area.height; ++y) {
            const auto* row = reinterpret_cast<const qPixRA*>(image->pixel_address(y, 0)) + area.x;
            for (int x = 0; x < area.width; ++x) {
                if (row[x].alpha >= min_alpha) add(row[x]);
            }
        }
        return ST_OK;
    }
    qPixRA colour[256];
    for (int i = 0; i < 256; ++i) colour[i] = source_map->get_color(i);
    for (int y = area.y; y < area.y + area.height; ++y) {
        const unsigned char* row = image->pixel_address(y, 0) + area.x;
        for (int x = 0; x < area.width; ++x) {
            if (colour[row[x]].alpha >= min_alpha) add(colour[row[x]]);
        }
    }
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
