// qMemoryW.h: qMemoryW, a byte sink that collects the bytes in memory.
//
//   qMemoryW memory;
//   writer.begin(&memory, ...);  ...  writer.finish();
//   qMemoryR source(memory.data(), memory.size());      // read it back
#pragma once

#include "qimg/encode/qIFileW.h"

class QIMG_API qMemoryW : public qIFileW {
public:
    qMemoryW() = default;
    ~qMemoryW() override;
    qMemoryW(const qMemoryW&) = delete;
    qMemoryW& operator=(const qMemoryW&) = delete;

    // -1 when the block cannot grow (the bytes held stay); -5 for a null `data` or a negative
    // count; -3 past 2^31 - 1 bytes in all.
    int write(const void* data, int count) override;

    // The bytes written so far (null before the first) and their number; owned by the sink.
    const unsigned char* data() const { return data_; }
    int size() const { return size_; }
    // Forgets the bytes and releases the block.
    void clear();

private:
    unsigned char* data_ = nullptr;
    int size_ = 0;
    int capacity_ = 0;
};
