// qIFileR.h: qIFileR, the byte source the GIF reader reads from.
//
// The stream reader and the image decoder see their input only through this interface: they
// read bytes, and ask for the size and the current position to report progress. Implementations:
// qFileR (a file opened with fopen) and qMemoryR (bytes the caller holds in memory).
#pragma once

#include "qimg/core/qExport.h"

class QIMG_API qIFileR {
public:
    virtual ~qIFileR();
    // The size of the whole source in bytes; the position is left where it was. 0 when the size
    // cannot be found.
    virtual int size() = 0;
    // Moves the position: `origin` 0 counts from the start, 1 from the current position, 2 from
    // the end (as fseek). The new position, or -1 when the move fails (the position is then
    // unchanged). seek(0, 1) asks for the current position.
    virtual int seek(int offset, int origin) = 0;
    // Reads up to `count` bytes into `buffer` and returns how many were read; fewer than `count`
    // means the data ended or could not be read. Callers treat any short count as the end.
    virtual int read(void* buffer, int count) = 0;
};
