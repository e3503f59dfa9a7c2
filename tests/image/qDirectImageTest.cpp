#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "image/DrawReference.h"
#include "qimg/core/qAllocationHookPriv.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/raster/qImageEdit.h"

namespace {

using draw_reference::Canvas;

// A true-colour buffer from outside the library whose rows are separate allocations of exactly
// the pixel bytes, with no padding: a copy that reads past a row's pixels trips ASan.
class TightRows : public qIDirectImage {
public:
    TightRows(qSize size, qPixelType type) : size_(size), type_(type) {
        const size_t bytes = static_cast<size_t>(size.width * bits_per_pixel(type) / 8);
        for (int r = 0; r < size.height; ++r) {
            rows_.emplace_back(bytes);
            for (size_t i = 0; i < bytes; ++i)
                rows_.back()[i] = static_cast<unsigned char>(r * 31 + i);
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

    qSize size_;
    qPixelType type_;
    std::vector<std::vector<unsigned char>> rows_;
};

void expect_empty(const qDirectImage& image) {
    EXPECT_FALSE(image.valid());
    EXPECT_EQ(image.size(), qSize());
    EXPECT_EQ(image.pixel_type(), 0);
    EXPECT_EQ(image.pixel_address(0, 0), nullptr);
    EXPECT_EQ(image.alpha_hint(), AT_NONE);
}

// Makes `image` 4 pixels wide, every byte 255, then writes `alphas` into consecutive pixels.
void fill_alphas(qDirectImage& image, qPixelType type, const std::vector<int>& alphas) {
    const int height = static_cast<int>((alphas.size() + 3) / 4);
    EXPECT_EQ(image.Create_buffer(qSize(4, height), type, nullptr), 0);
    const int bytes = bits_per_pixel(type) / 8;
    const int alpha_at = type == PT_BGRA32 ? 3 : type == PT_GRAY_ALPHA16 ? 1 : 0;
    for (int row = 0; row < height; ++row) {
        for (int column = 0; column < 4; ++column) {
            std::memset(image.pixel_address(row, column), 255, static_cast<size_t>(bytes));
            const size_t i = static_cast<size_t>(row * 4 + column);
            if (i < alphas.size()) {
                image.pixel_address(row, column)[alpha_at] = static_cast<unsigned char>(alphas[i]);
            }
        }
    }
}

TEST(qDirectImageTest, RowsArePaddedToFourBytes) {
    qDirectImage image;
    ASSERT_EQ(image.Create_buffer(qSize(10, 2), PT_BGR24, nullptr), 0);
    EXPECT_TRUE(image.valid());
    EXPECT_EQ(image.pixel_address(0, 3) - image.pixel_address(0, 0), 9);
    EXPECT_EQ(image.pixel_address(1, 0) - image.pixel_address(0, 0), 32);
    EXPECT_EQ(image.pixel_address(-1, 0), nullptr);
    EXPECT_EQ(image.pixel_address(0, -1), nullptr);
}

TEST(qDirectImageTest, SizesWithoutValueAreRefusedAndLeaveTheImageEmpty) {
    struct Case {
        const char* name;
        qSize size;
        qPixelType type;
    };
    const Case cases[] = {
        {                  "zero width",       qSize(0,       5),                  PT_BGRA32},
        {                 "zero height",       qSize(5,       0),                  PT_BGRA32},
        {              "negative width",      qSize(-3,       5),                   PT_GRAY8},
        {                      "type 0",       qSize(4,       4), static_cast<qPixelType>(0)},
        {           "type without size",       qSize(4,       4), static_cast<qPixelType>(5)},
        {           "stride beyond int", qSize(1 << 30,       1),                  PT_BGRA32},
        {"buffer beyond 2^31 - 1 bytes", qSize(1 << 15, 1 << 14),                  PT_BGRA32},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qDirectImage image;
        ASSERT_EQ(image.Create_buffer(qSize(2, 2), PT_BGRA32, nullptr), 0);
        EXPECT_EQ(image.Create_buffer(c.size, c.type, nullptr), -6);
        expect_empty(image);
    }
}

TEST(qDirectImageTest, FillPaintsOnlyTrueColourWithAlpha) {
    const unsigned char colour[4] = {10, 20, 30, 255};
    qDirectImage image;
    ASSERT_EQ(image.Create_buffer(qSize(4, 4), PT_BGRA32, colour), 0);
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column) {
            EXPECT_EQ(std::memcmp(image.pixel_address(row, column), colour, 4), 0);
        }
    }
    EXPECT_EQ(image.Create_buffer(qSize(4, 4), PT_BGR24, colour), -6);
    expect_empty(image);
    EXPECT_EQ(image.Create_buffer(qSize(4, 4), PT_GRAY8, colour), -6);
    expect_empty(image);
}

TEST(qDirectImageTest, AlphaHintScansThePixels) {
    struct Case {
        const char* name;
        qPixelType type;
        std::vector<int> alphas;
        qAlphaType expected;
    };
    const Case cases[] = {
        {         "all opaque",PT_BGRA32,                   {255, 255, 255, 255, 255},AT_OPAQUE                                                                                             },
        {           "one zero",       PT_BGRA32,                     {255, 0, 255, 255, 255},     AT_BILEVEL},
        {  "zero then partial",       PT_BGRA32,                     {0, 255, 255, 255, 128}, AT_TRANSLUCENT},
        {"partial in last row",
         PT_BGRA32, {255, 255, 255, 255, 255, 255, 255, 255, 1},
         AT_TRANSLUCENT                                                                                     },
        {    "grey with alpha", PT_GRAY_ALPHA16,                                 {255, 0, 0},     AT_BILEVEL},
        {         "alpha only",       PT_ALPHA8,                                  {255, 254}, AT_TRANSLUCENT},
        {   "no alpha channel",        PT_BGR24,                                      {0, 0},      AT_OPAQUE},
        {               "grey",        PT_GRAY8,                                         {0},      AT_OPAQUE},
        {            "indices",       PT_INDEX8,                                         {0},        AT_NONE},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qDirectImage image;
        fill_alphas(image, c.type, c.alphas);
        EXPECT_EQ(image.alpha_hint(), AT_NONE);  // nothing scanned yet
        EXPECT_EQ(image.Get_alpha_hint(), c.expected);
        EXPECT_EQ(image.alpha_hint(), c.expected);
    }
    qDirectImage empty;
    EXPECT_EQ(empty.Get_alpha_hint(), AT_NONE);
}

TEST(qDirectImageTest, CopyReadsOnlyEachRowsPixelsAndIsIndependent) {
    TightRows source(qSize(3, 4), PT_BGR24);  // 9 bytes a row, no padding
    qDirectImage copy;
    ASSERT_EQ(copy.copy_from(&source), 0);
    EXPECT_EQ(copy.size(), qSize(3, 4));
    EXPECT_EQ(copy.pixel_type(), PT_BGR24);
    for (int row = 0; row < 4; ++row) {
        EXPECT_EQ(std::memcmp(copy.pixel_address(row, 0),
                              source.rows_[static_cast<size_t>(row)].data(), 9),
                  0);
    }
    source.rows_[0][0] = 77;
    EXPECT_NE(copy.pixel_address(0, 0)[0], 77);
}

TEST(qDirectImageTest, CopyAndCloneForgetTheAlphaHint) {
    qDirectImage image;
    fill_alphas(image, PT_BGRA32, {255, 255, 255, 255});
    ASSERT_EQ(image.Get_alpha_hint(), AT_OPAQUE);
    std::unique_ptr<qIComponent> clone(image.clone());
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(clone->alpha_hint(), AT_NONE);
    EXPECT_EQ(clone->size(), image.size());
    auto* pixels = dynamic_cast<qDirectImage*>(clone.get());
    ASSERT_NE(pixels, nullptr);
    EXPECT_NE(pixels->pixel_address(0, 0), image.pixel_address(0, 0));
    EXPECT_EQ(std::memcmp(pixels->pixel_address(0, 0), image.pixel_address(0, 0), 16), 0);
}

TEST(qDirectImageTest, BadSourcesEmptyTheImage) {
    qDirectImage empty;
    qDirectImage image;
    ASSERT_EQ(image.Create_buffer(qSize(2, 2), PT_GRAY8, nullptr), 0);
    EXPECT_EQ(image.copy_from(nullptr), -5);
    expect_empty(image);
    ASSERT_EQ(image.Create_buffer(qSize(2, 2), PT_GRAY8, nullptr), 0);
    EXPECT_EQ(image.copy_from(&empty), -5);
    expect_empty(image);
    EXPECT_EQ(image.copy_from(&image), -5);  // emptied first, so no longer a valid source
    EXPECT_EQ(empty.clone(), nullptr);
}

TEST(qDirectImageTest, DrawNeedsATargetAndPixels) {
    qDirectImage image;
    Canvas canvas(4, 4, qPixRA{1, 2, 3, 4});
    EXPECT_EQ(image.Draw(&canvas.view, qRect(0, 0, 4, 4), qPoint(), 1.0f, 1.0f, false), -5);
    ASSERT_EQ(image.Create_buffer(qSize(2, 2), PT_BGRA32, nullptr), 0);
    EXPECT_EQ(image.Draw(nullptr, qRect(0, 0, 4, 4), qPoint(), 1.0f, 1.0f, false), -5);
    EXPECT_EQ(canvas.at(0, 0), (qPixRA{1, 2, 3, 4}));
}

// The stored hint, not the pixels, picks the mode: an image scanned as opaque and then given a
// transparent pixel is still copied (that pixel arrives with alpha 0 and its colour), while an
// unscanned one is blended (the target keeps its colour, takes alpha 0).
TEST(qDirectImageTest, StoredAlphaHintPicksCopyOrBlend) {
    const unsigned char white[4] = {255, 255, 255, 255};
    const qPixRA background{9, 9, 9, 255};
    struct Case {
        const char* name;
        bool scan;
        bool opaque;
        qPixRA expected;
    };
    const Case cases[] = {
        {  "never scanned: blend", false, false,    qPixRA{9, 9, 9, 0}},
        {  "scanned opaque: copy",  true, false, qPixRA{50, 60, 70, 0}},
        {"opaque asked for: copy", false,  true, qPixRA{50, 60, 70, 0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qDirectImage image;
        ASSERT_EQ(image.Create_buffer(qSize(2, 1), PT_BGRA32, white), 0);
        if (c.scan) {
            ASSERT_EQ(image.Get_alpha_hint(), AT_OPAQUE);
        }
        const unsigned char hole[4] = {50, 60, 70, 0};
        std::memcpy(image.pixel_address(0, 1), hole, 4);
        Canvas canvas(2, 1, background);
        ASSERT_EQ(image.Draw(&canvas.view, qRect(0, 0, 2, 1), qPoint(), 1.0f, 1.0f, c.opaque), 0);
        EXPECT_EQ(canvas.at(0, 0), (qPixRA{255, 255, 255, 255}));
        EXPECT_EQ(canvas.at(1, 0), c.expected);
    }
}

#ifdef QIMG_TEST_HOOKS
// Every allocation of the rebuilding operations fails in turn: -1 each time, the image empty,
// and (under ASan) nothing leaked.
TEST(qDirectImageTest, EveryAllocationFailureGivesMinusOneAndAnEmptyImage) {
    const unsigned char colour[4] = {1, 2, 3, 4};
    TightRows source(qSize(5, 3), PT_BGRA32);
    struct Step {
        const char* name;
        int (*run)(qDirectImage&, const unsigned char*, const TightRows&);
    };
    const Step steps[] = {
        {"Create_buffer with fill",
         [](qDirectImage& i, const unsigned char* c,                                       const TightRows&) {
                                       return i.Create_buffer(qSize(6, 5), PT_BGRA32, c);
                                       }        },
        {              "copy_from",
         [](qDirectImage& i,   const unsigned char*, const TightRows& s) { return i.copy_from(&s); }},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        for (long n = 1;; ++n) {
            qDirectImage image;
            ASSERT_EQ(image.Create_buffer(qSize(2, 2), PT_BGRA32, nullptr), 0);
            qimg_fail_allocation(n);
            const int rc = step.run(image, colour, source);
            qimg_fail_allocation(0);
            if (rc == 0) break;
            SCOPED_TRACE(n);
            EXPECT_EQ(rc, -1);
            expect_empty(image);
            ASSERT_LT(n, 10);
        }
    }
    qDirectImage image;
    ASSERT_EQ(image.copy_from(&source), 0);
    qimg_fail_allocation(1);
    EXPECT_EQ(image.clone(), nullptr);
    qimg_fail_allocation(2);
    EXPECT_EQ(image.clone(), nullptr);
    qimg_fail_allocation(0);
}
#endif

}  // namespace
