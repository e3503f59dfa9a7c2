// Fuzz target for what a caller does with a GIF once it is read: the first 16 bytes choose the
// operations' arguments, the rest is the GIF. The animation is played by the frame composer;
// each frame is drawn at a chosen scale (any float, NaN and infinities included), offset and
// clip into a target of every pixel type, and blended through ScaledBlt with an opacity; copies
// of the frames are colour-reduced (generated and given palettes, any strengths), mapped with
// map_from_image, and asked for their representative colour.
//
// Frames of any declared size are read (memory follows the data); the work that visits every
// pixel of a frame (copies, reduction) is done on frames up to kMaxWorkPixels, and drawing goes
// into targets of at most 256 x 256, so every input stays quick.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/image/qFrameComposer.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"
#include "qimg/palette/qIColormap.h"
#include "qimg/raster/qImageAlias.h"
#include "qimg/raster/qImageEdit.h"

namespace {

void check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "animation invariant broken: %s\n", what);
        std::abort();
    }
}

// The codes drawing, composing, reducing and mapping document (no reading codes among them).
bool documented(int rc) {
    return rc == 0 || rc == 1 || rc == -1 || rc == -5 || rc == -6 || rc == -10;
}

constexpr int64_t kMaxWorkPixels = 1 << 20;
constexpr int kMaxTarget = 256;

// The argument bytes, read in turn (zeros once they run out).
struct Args {
    const uint8_t* p;
    size_t n;
    uint8_t byte() { return n > 0 ? (--n, *p++) : 0; }
    int signed_small() { return static_cast<int8_t>(byte()) * 2; }
    // Mostly ordinary factors, sometimes extreme or not finite.
    float scale() {
        static const float kSpecial[] = {1.0f,
                                         0.5f,
                                         2.0f,
                                         0.0f,
                                         -1.0f,
                                         1e-7f,
                                         1e30f,
                                         std::numeric_limits<float>::infinity(),
                                         -std::numeric_limits<float>::infinity(),
                                         std::numeric_limits<float>::quiet_NaN()};
        const uint8_t b = byte();
        return b < 10 ? kSpecial[b] : 0.05f + static_cast<float>(b) / 64.0f;
    }
    float strength() {
        const uint8_t b = byte();
        if (b == 0xFF) return std::numeric_limits<float>::infinity();
        if (b == 0xFE) return -std::numeric_limits<float>::infinity();
        if (b == 0xFD) return std::numeric_limits<float>::quiet_NaN();
        return static_cast<float>(b) / 128.0f - 0.25f;
    }
};

int clamp_canvas(int n) {
    return n < 1 ? 0 : (n > kMaxTarget ? kMaxTarget : n);
}

const qPixelType kTargetTypes[] = {PT_BGRA32, PT_BGR24,  PT_GRAY_ALPHA16, PT_GRAY8,
                                   PT_ALPHA8, PT_INDEX8, PT_INDEX16};

uint32_t sum_of(const std::vector<unsigned char>& bytes) {
    uint32_t sum = 0;
    for (unsigned char b : bytes) sum += b;
    return sum;
}

// Draws `frame` into a fresh target of a chosen type and size, exactly sized so that a write
// outside it is caught.
uint32_t draw_frame(const qIComponent* frame, Args& args) {
    const qPixelType type = kTargetTypes[args.byte() % 7];
    const qSize size(1 + args.byte() % kMaxTarget, 1 + args.byte() % kMaxTarget);
    const int stride = row_bytes(size.width, type);
    std::vector<unsigned char> pixels(static_cast<size_t>(stride) * size.height, 0x5A);
    qImageEdit target;
    if (target.Bind(pixels.data(), size, stride, type) != 0) return 0;
    const qRect clip(args.signed_small(), args.signed_small(), args.byte(), args.byte());
    const qPoint point(args.signed_small(), args.signed_small());
    const float sx = args.scale(), sy = args.scale();
    const int rc = frame->Draw(&target, clip, point, sx, sy, args.byte() & 1);
    check(documented(rc), "Draw result");
    return sum_of(pixels) + static_cast<uint32_t>(rc);
}

