// qBlitReference.h: a slow, plain reference of the transfers, for the tests and the blit fuzzer.
//
// Written for clarity, not speed, and independently of the library's dispatch and kernels:
// one function decides what a (mode, opacity, source type, destination type) cell does, one
// function draws one pixel, and the clips are the cut sequences spelled out step by step.
// Images keep every row in its own exactly sized allocation, so AddressSanitizer reports a
// single byte read or written past the end of any row.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "qimg/core/qImageBuffer.h"
#include "qimg/core/qMonitor.h"
#include "qimg/core/qTypes.h"
#include "qimg/palette/qColormap.h"
#include "qimg/raster/qImageEdit.h"
#include "tests/common/ReadOnlyIndexImage.h"

#ifdef QIMG_TEST_HOOKS
#include "qimg/raster/qRowKernelsPriv.h"
#endif

namespace qref {

inline int pixel_bytes(qPixelType type) {
    return bits_per_pixel(type) / 8;
}

// Pixels of one image: rows allocated one by one, exactly width * bytes long, or (contiguous)
// one exactly sized block with no padding between rows, as a caller's bitmap would be. An
// indexed image may carry a colour map; it is handed to views as a qIIndexImage so they make a
// palette copy.
class Image {
public:
    Image(qPixelType type, int width, int height, bool contiguous = false)
        : type_(type),
          width_(width),
          height_(height),
          row_bytes_(static_cast<size_t>(width) * static_cast<size_t>(pixel_bytes(type))) {
        if (contiguous) {
            block_.resize(row_bytes_ * static_cast<size_t>(height));
            for (int r = 0; r < height; ++r) starts_.push_back(block_.data() + r * row_bytes_);
        } else {
            for (int r = 0; r < height; ++r) rows_.emplace_back(row_bytes_);
            for (auto& row : rows_) starts_.push_back(row.data());
        }
    }
    Image(Image&&) = default;
    qPixelType type() const { return type_; }
    int width() const { return width_; }
    int height() const { return height_; }
    size_t row_bytes() const { return row_bytes_; }
    bool contiguous() const { return !block_.empty(); }
    unsigned char* row(int r) { return starts_[static_cast<size_t>(r)]; }
    const unsigned char* row(int r) const { return starts_[static_cast<size_t>(r)]; }
    unsigned char* pixel(int r, int c) {
        return row(r) + static_cast<size_t>(c) * static_cast<size_t>(pixel_bytes(type_));
    }
    const unsigned char* pixel(int r, int c) const {
        return row(r) + static_cast<size_t>(c) * static_cast<size_t>(pixel_bytes(type_));
    }

