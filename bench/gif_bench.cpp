// GIF decoding: qimg against giflib (DGifSlurp, indices, no composing) and stb_image (which
// composes every frame into RGBA, so it does more work per pixel than the other two). Every file
// is decoded from memory. "Mpix" counts frame pixels (each frame's width x height, summed), so
// the three decoders are measured on the same unit.
//
//   <decoder>_gifdecode/corpus     every file of tests/gif/corpus per iteration
//   <decoder>_gifdecode/dithered   a dithered 1920x1080 still (written by `make bench`)
//                                  decoder: qimg, peer (giflib), stb (stb_image)
//   GifDecodeRatio/<input>         qimg's Mpix/s divided by giflib's and stb_image's, timed in
//                                  the same run in turns (best of 15 rounds each, thread CPU
//                                  time)
//   GifDecodePeakMemory            heap in use while qimg reads the largest corpus file
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "gif_decoders.h"
#include "qimg/core/qMonitor.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qMemoryR.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wall"
#pragma GCC diagnostic ignored "-Wextra"
#pragma GCC diagnostic ignored "-Wpedantic"
#pragma GCC diagnostic ignored "-Wsign-compare"
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#pragma GCC diagnostic ignored "-Wimplicit-fallthrough"
#pragma GCC diagnostic ignored "-Wunused-parameter"
#pragma GCC diagnostic ignored "-Wunused-but-set-variable"
#define STB_IMAGE_STATIC
#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_GIF
#include <stb_image.h>
#pragma GCC diagnostic pop

namespace {

struct Input {
    std::string name;
    Bytes bytes;
    int64_t frame_pixels = 0;  // sum of every frame's width x height
};

int64_t stb_decode(const Bytes& bytes) {
    int* delays = nullptr;
    int x = 0, y = 0, z = 0, comp = 0;
    stbi_uc* pixels = stbi_load_gif_from_memory(bytes.data(), static_cast<int>(bytes.size()),
                                                &delays, &x, &y, &z, &comp, 4);
    stbi_image_free(pixels);
    stbi_image_free(delays);
    return int64_t{x} * y * z;
}

using Decoder = int64_t (*)(const Bytes&);

const std::vector<Input>& corpus() {
    static const std::vector<Input> files = [] {
        std::vector<Input> out;
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator(QIMG_GIF_CORPUS, error)) {
            if (entry.path().extension() != ".gif") continue;
            Input input{entry.path().filename().string(), read_file(entry.path())};
            input.frame_pixels = giflib_decode(input.bytes);
            out.push_back(std::move(input));
        }
        std::sort(out.begin(), out.end(),
                  [](const Input& a, const Input& b) { return a.name < b.name; });
        return out;
    }();
    return files;
}

const std::vector<Input>& dithered() {
    static const std::vector<Input> still = [] {
        std::vector<Input> out;
        Input input{"dithered-1920x1080", read_file(QIMG_GIF_BENCH_STILL)};
        if (!input.bytes.empty()) {
            input.frame_pixels = giflib_decode(input.bytes);
            out.push_back(std::move(input));
        }
        return out;
    }();
    return still;
}

void run(benchmark::State& state, Decoder decode, const std::vector<Input>& inputs) {
    if (inputs.empty()) {
        state.SkipWithError("input missing (run `make bench`)");
        return;
    }
    int64_t pixels = 0, bytes = 0;
    for (const Input& in : inputs) {
        pixels += in.frame_pixels;
        bytes += static_cast<int64_t>(in.bytes.size());
    }
    for (auto _ : state) {
        for (const Input& in : inputs) benchmark::DoNotOptimize(decode(in.bytes));
    }
    state.counters["Mpix/s"] = benchmark::Counter(static_cast<double>(pixels) * 1e-6,
                                                  benchmark::Counter::kIsIterationInvariantRate);
    state.counters["MB/s"] = benchmark::Counter(static_cast<double>(bytes) * 1e-6,
                                                benchmark::Counter::kIsIterationInvariantRate);
}

