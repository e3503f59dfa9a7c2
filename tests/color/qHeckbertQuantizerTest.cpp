#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <vector>

#include "color/qTestImages.h"
#include "qimg/color/qColorQuantProxy.h"
#include "qimg/color/qHeckbertQuantizer.h"
#include "qimg/core/qAllocationHookPriv.h"
#include "qimg/palette/qSafeColormap.h"

namespace {

using qtest::BgraImage;
using qtest::rgba;

constexpr qPixRA kTransparentWhite{255, 255, 255, 0};

std::vector<qPixRA> entries(const qIColormap* map) {
    std::vector<qPixRA> out;
    if (!map) return out;
    for (int i = 0; i < map->num_colors(); ++i) out.push_back(map->get_color(i));
    return out;
}

// Quantizes `image` through the proxy and returns the palette.
std::vector<qPixRA> quantize(const qIImageBuffer& image, int n, bool transparent,
                             unsigned char min_alpha = 1) {
    qColorQuantProxy proxy;
    EXPECT_EQ(proxy.create_quantizer(), 0);
    EXPECT_EQ(proxy.prescan_quantize(&image, min_alpha), 0);
    EXPECT_EQ(proxy.select_colors(n, transparent), 0);
    return entries(proxy.colormap());
}

BgraImage from_pixels(const std::vector<qPixRA>& pixels) {
    BgraImage image(static_cast<int>(pixels.size()), 1);
    for (size_t i = 0; i < pixels.size(); ++i) image.at(static_cast<int>(i), 0) = pixels[i];
    return image;
}

TEST(qHeckbertQuantizerTest, OneColourGivesOneEntry) {
    const BgraImage image(7, 5, rgba(200, 100, 50));
    EXPECT_EQ(quantize(image, 16, false), std::vector<qPixRA>{rgba(200, 100, 50)});
    EXPECT_EQ(quantize(image, 16, true),
              (std::vector<qPixRA>{rgba(200, 100, 50), kTransparentWhite}));
    // n of 1 or less still gives the one colour.
    EXPECT_EQ(quantize(image, 1, true),
              (std::vector<qPixRA>{rgba(200, 100, 50), kTransparentWhite}));
    EXPECT_EQ(quantize(image, -3, false), std::vector<qPixRA>{rgba(200, 100, 50)});
}

TEST(qHeckbertQuantizerTest, WorkedSplits) {
    struct Case {
        const char* name;
        std::vector<qPixRA> pixels;
        int n;
        std::vector<qPixRA> expected;
    };
    const Case cases[] = {
        {        "black and white split in two",
         {rgba(0, 0, 0), rgba(255, 255, 255)},
         2, {rgba(0, 0, 0), rgba(255, 255, 255)}                                                                              },
 // Cells red 0..3 and green 0..2: scaled spans 48 and 48, so green is cut.
        {"a tie of red and green goes to green",
         {rgba(0, 0, 0), rgba(24, 0, 0), rgba(0, 16, 0), rgba(24, 16, 0)},
         2,    {rgba(12, 0, 0), rgba(12, 16, 0)}                                                                              },
 // Red span 4 cells (64) beats green 2 cells (48).
        {            "a longer red side is cut",
         {rgba(0, 0, 0), rgba(32, 0, 0), rgba(0, 16, 0), rgba(32, 16, 0)},
         2,      {rgba(0, 8, 0), rgba(32, 8, 0)}                                                                              },
 // Blue 7 cells (56) beats red 3 (48) and green 2 (48).
        {     "blue only when strictly longest",
         {rgba(0, 0, 0), rgba(24, 16, 0), rgba(0, 0, 56), rgba(24, 16, 56)},
         2,    {rgba(12, 8, 0), rgba(12, 8, 56)}                                                                              },
        {                "mean rounded half up", {rgba(10, 20, 30), rgba(11, 21, 31)}, 4,                   {rgba(11, 21, 31)}},
        {             "weighted by pixel count",
         {rgba(0, 0, 0), rgba(0, 0, 0), rgba(3, 3, 3)},
         4,                      {rgba(1, 1, 1)}                                                                              },
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(quantize(from_pixels(c.pixels), c.n, false), c.expected);
    }
}

TEST(qHeckbertQuantizerTest, MinAlphaDecidesWhichPixelsCount) {
    BgraImage image(2, 1);
    image.at(0, 0) = rgba(200, 0, 0, 255);
    image.at(1, 0) = rgba(0, 0, 200, 0);
    EXPECT_EQ(quantize(image, 1, false, 1), std::vector<qPixRA>{rgba(200, 0, 0)});
    EXPECT_EQ(quantize(image, 1, false, 0), std::vector<qPixRA>{rgba(100, 0, 100)});
    EXPECT_EQ(quantize(image, 8, true, 255),
              (std::vector<qPixRA>{rgba(200, 0, 0), kTransparentWhite}));
    // Nothing counted: one opaque black entry.
    const BgraImage clear(3, 3, rgba(9, 9, 9, 0));
    EXPECT_EQ(quantize(clear, 8, true), (std::vector<qPixRA>{rgba(0, 0, 0), kTransparentWhite}));
}

TEST(qHeckbertQuantizerTest, HistogramKeepsExactSums) {
    std::mt19937 rng(3);
    BgraImage image(37, 29);
    for (int y = 0; y < 29; ++y)
        for (int x = 0; x < 37; ++x) image.at(x, y) = qtest::random_colour(rng, (x * y) & 255);
    qHeckbertQuantizer quantizer;
    EXPECT_EQ(quantizer.histogram(), nullptr);
    EXPECT_EQ(quantizer.colormap(), nullptr);
    // Two prescans of parts add up.
    ASSERT_EQ(quantizer.prescan(&image, qRect(0, 0, 37, 10), 30), 0);
    ASSERT_EQ(quantizer.prescan(&image, qRect(5, 10, 32, 19), 30), 0);
    std::vector<qHeckbertQuantizer::Cell> expected(qHeckbertQuantizer::kCells);
    for (int y = 0; y < 29; ++y) {
        for (int x = y < 10 ? 0 : 5; x < 37; ++x) {
            const qPixRA p = image.at(x, y);
            if (p.alpha < 30) continue;
            auto& cell = expected[static_cast<size_t>((p.red >> 3) * 1024 + (p.green >> 3) * 32 +
                                                      (p.blue >> 3))];
            cell.red += p.red, cell.green += p.green, cell.blue += p.blue, cell.count += 1;
        }
    }
    const qHeckbertQuantizer::Cell* h = quantizer.histogram();
    ASSERT_NE(h, nullptr);
    for (int i = 0; i < qHeckbertQuantizer::kCells; ++i) {
        const auto& e = expected[static_cast<size_t>(i)];
        ASSERT_TRUE(h[i].red == e.red && h[i].green == e.green && h[i].blue == e.blue &&
                    h[i].count == e.count)
            << "cell " << i;
    }
}

TEST(qHeckbertQuantizerTest, FewColoursComeBackExactly) {
    // Up to n colours in distinct cells are all separated, each entry exactly its colour.
    std::mt19937 rng(11);
    for (int n : {2, 5, 16, 100, 256}) {
        SCOPED_TRACE(n);
        std::set<int> cells;
        std::vector<qPixRA> colours;
        while (static_cast<int>(colours.size()) < n) {
            const qPixRA c = qtest::random_colour(rng);
            if (cells.insert((c.red >> 3) * 1024 + (c.green >> 3) * 32 + (c.blue >> 3)).second)
                colours.push_back(c);
        }
        std::vector<qPixRA> pixels;
        for (size_t i = 0; i < colours.size(); ++i)
            pixels.insert(pixels.end(), 1 + i % 3, colours[i]);
        std::vector<qPixRA> got = quantize(from_pixels(pixels), n, false);
        const auto order = [](qPixRA a, qPixRA b) {
            return std::tie(a.red, a.green, a.blue) < std::tie(b.red, b.green, b.blue);
        };
        std::sort(got.begin(), got.end(), order);
        std::sort(colours.begin(), colours.end(), order);
        EXPECT_EQ(got, colours);
    }
}

TEST(qHeckbertQuantizerTest, CountNeverPassesThePalette) {
    std::mt19937 rng(5);
    BgraImage image(64, 64);
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) image.at(x, y) = qtest::random_colour(rng);
    struct Case {
        int n;
        bool transparent;
        int colours;
    };
    for (const Case& c : {
             Case{       256, false, 256},
             Case{       257,  true, 255},
             Case{      1000, false, 256},
             Case{      1000,  true, 255},
             Case{2147483647,  true, 255},
             Case{        16,  true,  15},
             Case{        16, false,  16}
    }) {
        SCOPED_TRACE(testing::Message() << c.n << (c.transparent ? " +t" : ""));
        const auto got = quantize(image, c.n, c.transparent);
        ASSERT_EQ(static_cast<int>(got.size()), c.colours + (c.transparent ? 1 : 0));
        for (int i = 0; i < c.colours; ++i) EXPECT_EQ(got[static_cast<size_t>(i)].alpha, 255);
        if (c.transparent) {
            EXPECT_EQ(got.back(), kTransparentWhite);
        }
    }
}

