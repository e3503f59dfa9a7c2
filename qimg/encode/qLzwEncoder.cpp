// The LZW encoder. The string table maps (prefix code, next index) to a code through a cuckoo
// hash: two halves of 32-bit words (up to 8192 and 4096), each word holding key and code, and
// every string in one of exactly two slots. The hot loop's critical path is the look-up of the
// string matched so far plus the next index: an XOR, two loads and two compares, their outcome
// selected without a branch, since whether a string goes on is close to random on busy
// pictures. Codes go into a 64-bit bit buffer whose whole bytes are stored every 4 indices.
//
// Code widths follow the reader: a reader adds a table entry for every code after the first one
// following a clear code, one step behind the encoder, and widens its codes once its next free
// entry no longer fits. So the encoder widens after writing a code when the entry it adds for
// that code (the pending entry, for the last code) is 2^width. With m = 2 (clear 4, end 5):
//
//   written   4  c1  c2  c3  c4 ...     entries added   -   6   7   8 ...
//   width     3   3   3   3   4 ...     (entry 8 does not fit 3 bits: c4 is 4 bits wide)
//
// Once code 4095 is taken the table is full and no entry is added. A clear code then starts
// over; with the deferred clear the full table keeps being used while it pays (see table_full).
#include "qimg/encode/qLzwEncoder.h"

#include <algorithm>
#include <bit>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qStatus.h"

namespace {
// The hot loop stores the bit buffer with one 8-byte copy, least significant byte first.
static_assert(std::endian::native == std::endian::little);

// Deferred clear: the full table is judged over windows of this many codes, and cleared when a
// window covers less than 3/4 of the indices of the best window since the table filled.
constexpr int kWindowCodes = 512;
// keep_near_end(): a full table is kept when the rest of the image takes fewer codes than this.
constexpr int64_t kNearEndCodes = 1000;
// Fewer indices than this between runs go one at a time: the branch-free loop takes a while to
// set up.
constexpr int kShortSpan = 8;
// Room reserved per encoded run: at most a code and a clear code per index, 12 bits each.
constexpr int kRunIndices = 4096;
constexpr int kRunBytes = kRunIndices * 3 + 16;

// `x == y ? a : b` as a conditional move: whether a string goes on is close to random, and
// the compiler would make a branch of it.
inline uint32_t select_equal(uint32_t x, uint32_t y, uint32_t a, uint32_t b) {
#if defined(__x86_64__) || defined(__i386__)
    asm("cmpl %2, %1\n\tcmove %3, %0" : "+r"(b) : "r"(x), "r"(y), "r"(a) : "cc");
    return b;
#else
    return x == y ? a : b;
#endif
}

// `x < 4096 ? a : b` (a word `a` with x = a ^ key holds the key) as a conditional move.
inline uint32_t select_below(uint32_t x, uint32_t a, uint32_t b) {
#if defined(__x86_64__) || defined(__i386__)
    asm("cmpl $4096, %1\n\tcmovb %2, %0" : "+r"(b) : "r"(x), "r"(a) : "cc");
    return b;
#else
    return x < 4096 ? a : b;
#endif
}

}  // namespace

qLzwEncoder::~qLzwEncoder() {
    q_free(out_);
    q_free(table_);
}

bool qLzwEncoder::reserve(int64_t extra) {
    int64_t needed = out_size_ + extra;
    if (needed <= out_capacity_) return true;
    if (out_start_ > 0) {  // the consumed bytes make room first
        std::memmove(out_, out_ + out_start_, static_cast<size_t>(out_size_ - out_start_));
        out_size_ -= out_start_;
        needed -= out_start_;
        out_start_ = 0;
        if (needed <= out_capacity_) return true;
    }
    if (needed > (int64_t{1} << 30)) return false;
    const int capacity =
        static_cast<int>(needed < 2 * int64_t{out_capacity_} ? 2 * out_capacity_ : needed);
    auto* block = static_cast<unsigned char*>(q_realloc(out_, static_cast<size_t>(capacity)));
    if (block == nullptr) return false;
    out_ = block;
    out_capacity_ = capacity;
    return true;
}

void qLzwEncoder::consume(int n) {
    if (n <= 0) return;
    if (n >= size()) {
        out_start_ = out_size_ = 0;
        return;
    }
    out_start_ += n;  // moved out in reserve(), when the room is needed
}

void qLzwEncoder::set_grow_at() {
    // Prefixes stay below first_code_ + half_ / 2 <= half_ until the last size.
    grow_at_ = half_ < kMaxHalf ? first_code_ + half_ / 2 : kMaxCodes;
}

