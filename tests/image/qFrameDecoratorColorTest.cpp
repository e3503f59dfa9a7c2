// Colour reduction and the representative colour of qFrameDecorator, directly and through the
// facade, against a reference built from the public pieces (quantizer front, cache rule,
// mapping views).
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "color/qTestImages.h"
#include "image/ReductionCase.h"
#include "qimg/color/qColorQuantProxy.h"
#include "qimg/color/qGifColormap.h"
#include "qimg/core/qMonitor.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/image/qColorIndexImage.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/image/qFrameDecorator.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"
#include "qimg/raster/qImageEdit.h"

namespace {

using qtest::BgraImage;
using qtest::entries;
using qtest::rgba;
using qtest::StopAtRow;

// A true-colour leaf with the pixels of `source`.
qDirectImage* direct_copy(const BgraImage& source) {
    auto* image = new qDirectImage;
    EXPECT_EQ(image->copy_from(&source), 0);
    return image;
}

// Smooth gradients with a transparent hole: many colours, like a small photograph.
BgraImage test_picture(int width, int height, bool hole, unsigned seed = 3) {
    std::mt19937 rng(seed);
    BgraImage image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            image.at(x, y) = rgba((x * 255) / width, (y * 255) / height,
                                  (x * y + static_cast<int>(rng() % 40)) & 255);
            if (hole && (x - width / 2) * (x - width / 2) + (y - height / 2) * (y - height / 2) <
                            width * height / 16) {
                image.at(x, y).alpha = 0;
            }
        }
    }
    return image;
}

// Every index of the frame's current leaf, row by row.
std::vector<int> leaf_indices(const qIComponent& frame) {
    const qIComponent* leaf = frame.current_leaf();
    std::vector<int> out;
    for (int y = 0; y < leaf->size().height; ++y)
        for (int x = 0; x < leaf->size().width; ++x) out.push_back(leaf->pixel_index(qPoint(x, y)));
    return out;
}

// A leaf that holds no pixels (no qIImageBuffer side).
class NoPixels : public qILeaf {
public:
    qIComponent* clone() const override { return nullptr; }
    int Draw(qImageEdit*, qRect, qPoint, float, float, bool) const override { return 0; }
    bool valid() const override { return true; }
    qSize size() const override { return qSize(2, 2); }
    qAlphaType alpha_hint() const override { return AT_OPAQUE; }
    const qIColormap* colormap() const override { return nullptr; }
    qComponentType component_type() const override { return CT_DIRECT_IMAGE; }
    qIComponent* current_leaf() const override { return const_cast<NoPixels*>(this); }
    qComponentType leaf_type() const override { return CT_DIRECT_IMAGE; }
};

TEST(qFrameDecoratorColorTest, AdaptiveReductionKeepsTransparency) {
    const BgraImage picture = test_picture(40, 30, true);
    for (bool opaque : {false, true}) {
        SCOPED_TRACE(opaque ? "opaque" : "transparency kept");
        qFrameDecorator frame;
        ASSERT_EQ(frame.attach(direct_copy(picture), qPoint(3, 4)), 0);
        frame.set_screen_size(qSize(100, 90));
        ASSERT_EQ(
            frame.quantize_colors(16, CM_ADAPTIVE, QT_NEAREST, opaque, 1.0f, 0.0f, 1, nullptr), 0);
        ASSERT_EQ(frame.current_leaf()->component_type(), CT_INDEX_IMAGE);
        EXPECT_NE(dynamic_cast<qColorIndexImage*>(frame.current_leaf()), nullptr);
        EXPECT_EQ(frame.offset(), qPoint(3, 4));
        EXPECT_EQ(frame.size(), qSize(100, 90));
        const qIColormap* map = frame.colormap();
        ASSERT_NE(map, nullptr);
        ASSERT_LE(map->num_colors(), 16);
        const int last = map->num_colors() - 1;
        for (int i = 0; i < last; ++i) EXPECT_EQ(map->get_color(i).alpha, 255) << i;
        if (opaque) {
            EXPECT_EQ(map->get_color(last).alpha, 255);
            EXPECT_EQ(frame.alpha_hint(), AT_OPAQUE);
        } else {
            EXPECT_EQ(map->get_color(last), rgba(255, 255, 255, 0));
            EXPECT_EQ(frame.alpha_hint(), AT_BILEVEL);
        }
        // Which pixel takes which index: FacadeMatchesAReferenceBuiltFromThePieces.
        // Palette edits now reach the new image's own map.
        EXPECT_TRUE(frame.set_color(0, rgba(1, 2, 3)));
        EXPECT_EQ(frame.colormap()->get_color(0), rgba(1, 2, 3));
        EXPECT_TRUE(frame.set_transparent(1));
        EXPECT_EQ(frame.min_t_index(), 1);
    }
}

