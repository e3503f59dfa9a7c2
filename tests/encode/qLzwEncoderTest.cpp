#include <gtest/gtest.h>

#include <random>

#include "gif/GifTestKit.h"
#include "qimg/encode/qLzwEncoder.h"
#include "qimg/gif/qLzwDecoder.h"

namespace {

using gif_test::Bytes;
using gif_test::lzw_encode;

// The encoder's whole output for `input` given in pieces of `piece` indices (0: one call).
Bytes encode(const Bytes& input, int m, bool deferred, size_t piece = 0, bool near_end = false) {
    qLzwEncoder encoder;
    EXPECT_EQ(encoder.begin(m, deferred), 0);
    if (near_end) encoder.keep_near_end(static_cast<int64_t>(input.size()));
    if (piece == 0) piece = input.size() + 1;
    for (size_t at = 0; at < input.size(); at += piece) {
        const size_t n = std::min(piece, input.size() - at);
        EXPECT_EQ(encoder.encode(input.data() + at, static_cast<int>(n)), 0);
    }
    EXPECT_EQ(encoder.finish(), 0);
    return Bytes(encoder.data(), encoder.data() + encoder.size());
}

Bytes decode(const Bytes& codes, int m, size_t n) {
    qLzwDecoder decoder;
    decoder.init(m, static_cast<unsigned>(n));
    EXPECT_GE(decoder.feed(codes.data(), static_cast<int>(codes.size())), 0);
    decoder.finish();
    EXPECT_TRUE(decoder.end_seen());
    return Bytes(decoder.output(), decoder.output() + decoder.output_size());
}

// Index streams that stress the table: long runs (long strings, slow growth), noise (every
// pair new: the table fills after about 4096 indices and is cleared again and again), a
// repeated short cycle, a ramp that walks the whole alphabet, and the digits of counting
// (every string of a few indices: each code gets every next index, so the strings crowd the
// same slots of the string table).
Bytes stream(const char* kind, int m, size_t n, std::mt19937& rng) {
    Bytes out(n);
    const int alphabet = 1 << m;
    std::uniform_int_distribution<int> symbol(0, alphabet - 1);
    for (size_t i = 0; i < n; ++i) {
        const std::string k = kind;
        const int v = k == "runs"     ? static_cast<int>(i / 977) % alphabet
                      : k == "noise"  ? symbol(rng)
                      : k == "cycle"  ? static_cast<int>(i % 5) % alphabet
                      : k == "flat"   ? 1
                      : k == "digits" ? static_cast<int>(i / 4 >> (i % 4 * m)) % alphabet
                                      : static_cast<int>(i) % alphabet;
        out[i] = static_cast<unsigned char>(v);
    }
    return out;
}

TEST(qLzwEncoderTest, MatchesThePlainEncoderAndDecodesBack) {
    std::mt19937 rng(11);
    for (int m = 2; m <= 8; ++m) {
        for (const char* kind : {"runs", "noise", "cycle", "ramp", "flat", "digits"}) {
            for (size_t n : {size_t{1}, size_t{2}, size_t{5000}, size_t{70000}}) {
                SCOPED_TRACE(testing::Message() << "m " << m << " " << kind << " n " << n);
                const Bytes input = stream(kind, m, n, rng);
                const Bytes codes = encode(input, m, false);
                // Same codes, widths and clear points as the reference, bit for bit.
                EXPECT_EQ(codes, lzw_encode(input, m));
                EXPECT_EQ(encode(input, m, false, 7), codes);
                EXPECT_EQ(decode(codes, m, n), input);
                EXPECT_EQ(decode(encode(input, m, true, 4097), m, n), input);
            }
        }
    }
}

TEST(qLzwEncoderTest, EveryLengthAroundTheFirstFullTable) {
    // With 256-colour noise nearly every index costs a code, so the table's last entry is
    // taken around index 3840: every length there ends the data at another point of filling,
    // clearing and widening.
    std::mt19937 rng(5);
    const Bytes noise = stream("noise", 8, 3900, rng);
    for (size_t n = 3800; n <= noise.size(); ++n) {
        SCOPED_TRACE(n);
        const Bytes input(noise.begin(), noise.begin() + static_cast<long>(n));
        EXPECT_EQ(encode(input, 8, false), lzw_encode(input, 8));
        EXPECT_EQ(decode(encode(input, 8, true), 8, n), input);
    }
    // With under 1000 codes to come when it fills, the table is kept, as if never cleared;
    // with more, cleared.
    const Bytes longer = stream("noise", 8, 9000, rng),
                shorter(longer.begin(), longer.begin() + 4600);
    EXPECT_EQ(encode(shorter, 8, false, 1000, true),
              lzw_encode(shorter, 8, {.clear_when_full = false}));
    EXPECT_EQ(encode(longer, 8, false, 999, true), lzw_encode(longer, 8));
}

TEST(qLzwEncoderTest, DeferredClearKeepsAFullTableThatStillPays) {
    // A 7-index cycle: once the table is full its strings stay long, so the deferred policy
    // keeps it (the output equals never clearing) and beats clearing.
    std::mt19937 rng(3);
    Bytes input(400000);
    for (size_t i = 0; i < input.size(); ++i) input[i] = static_cast<unsigned char>(i * 3 % 7);
    for (size_t i = 0; i < 6000; ++i) input[i] = static_cast<unsigned char>(rng() & 7);
    const Bytes deferred = encode(input, 3, true);
    EXPECT_EQ(deferred, lzw_encode(input, 3, {.clear_when_full = false}));
    EXPECT_LT(deferred.size(), encode(input, 3, false).size());
}

TEST(qLzwEncoderTest, ChoosingWritesOnlyAllowedIndicesAndReencodesTheSame) {
    std::mt19937 rng(8);
    for (const char* kind : {"runs", "noise", "cycle"}) {
        SCOPED_TRACE(kind);
        const Bytes input = stream(kind, 4, 30000, rng);
        Bytes flexible(input.size()), chosen = input;
        // Spans of pixels that may go transparent, as over an unchanged part of a frame.
        for (size_t i = 0; i < flexible.size(); ++i) flexible[i] = i / 50 % 2 && rng() % 8;
        qLzwEncoder encoder;
        ASSERT_EQ(encoder.begin(4, false), 0);
        ASSERT_EQ(encoder.encode_choosing(chosen.data(), flexible.data(), 20000, 15), 0);
        ASSERT_EQ(
            encoder.encode_choosing(chosen.data() + 20000, flexible.data() + 20000, 10000, 15), 0);
        ASSERT_EQ(encoder.finish(), 0);
        const Bytes codes(encoder.data(), encoder.data() + encoder.size());
        int replaced = 0;
        for (size_t i = 0; i < input.size(); ++i) {
            if (chosen[i] == input[i]) continue;
            ASSERT_TRUE(flexible[i] && chosen[i] == 15) << "index " << i;
            ++replaced;
        }
        EXPECT_EQ(codes, encode(chosen, 4, false));
        if (std::string(kind) == "noise") {
            EXPECT_GT(replaced, 10000);
            EXPECT_LT(codes.size(), encode(input, 4, false).size() * 3 / 4);
        }
    }
}

TEST(qLzwEncoderTest, RefusesWhatTheFormatCannotHold) {
    qLzwEncoder encoder;
    const unsigned char four[] = {0, 1, 4};
    EXPECT_EQ(encoder.encode(four, 1), -5);  // no begin()
    EXPECT_EQ(encoder.finish(), -5);
    EXPECT_EQ(encoder.begin(1, false), -5);
    EXPECT_EQ(encoder.begin(9, false), -5);
    ASSERT_EQ(encoder.begin(2, false), 0);
    EXPECT_EQ(encoder.encode(four, 3), -5);  // 4 needs code size 3
    EXPECT_EQ(encoder.encode(nullptr, 1), -5);
    EXPECT_EQ(encoder.encode(four, 2), 0);
    EXPECT_EQ(encoder.finish(), 0);
    EXPECT_EQ(Bytes(encoder.data(), encoder.data() + encoder.size()), lzw_encode({0, 1}, 2));
    EXPECT_EQ(encoder.encode(four, 1), -5);  // finished
}

}  // namespace
