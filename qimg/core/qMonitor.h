// qMonitor.h: the progress monitor that callers hand to long operations.
#pragma once

#include "qimg/core/qExport.h"

// Implemented by callers and passed by pointer (null for none). The library calls progress()
// synchronously on the caller's thread after each finished unit of work: a row for transfers,
// fills, scaling and colour mapping; the byte position in the stream for GIF decoding. `done` is
// the units finished so far, `total` the units of the whole operation, then the constants 0 and
// 1. Returning false stops the operation at once; it returns 1 and keeps the work already done.
// There is no call before the first unit and no extra call at the end. `done` is never below 0
// and `total` never below 1: when a stream's size is unknown (a pipe) GIF decoding reports the
// position as the total too, so the total grows as reading proceeds, and positions past
// INT_MAX are reported as INT_MAX. The library never destroys a monitor.
class QIMG_API qIMonitor {
public:
    virtual ~qIMonitor();
    virtual bool progress(int done, int total, int, int) = 0;
};
