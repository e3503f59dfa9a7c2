// Nearest-colour cache.
//
// Colour mapping asks for the nearest palette entry once per pixel, so the answer must be a
// table read almost always. The table has one cell per colour quantized to 5 bits per channel
// (32768 cells of 16 bits, 64 KiB); a cell holds the entry index, or -1 while not computed.
//
// Cells are computed a block of 4 x 4 x 4 at a time, the block around the first cell asked for.
// Neighbouring cells have nearly the same candidates, so one pass over the palette serves 64
// cells, and the work is done only for the part of colour space a picture actually uses.
//
// Pruning (a locality test). For each entry we bound, from the block's outer cell centres, its
// least and greatest possible distance to any cell of the block, weighing every channel by 2
// (4 d^2): cheaper than the search's weights and the rule this cache is defined by. The smallest
// greatest distance is the bound; entries whose least distance exceeds it are dropped. Because the
// pruning weights differ from the search's (green counts 9 there, blue 1), the test is not a
// strict bound of the weighted distance: on random palettes a few per cent of the cells get an
// entry that is close but not the very nearest. That is the cache's defined answer, and results
// must not depend on how fast the cache is, so the weights stay. Entries with alpha 0 get both
// bounds at the maximum, so they survive only when every entry is transparent.
//
// Exact search. For each surviving entry, in index order, the weighted squared distance
// 4 dR^2 + 9 dG^2 + dB^2 to each of the 64 cell centres is walked incrementally: the centres are
// 8 apart, i.e. 16, 24 and 8 apart in weighted units, so each step adds an increment that itself
// grows by a constant. Only a strictly smaller distance replaces a cell's best, so among equal
// distances the lower index wins. All arithmetic is exact in 32-bit integers (the largest
// distance, 14 * 255^2, is far below 2^31).
#include "qimg/color/qGifColormap.h"

#include <cstring>

#include "qimg/core/qNoValuePriv.h"

namespace {

constexpr int kMaxDistance = 2147483647;
constexpr int kMaxCandidates = 256;

// Channel weight of the pruning bounds, squared: 4 d^2 on every channel.
constexpr int kPruneWeight = 4;

// Least and greatest weighted squared distance, on one channel of weight w, from value x to the
// cell centres min..max of a block whose centre is `mid`.
inline void channel_bounds(int w, int x, int min, int max, int mid, int& least, int& greatest) {
    if (x < min) {
        least += w * (x - min) * (x - min);
        greatest += w * (x - max) * (x - max);
    } else if (x > max) {
        least += w * (x - max) * (x - max);
        greatest += w * (x - min) * (x - min);
    } else if (x <= mid) {
        greatest += w * (x - max) * (x - max);
    } else {
        greatest += w * (x - min) * (x - min);
    }
}

}  // namespace

qGifColormap::qGifColormap() {
    clear();
}

qGifColormap::~qGifColormap() {
    wrapped_ = nullptr;
}

void qGifColormap::attach(const qIColormap* map) {
    clear();
    wrapped_ = map;
}

void qGifColormap::clear() {
    std::memset(cache_, 0xFF, sizeof(cache_));  // every cell -1
    wrapped_ = nullptr;
}

bool qGifColormap::valid_index(int index) const {
    return wrapped_ && wrapped_->valid_index(index);
}

int qGifColormap::num_colors() const {
    return wrapped_ ? wrapped_->num_colors() : 0;
}

const qPixRA* qGifColormap::colors() const {
    return wrapped_ ? wrapped_->colors() : nullptr;
}

qPixRA qGifColormap::get_color(int index) const {
    return wrapped_ ? wrapped_->get_color(index) : q_zero_color;
}

int qGifColormap::map_color(unsigned char red, unsigned char green, unsigned char blue,
                            unsigned char alpha) const {
    if (alpha < 128) return wrapped_ ? wrapped_->min_t_index() : kNoValue;
    return lookup(red, green, blue);
}

int qGifColormap::nearest_index(unsigned char red, unsigned char green, unsigned char blue) const {
    return lookup(red, green, blue);
}

int qGifColormap::fill_block(int cell) const {
    const int n = wrapped_ ? wrapped_->num_colors() : 0;
    const int entries = n < kMaxCandidates ? n : kMaxCandidates;
    if (entries <= 0) return kNoValue;

    // First cell of the block, in cell coordinates, and its centre in 8-bit units.
    const int r0 = ((cell >> 10) & 31) & ~3;
    const int g0 = ((cell >> 5) & 31) & ~3;
    const int b0 = (cell & 31) & ~3;
    const int min_r = r0 * 8 + 4, min_g = g0 * 8 + 4, min_b = b0 * 8 + 4;
    const int max_r = min_r + 24, max_g = min_g + 24, max_b = min_b + 24;

    // Pruning: keep the entries whose least distance does not exceed the best greatest one.
    qPixRA colour[kMaxCandidates];
    int least[kMaxCandidates];
    int bound = kMaxDistance;
    for (int i = 0; i < entries; ++i) {
        colour[i] = wrapped_->get_color(i);
        int lo = 0, hi = 0;
        if (colour[i].alpha == 0) {
            lo = hi = kMaxDistance;
        } else {
            channel_bounds(kPruneWeight, colour[i].red, min_r, max_r, min_r + 12, lo, hi);
            channel_bounds(kPruneWeight, colour[i].green, min_g, max_g, min_g + 12, lo, hi);
            channel_bounds(kPruneWeight, colour[i].blue, min_b, max_b, min_b + 12, lo, hi);
        }
        least[i] = lo;
        if (hi < bound) bound = hi;
    }
    unsigned char candidates[kMaxCandidates];
    int count = 0;
    for (int i = 0; i < entries; ++i) {
        if (least[i] <= bound) candidates[count++] = static_cast<unsigned char>(i);
    }

    // Exact search over the 64 cells, red outermost, blue innermost.
    int best[64];
    int16_t choice[64];
    for (int& b : best) b = kMaxDistance;
    for (int16_t& c : choice) c = 0;
    for (int c = 0; c < count; ++c) {
        const int index = candidates[c];
        const int dr = 2 * (min_r - colour[index].red);
        const int dg = 3 * (min_g - colour[index].green);
        const int db = min_b - colour[index].blue;
        int dist_r = dr * dr + dg * dg + db * db;
        int step_r = 32 * dr + 256;
        int k = 0;
        for (int i = 0; i < 4; ++i) {
            int dist_g = dist_r;
            int step_g = 48 * dg + 576;
            for (int j = 0; j < 4; ++j) {
                int dist = dist_g;
                int step_b = 16 * db + 64;
                for (int l = 0; l < 4; ++l, ++k) {
                    if (dist < best[k]) {
                        best[k] = dist;
                        choice[k] = static_cast<int16_t>(index);
                    }
                    dist += step_b;
                    step_b += 128;
                }
                dist_g += step_g;
                step_g += 1152;
            }
            dist_r += step_r;
            step_r += 512;
        }
    }

    int k = 0;
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j) {
            int16_t* row = cache_ + ((r0 + i) << 10) + ((g0 + j) << 5) + b0;
            for (int l = 0; l < 4; ++l) row[l] = choice[k++];
        }
    }
    return cache_[cell];
}
