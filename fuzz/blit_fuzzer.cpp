// Block and scaled transfer against the plain reference of the tests.
//
// Input layout (missing bytes read as 0):
//   0      source type, 1 destination type (each an index into kTypes)
//   2      mode (0..3; 3 is an unsupported value), 3 opacity
//   4..7   source width, height; 8..11 destination width, height (1..64 each, from 2 bytes)
//   12..27 rectangle x, y, width, height as 4 signed 32-bit little-endian numbers
//   28..35 source position x, y
//   36..43 scale factors x, y as 32-bit floats (bit patterns: NaN, infinities, denormals too)
//   44     flags: bit 0 scaled transfer, bit 1 source palette, bit 2 destination palette,
//          bit 3 share the palette, bit 4 monitor that stops at row (byte 45), bit 5 images
//          stored as one contiguous block, bit 6 no monitor at all
//   46..   pixel and palette bytes, repeated as needed
// Every row has its own exactly sized allocation, so an overrun of one byte is reported.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>

#include "qimg/raster/qImageEdit.h"
#include "tests/raster/qBlitReference.h"

namespace {

const qPixelType kTypes[] = {PT_BGRA32, PT_BGR24,   PT_GRAY_ALPHA16, PT_GRAY8,
                             PT_INDEX8, PT_INDEX16, PT_ALPHA8};

class Reader {
public:
    Reader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    uint8_t byte(size_t at) const { return at < size_ ? data_[at] : 0; }
    uint32_t word(size_t at) const {
        return uint32_t{byte(at)} | uint32_t{byte(at + 1)} << 8 | uint32_t{byte(at + 2)} << 16 |
               uint32_t{byte(at + 3)} << 24;
    }
    int32_t int32(size_t at) const {
        const uint32_t w = word(at);
        int32_t v;
        std::memcpy(&v, &w, 4);
        return v;
    }
    float real(size_t at) const {
        const uint32_t w = word(at);
        float v;
        std::memcpy(&v, &w, 4);
        return v;
    }
    int side(size_t at) const { return 1 + (byte(at) | byte(at + 1) << 8) % 64; }
    // The payload bytes from offset 46, cycled; a fixed pattern when there are none.
    uint8_t payload(size_t i) const {
        return size_ > 46 ? data_[46 + i % (size_ - 46)] : static_cast<uint8_t>(i * 37 + 11);
    }

private:
    const uint8_t* data_;
    size_t size_;
};

void fill(qref::Image& image, const Reader& in, size_t& cursor) {
    for (int r = 0; r < image.height(); ++r) {
        for (int c = 0; c < image.width(); ++c) {
            unsigned char* p = image.pixel(r, c);
            for (int b = 0; b < qref::pixel_bytes(image.type()); ++b) p[b] = in.payload(cursor++);
        }
    }
}

std::shared_ptr<qColormap> palette(const Reader& in, size_t& cursor) {
    auto map = std::make_shared<qColormap>();
    const int n = 1 + in.payload(cursor++);
    map->create(n);
    for (int i = 0; i < n; ++i, cursor += 4) {
        map->set_color(i, qPixRA{in.payload(cursor), in.payload(cursor + 1), in.payload(cursor + 2),
                                 in.payload(cursor + 3)});
    }
    return map;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Reader in(data, size);
    const qPixelType st = kTypes[in.byte(0) % std::size(kTypes)];
    const qPixelType dt = kTypes[in.byte(1) % std::size(kTypes)];
    const qBltMode mode = static_cast<qBltMode>(1 + in.byte(2) % 4);
    const int opacity = in.byte(3);
    const uint8_t flags = in.byte(44);
    const bool contiguous = flags & 32;
    qref::Image src(st, in.side(4), in.side(6), contiguous);
    qref::Image dst(dt, in.side(8), in.side(10), contiguous);
    const qRect rect(in.int32(12), in.int32(16), in.int32(20), in.int32(24));
    const qPoint pos(in.int32(28), in.int32(32));
    const float sx = in.real(36), sy = in.real(40);
    const bool scaled = flags & 1;
    const bool watched = !(flags & 64);
    const int stop_at = watched && (flags & 16) ? 1 + in.byte(45) % 8 : 0;

    size_t cursor = 0;
    fill(src, in, cursor);
    fill(dst, in, cursor);
    if (flags & 2) src.palette = palette(in, cursor);
    if (flags & 4) dst.palette = (flags & 8) && src.palette ? src.palette : palette(in, cursor);

    qref::Image expected = qref::copy_of(dst);
    const qref::Outcome want =
        scaled ? qref::scaled_blit(expected, src, rect, pos, sx, sy, 1, mode, opacity, stop_at)
               : qref::blit(expected, src, rect, pos, mode, opacity, stop_at);

    std::unique_ptr<qIImageBuffer> hs, hd;
    qImageEdit from, to;
    if (qref::bind(from, src, hs) != 0 || qref::bind(to, dst, hd) != 0) std::abort();
    qref::CountingMonitor counting(stop_at);
    qref::CountingMonitor* monitor = watched ? &counting : nullptr;
    const unsigned char k = static_cast<unsigned char>(opacity);
    const int got = scaled ? to.ScaledBlt(rect, &from, pos, sx, sy, 1, mode, k, monitor)
                           : to.BitBlt(rect, &from, pos, mode, k, monitor);
    // A stop request past the last row never fires: the reference then reports every row.
    if (got != want.status || counting.calls != (watched ? want.rows : 0)) std::abort();
    if (qref::first_difference(dst, expected).row >= 0) std::abort();
    return 0;
}
