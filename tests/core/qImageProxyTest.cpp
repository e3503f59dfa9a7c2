#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "image/DrawReference.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"
#include "qimg/raster/qImageEdit.h"

namespace {

using draw_reference::Canvas;

// A 6 x 4 PT_BGRA32 image with distinct colours and every kind of alpha: opaque, transparent
// and partial.
void make_direct(qDirectImage& image) {
    ASSERT_EQ(image.Create_buffer(qSize(6, 4), PT_BGRA32, nullptr), 0);
    const unsigned char alphas[] = {255, 0, 128, 255, 40, 255, 200};
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 6; ++x) {
            unsigned char* p = image.pixel_address(y, x);
            p[0] = static_cast<unsigned char>(40 * x);
            p[1] = static_cast<unsigned char>(60 * y);
            p[2] = static_cast<unsigned char>(17 * (x + y));
            p[3] = alphas[(x + 6 * y) % 7];
        }
    }
}

// A 6 x 4 index image over a caller palette of 5 opaque entries; pixel (x, y) holds (x + y) % 5.
void make_indexed(qIndexImage& image, qColormap& map) {
    ASSERT_EQ(map.create(5), 0);
    for (int i = 0; i < 5; ++i) {
        map.set_color(i, qPixRA{static_cast<unsigned char>(50 * i), 90,
                                static_cast<unsigned char>(250 - 50 * i), 255});
    }
    ASSERT_EQ(image.Create_buffer(qSize(6, 4), PT_INDEX8), 0);
    ASSERT_EQ(image.set_colormap(&map, -1), 0);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 6; ++x)
            *image.pixel_address(y, x) = static_cast<unsigned char>((x + y) % 5);
    }
}

void expect_empty(const qImageProxy& proxy) {
    EXPECT_FALSE(proxy.valid());
    EXPECT_EQ(proxy.size(), qSize());
    EXPECT_EQ(proxy.alpha_hint(), AT_NONE);
    EXPECT_EQ(proxy.offset(), qPoint());
    EXPECT_EQ(proxy.colormap(), nullptr);
    EXPECT_EQ(proxy.pixel_index(qPoint()), -1);
    EXPECT_EQ(proxy.current_leaf(), nullptr);
    EXPECT_EQ(proxy.current_leaf_type(), CT_NONE);
    EXPECT_EQ(proxy.min_t_index(), -1);
}

TEST(qImageProxyTest, AnEmptyProxyGivesTheFixedAnswers) {
    qImageProxy proxy;
    expect_empty(proxy);
    EXPECT_FALSE(proxy.is_animation());
    EXPECT_EQ(proxy.num_frames(), 0);
    EXPECT_EQ(proxy.get_rep_color(), (qPixRA{0, 0, 0, 0}));
    Canvas canvas(2, 2, qPixRA{});
    EXPECT_EQ(proxy.Draw(&canvas.view, qRect(0, 0, 2, 2), qPoint(), 1.0f, 1.0f, false), -5);
    EXPECT_EQ(proxy.set_offset(qPoint(1, 1)), -5);
    EXPECT_EQ(proxy.set_screen_size(qSize(5, 5)), -5);
    EXPECT_FALSE(proxy.set_transparent(0));
    EXPECT_FALSE(proxy.set_ex_transparent(0));
    EXPECT_FALSE(proxy.set_color(0, qPixRA{}));
    proxy.set_opaque_all();
    qColormap map;
    EXPECT_EQ(proxy.quantize_colors(&map, QT_NEAREST, false, 1.0f, 1.0f, nullptr), -5);
    EXPECT_EQ(proxy.quantize_colors(16, CM_ADAPTIVE, QT_NEAREST, false, 1.0f, 1.0f, 1, nullptr),
              -5);
    expect_empty(proxy);
}