void qLzwEncoder::set_hashes() {
    for (uint32_t index = 0; index < 256; ++index) {
        // Two independent mixes of index and seed.
        uint32_t x = (index + 1) * 0x9E3779B1u ^ seed_ * 0x85EBCA77u;
        x = (x ^ x >> 16) * 0x7FEB352Du;
        x = (x ^ x >> 15) * 0x846CA68Bu;
        table_[kFirstHashAt + index] = x & (half_ - 1);
        x = (x ^ x >> 16) * 0x7FEB352Du;
        x = (x ^ x >> 15) * 0x846CA68Bu;
        table_[kSecondHashAt + index] = kMaxHalf | (x & (second_half() - 1));
    }
}

bool qLzwEncoder::place(uint32_t& word) {
    for (int move = 0; move < kMaxMoves; ++move) {
        const uint32_t prefix = prefix_of(word);
        const uint32_t index = index_of(word);
        const uint32_t slot =
            move % 2 == 0 ? first_slot(prefix, index) : second_slot(prefix, index);
        const uint32_t old = table_[slot];
        table_[slot] = word;
        if (old == kEmpty) return true;
        word = old;  // pushed out: it goes to its slot in the other half
    }
    return false;
}

void qLzwEncoder::insert(uint32_t word) {
    const uint32_t prefix = prefix_of(word);
    const uint32_t index = index_of(word);
    uint32_t slot = first_slot(prefix, index);
    if (table_[slot] != kEmpty) slot = second_slot(prefix, index);
    if (table_[slot] == kEmpty) {
        table_[slot] = word;
    } else if (!place(word)) {
        rehash(word);
    }
}

void qLzwEncoder::rehash(uint32_t extra) {
    uint32_t words[kMaxCodes];
    int count = 0;
    for (uint32_t slot = 0; slot < kMaxHalf + second_half(); ++slot) {
        if (slot == half_) slot = kMaxHalf;  // the first half's slots in use, then the second's
        if (table_[slot] != kEmpty) words[count++] = table_[slot];
    }
    words[count++] = extra;
    for (bool placed = false; !placed;) {
        ++seed_;
        set_hashes();
        std::fill_n(table_, half_, kEmpty);
        std::fill_n(table_ + kMaxHalf, second_half(), kEmpty);
        placed = true;
        for (int i = 0; i < count && placed; ++i) {
            uint32_t word = words[i];
            placed = place(word);
        }
    }
    set_grow_at();
}

void qLzwEncoder::grow() {
    // set_hashes() takes the low bits of the same mixes, so each hash gains one bit above the
    // old ones: every string stays in its slot or moves up by the old size.
    const uint32_t first = half_;
    const uint32_t second = second_half();
    half_ *= 2;
    set_hashes();
    split(table_, first, kFirstHashAt);
    if (second_half() != second) split(table_ + kMaxHalf, second, kSecondHashAt);
    set_grow_at();
}

void qLzwEncoder::split(uint32_t* part, uint32_t size, uint32_t hashes_at) {
    for (uint32_t slot = 0; slot < size; ++slot) {
        // An empty slot may "move" too: it stays empty either way.
        const uint32_t word = part[slot];
        const bool up = (table_[hashes_at + index_of(word)] & size) != 0;
        part[slot + size] = up ? word : kEmpty;
        part[slot] = up ? kEmpty : word;
    }
}

void qLzwEncoder::reset_table() {
    // A fill of the halves is quicker than emptying the slots one by one.
    std::fill_n(table_, half_, kEmpty);
    std::fill_n(table_ + kMaxHalf, second_half(), kEmpty);
    next_code_ = first_code_ = clear_code_ + 2;
    set_grow_at();
    width_ = min_code_size_ + 1;
    std::memset(run_known_, 0, sizeof run_known_);
    window_indices_ = 0;
    window_codes_ = 0;
    best_window_indices_ = 0;
    keep_full_ = false;
}

inline void qLzwEncoder::put_code(uint32_t code) {
    bits_ |= uint64_t{code} << bit_count_;
    bit_count_ += width_;
    if (bit_count_ >= 32) {
        const uint32_t low = static_cast<uint32_t>(bits_);
        unsigned char* to = out_ + out_size_;
        to[0] = static_cast<unsigned char>(low);
        to[1] = static_cast<unsigned char>(low >> 8);
        to[2] = static_cast<unsigned char>(low >> 16);
        to[3] = static_cast<unsigned char>(low >> 24);
        out_size_ += 4;
        bits_ >>= 32;
        bit_count_ -= 32;
    }
}

