// qIColormap.h: the palette interfaces.
//
//   qIColormap    an ordered list of at most 256 qPixRA entries, each with its own alpha
//   qIExColormap  adds colour-to-index look-ups for colour mapping
//
// Concrete maps: qColormap (heap, 1..256 entries), qSafeColormap (fixed room for 256 inside the
// object) and qGifColormap (the nearest-colour cache). Whoever creates a map owns it; the
// interfaces hand out borrowed const pointers.
#pragma once

#include "qimg/core/qExport.h"
#include "qimg/core/qPixel.h"
#include "qimg/core/qTypes.h"

// The zero colour: black, fully transparent. Returned by out-of-range reads of a qColormap and by
// every query that cannot produce a colour.
inline constexpr qPixRA q_zero_color{0, 0, 0, 0};

class QIMG_API qIColormap {
public:
    virtual ~qIColormap();
    // Empties the map.
    virtual void clear() = 0;
    // True when `index` addresses an existing entry.
    virtual bool valid_index(int index) const = 0;
    virtual int num_colors() const = 0;
    // The contiguous entry array (read-only; may be null for an empty qColormap).
    virtual const qPixRA* colors() const = 0;
    virtual qPixRA get_color(int index) const = 0;
    // AT_OPAQUE when every entry has alpha 255 (also for an empty map), AT_BILEVEL when some are
    // 0 and none partial, AT_TRANSLUCENT as soon as one entry is partial.
    virtual qAlphaType alpha_hint() const;
    // The lowest index whose entry has alpha 0; -1 when there is none.
    virtual int min_t_index() const;
};

class QIMG_API qIExColormap : public qIColormap {
public:
    ~qIExColormap() override;
    // Both look-ups are const: colour mapping reaches the map through a const pointer, and an
    // implementation that caches answers keeps its cache mutable.
    // min_t_index() when alpha < 128, else nearest_index(red, green, blue).
    virtual int map_color(unsigned char red, unsigned char green, unsigned char blue,
                          unsigned char alpha) const = 0;
    // Index of the entry nearest to the colour, 0 .. num_colors() - 1; negative on failure.
    virtual int nearest_index(unsigned char red, unsigned char green, unsigned char blue) const = 0;
};
