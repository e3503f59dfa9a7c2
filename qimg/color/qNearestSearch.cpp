#include <algorithm>

#include "qimg/color/qNearestSearchPriv.h"

namespace {

constexpr float kFar = 1e30f;

inline float distance(const float* e, float r, float g, float b) {
    const float dr = e[0] - r, dg = e[1] - g, db = e[2] - b;
    return dr * dr + dg * dg + db * db;
}

}  // namespace

qNearestSearch::qNearestSearch(const qPixRA* entries, int count) {
    count = std::clamp(count, 0, 256);
    bool any_opaque = false;
    for (int i = 0; i < count; ++i) any_opaque |= entries[i].alpha != 0;
    int order[256];
    for (int i = 0; i < count; ++i) {
        if (!any_opaque || entries[i].alpha != 0) order[count_++] = i;
    }
    const auto sum = [&](int i) { return entries[i].red + entries[i].green + entries[i].blue; };
    std::stable_sort(order, order + count_, [&](int a, int b) { return sum(a) < sum(b); });
    for (int p = 0; p < 256; ++p) place_[p] = 0;
    for (int p = 0; p < count_; ++p) {
        const qPixRA e = entries[order[p]];
        key_[p] = static_cast<float>(sum(order[p]));
        rgb_[p][0] = e.red;
        rgb_[p][1] = e.green;
        rgb_[p][2] = e.blue;
        index_[p] = static_cast<uint8_t>(order[p]);
        place_[order[p]] = static_cast<uint8_t>(p);
    }
}

int qNearestSearch::nearest(float red, float green, float blue, int hint,
                            float* distance_out) const {
    if (count_ == 0) return kNone;
    int best = kNone;
    float best_d = kFar;
    if (hint >= 0 && hint < 256 && index_[place_[hint]] == hint) {
        best = place_[hint];
        best_d = distance(rgb_[best], red, green, blue);
    }
    const float key = red + green + blue;
    const int start = static_cast<int>(std::lower_bound(key_, key_ + count_, key) - key_);
    const auto consider = [&](int p) {
        const float d = distance(rgb_[p], red, green, blue);
        if (d < best_d || (d == best_d && index_[p] < index_[best])) best_d = d, best = p;
    };
    for (int p = start; p < count_; ++p) {
        const float dk = key_[p] - key;
        if (dk * dk > 3 * best_d) break;
        consider(p);
    }
    for (int p = start - 1; p >= 0; --p) {
        const float dk = key - key_[p];
        if (dk * dk > 3 * best_d) break;
        consider(p);
    }
    if (distance_out) *distance_out = best_d;
    return index_[best];
}

int qNearestSearch::within(float red, float green, float blue, float radius2, uint8_t* out,
                           int max) const {
    const float key = red + green + blue;
    const int start = static_cast<int>(std::lower_bound(key_, key_ + count_, key) - key_);
    int found = 0;
    const auto consider = [&](int p) {
        if (distance(rgb_[p], red, green, blue) > radius2) return;
        if (found < max) out[found] = index_[p];
        ++found;
    };
    for (int p = start; p < count_ && (key_[p] - key) * (key_[p] - key) <= 3 * radius2; ++p) {
        consider(p);
    }
    for (int p = start - 1; p >= 0 && (key - key_[p]) * (key - key_[p]) <= 3 * radius2; --p) {
        consider(p);
    }
    std::sort(out, out + std::min(found, max));
    return found;
}

qNearestSearch::Answer qNearestSearch::nearest_two(float red, float green, float blue) const {
    Answer answer{-1, kFar, kFar};
    if (count_ == 0) return answer;
    int best = -1;
    const float key = red + green + blue;
    const int start = static_cast<int>(std::lower_bound(key_, key_ + count_, key) - key_);
    const auto consider = [&](int p) {
        const float d = distance(rgb_[p], red, green, blue);
        if (best < 0 || d < answer.nearest || (d == answer.nearest && index_[p] < index_[best])) {
            answer.second = answer.nearest;
            answer.nearest = d;
            best = p;
        } else if (d < answer.second) {
            answer.second = d;
        }
    };
    for (int p = start; p < count_; ++p) {
        const float dk = key_[p] - key;
        if (dk * dk > 3 * answer.second) break;
        consider(p);
    }
    for (int p = start - 1; p >= 0; --p) {
        const float dk = key - key_[p];
        if (dk * dk > 3 * answer.second) break;
        consider(p);
    }
    answer.index = index_[best];
    return answer;
}
