// qGifControl.h: qGifControl, what one graphic control extension says about the next image.
//
// A plain value type: how the image is disposed of, how long it is shown, which index is
// transparent. The stream reader fills one from each graphic control extension and hands its
// address to the next image; the frame keeps its own copy.
#pragma once

#include "qimg/core/qExport.h"

class qIFileR;

class QIMG_API qGifControl {
public:
    int disposal = 0;      // disposal method 0..7, as in the file
    int delay = 0;         // display time in hundredths of a second, 0..65535
    int transparent = -1;  // transparent colour index 0..255, or -1 for none

    qGifControl() = default;
    ~qGifControl() { reset(); }
    qGifControl(const qGifControl&) = default;
    qGifControl& operator=(const qGifControl&) = default;

    // Back to the defaults: disposal 0, delay 0, no transparent index.
    void reset();

    // Reads the 6 bytes after the 0xF9 label: block size 4, packed byte, delay (little-endian),
    // transparent index, terminator 0. 0 on success; ST_READ_ERROR when fewer than 6 bytes can be
    // read (record unchanged); ST_BAD_FORMAT when the block size is not 4 (record unchanged) or the
    // terminator is not 0 (the fields are already set); ST_BAD_ARGUMENT for a null source.
    int read(qIFileR* source);
};
