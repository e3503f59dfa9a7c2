// Whole-animation encoding: the palette work and the two sources of screens (true-colour frames
// mapped to one palette; a GIF's frames composed as a viewer shows them) in front of the frame
// optimiser.
#include "qimg/encode/qGifEncoder.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstdint>
#include <cstring>

#include "qimg/color/qColorQuantProxy.h"
#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qImageBuffer.h"
#include "qimg/core/qMonitor.h"
#include "qimg/core/qStatus.h"
#include "qimg/encode/qGifOptimizer.h"
#include "qimg/encode/qGifWriter.h"
#include "qimg/encode/qMemoryW.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/image/qFrameComposer.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"
#include "qimg/raster/qImageEdit.h"

namespace {

bool any_transparent_pixel(const qIImageBuffer* frame) {
    const qSize size = frame->size();
    for (int y = 0; y < size.height; ++y) {
        const unsigned char* p = frame->pixel_address(y, 0);
        for (int x = 0; x < size.width; ++x) {
            if (p[4 * x + 3] == 0) return true;
        }
    }
    return false;
}

// `frame` mapped to `palette` into `out`.
int map_to(const qIImageBuffer* frame, const qIColormap* palette, qQuantizer mapping,
           qIndexImage& out) {
    int rc = out.Create_buffer(frame->size(), PT_INDEX8);
    if (rc == ST_OK) rc = out.set_colormap(palette, -1);
    if (rc == ST_OK) rc = out.map_from_image(frame, mapping, false, 1.0f, 0.0f, nullptr);
    return rc;
}

// Palette order for frames that use few colours. A frame's data starts with codes one bit
// wider than its highest index needs, so the order should keep each frame's colours low.
// A frame needs the colours its pixels change to from the frame before; the first frame, and
// a frame that turns shown pixels transparent (the frame before is then restored, the only way
// to clear them), need all of their own.
struct FrameNeed {
    uint64_t colours[4];  // bit c: the frame needs colour c
    int64_t pixels;       // its pixels that change
    bool counted_out;     // order_from_end(): its highest entry is placed
    void add(int c) {
        colours[c / 64] |= uint64_t{1} << (c % 64);
        ++pixels;
    }
    bool has(int c) const { return colours[c / 64] >> (c % 64) & 1; }
    // Needed colours outside `placed`.
    int missing(const uint64_t placed[4]) const {
        int n = 0;
        for (int w = 0; w < 4; ++w) n += std::popcount(colours[w] & ~placed[w]);
        return n;
    }
};

// Built from the end: the colour needed by the fewest frames still counted goes last (ties:
// the one fewer pixels change to), and the frames that need it stop counting (their highest
// index is that high already, whatever the order of the rest).
void order_from_end(FrameNeed* needs, int count, int colors, const int64_t changes[256], int skip,
                    int first, unsigned char rank[256]) {
    int needed_by[256] = {};  // frames still counted that need the colour
    for (int f = 0; f < count; ++f) {
        needs[f].counted_out = false;
        for (int c = 0; c < colors; ++c) needed_by[c] += needs[f].has(c);
    }
    bool placed[256] = {};
    if (skip >= 0) placed[skip] = true;
    for (int place = first + colors - (skip >= 0) - 1; place >= first; --place) {
        int last = -1;
        for (int c = 0; c < colors; ++c) {
            if (placed[c]) continue;
            if (last < 0 || needed_by[c] < needed_by[last] ||
                (needed_by[c] == needed_by[last] && changes[c] < changes[last])) {
                last = c;
            }
        }
        rank[last] = static_cast<unsigned char>(place);
        placed[last] = true;
        for (int f = 0; f < count; ++f) {
            if (needs[f].counted_out || !needs[f].has(last)) continue;
            for (int c = 0; c < colors; ++c) needed_by[c] -= needs[f].has(c);
            needs[f].counted_out = true;
        }
    }
}

// Built from the front, in blocks that end where the code size steps up (4, 8, ..., 256
// entries): into each block go whole frames while they fit, the one that misses the fewest
// colours first (ties: the one with more changing pixels); the rest of the block takes the
// colours that most frames still waiting need (ties: the one more pixels change to).
void order_from_front(const FrameNeed* needs, int count, int colors, const int64_t changes[256],
                      int skip, int first, unsigned char rank[256]) {
    uint64_t placed[4] = {};
    if (skip >= 0) placed[skip / 64] |= uint64_t{1} << (skip % 64);
    const int end = first + colors - (skip >= 0);
    int next = first;
    auto place = [&](int c) {
        rank[c] = static_cast<unsigned char>(next++);
        placed[c / 64] |= uint64_t{1} << (c % 64);
    };
    auto is_placed = [&](int c) { return placed[c / 64] >> (c % 64) & 1; };
    for (int block_end = 4; next < end; block_end *= 2) {
        for (;;) {
            int best = -1, best_missing = 0;
            for (int f = 0; f < count; ++f) {
                const int missing = needs[f].missing(placed);
                if (missing == 0) continue;
                if (best < 0 || missing < best_missing ||
                    (missing == best_missing && needs[f].pixels > needs[best].pixels)) {
                    best = f;
                    best_missing = missing;
                }
            }
            if (best < 0 || next + best_missing > block_end) break;
            for (int c = 0; c < colors; ++c) {
                if (needs[best].has(c) && !is_placed(c)) place(c);
            }
        }
        int waiting_for[256] = {};
        for (int f = 0; f < count; ++f) {
            if (needs[f].missing(placed) == 0) continue;
            for (int c = 0; c < colors; ++c) waiting_for[c] += needs[f].has(c);
        }
        while (next < std::min(block_end, end)) {
            int pick = -1;
            for (int c = 0; c < colors; ++c) {
                if (is_placed(c)) continue;
                if (pick < 0 || waiting_for[c] > waiting_for[pick] ||
                    (waiting_for[c] == waiting_for[pick] && changes[c] > changes[pick])) {
                    pick = c;
                }
            }
            place(pick);
        }
    }
}

// Bits of `codes` LZW codes written after a clear with minimum code size `code_size`: the
// width grows by one each time the table reaches the next power of two, up to 12.
int64_t code_bits(int code_size, int64_t codes) {
    int64_t bits = 0, entries = (int64_t{1} << code_size) + 2;
    for (int width = code_size + 1; codes > 0; ++width) {
        const int64_t at_width = width < 12 ? (int64_t{1} << width) - entries : codes;
        const int64_t n = std::min(codes, at_width);
        bits += n * width;
        codes -= n;
        entries += n;
    }
    return bits;
}

// What `rank` costs the frames: each frame's changing pixels, at about two pixels a code, at
// the code size its highest needed entry asks for.
int64_t order_cost(const FrameNeed* needs, int count, int colors, const unsigned char rank[256]) {
    int64_t bits = 0;
    for (int f = 0; f < count; ++f) {
        int highest = 0;
        for (int c = 0; c < colors; ++c) {
            if (needs[f].has(c)) highest = std::max<int>(highest, rank[c]);
        }
        int code_size = 2;
        while ((1 << code_size) <= highest) ++code_size;
        bits += code_bits(code_size, needs[f].pixels / 2 + 1);
    }
    return bits;
}

// Colours 0..colors-1 other than `skip` get places first, first + 1, ... in `rank`: both
// orders above are made and the one whose frames cost fewer bits is kept. `changes[c]` counts
// the pixels that change to colour c.
void order_by_need(FrameNeed* needs, int count, int colors, const int64_t changes[256], int skip,
                   int first, unsigned char rank[256]) {
    unsigned char from_front[256] = {};
    order_from_end(needs, count, colors, changes, skip, first, rank);
    order_from_front(needs, count, colors, changes, skip, first, from_front);
    if (skip >= 0) from_front[skip] = rank[skip];
    if (order_cost(needs, count, colors, from_front) < order_cost(needs, count, colors, rank)) {
        std::memcpy(rank, from_front, 256);
    }
}

// The order in which the shared palette's entries go into the global table: `rank[i]` is entry
// i's place; the transparent entry first, then the colours by order_by_need().
int rank_by_need(const qIImageBuffer* const* frames, int count, const qIColormap* palette,
                 qQuantizer mapping, unsigned char rank[256]) {
    auto* needs = static_cast<FrameNeed*>(q_calloc(static_cast<size_t>(count), sizeof(FrameNeed)));
    if (needs == nullptr) return ST_NO_MEMORY;
    int64_t changes[256] = {};
    const int t = palette->min_t_index();
    qIndexImage indices[2];
    for (int f = 0; f < count; ++f) {
        qIndexImage& now = indices[f % 2];
        const qIndexImage& before = indices[1 - f % 2];
        if (const int rc = map_to(frames[f], palette, mapping, now); rc != ST_OK) {
            q_free(needs);
            return rc;
        }
        bool redraws = f == 0;
        for (int y = 0; !redraws && y < now.size().height; ++y) {
            const unsigned char* a = now.pixel_address(y, 0);
            const unsigned char* b = before.pixel_address(y, 0);
            for (int x = 0; x < now.size().width; ++x) redraws |= a[x] == t && b[x] != t;
        }
        for (int y = 0; y < now.size().height; ++y) {
            const unsigned char* a = now.pixel_address(y, 0);
            const unsigned char* b = f > 0 ? before.pixel_address(y, 0) : nullptr;
            for (int x = 0; x < now.size().width; ++x) {
                if (!redraws && a[x] == b[x]) continue;  // frame 0 redraws: b is not read
                needs[f].add(a[x]);
                ++changes[a[x]];
            }
        }
    }
    if (t >= 0) rank[t] = 0;
    order_by_need(needs, count, palette->num_colors(), changes, t, t >= 0 ? 1 : 0, rank);
    q_free(needs);
    return ST_OK;
}

// Sum of squared colour differences between the opaque pixels of `frame` and their entries.
int64_t squared_error(const qIImageBuffer* frame, const qIndexImage& mapped,
                      const qIColormap* palette) {
    const qSize size = frame->size();
    int64_t sum = 0;
    for (int y = 0; y < size.height; ++y) {
        const unsigned char* p = frame->pixel_address(y, 0);
        const unsigned char* index = mapped.pixel_address(y, 0);
        for (int x = 0; x < size.width; ++x, p += 4) {
            if (p[3] == 0) continue;
            const qPixRA c = palette->get_color(index[x]);
            const int db = c.blue - p[0], dg = c.green - p[1], dr = c.red - p[2];
            sum += db * db + dg * dg + dr * dr;
        }
    }
    return sum;
}

// The distinct colours of composed screens, as palette indices: an open-addressing set of at
// most 256 BGRA values (alpha-0 pixels are all "transparent" and stay out of it).
class ExactPalette {
public:
    static constexpr int kSlots = 1024;
    // What index_of gives once a 257th colour would be needed.
    static constexpr int kFull = -1;
    // Index of `bgra`, added when new; kFull once a 257th colour would be needed.
    int index_of(uint32_t bgra) {
        uint32_t slot = (bgra * 0x9E3779B1u) >> 22;
        while (used_[slot]) {
            if (colors_[slot] == bgra) return indices_[slot];
            slot = (slot + 1) & (kSlots - 1);
        }
        if (count_ == 256) return kFull;
        used_[slot] = true;
        colors_[slot] = bgra;
        indices_[slot] = static_cast<short>(count_);
        order_[count_] = bgra;
        return count_++;
    }
    int count() const { return count_; }
    uint32_t color(int i) const { return order_[i]; }

private:
    uint32_t colors_[kSlots] = {};
    short indices_[kSlots] = {};
    bool used_[kSlots] = {};
    uint32_t order_[256] = {};
    int count_ = 0;
};

uint32_t load_bgra(const unsigned char* p) {
    return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

// Writes the animation frame by frame as read, with the overrides.
int write_as_read(const qGifAnimation* animation, int frames, int delay, int loop_count,
                  qIFileW* sink, qIMonitor* monitor) {
    qGifWriter writer;
    int rc =
        writer.begin(sink, animation->size(), animation->global_colormap(), animation->background(),
                     loop_count != 0 ? loop_count : animation->loop_count());
    for (int i = 0; rc == ST_OK && i < animation->num_comments(); ++i) {
        rc = writer.add_comment(animation->comment(i)->data(), animation->comment(i)->count());
    }
    for (int f = 0; rc == ST_OK && f < frames; ++f) {
        const qGifFrame* frame = animation->frame(f);
        qGifControl control;
        if (frame->control()) control = *frame->control();
        if (delay >= 0) control.delay = delay;
        const bool with_control = frame->control() != nullptr || delay >= 0;
        rc = writer.add_frame(frame, with_control ? &control : nullptr, nullptr);
        if (rc == ST_OK && monitor && !monitor->progress(f + 1, frames, 0, 1)) rc = ST_CANCELLED;
    }
    return rc == ST_OK ? writer.finish() : rc;
}

// Plays the animation onto a BGRA canvas and hands each composed screen to `use`.
template <class Use>
int for_each_screen(qGifAnimation* animation, int frames, Use use) {
    const qSize screen = animation->size();
    const size_t bytes = static_cast<size_t>(screen.width) * screen.height * 4;
    auto* pixels = static_cast<unsigned char*>(q_malloc(bytes));
    if (pixels == nullptr) return ST_NO_MEMORY;
    qImageEdit canvas;
    qFrameComposer composer;
    int rc = canvas.Bind(pixels, screen, screen.width * 4, PT_BGRA32);
    if (rc == ST_OK) rc = composer.begin(animation, &canvas);
    for (int f = 0; rc == ST_OK && f < frames; ++f) {
        rc = composer.compose_to(f, nullptr);
        if (rc == ST_OK) rc = use(f, pixels);
    }
    q_free(pixels);
    return rc;
}

// The composed screens through the frame optimiser; ST_UNSUPPORTED when they do not fit one
// table (nothing is written then).
int write_recut(qGifAnimation* animation, int frames, int delay, int loop_count, qIFileW* sink,
                qIMonitor* monitor) {
    // First pass: do the composed screens fit one table, and which colours does each frame
    // need (see order_by_need)?
    const qSize s = animation->size();
    const int64_t pixel_count = int64_t{s.width} * s.height;
    auto* palette_set = q_new<ExactPalette>();
    auto* needs = static_cast<FrameNeed*>(q_calloc(static_cast<size_t>(frames), sizeof(FrameNeed)));
    auto* before = static_cast<uint32_t*>(q_malloc(static_cast<size_t>(pixel_count) * 4));
    int64_t changes[256] = {};
    bool fits = true, transparent = false;
    int rc = palette_set && needs && before ? ST_OK : ST_NO_MEMORY;
    if (rc == ST_OK) {
        rc = for_each_screen(animation, frames, [&](int f, const unsigned char* pixels) {
            bool redraws = f == 0;
            for (int64_t i = 0; !redraws && i < pixel_count; ++i) {
                redraws = pixels[4 * i + 3] == 0 && before[i] >> 24 != 0;
            }
            for (int64_t i = 0; fits && i < pixel_count; ++i) {
                const uint32_t bgra = load_bgra(pixels + 4 * i);
                const int index = bgra >> 24 == 0 ? -1 : palette_set->index_of(bgra);
                if (bgra >> 24 == 0) {
                    transparent = true;
                } else if (index < 0) {
                    fits = false;
                } else if (redraws || bgra != before[i]) {
                    needs[f].add(index);
                    ++changes[index];
                }
                before[i] = bgra;
            }
            return ST_OK;
        });
    }
    q_free(before);
    const int colors = palette_set ? palette_set->count() : 0;
    if (rc == ST_OK && (!fits || colors + (transparent ? 1 : 0) > 256)) rc = ST_UNSUPPORTED;
    // The table: the transparent entry first when it fits, then the colours by need, so frames
    // that use few colours (or only add some) keep their codes short.
    qColormap palette;
    const int t = colors < 256 ? 0 : -1;
    unsigned char rank[256];
    if (rc == ST_OK) {
        order_by_need(needs, frames, colors, changes, -1, t + 1, rank);
        rc = palette.create(colors + t + 1);
    }
    q_free(needs);
    for (int i = 0; rc == ST_OK && i < colors; ++i) {
        const uint32_t c = palette_set->color(i);
        palette.set_color(rank[i],
                          qPixRA{static_cast<unsigned char>(c), static_cast<unsigned char>(c >> 8),
                                 static_cast<unsigned char>(c >> 16), 255});
    }
    if (rc != ST_OK) {
        delete palette_set;
        return rc;
    }

    qGifOptimizer optimizer;
    rc = optimizer.begin(sink, animation->size(), &palette, t,
                         loop_count != 0 ? loop_count : animation->loop_count(), true);
    for (int i = 0; rc == ST_OK && i < animation->num_comments(); ++i) {
        rc = optimizer.add_comment(animation->comment(i)->data(), animation->comment(i)->count());
    }
    auto* indices = static_cast<unsigned char*>(q_malloc(static_cast<size_t>(pixel_count)));
    if (rc == ST_OK && indices == nullptr) rc = ST_NO_MEMORY;
    if (rc == ST_OK) {
        rc = for_each_screen(animation, frames, [&](int f, const unsigned char* pixels) {
            for (int64_t i = 0; i < pixel_count; ++i) {
                const uint32_t bgra = load_bgra(pixels + 4 * i);
                indices[i] = static_cast<unsigned char>(
                    bgra >> 24 == 0 ? t : rank[palette_set->index_of(bgra)]);
            }
            const qGifControl* control = animation->frame(f)->control();
            const int frame_delay = delay >= 0 ? delay : (control ? control->delay : 0);
            int status = optimizer.add_frame(indices, s.width, frame_delay);
            if (status == ST_OK && monitor && !monitor->progress(f + 1, frames, 0, 1)) {
                status = ST_CANCELLED;
            }
            return status;
        });
    }
    q_free(indices);
    delete palette_set;
    if (rc != ST_OK) return rc;
    return optimizer.finish();
}

}  // namespace

int qGifEncoder::encode_frames(const qIImageBuffer* const* frames, const int* delays, int count,
                               const qGifEncodeOptions& options, qIFileW* sink,
                               qIMonitor* monitor) {
    if (frames == nullptr || count < 1 || options.colors < 2 || options.colors > 256 ||
        options.palettes < PM_SHARED || options.palettes > PM_AUTO) {
        return ST_BAD_ARGUMENT;
    }
    const qSize screen = frames[0] ? frames[0]->size() : qSize();
    bool transparent = false;
    for (int f = 0; f < count; ++f) {
        const qIImageBuffer* frame = frames[f];
        if (frame == nullptr || !frame->valid() || !(frame->size() == screen)) {
            return ST_BAD_ARGUMENT;
        }
        if (frame->pixel_type() != PT_BGRA32) return ST_UNSUPPORTED;
        if (delays && (delays[f] < 0 || delays[f] > 65535)) return ST_BAD_ARGUMENT;
        transparent = transparent || any_transparent_pixel(frame);
    }

    // The shared palette; a transparent entry when a frame needs one, or when the optimiser can
    // use it to skip unchanged pixels.
    qColorQuantProxy shared_quant;
    const qIColormap* shared = nullptr;
    int rc = ST_OK;
    if (options.palettes != PM_LOCAL) {
        rc = shared_quant.create_quantizer();
        for (int f = 0; rc == ST_OK && f < count; ++f) {
            rc = shared_quant.prescan_quantize(frames[f], 1);
        }
        if (rc == ST_OK)
            rc = shared_quant.select_colors(options.colors, transparent || options.optimize);
        if (rc != ST_OK) return rc;
        shared = shared_quant.colormap();
    }
    const qQuantizer mapping = options.dither ? QT_DIFFUSION : QT_NEAREST;
    unsigned char rank[256];
    qColormap global;  // the global table: the shared palette reordered, or the first frame's own
    if (shared) {
        rc = rank_by_need(frames, count, shared, mapping, rank);
        if (rc == ST_OK) rc = global.create(shared->num_colors());
        for (int i = 0; rc == ST_OK && i < shared->num_colors(); ++i) {
            global.set_color(rank[i], shared->get_color(i));
        }
        if (rc != ST_OK) return rc;
    }

    qGifOptimizer optimizer;
    qIndexImage shared_indices, own_indices;
    for (int f = 0; rc == ST_OK && f < count; ++f) {
        qColorQuantProxy own_quant;
        const qIColormap* own = nullptr;
        if (options.palettes != PM_SHARED) {
            rc = own_quant.create_quantizer();
            if (rc == ST_OK) rc = own_quant.prescan_quantize(frames[f], 1);
            if (rc == ST_OK) {
                rc = own_quant.select_colors(options.colors,
                                             options.optimize || any_transparent_pixel(frames[f]));
            }
            if (rc == ST_OK) own = own_quant.colormap();
            if (rc == ST_OK) rc = map_to(frames[f], own, mapping, own_indices);
        }
        if (rc == ST_OK && shared) rc = map_to(frames[f], shared, mapping, shared_indices);
        if (rc != ST_OK) break;
        const bool use_own =
            own && (!shared || 2 * squared_error(frames[f], own_indices, own) <
                                   squared_error(frames[f], shared_indices, shared));
        if (shared && !use_own) {
            for (int y = 0; y < screen.height; ++y) {
                unsigned char* row = shared_indices.pixel_address(y, 0);
                for (int x = 0; x < screen.width; ++x) row[x] = rank[row[x]];
            }
        }
        if (f == 0) {
            if (!shared) rc = global.copy_from(own);
            if (rc == ST_OK) {
                rc = optimizer.begin(sink, screen, &global, global.min_t_index(),
                                     options.loop_count, options.optimize);
            }
            if (rc != ST_OK) break;
        }
        const qIndexImage& indices = use_own ? own_indices : shared_indices;
        // The first frame's own table is the global one.
        const bool local = use_own && (shared || f > 0);
        rc = optimizer.add_frame(indices.pixel_address(0, 0), row_bytes(screen.width, PT_INDEX8),
                                 delays ? delays[f] : 0, local ? own : nullptr,
                                 local ? own->min_t_index() : -1);
        if (rc == ST_OK && monitor && !monitor->progress(f + 1, count, 0, 1)) rc = ST_CANCELLED;
    }
    return rc == ST_OK ? optimizer.finish() : rc;
}

int qGifEncoder::reencode(qGifAnimation* animation, qGifResaveMode mode, int delay, int loop_count,
                          qIFileW* sink, qIMonitor* monitor, bool* recut) {
    if (recut) *recut = false;
    const int frames = animation ? animation->num_frames() : 0;
    if (frames < 1 || animation->size().empty() || sink == nullptr || delay < -1 || delay > 65535 ||
        loop_count < -1 || loop_count > 65536 || mode < RS_AS_READ || mode > RS_SMALLER) {
        return ST_BAD_ARGUMENT;
    }
    if (mode == RS_AS_READ)
        return write_as_read(animation, frames, delay, loop_count, sink, monitor);
    if (mode == RS_RECUT) {
        const int rc = write_recut(animation, frames, delay, loop_count, sink, monitor);
        if (rc == ST_OK && recut) *recut = true;
        return rc;
    }
    // Files already cut by a good encoder (small local tables, "restore previous") can come
    // out larger when re-cut on one table: both are made and the smaller one is kept.
    qMemoryW recut_file, as_read;
    int rc = write_recut(animation, frames, delay, loop_count, &recut_file, monitor);
    if (rc != ST_OK && rc != ST_UNSUPPORTED) return rc;
    const bool recut_made = rc == ST_OK;
    rc = write_as_read(animation, frames, delay, loop_count, &as_read, nullptr);
    if (rc != ST_OK) return rc;
    const bool use_recut = recut_made && recut_file.size() < as_read.size();
    const qMemoryW& best = use_recut ? recut_file : as_read;
    rc = sink->write(best.data(), best.size());
    if (rc == ST_OK && recut) *recut = use_recut;
    return rc;
}
