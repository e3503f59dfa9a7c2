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
    q_free(pending_);
    q_free(unchanged_);
    shown_ = nullptr;
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
    if (pixels > INT_MAX) return fail(ST_NO_MEMORY);
    shown_ = static_cast<unsigned char*>(q_malloc(static_cast<size_t>(pixels)));
    pending_ = static_cast<unsigned char*>(q_malloc(static_cast<size_t>(pixels)));
    unchanged_ = static_cast<unsigned char*>(q_malloc(static_cast<size_t>(screen.width)));
    if (shown_ == nullptr || pending_ == nullptr || unchanged_ == nullptr) {
        return fail(ST_NO_MEMORY);
    }
    // A viewer starts from a transparent screen. Without a transparent entry no index stands
    // for it, so then every pixel of the first frame counts as changed (see first_).
    std::memset(shown_, transparent, static_cast<size_t>(pixels));
    first_ = true;
    palette_ = palette;
    screen_ = screen;
    transparent_ = transparent;
    optimize_ = optimize;
    code_size_ = 2;
    while ((1 << code_size_) < colors) ++code_size_;
    open_ = true;
    return ST_OK;
}

int qGifOptimizer::add_comment(const char* text, int length) {
    if (!open_) return ST_BAD_ARGUMENT;
    const int rc = writer_.add_comment(text, length);
    return rc == ST_OK ? rc : fail(rc);
}

int qGifOptimizer::add_frame(const unsigned char* indices, int stride, int delay) {
    if (!open_ || indices == nullptr || stride < screen_.width || delay < 0 || delay > 65535) {
        return ST_BAD_ARGUMENT;
    }
    // Every index must lie in the table the writer stores (a power of two at least 4 here).
    unsigned seen = 0;
    for (int y = 0; y < screen_.height; ++y) {
        const unsigned char* row = indices + static_cast<size_t>(y) * stride;
        for (int x = 0; x < screen_.width; ++x) seen |= row[x];
    }
    if (seen >> code_size_) return ST_BAD_ARGUMENT;
    if (has_pending_) {
        if (const int rc = write_pending(indices); rc != ST_OK) return fail(rc);
    }
    for (int y = 0; y < screen_.height; ++y) {
        std::memcpy(pending_ + static_cast<size_t>(y) * screen_.width,
                    indices + static_cast<size_t>(y) * stride, static_cast<size_t>(screen_.width));
    }
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

qRect qGifOptimizer::changed_area(const unsigned char* next, bool& restore) const {
    const int width = screen_.width;
    const auto t = static_cast<unsigned char>(transparent_);
    int left = width, right = -1, top = -1, bottom = -1;
    restore = false;
    for (int y = 0; y < screen_.height; ++y) {
        const size_t at = static_cast<size_t>(y) * width;
        const unsigned char* now = pending_ + at;
        const unsigned char* before = shown_ + at;
        const unsigned char* after = next ? next + at : nullptr;
        int first = -1, last = -1;
        for (int x = 0; x < width; ++x) {
            bool needed = now[x] != before[x] || !optimize_ || (first_ && transparent_ < 0);
            if (after && transparent_ >= 0 && now[x] != t && after[x] == t) {
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
    const auto t = static_cast<unsigned char>(transparent_);
    if (fill == Fill::kChosen && trial_.begin(code_size_, false) != ST_OK) return ST_NO_MEMORY;
    int64_t total = 0;
    for (int y = 0; y < area.height; ++y) {
        const size_t at = static_cast<size_t>(area.y + y) * screen_.width + area.x;
        const unsigned char* now = pending_ + at;
        const unsigned char* before = shown_ + at;
        unsigned char* out = crop_.pixel_address(y, 0);
        if (fill == Fill::kTransparent) {
            for (int x = 0; x < area.width; ++x) out[x] = now[x] == before[x] ? t : now[x];
            continue;
        }
        std::memcpy(out, now, static_cast<size_t>(area.width));
        if (fill == Fill::kAsTheyAre) continue;
        for (int x = 0; x < area.width; ++x) unchanged_[x] = now[x] == before[x];
        if (trial_.encode_choosing(out, unchanged_, area.width, t) != ST_OK) return ST_NO_MEMORY;
        total += trial_.size();
        trial_.consume(trial_.size());
    }
    if (fill != Fill::kChosen) return 0;
    if (trial_.finish() != ST_OK) return ST_NO_MEMORY;
    return total + trial_.size();
}

int64_t qGifOptimizer::encoded_size(bool deferred_clear) {
    if (trial_.begin(code_size_, deferred_clear) != ST_OK) return ST_NO_MEMORY;
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

int qGifOptimizer::write_pending(const unsigned char* next) {
    bool restore = false;
    const qRect area = changed_area(next, restore);
    int rc = crop_.Create_buffer(area.size(), PT_INDEX8);
    if (rc == ST_OK) rc = crop_.set_colormap(palette_, -1);
    if (rc != ST_OK) return rc;
    // Unchanged pixels may become transparent; keep whichever variant encodes shortest. The
    // chosen variant is cut last, so crop_ holds it already when it wins.
    if (optimize_ && transparent_ >= 0) {
        cut(area, Fill::kAsTheyAre);
        const int64_t plain = encoded_size(false);
        cut(area, Fill::kTransparent);
        const int64_t transparent = encoded_size(false);
        const int64_t chosen = cut(area, Fill::kChosen);
        if (plain < 0 || transparent < 0 || chosen < 0) return ST_NO_MEMORY;
        if (plain < chosen || transparent < chosen) {
            cut(area, plain <= transparent ? Fill::kAsTheyAre : Fill::kTransparent);
        }
    } else {
        cut(area, Fill::kAsTheyAre);
    }
    // Busy pictures whose statistics stay the same compress better when the full LZW table is
    // kept; which one wins depends on the picture, so both are tried.
    const int64_t cleared = encoded_size(false), kept = encoded_size(true);
    if (cleared < 0 || kept < 0) return ST_NO_MEMORY;
    writer_.set_deferred_clear(kept < cleared);
    qGifControl control;
    control.delay = pending_delay_;
    control.disposal = restore ? 2 : 1;
    control.transparent = transparent_;
    rc = writer_.add_image(&crop_, area.pos(), nullptr, &control, false, nullptr);
    if (rc != ST_OK) return rc;

    first_ = false;
    // What the screen shows before the next frame.
    std::memcpy(shown_, pending_, static_cast<size_t>(screen_.width) * screen_.height);
    if (restore) {
        for (int y = area.y; y < area.y + area.height; ++y) {
            std::memset(shown_ + static_cast<size_t>(y) * screen_.width + area.x, transparent_,
                        static_cast<size_t>(area.width));
        }
    }
    return ST_OK;
}
