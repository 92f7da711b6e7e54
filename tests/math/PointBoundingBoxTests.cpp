#include <KelSDK/Math/BoundingBox.h>
#include <KelSDK/Math/Point.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using KelSDK::Math::boundingbox;
using KelSDK::Math::point;
using KelSDK::Math::point3d;
using KelSDK::Math::point3i;

TEST(Point, ConstructionAccessAndLayout)
{
    const point3d zero;
    EXPECT_EQ(zero, point3d(0, 0, 0));
    point3d p(1.5, -2, 3);
    EXPECT_EQ(p.x(), 1.5);
    EXPECT_EQ(p.y(), -2.0);
    EXPECT_EQ(p.z(), 3.0);
    p[1] = 7;
    EXPECT_EQ(p.data()[1], 7.0);
    EXPECT_EQ(point3i::Filled(4), point3i(4, 4, 4));
    // The coordinates are contiguous, so that arrays of points can be handed to file writers as is.
    static_assert(sizeof(point3d) == 3 * sizeof(double));
    static_assert(sizeof(point<float, 2>) == 2 * sizeof(float));
    const point<float, 2> two(1.0f, 2.0f);
    EXPECT_EQ(two.y(), 2.0f);
}

TEST(Point, Arithmetic)
{
    const point3d a(1, 2, 3), b(4, -5, 6);
    EXPECT_EQ(a + b, point3d(5, -3, 9));
    EXPECT_EQ(a - b, point3d(-3, 7, -3));
    EXPECT_EQ(a * 2.0, point3d(2, 4, 6));
    EXPECT_EQ(2.0 * a, point3d(2, 4, 6));
    EXPECT_EQ(b / 2.0, point3d(2, -2.5, 3));
    EXPECT_EQ(-a, point3d(-1, -2, -3));
    EXPECT_NE(a, b);
    EXPECT_EQ(a.dot(b), 4 - 10 + 18);
    EXPECT_EQ(point3d(1, 0, 0).cross(point3d(0, 1, 0)), point3d(0, 0, 1));
    EXPECT_EQ(a.cross(b), point3d(2 * 6 - 3 * -5, 3 * 4 - 1 * 6, 1 * -5 - 2 * 4));
    EXPECT_EQ(a.cross(a), point3d(0, 0, 0));
    // Integer points: the grid coordinates of mesh vertices.
    EXPECT_EQ(point3i(1, 2, 3) + point3i(10, 20, 30), point3i(11, 22, 33));
    EXPECT_EQ(point3i(3, 4, 0).squaredLength(), 25);
}

TEST(Point, LengthAndNormalisation)
{
    EXPECT_DOUBLE_EQ(point3d(3, 4, 12).length(), 13.0);
    // The length of an integer point is computed in double and does not overflow int.
    EXPECT_DOUBLE_EQ(point3i(2000000000, 0, 0).length(), 2e9);

    point3d n(0, 3, 4);
    ASSERT_TRUE(n.normalize());
    EXPECT_DOUBLE_EQ(n.y(), 0.6);
    EXPECT_DOUBLE_EQ(n.z(), 0.8);
    EXPECT_NEAR(n.length(), 1.0, 1e-15);

    point3d z;
    EXPECT_FALSE(z.normalize());
    EXPECT_EQ(z, point3d(0, 0, 0));
    EXPECT_EQ(point3d().normalized(), point3d(0, 0, 0));
    EXPECT_EQ(point3d(0, 0, -5).normalized(), point3d(0, 0, -1));

    // A NaN length does not pass for a usable direction.
    point3d bad(std::numeric_limits<double>::quiet_NaN(), 0, 0);
    EXPECT_FALSE(bad.normalize());
    // Neither tiny nor huge vectors lose their direction to squares that underflow or overflow.
    point3d tiny(1e-200, 0, 1e-200);
    EXPECT_DOUBLE_EQ(tiny.length(), std::sqrt(2.0) * 1e-200);
    ASSERT_TRUE(tiny.normalize());
    EXPECT_DOUBLE_EQ(tiny.x(), std::sqrt(0.5));
    point3d huge(3e200, -4e200, 0);
    EXPECT_DOUBLE_EQ(huge.length(), 5e200);
    ASSERT_TRUE(huge.normalize());
    EXPECT_DOUBLE_EQ(huge.y(), -0.8);
    EXPECT_DOUBLE_EQ(point3d(0, 5e-324, 0).length(), 5e-324);

    // An infinite coordinate has no direction to keep.
    point3d inf(std::numeric_limits<double>::infinity(), 1, 0);
    EXPECT_TRUE(std::isinf(inf.length()));
    EXPECT_FALSE(inf.normalize());
    EXPECT_EQ(inf.normalized(), point3d(0, 0, 0));
    EXPECT_TRUE(std::isnan(point3d(1, std::numeric_limits<double>::quiet_NaN(), 1e300).length()));
}

