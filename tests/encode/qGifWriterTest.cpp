#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "common/TestKit.h"
#include "gif/GifTestKit.h"
#include "qimg/encode/qCallbackW.h"
#include "qimg/encode/qGifWriter.h"
#include "qimg/encode/qMemoryW.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"

namespace {

using qtest::Bytes;

// An n-entry palette of distinct colours and an image of random indices below n.
struct Picture {
    qColormap palette;
    qIndexImage image;
    Picture(int n, qSize size, std::mt19937& rng) {
        EXPECT_EQ(palette.create(n), 0);
        for (int i = 0; i < n; ++i) palette.set_color(i, qtest::rgba(i, 255 - i, i * 7 % 256));
        EXPECT_EQ(image.Create_buffer(size, PT_INDEX8), 0);
        EXPECT_EQ(image.set_colormap(&palette, -1), 0);
        for (int y = 0; y < size.height; ++y) {
            for (int x = 0; x < size.width; ++x) *image.pixel_address(y, x) = rng() % n;
        }
    }
};

Bytes indices_of(const qIIndexImage& image) {
    Bytes out;
    for (int y = 0; y < image.size().height; ++y) {
        out.insert(out.end(), image.pixel_address(y, 0),
                   image.pixel_address(y, 0) + image.size().width);
    }
    return out;
}

TEST(qGifWriterTest, EveryPaletteSizeAndShapeReadsBack) {
    std::mt19937 rng(1);
    const qSize shapes[] = {
        {1,   1  },
        {1,   37 },
        {300, 2  },
        {3,   300},
        {61,  45 }
    };
    for (int n = 1; n <= 256; ++n) {
        const qSize size = shapes[n % 5];
        const bool interlaced = n % 3 == 0, local = n % 2 == 0;
        SCOPED_TRACE(testing::Message() << n << " colours, " << size.width << " x " << size.height
                                        << (interlaced ? " interlaced" : ""));
        Picture picture(n, size, rng);
        qGifControl control;
        control.disposal = n % 4;
        control.delay = n * 3;
        control.transparent = n - 1;
        qMemoryW sink;
        qGifWriter writer;
        writer.set_deferred_clear(n % 5 == 1);
        const int loops = n == 1 ? 1 : 250 * n;  // high bytes from n = 2 on
        ASSERT_EQ(
            writer.begin(&sink, qSize(400, 400), local ? nullptr : &picture.palette, 0, loops), 0);
        ASSERT_EQ(
            writer.add_image(&picture.image, qPoint(n, 2 * n), local ? &picture.palette : nullptr,
                             &control, interlaced, nullptr),
            0);
        ASSERT_EQ(writer.finish(), 0);

        qGifAnimation animation;
        qMemoryR source(sink.data(), static_cast<size_t>(sink.size()));
        ASSERT_EQ(animation.read(&source, nullptr), 0);
        ASSERT_EQ(animation.num_frames(), 1);
        EXPECT_EQ(animation.loop_count(), loops);
        const qGifFrame* frame = animation.frame(0);
        EXPECT_EQ(frame->frame_rect(), qRect(qPoint(n, 2 * n), size));
        EXPECT_EQ(frame->interlaced(), interlaced);
        EXPECT_EQ(indices_of(*frame->image()), indices_of(picture.image));
        EXPECT_EQ(frame->control()->disposal, n % 4);
        EXPECT_EQ(frame->control()->delay, n * 3);
        EXPECT_EQ(frame->control()->transparent, n - 1);
        // The table is padded with black to a power of two, at least 2 entries.
        const qIColormap* map = frame->colormap();
        const int padded = n <= 2 ? 2 : 1 << (32 - __builtin_clz(static_cast<unsigned>(n - 1)));
        ASSERT_EQ(map->num_colors(), padded);
        for (int i = 0; i < padded; ++i) {
            const qPixRA want = i < n ? picture.palette.get_color(i) : qtest::rgba(0, 0, 0);
            EXPECT_EQ(map->get_color(i), want) << "entry " << i;
        }
    }
}

// A frame without pixels, which the browser rules keep, goes out as one transparent pixel: the
// file reads back by the strict rules and shows the same screen.
TEST(qGifWriterTest, AFrameWithoutPixelsShowsNothing) {
    const Bytes bytes =
        qtest::read_file(std::string(QIMG_GIF_CORPUS) + "/browser/gdk-pixbuf-image-zero-width.gif");
    qGifAnimation original, back;
    qMemoryR source(bytes.data(), bytes.size());
    ASSERT_EQ(original.read(&source, nullptr, qGifReadOptions{.browser_rules = true}), 0);
    qMemoryW sink;
    ASSERT_EQ(qGifWriter().write(&original, &sink, nullptr), 0);
    qMemoryR again(sink.data(), sink.size());
    ASSERT_EQ(back.read(&again, nullptr), 0);
    EXPECT_EQ(gif_test::composed_frames(back), gif_test::composed_frames(original));
}

TEST(qGifWriterTest, RefusesWhatTheFormatCannotHold) {
    std::mt19937 rng(3);
    Picture picture(5, qSize(4, 4), rng);  // a table of 8: indices up to 7 fit
    qColormap empty;
    ASSERT_EQ(empty.create_from_rgb(nullptr, 1), -5);  // and stays empty for the cases below
    qMemoryW sink;
    qGifWriter writer;
    EXPECT_EQ(writer.add_comment("x", 1), -5);  // no begin()
    const struct {
        bool sink;
        qSize screen;
        bool empty_map;
        int background, loops;
    } begins[] = {
        {false, {4, 4},     false, 0,   1    },
        {true,  {65536, 4}, false, 0,   1    },
        {true,  {4, 4},     true,  0,   1    },
        {true,  {4, 4},     false, 256, 1    },
        {true,  {4, 4},     false, 0,   0    },
        {true,  {4, 4},     false, 0,   65537},
    };
    for (const auto& b : begins) {
        EXPECT_EQ(writer.begin(b.sink ? &sink : nullptr, b.screen, b.empty_map ? &empty : nullptr,
                               b.background, b.loops),
                  -5);
    }
    ASSERT_EQ(writer.begin(&sink, qSize(4, 4), nullptr, -1, -1), 0);
    qGifControl control, bad;
    bad.transparent = 256;
    const struct {
        qPoint at;
        const qIColormap* map;
        const qGifControl* control;
        int index_at_3_3;
        int want;
    } cases[] = {
        {{0, 0},     nullptr,          &control, 7, -5}, // no colour table at all
        {{-1, 0},    &picture.palette, &control, 7, -5},
        {{0, 65536}, &picture.palette, &control, 7, -5},
        {{0, 0},     &picture.palette, &bad,     7, -5},
        {{0, 0},     &picture.palette, &control, 8, -5}, // index beyond the table
        {{0, 0},     &picture.palette, &control, 7, 0 }, // refusals left the stream intact
    };
    for (const auto& c : cases) {
        *picture.image.pixel_address(3, 3) = static_cast<unsigned char>(c.index_at_3_3);
        EXPECT_EQ(writer.add_image(&picture.image, c.at, c.map, c.control, false, nullptr), c.want);
    }
    EXPECT_EQ(writer.finish(), 0);
    EXPECT_EQ(writer.finish(), -5);  // closed
}

// A sink that takes `room` bytes and then fails.
int limited(void* user, const void*, int count) {
    int& room = *static_cast<int*>(user);
    const int taken = count <= room ? count : room;
    room -= taken;
    return taken;
}

TEST(qGifWriterTest, AFailingSinkOrMonitorStopsTheWriter) {
    std::mt19937 rng(4);
    Picture picture(200, qSize(300, 300), rng);  // ~100 kB: several staging flushes
    auto write = [&](qIFileW* sink, qIMonitor* monitor) {
        qGifWriter writer;
        int rc = writer.begin(sink, qSize(300, 300), &picture.palette, 0, -1);
        if (rc == 0) {
            rc = writer.add_image(&picture.image, qPoint(), nullptr, nullptr, true, monitor);
        }
        if (rc == 0) rc = writer.finish();
        // Whatever stopped it, the writer refuses to go on.
        if (rc != 0) {
            EXPECT_EQ(writer.add_comment("x", 1), -5);
        }
        return rc;
    };
    qMemoryW whole;
    ASSERT_EQ(write(&whole, nullptr), 0);
    for (int room : {0, 5, 16383, 16384, 50000, whole.size() - 1}) {
        SCOPED_TRACE(room);
        qCallbackW sink(limited, &room);
        EXPECT_EQ(write(&sink, nullptr), -3);
    }
    int room = whole.size();
    qCallbackW exact(limited, &room);
    EXPECT_EQ(write(&exact, nullptr), 0);
    qtest::StopAtRow stop(120);
    qMemoryW cut;
    EXPECT_EQ(write(&cut, &stop), 1);
}

}  // namespace
