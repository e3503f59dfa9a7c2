// The allocation and cancellation sweeps: representative scenarios run once cleanly to count
// their allocations (or progress calls), then once per allocation with that one failing (or
// with the monitor answering false at that call). Every run must return the documented code and
// leave the documented state; LeakSanitizer (the `make test` build) catches anything a failure
// path forgets to release.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "hardening/HardeningKit.h"
#include "qimg/color/qColorQuantProxy.h"
#include "qimg/color/qGifColormap.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifEncoder.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qGifWriter.h"
#include "qimg/gif/qMemoryW.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/image/qFrameComposer.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qIColormap.h"

#ifdef QIMG_TEST_HOOKS

namespace {

using namespace hardening;

// Still, animated, local colour tables, comments, interlaced, transparent, GIF87a.
const char* const kSweepFiles[] = {
    "im-one-pixel.gif",
    "im-colors-4.gif",
    "im-comment.gif",
    "im-interlaced.gif",
    "im-gif87a.gif",
    "im-transparent.gif",
    "pil-anim-local-tables.gif",
    "pil-anim-transparent.gif",
    "gl-delay-dispose.gif",
    "gs-comment-noloop.gif",
};

// A true-colour picture with a gradient and a few transparent pixels.
void make_direct(qDirectImage& image, qSize size) {
    ASSERT_EQ(image.Create_buffer(size, PT_BGRA32, nullptr), 0);
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            unsigned char* p = image.pixel_address(y, x);
            p[0] = static_cast<unsigned char>(x * 9);
            p[1] = static_cast<unsigned char>(y * 13);
            p[2] = static_cast<unsigned char>((x + y) * 5);
            p[3] = (x + y) % 7 == 0 ? 0 : 255;
        }
    }
}

// A proxy already holding something, so that "keeps what it held" can be told from "emptied".
void fill_with_direct(qImageProxy& proxy) {
    qDirectImage picture;
    make_direct(picture, qSize(5, 3));
    ASSERT_EQ(proxy.Set(&picture), 0);
}

TEST(AllocationSweep, ReadGifFailsCleanlyAtEveryAllocation) {
    qImageProxy old_content;
    fill_with_direct(old_content);
    const Rendering old_rendering = render(old_content);
    for (const char* name : kSweepFiles) {
        SCOPED_TRACE(name);
        const Bytes bytes = read_corpus(name);
        qImageProxy clean;
        ASSERT_EQ(read_bytes(clean, bytes), 0);
        const Rendering reference = render(clean);
        const int frames = clean.num_frames();
        const long allocations = count_allocations([&] {
            qImageProxy p;
            read_bytes(p, bytes);
        });
        ASSERT_GT(allocations, 0);
        for (long n = 1; n <= allocations + 1; ++n) {
            SCOPED_TRACE(n);
            qImageProxy proxy;
            fill_with_direct(proxy);
            int rc;
            bool reached;
            {
                FailAllocation fail(n);
                rc = read_bytes(proxy, bytes);
                reached = fail.reached();
            }
            ASSERT_EQ(reached, n <= allocations) << "allocations differ between runs";
            if (!reached) {
                EXPECT_EQ(rc, 0);
                EXPECT_EQ(render(proxy), reference);
            } else if (n == 1) {
                // The animation itself could not be made: the proxy keeps its image.
                EXPECT_EQ(rc, -1);
                EXPECT_EQ(render(proxy), old_rendering);
            } else if (rc == 0) {
                // A failure after a complete frame: the frames read until then are held.
                ASSERT_TRUE(proxy.valid());
                const int kept = proxy.num_frames();
                ASSERT_GE(kept, 1);
                ASSERT_LE(kept, frames);
                const Rendering got = render(proxy);
                EXPECT_TRUE(std::equal(got.begin(), got.end(), reference.begin()));
            } else {
                // -9 only for the LZW output, which counts as undecodable data.
                EXPECT_TRUE(rc == -1 || rc == -9) << rc;
                EXPECT_FALSE(proxy.valid());
                EXPECT_EQ(proxy.num_frames(), 0);
                EXPECT_EQ(proxy.current_leaf(), nullptr);
            }
        }
    }
}

