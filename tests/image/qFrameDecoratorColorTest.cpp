// Colour reduction and the representative colour of qFrameDecorator, directly and through the
// facade, against a reference built from the public pieces (quantizer front, cache rule,
// mapping views).
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "color/qTestImages.h"
#include "image/ReductionCase.h"
#include "qimg/color/qColorQuantProxy.h"
#include "qimg/color/qColormap.h"
#include "qimg/core/qImageProxy.h"
#include "qimg/core/qMonitor.h"
#include "qimg/gif/qGifColormap.h"
#include "qimg/image/qColorIndexImage.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/image/qFrameDecorator.h"
#include "qimg/image/qIndexImage.h"
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
