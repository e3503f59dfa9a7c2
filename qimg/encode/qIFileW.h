// qIFileW.h: qIFileW, the byte sink the GIF writer writes to.
//
// The writing side of qIFileR: the writer hands its output to a sink in pieces and never touches
// a file itself. Implementations: qFileW (a file opened with fopen), qMemoryW (a growing block
// in memory) and qCallbackW (a function of the caller's).
#pragma once

#include "qimg/core/qExport.h"

class QIMG_API qIFileW {
public:
    virtual ~qIFileW();
    // Appends `count` bytes from `data`. 0 when all were taken; -1 when memory ran out; -3 when
    // the bytes could not be written (the sink may then hold part of them). A sink that failed
    // once may refuse everything after.
    virtual int write(const void* data, int count) = 0;
};
