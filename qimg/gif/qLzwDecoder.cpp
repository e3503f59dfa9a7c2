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
// Speed: the bit buffer is 64 bits wide and is refilled with one unaligned 8-byte load from a
// staging copy of the input that has zero bytes after its end, so refills happen once per four
// or five codes. Literal codes never read the table. Strings whose source lies at least 8 (or
// 16) bytes behind their destination are copied in 8- (or 16-) byte moves, which may run up to
// 15 bytes past the string's end: the output block keeps kSlack spare bytes for that, and later
// strings overwrite the spill. The table entry of a written code is moved to the new copy, so
// sources stay close to the write position and in cache.
#include "qimg/gif/qLzwDecoder.h"

#include <climits>
#include <cstring>

#include "qimg/core/qAllocPriv.h"

namespace {

// Spare bytes behind out_capacity_ for the spill of 8- and 16-byte copies.
constexpr int kSlack = 16;
// Input is staged in pieces of this size with 8 zero bytes behind them.
constexpr int kStageBytes = 4096;
// The output block allocated for an image of no declared pixels.
constexpr int kEmptyImageCapacity = 4088;

inline uint64_t load_le64(const unsigned char* p) {
    uint64_t v;
    std::memcpy(&v, p, sizeof v);
    return v;  // x86-64 and the other targets of this build are little-endian
}

// Copies the `length`-byte string at out + from to out + to (from < to), forwards, with the
// result a byte-by-byte forward copy would give even where the two ranges overlap.
inline void copy_string(unsigned char* out, int to, int from, int length) {
    unsigned char* d = out + to;
    const unsigned char* s = out + from;
    const int distance = to - from;
    if (distance >= 16) {
        for (int i = 0; i < length; i += 16) std::memcpy(d + i, s + i, 16);
    } else if (distance >= 8) {
        for (int i = 0; i < length; i += 8) std::memcpy(d + i, s + i, 8);
    } else {
        for (int i = 0; i < length; ++i) d[i] = s[i];
    }
}

}  // namespace

qLzwDecoder::~qLzwDecoder() {
    release();
}

void qLzwDecoder::release() {
    q_free(out_);
    out_ = nullptr;
    out_count_ = 0;
    out_capacity_ = 0;
}

void qLzwDecoder::init(int min_code_size, unsigned int expected_size) {
    release();
    bit_count_ = 0;
    bit_buffer_ = 0;
    const bool usable = min_code_size >= 0 && min_code_size <= kMaxMinCodeSize;
    const int m = usable ? min_code_size : 0;
    initial_width_ = code_width_ = m + 1;
    clear_code_ = previous_ = 1u << m;
    next_code_ = static_cast<int>(clear_code_) + 2;
    if (!usable || expected_size > static_cast<unsigned>(INT_MAX - kSlack)) return;
    const int capacity = expected_size == 0 ? kEmptyImageCapacity : static_cast<int>(expected_size);
    out_ = static_cast<unsigned char*>(q_malloc(static_cast<size_t>(capacity) + kSlack));
    if (out_ != nullptr) out_capacity_ = capacity;
}

// Makes room for `needed` bytes in total by adding `step` to the capacity (at least enough).
bool qLzwDecoder::grow(int64_t needed, int64_t step) {
    int64_t capacity = int64_t{out_capacity_} + step;
    if (capacity < needed) capacity = needed;
    if (capacity > INT_MAX - kSlack) return false;
    void* block = q_realloc(out_, static_cast<size_t>(capacity) + kSlack);
    if (block == nullptr) return false;
    out_ = static_cast<unsigned char*>(block);
    out_capacity_ = static_cast<int>(capacity);
    return true;
}

int qLzwDecoder::feed(const unsigned char* data, int length) {
    if (out_ == nullptr) return -1;
    if (length <= 0 || data == nullptr) return 1;
    if (previous_ == clear_code_ + 1) return 0;
    unsigned char stage[kStageBytes + 8];
    int status = 1;
    for (int done = 0; done < length && status == 1;) {
        const int n = length - done < kStageBytes ? length - done : kStageBytes;
        std::memcpy(stage, data + done, static_cast<size_t>(n));
        std::memset(stage + n, 0, 8);
        done += n;
        status = decode<false>(stage, stage + n, length - done);
    }
    return status;
}

