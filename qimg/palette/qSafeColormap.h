// qSafeColormap.h: qSafeColormap, a palette with fixed room for 256 entries inside the object.
//
// Never reallocated, so it cannot fail once constructed. The quantizer and the fixed-palette
// generator deliver their palettes in one, and every view keeps its private copy of an indexed
// source's palette in one; the block transfer compares two such copies with equals().
#pragma once

#include "qimg/palette/qIColormap.h"

class QIMG_API qSafeColormap : public qIColormap {
public:
    static constexpr int kCapacity = 256;

    // 256 zero entries, none in use.
    qSafeColormap() = default;
    // 256 zero entries, then assign(source, transparent_index). A failure is not reported here:
    // the caller sees it as valid_index(0) being false.
    qSafeColormap(const qIColormap* source, int transparent_index);
    ~qSafeColormap() override;

    // Empties the map, copies the source's entries and, when transparent_index >= 0, makes that
    // entry the only transparent one (set_ex_transparent; an index past the entries still makes
    // every entry opaque). ST_OK; ST_BAD_ARGUMENT for a null source or one with fewer than 1 or
    // more than 256 entries, the map left empty.
    int assign(const qIColormap* source, int transparent_index);

    // Stores `colour` into entry `index`; an index at or past num_colors() extends the map to
    // index + 1 entries (skipped entries keep their bytes). Indices outside 0..255 are ignored:
    // the map has no room for them.
    void set_color(int index, qPixRA colour);
    // Alpha 255 for every entry in use.
    void set_opaque_all();
    // A negative index changes nothing and gives true; an index past the entries gives false;
    // otherwise that entry's alpha becomes 0 and true.
    bool set_transparent(int index);
    // set_opaque_all(), then set_transparent(index) and its result.
    bool set_ex_transparent(int index);
    // Same entry count and the entries in use byte-for-byte equal (two empty maps are equal).
    bool equals(const qSafeColormap& other) const;

    // Sets the count to 0; the entry bytes stay.
    void clear() override { count_ = 0; }
    bool valid_index(int index) const override { return index >= 0 && index < count_; }
    int num_colors() const override { return count_; }
    const qPixRA* colors() const override { return entries_; }
    // Entry `index` for any index 0..255, in use or not (unused entries read as they were last
    // written, zero unless written); the zero colour outside 0..255.
    qPixRA get_color(int index) const override;

private:
    qPixRA entries_[kCapacity] = {};
    int count_ = 0;
};
