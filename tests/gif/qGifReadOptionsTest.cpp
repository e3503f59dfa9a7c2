// The browser rules against the strict ones, one stream per shape that real encoders write, read
// both ways: status, frames, the first frame's delay (from its graphic control), the last frame's
// transparent index and its composed first pixel.
#include "qimg/gif/qGifReadOptions.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "common/TestKit.h"
#include "gif/GifTestKit.h"
#include "qimg/core/qStatus.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/gif/qMemoryR.h"

namespace {

using gif_test::Bytes;
using gif_test::GifBuilder;
// status, frames, first delay, last frame's transparent index (-2: no pixels), its first pixel.
using Outcome = std::tuple<int, int, int, int, uint32_t>;

Outcome read_as(const Bytes& bytes, bool browser_rules) {
    qGifAnimation animation;
    qMemoryR source(bytes.data(), bytes.size());
    const int status = animation.read(&source, nullptr, qGifReadOptions{browser_rules});
    const int n = animation.num_frames();
    if (n == 0) return {status, 0, -1, -1, 0};
    const qIndexImage* last = animation.frame(n - 1)->image();
    uint32_t pixel = 0;
    const Bytes composed = gif_test::composed_frames(animation);
    std::memcpy(&pixel, composed.data() + composed.size() / n * (n - 1), 4);
    return {status, n, animation.frame(0)->frame_delay(), last ? last->transparent_index() : -2,
            pixel};
}

TEST(qGifReadOptionsTest, BrowserRulesReadTheShapesBrowsersShow) {
    constexpr uint32_t kColor1 = 0xFF010203;  // entry 1 = (1, 2, 3), BGRA in memory
    const Outcome kPlain{0, 1, 0, -1, kColor1}, kControlled{0, 1, 1000, -1, kColor1};
    const Bytes control = GifBuilder().control(0, 100, -1).bytes();
    const Bytes comment = GifBuilder().raw({0x21, 0xFE}).sub_blocks({'h', 'i'}).bytes();
    const Bytes unknown = GifBuilder().raw({0x21, 0xF8}).sub_blocks({1, 2}).bytes();
    const Bytes image = GifBuilder().descriptor(0, 0, 2, 1).pixels(2, {1, 1}).bytes();
    // Index 4 of a 4-entry table, drawn over frame 0.
    const Bytes past_table =
        GifBuilder().control(1, 0, 4).descriptor(0, 0, 2, 1).pixels(3, {4, 4}).bytes();
    const Bytes zero_width = GifBuilder().descriptor(0, 0, 0, 1).pixels(2, {1}).bytes();
    const Bytes no_data = GifBuilder().descriptor(0, 0, 2, 1).bytes();
    const Bytes no_index = GifBuilder().descriptor(0, 0, 2, 1).image_data(2, {}).bytes();
    const Bytes looping = GifBuilder().looping(0).bytes();
    const Bytes control7 = GifBuilder().control(0, 7, -1).bytes();
    // clang-format off
    const struct {
        const char* shape;
        std::vector<Bytes> blocks;
        Outcome strict, browser;
    } rows[] = {
        {"control, comment", {control, comment, image}, kPlain, kControlled},
        {"control, looping", {control, looping, image}, kPlain, kControlled},
        {"control, unknown, control, comment", {control7, unknown, control, comment, image}, kPlain,
         kControlled},
        {"index past the table", {image, past_table}, {0, 2, 0, -1, 0}, {0, 2, 0, 4, kColor1}},
        {"zero width, image", {zero_width, image}, {ST_UNSUPPORTED, 0, -1, -1, 0}, {0, 2, 0, -1,
         kColor1}},
        {"no image data", {no_data}, {ST_READ_ERROR, 0, -1, -1, 0}, {0, 1, 0, -2, 0}},
        {"no index in the data", {no_index}, {ST_UNDECODABLE, 0, -1, -1, 0}, {0, 1, 0, -2, 0}},
        {"real file: zero width", {}, {ST_READ_ERROR, 0, -1, -1, 0}, {0, 1, 0, -2, 0}},
        // clang-format on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.shape);
        GifBuilder gif;  // a 2 x 1 screen, entries i = (i, 2i, 3i), i < 4
        gif.header().screen(2, 1, 1).color_table(4);
        for (const Bytes& block : row.blocks) gif.raw(block);
        Bytes bytes = gif.trailer().bytes();
        if (row.blocks.empty())
            bytes = qtest::read_file(std::string(QIMG_GIF_CORPUS) + "/browser/" +
                                     "gdk-pixbuf-image-zero-width.gif");
        EXPECT_EQ(read_as(bytes, false), row.strict);
        EXPECT_EQ(read_as(bytes, true), row.browser);
    }
}

TEST(qGifReadOptionsTest, VersionAspectAndTheFacadeTakeTheOptions) {
    GifBuilder gif;
    gif.header("GIF87a").screen(2, 1, 1).color_table(4).control(0, 100, -1).looping(0);
    Bytes bytes = gif.descriptor(0, 0, 2, 1).pixels(2, {1, 1}).trailer().bytes();
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
