// Colour reduction of a frame: the facade's result equals the palette of the quantizer and the
// mapping of the row mappers run by hand, and a refused reduction leaves the frame as it was.
#include "qimg/image/qFrameDecorator.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "color/qTestImages.h"
#include "qimg/color/qColorQuantProxy.h"
#include "qimg/color/qGifColormap.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/palette/qColormap.h"
#include "qimg/raster/qImageEdit.h"

namespace {

using qtest::BgraImage;
using qtest::entries;
using qtest::rgba;

// A gradient with noise and, when asked, a transparent hole in the middle.
BgraImage test_picture(int width, int height, bool hole, unsigned seed = 3) {
    std::mt19937 rng(seed);
    BgraImage image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            image.at(x, y) = rgba((x * 255) / width, (y * 255) / height,
                                  (x * y + static_cast<int>(rng() % 40)) & 255);
            const int dx = x - width / 2, dy = y - height / 2;
            if (hole && dx * dx + dy * dy < width * height / 16) image.at(x, y).alpha = 0;
        }
    }
    return image;
}

std::vector<int> leaf_indices(const qIComponent& frame) {
    const qIComponent* leaf = frame.current_leaf();
    std::vector<int> out;
    for (int y = 0; y < leaf->size().height; ++y)
        for (int x = 0; x < leaf->size().width; ++x) out.push_back(leaf->pixel_index(qPoint(x, y)));
    return out;
}

TEST(qFrameDecoratorColorTest, RefusedReductionsLeaveTheLeafInPlace) {
    const BgraImage picture = test_picture(6, 5, true);
    qColormap opaque_map, empty_map;
    ASSERT_EQ(opaque_map.create(2), 0);
    opaque_map.set_opaque_all();
    using Call = std::function<int(qFrameDecorator&)>;
    const auto generated = [](int n, int kind) -> Call {
        return [=](qFrameDecorator& f) {
            return f.quantize_colors(n, static_cast<qCmapType>(kind), QT_NEAREST, true, 1, 1, 1,
                                     nullptr);
        };
    };
    const auto given = [](const qIColormap* map, bool opaque) -> Call {
        return [=](qFrameDecorator& f) {
            return f.quantize_colors(map, QT_DIFFUSION, opaque, 1, 1, nullptr);
        };
    };
    const struct {
        const char* name;
        int expected;
        Call call;
    } cases[] = {
        {"unknown palette kind",   -6,  generated(16,      3)      },
        {"grey ramp of no levels", -5,  generated(0,       CM_GRAY)},
        {"null map",               -5,  given(nullptr,     true)   },
        {"empty map",              -5,  given(&empty_map,  true)   },
        {"no transparent entry",   -10, given(&opaque_map, false)  },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto* leaf = new qDirectImage;
        ASSERT_EQ(leaf->copy_from(&picture), 0);
        qFrameDecorator frame;
        ASSERT_EQ(frame.attach(leaf, qPoint(1, 2)), 0);
        EXPECT_EQ(c.call(frame), c.expected);
        EXPECT_EQ(frame.current_leaf(), leaf);
        EXPECT_EQ(frame.offset(), qPoint(1, 2));
        EXPECT_EQ(std::memcmp(leaf->pixel_address(0, 0), picture.pixel_address(0, 0), 6 * 5 * 4),
                  0);
    }
}

TEST(qFrameDecoratorColorTest, FacadeMatchesAReferenceBuiltFromThePieces) {
    struct Case {
        int num_colors;
        qQuantizer quantizer;
        bool opaque;
        float color_strength, alpha_strength;
        unsigned char min_alpha;
    };
    // clang-format off
    const Case cases[] = {{256, QT_NEAREST, false, 1, 0, 1},   {16, QT_NEAREST, true, 1, 0, 1},
                          {16, QT_NEAREST, false, 1, 0, 128},  {256, QT_DIFFUSION, true, 1, 0, 1},
                          {5, QT_DIFFUSION, false, 1, 0, 1},
                          {16, QT_DIFFUSION, false, 0.75f, 0.5f, 1}};
    // clang-format on
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

        // The row mappers run by hand through a nearest-colour cache of that palette.
        std::vector<unsigned char> out(static_cast<size_t>(picture.width()) * picture.height());
        qImageEdit view;
        ASSERT_EQ(view.Bind(out.data(), picture.size(), picture.width(), PT_INDEX8), 0);
        qImageAlias source;
        ASSERT_EQ(source.Bind(&picture), 0);
        qGifColormap cache;
        cache.attach(&palette);
        const qRect area(picture.size());
        ASSERT_EQ(c.quantizer == QT_NEAREST
                      ? view.map_colors(area, &source, qPoint(), &cache, c.opaque, nullptr)
                      : view.dither_colors(area, &source, qPoint(), &cache, c.opaque,
                                           c.color_strength, c.alpha_strength, nullptr),
                  0);
        const std::vector<int> expected(out.begin(), out.end());
        const std::vector<int> got = leaf_indices(*leaf);
        ASSERT_EQ(got.size(), expected.size());
        for (size_t k = 0; k < got.size(); ++k) ASSERT_EQ(got[k], expected[k]) << "pixel " << k;
    }
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
            auto* leaf = new qDirectImage;
            ASSERT_EQ(leaf->copy_from(&picture), 0);
            qFrameDecorator frame;
            ASSERT_EQ(frame.attach(leaf, qPoint()), 0);
            ASSERT_EQ(frame.quantize_colors(8, CM_ADAPTIVE, QT_DIFFUSION, false, s, s, 1, nullptr),
                      0);
            for (int y = 0; y < 7; ++y)
                for (int x = 0; x < 9; ++x) indices[k].push_back(frame.pixel_index(qPoint(x, y)));
        }
        EXPECT_EQ(indices[0], indices[1]) << given;
    }
}

}  // namespace
