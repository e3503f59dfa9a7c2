// The fixed palettes (grey ramps and colour cubes) of every size against a plain model.
#include "qimg/color/qColorQuantProxy.h"

#include <gtest/gtest.h>

#include <vector>

#include "color/qTestImages.h"

namespace {

using qtest::rgba;

// The fixed palettes written out plainly: a grey ramp of n levels, or the largest listed cube
// within n (red slowest, blue fastest), then the transparent white when asked for.
std::vector<qPixRA> fixed_palette(int n, qCmapType kind, bool transparent) {
    // clang-format off
    static const int cubes[][3] = {{6, 6, 6}, {6, 6, 5}, {5, 6, 5}, {5, 5, 5}, {5, 5, 4}, {4, 5, 4},
                                   {4, 4, 4}, {4, 4, 3}, {3, 4, 3}, {3, 3, 3}, {3, 3, 2}, {2, 3, 2},
                                   {2, 2, 2}};
    // clang-format on
    const auto level = [](int j, int levels) {
        return (255 * j + (levels - 1) / 2) / (levels - 1);
    };
    std::vector<qPixRA> out;
    n -= transparent;
    if (n == 1) out.push_back(rgba(0, 0, 0));
    if (kind == CM_GRAY) {
        for (int k = static_cast<int>(out.size()); k < n; ++k) {
            const int v = level(k, n);
            out.push_back(rgba(v, v, v));
        }
    } else {
        int l[3] = {0, 0, 0};
        for (const auto& cube : cubes) {
            if (l[0] == 0 && cube[0] * cube[1] * cube[2] <= n)
                l[0] = cube[0], l[1] = cube[1], l[2] = cube[2];
        }
        if (l[0] == 0) out.insert(out.end(), {rgba(0, 0, 0), rgba(255, 255, 255)});  // below 8
        for (int r = 0; r < l[0]; ++r)
            for (int g = 0; g < l[1]; ++g)
                for (int b = 0; b < l[2]; ++b)
                    out.push_back(rgba(level(r, l[0]), level(g, l[1]), level(b, l[2])));
    }
    if (transparent) out.push_back(rgba(255, 255, 255, 0));
    return out;
}

TEST(qColorQuantProxyTest, FixedPalettesForEverySize) {
    for (qCmapType kind : {CM_GRAY, CM_CUBE}) {
        for (bool transparent : {false, true}) {
            for (int n = 0; n <= 257; ++n) {
                if (kind == CM_CUBE && n - transparent < 2) continue;  // a cube needs two colours
                if (kind == CM_GRAY && n > 256) continue;  // more than the palette holds
                SCOPED_TRACE(testing::Message() << kind << " " << transparent << " " << n);
                qColorQuantProxy proxy;
                ASSERT_EQ(proxy.create_fixed_colormap(n, kind, transparent), 0);
                EXPECT_EQ(qtest::entries(*proxy.fixed_colormap()),
                          fixed_palette(n, kind, transparent));
            }
        }
    }
}

}  // namespace
