// qLzwDecoder.cpp: GIF's variable-width LZW, decoded by copying from the output itself.
//
// A GIF image is a stream of codes, least significant bit first, starting m + 1 bits wide for
// the minimum code size m. Codes below 2^m are single indices, 2^m clears the table, 2^m + 1
// ends the data, and each further code names a string that was added to the table while an
// earlier code was written: the string of that earlier code plus the first byte of whatever was
// written next.
//
// No prefix chains and no stack: every string already sits in the output, so a table entry is an
// (offset, length) pair into the output and writing a code is one forward copy. The entry made
// while writing code P starts where P's string was written and is one byte longer; that extra
// byte is the first byte of the next string. This is why the "code equal to the next free entry"
// case needs no special path: its string begins at P's string and ends on the byte written
// first by its own copy, and a forward copy reads that byte after writing it.
//
// Worked example, m = 2 (clear 4, end 5, first free entry 6, codes 3 bits wide):
//
//   code read   pending P written   output      entry made
//   4 (clear)   -                   -           -
//   1           -                   -           -            (after a clear: nothing to write)
//   6           1                   1           6 = (0, 2)
//   5 (end)     6 -> copy out[0..1] 1 1 1       7 = (1, 3)   then width 4 (next free is 8)
//
// Each code's string is written when the code after it is read, so a decoder always holds one
// pending code. When the data stop without an end code, finish() writes that pending code.
//
// Speed: the bit buffer is 64 bits wide and is refilled with one unaligned 8-byte load straight
// from the input: while 8 input bytes remain, every fourth code starts with a branch-free refill
// to 56..63 bits (enough for four codes); the last few bytes of a sub-block are read from a copy
// with zero bytes after its end. Literal codes take the same path as
// string codes: a literal's entry points at its byte in a constant block holding every byte
// value (with 16 spare bytes behind), so writing any code is one table read and one copy, with
// no branch on the kind of code. A string whose source lies at least 16 bytes away from its
// destination (nearly all of them) is written by 16-byte moves, which may spill up to 15 bytes
// past the string's end into room the output still has; later strings overwrite the spill.
// Entries keep pointing at the first copy of their string (the output never changes once
// written), so sources stay far enough behind for those moves. Only strings that overlap their
// source closely (runs of one colour) and strings near the end of the output take the slow path,
// a call kept out of the loop so that the loop's values stay in registers.
//
// The output can be the caller's memory (init_into): the image reader decodes straight into the
// index image's pixel buffer, so an image costs one buffer and no copy. An image's output is
// capped at its pixels: indices past them are decoded and checked as usual but not stored (a
// string that crosses the cap is written up to it), so a few bytes of data that expand to
// gigabytes of indices cost nothing. Reading a string only ever needs what lies before the
// current position, which stays below the cap while anything is still written.
#include "qimg/gif/qLzwDecoder.h"

#include <climits>
#include <cstdint>
#include <cstring>

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qCheckedMathPriv.h"

