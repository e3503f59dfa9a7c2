// qImageProxy::read_gif: files and memory into the facade.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "GifTestKit.h"
#include "common/TestKit.h"
#include "qimg/core/qMonitor.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/image/qIndexImage.h"

namespace {

using gif_test::Bytes;
using gif_test::GifBuilder;

// Data sub-blocks of one byte each, so that every frame takes several progress calls.
const int kBlocksPerFrame = static_cast<int>(gif_test::lzw_encode(Bytes(200, 1), 2).size());

Bytes three_frames(int screen_w = 10, int screen_h = 10, bool trailer = true) {
    GifBuilder b;
    b.header().screen(screen_w, screen_h, 1).color_table(4);
    for (int i = 0; i < 3; ++i) {
        b.descriptor(0, 0, 20, 10).pixels(2, Bytes(200, static_cast<unsigned char>(i)), 1);
    }
    if (trailer) b.trailer();
    return b.bytes();
}

class StopAt : public qIMonitor {
public:
    explicit StopAt(int n) : n_(n) {}
    bool progress(int, int, int, int) override { return ++calls_ != n_; }

private:
    int n_;
    int calls_ = 0;
};

int read_memory(qImageProxy* proxy, const Bytes& bytes, qIMonitor* monitor = nullptr) {
    qMemoryR source(bytes.data(), bytes.size());
    return proxy->read_gif(&source, monitor);
}

TEST(qImageProxyReadGifTest, FileAndMemory) {
    const Bytes bytes = three_frames();
    const std::string path = testing::TempDir() + "qimg_read_gif_test.gif";
    std::FILE* f = std::fopen(path.c_str(), "wb");
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);

    qImageProxy proxy;
    ASSERT_EQ(proxy.read_gif(path.c_str(), nullptr), 0);
    EXPECT_EQ(proxy.num_frames(), 3);
    EXPECT_TRUE(proxy.is_animation());
    EXPECT_EQ(proxy.current_leaf_type(), CT_INDEX_IMAGE);
    EXPECT_EQ(proxy.pixel_index(qPoint(3, 3)), 0);
    // A missing file leaves the held image in place.
    EXPECT_EQ(proxy.read_gif("/nonexistent/qimg.gif", nullptr), -3);
    EXPECT_EQ(proxy.read_gif(static_cast<const char*>(nullptr), nullptr), -3);
    EXPECT_EQ(proxy.read_gif(static_cast<qIFileR*>(nullptr), nullptr), -5);
    EXPECT_EQ(proxy.num_frames(), 3);
    std::remove(path.c_str());

    qImageProxy still;
    ASSERT_EQ(read_memory(&still, GifBuilder()
                                      .header()
                                      .screen(4, 4, 0)
                                      .color_table(2)
                                      .descriptor(0, 0, 4, 4)
                                      .pixels(2, Bytes(16, 1))
                                      .trailer()
                                      .bytes()),
              0);
    EXPECT_EQ(still.num_frames(), 1);
    EXPECT_FALSE(still.is_animation());
}

TEST(qImageProxyReadGifTest, PartialResults) {
    // No trailer after three complete frames: still a success.
    qImageProxy proxy;
    EXPECT_EQ(read_memory(&proxy, three_frames(10, 10, false)), 0);
    EXPECT_EQ(proxy.num_frames(), 3);
    // Cancelled during the second frame: 0 with one frame.
    ASSERT_GT(kBlocksPerFrame, 3);
    StopAt second(kBlocksPerFrame + 2);
    EXPECT_EQ(read_memory(&proxy, three_frames(), &second), 0);
    EXPECT_EQ(proxy.num_frames(), 1);
    // Cancelled during the first: 1, and the proxy is empty.
    StopAt first(2);
    EXPECT_EQ(read_memory(&proxy, three_frames(), &first), 1);
    EXPECT_FALSE(proxy.valid());
    EXPECT_EQ(proxy.num_frames(), 0);
    // A broken stream empties the proxy and reports the reader's code.
    ASSERT_EQ(read_memory(&proxy, three_frames()), 0);
    EXPECT_EQ(
        read_memory(&proxy,
                    GifBuilder().header().screen(4, 4).raw({0x21, 0xF9, 3, 0, 0, 0, 0, 0}).bytes()),
        -8);
    EXPECT_FALSE(proxy.valid());
    // A wrong signature leaves no screen at all, which counts as an empty screen without a
    // frame: -1.
    EXPECT_EQ(read_memory(&proxy, Bytes{'G', 'I', 'F', '8', '7', 'b', 0, 0, 0, 0, 0, 0, 0}), -1);
}

TEST(qImageProxyReadGifTest, EmptyScreenTakesTheFirstImageSize) {
    qImageProxy proxy;
    ASSERT_EQ(read_memory(&proxy, three_frames(0, 0)), 0);
    EXPECT_EQ(proxy.size(), qSize(20, 10));
    EXPECT_TRUE(proxy.valid());
    // An empty screen and no frame at all: -1.
    EXPECT_EQ(read_memory(&proxy, GifBuilder().header().screen(0, 0).trailer().bytes()), -1);
    EXPECT_FALSE(proxy.valid());
    // A screen with no frame: the reader's 0 stands, and the proxy holds an animation that
    // is not valid (nothing to draw).
    EXPECT_EQ(read_memory(&proxy, GifBuilder().header().screen(5, 5).trailer().bytes()), 0);
    EXPECT_FALSE(proxy.valid());
    EXPECT_EQ(proxy.num_frames(), 0);
}

}  // namespace

#ifdef QIMG_GIF_CORPUS
// Reading a file by name and reading its bytes from memory give the same animation.
TEST(qImageProxyReadGifTest, MemorySourceEqualsFileReading) {
    for (const auto& path : qtest::corpus_files()) {
        SCOPED_TRACE(path.filename().string());
        qImageProxy from_file, from_memory;
        ASSERT_EQ(from_file.read_gif(path.c_str(), nullptr), 0);
        ASSERT_EQ(read_memory(&from_memory, qtest::read_file(path)), 0);
        EXPECT_EQ(from_file.current_leaf_type(), CT_INDEX_IMAGE);
        EXPECT_EQ(from_file.is_animation(), from_file.num_frames() > 1);
        ASSERT_EQ(from_file.size(), from_memory.size());
        qIAnimation* a = from_file.animation();
        qIAnimation* b = from_memory.animation();
        ASSERT_EQ(a->num_frames(), b->num_frames());
        for (int i = 0; i < a->num_frames(); ++i) {
            ASSERT_EQ(a->seek_frame(i, 0), 0);
            ASSERT_EQ(b->seek_frame(i, 0), 0);
            EXPECT_EQ(a->frame_rect(), b->frame_rect());
            EXPECT_EQ(a->frame_delay(), b->frame_delay());
            EXPECT_EQ(a->frame_disposal(), b->frame_disposal());
            const auto* ia = dynamic_cast<const qIIndexImage*>(a->current_leaf());
            const auto* ib = dynamic_cast<const qIIndexImage*>(b->current_leaf());
            ASSERT_EQ(ia == nullptr, ib == nullptr);
            if (!ia) continue;
            const qSize size = ia->size();
            for (int y = 0; y < size.height; ++y) {
                ASSERT_EQ(std::memcmp(ia->pixel_address(y, 0), ib->pixel_address(y, 0),
                                      static_cast<size_t>(size.width)),
                          0)
                    << "frame " << i << " row " << y;
            }
        }
    }
}
#endif
