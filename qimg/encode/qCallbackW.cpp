#include "qimg/encode/qCallbackW.h"

#include "qimg/core/qStatus.h"

qCallbackW::~qCallbackW() = default;

int qCallbackW::write(const void* data, int count) {
    if (function_ == nullptr || data == nullptr || count < 0) return ST_READ_ERROR;
    return function_(user_, data, count) == count ? ST_OK : ST_READ_ERROR;
}
