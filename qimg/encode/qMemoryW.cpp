#include "qimg/encode/qMemoryW.h"

#include <climits>
#include <cstring>

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qStatus.h"

qMemoryW::~qMemoryW() {
    clear();
}

void qMemoryW::clear() {
    q_free(data_);
    data_ = nullptr;
    size_ = 0;
    capacity_ = 0;
}

int qMemoryW::write(const void* data, int count) {
    if (data == nullptr || count < 0) return ST_BAD_ARGUMENT;
    if (count > INT_MAX - size_) return ST_READ_ERROR;
    const int needed = size_ + count;
    if (needed > capacity_) {
        // Doubling keeps the copies linear in the bytes written.
        const long long doubled = 2LL * capacity_;
        const int grown = doubled > INT_MAX ? INT_MAX : static_cast<int>(doubled);
        const int capacity = needed > grown ? (needed < 4096 ? 4096 : needed) : grown;
        auto* block = static_cast<unsigned char*>(q_realloc(data_, static_cast<size_t>(capacity)));
        if (block == nullptr) return ST_NO_MEMORY;
        data_ = block;
        capacity_ = capacity;
    }
    if (count > 0) std::memcpy(data_ + size_, data, static_cast<size_t>(count));
    size_ = needed;
    return ST_OK;
}
