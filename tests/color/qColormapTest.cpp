#include <gtest/gtest.h>

#include <vector>

#include "qimg/palette/qColormap.h"
#include "qimg/palette/qSafeColormap.h"

namespace {

constexpr qPixRA kRed{0, 0, 255, 255};

// A palette with the given alphas; colour bytes derived from the index so entries differ.
void fill(qColormap& map, const std::vector<unsigned char>& alphas) {
    ASSERT_EQ(map.create(static_cast<int>(alphas.size())), 0);
    for (size_t i = 0; i < alphas.size(); ++i) {
        const auto v = static_cast<unsigned char>(i * 7);
        map.set_color(static_cast<int>(i), qPixRA{v, static_cast<unsigned char>(v + 1),
                                                  static_cast<unsigned char>(v + 2), alphas[i]});
    }
}

struct AlphaCase {
    std::vector<unsigned char> alphas;
    qAlphaType hint;
    int min_t_index;
};

TEST(qColormapTest, TransparencyQueriesTable) {
    const AlphaCase cases[] = {
        {        {255, 255},      AT_OPAQUE, -1},
        {     {255, 0, 255},     AT_BILEVEL,  1},
        {{255, 0, 255, 128}, AT_TRANSLUCENT,  1},
        {          {128, 0}, AT_TRANSLUCENT,  1},
        {               {0},     AT_BILEVEL,  0},
        {     {1, 255, 255}, AT_TRANSLUCENT, -1},
        {  {255, 254, 0, 0}, AT_TRANSLUCENT,  2},
    };
    for (const AlphaCase& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.alphas));
        qColormap map;
        fill(map, c.alphas);
        EXPECT_EQ(map.alpha_hint(), c.hint);
        EXPECT_EQ(map.min_t_index(), c.min_t_index);
        // The same answers through the other kind of map.
        const qSafeColormap copy(&map, -1);
        EXPECT_EQ(copy.alpha_hint(), c.hint);
        EXPECT_EQ(copy.min_t_index(), c.min_t_index);
    }
    qColormap empty;
    EXPECT_EQ(empty.alpha_hint(), AT_OPAQUE);
    EXPECT_EQ(empty.min_t_index(), -1);
}

TEST(qColormapTest, CreateAcceptsOneTo256Entries) {
    qColormap map;
    EXPECT_EQ(map.create(256), 0);
    EXPECT_EQ(map.num_colors(), 256);
    EXPECT_EQ(map.get_color(255), q_zero_color);
    for (int n : {0, -1, 257, 100000}) {
        SCOPED_TRACE(n);
        EXPECT_EQ(map.create(n), -5);
        EXPECT_EQ(map.num_colors(), 0);
        EXPECT_EQ(map.colors(), nullptr);
    }
}

TEST(qColormapTest, OutOfRangeIndicesChangeNothing) {
    qColormap map;
    ASSERT_EQ(map.create(4), 0);
    ASSERT_TRUE(map.set_color(3, kRed));
    EXPECT_EQ(map.get_color(4), q_zero_color);
    EXPECT_EQ(map.get_color(-1), q_zero_color);
    for (int index : {4, -1, 256}) {
        SCOPED_TRACE(index);
        EXPECT_FALSE(map.valid_index(index));
        EXPECT_FALSE(map.set_color(index, kRed));
        EXPECT_FALSE(map.set_transparent(index));
        EXPECT_FALSE(map.set_ex_transparent(index));
    }
    EXPECT_EQ(map.get_color(3), kRed);  // the refused set_ex_transparent made nothing opaque
}

TEST(qColormapTest, TransparencyEdits) {
    qColormap map;
    fill(map, {0, 0, 128, 255});
    EXPECT_TRUE(map.set_ex_transparent(3));
    EXPECT_EQ(map.get_color(0).alpha, 255);
    EXPECT_EQ(map.get_color(2).alpha, 255);
    EXPECT_EQ(map.get_color(3).alpha, 0);
    EXPECT_EQ(map.get_color(2).red, 16);  // colours unchanged
    EXPECT_TRUE(map.set_transparent(1));
    EXPECT_EQ(map.min_t_index(), 1);
    map.set_opaque_all();
    EXPECT_EQ(map.alpha_hint(), AT_OPAQUE);
}

TEST(qColormapTest, CopyFromTakesEveryEntryAndRefusesBadSources) {
    qColormap source;
    fill(source, {255, 0, 17});
    qColormap copy;
    ASSERT_EQ(copy.copy_from(&source), 0);
    ASSERT_EQ(copy.num_colors(), 3);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(copy.get_color(i), source.get_color(i));
    EXPECT_NE(copy.colors(), source.colors());

    EXPECT_EQ(copy.copy_from(nullptr), -5);
    EXPECT_EQ(copy.num_colors(), 0);
    const qColormap empty;
    EXPECT_EQ(copy.copy_from(&empty), -5);
}

