#include "qimg/gif/qMemoryR.h"

#include <climits>
#include <cstring>

#include "qimg/core/qCheckedMathPriv.h"
#include "qimg/core/qNoValuePriv.h"

qMemoryR::qMemoryR(const void* data, std::size_t length)
    : data_(static_cast<const unsigned char*>(data)),
      length_(data == nullptr ? 0 : static_cast<int>(length > INT_MAX ? INT_MAX : length)) {}

qMemoryR::~qMemoryR() = default;

int qMemoryR::size() {
    return length_;
}

int qMemoryR::seek(int offset, int origin) {
    int64_t base = 0;
    if (origin == 1) {
        base = position_;
    } else if (origin == 2) {
        base = length_;
    } else if (origin != 0) {
        return kNoValue;
    }
    const int64_t target = base + offset;
    if (target < 0 || target > INT_MAX) return kNoValue;
    position_ = static_cast<int>(target);
    return position_;
}

int qMemoryR::read(void* buffer, int count) {
    if (buffer == nullptr || count <= 0 || position_ >= length_) return 0;
    const int n = count < length_ - position_ ? count : length_ - position_;
    std::memcpy(buffer, data_ + position_, static_cast<std::size_t>(n));
    position_ += n;
    return n;
}

const unsigned char* qMemoryR::unread(int* count) const {
    *count = position_ < length_ ? length_ - position_ : 0;
    return data_ + (position_ < length_ ? position_ : length_);
}
