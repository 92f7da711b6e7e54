#include "StlBuildTestSupport.h"

#include <KelSDK/Triangles/IO/MStlFileReaderTarget.h>

#include <set>

using namespace StlBuildTest;

namespace
{
const MStlReadTransformation Identity;

TEST(MStlFileReaderTarget, NeighbourLimitOfAPoint)
{
    // A fan of 65536 triangles around the origin, each with two rim points of its own.
    Facets fan(1);
    for (size_t i = 0; i < 65536; ++i)
        fan[0].push_back(Facet({0, 0, 0}, {i + 1.0, 1, 0}, {i + 1.0, 2, 0}));
    MStlBase refused, accepted;
    EXPECT_THAT([&] { MStlFileReaderTarget().Convert(refused, fan, {"fan"}, Identity, false); },
                ::testing::ThrowsMessage<std::runtime_error>(::testing::StrEq("too many neighbours")));
    EXPECT_EQ(refused.NumberOfPoints() + refused.NumberOfTriangles(), 0u);
    EXPECT_EQ(Surfaces(refused), L"0 ");
    fan[0].pop_back();
    MStlFileReaderTarget().Convert(accepted, fan, {"fan"}, Identity, false);
    EXPECT_EQ(Surfaces(accepted), L"fan65535 ");
}

TEST(MStlFileReaderTarget, EveryKindEmptyInputOverflowCollapsedFacetsAndSurfaces)
{
    // Corners outside the grid (large, NaN, infinite) report an overflow and are built all the same. The
    // corners of the fifth facet round to one point: Standard drops it and makes a surface per solid; the
    // stores keep every facet, all on the first surface, which keeps no name.
    const double nan = std::numeric_limits<double>::quiet_NaN(),
                 inf = std::numeric_limits<double>::infinity();
    const Facets facets = {{Facet({0, 0, 0}, {3e9, 0, 0}, {0, 1, 0}), Facet({0, 0, 0}, {0, 1, 0}, {-1, 0, 0}),
                            Facet({nan, 0, 0}, {1, 0, 0}, {0, 1, 0}),
                            Facet({0, 0, 0}, {inf, 0, 0}, {0, -inf, 0}),
                            Facet({0, 0, 0}, {1.2, 0, 0}, {0.8, 0.1, 0})},
                           {Facet({0, 0, 0}, {3, 0, 0}, {0, 3, 0})}};
    for (MStlHybridState kind : {eStlStandard, eStlCompact, eStlOnDisk})
    {
        SCOPED_TRACE(kind);
        const bool standard = kind == eStlStandard;
        MStlBase mesh, empty;
        ASSERT_TRUE(mesh.GetStlHybrid().SetState(kind) && empty.GetStlHybrid().SetState(kind));
        MStlFileReaderTarget target;
        target.Convert(mesh, facets, {"a", "b"}, Identity, true);
        EXPECT_TRUE(target.IsOverflow());
        EXPECT_EQ(mesh.GetStlHybrid().GetNumTriangles(), standard ? 5u : 6u);
        EXPECT_EQ(Surfaces(mesh), standard ? L"a4 b1 " : L";");
        EXPECT_TRUE(kind != eStlCompact ||
                    mesh.GetStlHybrid().GetTriangleSurface(5) == mesh.GetSurfaceList().GetSurface(0));
        // Solids without facets leave the mesh alone; each conversion starts with a clear flag.
        empty.GetMainSurface()->SetName(L"kept");
        target.Convert(empty, Facets{{}, {}}, {"a", "b"}, Identity, true);
        EXPECT_FALSE(target.IsError() || target.IsOverflow());
        EXPECT_EQ(empty.GetStlHybrid().GetNumTriangles(), 0u);
        EXPECT_EQ(Surfaces(empty), standard ? L"kept0 " : L"kept;");
    }
}

// Random facets on a 9 x 9 x 9 lattice against a set-based merge of their corners.
TEST(MStlFileReaderTarget, MergeMatchesAReference)
{
    // Small spans (packed sort keys) with an offset, then spans too wide for 64-bit keys (wide records).
    const struct
    {
        double spread;
        size_t solids, perSolid;
        MStlReadTransformation transformation;
    } rows[] = {{1.0, 3, 400, Identity},
                {0.37, 1, 2000, MStlReadTransformation({-0.5, 2.25, 0}, 1000.0)},
                {5.0e8, 2, 700, Identity},
                {2.5e8, 1, 100, MStlReadTransformation({0, 0, 0}, 2.0)}};
    std::mt19937 random(7);
    std::uniform_int_distribution<int> grid(-4, 4), word(0, 0xFFFF);
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.spread);
        auto x = [&] { return grid(random) * row.spread; };
        Facets solids(row.solids);
        std::set<std::array<int, 3>> distinct;
        std::vector<std::pair<std::array<std::array<int, 3>, 3>, MStlColor>> kept, built;
        for (auto& solid : solids)
            for (size_t i = 0; i < row.perSolid; ++i)
            {
                const Corner a{x(), x(), x()}, b{x(), x(), x()}, c3{x(), x(), x()};
                solid.push_back(Facet(a, b, c3, static_cast<uint16_t>(word(random))));
                std::array<std::array<int, 3>, 3> c;
                for (int k = 0; k < 3; ++k)
                {
                    KelSDK::Math::point<int, 3> g;
                    row.transformation.Transform(solid.back().GetVertex(k), g);
                    c[k] = {g[0], g[1], g[2]};
                    distinct.insert(c[k]);
                }
                if (c[0] != c[1] && c[0] != c[2] && c[1] != c[2])
                    kept.push_back({c, MStlColor::ConvertFrom16BitValue(solid.back().GetAttribute())});
            }
        MStlBase mesh;
        MStlFileReaderTarget().Convert(mesh, solids, std::vector<std::string>(row.solids), row.transformation,
                                       true);
        for (const MStlTriangle& t : mesh.Triangles())
            built.push_back({Corners(t), t.GetColor()});
        EXPECT_EQ(mesh.NumberOfPoints(), distinct.size());
        EXPECT_TRUE(built == kept);
        const auto points = mesh.Points();
        auto notAscending = [](const MStlPoint& a, const MStlPoint& b) { return !MStlPoint::LessZXY(a, b); };
        EXPECT_EQ(std::adjacent_find(points.begin(), points.end(), notAscending), points.end());
    }
}
} // namespace
