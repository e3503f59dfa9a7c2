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

// A grey source whose pixel (r, c) holds 16 r + c, so a sampled value names its position.
Image numbered_source(int width, int height) {
    Image src(PT_GRAY8, width, height);
    for (int r = 0; r < height; ++r)
        for (int c = 0; c < width; ++c) src.pixel(r, c)[0] = static_cast<unsigned char>(16 * r + c);
    return src;
}

// The blue byte of every destination pixel, row by row; 0xEE where nothing was drawn.
std::vector<std::vector<int>> sampled(Image& src, int dst_width, int dst_height, qRect rect,
                                      qPoint pos, float sx, float sy, int* status) {
    Image dst(PT_BGRA32, dst_width, dst_height);
    for (int r = 0; r < dst_height; ++r) std::memset(dst.row(r), 0xEE, dst.row_bytes());
    std::unique_ptr<qIImageBuffer> hs, hd;
    qImageEdit from, to;
    qref::bind(from, src, hs);
    qref::bind(to, dst, hd);
    *status = to.ScaledBlt(rect, &from, pos, sx, sy, 1, BLT_COPY, 255, nullptr);
    std::vector<std::vector<int>> out(static_cast<size_t>(dst_height));
    for (int r = 0; r < dst_height; ++r)
        for (int c = 0; c < dst_width; ++c) out[r].push_back(dst.pixel(r, c)[0]);
    return out;
}

struct SampleCase {
    const char* name;
    int src_w, src_h, dst_w, dst_h;
    qRect rect;
    qPoint pos;
    float sx, sy;
    std::vector<std::vector<int>> expected;
};

TEST(qScaledBltTest, NearestNeighbourExamples) {
    const int E = 0xEE;
    const SampleCase cases[] = {
        {                                "2x2 doubled",
         2, 2,
         4, 4,
         qRect(0, 0,  4, 4),
         qPoint(0, 0),
         2.0f, 2.0f,
         {{0, 0, 1, 1}, {0, 0, 1, 1}, {16, 16, 17, 17}, {16, 16, 17, 17}}},
        {                                 "4x4 halved",
         4, 4,
         2, 2,
         qRect(0, 0,  2, 2),
         qPoint(0, 0),
         0.5f, 0.5f,
         {{17, 19}, {49, 51}}                                            },
        {                     "tripled into 3 columns",
         4, 1,
         3, 1,
         qRect(0, 0,  3, 1),
         qPoint(0, 0),
         3.0f, 1.5f,
         {{0, 0, 0}}                                                     },
        {            "negative position cuts the left",
         4, 1,
         6, 1,
         qRect(0, 0,  6, 1),
         qPoint(-2, 0),
         2.0f, 2.0f,
         {{E, E, 0, 0, 1, 1}}                                            },
        {"past the right edge of the magnified source",
         10, 1,
         12, 1,
         qRect(0, 0, 10, 1),
         qPoint(15, 0),
         2.0f, 2.0f,
         {{7, 8, 8, 9, 9, 9, E, E, E, E, E, E}}                          },
    };
    for (const SampleCase& c : cases) {
        SCOPED_TRACE(c.name);
        Image src = numbered_source(c.src_w, c.src_h);
        int status = 99;
        EXPECT_EQ(sampled(src, c.dst_w, c.dst_h, c.rect, c.pos, c.sx, c.sy, &status), c.expected);
        EXPECT_EQ(status, 0);
    }
}

