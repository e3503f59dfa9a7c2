// The frame optimiser. It keeps two screens: what a viewer shows before the pending frame is
// drawn (after the previous frame's disposal), and the pending frame's own screen. A frame is
// written one call late, when the next screen tells whether it must be restored to transparent.
//
// Why the choice of disposal is enough: a pixel that the next screen shows transparent while
// this frame shows it opaque can only be cleared by "restore to transparent" on this frame, and
// only inside this frame's rectangle, so the rectangle is widened to cover such pixels. After
// that every pixel that is transparent in a screen is transparent before that screen's frame
// is drawn, and every frame only ever draws opaque pixels or leaves pixels alone.
#include "qimg/encode/qGifOptimizer.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/palette/qIColormap.h"

qGifOptimizer::~qGifOptimizer() {
    release();
}

void qGifOptimizer::release() {
    q_free(shown_);
    q_free(pending_keys_);
    q_free(next_keys_);
    q_free(pending_);
    q_free(unchanged_);
    shown_ = pending_keys_ = next_keys_ = nullptr;
    pending_ = nullptr;
    unchanged_ = nullptr;
    open_ = false;
    has_pending_ = false;
}

int qGifOptimizer::fail(int code) {
    release();
    return code;
}

int qGifOptimizer::begin(qIFileW* sink, qSize screen, const qIColormap* palette, int transparent,
                         int loop_count, bool optimize) {
    release();
    const int colors = palette ? palette->num_colors() : 0;
    if (colors < 1 || colors > 256 || transparent < -1 || transparent >= colors) {
        return ST_BAD_ARGUMENT;
    }
    if (const int rc = writer_.begin(sink, screen, palette, 0, loop_count); rc != ST_OK) return rc;
    const int64_t pixels = int64_t{screen.width} * screen.height;
    if (pixels > INT_MAX / 4) return fail(ST_NO_MEMORY);
    const auto key_bytes = static_cast<size_t>(pixels) * sizeof(uint32_t);
    shown_ = static_cast<uint32_t*>(q_malloc(key_bytes));
    pending_keys_ = static_cast<uint32_t*>(q_malloc(key_bytes));
    next_keys_ = static_cast<uint32_t*>(q_malloc(key_bytes));
    pending_ = static_cast<unsigned char*>(q_malloc(static_cast<size_t>(pixels)));
    unchanged_ = static_cast<unsigned char*>(q_malloc(static_cast<size_t>(screen.width)));
    if (shown_ == nullptr || pending_keys_ == nullptr || next_keys_ == nullptr ||
        pending_ == nullptr || unchanged_ == nullptr) {
        return fail(ST_NO_MEMORY);
    }
    // A viewer starts from a transparent screen.
    std::memset(shown_, 0, key_bytes);
    palette_ = palette;
    screen_ = screen;
    transparent_ = transparent;
    optimize_ = optimize;
    open_ = true;
    return ST_OK;
}

int qGifOptimizer::add_comment(const char* text, int length) {
    if (!open_) return ST_BAD_ARGUMENT;
    const int rc = writer_.add_comment(text, length);
    return rc == ST_OK ? rc : fail(rc);
}