// The decoding loop over staged bytes [p, end), which have 8 readable zero bytes behind them;
// `bytes_after` more bytes of the same feed() call follow. A code is taken only while at least
// one input byte of the call is left beyond the code's last byte: a code that ends in the last
// byte waits for the next call, so the codes each call decodes do not depend on how the bytes
// were staged.
template <bool kFinishing>
int qLzwDecoder::decode(const unsigned char* p, const unsigned char* end, int64_t bytes_after) {
    uint64_t bits = bit_buffer_;
    int nbits = bit_count_;
    int width = code_width_;
    uint32_t mask = (1u << width) - 1;
    int next = next_code_;
    uint32_t prev = previous_;
    const uint32_t clear = clear_code_;
    const uint32_t end_code = clear + 1;
    unsigned char* out = out_;
    int count = out_count_;
    int capacity = out_capacity_;
    Entry* const table = table_;
    int status = 1;

    while (prev != end_code) {
        if constexpr (kFinishing) {
            // No more input: take codes while any bits are left, the last one even when some
            // of its high bits are missing (they are zero in the buffer).
            if (nbits <= 0) break;
        } else if (nbits < width) {
            if (p == end) break;
            // One load tops the buffer up to 56..63 bits; bytes past `end` are staged zeros,
            // and bytes loaded but not counted are loaded again, in the same place, next time.
            bits |= load_le64(p) << nbits;
            int64_t advance = (63 - nbits) >> 3;
            if (advance > end - p) advance = end - p;
            p += advance;
            nbits += static_cast<int>(advance) << 3;
            continue;
        }
        if (!kFinishing && p == end && bytes_after == 0 && nbits - width < 8) break;
        const uint32_t code = static_cast<uint32_t>(bits) & mask;
        bits >>= width;
        nbits -= width;

        if (prev == clear) {
            prev = code;
            continue;
        }
        if (prev >= static_cast<uint32_t>(next)) {
            status = -1;
            break;
        }
        if (prev < clear) {
            // Literal: one byte, no table read.
            if (next < kMaxCodes) {
                table[next] = Entry{count, 2};
                ++next;
                if (static_cast<uint32_t>(next) > mask && next < kMaxCodes) {
                    ++width;
                    mask = mask * 2 + 1;
                }
            }
            if (count >= capacity) {
                out_ = out;
                if (!grow(int64_t{count} + 1, 4096)) {
                    status = -1;
                    break;
                }
                out = out_;
                capacity = out_capacity_;
            }
            out[count++] = static_cast<unsigned char>(prev);
        } else {
            Entry& entry = table[prev];
            const int length = entry.length;
            if (next < kMaxCodes) {
                table[next] = Entry{count, length + 1};
                ++next;
                if (static_cast<uint32_t>(next) > mask && next < kMaxCodes) {
                    ++width;
                    mask = mask * 2 + 1;
                }
            }
            if (int64_t{count} + length > capacity) {
                // Grows by (length + 4096) rounded down to a multiple of 4096.
                out_ = out;
                if (!grow(int64_t{count} + length, (int64_t{length} + 4096) & ~int64_t{4095})) {
                    status = -1;
                    break;
                }
                out = out_;
                capacity = out_capacity_;
            }
            copy_string(out, count, entry.offset, length);
            entry.offset = count;
            count += length;
        }
        prev = code;
        if (code == clear) {
            width = initial_width_;
            mask = (1u << width) - 1;
            next = static_cast<int>(clear) + 2;
        }
    }
    if (prev == end_code) status = 0;

    bit_buffer_ = bits;
    bit_count_ = nbits;
    code_width_ = width;
    next_code_ = next;
    previous_ = prev;
    out_ = out;
    out_count_ = count;
    out_capacity_ = capacity;
    return status;
}

void qLzwDecoder::finish() {
    if (out_ == nullptr || previous_ == clear_code_ + 1) return;
    // An end code among the remaining bits (0) or a bad code (-1): nothing more is written.
    if (decode<true>(nullptr, nullptr, 0) != 1) return;
    // The pending code is written when it is a valid code; no table entry is made for it.
    const uint32_t clear = clear_code_;
    const uint32_t pending = previous_;
    if (pending == clear || pending >= static_cast<uint32_t>(next_code_)) return;
    const int length = pending < clear ? 1 : table_[pending].length;
    if (int64_t{out_count_} + length > out_capacity_ && !grow(int64_t{out_count_} + length, 0)) {
        return;
    }
    if (pending < clear) {
        out_[out_count_] = static_cast<unsigned char>(pending);
    } else {
        copy_string(out_, out_count_, table_[pending].offset, length);
    }
    out_count_ += length;
}