namespace {

// What feed() and the decoding loop answer (qLzwDecoder.h): the decoder's own results, not
// status codes.
enum qFeedResult : int {
    FEED_FAILED = -1,  // a bad code, an output that cannot grow, or no output at all
    FEED_END = 0,      // the end code has been seen
    FEED_MORE = 1,     // more data wanted
};

// Spare bytes behind the capacity of an owned output block, for the spill of 16-byte moves.
constexpr int kSlack = 16;
// Codes taken after each refill of the bit buffer to 56 bits or more (codes are 12 bits at most).
constexpr int kCodesPerRefill = 4;
// The output block allocated for an image of no declared pixels.
constexpr int kEmptyImageCapacity = 4088;
// The most indices decoded (stored or not): count + a string's length + kSlack stays inside the
// int range.
constexpr int kMaxCapacity = INT_MAX - 2 * 4096 - kSlack;

inline uint64_t load_le64(const unsigned char* p) {
    uint64_t v;
    std::memcpy(&v, p, sizeof v);
    return v;  // x86-64 and the other targets of this build are little-endian
}

// Every byte value, then 16 spare bytes: the source of a literal's 16-byte move.
constexpr struct Literals {
    unsigned char bytes[256 + 16];
    constexpr Literals() : bytes() {
        for (int i = 0; i < 256; ++i) bytes[i] = static_cast<unsigned char>(i);
    }
} kLiterals;

// A table entry is one 64-bit word: the string's byte offset from the output's start in the
// high 51 bits (signed: a literal's byte may lie anywhere in the address space, and any two
// user-space addresses of a 64-bit process with 48 or 49 bits of address space are less than
// 2^49 apart) and its length (at most 4095) in the low 13.
constexpr int kLengthBits = 13;
constexpr uint64_t kLengthMask = (uint64_t{1} << kLengthBits) - 1;
inline uint64_t make_entry(int64_t offset, int length) {
    return (static_cast<uint64_t>(offset) << kLengthBits) | static_cast<uint32_t>(length);
}
inline int entry_length(uint64_t entry) {
    return static_cast<int>(entry & kLengthMask);
}
// Addresses are formed on integers: a literal's offset leads outside the output block.
inline const unsigned char* entry_source(const unsigned char* out, uint64_t entry) {
    return reinterpret_cast<const unsigned char*>(
        reinterpret_cast<uintptr_t>(out) +
        static_cast<uintptr_t>(static_cast<int64_t>(entry) >> kLengthBits));
}
// How far `to` lies behind `from`, as an unsigned count: a source at or after its destination
// (a literal's byte in the constant block may be) gives a huge value, and the 16-byte moves are
// safe for it too.
inline uintptr_t distance(const unsigned char* to, const unsigned char* from) {
    return reinterpret_cast<uintptr_t>(to) - reinterpret_cast<uintptr_t>(from);
}

// For a source 1..15 bytes behind its copy: the smallest multiple of that distance that is at
// least 16.
constexpr unsigned char kPeriods[16] = {0,  16, 16, 18, 16, 20, 18, 21,
                                        16, 18, 20, 22, 24, 26, 28, 30};

// Copies the `length`-byte string at `from` to `to`, forwards, with the result a byte-by-byte
// forward copy would give even where the two ranges overlap. Writes whole 16- or 8-byte moves
// only when `room` (bytes writable at `to`) allows the spill.
inline void copy_string(unsigned char* to, const unsigned char* from, int length, int64_t room) {
    const uintptr_t apart = distance(to, from);
    if (apart >= 16 && ((length + 15) & ~15) <= room) {
        for (int i = 0; i < length; i += 16) std::memcpy(to + i, from + i, 16);
    } else if (apart >= 8 && ((length + 7) & ~7) <= room) {
        for (int i = 0; i < length; i += 8) std::memcpy(to + i, from + i, 8);
    } else {
        for (int i = 0; i < length; ++i) to[i] = from[i];
    }
}

}  // namespace

qLzwDecoder::~qLzwDecoder() {
    release();
}

void qLzwDecoder::release() {
    if (owned_) q_free(out_);
    out_ = nullptr;
    owned_ = false;
    capped_ = false;
    out_count_ = 0;
    out_capacity_ = 0;
    room_ = 0;
}

bool qLzwDecoder::start(int min_code_size) {
    release();
    bit_count_ = 0;
    bit_buffer_ = 0;
    const bool usable = min_code_size >= 0 && min_code_size <= kMaxMinCodeSize;
    const int m = usable ? min_code_size : 0;
    initial_width_ = code_width_ = m + 1;
    clear_code_ = previous_ = 1u << m;
    next_code_ = static_cast<int>(clear_code_) + 2;
    return usable;
}

// Literal codes above 255 (code sizes 9..11) write their low byte, as a byte output must. The
// entries of codes 0..255 are one arithmetic sequence: offsets one apart, length 1.
void qLzwDecoder::point_literals() {
    const uint64_t first =
        make_entry(static_cast<int64_t>(reinterpret_cast<uintptr_t>(kLiterals.bytes)) -
                       static_cast<int64_t>(reinterpret_cast<uintptr_t>(out_)),
                   1);
    const uint32_t bytes = clear_code_ < 256 ? clear_code_ : 256;
    uint64_t entry = first;
    for (uint32_t i = 0; i < bytes; ++i, entry += uint64_t{1} << kLengthBits) table_[i] = entry;
    for (uint32_t i = bytes; i < clear_code_; ++i) table_[i] = table_[i & 255];
}

void qLzwDecoder::init(int min_code_size, unsigned int expected_size) {
    if (!start(min_code_size) || expected_size > static_cast<unsigned>(kMaxCapacity)) return;
    const int capacity = expected_size == 0 ? kEmptyImageCapacity : static_cast<int>(expected_size);
    out_ = static_cast<unsigned char*>(q_malloc(static_cast<size_t>(capacity) + kSlack));
    if (out_ == nullptr) return;
    owned_ = true;
    out_capacity_ = capacity;
    room_ = capacity + kSlack;
    point_literals();
}

void qLzwDecoder::init_capped(int min_code_size, unsigned int expected_size) {
    init(min_code_size, expected_size);
    if (out_ == nullptr) return;
    capped_ = true;
    out_capacity_ = static_cast<int>(expected_size);  // 0 stores nothing
}

