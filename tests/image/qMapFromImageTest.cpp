// qIndexImage::map_from_image and its qColorIndexImage forward: an index image filled from any
// image through its own palette, nearest colour or diffused.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "color/qTestImages.h"
#include "qimg/color/qColormap.h"
#include "qimg/core/qAllocationHookPriv.h"
#include "qimg/core/qMonitor.h"
#include "qimg/image/qColorIndexImage.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/image/qIndexImage.h"

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

class StopAfter : public qIMonitor {
public:
    explicit StopAfter(int rows) : rows_(rows) {}
    bool progress(int done, int, int, int) override { return done < rows_; }

private:
    int rows_;
};

// The small worked cases, each through the index image's own operation.
TEST(qMapFromImageTest, WorkedExamples) {
    const auto bw = palette_of({rgba(0, 0, 0), rgba(255, 255, 255)});
    const auto with_t = palette_of({rgba(40, 80, 120), rgba(255, 255, 255, 0)});
    BgraImage holes(4, 1, rgba(200, 10, 10, 1));
    holes.at(1, 0).alpha = 0;
    holes.at(3, 0).alpha = 0;
    const auto three = palette_of({rgba(0, 0, 0), rgba(255, 255, 255, 0), rgba(200, 10, 10)});

    struct Case {
        const char* name;
        BgraImage source;
        const qIColormap* map;
        qQuantizer quantizer;
        bool opaque;
        float color_strength, alpha_strength;
        std::vector<int> expected;
    };
    const BgraImage grey(6, 1, rgba(128, 128, 128));
    const BgraImage half(6, 1, rgba(40, 80, 120, 128));
    const BgraImage quarter(6, 1, rgba(40, 80, 120, 64));
    // clang-format off
    const Case cases[] = {
        {"mid grey alternates under full diffusion",
         grey, bw.get(), QT_DIFFUSION, true, 1.0f, 0.0f, {1, 0, 1, 0, 1, 0}},
        {"mid grey without diffusion is all white",
         grey, bw.get(), QT_NEAREST, true, 1.0f, 0.0f, {1, 1, 1, 1, 1, 1}},
        {"alpha 128 alternates when alpha is diffused",
         half, with_t.get(), QT_DIFFUSION, false, 1.0f, 1.0f, {0, 1, 0, 1, 0, 1}},
        {"alpha 64 never reaches 128",
         quarter, with_t.get(), QT_DIFFUSION, false, 1.0f, 1.0f, {1, 1, 1, 1, 1, 1}},
        {"alpha 64 is opaque when alpha is two-level",
         quarter, with_t.get(), QT_DIFFUSION, false, 1.0f, 0.0f, {0, 0, 0, 0, 0, 0}},
        {"alpha 0 takes the transparent entry",
         holes, three.get(), QT_NEAREST, false, 1.0f, 0.0f, {2, 1, 2, 1}},
        {"opaque ignores alpha",
         holes, three.get(), QT_DIFFUSION, true, 1.0f, 1.0f, {2, 2, 2, 2}},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto image = destination(c.source.size(), c.map);
        ASSERT_EQ(image->map_from_image(&c.source, c.quantizer, c.opaque, c.color_strength,
                                        c.alpha_strength, nullptr),
                  0);
        EXPECT_EQ(indices_of(*image), c.expected);
    }
}

// Pixels whose colour is a palette entry come back as that entry, diffused or not: the error
// they leave is zero, so there is no dither noise to spread.
TEST(qMapFromImageTest, PaletteColoursComeBackExactly) {
    std::mt19937 rng(7);
    std::vector<qPixRA> colours;
    for (int i = 0; i < 40; ++i) colours.push_back(qtest::random_colour(rng));
    colours.push_back(rgba(255, 255, 255, 0));
    const auto map = palette_of(colours);
    BgraImage source(23, 17);
    std::vector<int> expected;
    for (int y = 0; y < 17; ++y) {
        for (int x = 0; x < 23; ++x) {
            const int i = static_cast<int>(rng() % colours.size());
            source.at(x, y) = colours[static_cast<size_t>(i)];
            expected.push_back(i);
        }
    }
    for (qQuantizer q : {QT_NEAREST, QT_DIFFUSION}) {
        for (float alpha_strength : {0.0f, 1.0f}) {
            SCOPED_TRACE(testing::Message() << q << " " << alpha_strength);
            auto image = destination(source.size(), map.get());
            ASSERT_EQ(image->map_from_image(&source, q, false, 1.0f, alpha_strength, nullptr), 0);
            // Random colours are far apart, but a 5-bit cell may still hold two of them: then
            // the palette colour, not the index, is what must come back.
            const std::vector<int> got = indices_of(*image);
            for (size_t k = 0; k < got.size(); ++k) {
                ASSERT_EQ(map->get_color(got[k]), map->get_color(expected[k])) << k;
            }
        }
    }
}

// An indexed source is read through its palette, its transparent index counting as alpha 0
// even when the palette entry itself is opaque.
TEST(qMapFromImageTest, IndexedSourceIsReadThroughItsPalette) {
    const auto source_map = palette_of({rgba(10, 10, 10), rgba(250, 250, 250), rgba(0, 0, 250)});
    qIndexImage source;
    ASSERT_EQ(source.Create_buffer(qSize(3, 2), PT_INDEX8), 0);
    ASSERT_EQ(source.set_colormap(source_map.get(), 2), 0);
    const unsigned char pixels[6] = {0, 1, 2, 2, 1, 0};
    for (int k = 0; k < 6; ++k) *source.pixel_address(k / 3, k % 3) = pixels[k];

    const auto target_map =
        palette_of({rgba(255, 255, 255, 0), rgba(255, 255, 255), rgba(0, 0, 0)});
    auto image = destination(qSize(3, 2), target_map.get());
    ASSERT_EQ(image->map_from_image(&source, QT_NEAREST, false, 1.0f, 0.0f, nullptr), 0);
    EXPECT_EQ(indices_of(*image), (std::vector<int>{2, 1, 0, 0, 1, 2}));
    // Opaque: the blue entry is mapped by its colour (nearest to black).
    ASSERT_EQ(image->map_from_image(&source, QT_NEAREST, true, 1.0f, 0.0f, nullptr), 0);
    EXPECT_EQ(indices_of(*image), (std::vector<int>{2, 1, 2, 2, 1, 2}));
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

TEST(qMapFromImageTest, MonitorCanStopAfterARow) {
    const auto map = palette_of({rgba(0, 0, 0)});
    const BgraImage source(5, 4, rgba(9, 9, 9));
    for (qQuantizer q : {QT_NEAREST, QT_DIFFUSION}) {
        SCOPED_TRACE(q);
        auto image = destination(qSize(5, 4), map.get());
        StopAfter two(2);
        EXPECT_EQ(image->map_from_image(&source, q, true, 1.0f, 0.0f, &two), 1);
        EXPECT_EQ(image->pixel_index(qPoint(4, 1)), 0);     // row 1 done
        EXPECT_EQ(image->pixel_index(qPoint(0, 2)), 0xEE);  // row 2 never started
    }
}

#ifdef QIMG_ALLOCATION_HOOK
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