TEST(qFrameDecoratorColorTest, FixedPalettes) {
    const BgraImage picture = test_picture(12, 8, false);
    struct Case {
        const char* name;
        int num_colors;
        qCmapType kind;
        bool opaque;
        int expected_entries;
    };
    const Case cases[] = {
        {                                    "cube of 256",  256, CM_CUBE,  true, 216},
        {                  "cube of 256 with transparency",  256, CM_CUBE, false, 217},
        {                  "cube above the palette's room", 1000, CM_CUBE, false, 217},
        {                                      "grey of 2",    2, CM_GRAY,  true,   2},
        {                  "grey above the palette's room",  300, CM_GRAY,  true, 256},
        {"grey above the palette's room with transparency",  300, CM_GRAY, false, 256},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qFrameDecorator frame;
        ASSERT_EQ(frame.attach(direct_copy(picture), qPoint()), 0);
        ASSERT_EQ(frame.quantize_colors(c.num_colors, c.kind, QT_DIFFUSION, c.opaque, 1.0f, 1.0f, 1,
                                        nullptr),
                  0);
        EXPECT_EQ(frame.colormap()->num_colors(), c.expected_entries);
        for (int index : leaf_indices(frame)) ASSERT_LT(index, c.expected_entries);
    }
    qFrameDecorator grey;
    ASSERT_EQ(grey.attach(direct_copy(picture), qPoint()), 0);
    ASSERT_EQ(grey.quantize_colors(2, CM_GRAY, QT_NEAREST, true, 1.0f, 0.0f, 1, nullptr), 0);
    EXPECT_EQ(entries(*grey.colormap()), (std::vector<qPixRA>{rgba(0, 0, 0), rgba(255, 255, 255)}));
}

TEST(qFrameDecoratorColorTest, GivenMapIsCopied) {
    const BgraImage picture = test_picture(9, 7, true);
    auto caller_map = std::make_unique<qColormap>();
    ASSERT_EQ(caller_map->create(3), 0);
    caller_map->set_color(0, rgba(0, 0, 0));
    caller_map->set_color(1, rgba(250, 250, 250));
    caller_map->set_color(2, rgba(9, 9, 9, 0));
    qFrameDecorator frame;
    ASSERT_EQ(frame.attach(direct_copy(picture), qPoint(10, 20)), 0);
    ASSERT_EQ(frame.quantize_colors(caller_map.get(), QT_DIFFUSION, false, 0.5f, 0.0f, nullptr), 0);
    EXPECT_NE(frame.colormap(), caller_map.get());
    EXPECT_EQ(entries(*frame.colormap()), entries(*caller_map));
    EXPECT_EQ(frame.offset(), qPoint(10, 20));
    caller_map.reset();
    // Still drawable: the palette is the frame's own.
    std::vector<qPixRA> canvas(20 * 30, rgba(7, 7, 7));
    qImageEdit view;
    ASSERT_EQ(view.Bind(reinterpret_cast<unsigned char*>(canvas.data()), qSize(20, 30), 20 * 4,
                        PT_BGRA32),
              0);
    ASSERT_EQ(frame.Draw(&view, qRect(0, 0, 20, 30), qPoint(), 1.0f, 1.0f, false), 0);
    EXPECT_EQ(canvas[20 * 20 + 10], rgba(0, 0, 0));  // (0, 0): dark corner
    EXPECT_EQ(canvas[23 * 20 + 14], rgba(7, 7, 7));  // centre of the hole stays untouched
}

