// Row strides and buffer sizes against the rule computed in 64 bits: rows padded to 4 bytes, and
// -1 for a pixel type without size, a size of no value, or a result past INT_MAX.
#include "qimg/core/qPixel.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>

#include "qimg/core/qCheckedMathPriv.h"

namespace {

TEST(qPixelTest, StridesAndBufferSizesFollowTheRuleIn64Bits) {
    // Every value of the pixel-type table, and neighbours that are not pixel types.
    const struct {
        int type, bits;
    } types[] = {
        {0,   0 },
        {1,   32},
        {2,   24},
        {3,   16},
        {4,   8 },
        {5,   0 },
        {6,   0 },
        {7,   8 },
        {8,   0 },
        {11,  8 },
        {12,  0 },
        {21,  16},
        {22,  0 },
        {-1,  0 },
        {255, 0 }
    };
    const int widths[] = {-4, 0,  1,    2,     3,         4,         5,           7,
                          10, 33, 1000, 65535, 536870911, 536870912, INT_MAX - 3, INT_MAX};
    const int heights[] = {-1, 0, 1, 3, 32767, 32768, 65535};
    for (const auto& t : types) {
        const auto type = static_cast<qPixelType>(t.type);
        for (int width : widths) {
            const int64_t stride = (int64_t{t.bits} * width + 31) / 32 * 4;
            const int64_t want = t.bits == 0 || width <= 0 || stride > INT_MAX ? -1 : stride;
            EXPECT_EQ(row_bytes(width, type), want) << t.type << " x " << width;
            for (int height : heights) {
                const int64_t bytes = want < 0 || height <= 0 ? -1 : want * height;
                EXPECT_EQ(q_buffer_bytes(width, height, type), bytes > INT_MAX ? -1 : bytes)
                    << t.type << ": " << width << " x " << height;
            }
        }
    }
}

}  // namespace
