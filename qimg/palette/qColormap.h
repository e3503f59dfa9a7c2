// qColormap.h: qColormap, a heap-allocated palette of 1 to 256 entries.
//
// Used for the colour tables of GIF frames and animations and for the own palette of a
// qColorIndexImage. Not copyable by value: copy_from() makes a copy and reports failure.
#pragma once

#include "qimg/palette/qIColormap.h"

class QIMG_API qColormap : public qIColormap {
public:
    qColormap() = default;
    ~qColormap() override;
    qColormap(const qColormap&) = delete;
    qColormap& operator=(const qColormap&) = delete;

    // Empties the map, then makes n entries of zero bytes (black, alpha 0).
    // ST_OK; ST_BAD_ARGUMENT for n outside 1..256; ST_NO_MEMORY when allocation fails. The map
    // stays empty on failure.
    int create(int n);
    // Empties the map, then copies every entry of `source` (get_color(0) upward).
    // ST_OK; ST_BAD_ARGUMENT for a null source or one with fewer than 1 or more than 256 entries;
    // ST_NO_MEMORY when allocation fails. The map stays empty on failure.
    int copy_from(const qIColormap* source);
    // Empties the map, then makes n opaque entries from n red, green, blue byte triplets at
    // `rgb` (a file's colour table), in one pass. Statuses as create(); ST_BAD_ARGUMENT also for
    // a null `rgb`.
    int create_from_rgb(const unsigned char* rgb, int n);

    // Palette edits. Each returns false and changes nothing when `index` is not an entry.
    bool set_color(int index, qPixRA colour);  // the whole entry, alpha included
    void set_opaque_all();                     // alpha 255 everywhere, colours unchanged
    bool set_transparent(int index);           // that entry's alpha becomes 0
    bool set_ex_transparent(int index);        // all opaque, then that entry's alpha 0

    void clear() override;
    bool valid_index(int index) const override;
    int num_colors() const override { return count_; }
    const qPixRA* colors() const override { return entries_; }
    // Entry `index`, or the zero colour outside the map.
    qPixRA get_color(int index) const override;

private:
    qPixRA* entries_ = nullptr;
    int count_ = 0;
};
