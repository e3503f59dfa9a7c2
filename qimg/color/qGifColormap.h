// qGifColormap.h: qGifColormap, the nearest-colour cache over another colour map.
//
// Wraps a colour map it does not own, answers every plain colour-map question from it, and adds
// the look-ups colour mapping needs. nearest_index quantizes a colour to 5 bits per channel and
// remembers the nearest entry for each of the 32768 cells, computing a whole 4 x 4 x 4 block of
// cells the first time one of them is asked for. "Nearest" is the smallest weighted squared
// distance 4 dR^2 + 9 dG^2 + dB^2 from the cell's centre, the lower index winning a tie, among
// the entries that survive the block's pruning test (see the source: on dense palettes a few
// per cent of cells get a close runner-up); entries with alpha 0 take part only when every entry
// has alpha 0.
//
// The cache assumes the wrapped map does not change while attached; attach() or clear() is the
// only way to invalidate it.
#pragma once

#include <cstdint>

#include "qimg/palette/qIColormap.h"

class QIMG_API qGifColormap : public qIExColormap {
public:
    static constexpr int kCells = 32768;

    // Detached: an empty cache and no wrapped map.
    qGifColormap();
    // Detaches; the wrapped map is not destroyed.
    ~qGifColormap() override;
    qGifColormap(const qGifColormap&) = delete;
    qGifColormap& operator=(const qGifColormap&) = delete;

    // clear(), then wraps `map` (borrowed; may be null, which answers like an empty map).
    void attach(const qIColormap* map);

    // Empties the cache and detaches.
    void clear() override;
    // The wrapped map's answers; those of an empty map while detached.
    bool valid_index(int index) const override;
    int num_colors() const override;
    const qPixRA* colors() const override;
    qPixRA get_color(int index) const override;

    // The wrapped map's min_t_index() when alpha < 128, otherwise nearest_index(r, g, b).
    int map_color(unsigned char red, unsigned char green, unsigned char blue,
                  unsigned char alpha) const override;
    // The nearest entry of the wrapped map; -1 when it has no entries. Only the first 256
    // entries of a larger map take part.
    int nearest_index(unsigned char red, unsigned char green, unsigned char blue) const override;

    // The same look-up without the virtual call, for the row mappers.
    int lookup(unsigned char red, unsigned char green, unsigned char blue) const {
        const int cell = ((red >> 3) << 10) | ((green >> 3) << 5) | (blue >> 3);
        const int cached = cache_[cell];
        return cached >= 0 ? cached : fill_block(cell);
    }

private:
    // Computes the 64 cells of the block that holds `cell`; returns the answer for `cell`.
    int fill_block(int cell) const;

    const qIColormap* wrapped_ = nullptr;
    // Per cell: the nearest entry, or -1 while not computed yet.
    mutable int16_t cache_[kCells];
};