int qLzwEncoder::begin(int min_code_size, bool deferred_clear) {
    started_ = false;
    out_start_ = out_size_ = 0;
    if (min_code_size < kMinCodeSize || min_code_size > kMaxCodeSize) return ST_BAD_ARGUMENT;
    if (!reserve(kRunBytes)) return ST_NO_MEMORY;
    if (table_ == nullptr) {
        constexpr size_t kTableBytes = sizeof(uint32_t) * kTableWords;
        void* block = q_malloc(kTableBytes + sizeof(uint16_t) * (256 * kRunChain + kMaxCodes));
        if (block == nullptr) return ST_NO_MEMORY;
        table_ = static_cast<uint32_t*>(block);
        run_codes_ = reinterpret_cast<uint16_t*>(static_cast<unsigned char*>(block) + kTableBytes);
        run_length_ = run_codes_ + 256 * kRunChain;
        std::memset(run_length_, 0, sizeof(uint16_t) * kMaxCodes);
    }
    // Each image starts with small halves and the first hash functions; the words per index
    // are made again only when they change (a small image spends a good part of its time here).
    if (clear_code_ != 1u << min_code_size) {
        clear_code_ = 1u << min_code_size;
        for (uint32_t index = 0; index < 256; ++index) {
            table_[kKeyBaseAt + index] = index << 24 | clear_code_ << 12;
        }
    }
    min_code_size_ = min_code_size;
    if (half_ != kFirstHalf || seed_ != 0) {
        half_ = kFirstHalf;
        seed_ = 0;
        set_hashes();
    }
    deferred_clear_ = deferred_clear;
    expected_ = encoded_ = fill_start_ = 0;
    bits_ = 0;
    bit_count_ = 0;
    prefix_ = kNoPrefix;
    last_index_ = kNoPrefix;
    reset_table();
    put_code(clear_code_);
    started_ = true;
    return ST_OK;
}

bool qLzwEncoder::window_says_clear() {
    if (++window_codes_ < kWindowCodes) return false;
    const int64_t covered = window_indices_;
    window_codes_ = 0;
    window_indices_ = 0;
    if (covered > best_window_indices_) best_window_indices_ = covered;
    return covered * 4 < best_window_indices_ * 3;
}

void qLzwEncoder::encode_run(const unsigned char* indices, int count) {
    int i = 0;
    if (prefix_ == kNoPrefix) prefix_ = last_index_ = indices[i++];
    int next_run = 0;  // no run of one index starts in [i, next_run) once i is past it
    while (i < count) {
        if (next_code_ == static_cast<uint32_t>(kMaxCodes)) {
            const int64_t at = encoded_ + i;
            if (expected_ > 0 && !keep_full_ && !deferred_clear_) {
                keep_full_ = (expected_ - at) * (kMaxCodes - first_code_) <
                             kNearEndCodes * (at - fill_start_);
            }
            step(indices[i++]);  // a full table: rare, taken one index at a time
            if (next_code_ == first_code_) fill_start_ = at;  // cleared
        } else if (next_code_ == grow_at_) {
            grow();
            continue;
        } else if (count - i >= 8 && repeats(indices + i, last_index_)) {
            int end = i + 8;
            while (count - end >= 8 && repeats(indices + end, indices[i])) end += 8;
            while (end < count && indices[end] == indices[i]) ++end;
            encode_repeats(indices[i], end - i);
            i = end;
        } else if (next_code_ == 1u << width_) {
            step(indices[i++]);  // the next code written widens the codes
        } else {
            // Each index adds at most one code: this many keep the width and the hash size.
            const uint32_t room = std::min(grow_at_, 1u << width_) - next_code_;
            if (next_run <= i) next_run = i + distinct_span(indices + i, count - i);
            const int span = std::min(next_run - i, static_cast<int>(room));
            if (span < kShortSpan) {
                for (const int end = i + span; i < end; ++i) step(indices[i]);
            } else {
                encode_distinct(indices + i, span);
                i += span;
            }
        }
        last_index_ = indices[i - 1];
    }
}

int qLzwEncoder::distinct_span(const unsigned char* at, int count) {
    // Bit k of `same`: at[p + k] == at[p + k + 1]; eight such bits in a row start a run.
    int p = 0;
#ifdef __SSE2__
    for (; p + 33 <= count; p += 16) {
        const auto pairs = [&](int from) {
            const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at + from));
            const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at + from + 1));
            return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(a, b)));
        };
        uint32_t same = pairs(p) | pairs(p + 16) << 16;
        same &= same >> 1;
        same &= same >> 2;
        same &= same >> 4;
        if (same & 0xFFFF) return p + std::countr_zero(same) + 1;
    }
