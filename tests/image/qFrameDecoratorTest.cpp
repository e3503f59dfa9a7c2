#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>

#include "qimg/core/qAllocationHookPriv.h"
#include "qimg/image/qColorIndexImage.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/image/qFrameDecorator.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"

namespace {

// A leaf that records the arguments of the last Draw it received.
class RecordingLeaf : public qILeaf {
public:
    qIComponent* clone() const override { return nullptr; }
    int Draw(qImageEdit*, qRect rect, qPoint point, float sx, float sy, bool) const override {
        last_rect = rect;
        last_point = point;
        last_scale_x = sx;
        last_scale_y = sy;
        ++draws;
        return 42;
    }
    bool valid() const override { return true; }
    qSize size() const override { return qSize(4, 3); }
    qAlphaType alpha_hint() const override { return AT_TRANSLUCENT; }
    const qIColormap* colormap() const override { return nullptr; }
    qComponentType component_type() const override { return CT_DIRECT_IMAGE; }
    qIComponent* current_leaf() const override { return const_cast<RecordingLeaf*>(this); }
    qComponentType leaf_type() const override { return CT_DIRECT_IMAGE; }

    mutable qRect last_rect;
    mutable qPoint last_point;
    mutable float last_scale_x = 0;
    mutable float last_scale_y = 0;
    mutable int draws = 0;
};

qIndexImage* new_index_image(const qColormap& map, qSize size) {
    auto* image = new qIndexImage;
    EXPECT_EQ(image->Create_buffer(size, PT_INDEX8), 0);
    EXPECT_EQ(image->set_colormap(&map, -1), 0);
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            *image->pixel_address(y, x) = static_cast<unsigned char>(10 * y + x);
        }
    }
    return image;
}

TEST(qFrameDecoratorTest, ScreenSizeIsReportedOnlyWhenNotEmpty) {
    qFrameDecorator frame;
    EXPECT_EQ(frame.size(), qSize());
    ASSERT_EQ(frame.attach(new RecordingLeaf, qPoint(0, 0)), 0);
    EXPECT_EQ(frame.size(), qSize(4, 3));
    EXPECT_EQ(frame.set_screen_size(qSize(100, 0)), 0);
    EXPECT_EQ(frame.size(), qSize());
    EXPECT_EQ(frame.set_screen_size(qSize(100, 50)), 0);
    EXPECT_EQ(frame.size(), qSize(100, 50));
    EXPECT_EQ(frame.current_leaf()->size(), qSize(4, 3));
}

