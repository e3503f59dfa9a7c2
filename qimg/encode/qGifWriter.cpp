// The GIF writer. Everything goes through a staging buffer inside the object, so the sink sees
// writes of up to 16 kB whatever the block structure, and writing needs no allocation besides
// the LZW encoder's output block.
#include "qimg/encode/qGifWriter.h"

#include <algorithm>
#include <bit>

#include <climits>
#include <cstdint>
#include <cstring>

#include "qimg/core/qImageBuffer.h"
#include "qimg/core/qMonitor.h"
#include "qimg/core/qStatus.h"
#include "qimg/encode/qIFileW.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFormatPriv.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"

namespace {
constexpr int kMaxDimension = 65535;
constexpr int kMaxLoopCount = 65536;  // passes: the first one plus 65535 repetitions

// Bits per index of a table of n entries (1..256): the smallest b >= 1 with 2^b >= n.
int table_bits(int n) {
    int bits = 1;
    while ((1 << bits) < n) ++bits;
    return bits;
}

// The frame list through its const accessor (num_frames() belongs to the non-const interface).
int frame_count(const qGifAnimation* animation) {
    int n = 0;
    while (animation->frame(n) != nullptr) ++n;
    return n;
}

bool fits_u16(int v) {
    return v >= 0 && v <= kMaxDimension;
}
}  // namespace

int qGifWriter::fail(int code) {
    status_ = code;
    sink_ = nullptr;
    staged_ = 0;
    return code;
}

int qGifWriter::flush() {
    if (staged_ == 0) return ST_OK;
    const int status = sink_->write(stage_, staged_);
    staged_ = 0;
    return status;
}

int qGifWriter::put(const void* data, int count) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    while (count > 0) {
        if (staged_ == kStageBytes) {
            if (const int status = flush(); status != ST_OK) return status;
        }
        const int n = count < kStageBytes - staged_ ? count : kStageBytes - staged_;
        std::memcpy(stage_ + staged_, bytes, static_cast<size_t>(n));
        staged_ += n;
        bytes += n;
        count -= n;
    }
    return ST_OK;
}

int qGifWriter::put_u16(int value) {
    const unsigned char bytes[2] = {static_cast<unsigned char>(value & 0xFF),
                                    static_cast<unsigned char>(value >> 8)};
    return put(bytes, 2);
}

int qGifWriter::put_color_table(const qIColormap* colormap, int size_code) {
    unsigned char table[kGifMaxColorTableBytes] = {};  // the padding entries stay black
    const int n = colormap->num_colors();
    for (int i = 0; i < n; ++i) {
        const qPixRA c = colormap->get_color(i);
        table[3 * i] = c.red;
        table[3 * i + 1] = c.green;
        table[3 * i + 2] = c.blue;
    }
    return put(table, 3 * (2 << size_code));
}

int qGifWriter::put_sub_blocks(const unsigned char* data, int count) {
    for (; count > 0; data += kGifMaxSubBlockBytes, count -= kGifMaxSubBlockBytes) {
        const int n = count < kGifMaxSubBlockBytes ? count : kGifMaxSubBlockBytes;
        if (const int status = put_byte(n); status != ST_OK) return status;
        if (const int status = put(data, n); status != ST_OK) return status;
    }
    return ST_OK;
}

int qGifWriter::begin(qIFileW* sink, qSize screen, const qIColormap* global_colormap,
                      int background, int loop_count) {
    status_ = ST_BAD_ARGUMENT;
    sink_ = nullptr;
    staged_ = 0;
    const int colors = global_colormap ? global_colormap->num_colors() : 0;
    if (sink == nullptr || screen.width < 1 || screen.height < 1 || !fits_u16(screen.width) ||
        !fits_u16(screen.height) || background < -1 || background > 255 ||
        (global_colormap && (colors < 1 || colors > 256)) || loop_count == 0 || loop_count < -1 ||
        loop_count > kMaxLoopCount) {
        return ST_BAD_ARGUMENT;
    }
    sink_ = sink;
    global_colormap_ = global_colormap;
    status_ = ST_OK;
    const int size_code = colors > 0 ? table_bits(colors) - 1 : 0;
    int rc = put(kGifSignature89a, kGifHeaderBytes);
    if (rc == ST_OK) rc = put_u16(screen.width);
    if (rc == ST_OK) rc = put_u16(screen.height);
    // Packed: table flag, colour resolution (bits 6-4, here the table's bits), table size.
    if (rc == ST_OK) {
        rc = put_byte(colors > 0 ? kGifColorTableFlag | size_code << 4 | size_code : 0);
    }
    if (rc == ST_OK) rc = put_byte(background < 0 ? 0 : background);
    if (rc == ST_OK) rc = put_byte(0);  // no aspect ratio
    if (rc == ST_OK && colors > 0) rc = put_color_table(global_colormap, size_code);
    if (rc == ST_OK && loop_count != 1) {
        const int repeats = loop_count < 0 ? 0 : loop_count - 1;
        const unsigned char block[] = {kGifExtensionIntroducer, kGifLabelApplication,
                                       kGifApplicationIdBytes};
        const unsigned char looping[] = {kGifLoopingSubBlockBytes, kGifLoopingSubBlockId,
                                         static_cast<unsigned char>(repeats & 0xFF),
                                         static_cast<unsigned char>(repeats >> 8), 0};
        rc = put(block, 3);
        if (rc == ST_OK) rc = put(kGifLoopingApplicationId, kGifApplicationIdBytes);
        if (rc == ST_OK) rc = put(looping, 5);
    }
    return rc == ST_OK ? ST_OK : fail(rc);
}

