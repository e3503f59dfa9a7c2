// HardeningKit.h: what the hardening tests share: corpus files as bytes, reading them through the
// facade, a canvas over caller memory and a rendering of everything a caller of a proxy can see.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "common/TestKit.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/palette/qIColormap.h"
#include "qimg/raster/qImageEdit.h"

namespace hardening {

using Bytes = std::vector<unsigned char>;
using Rendering = std::vector<Bytes>;

inline Bytes read_corpus(const std::string& name) {
    Bytes bytes = qtest::read_file(std::string(QIMG_GIF_CORPUS) + "/" + name);
    EXPECT_FALSE(bytes.empty()) << name;
    return bytes;
}

inline int read_bytes(qImageProxy& proxy, const Bytes& bytes, qIMonitor* monitor = nullptr) {
    qMemoryR source(bytes.data(), bytes.size());
    return proxy.read_gif(&source, monitor);
}

// BGRA pixels filled with a pattern, so that untouched memory can be told from drawn memory.
struct Canvas {
    explicit Canvas(qSize s) : size(s), pixels(static_cast<size_t>(s.width) * s.height * 4) {
        for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<unsigned char>(i * 7);
    }
    int bind(qImageEdit& view) { return view.Bind(pixels.data(), size, size.width * 4, PT_BGRA32); }
    Rendering rows() const {
        Rendering out;
        const size_t stride = static_cast<size_t>(size.width) * 4;
        for (size_t at = 0; at < pixels.size(); at += stride)
            out.emplace_back(pixels.begin() + long(at), pixels.begin() + long(at + stride));
        return out;
    }
    qSize size;
    Bytes pixels;
};

// Every frame drawn onto a fresh canvas, followed by the palette and the transparent index.
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
        Bytes frame = std::move(canvas.pixels);
        if (const qIColormap* map = proxy.colormap()) {
            for (const qPixRA c : qtest::entries(*map))
                frame.insert(frame.end(), {c.blue, c.green, c.red, c.alpha});
        }
        frame.push_back(static_cast<unsigned char>(proxy.min_t_index()));
        out.push_back(std::move(frame));
    }
    if (animation) animation->seek_frame(0, 0);
    return out;
}

}  // namespace hardening
