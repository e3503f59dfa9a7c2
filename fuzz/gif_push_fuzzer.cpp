// Fuzz target for the push reader: the input after its first 4 bytes is pushed in pieces whose
// sizes the first 4 bytes give in turn (1 to 256 bytes; bit 7 of byte 0 also turns the browser
// rules on, bit 7 of byte 1 a small memory budget), then ended, and compared with the pull
// reader on the same bytes: the same status, the same frames field by field and index by
// index, comments and loop count.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qGifPushReader.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"

namespace {

void check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "push reader differs from the pull reader: %s\n", what);
        std::abort();
    }
}

bool same_map(const qColormap* a, const qColormap* b) {
    if (a == nullptr || b == nullptr) return a == b;
    if (a->num_colors() != b->num_colors()) return false;
    for (int i = 0; i < a->num_colors(); ++i) {
        const qPixRA x = a->get_color(i), y = b->get_color(i);
        if (std::memcmp(&x, &y, sizeof x) != 0) return false;
    }
    return true;
}

void compare_frames(const qGifFrame& a, const qGifFrame& b) {
    const qRect r = a.frame_rect();
    const qRect s = b.frame_rect();
    check(r.x == s.x && r.y == s.y && r.width == s.width && r.height == s.height, "rectangle");
    check(a.frame_delay() == b.frame_delay() && a.frame_disposal() == b.frame_disposal(), "timing");
    check((a.control() == nullptr) == (b.control() == nullptr), "control record");
    check(same_map(a.local_colormap(), b.local_colormap()), "local colour map");
    check((a.image() == nullptr) == (b.image() == nullptr), "pixels");
    if (a.image() == nullptr) return;
    check(a.image()->transparent_index() == b.image()->transparent_index(), "transparent index");
    for (int y = 0; y < r.height; ++y) {
        check(std::memcmp(a.image()->pixel_address(y, 0), b.image()->pixel_address(y, 0),
                          static_cast<size_t>(r.width)) == 0,
              "indices");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4 || size - 4 > 1 << 20) return 0;
    qGifReadOptions options;
    options.browser_rules = (data[0] & 0x80) != 0;
    // Limits keep a few bytes from costing gigabytes twice (the facade's target covers that),
    // and try the limit paths on both readers.
    options.max_frame_pixels = int64_t{1} << 24;
    options.max_total_bytes = (data[1] & 0x80) != 0 ? int64_t{1} << 16 : int64_t{1} << 26;
    const uint8_t* gif = data + 4;
    const int length = static_cast<int>(size - 4);

    qGifAnimation pulled;
    qMemoryR source(gif, static_cast<size_t>(length));
    const int pull_status = pulled.read(&source, nullptr, options);

    qGifPushReader reader;
    if (reader.begin(options, nullptr) != 0) return 0;
    int previous = 0;
    for (int at = 0, turn = 0; at < length; ++turn) {
        const int piece = (data[turn % 4] & 0x7F) * 2 + 1 + (turn & 1);
        const int n = piece < length - at ? piece : length - at;
        reader.push(gif + at, n);
        at += n;
        check(reader.complete_frames() >= previous, "complete frames went down");
        previous = reader.complete_frames();
    }
    check(reader.end() == pull_status, "status");
    qGifAnimation& pushed = *reader.animation();
    check(pushed.num_frames() == pulled.num_frames(), "frame count");
    check(
        pushed.size().width == pulled.size().width && pushed.size().height == pulled.size().height,
        "screen");
    check(pushed.loop_count() == pulled.loop_count(), "loop count");
    check(pushed.num_comments() == pulled.num_comments(), "comments");
    for (int i = 0; i < pushed.num_comments(); ++i)
        check(pushed.comment(i)->count() == pulled.comment(i)->count(), "comment length");
    check(same_map(pushed.global_colormap(), pulled.global_colormap()), "global colour map");
    for (int f = 0; f < pushed.num_frames(); ++f)
        compare_frames(*pushed.frame(f), *pulled.frame(f));
    return 0;
}
