// qIndexImage::map_from_image and its qColorIndexImage forward: an index image filled from any
// image through its own palette, nearest colour or diffused.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "color/qTestImages.h"
#include "qimg/color/qGifColormap.h"
#include "qimg/core/qAllocationHookPriv.h"
#include "qimg/core/qMonitor.h"
#include "qimg/image/qColorIndexImage.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"
#include "qimg/raster/qImageEdit.h"

namespace {

using qtest::BgraImage;
using qtest::rgba;

std::unique_ptr<qColormap> palette_of(const std::vector<qPixRA>& colours) {
    auto map = std::make_unique<qColormap>();
    EXPECT_EQ(map->create(static_cast<int>(colours.size())), 0);
    for (size_t i = 0; i < colours.size(); ++i) map->set_color(static_cast<int>(i), colours[i]);
    return map;
}

// A destination of `size` on `map`, every index preset to `fill` so untouched pixels show.
std::unique_ptr<qIndexImage> destination(qSize size, const qIColormap* map,
                                         unsigned char fill = 0xEE) {
    auto image = std::make_unique<qIndexImage>();
    EXPECT_EQ(image->Create_buffer(size, PT_INDEX8), 0);
    EXPECT_EQ(image->set_colormap(map, -1), 0);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) *image->pixel_address(y, x) = fill;
    return image;
}

std::vector<int> indices_of(const qIndexImage& image) {
    std::vector<int> out;
    for (int y = 0; y < image.size().height; ++y)
        for (int x = 0; x < image.size().width; ++x) out.push_back(image.pixel_index(qPoint(x, y)));
    return out;
}

// The operation is the engine's mapping of the whole image through the own palette: compared
// with map_colors / dither_colors called directly (whose worked examples live with the colour
// tests) for true-colour and indexed sources, each quantizer, opaque or not, several strengths.
TEST(qMapFromImageTest, EqualsTheEngineMappingThroughTheOwnPalette) {
    std::mt19937 rng(7);
    std::vector<qPixRA> colours;
    for (int i = 0; i < 20; ++i) colours.push_back(qtest::random_colour(rng));
    colours.push_back(rgba(255, 255, 255, 0));
    const auto map = palette_of(colours);
    BgraImage direct(23, 17);
    for (int y = 0; y < 17; ++y)
        for (int x = 0; x < 23; ++x) direct.at(x, y) = qtest::random_colour(rng, (x * y) % 3 * 127);
    const auto source_map = palette_of({rgba(10, 10, 10), rgba(250, 250, 250), rgba(0, 0, 250)});
    qIndexImage indexed;  // index 2: opaque in its palette, transparent through the image
    ASSERT_EQ(indexed.Create_buffer(qSize(23, 17), PT_INDEX8), 0);
    ASSERT_EQ(indexed.set_colormap(source_map.get(), 2), 0);
    for (int y = 0; y < 17; ++y)
        for (int x = 0; x < 23; ++x) *indexed.pixel_address(y, x) = rng() % 3 & 0xFF;
    const struct {
        qQuantizer quantizer;
        bool opaque;
        float color_strength, alpha_strength;
    } cases[] = {
        {  QT_NEAREST, false,  1.0f, 0.0f},
        {  QT_NEAREST,  true,  1.0f, 0.0f},
        {QT_DIFFUSION, false,  1.0f, 1.0f},
        {QT_DIFFUSION, false, 0.75f, 0.0f},
        {QT_DIFFUSION,  true,  0.5f, 1.0f},
    };
    for (const qIImageBuffer* source : {static_cast<const qIImageBuffer*>(&direct),
                                        static_cast<const qIImageBuffer*>(&indexed)}) {
        for (const auto& c : cases) {
            SCOPED_TRACE(testing::Message() << (source == &direct ? "direct" : "indexed") << ", "
                                            << c.quantizer << ", opaque " << c.opaque << ", "
                                            << c.color_strength << "/" << c.alpha_strength);
            auto image = destination(qSize(23, 17), map.get());
            ASSERT_EQ(image->map_from_image(source, c.quantizer, c.opaque, c.color_strength,
                                            c.alpha_strength, nullptr),
                      0);
            std::vector<unsigned char> expected(23 * 17, 0xEE);
            qImageEdit view;
            ASSERT_EQ(view.Bind(expected.data(), qSize(23, 17), 23, PT_INDEX8), 0);
            qImageAlias alias;
            ASSERT_EQ(alias.Bind(source), 0);
            qGifColormap cache;
            cache.attach(map.get());
            const qRect area(0, 0, 23, 17);
            ASSERT_EQ(c.quantizer == QT_NEAREST
                          ? view.map_colors(area, &alias, qPoint(), &cache, c.opaque, nullptr)
                          : view.dither_colors(area, &alias, qPoint(), &cache, c.opaque,
                                               c.color_strength, c.alpha_strength, nullptr),
                      0);
            EXPECT_EQ(indices_of(*image), std::vector<int>(expected.begin(), expected.end()));
        }
    }
    // The monitor is handed on: a stop after two rows leaves row 2 untouched.
    for (qQuantizer q : {QT_NEAREST, QT_DIFFUSION}) {
        SCOPED_TRACE(q);
        auto image = destination(qSize(23, 17), map.get());
        qtest::StopAtRow two(2);
        EXPECT_EQ(image->map_from_image(&direct, q, true, 1.0f, 0.0f, &two), 1);
        EXPECT_NE(image->pixel_index(qPoint(22, 1)), 0xEE);
        EXPECT_EQ(image->pixel_index(qPoint(0, 2)), 0xEE);
    }
}

