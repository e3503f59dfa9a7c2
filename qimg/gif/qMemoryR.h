// qMemoryR.h: qMemoryR, a byte source over bytes the caller holds in memory.
//
// Lets a caller read a GIF that is already in memory (downloaded, embedded, mapped) without a
// file: qImageProxy::read_gif(qIFileR*, qIMonitor*) takes it. The source only refers to the
// bytes; they must stay unchanged and alive while it is used. Seek, size and read behave as
// qFileR does on a file holding the same bytes.
#pragma once

#include <cstddef>

#include "qimg/gif/qIFileR.h"

class QIMG_API qMemoryR : public qIFileR {
public:
    // An empty source (size 0).
    qMemoryR() = default;
    // A source over `length` bytes at `data`; a null `data` gives an empty source. Only the
    // first INT_MAX bytes are reachable.
    qMemoryR(const void* data, std::size_t length);
    ~qMemoryR() override;

    int size() override;
    // As fseek: a position before the start fails (-1, unchanged); a position past the end is
    // accepted and reads from there give 0 bytes. Origins other than 0, 1, 2 fail.
    int seek(int offset, int origin) override;
    int read(void* buffer, int count) override;

    // The bytes from the current position to the end, `*count` of them (0 past the end), for a
    // reader that takes them in place and then moves the position by seek().
    const unsigned char* unread(int* count) const;

private:
    const unsigned char* data_ = nullptr;
    int length_ = 0;
    int position_ = 0;
};
