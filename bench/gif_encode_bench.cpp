// GIF encoding: qimg's writer against giflib's EGifPutLine on the same indices and palette, one
// still image per iteration written to memory (screen, global table, one image). The inputs are
// the first frames of three kinds of picture, decoded once:
//
//   <encoder>_gifencode/dithered   the dithered 1920x1080 still `make bench` writes (noisy:
//                                  short strings, many table clears)
//   <encoder>_gifencode/photo      im-photo-640.gif of the corpus (256 colours, smooth areas)
//   <encoder>_gifencode/shapes     im-flat-shapes.gif of the corpus (long runs)
//                                  encoder: qimg, peer (giflib)
//
// Sizes against gifsicle and Pillow, and Pillow's encoding speed, are in bench/gif_sizes.py.
#include <benchmark/benchmark.h>
#include <gif_lib.h>

#include <cstring>
#include <string>
#include <vector>

#include "qimg/encode/qGifWriter.h"
#include "qimg/encode/qMemoryW.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes read_file(const std::string& path) {
    Bytes out;
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        unsigned char buffer[65536];
        size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0)
            out.insert(out.end(), buffer, buffer + n);
        std::fclose(f);
    }
    return out;
}

// The first frame of a GIF, kept decoded.
struct Still {
    qGifAnimation animation;
    const qGifFrame* frame = nullptr;
    explicit Still(const std::string& path) {
        const Bytes bytes = read_file(path);
        qMemoryR source(bytes.data(), bytes.size());
        if (animation.read(&source, nullptr) == 0 && animation.num_frames() > 0) {
            frame = animation.frame(0);
        }
    }
};

const Still& still(const std::string& name) {
    static Still dithered(QIMG_GIF_BENCH_STILL);
    static Still photo(std::string(QIMG_GIF_CORPUS) + "/im-photo-640.gif");
    static Still shapes(std::string(QIMG_GIF_CORPUS) + "/im-flat-shapes.gif");
    return name == "dithered" ? dithered : name == "photo" ? photo : shapes;
}

void count(benchmark::State& state, const qGifFrame* frame) {
    const qRect r = frame->frame_rect();
    state.counters["Mpix/s"] = benchmark::Counter(static_cast<double>(r.width) * r.height * 1e-6,
                                                  benchmark::Counter::kIsIterationInvariantRate);
}

void qimg_encode(benchmark::State& state, const std::string& name) {
    const qGifFrame* frame = still(name).frame;
    if (frame == nullptr) {
        state.SkipWithError("input missing (run `make bench`)");
        return;
    }
    qMemoryW sink;
    for (auto _ : state) {
        sink.clear();
        qGifWriter writer;
        writer.begin(&sink, frame->frame_rect().size(), frame->colormap(), 0, 1);
        writer.add_image(frame->image(), qPoint(), nullptr, nullptr, false, nullptr);
        writer.finish();
        benchmark::DoNotOptimize(sink.data());
    }
    state.counters["bytes"] = sink.size();
    count(state, frame);
}

int giflib_write(GifFileType* gif, const GifByteType* data, int n) {
    auto* out = static_cast<Bytes*>(gif->UserData);
    out->insert(out->end(), data, data + n);
    return n;
}

void peer_encode(benchmark::State& state, const std::string& name) {
    const qGifFrame* frame = still(name).frame;
    if (frame == nullptr) {
        state.SkipWithError("input missing (run `make bench`)");
        return;
    }
    const qRect r = frame->frame_rect();
    const qIColormap* map = frame->colormap();
    std::vector<GifColorType> colors(static_cast<size_t>(map->num_colors()));
    for (int i = 0; i < map->num_colors(); ++i) {
        const qPixRA c = map->get_color(i);
        colors[i] = GifColorType{c.red, c.green, c.blue};
    }
    Bytes out;
    for (auto _ : state) {
        out.clear();
        int error = 0;
        GifFileType* gif = EGifOpen(&out, giflib_write, &error);
        ColorMapObject* cmap = GifMakeMapObject(map->num_colors(), colors.data());
        EGifPutScreenDesc(gif, r.width, r.height, 8, 0, cmap);
        EGifPutImageDesc(gif, 0, 0, r.width, r.height, false, nullptr);
        for (int y = 0; y < r.height; ++y) {
            EGifPutLine(gif, frame->image()->pixel_address(y, 0), r.width);
        }
        EGifCloseFile(gif, &error);
        GifFreeMapObject(cmap);
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["bytes"] = static_cast<double>(out.size());
    count(state, frame);
}

}  // namespace

BENCHMARK_CAPTURE(qimg_encode, gifencode / dithered, std::string("dithered"))
    ->Name("qimg_gifencode/dithered");
BENCHMARK_CAPTURE(peer_encode, gifencode / dithered, std::string("dithered"))
    ->Name("peer_gifencode/dithered");
BENCHMARK_CAPTURE(qimg_encode, gifencode / photo, std::string("photo"))
    ->Name("qimg_gifencode/photo");
BENCHMARK_CAPTURE(peer_encode, gifencode / photo, std::string("photo"))
    ->Name("peer_gifencode/photo");
BENCHMARK_CAPTURE(qimg_encode, gifencode / shapes, std::string("shapes"))
    ->Name("qimg_gifencode/shapes");
BENCHMARK_CAPTURE(peer_encode, gifencode / shapes, std::string("shapes"))
    ->Name("peer_gifencode/shapes");
