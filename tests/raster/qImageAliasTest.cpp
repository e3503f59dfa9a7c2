// Views over caller memory: row addressing for any stride sign and pixel size (the transfers
// themselves are compared with the reference in qBitBltTest).
#include "qimg/raster/qImageAlias.h"

#include <gtest/gtest.h>

#include <vector>

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
        {PT_BGRA32,       3, 12},
        {PT_BGR24,        3, 9 },
        {PT_INDEX16,      3, 6 },
        {PT_GRAY_ALPHA16, 1, 2 },
        {PT_GRAY8,        7, 7 },
        {5,               9, 0 }
    };  // 5: no storage size
    EXPECT_EQ(view.Bind(static_cast<const qIImageBuffer*>(nullptr)), -5);
    qref::Image negative(PT_BGRA32, 3, -1);  // a buffer claiming -1 rows
    std::unique_ptr<qIImageBuffer> holder;
    EXPECT_EQ(qref::bind(view, negative, holder), -1);
    for (const auto& c : cases) {
        ASSERT_EQ(view.Bind(memory.data(), qSize(4, 2), 32, static_cast<qPixelType>(c.type)), 0);
        EXPECT_EQ(view.pixel_address(1, c.column), memory.data() + 32 + c.offset) << c.type;
    }
}

}  // namespace