TEST(qImageProxyTest, KeepsItsOwnCopyOfATrueColourImage) {
    qImageProxy proxy;
    {
        qDirectImage image;
        ASSERT_EQ(image.Create_buffer(qSize(8, 6), PT_BGR24, nullptr), 0);
        for (int y = 0; y < 6; ++y) {
            for (int x = 0; x < 8; ++x)
                image.pixel_address(y, x)[0] = static_cast<unsigned char>(x + 8 * y);
        }
        ASSERT_EQ(proxy.Set(&image), 0);
        image.pixel_address(0, 0)[0] = 99;
    }  // the caller's image is gone
    EXPECT_TRUE(proxy.valid());
    EXPECT_EQ(proxy.size(), qSize(8, 6));
    EXPECT_EQ(proxy.offset(), qPoint(0, 0));
    EXPECT_EQ(proxy.colormap(), nullptr);
    EXPECT_EQ(proxy.current_leaf_type(), CT_DIRECT_IMAGE);
    EXPECT_FALSE(proxy.set_transparent(0));
    EXPECT_EQ(proxy.min_t_index(), -1);
    EXPECT_EQ(proxy.num_frames(), 0);
    const auto* pixels = dynamic_cast<const qIImageBuffer*>(proxy.current_leaf());
    ASSERT_NE(pixels, nullptr);
    EXPECT_EQ(pixels->pixel_address(0, 0)[0], 0);
    EXPECT_EQ(pixels->pixel_address(5, 7)[0], 47);
}

TEST(qImageProxyTest, EditsItsOwnCopyOfAnIndexImagesPalette) {
    qColormap map;
    qIndexImage image;
    make_indexed(image, map);
    qImageProxy proxy;
    ASSERT_EQ(proxy.Set(&image), 0);
    EXPECT_EQ(proxy.current_leaf_type(), CT_INDEX_IMAGE);
    ASSERT_NE(proxy.colormap(), nullptr);
    EXPECT_NE(proxy.colormap(), &map);
    EXPECT_TRUE(proxy.set_color(1, qPixRA{1, 2, 3, 4}));
    EXPECT_EQ(proxy.colormap()->get_color(1), (qPixRA{1, 2, 3, 4}));
    EXPECT_EQ(map.get_color(1), (qPixRA{50, 90, 200, 255}));
    EXPECT_TRUE(proxy.set_ex_transparent(2));
    EXPECT_EQ(proxy.min_t_index(), 2);
    EXPECT_EQ(proxy.alpha_hint(), AT_BILEVEL);
    EXPECT_FALSE(proxy.set_transparent(5));  // outside the palette
    EXPECT_EQ(map.min_t_index(), -1);
}

TEST(qImageProxyTest, ThePositionOnTheScreenMovesPixelIndices) {
    qColormap map;
    qIndexImage image;
    make_indexed(image, map);
    qImageProxy proxy;
    ASSERT_EQ(proxy.Set(&image), 0);
    EXPECT_EQ(proxy.set_offset(qPoint(3, 4)), 0);
    EXPECT_EQ(proxy.offset(), qPoint(3, 4));
    EXPECT_EQ(proxy.pixel_index(qPoint(3, 4)), image.pixel_index(qPoint(0, 0)));
    EXPECT_EQ(proxy.pixel_index(qPoint(8, 7)), image.pixel_index(qPoint(5, 3)));
    EXPECT_EQ(proxy.pixel_index(qPoint(2, 4)), -1);
    EXPECT_EQ(proxy.set_screen_size(qSize(40, 30)), 0);
    EXPECT_EQ(proxy.size(), qSize(40, 30));
}

