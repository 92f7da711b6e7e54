#include "StlBuildTestSupport.h"

#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlFileReaderTarget.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <set>
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
using C = std::array<std::array<int, 3>, 3>;

TEST(MStlFileReaderTarget, NeighbourLimitOfAPoint)
{
    // A fan of n triangles around the origin, each with two rim points of its own.
    Facets fan(1);
    for (size_t i = 0; i < 65536; ++i)
        fan[0].push_back(Facet({0, 0, 0}, {i + 1.0, 1, 0}, {i + 1.0, 2, 0}));
    MStlBase refused, accepted;
    try
    {
        MStlFileReaderTarget().Convert(refused, fan, {"fan"}, Identity, false);
        FAIL() << "no exception";
    }
    catch (const std::runtime_error& e)
    {
        EXPECT_STREQ(e.what(), "too many neighbours");
    }
    EXPECT_EQ(refused.NumberOfTriangles(), 0u);
    EXPECT_EQ(refused.NumberOfPoints(), 0u);
    EXPECT_EQ(refused.GetMainSurface()->GetName(), L"");
    fan[0].pop_back();
    MStlFileReaderTarget().Convert(accepted, fan, {"fan"}, Identity, false);
    EXPECT_EQ(accepted.NumberOfTriangles(), 65535u);
}

TEST(MStlFileReaderTarget, EveryKindEmptyInputOverflowCollapsedFacetsAndSurfaces)
{
    // Corners outside the grid (large, NaN, infinite): overflow is reported and the mesh still built.
    const double nan = std::numeric_limits<double>::quiet_NaN(),
                 inf = std::numeric_limits<double>::infinity();
    const Facets outside = {
        {Facet({0, 0, 0}, {3e9, 0, 0}, {0, 1, 0}), Facet({0, 0, 0}, {0, 1, 0}, {-1, 0, 0}),
         Facet({nan, 0, 0}, {1, 0, 0}, {0, 1, 0}), Facet({0, 0, 0}, {inf, 0, 0}, {0, -inf, 0})}};
    // Corners 1 and 2 both round to (1, 0, 0): Standard drops the collapsed facet; the stores keep every
    // facet as written, all solids on the first surface, which keeps no name.
    const Facets collapsing = {{Facet({0, 0, 0}, {1.2, 0, 0}, {0.8, 0.1, 0})},
                               {Facet({0, 0, 0}, {3, 0, 0}, {0, 3, 0})}};
    for (MStlHybridState kind : {eStlStandard, eStlCompact, eStlOnDisk})
    {
        MStlBase over, kept, empty;
        for (MStlBase* m : {&over, &kept, &empty})
            ASSERT_TRUE(m->GetStlHybrid().SetState(kind));
        // Solids without facets leave the mesh alone.
        empty.GetMainSurface()->SetName(L"kept");
        MStlFileReaderTarget target;
        target.Convert(empty, Facets{{}, {}}, {"a", "b"}, Identity, true);
        EXPECT_FALSE(target.IsError());
        EXPECT_EQ(empty.GetStlHybrid().GetNumTriangles(), 0u);
        EXPECT_EQ(empty.GetSurfaceList().GetNumSurfaces(false), 1u);
        EXPECT_EQ(empty.GetMainSurface()->GetName(), L"kept");
        target.Convert(over, outside, {""}, Identity, false);
        EXPECT_TRUE(target.IsOverflow()) << "kind " << kind;
        EXPECT_EQ(over.GetStlHybrid().GetNumTriangles(), 4u) << "kind " << kind;
        target.Convert(kept, collapsing, {"a", "b"}, Identity, true);
        EXPECT_FALSE(target.IsOverflow()) << "kind " << kind; // each conversion starts with a clear flag
        EXPECT_EQ(kept.GetStlHybrid().GetNumTriangles(), kind == eStlStandard ? 1u : 2u) << "kind " << kind;
        if (kind == eStlStandard)
            continue;
        ASSERT_EQ(kept.GetSurfaceList().GetNumSurfaces(false), 1u);
        EXPECT_EQ(kept.GetSurfaceList().GetSurface(0)->GetName(), L"");
        EXPECT_TRUE(kind != eStlCompact ||
                    kept.GetStlHybrid().GetTriangleSurface(1) == kept.GetSurfaceList().GetSurface(0));
    }
}

// Random facets on a 9 x 9 x 9 lattice of the given spacing, with random attribute words.
Facets RandomFacets(std::mt19937& random, double spread, size_t solidsCount, size_t perSolid)
{
    std::uniform_int_distribution<int> grid(-4, 4), word(0, 0xFFFF);
    auto x = [&] { return grid(random) * spread; };
    Facets solids(solidsCount);
    for (auto& solid : solids)
        for (size_t i = 0; i < perSolid; ++i)
        {
            const std::array<double, 3> a{x(), x(), x()}, b{x(), x(), x()}, c{x(), x(), x()};
            solid.push_back(Facet(a, b, c, static_cast<uint16_t>(word(random))));
        }
    return solids;
}

// A Standard mesh against a plain set-based merge: the same distinct positions in strict (z, x, y)
// order, every kept facet's corners and colour in order, exactly the collapsed facets dropped.
void CheckAgainstReference(const Facets& solids, const MStlReadTransformation& transformation)
{
    MStlBase mesh;
    MStlFileReaderTarget().Convert(mesh, solids, std::vector<std::string>(solids.size()), transformation,
                                   true);
    std::set<std::array<int, 3>> distinct;
    std::vector<std::pair<C, MStlColor>> kept, built;
    for (const auto& solid : solids)
        for (const MStlFileTriangle& f : solid)
        {
            C c;
            for (int k = 0; k < 3; ++k)
            {
                KelSDK::Math::point<int, 3> g;
                transformation.Transform(f.GetVertex(k), g);
                c[k] = {g[0], g[1], g[2]};
                distinct.insert(c[k]);
            }
            if (c[0] != c[1] && c[0] != c[2] && c[1] != c[2])
                kept.push_back({c, MStlColor::ConvertFrom16BitValue(f.GetAttribute())});
        }
    for (const MStlTriangle* t : StlBuildTest::TrianglesOf(mesh))
        built.push_back({Corners(*t), t->GetColor()});
    EXPECT_EQ(mesh.NumberOfPoints(), distinct.size());
    EXPECT_TRUE(built == kept);
    const auto points = mesh.Points();
    auto notAscending = [](const MStlPoint& a, const MStlPoint& b) { return !MStlPoint::LessZXY(a, b); };
    EXPECT_EQ(std::adjacent_find(points.begin(), points.end(), notAscending), points.end());
}

TEST(MStlFileReaderTarget, MergeMatchesAReference)
{
    std::mt19937 random(7);
    // Small coordinate spans (packed sort keys), with negative values and an offset.
    CheckAgainstReference(RandomFacets(random, 1.0, 3, 400), Identity);
    CheckAgainstReference(RandomFacets(random, 0.37, 1, 2000),
                          MStlReadTransformation({-0.5, 2.25, 0}, 1000.0));
    // Spans of nearly 2^32 per axis: the keys no longer fit 64 bits and the wide records are used.
    CheckAgainstReference(RandomFacets(random, 5.0e8, 2, 700), Identity);
    CheckAgainstReference(RandomFacets(random, 2.5e8, 1, 100), MStlReadTransformation({0, 0, 0}, 2.0));
}
} // namespace
