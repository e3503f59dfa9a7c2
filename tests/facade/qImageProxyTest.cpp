// The facade draws its image at its offset and scale exactly as a scaled transfer of the same
// pixels does from the point moved by the scaled offset: blended for true colour of unknown alpha,
// composited over for a palette with alpha (as edited through the facade), copied when the caller
// asks for opaque drawing.
#include "qimg/facade/qImageProxy.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "raster/qBlitReference.h"

namespace {

TEST(qImageProxyTest, DrawsLikeAScaledTransferOfItsPixels) {
    const struct {
        qPoint offset;
        qRect rect;
        qPoint point;
        float scale;
    } placements[] = {
        {{0, 0}, {2, 1, 8, 6},    {0, 0}, 1   },
        {{3, 2}, {0, 0, 12, 10},  {1, 1}, 1   },
        {{1, 1}, {-3, -2, 10, 8}, {0, 0}, 1   },
        {{0, 0}, {0, 0, 12, 10},  {4, 2}, 1   },
        {{3, 2}, {0, 0, 12, 10},  {0, 0}, 2   },
        {{0, 0}, {0, 0, 12, 10},  {4, 2}, 2   },
        {{1, 0}, {-2, 4, 16, 8},  {0, 0}, 2   },
        {{4, 4}, {0, 0, 6, 5},    {0, 0}, 0.5f},
    };
    std::mt19937 rng(3);
    for (const qPixelType type : {PT_BGRA32, PT_INDEX8}) {
        qref::Image image(type, 6, 4);
        qref::fill_random(image, rng);
        std::unique_ptr<qIImageBuffer> holder;
        qImageAlias pixels;
        qImageProxy proxy;
        if (type == PT_INDEX8) {
            do image.palette = qref::random_palette(rng);
            while (image.palette->num_colors() < 4);
            ASSERT_EQ(qref::bind(pixels, image, holder), 0);
            ASSERT_EQ(proxy.Set(dynamic_cast<const qIIndexImage*>(holder.get())), 0);
            ASSERT_TRUE(proxy.set_transparent(3));
            ASSERT_TRUE(proxy.set_color(1, qPixRA{10, 20, 30, 100}));
            ASSERT_EQ(image.palette->copy_from(proxy.colormap()), 0);
        } else {
            ASSERT_EQ(qref::bind(pixels, image, holder), 0);
            ASSERT_EQ(proxy.Set(dynamic_cast<const qIDirectImage*>(holder.get())), 0);
        }
        ASSERT_EQ(qref::bind(pixels, image, holder), 0);  // the palette as edited
        for (const auto& p : placements) {
            for (bool opaque : {false, true}) {
                ASSERT_EQ(proxy.set_offset(p.offset), 0);
                qref::Image actual(PT_BGRA32, 12, 10), expected(PT_BGRA32, 12, 10);
                qref::fill_random(actual, rng);
                for (int r = 0; r < 10; ++r) std::memcpy(expected.row(r), actual.row(r), 48);
                std::unique_ptr<qIImageBuffer> ha, he;
                qImageEdit to_actual, to_expected;
                ASSERT_EQ(qref::bind(to_actual, actual, ha), 0);
                ASSERT_EQ(qref::bind(to_expected, expected, he), 0);
                ASSERT_EQ(proxy.Draw(&to_actual, p.rect, p.point, p.scale, p.scale, opaque), 0);
                const qPoint shift(static_cast<int>(p.offset.x * p.scale),
                                   static_cast<int>(p.offset.y * p.scale));
                const qBltMode mode = opaque ? BLT_COPY : type == PT_INDEX8 ? BLT_OVER : BLT_BLEND;
                ASSERT_EQ(to_expected.ScaledBlt(p.rect, &pixels, p.point - shift, p.scale, p.scale,
                                                1, mode, 255, nullptr),
                          0);
                EXPECT_LT(qref::first_difference(actual, expected).row, 0)
                    << type << ": offset " << p.offset.x << "," << p.offset.y << " scale "
                    << p.scale << (opaque ? ", opaque" : "");
            }
        }
    }
}

}  // namespace
