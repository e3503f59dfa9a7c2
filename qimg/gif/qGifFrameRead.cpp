// qGifFrameRead.cpp: qGifFrame's image reader. The image descriptor, the local colour table
// and the LZW data of one image become the frame's index image; the frame's other behaviour
// (copies, drawing, colour reduction, palette edits) is in qGifFrame.cpp.
#include <climits>
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
    qGifColorTable table;
    if (const int rc = q_gif_read_color_table(source, descriptor[8], &table); rc != ST_OK)
        return rc;
    if (const int rc = start(descriptor, table, control); rc != ST_OK) return rc;
    return decode_image(source, descriptor_size(descriptor), image_colormap(global_colormap),
                        control != nullptr ? control->transparent : -1, monitor);
}

qSize qGifFrame::descriptor_size(const unsigned char* descriptor) {
    return qSize(q_gif_u16(descriptor + 4), q_gif_u16(descriptor + 6));
}

int qGifFrame::start(const unsigned char* descriptor, const qGifColorTable& table,
                     const qGifControl* control) {
    offset_ = qPoint(q_gif_u16(descriptor), q_gif_u16(descriptor + 2));
    interlaced_ = (descriptor[8] & kGifInterlacedFlag) != 0;
    if (table.entries > 0) {
        local_colormap_ = q_new<qColormap>();
        if (local_colormap_ == nullptr) return fail(ST_NO_MEMORY);
        if (const int rc = q_gif_fill_colormap(table, local_colormap_); rc != ST_OK)
            return fail(rc);
    }
    if (control != nullptr) {
        control_record_ = *control;
        control_ = &control_record_;
    }
    return ST_OK;
}

const qIColormap* qGifFrame::image_colormap(const qIColormap* global_colormap) const {
    return local_colormap_ != nullptr ? static_cast<const qIColormap*>(local_colormap_)
                                      : global_colormap;
}

int qGifFrame::decode_image(qIFileR* source, qSize size, const qIColormap* colormap,
                            int transparent, qIMonitor* monitor) {
    if (source == nullptr) return ST_BAD_ARGUMENT;
    unsigned char min_code_size;
    if (source->read(&min_code_size, 1) != 1) return ST_READ_ERROR;
    qLzwDecoder decoder;
    qIndexImage* image = nullptr;
    int rc = start_data(size, min_code_size, &decoder, &image);
    if (rc == ST_OK) rc = decode_data(source, &decoder, monitor);
    if (rc == ST_OK) return finish_data(&decoder, image, size, colormap, transparent, false);
    delete image;
    return rc;
}

int qGifFrame::start_data(qSize size, int min_code_size, qLzwDecoder* decoder,
                          qIndexImage** image) {
    *image = nullptr;
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
    // Either way the decoder stores no more than the image's pixels, and the image's buffer
    // starts zeroed from pages nobody has touched, so what a declared size costs follows what
    // the data fill.
    if (pixels > 0 && !interlaced_) {
        qIndexImage* direct = q_new<qIndexImage>();
        if (direct == nullptr) return fail(ST_NO_MEMORY);
        const int rc = direct->Create_buffer(qSize(width, height), PT_INDEX8);
        if (rc != 0) {
            delete direct;
            return fail(rc);
        }
        decoder->init_into(min_code_size, direct->pixel_address(0, 0),
                           q_buffer_bytes(width, height, PT_INDEX8), qIndexImage::kSpareBytes);
        *image = direct;
    } else {
        decoder->init_capped(min_code_size, static_cast<unsigned int>(pixels));
    }
    return ST_OK;
}

