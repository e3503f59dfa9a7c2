// The stream reader on hand-made streams, each built block by block.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "GifTestKit.h"
#include "qimg/core/qMonitor.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"

namespace {

using gif_test::Bytes;
using gif_test::GifBuilder;

// A 4 x 2 image, indices 0..7 over a global table of 8 (code size 3).
const Bytes kPixels = {0, 1, 2, 3, 4, 5, 6, 7};

GifBuilder still() {
    return GifBuilder().header().screen(4, 2, 2).color_table(8);
}

int read(const Bytes& bytes, qGifAnimation* animation, qIMonitor* monitor = nullptr) {
    qMemoryR source(bytes.data(), bytes.size());
    return animation->read(&source, monitor);
}

// Answers true until its `stop_at`-th call; remembers what it heard.
class Monitor : public qIMonitor {
public:
    explicit Monitor(int stop_at = 0) : stop_at_(stop_at) {}
    bool progress(int done, int total, int, int) override {
        calls.push_back({done, total});
        return static_cast<int>(calls.size()) != stop_at_;
    }
    std::vector<std::pair<int, int>> calls;

private:
    int stop_at_;
};

struct StreamCase {
    const char* name;
    Bytes bytes;
    int status;
    int frames;
};

TEST(qGifReaderTest, StatusAndFramesTable) {
    const Bytes good_image = GifBuilder().descriptor(0, 0, 4, 2).pixels(3, kPixels).bytes();
    // clear, 1, then 11, one above the next free entry (10 is made while reading it), and a
    // literal whose reading makes the decoder write 11.
    gif_test::BitWriter codes;
    for (unsigned c : {8u, 1u, 11u, 2u, 9u}) codes.put(c, 4);
    Bytes bad_code_data = codes.take();
    bad_code_data.push_back(0);
    // Builder chains in table cells are laid out by hand.
    // clang-format off
    const StreamCase cases[] = {
        {"GIF89a", still().raw(good_image).trailer().bytes(), 0, 1},
        {"GIF87a", GifBuilder().header("GIF87a").screen(4, 2, 2).color_table(8).raw(good_image)
                       .trailer().bytes(), 0, 1},
        {"lower case signature", GifBuilder().header("gif89a").screen(4, 2).trailer().bytes(),
         -8, 0},
        {"version 88a", GifBuilder().header("GIF88a").screen(4, 2).trailer().bytes(), -8, 0},
        {"five bytes", {'G', 'I', 'F', '8', '9'}, -3, 0},
        {"screen cut short", GifBuilder().header().raw({4, 0, 2}).bytes(), -3, 0},
        {"global table cut short", GifBuilder().header().screen(4, 2, 2).color_table(7).bytes(),
         -3, 0},
        {"no trailer", still().raw(good_image).raw(good_image).bytes(), -3, 2},
        {"stray byte between blocks", still().raw({0x00, 0x99}).raw(good_image).trailer().bytes(),
         0, 1},
        {"unknown extension label skipped",
         still().raw({0x21, 0xF8, 2, 1, 2, 0}).raw(good_image).trailer().bytes(), 0, 1},
        {"plain text skipped",
         still().raw({0x21, 0x01, 3, 1, 2, 3, 1, 9, 0}).raw(good_image).trailer().bytes(), 0, 1},
        {"extension cut in a sub-block", still().raw({0x21, 0xF8, 5, 1}).bytes(), -3, 0},
        {"extension without label", still().raw({0x21}).bytes(), -3, 0},
        {"control block size 5", still().raw({0x21, 0xF9, 5, 0, 0, 0, 0, 0}).bytes(), -8, 0},
        {"control terminator", still().raw({0x21, 0xF9, 4, 0, 0, 0, 0, 7}).bytes(), -8, 0},
        {"application id block size 10",
         still().raw({0x21, 0xFF, 10, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 0}).bytes(), -8, 0},
        {"image without any colour map",
         GifBuilder().header().screen(4, 2).raw(good_image).trailer().bytes(), -5, 0},
        {"image with a local table and no global one",
         GifBuilder().header().screen(4, 2).descriptor(0, 0, 4, 2, 2).color_table(8)
             .pixels(3, kPixels).trailer().bytes(), 0, 1},
        {"zero width", still().descriptor(0, 0, 0, 2).pixels(3, kPixels).trailer().bytes(), -6, 0},
        {"nothing decoded", still().descriptor(0, 0, 4, 2).image_data(3, {}).trailer().bytes(),
         -9, 0},
        {"code size 12 refused",
         still().descriptor(0, 0, 4, 2).image_data(12, {0xFF, 0xFF, 0xFF}).trailer().bytes(), -9,
         0},
        {"code size byte missing", still().descriptor(0, 0, 4, 2).bytes(), -3, 0},
        {"descriptor cut short", still().raw({0x2C, 0, 0, 4}).bytes(), -3, 0},
        {"local table cut short", still().descriptor(0, 0, 4, 2, 1).color_table(3).bytes(), -3, 0},
        {"bad code in the third image",
         still().raw(good_image).raw(good_image).descriptor(0, 0, 4, 2)
             .image_data(3, bad_code_data)
             .raw(good_image).trailer().bytes(),
         -9, 2},
    };
    // clang-format on
    for (const StreamCase& c : cases) {
        SCOPED_TRACE(c.name);
        qGifAnimation animation;
        EXPECT_EQ(read(c.bytes, &animation), c.status);
        EXPECT_EQ(animation.num_frames(), c.frames);
    }
}

TEST(qGifReaderTest, ImageContentsAndScreen) {
    const Bytes bytes = GifBuilder()
                            .header()
                            .screen(30, 20, 2, 5)
                            .color_table(8)
                            .descriptor(3, 4, 4, 2)
                            .pixels(3, kPixels)
                            .trailer()
                            .bytes();
    qGifAnimation animation;
    ASSERT_EQ(read(bytes, &animation), 0);
    EXPECT_EQ(animation.size(), qSize(30, 20));
    EXPECT_EQ(animation.background(), 5);
    ASSERT_NE(animation.global_colormap(), nullptr);
    EXPECT_EQ(animation.global_colormap()->num_colors(), 8);
    EXPECT_EQ(animation.global_colormap()->get_color(7), (qPixRA{21, 14, 7, 255}));
    const qGifFrame* frame = animation.frame(0);
    EXPECT_EQ(frame->frame_rect(), qRect(3, 4, 4, 2));
    EXPECT_EQ(frame->colormap(), animation.global_colormap());
    for (int i = 0; i < 8; ++i) EXPECT_EQ(frame->pixel_index(qPoint(3 + i % 4, 4 + i / 4)), i);
    EXPECT_EQ(frame->control(), nullptr);
    EXPECT_EQ(animation.loop_count(), 1);
}

TEST(qGifReaderTest, GraphicControlAppliesOnlyToTheNextImage) {
    const Bytes image = GifBuilder().descriptor(0, 0, 4, 2).pixels(3, kPixels).bytes();
    struct Case {
        const char* name;
        Bytes bytes;
        int delay;  // of frame 0 in milliseconds; -1: no control
        int transparent;
    };
    // Builder chains in table cells are laid out by hand.
    // clang-format off
    const Case cases[] = {
        {"directly before", still().control(2, 7, 3).raw(image).trailer().bytes(), 70, 3},
        {"comment between", still().control(2, 7, 3).comment("x").raw(image).trailer().bytes(),
         -1, -1},
        {"application between", still().control(2, 7, 3).looping(0).raw(image).trailer().bytes(),
         -1, -1},
        {"stray byte between", still().control(2, 7, 3).raw({0x42}).raw(image).trailer().bytes(),
         -1, -1},
        {"second control wins",
         still().control(1, 5, 1).control(3, 9, -1).raw(image).trailer().bytes(), 90, -1},
        {"transparent index outside the map",
         still().control(0, 1, 200).raw(image).trailer().bytes(), 10, 200},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qGifAnimation animation;
        ASSERT_EQ(read(c.bytes, &animation), 0);
        const qGifFrame* frame = animation.frame(0);
        if (c.delay < 0) {
            EXPECT_EQ(frame->control(), nullptr);
            EXPECT_EQ(frame->frame_delay(), 0);
            EXPECT_EQ(frame->image()->transparent_index(), -1);
        } else {
            ASSERT_NE(frame->control(), nullptr);
            EXPECT_EQ(frame->frame_delay(), c.delay);
            EXPECT_EQ(frame->control()->transparent, c.transparent);
            // The image takes the index only when it is inside its colour map.
            EXPECT_EQ(frame->image()->transparent_index(), c.transparent < 8 ? c.transparent : -1);
        }
    }
    // The record is used up by its image: the second image gets none.
    qGifAnimation animation;
    ASSERT_EQ(read(still().control(2, 7, 3).raw(image).raw(image).trailer().bytes(), &animation),
              0);
    EXPECT_NE(animation.frame(0)->control(), nullptr);
    EXPECT_EQ(animation.frame(1)->control(), nullptr);
}

TEST(qGifReaderTest, LoopCountAndComments) {
    const Bytes image = GifBuilder().descriptor(0, 0, 4, 2).pixels(3, kPixels).bytes();
    struct Case {
        const char* name;
        Bytes bytes;
        int loop_count;
    };
    // Builder chains in table cells are laid out by hand.
    // clang-format off
    const Case cases[] = {
        {"count 0 loops for ever", still().looping(0).raw(image).trailer().bytes(), -1},
        {"count 5 plays 6 times", still().looping(5).raw(image).trailer().bytes(), 6},
        {"count 65535", still().looping(65535).raw(image).trailer().bytes(), 65536},
        {"other identifier", still().application("ANIMEXTS1.0", {1, 5, 0}).raw(image).trailer()
                                 .bytes(), 1},
        {"no data sub-blocks", still().application("NETSCAPE2.0", {}).raw(image).trailer()
                                   .bytes(), 1},
        {"sub-block of 4 bytes", still().application("NETSCAPE2.0", {1, 5, 0, 0}).raw(image)
                                     .trailer().bytes(), 1},
        {"sub-block id 2", still().application("NETSCAPE2.0", {2, 5, 0}).raw(image).trailer()
                               .bytes(), 1},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qGifAnimation animation;
        ASSERT_EQ(read(c.bytes, &animation), 0);
        EXPECT_EQ(animation.loop_count(), c.loop_count);
        EXPECT_EQ(animation.num_frames(), 1);
    }

    const std::string forty(40, 'c');
    qGifAnimation animation;
    ASSERT_EQ(
        read(still().comment(forty, 20).comment("").comment("second").raw(image).trailer().bytes(),
             &animation),
        0);
    ASSERT_EQ(animation.num_comments(), 3);
    EXPECT_EQ(std::string(animation.comment(0)->data(), 40), forty);
    EXPECT_EQ(animation.comment(0)->capacity(), 48);
    EXPECT_EQ(animation.comment(1)->count(), 0);
    EXPECT_EQ(std::string(animation.comment(2)->data()), "second");  // zero after the bytes
}

TEST(qGifReaderTest, LongCommentReadsWhole) {
    // 16 MiB of comment in 255-byte sub-blocks; appended byte by byte, it must stay linear.
    std::string text(16 << 20, 'a');
    for (size_t i = 0; i < text.size(); i += 997) text[i] = static_cast<char>('a' + i % 26);
    qGifAnimation animation;
    ASSERT_EQ(read(still().comment(text).trailer().bytes(), &animation), 0);
    ASSERT_EQ(animation.num_comments(), 1);
    const qObjArray<char>* c = animation.comment(0);
    ASSERT_EQ(c->count(), 16 << 20);
    EXPECT_EQ(c->capacity(), 16 << 20);
    EXPECT_EQ(std::string(c->data(), c->count()), text);
}

TEST(qGifReaderTest, TrailerEndsReading) {
    Bytes bytes = still().descriptor(0, 0, 4, 2).pixels(3, kPixels).trailer().bytes();
    const size_t trailer_end = bytes.size();
    bytes.insert(bytes.end(), {0x2C, 1, 2, 3});  // garbage after the trailer
    qMemoryR source(bytes.data(), bytes.size());
    qGifAnimation animation;
    EXPECT_EQ(animation.read(&source, nullptr), 0);
    EXPECT_EQ(source.seek(0, 1), static_cast<int>(trailer_end));
}

// Every prefix of a two-frame file: -3 until the trailer, with the frames whose data were
// complete; the screen, global map and comment stay once read.
TEST(qGifReaderTest, EveryTruncationKeepsCompleteFrames) {
    GifBuilder b = still();
    const size_t after_table = b.size();
    b.comment("hello").looping(2);
    b.control(1, 3, 2).descriptor(0, 0, 4, 2).pixels(3, kPixels, 4);
    const size_t after_first = b.size();
    b.descriptor(1, 0, 3, 2, 0).color_table(2).pixels(2, {1, 0, 1, 1, 0, 1}, 1);
    const size_t after_second = b.size();
    b.trailer();
    const Bytes full = b.bytes();
    for (size_t n = 0; n <= full.size(); ++n) {
        SCOPED_TRACE(testing::Message() << "prefix " << n);
        const Bytes prefix(full.begin(), full.begin() + static_cast<long>(n));
        qGifAnimation animation;
        const int rc = read(prefix, &animation);
        EXPECT_EQ(rc, n == full.size() ? 0 : -3);
        const int frames = n >= after_second ? 2 : n >= after_first ? 1 : 0;
        EXPECT_EQ(animation.num_frames(), frames);
        EXPECT_EQ(animation.global_colormap() != nullptr, n >= after_table);
        for (int f = 0; f < frames; ++f) EXPECT_TRUE(animation.frame(f)->valid());
        if (frames >= 1) {
            EXPECT_EQ(animation.loop_count(), 3);
            EXPECT_EQ(animation.num_comments(), 1);
            EXPECT_EQ(animation.frame(0)->frame_delay(), 30);
        }
    }
}

TEST(qGifReaderTest, ProgressAfterEachSubBlockAndCancel) {
    // Two images; the second's data come in 3 sub-blocks, followed by a stray sub-block after
    // the end code, which is read past without a progress call.
    const Bytes many(64, 3);
    Bytes codes = gif_test::lzw_encode(many, 3);
    GifBuilder b = still().descriptor(0, 0, 4, 2).pixels(3, kPixels);
    const int first_end = static_cast<int>(b.size()) - 1;  // after its only sub-block
    b.descriptor(0, 0, 8, 8).raw({3});
    int position = static_cast<int>(b.size());
    std::vector<int> ends;
    const size_t piece = (codes.size() + 2) / 3;
    for (size_t at = 0; at < codes.size(); at += piece) {
        const size_t n = std::min(piece, codes.size() - at);
        Bytes block = {static_cast<unsigned char>(n)};
        block.insert(block.end(), codes.begin() + static_cast<long>(at),
                     codes.begin() + static_cast<long>(at + n));
        b.raw(block);
        position += static_cast<int>(block.size());
        ends.push_back(position);
    }
    // One zero byte that completes the end code's byte... then a sub-block after the end.
    b.raw({1, 0, 2, 0xAA, 0xBB, 0});
    ends.push_back(position + 2);
    b.trailer();
    const Bytes bytes = b.bytes();

    Monitor monitor;
    qGifAnimation animation;
    ASSERT_EQ(read(bytes, &animation, &monitor), 0);
    ASSERT_EQ(animation.num_frames(), 2);
    for (int i = 0; i < 64; ++i)
        EXPECT_EQ(animation.frame(1)->image()->pixel_index({i % 8, i / 8}), 3);
    std::vector<std::pair<int, int>> expected = {
        {first_end, static_cast<int>(bytes.size())}
    };
    for (int end : ends) expected.push_back({end, static_cast<int>(bytes.size())});
    EXPECT_EQ(monitor.calls, expected);

    // Stopped during the second image: 1, with the first frame kept.
    Monitor stop(2);
    qGifAnimation stopped;
    EXPECT_EQ(read(bytes, &stopped, &stop), 1);
    EXPECT_EQ(stopped.num_frames(), 1);
}

struct InterlaceCase {
    int height;
    std::vector<int> stored_rows;  // the display row of each stored row
};

TEST(qGifReaderTest, InterlacedRowsAndShortData) {
    // Builder chains in table cells are laid out by hand.
    // clang-format off
    const InterlaceCase cases[] = {
        {1, {0}},
        {2, {0, 1}},
        {5, {0, 4, 2, 1, 3}},
        {9, {0, 8, 4, 2, 6, 1, 3, 5, 7}},
    };
    // clang-format on
    for (const InterlaceCase& c : cases) {
        SCOPED_TRACE(c.height);
        // Stored row k holds the value k + 1 in all of its 3 pixels.
        Bytes indices;
        for (int k = 0; k < c.height; ++k) indices.insert(indices.end(), 3, k + 1);
        qGifAnimation animation;
        ASSERT_EQ(read(GifBuilder()
                           .header()
                           .screen(3, c.height, 3)
                           .color_table(16)
                           .descriptor(0, 0, 3, c.height, -1, true)
                           .pixels(4, indices)
                           .trailer()
                           .bytes(),
                       &animation),
                  0);
        const qGifFrame* frame = animation.frame(0);
        EXPECT_TRUE(frame->interlaced());
        for (int k = 0; k < c.height; ++k) {
            EXPECT_EQ(frame->pixel_index(qPoint(2, c.stored_rows[k])), k + 1) << "stored " << k;
        }
    }
    // Data for 5 of 12 pixels: the rest are 0, in both layouts.
    for (bool interlaced : {false, true}) {
        SCOPED_TRACE(interlaced);
        qGifAnimation animation;
        ASSERT_EQ(read(still()
                           .descriptor(0, 0, 4, 3, -1, interlaced)
                           .pixels(3, {7, 7, 7, 7, 7})
                           .trailer()
                           .bytes(),
                       &animation),
                  0);
        const qGifFrame* frame = animation.frame(0);
        // Stored rows: 0 then (interlaced) 2, 1. Row 0 is all 7; stored row 1 starts with 7.
        const int second_row = interlaced ? 2 : 1;
        for (int x = 0; x < 4; ++x) EXPECT_EQ(frame->pixel_index({x, 0}), 7);
        EXPECT_EQ(frame->pixel_index({0, second_row}), 7);
        EXPECT_EQ(frame->pixel_index({1, second_row}), 0);
        EXPECT_EQ(frame->pixel_index({0, 3 - second_row}), 0);
    }
}

// Rows of every width against a plain model: the stored indices in row order, 0 where the data
// stop short, the excess ignored. Widths that are not multiples of 4 have padded rows.
TEST(qGifReaderTest, RowsOfEveryWidthAndDataLength) {
    for (int width = 1; width <= 9; ++width) {
        for (int height : {1, 3}) {
            const int pixels = width * height;
            for (int data : {pixels - 1, pixels, pixels + 5, pixels + 3000}) {
                if (data <= 0) continue;
                for (bool interlaced : {false, true}) {
                    SCOPED_TRACE(testing::Message() << width << "x" << height << " data " << data
                                                    << " interlaced " << interlaced);
                    Bytes indices(static_cast<size_t>(data));
                    for (int i = 0; i < data; ++i)
                        indices[i] = static_cast<unsigned char>(1 + i % 7);
                    qGifAnimation animation;
                    ASSERT_EQ(read(still()
                                       .descriptor(0, 0, width, height, -1, interlaced)
                                       .pixels(3, indices)
                                       .trailer()
                                       .bytes(),
                                   &animation),
                              0);
                    const qGifFrame* frame = animation.frame(0);
                    std::vector<int> order;  // display row of each stored row
                    if (interlaced) {
                        for (int start_step : {0x08, 0x48, 0x24, 0x12}) {
                            for (int r = start_step >> 4; r < height; r += start_step & 15) {
                                order.push_back(r);
                            }
                        }
                    } else {
                        for (int r = 0; r < height; ++r) order.push_back(r);
                    }
                    for (int k = 0; k < height; ++k) {
                        for (int x = 0; x < width; ++x) {
                            const int i = k * width + x;
                            EXPECT_EQ(frame->pixel_index({x, order[k]}), i < data ? 1 + i % 7 : 0);
                        }
                    }
                }
            }
        }
    }
}

TEST(qGifReaderTest, HugeImageIsRefusedBeforeAllocating) {
    // 65535 x 65535: about 4 GiB, refused as the index image would refuse it.
    qGifAnimation animation;
    EXPECT_EQ(read(still().descriptor(0, 0, 65535, 65535).pixels(3, kPixels).trailer().bytes(),
                   &animation),
              -6);
    // A large but acceptable size decodes what the data hold and zero-fills the rest.
    qGifAnimation large;
    ASSERT_EQ(
        read(still().descriptor(0, 0, 4000, 3000).pixels(3, kPixels).trailer().bytes(), &large), 0);
    EXPECT_EQ(large.frame(0)->pixel_index({7, 0}), 7);
    EXPECT_EQ(large.frame(0)->pixel_index({3999, 2999}), 0);
}

}  // namespace
