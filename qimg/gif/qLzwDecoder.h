// qLzwDecoder.h: qLzwDecoder, the variable-width LZW decoder of GIF image data.
//
// One decoder decodes one image: init() with the minimum code size and the number of pixels,
// feed() once per data sub-block, finish() when the sub-blocks end. The decoded indices are in
// output() / output_size() afterwards. Codes are read least significant bit first.
//
// Minimum code sizes: 2..8 are what the format uses; 0, 1 and 9..11 decode by the same rules
// (clear code 2^m, codes up to 12 bits wide). Sizes of 12 and above leave no room for a single
// table entry in 12-bit codes and no encoder writes them: the decoder refuses them (output()
// stays null, feed() gives -1), which the image reader reports as undecodable data
// (ST_UNDECODABLE).
#pragma once

#include <cstdint>

#include "qimg/core/qExport.h"

class QIMG_API qLzwDecoder {
public:
    // Codes are at most 12 bits wide, so the table has 4096 entries.
    static constexpr int kMaxCodes = 4096;
    static constexpr int kMaxMinCodeSize = 11;

    qLzwDecoder() = default;
    // Releases the output.
    ~qLzwDecoder();
    qLzwDecoder(const qLzwDecoder&) = delete;
    qLzwDecoder& operator=(const qLzwDecoder&) = delete;

    // Starts a new image: minimum code size `min_code_size` (the byte before the data), and
    // `expected_size` decoded indices (width x height) for which the output is allocated at
    // once (4088 bytes when it is 0); more indices grow it (doubling it). Any previous output is
    // released. When the allocation fails, or the code size is outside 0..11, or expected_size
    // exceeds what an int can count, there is no output and feed() reports -1.
    void init(int min_code_size, unsigned int expected_size);
    // The same, but the output keeps at most `expected_size` indices, allocated at once (an
    // image's pixels): the indices beyond are still decoded and checked, and counted by
    // output_size(), but not stored, so data that decode to far more indices than the image
    // has cost no memory.
    void init_capped(int min_code_size, unsigned int expected_size);
    // Like init_capped(), decoding into `capacity` bytes of the caller's memory at `buffer`,
    // which the decoder does not own and which must stay valid while it decodes. `spare` more
    // bytes behind them may be overwritten (long moves are faster near the end then). A null
    // buffer or capacity <= 0 gives no output.
    void init_into(int min_code_size, unsigned char* buffer, int capacity, int spare = 0);

    // Decodes the bytes of one data sub-block. 1: more data wanted; 0: the end code has been
    // seen (now or before; further data are ignored); -1: a code at or above the next free
    // table entry, an output that cannot grow, or no output at all. A code whose last bit is in
    // the last byte of `data` is decoded by the next call (or finish()).
    int feed(const unsigned char* data, int length);

    // The data ended: decodes the codes left in the bit buffer, the last one even when some of
    // its high bits are missing (they count as zero), and writes the pending code's string
    // when it is a valid code. Nothing when the end code was seen.
    void finish();

    // The decoded indices so far (null without output): stored_size() of them are stored,
    // output_size() were decoded (more than stored only past the cap of a capped output).
    const unsigned char* output() const { return out_; }
    // True when the output is in the caller's buffer given to init_into().
    bool in_caller_buffer() const { return out_ != nullptr && !owned_; }
    int output_size() const { return out_count_; }
    int stored_size() const { return out_count_ < out_capacity_ ? out_count_ : out_capacity_; }
    // True once the end code has been read.
    bool end_seen() const { return out_ != nullptr && previous_ == clear_code_ + 1u; }

private:
    // The decoding loop; kFinishing runs it on the bits left when the data have ended.
    template <bool kFinishing>
    int decode(const unsigned char** at, const unsigned char* end, bool staged);
    bool grow(int64_t needed);
    // Writes the string of `code` at output + `count` where the loop's 16-byte moves cannot:
    // near or past the capacity, or closer than 16 bytes to its source.
    bool write_slowly(uint32_t code, int count);
    bool write_past_capacity(uint32_t code, int count);
    void write_string(uint32_t code, int count, int length);
    // Points the entries of the literal codes at their bytes (they are not in the output).
    void point_literals();
    // Resets the codes and the table for code size m; false when m is refused.
    bool start(int min_code_size);
    void release();

    // The string of code c is entry_length(table_[c]) bytes at entry_offset(table_[c]) from
    // the output's start (qLzwDecoder.cpp). Codes below clear_code_ stand for themselves: their
    // entries point into a constant block of every byte value, outside the output.
    uint64_t table_[kMaxCodes];
    int initial_width_ = 0;  // code width after a clear code: m + 1
    int code_width_ = 0;
    int bit_count_ = 0;        // valid bits in bit_buffer_
    uint64_t bit_buffer_ = 0;  // next code in the low bits; bits above bit_count_ are zero or the
                               // next input bytes in place
    uint32_t clear_code_ = 0;  // 2^m; the end code is clear_code_ + 1
    uint32_t previous_ = 0;    // the pending code, whose string is not written yet
    int next_code_ = 0;        // next free table entry
    int out_count_ = 0;
    int out_capacity_ = 0;  // bytes the output may hold (the block has kSlack more)
    int room_ = 0;          // bytes writable at out_ (capacity plus any slack)
    bool owned_ = false;    // out_ is the decoder's own block
    bool capped_ = false;   // indices past the capacity are counted, not stored
    unsigned char* out_ = nullptr;
};
