// qGifReader.cpp: the pull reader of qGifAnimation, and the single-block readers it offers.
//
// The stream layout itself (which block comes next, what a graphic control extension applies
// to, the limits) is qGifStreamParser's, shared with the push reader; this file feeds it from a
// byte source.
#include <climits>
#include <cstdio>
#include <cstring>
#include <typeinfo>

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifBlocksPriv.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFormatPriv.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qGifStreamParserPriv.h"
#include "qimg/gif/qIFileR.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/palette/qColormap.h"

namespace {

bool read_byte(qIFileR* source, unsigned char* byte) {
    return q_gif_read_exact(source, byte, 1);
}

// Passes over `n` bytes by a seek where the source can seek. A seek past the end of the data is
// accepted, so a block cut short fails at the next length byte instead: the same ST_READ_ERROR.
// Seeks stay within the int range, where a failed seek leaves the position where it was.
bool skip_bytes(qIFileR* source, int n) {
    const int64_t position = source->seek(0, SEEK_CUR);
    const int64_t target = position + n;
    return position >= 0 && target <= INT_MAX && source->seek(n, SEEK_CUR) == target;
}

}  // namespace

int qGifAnimation::read(qIFileR* source, qIMonitor* monitor) {
    return read(source, monitor, qGifReadOptions());
}

// The pull reader: the parser's steps fed from the source, each with exactly the bytes it asks
// for, so nothing past the trailer is read.
int qGifAnimation::read(qIFileR* source, qIMonitor* monitor, const qGifReadOptions& options) {
    reset();
    if (source == nullptr) return ST_BAD_ARGUMENT;
    qGifStreamParser parser(this, options, monitor);
    parser.report_positions_of(source);
    // Bytes already in memory go to the parser in place, without a call to the source per
    // step; a monitor hears the source's position, so it gets the reads below. A class derived
    // from qMemoryR may read otherwise: it is read through its calls too.
    if (monitor == nullptr && typeid(*source) == typeid(qMemoryR))
        return read_in_place(static_cast<qMemoryR*>(source), &parser);
    unsigned char bytes[kGifMaxColorTableBytes];
    for (int n = parser.wanted(); n > 0; n = parser.wanted()) {
        if (parser.skipping() && skip_bytes(source, n)) {
            parser.skipped();
        } else if (q_gif_read_exact(source, bytes, n)) {
            parser.take(bytes);
        } else {
            return parser.end();
        }
    }
    return parser.status();
}

// The loop above over bytes in memory, leaving the source where its reads and seeks would have.
int qGifAnimation::read_in_place(qMemoryR* source, qGifStreamParser* parser) {
    int available = 0;
    const unsigned char* bytes = source->unread(&available);
    const int64_t seek_room = INT_MAX - int64_t{source->seek(0, SEEK_CUR)};
    const int64_t used = parser->take_in_place(bytes, available, seek_room);
    source->seek(static_cast<int>(used), SEEK_CUR);
    return parser->status();
}

int qGifAnimation::read_header(qIFileR* source) {
    unsigned char header[kGifHeaderBytes];
    if (!q_gif_read_exact(source, header, kGifHeaderBytes)) return ST_READ_ERROR;
    const int version = q_gif_version(header);
    if (version == 0) return ST_BAD_FORMAT;
    unsigned char screen[kGifScreenBytes];
    if (!q_gif_read_exact(source, screen, kGifScreenBytes)) return ST_READ_ERROR;
    version_ = version;
    screen_size_ = qSize(q_gif_u16(screen), q_gif_u16(screen + 2));
    background_ = screen[5];
    pixel_aspect_ = screen[6];
    qGifColorTable table;
    if (const int rc = q_gif_read_color_table(source, screen[4], &table); rc != ST_OK) return rc;
    if (table.entries == 0) return ST_OK;
    global_colormap_ = &global_colormap_record_;
    if (const int rc = q_gif_fill_colormap(table, global_colormap_); rc != ST_OK) {
        reset();
        return rc;
    }
    return ST_OK;
}

// Sub-blocks nobody reads are passed over by a seek where the source can seek, and read into a
// scratch block where it cannot (a pipe).
int qGifAnimation::skip_sub_blocks(qIFileR* source) {
    unsigned char block[kGifMaxSubBlockBytes];
    for (;;) {
        unsigned char n;
        if (!read_byte(source, &n)) return ST_READ_ERROR;
        if (n == 0) return ST_OK;
        if (!skip_bytes(source, n) && !q_gif_read_exact(source, block, n)) return ST_READ_ERROR;
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
    if (const int plays = looping ? q_gif_loop_count(block, n) : 0; plays != 0) loop_count_ = plays;
    return skip_sub_blocks(source);
}

int qGifAnimation::read_comment(qIFileR* source, qObjArray<char>* comment) {
    return q_gif_read_sub_blocks(source, [comment](const unsigned char* block, int n) {
        return comment->append(reinterpret_cast<const char*>(block), n) ? ST_OK : ST_NO_MEMORY;
    });
}
