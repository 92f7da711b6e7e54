#include "StlBuildTestSupport.h"

#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlFileReaderTarget.h>

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <stdexcept>
#include <string>

using namespace KelSDK::Triangles::Data;
using namespace KelSDK::Triangles::IO;
using StlBuildTest::Corners;
using StlBuildTest::Facet;
using StlBuildTest::Facets;

namespace
{
const MStlReadTransformation Identity;

// Four corners, two facets sharing the edge (1,0,0)-(0,1,0).
Facets Quad()
{
    return {{Facet({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 0x001F), Facet({1, 0, 0}, {1, 1, 0}, {0, 1, 0}, 0x03E0)}};
}

MStlColor Colour(uint16_t word)
{
    return MStlColor::ConvertFrom16BitValue(word);
}

TEST(MStlFileReaderTarget, SharedEdgeGivesFourPoints)
{
    MStlBase mesh;
    MStlFileReaderTarget target;
    target.Convert(mesh, Quad(), {"quad"}, Identity, false);
    EXPECT_FALSE(target.IsError());
    EXPECT_FALSE(target.IsOverflow());
    EXPECT_EQ(mesh.NumberOfPoints(), 4u);
    ASSERT_EQ(mesh.NumberOfTriangles(), 2u);
    const auto triangles = StlBuildTest::TrianglesOf(mesh);
    using C = std::array<std::array<int, 3>, 3>;
    EXPECT_EQ(Corners(*triangles[0]), (C{{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}}));
    EXPECT_EQ(Corners(*triangles[1]), (C{{{1, 0, 0}, {1, 1, 0}, {0, 1, 0}}}));
    EXPECT_EQ(triangles[0]->GetPoint(1), triangles[1]->GetPoint(0));
    EXPECT_EQ(triangles[0]->GetPoint(2), triangles[1]->GetPoint(2));
    EXPECT_EQ(mesh.GetMainSurface()->GetName(), L"quad");
    // Without colours every triangle is left without one.
    EXPECT_FALSE(triangles[0]->GetColor().IsDefined());
    EXPECT_FALSE(triangles[1]->GetColor().IsDefined());
}

TEST(MStlFileReaderTarget, PointsAreCreatedInZXYOrder)
{
    Facets solids = {{Facet({5, -1, 2}, {-7, 3, 2}, {0, 0, -4}), Facet({5, -1, 2}, {2, 9, -4}, {-7, -3, 2})}};
    MStlBase mesh;
    MStlFileReaderTarget().Convert(mesh, solids, {""}, Identity, false);
    std::vector<std::array<int, 3>> order;
    for (const MStlPoint& p : mesh.Points())
        order.push_back({p.GetZ(), p.GetX(), p.GetY()});
    const std::vector<std::array<int, 3>> expected = {
        {-4, 0, 0}, {-4, 2, 9}, {2, -7, -3}, {2, -7, 3}, {2, 5, -1}};
    EXPECT_EQ(order, expected);
}

TEST(MStlFileReaderTarget, FacetRoundingToOnePointIsDroppedOnlyInStandardKind)
{
    // Distinct doubles whose grid images coincide: corners 1 and 2 both round to (1, 0, 0).
    const Facets solids = {
        {Facet({0, 0, 0}, {1.2, 0, 0}, {0.8, 0.1, 0}), Facet({0, 0, 0}, {3, 0, 0}, {0, 3, 0})}};
    MStlBase standard;
    MStlFileReaderTarget().Convert(standard, solids, {""}, Identity, false);
    EXPECT_EQ(standard.NumberOfTriangles(), 1u);

    for (MStlHybridState kind : {eStlCompact, eStlOnDisk})
    {
        MStlBase mesh;
        ASSERT_TRUE(mesh.GetStlHybrid().SetState(kind));
        MStlFileReaderTarget target;
        target.Convert(mesh, solids, {""}, Identity, false);
        EXPECT_FALSE(target.IsError());
        EXPECT_EQ(mesh.GetStlHybrid().GetNumTriangles(), 2u) << "kind " << kind;
    }
}

TEST(MStlFileReaderTarget, ColoursSkipDroppedFacets)
{
    const Facets solids = {
        {Facet({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 0x001F), Facet({0, 0, 0}, {0, 0, 0}, {0, 1, 0}, 0x03E0),
         Facet({0, 0, 1}, {1, 0, 1}, {0, 1, 1}, 0x7C00), Facet({0, 0, 2}, {1, 0, 2}, {0, 1, 2}, 0x8000)}};
    MStlBase mesh;
    MStlFileReaderTarget().Convert(mesh, solids, {""}, Identity, true);
    const auto triangles = StlBuildTest::TrianglesOf(mesh);
    ASSERT_EQ(triangles.size(), 3u);
    EXPECT_EQ(triangles[0]->GetColor(), Colour(0x001F));
    EXPECT_EQ(triangles[1]->GetColor(), Colour(0x7C00)); // the third facet's colour
    EXPECT_FALSE(triangles[2]->GetColor().IsDefined());  // bit 15: no colour of its own
}

TEST(MStlFileReaderTarget, EmptyInputLeavesTheMeshAlone)
{
    MStlBase mesh;
    mesh.GetMainSurface()->SetName(L"kept");
    MStlFileReaderTarget target;
    target.Convert(mesh, Facets{{}, {}}, {"a", "b"}, Identity, true);
    EXPECT_FALSE(target.IsError());
    EXPECT_EQ(mesh.NumberOfTriangles(), 0u);
    EXPECT_EQ(mesh.NumberOfPoints(), 0u);
    EXPECT_EQ(mesh.GetSurfaceList().GetNumSurfaces(false), 1u);
    EXPECT_EQ(mesh.GetMainSurface()->GetName(), L"kept");
}

// A fan of n triangles around the origin, each with two rim points of its own.
Facets Fan(size_t n)
{
    Facets solids(1);
    for (size_t i = 0; i < n; ++i)
    {
        const double x = static_cast<double>(i + 1);
        solids[0].push_back(Facet({0, 0, 0}, {x, 1, 0}, {x, 2, 0}));
    }
    return solids;
}

TEST(MStlFileReaderTarget, NeighbourLimitOfAPoint)
{
    MStlBase accepted;
    MStlFileReaderTarget().Convert(accepted, Fan(65535), {"fan"}, Identity, false);
    EXPECT_EQ(accepted.NumberOfTriangles(), 65535u);

    MStlBase refused;
    try
    {
        MStlFileReaderTarget().Convert(refused, Fan(65536), {"fan"}, Identity, false);
        FAIL() << "no exception";
    }
    catch (const std::runtime_error& e)
    {
        EXPECT_STREQ(e.what(), "too many neighbours");
    }
    EXPECT_EQ(refused.NumberOfTriangles(), 0u);
    EXPECT_EQ(refused.NumberOfPoints(), 0u);
    EXPECT_EQ(refused.GetMainSurface()->GetName(), L"");
}

TEST(MStlFileReaderTarget, OneSurfacePerSolidInStandardKind)
{
    const Facets solids = {{Facet({0, 0, 0}, {1, 0, 0}, {0, 1, 0})},
                           {Facet({0, 0, 1}, {1, 0, 1}, {0, 1, 1}), Facet({0, 0, 2}, {1, 0, 2}, {0, 1, 2})},
                           {Facet({0, 0, 3}, {1, 0, 3}, {0, 1, 3})}};
    MStlBase mesh;
    MStlFileReaderTarget().Convert(mesh, solids, {"a", "b", "c"}, Identity, false);
    const auto& list = mesh.GetSurfaceList();
    ASSERT_EQ(list.GetNumSurfaces(false), 3u);
    EXPECT_EQ(list.GetSurface(0), mesh.GetMainSurface());
    const wchar_t* names[] = {L"a", L"b", L"c"};
    const size_t counts[] = {1, 2, 1};
    for (size_t s = 0; s < 3; ++s)
    {
        EXPECT_EQ(list.GetSurface(s)->GetName(), names[s]);
        ASSERT_EQ(list.GetSurface(s)->GetNumberOfTriangles(), counts[s]);
        for (const MStlTriangle* t : list.GetSurface(s)->Triangles())
            EXPECT_EQ(t->GetSurface(), list.GetSurface(s));
    }
    EXPECT_EQ(list.GetSurface(1)->Triangles()[1]->GetPoint(0)->GetZ(), 2);

    MStlBase compact;
    ASSERT_TRUE(compact.GetStlHybrid().SetState(eStlCompact));
    MStlFileReaderTarget().Convert(compact, solids, {"a", "b", "c"}, Identity, false);
    const MStlHybrid& hybrid = compact.GetStlHybrid();
    ASSERT_EQ(hybrid.GetNumTriangles(), 4u);
    for (size_t t = 0; t < 4; ++t)
        EXPECT_EQ(hybrid.GetTriangleSurface(t), compact.GetSurfaceList().GetSurface(0));
}

TEST(MStlFileReaderTarget, OverflowIsReportedAndTheMeshStillBuilt)
{
    const Facets solids = {
        {Facet({0, 0, 0}, {3e9, 0, 0}, {0, 1, 0}), Facet({0, 0, 0}, {0, 1, 0}, {-1, 0, 0})}};
    for (MStlHybridState kind : {eStlStandard, eStlCompact, eStlOnDisk})
    {
        MStlBase mesh;
        ASSERT_TRUE(mesh.GetStlHybrid().SetState(kind));
        MStlFileReaderTarget target;
        target.Convert(mesh, solids, {""}, Identity, false);
        EXPECT_TRUE(target.IsOverflow()) << "kind " << kind;
        EXPECT_EQ(mesh.GetStlHybrid().GetNumTriangles(), 2u) << "kind " << kind;
        // The next conversion starts with a clear flag.
        MStlBase other;
        ASSERT_TRUE(other.GetStlHybrid().SetState(kind));
        target.Convert(other, Quad(), {""}, Identity, false);
        EXPECT_FALSE(target.IsOverflow()) << "kind " << kind;
    }
}

TEST(MStlFileReaderTarget, CompactAndOnDiskKindsTakeEveryCornerAndColour)
{
    for (MStlHybridState kind : {eStlCompact, eStlOnDisk})
    {
        MStlBase mesh;
        ASSERT_TRUE(mesh.GetStlHybrid().SetState(kind));
        MStlFileReaderTarget().Convert(mesh, Quad(), {"ignored"}, MStlReadTransformation({1, 2, 3}, 10.0),
                                       true);
        const MStlHybrid& hybrid = mesh.GetStlHybrid();
        ASSERT_TRUE(hybrid.OpenRead());
        ASSERT_EQ(hybrid.GetNumTriangles(), 2u);
        unsigned i[3];
        ASSERT_TRUE(hybrid.GetTriangle(1, i[0], i[1], i[2]));
        int x, y, z;
        ASSERT_TRUE(hybrid.GetVertex(i[1], x, y, z));
        const std::array<int, 3> corner = {x, y, z}, expected = {20, 30, 30};
        EXPECT_EQ(corner, expected);
        ASSERT_TRUE(hybrid.StartGettingTriangleColors());
        EXPECT_EQ(hybrid.GetColor(0), Colour(0x001F)) << "kind " << kind;
        EXPECT_EQ(hybrid.GetColor(1), Colour(0x03E0)) << "kind " << kind;
        hybrid.Close();
        EXPECT_EQ(mesh.GetSurfaceList().GetSurface(0)->GetName(), L"");
    }
}

// Checks a Standard mesh built from random facets against a plain map-based merge: the same
// distinct positions, every kept facet's corners in order, and exactly the collapsed facets dropped.
void CheckAgainstReference(const Facets& solids, const MStlReadTransformation& transformation)
{
    MStlBase mesh;
    MStlFileReaderTarget target;
    target.Convert(mesh, solids, std::vector<std::string>(solids.size()), transformation, true);
    std::map<std::array<int, 3>, int> distinct;
    std::vector<std::array<std::array<int, 3>, 3>> kept;
    std::vector<uint16_t> keptColours;
    for (const auto& solid : solids)
        for (const MStlFileTriangle& f : solid)
        {
            std::array<std::array<int, 3>, 3> c;
            for (int k = 0; k < 3; ++k)
            {
                KelSDK::Math::point<int, 3> g;
                transformation.Transform(f.GetVertex(k), g);
                c[k] = {g[0], g[1], g[2]};
                distinct[c[k]] = 1;
            }
            if (c[0] != c[1] && c[0] != c[2] && c[1] != c[2])
            {
                kept.push_back(c);
                keptColours.push_back(f.GetAttribute());
            }
        }
    ASSERT_EQ(mesh.NumberOfPoints(), distinct.size());
    const auto triangles = StlBuildTest::TrianglesOf(mesh);
    ASSERT_EQ(triangles.size(), kept.size());
    for (size_t t = 0; t < kept.size(); ++t)
    {
        ASSERT_EQ(Corners(*triangles[t]), kept[t]) << "triangle " << t;
        ASSERT_EQ(triangles[t]->GetColor(), Colour(keptColours[t])) << "triangle " << t;
    }
    const MStlPoint* previous = nullptr;
    for (const MStlPoint& p : mesh.Points())
    {
        if (previous != nullptr)
        {
            ASSERT_TRUE(MStlPoint::LessZXY(*previous, p));
        }
        previous = &p;
    }
}

Facets RandomFacets(std::mt19937& random, double spread, size_t solidsCount, size_t perSolid)
{
    std::uniform_int_distribution<int> grid(-4, 4);
    std::uniform_int_distribution<int> word(0, 0xFFFF);
    Facets solids(solidsCount);
    for (auto& solid : solids)
        for (size_t i = 0; i < perSolid; ++i)
        {
            auto corner = [&] {
                return std::array<double, 3>{grid(random) * spread, grid(random) * spread,
                                             grid(random) * spread};
            };
            solid.push_back(Facet(corner(), corner(), corner(), static_cast<uint16_t>(word(random))));
        }
    return solids;
}

TEST(MStlFileReaderTarget, MergeMatchesAReferenceOnSmallBoxes)
{
    std::mt19937 random(7);
    // Small coordinate spans (packed sort keys), with negative values and an offset.
    CheckAgainstReference(RandomFacets(random, 1.0, 3, 400), Identity);
    CheckAgainstReference(RandomFacets(random, 0.37, 1, 2000),
                          MStlReadTransformation({-0.5, 2.25, 0}, 1000.0));
}

TEST(MStlFileReaderTarget, MergeMatchesAReferenceOnTheWholeGrid)
{
    std::mt19937 random(11);
    // Spans of nearly 2^32 per axis: the keys no longer fit 64 bits and the wide records are used.
    CheckAgainstReference(RandomFacets(random, 5.0e8, 2, 700), Identity);
    CheckAgainstReference(RandomFacets(random, 2.5e8, 1, 100), MStlReadTransformation({0, 0, 0}, 2.0));
}

TEST(MStlFileReaderTarget, NonFiniteCornersOverflowAndStillBuild)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const Facets solids = {{Facet({nan, 0, 0}, {1, 0, 0}, {0, 1, 0}),
                            Facet({0, 0, 0}, {inf, 0, 0}, {0, -inf, 0}),
                            Facet({0, 0, 5}, {1, 0, 5}, {0, 1, 5})}};
    MStlBase mesh;
    MStlFileReaderTarget target;
    target.Convert(mesh, solids, {""}, Identity, false);
    EXPECT_TRUE(target.IsOverflow());
    EXPECT_EQ(mesh.NumberOfTriangles(), 3u);
}
} // namespace
