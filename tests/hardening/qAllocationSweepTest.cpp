// The allocation and cancellation sweeps: each scenario runs once cleanly to count its
// allocations and progress calls, then once per allocation with that one failing and once per
// progress call with the monitor answering false there. Every such run must return its
// documented code and leave what a caller sees as the scenario says; LeakSanitizer (the
// `make test` build) catches anything a failure path forgets to release.
#include "qimg/core/qAllocationHookPriv.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

#include "hardening/HardeningKit.h"
#include "qimg/color/qColorQuantProxy.h"
#include "qimg/core/qMonitor.h"
#include "qimg/encode/qGifEncoder.h"
#include "qimg/encode/qGifWriter.h"
#include "qimg/encode/qMemoryW.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/image/qFrameComposer.h"

#ifdef QIMG_TEST_HOOKS

namespace {

using namespace hardening;

// Answers false at call `stop_at` (never when 0) and checks the arguments of every call.
class StopAt : public qIMonitor {
public:
    explicit StopAt(long stop_at) : stop_at_(stop_at) {}
    bool progress(int done, int total, int zero, int one) override {
        EXPECT_TRUE(zero == 0 && one == 1 && done >= last_ && done <= total) << "call " << calls;
        last_ = done;
        return ++calls != stop_at_;
    }
    long calls = 0;

private:
    long stop_at_;
    int last_ = 0;
};

struct Scenario {
    const char* name;
    std::function<void()> prepare;         // fresh objects, before the failures are armed
    std::function<int(qIMonitor*)> run;    // the operation under test
    std::function<Rendering()> look;       // what a caller sees afterwards
    std::function<Rendering()> untouched;  // what a failed or stopped run leaves...
    bool partial = false;                  // ...or, part by part, the clean run's result
    std::vector<int> fail_codes = {-1};
    std::vector<int> stop_codes = {1};
};

bool left_as_told(const Scenario& s, const Rendering& got, const Rendering& clean,
                  const Rendering& untouched) {
    if (!s.partial) return got == untouched;
    if (got.size() > std::max(clean.size(), untouched.size())) return false;
    for (size_t i = 0; i < got.size(); ++i) {
        const bool done = i < clean.size() && got[i] == clean[i];
        if (!done && !(i < untouched.size() && got[i] == untouched[i])) return false;
    }
    return true;
}

bool one_of(int rc, const std::vector<int>& codes) {
    return std::find(codes.begin(), codes.end(), rc) != codes.end();
}

void sweep(const Scenario& s) {
    SCOPED_TRACE(s.name);
    s.prepare();
    const Rendering untouched = s.untouched();
    s.prepare();
    StopAt counter(0);
    qimg_fail_allocation(0);
    ASSERT_EQ(s.run(&counter), 0);
    const long allocations = qimg_allocation_count();
    const Rendering clean = s.look();
    for (long n = 1; n <= allocations; ++n) {
        s.prepare();
        qimg_fail_allocation(n);
        const int rc = s.run(nullptr);
        const bool reached = qimg_allocation_count() >= n;
        qimg_fail_allocation(0);
        ASSERT_TRUE(reached) << "allocation " << n << " of " << allocations << " never made";
        EXPECT_TRUE(one_of(rc, s.fail_codes)) << "allocation " << n << ": " << rc;
        EXPECT_TRUE(left_as_told(s, s.look(), clean, untouched)) << "allocation " << n;
    }
    for (long k = 1; k <= counter.calls; ++k) {
        s.prepare();
        StopAt monitor(k);
        const int rc = s.run(&monitor);
        EXPECT_EQ(monitor.calls, k) << "a call after the false answer";
        EXPECT_TRUE(one_of(rc, s.stop_codes)) << "stopped at " << k << ": " << rc;
        EXPECT_TRUE(left_as_told(s, s.look(), clean, untouched)) << "stopped at " << k;
    }
}

// A gradient with a few transparent pixels.
std::shared_ptr<qDirectImage> picture(qSize size) {
    auto image = std::make_shared<qDirectImage>();
    EXPECT_EQ(image->Create_buffer(size, PT_BGRA32, nullptr), 0);
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            unsigned char* p = image->pixel_address(y, x);
            p[0] = static_cast<unsigned char>(x * 9);
            p[1] = static_cast<unsigned char>(y * 13);
            p[2] = static_cast<unsigned char>((x + y) * 5);
            p[3] = (x + y) % 7 == 0 ? 0 : 255;
        }
    }
    return image;
}

std::shared_ptr<qImageProxy> gif(const char* name) {
    auto proxy = std::make_shared<qImageProxy>();
    EXPECT_EQ(read_bytes(*proxy, read_corpus(name)), 0);
    return proxy;
}

