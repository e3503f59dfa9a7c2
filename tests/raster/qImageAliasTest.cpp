#include <gtest/gtest.h>

#include <vector>

#include "qimg/core/qAllocationHookPriv.h"
#include "qimg/core/qImageBuffer.h"
#include "qimg/palette/qColormap.h"
#include "qimg/raster/qImageAlias.h"
#include "qimg/raster/qImageEdit.h"
#include "tests/common/ReadOnlyIndexImage.h"

namespace {

// An index buffer implemented outside the library, so the binding's capability query must work
// across the library boundary. Rows are deliberately not contiguous.
class FakeIndexImage : public qtest::ReadOnlyIndexImage {
public:
    FakeIndexImage(qSize size, const qIColormap* map, int transparent)
        : size_(size), map_(map), transparent_(transparent) {
        rows_.resize(static_cast<size_t>(size.height > 0 ? size.height : 0));
        for (auto& row : rows_) row.assign(static_cast<size_t>(size.width) + 5, 0);
    }
    bool valid() const override { return true; }
    unsigned char* pixel_address(int row, int column) const override {
        if (row < 0 || column < 0 || rows_.empty()) return nullptr;
        return const_cast<unsigned char*>(rows_[static_cast<size_t>(row)].data()) + column;
    }
    qSize size() const override { return size_; }
    qPixelType pixel_type() const override { return PT_INDEX8; }
    const qIColormap* colormap() const override { return map_; }
    int min_t_index() const override {
        return transparent_ >= 0 ? transparent_ : map_->min_t_index();
    }

    qSize size_;
    const qIColormap* map_;
    int transparent_;
    std::vector<std::vector<unsigned char>> rows_;
};

// A true-colour buffer that claims rows it has no memory for.
class HollowBuffer : public qIDirectImage {
public:
    bool valid() const override { return false; }
    unsigned char* pixel_address(int, int) const override { return nullptr; }
    qSize size() const override { return qSize(4, 4); }
    qPixelType pixel_type() const override { return PT_BGRA32; }
};

TEST(qImageAliasTest, NegativeStrideWalksBottomUpMemoryTopDown) {
    std::vector<unsigned char> memory(120);
    unsigned char* top = memory.data() + 80;  // the top row lies last in memory
    qImageAlias view;
    ASSERT_EQ(view.Bind(top, qSize(10, 3), -40, PT_BGRA32), 0);
    EXPECT_TRUE(view.valid());
    EXPECT_EQ(view.pixel_address(0, 0), top);
    EXPECT_EQ(view.pixel_address(1, 0), top - 40);
    EXPECT_EQ(view.pixel_address(2, 1), top - 80 + 4);
    EXPECT_EQ(view.pixel_address(3, 0), nullptr);  // outside the row table
    EXPECT_EQ(view.pixel_address(-1, 0), nullptr);
    EXPECT_EQ(view.colormap(), nullptr);
}

struct ColumnCase {
    qPixelType type;
    int column;
    int offset;
};

TEST(qImageAliasTest, ColumnOffsetIsBitsTimesColumnOverEight) {
    const ColumnCase cases[] = {
        {                 PT_BGRA32, 3, 12},
        {                  PT_BGR24, 3,  9},
        {                PT_INDEX16, 3,  6},
        {           PT_GRAY_ALPHA16, 1,  2},
        {                  PT_GRAY8, 7,  7},
        {static_cast<qPixelType>(5), 9,  0}, // no storage size: every column is the row start
    };
    unsigned char memory[64] = {};
    for (const ColumnCase& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.type));
        qImageAlias view;
        ASSERT_EQ(view.Bind(memory, qSize(4, 2), 32, c.type), 0);
        EXPECT_TRUE(view.valid());
        EXPECT_EQ(view.pixel_address(1, c.column), memory + 32 + c.offset);
    }
}

TEST(qImageAliasTest, RawBindingResults) {
    unsigned char memory[16] = {};
    qImageEdit view;
    // Height 0 binds but the view is not valid.
    EXPECT_EQ(view.Bind(memory, qSize(10, 0), 40, PT_BGRA32), 0);
    EXPECT_FALSE(view.valid());
    EXPECT_EQ(view.pixel_address(0, 0), nullptr);
    // A negative height cannot have a row table.
    EXPECT_EQ(view.Bind(memory, qSize(2, -1), 8, PT_BGRA32), -1);
    EXPECT_FALSE(view.valid());
    EXPECT_EQ(view.size(), qSize(0, 0));
    // Null memory on a bound view: -5 and unbound afterwards.
    ASSERT_EQ(view.Bind(memory, qSize(2, 2), 8, PT_BGRA32), 0);
    EXPECT_EQ(view.Bind(nullptr, qSize(2, 2), 8, PT_BGRA32), -5);
    EXPECT_FALSE(view.valid());
    EXPECT_EQ(view.pixel_type(), 0);
}

class IndexedBindingTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(palette_.create(3), 0);
        palette_.set_color(0, qPixRA{1, 2, 3, 255});
        palette_.set_color(1, qPixRA{4, 5, 6, 0});
        palette_.set_color(2, qPixRA{7, 8, 9, 128});
    }
    qColormap palette_;
};

TEST_F(IndexedBindingTest, BufferBindingMarksTheFirstTransparentEntry) {
    // No transparent index of its own: min_t_index falls back to entry 1, so the copy is opaque
    // everywhere but there, and entry 2 loses its partial alpha.
    const FakeIndexImage image(qSize(3, 2), &palette_, -1);
    qImageAlias view;
    ASSERT_EQ(view.Bind(&image), 0);
    ASSERT_NE(view.colormap(), nullptr);
    EXPECT_EQ(view.colormap()->num_colors(), 3);
    EXPECT_EQ(view.colormap()->get_color(0).alpha, 255);
    EXPECT_EQ(view.colormap()->get_color(1).alpha, 0);
    EXPECT_EQ(view.colormap()->get_color(2).alpha, 255);
    EXPECT_EQ(view.colormap()->get_color(2).red, 9);
    // Rows come from the buffer one by one, so a non-contiguous layout is honoured.
    EXPECT_EQ(view.pixel_address(1, 2), image.pixel_address(1, 0) + 2);
    // The copy is private: editing the source palette does not reach it.
    palette_.set_color(0, qPixRA{0, 0, 0, 0});
    EXPECT_EQ(view.colormap()->get_color(0).blue, 1);
}

TEST_F(IndexedBindingTest, OwnTransparentIndexWins) {
    const FakeIndexImage image(qSize(3, 2), &palette_, 2);
    qImageAlias view;
    ASSERT_EQ(view.Bind(&image), 0);
    EXPECT_EQ(view.colormap()->get_color(1).alpha, 255);
    EXPECT_EQ(view.colormap()->get_color(2).alpha, 0);
}

TEST_F(IndexedBindingTest, OversizedPaletteKeepsPixelsButReportsMinusOne) {
    class BigMap : public qIColormap {
    public:
        void clear() override {}
        bool valid_index(int i) const override { return i >= 0 && i < 300; }
        int num_colors() const override { return 300; }
        const qPixRA* colors() const override { return nullptr; }
        qPixRA get_color(int) const override { return qPixRA{1, 1, 1, 255}; }
    } big;
    const FakeIndexImage image(qSize(3, 2), &big, -1);
    qImageAlias view;
    EXPECT_EQ(view.Bind(&image), -1);
    EXPECT_TRUE(view.valid());
    ASSERT_NE(view.colormap(), nullptr);
    EXPECT_EQ(view.colormap()->num_colors(), 0);
    EXPECT_FALSE(view.colormap()->valid_index(0));
}

TEST_F(IndexedBindingTest, RebindingToRawMemoryDropsThePaletteCopy) {
    const FakeIndexImage image(qSize(3, 2), &palette_, -1);
    unsigned char memory[8] = {};
    qImageEdit view;
    ASSERT_EQ(view.Bind(const_cast<FakeIndexImage*>(&image)), 0);
    ASSERT_NE(view.colormap(), nullptr);
    ASSERT_EQ(view.Bind(memory, qSize(2, 2), 4, PT_INDEX8), 0);
    EXPECT_EQ(view.colormap(), nullptr);
}

TEST(qImageAliasTest, BufferBindingRefusesNullAndHollowBuffers) {
    qImageAlias view;
    EXPECT_EQ(view.Bind(static_cast<const qIImageBuffer*>(nullptr)), -5);
    const HollowBuffer hollow;
    EXPECT_EQ(view.Bind(&hollow), -5);
    EXPECT_FALSE(view.valid());
}

#ifdef QIMG_TEST_HOOKS
TEST(qImageAliasTest, FailedAllocationsLeaveTheViewInTheSpecifiedState) {
    unsigned char memory[16] = {};
    qImageAlias view;
    qimg_fail_allocation(1);  // the row table
    EXPECT_EQ(view.Bind(memory, qSize(2, 2), 8, PT_BGRA32), -1);
    EXPECT_FALSE(view.valid());

    qColormap palette;
    ASSERT_EQ(palette.create(2), 0);
    const FakeIndexImage image(qSize(2, 2), &palette, -1);
    qimg_fail_allocation(2);  // the palette copy, after the row table
    EXPECT_EQ(view.Bind(&image), -1);
    EXPECT_TRUE(view.valid());  // the pixels stay bound
    EXPECT_EQ(view.colormap(), nullptr);
    qimg_fail_allocation(0);
    EXPECT_EQ(view.Bind(&image), 0);
}
#endif

}  // namespace