void qLzwDecoder::init_into(int min_code_size, unsigned char* buffer, int capacity, int spare) {
    if (!start(min_code_size) || buffer == nullptr || capacity <= 0) return;
    if (capacity > kMaxCapacity) capacity = kMaxCapacity;
    out_ = buffer;
    capped_ = true;
    out_capacity_ = capacity;
    room_ = capacity + (spare > 0 && spare <= kSlack ? spare : 0);
    point_literals();
}

// Makes room for `needed` bytes in total, at least doubling the capacity so that a long output
// is copied a bounded number of times.
bool qLzwDecoder::grow(int64_t needed) {
    int64_t capacity = q_max(needed, 2 * int64_t{out_capacity_});
    if (capacity > kMaxCapacity) capacity = kMaxCapacity;
    if (capacity < needed) return false;
    auto* block =
        static_cast<unsigned char*>(q_realloc(out_, static_cast<size_t>(capacity) + kSlack));
    if (block == nullptr) return false;
    out_ = block;
    out_capacity_ = static_cast<int>(capacity);
    room_ = out_capacity_ + kSlack;
    point_literals();  // their offsets are from the output's start
    return true;
}

[[gnu::noinline, gnu::cold]] bool qLzwDecoder::write_slowly(uint32_t code, int count) {
    const int length = entry_length(table_[code]);
    if (int64_t{count} + length > out_capacity_) return write_past_capacity(code, count);
    write_string(code, count, length);
    return true;
}

// The string of `code` at `count` does not fit the capacity: grows the output, or, when it is
// capped, writes the part below the cap (if any). False when the output cannot grow or the
// decoded count would pass kMaxCapacity.
bool qLzwDecoder::write_past_capacity(uint32_t code, int count) {
    const int length = entry_length(table_[code]);
    if (int64_t{count} + length > kMaxCapacity) return false;
    if (!capped_ && !grow(int64_t{count} + length)) return false;
    const int fits = static_cast<int>(q_min(length, int64_t{out_capacity_} - count));
    if (fits > 0) write_string(code, count, fits);
    return true;
}

// Writes the first `length` bytes of the string of `code` at output + `count` by a forward copy
// that spills only into room the output has.
void qLzwDecoder::write_string(uint32_t code, int count, int length) {
    copy_string(out_ + count, entry_source(out_, table_[code]), length, int64_t{room_} - count);
}

int qLzwDecoder::feed(const unsigned char* data, int length) {
    if (out_ == nullptr) return FEED_FAILED;
    if (length <= 0 || data == nullptr) return FEED_MORE;
    if (previous_ == clear_code_ + 1) return FEED_END;
    // The caller's bytes while 8 or more are left, then the last few from a copy with zero bytes
    // behind them.
    const unsigned char* p = data;
    if (length >= 8) {
        const int status = decode<false>(&p, data + length, false);
        if (status != FEED_MORE) return status;
    }
    unsigned char tail[16] = {};
    const int n = static_cast<int>(data + length - p);
    for (int i = 0; i < n; ++i) tail[i] = p[i];
    p = tail;
    return decode<false>(&p, tail + n, true);
}

