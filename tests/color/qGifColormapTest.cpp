#include "qimg/color/qGifColormap.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

#include "color/qTestImages.h"
#include "qimg/palette/qSafeColormap.h"

namespace {

using qtest::rgba;

struct PaletteCase {
    std::string name;
    qSafeColormap map;
};

std::vector<PaletteCase> palettes() {
    std::mt19937 rng(7);
    std::vector<PaletteCase> cases;
    auto add = [&](std::string name, int n, auto make) {
        PaletteCase c{std::move(name), {}};
        for (int i = 0; i < n; ++i) c.map.set_color(i, make(i));
        cases.push_back(std::move(c));
    };
    add("random 256", 256, [&](int) { return qtest::random_colour(rng); });
    add("one entry", 1, [&](int) { return rgba(10, 200, 30); });
    add("with transparent entries", 40,
        [&](int i) { return qtest::random_colour(rng, i % 3 == 0 ? 0 : 255); });
    add("duplicates", 24, [&](int i) { return rgba(i % 8 * 30, 7, 200 - i % 8); });
    add("grid", 64, [&](int i) { return rgba((i & 3) * 64, ((i >> 2) & 3) * 64, (i >> 4) * 64); });
    add("partial alphas", 30, [&](int i) { return qtest::random_colour(rng, i * 8 + 1); });
    return cases;
}

TEST(qGifColormapTest, EveryCellFollowsThePruningAndSearchRule) {
    for (const PaletteCase& c : palettes()) {
        SCOPED_TRACE(c.name);
        qGifColormap cache;
        cache.attach(&c.map);
        int failures = 0;
        // Ask in a scrambled order so blocks are filled from every one of their cells.
        for (int k = 0; k < qGifColormap::kCells && failures < 5; ++k) {
            const int cell = (k * 7919) % qGifColormap::kCells;
            const int r = (cell >> 10) * 8 + (k & 7), g = ((cell >> 5) & 31) * 8 + 3,
                      b = (cell & 31) * 8 + 7 - (k & 7);
            const int expected = qtest::cache_nearest(c.map, r, g, b);
            const int got =
                cache.nearest_index(static_cast<unsigned char>(r), static_cast<unsigned char>(g),
                                    static_cast<unsigned char>(b));
            if (got != expected) {
                ADD_FAILURE() << "colour (" << r << ", " << g << ", " << b << "): got " << got
                              << ", rule " << expected;
                ++failures;
            }
        }
        // Palettes whose entries cannot be pruned wrongly agree with the exhaustive search.
    }
}

}  // namespace
