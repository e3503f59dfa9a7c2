// Fuzz target for the LZW decoder alone. Byte 0 picks the minimum code size (0..13, so the
// refused sizes are reached too), byte 1 the size of the pieces the rest is fed in (1..256),
// byte 2 the number of pixels expected; the rest is the code stream.
//
// The decoder is compared with a slow reference that keeps every table entry as its own string
// and reads the whole code stream at once: the results, the decoded bytes and their number must
// agree whatever the piece size. Also checked: feed() answers only 1, 0 or -1, the output only
// grows, and with code sizes up to 8 every index is below 2^m.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "qimg/gif/qLzwDecoder.h"

namespace {

void check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "lzw invariant broken: %s\n", what);
        std::abort();
    }
}

struct Reference {
    int status = 1;  // 1 data ended (finish ran), 0 end code, -1 bad code
    std::vector<uint8_t> out;
};

// Codes least significant bit first; table entries as strings. An entry made while writing the
// string of P is P's string plus the first byte of the string written next.
Reference reference_decode(int m, const uint8_t* data, size_t size) {
    Reference r;
    const uint32_t clear = 1u << m;
    const uint32_t end = clear + 1;
    int width = m + 1;
    uint32_t next = clear + 2;
    uint32_t previous = clear;
    std::vector<std::vector<uint8_t>> table(4096);
    int incomplete = -1;  // the entry waiting for its last byte
    size_t bit = 0;
    const size_t total_bits = size * 8;

    auto first_byte = [&](uint32_t code) { return code < clear ? uint8_t(code) : table[code][0]; };
    auto write = [&](uint32_t code) {
        if (incomplete >= 0) {
            table[incomplete].push_back(first_byte(code));
            incomplete = -1;
        }
        if (code < clear) {
            r.out.push_back(uint8_t(code));
        } else {
            r.out.insert(r.out.end(), table[code].begin(), table[code].end());
        }
    };
    // One code; bits past the end of the data read as zero.
    auto take = [&]() {
        uint32_t code = 0;
        for (int i = 0; i < width; ++i, ++bit) {
            if (bit < total_bits && (data[bit / 8] >> (bit % 8) & 1)) code |= 1u << i;
        }
        return code;
    };
    while (bit < total_bits) {
        const uint32_t k = take();
        if (previous == clear) {
            previous = k;
        } else {
            if (previous >= next) {
                r.status = -1;
                return r;
            }
            const uint32_t p = previous;
            write(p);  // completes the entry made before, which p may be
            if (next < 4096) {
                table[next] = p < clear ? std::vector<uint8_t>{uint8_t(p)} : table[p];
                // The entry's last byte comes with the next string written.
                incomplete = static_cast<int>(next);
                ++next;
                if (next > (1u << width) - 1 && next < 4096) ++width;
            }
            previous = k;
            if (k == clear) {
                width = m + 1;
                next = clear + 2;
                incomplete = -1;
            }
        }
        if (previous == end) {
            r.status = 0;
            return r;
        }
    }
    // The data ended: the pending code's string when it is a valid one.
    if (previous != clear && previous != end && previous < next) write(previous);
    return r;
}

size_t smaller(size_t a, size_t b) {
    return a < b ? a : b;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3 || size > 1 << 16) return 0;
    const int min_code_size = data[0] % 14;
    const size_t piece = size_t{data[1]} + 1;
    const unsigned expected = data[2] * 37u;
    // Odd piece sizes decode into a capped output (of at least one index): it must count what
    // the reference decodes and store its first `expected` indices.
    const bool capped = data[1] & 1;
    const unsigned cap = expected > 0 ? expected : 1;
    data += 3;
    size -= 3;
    qLzwDecoder decoder;
    if (capped) {
        decoder.init_capped(min_code_size, cap);
    } else {
        decoder.init(min_code_size, expected);
    }
    int status = 1;
    int last_size = 0;
    for (size_t at = 0; at < size && status == 1; at += piece) {
        const size_t n = size - at < piece ? size - at : piece;
        status = decoder.feed(data + at, static_cast<int>(n));
        check(status == 1 || status == 0 || status == -1, "feed result");
        check(decoder.output_size() >= last_size, "output shrank");
        last_size = decoder.output_size();
    }
    if (status == 0) check(decoder.end_seen(), "end code reported but not seen");
    if (status == 1) decoder.finish();
    check(decoder.output_size() >= last_size, "finish shrank the output");
    // finish() reports nothing: an end code among the last bits shows in end_seen(), a bad code
    // there only in what was written.
    int got = status;
    if (got == 1 && decoder.end_seen()) got = 0;

    if (min_code_size > qLzwDecoder::kMaxMinCodeSize) {
        check(decoder.output() == nullptr && decoder.output_size() == 0, "refused size decoded");
        check(size == 0 ? status == 1 : status == -1, "refused size result");
        return 0;
    }
    const Reference want = reference_decode(min_code_size, data, size);
    check(got == 1 ? want.status != 0 : got == want.status, "result differs from the reference");
    check(decoder.output_size() == static_cast<int>(want.out.size()),
          "output size differs from the reference");
    check(static_cast<size_t>(decoder.stored_size()) ==
              (capped ? smaller(want.out.size(), cap) : want.out.size()),
          "stored size");
    for (size_t i = 0; i < static_cast<size_t>(decoder.stored_size()); ++i) {
        check(decoder.output()[i] == want.out[i], "output differs from the reference");
        if (min_code_size <= 8) check(want.out[i] < 1u << min_code_size, "index above 2^m");
    }
    return 0;
}
