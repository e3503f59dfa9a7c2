// A palette's transparency queries against their definition, over every palette of one to three
// entries with alphas 0, 127 and 255; reads outside the 256 entries give the zero colour.
#include "qimg/palette/qSafeColormap.h"

#include <gtest/gtest.h>

namespace {

TEST(qSafeColormapTest, TransparencyQueriesAndReadsOutside) {
    for (int n = 1; n <= 3; ++n) {
        for (int pick = 0; pick < 27; ++pick) {
            qSafeColormap map;
            qAlphaType hint = AT_OPAQUE;
            int first_clear = -1;
            for (int i = 0, p = pick; i < n; ++i, p /= 3) {
                const int alpha = p % 3 * 255 / 2;
                map.set_color(i, qPixRA{1, 2, 3, static_cast<unsigned char>(alpha)});
                if (alpha == 0 && first_clear < 0) first_clear = i;
                if (alpha == 0 && hint == AT_OPAQUE) hint = AT_BILEVEL;
                if (alpha == 127) hint = AT_TRANSLUCENT;
            }
            EXPECT_EQ(map.alpha_hint(), hint) << n << " " << pick;
            EXPECT_EQ(map.min_t_index(), first_clear) << n << " " << pick;
        }
    }
    qSafeColormap map;
    map.set_color(0, qPixRA{1, 2, 3, 4});
    for (int index : {-1, 256, 100000}) EXPECT_EQ(map.get_color(index), q_zero_color) << index;
}

}  // namespace
