#include "qimg/encode/qFileW.h"

#include "qimg/core/qStatus.h"

qIFileW::~qIFileW() = default;

qFileW::~qFileW() {
    close();
}

bool qFileW::open(const char* path) {
    close();
    if (path == nullptr) return false;
    file_ = std::fopen(path, "wb");
    return file_ != nullptr;
}

int qFileW::close() {
    if (file_ == nullptr) return ST_OK;
    // fclose flushes the stream's buffer, where a full disk shows up for small files.
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    const bool failed = failed_ || !closed;
    failed_ = false;
    return failed ? ST_READ_ERROR : ST_OK;
}

int qFileW::write(const void* data, int count) {
    if (file_ == nullptr || data == nullptr || count < 0) return ST_READ_ERROR;
    if (std::fwrite(data, 1, static_cast<std::size_t>(count), file_) !=
        static_cast<std::size_t>(count)) {
        failed_ = true;
        return ST_READ_ERROR;
    }
    return ST_OK;
}