TEST(qMapFromImageTest, BadInputChangesNothing) {
    const auto map = palette_of({rgba(0, 0, 0), rgba(255, 255, 255)});
    const BgraImage source(4, 3, rgba(1, 2, 3, 0));
    const BgraImage narrow(3, 3);
    qDirectImage bgr;
    ASSERT_EQ(bgr.Create_buffer(qSize(4, 3), PT_BGR24, nullptr), 0);
    qIndexImage no_map;
    ASSERT_EQ(no_map.Create_buffer(qSize(4, 3), PT_INDEX8), 0);
    qIndexImage empty;

    struct Case {
        const char* name;
        qIndexImage* target;
        const qIImageBuffer* source;
        bool opaque;
        int expected;
    };
    auto image = destination(qSize(4, 3), map.get());
    const Case cases[] = {
        {                      "empty destination",      &empty, &source,  true,  -5},
        {                "destination without map",     &no_map, &source,  true,  -5},
        {                            "null source", image.get(), nullptr,  true,  -5},
        {                       "source too small", image.get(), &narrow,  true,  -5},
        {           "source of another pixel type", image.get(),    &bgr,  true,  -6},
        {"transparent pixel, no transparent entry", image.get(), &source, false, -10},
    };
    for (const Case& c : cases) {
        for (qQuantizer q : {QT_NEAREST, QT_DIFFUSION}) {
            SCOPED_TRACE(testing::Message() << c.name << ", quantizer " << q);
            EXPECT_EQ(c.target->map_from_image(c.source, q, c.opaque, 1.0f, 0.0f, nullptr),
                      c.expected);
        }
    }
    // Only the -10 case reached the mapping, and it stopped at the first pixel.
    EXPECT_EQ(indices_of(*image), std::vector<int>(12, 0xEE));

    qColorIndexImage holder;
    EXPECT_EQ(holder.map_from_image(&source, QT_NEAREST, true, 1.0f, 0.0f, nullptr), -5);
    ASSERT_EQ(holder.Create_buffer(qSize(4, 3), PT_INDEX8), 0);
    ASSERT_EQ(holder.copy_colormap(map.get()), 0);
    EXPECT_EQ(holder.map_from_image(&source, QT_NEAREST, true, 1.0f, 0.0f, nullptr), 0);
    EXPECT_EQ(holder.pixel_index(qPoint(3, 2)), 0);
}

#ifdef QIMG_TEST_HOOKS
// Every allocation (views, palette copies, the cache, error rows) comes before the first index
// is written, so a failure leaves the indices as they were.
TEST(qMapFromImageTest, EveryAllocationFailureGivesMinusOneAndWritesNothing) {
    const auto map = palette_of({rgba(0, 0, 0), rgba(255, 255, 255)});
    const auto source_map = palette_of({rgba(0, 0, 0), rgba(200, 200, 200)});
    qtest::IndexImage indexed(4, 3, source_map.get());
    const BgraImage direct(4, 3, rgba(200, 200, 200));
    for (const qIImageBuffer* source : {static_cast<const qIImageBuffer*>(&direct),
                                        static_cast<const qIImageBuffer*>(&indexed)}) {
        for (qQuantizer q : {QT_NEAREST, QT_DIFFUSION}) {
            for (long n = 1;; ++n) {
                SCOPED_TRACE(testing::Message() << "quantizer " << q << ", allocation " << n);
                auto image = destination(qSize(4, 3), map.get());
                qimg_fail_allocation(n);
                const int rc = image->map_from_image(source, q, true, 1.0f, 0.0f, nullptr);
                qimg_fail_allocation(0);
                if (rc == 0) break;
                EXPECT_EQ(rc, -1);
                EXPECT_EQ(indices_of(*image), std::vector<int>(12, 0xEE));
                ASSERT_LT(n, 20);
            }
        }
    }
}
#endif

}  // namespace