// Non-finite strengths give the indices of their finite stand-ins (NaN: 0, infinities: the
// largest floats of their signs), through quantize_colors, map_from_image and dither_colors.
TEST(qFrameDecoratorColorTest, NonFiniteStrengthsTakeTheirFiniteStandIns) {
    const BgraImage picture = test_picture(9, 7, true);
    const float inf = std::numeric_limits<float>::infinity();
    const std::pair<float, float> cases[] = {
        {inf,           FLT_MAX },
        {-inf,          -FLT_MAX},
        {std::nanf(""), 0.0f    }
    };
    for (const auto& [given, taken] : cases) {
        std::vector<int> indices[2];
        for (int k = 0; k < 2; ++k) {
            const float s = k == 0 ? given : taken;
            qFrameDecorator frame;
            ASSERT_EQ(frame.attach(direct_copy(picture), qPoint()), 0);
            ASSERT_EQ(frame.quantize_colors(8, CM_ADAPTIVE, QT_DIFFUSION, false, s, s, 1, nullptr),
                      0);
            for (int y = 0; y < 7; ++y)
                for (int x = 0; x < 9; ++x) indices[k].push_back(frame.pixel_index(qPoint(x, y)));
        }
        EXPECT_EQ(indices[0], indices[1]) << given;
    }
}

// An indexed leaf is read through its own palette; its transparent index, stored apart from an
// all-opaque palette, still takes part in choosing the palette and then maps to the
// transparent entry.
TEST(qFrameDecoratorColorTest, IndexedLeafKeepsItsTransparentIndex) {
    qColormap map;
    ASSERT_EQ(map.create(3), 0);
    map.set_color(0, rgba(200, 0, 0));
    map.set_color(1, rgba(0, 200, 0));
    map.set_color(2, rgba(0, 0, 200));
    auto* leaf = new qIndexImage;
    ASSERT_EQ(leaf->Create_buffer(qSize(3, 1), PT_INDEX8), 0);
    ASSERT_EQ(leaf->set_colormap(&map, 2), 0);
    for (int x = 0; x < 3; ++x) *leaf->pixel_address(0, x) = static_cast<unsigned char>(x);
    qFrameDecorator frame;
    ASSERT_EQ(frame.attach(leaf, qPoint()), 0);
    ASSERT_EQ(frame.quantize_colors(4, CM_ADAPTIVE, QT_NEAREST, false, 1.0f, 0.0f, 1, nullptr), 0);
    const qIColormap* reduced = frame.colormap();
    ASSERT_EQ(reduced->num_colors(), 4);  // red, green, blue (from the prescan) + transparent
    const std::vector<int> indices = leaf_indices(frame);
    EXPECT_EQ(reduced->get_color(indices[0]), rgba(200, 0, 0));
    EXPECT_EQ(reduced->get_color(indices[1]), rgba(0, 200, 0));
    EXPECT_EQ(indices[2], 3);
}

TEST(qFrameDecoratorColorTest, FailuresLeaveTheLeafInPlace) {
    const BgraImage picture = test_picture(6, 5, true);
    qColormap opaque_map;
    ASSERT_EQ(opaque_map.create(2), 0);
    opaque_map.set_opaque_all();
    qColormap empty_map;
    StopAtRow first_row(1);
    StopAtRow third_row(3);

    const qCmapType unknown = static_cast<qCmapType>(3);
    struct Case {
        const char* name;
        int expected;
        qtest::Reduction call;
    };
    // clang-format off
    const Case cases[] = {
        {"unknown palette kind",   -6, qtest::generated(16, unknown, QT_NEAREST, true)},
        {"grey ramp of no levels", -5, qtest::generated(0, CM_GRAY, QT_NEAREST, true)},
        {"null map",               -5, qtest::given(nullptr, QT_NEAREST, true)},
        {"empty map",              -5, qtest::given(&empty_map, QT_NEAREST, true)},
        {"no transparent entry",  -10, qtest::given(&opaque_map, QT_DIFFUSION, false)},
        {"stop at row 1",           1, qtest::generated(16, CM_ADAPTIVE, QT_NEAREST, false, &first_row)},
        {"stop at row 3",           1, qtest::generated(8, CM_CUBE, QT_DIFFUSION, false, &third_row)},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qDirectImage* leaf = direct_copy(picture);
        qFrameDecorator frame;
        ASSERT_EQ(frame.attach(leaf, qPoint(1, 2)), 0);
        EXPECT_EQ(qtest::reduce(frame, c.call), c.expected);
        EXPECT_EQ(frame.current_leaf(), leaf);
        EXPECT_EQ(frame.offset(), qPoint(1, 2));
        EXPECT_EQ(std::memcmp(leaf->pixel_address(0, 0), picture.pixel_address(0, 0), 6 * 5 * 4),
                  0);
    }
}

