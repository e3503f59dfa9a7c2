// qFileR.h: qFileR, a byte source over a file opened with fopen in binary mode.
#pragma once

#include <cstdio>

#include "qimg/gif/qIFileR.h"

class QIMG_API qFileR : public qIFileR {
public:
    qFileR() = default;
    // Closes the file.
    ~qFileR() override;
    qFileR(const qFileR&) = delete;
    qFileR& operator=(const qFileR&) = delete;

    // Opens `path` for reading in binary mode; true when the file is open. A file that was open
    // before is closed first. A null path gives false.
    bool open(const char* path);
    // Closes the file; nothing when none is open.
    void close();

    // size(): remembers the position, moves to the end and back; 0 when the end cannot be
    // reached (the position is then not restored) or no file is open. Sizes above INT_MAX are
    // reported as INT_MAX.
    int size() override;
    // seek(): as fseek; -1 without an open file or when the new position does not fit an int.
    // On a stream that cannot seek (a pipe), seek(0, 1) still answers the bytes read so far.
    int seek(int offset, int origin) override;
    // read(): as fread with element size 1; 0 without an open file, a null buffer or count <= 0.
    int read(void* buffer, int count) override;

private:
    std::FILE* file_ = nullptr;
    long long bytes_read_ = 0;  // since open(): the position where the stream cannot tell it
};
