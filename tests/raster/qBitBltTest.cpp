#include "qimg/raster/qImageEdit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <random>
#include <string>
#include <vector>

#include "qimg/core/qAllocationHookPriv.h"
#include "raster/qBlitReference.h"

namespace {

using qref::Image;

using Bytes = std::vector<unsigned char>;

// The over composite and the blend for every source alpha, destination alpha and colour
// difference, three differences s - d per pixel and pass. With the source alpha per row, adjacent
// pixels share it (the kernels' uniform groups); per column, each group mixes source alphas, 0
// and 255 among them; onto an opaque destination, which the kernels keep opaque.
TEST(qBitBltTest, OverAndBlendForEveryAlphaPairAndDifference) {
    qref::for_each_kernel_tier(
        [&](int tier) {
            for (const int layout : {0, 1, 2}) {  // alpha per row, per column, opaque destination
                for (int first = -255; first <= 255; first += 3) {
                    Image src(PT_BGRA32, 256, 256, true), dst(PT_BGRA32, 256, 256, true);
                    for (int a = 0; a < 256; ++a) {
                        for (int da = 0; da < 256; ++da) {
                            unsigned char* s = layout == 1 ? src.pixel(da, a) : src.pixel(a, da);
                            unsigned char* d = layout == 1 ? dst.pixel(da, a) : dst.pixel(a, da);
                            for (int c = 0; c < 3; ++c) {
                                const int x = first + c > 255 ? 0 : first + c;
                                d[c] = static_cast<unsigned char>(x < 0 ? -x : 0);
                                s[c] = static_cast<unsigned char>(d[c] + x);
                            }
                            s[3] = static_cast<unsigned char>(a);
                            d[3] = static_cast<unsigned char>(layout == 2 ? 255 : da);
                        }
                    }
                    for (qBltMode mode : {BLT_OVER, BLT_BLEND}) {
                        Image target = qref::copy_of(dst);
                        ASSERT_EQ(qref::compare_transfer(target, src, qRect(0, 0, 256, 256),
                                                         qPoint(), 1, 1, false, mode, 255, false),
                                  "")
                            << "tier " << tier << ", layout " << layout << ", first " << first;
                    }
                }
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

                                const std::string diff = qref::compare_transfer(
                                    dst, src, rect, pos, 1, 1, false, mode, k, watched);
                                ASSERT_EQ(diff, "") << "tier " << tier << ", case " << case_number;
                            }
                        }
                    }
                }
            }
        },
        0);
}

// Same-type copies move blocks of bytes: short rows, rows of vector blocks with tails, whole
// images past the streaming threshold (8 MiB), at unaligned addresses, on every kernel tier.
TEST(qBitBltTest, SameTypeCopyMovesEveryByte) {
    struct Case {
        qPixelType type;
        int width, height, dst_col;
    };
    // clang-format off
    const Case cases[] = {{PT_BGRA32, 3, 5, 1},       {PT_BGRA32, 97, 9, 3},
                          {PT_BGR24, 171, 4, 1},      {PT_BGRA32, 1500, 1500, 0},
                          {PT_BGR24, 1777, 1601, 0},  {PT_BGRA32, 64, 3, 0}};
    // clang-format on
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

// ---- FillRect --------------------------------------------------------------------------------

// Random rectangles and colours (grey, uniform or not) on rows of several widths, against a plain
// loop over the clipped area; a 24-bit view takes the colour without its alpha.
TEST(qFillRectTest, PaintsTheClippedAreaOnly) {
    std::mt19937 rng(5);
    for (qPixelType type : {PT_BGR24, PT_BGRA32}) {
        for (int width : {10, 17, 33, 100}) {
            for (int repeat = 0; repeat < 20; ++repeat) {
                Image image(type, width, 10);
                qref::fill_random(image, rng);
                unsigned char colour[4];
                for (unsigned char& c : colour) c = static_cast<unsigned char>(rng());
                if (repeat % 3 == 0) colour[1] = colour[2] = colour[0];
                if (repeat % 6 == 0) colour[3] = colour[0];
                qRect rect;
                qPoint unused;
                qref::random_placement(rng, image, image, &rect, &unused);
                Image expected = qref::copy_of(image);
                for (int64_t r = std::max(rect.y, 0);
                     r < std::min<int64_t>(int64_t{rect.y} + rect.height, 10); ++r)
                    for (int64_t c = std::max(rect.x, 0);
                         c < std::min<int64_t>(int64_t{rect.x} + rect.width, width); ++c)
                        std::memcpy(expected.pixel(int(r), int(c)), colour,
                                    qref::pixel_bytes(type));
                std::unique_ptr<qIImageBuffer> holder;
                qImageEdit view;
                ASSERT_EQ(qref::bind(view, image, holder), 0);
                ASSERT_EQ(view.FillRect(rect, PT_BGRA32, colour, nullptr), 0);
                ASSERT_LT(qref::first_difference(image, expected).row, 0) << width << " " << repeat;
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
    Bytes memory(bytes + 40, 0xEE);
    // 4 bytes past a 32-byte boundary: 7 pixels before the first vector block, and a tail after.
    const size_t aligned = (32 - reinterpret_cast<uintptr_t>(memory.data()) % 32) % 32;
    qref::for_each_kernel_tier([&](int tier) {
        for (size_t start : {aligned + 4, aligned + 1}) {
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
        {PT_BGRA32, qRect(20,      3,       5,       5),       PT_INDEX8, colour,  0 }, // empty wins
        {PT_GRAY8,  qRect(0,       0,       2,       2),       PT_BGRA32, colour,  -6},
        {PT_INDEX8, qRect(0,       0,       2,       2),       PT_BGRA32, colour,  -6},
        {PT_BGR24,  qRect(0,       0,       2,       2),       PT_BGR24,  colour,  -6},
        {PT_BGRA32, qRect(0,       0,       2,       2),       PT_BGRA32, nullptr, -5},
        {PT_BGRA32, qRect(INT_MIN, INT_MIN, INT_MAX, INT_MAX), PT_BGRA32, colour,  0 },
        {PT_BGRA32, qRect(INT_MAX, 0,       INT_MAX, 3),       PT_BGRA32, colour,  0 },
    };
    for (const Case& c : cases) {
        qImageEdit view;
        view.Bind(memory.data(), qSize(10, 10), 40, c.view);
        EXPECT_EQ(view.FillRect(c.rect, c.colour_type, c.colour, nullptr), c.expected);
    }
    qImageEdit view;
    view.Bind(memory.data(), qSize(10, 10), 40, PT_BGRA32);
    qref::CountingMonitor stop(1);
    EXPECT_EQ(view.FillRect(qRect(0, 0, 10, 10), PT_BGRA32, colour, &stop), 1);
    EXPECT_EQ(memory[0], 1);   // the first row is painted
    EXPECT_EQ(memory[40], 0);  // the second is not
}

}  // namespace