#endif
    for (; p + 9 <= count; ++p) {
        if (repeats(at + p + 1, at[p])) return p + 1;
    }
    return count;
}

void qLzwEncoder::encode_distinct(const unsigned char* indices, int count) {
    // Branch-free: both outcomes of a look-up are computed and one is selected. The code width
    // and the hash size stay the same (the caller gives no more indices than codes remain
    // before either changes). Members go to locals: the output is written through a byte
    // pointer, which the compiler must otherwise assume changes them.
    uint32_t next_code = next_code_;
    const uint32_t width = static_cast<uint32_t>(width_);
    uint64_t bits = bits_;
    uint32_t bit_count = static_cast<uint32_t>(bit_count_);
    unsigned char* out = out_ + out_size_;
    uint32_t* const table = table_;
    // `found ^ key` is the code matched so far: the next slots are one XOR away from the word
    // just loaded.
    uint32_t found = prefix_;
    uint32_t key = 0;
    const auto take = [&](size_t index) {
        const uint32_t prefix = found ^ key;
        // Opaque, so that the compiler does not take the prefix first.
        uint32_t to_first = key ^ table[kFirstHashAt + index];
        uint32_t to_second = key ^ table[kSecondHashAt + index];
        asm("" : "+r"(to_first), "+r"(to_second));
        const uint32_t slot1 = found ^ to_first;
        const uint32_t slot2 = found ^ to_second;
        key = prefix << 12 ^ table[kKeyBaseAt + index];
        const uint32_t entry1 = table[slot1];
        const uint32_t entry2 = table[slot2];
        // The string goes on with the word of whichever half holds it, else starts anew with
        // the index (codes of strings are above every index).
        found = select_below(entry1 ^ key, entry1, select_below(entry2 ^ key, entry2, key | index));
        const uint32_t miss = (found ^ key) == index;
        const uint32_t miss_mask = 0u - miss;
        // A miss writes the code of the string so far and adds the string + index, into the
        // first half's slot when it is empty, else the second's (a hit stores back the word
        // already there).
        bits |= uint64_t{prefix & miss_mask} << bit_count;
        bit_count += width & miss_mask;
        const uint32_t slot = select_equal(entry1, kEmpty, slot1, slot2);
        const uint32_t old = select_equal(entry1, kEmpty, kEmpty, entry2);
        table[slot] = select_equal(miss, 1, key | next_code, old);
        // Both slots were taken: the word pushed out goes to its other slot.
        if (old & miss_mask) [[unlikely]]
            insert(old);
        next_code += miss;
    };
    const auto flush = [&] {
        std::memcpy(out, &bits, 8);
        const uint32_t whole = bit_count >> 3;
        out += whole;
        bits >>= 8 * whole;
        bit_count &= 7;
    };
    // Four codes of up to 12 bits after fewer than 8 waiting fit the 64-bit buffer.
    flush();
    const unsigned char* at = indices;
    const unsigned char* const end = indices + count;
    for (; end - at >= 4; at += 4) {
        take(at[0]);
        take(at[1]);
        take(at[2]);
        take(at[3]);
        flush();
    }
    for (; at != end; ++at) {
        take(*at);
        flush();
    }
    prefix_ = found ^ key;
    next_code_ = next_code;
    bits_ = bits;
    bit_count_ = static_cast<int>(bit_count);
    out_size_ = static_cast<int>(out - out_);
}

void qLzwEncoder::step(uint32_t index) {
    if (next_code_ == static_cast<uint32_t>(kMaxCodes)) ++window_indices_;
    if (const uint32_t* word = find(prefix_, index)) {
        prefix_ = code_of(*word);
        return;
    }
    put_code(prefix_);
    add_entry(key_of(prefix_, index));
    prefix_ = index;
}

void qLzwEncoder::encode_repeats(uint32_t index, int count) {
    // Strings of one index grow by one each time they end inside a run: c, cc, ccc, ... all
    // in the table up to some length. run_codes_ keeps their codes by length, so a run costs
    // one step per code written instead of one look-up per index; the codes are the same.
    uint16_t* const chain = run_codes_ + index * kRunChain;
    while (count > 0) {
        // The string so far: `index` k times, or something else (k = 0).
        int known = run_known_[index];
        if (known == 0) {
            chain[known++] = static_cast<uint16_t>(index);
            run_length_[index] = 1;
        }
        const int k = run_length_[prefix_];
        if (k == 0 || k > known || chain[k - 1] != prefix_) {  // index by index
            step(index);
            --count;
            continue;
        }
        // Lengths the table gained outside this function are found on the way.
        const uint32_t* word;
        while (known < kRunChain && (word = find(chain[known - 1], index)) != nullptr) {
            const uint32_t code = code_of(*word);
            chain[known++] = static_cast<uint16_t>(code);
            run_length_[code] = static_cast<uint16_t>(known);
        }
        run_known_[index] = static_cast<uint16_t>(known);
        const int taken = count < known - k ? count : known - k;
        if (next_code_ == static_cast<uint32_t>(kMaxCodes)) window_indices_ += taken;
        prefix_ = chain[k - 1 + taken];
        count -= taken;
        if (count == 0) break;
        // The next index ends the longest string known here (or, past kRunChain, goes on to a
        // longer one): step() takes it.
        step(index);
        --count;
    }
}

