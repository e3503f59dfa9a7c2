// The browser rules against the strict ones, one hand-made stream per shape that real encoders
// write, read both ways: status, frames, what the first frame's graphic control gave it, the last
// frame's transparent index and its composed first pixel.
#include "qimg/gif/qGifReadOptions.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

#include "common/TestKit.h"
#include "gif/GifTestKit.h"
#include "qimg/core/qStatus.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/image/qIndexImage.h"

namespace {

using gif_test::Bytes;
using gif_test::GifBuilder;
// status, frames, first frame's delay, last frame's image transparent index (-2: no pixels),
// first pixel of the last composed frame (BGRA, little-endian).
using Outcome = std::tuple<int, int, int, int, uint32_t>;

Outcome read_as(const Bytes& bytes, bool browser_rules) {
    qGifAnimation animation;
    qMemoryR source(bytes.data(), bytes.size());
    qGifReadOptions options;
    options.browser_rules = browser_rules;
    const int status = animation.read(&source, nullptr, options);
    const int frames = animation.num_frames();
    if (frames == 0) return {status, 0, -1, -1, 0};
    const qIndexImage* last = animation.frame(frames - 1)->image();
    uint32_t pixel = 0;
    const Bytes composed = gif_test::composed_frames(animation);
    std::memcpy(&pixel, composed.data() + composed.size() / frames * (frames - 1), 4);
    return {status, frames, animation.frame(0)->frame_delay(),
            last ? last->transparent_index() : -2, pixel};
}

// A 2 x 1 screen with entries i = (i, 2i, 3i), i < 4.
GifBuilder screen() {
    GifBuilder gif;
    gif.header().screen(2, 1, 1).color_table(4);
    return gif;
}

GifBuilder& comment(GifBuilder& gif) {
    return gif.raw({0x21, 0xFE}).sub_blocks({'h', 'i'});
}

TEST(qGifReadOptionsTest, BrowserRulesReadTheShapesBrowsersShow) {
    constexpr uint32_t kColor1 = 0xFF010203;  // entry 1 opaque, BGRA in memory
    GifBuilder shapes[9];
    shapes[0] = screen();
    comment(shapes[0].control(0, 100, -1)).descriptor(0, 0, 2, 1).pixels(2, {1, 1}).trailer();
    shapes[1] = screen();
    shapes[1].control(0, 100, -1).looping(0).descriptor(0, 0, 2, 1).pixels(2, {1, 1}).trailer();
    shapes[2] = screen();
    shapes[2].control(0, 100, -1).raw({0x21, 0xF8}).sub_blocks({1, 2});
    shapes[2].descriptor(0, 0, 2, 1).pixels(2, {1, 1}).trailer();
    shapes[3] = screen();
    comment(comment(shapes[3].control(0, 50, -1)).control(0, 70, -1))
        .descriptor(0, 0, 2, 1)
        .pixels(2, {1, 1})
        .trailer();
    // Index 4 of a 4-entry table drawn over frame 0.
    shapes[4] = screen();
    shapes[4].descriptor(0, 0, 2, 1).pixels(2, {1, 1}).control(1, 0, 4);
    shapes[4].descriptor(0, 0, 2, 1).pixels(3, {4, 4}).trailer();
    shapes[5] = screen();
    shapes[5].descriptor(0, 0, 0, 1).pixels(2, {1}).descriptor(0, 0, 2, 1).pixels(2, {1, 1});
    shapes[5].trailer();
    shapes[6] = screen();
    shapes[6].descriptor(0, 0, 2, 1).trailer();  // no image data at all
    shapes[7] = screen();
    shapes[7].descriptor(0, 0, 2, 1).image_data(2, {}).trailer();  // data without an index
    shapes[8].raw(qtest::read_file(std::string(QIMG_GIF_CORPUS) +
                                   "/browser/gdk-pixbuf-image-zero-width.gif"));
    const struct {
        const char* shape;
        Outcome strict, browser;
    } rows[] = {
        {"control, comment, image",          {0, 1, 0, -1, kColor1},         {0, 1, 1000, -1, kColor1}},
        {"control, looping, image",          {0, 1, 0, -1, kColor1},         {0, 1, 1000, -1, kColor1}},
        {"control, unknown, image",          {0, 1, 0, -1, kColor1},         {0, 1, 1000, -1, kColor1}},
        {"two controls apart",               {0, 1, 0, -1, kColor1},         {0, 1, 700, -1, kColor1} },
        {"transparent past the table",       {0, 2, 0, -1, 0},               {0, 2, 0, 4, kColor1}    },
        {"zero width, then an image",        {ST_UNSUPPORTED, 0, -1, -1, 0}, {0, 2, 0, -1, kColor1}   },
        {"no image data",                    {ST_READ_ERROR, 0, -1, -1, 0},  {0, 1, 0, -2, 0}         },
        {"no index in the data",             {ST_UNDECODABLE, 0, -1, -1, 0}, {0, 1, 0, -2, 0}         },
        {"a real file: zero width, no data", {ST_READ_ERROR, 0, -1, -1, 0},  {0, 1, 0, -2, 0}         },
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE(rows[i].shape);
        EXPECT_EQ(read_as(shapes[i].bytes(), false), rows[i].strict);
        EXPECT_EQ(read_as(shapes[i].bytes(), true), rows[i].browser);
    }
}

TEST(qGifReadOptionsTest, VersionAspectAndTheFacadeTakeTheOptions) {
    GifBuilder gif;
    comment(gif.header("GIF87a").screen(2, 1, 1).color_table(4).control(0, 100, -1))
        .descriptor(0, 0, 2, 1)
        .pixels(2, {1, 1})
        .trailer();
    Bytes bytes = gif.bytes();
    bytes[12] = 49;  // the aspect byte
    qImageProxy proxy;
    qMemoryR source(bytes.data(), bytes.size());
    ASSERT_EQ(proxy.read_gif(&source, nullptr, qGifReadOptions{.browser_rules = true}), 0);
    EXPECT_EQ(proxy.animation()->frame_delay(), 1000);
    const auto* animation = dynamic_cast<const qGifAnimation*>(proxy.animation());
    EXPECT_STREQ(animation->version(), "87a");
    EXPECT_EQ(animation->pixel_aspect(), 49);
    EXPECT_STREQ(qGifAnimation().version(), "");
}

}  // namespace
