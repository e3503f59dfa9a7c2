// Colour reduction and the representative colour of GIF frames, directly and through an
// animation read into the facade.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "GifTestKit.h"
#include "common/TestKit.h"
#include "image/ReductionCase.h"
#include "qimg/core/qMonitor.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"
#include "qimg/raster/qImageEdit.h"

namespace {

using gif_test::Bytes;
using gif_test::GifBuilder;
using qtest::rgba;
using qtest::StopAtRow;

// 6 x 4 at offset (2, 3); index = (x + y) % 4, so index 3 (the control's transparent one in most
// tests) appears on every row.
const Bytes kIndices = {0, 1, 2, 3, 0, 1, 1, 2, 3, 0, 1, 2, 2, 3, 0, 1, 2, 3, 3, 0, 1, 2, 3, 0};

int read_frame(qGifFrame* frame, const qIColormap* global, int transparent) {
    GifBuilder b;
    b.descriptor(2, 3, 6, 4).pixels(2, kIndices);
    const Bytes& bytes = b.bytes();
    qMemoryR source(bytes.data() + 1, bytes.size() - 1);  // past the introducer
    qGifControl control;
    control.transparent = transparent;
    return frame->read(&source, global, &control, nullptr);
}

std::vector<int> indices_of(const qGifFrame& frame) {
    std::vector<int> out;
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x) out.push_back(frame.pixel_index(qPoint(x + 2, y + 3)));
    return out;
}

// The frame drawn alone onto a grey 8 x 7 canvas.
std::vector<qPixRA> drawn(const qGifFrame& frame) {
    std::vector<qPixRA> canvas(8 * 7, rgba(9, 9, 9));
    qImageEdit view;
    EXPECT_EQ(
        view.Bind(reinterpret_cast<unsigned char*>(canvas.data()), qSize(8, 7), 8 * 4, PT_BGRA32),
        0);
    EXPECT_EQ(frame.Draw(&view, qRect(0, 0, 8, 7), qPoint(), 1.0f, 1.0f, false), 0);
    return canvas;
}

class qGifFrameColorTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(global_.create(4), 0);
        global_.set_color(0, rgba(250, 0, 0));
        global_.set_color(1, rgba(0, 250, 0));
        global_.set_color(2, rgba(0, 0, 250));
        global_.set_color(3, rgba(128, 128, 128));
    }
    qColormap global_;
};

// A frame on the global map owns its palette after a reduction: a copy of the given map that
// survives the caller's object, that set_color edits, and that the frame draws with.
TEST_F(qGifFrameColorTest, GivenMapBecomesTheLocalMap) {
    qGifFrame frame;
    ASSERT_EQ(read_frame(&frame, &global_, 3), 0);
    EXPECT_EQ(frame.local_colormap(), nullptr);
    EXPECT_FALSE(frame.set_color(0, rgba(1, 1, 1)));
    auto caller = std::make_unique<qColormap>();
    ASSERT_EQ(caller->create(4), 0);
    caller->set_color(0, rgba(0, 0, 240));
    caller->set_color(1, rgba(255, 255, 255, 0));
    caller->set_color(2, rgba(240, 0, 0));
    caller->set_color(3, rgba(0, 240, 0));
    ASSERT_EQ(frame.quantize_colors(caller.get(), QT_NEAREST, false, 1.0f, 0.0f, nullptr), 0);
    ASSERT_NE(frame.local_colormap(), nullptr);
    EXPECT_EQ(frame.colormap(), frame.local_colormap());
    EXPECT_NE(frame.colormap(), caller.get());
    caller.reset();

    // Red, green, blue go to their entries; the transparent index 3 to the alpha-0 entry 1.
    const std::vector<int> map = {2, 3, 0, 1};
    const std::vector<int> got = indices_of(frame);
    for (size_t k = 0; k < kIndices.size(); ++k) EXPECT_EQ(got[k], map[kIndices[k]]) << k;
    EXPECT_EQ(frame.offset(), qPoint(2, 3));
    EXPECT_EQ(frame.min_t_index(), 1);  // the new palette's, not the control record's 3
    EXPECT_EQ(frame.control()->transparent, 3);
    EXPECT_EQ(frame.alpha_hint(), AT_BILEVEL);

    const std::vector<qPixRA> canvas = drawn(frame);
    EXPECT_EQ(canvas[3 * 8 + 2], rgba(240, 0, 0));  // image (0, 0)
    EXPECT_EQ(canvas[3 * 8 + 5], rgba(9, 9, 9));    // image (3, 0): transparent
    EXPECT_TRUE(frame.set_color(2, rgba(7, 7, 7)));
    EXPECT_EQ(drawn(frame)[3 * 8 + 2], rgba(7, 7, 7));
}

