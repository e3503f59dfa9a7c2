#include <gtest/gtest.h>

#include <vector>

#include "color/qTestImages.h"
#include "qimg/color/qColorQuantProxy.h"
#include "qimg/core/qAllocationHookPriv.h"
#include "qimg/palette/qIColormap.h"

namespace {

using qtest::rgba;

constexpr qPixRA kTransparentWhite{255, 255, 255, 0};

qPixRA grey(int v) {
    return rgba(v, v, v);
}

struct FixedCase {
    const char* name;
    int n;
    qCmapType kind;
    bool transparent;
    int count;                 // entries, transparent one included
    std::vector<qPixRA> head;  // the first entries
};

TEST(qColorQuantProxyTest, FixedPalettes) {
    const FixedCase cases[] = {
        {                              "grey 3",3, CM_GRAY,false,   3,                                       {grey(0), grey(128), grey(255)}                                                                          },
        {            "grey 3 with transparency",   3, CM_GRAY,  true,   3,                                           {grey(0), grey(255), kTransparentWhite}},
        {                              "grey 2",   2, CM_GRAY, false,   2,                                                              {grey(0), grey(255)}},
        {                              "grey 5",   5, CM_GRAY, false,   5,                              {grey(0), grey(64), grey(128), grey(191), grey(255)}},
        {                              "grey 1",   1, CM_GRAY, false,   1,                                                                         {grey(0)}},
        {                              "grey 0",   0, CM_GRAY, false,   0,                                                                                {}},
        {            "grey 0 with transparency",   0, CM_GRAY,  true,   1,                                                               {kTransparentWhite}},
        {                            "grey 256", 256, CM_GRAY, false, 256,                                                       {grey(0), grey(1), grey(2)}},
        {                    "grey 300 clamped", 300, CM_GRAY, false, 256,                                                                {grey(0), grey(1)}},
        {  "grey 300 clamped with transparency", 300, CM_GRAY,  true, 256,                                                                         {grey(0)}},
        {                              "cube 8",
         8, CM_CUBE,
         false,   8,
         {rgba(0, 0, 0), rgba(0, 0, 255), rgba(0, 255, 0), rgba(0, 255, 255), rgba(255, 0, 0)}                                                              },
        {                             "cube 12",  17, CM_CUBE, false,  12,                                 {rgba(0, 0, 0), rgba(0, 0, 255), rgba(0, 128, 0)}},
        {                             "cube 64",  79, CM_CUBE, false,  64,                                  {rgba(0, 0, 0), rgba(0, 0, 85), rgba(0, 0, 170)}},
        {          "cube 100 with transparency", 100, CM_CUBE,  true,  81,                                                   {rgba(0, 0, 0), rgba(0, 0, 85)}},
        {                            "cube 256", 256, CM_CUBE, false, 216,                                  {rgba(0, 0, 0), rgba(0, 0, 51), rgba(0, 0, 102)}},
        {          "cube 257 with transparency", 257, CM_CUBE,  true, 217,                                                                   {rgba(0, 0, 0)}},
        {                              "cube 7",   7, CM_CUBE, false,   2,                                              {rgba(0, 0, 0), rgba(255, 255, 255)}},
        {                              "cube 2",   2, CM_CUBE, false,   2,                                              {rgba(0, 0, 0), rgba(255, 255, 255)}},
        {                  "cube of one colour",   1, CM_CUBE, false,   1,                                                                   {rgba(0, 0, 0)}},
        {"cube of one colour with transparency",
         2, CM_CUBE,
         true,   2,
         {rgba(0, 0, 0), kTransparentWhite}                                                                                                                 },
    };
    for (const FixedCase& c : cases) {
        SCOPED_TRACE(c.name);
        qColorQuantProxy proxy;
        ASSERT_EQ(proxy.create_fixed_colormap(c.n, c.kind, c.transparent), 0);
        const qIColormap* map = proxy.fixed_colormap();
        ASSERT_NE(map, nullptr);
        ASSERT_EQ(map->num_colors(), c.count);
        for (size_t i = 0; i < c.head.size(); ++i)
            EXPECT_EQ(map->get_color(static_cast<int>(i)), c.head[i]) << i;
        for (int i = 0; i < c.count; ++i) {
            const bool last_transparent = c.transparent && i == c.count - 1;
            EXPECT_EQ(map->get_color(i).alpha, last_transparent ? 0 : 255) << i;
        }
        if (c.transparent) {
            EXPECT_EQ(map->get_color(c.count - 1), kTransparentWhite);
        }
        EXPECT_EQ(proxy.colormap(), nullptr);
    }
}

TEST(qColorQuantProxyTest, CubeRunsRedSlowestBlueFastest) {
    qColorQuantProxy proxy;
    ASSERT_EQ(proxy.create_fixed_colormap(216, CM_CUBE, false), 0);
    const qIColormap* map = proxy.fixed_colormap();
    ASSERT_EQ(map->num_colors(), 216);
    const int levels[6] = {0, 51, 102, 153, 204, 255};
    for (int i = 0; i < 216; ++i) {
        EXPECT_EQ(map->get_color(i), rgba(levels[i / 36], levels[(i / 6) % 6], levels[i % 6])) << i;
    }
}

TEST(qColorQuantProxyTest, UnknownKindsAreRefused) {
    for (int kind : {1, 3, -1}) {
        SCOPED_TRACE(kind);
        qColorQuantProxy proxy;
        ASSERT_EQ(proxy.create_quantizer(), 0);
        EXPECT_EQ(proxy.create_fixed_colormap(16, static_cast<qCmapType>(kind), true), -6);
        ASSERT_NE(proxy.fixed_colormap(), nullptr);
        EXPECT_EQ(proxy.fixed_colormap()->num_colors(), 0);
        EXPECT_EQ(proxy.select_colors(4, false), -5);  // the quantizer was released
    }
}

#ifdef QIMG_TEST_HOOKS
TEST(qColorQuantProxyTest, FixedMapAllocationFailure) {
    qColorQuantProxy proxy;
    qimg_fail_allocation(1);
    EXPECT_EQ(proxy.create_fixed_colormap(16, CM_GRAY, false), -1);
    qimg_fail_allocation(0);
    EXPECT_EQ(proxy.fixed_colormap(), nullptr);
    EXPECT_EQ(proxy.create_fixed_colormap(16, CM_GRAY, false), 0);
    EXPECT_EQ(proxy.fixed_colormap()->num_colors(), 16);
}
#endif

}  // namespace
