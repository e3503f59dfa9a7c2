// Colour reduction: qimg's median cut + nearest-colour cache (+ serpentine diffusion) against
// libimagequant, on photographs of a few megapixels, to 256 and 16 colours.
//
// Each iteration does the whole job a caller would: histogram, palette choice, mapping; for qimg
// once through the facade (qImageProxy::quantize_colors, which also allocates the new indexed
// image and copies the palette) and once from the pieces (quantizer front, cache, mapper). The
// counters give throughput (Mpixel/s) and the PSNR of the result against the original (RGB,
// all channels pooled). Inputs are the photographs that Debian's lomiri-wallpapers-20.04 package
// installs (`make bench` installs it), box-reduced 3 x 3 to about 2 megapixels; a missing file
// skips its benchmarks. bench/pillow_quantize.py measures Pillow's median cut on the same files.
#include <benchmark/benchmark.h>
#include <libimagequant.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "photos.h"
#include "qimg/color/qColorQuantProxy.h"
#include "qimg/color/qGifColormap.h"
#include "qimg/core/qImageBuffer.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/raster/qImageEdit.h"

namespace {

using bench::Photo;
using bench::PhotoBuffer;

const std::vector<Photo>& photos() {
    static const std::vector<Photo> all = {
        bench::load("bird", "/usr/share/backgrounds/Kleiber_by_Lukas_Baubkus.jpg", 3),
        bench::load("sea", "/usr/share/backgrounds/Infinite-Sea_by_Aury88.jpg", 3),
    };
    return all;
}

// PSNR of indices + palette (RGB) against the photo.
double psnr(const Photo& photo, const std::vector<unsigned char>& indices, const qPixRA* palette) {
    double sum = 0;
    for (size_t i = 0; i < indices.size(); ++i) {
        const qPixRA a = photo.bgra[i], b = palette[indices[i]];
        const double dr = a.red - b.red, dg = a.green - b.green, db = a.blue - b.blue;
        sum += dr * dr + dg * dg + db * db;
    }
    const double mse = sum / (3.0 * static_cast<double>(indices.size()));
    return mse > 0 ? 10.0 * std::log10(255.0 * 255.0 / mse) : 99.0;
}

// PSNR when every pixel takes its exactly nearest entry (weighted 4, 9, 1, from the pixel's own
// colour, not its 5-bit cell): tells the palette's quality apart from the cache's.
double psnr_exact_nearest(const Photo& photo, const qPixRA* palette, int count) {
    double sum = 0;
    for (const qPixRA a : photo.bgra) {
        int64_t best = INT64_MAX;
        qPixRA b{};
        for (int i = 0; i < count; ++i) {
            const int64_t dr = a.red - palette[i].red, dg = a.green - palette[i].green,
                          db = a.blue - palette[i].blue;
            const int64_t d = 4 * dr * dr + 9 * dg * dg + db * db;
            if (d < best) best = d, b = palette[i];
        }
        const double dr = a.red - b.red, dg = a.green - b.green, db = a.blue - b.blue;
        sum += dr * dr + dg * dg + db * db;
    }
    const double mse = sum / (3.0 * static_cast<double>(photo.bgra.size()));
    return mse > 0 ? 10.0 * std::log10(255.0 * 255.0 / mse) : 99.0;
}

void set_counters(benchmark::State& state, const Photo& photo, double quality) {
    const double pixels = static_cast<double>(photo.width) * photo.height;
    state.counters["Mpixel/s"] = benchmark::Counter(
        pixels * 1e-6 * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["PSNR"] = quality;
    state.counters["Mpixel"] = pixels * 1e-6;
    state.SetLabel(photo.name);
}

// args: photo, colours, diffusion
void BM_quantize_qimg(benchmark::State& state) {
    const Photo& photo = photos()[static_cast<size_t>(state.range(0))];
    if (photo.bgra.empty()) {
        state.SkipWithError("photograph missing: apt-get install lomiri-wallpapers-20.04");
        return;
    }
    const int colours = static_cast<int>(state.range(1));
    const bool diffusion = state.range(2) != 0;
    const PhotoBuffer buffer(photo);
    std::vector<unsigned char> indices(static_cast<size_t>(photo.width) * photo.height);
    qImageAlias source;
    source.Bind(&buffer);
    qImageEdit destination;
    destination.Bind(indices.data(), qSize(photo.width, photo.height), photo.width, PT_INDEX8);
    const qRect area(0, 0, photo.width, photo.height);
    std::vector<qPixRA> palette(256);
    for (auto _ : state) {
        qColorQuantProxy quant;
        quant.create_quantizer();
        quant.prescan_quantize(&buffer, 1);
        quant.select_colors(colours, false);
        qGifColormap map;
        map.attach(quant.colormap());
        const int status =
            diffusion ? destination.dither_colors(area, &source, qPoint(), &map, true, 1.0f, 0.0f,
                                                  nullptr)
                      : destination.map_colors(area, &source, qPoint(), &map, true, nullptr);
        if (status != 0) state.SkipWithError("mapping failed");
        for (int i = 0; i < quant.colormap()->num_colors(); ++i)
            palette[static_cast<size_t>(i)] = quant.colormap()->get_color(i);
        benchmark::DoNotOptimize(indices.data());
    }
    set_counters(state, photo, psnr(photo, indices, palette.data()));
    if (!diffusion) {
        state.counters["PSNR_exact_nearest"] =
            psnr_exact_nearest(photo, palette.data(), std::min(colours, 256));
    }
}

// args: photo, colours, diffusion. The facade's generated-palette reduction of an opaque photo.
void BM_quantize_colors_qimg(benchmark::State& state) {
    const Photo& photo = photos()[static_cast<size_t>(state.range(0))];
    if (photo.bgra.empty()) {
        state.SkipWithError("photograph missing: apt-get install lomiri-wallpapers-20.04");
        return;
    }
    const int colours = static_cast<int>(state.range(1));
    const qQuantizer quantizer = state.range(2) != 0 ? QT_DIFFUSION : QT_NEAREST;
    const PhotoBuffer buffer(photo);
    std::vector<unsigned char> indices(static_cast<size_t>(photo.width) * photo.height);
    std::vector<qPixRA> palette(256);
    for (auto _ : state) {
        // Handing the photo over copies it; that is the caller's setup, not the reduction.
        state.PauseTiming();
        qImageProxy proxy;
        if (proxy.Set(&buffer) != 0) state.SkipWithError("Set failed");
        state.ResumeTiming();
        if (proxy.quantize_colors(colours, CM_ADAPTIVE, quantizer, true, 1.0f, 0.0f, 1, nullptr) !=
            0) {
            state.SkipWithError("quantize_colors failed");
            break;
        }
        state.PauseTiming();
        const auto* leaf = dynamic_cast<const qIImageBuffer*>(proxy.current_leaf());
        for (int y = 0; leaf && y < photo.height; ++y) {
            const unsigned char* row = leaf->pixel_address(y, 0);
            std::copy(row, row + photo.width,
                      indices.begin() + static_cast<ptrdiff_t>(y) * photo.width);
        }
        for (int i = 0; i < proxy.colormap()->num_colors(); ++i)
            palette[static_cast<size_t>(i)] = proxy.colormap()->get_color(i);
        state.ResumeTiming();
    }
    set_counters(state, photo, psnr(photo, indices, palette.data()));
}

void BM_quantize_libimagequant(benchmark::State& state) {
    const Photo& photo = photos()[static_cast<size_t>(state.range(0))];
    if (photo.bgra.empty()) {
        state.SkipWithError("photograph missing: apt-get install lomiri-wallpapers-20.04");
        return;
    }
    const int colours = static_cast<int>(state.range(1));
    const bool diffusion = state.range(2) != 0;
    std::vector<unsigned char> indices(static_cast<size_t>(photo.width) * photo.height);
    std::vector<qPixRA> palette(256);
    for (auto _ : state) {
        liq_attr* attr = liq_attr_create();
        liq_set_max_colors(attr, colours);
        liq_image* image =
            liq_image_create_rgba(attr, photo.rgba.data(), photo.width, photo.height, 0);
        liq_result* result = nullptr;
        if (liq_image_quantize(image, attr, &result) != LIQ_OK) {
            state.SkipWithError("libimagequant failed");
            break;
        }
        liq_set_dithering_level(result, diffusion ? 1.0f : 0.0f);
        liq_write_remapped_image(result, image, indices.data(), indices.size());
        const liq_palette* pal = liq_get_palette(result);
        for (unsigned i = 0; i < pal->count; ++i)
            palette[i] = qPixRA{pal->entries[i].b, pal->entries[i].g, pal->entries[i].r, 255};
        liq_result_destroy(result);
        liq_image_destroy(image);
        liq_attr_destroy(attr);
        benchmark::DoNotOptimize(indices.data());
    }
    set_counters(state, photo, psnr(photo, indices, palette.data()));
}

void quantize_args(benchmark::internal::Benchmark* b) {
    b->ArgNames({"photo", "colours", "diffusion"});
    for (int photo : {0, 1})
        for (int colours : {256, 16})
            for (int diffusion : {0, 1}) b->Args({photo, colours, diffusion});
    b->Unit(benchmark::kMillisecond)->MinTime(1.0)->UseRealTime();
}

BENCHMARK(BM_quantize_colors_qimg)->Apply(quantize_args);
BENCHMARK(BM_quantize_qimg)->Apply(quantize_args);
BENCHMARK(BM_quantize_libimagequant)->Apply(quantize_args);

}  // namespace
