#include <gtest/gtest.h>

#include <vector>

#include "GifTestKit.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"
#include "qimg/raster/qImageEdit.h"

namespace {

using gif_test::Bytes;
using gif_test::GifBuilder;

// A frame read from an image block (after its 0x2C) with the given global map and control.
int read_frame(qGifFrame* frame, const GifBuilder& image, const qIColormap* global,
               const qGifControl* control) {
    const Bytes& bytes = image.bytes();
    qMemoryR source(bytes.data() + 1, bytes.size() - 1);  // past the introducer
    return frame->read(&source, global, control, nullptr);
}

// 3 x 2 at offset (10, 20): indices 0 1 2 / 3 4 5.
GifBuilder image_block(int table_code = -1) {
    GifBuilder b;
    b.descriptor(10, 20, 3, 2, table_code);
    if (table_code >= 0) b.color_table(2 << table_code);
    return b.pixels(3, {0, 1, 2, 3, 4, 5});
}

class qGifFrameTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(global_.create(8), 0);
        for (int i = 0; i < 8; ++i) {
            global_.set_color(i, qPixRA{static_cast<unsigned char>(i), 0, 0, 255});
        }
    }
    qColormap global_;
};

TEST_F(qGifFrameTest, GeometryAndQueries) {
    qGifFrame frame;
    qGifControl control;
    control.delay = 7;
    control.disposal = 3;
    control.transparent = 4;
    ASSERT_EQ(read_frame(&frame, image_block(), &global_, &control), 0);
    EXPECT_EQ(frame.size(), qSize(13, 22));
    EXPECT_EQ(frame.frame_rect(), qRect(10, 20, 3, 2));
    EXPECT_EQ(frame.offset(), qPoint(10, 20));
    EXPECT_EQ(frame.pixel_index(qPoint(12, 21)), 5);
    EXPECT_EQ(frame.pixel_index(qPoint(9, 20)), -1);
    EXPECT_EQ(frame.frame_delay(), 70);
    EXPECT_EQ(frame.frame_disposal(), 3);
    EXPECT_EQ(frame.min_t_index(), 4);
    EXPECT_EQ(frame.alpha_hint(), AT_BILEVEL);
    EXPECT_EQ(frame.current_leaf(), static_cast<const qIComponent*>(frame.image()));
    EXPECT_EQ(frame.colormap(), &global_);
    EXPECT_EQ(frame.component_type(), CT_GIF_FRAME);
    EXPECT_EQ(frame.set_screen_size(qSize(5, 5)), -100);
    // The control record is the frame's own copy.
    control.delay = 1;
    EXPECT_EQ(frame.frame_delay(), 70);

    qGifFrame empty;
    EXPECT_FALSE(empty.valid());
    EXPECT_EQ(empty.size(), qSize());
    EXPECT_EQ(empty.frame_delay(), 0);
    EXPECT_EQ(empty.frame_disposal(), 0);
    EXPECT_EQ(empty.min_t_index(), -1);
    EXPECT_EQ(empty.current_leaf(), nullptr);
    EXPECT_EQ(empty.Draw(nullptr, qRect(), qPoint(), 1.0f, 1.0f, false), -5);
    EXPECT_FALSE(empty.set_ex_transparent(0));
    EXPECT_EQ(empty.clone(), nullptr);
}

TEST_F(qGifFrameTest, DrawsAtItsOffsetWithTransparency) {
    qGifFrame frame;
    qGifControl control;
    control.transparent = 1;
    ASSERT_EQ(read_frame(&frame, image_block(), &global_, &control), 0);
    ASSERT_EQ(frame.set_offset(qPoint(2, 1)), 0);
    std::vector<qPixRA> pixels(8 * 4, qPixRA{9, 9, 9, 255});
    qImageEdit view;
    ASSERT_EQ(
        view.Bind(reinterpret_cast<unsigned char*>(pixels.data()), qSize(8, 4), 8 * 4, PT_BGRA32),
        0);
    ASSERT_EQ(frame.Draw(&view, qRect(0, 0, 8, 4), qPoint(0, 0), 1.0f, 1.0f, false), 0);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 8; ++x) {
            SCOPED_TRACE(testing::Message() << x << ", " << y);
            const int ix = x - 2, iy = y - 1;
            const bool inside = ix >= 0 && ix < 3 && iy >= 0 && iy < 2;
            const int index = inside ? iy * 3 + ix : -1;
            const qPixRA expected = index >= 0 && index != 1
                                        ? qPixRA{static_cast<unsigned char>(index), 0, 0, 255}
                                        : qPixRA{9, 9, 9, 255};
            EXPECT_EQ(pixels[static_cast<size_t>(y) * 8 + x], expected);
        }
    }
    // At scale 2 the offset shifts the point by 2 x offset; tiny factors are refused.
    EXPECT_EQ(frame.Draw(&view, qRect(0, 0, 8, 4), qPoint(4, 2), 2.0f, 2.0f, true), 0);
    EXPECT_EQ(pixels[0], (qPixRA{0, 0, 0, 255}));  // image pixel (0, 0), drawn opaque
    EXPECT_EQ(frame.Draw(&view, qRect(0, 0, 8, 4), qPoint(), 0.0000001f, 1.0f, false), -5);
    EXPECT_EQ(frame.Draw(&view, qRect(0, 0, 8, 4), qPoint(), 1.0f, 0.0f, false), -5);
}

