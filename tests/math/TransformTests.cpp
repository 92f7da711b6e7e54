#include <KelSDK/Math/Transform.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

using KelSDK::Math::point3d;
using KelSDK::Math::point3f;
using M = KelSDK::Math::MMTransformMatrix;

namespace
{
constexpr double pi = 3.14159265358979323846;

// Transforms p (as a position or a direction) and compares the result within the tolerance.
void expectMaps(const M& m, point3d p, const point3d& expected, bool asDirection = false,
                double tolerance = 1e-12)
{
    ASSERT_TRUE(m.Transform(p, asDirection));
    for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(p[k], expected[k], tolerance) << "coordinate " << k;
}
} // namespace

TEST(MMTransformMatrix, RowMajorLayoutProductsAndRotations)
{
    const M general(2, 0.5, 0, 3, 0, 1.5, -1, -2, 0.25, 0, 3, 7, 0, 0, 0, 1);
    double d[16];
    general.ConvertToDouble16(d);
    const double expected[16] = {2, 0.5, 0, 3, 0, 1.5, -1, -2, 0.25, 0, 3, 7, 0, 0, 0, 1};
    EXPECT_EQ(std::memcmp(d, expected, sizeof d), 0);
    M back;
    back.ConvertFromDouble16(d);
    EXPECT_EQ(back, general);

    const M a(1, 2, 0, 1, 0, 1, 0, 0, 3, 0, 1, 2, 0, 0, 0, 1),
        b(0, -1, 0, 4, 1, 0, 0, 5, 0, 0, 2, 6, 0, 0, 0, 1);
    // Worked out by hand, row by column.
    const M ab(2, -1, 0, 15, 1, 0, 0, 5, 0, -3, 2, 20, 0, 0, 0, 1),
        ba(0, -1, 0, 4, 1, 2, 0, 6, 6, 0, 2, 10, 0, 0, 0, 1);
    EXPECT_EQ(a * b, ab);
    EXPECT_EQ(b * a, ba);
    M c = a;
    c *= b;
    EXPECT_EQ(c, ab);
    // (A * B) p = A (B p): B is applied first.
    const point3d p(1, 2, 3);
    point3d viaProduct, viaSteps;
    ASSERT_TRUE(ab.Transform(viaProduct, p, false));
    ASSERT_TRUE(b.Transform(viaSteps, p, false));
    ASSERT_TRUE(a.Transform(viaSteps, false));
    EXPECT_EQ(viaProduct, viaSteps);
    // Directions ignore the translation; rotations follow the right-hand rule.
    const M m = M::Translation(10, 20, 30) * M::RotationZ(pi / 2);
    expectMaps(m, {1, 0, 0}, {10, 21, 30});
    expectMaps(m, {1, 0, 0}, {0, 1, 0}, true);
    expectMaps(M::Rotation(point3d(1, 1, 1), 2 * pi / 3), {1, 0, 0}, {0, 1, 0});
}

TEST(MMTransformMatrix, ProjectiveAndNonFiniteResults)
{
    // w = z + 1 divides positions only; w = 0 and non-finite results fail and leave the output alone.
    const M m(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 1, 1);
    EXPECT_FALSE(m.IsAffine());
    expectMaps(m, {2, 4, 1}, {1, 2, 0.5}, false, 0.0);
    expectMaps(m, {2, 4, 1}, {2, 4, 1}, true, 0.0);
    point3d q(1, 1, -1), p(1e10, 0, 0), out(5, 6, 7);
    EXPECT_FALSE(m.Transform(q, false));
    EXPECT_EQ(q, point3d(1, 1, -1));
    EXPECT_FALSE(M::Scaling(1e300).Transform(p, false));
    EXPECT_EQ(p, point3d(1e10, 0, 0));
    EXPECT_FALSE(M().Transform(out, point3d(std::numeric_limits<double>::quiet_NaN(), 0, 0), true));
    EXPECT_EQ(out, point3d(5, 6, 7));
    // The float overloads compute in double and refuse what a float cannot hold.
    point3f f(1, 2, 3), big(1e30f, 0, 0), dir(0, 0, 2);
    ASSERT_TRUE(M::Translation(1, 1, 1).Transform(f, false));
    EXPECT_EQ(f, point3f(2, 3, 4));
    EXPECT_FALSE(M::Scaling(1e10).Transform(big, false));
    EXPECT_EQ(big, point3f(1e30f, 0, 0));
    ASSERT_TRUE(M::Translation(5, 5, 5).Transform(dir, true));
    EXPECT_EQ(dir, point3f(0, 0, 2));
}

TEST(MMTransformMatrix, InverseAndSingularMatrices)
{
    // General affine, rotated and moved, badly scaled, projective, one that needs pivoting.
    for (const M& m : {M(2, 0.5, 0, 3, 0, 1.5, -1, -2, 0.25, 0, 3, 7, 0, 0, 0, 1),
                       M::Rotation(point3d(1, -2, 0.5), 1.1) * M::Translation(-4, 2, 9),
                       M::Scaling(1e-4, 2e3, 5), M(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0.5, 0, 1, 1),
                       M(0, 1, 0, 0, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0, 1)})
    {
        M inv, copy = m;
        ASSERT_TRUE(m.Inverse(inv));
        EXPECT_TRUE((inv * m).IsIdentity(1e-12));
        EXPECT_TRUE((m * inv).IsIdentity(1e-12));
        ASSERT_TRUE(copy.Invert());
        EXPECT_EQ(copy, inv);
    }
    // Flat, dependent rows, zero, no homogeneous part, infinite, singular in doubles: the target and
    // the matrix stay as they were (compared through the bytes, so that a NaN element compares too).
    for (const M& m :
         {M::Scaling(1, 0, 1), M(1, 2, 3, 0, 2, 4, 6, 0, 0, 0, 1, 0, 0, 0, 0, 1),
          M(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0),
          M(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0),
          M(1, 0, 0, std::numeric_limits<double>::infinity(), 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1),
          M(1, 2, 0, 0, 1, 2 + 1e-16, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1)})
    {
        M target = M::Translation(7, 8, 9), copy = m;
        EXPECT_FALSE(m.Inverse(target));
        EXPECT_EQ(target, M::Translation(7, 8, 9));
        EXPECT_FALSE(copy.Invert());
        EXPECT_EQ(0, std::memcmp(copy.data(), m.data(), 16 * sizeof(double)));
    }
}

TEST(MMTransformMatrix, IsOrthoNormal)
{
    // A mirror keeps lengths; scalings (also by 1e-7, beyond the default tolerance), a shear, a
    // projective or non-unit homogeneous row and a NaN do not.
    for (const M& m : {M(), M::Rotation(point3d(3, 1, -2), 0.7),
                       M::Translation(100, -5, 3) * M::RotationY(2.0), M::Scaling(-1, 1, 1)})
        EXPECT_TRUE(m.IsOrthoNormal());
    for (const M& m :
         {M::Scaling(2.0), M::Scaling(1, 1, 1.001), M::Scaling(1 + 1e-7, 1, 1),
          M(1, 0.1, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1),
          M(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0.5, 1),
          M(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 2),
          M(std::numeric_limits<double>::quiet_NaN(), 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1)})
        EXPECT_FALSE(m.IsOrthoNormal());
    EXPECT_TRUE(M::Scaling(1 + 1e-7, 1, 1).IsOrthoNormal(1e-6));
}