    // Palette for indexed images; null when the view should have no palette copy.
    std::shared_ptr<qColormap> palette;

private:
    qPixelType type_;
    int width_;
    int height_;
    size_t row_bytes_;
    std::vector<std::vector<unsigned char>> rows_;
    std::vector<unsigned char> block_;
    std::vector<unsigned char*> starts_;
};

// The two buffer shapes a view can be bound to.
class DirectBuffer : public qIDirectImage {
public:
    explicit DirectBuffer(Image& image) : image_(image) {}
    bool valid() const override { return true; }
    unsigned char* pixel_address(int row, int column) const override {
        if (row < 0 || column < 0 || row >= image_.height()) return nullptr;
        return image_.pixel(row, column);
    }
    qSize size() const override { return qSize(image_.width(), image_.height()); }
    qPixelType pixel_type() const override { return image_.type(); }

private:
    Image& image_;
};

class IndexBuffer : public qtest::ReadOnlyIndexImage {
public:
    explicit IndexBuffer(Image& image) : image_(image) {}
    bool valid() const override { return true; }
    unsigned char* pixel_address(int row, int column) const override {
        if (row < 0 || column < 0 || row >= image_.height()) return nullptr;
        return image_.pixel(row, column);
    }
    qSize size() const override { return qSize(image_.width(), image_.height()); }
    qPixelType pixel_type() const override { return image_.type(); }
    const qIColormap* colormap() const override { return image_.palette.get(); }
    // No transparent index of its own: the palette copy keeps every entry's alpha.
    int min_t_index() const override { return -1; }

private:
    Image& image_;
};

// Binds `view` to `image`: with a palette copy when the image carries a palette, otherwise as
// plain pixels. Returns the binding's result.
template <class View>
int bind(View& view, Image& image, std::unique_ptr<qIImageBuffer>& holder) {
    if (image.palette) {
        holder = std::make_unique<IndexBuffer>(image);
    } else {
        holder = std::make_unique<DirectBuffer>(image);
    }
    return view.Bind(holder.get());
}

// ---- arithmetic, as plain as it gets ---------------------------------------------------------

inline int scaled_product(int x, int y) {
    return ((x * y + 127) * 257) >> 16;
}

inline qPixRA expand(qPixelType type, const unsigned char* p, const qColormap* palette) {
    switch (type) {
        case PT_BGRA32:
            return {p[0], p[1], p[2], p[3]};
        case PT_BGR24:
            return {p[0], p[1], p[2], 255};
        case PT_GRAY_ALPHA16:
            return {p[0], p[0], p[0], p[1]};
        case PT_GRAY8:
            return {p[0], p[0], p[0], 255};
        case PT_INDEX8:
            if (palette && p[0] < palette->num_colors()) return palette->get_color(p[0]);
            return {0, 0, 0, 0};
        default:
            return {0, 0, 0, 0};
    }
}

enum class Rule { bytes, index16, nothing, copy, over, blend };

struct Choice {
    int status = 0;  // 0, -5 or -6
    Rule rule = Rule::nothing;
    bool scale_alpha = false;  // alpha = scaled product(source alpha, opacity)
};

inline bool is_one_of_five(qPixelType t) {
    return t == PT_BGRA32 || t == PT_BGR24 || t == PT_GRAY_ALPHA16 || t == PT_GRAY8 ||
           t == PT_INDEX8;
}
inline bool is_true_colour(qPixelType t) {
    return t == PT_BGRA32 || t == PT_BGR24;
}
inline bool has_alpha_source(qPixelType t) {
    return t == PT_BGRA32 || t == PT_GRAY_ALPHA16 || t == PT_INDEX8;
}

// What one cell does. `scaled`: no block copies and no indexed destination.
inline Choice choose(qBltMode mode, int k, qPixelType s, qPixelType d, bool scaled,
                     const qColormap* src_palette, const qColormap* dst_palette,
                     bool palettes_equal) {
    auto copy_rules = [&]() -> Choice {
        if (!scaled && d == PT_INDEX8) {
            if (!dst_palette) return {-5};
            if (!src_palette || !palettes_equal) return {0, Rule::nothing};
            if (s == PT_INDEX8) return {0, Rule::bytes};
            if (s == PT_INDEX16) return {0, Rule::index16};
            return {-6};
        }
        if (!scaled && d == s) return {0, Rule::bytes};
        if (is_true_colour(d) && is_one_of_five(s)) return {0, Rule::copy};
        return {-6};
    };
    auto source_alpha_rules = [&]() -> Choice {
        if (s == PT_BGR24 || s == PT_GRAY8) return copy_rules();
        if (is_true_colour(d) && has_alpha_source(s)) return {0, Rule::blend};
        return {-6};
    };
    Choice c;
    if (mode == BLT_COPY) {
        c = copy_rules();
    } else if (mode == BLT_OVER) {
        if (d == PT_BGR24 || d == PT_GRAY8) {
            c = source_alpha_rules();
        } else if (k == 255) {
            if (s == PT_BGR24 || s == PT_GRAY8) {
                c = copy_rules();
            } else if (d == PT_BGRA32 && has_alpha_source(s)) {
                c = {0, Rule::over};
            } else {
                c = {-6};
            }
        } else if (d == PT_BGRA32 && is_one_of_five(s)) {
            c = {0, Rule::over, true};
        } else {
            c = {-6};
        }
    } else if (mode == BLT_BLEND) {
        if (k == 255) {
            c = source_alpha_rules();
        } else if (is_true_colour(d) && is_one_of_five(s)) {
            c = {0, Rule::blend, true};
        } else {
            c = {-6};
        }
    } else {
        c = {-6};
    }
    const bool reads_palette =
        c.rule == Rule::copy || c.rule == Rule::over || c.rule == Rule::blend;
    if (c.status == 0 && reads_palette && s == PT_INDEX8 && !src_palette) c = {-5};
    return c;
}

// Draws one source pixel (already expanded) onto destination pixel `p` by `rule`.
inline void draw_pixel(Rule rule, bool scale_alpha, int k, qPixRA s, qPixelType dst_type,
                       unsigned char* p) {
    const bool dst_alpha = dst_type == PT_BGRA32;
    const int a = scale_alpha ? scaled_product(s.alpha, k) : s.alpha;
    const int src_colour[3] = {s.blue, s.green, s.red};
    if (rule == Rule::copy) {
        for (int c = 0; c < 3; ++c) p[c] = static_cast<unsigned char>(src_colour[c]);
        if (dst_alpha) p[3] = s.alpha;
    } else if (rule == Rule::over) {
        if (a == 0) return;
        if (a == 255) {
            for (int c = 0; c < 3; ++c) p[c] = static_cast<unsigned char>(src_colour[c]);
            p[3] = 255;
            return;
        }
        const int da = p[3];
        const int na = da + scaled_product(255 - da, a);
        for (int c = 0; c < 3; ++c) {
            const int d = p[c];
            p[c] = static_cast<unsigned char>(d + (src_colour[c] - d) * a / na);
        }
        p[3] = static_cast<unsigned char>(na);
    } else if (rule == Rule::blend) {
        if (dst_alpha) p[3] = static_cast<unsigned char>(a);
        if (a == 0) return;
        for (int c = 0; c < 3; ++c) {
            const int d = p[c];
            const int s_c = src_colour[c];
            p[c] = static_cast<unsigned char>(a == 255 ? s_c
                                                       : d + ((((s_c - d) * a + 127) * 257) >> 16));
        }
    }
}

// Copies or converts one pixel by a rule that needs no expansion.
inline void draw_raw(Rule rule, qPixelType type, const unsigned char* from, unsigned char* to) {
    if (rule == Rule::bytes) std::memcpy(to, from, static_cast<size_t>(pixel_bytes(type)));
    if (rule == Rule::index16) to[0] = from[0];
}

// Counts progress calls and answers false at call number `stop_at` (0: never).
class CountingMonitor : public qIMonitor {
public:
    explicit CountingMonitor(int stop_at = 0) : stop_at_(stop_at) {}
    bool progress(int done, int total, int, int) override {
        ++calls;
        last_done = done;
        last_total = total;
        return stop_at_ == 0 || calls < stop_at_;
    }
    int calls = 0;
    int last_done = 0;
    int last_total = 0;

private:
    int stop_at_;
};

struct Outcome {
    int status = 0;
    int rows = 0;  // rows drawn (= progress calls the library must make)
};

// ---- the block transfer ----------------------------------------------------------------------

inline Outcome blit(Image& dst, const Image& src, qRect rect, qPoint pos, qBltMode mode, int k,
                    int stop_after_rows = 0) {
    // The eight cuts, in 64 bits.
    int64_t dx = rect.x, dy = rect.y, w = rect.width, h = rect.height, sx = pos.x, sy = pos.y;
    if (sx < 0) {
        dx += -sx;
        w -= -sx;
        sx = 0;
    }
    if (sx + w > src.width()) w -= sx + w - src.width();
    if (sy < 0) {
        dy += -sy;
        h -= -sy;
        sy = 0;
    }
    if (sy + h > src.height()) h -= sy + h - src.height();
    if (dx < 0) {
        sx += -dx;
        w -= -dx;
        dx = 0;
    }
    if (dx + w > dst.width()) w -= dx + w - dst.width();
    if (dy < 0) {
        sy += -dy;
        h -= -dy;
        dy = 0;
    }
    if (dy + h > dst.height()) h -= dy + h - dst.height();
    if (!(dx >= 0 && dy >= 0 && sx >= 0 && sy >= 0 && w > 0 && h > 0)) return {0, 0};

    const bool equal = src.palette && dst.palette &&
                       src.palette->num_colors() == dst.palette->num_colors() &&
                       std::memcmp(src.palette->colors(), dst.palette->colors(),
                                   4 * static_cast<size_t>(src.palette->num_colors())) == 0;
    const Choice c =
        choose(mode, k, src.type(), dst.type(), false, src.palette.get(), dst.palette.get(), equal);
    if (c.status != 0) return {c.status, 0};
    for (int64_t r = 0; r < h; ++r) {
        for (int64_t i = 0; i < w; ++i) {
            const unsigned char* from =
                src.pixel(static_cast<int>(sy + r), static_cast<int>(sx + i));
            unsigned char* to = dst.pixel(static_cast<int>(dy + r), static_cast<int>(dx + i));
            if (c.rule == Rule::bytes || c.rule == Rule::index16) {
                draw_raw(c.rule, src.type(), from, to);
            } else if (c.rule != Rule::nothing) {
                draw_pixel(c.rule, c.scale_alpha, k, expand(src.type(), from, src.palette.get()),
                           dst.type(), to);
            }
        }
        if (stop_after_rows && r + 1 == stop_after_rows) return {1, static_cast<int>(r + 1)};
    }
    return {0, static_cast<int>(h)};
}

// ---- the scaled transfer ---------------------------------------------------------------------

inline int64_t trunc_clamped(double v) {
    if (std::isnan(v)) return 0;
    const double limit = std::ldexp(1.0, 62);
    if (v >= limit) return int64_t{1} << 62;
    if (v <= -limit) return -(int64_t{1} << 62);
    return static_cast<int64_t>(v);
}

inline int clamp_index(double v, int count) {
    const int64_t c = trunc_clamped(v);
    if (c <= 0) return 0;
    if (c > count - 1) return count - 1;
    return static_cast<int>(c);
}

inline Outcome scaled_blit(Image& dst, const Image& src, qRect rect, qPoint pos, float sx_f,
                           float sy_f, int method, qBltMode mode, int k, int stop_after_rows = 0) {
    if (sx_f == 1.0f && sy_f == 1.0f) return blit(dst, src, rect, pos, mode, k, stop_after_rows);
    if (method != 1) return {-6, 0};
    if (!(sx_f > 0) || !(sy_f > 0) || std::isinf(sx_f) || std::isinf(sy_f)) return {-5, 0};

    const int sw = src.width(), sh = src.height(), tw = dst.width(), th = dst.height();
    const double ix_full = 1.0 / double{sx_f};
    const float iy = 1.0f / sy_f;
    const float ix = 1.0f / sx_f;
    int64_t x = rect.x, y = rect.y, w = rect.width, h = rect.height, px = pos.x, py = pos.y;

    double x0 = std::trunc((px + 0.5) * ix_full);
    double y0 = std::trunc((py + 0.5) * double{iy});
    double ew = std::trunc(double(w) * ix_full + 0.5);
    double eh = std::trunc(double(h) * double{iy} + 0.5);
    if (px < 0) {
        x += -px;
        w -= -px;
        px = 0;
        x0 = std::trunc(0.5 * ix_full);
        ew = std::trunc(double(w) * ix_full + 0.5);
    }
    if (x0 + ew > sw) w -= trunc_clamped((x0 + ew - sw) * double{sx_f});
    if (py < 0) {
        y += -py;
        h -= -py;
        py = 0;
        y0 = std::trunc(0.5 * double{iy});
        eh = std::trunc(double(h) * double{iy} + 0.5);
    }
    if (y0 + eh > sh) h -= trunc_clamped((y0 + eh - sh) * double{sy_f});
    if (x < 0) {
        w -= -x;
        px += -x;
        x = 0;
    }
    if (x + w > tw) w = tw - x;
    if (y < 0) {
        h -= -y;
        py += -y;
        y = 0;
    }
    if (y + h > th) h = th - y;
    if (!(x >= 0 && y >= 0 && w > 0 && h > 0)) return {0, 0};
    if (sw <= 0 || sh <= 0) return {0, 0};

    const Choice c =
        choose(mode, k, src.type(), dst.type(), true, src.palette.get(), dst.palette.get(), false);
    if (c.status != 0) return {c.status, 0};
    for (int64_t j = 0; j < h; ++j) {
        const int r = clamp_index((double(py) + double(j) + 0.5) * double{iy}, sh);
        for (int64_t i = 0; i < w; ++i) {
            const int col = clamp_index((double(px) + double(i) + 0.5) * double{ix}, sw);
            draw_pixel(c.rule, c.scale_alpha, k,
                       expand(src.type(), src.pixel(r, col), src.palette.get()), dst.type(),
                       dst.pixel(static_cast<int>(y + j), static_cast<int>(x + i)));
        }
        if (stop_after_rows && j + 1 == stop_after_rows) return {1, static_cast<int>(j + 1)};
    }
    return {0, static_cast<int>(h)};
}

// First byte where two images differ, as (row, byte column); (-1, -1) when equal.
struct Difference {
    int row = -1;
    int byte = -1;
};
inline Difference first_difference(const Image& a, const Image& b) {
    for (int r = 0; r < a.height(); ++r) {
        for (size_t i = 0; i < a.row_bytes(); ++i) {
            if (a.row(r)[i] != b.row(r)[i]) return {r, static_cast<int>(i)};
        }
    }
    return {};
}

// Alpha values that reach every branch: transparent, opaque and partial in equal shares.
inline unsigned char random_alpha(std::mt19937& rng) {
    const unsigned pick = rng() % 3;
    return pick == 0 ? 0 : pick == 1 ? 255 : static_cast<unsigned char>(1 + rng() % 254);
}

inline std::shared_ptr<qColormap> random_palette(std::mt19937& rng) {
    auto map = std::make_shared<qColormap>();
    const int n = 1 + static_cast<int>(rng() % 256);
    map->create(n);
    for (int i = 0; i < n; ++i) {
        map->set_color(i,
                       qPixRA{static_cast<unsigned char>(rng()), static_cast<unsigned char>(rng()),
                              static_cast<unsigned char>(rng()), random_alpha(rng)});
    }
    return map;
}

// Random bytes, with the alpha bytes of PT_BGRA32 and PT_GRAY_ALPHA16 drawn by random_alpha,
// either per pixel or, in half of the images, in runs of 1 to 40 pixels (so that whole groups
// of transparent or opaque pixels occur).
inline void fill_random(Image& image, std::mt19937& rng) {
    const int bytes = pixel_bytes(image.type());
    const bool runs = rng() % 2;
    unsigned char alpha = 0;
    int run_left = 0;
    for (int r = 0; r < image.height(); ++r) {
        for (int c = 0; c < image.width(); ++c) {
            unsigned char* p = image.pixel(r, c);
            for (int b = 0; b < bytes; ++b) p[b] = static_cast<unsigned char>(rng());
            if (!runs || run_left == 0) {
                alpha = random_alpha(rng);
                run_left = 1 + static_cast<int>(rng() % 40);
            }
            --run_left;
            if (image.type() == PT_BGRA32) p[3] = alpha;
            if (image.type() == PT_GRAY_ALPHA16) p[1] = alpha;
        }
    }
}

inline Image copy_of(const Image& image) {
    Image copy(image.type(), image.width(), image.height(), image.contiguous());
    for (int r = 0; r < image.height(); ++r)
        std::memcpy(copy.row(r), image.row(r), image.row_bytes());
    copy.palette = image.palette;
    return copy;
}

// A destination rectangle and source position around the two images, mostly overlapping them,
// sometimes reaching past any edge, now and then empty.
inline void random_placement(std::mt19937& rng, const Image& src, const Image& dst, qRect* rect,
                             qPoint* pos) {
    auto in = [&rng](int lo, int hi) {
        return lo + static_cast<int>(rng() % static_cast<unsigned>(hi - lo + 1));
    };
    if (rng() % 8 == 0) {
        *rect = qRect(in(-40, dst.width() + 4), in(-20, dst.height() + 4), in(-2, 60), in(-2, 30));
        *pos = qPoint(in(-40, src.width() + 4), in(-20, src.height() + 4));
        return;
    }
    *rect = qRect(in(-3, dst.width() - 1), in(-3, dst.height() - 1), in(0, dst.width() + 6),
                  in(0, dst.height() + 4));
    *pos = qPoint(in(-3, src.width() - 1), in(-3, src.height() - 1));
}

// Draws `src` onto `dst` through the library (ScaledBlt when `scaled`, else BitBlt) and onto a
// copy through the reference: empty when status, pixels and progress calls agree, else what
// differs.
inline std::string compare_transfer(Image& dst, const Image& src, qRect rect, qPoint pos, float sx,
                                    float sy, bool scaled, qBltMode mode, int k, bool watched) {
    Image expected = copy_of(dst);
    const Outcome want = scaled ? scaled_blit(expected, src, rect, pos, sx, sy, 1, mode, k)
                                : blit(expected, src, rect, pos, mode, k);
    std::unique_ptr<qIImageBuffer> hs, hd;
    qImageEdit from, to;
    if (bind(from, const_cast<Image&>(src), hs) != 0 || bind(to, dst, hd) != 0) return "binding";
    CountingMonitor monitor;
    qIMonitor* m = watched ? &monitor : nullptr;
    const auto opacity = static_cast<unsigned char>(k);
    const int got = scaled ? to.ScaledBlt(rect, &from, pos, sx, sy, 1, mode, opacity, m)
                           : to.BitBlt(rect, &from, pos, mode, opacity, m);
    const Difference diff = first_difference(dst, expected);
    if (got == want.status && diff.row < 0 && monitor.calls == (watched ? want.rows : 0)) return {};
    std::ostringstream out;
    out << "status " << got << " want " << want.status << ", rows " << monitor.calls << " want "
        << want.rows << ", first difference at row " << diff.row << " byte " << diff.byte;
    return out.str();
}

// Runs `body(level)` with the library limited to each tier of row kernels in turn (portable,
// x86-64 baseline, AVX2, AVX-512), so one processor checks them all; builds without the test
// hooks run only the kernels the processor picks.
template <class Body>
void for_each_kernel_tier(Body body, int lowest = 0) {
#ifdef QIMG_TEST_HOOKS
    for (int level = lowest; level <= 3; ++level) {
        qimg_limit_kernels(level);
        body(level);
    }
    qimg_limit_kernels(3);
#else
    (void)lowest;
    body(3);
#endif
}

}  // namespace qref
