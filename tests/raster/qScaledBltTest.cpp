#include "qimg/raster/qImageEdit.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>

#include "raster/qBlitReference.h"

namespace {

using qref::Image;

// Every cell of (source type, destination type, mode, opacity) on random sizes, clips and
// factors from tiny to huge, on every kernel tier. The case number seeds the case.
TEST(qScaledBltTest, EveryCellMatchesTheReference) {
    const qPixelType types[] = {PT_BGRA32, PT_BGR24, PT_GRAY_ALPHA16, PT_GRAY8, PT_INDEX8};
    const float factors[] = {0.5f, 2.0f,  3.0f,  1.5f, 0.3f,   0.75f, 1.0f,   7.0f,
                             0.1f, 1.01f, 1e-3f, 1e3f, 1e-30f, 1e30f, 1e-45f, 0.999f};
    qref::for_each_kernel_tier([&](int tier) {
        int case_number = 0;
        for (qPixelType st : types) {
            for (qPixelType dt : types) {
                for (qBltMode mode : {BLT_COPY, BLT_OVER, BLT_BLEND}) {
                    for (int k : {0, 1, 127, 128, 255}) {
                        for (int repeat = 0; repeat < 3; ++repeat, ++case_number) {
                            std::mt19937 rng(static_cast<unsigned>(case_number));
                            const bool contiguous = rng() % 2, watched = rng() % 2;
                            Image src(st, 1 + rng() % 24, 1 + rng() % 12, contiguous);
                            Image dst(dt, 1 + rng() % 40, 1 + rng() % 16, contiguous);
                            qref::fill_random(src, rng);
                            qref::fill_random(dst, rng);
                            if (st == PT_INDEX8 && rng() % 6)
                                src.palette = qref::random_palette(rng);
                            if (dt == PT_INDEX8) dst.palette = qref::random_palette(rng);
                            const float sx = factors[rng() % std::size(factors)];
                            const float sy = factors[rng() % std::size(factors)];
                            qRect rect;
                            qPoint pos;
                            qref::random_placement(rng, src, dst, &rect, &pos);
                            const std::string diff = qref::compare_transfer(
                                dst, src, rect, pos, sx, sy, true, mode, k, watched);
                            ASSERT_EQ(diff, "") << "tier " << tier << ", case " << case_number;
                        }
                    }
                }
            }
        }
    });
}

// Rows long enough for the vector loops and their tails, every mode, shrinking and growing.
TEST(qScaledBltTest, WideRowsMatchTheReference) {
    std::mt19937 rng(21);
    qref::for_each_kernel_tier([&](int tier) {
        for (qBltMode mode : {BLT_COPY, BLT_OVER, BLT_BLEND}) {
            for (float f : {0.5f, 1.3f, 2.0f, 3.0f, 0.3f, 0.6f}) {
                Image src(PT_BGRA32, 900, 4), dst(PT_BGRA32, 1300, 7, true);
                qref::fill_random(src, rng);
                qref::fill_random(dst, rng);
                EXPECT_EQ(qref::compare_transfer(dst, src, qRect(-3, 0, 1310, 7), qPoint(5, 1), f,
                                                 f, true, mode, 200, false),
                          "")
                    << "tier " << tier << ", mode " << mode << ", factor " << f;
            }
        }
    });
}

// Rectangles, points and factors at the ends of their ranges, through the block transfer
// (BitBlt) and the scaled one: never a byte outside the views.
TEST(qScaledBltTest, HostileRectanglesAndFactors) {
    const int big = INT_MAX, small = INT_MIN;
    const qRect rects[] = {
        {small,     small, big,   big  },
        {big,       big,   big,   big  },
        {-10,       -10,   big,   big  },
        {small + 1, 0,     big,   3    },
        {big - 2,   0,     5,     5    },
        {0,         0,     -5,    3    },
        {2,         2,     small, small},
        {-big,      -big,  big,   big  },
        {0,         0,     small, 4    }
    };
    const qPoint points[] = {
        {0,       0    },
        {small,   small},
        {big,     big  },
        {-3,      big  },
        {big - 1, -2   },
        {small,   1    }
    };
    std::mt19937 rng(13);
    Image src(PT_BGRA32, 6, 5), dst(PT_BGRA32, 7, 4);
    qref::fill_random(src, rng);
    qref::fill_random(dst, rng);
    std::unique_ptr<qIImageBuffer> holder;
    qImageEdit to;
    qImageAlias unbound;  // no pixels: nothing to draw, and no error
    ASSERT_EQ(qref::bind(to, dst, holder), 0);
    EXPECT_EQ(to.ScaledBlt(qRect(0, 0, 4, 4), &unbound, qPoint(), 2, 2, 1, BLT_COPY, 255, nullptr),
              0);
    for (const qRect& rect : rects) {
        for (const qPoint& pos : points) {
            for (float f : {0.0f, 1e-30f, 1e30f, 1e-45f, 3e38f, 0.5f, 2.0f}) {
                EXPECT_EQ(qref::compare_transfer(dst, src, rect, pos, f, f ? 1.0f / f : 1, f != 0,
                                                 BLT_OVER, f ? 200 : 255, false),
                          "")
                    << rect.x << "," << rect.y << "," << rect.width << "," << rect.height
                    << " from " << pos.x << "," << pos.y << " factor " << f << " (0: BitBlt)";
            }
        }
    }
}

}  // namespace
