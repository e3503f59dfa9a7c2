// Fuzz target for the GIF reader: arbitrary bytes through the memory byte source into an
// animation, then every frame drawn into an exactly sized PT_BGRA32 buffer (so a write one
// pixel past the end is caught) at scale 1 and at a reduced scale, and the facade's read_gif
// on the same bytes. Every output byte is summed so that uninitialised output is read.
//
// Invariants checked besides the absence of crashes: results within the documented codes,
// progress that never goes back nor passes its total, frames whose indices, palettes, timing
// and disposal are in range, draws of valid frames that
// succeed, a facade that agrees with the animation, and a clone that shows the same indices.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "qimg/core/qMonitor.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/palette/qIColormap.h"
#include "qimg/raster/qImageEdit.h"

namespace {

void check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "gif invariant broken: %s\n", what);
        std::abort();
    }
}

bool documented_read_code(int rc) {
    return rc == 0 || rc == 1 || rc == -1 || rc == -3 || rc == -5 || rc == -6 || rc == -8 ||
           rc == -9;
}

// Checks each report; answers false at call `stop_at` (never when it is 0).
class CheckingMonitor : public qIMonitor {
public:
    explicit CheckingMonitor(int stop_at) : stop_at_(stop_at) {}
    bool progress(int done, int total, int zero, int one) override {
        ++calls;
        check(zero == 0 && one == 1, "progress constants");
        check(done >= last_, "progress went back");
        check(done <= total, "progress past its total");
        last_ = done;
        return calls != stop_at_;
    }
    int calls = 0;

private:
    int stop_at_;
    int last_ = 0;
};

// Every frame: timing, disposal, palette and indices in range.
void check_frames(qGifAnimation& animation) {
    for (int f = 0; f < animation.num_frames(); ++f) {
        check(animation.seek_frame(f, 0) == 0, "seek_frame to an existing frame");
        check(animation.current_frame() == f, "current_frame");
        const int disposal = animation.frame_disposal();
        check(disposal >= 0 && disposal <= 7, "disposal in 0..7");
        check(animation.frame_delay() >= 0, "delay not negative");
        const qIComponent* leaf = animation.current_leaf();
        const qIColormap* map = animation.colormap();
        if (!leaf) continue;
        check(map != nullptr, "a frame with pixels has a palette");
        const int colours = map->num_colors();
        check(colours >= 1 && colours <= 256, "palette size");
        const qRect rect = animation.frame_rect();
        check(rect.width == leaf->size().width && rect.height == leaf->size().height,
              "frame_rect is the image's size");
        const int t = animation.min_t_index();
        check(t >= -1 && t < colours, "transparent index within the palette");
        for (int y = 0; y < rect.height; y += 1 + rect.height / 64) {
            for (int x = 0; x < rect.width; x += 1 + rect.width / 64) {
                // GIF data may name entries beyond a short colour table (drawing treats them
                // as the palette copy's empty entries), so the bound is the 8-bit index range.
                const int index = animation.pixel_index(qPoint(rect.x + x, rect.y + y));
                check(index >= 0 && index <= 255, "index outside 0..255");
            }
        }
    }
    animation.seek_frame(0, 0);
}

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
        const bool drawable = animation.current_leaf() != nullptr;
        const int a = animation.Draw(&view, qRect(screen), qPoint(0, 0), 1.0f, 1.0f, false);
        const int b = animation.Draw(&view, qRect(screen), qPoint(1, 1), 0.5f, 0.75f, f % 2 == 0);
        check(!drawable || (a == 0 && b == 0), "a frame with pixels draws");
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
    CheckingMonitor watch(0);
    const int rc = animation.read(&source, &watch);
    check(documented_read_code(rc), "read result outside the documented codes");
    check(rc != 1, "read stopped by a monitor that never says no");
    check_frames(animation);
    volatile uint32_t sink = draw_all(animation);
    if (animation.valid()) {
        qIComponent* copy = animation.clone();
        check(copy != nullptr, "clone of a valid animation");
        auto* twin = dynamic_cast<qGifAnimation*>(copy);
        check(twin && twin->num_frames() == animation.num_frames(), "clone frame count");
        const qRect rect = animation.frame_rect();
        for (int i = 0; i < rect.width && i < rect.height; ++i) {
            const qPoint p(rect.x + i, rect.y + i);
            check(twin->pixel_index(p) == animation.pixel_index(p), "clone shows the same");
        }
        delete copy;
    }
    // The facade on the same bytes agrees with the animation.
    qImageProxy proxy;
    qMemoryR again(data, size);
    const int proxy_rc = proxy.read_gif(&again, nullptr);
    check(documented_read_code(proxy_rc), "read_gif result outside the documented codes");
    // 0 means a valid proxy, except for a stream with a screen but no image at all, which reads
    // without error and leaves nothing to show.
    check(proxy_rc == 0 ? proxy.valid() || proxy.num_frames() == 0 : !proxy.valid(),
          "read_gif 0 exactly when the proxy is valid");
    if (animation.valid()) {
        check(proxy_rc == 0 && proxy.num_frames() == animation.num_frames(),
              "read_gif keeps every frame of a valid animation");
    }
    // Stopped at the second progress call: 1 with an empty proxy, or 0 with no more frames
    // (the frame being decoded is dropped, so usually fewer).
    if (watch.calls >= 2) {
        qImageProxy stopped;
        qMemoryR third(data, size);
        CheckingMonitor stop(2);
        const int stopped_rc = stopped.read_gif(&third, &stop);
        check(stop.calls == 2, "no progress call after the false answer");
        check(stopped_rc == 1 ? !stopped.valid()
                              : stopped_rc != 0 || stopped.num_frames() <= animation.num_frames(),
              "stopped read");
    }
    sink = sink + static_cast<uint32_t>(proxy_rc);
    (void)sink;
    return 0;
}
