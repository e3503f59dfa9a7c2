// Views over caller memory: row addressing for any stride sign and pixel size, and the palette
// copy an indexed buffer binding makes (the caller's map is free to change afterwards).
#include <gtest/gtest.h>

#include <vector>

#include "common/TestKit.h"
#include "qimg/color/qColormap.h"
#include "qimg/raster/qImageAlias.h"
#include "raster/qBlitReference.h"

namespace {

TEST(qImageAliasTest, RowsAndColumnsForAnyStrideAndPixelSize) {
    std::vector<unsigned char> memory(120);
    unsigned char* top = memory.data() + 80;  // bottom-up: the top row lies last in memory
    qImageAlias view;
    ASSERT_EQ(view.Bind(top, qSize(10, 3), -40, PT_BGRA32), 0);
    EXPECT_EQ(view.pixel_address(2, 1), top - 80 + 4);
    EXPECT_EQ(view.pixel_address(3, 0), nullptr);
    EXPECT_EQ(view.pixel_address(-1, 0), nullptr);
    const struct {
        int type, column, offset;
    } cases[] = {
        {      PT_BGRA32, 3, 12},
        {       PT_BGR24, 3,  9},
        {     PT_INDEX16, 3,  6},
        {PT_GRAY_ALPHA16, 1,  2},
        {       PT_GRAY8, 7,  7},
        {              5, 9,  0}
    };  // 5: no storage size
    for (const auto& c : cases) {
        ASSERT_EQ(view.Bind(memory.data(), qSize(4, 2), 32, static_cast<qPixelType>(c.type)), 0);
        EXPECT_EQ(view.pixel_address(1, c.column), memory.data() + 32 + c.offset) << c.type;
    }
}

TEST(qImageAliasTest, IndexedBindingKeepsAPaletteCopyOfItsOwn) {
    qref::Image image(PT_INDEX8, 3, 2);
    image.palette = std::make_shared<qColormap>();
    ASSERT_EQ(image.palette->create(3), 0);
    image.palette->set_color(0, qPixRA{1, 2, 3, 255});
    image.palette->set_color(1, qPixRA{4, 5, 6, 0});
    image.palette->set_color(2, qPixRA{7, 8, 9, 128});
    std::unique_ptr<qIImageBuffer> holder;
    qImageAlias view;
    ASSERT_EQ(qref::bind(view, image, holder), 0);
    const std::vector<qPixRA> expected = {
        {1, 2, 3, 255},
        {4, 5, 6,   0},
        {7, 8, 9, 128}
    };
    EXPECT_EQ(qtest::entries(*view.colormap()), expected);
    EXPECT_EQ(view.pixel_address(1, 2), image.pixel(1, 2));
    image.palette->set_color(0, qPixRA{0, 0, 0, 0});
    EXPECT_EQ(qtest::entries(*view.colormap()), expected);
}

}  // namespace