int qGifOptimizer::add_frame(const unsigned char* indices, int stride, int delay,
                             const qIColormap* local_palette, int local_transparent) {
    const qIColormap* table = local_palette ? local_palette : palette_;
    const int transparent = local_palette ? local_transparent : transparent_;
    const int colors = table ? table->num_colors() : 0;
    if (!open_ || indices == nullptr || stride < screen_.width || delay < 0 || delay > 65535 ||
        colors < 1 || colors > 256 || transparent < -1 || transparent >= colors) {
        return ST_BAD_ARGUMENT;
    }
    // Every index must lie in the table the writer stores (a power of two at least 4 here).
    int code_size = 2;
    while ((1 << code_size) < colors) ++code_size;
    unsigned seen = 0;
    for (int y = 0; y < screen_.height; ++y) {
        const unsigned char* row = indices + static_cast<size_t>(y) * stride;
        for (int x = 0; x < screen_.width; ++x) seen |= row[x];
    }
    if (seen >> code_size) return ST_BAD_ARGUMENT;
    // Screens are compared by colour, so frames on different tables compare too.
    uint32_t keys[256] = {};
    for (int i = 0; i < colors; ++i) {
        const qPixRA c = table->get_color(i);
        keys[i] = i == transparent ? 0 : 0xFF000000u | c.red << 16 | c.green << 8 | c.blue;
    }
    for (int y = 0; y < screen_.height; ++y) {
        const unsigned char* row = indices + static_cast<size_t>(y) * stride;
        uint32_t* key = next_keys_ + static_cast<size_t>(y) * screen_.width;
        for (int x = 0; x < screen_.width; ++x) key[x] = keys[row[x]];
    }
    if (has_pending_) {
        if (const int rc = write_pending(next_keys_); rc != ST_OK) return fail(rc);
    }
    std::swap(pending_keys_, next_keys_);
    for (int y = 0; y < screen_.height; ++y) {
        std::memcpy(pending_ + static_cast<size_t>(y) * screen_.width,
                    indices + static_cast<size_t>(y) * stride, static_cast<size_t>(screen_.width));
    }
    if (local_palette && pending_local_.copy_from(local_palette) != ST_OK) {
        return fail(ST_NO_MEMORY);
    }
    pending_is_local_ = local_palette != nullptr;
    pending_transparent_ = transparent;
    code_size_ = code_size;
    pending_delay_ = delay;
    has_pending_ = true;
    return ST_OK;
}

int qGifOptimizer::finish() {
    if (!open_ || !has_pending_) return ST_BAD_ARGUMENT;
    int rc = write_pending(nullptr);
    if (rc == ST_OK) rc = writer_.finish();
    release();
    return rc;
}

qRect qGifOptimizer::changed_area(const uint32_t* next, bool& restore) const {
    const int width = screen_.width;
    int left = width, right = -1, top = -1, bottom = -1;
    restore = false;
    for (int y = 0; y < screen_.height; ++y) {
        const size_t at = static_cast<size_t>(y) * width;
        const uint32_t* now = pending_keys_ + at;
        const uint32_t* before = shown_ + at;
        const uint32_t* after = next ? next + at : nullptr;
        int first = -1, last = -1;
        for (int x = 0; x < width; ++x) {
            bool needed = now[x] != before[x] || !optimize_;
            if (after && now[x] != 0 && after[x] == 0) {  // only a restore clears it
                needed = true;
                restore = true;
            }
            if (needed) {
                if (first < 0) first = x;
                last = x;
            }
        }
        if (first < 0) continue;
        if (top < 0) top = y;
        bottom = y;
        if (first < left) left = first;
        if (last > right) right = last;
    }
    // A frame that changes nothing still needs an image: one pixel.
    if (top < 0) return qRect(0, 0, 1, 1);
    return qRect(left, top, right - left + 1, bottom - top + 1);
}

int64_t qGifOptimizer::cut(qRect area, Fill fill) {
    const auto t = static_cast<unsigned char>(pending_transparent_);
    if (fill == Fill::kChosen && trial_.begin(code_size_, false) != ST_OK) return ST_NO_MEMORY;
    int64_t total = 0;
    for (int y = 0; y < area.height; ++y) {
        const size_t at = static_cast<size_t>(area.y + y) * screen_.width + area.x;
        const unsigned char* now = pending_ + at;
        const uint32_t* now_key = pending_keys_ + at;
        const uint32_t* before = shown_ + at;
        unsigned char* out = crop_.pixel_address(y, 0);
        if (fill == Fill::kTransparent) {
            for (int x = 0; x < area.width; ++x) out[x] = now_key[x] == before[x] ? t : now[x];
            continue;
        }
        std::memcpy(out, now, static_cast<size_t>(area.width));
        if (fill == Fill::kAsTheyAre) continue;
        for (int x = 0; x < area.width; ++x) unchanged_[x] = now_key[x] == before[x];
        if (trial_.encode_choosing(out, unchanged_, area.width, t) != ST_OK) return ST_NO_MEMORY;
        total += trial_.size();
        trial_.consume(trial_.size());
    }
    if (fill != Fill::kChosen) return 0;
    if (trial_.finish() != ST_OK) return ST_NO_MEMORY;
    return total + trial_.size();
}

