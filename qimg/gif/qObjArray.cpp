#include "qimg/gif/qObjArray.h"

#include "qimg/core/qAllocPriv.h"

void* qObjArrayBlock::resize(void* block, std::size_t bytes) {
    return q_realloc(block, bytes);
}

void qObjArrayBlock::release(void* block) {
    q_free(block);
}
