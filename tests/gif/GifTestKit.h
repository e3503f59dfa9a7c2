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

#include "qimg/core/qPixel.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/image/qFrameComposer.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"
#include "qimg/raster/qImageEdit.h"

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
        return raw(Bytes(signature, signature + 6));
    }
    // Logical screen descriptor; `table_code` >= 0 announces a global table of 2 << code.
    GifBuilder& screen(int width, int height, int table_code = -1, int background = 0) {
        return raw({lo(width), hi(width), lo(height), hi(height),
                    lo(table_code >= 0 ? 0x80 | table_code : 0), lo(background), 0});
    }
    // A colour table of `n` entries, entry i = (i, 2i, 3i).
    GifBuilder& color_table(int n) {
        for (int i = 0; i < n; ++i) raw({lo(i), lo(2 * i), lo(3 * i)});
        return *this;
    }
    GifBuilder& control(int disposal, int delay, int transparent) {
        return raw({0x21, 0xF9, 4, lo((disposal << 2) | (transparent >= 0 ? 1 : 0)), lo(delay),
                    hi(delay), lo(transparent >= 0 ? transparent : 0), 0});
    }
    // Image descriptor; `table_code` >= 0 announces a local table of 2 << code.
    GifBuilder& descriptor(int left, int top, int width, int height, int table_code = -1,
                           bool interlaced = false) {
        const int packed = (table_code >= 0 ? 0x80 | table_code : 0) | (interlaced ? 0x40 : 0);
        return raw({0x2C, lo(left), hi(left), lo(top), hi(top), lo(width), hi(width), lo(height),
                    hi(height), lo(packed)});
    }
    // Image data: the code size byte, then `codes` in sub-blocks, then 0.
    GifBuilder& image_data(int m, const Bytes& codes) { return raw({lo(m)}).sub_blocks(codes); }
    // Indices LZW-encoded with code size m.
    GifBuilder& pixels(int m, const Bytes& indices) {
        return image_data(m, lzw_encode(indices, m));
    }
    GifBuilder& looping(int count) {
        raw({0x21, 0xFF, 11});
        raw(Bytes{'N', 'E', 'T', 'S', 'C', 'A', 'P', 'E', '2', '.', '0'});
        return sub_blocks({1, lo(count), hi(count)});
    }
    GifBuilder& trailer() { return raw({0x3B}); }
    GifBuilder& raw(const Bytes& b) {
        bytes_.insert(bytes_.end(), b.begin(), b.end());
        return *this;
    }
    // Data sub-blocks of at most 255 bytes, then the terminator.
    GifBuilder& sub_blocks(const Bytes& data) {
        for (size_t at = 0; at < data.size(); at += 255) {
            const size_t n = std::min<size_t>(255, data.size() - at);
            raw({lo(static_cast<int>(n))});
            bytes_.insert(bytes_.end(), data.begin() + long(at), data.begin() + long(at + n));
        }
        return raw({0});
    }
    const Bytes& bytes() const { return bytes_; }

private:
    static unsigned char lo(int v) { return static_cast<unsigned char>(v & 255); }
    static unsigned char hi(int v) { return static_cast<unsigned char>((v >> 8) & 255); }
    Bytes bytes_;
};

// The colours of a map (none for null) as bytes.
inline std::string colours(const qColormap* map) {
    const char* entries = map ? reinterpret_cast<const char*>(map->colors()) : "";
    return std::string(entries, map ? 4 * size_t(map->num_colors()) : 0);
}

// Everything one frame holds, as bytes: rectangle, control, local colours, transparent index and
// indices. Equal digests mean equal frames.
inline std::string frame_digest(const qGifFrame& frame) {
    const qRect r = frame.frame_rect();
    const qGifControl* c = frame.control();
    std::string out =
        std::to_string(r.x) + "," + std::to_string(r.y) + "," + std::to_string(r.width) + "x" +
        std::to_string(r.height) + " " +
        (c ? std::to_string(c->disposal * 100000 + c->delay) + "/" + std::to_string(c->transparent)
           : "") +
        colours(frame.local_colormap());
    if (frame.image() == nullptr) return out + "no pixels";
    out += std::to_string(frame.image()->transparent_index()) + ":";
    for (int y = 0; y < r.height; ++y)
        out.append(reinterpret_cast<const char*>(frame.image()->pixel_address(y, 0)), r.width);
    return out;
}

// A reading's outcome: its status and everything the animation holds.
inline std::string digest(int status, qGifAnimation& animation) {
    std::string out = std::to_string(status) + " " + std::to_string(animation.size().width) + "x" +
                      std::to_string(animation.size().height) + " " +
                      std::to_string(animation.loop_count()) + animation.version() +
                      colours(animation.global_colormap());
    // Appended piece by piece: g++ 12 at -O3 warns falsely (-Wrestrict) about "x" + string.
    for (int i = 0; i < animation.num_comments(); ++i)
        out.append("#").append(std::to_string(animation.comment(i)->count()));
    for (int f = 0; f < animation.num_frames(); ++f)
        out.append("|").append(frame_digest(*animation.frame(f)));
    return out;
}

// Every frame of `animation` as a viewer shows it (composed with the disposal methods), BGRA
// rows of the screen's width, one picture after another.
inline Bytes composed_frames(qGifAnimation& animation) {
    const qSize screen = animation.size();
    const size_t frame_bytes = static_cast<size_t>(screen.width) * screen.height * 4;
    Bytes out(frame_bytes * static_cast<size_t>(animation.num_frames()));
    Bytes canvas(frame_bytes);
    qImageEdit view;
    EXPECT_EQ(view.Bind(canvas.data(), screen, screen.width * 4, PT_BGRA32), 0);
    qFrameComposer composer;
    EXPECT_EQ(composer.begin(&animation, &view), 0);
    for (int i = 0; i < animation.num_frames(); ++i) {
        EXPECT_EQ(composer.compose_to(i, nullptr), 0) << "frame " << i;
        std::copy(canvas.begin(), canvas.end(), out.begin() + static_cast<long>(frame_bytes * i));
    }
    return out;
}

}  // namespace gif_test