TEST_F(qGifFrameTest, PaletteAndTransparencyEdits) {
    qGifFrame global_frame;
    ASSERT_EQ(read_frame(&global_frame, image_block(), &global_, nullptr), 0);
    EXPECT_FALSE(global_frame.set_color(0, qPixRA{1, 2, 3, 255}));  // no table of its own
    EXPECT_EQ(global_frame.control(), nullptr);
    EXPECT_TRUE(global_frame.set_transparent(2));  // creates a control record
    ASSERT_NE(global_frame.control(), nullptr);
    EXPECT_EQ(global_frame.control()->transparent, 2);
    // The decoded image keeps its own transparent index (none here).
    EXPECT_EQ(global_frame.min_t_index(), -1);
    EXPECT_TRUE(global_frame.set_ex_transparent(-1));
    EXPECT_EQ(global_frame.control()->transparent, -1);
    EXPECT_TRUE(global_frame.set_ex_transparent(3));
    EXPECT_FALSE(global_frame.set_ex_transparent(8));    // one past the map: refused...
    EXPECT_EQ(global_frame.control()->transparent, -1);  // ...after clearing
    EXPECT_FALSE(global_frame.set_transparent(-1));

    qGifFrame local_frame;
    qGifControl control;
    control.transparent = 0;
    ASSERT_EQ(read_frame(&local_frame, image_block(2), &global_, &control), 0);
    ASSERT_NE(local_frame.local_colormap(), nullptr);
    EXPECT_EQ(local_frame.colormap(), local_frame.local_colormap());
    EXPECT_TRUE(local_frame.set_color(5, qPixRA{1, 2, 3, 4}));
    EXPECT_EQ(local_frame.colormap()->get_color(5), (qPixRA{1, 2, 3, 4}));
    EXPECT_FALSE(local_frame.set_color(8, qPixRA{}));
    EXPECT_FALSE(local_frame.set_color(-1, qPixRA{}));
    // A transparent index is already set: set_transparent refuses.
    EXPECT_FALSE(local_frame.set_transparent(3));
    local_frame.set_opaque_all();
    EXPECT_EQ(local_frame.control()->transparent, -1);
}

TEST_F(qGifFrameTest, CopyAndClone) {
    qGifFrame global_frame;
    qGifControl control;
    control.delay = 4;
    control.transparent = 2;
    ASSERT_EQ(read_frame(&global_frame, image_block(), &global_, &control), 0);
    EXPECT_EQ(global_frame.clone(), nullptr);  // the global map does not travel alone
    qGifFrame copy;
    EXPECT_EQ(copy.copy_from(&global_frame, nullptr), -9);
    EXPECT_FALSE(copy.valid());
    qColormap other;
    ASSERT_EQ(other.copy_from(&global_), 0);
    ASSERT_EQ(copy.copy_from(&global_frame, &other), 0);
    EXPECT_EQ(copy.colormap(), &other);
    EXPECT_EQ(copy.frame_rect(), global_frame.frame_rect());
    EXPECT_EQ(copy.frame_delay(), 40);
    EXPECT_EQ(copy.min_t_index(), 2);
    EXPECT_EQ(copy.pixel_index(qPoint(11, 21)), 4);
    EXPECT_NE(copy.control(), global_frame.control());
    EXPECT_EQ(copy.copy_from(nullptr, &other), -5);
    EXPECT_FALSE(copy.valid());

    qGifFrame local_frame;
    ASSERT_EQ(read_frame(&local_frame, image_block(1), nullptr, nullptr), 0);
    qIComponent* clone = local_frame.clone();
    ASSERT_NE(clone, nullptr);
    auto* cloned = dynamic_cast<qGifFrame*>(clone);
    ASSERT_NE(cloned, nullptr);
    EXPECT_NE(cloned->local_colormap(), local_frame.local_colormap());
    EXPECT_EQ(cloned->pixel_index(qPoint(12, 20)), 2);
    EXPECT_TRUE(cloned->set_color(0, qPixRA{7, 7, 7, 7}));
    EXPECT_NE(local_frame.colormap()->get_color(0), (qPixRA{7, 7, 7, 7}));
    delete clone;
}

}  // namespace