TEST(qHeckbertQuantizerTest, IndexedImagesAreReadThroughTheirPalette) {
    qSafeColormap palette;
    palette.set_color(0, rgba(10, 10, 10));
    palette.set_color(1, rgba(250, 0, 0, 0));  // below min_alpha 1: not counted
    qtest::IndexImage image(4, 2, &palette);
    image.at(3, 1) = 1;
    EXPECT_EQ(quantize(image, 4, false), std::vector<qPixRA>{rgba(10, 10, 10)});
    EXPECT_EQ(quantize(image, 4, false, 0),
              (std::vector<qPixRA>{rgba(10, 10, 10), rgba(250, 0, 0)}));
}

TEST(qHeckbertQuantizerTest, BadCallsReturnCodesAndChangeNothing) {
    const BgraImage image(4, 4, rgba(1, 2, 3));
    qtest::IndexImage no_palette(4, 4, nullptr);
    class Gray8 : public BgraImage {
    public:
        Gray8() : BgraImage(4, 4) {}
        qPixelType pixel_type() const override { return PT_GRAY8; }
    } gray;

    qHeckbertQuantizer quantizer;
    EXPECT_EQ(quantizer.select_colors(4, false), -5);  // nothing prescanned yet
    EXPECT_EQ(quantizer.prescan(nullptr, qRect(0, 0, 1, 1), 0), -5);
    EXPECT_EQ(quantizer.prescan(&no_palette, qRect(0, 0, 4, 4), 0), -5);
    EXPECT_EQ(quantizer.prescan(&gray, qRect(0, 0, 4, 4), 0), -6);
    EXPECT_EQ(quantizer.prescan(&image, qRect(1, 1, 4, 3), 0), -5);  // past the right edge
    EXPECT_EQ(quantizer.prescan(&image, qRect(-1, 0, 2, 2), 0), -5);
    EXPECT_EQ(quantizer.colormap(), nullptr);
    EXPECT_EQ(quantizer.select_colors(4, false), -5);
    EXPECT_EQ(quantizer.prescan(&image, qRect(0, 0, 0, 0), 0), 0);  // empty area: nothing added
    EXPECT_EQ(quantizer.select_colors(4, false), 0);
    EXPECT_EQ(entries(quantizer.colormap()), std::vector<qPixRA>{rgba(0, 0, 0)});

    qColorQuantProxy proxy;
    EXPECT_EQ(proxy.prescan_quantize(&image, 0), -5);
    EXPECT_EQ(proxy.select_colors(4, true), -5);
    EXPECT_EQ(proxy.colormap(), nullptr);
    ASSERT_EQ(proxy.create_quantizer(), 0);
    EXPECT_EQ(proxy.select_colors(4, true), -5);
    EXPECT_EQ(proxy.colormap(), nullptr);
    EXPECT_EQ(proxy.prescan_quantize(nullptr, 0), -5);
    ASSERT_EQ(proxy.create_fixed_colormap(8, CM_CUBE, false), 0);
    EXPECT_EQ(proxy.prescan_quantize(&image, 0), -5);  // a fixed map is held, no quantizer
    EXPECT_EQ(proxy.colormap(), nullptr);
}

#ifdef QIMG_TEST_HOOKS
TEST(qHeckbertQuantizerTest, EveryAllocationFailureIsReported) {
    const BgraImage image(3, 3, rgba(40, 50, 60));
    for (long n = 1;; ++n) {
        SCOPED_TRACE(n);
        qColorQuantProxy proxy;
        qimg_fail_allocation(n);
        int status = proxy.create_quantizer();
        if (status == 0) status = proxy.prescan_quantize(&image, 1);
        if (status == 0) status = proxy.select_colors(4, true);
        qimg_fail_allocation(0);
        if (status == 0) {
            EXPECT_EQ(entries(proxy.colormap()),
                      (std::vector<qPixRA>{rgba(40, 50, 60), kTransparentWhite}));
            EXPECT_GT(n, 2);
            break;
        }
        EXPECT_EQ(status, -1);
        // A failed prescan keeps nothing half made; the next one succeeds.
        if (proxy.create_quantizer() == 0) {
            EXPECT_EQ(proxy.colormap(), nullptr);
        }
    }
}
#endif

}  // namespace
