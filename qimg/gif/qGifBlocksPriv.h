// qGifBlocksPriv.h: the pieces of the stream layout that the stream reader and the image reader
// both read: exact byte counts, sequences of data sub-blocks and colour tables.
#pragma once

#include "qimg/core/qStatus.h"
#include "qimg/gif/qGifFormatPriv.h"
#include "qimg/gif/qIFileR.h"

class qColormap;

// True when `n` bytes could be read into `buffer`; a short count is the end of the data.
inline bool q_gif_read_exact(qIFileR* source, unsigned char* buffer, int n) {
    return source->read(buffer, n) == n;
}

// Reads data sub-blocks up to and including their terminator, handing each to
// `take(bytes, count)`, which answers ST_OK to go on or a status to stop with (returned as it
// is). ST_OK at the terminator; ST_READ_ERROR when the source ends first.
template <class Take>
int q_gif_read_sub_blocks(qIFileR* source, Take take) {
    unsigned char block[kGifMaxSubBlockBytes];
    for (;;) {
        unsigned char n;
        if (!q_gif_read_exact(source, &n, 1)) return ST_READ_ERROR;
        if (n == 0) return ST_OK;
        if (!q_gif_read_exact(source, block, n)) return ST_READ_ERROR;
        if (const int rc = take(block, n); rc != ST_OK) return rc;
    }
}

// The red, green, blue triplets of a global or local colour table.
struct qGifColorTable {
    int entries = 0;  // 0: the descriptor announced no table
    unsigned char rgb[kGifMaxColorTableBytes];
};

// Reads the colour table that a descriptor's packed flags announce (2 << size code entries),
// whole, before the caller allocates anything for it. ST_OK, with no entries when the flags
// announce none; ST_READ_ERROR when the source ends first.
int q_gif_read_color_table(qIFileR* source, unsigned char packed, qGifColorTable* table);

// Makes `map` hold the table's colours, alpha 255. ST_OK, or the code of map->create_from_rgb().
int q_gif_fill_colormap(const qGifColorTable& table, qColormap* map);