// An empty decorator and one without pixels: the given-map codes, -6 first for a bad kind.
TEST(qFrameDecoratorColorTest, NothingToReduce) {
    qColormap map;
    ASSERT_EQ(map.create(2), 0);
    qFrameDecorator empty;
    qFrameDecorator no_pixels;
    ASSERT_EQ(no_pixels.attach(new NoPixels, qPoint()), 0);
    struct Case {
        const char* name;
        qFrameDecorator* frame;
        int given, adaptive, cube, unknown;
    };
    const Case cases[] = {
        {    "empty",     &empty,   -5,   -5,   -5, -6},
        {"no pixels", &no_pixels, -100, -100, -100, -6},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.frame->quantize_colors(&map, QT_NEAREST, true, 1, 0, nullptr), c.given);
        EXPECT_EQ(c.frame->quantize_colors(4, CM_ADAPTIVE, QT_NEAREST, true, 1, 0, 1, nullptr),
                  c.adaptive);
        EXPECT_EQ(c.frame->quantize_colors(4, CM_CUBE, QT_NEAREST, true, 1, 0, 1, nullptr), c.cube);
        EXPECT_EQ(c.frame->quantize_colors(4, static_cast<qCmapType>(7), QT_NEAREST, true, 1, 0, 1,
                                           nullptr),
                  c.unknown);
        EXPECT_EQ(c.frame->get_rep_color(), (qPixRA{0, 0, 0, 0}));
    }
}

// A decorator around a decorator: the inner frame does the work and swaps its own leaf.
TEST(qFrameDecoratorColorTest, HeldFrameDoesTheWork) {
    const BgraImage picture(4, 4, rgba(90, 60, 30));
    auto* inner = new qFrameDecorator;
    ASSERT_EQ(inner->attach(direct_copy(picture), qPoint(1, 1)), 0);
    qFrameDecorator outer;
    ASSERT_EQ(outer.attach(inner, qPoint(2, 2)), 0);
    EXPECT_EQ(outer.get_rep_color(), rgba(90, 60, 30));
    ASSERT_EQ(outer.quantize_colors(2, CM_GRAY, QT_NEAREST, true, 1, 0, 1, nullptr), 0);
    EXPECT_EQ(outer.current_leaf(), inner->current_leaf());
    EXPECT_EQ(inner->current_leaf()->component_type(), CT_INDEX_IMAGE);
    EXPECT_EQ(outer.offset(), qPoint(3, 3));
}

TEST(qFrameDecoratorColorTest, RepresentativeColour) {
    BgraImage mixed(3, 1, rgba(10, 20, 30));
    mixed.at(1, 0) = rgba(11, 21, 32);        // means 10.5, 20.5, 31: halves round up
    mixed.at(2, 0) = rgba(255, 255, 255, 0);  // alpha 0 does not count
    BgraImage faint(2, 1, rgba(100, 100, 100, 1));
    faint.at(1, 0) = rgba(0, 0, 0, 0);
    struct Case {
        const char* name;
        BgraImage image;
        qPixRA expected;
    };
    // clang-format off
    const Case cases[] = {
        {"one colour",                    BgraImage(5, 4, rgba(17, 99, 201)),    rgba(17, 99, 201)},
        {"half-way means round up",       mixed,                                 rgba(11, 21, 31)},
        {"alpha 1 counts, opaque answer", faint,                                 rgba(100, 100, 100)},
        {"fully transparent",             BgraImage(3, 3, rgba(50, 60, 70, 0)), rgba(0, 0, 0)},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qFrameDecorator frame;
        ASSERT_EQ(frame.attach(direct_copy(c.image), qPoint()), 0);
        EXPECT_EQ(frame.get_rep_color(), c.expected);
        qImageProxy proxy;
        ASSERT_EQ(proxy.Set(&c.image), 0);
        EXPECT_EQ(proxy.get_rep_color(), c.expected);
    }
    qFrameDecorator unsupported;  // pixels the prescan cannot read
    auto* bgr = new qDirectImage;
    ASSERT_EQ(bgr->Create_buffer(qSize(2, 2), PT_BGR24, nullptr), 0);
    ASSERT_EQ(unsupported.attach(bgr, qPoint()), 0);
    EXPECT_EQ(unsupported.get_rep_color(), (qPixRA{0, 0, 0, 0}));
}