bool qLzwEncoder::valid_run(const unsigned char* indices, int count) const {
    if (!started_ || indices == nullptr || count < 0) return false;
    // The clear code is a power of two, so one OR over the run finds any index at or above it.
    unsigned char seen = 0;
    for (int i = 0; i < count; ++i) seen |= indices[i];
    return seen < clear_code_;
}

void qLzwEncoder::add_entry(uint32_t key) {
    if (next_code_ < static_cast<uint32_t>(kMaxCodes)) {
        if (next_code_ == (1u << width_)) ++width_;
        insert(key | next_code_++);
        if (next_code_ == grow_at_ && grow_at_ < static_cast<uint32_t>(kMaxCodes)) {
            grow();
        }
        return;
    }
    if (keep_full_ || (deferred_clear_ && !window_says_clear())) return;
    put_code(clear_code_);
    reset_table();
}

int qLzwEncoder::encode_choosing(unsigned char* indices, const unsigned char* flexible, int count,
                                 unsigned char alternate) {
    if (!valid_run(indices, count) || flexible == nullptr || alternate >= clear_code_) {
        return ST_BAD_ARGUMENT;
    }
    for (int done = 0; done < count;) {
        const int run = count - done < kRunIndices ? count - done : kRunIndices;
        if (!reserve(kRunBytes)) return ST_NO_MEMORY;
        for (int i = done; i < done + run; ++i) {
            uint32_t index = indices[i];
            if (flexible[i] && last_index_ == alternate) index = alternate;
            if (next_code_ == static_cast<uint32_t>(kMaxCodes)) ++window_indices_;
            if (prefix_ == kNoPrefix) {
                prefix_ = last_index_ = indices[i] = static_cast<unsigned char>(index);
                continue;
            }
            if (const uint32_t* word = find(prefix_, index)) {
                prefix_ = code_of(*word);
                last_index_ = indices[i] = static_cast<unsigned char>(index);
                continue;
            }
            // The other choice may still continue the string.
            const uint32_t other = index == alternate ? indices[i] : alternate;
            const uint32_t* word = flexible[i] ? find(prefix_, other) : nullptr;
            if (word != nullptr) {
                prefix_ = code_of(*word);
                last_index_ = indices[i] = static_cast<unsigned char>(other);
                continue;
            }
            // A new string starts here; at a free pixel it starts with `alternate`, the index
            // that can go on across the whole free span.
            if (flexible[i]) index = alternate;
            put_code(prefix_);
            add_entry(key_of(prefix_, index));
            prefix_ = last_index_ = indices[i] = static_cast<unsigned char>(index);
        }
        done += run;
    }
    return ST_OK;
}

int qLzwEncoder::encode(const unsigned char* indices, int count) {
    if (!valid_run(indices, count)) return ST_BAD_ARGUMENT;
    for (int done = 0; done < count;) {
        const int run = count - done < kRunIndices ? count - done : kRunIndices;
        if (!reserve(kRunBytes)) return ST_NO_MEMORY;
        encode_run(indices + done, run);
        encoded_ += run;
        done += run;
    }
    if (count > 0) last_index_ = indices[count - 1];
    return ST_OK;
}

int qLzwEncoder::finish() {
    if (!started_) return ST_BAD_ARGUMENT;
    if (!reserve(16)) return ST_NO_MEMORY;
    if (prefix_ != kNoPrefix) {
        put_code(prefix_);
        // The reader adds an entry for this code too, and may widen before the end code.
        if (next_code_ < static_cast<uint32_t>(kMaxCodes) && next_code_ == (1u << width_)) {
            ++width_;
        }
    }
    put_code(clear_code_ + 1);
    while (bit_count_ > 0) {
        out_[out_size_++] = static_cast<unsigned char>(bits_);
        bits_ >>= 8;
        bit_count_ -= 8;
    }
    bit_count_ = 0;
    bits_ = 0;
    started_ = false;
    return ST_OK;
}
