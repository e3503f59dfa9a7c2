// The LZW encoder. The string table maps (prefix code, next index) to a code through an
// open-addressing hash of twice the table's size, one 32-bit word per slot holding key and code
// (32 kB, so it stays in the first-level cache). The hot loop's critical path is the look-up of
// the string matched so far plus the next index: an XOR, one load and one compare, usually a
// single probe. Codes go into a 64-bit bit buffer flushed four bytes at a time.
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

#include <bit>
#include <cstring>

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
// Room reserved per encoded run: at most a code and a clear code per index, 12 bits each.
constexpr int kRunIndices = 4096;
constexpr int kRunBytes = kRunIndices * 3 + 16;

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
    const uint32_t slots = slot_mask_ + 1;
    grow_at_ = slots < kHashSlots ? first_code_ + slots / 8 : kMaxCodes;
}

void qLzwEncoder::grow_table() {
    const uint32_t slots = 2 * (slot_mask_ + 1);
    // The entries move to their slots in the doubled hash, codes in order.
    uint32_t entries[kMaxCodes];
    for (uint32_t code = first_code_; code < next_code_; ++code) {
        entries[code] = table_[slot_of_code_[code]];
    }
    std::memset(table_, 0, sizeof(uint32_t) * slots);
    slot_mask_ = slots - 1;
    for (uint32_t code = first_code_; code < next_code_; ++code) {
        uint32_t slot;
        find(entries[code] & kKeyMask, slot);
        table_[slot] = entries[code];
        slot_of_code_[code] = static_cast<uint16_t>(slot);
    }
    set_grow_at();
}

void qLzwEncoder::reset_table() {
    for (uint32_t code = first_code_; code < next_code_; ++code) {
        table_[slot_of_code_[code]] = kEmpty;
    }
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
        constexpr size_t kTableBytes = sizeof(uint32_t) * kHashSlots;
        constexpr size_t kSlotBytes = sizeof(uint16_t) * kMaxCodes;
        void* block = q_malloc(kTableBytes + 2 * kSlotBytes + sizeof(uint16_t) * 256 * kRunChain);
        if (block == nullptr) return ST_NO_MEMORY;
        table_ = static_cast<uint32_t*>(block);
        slot_of_code_ =
            reinterpret_cast<uint16_t*>(static_cast<unsigned char*>(block) + kTableBytes);
        run_codes_ = slot_of_code_ + kMaxCodes;
        run_length_ = run_codes_ + 256 * kRunChain;
        std::memset(run_length_, 0, sizeof(uint16_t) * kMaxCodes);
        std::memset(table_, 0, sizeof(uint32_t) * kFirstSlots);
        slot_mask_ = kFirstSlots - 1;
        first_code_ = next_code_ = 0;
    }
    min_code_size_ = min_code_size;
    clear_code_ = 1u << min_code_size;
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

inline bool qLzwEncoder::find(uint32_t key, uint32_t& slot) const {
    slot = slot_of(key >> 8, key & 0xFF);
    uint32_t entry;
    while (((entry = table_[slot]) & kKeyMask) != key && entry != kEmpty) {
        slot = (slot + 1) & slot_mask_;
    }
    return entry != kEmpty;
}

void qLzwEncoder::encode_run(const unsigned char* indices, int count) {
    int i = 0;
    if (prefix_ == kNoPrefix) prefix_ = last_index_ = indices[i++];
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
            grow_table();
            continue;
        } else if (count - i >= 8 && repeats(indices + i, last_index_)) {
            int end = i + 8;
            while (count - end >= 8 && repeats(indices + end, indices[i])) end += 8;
            while (end < count && indices[end] == indices[i]) ++end;
            encode_repeats(indices[i], end - i);
            i = end;
        } else {
            i += encode_distinct(indices + i, count - i);
        }
        last_index_ = indices[i - 1];
    }
}