TEST_F(qGifFrameColorTest, GeneratedPalettes) {
    struct Case {
        const char* name;
        int num_colors;
        qCmapType kind;
        qQuantizer quantizer;
        bool opaque;
        int entries;
    };
    // The adaptive palette has four colours: the transparent index's grey counts in the prescan.
    const Case cases[] = {
        {       "adaptive",  8, CM_ADAPTIVE,   QT_NEAREST, false,  5},
        {"adaptive opaque",  8, CM_ADAPTIVE, QT_DIFFUSION,  true,  4},
        {           "cube", 30,     CM_CUBE, QT_DIFFUSION, false, 28},
        {           "grey",  4,     CM_GRAY,   QT_NEAREST,  true,  4},
        {        "quality",  8,  CM_QUALITY, QT_DIFFUSION, false,  5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qGifFrame frame;
        ASSERT_EQ(read_frame(&frame, &global_, 3), 0);
        ASSERT_EQ(frame.quantize_colors(c.num_colors, c.kind, c.quantizer, c.opaque, 1.0f, 0.0f, 1,
                                        nullptr),
                  0);
        const qIColormap* map = frame.colormap();
        ASSERT_EQ(map, frame.local_colormap());
        EXPECT_EQ(map->num_colors(), c.entries);
        const std::vector<int> got = indices_of(frame);
        for (size_t k = 0; k < got.size(); ++k) {
            ASSERT_LT(got[k], c.entries);
            const bool transparent = map->get_color(got[k]).alpha == 0;
            ASSERT_EQ(transparent, !c.opaque && kIndices[k] == 3) << k;
        }
        drawn(frame);  // drawable after the quantizer front is gone (ASan checks)
    }
    // Red, green and blue are palette colours of the adaptive map: they come back exactly.
    qGifFrame frame;
    ASSERT_EQ(read_frame(&frame, &global_, 3), 0);
    ASSERT_EQ(frame.quantize_colors(5, CM_ADAPTIVE, QT_DIFFUSION, false, 1.0f, 1.0f, 1, nullptr),
              0);
    const std::vector<int> got = indices_of(frame);
    for (size_t k = 0; k < got.size(); ++k) {
        if (kIndices[k] != 3) {
            EXPECT_EQ(frame.colormap()->get_color(got[k]), global_.get_color(kIndices[k])) << k;
        }
    }
}

TEST_F(qGifFrameColorTest, FailuresLeaveImageAndPaletteAsTheyWere) {
    qColormap opaque_map;
    ASSERT_EQ(opaque_map.create(2), 0);
    opaque_map.set_opaque_all();
    qColormap empty_map;
    StopAtRow first_row(1);
    StopAtRow last_row(4);
    const qCmapType unknown = static_cast<qCmapType>(3);
    struct Case {
        const char* name;
        int expected;
        qtest::Reduction call;
    };
    // clang-format off
    const Case cases[] = {
        {"null map",               -5, qtest::given(nullptr, QT_NEAREST, false)},
        {"empty map",              -5, qtest::given(&empty_map, QT_NEAREST, false)},
        {"no transparent entry",  -10, qtest::given(&opaque_map, QT_DIFFUSION, false)},
        {"unknown palette kind",   -6, qtest::generated(8, unknown, QT_NEAREST, false)},
        {"grey ramp of no levels", -5, qtest::generated(0, CM_GRAY, QT_NEAREST, true)},
        {"stop at row 1",           1, qtest::generated(8, CM_ADAPTIVE, QT_NEAREST, false, &first_row)},
        {"stop at row 4",           1, qtest::generated(8, CM_CUBE, QT_DIFFUSION, false, &last_row)},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qGifFrame frame;
        ASSERT_EQ(read_frame(&frame, &global_, 3), 0);
        const qIndexImage* image = frame.image();
        EXPECT_EQ(qtest::reduce(frame, c.call), c.expected);
        EXPECT_EQ(frame.image(), image);
        EXPECT_EQ(frame.local_colormap(), nullptr);
        EXPECT_EQ(frame.colormap(), &global_);
        EXPECT_EQ(indices_of(frame), std::vector<int>(kIndices.begin(), kIndices.end()));
    }

    qGifFrame empty;
    EXPECT_EQ(empty.quantize_colors(&global_, QT_NEAREST, true, 1, 0, nullptr), -5);
    EXPECT_EQ(empty.quantize_colors(4, CM_ADAPTIVE, QT_NEAREST, true, 1, 0, 1, nullptr), -5);
    EXPECT_EQ(empty.quantize_colors(4, CM_GRAY, QT_NEAREST, true, 1, 0, 1, nullptr), -5);
    EXPECT_EQ(empty.get_rep_color(), (qPixRA{0, 0, 0, 0}));
}

// The mean of the pixels through the map as stored: the control's transparent index does not
// make its pixels alpha 0 here, an alpha-0 palette entry does.
TEST_F(qGifFrameColorTest, RepresentativeColour) {
    qGifFrame frame;
    ASSERT_EQ(read_frame(&frame, &global_, 3), 0);
    // Indices 0, 1, 2, 3 appear 6 times each: (250 + 128) / 4 = 94.5 -> 95 per channel.
    EXPECT_EQ(frame.get_rep_color(), rgba(95, 95, 95));
    qColormap mostly_clear;
    ASSERT_EQ(mostly_clear.copy_from(&global_), 0);
    mostly_clear.set_transparent(1);
    mostly_clear.set_transparent(2);
    mostly_clear.set_transparent(3);
    qGifFrame red;
    ASSERT_EQ(read_frame(&red, &mostly_clear, -1), 0);
    EXPECT_EQ(red.get_rep_color(), rgba(250, 0, 0));
    mostly_clear.set_transparent(0);
    EXPECT_EQ(red.get_rep_color(), rgba(0, 0, 0));  // nothing counts: opaque black
}

// Through the facade: read_gif, reduce the current frame, ask for its colour.
TEST_F(qGifFrameColorTest, FacadeReachesTheCurrentFrame) {
    GifBuilder b;
    b.header()
        .screen(8, 8, 1)
        .color_table(4)
        .control(0, 0, 3)
        .descriptor(1, 1, 6, 4)
        .pixels(2, kIndices);
    b.descriptor(0, 0, 2, 2).pixels(2, {0, 0, 0, 0}).trailer();
    qImageProxy proxy;
    qMemoryR source(b.bytes().data(), b.bytes().size());
    ASSERT_EQ(proxy.read_gif(&source, nullptr), 0);
    ASSERT_TRUE(proxy.is_animation());
    const qIColormap* global = proxy.colormap();
    // Table entry i is (i, 2i, 3i): the mean of 0..3 is (1.5, 3, 4.5) -> (2, 3, 5).
    EXPECT_EQ(proxy.get_rep_color(), rgba(2, 3, 5));
    ASSERT_EQ(proxy.quantize_colors(2, CM_GRAY, QT_NEAREST, false, 1.0f, 0.0f, 1, nullptr), 0);
    EXPECT_NE(proxy.colormap(), global);
    EXPECT_EQ(proxy.colormap()->num_colors(), 2);   // black + transparent white
    EXPECT_EQ(proxy.pixel_index(qPoint(4, 1)), 1);  // index 3 was transparent
    EXPECT_EQ(proxy.pixel_index(qPoint(1, 1)), 0);
}

}  // namespace
