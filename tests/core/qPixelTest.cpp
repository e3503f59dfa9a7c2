#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "qimg/core/qCheckedMathPriv.h"
#include "qimg/core/qPixel.h"

namespace {

struct TypeSize {
    int type;
    int bits;
};

// Every value of the pixel-type table, and neighbours that are not pixel types.
// clang-format off
constexpr TypeSize kTypeSizes[] = {{0, 0},  {1, 32}, {2, 24}, {3, 16},  {4, 8},
                                   {5, 0},  {6, 0},  {7, 8},  {8, 0},   {11, 8},
                                   {12, 0}, {21, 16}, {22, 0}, {-1, 0}, {255, 0}};
// clang-format on

TEST(qPixelTest, RowBytesFollowsTheStrideRuleForEveryType) {
    const int widths[] = {1, 2, 3, 4, 5, 7, 10, 33, 1000};
    for (const TypeSize& c : kTypeSizes) {
        for (int width : widths) {
            SCOPED_TRACE(testing::Message() << "type " << c.type << " width " << width);
            const int expected = c.bits == 0 ? -1 : (c.bits * width + 31) / 32 * 4;
            EXPECT_EQ(row_bytes(width, static_cast<qPixelType>(c.type)), expected);
        }
    }
}

TEST(qPixelTest, RowBytesRefusesStridesBeyond32Bits) {
    // 536870911 pixels of 32 bits take 2147483644 bytes: the last stride that fits.
    EXPECT_EQ(row_bytes(536870911, PT_BGRA32), 2147483644);
    EXPECT_EQ(row_bytes(536870912, PT_BGRA32), -1);
    EXPECT_EQ(row_bytes(INT_MAX, PT_BGRA32), -1);
    EXPECT_EQ(row_bytes(INT_MAX, PT_BGR24), -1);
    // 8 bits: the stride of INT_MAX pixels rounds up past INT_MAX.
    EXPECT_EQ(row_bytes(INT_MAX, PT_GRAY8), -1);
    EXPECT_EQ(row_bytes(INT_MAX - 3, PT_GRAY8), INT_MAX - 3);
}

TEST(qPixelTest, BufferBytesRefusesProductsBeyond31Bits) {
    EXPECT_EQ(q_buffer_bytes(10, 3, PT_BGR24), 96);
    EXPECT_EQ(q_buffer_bytes(10, 0, PT_BGR24), -1);
    EXPECT_EQ(q_buffer_bytes(10, -1, PT_BGR24), -1);
    EXPECT_EQ(q_buffer_bytes(0, 10, PT_BGR24), -1);
    EXPECT_EQ(q_buffer_bytes(10, 10, static_cast<qPixelType>(5)), -1);
    // 65535 x 65535 GIF screen of 32-bit pixels: 17 GB, refused.
    EXPECT_EQ(q_buffer_bytes(65535, 65535, PT_BGRA32), -1);
    // 65535 x 32768 of 8 bits: stride 65536, product exactly 2^31, one too many.
    EXPECT_EQ(q_buffer_bytes(65535, 32768, PT_INDEX8), -1);
    EXPECT_EQ(q_buffer_bytes(65535, 32767, PT_INDEX8), 65536 * 32767);
}

}  // namespace
