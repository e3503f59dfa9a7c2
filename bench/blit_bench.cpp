// The pixel engine beside pixman and beside plain memcpy/memset of the same bytes.
//
// Names: qimg_<op>/<width>/<height> is the library, peer_<op>/... the equivalent pixman call,
// base_<op>/... memcpy or memset of the bytes the operation writes. The counter Mpix/s counts
// destination pixels. pixman works on premultiplied pixels and qimg on straight alpha, so the
// compositing rows compare the operations a user would call for the job, not identical maths.
#include <benchmark/benchmark.h>
#include <pixman.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "qimg/core/qImageBuffer.h"
#include "qimg/raster/qImageEdit.h"
#include "tests/common/ReadOnlyIndexImage.h"

namespace {

// One pixel buffer usable by both libraries (rows padded to 4 bytes).
struct Buffer {
    Buffer(qPixelType type, int w, int h)
        : type(type),
          width(w),
          height(h),
          stride(row_bytes(w, type)),
          bytes(static_cast<size_t>(stride) * static_cast<size_t>(h)) {
        view.Bind(bytes.data(), qSize(w, h), stride, type);
    }
    qPixelType type;
    int width, height, stride;
    std::vector<unsigned char> bytes;
    qImageEdit view;
};

enum class Alphas { opaque, runs, random };

// Random colours; alphas all 255, or a third 0 / a third 255 / a third partial, either in runs
// of 64 pixels or drawn per pixel.
void fill(Buffer& b, Alphas alphas, unsigned seed) {
    // xorshift: the 4K buffers hold up to 130 MB, and the setup should not dominate the run.
    uint32_t state = 2463534242u ^ seed;
    auto rng = [&state] {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return state;
    };
    for (auto& byte : b.bytes) byte = static_cast<unsigned char>(rng());
    if (b.type != PT_BGRA32) return;
    for (int r = 0; r < b.height; ++r) {
        unsigned char* row = b.bytes.data() + static_cast<size_t>(r) * b.stride;
        for (int c = 0; c < b.width; ++c) {
            const unsigned kind = alphas == Alphas::runs ? (c / 64 + r) % 3 : rng() % 3;
            unsigned char a = 255;
            if (alphas != Alphas::opaque) {
                a = kind == 0 ? 0 : kind == 1 ? 255 : static_cast<unsigned char>(1 + rng() % 254);
            }
            row[4 * c + 3] = a;
        }
    }
}

pixman_format_code_t pixman_format(qPixelType type) {
    switch (type) {
        case PT_BGR24:
            return PIXMAN_r8g8b8;
        case PT_INDEX8:
            return PIXMAN_c8;
        default:
            return PIXMAN_a8r8g8b8;
    }
}

pixman_image_t* pixman_view(Buffer& b) {
    return pixman_image_create_bits(pixman_format(b.type), b.width, b.height,
                                    reinterpret_cast<uint32_t*>(b.bytes.data()), b.stride);
}

void count_pixels(benchmark::State& state, int w, int h) {
    state.counters["Mpix/s"] = benchmark::Counter(static_cast<double>(w) * h * 1e-6,
                                                  benchmark::Counter::kIsIterationInvariantRate);
}

// ---- one description per operation -----------------------------------------------------------

struct Operation {
    qPixelType src_type;
    Alphas alphas;
    qBltMode mode;
    unsigned char opacity;
    pixman_op_t peer_op;
    bool peer_mask;  // constant opacity through a solid mask
    float scale;     // 1: block transfer
};

void run_qimg(benchmark::State& state, const Operation& op) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const int sw = static_cast<int>(w / op.scale), sh = static_cast<int>(h / op.scale);
    Buffer src(op.src_type, sw, sh), dst(PT_BGRA32, w, h);
    fill(src, op.alphas, 1);
    fill(dst, Alphas::runs, 2);
    qSafeColormap palette;
    for (int i = 0; i < 256; ++i) {
        palette.set_color(i,
                          qPixRA{static_cast<unsigned char>(i), static_cast<unsigned char>(i * 3),
                                 static_cast<unsigned char>(i * 7), 255});
    }
    qImageAlias indexed;
    const qImageAlias* from = &src.view;
    if (op.src_type == PT_INDEX8) {
        // A palette copy comes with a buffer binding; a tiny adapter provides one.
        struct IndexBuffer : qtest::ReadOnlyIndexImage {
            Buffer* b;
            const qIColormap* map;
            bool valid() const override { return true; }
            unsigned char* pixel_address(int r, int c) const override {
                return b->bytes.data() + static_cast<size_t>(r) * b->stride + c;
            }
            qSize size() const override { return qSize(b->width, b->height); }
            qPixelType pixel_type() const override { return PT_INDEX8; }
            const qIColormap* colormap() const override { return map; }
            int min_t_index() const override { return -1; }
        } adapter;
        adapter.b = &src;
        adapter.map = &palette;
        indexed.Bind(&adapter);
        from = &indexed;
    }
    const qRect all(0, 0, w, h);
    for (auto _ : state) {
        const int status = op.scale == 1.0f
                               ? dst.view.BitBlt(all, from, qPoint(), op.mode, op.opacity, nullptr)
                               : dst.view.ScaledBlt(all, from, qPoint(), op.scale, op.scale, 1,
                                                    op.mode, op.opacity, nullptr);
        benchmark::DoNotOptimize(status);
        benchmark::ClobberMemory();
    }
    count_pixels(state, w, h);
}

