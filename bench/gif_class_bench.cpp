// GIF decoding by class of file: qimg against giflib (DGifSlurp) and wuffs 0.3 (every frame to
// indices into one canvas-sized buffer), the same bytes in the same run. Classes:
//
//   dense  photos at 256 colours, dithered          \  written by bench/make-gif-classes.sh
//   mid    64-128 colours, undithered               |  (`make bench`) into
//   flat   large uniform areas                      |  build/bench/gif-classes/<class>
//   tiny   a few pixels, 1-2 frames                 /
//   real   the files of tests/gif/corpus (real encoders, every feature)
//
//   qimg_gifclass/<class>    read_gif from memory (qMemoryR), every frame decoded
//   push_gifclass/<class>    qGifPushReader fed the same bytes in pieces of 4 KiB
//   peer_gifclass/<class>    giflib DGifSlurp
//   wuffs_gifclass/<class>   wuffs, pixel format INDEXED__BGRA_BINARY, blend SRC
//
// "Mpix/s" counts frame pixels (each frame's width x height, summed, as qimg reads them). At
// start-up every frame wuffs decodes is compared with qimg's indices; a class where they differ
// is not timed for wuffs. The table at the end gives the medians of the repetitions.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "bench_summary.h"
#include "gif_decoders.h"
#include "qimg/image/qIndexImage.h"
#ifdef QIMG_HAVE_WUFFS
#include "wuffs_gif_peer.h"
#endif

namespace {

struct GifFile {
    std::string name;
    Bytes bytes;
};

struct GifClass {
    const char* name = nullptr;
    std::vector<GifFile> files;
    int64_t frame_pixels = 0;
    int64_t bytes = 0;
    int frames = 0;
    std::vector<std::string> wuffs_mismatches;  // one line per file that wuffs decodes otherwise
};

constexpr const char* kClassNames[] = {"dense", "mid", "flat", "tiny", "real"};

std::vector<GifFile> read_folder(const std::filesystem::path& folder) {
    std::vector<GifFile> files;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        if (entry.path().extension() != ".gif") continue;
        files.push_back({entry.path().filename().string(), read_file(entry.path())});
    }
    std::sort(files.begin(), files.end(),
              [](const GifFile& a, const GifFile& b) { return a.name < b.name; });
    return files;
}

#ifdef QIMG_HAVE_WUFFS
// Compares each frame wuffs puts on its canvas with the frame qimg read.
struct FrameCheck {
    qGifAnimation* animation = nullptr;
    int frame = 0;
    std::string mismatch;  // the first difference, empty while there is none
};

void check_frame(void* context, const uint8_t* canvas, uint32_t canvas_width,
                 uint32_t canvas_height, uint32_t x0, uint32_t y0, uint32_t x1, uint32_t y1) {
    auto* check = static_cast<FrameCheck*>(context);
    const int f = check->frame++;
    if (!check->mismatch.empty()) return;
    if (f >= check->animation->num_frames()) {
        check->mismatch = "wuffs decodes more frames than qimg";
        return;
    }
    const qGifFrame* frame = check->animation->frame(f);
    const qRect r = frame->frame_rect();
    // wuffs clips a frame to its canvas.
    const auto clip = [](int v, uint32_t limit) {
        return static_cast<uint32_t>(std::clamp<int64_t>(v, 0, limit));
    };
    if (x0 != clip(r.x, canvas_width) || y0 != clip(r.y, canvas_height) ||
        x1 != clip(r.x + r.width, canvas_width) || y1 != clip(r.y + r.height, canvas_height)) {
        check->mismatch = "frame " + std::to_string(f) + ": rectangle differs";
        return;
    }
    for (uint32_t y = y0; y < y1; ++y) {
        const unsigned char* ours = frame->image()->pixel_address(static_cast<int>(y) - r.y, 0);
        for (uint32_t x = x0; x < x1; ++x) {
            if (canvas[size_t{y} * canvas_width + x] != ours[static_cast<int>(x) - r.x]) {
                check->mismatch = "frame " + std::to_string(f) + ": index at (" +
                                  std::to_string(x) + ", " + std::to_string(y) + ") differs";
                return;
            }
        }
    }
}