TEST(AllocationSweep, ReadGifStoppedAtEveryProgressCall) {
    for (const char* name : kSweepFiles) {
        SCOPED_TRACE(name);
        const Bytes bytes = read_corpus(name);
        qImageProxy clean;
        StopAt counter;
        ASSERT_EQ(read_bytes(clean, bytes, &counter), 0);
        const Rendering reference = render(clean);
        const int frames = clean.num_frames();
        ASSERT_GT(counter.calls, 0);
        int kept_before = 0;
        for (long k = 1; k <= counter.calls; ++k) {
            SCOPED_TRACE(k);
            qImageProxy proxy;
            fill_with_direct(proxy);
            StopAt monitor(k);
            const int rc = read_bytes(proxy, bytes, &monitor);
            EXPECT_EQ(monitor.calls, k) << "no call after the false answer";
            if (rc == 1) {
                // Stopped inside the first frame: nothing usable, the old image is gone too.
                EXPECT_EQ(kept_before, 0);
                EXPECT_FALSE(proxy.valid());
                EXPECT_EQ(proxy.num_frames(), 0);
                continue;
            }
            ASSERT_EQ(rc, 0);
            // The frame being decoded when the monitor said no is dropped.
            const int kept = proxy.num_frames();
            EXPECT_GE(kept, 1);
            EXPECT_LT(kept, frames);
            EXPECT_GE(kept, kept_before);
            kept_before = kept;
            const Rendering got = render(proxy);
            EXPECT_TRUE(std::equal(got.begin(), got.end(), reference.begin()));
        }
    }
}

// Set from another proxy holding a whole animation (global and local maps, comments), from the
// current frame's index image and from a true-colour image: -1 and an empty proxy at every
// failure.
TEST(AllocationSweep, SetAndCloneOfAnimations) {
    qDirectImage picture;
    make_direct(picture, qSize(6, 4));
    for (const char* name :
         {"pil-anim-local-tables.gif", "gs-comment-noloop.gif", "im-comment.gif"}) {
        SCOPED_TRACE(name);
        qImageProxy source;
        ASSERT_EQ(read_bytes(source, read_corpus(name)), 0);
        const Rendering reference = render(source);
        const auto* leaf = dynamic_cast<const qIIndexImage*>(source.current_leaf());
        ASSERT_NE(leaf, nullptr);
        struct Case {
            const char* what;
            std::function<int(qImageProxy&)> set;
        };
        const Case cases[] = {
            {"proxy",       [&](qImageProxy& p) { return p.Set(&source); } },
            {"index image", [&](qImageProxy& p) { return p.Set(leaf); }    },
            {"true colour", [&](qImageProxy& p) { return p.Set(&picture); }},
        };
        for (const Case& c : cases) {
            SCOPED_TRACE(c.what);
            qImageProxy clean;
            const long allocations = count_allocations([&] { EXPECT_EQ(c.set(clean), 0); });
            for (long n = 1; n <= allocations + 1; ++n) {
                SCOPED_TRACE(n);
                qImageProxy proxy;
                fill_with_direct(proxy);
                int rc;
                {
                    FailAllocation fail(n);
                    rc = c.set(proxy);
                    ASSERT_EQ(fail.reached(), n <= allocations);
                }
                if (n > allocations) {
                    EXPECT_EQ(rc, 0);
                    EXPECT_EQ(render(proxy), render(clean));
                } else {
                    EXPECT_EQ(rc, -1);
                    EXPECT_FALSE(proxy.valid());
                    EXPECT_EQ(proxy.current_leaf(), nullptr);
                    EXPECT_EQ(proxy.size(), qSize());
                    EXPECT_EQ(proxy.colormap(), nullptr);
                }
            }
        }
        // clone() of the animation itself: null at every failure.
        const long clone_allocations =
            count_allocations([&] { delete source.animation()->clone(); });
        for (long n = 1; n <= clone_allocations; ++n) {
            FailAllocation fail(n);
            EXPECT_EQ(source.animation()->clone(), nullptr) << n;
        }
        EXPECT_EQ(render(source), reference);
    }
}

