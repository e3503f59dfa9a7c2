#include "qimg/gif/qGifControl.h"

#include "qimg/core/qStatus.h"
#include "qimg/gif/qGifFormatPriv.h"
#include "qimg/gif/qIFileR.h"

void qGifControl::reset() {
    disposal = 0;
    delay = 0;
    transparent = -1;
}

int qGifControl::read(qIFileR* source) {
    if (source == nullptr) return ST_BAD_ARGUMENT;
    unsigned char block[kGifControlBytes];
    if (source->read(block, kGifControlBytes) != kGifControlBytes) return ST_READ_ERROR;
    if (block[0] != kGifControlBlockSize) return ST_BAD_FORMAT;
    const unsigned char packed = block[1];
    disposal = (packed >> 2) & 7;
    delay = q_gif_u16(block + 2);
    // The user-input flag (bit 1) asks a viewer to wait for a key press; nothing here waits.
    transparent = (packed & 1) != 0 ? block[4] : -1;
    return block[5] == 0 ? 0 : ST_BAD_FORMAT;
}
