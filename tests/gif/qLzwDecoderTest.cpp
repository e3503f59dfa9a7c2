#include "qimg/gif/qLzwDecoder.h"

#include <gtest/gtest.h>

#include <random>
#include <utility>
#include <vector>

#include "GifTestKit.h"

namespace {

using gif_test::Bytes;
using gif_test::lzw_encode;

struct Decoded {
    // -1 when a feed failed, else 0 when the end code was seen (by a feed or by finish), else 1.
    int last_status = 1;
    Bytes output;
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

}  // namespace
