#include "qimg/color/qHeckbertQuantizer.h"

#include <gtest/gtest.h>

#include <array>
#include <initializer_list>
#include <vector>

#include "color/qTestImages.h"
#include "qimg/color/qColorQuantProxy.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qSafeColormap.h"

namespace {

using qtest::BgraImage;
using qtest::rgba;

constexpr qPixRA kTransparentWhite{255, 255, 255, 0};

// Quantizes `image` through the proxy and returns the palette.
std::vector<qPixRA> quantize(const qIImageBuffer& image, int n, bool transparent,
                             unsigned char min_alpha = 1) {
    qColorQuantProxy proxy;
    EXPECT_EQ(proxy.create_quantizer(), 0);
    EXPECT_EQ(proxy.prescan_quantize(&image, min_alpha), 0);
    EXPECT_EQ(proxy.select_colors(n, transparent), 0);
    return qtest::entries(*proxy.colormap());
}

BgraImage from_pixels(const std::vector<qPixRA>& pixels) {
    BgraImage image(static_cast<int>(pixels.size()), 1);
    for (size_t i = 0; i < pixels.size(); ++i) image.at(static_cast<int>(i), 0) = pixels[i];
    return image;
}

// One pixel per listed cell (red, green, blue cell coordinates), at the cell's lowest colour.
BgraImage cells(std::initializer_list<std::array<int, 3>> list) {
    std::vector<qPixRA> pixels;
    for (const auto& c : list) pixels.push_back(rgba(8 * c[0], 8 * c[1], 8 * c[2]));
    return from_pixels(pixels);
}

// The greens of the cases below: a colour with red and blue 0.
qPixRA g(int green) {
    return rgba(0, green, 0);
}

// Each histogram's palette depends on one rule of the cut: which box is split (by colour count
// while twice the box count is at most n, then by volume; the lowest-numbered box wins ties),
// where ((min + max) / 2), on which axis, and that the new box takes the next entry.
TEST(qHeckbertQuantizerTest, MedianCutRules) {
    // clang-format off
    const BgraImage near_far =
        cells({{0, 0, 0}, {0, 1, 0}, {0, 2, 0}, {0, 3, 0}, {0, 20, 0}, {0, 31, 0}});
    const BgraImage two_pairs = cells({{0, 0, 0}, {0, 2, 0}, {0, 29, 0}, {0, 31, 0}});
    const BgraImage red_or_green = cells({{0, 0, 0}, {3, 0, 0}, {3, 2, 0}});
    const BgraImage blue_or_green = cells({{0, 0, 0}, {0, 2, 0}, {0, 0, 6}});
    const struct Case {
        const char* name;
        const BgraImage& image;
        int n;
        std::vector<qPixRA> palette;
    } cases[] = {
        // Split at 15: {0..3} and {20, 31}. The four-cell box is split next (by count), at 1;
        // then the widest box, at 25.
        {"count first, then volume", near_far, 4, {g(4), g(160), g(20), g(248)}},
        {"one box less: volume at once", near_far, 3, {g(12), g(160), g(248)}},
        {"two cells a side", near_far, 2, {g(12), g(204)}},
        // Split at 15: {0, 2} and {29, 31}, equal in count and in volume: box 0 goes first.
        {"volume tie", two_pairs, 3, {g(0), g(240), g(16)}},
        {"count tie, then volume", two_pairs, 4, {g(0), g(232), g(16), g(248)}},
        // Spans: red 3 * 16 = 48, green 2 * 24 = 48: green wins, split at 1.
        {"axis tie goes to green", red_or_green, 2, {rgba(12, 0, 0), rgba(24, 16, 0)}},
        // Spans: green 2 * 24 = 48, blue 6 * 8 = 48: blue must be longer to win.
        {"blue only when longer", blue_or_green, 2, {rgba(0, 0, 24), rgba(0, 16, 0)}},
        // Spans: red 2 * 16 = 32 beat green 1 * 24; split at red 1.
        {"red when longer", cells({{0, 0, 0}, {2, 0, 0}, {0, 1, 0}}), 2, {g(4), rgba(16, 0, 0)}},
        {"no box to split", cells({{5, 6, 7}}), 16, {rgba(40, 48, 56)}},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(quantize(c.image, c.n, false), c.palette);
    }
}

// A cell stops counting at 2^24 pixels, so that its 32-bit sums cannot wrap: 255 times more than
// 2^24 + 65793 pixels would.
TEST(qHeckbertQuantizerTest, CellCountsStopAtTwoToThe24) {
    const BgraImage white(4105, 4104, rgba(255, 255, 255));
    EXPECT_EQ(quantize(white, 2, false), std::vector<qPixRA>{rgba(255, 255, 255)});
}

TEST(qHeckbertQuantizerTest, RowsWithoutAnAddressAreRefused) {
    struct Hollow : BgraImage {
        using BgraImage::BgraImage;
        unsigned char* pixel_address(int, int) const override { return nullptr; }
    } hollow(2, 2);
    qColorQuantProxy quant;
    ASSERT_EQ(quant.create_quantizer(), 0);
    EXPECT_EQ(quant.prescan_quantize(&hollow, 1), -5);
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

TEST(qHeckbertQuantizerTest, IndexedImagesAreReadThroughTheirPalette) {
    qSafeColormap palette;
    palette.set_color(0, rgba(10, 10, 10));
    palette.set_color(1, rgba(250, 0, 0, 0));  // below min_alpha 1: not counted
    qIndexImage image;
    ASSERT_EQ(image.Create_buffer(qSize(4, 2), PT_INDEX8), 0);
    ASSERT_EQ(image.set_colormap(&palette, -1), 0);
    for (int i = 0; i < 8; ++i) *image.pixel_address(i / 4, i % 4) = i == 7;
    EXPECT_EQ(quantize(image, 4, false), std::vector<qPixRA>{rgba(10, 10, 10)});
    EXPECT_EQ(quantize(image, 4, false, 0),
              (std::vector<qPixRA>{rgba(10, 10, 10), rgba(250, 0, 0)}));
}

}  // namespace