// The frame's pixels blended into a true-colour target with an opacity.
uint32_t blend_frame(const qGifFrame* frame, Args& args) {
    if (frame->image() == nullptr) return 0;
    qImageAlias source;
    if (source.Bind(frame->image()) != 0) return 0;
    const qSize size(1 + args.byte() % 64, 1 + args.byte() % 64);
    std::vector<unsigned char> pixels(static_cast<size_t>(size.width) * size.height * 4, 0x33);
    qImageEdit target;
    check(target.Bind(pixels.data(), size, size.width * 4, PT_BGRA32) == 0, "bind");
    const qBltMode mode = static_cast<qBltMode>(1 + args.byte() % 3);
    const int rc = target.ScaledBlt(qRect(size), &source, qPoint(args.byte(), args.byte()),
                                    args.scale(), args.scale(), 1, mode, args.byte(), nullptr);
    check(documented(rc), "ScaledBlt result");
    return sum_of(pixels);
}

// A copy of the frame reduced in colour, mapped and asked for its representative colour.
uint32_t reduce_frame(const qGifFrame* frame, const qIColormap* global, Args& args) {
    const qIndexImage* image = frame->image();
    if (image == nullptr || int64_t{image->size().width} * image->size().height > kMaxWorkPixels)
        return 0;
    qGifFrame copy;
    if (copy.copy_from(frame, global) != 0) return 0;
    const bool opaque = args.byte() & 1;
    const float color = args.strength(), alpha = args.strength();
    const uint8_t how = args.byte();
    int rc;
    if (how & 1) {
        rc = copy.quantize_colors(1 + args.byte(), static_cast<qCmapType>(how / 2 % 4),
                                  static_cast<qQuantizer>(how / 8 % 2), opaque, color, alpha,
                                  args.byte(), nullptr);
    } else {
        rc = copy.quantize_colors(frame->colormap(), static_cast<qQuantizer>(how / 8 % 2), opaque,
                                  color, alpha, nullptr);
    }
    check(documented(rc), "quantize_colors result");
    const qPixRA rep = copy.get_rep_color();
    uint32_t sum = rep.red + rep.green + rep.blue + rep.alpha;
    // map_from_image: the original frame's pixels into an index image on the copy's palette.
    if (copy.colormap() != nullptr) {
        qIndexImage mapped;
        if (mapped.Create_buffer(image->size(), PT_INDEX8) == 0 &&
            mapped.set_colormap(copy.colormap(), -1) == 0) {
            const int mapped_rc = mapped.map_from_image(image, static_cast<qQuantizer>(how >> 7),
                                                        opaque, color, alpha, nullptr);
            check(documented(mapped_rc), "map_from_image result");
            sum += static_cast<uint32_t>(mapped.pixel_index(qPoint(0, 0)));
        }
    }
    return sum + static_cast<uint32_t>(rc);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 16) return 0;
    Args args{data, 16};
    qGifAnimation animation;
    qMemoryR source(data + 16, size - 16);
    if (animation.read(&source, nullptr) != 0 || !animation.valid()) return 0;
    uint32_t sum = 0;

    // The composer plays the animation onto a canvas of at most 256 x 256: a smaller canvas
    // than the screen clips the frames.
    const qSize screen = animation.size();
    const qSize canvas_size(clamp_canvas(screen.width), clamp_canvas(screen.height));
    std::vector<unsigned char> canvas(static_cast<size_t>(canvas_size.width) * canvas_size.height *
                                      4);
    qImageEdit view;
    if (!canvas.empty() &&
        view.Bind(canvas.data(), canvas_size, canvas_size.width * 4, PT_BGRA32) == 0) {
        qFrameComposer composer;
        check(composer.begin(&animation, &view) == 0, "begin on a valid animation");
        const int frames = animation.num_frames();
        const int rc = composer.compose_to(args.byte() % frames, nullptr);
        check(documented(rc), "compose_to result");
        check(rc != 0 || composer.composed_frame() >= 0, "composed frame after success");
        sum += sum_of(canvas);
    }

    for (int f = 0; f < animation.num_frames() && f < 4; ++f) {
        const qGifFrame* frame = animation.frame(f);
        sum += draw_frame(frame, args);
        sum += blend_frame(frame, args);
        sum += reduce_frame(frame, animation.global_colormap(), args);
    }
    volatile uint32_t sink = sum;
    (void)sink;
    return 0;
}
