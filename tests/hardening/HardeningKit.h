// HardeningKit.h: helpers shared by the hardening tests: corpus files, renderings that capture
// what an object shows (so a state after a failure can be compared with a clean run), a monitor
// that stops at a chosen call, and the arming of the allocation hook.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "common/TestKit.h"
#include "qimg/core/qAllocationHookPriv.h"
#include "qimg/core/qMonitor.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/palette/qIColormap.h"
#include "qimg/raster/qImageEdit.h"

namespace hardening {

using Bytes = std::vector<unsigned char>;

inline Bytes read_corpus(const std::string& name) {
    Bytes bytes = qtest::read_file(std::string(QIMG_GIF_CORPUS) + "/" + name);
    EXPECT_FALSE(bytes.empty()) << name;
    return bytes;
}

inline int read_bytes(qImageProxy& proxy, const Bytes& bytes, qIMonitor* monitor = nullptr) {
    qMemoryR source(bytes.data(), bytes.size());
    return proxy.read_gif(&source, monitor);
}

// A PT_BGRA32 picture of `size` over an exactly sized vector, filled with a pattern so that
// pixels a draw leaves alone are told apart from pixels it wrote.
struct Canvas {
    explicit Canvas(qSize s) : size(s), pixels(static_cast<size_t>(s.width) * s.height * 4) {
        for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<unsigned char>(i * 7);
    }
    int bind(qImageEdit& view) { return view.Bind(pixels.data(), size, size.width * 4, PT_BGRA32); }
    const unsigned char* row(int y) const { return pixels.data() + size_t(y) * size.width * 4; }
    qSize size;
    std::vector<unsigned char> pixels;
};

// What the proxy shows, one entry per frame: the frame drawn at scale 1 onto its own pattern
// canvas of the screen size, followed by the frame's palette and transparent index. Empty for
// an invalid proxy. The cursor of an animation is put back on frame 0.
using Rendering = std::vector<std::vector<unsigned char>>;
inline Rendering render(const qImageProxy& proxy) {
    Rendering out;
    if (!proxy.valid()) return out;
    qIAnimation* animation = proxy.animation();
    const int frames = animation ? animation->num_frames() : 1;
    for (int f = 0; f < frames; ++f) {
        if (animation) animation->seek_frame(f, 0);
        Canvas canvas(proxy.size());
        qImageEdit view;
        EXPECT_EQ(canvas.bind(view), 0);
        EXPECT_EQ(proxy.Draw(&view, qRect(proxy.size()), qPoint(), 1.0f, 1.0f, false), 0);
        std::vector<unsigned char> frame = std::move(canvas.pixels);
        if (const qIColormap* map = proxy.colormap()) {
            for (int i = 0; i < map->num_colors(); ++i) {
                const qPixRA c = map->get_color(i);
                frame.insert(frame.end(), {c.blue, c.green, c.red, c.alpha});
            }
        }
        frame.push_back(static_cast<unsigned char>(proxy.min_t_index()));
        out.push_back(std::move(frame));
    }
    if (animation) animation->seek_frame(0, 0);
    return out;
}

// Answers false at call `stop_at` (1-based; 0 never) and checks what every call reports.
class StopAt : public qIMonitor {
public:
    explicit StopAt(long stop_at = 0) : stop_at_(stop_at) {}
    bool progress(int done, int total, int zero, int one) override {
        ++calls;
        EXPECT_EQ(zero, 0);
        EXPECT_EQ(one, 1);
        // Progress never goes back and never passes the whole.
        EXPECT_GE(done, last_done) << "call " << calls;
        EXPECT_LE(done, total) << "call " << calls;
        last_done = done;
        return calls != stop_at_;
    }
    long calls = 0;
    int last_done = 0;

private:
    long stop_at_;
};

#ifdef QIMG_TEST_HOOKS
// Makes allocation `n` of this thread fail until destroyed; reached() says whether the code
// under test asked for that many allocations, that is whether the failure really happened.
class FailAllocation {
public:
    explicit FailAllocation(long n) : n_(n) { qimg_fail_allocation(n); }
    ~FailAllocation() { qimg_fail_allocation(0); }
    FailAllocation(const FailAllocation&) = delete;
    FailAllocation& operator=(const FailAllocation&) = delete;
    bool reached() const { return qimg_allocation_count() >= n_; }

private:
    long n_;
};

// Allocations made by `call` on a clean run.
template <class Call>
long count_allocations(Call call) {
    qimg_fail_allocation(0);
    call();
    const long n = qimg_allocation_count();
    qimg_fail_allocation(0);
    return n;
}
#endif

}  // namespace hardening
