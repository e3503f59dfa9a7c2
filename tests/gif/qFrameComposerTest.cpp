// The frame composer against a player written here from giflib's decoding: for every file of
// the corpus and the demo's sample, every composed frame must equal, pixel for pixel, what the
// straightforward player below shows (disposal 2 clears to transparent, 3 restores what was
// there, frames are clipped to the screen).
#include <gtest/gtest.h>

#include "qimg/image/qFrameComposer.h"

#ifdef QIMG_HAVE_GIFLIB
#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <vector>

#include "GifTestKit.h"
#include "common/TestKit.h"
#include "qimg/core/qImageProxy.h"
#include "qimg/core/qMonitor.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/raster/qImageEdit.h"

namespace {

using gif_test::MemoryInput;
using gif_test::read_memory;
using qtest::Bytes;
using qtest::read_file;

// A graphic control counts for an image only when it is the last extension before it.
GraphicsControlBlock control_of(const SavedImage& image) {
    GraphicsControlBlock gcb{DISPOSAL_UNSPECIFIED, false, 0, NO_TRANSPARENT_COLOR};
    const int n = image.ExtensionBlockCount;
    if (n > 0 && image.ExtensionBlocks[n - 1].Function == GRAPHICS_EXT_FUNC_CODE) {
        const ExtensionBlock& b = image.ExtensionBlocks[n - 1];
        DGifExtensionToGCB(static_cast<size_t>(b.ByteCount), b.Bytes, &gcb);
    }
    return gcb;
}

// Every frame as the straightforward player shows it, BGRA rows of the screen width.
std::vector<Bytes> play_with_giflib(const Bytes& file, int* width, int* height) {
    MemoryInput in{&file, 0};
    int error = 0;
    GifFileType* gif = DGifOpen(&in, read_memory, &error);
    std::vector<Bytes> shown;
    if (!gif) return shown;
    if (DGifSlurp(gif) != GIF_OK && gif->ImageCount == 0) {
        DGifCloseFile(gif, &error);
        return shown;
    }
    int w = gif->SWidth, h = gif->SHeight;
    if (w <= 0 || h <= 0) {  // an empty screen takes the first image's size
        w = gif->SavedImages[0].ImageDesc.Width;
        h = gif->SavedImages[0].ImageDesc.Height;
    }
    *width = w;
    *height = h;
    Bytes canvas(static_cast<size_t>(w) * h * 4, 0);
    for (int i = 0; i < gif->ImageCount; ++i) {
        const SavedImage& image = gif->SavedImages[i];
        const GifImageDesc& d = image.ImageDesc;
        const ColorMapObject* map = d.ColorMap ? d.ColorMap : gif->SColorMap;
        const GraphicsControlBlock gcb = control_of(image);
        const Bytes before = canvas;
        const bool has_transparent = gcb.TransparentColor >= 0;
        // Without a transparent index the frame is copied; palette entries past the table read
        // as zero bytes, copied like any other colour.
        for (int y = 0; y < d.Height; ++y) {
            for (int x = 0; x < d.Width; ++x) {
                const int sx = d.Left + x, sy = d.Top + y;
                if (sx >= w || sy >= h) continue;
                const int index = image.RasterBits[static_cast<size_t>(y) * d.Width + x];
                if (has_transparent && index == gcb.TransparentColor) continue;
                unsigned char* px = &canvas[(static_cast<size_t>(sy) * w + sx) * 4];
                if (map && index < map->ColorCount) {
                    const GifColorType c = map->Colors[index];
                    px[0] = c.Blue, px[1] = c.Green, px[2] = c.Red, px[3] = 255;
                } else if (!has_transparent) {
                    std::memset(px, 0, 4);
                }
            }
        }
        shown.push_back(canvas);
        for (int y = d.Top; y < std::min(d.Top + d.Height, h); ++y) {
            for (int x = d.Left; x < std::min(d.Left + d.Width, w); ++x) {
                const size_t at = (static_cast<size_t>(y) * w + x) * 4;
                if (gcb.DisposalMode == DISPOSE_BACKGROUND) std::memset(&canvas[at], 0, 4);
                if (gcb.DisposalMode == DISPOSE_PREVIOUS) std::memcpy(&canvas[at], &before[at], 4);
            }
        }
    }
    DGifCloseFile(gif, &error);
    return shown;
}

std::vector<std::filesystem::path> test_files() {
    std::vector<std::filesystem::path> files = qtest::corpus_files();
    files.push_back(std::filesystem::path(QIMG_GIF_CORPUS) /
                    "../../../examples/data/qimg-sample.gif");
    return files;
}

TEST(qFrameComposerTest, EveryFrameOfEveryFileMatchesAStraightforwardPlayer) {
    for (const auto& path : test_files()) {
        SCOPED_TRACE(path.filename().string());
        const Bytes file = read_file(path);
        int w = 0, h = 0;
        const std::vector<Bytes> expected = play_with_giflib(file, &w, &h);
        ASSERT_FALSE(expected.empty());

        qMemoryR source(file.data(), static_cast<int>(file.size()));
        qImageProxy proxy;
        ASSERT_EQ(proxy.read_gif(&source, nullptr), 0);
        ASSERT_EQ(proxy.size(), qSize(w, h));
        qIAnimation* animation = proxy.animation();
        ASSERT_NE(animation, nullptr);
        ASSERT_EQ(animation->num_frames(), static_cast<int>(expected.size()));

        Bytes pixels(static_cast<size_t>(w) * h * 4);
        qImageEdit canvas;
        ASSERT_EQ(canvas.Bind(pixels.data(), qSize(w, h), w * 4, PT_BGRA32), 0);
        qFrameComposer composer;
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