// The facade's reduction against one built from the public pieces: the quantizer front's
// palette, then the cache's answer per pixel (nearest) or the diffusing mapper (diffusion).
TEST(qFrameDecoratorColorTest, FacadeMatchesAReferenceBuiltFromThePieces) {
    struct Case {
        int num_colors;
        qQuantizer quantizer;
        bool opaque;
        float color_strength, alpha_strength;
        unsigned char min_alpha;
    };
    const Case cases[] = {
        {256,   QT_NEAREST, false,  1.0f, 0.0f,   1},
        { 16,   QT_NEAREST,  true,  1.0f, 0.0f,   1},
        { 16,   QT_NEAREST, false,  1.0f, 0.0f, 128},
        {256, QT_DIFFUSION,  true,  1.0f, 0.0f,   1},
        { 16, QT_DIFFUSION, false, 0.75f, 0.5f,   1},
        {  5, QT_DIFFUSION, false,  1.0f, 0.0f,   1},
    };
    std::mt19937 rng(5);
    BgraImage picture = test_picture(67, 45, true, 9);
    for (int k = 0; k < 200; ++k) {  // some partial alphas
        picture.at(static_cast<int>(rng() % 67), static_cast<int>(rng() % 45)).alpha =
            static_cast<unsigned char>(rng() % 255);
    }
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.num_colors << " colours, quantizer " << c.quantizer
                                        << ", opaque " << c.opaque);
        qImageProxy proxy;
        ASSERT_EQ(proxy.Set(&picture), 0);
        ASSERT_EQ(proxy.quantize_colors(c.num_colors, CM_ADAPTIVE, c.quantizer, c.opaque,
                                        c.color_strength, c.alpha_strength, c.min_alpha, nullptr),
                  0);
        const qIComponent* leaf = proxy.current_leaf();
        ASSERT_NE(leaf, nullptr);
        ASSERT_EQ(proxy.current_leaf_type(), CT_INDEX_IMAGE);

        qColorQuantProxy quant;
        ASSERT_EQ(quant.create_quantizer(), 0);
        ASSERT_EQ(quant.prescan_quantize(&picture, c.min_alpha), 0);
        ASSERT_EQ(quant.select_colors(c.num_colors, !c.opaque), 0);
        const qIColormap& palette = *quant.colormap();
        ASSERT_EQ(entries(*proxy.colormap()), entries(palette));

        std::vector<int> expected;
        if (c.quantizer == QT_NEAREST) {
            for (int y = 0; y < picture.height(); ++y) {
                for (int x = 0; x < picture.width(); ++x) {
                    const qPixRA p = picture.at(x, y);
                    expected.push_back(!c.opaque && p.alpha == 0
                                           ? palette.min_t_index()
                                           : qtest::cache_nearest(palette, p.red, p.green, p.blue));
                }
            }
        } else {
            std::vector<unsigned char> out(static_cast<size_t>(picture.width()) * picture.height());
            qImageEdit view;
            ASSERT_EQ(view.Bind(out.data(), picture.size(), picture.width(), PT_INDEX8), 0);
            qImageAlias source;
            ASSERT_EQ(source.Bind(&picture), 0);
            auto cache = std::make_unique<qGifColormap>();
            cache->attach(&palette);
            ASSERT_EQ(view.dither_colors(qRect(picture.size()), &source, qPoint(), cache.get(),
                                         c.opaque, c.color_strength, c.alpha_strength, nullptr),
                      0);
            expected.assign(out.begin(), out.end());
        }
        const std::vector<int> got = leaf_indices(*leaf);
        ASSERT_EQ(got.size(), expected.size());
        for (size_t k = 0; k < got.size(); ++k) ASSERT_EQ(got[k], expected[k]) << "pixel " << k;
    }
}

}  // namespace
