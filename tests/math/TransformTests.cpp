#include <KelSDK/Math/Transform.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

using KelSDK::Math::MMTransform;
using KelSDK::Math::MMTransformMatrix;
using KelSDK::Math::point3d;
using KelSDK::Math::point3f;

namespace
{
constexpr double pi = 3.14159265358979323846;

void expectNear(const MMTransformMatrix& a, const MMTransformMatrix& b, double tolerance)
{
    for (std::size_t r = 0; r < 4; ++r)
        for (std::size_t c = 0; c < 4; ++c)
            EXPECT_NEAR(a(r, c), b(r, c), tolerance) << "element (" << r << ", " << c << ")";
}

void expectNear(const point3d& a, const point3d& b, double tolerance)
{
    EXPECT_NEAR(a.x(), b.x(), tolerance);
    EXPECT_NEAR(a.y(), b.y(), tolerance);
    EXPECT_NEAR(a.z(), b.z(), tolerance);
}

// A general invertible affine matrix with a rotation, a non-uniform scale and a shear.
MMTransformMatrix generalAffine()
{
    return MMTransformMatrix(2, 0.5, 0, 3,   //
                             0, 1.5, -1, -2, //
                             0.25, 0, 3, 7,  //
                             0, 0, 0, 1);
}
} // namespace

TEST(MMTransformMatrix, DefaultIsIdentityAndElementsAreRowMajor)
{
    MMTransformMatrix m;
    EXPECT_TRUE(m.IsIdentity());
    const MMTransformMatrix n(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16);
    EXPECT_EQ(n(0, 3), 4.0);
    EXPECT_EQ(n(1, 0), 5.0);
    EXPECT_EQ(n(3, 2), 15.0);
    EXPECT_EQ(n.GetTranslation(), point3d(4, 8, 12));
    m(2, 1) = 42.0;
    EXPECT_EQ(m.data()[9], 42.0);
    EXPECT_FALSE(m.IsIdentity());
}

TEST(MMTransformMatrix, CompositionMatchesHandComputedProducts)
{
    const MMTransformMatrix a(1, 2, 0, 1, 0, 1, 0, 0, 3, 0, 1, 2, 0, 0, 0, 1);
    const MMTransformMatrix b(0, -1, 0, 4, 1, 0, 0, 5, 0, 0, 2, 6, 0, 0, 0, 1);
    // Worked out by hand, row by column.
    const MMTransformMatrix ab(2, -1, 0, 15, 1, 0, 0, 5, 0, -3, 2, 20, 0, 0, 0, 1);
    const MMTransformMatrix ba(0, -1, 0, 4, 1, 2, 0, 6, 6, 0, 2, 10, 0, 0, 0, 1);
    EXPECT_EQ(a * b, ab);
    EXPECT_EQ(b * a, ba);
    MMTransformMatrix c = a;
    c *= b;
    EXPECT_EQ(c, ab);

    // (A * B) p = A (B p): B is applied first.
    const point3d p(1, 2, 3);
    point3d viaProduct, viaSteps;
    ASSERT_TRUE(ab.Transform(viaProduct, p, false));
    ASSERT_TRUE(b.Transform(viaSteps, p, false));
    ASSERT_TRUE(a.Transform(viaSteps, false));
    EXPECT_EQ(viaProduct, viaSteps);

    // A translation followed by a scaling moves the translation too.
    const MMTransformMatrix ts = MMTransformMatrix::Scaling(2.0) * MMTransformMatrix::Translation(1, 2, 3);
    EXPECT_EQ(ts.GetTranslation(), point3d(2, 4, 6));
    const MMTransformMatrix st = MMTransformMatrix::Translation(1, 2, 3) * MMTransformMatrix::Scaling(2.0);
    EXPECT_EQ(st.GetTranslation(), point3d(1, 2, 3));
}

