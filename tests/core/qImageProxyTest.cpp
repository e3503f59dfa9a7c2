// The facade draws its image at its offset and scale exactly as a scaled transfer of the same
// pixels does from the point moved by the scaled offset: blended for true colour of unknown alpha,
// composited over for a palette with alpha, copied when the caller asks for opaque drawing.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "qimg/color/qColormap.h"
#include "qimg/core/qImageProxy.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/raster/qImageAlias.h"
#include "qimg/raster/qImageEdit.h"
#include "raster/qBlitReference.h"

namespace {

struct Placement {
    const char* name;
    qPoint offset;
    qRect rect;
    qPoint point;
    float scale;
};

// Bytes a third 0, a third 255 and a third in between; indices into a five-entry map.
void make_direct(qDirectImage& image) {
    std::mt19937 rng(3);
    ASSERT_EQ(image.Create_buffer(qSize(6, 4), PT_BGRA32, nullptr), 0);
    for (int i = 0; i < 6 * 4 * 4; ++i)
        image.pixel_address(i / 24, 0)[i % 24] = qref::random_alpha(rng);
}

void make_indexed(qIndexImage& image, qColormap& map) {
    ASSERT_EQ(map.create(5), 0);
    for (int i = 0; i < 5; ++i)
        map.set_color(i, qPixRA{static_cast<unsigned char>(50 * i), 90, 7, 255});
    ASSERT_EQ(image.Create_buffer(qSize(6, 4), PT_INDEX8), 0);
    ASSERT_EQ(image.set_colormap(&map, -1), 0);
    for (int i = 0; i < 6 * 4; ++i)
        image.pixel_address(i / 6, 0)[i % 6] = static_cast<unsigned char>(i * 7 % 5);
}

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

void expect_draws_like(qImageProxy& proxy, const qImageAlias& leaf, qBltMode mode) {
    for (const Placement& p : kPlacements) {
        for (bool opaque : {false, true}) {
            SCOPED_TRACE(testing::Message() << p.name << (opaque ? ", opaque" : ""));
            ASSERT_EQ(proxy.set_offset(p.offset), 0);
            std::vector<unsigned char> actual(12 * 10 * 4), expected(12 * 10 * 4);
            for (size_t i = 0; i < actual.size(); ++i)
                actual[i] = expected[i] = static_cast<unsigned char>(i * 7 + i / 13);
            qImageEdit to_actual, to_expected;
            ASSERT_EQ(to_actual.Bind(actual.data(), qSize(12, 10), 48, PT_BGRA32), 0);
            ASSERT_EQ(to_expected.Bind(expected.data(), qSize(12, 10), 48, PT_BGRA32), 0);
            ASSERT_EQ(proxy.Draw(&to_actual, p.rect, p.point, p.scale, p.scale, opaque), 0);
            const qPoint shift(static_cast<int>(p.offset.x * p.scale),
                               static_cast<int>(p.offset.y * p.scale));
            ASSERT_EQ(to_expected.ScaledBlt(p.rect, &leaf, p.point - shift, p.scale, p.scale, 1,
                                            opaque ? BLT_COPY : mode, 255, nullptr),
                      0);
            EXPECT_EQ(actual, expected);
        }
    }
}

TEST(qImageProxyTest, DrawsTrueColourLikeAScaledTransfer) {
    qDirectImage image;
    make_direct(image);
    qImageProxy proxy;
    ASSERT_EQ(proxy.Set(&image), 0);
    qImageAlias leaf;
    ASSERT_EQ(leaf.Bind(&image), 0);
    expect_draws_like(proxy, leaf, BLT_BLEND);
}

TEST(qImageProxyTest, DrawsAnEditedPaletteLikeAScaledTransfer) {
    qColormap map;
    qIndexImage image;
    make_indexed(image, map);
    qImageProxy proxy;
    ASSERT_EQ(proxy.Set(&image), 0);
    ASSERT_TRUE(proxy.set_transparent(3));
    ASSERT_TRUE(proxy.set_color(1, qPixRA{10, 20, 30, 100}));
    // The same indices over a copy of the edited palette, every entry's alpha as it stands.
    qref::Image indices(PT_INDEX8, 6, 4);
    for (int y = 0; y < 4; ++y) std::memcpy(indices.row(y), image.pixel_address(y, 0), 6);
    indices.palette = std::make_shared<qColormap>();
    ASSERT_EQ(indices.palette->copy_from(proxy.colormap()), 0);
    std::unique_ptr<qIImageBuffer> holder;
    qImageAlias leaf;
    ASSERT_EQ(qref::bind(leaf, indices, holder), 0);
    expect_draws_like(proxy, leaf, BLT_OVER);
}

}  // namespace