// clone() of every kind of component, and the control record a GIF frame makes for
// set_ex_transparent: null (or false, with the frame left opaque) at every failure.
TEST(AllocationSweep, ClonesAndTransparencyRecord) {
    qImageProxy gif;
    ASSERT_EQ(read_bytes(gif, read_corpus("pil-anim-local-tables.gif")), 0);
    qImageProxy direct;
    fill_with_direct(direct);
    qImageProxy reduced;
    fill_with_direct(reduced);
    ASSERT_EQ(reduced.quantize_colors(4, CM_ADAPTIVE, QT_NEAREST, true, 1, 0, 1, nullptr), 0);
    auto* gif_frame = dynamic_cast<qGifAnimation*>(gif.animation())->frame(0);
    const qIComponent* components[] = {gif_frame, gif.current_leaf(), direct.current_leaf(),
                                       reduced.current_leaf()};
    for (const qIComponent* component : components) {
        const long allocations = count_allocations([&] { delete component->clone(); });
        ASSERT_GT(allocations, 0);
        for (long n = 1; n <= allocations; ++n) {
            FailAllocation fail(n);
            EXPECT_EQ(component->clone(), nullptr) << n;
        }
    }
    qImageProxy old_style;  // GIF87a: a frame without control record, which the edit makes
    ASSERT_EQ(read_bytes(old_style, read_corpus("im-gif87a.gif")), 0);
    qGifFrame* plain = dynamic_cast<qGifAnimation*>(old_style.animation())->frame(0);
    ASSERT_EQ(plain->control(), nullptr);
    {
        FailAllocation fail(1);
        EXPECT_FALSE(plain->set_ex_transparent(1));
    }
    EXPECT_EQ(plain->control(), nullptr);
    EXPECT_TRUE(plain->set_ex_transparent(1));
    ASSERT_NE(plain->control(), nullptr);
    EXPECT_EQ(plain->control()->transparent, 1);
}

// Palettes from the quantizer front: each step swept on its own.
TEST(AllocationSweep, QuantizerFront) {
    qDirectImage first;
    make_direct(first, qSize(23, 17));
    qDirectImage second;
    make_direct(second, qSize(8, 31));
    auto palette_of = [](const qIColormap* map) {
        std::vector<uint32_t> out;
        for (int i = 0; map && i < map->num_colors(); ++i) {
            const qPixRA c = map->get_color(i);
            out.push_back(uint32_t{c.blue} | uint32_t{c.green} << 8 | uint32_t{c.red} << 16 |
                          uint32_t{c.alpha} << 24);
        }
        return out;
    };
    qColorQuantProxy clean;
    ASSERT_EQ(clean.create_quantizer(), 0);
    ASSERT_EQ(clean.prescan_quantize(&first, 1), 0);
    ASSERT_EQ(clean.prescan_quantize(&second, 1), 0);
    ASSERT_EQ(clean.select_colors(16, true), 0);
    const std::vector<uint32_t> adaptive = palette_of(clean.colormap());
    ASSERT_FALSE(adaptive.empty());

    // create_quantizer: -1 and nothing held.
    for (long n = 1;; ++n) {
        qColorQuantProxy quant;
        FailAllocation fail(n);
        const int rc = quant.create_quantizer();
        if (!fail.reached()) {
            EXPECT_EQ(rc, 0);
            break;
        }
        EXPECT_EQ(rc, -1);
        EXPECT_EQ(quant.colormap(), nullptr);
        EXPECT_EQ(quant.fixed_colormap(), nullptr);
        ASSERT_LT(n, 50);
    }
    // Each prescan: -1 and the histogram unchanged, which the final palette shows.
    for (int step = 0; step < 2; ++step) {
        SCOPED_TRACE(step);
        for (long n = 1;; ++n) {
            SCOPED_TRACE(n);
            qColorQuantProxy quant;
            ASSERT_EQ(quant.create_quantizer(), 0);
            if (step == 1) {
                ASSERT_EQ(quant.prescan_quantize(&first, 1), 0);
            }
            int rc;
            bool reached;
            {
                FailAllocation fail(n);
                rc = quant.prescan_quantize(step == 0 ? &first : &second, 1);
                reached = fail.reached();
            }
            if (reached) {
                EXPECT_EQ(rc, -1);
                ASSERT_EQ(quant.prescan_quantize(step == 0 ? &first : &second, 1), 0);
            } else {
                EXPECT_EQ(rc, 0);
            }
            if (step == 0) {
                ASSERT_EQ(quant.prescan_quantize(&second, 1), 0);
            }
            ASSERT_EQ(quant.select_colors(16, true), 0);
            EXPECT_EQ(palette_of(quant.colormap()), adaptive);
            if (!reached) break;
            ASSERT_LT(n, 50);
        }
    }
    // Fixed palettes: -1 and nothing held.
    for (qCmapType kind : {CM_CUBE, CM_GRAY}) {
        SCOPED_TRACE(kind);
        qColorQuantProxy reference;
        ASSERT_EQ(reference.create_fixed_colormap(64, kind, true), 0);
        for (long n = 1;; ++n) {
            qColorQuantProxy quant;
            ASSERT_EQ(quant.create_quantizer(), 0);
            FailAllocation fail(n);
            const int rc = quant.create_fixed_colormap(64, kind, true);
            if (!fail.reached()) {
                EXPECT_EQ(rc, 0);
                EXPECT_EQ(palette_of(quant.fixed_colormap()),
                          palette_of(reference.fixed_colormap()));
                break;
            }
            EXPECT_EQ(rc, -1);
            EXPECT_EQ(quant.fixed_colormap(), nullptr);
            EXPECT_EQ(quant.colormap(), nullptr);
            ASSERT_LT(n, 50);
        }
    }
}