TEST(BoundingBox, EmptyBoxAndExtend)
{
    boundingbox<double, 3> box;
    EXPECT_TRUE(box.IsEmpty());
    EXPECT_FALSE(box.Contains(point3d(0, 0, 0)));

    box.Extend(point3d(1, 2, 3));
    EXPECT_FALSE(box.IsEmpty());
    EXPECT_EQ(box.GetMin(), point3d(1, 2, 3));
    EXPECT_EQ(box.GetMax(), point3d(1, 2, 3));
    EXPECT_EQ(box.GetSize(), point3d(0, 0, 0));
    EXPECT_TRUE(box.Contains(point3d(1, 2, 3)));

    box.Extend(point3d(-1, 5, 3));
    EXPECT_EQ(box.GetMin(), point3d(-1, 2, 3));
    EXPECT_EQ(box.GetMax(), point3d(1, 5, 3));
    EXPECT_EQ(box.GetCenter(), point3d(0, 3.5, 3));
    EXPECT_EQ(box.GetSize(), point3d(2, 3, 0));
    EXPECT_TRUE(box.Contains(point3d(1, 5, 3))); // on the border
    EXPECT_FALSE(box.Contains(point3d(1, 5, 3.0000001)));
}

TEST(BoundingBox, ExtendWithBoxes)
{
    boundingbox<double, 3> box(point3d(0, 0, 0), point3d(1, 1, 1));
    const boundingbox<double, 3> empty;
    box.Extend(empty); // an empty box changes nothing
    EXPECT_EQ(box.GetMin(), point3d(0, 0, 0));
    EXPECT_EQ(box.GetMax(), point3d(1, 1, 1));

    boundingbox<double, 3> grown;
    grown.Extend(box); // an empty box takes the other box as it is
    EXPECT_EQ(grown.GetMin(), point3d(0, 0, 0));
    EXPECT_EQ(grown.GetMax(), point3d(1, 1, 1));

    grown.Extend(boundingbox<double, 3>(point3d(-2, 0.5, 0.5), point3d(0.5, 0.5, 4)));
    EXPECT_EQ(grown.GetMin(), point3d(-2, 0, 0));
    EXPECT_EQ(grown.GetMax(), point3d(1, 1, 4));

    boundingbox<double, 3> stillEmpty;
    stillEmpty.Extend(empty);
    EXPECT_TRUE(stillEmpty.IsEmpty());

    // A box that is empty on one axis only is empty.
    const boundingbox<double, 3> inverted(point3d(0, 0, 1), point3d(1, 1, 0));
    EXPECT_TRUE(inverted.IsEmpty());
}

TEST(BoundingBox, IntegerBoxesAcrossTheWholeRange)
{
    boundingbox<int, 3> box;
    EXPECT_TRUE(box.IsEmpty());
    box.Extend(point3i(std::numeric_limits<int>::max(), 0, -5));
    box.Extend(point3i(std::numeric_limits<int>::min(), 0, 5));
    EXPECT_FALSE(box.IsEmpty());
    EXPECT_EQ(box.GetMin(), point3i(std::numeric_limits<int>::min(), 0, -5));
    EXPECT_EQ(box.GetMax(), point3i(std::numeric_limits<int>::max(), 0, 5));
    EXPECT_TRUE(box.Contains(point3i(0, 0, 0)));
}