TEST(qImageProxyTest, SetEmptiesTheProxyOnBadInput) {
    qColormap map;
    qIndexImage indexed;
    make_indexed(indexed, map);
    qDirectImage empty_direct;
    qIndexImage empty_indexed;
    qImageProxy empty_proxy;
    struct Case {
        const char* name;
        int (*set)(qImageProxy&, const qDirectImage&, const qIndexImage&, const qImageProxy&);
    };
    const Case cases[] = {
        { "null true-colour image",
         [](qImageProxy& p,   const qDirectImage&,   const qIndexImage&,const qImageProxy&) {
return p.Set(static_cast<const qIDirectImage*>(nullptr));
}                                                                        },
        {       "null index image",
         [](qImageProxy& p,   const qDirectImage&,   const qIndexImage&, const qImageProxy&) {
 return p.Set(static_cast<const qIIndexImage*>(nullptr));
 }},
        {             "null proxy",
         [](qImageProxy& p,   const qDirectImage&,   const qIndexImage&, const qImageProxy&) {
 return p.Set(static_cast<const qImageProxy*>(nullptr));
 }},
        {"empty true-colour image", [](qImageProxy& p, const qDirectImage& d,   const qIndexImage&,
         const qImageProxy&) { return p.Set(&d); }                        },
        {"index image without map", [](qImageProxy& p,   const qDirectImage&, const qIndexImage& i,
         const qImageProxy&) { return p.Set(&i); }                        },
        {            "empty proxy", [](qImageProxy& p,   const qDirectImage&,   const qIndexImage&,
         const qImageProxy& o) { return p.Set(&o); }                      },
        {                 "itself", [](qImageProxy& p,   const qDirectImage&,   const qIndexImage&,
         const qImageProxy&) { return p.Set(&p); }                        },
    };
    ASSERT_EQ(empty_indexed.Create_buffer(qSize(2, 2), PT_INDEX8), 0);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qImageProxy proxy;
        ASSERT_EQ(proxy.Set(&indexed), 0);
        EXPECT_EQ(c.set(proxy, empty_direct, empty_indexed, empty_proxy), -5);
        expect_empty(proxy);
    }
}

TEST(qImageProxyTest, SetFromAnotherProxyIsADeepCopy) {
    qColormap map;
    qIndexImage image;
    make_indexed(image, map);
    qImageProxy first;
    ASSERT_EQ(first.Set(&image), 0);
    ASSERT_EQ(first.set_offset(qPoint(2, 3)), 0);
    qImageProxy second;
    ASSERT_EQ(second.Set(&first), 0);
    EXPECT_EQ(second.offset(), qPoint(2, 3));
    EXPECT_NE(second.colormap(), first.colormap());
    EXPECT_NE(second.current_leaf(), first.current_leaf());
    EXPECT_TRUE(second.set_color(0, qPixRA{7, 7, 7, 0}));
    EXPECT_EQ(first.colormap()->get_color(0), (qPixRA{0, 90, 250, 255}));
    EXPECT_EQ(second.min_t_index(), 0);
    EXPECT_EQ(first.min_t_index(), -1);
    EXPECT_EQ(second.set_offset(qPoint(9, 9)), 0);
    EXPECT_EQ(first.offset(), qPoint(2, 3));
}

// Handing a proxy its own leaf copies it before the old one goes.
TEST(qImageProxyTest, SetWithItsOwnLeafKeepsTheImage) {
    qDirectImage direct;
    make_direct(direct);
    qImageProxy proxy;
    ASSERT_EQ(proxy.Set(&direct), 0);
    ASSERT_EQ(proxy.Set(dynamic_cast<const qIDirectImage*>(proxy.current_leaf())), 0);
    EXPECT_EQ(proxy.size(), qSize(6, 4));

    qColormap map;
    qIndexImage indexed;
    make_indexed(indexed, map);
    ASSERT_EQ(proxy.Set(&indexed), 0);
    ASSERT_TRUE(proxy.set_transparent(4));
    ASSERT_EQ(proxy.Set(dynamic_cast<const qIIndexImage*>(proxy.current_leaf())), 0);
    EXPECT_EQ(proxy.min_t_index(), 4);
    EXPECT_EQ(proxy.pixel_index(qPoint(5, 3)), 3);
}

// What is drawn: proxy -> decorator -> leaf, compared pixel by pixel with the naive model at
// offsets and scale factors. Positions and sizes at scale 2 are even (see DrawReference.h).
struct Placement {
    const char* name;
    qPoint offset;
    qRect rect;
    qPoint point;
    float scale;
};
const Placement kPlacements[] = {
    {                       "in place", qPoint(0, 0),  qRect(2,  1,  8,  6), qPoint(0, 0), 1.0f},
    {           "offset, point inside", qPoint(3, 2),  qRect(0,  0, 12, 10), qPoint(1, 1), 1.0f},
    {"rect sticking out of the target", qPoint(1, 1), qRect(-3, -2, 10,  8), qPoint(0, 0), 1.0f},
    {           "point past the image", qPoint(0, 0),  qRect(0,  0, 12, 10), qPoint(4, 2), 1.0f},
    {                        "doubled", qPoint(0, 0),  qRect(0,  0, 12,  8), qPoint(0, 0), 2.0f},
    {            "doubled with offset", qPoint(3, 2),  qRect(0,  0, 12, 10), qPoint(0, 0), 2.0f},
    {         "doubled past the image", qPoint(0, 0),  qRect(0,  0, 12, 10), qPoint(4, 2), 2.0f},
    {"doubled, rect out of the target", qPoint(1, 0), qRect(-2,  4, 16,  8), qPoint(0, 0), 2.0f},
    {             "halved with offset", qPoint(4, 4),  qRect(0,  0,  6,  5), qPoint(0, 0), 0.5f},
};