void run_peer(benchmark::State& state, const Operation& op) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const int sw = static_cast<int>(w / op.scale), sh = static_cast<int>(h / op.scale);
    Buffer src(op.src_type, sw, sh), dst(PT_BGRA32, w, h);
    fill(src, op.alphas, 1);
    fill(dst, Alphas::runs, 2);
    pixman_image_t* s = pixman_view(src);
    pixman_image_t* d = pixman_view(dst);
    pixman_indexed_t indexed{};
    if (op.src_type == PT_INDEX8) {
        for (int i = 0; i < 256; ++i) {
            indexed.rgba[i] = 0xff000000u | uint32_t(i * 7 & 255) << 16 |
                              uint32_t(i * 3 & 255) << 8 | uint32_t(i);
        }
        pixman_image_set_indexed(s, &indexed);
    }
    if (op.scale != 1.0f) {
        pixman_transform_t t;
        pixman_transform_init_scale(&t, pixman_double_to_fixed(1.0 / op.scale),
                                    pixman_double_to_fixed(1.0 / op.scale));
        pixman_image_set_transform(s, &t);
        pixman_image_set_filter(s, PIXMAN_FILTER_NEAREST, nullptr, 0);
    }
    pixman_image_t* mask = nullptr;
    if (op.peer_mask) {
        const pixman_color_t grey{0, 0, 0, static_cast<uint16_t>(op.opacity * 257)};
        mask = pixman_image_create_solid_fill(&grey);
    }
    for (auto _ : state) {
        pixman_image_composite32(op.peer_op, s, mask, d, 0, 0, 0, 0, 0, 0, w, h);
        benchmark::ClobberMemory();
    }
    if (mask) pixman_image_unref(mask);
    pixman_image_unref(s);
    pixman_image_unref(d);
    count_pixels(state, w, h);
}

void sizes(benchmark::internal::Benchmark* b) {
    b->Args({256, 256})->Args({1920, 1080})->Args({3840, 2160})->Unit(benchmark::kMicrosecond);
}

