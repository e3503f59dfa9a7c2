// qTransferPlanPriv.h: which row converter a transfer uses, decided once per call.
//
// The block transfer and the scaled transfer share the mode dispatches: BLT_COPY, BLT_OVER and
// BLT_BLEND, with the source-alpha dispatch behind the last two. The scaled transfer samples
// pixel by pixel, so it has no same-type block copy and no PT_INDEX8 destination; everything
// else is identical.
#pragma once

#include "qimg/core/qPixel.h"
#include "qimg/core/qTypes.h"
#include "qimg/raster/qRowConvertersPriv.h"

class qImageAlias;

struct qTransferPlan {
    qRowConverter convert = nullptr;
    qRowContext context;
    bool identity = false;     // the converter copies pixels of one layout unchanged
    qPixRA palette[256] = {};  // the indexed source's colours, when the converter reads them
};

enum class qTransferKind { block, scaled };

// Fills `plan` for drawing `src` into `dst`: 0, ST_BAD_ARGUMENT (a palette copy that the transfer
// needs is missing) or ST_UNSUPPORTED (mode or pixel-type pair not supported).
int q_plan_transfer(const qImageAlias& dst, const qImageAlias& src, qBltMode mode,
                    unsigned char opacity, qTransferKind kind, qTransferPlan* plan);
