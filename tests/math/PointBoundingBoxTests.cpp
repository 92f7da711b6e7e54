#include <KelSDK/Math/BoundingBox.h>
#include <KelSDK/Math/Point.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

using KelSDK::Math::boundingbox;
using KelSDK::Math::point3d;
using KelSDK::Math::point3i;

namespace
{
const double Inf = std::numeric_limits<double>::infinity();
const double NaN = std::numeric_limits<double>::quiet_NaN();
} // namespace

TEST(Point, CrossProductAndLengthAtTheEdgesOfDouble)
{
    // The coordinates are contiguous, so that arrays of points can be handed to file writers as is.
    static_assert(sizeof(point3d) == 3 * sizeof(double));
    const point3d a(1, 2, 3), b(4, -5, 6);
    EXPECT_EQ(a.cross(b), point3d(2 * 6 - 3 * -5, 3 * 4 - 1 * 6, 1 * -5 - 2 * 4));
    // The length of an integer point is computed in double and does not overflow int.
    EXPECT_DOUBLE_EQ(point3i(2000000000, 0, 0).length(), 2e9);
    EXPECT_DOUBLE_EQ(point3d(0, 5e-324, 0).length(), 5e-324);
    EXPECT_TRUE(std::isinf(point3d(Inf, 1, 0).length()));
    EXPECT_TRUE(std::isnan(point3d(1, NaN, 1e300).length()));
    // Neither tiny nor huge vectors lose their direction to squares that underflow or overflow.
    const std::pair<point3d, point3d> rows[] = {{{0, 3, 4}, {0, 0.6, 0.8}},
                                                {{1e-200, 0, 1e-200}, {std::sqrt(0.5), 0, std::sqrt(0.5)}},
                                                {{3e200, -4e200, 0}, {0.6, -0.8, 0}}};
    for (const auto& [in, unit] : rows)
    {
        point3d n = in;
        ASSERT_TRUE(n.normalize());
        for (int k = 0; k < 3; ++k)
            EXPECT_DOUBLE_EQ(n[k], unit[k]) << in[0];
        EXPECT_DOUBLE_EQ(in.length(), in[0] != 0 ? in[0] / unit[0] : in[1] / unit[1]);
    }
    // Zero, NaN and infinite vectors have no direction: normalising fails and changes nothing.
    for (const point3d& p : {point3d(), point3d(NaN, 0, 0), point3d(Inf, 1, 0)})
    {
        point3d q = p;
        EXPECT_FALSE(q.normalize());
        EXPECT_EQ(std::memcmp(&q, &p, sizeof p), 0);
        EXPECT_EQ(p.normalized(), point3d(0, 0, 0));
    }
}

TEST(BoundingBox, ExtendWithPointsAndBoxes)
{
    using Box = boundingbox<double, 3>;
    Box box, grown;
    EXPECT_FALSE(box.Contains(point3d(0, 0, 0)));
    box.Extend(point3d(1, 2, 3));
    box.Extend(point3d(-1, 5, 3));
    box.Extend(Box()); // an empty box changes nothing
    EXPECT_EQ(box.GetMin(), point3d(-1, 2, 3));
    EXPECT_EQ(box.GetMax(), point3d(1, 5, 3));
    EXPECT_TRUE(box.Contains(point3d(1, 5, 3))); // on the border
    EXPECT_FALSE(box.Contains(point3d(1, 5, 3.0000001)));
    grown.Extend(box); // an empty box takes the other box as it is
    grown.Extend(Box(point3d(-2, 0.5, 0.5), point3d(0.5, 0.5, 4)));
    EXPECT_EQ(grown.GetMin(), point3d(-2, 0.5, 0.5));
    EXPECT_EQ(grown.GetMax(), point3d(1, 5, 4));
    EXPECT_TRUE(Box(point3d(0, 0, 1), point3d(1, 1, 0)).IsEmpty()); // empty on one axis

    boundingbox<int, 3> whole;
    whole.Extend(point3i(std::numeric_limits<int>::max(), 0, -5));
    whole.Extend(point3i(std::numeric_limits<int>::min(), 0, 5));
    EXPECT_EQ(whole.GetMin(), point3i(std::numeric_limits<int>::min(), 0, -5));
    EXPECT_EQ(whole.GetMax(), point3i(std::numeric_limits<int>::max(), 0, 5));
    EXPECT_TRUE(whole.Contains(point3i(0, 0, 0)));
}
