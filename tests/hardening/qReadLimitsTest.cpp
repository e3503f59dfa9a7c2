// Reading limits, through the pull and the push reader alike: a stream just within each limit
// reads whole; just beyond it stops with ST_LIMIT_EXCEEDED before allocating for the frame that
// breaks it, keeping the frames before; and what a refused frame declares is never allocated.
#include <gtest/gtest.h>

#include "gif/GifTestKit.h"
#include "qimg/core/qAllocationHookPriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/gif/qGifPushReader.h"
#include "qimg/gif/qMemoryR.h"

namespace {

using gif_test::Bytes;
using gif_test::GifBuilder;

// A 200 x 101 screen with frames of 100 x 100, 100 x 100 and 100 x `last_height` (index 1).
Bytes three_frames(int last_height) {
    GifBuilder gif;
    gif.header().screen(200, 101, 1).color_table(4);
    for (int height : {100, 100, last_height})
        gif.descriptor(0, 0, 100, height).pixels(2, Bytes(100 * 101, 1));
    return gif.trailer().bytes();
}

// Status and frames read by each reader; both must agree.
std::pair<int, int> read_both(const Bytes& bytes, const qGifReadOptions& options) {
    qGifAnimation pulled;
    qMemoryR source(bytes.data(), bytes.size());
    const int status = pulled.read(&source, nullptr, options);
    qGifPushReader pushing;
    EXPECT_EQ(pushing.begin(options, nullptr), 0);
    pushing.push(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(pushing.end(), status);
    EXPECT_EQ(pushing.complete_frames(), pulled.num_frames());
    return {status, pulled.num_frames()};
}

TEST(ReadLimits, JustWithinReadsWholeJustBeyondStopsAndKeepsTheFramesBefore) {
    const Bytes bytes = three_frames(101);  // index buffers of 10000, 10000 and 10100 bytes
    const struct {
        int64_t qGifReadOptions::*limit;
        int64_t value;
        int status, frames;
    } rows[] = {
        {&qGifReadOptions::max_screen_pixels, 200 * 101,     0,                 3},
        {&qGifReadOptions::max_screen_pixels, 200 * 101 - 1, ST_LIMIT_EXCEEDED, 0},
        {&qGifReadOptions::max_frame_pixels,  100 * 101,     0,                 3},
        {&qGifReadOptions::max_frame_pixels,  100 * 101 - 1, ST_LIMIT_EXCEEDED, 2},
        {&qGifReadOptions::max_total_bytes,   30100,         0,                 3},
        {&qGifReadOptions::max_total_bytes,   30099,         ST_LIMIT_EXCEEDED, 2},
    };
    for (const auto& row : rows) {
        qGifReadOptions options;
        options.*row.limit = row.value;
        EXPECT_EQ(read_both(bytes, options), std::make_pair(row.status, row.frames)) << row.value;
    }
    // The facade tells a refusal from a lack of memory, also for a screen declared empty.
    Bytes empty_screen = bytes;
    empty_screen[6] = empty_screen[7] = empty_screen[8] = empty_screen[9] = 0;
    qImageProxy proxy;
    qMemoryR source(empty_screen.data(), empty_screen.size());
    EXPECT_EQ(proxy.read_gif(&source, nullptr, qGifReadOptions{.max_frame_pixels = 9999}),
              ST_LIMIT_EXCEEDED);
}

#ifdef QIMG_TEST_HOOKS
TEST(ReadLimits, AFrameBeyondTheBudgetIsNeverAllocated) {
    const Bytes bytes = three_frames(4000);  // declares 400 000 bytes, holds 10 100 pixels
    for (const int64_t budget : {0, 30000}) {
        qimg_fail_allocation(0);
        qGifReadOptions options;
        options.max_total_bytes = budget;
        EXPECT_EQ(read_both(bytes, options).first, budget ? ST_LIMIT_EXCEEDED : 0);
        // Both readers' two frames within the budget, their small objects and the push reader's
        // parser (the LZW table, about 40 KiB) stay under this bound; the refused frame would not.
        EXPECT_EQ(qimg_allocated_bytes() < 2 * 30000u + 49152u, budget != 0) << budget;
    }
}
#endif

}  // namespace