// Mapping and dithering to a palette through the nearest-colour cache: every allocation failure
// gives -1 before any index is written; a stop at row k gives 1 after exactly k rows.
TEST(AllocationSweep, MappingAndDithering) {
    qDirectImage picture;
    make_direct(picture, qSize(37, 21));
    qColorQuantProxy quant;
    ASSERT_EQ(quant.create_fixed_colormap(27, CM_CUBE, true), 0);
    qGifColormap cache;
    cache.attach(quant.fixed_colormap());
    const qSize size = picture.size();
    for (bool dither : {false, true}) {
        SCOPED_TRACE(dither);
        qImageAlias source;
        ASSERT_EQ(source.Bind(&picture), 0);
        // Binds the target view before the allocations under test begin.
        auto bound = [&](std::vector<unsigned char>& indices) {
            auto target = std::make_unique<qImageEdit>();
            EXPECT_EQ(target->Bind(indices.data(), size, size.width, PT_INDEX8), 0);
            return target;
        };
        auto run = [&](qImageEdit& target, qIMonitor* monitor) {
            return dither
                       ? target.dither_colors(qRect(size), &source, qPoint(), &cache, false, 1.0f,
                                              0.5f, monitor)
                       : target.map_colors(qRect(size), &source, qPoint(), &cache, false, monitor);
        };
        std::vector<unsigned char> reference(static_cast<size_t>(size.width) * size.height, 0xEE);
        ASSERT_EQ(run(*bound(reference), nullptr), 0);
        for (unsigned char i : reference) ASSERT_LT(i, 27);
        for (long n = 1;; ++n) {
            SCOPED_TRACE(n);
            std::vector<unsigned char> indices(reference.size(), 0xEE);
            auto target = bound(indices);
            FailAllocation fail(n);
            const int rc = run(*target, nullptr);
            if (!fail.reached()) {
                EXPECT_EQ(rc, 0);
                EXPECT_EQ(indices, reference);
                break;
            }
            EXPECT_EQ(rc, -1);
            // Nothing is mapped without the working memory.
            EXPECT_EQ(indices, std::vector<unsigned char>(reference.size(), 0xEE));
            ASSERT_LT(n, 50);
        }
        for (long k = 1; k <= size.height; ++k) {
            SCOPED_TRACE(k);
            std::vector<unsigned char> indices(reference.size(), 0xEE);
            StopAt monitor(k);
            EXPECT_EQ(run(*bound(indices), &monitor), 1);
            EXPECT_EQ(monitor.calls, k);
            const size_t done = static_cast<size_t>(k) * size.width;
            EXPECT_TRUE(
                std::equal(indices.begin(), indices.begin() + long(done), reference.begin()));
            EXPECT_TRUE(std::all_of(indices.begin() + long(done), indices.end(),
                                    [](unsigned char i) { return i == 0xEE; }));
        }
    }
}

