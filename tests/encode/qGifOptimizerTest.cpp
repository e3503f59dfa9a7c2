#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "common/TestKit.h"
#include "gif/GifTestKit.h"
#include "qimg/encode/qGifEncoder.h"
#include "qimg/encode/qGifOptimizer.h"
#include "qimg/encode/qMemoryW.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/image/qDirectImage.h"

namespace {

using qtest::Bytes;

struct Written {
    qMemoryW sink;
    qGifAnimation animation;
    int read() {
        qMemoryR source(sink.data(), static_cast<size_t>(sink.size()));
        return animation.read(&source, nullptr);
    }
};

std::vector<int> delays_of(const qGifAnimation& animation) {
    std::vector<int> out;
    for (int f = 0; animation.frame(f); ++f) out.push_back(animation.frame(f)->frame_delay());
    return out;
}

// `frames` written plain and optimised with `options`, both read back: they show the same.
void write_plain_and_optimized(const qIImageBuffer* const* frames, const int* delays, int count,
                               qGifEncodeOptions options, Written& plain, Written& optimized) {
    options.optimize = false;
    ASSERT_EQ(qGifEncoder::encode_frames(frames, delays, count, options, &plain.sink, nullptr), 0);
    options.optimize = true;
    ASSERT_EQ(qGifEncoder::encode_frames(frames, delays, count, options, &optimized.sink, nullptr),
              0);
    ASSERT_EQ(plain.read(), 0);
    ASSERT_EQ(optimized.read(), 0);
    EXPECT_EQ(gif_test::composed_frames(optimized.animation),
              gif_test::composed_frames(plain.animation));
}

// Every animated file of the corpus re-cut: the same screens, delays and loop count; and the
// smaller choice is never larger than the frames written as read.
TEST(qGifOptimizerTest, CorpusAnimationsShowTheSameScreens) {
    int recut_files = 0;
    for (const auto& path : qtest::corpus_files()) {
        const Bytes bytes = qtest::read_file(path);
        qGifAnimation original;
        qMemoryR source(bytes.data(), bytes.size());
        ASSERT_EQ(original.read(&source, nullptr), 0);
        if (original.num_frames() < 2) continue;
        SCOPED_TRACE(path.filename().string());
        Written plain, optimized, smaller;
        ASSERT_EQ(qGifEncoder::reencode(&original, RS_AS_READ, -1, 0, &plain.sink, nullptr), 0);
        ASSERT_EQ(qGifEncoder::reencode(&original, RS_SMALLER, -1, 0, &smaller.sink, nullptr), 0);
        EXPECT_LE(smaller.sink.size(), plain.sink.size());
        const int rc = qGifEncoder::reencode(&original, RS_RECUT, -1, 0, &optimized.sink, nullptr);
        if (rc == -6) continue;  // more colours than one table holds
        ASSERT_EQ(rc, 0);
        ++recut_files;
        ASSERT_EQ(optimized.read(), 0);
        ASSERT_EQ(plain.read(), 0);
        EXPECT_EQ(gif_test::composed_frames(optimized.animation),
                  gif_test::composed_frames(original));
        EXPECT_EQ(delays_of(optimized.animation), delays_of(original));
        EXPECT_EQ(optimized.animation.loop_count(), original.loop_count());
    }
    EXPECT_GE(recut_files, 8);
}

// A sprite moving over a gradient and a hole that opens and closes: the optimised file shows
// what the plain one shows, frame for frame, and is smaller.
TEST(qGifOptimizerTest, TrueColourFramesOptimisedShowWhatThePlainFileShows) {
    constexpr int kFrames = 6;
    const qSize screen(48, 40);
    std::vector<qDirectImage> pictures(kFrames);
    const qIImageBuffer* frames[kFrames];
    int delays[kFrames];
    for (int f = 0; f < kFrames; ++f) {
        ASSERT_EQ(pictures[f].Create_buffer(screen, PT_BGRA32, nullptr), 0);
        for (int y = 0; y < screen.height; ++y) {
            for (int x = 0; x < screen.width; ++x) {
                const bool sprite = x >= 4 * f && x < 4 * f + 10 && y >= 10 && y < 20;
                const bool hole = f == 1 && x >= 30 && y >= 30;  // transparent, then back
                const qPixRA c = sprite ? qtest::rgba(250, 20, 20)
                                 : hole ? qtest::rgba(0, 0, 0, 0)
                                        : qtest::rgba(x * 5, y * 6, 90);
                std::memcpy(pictures[f].pixel_address(y, x), &c, 4);
            }
        }
        frames[f] = &pictures[f];
        delays[f] = 5 + f;
    }
    for (bool dither : {false, true}) {
        SCOPED_TRACE(dither);
        qGifEncodeOptions options;
        options.colors = 64;
        options.dither = dither;
        Written plain, optimized;
        write_plain_and_optimized(frames, delays, kFrames, options, plain, optimized);
        qtest::StopAtRow stop(3);
        qMemoryW stopped;
        EXPECT_EQ(qGifEncoder::encode_frames(frames, delays, kFrames, options, &stopped, &stop), 1);
        ASSERT_EQ(optimized.animation.num_frames(), kFrames);
        EXPECT_EQ(delays_of(optimized.animation), delays_of(plain.animation));
        EXPECT_EQ(optimized.animation.loop_count(), -1);
        EXPECT_LT(optimized.sink.size(), plain.sink.size() * 3 / 4);
        // The frame before the hole opens must restore its area; without dithering noise the
        // later ones are cut down to the sprite's old and new place.
        EXPECT_EQ(optimized.animation.frame(0)->frame_disposal(), 2);
        EXPECT_EQ(optimized.animation.frame(1)->frame_disposal(), 1);
        if (!dither) {
            EXPECT_EQ(optimized.animation.frame(3)->frame_rect(), qRect(8, 10, 14, 10));
            // The global table starts with the colours the small frames need: 3-bit indices.
            const qIImageBuffer* sprite = optimized.animation.frame(4)->image();
            for (int y = 0; y < sprite->size().height; ++y) {
                const unsigned char* row = sprite->pixel_address(y, 0);
                EXPECT_LT(*std::max_element(row, row + sprite->size().width), 8);
            }
        }
    }
}

// Frames of 4 x 4 blocks of 8 x 8 pixels; frame 2 changes blocks to colours a, b and e only, b
// the rarest colour of all: the shared table must give those three entries 1-3 (2-bit codes).
TEST(qGifOptimizerTest, PaletteOrderKeepsASmallFrameInTwoBitCodes) {
    const char* blocks[] = {"aaaaaaaaaaaabcde", "cdecaaaaaaaaacde", "abeeaaaaaaaaacde"};
    const qPixRA colours[] = {qtest::rgba(200, 0, 0), qtest::rgba(0, 200, 0), qtest::rgba(0, 0, 9),
                              qtest::rgba(9, 9, 0), qtest::rgba(0, 9, 9)};
    qDirectImage pictures[3];
    const qIImageBuffer* frames[3];
    for (int f = 0; f < 3; ++f) {
        ASSERT_EQ(pictures[f].Create_buffer(qSize(32, 32), PT_BGRA32, nullptr), 0);
        for (int i = 0; i < 32 * 32; ++i) {
            const char block = blocks[f][i / 256 * 4 + i % 32 / 8];
            std::memcpy(pictures[f].pixel_address(i / 32, i % 32), &colours[block - 'a'], 4);
        }
        frames[f] = &pictures[f];
    }
    qGifEncodeOptions options;
    options.colors = 8;
    Written plain, optimized;
    write_plain_and_optimized(frames, nullptr, 3, options, plain, optimized);
    const qIImageBuffer* small = optimized.animation.frame(2)->image();
    ASSERT_EQ(small->size(), qSize(32, 8));
    for (int i = 0; i < 32 * 8; ++i) EXPECT_LT(small->pixel_address(i / 32, i % 32)[0], 4);
}

// Two frames whose colours have nothing in common, on 16 colours: their own tables serve them
// better than one shared palette, and auto mode finds that out; in every mode the optimised
// file shows what the plain one shows (a transparent pixel gives both the same palettes).
TEST(qGifOptimizerTest, OwnTablesServeFramesOfDifferentColoursBetter) {
    qDirectImage pictures[2];
    const qIImageBuffer* frames[] = {&pictures[0], &pictures[1]};
    Bytes source;
    for (int f = 0; f < 2; ++f) {
        ASSERT_EQ(pictures[f].Create_buffer(qSize(32, 8), PT_BGRA32, nullptr), 0);
        for (int y = 0; y < 8; ++y) {
            for (int x = 0; x < 32; ++x) {
                const qPixRA c = x + y == 0 ? qtest::rgba(0, 0, 0, 0)
                                 : f == 0   ? qtest::rgba(8 * x, 0, 0)
                                            : qtest::rgba(0, 0, 8 * x);
                std::memcpy(pictures[f].pixel_address(y, x), &c, 4);
                source.insert(source.end(), {c.blue, c.green, c.red, c.alpha});
            }
        }
    }
    int64_t error[3] = {};
    for (int mode : {PM_SHARED, PM_LOCAL, PM_AUTO}) {
        SCOPED_TRACE(mode);
        qGifEncodeOptions options;
        options.colors = 16;
        options.palettes = mode;
        Written plain, optimized;
        write_plain_and_optimized(frames, nullptr, 2, options, plain, optimized);
        const Bytes shown = gif_test::composed_frames(optimized.animation);
        EXPECT_EQ(optimized.animation.frame(1)->local_colormap() != nullptr, mode != PM_SHARED);
        for (size_t i = 0; i < shown.size(); ++i) {
            error[mode] += (shown[i] - source[i]) * (shown[i] - source[i]);
        }
    }
    EXPECT_LT(error[PM_LOCAL] * 2, error[PM_SHARED]);
    EXPECT_EQ(error[PM_AUTO], error[PM_LOCAL]);
}

TEST(qGifOptimizerTest, RefusesBadFrames) {
    qDirectImage a, b;
    ASSERT_EQ(a.Create_buffer(qSize(4, 4), PT_BGRA32, nullptr), 0);
    ASSERT_EQ(b.Create_buffer(qSize(4, 5), PT_BGRA32, nullptr), 0);
    const qIImageBuffer* frames[] = {&a, &b};
    const int delays[] = {1, 65536};
    qMemoryW sink;
    qGifEncodeOptions options;
    EXPECT_EQ(qGifEncoder::encode_frames(frames, nullptr, 2, options, &sink, nullptr), -5);
    frames[1] = &a;
    EXPECT_EQ(qGifEncoder::encode_frames(frames, delays, 2, options, &sink, nullptr), -5);
    options.colors = 1;
    EXPECT_EQ(qGifEncoder::encode_frames(frames, nullptr, 2, options, &sink, nullptr), -5);
    options.colors = 256;
    options.palettes = 3;
    EXPECT_EQ(qGifEncoder::encode_frames(frames, nullptr, 2, options, &sink, nullptr), -5);
    EXPECT_EQ(qGifEncoder::reencode(nullptr, RS_RECUT, -1, 0, &sink, nullptr), -5);
}

}  // namespace
