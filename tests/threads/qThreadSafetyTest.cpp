// Distinct objects on distinct threads: several threads read the same GIF bytes (one shared,
// read-only buffer), each into its own proxy, then reduce and draw their own images, and must
// get exactly what one thread gets alone. Built with ThreadSanitizer by `make tsan`, which then
// reports any data race between them (the library has no global mutable state to race on).
#include "qimg/facade/qImageProxy.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "common/TestKit.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/image/qFrameComposer.h"
#include "qimg/raster/qImageEdit.h"

namespace {

using qtest::Bytes;

// What one caller does with one input: read it, compose every frame, reduce the current frame's
// colours with dithering and draw it scaled; every status and every pixel goes into the result.
Bytes work(const Bytes& gif) {
    qImageProxy proxy;
    qMemoryR source(gif.data(), gif.size());
    Bytes out(1, static_cast<unsigned char>(proxy.read_gif(&source, nullptr)));
    const qSize screen = proxy.size();
    Bytes canvas(static_cast<size_t>(screen.width) * screen.height * 4);
    qImageEdit view;
    out.push_back(
        static_cast<unsigned char>(view.Bind(canvas.data(), screen, screen.width * 4, PT_BGRA32)));
    qFrameComposer composer;
    out.push_back(static_cast<unsigned char>(composer.begin(proxy.animation(), &view)));
    for (int f = 0; f < proxy.num_frames(); ++f)
        out.push_back(static_cast<unsigned char>(composer.compose_to(f, nullptr)));
    out.insert(out.end(), canvas.begin(), canvas.end());
    out.push_back(static_cast<unsigned char>(
        proxy.quantize_colors(32, CM_ADAPTIVE, QT_DIFFUSION, false, 1.0f, 0.0f, 1, nullptr)));
    // The reduced frame drawn at 2.25 x 1, over what the composer left.
    out.push_back(static_cast<unsigned char>(
        proxy.Draw(&view, qRect(screen), qPoint(1, 1), 2.25f, 1.0f, false)));
    out.insert(out.end(), canvas.begin(), canvas.end());
    return out;
}

TEST(ThreadSafety, DistinctObjectsOnDistinctThreadsFromOneSharedInput) {
    for (const char* name : {"pil-anim-transparent.gif", "gs-interlaced.gif"}) {
        SCOPED_TRACE(name);
        const Bytes gif = qtest::read_file(std::string(QIMG_GIF_CORPUS) + "/" + name);
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
