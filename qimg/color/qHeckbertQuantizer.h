// qHeckbertQuantizer.h: qHeckbertQuantizer, the median-cut palette chooser.
//
// Gathers an exact 15-bit colour histogram of the prescanned pixels and cuts colour space into
// at most n boxes, one palette entry per box, the pixel-weighted mean of the box. The palette
// is delivered in a qSafeColormap owned by the quantizer.
#pragma once

#include <cstdint>

#include "qimg/color/qIColorQuantizer.h"

class qSafeColormap;

class QIMG_API qHeckbertQuantizer : public qIColorQuantizer {
public:
    // One histogram cell: exact sums of the 8-bit channel values of the pixels counted in it.
    struct Cell {
        uint32_t red;
        uint32_t green;
        uint32_t blue;
        uint32_t count;
    };
    // 5 bits per channel: (red >> 3) * 1024 + (green >> 3) * 32 + (blue >> 3).
    static constexpr int kCells = 32768;
    // A cell stops counting at 2^24 pixels, so its 32-bit channel sums cannot overflow
    // (255 * 2^24 < 2^32).
    static constexpr uint32_t kCellCap = 1u << 24;

    qHeckbertQuantizer() = default;
    ~qHeckbertQuantizer() override;
    qHeckbertQuantizer(const qHeckbertQuantizer&) = delete;
    qHeckbertQuantizer& operator=(const qHeckbertQuantizer&) = delete;

    // The first call allocates the histogram and the palette (ST_NO_MEMORY when either cannot be
    // had, nothing kept). The area must lie inside the image (else ST_BAD_ARGUMENT, nothing
    // counted).
    int prescan(const qIImageBuffer* image, qRect area, unsigned char min_alpha) override;
    // Writes the chosen colours into the palette from entry 0 (the palette is not cleared, so
    // entries past the new ones stay from an earlier call), then the transparent white entry
    // when asked. n is clamped to the room of the 256-entry palette: at most 256 colours, or
    // 255 plus the transparent entry; n of 1 or less still gives one colour. A histogram with
    // no counted pixel gives opaque black. ST_OK; ST_BAD_ARGUMENT before any successful prescan.
    int select_colors(int n, bool add_transparent) override;
    const qIColormap* colormap() const override;

    // The histogram (kCells cells), null before the first prescan. For tests and tools.
    const Cell* histogram() const { return histogram_; }

private:
    qSafeColormap* palette_ = nullptr;
    Cell* histogram_ = nullptr;
};
