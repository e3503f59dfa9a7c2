// qFileW.h: qFileW, a byte sink writing to a file.
//
//   qFileW file;
//   if (!file.open("out.gif")) return ST_READ_ERROR;
//   int rc = writer.begin(&file, ...);   ...   rc = file.close();   // 0 once all bytes are down
#pragma once

#include <cstdio>

#include "qimg/encode/qIFileW.h"

class QIMG_API qFileW : public qIFileW {
public:
    qFileW() = default;
    // Closes the file; a write error found only then is lost: call close() to see it.
    ~qFileW() override;
    qFileW(const qFileW&) = delete;
    qFileW& operator=(const qFileW&) = delete;

    // Creates or truncates `path` for writing (fopen mode "wb"), closing any file held before.
    // False when it cannot be opened.
    bool open(const char* path);
    // Flushes and closes the file. 0; -3 when a write, the flush or the close failed (then the
    // file holds an unknown part of the data); 0 as well when no file was open.
    int close();

    // -3 without an open file or when fwrite writes less.
    int write(const void* data, int count) override;

private:
    std::FILE* file_ = nullptr;
    bool failed_ = false;
};
