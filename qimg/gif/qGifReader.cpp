// qGifReader.cpp: the stream reader of qGifAnimation.
//
// The stream is walked one block at a time: a loop reads one introducer byte and dispatches on
// it (image, extension, trailer), one function per block. The only state kept between blocks is
// the last graphic control record and whether it still waits for its image: a graphic control
// extension applies to the image descriptor that follows it directly, and any other block in
// between cancels it.
#include <climits>
#include <cstdio>
#include <cstring>

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qNoValuePriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifBlocksPriv.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFormatPriv.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qIFileR.h"
#include "qimg/palette/qColormap.h"

namespace {

constexpr int kCommentGrowBy = 16;

bool read_byte(qIFileR* source, unsigned char* byte) {
    return q_gif_read_exact(source, byte, 1);
}

}  // namespace

int qGifAnimation::read(qIFileR* source, qIMonitor* monitor) {
    reset();
    if (source == nullptr) return ST_BAD_ARGUMENT;
    int rc = read_header(source);
    if (rc != 0) return rc;

    qGifControl control;
    bool control_pending = false;
    for (;;) {
        unsigned char introducer;
        if (!read_byte(source, &introducer)) return ST_READ_ERROR;
        if (introducer == kGifTrailer) return 0;
        if (introducer == kGifImageIntroducer) {
            rc = read_image(source, control_pending ? &control : nullptr, monitor);
        } else if (introducer == kGifExtensionIntroducer) {
            unsigned char label;
            if (!read_byte(source, &label)) return ST_READ_ERROR;
            if (label == kGifLabelGraphicControl) {
                rc = control.read(source);
                if (rc != 0) return rc;
                control_pending = true;  // a later one before the image replaces it
                continue;
            }
            if (label == kGifLabelComment) {
                rc = read_comment_block(source);
            } else if (label == kGifLabelApplication) {
                rc = read_application(source);
            } else {
                // Plain text is not drawn; unknown labels are skipped by their sub-blocks.
                rc = skip_sub_blocks(source);
            }
        }
        // Any other byte between blocks is skipped, as many decoders do, so a stray padding
        // byte does not lose the images after it.
        if (rc != 0) return rc;
        control_pending = false;
    }
}

int qGifAnimation::read_header(qIFileR* source) {
    unsigned char header[kGifHeaderBytes];
    if (!q_gif_read_exact(source, header, kGifHeaderBytes)) return ST_READ_ERROR;
    if (std::memcmp(header, kGifSignature87a, kGifHeaderBytes) != 0 &&
        std::memcmp(header, kGifSignature89a, kGifHeaderBytes) != 0) {
        return ST_BAD_FORMAT;
    }
    unsigned char screen[kGifScreenBytes];
    if (!q_gif_read_exact(source, screen, kGifScreenBytes)) return ST_READ_ERROR;
    screen_size_ = qSize(q_gif_u16(screen), q_gif_u16(screen + 2));
    background_ = screen[5];
    qGifColorTable table;
    if (const int rc = q_gif_read_color_table(source, screen[4], &table); rc != ST_OK) return rc;
    if (table.entries == 0) return ST_OK;
    global_colormap_ = q_new<qColormap>();
    if (global_colormap_ == nullptr) return ST_NO_MEMORY;
    if (const int rc = q_gif_fill_colormap(table, global_colormap_); rc != ST_OK) {
        reset();
        return rc;
    }
    return ST_OK;
}

// Sub-blocks nobody reads are passed over by a seek where the source can seek, and read into a
// scratch block where it cannot (a pipe). A seek past the end of the data is accepted, so a
// block cut short fails at the next length byte instead: the same ST_READ_ERROR. Seeks stay
// within the int range, where a failed seek leaves the position where it was.
int qGifAnimation::skip_sub_blocks(qIFileR* source) {
    int64_t position = kNoValue;  // behind the last length byte; asked for at the first block
    bool seekable = true;
    unsigned char block[kGifMaxSubBlockBytes];
    for (;;) {
        unsigned char n;
        if (!read_byte(source, &n)) return ST_READ_ERROR;
        if (n == 0) return ST_OK;
        if (seekable) {
            position = position < 0 ? source->seek(0, SEEK_CUR) : position + 1;
            const int64_t target = position + n;
            seekable = position >= 0 && target <= INT_MAX && source->seek(n, SEEK_CUR) == target;
            if (seekable) {
                position = target;
                continue;
            }
        }
        if (!q_gif_read_exact(source, block, n)) return ST_READ_ERROR;
    }
}

int qGifAnimation::read_application(qIFileR* source) {
    unsigned char n;
    unsigned char block[kGifMaxSubBlockBytes];
    if (!read_byte(source, &n)) return ST_READ_ERROR;
    if (!q_gif_read_exact(source, block, n)) return ST_READ_ERROR;
    if (n != kGifApplicationIdBytes) return ST_BAD_FORMAT;
    const bool looping = std::memcmp(block, kGifLoopingApplicationId, kGifApplicationIdBytes) == 0;

    if (!read_byte(source, &n)) return ST_READ_ERROR;
    if (n == 0) return 0;
    if (!q_gif_read_exact(source, block, n)) return ST_READ_ERROR;
    if (looping && n == kGifLoopingSubBlockBytes && block[0] == kGifLoopingSubBlockId) {
        // The count says how often to repeat after the first play; 0 repeats for ever.
        const int repeats = q_gif_u16(block + 1);
        loop_count_ = repeats == 0 ? -1 : repeats + 1;
    }
    return skip_sub_blocks(source);
}

int qGifAnimation::read_comment(qIFileR* source, qObjArray<char>* comment) {
    return q_gif_read_sub_blocks(source, [comment](const unsigned char* block, int n) {
        return comment->append(reinterpret_cast<const char*>(block), n) ? ST_OK : ST_NO_MEMORY;
    });
}

int qGifAnimation::read_comment_block(qIFileR* source) {
    qObjArray<char>* comment = q_new<qObjArray<char>>(kCommentGrowBy);
    if (comment == nullptr) return ST_NO_MEMORY;
    const int rc = read_comment(source, comment);
    if (rc != 0 || !comments_.append(comment)) {
        delete comment;
        return rc != 0 ? rc : ST_NO_MEMORY;
    }
    return 0;
}

int qGifAnimation::read_image(qIFileR* source, const qGifControl* control, qIMonitor* monitor) {
    qGifFrame* frame = q_new<qGifFrame>();
    if (frame == nullptr) return ST_NO_MEMORY;
    const int rc = frame->read(source, global_colormap_, control, monitor);
    if (rc != 0 || !frames_.append(frame)) {
        delete frame;
        return rc != 0 ? rc : ST_NO_MEMORY;
    }
    return 0;
}
