#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "image/DrawReference.h"
#include "qimg/core/qAllocationHookPriv.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"
#include "qimg/raster/qImageEdit.h"
#include "tests/common/ReadOnlyIndexImage.h"

namespace {

using draw_reference::Canvas;

// A palette of `n` opaque entries, entry i being (i, 2i, 3i, 255).
void make_palette(qColormap& map, int n) {
    ASSERT_EQ(map.create(n), 0);
    for (int i = 0; i < n; ++i) {
        map.set_color(i, qPixRA{static_cast<unsigned char>(i), static_cast<unsigned char>(2 * i),
                                static_cast<unsigned char>(3 * i), 255});
    }
}

// An index image whose pixel (x, y) holds (x + width * y) % colours.
void make_image(qIndexImage& image, qSize size, const qColormap& map, int transparent) {
    ASSERT_EQ(image.Create_buffer(size, PT_INDEX8), 0);
    ASSERT_EQ(image.set_colormap(&map, transparent), 0);
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            *image.pixel_address(y, x) =
                static_cast<unsigned char>((x + size.width * y) % map.num_colors());
        }
    }
}

// An index buffer from outside the library whose rows are separate, exactly sized allocations.
class ForeignIndexImage : public qtest::ReadOnlyIndexImage {
public:
    ForeignIndexImage(qSize size, qPixelType type, const qIColormap* map, int transparent)
        : size_(size), type_(type), map_(map), transparent_(transparent) {
        const int bytes = bits_per_pixel(type) / 8;
        for (int r = 0; r < size.height; ++r) {
            rows_.emplace_back(static_cast<size_t>(size.width * bytes));
            for (int c = 0; c < size.width * bytes; ++c) {
                rows_.back()[static_cast<size_t>(c)] = static_cast<unsigned char>((r + c) % 4);
            }
        }
    }
    bool valid() const override { return true; }
    unsigned char* pixel_address(int row, int column) const override {
        if (row < 0 || column < 0) return nullptr;
        return const_cast<unsigned char*>(rows_[static_cast<size_t>(row)].data()) +
               column * bits_per_pixel(type_) / 8;
    }
    qSize size() const override { return size_; }
    qPixelType pixel_type() const override { return type_; }
    const qIColormap* colormap() const override { return map_; }
    int min_t_index() const override {
        return transparent_ >= 0 ? transparent_ : map_->min_t_index();
    }

    qSize size_;
    qPixelType type_;
    const qIColormap* map_;
    int transparent_;
    std::vector<std::vector<unsigned char>> rows_;
};

void expect_empty(const qIndexImage& image) {
    EXPECT_FALSE(image.valid());
    EXPECT_EQ(image.size(), qSize());
    EXPECT_EQ(image.pixel_type(), 0);
    EXPECT_EQ(image.colormap(), nullptr);
    EXPECT_EQ(image.transparent_index(), -1);
    EXPECT_EQ(image.pixel_address(0, 0), nullptr);
}

