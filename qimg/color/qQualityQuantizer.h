// qQualityQuantizer.h: qQualityQuantizer, the palette chooser of CM_QUALITY.
//
// Gathers a 6-bit-per-channel histogram of the prescanned pixels (exact channel sums per cell),
// cuts it into at most n boxes where the squared error is largest, and then moves the box means
// by a few k-means passes over the histogram. A picture of no more colours than asked for gets
// exactly its colours. The palette is delivered in a qSafeColormap owned by the quantizer; pair
// it with the exact mapping of qQualityMappingPriv.h, which the frames do for CM_QUALITY.
#pragma once

#include <cstdint>

#include "qimg/color/qIColorQuantizer.h"
#include "qimg/core/qPixel.h"

class qSafeColormap;
struct qColorCell;

class QIMG_API qQualityQuantizer : public qIColorQuantizer {
public:
    // Lloyd passes after the cuts: past four the gain on photographs is below 0.05 dB.
    static constexpr int kRefinePasses = 4;

    qQualityQuantizer() = default;
    ~qQualityQuantizer() override;
    qQualityQuantizer(const qQualityQuantizer&) = delete;
    qQualityQuantizer& operator=(const qQualityQuantizer&) = delete;

    // As qHeckbertQuantizer::prescan: ST_OK; ST_NO_MEMORY (nothing kept); ST_BAD_ARGUMENT null
    // image, an area the image does not cover, an indexed image without colour map;
    // ST_UNSUPPORTED other pixel types.
    int prescan(const qIImageBuffer* image, qRect area, unsigned char min_alpha) override;
    // Writes at most n opaque colours from entry 0 (n - 1 and then transparent white when
    // add_transparent; n clamped to the palette's room, at least one colour; opaque black when no
    // pixel was counted). ST_OK; ST_NO_MEMORY for the working tables (palette unchanged);
    // ST_BAD_ARGUMENT before any successful prescan.
    int select_colors(int n, bool add_transparent) override;
    const qIColormap* colormap() const override;

private:
    // Up to 256 distinct colours are remembered exactly, so a picture that fits gets them back.
    static constexpr int kTrackSlots = 512;
    void track(qPixRA p);
    void add(qPixRA p);

    qSafeColormap* palette_ = nullptr;
    qColorCell* histogram_ = nullptr;
    uint32_t seen_[kTrackSlots] = {};  // colour | 1 << 24 in a used slot
    qPixRA distinct_[256] = {};
    int distinct_count_ = 0;
    bool too_many_ = false;
};
