#include <gtest/gtest.h>

#include <vector>

#include "qimg/color/qColormap.h"
#include "qimg/core/qAllocationHookPriv.h"
#include "qimg/core/qImageBuffer.h"
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

#ifdef QIMG_ALLOCATION_HOOK
#endif

}  // namespace