TEST(qIndexImageTest, SetColormapStoresOnlyATransparentIndexInsideTheMap) {
    qColormap map;
    make_palette(map, 16);
    qColormap empty_map;
    struct Case {
        const char* name;
        const qIColormap* map;
        int transparent;
        int result;
        int stored;
    };
    // Each case starts from an image whose transparent index is 3.
    const Case cases[] = {
        {                "inside the map",       &map, 15,  0, 15},
        {"past the map keeps the old one",       &map, 20,  0,  3},
        {             "-1 does not clear",       &map, -1,  0,  3},
        {              "null map refused",    nullptr,  5, -5,  3},
        {   "map without entries refused", &empty_map,  5, -5,  3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qColormap other;
        make_palette(other, 4);
        qIndexImage image;
        ASSERT_EQ(image.Create_buffer(qSize(2, 2), PT_INDEX8), 0);
        ASSERT_EQ(image.set_colormap(&other, 3), 0);
        EXPECT_EQ(image.set_colormap(c.map, c.transparent), c.result);
        EXPECT_EQ(image.transparent_index(), c.stored);
        EXPECT_EQ(image.colormap(), c.result == 0 ? c.map : &other);
    }
}

TEST(qIndexImageTest, CreateBufferForgetsMapAndTransparentIndex) {
    qColormap map;
    make_palette(map, 4);
    qIndexImage image;
    make_image(image, qSize(3, 2), map, 2);
    ASSERT_TRUE(image.valid());
    ASSERT_EQ(image.Create_buffer(qSize(5, 5), PT_INDEX8), 0);
    EXPECT_FALSE(image.valid());  // no map yet
    EXPECT_EQ(image.colormap(), nullptr);
    EXPECT_EQ(image.transparent_index(), -1);
    EXPECT_EQ(image.Create_buffer(qSize(5, -1), PT_INDEX8), -6);
    expect_empty(image);
    EXPECT_EQ(image.Create_buffer(qSize(1 << 16, 1 << 15), PT_INDEX8), -6);  // 2^31 bytes
    expect_empty(image);
}

TEST(qIndexImageTest, PixelIndexIsMinusOneOutsideTheImage) {
    qColormap map;
    make_palette(map, 16);
    qIndexImage image;
    make_image(image, qSize(5, 3), map, -1);
    EXPECT_EQ(image.pixel_index(qPoint(4, 2)), 14);
    EXPECT_EQ(image.pixel_index(qPoint(0, 1)), 5);
    for (const qPoint p : {qPoint(5, 0), qPoint(0, -1), qPoint(-1, 0), qPoint(0, 3)}) {
        SCOPED_TRACE(testing::Message() << p.x << ", " << p.y);
        EXPECT_EQ(image.pixel_index(p), -1);
    }
    qIndexImage empty;
    EXPECT_EQ(empty.pixel_index(qPoint(0, 0)), -1);
}

// Where the transparency comes from: the image's own index wins over the palette's alphas.
TEST(qIndexImageTest, TransparentIndexVersusPaletteAlpha) {
    struct Case {
        const char* name;
        int transparent;
        std::vector<int> zero_alpha_entries;
        int partial_alpha_entry;
        int min_t_index;
        qAlphaType hint;
    };
    const Case cases[] = {
        {          "nothing transparent", -1,     {}, -1, -1,      AT_OPAQUE},
        {"own index over opaque palette",  6,     {}, -1,  6,     AT_BILEVEL},
        {  "own index wins over palette",  6,    {2}, -1,  6,     AT_BILEVEL},
        {  "palette's lowest zero alpha", -1, {9, 4}, -1,  4,     AT_BILEVEL},
        {                "partial alpha", -1,     {},  3, -1, AT_TRANSLUCENT},
        {"own index hides partial alpha",  1,     {},  3,  1,     AT_BILEVEL},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qColormap map;
        make_palette(map, 16);
        for (int e : c.zero_alpha_entries) map.set_transparent(e);
        if (c.partial_alpha_entry >= 0) map.set_color(c.partial_alpha_entry, qPixRA{1, 1, 1, 90});
        qIndexImage image;
        make_image(image, qSize(4, 4), map, c.transparent);
        EXPECT_EQ(image.min_t_index(), c.min_t_index);
        EXPECT_EQ(image.alpha_hint(), c.hint);
    }
    qIndexImage empty;
    EXPECT_EQ(empty.min_t_index(), -1);
    EXPECT_EQ(empty.alpha_hint(), AT_NONE);
}

TEST(qIndexImageTest, CloneRefersToTheSameMapWithTheResolvedTransparentIndex) {
    qColormap map;
    make_palette(map, 16);
    map.set_transparent(4);
    qIndexImage image;
    make_image(image, qSize(7, 3), map, -1);
    ASSERT_EQ(image.transparent_index(), -1);
    std::unique_ptr<qIComponent> clone(image.clone());
    ASSERT_NE(clone, nullptr);
    auto* copy = dynamic_cast<qIndexImage*>(clone.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->colormap(), &map);
    EXPECT_EQ(copy->transparent_index(), 4);
    EXPECT_EQ(copy->alpha_hint(), AT_BILEVEL);
    EXPECT_NE(copy->pixel_address(0, 0), image.pixel_address(0, 0));
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 7; ++x) {
            EXPECT_EQ(copy->pixel_index(qPoint(x, y)), image.pixel_index(qPoint(x, y)));
        }
    }
    qIndexImage empty;
    EXPECT_EQ(empty.clone(), nullptr);
}

