#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "image/DrawReference.h"
#include "qimg/color/qColormap.h"
#include "qimg/core/qImageProxy.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/image/qIndexImage.h"
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

}  // namespace
