#include <gtest/gtest.h>

#include <vector>

#include "GifTestKit.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"

namespace {

using gif_test::Bytes;
using gif_test::GifBuilder;

// `frames` images on a 10 x 10 screen with a global map, the looping count when >= 0.
Bytes animation_bytes(int frames, int looping = -1) {
    GifBuilder b;
    b.header().screen(10, 10, 1).color_table(4);
    if (looping >= 0) b.looping(looping);
    for (int i = 0; i < frames; ++i) {
        b.control(i % 4, i + 1, -1)
            .descriptor(i, i, 2, 2)
            .pixels(2, {0, 1, 2, static_cast<unsigned char>(i % 4)});
    }
    return b.trailer().bytes();
}

void read(qGifAnimation* a, const Bytes& bytes) {
    qMemoryR source(bytes.data(), bytes.size());
    ASSERT_EQ(a->read(&source, nullptr), 0);
}

std::vector<int> next_results(qGifAnimation* a, int calls, bool endless) {
    std::vector<int> results;
    for (int i = 0; i < calls; ++i) results.push_back(a->next_frame(endless));
    return results;
}

TEST(qGifAnimationTest, NextFrameCountsPasses) {
    qGifAnimation a;
    read(&a, animation_bytes(3));
    EXPECT_EQ(a.loop_count(), 1);
    EXPECT_EQ(next_results(&a, 3, false), (std::vector<int>{0, 0, 2}));
    EXPECT_EQ(a.current_frame(), 2);
    EXPECT_EQ(a.next_frame(false), 2);  // stays on the last frame
    EXPECT_EQ(a.current_frame(), 2);
    a.rewind();
    EXPECT_EQ(a.current_frame(), 0);
    EXPECT_EQ(a.passes(), 0);
    EXPECT_EQ(next_results(&a, 3, false), (std::vector<int>{0, 0, 2}));

    qGifAnimation three_passes;
    read(&three_passes, animation_bytes(3, 2));
    EXPECT_EQ(three_passes.loop_count(), 3);
    EXPECT_EQ(next_results(&three_passes, 9, false), (std::vector<int>{0, 0, 0, 0, 0, 0, 0, 0, 2}));

    qGifAnimation endless;
    read(&endless, animation_bytes(3, 0));
    EXPECT_EQ(endless.loop_count(), -1);
    EXPECT_EQ(next_results(&endless, 30, false), std::vector<int>(30, 0));
    qGifAnimation forced;
    read(&forced, animation_bytes(2));
    EXPECT_EQ(next_results(&forced, 10, true), std::vector<int>(10, 0));
    EXPECT_EQ(forced.current_frame(), 0);
}

TEST(qGifAnimationTest, SeekAndPerFrameAnswers) {
    qGifAnimation a;
    read(&a, animation_bytes(3));
    EXPECT_EQ(a.seek_frame(-1, 2), 0);
    EXPECT_EQ(a.current_frame(), 2);
    EXPECT_EQ(a.frame_rect(), qRect(2, 2, 2, 2));
    EXPECT_EQ(a.frame_delay(), 30);
    EXPECT_EQ(a.frame_disposal(), 2);
    EXPECT_EQ(a.seek_frame(1, 1), -5);
    EXPECT_EQ(a.current_frame(), 2);
    EXPECT_EQ(a.seek_frame(3, 0), -5);
    EXPECT_EQ(a.seek_frame(0, 7), 0);
    EXPECT_EQ(a.current_frame(), 0);
    EXPECT_EQ(a.seek_frame(1, 1), 0);
    EXPECT_EQ(a.offset(), qPoint(1, 1));
    EXPECT_EQ(a.pixel_index(qPoint(2, 2)), 1);
    EXPECT_EQ(a.size(), qSize(10, 10));
    EXPECT_TRUE(a.valid());
    EXPECT_EQ(a.current_leaf(), static_cast<const qIComponent*>(a.frame(1)->image()));
    EXPECT_EQ(a.set_offset(qPoint(5, 5)), 0);
    EXPECT_EQ(a.frame_rect(), qRect(5, 5, 2, 2));
    EXPECT_TRUE(a.set_ex_transparent(1));
    EXPECT_EQ(a.frame(0)->control()->transparent, -1);  // only the current frame changed
    EXPECT_EQ(a.quantize_colors(nullptr, QT_NEAREST, false, 1.0f, 1.0f, nullptr),
              -5);  // a null map
    // valid() needs a screen.
    EXPECT_EQ(a.set_screen_size(qSize(0, 0)), 0);
    EXPECT_FALSE(a.valid());
}

TEST(qGifAnimationTest, EmptyAnimationAnswers) {
    qGifAnimation a;
    EXPECT_FALSE(a.valid());
    EXPECT_EQ(a.alpha_hint(), AT_BILEVEL);
    EXPECT_EQ(a.frame_delay(), -1);
    EXPECT_EQ(a.frame_rect(), qRect());
    EXPECT_EQ(a.frame_disposal(), 0);
    EXPECT_EQ(a.Draw(nullptr, qRect(), qPoint(), 1.0f, 1.0f, false), -5);
    EXPECT_EQ(a.num_frames(), 0);
    EXPECT_EQ(a.set_offset(qPoint()), -5);
    EXPECT_EQ(a.current_leaf(), nullptr);
    EXPECT_EQ(a.min_t_index(), -1);
    EXPECT_FALSE(a.set_transparent(0));
    EXPECT_EQ(a.quantize_colors(4, CM_CUBE, QT_NEAREST, false, 1, 1, 1, nullptr), -5);
    EXPECT_EQ(a.get_rep_color(), (qPixRA{0, 0, 0, 0}));
    EXPECT_EQ(a.clone(), nullptr);
    EXPECT_EQ(a.component_type(), CT_ANIMATION);
}

TEST(qGifAnimationTest, CloneOwnsItsGlobalMap) {
    qGifAnimation a;
    read(&a, GifBuilder()
                 .header()
                 .screen(10, 10, 1)
                 .color_table(4)
                 .comment("one")
                 .comment("")
                 .looping(4)
                 .descriptor(0, 0, 2, 2)
                 .pixels(2, {3, 2, 1, 0})
                 .descriptor(1, 1, 2, 2)
                 .pixels(2, {0, 0, 1, 1})
                 .trailer()
                 .bytes());
    ASSERT_EQ(a.seek_frame(1, 0), 0);
    a.next_frame(false);  // a pass completes
    qIComponent* clone = a.clone();
    ASSERT_NE(clone, nullptr);
    auto* copy = dynamic_cast<qGifAnimation*>(clone);
    ASSERT_NE(copy, nullptr);
    ASSERT_NE(copy->global_colormap(), nullptr);
    EXPECT_NE(copy->global_colormap(), a.global_colormap());
    for (int i = 0; i < 2; ++i) EXPECT_EQ(copy->frame(i)->colormap(), copy->global_colormap());
    EXPECT_EQ(copy->frame(1)->pixel_index(qPoint(2, 2)), 1);
    EXPECT_EQ(copy->num_comments(), 2);
    EXPECT_EQ(copy->comment(1)->count(), 0);
    EXPECT_EQ(copy->loop_count(), 5);
    EXPECT_EQ(copy->passes(), a.passes());
    EXPECT_EQ(copy->current_frame(), a.current_frame());
    EXPECT_EQ(copy->size(), qSize(10, 10));
    delete clone;
    // The original is untouched by destroying the copy.
    EXPECT_EQ(a.frame(0)->pixel_index(qPoint(0, 0)), 3);
    qGifAnimation empty;
    EXPECT_EQ(empty.copy_from(nullptr), -5);
}

}  // namespace