TEST(MMTransformMatrix, TransformPositionsAndDirections)
{
    const MMTransformMatrix m =
        MMTransformMatrix::Translation(10, 20, 30) * MMTransformMatrix::RotationZ(pi / 2);
    point3d p(1, 0, 0);
    ASSERT_TRUE(m.Transform(p, false));
    expectNear(p, point3d(10, 21, 30), 1e-12);

    point3d d(1, 0, 0);
    ASSERT_TRUE(m.Transform(d, true));
    expectNear(d, point3d(0, 1, 0), 1e-12);

    // The two-argument form leaves its input alone and may alias it.
    const point3d in(0, 2, 0);
    point3d out(7, 7, 7);
    ASSERT_TRUE(m.Transform(out, in, false));
    expectNear(out, point3d(8, 20, 30), 1e-12);
    EXPECT_EQ(in, point3d(0, 2, 0));

    // Rotations about x and y follow the right-hand rule.
    point3d y(0, 1, 0);
    ASSERT_TRUE(MMTransformMatrix::RotationX(pi / 2).Transform(y, false));
    expectNear(y, point3d(0, 0, 1), 1e-12);
    point3d z(0, 0, 1);
    ASSERT_TRUE(MMTransformMatrix::RotationY(pi / 2).Transform(z, false));
    expectNear(z, point3d(1, 0, 0), 1e-12);

    // A rotation about an arbitrary axis agrees with the axis-aligned factories.
    expectNear(MMTransformMatrix::Rotation(point3d(0, 0, 5), 0.3), MMTransformMatrix::RotationZ(0.3), 1e-15);
    expectNear(MMTransformMatrix::Rotation(point3d(-2, 0, 0), 0.3), MMTransformMatrix::RotationX(-0.3),
               1e-15);
    EXPECT_TRUE(MMTransformMatrix::Rotation(point3d(0, 0, 0), 1.0).IsIdentity());
    // 120 degrees about the diagonal cycles the axes.
    point3d e(1, 0, 0);
    ASSERT_TRUE(MMTransformMatrix::Rotation(point3d(1, 1, 1), 2 * pi / 3).Transform(e, false));
    expectNear(e, point3d(0, 1, 0), 1e-12);
}

TEST(MMTransformMatrix, ProjectiveRowDividesPositionsOnly)
{
    // w = z + 1
    const MMTransformMatrix m(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 1, 1);
    EXPECT_FALSE(m.IsAffine());
    point3d p(2, 4, 1);
    ASSERT_TRUE(m.Transform(p, false));
    EXPECT_EQ(p, point3d(1, 2, 0.5));
    point3d d(2, 4, 1);
    ASSERT_TRUE(m.Transform(d, true));
    EXPECT_EQ(d, point3d(2, 4, 1));

    // w = 0 maps to infinity: the transformation fails and the point stays as it was.
    point3d q(1, 1, -1);
    EXPECT_FALSE(m.Transform(q, false));
    EXPECT_EQ(q, point3d(1, 1, -1));
}

TEST(MMTransformMatrix, NonFiniteResultsFailAndLeaveTheOutputUnchanged)
{
    const MMTransformMatrix huge = MMTransformMatrix::Scaling(1e300);
    point3d p(1e10, 0, 0);
    EXPECT_FALSE(huge.Transform(p, false));
    EXPECT_EQ(p, point3d(1e10, 0, 0));

    point3d out(5, 6, 7);
    const point3d nanPoint(std::numeric_limits<double>::quiet_NaN(), 0, 0);
    EXPECT_FALSE(MMTransformMatrix().Transform(out, nanPoint, true));
    EXPECT_EQ(out, point3d(5, 6, 7));

    // The float overloads compute in double and refuse what a float cannot hold.
    point3f f(1, 2, 3);
    ASSERT_TRUE(MMTransformMatrix::Translation(1, 1, 1).Transform(f, false));
    EXPECT_EQ(f, point3f(2, 3, 4));
    point3f big(1e30f, 0, 0);
    EXPECT_FALSE(MMTransformMatrix::Scaling(1e10).Transform(big, false));
    EXPECT_EQ(big, point3f(1e30f, 0, 0));
    point3f dir(0, 0, 2);
    ASSERT_TRUE(MMTransformMatrix::Translation(5, 5, 5).Transform(dir, true));
    EXPECT_EQ(dir, point3f(0, 0, 2));
}

TEST(MMTransformMatrix, InverseTimesMatrixIsIdentity)
{
    const MMTransformMatrix matrices[] = {
        generalAffine(),
        MMTransformMatrix::Rotation(point3d(1, -2, 0.5), 1.1) * MMTransformMatrix::Translation(-4, 2, 9),
        MMTransformMatrix::Scaling(1e-4, 2e3, 5),
        MMTransformMatrix(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0.5, 0, 1, 1), // projective
        MMTransformMatrix(0, 1, 0, 0, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0, 1),   // needs pivoting
    };
    for (const MMTransformMatrix& m : matrices)
    {
        MMTransformMatrix inv;
        ASSERT_TRUE(m.Inverse(inv));
        EXPECT_TRUE((inv * m).IsIdentity(1e-12));
        EXPECT_TRUE((m * inv).IsIdentity(1e-12));
        MMTransformMatrix copy = m;
        ASSERT_TRUE(copy.Invert());
        EXPECT_EQ(copy, inv);
    }

    MMTransformMatrix inv;
    ASSERT_TRUE(MMTransformMatrix::Translation(1, 2, 3).Inverse(inv));
    EXPECT_EQ(inv, MMTransformMatrix::Translation(-1, -2, -3));
}

