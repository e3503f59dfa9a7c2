// Fuzz target for the LZW decoder alone. Byte 0 picks the minimum code size (0..13, so the
// refused sizes are reached too), byte 1 the size of the pieces the rest is fed in (1..256),
// byte 2 the number of pixels expected; the rest is the code stream. The output is summed so
// that every byte written is read.
#include <cstddef>
#include <cstdint>

#include "qimg/gif/qLzwDecoder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    const int min_code_size = data[0] % 14;
    const size_t piece = size_t{data[1]} + 1;
    const unsigned expected = data[2] * 37u;
    data += 3;
    size -= 3;
    qLzwDecoder decoder;
    decoder.init(min_code_size, expected);
    int status = 1;
    for (size_t at = 0; at < size && status == 1; at += piece) {
        const size_t n = size - at < piece ? size - at : piece;
        status = decoder.feed(data + at, static_cast<int>(n));
    }
    if (status >= 0) decoder.finish();
    volatile uint32_t sum = 0;
    for (int i = 0; i < decoder.output_size(); ++i) sum = sum + decoder.output()[i];
    return 0;
}