int qLzwEncoder::encode_distinct(const unsigned char* indices, int count) {
    // Branch-free: whether the string goes on is close to random on busy pictures, so both
    // outcomes are computed and selected instead of guessed. Members go to locals: the output
    // is written through a byte pointer, which the compiler must otherwise assume changes them.
    uint32_t prefix = prefix_;
    uint32_t next_code = next_code_;
    uint32_t width = static_cast<uint32_t>(width_);
    uint64_t bits = bits_;
    uint32_t bit_count = static_cast<uint32_t>(bit_count_);
    unsigned char* out = out_ + out_size_;
    uint32_t* const table = table_;
    uint16_t* const slot_of_code = slot_of_code_;
    const uint32_t mask = slot_mask_;
    const uint32_t limit = grow_at_;
    int i = 0;
    for (; i < count && next_code < limit; ++i) {
        const uint32_t index = indices[i];
        const uint32_t key = prefix << 8 | index;
        uint32_t slot = (prefix ^ (index * 0x9E3779B1u) >> (32 - kHashBits)) & mask;
        uint32_t entry;
        while (((entry = table[slot]) & kKeyMask) != key && entry != kEmpty) {
            slot = (slot + 1) & mask;
        }
        if (entry != kEmpty) {  // the string goes on
            prefix = entry >> 20;
            continue;
        }
        bits |= uint64_t{prefix} << bit_count;
        bit_count += width;
        std::memcpy(out, &bits, 8);
        const uint32_t whole = bit_count >> 3;  // at most 2: fewer than 8 bits wait on entry
        out += whole;
        bits >>= 8 * whole;
        bit_count &= 7;
        prefix = index;
        if (next_code == (1u << width)) ++width;
        table[slot] = next_code << 20 | key;
        slot_of_code[next_code++] = static_cast<uint16_t>(slot);
        // A run of this index starts: encode_repeats() takes it.
        if (count - i > 8 && repeats(indices + i + 1, index)) {
            ++i;
            break;
        }
    }
    prefix_ = prefix;
    next_code_ = next_code;
    width_ = static_cast<int>(width);
    bits_ = bits;
    bit_count_ = static_cast<int>(bit_count);
    out_size_ = static_cast<int>(out - out_);
    return i;
}

void qLzwEncoder::step(uint32_t index) {
    if (next_code_ == static_cast<uint32_t>(kMaxCodes)) ++window_indices_;
    const uint32_t key = prefix_ << 8 | index;
    uint32_t slot;
    if (find(key, slot)) {
        prefix_ = table_[slot] >> 20;
        return;
    }
    put_code(prefix_);
    add_entry(key, slot);
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
        uint32_t slot;
        while (known < kRunChain && find(uint32_t{chain[known - 1]} << 8 | index, slot)) {
            const uint32_t code = table_[slot] >> 20;
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

void qLzwEncoder::add_entry(uint32_t key, uint32_t slot) {
    if (next_code_ < static_cast<uint32_t>(kMaxCodes)) {
        if (next_code_ == (1u << width_)) ++width_;
        table_[slot] = next_code_ << 20 | key;
        slot_of_code_[next_code_++] = static_cast<uint16_t>(slot);
        if (next_code_ == grow_at_ && grow_at_ < static_cast<uint32_t>(kMaxCodes)) grow_table();
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
            uint32_t slot;
            if (find(prefix_ << 8 | index, slot)) {
                prefix_ = table_[slot] >> 20;
                last_index_ = indices[i] = static_cast<unsigned char>(index);
                continue;
            }
            // The other choice may still continue the string.
            const uint32_t other = index == alternate ? indices[i] : alternate;
            if (flexible[i] && find(prefix_ << 8 | other, slot)) {
                prefix_ = table_[slot] >> 20;
                last_index_ = indices[i] = static_cast<unsigned char>(other);
                continue;
            }
            // A new string starts here; at a free pixel it starts with `alternate`, the index
            // that can go on across the whole free span.
            if (flexible[i]) index = alternate;
            find(prefix_ << 8 | index, slot);
            put_code(prefix_);
            add_entry(prefix_ << 8 | index, slot);
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
