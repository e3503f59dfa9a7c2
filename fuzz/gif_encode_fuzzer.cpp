// Fuzz target for the GIF writer and its LZW encoder. Byte 0 picks the palette size (1..256),
// byte 1 the width (1..64), byte 2 flags (interlaced, deferred clear, local table, a graphic
// control); the rest are the indices, taken modulo the palette size and repeated to fill the
// image (the height is what the rest needs, 1..64 rows). The image is written, read back and
// must give the same indices, rectangle, flags and control values. With flag 128 the rest is a
// GIF instead: whatever the reader keeps of it (browser rules, frames without pixels included)
// is written again as read, and reading that back gives the same frames.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "qimg/core/qStatus.h"
#include "qimg/encode/qGifWriter.h"
#include "qimg/encode/qMemoryW.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"

namespace {

void check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "gif encode round trip broken: %s\n", what);
        std::abort();
    }
}

// Rewrites a hostile GIF as read: refused only as bad arguments (nothing to write, a frame
// without colours), else every frame with pixels comes back with its rectangle and indices.
void rewrite_as_read(const uint8_t* data, size_t size) {
    qGifReadOptions options;
    options.browser_rules = true;
    options.max_total_bytes = 1 << 24;  // writing is slower than reading declared pixels
    qGifAnimation animation;
    qMemoryR source(data, size);
    animation.read(&source, nullptr, options);
    qMemoryW sink;
    qGifWriter writer;
    const int rc = writer.write(&animation, &sink, nullptr);
    check(rc == 0 || rc == ST_BAD_ARGUMENT, "status of a rewrite");
    if (rc != 0) return;
    qGifAnimation again;
    qMemoryR written(sink.data(), static_cast<size_t>(sink.size()));
    check(again.read(&written, nullptr, options) == 0, "rewrite read back");
    check(again.num_frames() == animation.num_frames(), "rewritten frame count");
    for (int f = 0; f < again.num_frames(); ++f) {
        const qGifFrame* before = animation.frame(f);
        const qGifFrame* after = again.frame(f);
        if (before->image() == nullptr) continue;  // written as one transparent pixel
        const qRect r = before->frame_rect();
        check(after->frame_rect() == r && after->image() != nullptr, "rewritten rectangle");
        for (int y = 0; y < r.height; ++y) {
            for (int x = 0; x < r.width; ++x) {
                check(*after->image()->pixel_address(y, x) == *before->image()->pixel_address(y, x),
                      "rewritten index");
            }
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    if (data[2] & 128) {
        rewrite_as_read(data + 3, size - 3);
        return 0;
    }
    const int colors = data[0] + 1;
    const int width = data[1] % 64 + 1;
    const uint8_t flags = data[2];
    const uint8_t* indices = data + 3;
    const size_t count = size - 3;
    const size_t rows = (count + width - 1) / width;
    const int height = rows > 64 ? 64 : static_cast<int>(rows);
    qColormap palette;
    check(palette.create(colors) == 0, "palette");
    for (int i = 0; i < colors; ++i) {
        palette.set_color(i, qPixRA{uint8_t(i), uint8_t(i * 3), uint8_t(255 - i), 255});
    }
    qIndexImage image;
    check(image.Create_buffer(qSize(width, height), PT_INDEX8) == 0, "image");
    check(image.set_colormap(&palette, -1) == 0, "image map");
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            *image.pixel_address(y, x) = indices[(size_t(y) * width + x) % count] % colors;
        }
    }
    const bool interlaced = flags & 1, local = flags & 4, with_control = flags & 8;
    qGifControl control;
    control.disposal = flags >> 5;
    control.delay = data[1] * 7;
    control.transparent = flags & 16 ? data[3] : -1;

    qMemoryW sink;
    qGifWriter writer;
    writer.set_deferred_clear(flags & 2);
    check(writer.begin(&sink, qSize(width + 3, height), local ? nullptr : &palette, 0, 1) == 0,
          "begin");
    check(writer.add_image(&image, qPoint(3, 0), local ? &palette : nullptr,
                           with_control ? &control : nullptr, interlaced, nullptr) == 0,
          "add_image");
    check(writer.finish() == 0, "finish");

    qGifAnimation animation;
    qMemoryR source(sink.data(), static_cast<size_t>(sink.size()));
    check(animation.read(&source, nullptr) == 0, "read back");
    check(animation.num_frames() == 1, "one frame");
    const qGifFrame* frame = animation.frame(0);
    check(frame->frame_rect() == qRect(3, 0, width, height), "rectangle");
    check(frame->interlaced() == interlaced, "interlace flag");
    check((frame->local_colormap() != nullptr) == local, "local table");
    check((frame->control() != nullptr) == with_control, "control present");
    if (with_control) {
        check(frame->control()->disposal == control.disposal &&
                  frame->control()->delay == control.delay &&
                  frame->control()->transparent == control.transparent,
              "control values");
    }
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            check(*frame->image()->pixel_address(y, x) == *image.pixel_address(y, x), "index");
        }
    }
    return 0;
}
