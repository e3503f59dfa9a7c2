// Sizes at the edge of the address space: where size_t has 32 bits, an element count that fits
// an int can still overflow the byte count of its block.
#include "qimg/gif/qObjArray.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

struct Mebibyte {
    char bytes[1 << 20];
};

TEST(SizeLimits, ArrayRefusesABlockWhoseByteCountOverflows) {
    if (SIZE_MAX > UINT32_MAX) GTEST_SKIP() << "only a 32-bit size_t can overflow here";
    // 5000 MiB: the element count is small, the byte count wraps around 32 bits.
    qObjArray<Mebibyte> array(1);
    EXPECT_FALSE(array.reserve(5000));
    EXPECT_EQ(array.capacity(), 0);
    EXPECT_EQ(array.data(), nullptr);
}

}  // namespace
