// The quality palette kind (CM_QUALITY): properties on random pictures, the refinement against a
// brute-force error, the mapping against a brute-force nearest colour.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <tuple>
#include <vector>

#include "color/qTestImages.h"
#include "qimg/color/qColorQuantProxy.h"
#include "qimg/color/qPaletteRefinementPriv.h"
#include "qimg/color/qVarianceCutPriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/image/qFrameDecorator.h"
#include "qimg/palette/qSafeColormap.h"
#include "qimg/raster/qImageEdit.h"
#include "qimg/raster/qQualityMappingPriv.h"

namespace {

using qtest::BgraImage;
using qtest::random_colour;
using qtest::rgba;

// Plain squared RGB distance.
int64_t distance(qPixRA a, qPixRA b) {
    const int64_t dr = a.red - b.red, dg = a.green - b.green, db = a.blue - b.blue;
    return dr * dr + dg * dg + db * db;
}

// The nearest entry by brute force: alpha-0 entries only when every entry has alpha 0, the
// lowest index on a tie.
int brute_nearest(const qIColormap& map, qPixRA p) {
    bool any_visible = false;
    for (int i = 0; i < map.num_colors(); ++i) any_visible |= map.get_color(i).alpha != 0;
    int best = -1;
    for (int i = 0; i < map.num_colors(); ++i) {
        if (any_visible && map.get_color(i).alpha == 0) continue;
        if (best < 0 || distance(p, map.get_color(i)) < distance(p, map.get_color(best))) best = i;
    }
    return best;
}

// Squared error of the cells (each at its mean) against their nearest palette entries.
double brute_cell_error(const std::vector<qColorCell>& cells, const std::vector<qPixRA>& palette) {
    double total = 0;
    for (const qColorCell& c : cells) {
        if (c.count == 0) continue;
        const double n = c.count, r = c.red / n, g = c.green / n, b = c.blue / n;
        double best = 1e300;
        for (const qPixRA e : palette) {
            const double dr = r - e.red, dg = g - e.green, db = b - e.blue;
            best = std::min(best, dr * dr + dg * dg + db * db);
        }
        total += best * n;
    }
    return total;
}

// Reduces `picture` through a frame; returns the palette colour of every pixel, row by row.
std::vector<qPixRA> reduce(const BgraImage& picture, int n, qQuantizer q, bool opaque,
                           std::vector<qPixRA>* palette = nullptr) {
    qFrameDecorator frame;
    auto* image = new qDirectImage;
    EXPECT_EQ(image->copy_from(&picture), 0);
    EXPECT_EQ(frame.attach(image, qPoint(0, 0)), 0);
    EXPECT_EQ(frame.quantize_colors(n, CM_QUALITY, q, opaque, 1.0f, 0.0f, 1, nullptr), 0);
    const qIColormap* map = frame.colormap();
    std::vector<qPixRA> out;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            out.push_back(map->get_color(frame.current_leaf()->pixel_index(qPoint(x, y))));
    if (palette) *palette = qtest::entries(*map);
    return out;
}

// Random pixels drawn from `colours`.
BgraImage scatter(const std::vector<qPixRA>& colours, int w, int h, std::mt19937& rng) {
    BgraImage image(w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) image.at(x, y) = colours[rng() % colours.size()];
    return image;
}

TEST(qQualityQuantizerTest, PicturesThatFitComeBackExactly) {
    std::mt19937 rng(7);
    for (const int n : {2, 16, 256}) {
        for (const bool opaque : {true, false}) {
            std::vector<qPixRA> colours;
            // Near colours (one 6-bit cell) must stay apart too.
            colours.push_back(rgba(100, 100, 100));
            colours.push_back(rgba(101, 100, 100));
            const size_t places = static_cast<size_t>(n - (opaque ? 0 : 1));
            while (colours.size() < places) colours.push_back(random_colour(rng));
            colours.resize(places);
            if (!opaque) colours.push_back(rgba(9, 8, 7, 0));
            const BgraImage picture = scatter(colours, 40, 30, rng);
            for (const qQuantizer q : {QT_NEAREST, QT_DIFFUSION}) {
                SCOPED_TRACE(testing::Message() << n << (opaque ? " opaque " : " ") << q);
                const std::vector<qPixRA> out = reduce(picture, n, q, opaque);
                for (int i = 0; i < 40 * 30; ++i) {
                    const qPixRA p = picture.at(i % 40, i / 40);
                    ASSERT_EQ(out[i], p.alpha == 0 ? rgba(255, 255, 255, 0) : p) << i;
                }
            }
        }
    }
}

TEST(qQualityQuantizerTest, MappingIsExactNearestAndDitherSparesPaletteColours) {
    std::mt19937 rng(11);
    for (int round = 0; round < 12; ++round) {
        // Palettes with duplicates, transparent entries and ties.
        qSafeColormap map;
        const int size = 1 + static_cast<int>(rng() % 40);
        for (int i = 0; i < size; ++i) map.set_color(i, random_colour(rng, rng() % 5 ? 255 : 0));
        if (size > 2) map.set_color(size - 1, map.get_color(0));
        std::vector<qPixRA> colours;
        for (int i = 0; i < 30; ++i) colours.push_back(random_colour(rng));
        for (int i = 0; i < size; ++i) colours.push_back(map.get_color(i));
        const BgraImage picture = scatter(colours, 23, 17, rng);
        qImageAlias source;
        ASSERT_EQ(source.Bind(&picture), 0);
        std::vector<unsigned char> indices(23 * 17, 0);
        qImageEdit destination;
        ASSERT_EQ(destination.Bind(indices.data(), qSize(23, 17), 23, PT_INDEX8), 0);
        for (const bool dither : {false, true}) {
            SCOPED_TRACE(testing::Message() << "round " << round << " dither " << dither);
            ASSERT_EQ(q_map_exact(destination, source, &map, dither, true, 1.0f, nullptr), 0);
            for (int i = 0; i < 23 * 17; ++i) {
                ASSERT_LT(indices[i], size);
                const qPixRA p = picture.at(i % 23, i / 23);
                const int nearest = brute_nearest(map, p);
                // Without dithering the nearest entry; with it, a colour the palette holds
                // still gets exactly that colour.
                if (!dither || distance(p, map.get_color(nearest)) == 0) {
                    EXPECT_EQ(indices[i], nearest) << i;
                }
            }
        }
    }
}

TEST(qQualityQuantizerTest, CutsIsolateTightClusters) {
    std::mt19937 rng(9);
    for (int round = 0; round < 20; ++round) {
        // Two colours 3 apart per cluster, clusters more than 24 apart on every channel.
        const int clusters = 3 + round % 5;
        std::vector<qColorCell> histogram(kFineCells);
        std::vector<qPixRA> means;
        while (static_cast<int>(means.size()) < clusters) {
            const qPixRA c = rgba(rng() % 250, rng() % 250, rng() % 250);
            const bool far = std::all_of(means.begin(), means.end(), [&](qPixRA m) {
                return std::min({std::abs(m.red - c.red), std::abs(m.green - c.green),
                                 std::abs(m.blue - c.blue)}) > 24;
            });
            if (!far) continue;
            q_count_colour(histogram.data(), c);
            q_count_colour(histogram.data(), rgba(c.red + 3, c.green + 3, c.blue + 3));
            means.push_back(rgba(c.red + 2, c.green + 2, c.blue + 2));  // 1.5 rounded half up
        }
        qPixRA palette[256];
        ASSERT_EQ(q_variance_cut(histogram.data(), clusters, palette), clusters);
        std::vector<qPixRA> got(palette, palette + clusters);
        const auto order = [](qPixRA a, qPixRA b) {
            return std::tie(a.red, a.green, a.blue) < std::tie(b.red, b.green, b.blue);
        };
        std::sort(got.begin(), got.end(), order);
        std::sort(means.begin(), means.end(), order);
        EXPECT_EQ(got, means) << "round " << round;
    }
}

TEST(qQualityQuantizerTest, RefinementNeverRaisesTheError) {
    std::mt19937 rng(5);
    for (int round = 0; round < 30; ++round) {
        std::vector<qColorCell> cells(200 + rng() % 300);
        for (qColorCell& c : cells) {
            if (rng() % 3 == 0) continue;  // empty cells are skipped
            const qPixRA p = random_colour(rng);
            c.count = 1 + rng() % 50;
            c.red = p.red * c.count + rng() % c.count;
            c.green = p.green * c.count;
            c.blue = p.blue * c.count;
        }
        std::vector<qPixRA> palette;
        for (int i = 0, k = 1 + static_cast<int>(rng() % 32); i < k; ++i)
            palette.push_back(random_colour(rng));
        const int n = static_cast<int>(cells.size()), k = static_cast<int>(palette.size());
        const double before = brute_cell_error(cells, palette);
        EXPECT_NEAR(q_palette_error(cells.data(), n, palette.data(), k), before, 1e-6 * before);
        const double after = q_refine_palette(cells.data(), n, palette.data(), k, 4);
        EXPECT_NEAR(after, brute_cell_error(cells, palette), 1e-6 * before);
        EXPECT_LE(after, before) << "round " << round;
    }
}

TEST(qQualityQuantizerTest, OnePassIsOneLloydStepWhenThatHelps) {
    std::mt19937 rng(8);
    for (int round = 0; round < 30; ++round) {
        std::vector<qColorCell> cells(100);
        for (qColorCell& c : cells) {
            const qPixRA p = random_colour(rng);
            c.count = 1 + rng() % 9;
            c.red = p.red * c.count, c.green = p.green * c.count, c.blue = p.blue * c.count;
        }
        std::vector<qPixRA> palette;
        for (int i = 0; i < 6; ++i) palette.push_back(random_colour(rng));
        // Brute force: every cell to its nearest entry (lowest index on a tie), every entry to
        // the mean of its cells, rounded half up.
        qSafeColormap map;
        for (int i = 0; i < 6; ++i) map.set_color(i, palette[i]);
        int64_t sums[6][4] = {};
        for (const qColorCell& c : cells) {
            const qPixRA mean = rgba(c.red / c.count, c.green / c.count, c.blue / c.count);
            int64_t* s = sums[brute_nearest(map, mean)];
            s[0] += c.red, s[1] += c.green, s[2] += c.blue, s[3] += c.count;
        }
        std::vector<qPixRA> stepped = palette;
        for (int e = 0; e < 6; ++e) {
            const int64_t n = sums[e][3];
            if (n == 0) continue;
            stepped[e] = rgba(static_cast<int>((sums[e][0] + n / 2) / n),
                              static_cast<int>((sums[e][1] + n / 2) / n),
                              static_cast<int>((sums[e][2] + n / 2) / n));
        }
        const bool helps = brute_cell_error(cells, stepped) < brute_cell_error(cells, palette);
        std::vector<qPixRA> refined = palette;
        ASSERT_GE(q_refine_palette(cells.data(), 100, refined.data(), 6, 1), 0);
        EXPECT_EQ(refined, helps ? stepped : palette) << "round " << round;
    }
}

TEST(qQualityQuantizerTest, TransparentPixelsTakeTheTransparentEntry) {
    std::mt19937 rng(2);
    BgraImage picture(50, 40);
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 50; ++x) picture.at(x, y) = random_colour(rng, rng() % 4 ? 255 : 0);
    for (const qQuantizer q : {QT_NEAREST, QT_DIFFUSION}) {
        const std::vector<qPixRA> out = reduce(picture, 8, q, false);
        for (int i = 0; i < 50 * 40; ++i)
            ASSERT_EQ(out[i].alpha, picture.at(i % 50, i / 50).alpha) << i;
    }
}

