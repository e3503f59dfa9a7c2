// qNearestSearchPriv.h: exact nearest palette entry by plain squared RGB distance.
//
// The entries are kept sorted by red + green + blue. For any two colours the difference of those
// sums, squared, is at most three times their squared distance, so a search that walks outward
// from the colour's own sum can stop in each direction as soon as that bound passes the best
// distance found. On photographs this looks at a few entries of 256 instead of all of them.
// Ties go to the lower palette index, so the answer depends on the palette alone.
#pragma once

#include <cstdint>

#include "qimg/core/qPixel.h"

class qNearestSearch {
public:
    // The index nearest() gives when there is no entry to search.
    static constexpr int kNone = -1;
    struct Answer {
        int index;      // palette index of the nearest entry, kNone when there is none
        float nearest;  // its squared distance
        float second;   // squared distance of the runner-up (a huge value when there is none)
    };

    // Searches among entries[0..count-1] whose alpha is not 0; among all of them when every
    // entry is transparent. count is clamped to 0..256.
    qNearestSearch(const qPixRA* entries, int count);

    int size() const { return count_; }

    // The nearest entry; `hint`, an index of a likely answer (or -1), only speeds the search up.
    int nearest(float red, float green, float blue, int hint, float* distance = nullptr) const;
    // The nearest entry and the runner-up's distance.
    Answer nearest_two(float red, float green, float blue) const;
    // Writes the palette indices of the entries within squared distance `radius2` of the colour
    // to out[0..max-1], ascending; returns how many there are (more than max: only max written).
    int within(float red, float green, float blue, float radius2, uint8_t* out, int max) const;

private:
    int count_ = 0;
    float key_[256];  // red + green + blue, ascending
    float rgb_[256][3];
    uint8_t index_[256];  // palette index of each sorted place
    uint8_t place_[256];  // sorted place of each palette index
};
