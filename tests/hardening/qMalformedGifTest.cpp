// Malformed and hostile GIF streams through the facade (read_gif from memory): each gives its
// documented result, whatever is read is drawn into exactly sized canvases (so AddressSanitizer
// sees any write outside them), and the memory a stream costs stays bounded by its size and its
// declared dimensions. Streams are built here from labelled parts; the interesting ones are also
// seeds of the GIF fuzz target (fuzz/corpus/gif/malformed-*).
#include "qimg/facade/qImageProxy.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gif/GifTestKit.h"
#include "hardening/HardeningKit.h"
#include "qimg/core/qAllocationHookPriv.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifFrame.h"

namespace {

using gif_test::BitWriter;
using gif_test::GifBuilder;
using gif_test::lzw_encode;
using hardening::Bytes;
using hardening::Canvas;
using hardening::read_bytes;

const Bytes kPixels = {1, 2, 3, 4, 5, 6, 7, 0};  // a 4 x 2 image, code size 3

GifBuilder still(int width = 4, int height = 2) {
    return GifBuilder().header().screen(width, height, 2).color_table(8);
}

// Codes of the given widths, then a zero size byte is left to image_data().
Bytes codes(std::initializer_list<std::pair<unsigned, int>> list) {
    BitWriter w;
    for (auto [code, width] : list) w.put(code, width);
    return w.take();
}

// Draws every frame of the proxy at scale 1 and at 3 x 0.5 into a canvas exactly the size of the
// screen (capped: a huge screen is drawn through a 64 x 64 window at its corner).
void draw_every_frame(const qImageProxy& proxy) {
    if (!proxy.valid()) return;
    qSize size = proxy.size();
    size.width = std::min(size.width, 64);
    size.height = std::min(size.height, 64);
    Canvas canvas(size);
    qImageEdit view;
    ASSERT_EQ(canvas.bind(view), 0);
    qIAnimation* animation = proxy.animation();
    for (int f = 0; f < animation->num_frames(); ++f) {
        ASSERT_EQ(animation->seek_frame(f, 0), 0);
        EXPECT_EQ(proxy.Draw(&view, qRect(size), qPoint(), 1.0f, 1.0f, false), 0);
        EXPECT_EQ(proxy.Draw(&view, qRect(size), qPoint(1, 1), 3.0f, 0.5f, true), 0);
    }
    animation->seek_frame(0, 0);
}

struct Case {
    const char* name;
    Bytes bytes;
    int status;         // read_gif's result
    int frames;         // frames held afterwards
    qSize screen = {};  // the screen size held (checked when frames > 0)
};

// Memory a stream may cost: a few times its own size plus its declared pixels, plus a constant
// for the fixed tables (colour maps, row tables, the LZW output's slack).
[[maybe_unused]] unsigned long long budget(const Bytes& bytes, long long declared_pixels) {
    return 4ull * bytes.size() + 2ull * static_cast<unsigned long long>(declared_pixels) +
           (1ull << 20);
}

void check_case(const Case& c, long long declared_pixels) {
    SCOPED_TRACE(c.name);
    qImageProxy proxy;
#ifdef QIMG_TEST_HOOKS
    qimg_fail_allocation(0);
#endif
    EXPECT_EQ(read_bytes(proxy, c.bytes), c.status);
#ifdef QIMG_TEST_HOOKS
    EXPECT_LE(qimg_allocated_bytes(), budget(c.bytes, declared_pixels));
#else
    (void)declared_pixels;
#endif
    EXPECT_EQ(proxy.num_frames(), c.frames);
    EXPECT_EQ(proxy.valid(), c.frames > 0);
    if (c.frames > 0) {
        EXPECT_EQ(proxy.size(), c.screen);
    }
    draw_every_frame(proxy);
}

TEST(MalformedGif, ScreensFramesAndColourTables) {
    const Bytes image = GifBuilder().descriptor(0, 0, 4, 2).pixels(3, kPixels).bytes();
    // clang-format off
    const Case cases[] = {
        // Without a screen descriptor the screen is empty and no frame can give it a size: the
        // facade reports -1 for such a stream whatever stopped the reading.
        {"signature GIF90a", GifBuilder().header("GIF90a").screen(4, 2).trailer().bytes(), -1, 0},
        {"signature of zeros", Bytes(13, 0), -1, 0},
        {"empty stream", {}, -1, 0},
        {"0 x 0 screen takes the first image's size",
         GifBuilder().header().screen(0, 0, 2).color_table(8).raw(image).trailer().bytes(),
         0, 1, {4, 2}},
        {"0 x 0 screen without images", GifBuilder().header().screen(0, 0).trailer().bytes(), -1,
         0},
        {"65535 x 65535 screen, small image",
         still(65535, 65535).raw(image).trailer().bytes(),
         0, 1, {65535, 65535}},
        {"65535 x 65535 image refused before allocating",
         still().descriptor(0, 0, 65535, 65535).pixels(3, kPixels).trailer().bytes(), -6, 0},
        {"65535 x 1 image",
         still().descriptor(0, 0, 65535, 1).pixels(3, kPixels).trailer().bytes(),
         0, 1, {4, 2}},
        {"no colour table anywhere",
         GifBuilder().header().screen(4, 2).raw(image).trailer().bytes(), -5, 0},
        {"second image without a table keeps the first",
         GifBuilder().header().screen(4, 2).descriptor(0, 0, 4, 2, 2).color_table(8)
             .pixels(3, kPixels).raw(image).trailer().bytes(),
         0, 1, {4, 2}},
        {"image far outside the screen",
         still().descriptor(65000, 65000, 4, 2).pixels(3, kPixels).trailer().bytes(),
         0, 1, {4, 2}},
        {"image across the screen's edge",
         still().descriptor(2, 1, 4, 2).pixels(3, kPixels).trailer().bytes(),
         0, 1, {4, 2}},
        {"zero-height image after a good one",
         still().raw(image).descriptor(0, 0, 4, 0).pixels(3, kPixels).trailer().bytes(),
         0, 1, {4, 2}},
    };
    // clang-format on
    for (const Case& c : cases) check_case(c, 65535ll * 2);
}

TEST(MalformedGif, CodeSizesAndCodeStreams) {
    // Indices 0..255 in a 16 x 16 image, for the wide code sizes.
    Bytes ramp(256);
    for (int i = 0; i < 256; ++i) ramp[i] = static_cast<unsigned char>(i);
    // A random 128 x 128 image of 256 colours fills the 4096-entry table many times over.
    Bytes noise(128 * 128);
    unsigned seed = 12345;
    for (unsigned char& b : noise)
        b = static_cast<unsigned char>((seed = seed * 1103515245 + 12345) >> 16);
    gif_test::EncodeOptions no_clear;
    no_clear.clear_when_full = false;
    gif_test::EncodeOptions no_end;
    no_end.end_code = false;
    // clang-format off
    const Case cases[] = {
        // m = 0: clear 1, end 2; clear, 0, 0 (entry 3 made, width 2), end.
        {"code size 0",
         still(2, 1).descriptor(0, 0, 2, 1).image_data(0, codes({{1, 1}, {0, 1}, {0, 1}, {2, 2}}))
             .trailer().bytes(),
         0, 1, {2, 1}},
        {"code size 1",
         still().descriptor(0, 0, 4, 2).pixels(1, {0, 1, 1, 0, 1, 0, 0, 1}).trailer().bytes(),
         0, 1, {4, 2}},
        {"code size 9",
         GifBuilder().header().screen(16, 16, 7).color_table(256).descriptor(0, 0, 16, 16)
             .pixels(9, ramp).trailer().bytes(),
         0, 1, {16, 16}},
        {"code size 12",
         still().descriptor(0, 0, 4, 2).image_data(12, {0, 16, 1, 0}).trailer().bytes(), -9, 0},
        {"code size 255",
         still().descriptor(0, 0, 4, 2).image_data(255, {0xFF, 0xFF}).trailer().bytes(), -9, 0},
        // m = 2: clear 4, end 5, next free 6; code 7 is above it.
        {"code above the next entry",
         still().descriptor(0, 0, 4, 2)
             .image_data(2, codes({{4, 3}, {1, 3}, {7, 3}, {5, 3}, {0, 8}})).trailer().bytes(),
         -9, 0},
        // The same codes ending in the last byte are left to the end of the data, where a bad
        // code only stops the decoding: the index written before it stays.
        {"code above the next entry in the last byte",
         still().descriptor(0, 0, 4, 2).image_data(2, codes({{4, 3}, {1, 3}, {7, 3}, {5, 3}}))
             .trailer().bytes(),
         0, 1, {4, 2}},
        {"first code above the table",
         still().descriptor(0, 0, 4, 2).image_data(2, codes({{7, 3}, {1, 3}, {5, 3}})).trailer()
             .bytes(),
         -9, 0},
        {"full table without clear codes",
         GifBuilder().header().screen(128, 128, 7).color_table(256).descriptor(0, 0, 128, 128)
             .image_data(8, lzw_encode(noise, 8, no_clear)).trailer().bytes(),
         0, 1, {128, 128}},
        {"no end code",
         still().descriptor(0, 0, 4, 2).image_data(3, lzw_encode(kPixels, 3, no_end)).trailer()
             .bytes(),
         0, 1, {4, 2}},
        {"only clear codes",
         still().descriptor(0, 0, 4, 2).image_data(3, Bytes(300, 0x88)).trailer().bytes(), -9, 0},
        {"more data than pixels",
         still().descriptor(0, 0, 4, 2).pixels(3, Bytes(5000, 3)).trailer().bytes(),
         0, 1, {4, 2}},
    };
    // clang-format on
    for (const Case& c : cases) check_case(c, 128 * 128);

    qGifFrame frame;
    EXPECT_EQ(frame.decode_image(nullptr, qSize(4, 2), nullptr, -1, nullptr), -5);  // no source
    // The decoded pictures: code sizes 0 and 1 by the rules, the full table as encoded.
    qImageProxy proxy;
    ASSERT_EQ(read_bytes(proxy, cases[0].bytes), 0);
    EXPECT_EQ(proxy.pixel_index({0, 0}), 0);
    EXPECT_EQ(proxy.pixel_index({1, 0}), 0);
    ASSERT_EQ(read_bytes(proxy, cases[1].bytes), 0);
    const int expect_m1[] = {0, 1, 1, 0, 1, 0, 0, 1};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(proxy.pixel_index({i % 4, i / 4}), expect_m1[i]) << i;
    ASSERT_EQ(read_bytes(proxy, cases[6].bytes), 0);
    EXPECT_EQ(proxy.pixel_index({0, 0}), 1);
    EXPECT_EQ(proxy.pixel_index({1, 0}), 0);
    ASSERT_EQ(read_bytes(proxy, cases[8].bytes), 0);
    for (int i = 0; i < 128 * 128; i += 97) {
        EXPECT_EQ(proxy.pixel_index({i % 128, i / 128}), noise[i]) << i;
    }
}

TEST(MalformedGif, TerminatorsTrailersAndExtensions) {
    const Bytes image = GifBuilder().descriptor(0, 0, 4, 2).pixels(3, kPixels).bytes();
    Bytes unterminated_image = image;
    unterminated_image.pop_back();  // the image data's 0 terminator
    Bytes many_controls;
    for (int i = 0; i < 1000; ++i) {
        many_controls.insert(many_controls.end(), {0x21, 0xF9, 4, 1, 0, 0, 0, 0});
    }
    Bytes many_loops;
    for (int i = 0; i < 1000; ++i) {
        const Bytes one = GifBuilder().looping(i).bytes();
        many_loops.insert(many_loops.end(), one.begin(), one.end());
    }
    Bytes long_plain_text = {0x21, 0x01};
    for (int i = 0; i < 4000; ++i) {
        long_plain_text.push_back(255);
        long_plain_text.insert(long_plain_text.end(), 255, 'x');
    }
    long_plain_text.push_back(0);
    // clang-format off
    const Case cases[] = {
        {"no trailer", still().raw(image).bytes(), 0, 1, {4, 2}},
        {"no trailer, cut after the image's terminator",
         still().raw(image).raw(image).bytes(),
         0, 2, {4, 2}},
        {"image data without terminator", still().raw(unterminated_image).trailer().bytes(), -3, 0},
        {"second image without terminator",
         still().raw(image).raw(unterminated_image).bytes(),
         0, 1, {4, 2}},
        {"comment without terminator", still().raw({0x21, 0xFE, 3, 'a', 'b', 'c'}).bytes(), -3, 0},
        {"comment without terminator after an image",
         still().raw(image).raw({0x21, 0xFE, 3, 'a', 'b', 'c'}).bytes(),
         0, 1, {4, 2}},
        {"sub-block longer than the stream", still().raw({0x21, 0xFE, 200, 'a'}).bytes(), -3, 0},
        {"application block of 255 bytes",
         still().raw({0x21, 0xFF, 255}).raw(Bytes(255, 'N')).raw({0}).raw(image).trailer().bytes(),
         -8, 0},
        {"control block of 255 bytes",
         still().raw({0x21, 0xF9, 255}).raw(Bytes(255, 0)).raw({0}).raw(image).trailer().bytes(),
         -8, 0},
        {"1000 control extensions before an image",
         still().raw(many_controls).raw(image).trailer().bytes(),
         0, 1, {4, 2}},
        {"1000 looping extensions",
         still().raw(many_loops).raw(image).trailer().bytes(),
         0, 1, {4, 2}},
        {"a megabyte of plain text",
         still().raw(long_plain_text).raw(image).trailer().bytes(),
         0, 1, {4, 2}},
        {"bytes after the trailer",
         still().raw(image).trailer().raw(Bytes(100, 0x2C)).bytes(),
         0, 1, {4, 2}},
        {"skipped sub-block past the end", still().raw({0x21, 0x01, 200, 'a'}).bytes(), -3, 0},
    };
    // clang-format on
    for (const Case& c : cases) check_case(c, 8);

    // The last of 1000 looping extensions wins: count 999 gives 1000 passes.
    qImageProxy proxy;
    ASSERT_EQ(read_bytes(proxy, cases[10].bytes), 0);
    auto* animation = dynamic_cast<qGifAnimation*>(proxy.animation());
    ASSERT_NE(animation, nullptr);
    EXPECT_EQ(animation->loop_count(), 1000);
}

}  // namespace
