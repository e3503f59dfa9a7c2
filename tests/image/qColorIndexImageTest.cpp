#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "image/DrawReference.h"
#include "qimg/core/qAllocationHookPriv.h"
#include "qimg/image/qColorIndexImage.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"
#include "qimg/raster/qImageEdit.h"

namespace {

using draw_reference::Canvas;

void make_palette(qColormap& map, int n) {
    ASSERT_EQ(map.create(n), 0);
    for (int i = 0; i < n; ++i) {
        map.set_color(i, qPixRA{static_cast<unsigned char>(i), static_cast<unsigned char>(i),
                                static_cast<unsigned char>(i), 255});
    }
}

// A width x 1 index image whose pixel x holds index x, drawn through `map`.
void make_ramp(qIndexImage& image, int width, const qColormap& map, int transparent) {
    ASSERT_EQ(image.Create_buffer(qSize(width, 1), PT_INDEX8), 0);
    ASSERT_EQ(image.set_colormap(&map, transparent), 0);
    for (int x = 0; x < width; ++x) *image.pixel_address(0, x) = static_cast<unsigned char>(x);
}

std::vector<int> alphas(const qIColormap* map) {
    std::vector<int> out;
    for (int i = 0; i < map->num_colors(); ++i) out.push_back(map->get_color(i).alpha);
    return out;
}

void expect_empty(const qColorIndexImage& image) {
    EXPECT_FALSE(image.valid());
    EXPECT_EQ(image.colormap(), nullptr);
    EXPECT_EQ(image.size(), qSize());
    EXPECT_EQ(image.pixel_type(), 0);
    EXPECT_EQ(image.pixel_address(0, 0), nullptr);
}

TEST(qColorIndexImageTest, CopyOwnsAPrivatePaletteAndKeepsTheTransparentIndex) {
    qColormap map;
    make_palette(map, 8);
    qIndexImage source;
    make_ramp(source, 8, map, 7);
    qColorIndexImage image;
    ASSERT_EQ(image.copy_from(&source), 0);
    ASSERT_TRUE(image.valid());
    EXPECT_NE(image.colormap(), &map);
    EXPECT_EQ(image.size(), qSize(8, 1));
    EXPECT_EQ(image.pixel_index(qPoint(5, 0)), 5);
    // Only the copy of the map was copied: the caller's alphas stay all 255 and so do the own.
    EXPECT_EQ(image.min_t_index(), -1);
    EXPECT_EQ(image.alpha_hint(), AT_OPAQUE);
    EXPECT_TRUE(image.set_color(3, qPixRA{9, 9, 9, 9}));
    EXPECT_EQ(map.get_color(3), (qPixRA{3, 3, 3, 255}));
    EXPECT_EQ(image.colormap()->get_color(3), (qPixRA{9, 9, 9, 9}));
}

// The copied transparent index lives in the index image; set_opaque_all only edits the own map,
// so index 7 stays transparent when drawn while min_t_index reports none.
TEST(qColorIndexImageTest, SetOpaqueAllLeavesACopiedTransparentIndexTransparent) {
    qColormap map;
    make_palette(map, 8);
    map.set_transparent(7);
    qIndexImage source;
    make_ramp(source, 8, map, 7);
    qColorIndexImage image;
    ASSERT_EQ(image.copy_from(&source), 0);
    EXPECT_EQ(image.min_t_index(), 7);
    image.set_opaque_all();
    EXPECT_EQ(alphas(image.colormap()), std::vector<int>(8, 255));
    EXPECT_EQ(image.min_t_index(), -1);
    EXPECT_EQ(image.alpha_hint(), AT_OPAQUE);

    const qPixRA background{100, 110, 120, 130};
    Canvas canvas(8, 1, background);
    ASSERT_EQ(image.Draw(&canvas.view, qRect(0, 0, 8, 1), qPoint(), 1.0f, 1.0f, false), 0);
    EXPECT_EQ(canvas.at(6, 0), (qPixRA{6, 6, 6, 255}));
    EXPECT_EQ(canvas.at(7, 0), background);
}

TEST(qColorIndexImageTest, PaletteEditsActOnTheOwnMapAndRefuseOutsideIt) {
    struct Case {
        const char* name;
        std::vector<int> zero_alpha_before;
        bool (*edit)(qColorIndexImage&);
        bool result;
        std::vector<int> alphas_after;
        int min_t_index;
    };
    const Case cases[] = {
        {        "ex-transparent replaces others",
         {1, 2},
         [](qColorIndexImage& i) { return i.set_ex_transparent(3); },
         true,{255, 255, 255, 0},
         3 },
        {                  "transparent adds one",
         {1},
         [](qColorIndexImage& i) { return i.set_transparent(3); },
         true,     {255, 0, 255, 0},
         1 },
        {"ex-transparent outside changes nothing",
         {1, 2},
         [](qColorIndexImage& i) { return i.set_ex_transparent(4); },
         false,     {255, 0, 0, 255},
         1 },
        {                     "transparent at -1",
         {},
         [](qColorIndexImage& i) { return i.set_transparent(-1); },
         false, {255, 255, 255, 255},
         -1},
        {                        "colour outside",
         {},
         [](qColorIndexImage& i) {
         return i.set_color(256, qPixRA{1, 1, 1, 0});
         }, false,
         {255, 255, 255, 255},
         -1},
        {                     "colour with alpha",
         {},
         [](qColorIndexImage& i) {
         return i.set_color(2, qPixRA{1, 1, 1, 0});
         },  true,
         {255, 255, 0, 255},
         2 },
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qColormap map;
        make_palette(map, 4);
        for (int e : c.zero_alpha_before) map.set_transparent(e);
        qIndexImage source;
        make_ramp(source, 4, map, -1);
        qColorIndexImage image;
        ASSERT_EQ(image.copy_from(&source), 0);
        EXPECT_EQ(c.edit(image), c.result);
        EXPECT_EQ(alphas(image.colormap()), c.alphas_after);
        EXPECT_EQ(image.min_t_index(), c.min_t_index);
    }
    qColorIndexImage empty;
    EXPECT_FALSE(empty.set_transparent(0));
    EXPECT_FALSE(empty.set_color(0, qPixRA{}));
    empty.set_opaque_all();
    EXPECT_EQ(empty.min_t_index(), -1);
}

TEST(qColorIndexImageTest, BufferAndMapLinkInEitherOrder) {
    qColormap map;
    make_palette(map, 3);
    for (const bool buffer_first : {true, false}) {
        SCOPED_TRACE(buffer_first);
        qColorIndexImage image;
        if (buffer_first) {
            ASSERT_EQ(image.Create_buffer(qSize(4, 2), PT_INDEX8), 0);
            EXPECT_FALSE(image.valid());
            ASSERT_EQ(image.copy_colormap(&map), 0);
        } else {
            ASSERT_EQ(image.copy_colormap(&map), 0);
            EXPECT_FALSE(image.valid());
            ASSERT_EQ(image.Create_buffer(qSize(4, 2), PT_INDEX8), 0);
        }
        EXPECT_TRUE(image.valid());
        EXPECT_EQ(image.size(), qSize(4, 2));
        EXPECT_NE(image.colormap(), &map);
        EXPECT_EQ(image.colormap()->num_colors(), 3);
    }
}

// A failed map copy must not leave the index image pointing at the map it replaced.
TEST(qColorIndexImageTest, FailedMapCopyUnlinksTheIndexImage) {
    qColormap map;
    make_palette(map, 3);
    qColorIndexImage image;
    ASSERT_EQ(image.Create_buffer(qSize(2, 2), PT_INDEX8), 0);
    ASSERT_EQ(image.copy_colormap(&map), 0);
    qColormap empty_map;
    EXPECT_EQ(image.copy_colormap(&empty_map), -5);
    EXPECT_EQ(image.colormap(), nullptr);
    EXPECT_FALSE(image.valid());
    EXPECT_EQ(image.min_t_index(), -1);
    Canvas canvas(2, 2, qPixRA{});
    EXPECT_EQ(image.Draw(&canvas.view, qRect(0, 0, 2, 2), qPoint(), 1.0f, 1.0f, false), -1);
    EXPECT_EQ(image.copy_colormap(nullptr), -5);
}

TEST(qColorIndexImageTest, CloneHasItsOwnIndicesAndMap) {
    qColormap map;
    make_palette(map, 6);
    map.set_transparent(5);
    qIndexImage source;
    make_ramp(source, 6, map, -1);
    qColorIndexImage image;
    ASSERT_EQ(image.copy_from(&source), 0);
    std::unique_ptr<qIComponent> clone(image.clone());
    ASSERT_NE(clone, nullptr);
    auto* copy = dynamic_cast<qColorIndexImage*>(clone.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy->colormap(), image.colormap());
    EXPECT_NE(copy->pixel_address(0, 0), image.pixel_address(0, 0));
    EXPECT_EQ(copy->min_t_index(), 5);
    EXPECT_TRUE(copy->set_color(0, qPixRA{7, 7, 7, 7}));
    EXPECT_EQ(image.colormap()->get_color(0), (qPixRA{0, 0, 0, 255}));
    qColorIndexImage empty;
    EXPECT_EQ(empty.clone(), nullptr);
}

TEST(qColorIndexImageTest, InvalidSourcesAreRefusedAndLeaveItEmpty) {
    qColormap map;
    make_palette(map, 3);
    qIndexImage no_map;
    ASSERT_EQ(no_map.Create_buffer(qSize(2, 2), PT_INDEX8), 0);
    qIndexImage good;
    make_ramp(good, 3, map, -1);
    for (const qIIndexImage* source :
         {static_cast<const qIIndexImage*>(nullptr), static_cast<const qIIndexImage*>(&no_map)}) {
        qColorIndexImage image;
        ASSERT_EQ(image.copy_from(&good), 0);
        EXPECT_EQ(image.copy_from(source), -5);
        expect_empty(image);
        EXPECT_EQ(image.Draw(nullptr, qRect(), qPoint(), 1.0f, 1.0f, false), -5);
        EXPECT_EQ(image.map_from_image(nullptr, QT_NEAREST, false, 1.0f, 1.0f, nullptr), -5);
    }
}

#ifdef QIMG_TEST_HOOKS
TEST(qColorIndexImageTest, EveryAllocationFailureGivesMinusOne) {
    qColormap map;
    make_palette(map, 5);
    map.set_transparent(2);
    qIndexImage source;
    make_ramp(source, 5, map, -1);
    for (long n = 1;; ++n) {
        SCOPED_TRACE(n);
        qColorIndexImage image;
        qimg_fail_allocation(n);
        const int rc = image.copy_from(&source);
        qimg_fail_allocation(0);
        if (rc == 0) {
            EXPECT_EQ(image.min_t_index(), 2);
            break;
        }
        EXPECT_EQ(rc, -1);
        expect_empty(image);
        ASSERT_LT(n, 20);
    }
    for (long n = 1;; ++n) {
        SCOPED_TRACE(n);
        qColorIndexImage image;
        ASSERT_EQ(image.Create_buffer(qSize(3, 3), PT_INDEX8), 0);
        ASSERT_EQ(image.copy_colormap(&map), 0);
        qimg_fail_allocation(n);
        const int rc = image.copy_colormap(&map);
        qimg_fail_allocation(0);
        if (rc == 0) break;
        EXPECT_EQ(rc, -1);
        EXPECT_EQ(image.colormap(), nullptr);
        EXPECT_FALSE(image.valid());
        ASSERT_LT(n, 20);
    }
    for (long n = 1;; ++n) {
        SCOPED_TRACE(n);
        qColorIndexImage image;
        ASSERT_EQ(image.copy_colormap(&map), 0);
        qimg_fail_allocation(n);
        const int rc = image.Create_buffer(qSize(3, 3), PT_INDEX8);
        qimg_fail_allocation(0);
        if (rc == 0) {
            EXPECT_TRUE(image.valid());
            break;
        }
        EXPECT_EQ(rc, -1);
        EXPECT_FALSE(image.valid());
        ASSERT_LT(n, 20);
    }
}
#endif

}  // namespace
