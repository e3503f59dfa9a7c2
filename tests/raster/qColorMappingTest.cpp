// Tests of qImageEdit::map_colors and dither_colors (qColorMapping.cpp, qDither.cpp).
#include "qimg/raster/qImageEdit.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "color/qTestImages.h"
#include "qimg/color/qColorQuantProxy.h"
#include "qimg/color/qGifColormap.h"
#include "qimg/palette/qSafeColormap.h"
#include "qimg/raster/qDitherPriv.h"

namespace {

using qtest::BgraImage;
using qtest::rgba;

qSafeColormap palette_of(const std::vector<qPixRA>& colours) {
    qSafeColormap map;
    for (size_t i = 0; i < colours.size(); ++i) map.set_color(static_cast<int>(i), colours[i]);
    return map;
}

// Maps `image` to `palette` and returns the status and the indices.
struct Mapped {
    int status;
    std::vector<unsigned char> indices;
};

// A class of its own: the mappers ask it through the interface (their generic path) instead of
// reading a plain qGifColormap's cache inline.
struct DerivedCache : qGifColormap {};

Mapped map_image(const qIImageBuffer& image, const qIColormap& palette, bool dither, bool opaque,
                 float color_strength = 1.0f, float alpha_strength = 0.0f, bool generic = false) {
    const qSize size = image.size();
    Mapped out{0, std::vector<unsigned char>(static_cast<size_t>(size.width) * size.height, 0xEE)};
    qImageEdit destination;
    EXPECT_EQ(destination.Bind(out.indices.data(), size, size.width, PT_INDEX8), 0);
    qImageAlias source;
    EXPECT_EQ(source.Bind(&image), 0);
    qGifColormap plain;
    DerivedCache derived;
    qGifColormap& cache = generic ? derived : plain;
    cache.attach(&palette);
    const qIExColormap* map = &cache;
    const qRect area(size);
    out.status = !dither ? destination.map_colors(area, &source, qPoint(), map, opaque, nullptr)
                         : destination.dither_colors(area, &source, qPoint(), map, opaque,
                                                     color_strength, alpha_strength, nullptr);
    return out;
}

BgraImage random_image(std::mt19937& rng, int width, int height, bool random_alpha) {
    BgraImage image(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image.at(x, y) =
                qtest::random_colour(rng, random_alpha ? static_cast<int>(rng() % 3) * 127 : 255);
    return image;
}

TEST(qColorMappingTest, ColoursOfThePaletteComeBackExactly) {
    qColorQuantProxy proxy;
    ASSERT_EQ(proxy.create_fixed_colormap(256, CM_CUBE, true), 0);
    const qIColormap& cube = *proxy.fixed_colormap();  // 216 colours + transparent white
    std::mt19937 rng(2);
    BgraImage image(31, 17);
    std::vector<unsigned char> expected;
    for (int y = 0; y < 17; ++y) {
        for (int x = 0; x < 31; ++x) {
            const int index = static_cast<int>(rng() % 217);
            image.at(x, y) = cube.get_color(index);
            expected.push_back(static_cast<unsigned char>(index));
        }
    }
    for (bool dither : {false, true}) {
        for (float alpha_strength : {0.0f, 1.0f}) {
            SCOPED_TRACE(testing::Message() << dither << alpha_strength);
            const Mapped got = map_image(image, cube, dither, false, 1.0f, alpha_strength);
            ASSERT_EQ(got.status, 0);
            EXPECT_EQ(got.indices, expected);
        }
    }
}

// A straightforward diffusion written from the description, with separate previous and current
// error rows and brute-force look-ups: the library's in-place rows, templates and cache must
// agree with it pixel for pixel.
std::vector<unsigned char> reference_dither(const BgraImage& image, const qIColormap& map,
                                            bool opaque, float cs, float as) {
    int16_t ct[kErrorTableSize], at[kErrorTableSize];
    q_fill_error_table(ct, cs);
    q_fill_error_table(at, as);
    const int w = image.width(), h = image.height();
    const int t = map.min_t_index();
    std::vector<std::vector<int>> prev(4, std::vector<int>(static_cast<size_t>(w) + 2, 0));
    std::vector<unsigned char> out(static_cast<size_t>(w) * h);
    auto clamp = [](int v) { return v < 0 ? 0 : v > 255 ? 255 : v; };
    for (int y = 0; y < h; ++y) {
        const int d = y % 2 ? -1 : 1;
        std::vector<std::vector<int>> cur = prev;  // cells not yet reached hold the last row
        int run[4] = {0, 0, 0, 0};
        for (int n = 0; n < w; ++n) {
            const int x = d > 0 ? n : w - 1 - n;
            const qPixRA p = image.at(x, y);
            const int src[4] = {p.blue, p.green, p.red, p.alpha};
            int want[4];
            for (int c = 0; c < 4; ++c) {
                const int ahead = prev[c][static_cast<size_t>(x + d + 1)];
                const int here = prev[c][static_cast<size_t>(x + 1)];
                const int behind = cur[c][static_cast<size_t>(x - d + 1)];
                want[c] = src[c] + (3 * ahead + 5 * here + behind + 7 * run[c]) / 16;
            }
            int index;
            if (opaque)
                index = qtest::cache_nearest(map, clamp(want[2]), clamp(want[1]), clamp(want[0]));
            else if (as > 0)
                index = clamp(want[3]) < 128 ? t
                                             : qtest::cache_nearest(map, clamp(want[2]),
                                                                    clamp(want[1]), clamp(want[0]));
            else
                index = p.alpha == 0 ? t
                                     : qtest::cache_nearest(map, clamp(want[2]), clamp(want[1]),
                                                            clamp(want[0]));
            out[static_cast<size_t>(y * w + x)] = static_cast<unsigned char>(index);
            const qPixRA got = map.get_color(index);
            const int chosen[4] = {got.blue, got.green, got.red, got.alpha};
            for (int c = 0; c < 3; ++c)
                run[c] = opaque || got.alpha != 0 ? ct[want[c] - chosen[c] + kErrorTableOffset] : 0;
            run[3] = !opaque && as > 0 ? at[want[3] - chosen[3] + kErrorTableOffset] : 0;
            for (int c = 0; c < 4; ++c) cur[c][static_cast<size_t>(x + 1)] = run[c];
        }
        prev = cur;
    }
    return out;
}

TEST(qColorMappingTest, DiffusionAndNearestMatchAStraightforwardReference) {
    std::mt19937 rng(8);
    for (int round = 0; round < 24; ++round) {
        const int n = round == 0 ? 1 : round == 1 ? 256 : 2 + static_cast<int>(rng() % 60);
        std::vector<qPixRA> colours;
        for (int i = 0; i < n; ++i) colours.push_back(qtest::random_colour(rng, i == 1 ? 0 : 255));
        const qSafeColormap map = palette_of(colours);
        const BgraImage image = random_image(rng, 1 + static_cast<int>(rng() % 40),
                                             1 + static_cast<int>(rng() % 9), round % 2);
        const bool opaque = round % 3 == 0;
        const float cs = round % 4 == 1 ? 0.5f : 1.0f;
        const float as = round % 5 < 2 ? 0.0f : 0.8f;
        SCOPED_TRACE(testing::Message()
                     << "round " << round << " opaque " << opaque << " cs " << cs << " as " << as);
        const std::vector<unsigned char> expected = reference_dither(image, map, opaque, cs, as);
        const Mapped cached = map_image(image, map, true, opaque, cs, as, round % 2);
        ASSERT_EQ(cached.status, 0);
        EXPECT_EQ(cached.indices, expected);
        // Without diffusion the mapper is the nearest colour of each pixel alone.
        EXPECT_EQ(map_image(image, map, false, opaque, 1, 0, round % 2).indices,
                  reference_dither(image, map, opaque, 0.0f, 0.0f));
    }
}

}  // namespace
