// Fuzz target for the GIF reader: arbitrary bytes through the memory byte source into an
// animation, then every frame drawn into an exactly sized PT_BGRA32 buffer (so a write one
// pixel past the end is caught) at scale 1 and at a reduced scale, and the facade's read_gif
// on the same bytes. Every output byte is summed so that uninitialised output is read.
#include <cstddef>
#include <cstdint>
#include <memory>

#include "qimg/core/qImageProxy.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/raster/qImageEdit.h"

namespace {

// Images and screens above this many pixels are skipped, so a 20-byte input cannot ask for
// gigabytes (the reader would allocate them: that is allowed, just not useful to fuzz).
constexpr int64_t kMaxPixels = 1 << 22;

// Walks the block structure the way the reader does and checks every declared size; anything
// it cannot parse the reader will refuse before allocating, so it answers true there.
bool sizes_fit(const uint8_t* data, size_t size) {
    size_t at = 6 + 7;
    if (size < at) return true;
    if (int64_t{data[6] | data[7] << 8} * (data[8] | data[9] << 8) > kMaxPixels) return false;
    if (data[10] & 0x80) at += 3 * (size_t{2} << (data[10] & 7));
    auto skip_blocks = [&]() {
        while (at < size && data[at] != 0) at += 1 + data[at];
        ++at;
    };
    while (at < size) {
        const uint8_t introducer = data[at++];
        if (introducer == 0x3B) return true;
        if (introducer == 0x21) {
            ++at;
            skip_blocks();
        } else if (introducer == 0x2C) {
            if (at + 9 > size) return true;
            const int64_t w = data[at + 4] | data[at + 5] << 8;
            const int64_t h = data[at + 6] | data[at + 7] << 8;
            if (w * h > kMaxPixels) return false;
            if (data[at + 8] & 0x80) at += 3 * (size_t{2} << (data[at + 8] & 7));
            at += 9 + 1;
            skip_blocks();
        }
    }
    return true;
}

uint32_t draw_all(qGifAnimation& animation) {
    const qSize screen = animation.size();
    if (screen.empty() || int64_t{screen.width} * screen.height > kMaxPixels) return 0;
    const size_t bytes = static_cast<size_t>(screen.width) * screen.height * 4;
    std::unique_ptr<unsigned char[]> pixels(new unsigned char[bytes]());
    qImageEdit view;
    if (view.Bind(pixels.get(), screen, screen.width * 4, PT_BGRA32) != 0) return 0;
    uint32_t sum = 0;
    for (int f = 0; f < animation.num_frames(); ++f) {
        animation.seek_frame(f, 0);
        animation.Draw(&view, qRect(screen), qPoint(0, 0), 1.0f, 1.0f, false);
        animation.Draw(&view, qRect(screen), qPoint(1, 1), 0.5f, 0.75f, f % 2 == 0);
        sum += static_cast<uint32_t>(animation.pixel_index(qPoint(f, f)));
        sum += static_cast<uint32_t>(animation.frame_delay() + animation.frame_disposal());
    }
    for (size_t i = 0; i < bytes; ++i) sum += pixels[i];
    return sum;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!sizes_fit(data, size)) return 0;
    qGifAnimation animation;
    qMemoryR source(data, size);
    animation.read(&source, nullptr);
    volatile uint32_t sink = draw_all(animation);
    if (animation.valid()) {
        qIComponent* copy = animation.clone();
        delete copy;
    }
    qImageProxy proxy;
    qMemoryR again(data, size);
    sink = sink + static_cast<uint32_t>(proxy.read_gif(&again, nullptr));
    (void)sink;
    return 0;
}
