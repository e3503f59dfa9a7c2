// qGifFrameRead.cpp: qGifFrame's image reader. The image descriptor, the local colour table
// and the LZW data of one image become the frame's index image; the frame's other behaviour
// (copies, drawing, colour reduction, palette edits) is in qGifFrame.cpp.
#include <cstring>

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qCheckedMathPriv.h"
#include "qimg/core/qMonitor.h"
#include "qimg/core/qStatus.h"
#include "qimg/gif/qGifBlocksPriv.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFormatPriv.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qIFileR.h"
#include "qimg/gif/qLzwDecoder.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"

int qGifFrame::read(qIFileR* source, const qIColormap* global_colormap, const qGifControl* control,
                    qIMonitor* monitor) {
    clear();
    if (source == nullptr) return ST_BAD_ARGUMENT;
    unsigned char descriptor[kGifImageDescriptorBytes];
    if (source->read(descriptor, kGifImageDescriptorBytes) != kGifImageDescriptorBytes)
        return ST_READ_ERROR;
    offset_ = qPoint(q_gif_u16(descriptor), q_gif_u16(descriptor + 2));
    const qSize size(q_gif_u16(descriptor + 4), q_gif_u16(descriptor + 6));
    const unsigned char packed = descriptor[8];
    interlaced_ = (packed & kGifInterlacedFlag) != 0;

    qGifColorTable table;
    if (const int rc = q_gif_read_color_table(source, packed, &table); rc != ST_OK) return rc;
    if (table.entries > 0) {
        local_colormap_ = q_new<qColormap>();
        if (local_colormap_ == nullptr) return fail(ST_NO_MEMORY);
        if (const int rc = q_gif_fill_colormap(table, local_colormap_); rc != ST_OK)
            return fail(rc);
    }

    int transparent = -1;
    if (control != nullptr) {
        control_ = q_new<qGifControl>(*control);
        if (control_ == nullptr) return fail(ST_NO_MEMORY);
        transparent = control->transparent;
    }
    const qIColormap* colormap = local_colormap_ != nullptr
                                     ? static_cast<const qIColormap*>(local_colormap_)
                                     : global_colormap;
    return decode_image(source, size, colormap, transparent, monitor);
}

int qGifFrame::decode_image(qIFileR* source, qSize size, const qIColormap* colormap,
                            int transparent, qIMonitor* monitor) {
    if (source == nullptr) return ST_BAD_ARGUMENT;
    unsigned char min_code_size;
    if (source->read(&min_code_size, 1) != 1) return ST_READ_ERROR;
    const int width = size.width > 0 ? size.width : 0;
    const int height = size.height > 0 ? size.height : 0;
    // An image whose buffer the index image would refuse (above 2^31 - 1 bytes) is refused now,
    // before anything is allocated for it.
    if (width > 0 && height > 0 && q_buffer_bytes(width, height, PT_INDEX8) < 0)
        return ST_UNSUPPORTED;
    const int64_t pixels = int64_t{width} * height;  // fits: the buffer above fits an int

    // Rows stored in order are decoded straight into the new image's buffer: one buffer per
    // image and no copy, the rows spread to their stride afterwards. Interlaced rows (and empty
    // sizes, which the index image refuses after decoding) go through the decoder's own block.
    qLzwDecoder decoder;
    qIndexImage* image = nullptr;
    const bool direct = pixels > 0 && !interlaced_;
    if (direct) {
        image = q_new<qIndexImage>();
        if (image == nullptr) return fail(ST_NO_MEMORY);
        const int rc = image->Create_buffer(qSize(width, height), PT_INDEX8);
        if (rc != 0) {
            delete image;
            return fail(rc);
        }
        decoder.init_into(min_code_size, image->pixel_address(0, 0),
                          q_buffer_bytes(width, height, PT_INDEX8));
    } else {
        decoder.init(min_code_size, static_cast<unsigned int>(pixels));
    }
    const int rc = decode_data(source, &decoder, monitor);
    if (rc != 0) {
        delete image;
        return rc;
    }

    if (!direct) {
        image = q_new<qIndexImage>();
        if (image == nullptr) return fail(ST_NO_MEMORY);
        const int created = image->Create_buffer(qSize(width, height), PT_INDEX8);
        if (created != 0) {
            delete image;
            return fail(created);
        }
    }
    place_rows(decoder, image, direct);
    const int linked = image->set_colormap(colormap, transparent);
    if (linked != 0) {
        delete image;
        return fail(linked);
    }
    delete image_;
    image_ = image;
    return 0;
}

int qGifFrame::decode_data(qIFileR* source, qLzwDecoder* decoder, qIMonitor* monitor) {
    const int total = monitor != nullptr ? source->size() : 0;
    int state = 1;  // the decoder's last answer: 1 wants data, 0 has seen the end code
    const int rc = q_gif_read_sub_blocks(source, [&](const unsigned char* block, int n) {
        if (state != 1) return ST_OK;  // after the end code: read past, no progress
        state = decoder->feed(block, n);
        if (state < 0) return ST_UNDECODABLE;
        if (monitor != nullptr && !monitor->progress(source->seek(0, 1), total, 0, 1))
            return ST_CANCELLED;
        return ST_OK;
    });
    if (rc != ST_OK) return rc;
    decoder->finish();
    return decoder->output() == nullptr || decoder->output_size() == 0 ? ST_UNDECODABLE : 0;
}

// Puts the decoded indices into the image's rows, `width` per row from the output's start, in
// stored or interlaced order; pixels the output does not reach are 0, indices beyond width x
// height are ignored. `direct`: the output was decoded into the image's own buffer, rows packed
// one after the other (unless the data overflowed it, see qLzwDecoder::init_into).
void qGifFrame::place_rows(const qLzwDecoder& decoder, qIndexImage* image, bool direct) const {
    const qSize size = image->size();
    const int width = size.width;
    const int height = size.height;
    const int64_t pixels = int64_t{width} * height;
    const int64_t available = decoder.output_size();
    const unsigned char* out = decoder.output();
    if (direct) {
        unsigned char* packed = image->pixel_address(0, 0);
        if (!decoder.in_caller_buffer()) {
            std::memcpy(packed, out, static_cast<size_t>(pixels));  // the output outgrew it
        } else if (available < pixels) {
            std::memset(packed + available, 0, static_cast<size_t>(pixels - available));
        }
        // Spread the packed rows to their stride, last row first so nothing is overwritten
        // before it has moved.
        for (int row = height - 1; row > 0; --row) {
            unsigned char* dst = image->pixel_address(row, 0);
            const unsigned char* src = packed + int64_t{row} * width;
            if (dst != src) std::memmove(dst, src, static_cast<size_t>(width));
        }
        return;
    }
    int64_t taken = 0;
    auto fill_row = [&](int row) {
        unsigned char* dst = image->pixel_address(row, 0);
        const int64_t n = q_max(0, q_min(width, available - taken));
        std::memcpy(dst, out + taken, static_cast<size_t>(n));
        std::memset(dst + n, 0, static_cast<size_t>(width - n));
        taken += width;
    };
    if (!interlaced_) {
        for (int row = 0; row < height; ++row) fill_row(row);
    } else {
        for (const qGifInterlacePass& pass : kGifInterlacePasses) {
            for (int row = pass.start; row < height; row += pass.step) fill_row(row);
        }
    }
}