TEST(qSafeColormapTest, SetColorGrowsTheCountAndKeepsSkippedBytes) {
    qSafeColormap map;
    map.set_color(5, kRed);
    EXPECT_EQ(map.num_colors(), 6);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(map.get_color(i), q_zero_color);
    EXPECT_EQ(map.get_color(5), kRed);
    map.set_color(2, kRed);
    EXPECT_EQ(map.num_colors(), 6);  // writing below the count does not shrink it
    // Out of the fixed room: ignored, not written past the array.
    map.set_color(256, kRed);
    map.set_color(-1, kRed);
    EXPECT_EQ(map.num_colors(), 6);
}

TEST(qSafeColormapTest, ReadsPastTheCountReturnStoredBytes) {
    qSafeColormap map;
    map.set_color(9, kRed);
    map.clear();  // count 0, bytes stay
    EXPECT_EQ(map.num_colors(), 0);
    EXPECT_FALSE(map.valid_index(9));
    EXPECT_EQ(map.get_color(9), kRed);
    EXPECT_EQ(map.get_color(200), q_zero_color);
    EXPECT_EQ(map.get_color(256), q_zero_color);
    EXPECT_EQ(map.get_color(-3), q_zero_color);
}

TEST(qSafeColormapTest, ConstructedFromSourceWithTransparentIndex) {
    std::vector<unsigned char> alphas(16, 255);
    alphas[1] = 0;
    alphas[5] = 77;
    qColormap source;
    fill(source, alphas);

    const qSafeColormap marked(&source, 3);
    ASSERT_EQ(marked.num_colors(), 16);
    for (int i = 0; i < 16; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(marked.get_color(i).alpha, i == 3 ? 0 : 255);
        EXPECT_EQ(marked.get_color(i).red, source.get_color(i).red);
    }

    const qSafeColormap kept(&source, -1);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(kept.get_color(i), source.get_color(i));

    // An index past the entries still makes every entry opaque.
    const qSafeColormap past(&source, 40);
    EXPECT_EQ(past.alpha_hint(), AT_OPAQUE);
}

// A source of any size, to reach the counts a qColormap refuses to hold.
class LargeMap : public qIColormap {
public:
    explicit LargeMap(int n) : n_(n) {}
    void clear() override {}
    bool valid_index(int i) const override { return i >= 0 && i < n_; }
    int num_colors() const override { return n_; }
    const qPixRA* colors() const override { return nullptr; }
    qPixRA get_color(int) const override { return kRed; }

private:
    int n_;
};

TEST(qSafeColormapTest, SourcesOutsideOneTo256LeaveTheMapEmpty) {
    for (int n : {0, 257, 300}) {
        SCOPED_TRACE(n);
        const LargeMap source(n);
        qSafeColormap map(&source, -1);
        EXPECT_FALSE(map.valid_index(0));
        EXPECT_EQ(map.assign(&source, 2), -5);
    }
    qSafeColormap map;
    EXPECT_EQ(map.assign(nullptr, -1), -5);
    const LargeMap full(256);
    EXPECT_EQ(map.assign(&full, -1), 0);
    EXPECT_EQ(map.num_colors(), 256);
}

TEST(qSafeColormapTest, TransparencyEditsFollowTheirOwnRules) {
    qSafeColormap map;
    for (int i = 0; i < 4; ++i) map.set_color(i, qPixRA{1, 2, 3, 100});
    EXPECT_TRUE(map.set_transparent(-1));  // negative: nothing to do
    EXPECT_EQ(map.get_color(0).alpha, 100);
    EXPECT_FALSE(map.set_transparent(4));
    EXPECT_FALSE(map.set_ex_transparent(7));
    EXPECT_EQ(map.alpha_hint(), AT_OPAQUE);  // ...but it made every entry opaque first
    EXPECT_TRUE(map.set_ex_transparent(2));
    EXPECT_EQ(map.min_t_index(), 2);
}

TEST(qSafeColormapTest, EqualsComparesOnlyTheEntriesInUse) {
    qSafeColormap a, b;
    EXPECT_TRUE(a.equals(b));
    a.set_color(0, kRed);
    EXPECT_FALSE(a.equals(b));
    b.set_color(0, kRed);
    EXPECT_TRUE(a.equals(b));
    // Different bytes beyond the count do not matter...
    a.set_color(7, q_zero_color);
    b.set_color(7, qPixRA{9, 9, 9, 9});
    a.clear();
    b.clear();
    a.set_color(0, kRed);
    b.set_color(0, kRed);
    EXPECT_TRUE(a.equals(b));
    // ...and one alpha byte in use does.
    b.set_transparent(0);
    EXPECT_FALSE(a.equals(b));
}

}  // namespace
