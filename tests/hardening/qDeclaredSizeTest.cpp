// What a few bytes of GIF can cost: a huge declared frame with almost no data, and a tiny frame
// whose data expand to far more indices than it has pixels. Memory must follow what the data
// fill, while every pixel reads as the index the data (or their absence: 0) give it.
#include <gtest/gtest.h>

#include <fstream>

#include "gif/GifTestKit.h"
#include "qimg/core/qAllocationHookPriv.h"
#include "hardening/HardeningKit.h"

namespace {

using gif_test::BitWriter;
using gif_test::GifBuilder;
using hardening::Bytes;
using hardening::read_bytes;

// Resident pages of this process, in bytes.
long resident_bytes() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * 4096;
}

// A one-frame GIF of `width` x `height`, colour table of 4, code size 8.
Bytes gif_of(int width, int height, bool interlaced, const Bytes& codes) {
    GifBuilder gif;
    gif.header().screen(width, height, 1).color_table(4);
    gif.descriptor(0, 0, width, height, -1, interlaced).image_data(8, codes).trailer();
    return gif.bytes();
}

TEST(DeclaredSize, AHugeFrameWithoutDataCostsNoResidentMemory) {
    BitWriter codes;
    for (unsigned code : {256u, 3u, 257u}) codes.put(code, 9);  // one pixel of index 3
    const Bytes data = codes.take();
    for (bool interlaced : {false, true}) {
        qImageProxy proxy;
        const long before = resident_bytes();
        ASSERT_EQ(read_bytes(proxy, gif_of(8192, 8192, interlaced, data)), 0);
        EXPECT_LT(resident_bytes() - before, 16L << 20) << interlaced;  // of 64 MiB declared
        EXPECT_EQ(proxy.pixel_index(qPoint(0, 0)), 3);
        for (qPoint p : {qPoint(1, 0), qPoint(0, 1), qPoint(8191, 8191), qPoint(4000, 5000)})
            EXPECT_EQ(proxy.pixel_index(p), 0);
    }
}

#ifdef QIMG_TEST_HOOKS
TEST(DeclaredSize, DataThatExpandFarBeyondTheFrameAreNotStored) {
    // Each code names the string before it plus one byte (0, 00, 000, ...) until the table is
    // full; then its longest string, 3839 zeros, 20000 times: about 84 MB of indices from
    // 36 KB of data, for a frame of 2 x 2 pixels.
    BitWriter codes;
    int width = 9;
    codes.put(256, 9);
    codes.put(0, 9);
    for (unsigned next = 258; next < 4096; ++next) {
        codes.put(next, width);
        if (next + 1 == (1u << width) && width < 12) ++width;
    }
    for (int i = 0; i < 20000; ++i) codes.put(4095, 12);
    codes.put(257, 12);
    const Bytes data = codes.take();
    for (bool interlaced : {false, true}) {
        qImageProxy proxy;
        qimg_fail_allocation(0);
        ASSERT_EQ(read_bytes(proxy, gif_of(2, 2, interlaced, data)), 0);
        EXPECT_LT(qimg_allocated_bytes(), 64u << 10) << interlaced;
        for (qPoint p : {qPoint(0, 0), qPoint(1, 1)}) EXPECT_EQ(proxy.pixel_index(p), 0);
    }
}
#endif

}  // namespace
