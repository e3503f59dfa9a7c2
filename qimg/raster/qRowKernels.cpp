#include "qimg/raster/qRowKernelsPriv.h"

qRowConverter q_fast_row_converter(qPixelOp, qTypeSlot, qTypeSlot) {
    return nullptr;
}
