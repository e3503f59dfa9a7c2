// Every file of the corpus (written by ImageMagick, Pillow, gifsicle and giflib) read by qimg
// and by giflib's DGifSlurp: screen, global map, every frame's indices, offset, size, delay,
// disposal and transparent index, the loop count and the comments must agree exactly.
#include <gtest/gtest.h>

#ifdef QIMG_HAVE_GIFLIB
#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "GifTestKit.h"
#include "common/TestKit.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qGifWriter.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/gif/qMemoryW.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"

namespace {

using gif_test::MemoryInput;
using gif_test::read_memory;
using qtest::Bytes;
using qtest::corpus_files;
using qtest::read_file;

// What giflib reports, in the terms qimg uses.
struct ReferenceFrame {
    int left, top, width, height;
    Bytes indices;  // rows in display order
    bool has_control = false;
    int delay = 0, disposal = 0, transparent = -1;
    bool interlaced = false;
    bool local_table = false;
};
struct Reference {
    int width = 0, height = 0, background = -1;
    std::vector<unsigned char> global_rgb;
    int loop_count = 1;
    std::vector<std::string> comments;
    std::vector<ReferenceFrame> frames;
};

// Walks the extension blocks giflib saved before one image (or after the last one) the way a
// block-by-block reader meets them. giflib hands an image the last graphic control saved before
// it; qimg applies a graphic control only to an image that follows it directly, so the walk
// drops a control that another extension follows.
void walk_extensions(const ExtensionBlock* blocks, int count, Reference* ref,
                     ReferenceFrame* frame) {
    bool looping_app = false;
    for (int i = 0; i < count; ++i) {
        const ExtensionBlock& b = blocks[i];
        if (b.Function == CONTINUE_EXT_FUNC_CODE) continue;  // data of the block before
        if (frame != nullptr) {
            // Any other block between a graphic control and its image cancels the control.
            // ImageMagick, for one, writes the looping extension between the first frame's
            // graphic control and its image, so that frame has no control here.
            frame->has_control = false;
            frame->delay = frame->disposal = 0;
            frame->transparent = -1;
        }
        if (b.Function == GRAPHICS_EXT_FUNC_CODE && frame != nullptr && b.ByteCount == 4) {
            frame->has_control = true;
            frame->disposal = (b.Bytes[0] >> 2) & 7;
            frame->delay = b.Bytes[1] | (b.Bytes[2] << 8);
            frame->transparent = (b.Bytes[0] & 1) ? b.Bytes[3] : -1;
        } else if (b.Function == COMMENT_EXT_FUNC_CODE) {
            std::string text(reinterpret_cast<const char*>(b.Bytes), b.ByteCount);
            for (int j = i + 1; j < count && blocks[j].Function == CONTINUE_EXT_FUNC_CODE; ++j) {
                text.append(reinterpret_cast<const char*>(blocks[j].Bytes), blocks[j].ByteCount);
            }
            ref->comments.push_back(text);
        } else if (b.Function == APPLICATION_EXT_FUNC_CODE) {
            looping_app = b.ByteCount == 11 && std::memcmp(b.Bytes, "NETSCAPE2.0", 11) == 0;
            if (looping_app && i + 1 < count && blocks[i + 1].Function == CONTINUE_EXT_FUNC_CODE) {
                const ExtensionBlock& d = blocks[i + 1];
                if (d.ByteCount == 3 && d.Bytes[0] == 1) {
                    const int n = d.Bytes[1] | (d.Bytes[2] << 8);
                    ref->loop_count = n == 0 ? -1 : n + 1;
                }
            }
        }
    }
}

bool slurp(const Bytes& bytes, Reference* ref) {
    MemoryInput input{&bytes, 0};
    int error = 0;
    GifFileType* gif = DGifOpen(&input, read_memory, &error);
    if (gif == nullptr) return false;
    if (DGifSlurp(gif) != GIF_OK) {
        DGifCloseFile(gif, &error);
        return false;
    }
    ref->width = gif->SWidth;
    ref->height = gif->SHeight;
    ref->background = gif->SBackGroundColor;
    if (gif->SColorMap != nullptr) {
        for (int i = 0; i < gif->SColorMap->ColorCount; ++i) {
            const GifColorType& c = gif->SColorMap->Colors[i];
            ref->global_rgb.insert(ref->global_rgb.end(), {c.Red, c.Green, c.Blue});
        }
    }
    for (int i = 0; i < gif->ImageCount; ++i) {
        const SavedImage& image = gif->SavedImages[i];
        ReferenceFrame frame;
        frame.left = image.ImageDesc.Left;
        frame.top = image.ImageDesc.Top;
        frame.width = image.ImageDesc.Width;
        frame.height = image.ImageDesc.Height;
        frame.interlaced = image.ImageDesc.Interlace;
        frame.local_table = image.ImageDesc.ColorMap != nullptr;
        frame.indices.assign(image.RasterBits,
                             image.RasterBits + static_cast<size_t>(frame.width) * frame.height);
        walk_extensions(image.ExtensionBlocks, image.ExtensionBlockCount, ref, &frame);
        ref->frames.push_back(frame);
    }
    walk_extensions(gif->ExtensionBlocks, gif->ExtensionBlockCount, ref, nullptr);
    DGifCloseFile(gif, &error);
    return true;
}

TEST(qGifCorpusTest, EveryFrameMatchesGiflib) {
    const auto files = corpus_files();
    ASSERT_GE(files.size(), 30u) << "corpus missing in " << QIMG_GIF_CORPUS;
    int frames_compared = 0;
    int controls_compared = 0;
    for (const auto& path : files) {
        SCOPED_TRACE(path.filename().string());
        const Bytes bytes = read_file(path);
        Reference ref;
        ASSERT_TRUE(slurp(bytes, &ref));

        qGifAnimation animation;
        qMemoryR source(bytes.data(), bytes.size());
        ASSERT_EQ(animation.read(&source, nullptr), 0);
        EXPECT_EQ(animation.size(), qSize(ref.width, ref.height));
        EXPECT_EQ(animation.background(), ref.background);
        EXPECT_EQ(animation.loop_count(), ref.loop_count);
        ASSERT_EQ(animation.num_comments(), static_cast<int>(ref.comments.size()));
        for (int i = 0; i < animation.num_comments(); ++i) {
            const qObjArray<char>* c = animation.comment(i);
            EXPECT_EQ(std::string(c->data() ? c->data() : "", c->count()), ref.comments[i]);
        }
        const qColormap* global = animation.global_colormap();
        ASSERT_EQ(global != nullptr, !ref.global_rgb.empty());
        if (global != nullptr) {
            ASSERT_EQ(global->num_colors() * 3, static_cast<int>(ref.global_rgb.size()));
            for (int i = 0; i < global->num_colors(); ++i) {
                const qPixRA c = global->get_color(i);
                EXPECT_EQ(c.red, ref.global_rgb[3 * i]);
                EXPECT_EQ(c.green, ref.global_rgb[3 * i + 1]);
                EXPECT_EQ(c.blue, ref.global_rgb[3 * i + 2]);
                EXPECT_EQ(c.alpha, 255);
            }
        }

        ASSERT_EQ(animation.num_frames(), static_cast<int>(ref.frames.size()));
        for (int f = 0; f < animation.num_frames(); ++f) {
            SCOPED_TRACE(testing::Message() << "frame " << f);
            const ReferenceFrame& want = ref.frames[f];
            const qGifFrame* frame = animation.frame(f);
            ASSERT_TRUE(frame->valid());
            EXPECT_EQ(frame->frame_rect(), qRect(want.left, want.top, want.width, want.height));
            EXPECT_EQ(frame->interlaced(), want.interlaced);
            EXPECT_EQ(frame->local_colormap() != nullptr, want.local_table);
            ASSERT_EQ(frame->control() != nullptr, want.has_control);
            EXPECT_EQ(frame->frame_delay(), want.delay * 10);
            EXPECT_EQ(frame->frame_disposal(), want.disposal);
            if (frame->control() != nullptr) {
                EXPECT_EQ(frame->control()->transparent, want.transparent);
            }
            const int colors = frame->colormap()->num_colors();
            const int image_transparent =
                want.transparent >= 0 && want.transparent < colors ? want.transparent : -1;
            EXPECT_EQ(frame->image()->transparent_index(), image_transparent);
            // Indices, row by row; report the first difference only.
            int differences = 0;
            for (int y = 0; y < want.height && differences == 0; ++y) {
                const unsigned char* row = frame->image()->pixel_address(y, 0);
                for (int x = 0; x < want.width; ++x) {
                    const unsigned char expected =
                        want.indices[static_cast<size_t>(y) * want.width + x];
                    if (row[x] != expected) {
                        ADD_FAILURE() << "index at (" << x << ", " << y << ") is " << int(row[x])
                                      << ", giflib says " << int(expected);
                        ++differences;
                        break;
                    }
                }
            }
            ++frames_compared;
            if (want.has_control) ++controls_compared;
        }
    }
    std::printf("compared %d frames (%d with graphic control) of %zu files with giflib\n",
                frames_compared, controls_compared, files.size());
    EXPECT_GT(controls_compared, 30);
}

// Re-encoding: every corpus file read, written and read again gives the same animation: the same
// composed frames in qimg, and the same report from giflib (indices, rectangles, controls,
// tables, comments, loop count) for both files.
TEST(qGifCorpusTest, ReencodedFilesReadBackTheSame) {
    for (const auto& path : corpus_files()) {
        SCOPED_TRACE(path.filename().string());
        const Bytes bytes = read_file(path);
        qGifAnimation original;
        qMemoryR source(bytes.data(), bytes.size());
        ASSERT_EQ(original.read(&source, nullptr), 0);
        qMemoryW sink;
        ASSERT_EQ(qGifWriter().write(&original, &sink, nullptr), 0);
        const Bytes written(sink.data(), sink.data() + sink.size());
        qGifAnimation copy;
        qMemoryR again(written.data(), written.size());
        ASSERT_EQ(copy.read(&again, nullptr), 0);

        // giflib below compares the fields frame by frame; what it does not report:
        EXPECT_EQ(copy.size(), original.size());
        EXPECT_EQ(copy.background(), original.background());
        EXPECT_EQ(gif_test::composed_frames(copy), gif_test::composed_frames(original));

        Reference before, after;
        ASSERT_TRUE(slurp(bytes, &before));
        ASSERT_TRUE(slurp(written, &after));
        EXPECT_EQ(after.loop_count, before.loop_count);
        EXPECT_EQ(after.comments, before.comments);
        EXPECT_EQ(after.global_rgb, before.global_rgb);
        ASSERT_EQ(after.frames.size(), before.frames.size());
        for (size_t f = 0; f < after.frames.size(); ++f) {
            const ReferenceFrame& a = before.frames[f];
            const ReferenceFrame& b = after.frames[f];
            EXPECT_EQ(b.indices, a.indices) << "giflib, frame " << f;
            EXPECT_EQ(std::tie(b.left, b.top, b.width, b.height, b.delay, b.disposal, b.transparent,
                               b.interlaced, b.local_table),
                      std::tie(a.left, a.top, a.width, a.height, a.delay, a.disposal, a.transparent,
                               a.interlaced, a.local_table))
                << "giflib, frame " << f;
        }
    }
}

}  // namespace
#endif
