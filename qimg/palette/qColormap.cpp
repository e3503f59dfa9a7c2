#include "qimg/palette/qColormap.h"

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qStatus.h"

namespace {
constexpr int kMaxEntries = 256;
}

qColormap::~qColormap() {
    clear();
}

void qColormap::clear() {
    delete[] entries_;
    entries_ = nullptr;
    count_ = 0;
}

int qColormap::create(int n) {
    clear();
    if (n < 1 || n > kMaxEntries) return ST_BAD_ARGUMENT;
    entries_ = q_new_array<qPixRA>(n);  // value-initialised: every byte zero
    if (!entries_) return ST_NO_MEMORY;
    count_ = n;
    return 0;
}

int qColormap::create_from_rgb(const unsigned char* rgb, int n) {
    if (!rgb) {
        clear();
        return ST_BAD_ARGUMENT;
    }
    const int rc = create(n);
    if (rc != 0) return rc;
    for (int i = 0; i < n; ++i, rgb += 3) entries_[i] = qPixRA{rgb[2], rgb[1], rgb[0], 255};
    return 0;
}

int qColormap::copy_from(const qIColormap* source) {
    clear();
    if (!source) return ST_BAD_ARGUMENT;
    const int n = source->num_colors();
    if (n < 1 || n > kMaxEntries) return ST_BAD_ARGUMENT;
    entries_ = q_new_array<qPixRA>(n);
    if (!entries_) return ST_NO_MEMORY;
    for (int i = 0; i < n; ++i) entries_[i] = source->get_color(i);
    count_ = n;
    return 0;
}

bool qColormap::valid_index(int index) const {
    return entries_ != nullptr && index >= 0 && index < count_;
}

qPixRA qColormap::get_color(int index) const {
    return valid_index(index) ? entries_[index] : q_zero_color;
}

bool qColormap::set_color(int index, qPixRA colour) {
    if (!valid_index(index)) return false;
    entries_[index] = colour;
    return true;
}

void qColormap::set_opaque_all() {
    for (int i = 0; i < count_; ++i) entries_[i].alpha = 255;
}

bool qColormap::set_transparent(int index) {
    if (!valid_index(index)) return false;
    entries_[index].alpha = 0;
    return true;
}

bool qColormap::set_ex_transparent(int index) {
    if (!valid_index(index)) return false;
    set_opaque_all();
    entries_[index].alpha = 0;
    return true;
}