// The facade's colour reduction of a true-colour frame and of a GIF frame, to a generated
// palette or a given map: -1 and the image unchanged at every failure.
TEST(AllocationSweep, FacadeQuantizeColors) {
    qDirectImage picture;
    make_direct(picture, qSize(19, 11));
    qImageProxy gif;
    ASSERT_EQ(read_bytes(gif, read_corpus("pil-anim-transparent.gif")), 0);
    qColorQuantProxy given;
    ASSERT_EQ(given.create_fixed_colormap(16, CM_GRAY, true), 0);
    struct Case {
        const char* what;
        bool from_gif;
        qCmapType kind;
        qQuantizer quantizer;
        const qIColormap* map;  // the given-map form when set
    };
    const Case cases[] = {
        {"adaptive, nearest",    false, CM_ADAPTIVE, QT_NEAREST,   nullptr               },
        {"adaptive, dithered",   false, CM_ADAPTIVE, QT_DIFFUSION, nullptr               },
        {"cube, dithered",       false, CM_CUBE,     QT_DIFFUSION, nullptr               },
        {"grey, nearest",        false, CM_GRAY,     QT_NEAREST,   nullptr               },
        {"given map, dithered",  false, CM_CUBE,     QT_DIFFUSION, given.fixed_colormap()},
        {"gif frame, adaptive",  true,  CM_ADAPTIVE, QT_DIFFUSION, nullptr               },
        {"gif frame, given map", true,  CM_CUBE,     QT_NEAREST,   given.fixed_colormap()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto fresh = [&](qImageProxy& p) { return c.from_gif ? p.Set(&gif) : p.Set(&picture); };
        auto reduce = [&](qImageProxy& p, qIMonitor* monitor) {
            return c.map
                       ? p.quantize_colors(c.map, c.quantizer, false, 1.0f, 0.0f, monitor)
                       : p.quantize_colors(16, c.kind, c.quantizer, false, 1.0f, 0.0f, 1, monitor);
        };
        qImageProxy clean;
        ASSERT_EQ(fresh(clean), 0);
        const Rendering before = render(clean);
        ASSERT_EQ(reduce(clean, nullptr), 0);
        const Rendering after = render(clean);
        for (long n = 1;; ++n) {
            SCOPED_TRACE(n);
            qImageProxy proxy;
            ASSERT_EQ(fresh(proxy), 0);
            int rc;
            bool reached;
            {
                FailAllocation fail(n);
                rc = reduce(proxy, nullptr);
                reached = fail.reached();
            }
            if (!reached) {
                EXPECT_EQ(rc, 0);
                EXPECT_EQ(render(proxy), after);
                break;
            }
            EXPECT_EQ(rc, -1);
            EXPECT_EQ(render(proxy), before);
            ASSERT_LT(n, 200);
        }
        for (long k = 1;; ++k) {
            SCOPED_TRACE(k);
            qImageProxy proxy;
            ASSERT_EQ(fresh(proxy), 0);
            StopAt monitor(k);
            const int rc = reduce(proxy, &monitor);
            if (monitor.calls < k) {
                EXPECT_EQ(rc, 0);
                break;
            }
            EXPECT_EQ(rc, 1);
            // A stopped reduction replaces nothing.
            EXPECT_EQ(render(proxy), before);
            ASSERT_LT(k, 10000);
        }
    }
    // The representative colour: transparent black when its working memory cannot be had.
    qImageProxy proxy;
    ASSERT_EQ(proxy.Set(&picture), 0);
    for (long n = 1;; ++n) {
        FailAllocation fail(n);
        const qPixRA colour = proxy.get_rep_color();
        if (!fail.reached()) {
            EXPECT_EQ(colour.alpha, 255);
            break;
        }
        EXPECT_EQ(colour, (qPixRA{0, 0, 0, 0})) << n;
        ASSERT_LT(n, 20);
    }
}

// Scaled drawing of an indexed GIF frame and of a true-colour image: -1 with the target
// untouched at every failure.
TEST(AllocationSweep, ScaledDraws) {
    qImageProxy gif;
    ASSERT_EQ(read_bytes(gif, read_corpus("im-transparent.gif")), 0);
    qDirectImage picture;
    make_direct(picture, qSize(13, 9));
    qImageProxy direct;
    ASSERT_EQ(direct.Set(&picture), 0);
    const struct {
        float x, y;
    } scales[] = {
        {2.0f, 2.0f },
        {0.5f, 0.5f },
        {3.0f, 0.75f},
        {1.0f, 1.0f }
    };
    for (const qImageProxy* proxy : {&gif, &direct}) {
        for (const auto& s : scales) {
            SCOPED_TRACE(testing::Message() << s.x << " x " << s.y);
            const qSize size(40, 30);
            Canvas reference(size);
            {
                qImageEdit view;
                ASSERT_EQ(reference.bind(view), 0);
                ASSERT_EQ(proxy->Draw(&view, qRect(2, 1, 35, 27), qPoint(1, 2), s.x, s.y, false),
                          0);
            }
            for (long n = 1;; ++n) {
                SCOPED_TRACE(n);
                Canvas canvas(size);
                const Canvas untouched(size);
                qImageEdit view;
                ASSERT_EQ(canvas.bind(view), 0);
                FailAllocation fail(n);
                const int rc =
                    proxy->Draw(&view, qRect(2, 1, 35, 27), qPoint(1, 2), s.x, s.y, false);
                if (!fail.reached()) {
                    EXPECT_EQ(rc, 0);
                    EXPECT_EQ(canvas.pixels, reference.pixels);
                    break;
                }
                EXPECT_EQ(rc, -1);
                EXPECT_EQ(canvas.pixels, untouched.pixels);
                ASSERT_LT(n, 20);
            }
        }
    }
}

// The scaled transfer stopped at every row: 1 after exactly k calls, every target row either
// finished or untouched.
TEST(AllocationSweep, ScaledTransferStoppedAtEveryRow) {
    qDirectImage picture;
    make_direct(picture, qSize(13, 9));
    qImageAlias source;
    ASSERT_EQ(source.Bind(&picture), 0);
    const qSize size(40, 30);
    Canvas reference(size);
    qImageEdit reference_view;
    ASSERT_EQ(reference.bind(reference_view), 0);
    StopAt counter;
    ASSERT_EQ(reference_view.ScaledBlt(qRect(size), &source, qPoint(), 2.5f, 1.5f, 1, BLT_OVER, 200,
                                       &counter),
              0);
    const Canvas untouched(size);
    for (long k = 1; k <= counter.calls; ++k) {
        SCOPED_TRACE(k);
        Canvas canvas(size);
        qImageEdit view;
        ASSERT_EQ(canvas.bind(view), 0);
        StopAt monitor(k);
        EXPECT_EQ(
            view.ScaledBlt(qRect(size), &source, qPoint(), 2.5f, 1.5f, 1, BLT_OVER, 200, &monitor),
            1);
        EXPECT_EQ(monitor.calls, k);
        int finished = 0;
        for (int y = 0; y < size.height; ++y) {
            const bool done = std::memcmp(canvas.row(y), reference.row(y), size.width * 4) == 0;
            const bool left = std::memcmp(canvas.row(y), untouched.row(y), size.width * 4) == 0;
            EXPECT_TRUE(done || left) << "row " << y;
            finished += done && !left;
        }
        EXPECT_LE(finished, k);
    }
}

// Playing an animation onto a canvas: a failure at any allocation gives -1, and the next call
// still composes the right picture.
TEST(AllocationSweep, FrameComposer) {
    for (const char* name :
         {"gl-delay-dispose.gif", "pil-anim-transparent.gif", "im-anim-dispose.gif"}) {
        SCOPED_TRACE(name);
        qImageProxy gif;
        ASSERT_EQ(read_bytes(gif, read_corpus(name)), 0);
        qIAnimation* animation = gif.animation();
        const int last = animation->num_frames() - 1;
        const qSize screen = gif.size();
        // References: the canvas after each frame.
        std::vector<std::vector<unsigned char>> shown;
        {
            Canvas canvas(screen);
            qImageEdit view;
            ASSERT_EQ(canvas.bind(view), 0);
            qFrameComposer composer;
            ASSERT_EQ(composer.begin(animation, &view), 0);
            for (int f = 0; f <= last; ++f) {
                ASSERT_EQ(composer.compose_to(f, nullptr), 0);
                shown.push_back(canvas.pixels);
            }
        }
        for (long n = 1;; ++n) {
            SCOPED_TRACE(n);
            Canvas canvas(screen);
            qImageEdit view;
            ASSERT_EQ(canvas.bind(view), 0);
            qFrameComposer composer;
            ASSERT_EQ(composer.begin(animation, &view), 0);
            int rc;
            bool reached;
            {
                FailAllocation fail(n);
                rc = composer.compose_to(last, nullptr);
                reached = fail.reached();
            }
            if (!reached) {
                EXPECT_EQ(rc, 0);
                EXPECT_EQ(canvas.pixels, shown[last]);
                break;
            }
            EXPECT_EQ(rc, -1);
            // Retrying once memory is back shows the right picture.
            ASSERT_EQ(composer.compose_to(last, nullptr), 0);
            EXPECT_EQ(composer.composed_frame(), last);
            EXPECT_EQ(canvas.pixels, shown[last]);
            ASSERT_LT(n, 500);
        }
        for (long k = 1; k <= last + 1; ++k) {
            SCOPED_TRACE(k);
            Canvas canvas(screen);
            qImageEdit view;
            ASSERT_EQ(canvas.bind(view), 0);
            qFrameComposer composer;
            ASSERT_EQ(composer.begin(animation, &view), 0);
            StopAt monitor(k);
            // The monitor hears each frame drawn; stopped at call k, k frames are shown.
            EXPECT_EQ(composer.compose_to(last, &monitor), 1);
            EXPECT_EQ(composer.composed_frame(), k - 1);
            EXPECT_EQ(canvas.pixels, shown[k - 1]);
        }
        animation->seek_frame(0, 0);
    }
}

// Writing a read animation, quantizing, mapping and optimising true-colour frames, and re-cutting
// a GIF: -1 at every allocation (LSan checks that nothing leaks).
TEST(AllocationSweep, GifWriting) {
    qDirectImage pictures[2];
    make_direct(pictures[0], qSize(9, 7));
    make_direct(pictures[1], qSize(9, 7));
    *pictures[1].pixel_address(3, 3) ^= 0x55;
    const qIImageBuffer* frames[] = {&pictures[0], &pictures[1]};
    const Bytes bytes = read_corpus("pil-anim-local-tables.gif");
    qGifAnimation animation;
    qMemoryR source(bytes.data(), bytes.size());
    ASSERT_EQ(animation.read(&source, nullptr), 0);
    const std::function<int(qIFileW*)> jobs[] = {
        [&](qIFileW* sink) { return qGifWriter().write(&animation, sink, nullptr); },
        [&](qIFileW* sink) {
            return qGifEncoder::encode_frames(frames, nullptr, 2, qGifEncodeOptions(), sink,
                                              nullptr);
        },
        [&](qIFileW* sink) {
            return qGifEncoder::reencode(&animation, RS_SMALLER, -1, 0, sink, nullptr);
        },
    };
    for (const auto& job : jobs) {
        qMemoryW clean;
        ASSERT_EQ(job(&clean), 0);
        for (long n = 1;; ++n) {
            SCOPED_TRACE(n);
            qMemoryW sink;
            int rc;
            bool reached;
            {
                FailAllocation fail(n);
                rc = job(&sink);
                reached = fail.reached();
            }
            if (!reached) {
                EXPECT_EQ(rc, 0);
                EXPECT_EQ(sink.size(), clean.size());
                break;
            }
            EXPECT_EQ(rc, -1);
            ASSERT_LT(n, 500);
        }
    }
}

}  // namespace

#endif  // QIMG_TEST_HOOKS