int qGifFrame::finish_data(qLzwDecoder* decoder, qIndexImage* image, qSize size,
                           const qIColormap* colormap, int transparent, bool browser_rules) {
    decoder->finish();
    const bool decoded = decoder->output() != nullptr && decoder->output_size() > 0;
    // As browsers show them, an image without pixels or without data is a frame that draws
    // nothing.
    if (browser_rules && (!decoded || size.width <= 0 || size.height <= 0)) {
        delete image;
        return ST_OK;
    }
    if (!decoded) {
        delete image;
        return ST_UNDECODABLE;
    }
    const bool direct = image != nullptr;
    if (!direct) {
        image = q_new<qIndexImage>();
        if (image == nullptr) return fail(ST_NO_MEMORY);
        const int created = image->Create_buffer(size, PT_INDEX8);
        if (created != 0) {
            delete image;
            return fail(created);
        }
    }
    place_rows(*decoder, image, direct);
    const int linked = browser_rules ? image->set_colormap_keeping(colormap, transparent)
                                     : image->set_colormap(colormap, transparent);
    if (linked != 0) {
        delete image;
        return fail(linked);
    }
    delete image_;
    image_ = image;
    return 0;
}

// Progress is the position in the stream after each sub-block out of the stream's size. The
// monitor never hears a total of 0 or below, nor a position below 0: a position that does not
// fit an int is INT_MAX (a size that does not is INT_MAX already), and when the size is unknown
// (a pipe) the total is the position itself, so the total grows with the reading.
int qGifFrame::decode_data(qIFileR* source, qLzwDecoder* decoder, qIMonitor* monitor) {
    const int size = monitor != nullptr ? source->size() : 0;
    int state = 1;  // the decoder's last answer: 1 wants data, 0 has seen the end code
    const int rc = q_gif_read_sub_blocks(source, [&](const unsigned char* block, int n) {
        if (state != 1) return ST_OK;  // after the end code: read past, no progress
        state = decoder->feed(block, n);
        if (state < 0) return ST_UNDECODABLE;
        if (monitor == nullptr) return ST_OK;
        int done = source->seek(0, 1);
        if (done <= 0) done = INT_MAX;  // past what an int counts (a sub-block was just read)
        const int total = size > 0 ? q_max(size, done) : done;
        return monitor->progress(done, static_cast<int>(total), 0, 1) ? ST_OK : ST_CANCELLED;
    });
    return rc;
}

// Puts the decoded indices into the image's rows, `width` per row from the output's start, in
// stored or interlaced order; indices beyond width x height are not stored. The image's buffer
// is zeroed when it is made, so pixels the output does not reach are already index 0 and their
// rows are never touched: their pages stay unused. `direct`: the output was decoded into the
// image's own buffer, rows packed one after the other.
void qGifFrame::place_rows(const qLzwDecoder& decoder, qIndexImage* image, bool direct) const {
    const qSize size = image->size();
    const int width = size.width;
    const int height = size.height;
    const int64_t pixels = int64_t{width} * height;
    const int64_t available = decoder.stored_size();
    const unsigned char* out = decoder.output();
    if (direct) {
        unsigned char* packed = image->pixel_address(0, 0);
        // The decoder's 16-byte moves may have left up to 15 bytes of spill behind the output.
        if (available < pixels) {
            std::memset(packed + available, 0, static_cast<size_t>(q_min(16, pixels - available)));
        }
        // Spread the packed rows to their stride, last row first so nothing is overwritten
        // before it has moved. Rows that start at or past the output are zeros going onto
        // zeros; rows whose width is their stride are in place already.
        const int64_t stride = row_bytes(width, PT_INDEX8);
        if (stride == width) return;
        for (int row = height - 1; row > 0; --row) {
            const int64_t start = int64_t{row} * width;
            if (start >= available) continue;
            std::memmove(packed + row * stride, packed + start, static_cast<size_t>(width));
        }
        return;
    }
    int64_t taken = 0;
    auto fill_row = [&](int row) {
        const int64_t n = q_max(0, q_min(width, available - taken));
        if (n > 0) std::memcpy(image->pixel_address(row, 0), out + taken, static_cast<size_t>(n));
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