int qGifWriter::add_comment(const char* text, int length) {
    if (status_ != ST_OK) return ST_BAD_ARGUMENT;
    if (length < 0 || (text == nullptr && length > 0)) return ST_BAD_ARGUMENT;
    const unsigned char intro[] = {kGifExtensionIntroducer, kGifLabelComment};
    int rc = put(intro, 2);
    if (rc == ST_OK) rc = put_sub_blocks(reinterpret_cast<const unsigned char*>(text), length);
    if (rc == ST_OK) rc = put_byte(0);
    return rc == ST_OK ? ST_OK : fail(rc);
}

int qGifWriter::add_image(const qIImageBuffer* image, qPoint offset,
                          const qIColormap* local_colormap, const qGifControl* control,
                          bool interlaced, qIMonitor* monitor) {
    const int rows = image && image->valid() ? image->size().height : 0;
    return write_image(image, offset, local_colormap, control, interlaced, monitor, 0, rows);
}

int qGifWriter::add_frame(const qGifFrame* frame, const qGifControl* control, qIMonitor* monitor) {
    if (frame == nullptr) return ST_BAD_ARGUMENT;
    return write_frame(frame, control ? control : frame->control(), monitor, 0,
                       frame->frame_rect().height);
}

int qGifWriter::write_frame(const qGifFrame* frame, const qGifControl* control, qIMonitor* monitor,
                            int rows_before, int rows_total) {
    if (frame->image() != nullptr) {
        return write_image(frame->image(), frame->frame_rect().pos(), frame->local_colormap(),
                           control, frame->interlaced(), monitor, rows_before, rows_total);
    }
    // No pixels: one transparent pixel in the global table's colours when there is one, so no
    // local table is written for it.
    const qIColormap* colormap = global_colormap_ ? nullptr : frame->local_colormap();
    qGifControl nothing;
    if (control) nothing = *control;
    nothing.disposal = 1;
    const qIColormap* map = colormap ? colormap : global_colormap_;
    if (map == nullptr) return ST_BAD_ARGUMENT;
    if (nothing.transparent < 0 || nothing.transparent >= map->num_colors()) {
        nothing.transparent = 0;
    }
    qIndexImage pixel;
    int rc = pixel.Create_buffer(qSize(1, 1), PT_INDEX8);
    if (rc == ST_OK) rc = pixel.set_colormap(map, -1);
    if (rc != ST_OK) return fail(rc);
    *pixel.pixel_address(0, 0) = static_cast<unsigned char>(nothing.transparent);
    return write_image(&pixel, qPoint(), colormap, &nothing, false, nullptr, 0, 1);
}