TEST(qQualityQuantizerTest, DeterministicAndKindsStillChecked) {
    const BgraImage picture = [] {
        std::mt19937 rng(3);
        BgraImage image(64, 48);
        for (int y = 0; y < 48; ++y)
            for (int x = 0; x < 64; ++x)
                image.at(x, y) = rgba(x * 4, y * 5, static_cast<int>((x * y + rng() % 60) & 255));
        return image;
    }();
    std::vector<qPixRA> first_palette, second_palette;
    const std::vector<qPixRA> first = reduce(picture, 16, QT_DIFFUSION, true, &first_palette);
    EXPECT_EQ(reduce(picture, 16, QT_DIFFUSION, true, &second_palette), first);
    EXPECT_EQ(second_palette, first_palette);
    EXPECT_EQ(first_palette.size(), 16u);

    qColorQuantProxy proxy;
    EXPECT_EQ(proxy.create_quantizer(CM_QUALITY), ST_OK);
    EXPECT_EQ(proxy.create_quantizer(CM_CUBE), ST_UNSUPPORTED);
    EXPECT_EQ(proxy.colormap(), nullptr);
    EXPECT_EQ(proxy.create_fixed_colormap(16, CM_QUALITY, false), ST_UNSUPPORTED);
    qFrameDecorator frame;
    auto* image = new qDirectImage;
    ASSERT_EQ(image->copy_from(&picture), 0);
    ASSERT_EQ(frame.attach(image, qPoint(0, 0)), 0);
    EXPECT_EQ(frame.quantize_colors(16, static_cast<qCmapType>(3), QT_NEAREST, true, 1.0f, 0.0f, 1,
                                    nullptr),
              ST_UNSUPPORTED);
}

}  // namespace
