#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "qimg/core/qAllocationHookPriv.h"
#include "qimg/raster/qImageEdit.h"
#include "raster/qBlitReference.h"

namespace {

using qref::CountingMonitor;
using qref::Image;

struct SampleCase {
    const char* name;
    int src_w, src_h, dst_w, dst_h;
    qRect rect;
    qPoint pos;
    float sx, sy;
    std::vector<std::vector<int>> expected;
};

#ifdef QIMG_ALLOCATION_HOOK
#endif

// Every cell against the reference, with factors from tiny to huge.
TEST(qScaledBltTest, EveryCellMatchesTheReference) {
    qref::for_each_kernel_tier(
        [&](int tier) {
            SCOPED_TRACE(testing::Message() << "kernel tier " << tier);
            const qPixelType types[] = {PT_BGRA32, PT_BGR24, PT_GRAY_ALPHA16, PT_GRAY8, PT_INDEX8};
            const qBltMode modes[] = {BLT_COPY, BLT_OVER, BLT_BLEND};
            const int opacities[] = {0, 1, 127, 128, 255};
            const float factors[] = {0.5f, 2.0f,  3.0f,  1.5f, 0.3f,   0.75f, 1.0f,   7.0f,
                                     0.1f, 1.01f, 1e-3f, 1e3f, 1e-30f, 1e30f, 1e-45f, 0.999f};
            int case_number = 0;
            for (qPixelType st : types) {
                for (qPixelType dt : types) {
                    for (qBltMode mode : modes) {
                        for (int k : opacities) {
                            for (int repeat = 0; repeat < 3; ++repeat, ++case_number) {
                                std::mt19937 rng(static_cast<unsigned>(case_number));
                                // Contiguous rows without a monitor are drawn as one run.
                                const bool contiguous = rng() % 2;
                                const bool watched = rng() % 2;
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

                                Image expected = qref::copy_of(dst);
                                const qref::Outcome want =
                                    qref::scaled_blit(expected, src, rect, pos, sx, sy, 1, mode, k);
                                std::unique_ptr<qIImageBuffer> hs, hd;
                                qImageEdit from, to;
                                ASSERT_EQ(qref::bind(from, src, hs), 0);
                                ASSERT_EQ(qref::bind(to, dst, hd), 0);
                                CountingMonitor monitor;
                                const int got = to.ScaledBlt(rect, &from, pos, sx, sy, 1, mode,
                                                             static_cast<unsigned char>(k),
                                                             watched ? &monitor : nullptr);
                                const qref::Difference diff = qref::first_difference(dst, expected);
                                ASSERT_TRUE(got == want.status && diff.row < 0 &&
                                            monitor.calls == (watched ? want.rows : 0))
                                    << "case " << case_number << ": src " << st << " dst " << dt
                                    << " mode " << mode << " opacity " << k << " factors " << sx
                                    << "," << sy << " status " << got << " want " << want.status
                                    << " rows " << monitor.calls << " want " << want.rows
                                    << "; first difference at row " << diff.row << " byte "
                                    << diff.byte;
                            }
                        }
                    }
                }
            }
        },
        0);
}

// Rows wider than the converter's runs, and rows repeated from one source row.
TEST(qScaledBltTest, WideRowsMatchTheReference) {
    qref::for_each_kernel_tier(
        [&](int tier) {
            SCOPED_TRACE(testing::Message() << "kernel tier " << tier);
            const qBltMode modes[] = {BLT_COPY, BLT_OVER, BLT_BLEND};
            const float factors[] = {0.5f, 1.3f, 2.0f, 3.0f, 0.3f, 0.6f};
            std::mt19937 rng(21);
            for (qBltMode mode : modes) {
                for (float f : factors) {
                    SCOPED_TRACE(testing::Message() << "mode " << mode << " factor " << f);
                    Image src(PT_BGRA32, 900, 4), dst(PT_BGRA32, 1300, 7, true);
                    qref::fill_random(src, rng);
                    qref::fill_random(dst, rng);
                    Image expected = qref::copy_of(dst);
                    const qRect rect(-3, 0, 1310, 7);
                    const qref::Outcome want =
                        qref::scaled_blit(expected, src, rect, qPoint(5, 1), f, f, 1, mode, 200);
                    std::unique_ptr<qIImageBuffer> hs, hd;
                    qImageEdit from, to;
                    qref::bind(from, src, hs);
                    qref::bind(to, dst, hd);
                    EXPECT_EQ(to.ScaledBlt(rect, &from, qPoint(5, 1), f, f, 1, mode, 200, nullptr),
                              want.status);
                    const qref::Difference diff = qref::first_difference(dst, expected);
                    EXPECT_LT(diff.row, 0) << "row " << diff.row << " byte " << diff.byte;
                }
            }
        },
        0);
}

TEST(qScaledBltTest, HostileRectanglesAndFactors) {
    const qRect rects[] = {
        {    INT_MIN, INT_MIN, INT_MAX, INT_MAX},
        {    INT_MAX, INT_MAX, INT_MAX, INT_MAX},
        {        -10,     -10, INT_MAX, INT_MAX},
        {          0,       0, INT_MIN,       4},
        {INT_MAX - 3,       0,      10,      10}
    };
    const qPoint points[] = {
        {      0,       0},
        {INT_MIN, INT_MIN},
        {INT_MAX, INT_MAX},
        {INT_MIN,       3}
    };
    const float factors[] = {1e-30f, 1e30f, 1e-45f, 3e38f, 0.5f, 2.0f};
    std::mt19937 rng(13);
    Image src(PT_BGRA32, 6, 5), dst(PT_BGRA32, 7, 4);
    qref::fill_random(src, rng);
    qref::fill_random(dst, rng);
    for (const qRect& rect : rects) {
        for (const qPoint& pos : points) {
            for (float f : factors) {
                SCOPED_TRACE(testing::Message()
                             << rect.x << "," << rect.y << "," << rect.width << "," << rect.height
                             << " from " << pos.x << "," << pos.y << " factor " << f);
                Image target = qref::copy_of(dst), expected = qref::copy_of(dst);
                const qref::Outcome want =
                    qref::scaled_blit(expected, src, rect, pos, f, 1.0f / f, 1, BLT_OVER, 200);
                std::unique_ptr<qIImageBuffer> hs, hd;
                qImageEdit from, to;
                qref::bind(from, src, hs);
                qref::bind(to, target, hd);
                EXPECT_EQ(to.ScaledBlt(rect, &from, pos, f, 1.0f / f, 1, BLT_OVER, 200, nullptr),
                          want.status);
                EXPECT_LT(qref::first_difference(target, expected).row, 0);
            }
        }
    }
}

}  // namespace