TEST(MMTransformMatrix, SingularInverseFailsAndLeavesTheTargetAlone)
{
    const MMTransformMatrix singular[] = {
        MMTransformMatrix::Scaling(1, 0, 1),
        MMTransformMatrix(1, 2, 3, 0, 2, 4, 6, 0, 0, 0, 1, 0, 0, 0, 0, 1), // dependent rows
        MMTransformMatrix(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0),
        MMTransformMatrix(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0), // no homogeneous part
        MMTransformMatrix(1, 0, 0, std::numeric_limits<double>::infinity(), 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0,
                          1),
        MMTransformMatrix(1, 2, 0, 0, 1, 2 + 1e-16, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1), // singular in doubles
    };
    for (const MMTransformMatrix& m : singular)
    {
        MMTransformMatrix target = MMTransformMatrix::Translation(7, 8, 9);
        EXPECT_FALSE(m.Inverse(target));
        EXPECT_EQ(target, MMTransformMatrix::Translation(7, 8, 9));
        MMTransformMatrix copy = m;
        EXPECT_FALSE(copy.Invert());
        // Unchanged, compared through the bytes so that a NaN element compares too.
        double a[16], b[16];
        copy.ConvertToDouble16(a);
        m.ConvertToDouble16(b);
        EXPECT_EQ(0, std::memcmp(a, b, sizeof a));
    }
}

TEST(MMTransformMatrix, IsOrthoNormal)
{
    EXPECT_TRUE(MMTransformMatrix().IsOrthoNormal());
    EXPECT_TRUE(MMTransformMatrix::Rotation(point3d(3, 1, -2), 0.7).IsOrthoNormal());
    EXPECT_TRUE(
        (MMTransformMatrix::Translation(100, -5, 3) * MMTransformMatrix::RotationY(2.0)).IsOrthoNormal());
    EXPECT_TRUE(MMTransformMatrix::Scaling(-1, 1, 1).IsOrthoNormal()); // a mirror keeps lengths

    EXPECT_FALSE(MMTransformMatrix::Scaling(2.0).IsOrthoNormal());
    EXPECT_FALSE(MMTransformMatrix::Scaling(1, 1, 1.001).IsOrthoNormal());
    EXPECT_FALSE(
        MMTransformMatrix(1, 0.1, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1).IsOrthoNormal()); // shear
    EXPECT_FALSE(MMTransformMatrix(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0.5, 1).IsOrthoNormal());
    EXPECT_FALSE(MMTransformMatrix(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 2).IsOrthoNormal());
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(MMTransformMatrix(nan, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1).IsOrthoNormal());

    // The tolerance decides about tiny deviations.
    const MMTransformMatrix nearly = MMTransformMatrix::Scaling(1 + 1e-7, 1, 1);
    EXPECT_FALSE(nearly.IsOrthoNormal());
    EXPECT_TRUE(nearly.IsOrthoNormal(1e-6));
}

TEST(MMTransformMatrix, Double16RoundTripIsRowMajor)
{
    const MMTransformMatrix m = generalAffine();
    double d[16];
    m.ConvertToDouble16(d);
    const double expected[16] = {2, 0.5, 0, 3, 0, 1.5, -1, -2, 0.25, 0, 3, 7, 0, 0, 0, 1};
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(d[i], expected[i]) << "index " << i;

    MMTransformMatrix back;
    back.ConvertFromDouble16(d);
    EXPECT_EQ(back, m);
    EXPECT_EQ(back.GetTranslation(), point3d(3, -2, 7));
}

TEST(MMTransformMatrix, CloneIsIndependentAndKeepsItsType)
{
    MMTransformMatrix m = MMTransformMatrix::Translation(1, 2, 3);
    std::unique_ptr<MMTransformMatrix> clone(m.Clone());
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(*clone, m);
    m.SetTranslation(point3d(9, 9, 9));
    EXPECT_EQ(clone->GetTranslation(), point3d(1, 2, 3));
    (*clone)(0, 0) = 5;
    EXPECT_EQ(m(0, 0), 1.0);

    // Through the abstract base, as a writer holding "some transformation" uses it.
    const MMTransform& base = *clone;
    std::unique_ptr<MMTransform> again(base.Clone());
    auto* asMatrix = dynamic_cast<MMTransformMatrix*>(again.get());
    ASSERT_NE(asMatrix, nullptr);
    EXPECT_EQ(*asMatrix, *clone);
    point3d p(1, 1, 1);
    ASSERT_TRUE(again->Transform(p, false));
    EXPECT_EQ(p, point3d(6, 3, 4));
}
