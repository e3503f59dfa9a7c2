#include "qimg/gif/qFileR.h"

#include <climits>

#include "qimg/core/qCheckedMathPriv.h"
#include "qimg/core/qNoValuePriv.h"

qIFileR::~qIFileR() = default;

qFileR::~qFileR() {
    close();
}

bool qFileR::open(const char* path) {
    // Closing first keeps a second open() from leaking the first handle.
    close();
    if (path == nullptr) return false;
    file_ = std::fopen(path, "rb");
    return file_ != nullptr;
}

void qFileR::close() {
    if (file_ == nullptr) return;
    std::fclose(file_);
    file_ = nullptr;
}

int qFileR::size() {
    if (file_ == nullptr) return 0;
    const long here = std::ftell(file_);
    if (std::fseek(file_, 0, SEEK_END) != 0) return 0;
    const long end = std::ftell(file_);
    if (here >= 0) std::fseek(file_, here, SEEK_SET);
    return end < 0 ? 0 : q_saturate(end);
}

int qFileR::seek(int offset, int origin) {
    if (file_ == nullptr) return kNoValue;
    if (std::fseek(file_, offset, origin) != 0) return kNoValue;
    const long position = std::ftell(file_);
    return position < 0 || position > INT_MAX ? kNoValue : static_cast<int>(position);
}

int qFileR::read(void* buffer, int count) {
    if (file_ == nullptr || buffer == nullptr || count <= 0) return 0;
    return static_cast<int>(std::fread(buffer, 1, static_cast<std::size_t>(count), file_));
}