int64_t qGifOptimizer::encoded_size(bool deferred_clear, bool keep_near_end) {
    if (trial_.begin(code_size_, deferred_clear) != ST_OK) return ST_NO_MEMORY;
    if (keep_near_end) trial_.keep_near_end(int64_t{crop_.size().width} * crop_.size().height);
    int64_t total = 0;
    const qSize size = crop_.size();
    for (int y = 0; y < size.height; ++y) {
        if (trial_.encode(crop_.pixel_address(y, 0), size.width) != ST_OK) return ST_NO_MEMORY;
        total += trial_.size();
        trial_.consume(trial_.size());
    }
    if (trial_.finish() != ST_OK) return ST_NO_MEMORY;
    return total + trial_.size();
}

int qGifOptimizer::write_pending(const uint32_t* next) {
    bool restore = false;
    const qRect area = changed_area(next, restore);
    const qIColormap* table = pending_is_local_ ? &pending_local_ : palette_;
    int rc = crop_.Create_buffer(area.size(), PT_INDEX8);
    if (rc == ST_OK) rc = crop_.set_colormap(table, -1);
    if (rc != ST_OK) return rc;
    // Unchanged pixels may become transparent; keep whichever variant encodes shortest. The
    // chosen variant is cut last, so crop_ holds it already when it wins.
    if (optimize_ && pending_transparent_ >= 0) {
        cut(area, Fill::kAsTheyAre);
        const int64_t plain = encoded_size(false, false);
        cut(area, Fill::kTransparent);
        const int64_t transparent = encoded_size(false, false);
        const int64_t chosen = cut(area, Fill::kChosen);
        if (plain < 0 || transparent < 0 || chosen < 0) return ST_NO_MEMORY;
        if (plain < chosen || transparent < chosen) {
            cut(area, plain <= transparent ? Fill::kAsTheyAre : Fill::kTransparent);
        }
    } else {
        cut(area, Fill::kAsTheyAre);
    }
    // Busy pictures whose statistics stay the same compress better when the full LZW table is
    // kept, and a table that fills near the end rarely pays to renew; which one wins depends on
    // the picture, so all three are tried.
    const int64_t cleared = encoded_size(false, false), kept = encoded_size(true, false),
                  kept_near_end = encoded_size(false, true);
    if (cleared < 0 || kept < 0 || kept_near_end < 0) return ST_NO_MEMORY;
    writer_.set_deferred_clear(kept < std::min(cleared, kept_near_end));
    writer_.set_keep_near_end(kept_near_end < cleared);
    qGifControl control;
    control.delay = pending_delay_;
    control.disposal = restore ? 2 : 1;
    control.transparent = pending_transparent_;
    rc = writer_.add_image(&crop_, area.pos(), pending_is_local_ ? table : nullptr, &control, false,
                           nullptr);
    if (rc != ST_OK) return rc;

    // What the screen shows before the next frame.
    std::memcpy(shown_, pending_keys_,
                static_cast<size_t>(screen_.width) * screen_.height * sizeof(uint32_t));
    if (restore) {
        for (int y = area.y; y < area.y + area.height; ++y) {
            uint32_t* row = shown_ + static_cast<size_t>(y) * screen_.width + area.x;
            std::fill(row, row + area.width, 0u);
        }
    }
    return ST_OK;
}
