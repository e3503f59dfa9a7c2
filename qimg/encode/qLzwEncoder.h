// qLzwEncoder.h: qLzwEncoder, the variable-width LZW encoder of GIF image data.
//
// The counterpart of qLzwDecoder. One encoder encodes one image: begin() with the minimum code
// size, encode() the indices in display or interlaced order in as many calls as convenient,
// finish() at the end. The packed code bytes collect in data() / size(); the caller takes them
// out as it goes (consume()) and wraps them in data sub-blocks. Codes are written least
// significant bit first, as the format requires.
//
//   qLzwEncoder lzw;
//   lzw.begin(8, false);
//   for (int y = 0; y < height; ++y) {
//       lzw.encode(row(y), width);
//       while (lzw.size() >= 255) { write_sub_block(lzw.data(), 255); lzw.consume(255); }
//   }
//   lzw.finish();        // then the rest in blocks of up to 255 bytes, and a 0 terminator
#pragma once

#include <cstdint>
#include <cstring>

#include "qimg/core/qExport.h"

class QIMG_API qLzwEncoder {
public:
    static constexpr int kMaxCodes = 4096;
    static constexpr int kMinCodeSize = 2;
    static constexpr int kMaxCodeSize = 8;

    qLzwEncoder() = default;
    ~qLzwEncoder();
    qLzwEncoder(const qLzwEncoder&) = delete;
    qLzwEncoder& operator=(const qLzwEncoder&) = delete;

    // Starts a new stream with minimum code size `min_code_size` (2..8; a palette of n entries
    // needs the smallest m with 2^m >= n, at least 2) and writes the leading clear code. Any
    // bytes not yet consumed are dropped.
    // `deferred_clear` false: a clear code as soon as all 4096 codes are taken (what most
    // encoders do). true: the full table is kept while its strings stay long, and cleared only
    // once the codes written with it get noticeably shorter than they were when it filled up;
    // this helps images whose statistics stay the same, and never hurts much elsewhere.
    // 0; -5 for a code size outside 2..8; -1 when the output block cannot be made.
    int begin(int min_code_size, bool deferred_clear);
    // After begin() without the deferred clear: the stream will hold `total` indices. A table
    // that fills up with fewer than 1000 codes' worth of indices still to come (at the average
    // string length since the last clear) is then kept to the end instead of cleared: a new
    // table would not pay back over so few codes.
    void keep_near_end(int64_t total) { expected_ = total; }
    // Appends `count` indices. 0; -5 for an index of 2^min_code_size or above (nothing of this
    // call is encoded), a null pointer, a negative count or no begin(); -1 out of memory.
    int encode(const unsigned char* indices, int count);
    // Like encode(), for pixels that may take either of two indices: where flexible[i] is not
    // zero, indices[i] may be written as `alternate` instead (a transparent index over pixels
    // that are already shown). The choice is greedy: whichever index continues the current
    // string (`alternate` first after an `alternate`), else `alternate`. The indices
    // written are stored back into `indices`, so encode() of them gives the same codes.
    // Codes as for encode(); also -5 for an `alternate` of 2^min_code_size or above.
    int encode_choosing(unsigned char* indices, const unsigned char* flexible, int count,
                        unsigned char alternate);
    // Writes the pending string and the end code, and pads the last byte with zero bits.
    // 0; -5 without begin(); -1 out of memory. encode() is refused afterwards.
    int finish();

    // Code bytes written and not yet consumed; data() is null before begin().
    const unsigned char* data() const { return out_ ? out_ + out_start_ : nullptr; }
    int size() const { return out_size_ - out_start_; }
    // Drops the first `n` bytes of data() (clamped to size()).
    void consume(int n);

private:
    // The string table is a cuckoo hash of two halves: a string lives either in slot h1 of the
    // first half or in slot h2 of the second, so a look-up is two loads and two compares, with
    // no probing and nothing to guess. Each half starts small (a picture of long runs makes few
    // strings, and a small table is quick to set up) and doubles as the strings come, up to
    // 8192 and 4096 slots (48 kB, which stays in the first-level cache): three times the full
    // table, so an insert rarely has to move another string to its other slot.
    static constexpr int kHalfBits = 13;
    static constexpr uint32_t kMaxHalf = 1u << kHalfBits;
    static constexpr uint32_t kFirstHalf = 1024;
    // After the halves in table_, 256 words each, per index: its key with prefix 0 (index << 24
    // | the clear code << 12) and its hash in each half (slot = prefix XOR hash; prefixes stay
    // below half_, so slots do too; the second half's hashes include its start).
    static constexpr uint32_t kMaxSecondHalf = 4096;
    uint32_t second_half() const { return half_ < kMaxSecondHalf ? half_ : kMaxSecondHalf; }
    static constexpr uint32_t kKeyBaseAt = kMaxHalf + kMaxSecondHalf;
    static constexpr uint32_t kFirstHashAt = kKeyBaseAt + 256;
    static constexpr uint32_t kSecondHashAt = kFirstHashAt + 256;
    static constexpr uint32_t kTableWords = kSecondHashAt + 256;
    // Longest chain of strings an insert moves before it rehashes with new hash functions.
    static constexpr int kMaxMoves = 64;
    static constexpr uint32_t kNoPrefix = 0xFFFFFFFFu;

    // Longest strings of one index whose codes run_codes_ keeps (256 of them per index).
    static constexpr int kRunChain = 256;

