// GifTestKit.h: test-only helpers for the GIF tests: a bit writer, a plain LZW encoder and a
// builder of GIF byte streams labelled block by block.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace gif_test {

using Bytes = std::vector<unsigned char>;

// Packs codes least significant bit first, each with its own width.
class BitWriter {
public:
    void put(unsigned code, int width) {
        acc_ |= uint64_t{code} << nbits_;
        nbits_ += width;
        while (nbits_ >= 8) {
            bytes_.push_back(static_cast<unsigned char>(acc_));
            acc_ >>= 8;
            nbits_ -= 8;
        }
    }
    Bytes take() {
        if (nbits_ > 0) bytes_.push_back(static_cast<unsigned char>(acc_));
        acc_ = 0;
        nbits_ = 0;
        return std::move(bytes_);
    }

private:
    Bytes bytes_;
    uint64_t acc_ = 0;
    int nbits_ = 0;
};

// A plain LZW encoder written for clarity. It tracks the code width the way a reader does: a
// reader adds a table entry when it reads a code that follows a non-clear code, and widens its
// codes once the next free entry no longer fits.
struct EncodeOptions {
    bool clear_when_full = true;  // false keeps using a full 4096-entry table
    bool end_code = true;
};

inline Bytes lzw_encode(const Bytes& input, int m, EncodeOptions options = {}) {
    const unsigned clear = 1u << m;
    const unsigned end = clear + 1;
    BitWriter writer;
    int width = m + 1;
    unsigned next = clear + 2;
    bool after_clear = true;  // the reader's pending code is the clear code
    auto emit = [&](unsigned code) {
        // With m < 2 a string code can be needed before the width can hold it; GIF uses 2..8.
        EXPECT_EQ(code >> width, 0u) << "code " << code << " does not fit " << width << " bits";
        writer.put(code, width);
        if (!after_clear && next < 4096) {
            ++next;
            if (next > (1u << width) - 1 && next < 4096) ++width;
        }
        after_clear = code == clear;
        if (code == clear) {
            width = m + 1;
            next = clear + 2;
        }
    };
    std::map<std::pair<unsigned, unsigned char>, unsigned> dict;
    unsigned encoder_next = clear + 2;
    emit(clear);
    if (!input.empty()) {
        unsigned w = input[0];
        for (size_t i = 1; i < input.size(); ++i) {
            const unsigned char c = input[i];
            auto found = dict.find({w, c});
            if (found != dict.end()) {
                w = found->second;
                continue;
            }
            emit(w);
            if (encoder_next < 4096) {
                dict[{w, c}] = encoder_next++;
            } else if (options.clear_when_full) {
                emit(clear);
                dict.clear();
                encoder_next = clear + 2;
            }
            w = c;
        }
        emit(w);
    }
    if (options.end_code) emit(end);
    return writer.take();
}

// Builds a GIF stream block by block; every method appends one labelled part.
class GifBuilder {
public:
    GifBuilder& header(const char* signature = "GIF89a") {
        bytes_.insert(bytes_.end(), signature, signature + 6);
        return *this;
    }
    // Logical screen descriptor; `table_code` >= 0 announces a global table of 2 << code.
    GifBuilder& screen(int width, int height, int table_code = -1, int background = 0) {
        u16(width);
        u16(height);
        bytes_.push_back(table_code >= 0 ? static_cast<unsigned char>(0x80 | table_code) : 0);
        bytes_.push_back(static_cast<unsigned char>(background));
        bytes_.push_back(0);
        return *this;
    }
    // A colour table of `n` entries, entry i = (i, 2i, 3i).
    GifBuilder& color_table(int n) {
        for (int i = 0; i < n; ++i) {
            bytes_.push_back(static_cast<unsigned char>(i));
            bytes_.push_back(static_cast<unsigned char>(2 * i));
            bytes_.push_back(static_cast<unsigned char>(3 * i));
        }
        return *this;
    }
    GifBuilder& control(int disposal, int delay, int transparent) {
        const int packed = (disposal << 2) | (transparent >= 0 ? 1 : 0);
        raw({0x21, 0xF9, 4, static_cast<unsigned char>(packed)});
        u16(delay);
        raw({static_cast<unsigned char>(transparent >= 0 ? transparent : 0), 0});
        return *this;
    }
    // Image descriptor; `table_code` >= 0 announces a local table of 2 << code.
    GifBuilder& descriptor(int left, int top, int width, int height, int table_code = -1,
                           bool interlaced = false) {
        bytes_.push_back(0x2C);
        u16(left);
        u16(top);
        u16(width);
        u16(height);
        int packed = interlaced ? 0x40 : 0;
        if (table_code >= 0) packed |= 0x80 | table_code;
        bytes_.push_back(static_cast<unsigned char>(packed));
        return *this;
    }
    // Image data: the code size byte, then `codes` in sub-blocks of `block` bytes, then 0.
    GifBuilder& image_data(int m, const Bytes& codes, size_t block = 255) {
        bytes_.push_back(static_cast<unsigned char>(m));
        return sub_blocks(codes, block);
    }
    // Indices LZW-encoded with code size m.
    GifBuilder& pixels(int m, const Bytes& indices, size_t block = 255) {
        return image_data(m, lzw_encode(indices, m), block);
    }
    GifBuilder& application(const char* id11, const Bytes& data) {
        raw({0x21, 0xFF, 11});
        bytes_.insert(bytes_.end(), id11, id11 + 11);
        return sub_blocks(data, 255);
    }
    GifBuilder& looping(int count) {
        return application("NETSCAPE2.0", {1, static_cast<unsigned char>(count & 255),
                                           static_cast<unsigned char>(count >> 8)});
    }
    GifBuilder& trailer() {
        bytes_.push_back(0x3B);
        return *this;
    }
    GifBuilder& raw(const Bytes& b) {
        bytes_.insert(bytes_.end(), b.begin(), b.end());
        return *this;
    }
    // Data sub-blocks of at most `block` bytes, then the terminator.
    GifBuilder& sub_blocks(const Bytes& data, size_t block) {
        for (size_t at = 0; at < data.size(); at += block) {
            const size_t n = std::min(block, data.size() - at);
            bytes_.push_back(static_cast<unsigned char>(n));
            bytes_.insert(bytes_.end(), data.begin() + static_cast<long>(at),
                          data.begin() + static_cast<long>(at + n));
        }
        bytes_.push_back(0);
        return *this;
    }
    const Bytes& bytes() const { return bytes_; }

private:
    void u16(int v) {
        bytes_.push_back(static_cast<unsigned char>(v & 255));
        bytes_.push_back(static_cast<unsigned char>((v >> 8) & 255));
    }
    Bytes bytes_;
};

}  // namespace gif_test
