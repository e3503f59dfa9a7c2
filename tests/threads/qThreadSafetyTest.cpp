// Distinct objects on distinct threads: several threads read the same GIF bytes (one shared,
// read-only buffer), each into its own proxy, then reduce and draw their own images, and must
// get exactly what one thread gets alone. Built with ThreadSanitizer by `make tsan`, which then
// reports any data race between them (the library has no global mutable state to race on).
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "common/TestKit.h"
#include "qimg/color/qColorQuantProxy.h"
#include "qimg/color/qGifColormap.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/image/qFrameComposer.h"
#include "qimg/palette/qIColormap.h"
#include "qimg/raster/qImageEdit.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes read_file(const std::string& name) {
    return qtest::read_file(std::string(QIMG_GIF_CORPUS) + "/" + name);
}

// Everything one thread produces from the shared bytes, as plain bytes to compare.
Bytes work(const Bytes& gif) {
    Bytes out;
    qImageProxy proxy;
    qMemoryR source(gif.data(), gif.size());
    if (proxy.read_gif(&source, nullptr) != 0) return out;
    const qSize screen = proxy.size();

    // Compose every frame onto a canvas, as a viewer plays the animation.
    Bytes canvas(static_cast<size_t>(screen.width) * screen.height * 4);
    qImageEdit view;
    if (view.Bind(canvas.data(), screen, screen.width * 4, PT_BGRA32) != 0) return out;
    qFrameComposer composer;
    if (composer.begin(proxy.animation(), &view) != 0) return out;
    for (int f = 0; f < proxy.num_frames(); ++f) {
        if (composer.compose_to(f, nullptr) != 0) return out;
    }
    out.insert(out.end(), canvas.begin(), canvas.end());

    // The composed picture as a true-colour image: a palette by median cut, then dithering.
    qDirectImage picture;
    if (picture.Create_buffer(screen, PT_BGRA32, nullptr) != 0) return out;
    qImageEdit picture_view;
    qImageAlias canvas_alias;
    if (picture_view.Bind(&picture) != 0 ||
        canvas_alias.Bind(canvas.data(), screen, screen.width * 4, PT_BGRA32) != 0) {
        return out;
    }
    picture_view.BitBlt(qRect(screen), &canvas_alias, qPoint(), BLT_COPY, 255, nullptr);
    qColorQuantProxy quant;
    if (quant.create_quantizer() != 0 || quant.prescan_quantize(&picture, 1) != 0 ||
        quant.select_colors(32, true) != 0) {
        return out;
    }
    qGifColormap cache;
    cache.attach(quant.colormap());
    Bytes indices(static_cast<size_t>(screen.width) * screen.height);
    qImageEdit index_view;
    qImageAlias picture_alias;
    if (index_view.Bind(indices.data(), screen, screen.width, PT_INDEX8) != 0 ||
        picture_alias.Bind(&picture) != 0) {
        return out;
    }
    out.push_back(static_cast<unsigned char>(index_view.dither_colors(
        qRect(screen), &picture_alias, qPoint(), &cache, false, 1.0f, 0.0f, nullptr)));
    out.insert(out.end(), indices.begin(), indices.end());

    // The proxy's current frame drawn magnified and reduced.
    const qSize scaled(screen.width * 2 + 3, screen.height + 5);
    Bytes big(static_cast<size_t>(scaled.width) * scaled.height * 4, 0x55);
    qImageEdit big_view;
    if (big_view.Bind(big.data(), scaled, scaled.width * 4, PT_BGRA32) != 0) return out;
    out.push_back(static_cast<unsigned char>(
        proxy.Draw(&big_view, qRect(scaled), qPoint(1, 1), 2.25f, 1.0f, false)));
    out.push_back(static_cast<unsigned char>(
        proxy.Draw(&big_view, qRect(3, 3, 40, 40), qPoint(), 0.5f, 0.5f, true)));
    out.insert(out.end(), big.begin(), big.end());
    return out;
}

TEST(ThreadSafety, DistinctObjectsOnDistinctThreadsFromOneSharedInput) {
    for (const char* name : {"pil-anim-transparent.gif", "gs-interlaced.gif"}) {
        SCOPED_TRACE(name);
        const Bytes gif = read_file(name);
        ASSERT_FALSE(gif.empty());
        const Bytes alone = work(gif);
        ASSERT_GT(alone.size(), 1000u);
        constexpr int kThreads = 4;
        std::vector<Bytes> results(kThreads);
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&gif, &results, t] {
                for (int round = 0; round < 2; ++round) results[t] = work(gif);
            });
        }
        for (std::thread& thread : threads) thread.join();
        for (int t = 0; t < kThreads; ++t) EXPECT_EQ(results[t], alone) << "thread " << t;
    }
}

}  // namespace
