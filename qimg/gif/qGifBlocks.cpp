#include "qimg/gif/qGifBlocksPriv.h"
#include "qimg/palette/qColormap.h"

int q_gif_read_color_table(qIFileR* source, unsigned char packed, qGifColorTable* table) {
    table->entries = 0;
    if ((packed & kGifColorTableFlag) == 0) return ST_OK;
    const int n = 2 << (packed & kGifColorTableSizeMask);
    if (!q_gif_read_exact(source, table->rgb, 3 * n)) return ST_READ_ERROR;
    table->entries = n;
    return ST_OK;
}

int q_gif_fill_colormap(const qGifColorTable& table, qColormap* map) {
    return map->create_from_rgb(table.rgb, table.entries);
}