// The offset is in screen pixels; Draw converts it to pixels of the magnified image, truncating
// toward zero, and never overflows.
TEST(qFrameDecoratorTest, DrawShiftsThePointByTheScaledOffset) {
    constexpr int kMax = std::numeric_limits<int>::max();
    constexpr int kMin = std::numeric_limits<int>::min();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    struct Case {
        const char* name;
        qPoint offset;
        qPoint point;
        float scale_x, scale_y;
        qPoint expected;
    };
    const Case cases[] = {
        {                             "unscaled",   qPoint(10,   20),    qPoint(0, 0), 1.0f, 1.0f,qPoint(-10,  -20)                                                                                                  },
        {                              "doubled",    qPoint(5,    5),    qPoint(3, 3), 2.0f, 2.0f,  qPoint(-7,   -7)},
        {                     "halved truncates",    qPoint(5,    5),    qPoint(0, 0), 0.5f, 0.5f,  qPoint(-2,   -2)},
        {"negative offset truncates toward zero",   qPoint(-5,   -3),    qPoint(0, 0), 0.5f, 0.5f,
         qPoint(2,    1)                                                                                            },
        {                  "independent factors",    qPoint(3,    3),    qPoint(0, 0), 3.0f, 1.5f,  qPoint(-9,   -4)},
        {               "huge product saturates", qPoint(kMax, kMin),    qPoint(0, 0), 4.0f, 4.0f,
         qPoint(-kMax, kMax)                                                                                        },
        {        "huge point and shift saturate", qPoint(kMax,    0), qPoint(kMin, 0), 2.0f, 1.0f,
         qPoint(kMin,    0)                                                                                         },
        {          "not a number shifts nothing",    qPoint(7,    7),    qPoint(1, 1),  nan,  nan,   qPoint(1,    1)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto* leaf = new RecordingLeaf;
        qFrameDecorator frame;
        ASSERT_EQ(frame.attach(leaf, c.offset), 0);
        EXPECT_EQ(frame.Draw(nullptr, qRect(1, 2, 3, 4), c.point, c.scale_x, c.scale_y, false), 42);
        EXPECT_EQ(leaf->last_point, c.expected);
        EXPECT_EQ(leaf->last_rect, qRect(1, 2, 3, 4));
        if (!std::isnan(c.scale_x)) {
            EXPECT_EQ(leaf->last_scale_x, c.scale_x);
        }
    }
    qFrameDecorator empty;
    EXPECT_EQ(empty.Draw(nullptr, qRect(0, 0, 5, 5), qPoint(), 1.0f, 1.0f, false), 0);
}

TEST(qFrameDecoratorTest, PixelIndexIsAskedInTheLeafsCoordinates) {
    qColormap map;
    ASSERT_EQ(map.create(64), 0);
    qFrameDecorator frame;
    ASSERT_EQ(frame.attach(new_index_image(map, qSize(4, 3)), qPoint(10, 20)), 0);
    EXPECT_EQ(frame.pixel_index(qPoint(12, 21)), 12);  // the leaf's (2, 1)
    EXPECT_EQ(frame.pixel_index(qPoint(9, 20)), -1);
    EXPECT_EQ(frame.offset(), qPoint(10, 20));
    qFrameDecorator empty;
    EXPECT_EQ(empty.pixel_index(qPoint()), -1);
}

TEST(qFrameDecoratorTest, NestedFramesAddOffsetsAndExposeTheInnerLeaf) {
    auto* leaf = new RecordingLeaf;
    auto* inner = new qFrameDecorator;
    ASSERT_EQ(inner->attach(leaf, qPoint(1, 2)), 0);
    qFrameDecorator outer;
    ASSERT_EQ(outer.attach(inner, qPoint(10, 20)), 0);
    EXPECT_EQ(outer.offset(), qPoint(11, 22));
    EXPECT_EQ(outer.current_leaf(), leaf);
    EXPECT_EQ(outer.alpha_hint(), AT_TRANSLUCENT);
    outer.Draw(nullptr, qRect(), qPoint(0, 0), 2.0f, 2.0f, false);
    EXPECT_EQ(leaf->last_point, qPoint(-22, -44));
}

TEST(qFrameDecoratorTest, AttachAndCopyEmptyTheDecoratorFirst) {
    qFrameDecorator frame;
    auto* leaf = new RecordingLeaf;
    ASSERT_EQ(frame.attach(leaf, qPoint(3, 4)), 0);
    // Handing back the held leaf keeps it alive (ASan would see a use after free).
    EXPECT_EQ(frame.attach(leaf, qPoint(5, 6)), 0);
    EXPECT_EQ(frame.current_leaf(), leaf);
    EXPECT_EQ(frame.offset(), qPoint(5, 6));

    EXPECT_EQ(frame.attach(nullptr, qPoint(1, 1)), -5);
    EXPECT_FALSE(frame.valid());
    EXPECT_EQ(frame.current_leaf(), nullptr);
    EXPECT_EQ(frame.offset(), qPoint());
    EXPECT_EQ(frame.size(), qSize());

    qFrameDecorator empty;
    ASSERT_EQ(frame.attach(new RecordingLeaf, qPoint(1, 1)), 0);
    EXPECT_EQ(frame.copy_from(&empty), -5);
    EXPECT_EQ(frame.current_leaf(), nullptr);
    ASSERT_EQ(frame.attach(new RecordingLeaf, qPoint(1, 1)), 0);
    EXPECT_EQ(frame.copy_from(nullptr), -5);
    EXPECT_FALSE(frame.valid());
    ASSERT_EQ(frame.attach(new RecordingLeaf, qPoint(1, 1)), 0);
    EXPECT_EQ(frame.copy_from(&frame), -5);  // emptied first, then no longer valid
    EXPECT_FALSE(frame.valid());
    ASSERT_EQ(frame.attach(new RecordingLeaf, qPoint(1, 1)), 0);
    qFrameDecorator copy;
    EXPECT_EQ(copy.copy_from(&frame), -1);  // the recording leaf cannot be cloned
    EXPECT_EQ(copy.current_leaf(), nullptr);
    EXPECT_EQ(frame.clone(), nullptr);
}

TEST(qFrameDecoratorTest, CloneIsDeepAndKeepsPlacement) {
    qDirectImage* image = new qDirectImage;
    ASSERT_EQ(image->Create_buffer(qSize(3, 2), PT_BGRA32, nullptr), 0);
    qFrameDecorator frame;
    ASSERT_EQ(frame.attach(image, qPoint(7, 8)), 0);
    frame.set_screen_size(qSize(30, 20));
    std::unique_ptr<qIComponent> clone(frame.clone());
    ASSERT_NE(clone, nullptr);
    auto* copy = dynamic_cast<qFrameDecorator*>(clone.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->offset(), qPoint(7, 8));
    EXPECT_EQ(copy->size(), qSize(30, 20));
    ASSERT_NE(copy->current_leaf(), image);
    EXPECT_EQ(copy->current_leaf()->size(), qSize(3, 2));
    EXPECT_EQ(copy->component_type(), CT_FRAME);
}

// Palette edits reach the held leaf's palette side: a colour index image edits its own map, a
// plain index image refuses but answers min_t_index, a true-colour image has no palette side.
TEST(qFrameDecoratorTest, PaletteEditsFollowTheHeldLeaf) {
    qColormap map;
    ASSERT_EQ(map.create(4), 0);
    map.set_opaque_all();
    map.set_transparent(2);

    qFrameDecorator direct;
    auto* image = new qDirectImage;
    ASSERT_EQ(image->Create_buffer(qSize(1, 1), PT_BGR24, nullptr), 0);
    ASSERT_EQ(direct.attach(image, qPoint()), 0);
    EXPECT_FALSE(direct.set_transparent(0));
    EXPECT_FALSE(direct.set_color(0, qPixRA{}));
    EXPECT_EQ(direct.min_t_index(), -1);
    EXPECT_NE(dynamic_cast<qIIndexColor*>(static_cast<qIComponent*>(&direct)), nullptr);

    qFrameDecorator plain;
    ASSERT_EQ(plain.attach(new_index_image(map, qSize(2, 2)), qPoint()), 0);
    EXPECT_FALSE(plain.set_transparent(0));
    EXPECT_EQ(plain.min_t_index(), 2);
    plain.set_opaque_all();
    EXPECT_EQ(map.get_color(2).alpha, 0);

    std::unique_ptr<qIndexImage> source(new_index_image(map, qSize(2, 2)));
    auto* own = new qColorIndexImage;
    ASSERT_EQ(own->copy_from(source.get()), 0);
    qFrameDecorator editable;
    ASSERT_EQ(editable.attach(own, qPoint()), 0);
    EXPECT_TRUE(editable.set_ex_transparent(1));
    EXPECT_EQ(editable.min_t_index(), 1);
    EXPECT_TRUE(editable.set_color(0, qPixRA{1, 2, 3, 4}));
    EXPECT_EQ(editable.colormap()->get_color(0), (qPixRA{1, 2, 3, 4}));
    EXPECT_FALSE(editable.set_transparent(4));
    editable.set_opaque_all();
    EXPECT_EQ(editable.min_t_index(), -1);
    EXPECT_EQ(map.get_color(1).alpha, 255);  // the caller's map never changes

    qFrameDecorator empty;
    EXPECT_FALSE(empty.set_transparent(0));
    EXPECT_EQ(empty.min_t_index(), -1);
    EXPECT_EQ(empty.colormap(), nullptr);
    EXPECT_EQ(empty.alpha_hint(), AT_NONE);
}

#ifdef QIMG_TEST_HOOKS
TEST(qFrameDecoratorTest, EveryAllocationFailureOfACopyGivesMinusOneAndAnEmptyDecorator) {
    qColormap map;
    ASSERT_EQ(map.create(8), 0);
    std::unique_ptr<qIndexImage> source(new_index_image(map, qSize(3, 3)));
    auto* own = new qColorIndexImage;
    ASSERT_EQ(own->copy_from(source.get()), 0);
    qFrameDecorator frame;
    ASSERT_EQ(frame.attach(own, qPoint(2, 2)), 0);
    for (long n = 1;; ++n) {
        SCOPED_TRACE(n);
        qFrameDecorator copy;
        ASSERT_EQ(copy.attach(new RecordingLeaf, qPoint(1, 1)), 0);
        qimg_fail_allocation(n);
        const int rc = copy.copy_from(&frame);
        qimg_fail_allocation(0);
        if (rc == 0) {
            EXPECT_EQ(copy.offset(), qPoint(2, 2));
            break;
        }
        EXPECT_EQ(rc, -1);
        EXPECT_FALSE(copy.valid());
        EXPECT_EQ(copy.offset(), qPoint());
        ASSERT_LT(n, 20);
    }
}
#endif

}  // namespace