TEST(qIndexImageTest, CopiesIndicesFromForeignBuffers) {
    qColormap map;
    make_palette(map, 4);
    qColormap twin;  // equal entries, another object
    make_palette(twin, 4);
    struct Case {
        const char* name;
        qPixelType type;
        const qIColormap* given;
    };
    const Case cases[] = {
        {              "8-bit indices, own map",  PT_INDEX8, nullptr},
        {            "8-bit indices, equal map",  PT_INDEX8,   &twin},
        {"16-bit indices give their first byte", PT_INDEX16, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ForeignIndexImage source(qSize(5, 3), c.type, &map, 2);
        qIndexImage image;
        ASSERT_EQ(image.copy_from(&source, c.given), 0);
        EXPECT_EQ(image.pixel_type(), PT_INDEX8);
        EXPECT_EQ(image.colormap(), c.given ? c.given : &map);
        EXPECT_EQ(image.transparent_index(), 2);
        const int step = bits_per_pixel(c.type) / 8;
        for (int y = 0; y < 3; ++y) {
            for (int x = 0; x < 5; ++x) {
                EXPECT_EQ(image.pixel_index(qPoint(x, y)), (y + x * step) % 4);
            }
        }
    }
}

TEST(qIndexImageTest, BadCopiesLeaveTheImageEmpty) {
    qColormap map;
    make_palette(map, 4);
    qColormap different;
    make_palette(different, 5);
    ForeignIndexImage no_map(qSize(2, 2), PT_INDEX8, nullptr, 0);
    ForeignIndexImage true_colour(qSize(2, 2), PT_BGRA32, &map, -1);
    struct Case {
        const char* name;
        const qIIndexImage* source;
        const qIColormap* given;
        int result;
    };
    const Case cases[] = {
        {               "null source",      nullptr,       &map, -5},
        {           "no map anywhere",      &no_map,    nullptr, -5},
        { "a map that does not match", &true_colour, &different, -5},
        {"pixels that are no indices", &true_colour,    nullptr, -6},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qIndexImage image;
        make_image(image, qSize(2, 2), map, 1);
        EXPECT_EQ(image.copy_from(c.source, c.given), c.result);
        expect_empty(image);
    }
}

// The plain image keeps its own transparent index in the palette copy it draws with: that entry
// is composited away even though every entry of the map is opaque, unless `opaque` asks for a
// plain copy, which then carries the entry with alpha 0.
TEST(qIndexImageTest, TransparentIndexDrawsOverUnlessOpaque) {
    qColormap map;
    make_palette(map, 4);
    qIndexImage image;
    make_image(image, qSize(4, 1), map, 2);
    const qPixRA background{200, 201, 202, 203};
    for (const bool opaque : {false, true}) {
        SCOPED_TRACE(opaque);
        Canvas canvas(4, 1, background);
        ASSERT_EQ(image.Draw(&canvas.view, qRect(0, 0, 4, 1), qPoint(), 1.0f, 1.0f, opaque), 0);
        EXPECT_EQ(canvas.at(1, 0), (qPixRA{1, 2, 3, 255}));
        EXPECT_EQ(canvas.at(2, 0), (opaque ? qPixRA{2, 4, 6, 0} : background));
    }
    EXPECT_EQ(image.Draw(nullptr, qRect(0, 0, 4, 1), qPoint(), 1.0f, 1.0f, false), -5);
    qIndexImage no_map;
    ASSERT_EQ(no_map.Create_buffer(qSize(2, 2), PT_INDEX8), 0);
    Canvas canvas(2, 2, background);
    EXPECT_EQ(no_map.Draw(&canvas.view, qRect(0, 0, 2, 2), qPoint(), 1.0f, 1.0f, false), -1);
    EXPECT_EQ(canvas.at(0, 0), background);
}

#ifdef QIMG_TEST_HOOKS
TEST(qIndexImageTest, EveryAllocationFailureOfACopyGivesMinusOneAndAnEmptyImage) {
    qColormap map;
    make_palette(map, 4);
    ForeignIndexImage source(qSize(6, 4), PT_INDEX8, &map, 1);
    for (long n = 1;; ++n) {
        SCOPED_TRACE(n);
        qIndexImage image;
        make_image(image, qSize(2, 2), map, 1);
        qimg_fail_allocation(n);
        const int rc = image.copy_from(&source, nullptr);
        qimg_fail_allocation(0);
        if (rc == 0) break;
        EXPECT_EQ(rc, -1);
        expect_empty(image);
        ASSERT_LT(n, 20);
    }
    // Drawing allocates its view; a failure draws nothing and changes nothing.
    qIndexImage image;
    make_image(image, qSize(2, 2), map, 1);
    for (long n = 1;; ++n) {
        SCOPED_TRACE(n);
        Canvas canvas(4, 4, qPixRA{5, 5, 5, 5});
        qimg_fail_allocation(n);
        const int rc = image.Draw(&canvas.view, qRect(0, 0, 4, 4), qPoint(), 2.0f, 2.0f, false);
        qimg_fail_allocation(0);
        if (rc == 0) break;
        EXPECT_EQ(rc, -1);
        EXPECT_EQ(canvas.at(0, 0), (qPixRA{5, 5, 5, 5}));
        EXPECT_TRUE(image.valid());
        ASSERT_LT(n, 20);
    }
}
#endif

}  // namespace