int64_t wuffs_decode(const Bytes& bytes) {
    return wuffs_gif_peer_decode(bytes.data(), bytes.size(), nullptr, nullptr);
}

// Empty when wuffs gives every frame of `file` as qimg does, else what differs.
std::string compare_with_wuffs(const GifFile& file, qGifAnimation& animation) {
    FrameCheck check;
    check.animation = &animation;
    if (wuffs_gif_peer_decode(file.bytes.data(), file.bytes.size(), check_frame, &check) < 0) {
        return "wuffs reports an error";
    }
    if (!check.mismatch.empty()) return check.mismatch;
    if (check.frame != animation.num_frames()) return "wuffs decodes fewer frames than qimg";
    return {};
}
#endif

GifClass load_class(const char* name) {
    GifClass c;
    c.name = name;
    c.files =
        read_folder(std::string(name) == "real" ? std::filesystem::path(QIMG_GIF_CORPUS)
                                                : std::filesystem::path(QIMG_GIF_CLASSES) / name);
    for (const GifFile& file : c.files) {
        qGifAnimation animation;
        qMemoryR source(file.bytes.data(), file.bytes.size());
        animation.read(&source, nullptr);
        c.frame_pixels += frame_pixels(animation);
        c.frames += animation.num_frames();
        c.bytes += static_cast<int64_t>(file.bytes.size());
#ifdef QIMG_HAVE_WUFFS
        const std::string mismatch = compare_with_wuffs(file, animation);
        if (!mismatch.empty()) c.wuffs_mismatches.push_back(file.name + ": " + mismatch);
#endif
    }
    return c;
}

const std::vector<GifClass>& classes() {
    static const std::vector<GifClass> all = [] {
        std::vector<GifClass> out;
        for (const char* name : kClassNames) out.push_back(load_class(name));
        return out;
    }();
    return all;
}

using Decoder = int64_t (*)(const Bytes&);

void decode_class(benchmark::State& state, Decoder decode, size_t class_index, bool wuffs) {
    const GifClass& c = classes()[class_index];
    if (c.files.empty()) {
        state.SkipWithError("no input files (run `make bench`)");
        return;
    }
    if (wuffs && !c.wuffs_mismatches.empty()) {
        state.SkipWithError("wuffs decodes differently; see the table's notes");
        return;
    }
    for (auto _ : state) {
        for (const GifFile& file : c.files) benchmark::DoNotOptimize(decode(file.bytes));
    }
    state.counters["Mpix/s"] = benchmark::Counter(static_cast<double>(c.frame_pixels) * 1e-6,
                                                  benchmark::Counter::kIsIterationInvariantRate);
    state.counters["MB/s"] = benchmark::Counter(static_cast<double>(c.bytes) * 1e-6,
                                                benchmark::Counter::kIsIterationInvariantRate);
}

const bool registered = [] {
    for (size_t i = 0; i < std::size(kClassNames); ++i) {
        const std::string suffix = std::string("_gifclass/") + kClassNames[i];
        benchmark::RegisterBenchmark(("qimg" + suffix).c_str(), decode_class, qimg_decode, i,
                                     false);
        benchmark::RegisterBenchmark(("push" + suffix).c_str(), decode_class, qimg_push_decode, i,
                                     false);
        benchmark::RegisterBenchmark(("peer" + suffix).c_str(), decode_class, giflib_decode, i,
                                     false);
#ifdef QIMG_HAVE_WUFFS
        benchmark::RegisterBenchmark(("wuffs" + suffix).c_str(), decode_class, wuffs_decode, i,
                                     true);
#endif
    }
    return true;
}();

double rate_of(const BenchRates& rates, const std::string& name) {
    const auto it = rates.find(name);
    return it == rates.end() ? 0.0 : it->second;
}

void print_ratio(double numerator, double denominator) {
    if (numerator > 0 && denominator > 0) {
        std::printf(" %11.2f", numerator / denominator);
    } else {
        std::printf(" %11s", "-");
    }
}

void print_rate(double rate) {
    if (rate > 0) {
        std::printf(" %9.0f", rate);
    } else {
        std::printf(" %9s", "-");
    }
}

