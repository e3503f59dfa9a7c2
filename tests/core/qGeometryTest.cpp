#include <gtest/gtest.h>

#include <climits>

#include "qimg/core/qGeometry.h"

namespace {

struct IntersectCase {
    qRect a;
    qRect b;
    qRect expected;
};

constexpr IntersectCase kIntersectCases[] = {
  // overlapping, disjoint (origin kept at the larger corner), nested, touching
    {          qRect(0,       0,      10,      10),       qRect(5,   5,      10,      10),qRect(5,       5,       5, 5)                                                                                          },
    {          qRect(0,       0,      10,      10),      qRect(20,   3,       5,       5),          qRect(20,       3,       0, 0)},
    {          qRect(0,       0,      10,      10),       qRect(2,   3,       4,       5),           qRect(2,       3,       4, 5)},
    {          qRect(0,       0,      10,      10),      qRect(10,   0,       5,      10),          qRect(10,       0,       0, 0)},
    {         qRect(-5,      -5,       8,       8),       qRect(0,   0,     100,     100),           qRect(0,       0,       3, 3)},
 // empty and negative sizes never give an area
    {          qRect(0,       0,     -10,      10),     qRect(-20,   0,      50,      50),           qRect(0,       0,       0, 0)},
    {          qRect(3,       4,       0,       0),       qRect(0,   0,      10,      10),           qRect(3,       4,       0, 0)},
 // far edges past INT_MAX are taken at their true value, not wrapped
    {qRect(INT_MAX - 5,       0, INT_MAX,       1),       qRect(0,   0, INT_MAX,       1), qRect(INT_MAX - 5,       0,       5, 1)},
    {    qRect(INT_MIN, INT_MIN, INT_MAX, INT_MAX),     qRect(-10, -10,      20,      20),         qRect(-10,     -10,       9, 9)},
    {    qRect(INT_MIN,       0, INT_MAX,       1), qRect(INT_MIN,   0, INT_MAX,       1),     qRect(INT_MIN,       0, INT_MAX, 1)},
    {    qRect(INT_MAX, INT_MAX, INT_MAX, INT_MAX),       qRect(0,   0, INT_MAX, INT_MAX),
     qRect(INT_MAX, INT_MAX,       0, 0)                                                                                          },
};

TEST(qGeometryTest, IntersectTable) {
    for (const IntersectCase& c : kIntersectCases) {
        SCOPED_TRACE(testing::Message() << "a (" << c.a.x << ", " << c.a.y << ", " << c.a.width
                                        << ", " << c.a.height << ") b (" << c.b.x << ", " << c.b.y
                                        << ", " << c.b.width << ", " << c.b.height << ")");
        EXPECT_EQ(c.a.intersect(c.b), c.expected);
        EXPECT_EQ(c.b.intersect(c.a), c.expected);  // symmetric
        qRect stored = c.a;
        stored.intersect_with(c.b);
        EXPECT_EQ(stored, c.expected);
    }
}

TEST(qGeometryTest, PointArithmeticSaturatesInsteadOfWrapping) {
    EXPECT_EQ(qPoint(3, 4) + qPoint(10, 20), qPoint(13, 24));
    EXPECT_EQ(qPoint(3, 4) - qPoint(10, 20), qPoint(-7, -16));
    EXPECT_EQ(qPoint(INT_MAX, 1) + qPoint(1, INT_MAX), qPoint(INT_MAX, INT_MAX));
    EXPECT_EQ(qPoint(INT_MIN, 0) - qPoint(1, INT_MIN), qPoint(INT_MIN, INT_MAX));
}

TEST(qGeometryTest, RectConstructorsKeepFieldOrder) {
    EXPECT_EQ(qRect(qPoint(1, 2), qSize(3, 4)), qRect(1, 2, 3, 4));
    EXPECT_EQ(qRect(qSize(3, 4)), qRect(0, 0, 3, 4));
    EXPECT_TRUE(qRect(0, 0, 0, 5).empty());
    EXPECT_TRUE(qSize(5, -1).empty());
}

}  // namespace
