// The frame composer against a player written here from giflib's decoding: for every file of
// the corpus and the demo's sample, every composed frame must equal, pixel for pixel, what the
// straightforward player below shows (disposal 2 clears to transparent, 3 restores what was
// there, frames are clipped to the screen).
#include "qimg/image/qFrameComposer.h"

#include <gtest/gtest.h>

#ifdef QIMG_HAVE_GIFLIB
#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <vector>

#include "common/TestKit.h"
#include "gif/GiflibReference.h"
#include "qimg/core/qMonitor.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/gif/qGifReadOptions.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/raster/qImageEdit.h"

namespace {

using qtest::Bytes;
using qtest::read_file;

// Every frame as the straightforward player shows it, BGRA rows of the screen width.
std::vector<Bytes> play(const gif_test::Reference& ref, int* width, int* height) {
    int w = ref.width, h = ref.height;
    if (w <= 0 || h <= 0) {  // an empty screen takes the first image's size
        w = ref.frames[0].width;
        h = ref.frames[0].height;
    }
    *width = w;
    *height = h;
    std::vector<Bytes> shown;
    Bytes canvas(static_cast<size_t>(w) * h * 4, 0);
    for (const gif_test::ReferenceFrame& f : ref.frames) {
        const std::vector<unsigned char>& map = f.local_rgb.empty() ? ref.global_rgb : f.local_rgb;
        const Bytes before = canvas;
        for (int y = 0; y < f.height; ++y) {
            for (int x = 0; x < f.width; ++x) {
                const int sx = f.left + x, sy = f.top + y;
                if (sx >= w || sy >= h) continue;
                const size_t index = f.indices[static_cast<size_t>(y) * f.width + x];
                if (f.transparent >= 0 && index == static_cast<size_t>(f.transparent)) continue;
                unsigned char* px = &canvas[(static_cast<size_t>(sy) * w + sx) * 4];
                if (3 * index < map.size()) {
                    px[0] = map[3 * index + 2], px[1] = map[3 * index + 1], px[2] = map[3 * index];
                    px[3] = 255;
                } else if (f.transparent < 0) {
                    std::memset(px, 0, 4);
                }
            }
        }
        shown.push_back(canvas);
        for (int y = f.top; y < std::min(f.top + f.height, h); ++y) {
            for (int x = f.left; x < std::min(f.left + f.width, w); ++x) {
                const size_t at = (static_cast<size_t>(y) * w + x) * 4;
                if (f.disposal == DISPOSE_BACKGROUND) std::memset(&canvas[at], 0, 4);
                if (f.disposal == DISPOSE_PREVIOUS) std::memcpy(&canvas[at], &before[at], 4);
            }
        }
    }
    return shown;
}

TEST(qFrameComposerTest, EveryFrameOfEveryFileMatchesAStraightforwardPlayer) {
    std::vector<std::filesystem::path> files = qtest::corpus_files();
    files.push_back(std::filesystem::path(QIMG_GIF_CORPUS) /
                    "../../../examples/data/qimg-sample.gif");
    for (const auto& path : files) {
        SCOPED_TRACE(path.filename().string());
        const Bytes file = read_file(path);
        gif_test::Reference ref;
        ASSERT_TRUE(gif_test::slurp(file, &ref));
        int w = 0, h = 0;
        const std::vector<Bytes> expected = play(ref, &w, &h);
        ASSERT_FALSE(expected.empty());

        qMemoryR source(file.data(), static_cast<int>(file.size()));
        qImageProxy proxy;
        qGifReadOptions browser;  // giflib hands an image the last graphic control before it
        browser.browser_rules = true;
        ASSERT_EQ(proxy.read_gif(&source, nullptr, browser), 0);
        ASSERT_EQ(proxy.size(), qSize(w, h));
        qIAnimation* animation = proxy.animation();
        ASSERT_NE(animation, nullptr);
        ASSERT_EQ(animation->num_frames(), static_cast<int>(expected.size()));

        Bytes pixels(static_cast<size_t>(w) * h * 4);
        qImageEdit canvas;
        ASSERT_EQ(canvas.Bind(pixels.data(), qSize(w, h), w * 4, PT_BGRA32), 0);
        qFrameComposer composer;
        EXPECT_EQ(composer.begin(nullptr, &canvas), -5);
        ASSERT_EQ(composer.begin(animation, &canvas), 0);
        for (int i = 0; i < animation->num_frames(); ++i) {
            ASSERT_EQ(composer.compose_to(i, nullptr), 0) << "frame " << i;
            EXPECT_EQ(animation->current_frame(), i);
            const auto diff = std::mismatch(pixels.begin(), pixels.end(), expected[i].begin());
            if (diff.first != pixels.end()) {
                const size_t at = static_cast<size_t>(diff.first - pixels.begin()) / 4;
                ADD_FAILURE() << "frame " << i << ": first difference at pixel (" << at % w << ", "
                              << at / w << ")";
                break;
            }
        }
    }
}

}  // namespace
#endif