// CPU time of this thread, so that time the machine gives to other processes is not counted.
double thread_seconds() {
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// CPU seconds per pass over `inputs`, timed over about 30 ms of passes.
double seconds_per_pass(Decoder decode, const std::vector<Input>& inputs) {
    int passes = 0;
    const double start = thread_seconds();
    double elapsed = 0;
    do {
        for (const Input& in : inputs) benchmark::DoNotOptimize(decode(in.bytes));
        ++passes;
        elapsed = thread_seconds() - start;
    } while (elapsed < 0.03);
    return elapsed / passes;
}

// The three decoders take turns, round after round, and each keeps its best round, so that
// load from other processes on the machine hits them alike.
void ratio(benchmark::State& state, const std::vector<Input>& inputs) {
    if (inputs.empty()) {
        state.SkipWithError("input missing (run `make bench`)");
        return;
    }
    int64_t pixels = 0;
    for (const Input& in : inputs) pixels += in.frame_pixels;
    double q = 1e30, g = 1e30, s = 1e30;
    for (auto _ : state) {
        for (int round = 0; round < 15; ++round) {
            q = std::min(q, seconds_per_pass(qimg_decode, inputs));
            g = std::min(g, seconds_per_pass(giflib_decode, inputs));
            s = std::min(s, seconds_per_pass(stb_decode, inputs));
        }
    }
    state.counters["qimg_Mpix/s"] = static_cast<double>(pixels) * 1e-6 / q;
    state.counters["giflib_Mpix/s"] = static_cast<double>(pixels) * 1e-6 / g;
    state.counters["stb_Mpix/s"] = static_cast<double>(pixels) * 1e-6 / s;
    state.counters["x_giflib"] = g / q;
    state.counters["x_stb"] = s / q;
}

// Heap in use (glibc's count of allocated bytes), sampled after every data sub-block.
size_t heap_in_use() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

class PeakSampler : public qIMonitor {
public:
    explicit PeakSampler(size_t base) : base_(base) {}
    bool progress(int, int, int, int) override {
        peak = std::max(peak, heap_in_use() - std::min(heap_in_use(), base_));
        return true;
    }
    size_t peak = 0;

private:
    size_t base_;
};

void peak_memory(benchmark::State& state) {
    const auto& files = corpus();
    if (files.empty()) {
        state.SkipWithError("corpus missing");
        return;
    }
    const Input& largest = *std::max_element(
        files.begin(), files.end(),
        [](const Input& a, const Input& b) { return a.frame_pixels < b.frame_pixels; });
    size_t peak = 0;
    for (auto _ : state) {
        const size_t base = heap_in_use();
        PeakSampler sampler(base);
        qGifAnimation animation;
        qMemoryR source(largest.bytes.data(), largest.bytes.size());
        animation.read(&source, &sampler);
        peak = std::max(sampler.peak, heap_in_use() - std::min(heap_in_use(), base));
    }
    state.SetLabel(largest.name);
    state.counters["peak_heap_bytes"] = static_cast<double>(peak);
    state.counters["frame_bytes"] = static_cast<double>(largest.frame_pixels);
    state.counters["peak/frames"] =
        static_cast<double>(peak) / static_cast<double>(largest.frame_pixels);
}

BENCHMARK_CAPTURE(run, qimg / corpus, qimg_decode, corpus())->Name("qimg_gifdecode/corpus");
BENCHMARK_CAPTURE(run, giflib / corpus, giflib_decode, corpus())->Name("peer_gifdecode/corpus");
BENCHMARK_CAPTURE(run, stb / corpus, stb_decode, corpus())->Name("stb_gifdecode/corpus");
BENCHMARK_CAPTURE(run, qimg / dithered, qimg_decode, dithered())->Name("qimg_gifdecode/dithered");
BENCHMARK_CAPTURE(run, giflib / dithered, giflib_decode, dithered())
    ->Name("peer_gifdecode/dithered");
BENCHMARK_CAPTURE(run, stb / dithered, stb_decode, dithered())->Name("stb_gifdecode/dithered");
BENCHMARK_CAPTURE(ratio, corpus, corpus())->Name("GifDecodeRatio/corpus")->Iterations(1);
BENCHMARK_CAPTURE(ratio, dithered, dithered())->Name("GifDecodeRatio/dithered")->Iterations(1);
BENCHMARK(peak_memory)->Name("GifDecodePeakMemory")->Iterations(1);

}  // namespace