int qGifWriter::write_image(const qIImageBuffer* image, qPoint offset,
                            const qIColormap* local_colormap, const qGifControl* control,
                            bool interlaced, qIMonitor* monitor, int rows_before, int rows_total) {
    if (status_ != ST_OK) return ST_BAD_ARGUMENT;
    const qIColormap* colormap = local_colormap ? local_colormap : global_colormap_;
    if (image == nullptr || !image->valid() || image->pixel_type() != PT_INDEX8 ||
        colormap == nullptr) {
        return ST_BAD_ARGUMENT;
    }
    const qSize size = image->size();
    const int colors = colormap->num_colors();
    if (!fits_u16(size.width) || !fits_u16(size.height) || !fits_u16(offset.x) ||
        !fits_u16(offset.y) || colors < 1 || colors > 256) {
        return ST_BAD_ARGUMENT;
    }
    if (control && (control->disposal < 0 || control->disposal > 7 || !fits_u16(control->delay) ||
                    control->transparent < -1 || control->transparent > 255)) {
        return ST_BAD_ARGUMENT;
    }
    const int bits = table_bits(colors);
    // An index the table does not reach is refused before anything is written, so bad input
    // never leaves half an image in the stream. OR-ing the row is enough: the table size is a
    // power of two.
    unsigned seen = 0;
    for (int y = 0; y < size.height; ++y) {
        const unsigned char* row = image->pixel_address(y, 0);
        for (int x = 0; x < size.width; ++x) seen |= row[x];
    }
    if (seen >> bits) return ST_BAD_ARGUMENT;
    // The code size only has to reach the highest index used, not the whole table: an image
    // that uses the first 16 entries of 256 starts with 5-bit codes instead of 9-bit ones. A
    // 2-colour image still needs code size 2: code size 1 is not part of the format.
    const int code_size = std::max(2, static_cast<int>(std::bit_width(seen)));
    if (const int rc = lzw_.begin(code_size, deferred_clear_); rc != ST_OK) return rc;
    if (keep_near_end_ && !deferred_clear_) lzw_.keep_near_end(int64_t{size.width} * size.height);

    int rc = ST_OK;
    if (control) {
        const unsigned char block[] = {
            kGifExtensionIntroducer,
            kGifLabelGraphicControl,
            kGifControlBlockSize,
            static_cast<unsigned char>(control->disposal << 2 | (control->transparent >= 0)),
            static_cast<unsigned char>(control->delay & 0xFF),
            static_cast<unsigned char>(control->delay >> 8),
            static_cast<unsigned char>(control->transparent >= 0 ? control->transparent : 0),
            0};
        rc = put(block, sizeof block);
    }
    if (rc == ST_OK) rc = put_byte(kGifImageIntroducer);
    if (rc == ST_OK) rc = put_u16(offset.x);
    if (rc == ST_OK) rc = put_u16(offset.y);
    if (rc == ST_OK) rc = put_u16(size.width);
    if (rc == ST_OK) rc = put_u16(size.height);
    if (rc == ST_OK) {
        int packed = interlaced ? kGifInterlacedFlag : 0;
        if (local_colormap) packed |= kGifColorTableFlag | (bits - 1);
        rc = put_byte(packed);
    }
    if (rc == ST_OK && local_colormap) rc = put_color_table(local_colormap, bits - 1);
    if (rc == ST_OK) rc = put_byte(code_size);
    if (rc != ST_OK) return fail(rc);

    // Rows in stored order: one pass for a plain image, the four interlace passes otherwise.
    const qGifInterlacePass plain[1] = {
        {0, 1}
    };
    const qGifInterlacePass* passes = interlaced ? kGifInterlacePasses : plain;
    const int pass_count = interlaced ? 4 : 1;
    int written = 0;
    for (int p = 0; p < pass_count; ++p) {
        for (int y = passes[p].start; y < size.height; y += passes[p].step) {
            rc = lzw_.encode(image->pixel_address(y, 0), size.width);
            if (rc == ST_OK) {
                const int whole = lzw_.size() / kGifMaxSubBlockBytes * kGifMaxSubBlockBytes;
                rc = put_sub_blocks(lzw_.data(), whole);
                lzw_.consume(whole);
            }
            if (rc != ST_OK) return fail(rc);
            ++written;
            if (monitor && !monitor->progress(rows_before + written, rows_total, 0, 1)) {
                return fail(ST_CANCELLED);
            }
        }
    }
    rc = lzw_.finish();
    if (rc == ST_OK) rc = put_sub_blocks(lzw_.data(), lzw_.size());
    lzw_.consume(lzw_.size());
    if (rc == ST_OK) rc = put_byte(0);
    return rc == ST_OK ? ST_OK : fail(rc);
}

int qGifWriter::finish() {
    if (status_ != ST_OK) return ST_BAD_ARGUMENT;
    int rc = put_byte(kGifTrailer);
    if (rc == ST_OK) rc = flush();
    if (rc != ST_OK) return fail(rc);
    status_ = ST_BAD_ARGUMENT;  // closed: the next stream needs begin()
    sink_ = nullptr;
    return ST_OK;
}

int qGifWriter::write(const qGifAnimation* animation, qIFileW* sink, qIMonitor* monitor) {
    const int frames = animation ? frame_count(animation) : 0;
    if (frames < 1) return ST_BAD_ARGUMENT;
    int rc = begin(sink, animation->size(), animation->global_colormap(), animation->background(),
                   animation->loop_count());
    if (rc != ST_OK) return rc;
    for (int i = 0; i < animation->num_comments() && rc == ST_OK; ++i) {
        const qObjArray<char>* comment = animation->comment(i);
        rc = add_comment(comment->data(), comment->count());
    }
    int64_t rows_total = 0;
    for (int f = 0; f < frames; ++f) {
        rows_total += animation->frame(f)->frame_rect().height;
    }
    // Progress counts rows in an int; a sum beyond it is reported scaled down by whole frames.
    const int total = rows_total > INT_MAX ? INT_MAX : static_cast<int>(rows_total);
    int rows_before = 0;
    for (int f = 0; f < frames && rc == ST_OK; ++f) {
        const qGifFrame* frame = animation->frame(f);
        const qRect rect = frame->frame_rect();
        rc = write_frame(frame, frame->control(), monitor, rows_before, total);
        rows_before = static_cast<int>(
            rows_before + int64_t{rect.height} > total ? total : rows_before + rect.height);
    }
    if (rc == ST_OK) rc = finish();
    if (rc != ST_OK && status_ == ST_OK) fail(rc);
    return rc;
}