// CPU time of this thread: time the machine gives to other processes is not counted.
double thread_seconds() {
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// Seconds per decoding of `bytes`: the best of 15 rounds of about 10 ms.
double best_time(Decoder decode, const Bytes& bytes) {
    double best = 1e30;
    for (int round = 0; round < 15; ++round) {
        const double start = thread_seconds();
        double now = start;
        int64_t runs = 0;
        do {
            benchmark::DoNotOptimize(decode(bytes));
            ++runs;
            now = thread_seconds();
        } while (now - start < 0.01);
        best = std::min(best, (now - start) / static_cast<double>(runs));
    }
    return best;
}

std::string duration(double seconds) {
    char text[32];
    if (seconds >= 1e-3) {
        std::snprintf(text, sizeof text, "%.2f ms", seconds * 1e3);
    } else if (seconds >= 1e-6) {
        std::snprintf(text, sizeof text, "%.2f us", seconds * 1e6);
    } else {
        std::snprintf(text, sizeof text, "%.0f ns", seconds * 1e9);
    }
    return text;
}

// Every generated file of the classes that ran, on its own, qimg and wuffs in turns: where a
// class's ratio comes from.
void print_file_table(const BenchRates& rates) {
#ifdef QIMG_HAVE_WUFFS
    bool header = false;
    for (const GifClass& c : classes()) {
        if (std::string(c.name) == "real" || !c.wuffs_mismatches.empty() ||
            rate_of(rates, std::string("qimg_gifclass/") + c.name) <= 0) {
            continue;
        }
        for (const GifFile& file : c.files) {
            if (!header) {
                std::printf(
                    "\nGIF decoding file by file (best of 15 rounds of 10 ms, thread CPU)\n");
                std::printf("%-34s %10s %10s %11s\n", "file", "qimg", "wuffs", "qimg/wuffs");
                header = true;
            }
            const double qimg = best_time(qimg_decode, file.bytes);
            const double wuffs = best_time(wuffs_decode, file.bytes);
            std::printf("%-34s %10s %10s %11.2f\n", (std::string(c.name) + "/" + file.name).c_str(),
                        duration(qimg).c_str(), duration(wuffs).c_str(), wuffs / qimg);
        }
    }
#endif
}

void print_class_table(const BenchRates& rates) {
    bool header = false;
    for (const GifClass& c : classes()) {
        const double qimg = rate_of(rates, std::string("qimg_gifclass/") + c.name);
        if (qimg <= 0) continue;  // not run (filtered out or no inputs)
        if (!header) {
            std::printf("\nGIF decoding by class (frame Mpix/s, medians)\n");
            std::printf("%-6s %5s %6s %8s %9s %9s %9s %9s %11s %11s %9s %11s\n", "class", "files",
                        "frames", "kB", "qimg", "qimg MB/s", "giflib", "wuffs", "qimg/wuffs",
                        "qimg/giflib", "push", "push/qimg");
            header = true;
        }
        const double giflib = rate_of(rates, std::string("peer_gifclass/") + c.name);
        const double wuffs = rate_of(rates, std::string("wuffs_gifclass/") + c.name);
        const double push = rate_of(rates, std::string("push_gifclass/") + c.name);
        const double mb_per_mpix =
            static_cast<double>(c.bytes) / static_cast<double>(c.frame_pixels);
        std::printf("%-6s %5zu %6d %8.0f", c.name, c.files.size(), c.frames,
                    static_cast<double>(c.bytes) / 1e3);
        print_rate(qimg);
        print_rate(qimg * mb_per_mpix);
        print_rate(giflib);
        print_rate(wuffs);
        print_ratio(qimg, wuffs);
        print_ratio(qimg, giflib);
        print_rate(push);
        print_ratio(push, qimg);
        std::printf("\n");
    }
    if (!header) return;
#ifdef QIMG_HAVE_WUFFS
    int mismatches = 0;
    for (const GifClass& c : classes()) {
        for (const std::string& line : c.wuffs_mismatches) {
            std::printf("  wuffs differs from qimg in %s/%s\n", c.name, line.c_str());
            ++mismatches;
        }
    }
    if (mismatches == 0) std::printf("wuffs gives qimg's indices for every frame of every file\n");
#else
    std::printf("wuffs not found (%s): its column is empty\n", QIMG_WUFFS_DIR);
#endif
    print_file_table(rates);
}

const bool table_registered = register_bench_summary(print_class_table);

}  // namespace
