#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <random>
#include <string>
#include <vector>

#include "qimg/core/qAllocationHookPriv.h"
#include "qimg/raster/qImageEdit.h"
#include "raster/qBlitReference.h"

namespace {

using qref::CountingMonitor;
using qref::Image;

// One true-colour view over caller memory, for the worked examples.
struct Surface {
    Surface(qPixelType type, int width, int height, std::vector<unsigned char> fill = {})
        : bytes(static_cast<size_t>(width * height * qref::pixel_bytes(type))) {
        for (size_t i = 0; i < bytes.size() && !fill.empty(); ++i) bytes[i] = fill[i % fill.size()];
        view.Bind(bytes.data(), qSize(width, height), width * qref::pixel_bytes(type), type);
        stride = width * qref::pixel_bytes(type);
    }
    unsigned char* at(int row, int col) {
        return bytes.data() + row * stride + col * qref::pixel_bytes(view.pixel_type());
    }
    std::vector<unsigned char> bytes;
    qImageEdit view;
    int stride = 0;
};

std::vector<unsigned char> pixel(Surface& s, int row, int col) {
    const int n = qref::pixel_bytes(s.view.pixel_type());
    return std::vector<unsigned char>(s.at(row, col), s.at(row, col) + n);
}

using Bytes = std::vector<unsigned char>;

TEST(qBitBltTest, ClipMovesBothAreasTogether) {
    Surface src(PT_GRAY8, 100, 100);
    for (int r = 0; r < 100; ++r)
        for (int c = 0; c < 100; ++c) *src.at(r, c) = static_cast<unsigned char>(r * 7 + c);
    Surface dst(PT_GRAY8, 100, 100, {0});
    ASSERT_EQ(
        dst.view.BitBlt(qRect(-5, -5, 10, 10), &src.view, qPoint(0, 0), BLT_COPY, 255, nullptr), 0);
    for (int r = 0; r < 100; ++r) {
        for (int c = 0; c < 100; ++c) {
            const int expected = r < 5 && c < 5 ? ((r + 5) * 7 + c + 5) & 255 : 0;
            ASSERT_EQ(*dst.at(r, c), expected) << r << "," << c;
        }
    }
    // A source area reaching past the source's right edge keeps only what exists.
    Surface dst2(PT_GRAY8, 100, 1, {0});
    ASSERT_EQ(
        dst2.view.BitBlt(qRect(0, 0, 10, 1), &src.view, qPoint(95, 0), BLT_COPY, 255, nullptr), 0);
    for (int c = 0; c < 10; ++c) EXPECT_EQ(*dst2.at(0, c), c < 5 ? 95 + c : 0) << c;
}

struct PixelCase {
    const char* name;
    qPixelType src_type;
    Bytes src;
    qPixelType dst_type;
    Bytes dst;
    qBltMode mode;
    unsigned char opacity;
    Bytes expected;
};

TEST(qBitBltTest, WorkedPixelExamples) {
    const PixelCase cases[] = {
        {          "24 onto 32 copies with alpha 255",
         PT_BGR24,            {1, 2, 3},
         PT_BGRA32,     {9, 9, 9, 9},
         BLT_COPY,   7,
         {1, 2, 3, 255}      },
        {                        "grey-alpha expands",
         PT_GRAY_ALPHA16,            {100, 40},
         PT_BGRA32,     {9, 9, 9, 9},
         BLT_COPY, 255,
         {100, 100, 100, 40} },
        {"blend of alpha 0 keeps colour, takes alpha",
         PT_BGRA32,      {50, 60, 70, 0},
         PT_BGRA32,   {1, 2, 3, 255},
         BLT_BLEND, 255,
         {1, 2, 3, 0}        },
        {                              "blend at 128",
         PT_BGRA32, {200, 200, 200, 255},
         PT_BGRA32,   {0, 0, 0, 255},
         BLT_BLEND, 128,
         {100, 100, 100, 128}},
        {                            "over composite",
         PT_BGRA32,     {255, 0, 0, 128},
         PT_BGRA32, {0, 0, 255, 128},
         BLT_OVER, 255,
         {170, 0, 85, 192}   },
        {              "over onto 24 ignores opacity",
         PT_BGRA32,     {255, 0, 0, 128},
         PT_BGR24,      {0, 0, 255},
         BLT_OVER, 100,
         {128, 0, 127}       },
        {           "over onto 24 at 255 is the same",
         PT_BGRA32,     {255, 0, 0, 128},
         PT_BGR24,      {0, 0, 255},
         BLT_OVER, 255,
         {128, 0, 127}       },
        {                        "blend at opacity 0",
         PT_BGRA32,     {255, 0, 0, 255},
         PT_BGRA32,   {5, 6, 7, 200},
         BLT_BLEND,   0,
         {5, 6, 7, 0}        },
        {                         "over at opacity 0",
         PT_BGRA32,     {255, 0, 0, 255},
         PT_BGRA32,   {5, 6, 7, 200},
         BLT_OVER,   0,
         {5, 6, 7, 200}      },
        {           "over of an opaque source at 128",
         PT_BGR24,        {200, 100, 0},
         PT_BGRA32,     {0, 0, 0, 0},
         BLT_OVER, 128,
         {200, 100, 0, 128}  },
        {                    "32 onto 24 drops alpha",
         PT_BGRA32,         {1, 2, 3, 0},
         PT_BGR24,        {9, 9, 9},
         BLT_COPY, 255,
         {1, 2, 3}           },
    };
    for (const PixelCase& c : cases) {
        SCOPED_TRACE(c.name);
        Surface src(c.src_type, 1, 1, c.src);
        Surface dst(c.dst_type, 1, 1, c.dst);
        ASSERT_EQ(
            dst.view.BitBlt(qRect(0, 0, 1, 1), &src.view, qPoint(), c.mode, c.opacity, nullptr), 0);
        EXPECT_EQ(pixel(dst, 0, 0), c.expected);
    }
}

struct StatusCase {
    const char* name;
    qPixelType src_type;
    qPixelType dst_type;
    qBltMode mode;
    unsigned char opacity;
    int expected;
};

TEST(qBitBltTest, StatusOfModesAndPairs) {
    const StatusCase cases[] = {
        {                               "unknown mode",                  PT_BGRA32,                  PT_BGRA32,static_cast<qBltMode>(4), 255, -6                                                                                                               },
        {                                  "grey copy",                   PT_GRAY8,                   PT_GRAY8,                 BLT_COPY, 255,  0},
        {                                  "grey over",                   PT_GRAY8,                   PT_GRAY8,                 BLT_OVER,   3,  0},
        {                          "grey blend at 255",                   PT_GRAY8,                   PT_GRAY8,                BLT_BLEND, 255,  0},
        {                       "grey blend below 255",                   PT_GRAY8,                   PT_GRAY8,                BLT_BLEND, 254, -6},
        {                               "24 onto grey",                   PT_BGR24,                   PT_GRAY8,                 BLT_COPY, 255, -6},
        {                                "alpha8 copy",                  PT_ALPHA8,                  PT_ALPHA8,                 BLT_COPY, 255,  0},
        {                                "alpha8 over",                  PT_ALPHA8,                  PT_ALPHA8,                 BLT_OVER, 255, -6},
        {           "type without size copies nothing", static_cast<qPixelType>(5), static_cast<qPixelType>(5),
         BLT_COPY, 255,  0                                                                                                                       },
        {                         "32 onto grey-alpha",                  PT_BGRA32,            PT_GRAY_ALPHA16,                 BLT_COPY, 255, -6},
        {        "indexed source without palette copy",                  PT_INDEX8,                  PT_BGRA32,                 BLT_OVER, 255, -5},
        {"indexed source without palette at opacity 0",                  PT_INDEX8,                  PT_BGRA32,                 BLT_OVER,   0, -5},
        {   "indexed destination without palette copy",                  PT_INDEX8,                  PT_INDEX8,                 BLT_COPY, 255, -5},
    };
    for (const StatusCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<unsigned char> s(16, 1), d(16, 2);
        qImageEdit src, dst;
        src.Bind(s.data(), qSize(2, 2), 8, c.src_type);
        dst.Bind(d.data(), qSize(2, 2), 8, c.dst_type);
        EXPECT_EQ(dst.BitBlt(qRect(0, 0, 2, 2), &src, qPoint(), c.mode, c.opacity, nullptr),
                  c.expected);
        // Nothing visible: success whatever the mode or pair.
        EXPECT_EQ(dst.BitBlt(qRect(5, 5, 2, 2), &src, qPoint(), c.mode, c.opacity, nullptr), 0);
    }
    qImageEdit dst;
    EXPECT_EQ(dst.BitBlt(qRect(0, 0, 2, 2), nullptr, qPoint(), BLT_COPY, 255, nullptr), -5);
}

TEST(qBitBltTest, IndexedDestinationTakesOnlyIndicesOfItsOwnPalette) {
    std::mt19937 rng(7);
    Image dst(PT_INDEX8, 3, 2), same(PT_INDEX8, 3, 2), other(PT_INDEX8, 3, 2),
        wide(PT_INDEX16, 3, 2);
    for (Image* image : {&dst, &same, &other, &wide}) qref::fill_random(*image, rng);
    dst.palette = qref::random_palette(rng);
    same.palette = dst.palette;
    wide.palette = dst.palette;
    other.palette = qref::random_palette(rng);
    other.palette->set_color(0, qPixRA{1, 2, 3, 4});  // surely different
    dst.palette->set_color(0, qPixRA{4, 3, 2, 1});

    std::unique_ptr<qIImageBuffer> hd, hs;
    struct Case {
        const char* name;
        Image* src;
        bool changes;
    } cases[] = {
        {    "equal palettes",  &same,  true},
        {    "16-bit indices",  &wide,  true},
        {"different palettes", &other, false}
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Image target = qref::copy_of(dst);
        qImageEdit to, from;
        ASSERT_EQ(qref::bind(to, target, hd), 0);
        ASSERT_EQ(qref::bind(from, *c.src, hs), 0);
        CountingMonitor monitor;
        ASSERT_EQ(to.BitBlt(qRect(0, 0, 3, 2), &from, qPoint(), BLT_COPY, 255, &monitor), 0);
        EXPECT_EQ(monitor.calls, 2);
        for (int r = 0; r < 2; ++r) {
            for (int col = 0; col < 3; ++col) {
                const int expected = c.changes ? c.src->pixel(r, col)[0] : dst.pixel(r, col)[0];
                EXPECT_EQ(target.pixel(r, col)[0], expected);
            }
        }
    }
}

// The engine's alpha for BLT_BLEND onto PT_BGRA32 is the scaled product of source alpha and
// opacity: one row per opacity checks every pair against the formula.
TEST(qBitBltTest, ScaledProductForAllPairs) {
    qref::for_each_kernel_tier(
        [&](int tier) {
            SCOPED_TRACE(testing::Message() << "kernel tier " << tier);
            Surface src(PT_BGRA32, 256, 1), dst(PT_BGRA32, 256, 1);
            for (int x = 0; x < 256; ++x) *(src.at(0, x) + 3) = static_cast<unsigned char>(x);
            int differs_from_rounding = 0;
            for (int y = 0; y < 256; ++y) {
                ASSERT_EQ(dst.view.BitBlt(qRect(0, 0, 256, 1), &src.view, qPoint(), BLT_BLEND,
                                          static_cast<unsigned char>(y), nullptr),
                          0);
                for (int x = 0; x < 256; ++x) {
                    const int formula = ((x * y + 127) * 257) >> 16;
                    ASSERT_EQ(*(dst.at(0, x) + 3), y == 255 ? x : formula) << x << " x " << y;
                    if (formula != (x * y + 127) / 255) ++differs_from_rounding;
                    if (x == 255) {
                        ASSERT_EQ(formula, y);
                    }
                }
            }
            EXPECT_EQ(differs_from_rounding, 128);
        },
        0);
}

// The over composite and the channel blend for every source alpha, destination alpha and colour
// difference: each pass carries three differences s - d per pixel. Laid out with a per row, every
// group of adjacent pixels shares its source alpha (the kernels' uniform groups); transposed, each
// group mixes source alphas, 0 and 255 among them, with one destination alpha.
TEST(qBitBltTest, OverAndBlendForEveryAlphaPairAndDifference) {
    qref::for_each_kernel_tier(
        [&](int tier) {
            SCOPED_TRACE(testing::Message() << "kernel tier " << tier);
            Surface src(PT_BGRA32, 256, 256), over(PT_BGRA32, 256, 256), blend(PT_BGRA32, 256, 256);
            for (const bool transposed : {false, true}) {
                SCOPED_TRACE(transposed ? "source alpha per column" : "source alpha per row");
                // Byte offset of the pixel for (a, da).
                const auto offset = [transposed](int a, int da) {
                    const int row = transposed ? da : a, col = transposed ? a : da;
                    return static_cast<size_t>(row) * 1024 + static_cast<size_t>(col) * 4;
                };
                for (int first = -255; first <= 255; first += 3) {
                    for (int a = 0; a < 256; ++a) {
                        for (int da = 0; da < 256; ++da) {
                            const size_t at = offset(a, da);
                            for (int c = 0; c < 3; ++c) {
                                const int x = first + c > 255 ? 0 : first + c;
                                const int d = x < 0 ? -x : 0;
                                src.bytes[at + c] = static_cast<unsigned char>(d + x);
                                over.bytes[at + c] = blend.bytes[at + c] =
                                    static_cast<unsigned char>(d);
                            }
                            src.bytes[at + 3] = static_cast<unsigned char>(a);
                            over.bytes[at + 3] = blend.bytes[at + 3] =
                                static_cast<unsigned char>(da);
                        }
                    }
                    const std::vector<unsigned char> before = over.bytes;
                    const qRect all(0, 0, 256, 256);
                    ASSERT_EQ(over.view.BitBlt(all, &src.view, qPoint(), BLT_OVER, 255, nullptr),
                              0);
                    ASSERT_EQ(blend.view.BitBlt(all, &src.view, qPoint(), BLT_BLEND, 255, nullptr),
                              0);
                    for (int a = 0; a < 256; ++a) {
                        for (int da = 0; da < 256; ++da) {
                            const size_t at = offset(a, da);
                            const int na = da + (((255 - da) * a + 127) * 257 >> 16);
                            for (int c = 0; c < 3; ++c) {
                                const int s_c = src.bytes[at + c], d = before[at + c];
                                const int want_over = a == 0 ? d : d + (s_c - d) * a / na;
                                const int want_blend = d + ((((s_c - d) * a + 127) * 257) >> 16);
                                ASSERT_EQ(over.bytes[at + c], want_over)
                                    << "a " << a << " da " << da << " s " << s_c << " d " << d;
                                ASSERT_EQ(blend.bytes[at + c], want_blend)
                                    << "a " << a << " s " << s_c << " d " << d;
                            }
                            ASSERT_EQ(over.bytes[at + 3], a == 0 ? da : na);
                            ASSERT_EQ(blend.bytes[at + 3], a);
                        }
                    }
                }
            }
        },
        1);
}

// At a constant opacity the over composite uses the scaled alpha, never the stored one: every
// source alpha (column) at every opacity (row), onto destination alphas that include 0 (where
// the composite is the source colour with the scaled alpha) and 255.
TEST(qBitBltTest, OverAtEveryOpacityUsesTheScaledAlpha) {
    qref::for_each_kernel_tier(
        [&](int tier) {
            SCOPED_TRACE(testing::Message() << "kernel tier " << tier);
            std::mt19937 rng(7);
            Surface src(PT_BGRA32, 256, 1), dst(PT_BGRA32, 256, 1);
            for (int da : {0, 1, 77, 200, 254, 255}) {
                for (int k = 0; k < 256; ++k) {
                    for (int sa = 0; sa < 256; ++sa) {
                        for (int c = 0; c < 3; ++c) {
                            src.at(0, sa)[c] = static_cast<unsigned char>(rng());
                            dst.at(0, sa)[c] = static_cast<unsigned char>(rng());
                        }
                        src.at(0, sa)[3] = static_cast<unsigned char>(sa);
                        dst.at(0, sa)[3] = static_cast<unsigned char>(da);
                    }
                    const std::vector<unsigned char> before = dst.bytes;
                    ASSERT_EQ(dst.view.BitBlt(qRect(0, 0, 256, 1), &src.view, qPoint(), BLT_OVER,
                                              static_cast<unsigned char>(k), nullptr),
                              0);
                    for (int sa = 0; sa < 256; ++sa) {
                        const size_t at = static_cast<size_t>(sa) * 4;
                        const int a = ((sa * k + 127) * 257) >> 16;
                        const int na = a == 0 ? da : da + (((255 - da) * a + 127) * 257 >> 16);
                        for (int c = 0; c < 3; ++c) {
                            const int s_c = src.bytes[at + c], d = before[at + c];
                            ASSERT_EQ(dst.bytes[at + c], a == 0 ? d : d + (s_c - d) * a / na)
                                << "da " << da << " k " << k << " sa " << sa;
                        }
                        ASSERT_EQ(dst.bytes[at + 3], na)
                            << "da " << da << " k " << k << " sa " << sa;
                    }
                }
            }
        },
        1);
}

// An opaque destination stays opaque, which the kernels use: every alpha and difference.
TEST(qBitBltTest, OverOntoOpaqueForEveryAlphaAndDifference) {
    qref::for_each_kernel_tier(
        [&](int tier) {
            SCOPED_TRACE(testing::Message() << "kernel tier " << tier);
            Surface src(PT_BGRA32, 512, 256), dst(PT_BGRA32, 512, 256);
            for (int a = 0; a < 256; ++a) {
                for (int col = 0; col < 512; ++col) {
                    const int x = col - 255;  // -255 .. 256, the last one repeats 0
                    const int d = x < 0 ? -x : 0, s = x > 255 ? d : d + x;
                    for (int c = 0; c < 3; ++c) {
                        src.at(a, col)[c] = static_cast<unsigned char>(s);
                        dst.at(a, col)[c] = static_cast<unsigned char>(d);
                    }
                    src.at(a, col)[3] = static_cast<unsigned char>(a);
                    dst.at(a, col)[3] = 255;
                }
            }
            const std::vector<unsigned char> before = dst.bytes;
            ASSERT_EQ(
                dst.view.BitBlt(qRect(0, 0, 512, 256), &src.view, qPoint(), BLT_OVER, 255, nullptr),
                0);
            for (size_t p = 0; p < before.size(); p += 4) {
                const int a = src.bytes[p + 3];
                for (int c = 0; c < 3; ++c) {
                    const int d = before[p + c], s_c = src.bytes[p + c];
                    ASSERT_EQ(dst.bytes[p + c], d + (s_c - d) * a / 255)
                        << "a " << a << " s " << s_c << " d " << d;
                }
                ASSERT_EQ(dst.bytes[p + 3], 255);
            }
        },
        1);
}

// Every cell of (source type, destination type, mode, opacity) against the reference, on
// random sizes, positions and clips. The case number seeds the case, so a failure re-runs alone.
TEST(qBitBltTest, EveryCellMatchesTheReference) {
    qref::for_each_kernel_tier(
        [&](int tier) {
            SCOPED_TRACE(testing::Message() << "kernel tier " << tier);
            const qPixelType types[] = {PT_BGRA32, PT_BGR24,   PT_GRAY_ALPHA16, PT_GRAY8,
                                        PT_INDEX8, PT_INDEX16, PT_ALPHA8};
            const qBltMode modes[] = {BLT_COPY, BLT_OVER, BLT_BLEND};
            const int opacities[] = {0, 1, 127, 128, 255};
            int case_number = 0;
            for (qPixelType st : types) {
                for (qPixelType dt : types) {
                    for (qBltMode mode : modes) {
                        for (int k : opacities) {
                            for (int repeat = 0; repeat < 4; ++repeat, ++case_number) {
                                std::mt19937 rng(static_cast<unsigned>(case_number));
                                // Contiguous rows without a monitor are drawn as one run.
                                const bool contiguous = rng() % 2;
                                const bool watched = rng() % 2;
                                Image src(st, 1 + rng() % 48, 1 + rng() % 16, contiguous);
                                Image dst(dt, 1 + rng() % 48, 1 + rng() % 16, contiguous);
                                qref::fill_random(src, rng);
                                qref::fill_random(dst, rng);
                                const bool indexed_src = st == PT_INDEX8 || st == PT_INDEX16;
                                if (dt == PT_INDEX8 && rng() % 6)
                                    dst.palette = qref::random_palette(rng);
                                if (indexed_src && rng() % 6) {
                                    src.palette = dst.palette && rng() % 2
                                                      ? dst.palette
                                                      : qref::random_palette(rng);
                                }
                                qRect rect;
                                qPoint pos;
                                qref::random_placement(rng, src, dst, &rect, &pos);

                                Image expected = qref::copy_of(dst);
                                const qref::Outcome want =
                                    qref::blit(expected, src, rect, pos, mode, k);
                                std::unique_ptr<qIImageBuffer> hs, hd;
                                qImageEdit from, to;
                                ASSERT_EQ(qref::bind(from, src, hs), 0);
                                ASSERT_EQ(qref::bind(to, dst, hd), 0);
                                CountingMonitor monitor;
                                const int got =
                                    to.BitBlt(rect, &from, pos, mode, static_cast<unsigned char>(k),
                                              watched ? &monitor : nullptr);
                                const qref::Difference diff = qref::first_difference(dst, expected);
                                ASSERT_TRUE(got == want.status && diff.row < 0 &&
                                            monitor.calls == (watched ? want.rows : 0))
                                    << "case " << case_number << ": src " << st << " dst " << dt
                                    << " mode " << mode << " opacity " << k << " status " << got
                                    << " want " << want.status << " rows " << monitor.calls
                                    << " want " << want.rows << "; first difference at row "
                                    << diff.row << " byte " << diff.byte;
                            }
                        }
                    }
                }
            }
        },
        0);
}

// Very large contiguous conversions take a path of their own (stores around the caches).
TEST(qBitBltTest, HugeExpansionTo32Bits) {
    const int w = 2101, h = 2003;
    std::vector<unsigned char> src(static_cast<size_t>(w) * h * 3);
    std::vector<unsigned char> dst(static_cast<size_t>(w) * h * 4 + 4, 7);
    for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<unsigned char>(i * 7 + i / 5);
    qImageEdit from, to;
    from.Bind(src.data(), qSize(w, h), w * 3, PT_BGR24);
    to.Bind(dst.data() + 4, qSize(w, h), w * 4, PT_BGRA32);  // not 32-byte aligned
    ASSERT_EQ(to.BitBlt(qRect(0, 0, w, h), &from, qPoint(), BLT_COPY, 255, nullptr), 0);
    ASSERT_EQ(std::vector<unsigned char>(dst.begin(), dst.begin() + 4),
              std::vector<unsigned char>(4, 7));
    for (size_t p = 0; p < static_cast<size_t>(w) * h; ++p) {
        const unsigned char* d = dst.data() + 4 + 4 * p;
        const unsigned char* s = src.data() + 3 * p;
        ASSERT_TRUE(d[0] == s[0] && d[1] == s[1] && d[2] == s[2] && d[3] == 255) << "pixel " << p;
    }
}

// Same-type copies move blocks of bytes: short rows, rows of vector blocks with tails, whole
// images past the streaming threshold (8 MiB), at unaligned addresses, on every kernel tier.
TEST(qBitBltTest, SameTypeCopyMovesEveryByte) {
    struct Case {
        qPixelType type;
        int width, height, dst_col;
    };
    const Case cases[] = {
        {PT_BGRA32,    3,    5, 1},
        {PT_BGRA32,   97,    9, 3},
        { PT_BGR24,  171,    4, 1},
        {PT_BGRA32, 1500, 1500, 0},
        { PT_BGR24, 1777, 1601, 0},
        {PT_BGRA32,   64,    3, 0}
    };
    qref::for_each_kernel_tier([&](int tier) {
        for (const Case& c : cases) {
            SCOPED_TRACE(testing::Message()
                         << "tier " << tier << ", " << c.width << "x" << c.height);
            const int bytes = qref::pixel_bytes(c.type);
            const size_t src_stride = static_cast<size_t>(c.width) * bytes;
            const size_t dst_stride = src_stride + static_cast<size_t>(c.dst_col) * bytes;
            Bytes src(src_stride * c.height + 1), dst(dst_stride * c.height + 1, 7);
            for (size_t i = 0; i < src.size(); ++i)
                src[i] = static_cast<unsigned char>(i * 13 + i / 7);
            qImageEdit from, to;
            // One byte in: neither buffer starts on a vector boundary.
            from.Bind(src.data() + 1, qSize(c.width, c.height), static_cast<int>(src_stride),
                      c.type);
            to.Bind(dst.data() + 1, qSize(c.width + c.dst_col, c.height),
                    static_cast<int>(dst_stride), c.type);
            ASSERT_EQ(to.BitBlt(qRect(c.dst_col, 0, c.width, c.height), &from, qPoint(), BLT_COPY,
                                255, nullptr),
                      0);
            for (int r = 0; r < c.height; ++r) {
                const unsigned char* d = dst.data() + 1 + r * dst_stride;
                ASSERT_TRUE(
                    std::equal(d, d + c.dst_col * bytes, Bytes(c.dst_col * bytes, 7).begin()));
                ASSERT_TRUE(std::equal(d + c.dst_col * bytes, d + dst_stride,
                                       src.data() + 1 + r * src_stride))
                    << "row " << r;
            }
            ASSERT_EQ(dst[0], 7);
        }
    });
}

// Views over one buffer whose areas overlap: a copy without a monitor is one block move, and it
// moves the way memmove does, so the source rows arrive unchanged.
TEST(qBitBltTest, OverlappingCopyInOneBufferKeepsTheSource) {
    const int w = 300, h = 40;
    Bytes buffer(static_cast<size_t>(w) * 4 * (h + 3));
    for (size_t i = 0; i < buffer.size(); ++i)
        buffer[i] = static_cast<unsigned char>(i * 5 + i / 11);
    const Bytes before = buffer;
    qImageEdit upper, lower;
    upper.Bind(buffer.data(), qSize(w, h), w * 4, PT_BGRA32);
    lower.Bind(buffer.data() + 3 * w * 4, qSize(w, h), w * 4, PT_BGRA32);
    ASSERT_EQ(lower.BitBlt(qRect(0, 0, w, h), &upper, qPoint(), BLT_COPY, 255, nullptr), 0);
    EXPECT_TRUE(std::equal(before.begin(), before.begin() + static_cast<ptrdiff_t>(w) * 4 * h,
                           buffer.begin() + 3 * w * 4));
}

TEST(qBitBltTest, MonitorStopsAfterTheRowItWasToldAbout) {
    std::mt19937 rng(3);
    Image src(PT_BGRA32, 9, 7), dst(PT_BGRA32, 9, 7);
    qref::fill_random(src, rng);
    qref::fill_random(dst, rng);
    for (int stop = 1; stop <= 7; ++stop) {
        SCOPED_TRACE(stop);
        Image target = qref::copy_of(dst), expected = qref::copy_of(dst);
        const qref::Outcome want =
            qref::blit(expected, src, qRect(0, 0, 9, 7), qPoint(), BLT_OVER, 200, stop);
        std::unique_ptr<qIImageBuffer> hs, hd;
        qImageEdit from, to;
        qref::bind(from, src, hs);
        qref::bind(to, target, hd);
        CountingMonitor monitor(stop);
        EXPECT_EQ(to.BitBlt(qRect(0, 0, 9, 7), &from, qPoint(), BLT_OVER, 200, &monitor),
                  want.status);
        EXPECT_EQ(monitor.calls, stop);
        EXPECT_EQ(monitor.last_total, 7);
        EXPECT_LT(qref::first_difference(target, expected).row, 0);
    }
}

TEST(qBitBltTest, HostileRectanglesNeverTouchOutsideTheViews) {
    const int big = INT_MAX, small = INT_MIN;
    const qRect rects[] = {
        {    small, small,   big,   big},
        {      big,   big,   big,   big},
        {      -10,   -10,   big,   big},
        {small + 1,     0,   big,     3},
        {  big - 2,     0,     5,     5},
        {        0,     0,    -5,     3},
        {        2,     2, small, small},
        {     -big,  -big,   big,   big}
    };
    const qPoint points[] = {
        {      0,     0},
        {  small, small},
        {    big,   big},
        {     -3,   big},
        {big - 1,    -2},
        {  small,     1}
    };
    std::mt19937 rng(11);
    Image src(PT_BGRA32, 6, 5), dst(PT_BGRA32, 7, 4);
    qref::fill_random(src, rng);
    qref::fill_random(dst, rng);
    for (const qRect& rect : rects) {
        for (const qPoint& pos : points) {
            SCOPED_TRACE(testing::Message() << rect.x << "," << rect.y << "," << rect.width << ","
                                            << rect.height << " from " << pos.x << "," << pos.y);
            Image target = qref::copy_of(dst), expected = qref::copy_of(dst);
            const qref::Outcome want = qref::blit(expected, src, rect, pos, BLT_OVER, 255);
            std::unique_ptr<qIImageBuffer> hs, hd;
            qImageEdit from, to;
            qref::bind(from, src, hs);
            qref::bind(to, target, hd);
            EXPECT_EQ(to.BitBlt(rect, &from, pos, BLT_OVER, 255, nullptr), want.status);
            EXPECT_LT(qref::first_difference(target, expected).row, 0);
        }
    }
}

// ---- FillRect --------------------------------------------------------------------------------

struct FillCase {
    const char* name;
    qPixelType type;
    Bytes colour;
    Bytes expected_pixel;
};

TEST(qFillRectTest, PaintsTheClippedAreaOnly) {
    const FillCase cases[] = {
        {                 "grey 24",  PT_BGR24, {10, 10, 10, 99}, {10, 10, 10}},
        {               "colour 24",  PT_BGR24,   {1, 2, 3, 255},    {1, 2, 3}},
        {               "colour 32", PT_BGRA32,     {1, 2, 3, 4}, {1, 2, 3, 4}},
        {              "uniform 32", PT_BGRA32,     {7, 7, 7, 7}, {7, 7, 7, 7}},
        {"grey 32 with other alpha", PT_BGRA32,     {7, 7, 7, 8}, {7, 7, 7, 8}},
    };
    for (const FillCase& c : cases) {
        for (int width : {10, 17, 33}) {  // odd widths end exactly at the last pixel
            SCOPED_TRACE(testing::Message() << c.name << " width " << width);
            Image image(c.type, width, 10);
            for (int r = 0; r < 10; ++r) std::memset(image.row(r), 0xEE, image.row_bytes());
            std::unique_ptr<qIImageBuffer> holder;
            qImageEdit view;
            qref::bind(view, image, holder);
            CountingMonitor monitor;
            ASSERT_EQ(
                view.FillRect(qRect(-3, 8, 5 + width, 5), PT_BGRA32, c.colour.data(), &monitor), 0);
            EXPECT_EQ(monitor.calls, 2);
            EXPECT_EQ(monitor.last_total, 2);
            const int n = qref::pixel_bytes(c.type);
            for (int r = 0; r < 10; ++r) {
                for (int col = 0; col < width; ++col) {
                    const bool inside = r >= 8 && col < 2 + width;
                    const Bytes got(image.pixel(r, col), image.pixel(r, col) + n);
                    EXPECT_EQ(got, inside ? c.expected_pixel : Bytes(static_cast<size_t>(n), 0xEE))
                        << r << "," << col;
                }
            }
        }
    }
}

// A whole-image fill past 16 MiB is stored around the caches: every pixel, at addresses that are
// word-aligned but not on a vector boundary (and one that is not even word-aligned), every tier.
TEST(qFillRectTest, HugeFillPaintsEveryPixel) {
    const int w = 2051, h = 2049;
    const size_t bytes = static_cast<size_t>(w) * h * 4;
    const unsigned char colour[4] = {1, 2, 3, 4};
    Bytes memory(bytes + 8, 0xEE);
    qref::for_each_kernel_tier([&](int tier) {
        for (size_t start : {size_t{4}, size_t{1}}) {
            SCOPED_TRACE(testing::Message() << "tier " << tier << ", start " << start);
            std::fill(memory.begin(), memory.end(), 0xEE);
            qImageEdit view;
            view.Bind(memory.data() + start, qSize(w, h), w * 4, PT_BGRA32);
            ASSERT_EQ(view.FillRect(qRect(0, 0, w, h), PT_BGRA32, colour, nullptr), 0);
            for (size_t i = 0; i < memory.size(); ++i) {
                const bool inside = i >= start && i < start + bytes;
                ASSERT_EQ(memory[i], inside ? colour[(i - start) % 4] : 0xEE) << "byte " << i;
            }
        }
    });
}

TEST(qFillRectTest, StatusCodes) {
    std::vector<unsigned char> memory(400);
    const unsigned char colour[4] = {1, 2, 3, 4};
    struct Case {
        qPixelType view;
        qRect rect;
        qPixelType colour_type;
        const unsigned char* colour;
        int expected;
    } cases[] = {
        {PT_BGRA32,      qRect(20,       3,       5,       5), PT_INDEX8,  colour,  0}, // empty wins
        { PT_GRAY8,       qRect(0,       0,       2,       2), PT_BGRA32,  colour, -6},
        {PT_INDEX8,       qRect(0,       0,       2,       2), PT_BGRA32,  colour, -6},
        { PT_BGR24,       qRect(0,       0,       2,       2),  PT_BGR24,  colour, -6},
        {PT_BGRA32,       qRect(0,       0,       2,       2), PT_BGRA32, nullptr, -5},
        {PT_BGRA32, qRect(INT_MIN, INT_MIN, INT_MAX, INT_MAX), PT_BGRA32,  colour,  0},
        {PT_BGRA32, qRect(INT_MAX,       0, INT_MAX,       3), PT_BGRA32,  colour,  0},
    };
    for (const Case& c : cases) {
        qImageEdit view;
        view.Bind(memory.data(), qSize(10, 10), 40, c.view);
        EXPECT_EQ(view.FillRect(c.rect, c.colour_type, c.colour, nullptr), c.expected);
    }
    qImageEdit view;
    view.Bind(memory.data(), qSize(10, 10), 40, PT_BGRA32);
    CountingMonitor stop(1);
    EXPECT_EQ(view.FillRect(qRect(0, 0, 10, 10), PT_BGRA32, colour, &stop), 1);
    EXPECT_EQ(memory[0], 1);   // the first row is painted
    EXPECT_EQ(memory[40], 0);  // the second is not
}

}  // namespace
