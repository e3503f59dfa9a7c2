// Every file of the corpus (written by ImageMagick, Pillow, gifsicle and giflib, and real files
// listed in corpus/SOURCES.md) read by qimg with the browser rules and by giflib's DGifSlurp:
// screen, global map, every frame's indices, offset, size, delay, disposal and transparent index,
// the loop count and the comments must agree exactly.
#include "qimg/gif/qGifAnimation.h"

#include <gtest/gtest.h>

#ifdef QIMG_HAVE_GIFLIB
#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "common/TestKit.h"
#include "gif/GifTestKit.h"
#include "gif/GiflibReference.h"
#include "qimg/encode/qGifWriter.h"
#include "qimg/encode/qMemoryW.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"

namespace {

using gif_test::Reference;
using gif_test::ReferenceFrame;
using gif_test::slurp;
using qtest::Bytes;
using qtest::corpus_files;
using qtest::read_file;

const qGifReadOptions kBrowser{.browser_rules = true};

// What giflib reports, in the terms qimg uses.
// A map's colours as giflib lists them (red, green, blue), every entry opaque.
std::vector<unsigned char> rgb_of(const qIColormap* map) {
    std::vector<unsigned char> out;
    for (int i = 0; map && i < map->num_colors(); ++i) {
        const qPixRA c = map->get_color(i);
        EXPECT_EQ(c.alpha, 255);
        out.insert(out.end(), {c.red, c.green, c.blue});
    }
    return out;
}

TEST(qGifCorpusTest, EveryFrameMatchesGiflib) {
    const auto files = corpus_files();
    ASSERT_GE(files.size(), 30u) << "corpus missing in " << QIMG_GIF_CORPUS;
    int controls_compared = 0;
    for (const auto& path : files) {
        SCOPED_TRACE(path.filename().string());
        const Bytes bytes = read_file(path);
        Reference ref;
        ASSERT_TRUE(slurp(bytes, &ref));

        qGifAnimation animation;
        qMemoryR source(bytes.data(), bytes.size());
        ASSERT_EQ(animation.read(&source, nullptr, kBrowser), 0);
        EXPECT_EQ(animation.size(), qSize(ref.width, ref.height));
        EXPECT_EQ(animation.background(), ref.background);
        EXPECT_EQ(animation.loop_count(), ref.loop_count);
        ASSERT_EQ(animation.num_comments(), static_cast<int>(ref.comments.size()));
        for (int i = 0; i < animation.num_comments(); ++i) {
            const qObjArray<char>* c = animation.comment(i);
            EXPECT_EQ(std::string(c->data() ? c->data() : "", c->count()), ref.comments[i]);
        }
        EXPECT_EQ(rgb_of(animation.global_colormap()), ref.global_rgb);

        ASSERT_EQ(animation.num_frames(), static_cast<int>(ref.frames.size()));
        for (int f = 0; f < animation.num_frames(); ++f) {
            SCOPED_TRACE(testing::Message() << "frame " << f);
            const ReferenceFrame& want = ref.frames[f];
            const qGifFrame* frame = animation.frame(f);
            ASSERT_TRUE(frame->valid());
            EXPECT_EQ(frame->frame_rect(), qRect(want.left, want.top, want.width, want.height));
            EXPECT_EQ(frame->interlaced(), want.interlaced);
            EXPECT_EQ(rgb_of(frame->local_colormap()), want.local_rgb);
            ASSERT_EQ(frame->control() != nullptr, want.has_control);
            EXPECT_EQ(frame->frame_delay(), want.delay * 10);
            EXPECT_EQ(frame->frame_disposal(), want.disposal);
            if (frame->control() != nullptr) {
                EXPECT_EQ(frame->control()->transparent, want.transparent);
            }
            EXPECT_EQ(frame->image()->transparent_index(), want.transparent);
            Bytes indices;
            for (int y = 0; y < want.height; ++y) {
                const unsigned char* row = frame->image()->pixel_address(y, 0);
                indices.insert(indices.end(), row, row + want.width);
            }
            const auto diff = std::mismatch(indices.begin(), indices.end(), want.indices.begin());
            EXPECT_TRUE(diff.first == indices.end())
                << "index " << diff.first - indices.begin() << " differs from giflib's";
            if (want.has_control) ++controls_compared;
        }
    }
    EXPECT_GT(controls_compared, 30);
}

// Re-encoding: every corpus file read, written and read again gives the same animation: the same
// composed frames in qimg, and the same report from giflib (indices, rectangles, controls,
// tables, comments, loop count) for both files.
TEST(qGifCorpusTest, ReencodedFilesReadBackTheSame) {
    for (const auto& path : corpus_files()) {
        SCOPED_TRACE(path.filename().string());
        const Bytes bytes = read_file(path);
        qGifAnimation original;
        qMemoryR source(bytes.data(), bytes.size());
        ASSERT_EQ(original.read(&source, nullptr, kBrowser), 0);
        qMemoryW sink;
        ASSERT_EQ(qGifWriter().write(&original, &sink, nullptr), 0);
        const Bytes written(sink.data(), sink.data() + sink.size());
        qGifAnimation copy;
        qMemoryR again(written.data(), written.size());
        ASSERT_EQ(copy.read(&again, nullptr, kBrowser), 0);

        // giflib below compares the fields frame by frame; what it does not report:
        EXPECT_EQ(copy.size(), original.size());
        EXPECT_EQ(copy.background(), original.background());
        EXPECT_EQ(gif_test::composed_frames(copy), gif_test::composed_frames(original));

        Reference before, after;
        ASSERT_TRUE(slurp(bytes, &before));
        ASSERT_TRUE(slurp(written, &after));
        EXPECT_EQ(after.loop_count, before.loop_count);
        EXPECT_EQ(after.comments, before.comments);
        EXPECT_EQ(after.global_rgb, before.global_rgb);
        ASSERT_EQ(after.frames.size(), before.frames.size());
        for (size_t f = 0; f < after.frames.size(); ++f) {
            const ReferenceFrame& a = before.frames[f];
            const ReferenceFrame& b = after.frames[f];
            EXPECT_EQ(b.indices, a.indices) << "giflib, frame " << f;
            EXPECT_EQ(std::tie(b.left, b.top, b.width, b.height, b.delay, b.disposal, b.transparent,
                               b.interlaced, b.local_rgb),
                      std::tie(a.left, a.top, a.width, a.height, a.delay, a.disposal, a.transparent,
                               a.interlaced, a.local_rgb))
                << "giflib, frame " << f;
        }
    }
}

}  // namespace
#endif