std::vector<Scenario> scenarios() {
    std::vector<Scenario> out;
    const auto add = [&](const char* name, auto prepare, auto run, auto look, auto untouched,
                         bool partial = false) {
        out.push_back({name, prepare, run, look, untouched, partial});
    };
    const auto small = picture(qSize(20, 11));
    auto proxy = std::make_shared<qImageProxy>();
    const auto fill_proxy = [=] { ASSERT_EQ(proxy->Set(small.get()), 0); };
    const auto proxy_seen = [=] { return render(*proxy); };
    const auto nothing = [] { return Rendering(); };

    // Reading: the frames complete before a failure are kept, and the image held before stays
    // until the animation itself is made.
    for (const char* name :
         {"im-one-pixel.gif", "im-comment.gif", "im-interlaced.gif", "im-gif87a.gif",
          "pil-anim-local-tables.gif", "pil-anim-transparent.gif", "gl-delay-dispose.gif",
          "gs-comment-noloop.gif"}) {
        const auto bytes = std::make_shared<Bytes>(read_corpus(name));
        add(
            name, fill_proxy, [=](qIMonitor* m) { return read_bytes(*proxy, *bytes, m); },
            proxy_seen, proxy_seen, true);
        out.back().fail_codes = {-1, -9, 0};  // -9: the LZW output counts as undecodable data
        out.back().stop_codes = {1, 0};
    }
    // Set (a deep copy of an animation from another proxy): -1 and an empty proxy.
    const auto anim = gif("pil-anim-local-tables.gif");
    const auto* leaf = dynamic_cast<const qIIndexImage*>(anim->current_leaf());
    add(
        "set from a proxy", fill_proxy, [=](qIMonitor*) { return proxy->Set(anim.get()); },
        proxy_seen, nothing);
    add(
        "set from an index image", fill_proxy, [=](qIMonitor*) { return proxy->Set(leaf); },
        proxy_seen, nothing);
    add(
        "set from true colour", fill_proxy, [=](qIMonitor*) { return proxy->Set(small.get()); },
        proxy_seen, nothing);
    auto view = std::make_shared<qImageEdit>();
    auto source = std::make_shared<qImageAlias>();
    EXPECT_EQ(source->Bind(small.get()), 0);
    // The facade's colour reduction replaces nothing when it fails or is stopped.
    const auto grey = std::make_shared<qColorQuantProxy>();
    EXPECT_EQ(grey->create_fixed_colormap(16, CM_GRAY, true), 0);
    const auto transparent = gif("pil-anim-transparent.gif");
    const qIColormap* given = grey->fixed_colormap();
    const struct {
        const char* name;
        const qImageProxy* from;  // a GIF, else the true-colour picture
        qCmapType kind;
        qQuantizer quantizer;
        const qIColormap* map;  // the given-map form when set
    } reductions[] = {
        {"adaptive, nearest",    nullptr,           CM_ADAPTIVE, QT_NEAREST,   nullptr},
        {"adaptive, dithered",   nullptr,           CM_ADAPTIVE, QT_DIFFUSION, nullptr},
        {"quality, dithered",    nullptr,           CM_QUALITY,  QT_DIFFUSION, nullptr},
        {"cube, dithered",       nullptr,           CM_CUBE,     QT_DIFFUSION, nullptr},
        {"grey, nearest",        nullptr,           CM_GRAY,     QT_NEAREST,   nullptr},
        {"given map, dithered",  nullptr,           CM_CUBE,     QT_DIFFUSION, given  },
        {"gif frame, adaptive",  transparent.get(), CM_ADAPTIVE, QT_DIFFUSION, nullptr},
        {"gif frame, quality",   transparent.get(), CM_QUALITY,  QT_DIFFUSION, nullptr},
        {"gif frame, given map", transparent.get(), CM_CUBE,     QT_NEAREST,   given  },
    };
    for (const auto& r : reductions) {
        add(
            r.name,
            [=, grey = grey, transparent = transparent] {
                ASSERT_EQ(r.from ? proxy->Set(r.from) : proxy->Set(small.get()), 0);
            },
            [=](qIMonitor* m) {
                return r.map ? proxy->quantize_colors(r.map, r.quantizer, false, 1, 0, m)
                             : proxy->quantize_colors(16, r.kind, r.quantizer, false, 1, 0, 1, m);
            },
            proxy_seen, proxy_seen);
    }
    // The representative colour: transparent black without its working memory.
    auto colour = std::make_shared<Bytes>();
    add(
        "representative colour", fill_proxy,
        [=](qIMonitor*) {
            const qPixRA c = proxy->get_rep_color();
            *colour = {c.blue, c.green, c.red, c.alpha};
            return c.alpha == 255 ? 0 : -1;
        },
        [=] { return Rendering(1, *colour); }, [] { return Rendering(1, Bytes(4, 0)); });
    // Scaled drawing leaves the target untouched; a stopped scaled transfer finishes rows.
    auto canvas = std::make_shared<Canvas>(qSize(40, 30));
    const auto fresh_canvas = [=] {
        *canvas = Canvas(canvas->size);
        ASSERT_EQ(canvas->bind(*view), 0);
    };
    const auto canvas_seen = [=] { return canvas->rows(); };
    const auto still = gif("im-transparent.gif");
    for (const qImageProxy* from : {still.get(), anim.get()}) {
        for (const float scale : {2.0f, 0.5f, 0.75f}) {
            add(
                "scaled draw", fresh_canvas,
                [=, still = still](qIMonitor*) {
                    return from->Draw(view.get(), qRect(2, 1, 35, 27), qPoint(1, 2), scale,
                                      3 * scale, false);
                },
                canvas_seen, canvas_seen);
        }
    }
    add(
        "scaled transfer", fresh_canvas,
        [=](qIMonitor* m) {
            return view->ScaledBlt(qRect(canvas->size), source.get(), qPoint(), 2.5f, 1.5f, 1,
                                   BLT_OVER, 200, m);
        },
        canvas_seen, canvas_seen, true);
    // Composing an animation: after a failure or a stop, the next call shows the right picture.
    for (const char* name :
         {"gl-delay-dispose.gif", "pil-anim-transparent.gif", "im-anim-dispose.gif"}) {
        const auto played = gif(name);
        auto screen = std::make_shared<Canvas>(played->size());
        auto composer = std::make_shared<std::unique_ptr<qFrameComposer>>();
        const int last = played->num_frames() - 1;
        const auto compose = [=](qFrameComposer& c, qIMonitor* m) {
            EXPECT_EQ(c.begin(played->animation(), view.get()), 0);
            return c.compose_to(last, m);
        };
        add(
            name,
            [=] {
                *screen = Canvas(screen->size);
                ASSERT_EQ(screen->bind(*view), 0);
                composer->reset(new qFrameComposer);
            },
            [=](qIMonitor* m) { return compose(**composer, m); },
            [=] {
                EXPECT_EQ((*composer)->compose_to(last, nullptr), 0);
                return screen->rows();
            },
            [=] {
                qFrameComposer whole;
                EXPECT_EQ(compose(whole, nullptr), 0);
                return screen->rows();
            });
    }
    // clone() of every kind of component gives null at every failure; the control record that
    // set_ex_transparent makes for a GIF87a frame is not left half made.
    const auto reduced = std::make_shared<qImageProxy>();
    EXPECT_EQ(reduced->Set(small.get()), 0);
    EXPECT_EQ(reduced->quantize_colors(4, CM_ADAPTIVE, QT_NEAREST, true, 1, 0, 1, nullptr), 0);
    // A GIF frame clones alone only with a colour map of its own: the last frame has one.
    auto* frames = dynamic_cast<qGifAnimation*>(anim->animation());
    const qIComponent* components[] = {frames->frame(frames->num_frames() - 1),
                                       anim->current_leaf(), reduced->current_leaf()};
    for (const qIComponent* component : components) {
        add(
            "clone", [] {},
            [=, anim = anim, reduced = reduced, still = still](qIMonitor*) {
                const qIComponent* copy = component->clone();
                delete copy;
                return copy ? 0 : -1;
            },
            nothing, nothing);
    }
    auto old_style = std::make_shared<std::shared_ptr<qImageProxy>>();
    const auto first_frame = [=] {
        return dynamic_cast<qGifAnimation*>((*old_style)->animation())->frame(0);
    };
    add(
        "set_ex_transparent on a frame without control record",
        [=] { *old_style = gif("im-gif87a.gif"); },
        [=](qIMonitor*) { return first_frame()->set_ex_transparent(1) ? 0 : -1; },
        [=] {
            const qGifControl* c = first_frame()->control();
            return Rendering(1, Bytes{static_cast<unsigned char>(c ? c->transparent : 0xFF)});
        },
        [] { return Rendering(1, Bytes{0xFF}); });
    // Writing a read animation, making one from true-colour frames, and re-cutting a GIF.
    const auto written = gif("pil-anim-local-tables.gif");
    auto* read = dynamic_cast<qGifAnimation*>(written->animation());
    const auto frame_b = picture(qSize(20, 11));
    *frame_b->pixel_address(3, 3) ^= 0x55;
    const std::function<int(qIFileW*, qIMonitor*)> jobs[] = {
        [=](qIFileW* sink, qIMonitor* m) { return qGifWriter().write(read, sink, m); },
        [=](qIFileW* sink, qIMonitor* m) {
            const qIImageBuffer* frames[] = {small.get(), frame_b.get()};
            return qGifEncoder::encode_frames(frames, nullptr, 2, qGifEncodeOptions(), sink, m);
        },
        [=](qIFileW* sink, qIMonitor* m) {
            return qGifEncoder::reencode(read, RS_SMALLER, -1, 0, sink, m);
        },
    };
    for (const auto& job : jobs) {
        add(
            "gif writing", [] {},
            [=, written = written](qIMonitor* m) {
                qMemoryW sink;
                return job(&sink, m);
            },
            nothing, nothing);
    }
    return out;
}

TEST(AllocationSweep, EveryScenario) {
    for (const Scenario& s : scenarios()) sweep(s);
}

}  // namespace

#endif  // QIMG_TEST_HOOKS