    // One piece of indices whose output room is already reserved: runs of one index go to
    // encode_repeats(), the rest to encode_distinct().
    void encode_run(const unsigned char* indices, int count);
    // How many of the `count` indices at `at` come before a run of one index (a run of 9 or
    // more: it then starts with its second index).
    static int distinct_span(const unsigned char* at, int count);
    // Encodes `count` indices, no more than the codes left before the code width or the hash
    // size changes.
    void encode_distinct(const unsigned char* indices, int count);
    // `count` more indices equal to `index`.
    void encode_repeats(uint32_t index, int count);
    // Whether the 8 indices at `at` all equal `index`.
    static bool repeats(const unsigned char* at, uint32_t index) {
        uint64_t block;
        std::memcpy(&block, at, 8);
        return block == index * uint64_t{0x0101010101010101};
    }
    // One index the plain way (any table state).
    void step(uint32_t index);
    void put_code(uint32_t code);
    // The key of the string `prefix` + `index` (a word with code 0), and back.
    uint32_t key_of(uint32_t prefix, uint32_t index) const {
        return prefix << 12 ^ table_[kKeyBaseAt + index];
    }
    // The slots of the string `prefix` + `index` in the two halves.
    uint32_t first_slot(uint32_t prefix, uint32_t index) const {
        return prefix ^ table_[kFirstHashAt + index];
    }
    uint32_t second_slot(uint32_t prefix, uint32_t index) const {
        return prefix ^ table_[kSecondHashAt + index];
    }
    uint32_t prefix_of(uint32_t word) const { return (word >> 12 ^ clear_code_) & 0xFFF; }
    static uint32_t index_of(uint32_t word) { return word >> 24; }
    static uint32_t code_of(uint32_t word) { return word & 0xFFF; }
    // Whether `word` holds the string of `key`.
    static bool holds(uint32_t word, uint32_t key) { return (word ^ key) < 4096; }
    // The table word of the string `prefix` + `index`, or null.
    const uint32_t* find(uint32_t prefix, uint32_t index) const {
        const uint32_t key = key_of(prefix, index);
        const uint32_t* first = table_ + first_slot(prefix, index);
        if (holds(*first, key)) return first;
        const uint32_t* second = table_ + second_slot(prefix, index);
        return holds(*second, key) ? second : nullptr;
    }
    // Adds a table word (key | code) whose string is not in the table.
    void insert(uint32_t word);
    // Puts `word` into its first slot and each word pushed out into its other one, for up to
    // kMaxMoves words. False when one is still out then; `word` holds it.
    bool place(uint32_t& word);
    // Moves every word and `extra` to their slots under hash functions of a new seed, until
    // all fit.
    void rehash(uint32_t extra);
    // Doubles the halves (the second up to kMaxSecondHalf).
    void grow();
    // Of the `size` slots at `part`, moves the words whose hash (at hashes_at) has bit `size`
    // set up by `size`.
    void split(uint32_t* part, uint32_t size, uint32_t hashes_at);
    // The hash functions of seed_ for halves of half_ slots.
    void set_hashes();
    void set_grow_at();
    // After a code was written for a string that `index` does not continue: the table entry
    // (prefix + index) is added, or the full table is cleared or kept.
    void add_entry(uint32_t key);
    bool valid_run(const unsigned char* indices, int count) const;
    void reset_table();
    // Deferred clear, once per code written with the full table: true when the window that
    // code completes covered too few indices, so the table should be cleared.
    bool window_says_clear();
    bool reserve(int64_t extra);

    // One word per slot: the string's key in the top 20 bits (the prefix XOR the clear code,
    // then the index above it) and its code in the low 12. Prefixes are never the clear code, so
    // no key is zero and an empty slot holds zero.
    static constexpr uint32_t kEmpty = 0;
    // The halves (half_ and second_half() slots in use) with the words per index after them,
    // and the arrays below, come from one heap block made by the first begin() (188 kB: too big
    // for the stack).
    uint32_t* table_ = nullptr;
    uint32_t half_ = 0;
    uint32_t grow_at_ = 0;  // the next code at which the hash grows
    uint32_t seed_ = 0;
    uint32_t first_code_ = 0;  // the first code with an entry in the table
    // run_codes_[c * kRunChain + k]: the code of k + 1 times index c, for k < run_known_[c]
    // (the block's second part; zero lengths known after each reset).
    uint16_t* run_codes_ = nullptr;
    uint16_t run_known_[256] = {};
    // run_length_[code]: k when the code's string might be k times one index (checked against
    // run_codes_); the block's last part.
    uint16_t* run_length_ = nullptr;

    int min_code_size_ = 0;
    uint32_t clear_code_ = 0;
    uint32_t next_code_ = 0;
    int width_ = 0;
    uint32_t prefix_ = kNoPrefix;      // code of the string matched so far
    uint32_t last_index_ = kNoPrefix;  // the index written last (encode_choosing)
    bool started_ = false;

    bool deferred_clear_ = false;
    // keep_near_end(): the indices announced (0: none), the indices before the piece being
    // encoded, where the current table started, and whether this table is kept.
    int64_t expected_ = 0;
    int64_t encoded_ = 0;
    int64_t fill_start_ = 0;
    bool keep_full_ = false;
    // Deferred clear: indices and codes in the current window of the full table, and the best
    // indices per window seen since it filled.
    int64_t window_indices_ = 0;
    int window_codes_ = 0;
    int64_t best_window_indices_ = 0;

    uint64_t bits_ = 0;  // pending bits, least significant first
    int bit_count_ = 0;
    unsigned char* out_ = nullptr;
    int out_start_ = 0;  // bytes before it are consumed
    int out_size_ = 0;   // bytes written, consumed ones included
    int out_capacity_ = 0;
};