// The decoding loop over the bytes [*at, end), leaving *at after the bytes it took into the bit
// buffer. `staged`: the bytes have 8 readable zero bytes behind them and are the last of the
// feed() call; else the loop stops where fewer than 8 bytes are left. A code is taken only while
// at least one input byte of the call is left beyond the code's last byte: a code that ends in
// the last byte waits for the next call, so the codes each call decodes do not depend on how
// the bytes were passed.
template <bool kFinishing>
int qLzwDecoder::decode(const unsigned char** at, const unsigned char* end, bool staged) {
    const unsigned char* p = kFinishing ? nullptr : *at;
    uint64_t bits = bit_buffer_;
    int nbits = bit_count_;
    int width = code_width_;
    uint32_t mask = (1u << width) - 1;
    int next = next_code_;
    uint32_t prev = previous_;
    const uint32_t clear = clear_code_;
    const uint32_t end_code = clear + 1;
    unsigned char* out = out_;
    // 64-bit counts, so that addresses need no sign extension.
    int64_t count = out_count_;
    // Strings that end at or below `limit` leave room for a 16-byte move at their start.
    int64_t limit = room_ - 16 < out_capacity_ ? room_ - 16 : out_capacity_;
    uint64_t* const table = table_;
    int status = FEED_MORE;

    // Writes the pending code's string, making the table entry it adds, and makes `code` the
    // pending one; false to stop (a bad code, or an output that cannot take the string).
    const auto take = [&](uint32_t code) __attribute__((always_inline)) {
        if (prev == clear) {
            prev = code;
            return true;
        }
        if (prev >= static_cast<uint32_t>(next)) {
            status = FEED_FAILED;
            return false;
        }
        const uint64_t entry = table[prev];
        const int64_t length = static_cast<int64_t>(entry & kLengthMask);
        if (next < kMaxCodes) {
            table[next] = (static_cast<uint64_t>(count) << kLengthBits) + (entry & kLengthMask) + 1;
            ++next;
            if (static_cast<uint32_t>(next) > mask && next < kMaxCodes) {
                ++width;
                mask = mask * 2 + 1;
            }
        }
        unsigned char* const to = out + count;
        const unsigned char* const from = entry_source(out, entry);
        const uintptr_t apart = distance(to, from);
        if (count + length <= limit && apart >= 16) {
            // limit <= capacity: the string fits, and so does the spill of the last move.
            std::memcpy(to, from, 16);
            for (int64_t i = 16; i < length; i += 16) std::memcpy(to + i, from + i, 16);
        } else if (count + length <= limit) {
            // A source less than 16 bytes back (the string just written, or a run of one
            // colour): the first 16 bytes by moves no wider than the distance, so that each
            // reads only finished bytes; from there on the string repeats itself every
            // `apart` bytes, so 16-byte moves take it from a whole number of periods back.
            if (apart >= 8) {
                std::memcpy(to, from, 8);
                std::memcpy(to + 8, from + 8, 8);
            } else {
                const int64_t first = length < 16 ? length : 16;
                for (int64_t i = 0; i < first; ++i) to[i] = from[i];
            }
            const int64_t back = kPeriods[apart];
            for (int64_t i = 16; i < length; i += 16) std::memcpy(to + i, to + i - back, 16);
        } else {
            if (!write_slowly(prev, static_cast<int>(count))) {
                status = FEED_FAILED;
                return false;
            }
            // Growing moves the output.
            out = out_;
            limit = room_ - 16 < out_capacity_ ? room_ - 16 : out_capacity_;
        }
        count += length;
        prev = code;
        if (code == clear) {
            width = initial_width_;
            mask = (1u << width) - 1;
            next = static_cast<int>(clear) + 2;
        }
        return true;
    };

    while (prev != end_code) {
        if constexpr (!kFinishing) {
            if (end - p >= 8) {
                // Tops the buffer up to 56..63 bits, which hold two codes that both end before
                // the last input byte. Bytes loaded but not counted are loaded again, into the
                // same place, by the next refill.
                bits |= load_le64(p) << nbits;
                p += (63 - nbits) >> 3;
                nbits |= 56;
                bool going = true;
#pragma GCC unroll 4
                for (int k = 0; k < kCodesPerRefill && going; ++k) {
                    const uint32_t code = static_cast<uint32_t>(bits) & mask;
                    bits >>= width;
                    nbits -= width;
                    going = take(code) && prev != end_code;
                }
                if (!going) break;
                continue;
            }
        }
        if constexpr (kFinishing) {
            // No more input: take codes while any bits are left, the last one even when some
            // of its high bits are missing (they are zero in the buffer).
            if (nbits <= 0) break;
        } else {
            if (!staged) break;
            if (nbits < width) {
                if (p == end) break;
                // Bytes past `end` are the staged zeros.
                bits |= load_le64(p) << nbits;
                int64_t advance = (63 - nbits) >> 3;
                if (advance > end - p) advance = end - p;
                p += advance;
                nbits += static_cast<int>(advance) << 3;
                if (nbits < width) continue;
            }
            if (p == end && nbits - width < 8) break;
        }
        const uint32_t code = static_cast<uint32_t>(bits) & mask;
        bits >>= width;
        nbits -= width;
        if (!take(code)) break;
    }
    if (prev == end_code) status = FEED_END;

    if constexpr (!kFinishing) *at = p;
    bit_buffer_ = bits;
    bit_count_ = nbits;
    code_width_ = width;
    next_code_ = next;
    previous_ = prev;
    out_count_ = static_cast<int>(count);
    return status;
}

void qLzwDecoder::finish() {
    if (out_ == nullptr || previous_ == clear_code_ + 1) return;
    // An end code among the remaining bits or a bad code: nothing more is written.
    if (decode<true>(nullptr, nullptr, true) != FEED_MORE) return;
    // The pending code is written when it is a valid code; no table entry is made for it.
    const uint32_t clear = clear_code_;
    const uint32_t pending = previous_;
    if (pending == clear || pending >= static_cast<uint32_t>(next_code_)) return;
    if (!write_slowly(pending, out_count_)) return;
    out_count_ += entry_length(table_[pending]);
}
