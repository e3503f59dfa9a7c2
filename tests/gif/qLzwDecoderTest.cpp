#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <utility>
#include <vector>

#include "GifTestKit.h"
#include "qimg/core/qAllocationHookPriv.h"
#include "qimg/gif/qLzwDecoder.h"

namespace {

using gif_test::BitWriter;
using gif_test::Bytes;
using gif_test::EncodeOptions;
using gif_test::lzw_encode;

struct Decoded {
    // -1 when a feed failed, else 0 when the end code was seen (by a feed or by finish), else 1.
    int last_status = 1;
    Bytes output;
    std::vector<int> statuses;
};

// Feeds `data` in pieces of `piece` bytes (0: all at once), then finishes.
Decoded decode(const Bytes& data, int m, unsigned expected, size_t piece = 0) {
    qLzwDecoder decoder;
    decoder.init(m, expected);
    Decoded result;
    if (piece == 0) piece = data.size() ? data.size() : 1;
    for (size_t at = 0; at < data.size() && result.last_status == 1; at += piece) {
        const size_t n = std::min(piece, data.size() - at);
        result.last_status = decoder.feed(data.data() + at, static_cast<int>(n));
        result.statuses.push_back(result.last_status);
    }
    if (result.last_status >= 0) {
        decoder.finish();
        result.last_status = decoder.end_seen() ? 0 : 1;
    }
    if (decoder.output() != nullptr) {
        result.output.assign(decoder.output(), decoder.output() + decoder.output_size());
    }
    return result;
}

Bytes random_indices(std::mt19937& rng, size_t n, int alphabet, int run_bias) {
    Bytes out(n);
    std::uniform_int_distribution<int> symbol(0, alphabet - 1), keep(0, 99);
    int current = 0;
    for (auto& b : out) {
        if (keep(rng) >= run_bias) current = symbol(rng);
        b = static_cast<unsigned char>(current);
    }
    return out;
}

TEST(qLzwDecoderTest, RoundTripsEncodedStreamsInAnyPieces) {
    std::mt19937 rng(7);
    for (int m = 2; m <= 11; ++m) {
        const int alphabet = m >= 8 ? 256 : 1 << m;
        for (int run_bias : {0, 60, 95}) {
            for (size_t n : {size_t{1}, size_t{2}, size_t{300}, size_t{20000}}) {
                const Bytes input = random_indices(rng, n, alphabet, run_bias);
                const Bytes codes = lzw_encode(input, m);
                for (size_t piece : {size_t{0}, size_t{1}, size_t{7}, size_t{255}}) {
                    SCOPED_TRACE(testing::Message() << "m " << m << " bias " << run_bias << " n "
                                                    << n << " piece " << piece);
                    const Decoded d = decode(codes, m, static_cast<unsigned>(n), piece);
                    EXPECT_EQ(d.last_status, 0);
                    EXPECT_EQ(d.output, input);
                }
            }
        }
    }
}

// A capped output (caller memory or its own block) keeps the first `capacity` indices and
// counts the rest; a write past the cap would be caught by the exactly sized buffer.
TEST(qLzwDecoderTest, CappedOutputKeepsThePixelsAndCountsTheRest) {
    std::mt19937 rng(9);
    for (size_t n : {size_t{60}, size_t{100}, size_t{101}, size_t{5000}}) {
        for (bool caller : {true, false}) {
            SCOPED_TRACE(testing::Message() << n << (caller ? " caller" : " own"));
            const Bytes input = random_indices(rng, n, 16, 70);
            const Bytes codes = lzw_encode(input, 4);
            std::vector<unsigned char> buffer(100, 0xEE);
            qLzwDecoder decoder;
            if (caller) {
                decoder.init_into(4, buffer.data(), 100);
            } else {
                decoder.init_capped(4, 100);
            }
            for (size_t at = 0; at < codes.size(); at += 255) {
                const int piece = static_cast<int>(std::min<size_t>(255, codes.size() - at));
                ASSERT_GE(decoder.feed(codes.data() + at, piece), 0);
            }
            decoder.finish();
            ASSERT_TRUE(decoder.end_seen());
            EXPECT_EQ(decoder.in_caller_buffer(), caller);
            EXPECT_EQ(decoder.output_size(), static_cast<int>(n));
            const long stored = static_cast<long>(std::min<size_t>(n, 100));
            ASSERT_EQ(decoder.stored_size(), stored);
            EXPECT_EQ(Bytes(decoder.output(), decoder.output() + stored),
                      Bytes(input.begin(), input.begin() + stored));
        }
    }
    qLzwDecoder none;
    none.init_into(4, nullptr, 10);
    EXPECT_EQ(none.output(), nullptr);
}

TEST(qLzwDecoderTest, FullTableWithoutClearKeepsTwelveBitCodes) {
    std::mt19937 rng(11);
    // Enough varied data to fill the table many times over, encoded without clearing it.
    const Bytes input = random_indices(rng, 200000, 256, 30);
    EncodeOptions options;
    options.clear_when_full = false;
    const Bytes codes = lzw_encode(input, 8, options);
    const Decoded d = decode(codes, 8, static_cast<unsigned>(input.size()), 255);
    EXPECT_EQ(d.last_status, 0);
    EXPECT_EQ(d.output, input);
}

TEST(qLzwDecoderTest, OutputGrowsBeyondExpectedSize) {
    // More indices than pixels, and an image with no declared pixels.
    std::mt19937 rng(3);
    const Bytes input = random_indices(rng, 50000, 16, 50);
    const Bytes codes = lzw_encode(input, 4);
    for (unsigned expected : {0u, 1u, 4095u}) {
        SCOPED_TRACE(expected);
        const Decoded d = decode(codes, 4, expected, 255);
        EXPECT_EQ(d.last_status, 0);
        EXPECT_EQ(d.output, input);
    }
}

// Hand-made code streams: (code, width) pairs, with m = 2 unless given.
struct CodeCase {
    const char* name;
    int m;
    std::vector<std::pair<unsigned, int>> codes;
    int status;  // of feeding all bytes at once
    Bytes output;
};

TEST(qLzwDecoderTest, HandMadeStreams) {
    const CodeCase cases[] = {
  // clear, 1, 6 (= next free entry: "1" + its own first byte), end
        {               "code equal to next entry",2,                                                 {{4, 3}, {1, 3}, {6, 3}, {5, 3}},0,                {1, 1, 1}                                                                                                                                         },
        {                       "no leading clear",  2,                                                         {{1, 3}, {2, 3}, {5, 3}},  0,                   {1, 2}},
        {                  "clear first and twice",  2,                                                 {{4, 3}, {4, 3}, {3, 3}, {5, 3}},  0,                      {3}},
        {          "clear mid-stream resets width",
         2, // 1 2 6(=1 2) 7(=2 1)  makes entries 6..9: width 4 from entry 7 on; then clear at 4
 // bits, and 3 bits again after it.
 {{4, 3}, {1, 3}, {2, 3}, {6, 3}, {7, 4}, {4, 4}, {3, 3}, {0, 3}, {5, 3}},
         0, {1, 2, 1, 2, 2, 1, 3, 0}                                                                                                                                  },
 // 1, then 7 which is above the next free entry 6: an error once the code after it is
  // read, which here is the end code.
        {                  "code above next entry",  2,                                                 {{4, 3}, {1, 3}, {7, 3}, {5, 3}}, -1,                      {1}},
        {"code above next entry right after clear",  2,                                                 {{4, 3}, {7, 3}, {1, 3}, {5, 3}}, -1,                       {}},
 // smallest and largest literal widths
        {                                    "m 1",  1,                                                 {{2, 2}, {1, 2}, {0, 2}, {3, 3}},  0,                   {1, 0}},
        {                                   "m 11", 11,                                    {{2048, 12}, {2047, 12}, {5, 12}, {2049, 12}},  0,                {0xFF, 5}},
        {                        "m 8 literal 255",  8,                                                   {{256, 9}, {255, 9}, {257, 9}},  0,                    {255}},
    };
    for (const CodeCase& c : cases) {
        SCOPED_TRACE(c.name);
        BitWriter writer;
        for (auto [code, width] : c.codes) writer.put(code, width);
        // One more byte, as the next sub-block would bring: without it a code that ends in the
        // last byte is left to finish(), which does not report errors.
        Bytes data = writer.take();
        data.push_back(0);
        const Decoded d = decode(data, c.m, 16);
        EXPECT_EQ(d.last_status, c.status);
        EXPECT_EQ(d.output, c.output);
    }
}

TEST(qLzwDecoderTest, MissingEndCodeKeepsWhatWasDecoded) {
    // clear 1 2 3 and no end code, 12 bits in 2 bytes. Codes 2 and 3 end in the last byte, so
    // finish() decodes them; writing 2 widens codes to 4 bits, so the 4 padding bits read as
    // one more code 0, which is written as the pending code.
    BitWriter writer;
    for (unsigned code : {4u, 1u, 2u, 3u}) writer.put(code, 3);
    const Bytes data = writer.take();
    qLzwDecoder decoder;
    decoder.init(2, 10);
    EXPECT_EQ(decoder.feed(data.data(), static_cast<int>(data.size())), 1);
    EXPECT_FALSE(decoder.end_seen());
    decoder.finish();
    ASSERT_NE(decoder.output(), nullptr);
    EXPECT_EQ(Bytes(decoder.output(), decoder.output() + decoder.output_size()),
              (Bytes{1, 2, 3, 0}));

    // A partial last code: its missing high bits read as zero. clear, 1, then 1 bit of "3"
    // (binary 011 -> only the low bit 1 is present, code 1 at width 3).
    BitWriter partial;
    partial.put(4, 3);
    partial.put(1, 3);
    partial.put(1, 2);  // 8 bits in all: the last code lacks its top bit
    const Bytes cut = partial.take();
    const Decoded d = decode(cut, 2, 10);
    EXPECT_EQ(d.last_status, 1);
    EXPECT_EQ(d.output, (Bytes{1, 1}));
}

TEST(qLzwDecoderTest, CodeEndingInLastByteWaitsForNextFeed) {
    // clear 1 2 end at 3 bits = 12 bits. With the first byte alone nothing is taken: every code
    // in it ends in the call's last byte.
    BitWriter writer;
    for (unsigned code : {4u, 1u, 2u, 5u}) writer.put(code, 3);
    const Bytes data = writer.take();
    ASSERT_EQ(data.size(), 2u);
    qLzwDecoder decoder;
    decoder.init(2, 4);
    EXPECT_EQ(decoder.feed(data.data(), 1), 1);
    EXPECT_EQ(decoder.output_size(), 0);
    // With the second byte, clear and 1 are taken (they end in the first byte); 2 and the end
    // code end in the second byte and wait, so still nothing is written.
    EXPECT_EQ(decoder.feed(data.data() + 1, 1), 1);
    EXPECT_EQ(decoder.output_size(), 0);
    EXPECT_FALSE(decoder.end_seen());
    decoder.finish();
    EXPECT_TRUE(decoder.end_seen());
    EXPECT_EQ(Bytes(decoder.output(), decoder.output() + decoder.output_size()), (Bytes{1, 2}));
    // Once the end code is seen, feeding more is answered 0 and changes nothing.
    qLzwDecoder again;
    again.init(2, 4);
    const unsigned char more[] = {data[0], data[1], 0xFF};
    EXPECT_EQ(again.feed(more, 3), 0);
    EXPECT_EQ(again.feed(more, 3), 0);
    EXPECT_EQ(again.output_size(), 2);
}

TEST(qLzwDecoderTest, BadCodeAtTheVeryEndIsDroppedByFinish) {
    // clear 1 7: code 7 is above the next entry but nothing follows it, so it is never written
    // and no error is reported.
    BitWriter writer;
    for (unsigned code : {4u, 1u, 7u}) writer.put(code, 3);
    const Decoded d = decode(writer.take(), 2, 4);
    EXPECT_EQ(d.last_status, 1);
    EXPECT_EQ(d.output, (Bytes{1}));
}

TEST(qLzwDecoderTest, WidthGrowsAtEntrySevenForCodeSizeTwo) {
    // With m = 2, codes are 3 bits until entry 7 has been made, then 4 bits. Literals 0 1 2 3
    // make entries 6, 7, 8: after reading the third code the width is 4.
    BitWriter writer;
    writer.put(4, 3);
    writer.put(0, 3);
    writer.put(1, 3);  // entry 6 made when reading this one
    writer.put(2, 3);  // entry 7: next free 8 > 7, width 4 from the next code on
    writer.put(3, 4);
    writer.put(5, 4);
    const Decoded d = decode(writer.take(), 2, 4);
    EXPECT_EQ(d.last_status, 0);
    EXPECT_EQ(d.output, (Bytes{0, 1, 2, 3}));
}

TEST(qLzwDecoderTest, RefusedCodeSizesAndEmptyInput) {
    for (int m : {-1, 12, 15, 16, 255}) {
        SCOPED_TRACE(m);
        qLzwDecoder decoder;
        decoder.init(m, 100);
        EXPECT_EQ(decoder.output(), nullptr);
        const unsigned char byte = 0;
        EXPECT_EQ(decoder.feed(&byte, 1), -1);
        decoder.finish();
        EXPECT_EQ(decoder.output_size(), 0);
    }
    qLzwDecoder decoder;
    decoder.init(8, 0);
    EXPECT_EQ(decoder.feed(nullptr, 0), 1);
    decoder.finish();
    EXPECT_NE(decoder.output(), nullptr);
    EXPECT_EQ(decoder.output_size(), 0);
}

TEST(qLzwDecoderTest, ZeroCodeSizeDecodesByTheSameRules) {
    // m = 0: clear 1, end 2, first entry 3, codes 1 bit wide at first. clear 0 0 makes entry 3
    // ("0 0") and widens codes to 2 bits; 3 makes entry 4 and widens them to 3 bits.
    BitWriter writer;
    writer.put(1, 1);
    writer.put(0, 1);
    writer.put(0, 1);
    writer.put(3, 2);
    writer.put(2, 3);  // end
    const Decoded d = decode(writer.take(), 0, 8);
    EXPECT_EQ(d.last_status, 0);
    EXPECT_EQ(d.output, (Bytes{0, 0, 0, 0}));
}

#ifdef QIMG_TEST_HOOKS
TEST(qLzwDecoderTest, AllocationFailuresAreReported) {
    std::mt19937 rng(5);
    const Bytes input = random_indices(rng, 100000, 4, 80);
    const Bytes codes = lzw_encode(input, 2);
    // The first allocation is the output block, the others its growths: any failure ends the
    // decoding with -1, and doubling keeps them few.
    const auto allocations = [&] {
        qLzwDecoder decoder;
        decoder.init(2, 10);
        return decoder.feed(codes.data(), static_cast<int>(codes.size()));
    };
    qimg_fail_allocation(0);
    ASSERT_GE(allocations(), 0);
    const long count = qimg_allocation_count();
    EXPECT_LE(count, 20);  // steps of 4 KiB would take 25
    for (long n = 1; n <= count; ++n) {
        qimg_fail_allocation(n);
        EXPECT_EQ(allocations(), -1) << n;
    }
    qimg_fail_allocation(0);
}
#endif

}  // namespace