qPixRA background_at(int x, int y) {
    return qPixRA{static_cast<unsigned char>(10 * x), static_cast<unsigned char>(20 * y), 77, 200};
}

void paint_background(Canvas& canvas) {
    for (int y = 0; y < canvas.height(); ++y) {
        for (int x = 0; x < canvas.width(); ++x) canvas.at(x, y) = background_at(x, y);
    }
}

void expect_draws_like_the_model(qImageProxy& placed, qSize image_size, bool opaque,
                                 qBltMode expected_mode,
                                 const std::function<qPixRA(int, int)>& pixel) {
    for (const Placement& p : kPlacements) {
        SCOPED_TRACE(p.name);
        ASSERT_EQ(placed.set_offset(p.offset), 0);
        Canvas actual(12, 10, qPixRA{});
        Canvas expected(12, 10, qPixRA{});
        paint_background(actual);
        paint_background(expected);
        ASSERT_EQ(placed.Draw(&actual.view, p.rect, p.point, p.scale, p.scale, opaque), 0);
        const qPoint shift(static_cast<int>(p.offset.x * p.scale),
                           static_cast<int>(p.offset.y * p.scale));
        draw_reference::draw(expected, p.rect, p.point - shift, p.scale, image_size, expected_mode,
                             pixel);
        EXPECT_TRUE(draw_reference::same_pixels(actual, expected));
    }
}

TEST(qImageProxyTest, DrawsTrueColourLikeTheModel) {
    qDirectImage image;
    make_direct(image);
    auto pixel = [&](int x, int y) {
        const unsigned char* p = image.pixel_address(y, x);
        return qPixRA{p[0], p[1], p[2], p[3]};
    };
    qImageProxy proxy;
    ASSERT_EQ(proxy.Set(&image), 0);
    {
        SCOPED_TRACE("alpha kind unknown: blended");
        expect_draws_like_the_model(proxy, image.size(), false, BLT_BLEND, pixel);
    }
    {
        SCOPED_TRACE("opaque asked for: copied");
        expect_draws_like_the_model(proxy, image.size(), true, BLT_COPY, pixel);
    }
}

TEST(qImageProxyTest, DrawsEditedIndexImagesLikeTheModel) {
    qColormap map;
    qIndexImage image;
    make_indexed(image, map);
    qImageProxy proxy;
    ASSERT_EQ(proxy.Set(&image), 0);
    ASSERT_TRUE(proxy.set_transparent(3));
    ASSERT_TRUE(proxy.set_color(1, qPixRA{10, 20, 30, 100}));
    const qIColormap* own = proxy.colormap();
    auto pixel = [&](int x, int y) { return own->get_color(image.pixel_index(qPoint(x, y))); };
    {
        SCOPED_TRACE("palette alphas: composited over");
        expect_draws_like_the_model(proxy, image.size(), false, BLT_OVER, pixel);
    }
    {
        SCOPED_TRACE("opaque asked for: copied");
        expect_draws_like_the_model(proxy, image.size(), true, BLT_COPY, pixel);
    }
}

TEST(qImageProxyTest, DrawWithoutTargetIsRefused) {
    qDirectImage image;
    make_direct(image);
    qImageProxy proxy;
    ASSERT_EQ(proxy.Set(&image), 0);
    EXPECT_EQ(proxy.Draw(nullptr, qRect(0, 0, 4, 4), qPoint(), 1.0f, 1.0f, false), -5);
}

}  // namespace