TEST(qScaledBltTest, StatusCodes) {
    std::vector<unsigned char> s(64, 9), d(64, 1);
    qImageEdit src, dst, indexed;
    src.Bind(s.data(), qSize(4, 4), 16, PT_BGRA32);
    dst.Bind(d.data(), qSize(4, 4), 16, PT_BGRA32);
    indexed.Bind(d.data(), qSize(4, 4), 16, PT_INDEX8);
    const qRect all(0, 0, 4, 4);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    struct Case {
        const char* name;
        qImageEdit* to;
        const qImageAlias* from;
        float sx, sy;
        int method;
        qBltMode mode;
        int expected;
    } cases[] = {
        {                  "null source",     &dst, nullptr,    2,   2, 1,                 BLT_COPY, -5},
        {"factors 1.0 ignore the method",     &dst,    &src,    1,   1, 7,                 BLT_COPY,  0},
        {               "unknown method",     &dst,    &src, 1.5f,   1, 7,                 BLT_COPY, -6},
        {                 "unknown mode",     &dst,    &src,    2,   2, 1, static_cast<qBltMode>(9), -6},
        {          "indexed destination", &indexed,    &src,    2,   2, 1,                 BLT_COPY, -6},
        {                  "zero factor",     &dst,    &src,    0,   2, 1,                 BLT_COPY, -5},
        {              "negative factor",     &dst,    &src,    2,  -1, 1,                 BLT_COPY, -5},
        {                   "NaN factor",     &dst,    &src,  nan,   2, 1,                 BLT_COPY, -5},
        {              "infinite factor",     &dst,    &src,    2, inf, 1,                 BLT_COPY, -5},
        {     "negative infinite factor",     &dst,    &src, -inf,   1, 1,                 BLT_COPY, -5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(
            c.to->ScaledBlt(all, c.from, qPoint(), c.sx, c.sy, c.method, c.mode, 255, nullptr),
            c.expected);
    }
    // An indexed source without a palette copy.
    qImageEdit raw_indexed;
    raw_indexed.Bind(s.data(), qSize(4, 4), 16, PT_INDEX8);
    EXPECT_EQ(dst.ScaledBlt(all, &raw_indexed, qPoint(), 2, 2, 1, BLT_OVER, 255, nullptr), -5);
}

#ifdef QIMG_TEST_HOOKS
TEST(qScaledBltTest, ColumnMapAllocationFailureIsMinusOne) {
    std::vector<unsigned char> s(64, 9), d(64, 1);
    qImageEdit src, dst;
    src.Bind(s.data(), qSize(4, 4), 16, PT_BGRA32);
    dst.Bind(d.data(), qSize(4, 4), 16, PT_BGRA32);
    qimg_fail_allocation(1);
    EXPECT_EQ(dst.ScaledBlt(qRect(0, 0, 4, 4), &src, qPoint(), 2, 2, 1, BLT_COPY, 255, nullptr),
              -1);
    qimg_fail_allocation(0);
    EXPECT_EQ(d, std::vector<unsigned char>(64, 1));
    EXPECT_EQ(dst.ScaledBlt(qRect(0, 0, 4, 4), &src, qPoint(), 2, 2, 1, BLT_COPY, 255, nullptr), 0);
}
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

TEST(qScaledBltTest, MonitorStopsAfterOneRow) {
    std::mt19937 rng(5);
    Image src(PT_BGRA32, 5, 5), dst(PT_BGRA32, 12, 12);
    qref::fill_random(src, rng);
    qref::fill_random(dst, rng);
    for (int stop = 1; stop <= 3; ++stop) {
        SCOPED_TRACE(stop);
        Image target = qref::copy_of(dst), expected = qref::copy_of(dst);
        qref::scaled_blit(expected, src, qRect(0, 0, 12, 12), qPoint(), 2.0f, 2.0f, 1, BLT_BLEND,
                          90, stop);
        std::unique_ptr<qIImageBuffer> hs, hd;
        qImageEdit from, to;
        qref::bind(from, src, hs);
        qref::bind(to, target, hd);
        CountingMonitor monitor(stop);
        EXPECT_EQ(to.ScaledBlt(qRect(0, 0, 12, 12), &from, qPoint(), 2.0f, 2.0f, 1, BLT_BLEND, 90,
                               &monitor),
                  1);
        EXPECT_EQ(monitor.calls, stop);
        EXPECT_LT(qref::first_difference(target, expected).row, 0);
    }
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
