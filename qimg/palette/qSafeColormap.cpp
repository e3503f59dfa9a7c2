#include "qimg/palette/qSafeColormap.h"

#include <cstring>

#include "qimg/core/qStatus.h"

qSafeColormap::qSafeColormap(const qIColormap* source, int transparent_index) {
    assign(source, transparent_index);
}

qSafeColormap::~qSafeColormap() = default;

int qSafeColormap::assign(const qIColormap* source, int transparent_index) {
    clear();
    if (!source) return ST_BAD_ARGUMENT;
    const int n = source->num_colors();
    if (n < 1 || n > kCapacity) return ST_BAD_ARGUMENT;
    for (int i = 0; i < n; ++i) entries_[i] = source->get_color(i);
    count_ = n;
    if (transparent_index >= 0) set_ex_transparent(transparent_index);
    return 0;
}

qPixRA qSafeColormap::get_color(int index) const {
    return index >= 0 && index < kCapacity ? entries_[index] : q_zero_color;
}

void qSafeColormap::set_color(int index, qPixRA colour) {
    if (index < 0 || index >= kCapacity) return;
    entries_[index] = colour;
    if (index >= count_) count_ = index + 1;
}

void qSafeColormap::set_opaque_all() {
    for (int i = 0; i < count_; ++i) entries_[i].alpha = 255;
}

bool qSafeColormap::set_transparent(int index) {
    if (index < 0) return true;
    if (index >= count_) return false;
    entries_[index].alpha = 0;
    return true;
}

bool qSafeColormap::set_ex_transparent(int index) {
    set_opaque_all();
    return set_transparent(index);
}

bool qSafeColormap::equals(const qSafeColormap& other) const {
    return count_ == other.count_ &&
           std::memcmp(entries_, other.entries_, sizeof(qPixRA) * static_cast<size_t>(count_)) == 0;
}