#define QIMG_PAIR(name, ...)                     \
    void qimg_##name(benchmark::State& state) {  \
        run_qimg(state, Operation{__VA_ARGS__}); \
    }                                            \
    void peer_##name(benchmark::State& state) {  \
        run_peer(state, Operation{__VA_ARGS__}); \
    }                                            \
    BENCHMARK(qimg_##name)->Apply(sizes);        \
    BENCHMARK(peer_##name)->Apply(sizes)

// clang-format off
QIMG_PAIR(convert24to32,   PT_BGR24,  Alphas::opaque, BLT_COPY,  255, PIXMAN_OP_SRC,  false, 1.0f);
QIMG_PAIR(index8to32,      PT_INDEX8, Alphas::opaque, BLT_COPY,  255, PIXMAN_OP_SRC,  false, 1.0f);
QIMG_PAIR(over32_runs,     PT_BGRA32, Alphas::runs,   BLT_OVER,  255, PIXMAN_OP_OVER, false, 1.0f);
QIMG_PAIR(over32_random,   PT_BGRA32, Alphas::random, BLT_OVER,  255, PIXMAN_OP_OVER, false, 1.0f);
QIMG_PAIR(over32_k128,     PT_BGRA32, Alphas::runs,   BLT_OVER,  128, PIXMAN_OP_OVER, true,  1.0f);
QIMG_PAIR(blend32,         PT_BGRA32, Alphas::runs,   BLT_BLEND, 255, PIXMAN_OP_OVER, false, 1.0f);
QIMG_PAIR(scaled2x_copy,   PT_BGRA32, Alphas::runs,   BLT_COPY,  255, PIXMAN_OP_SRC,  false, 2.0f);
QIMG_PAIR(scaled2x_over,   PT_BGRA32, Alphas::runs,   BLT_OVER,  255, PIXMAN_OP_OVER, false, 2.0f);
QIMG_PAIR(scaled05x_copy,  PT_BGRA32, Alphas::runs,   BLT_COPY,  255, PIXMAN_OP_SRC,  false, 0.5f);
QIMG_PAIR(scaled05x_over,  PT_BGRA32, Alphas::runs,   BLT_OVER,  255, PIXMAN_OP_OVER, false, 0.5f);
// clang-format on

// ---- copy and fill, also against memcpy / memset ---------------------------------------------

void qimg_copy32(benchmark::State& state) {
    run_qimg(state, Operation{PT_BGRA32, Alphas::runs, BLT_COPY, 255, PIXMAN_OP_SRC, false, 1.0f});
}
void peer_copy32(benchmark::State& state) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    Buffer src(PT_BGRA32, w, h), dst(PT_BGRA32, w, h);
    fill(src, Alphas::runs, 1);
    for (auto _ : state) {
        pixman_blt(reinterpret_cast<uint32_t*>(src.bytes.data()),
                   reinterpret_cast<uint32_t*>(dst.bytes.data()), src.stride / 4, dst.stride / 4,
                   32, 32, 0, 0, 0, 0, w, h);
        benchmark::ClobberMemory();
    }
    count_pixels(state, w, h);
}
void base_copy32(benchmark::State& state) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    Buffer src(PT_BGRA32, w, h), dst(PT_BGRA32, w, h);
    fill(src, Alphas::runs, 1);
    for (auto _ : state) {
        std::memcpy(dst.bytes.data(), src.bytes.data(), dst.bytes.size());
        benchmark::ClobberMemory();
    }
    count_pixels(state, w, h);
}
BENCHMARK(qimg_copy32)->Apply(sizes);
BENCHMARK(peer_copy32)->Apply(sizes);
BENCHMARK(base_copy32)->Apply(sizes);

const unsigned char kFillColour[4] = {10, 20, 30, 200};

void qimg_fill32(benchmark::State& state) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    Buffer dst(PT_BGRA32, w, h);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            dst.view.FillRect(qRect(0, 0, w, h), PT_BGRA32, kFillColour, nullptr));
        benchmark::ClobberMemory();
    }
    count_pixels(state, w, h);
}
void peer_fill32(benchmark::State& state) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    Buffer dst(PT_BGRA32, w, h);
    uint32_t word;
    std::memcpy(&word, kFillColour, 4);
    for (auto _ : state) {
        pixman_fill(reinterpret_cast<uint32_t*>(dst.bytes.data()), dst.stride / 4, 32, 0, 0, w, h,
                    word);
        benchmark::ClobberMemory();
    }
    count_pixels(state, w, h);
}
void base_fill32(benchmark::State& state) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    Buffer dst(PT_BGRA32, w, h);
    for (auto _ : state) {
        std::memset(dst.bytes.data(), kFillColour[0], dst.bytes.size());
        benchmark::ClobberMemory();
    }
    count_pixels(state, w, h);
}
BENCHMARK(qimg_fill32)->Apply(sizes);
BENCHMARK(peer_fill32)->Apply(sizes);
BENCHMARK(base_fill32)->Apply(sizes);

}  // namespace
