// Meshes built from facet lists: the neighbour limit, every storage kind, overflow, and the point merge.
#include "StlBuildTestSupport.h"

#include <KelSDK/Triangles/IO/MStlFileReaderTarget.h>

#include <algorithm>
#include <random>
#include <set>
#include <tuple>

using namespace StlBuildTest;

namespace
{
const MStlReadTransformation Identity;
using Triple = std::array<int, 3>;

TEST(MStlFileReaderTarget, EveryKindOverflowCollapsedFacetsEmptySolidsAndTheNeighbourLimit)
{
    // Corners off the grid overflow; the fifth facet collapses: Standard drops it, the stores keep it.
    const Facets facets = {{Facet({0, 0, 0}, {3e9, 0, 0}, {0, 1, 0}), Facet({0, 0, 0}, {0, 1, 0}, {-1, 0, 0}),
                            Facet({NAN, 0, 0}, {1, 0, 0}, {0, 1, 0}),
                            Facet({0, 0, 0}, {INFINITY, 0, 0}, {0, -INFINITY, 0}),
                            Facet({0, 0, 0}, {1.2, 0, 0}, {0.8, 0.1, 0})},
                           {Facet({0, 0, 0}, {3, 0, 0}, {0, 3, 0})}};
    for (MStlHybridState kind : {eStlStandard, eStlCompact, eStlOnDisk})
    {
        SCOPED_TRACE(kind);
        const bool standard = kind == eStlStandard;
        MStlBase mesh, empty;
        ASSERT_TRUE(mesh.GetStlHybrid().SetState(kind));
        ASSERT_TRUE(empty.GetStlHybrid().SetState(kind));
        MStlFileReaderTarget target;
        target.Convert(mesh, facets, {"a", "b"}, Identity, true);
        EXPECT_TRUE(target.IsOverflow());
        EXPECT_EQ(mesh.GetStlHybrid().GetNumTriangles(), (standard ? 5u : 6u));
        EXPECT_EQ(Surfaces(mesh), standard ? L"a4 b1 " : L";");
        if (kind == eStlCompact)
        {
            EXPECT_EQ(mesh.GetStlHybrid().GetTriangleSurface(5), mesh.GetSurfaceList().GetSurface(0));
        }
        // Solids without facets leave the mesh alone; each conversion starts with a clear flag.
        empty.GetMainSurface()->SetName(L"kept");
        target.Convert(empty, Facets{{}, {}}, {"a", "b"}, Identity, true);
        EXPECT_FALSE(target.IsError());
        EXPECT_FALSE(target.IsOverflow());
        EXPECT_EQ(empty.GetStlHybrid().GetNumTriangles(), 0u);
        EXPECT_EQ(Surfaces(empty), standard ? L"kept0 " : L"kept;");
    }

    Facets fan(1); // 65536 triangles around the origin, each with two rim points of its own
    for (size_t i = 0; i < 65536; ++i)
        fan[0].push_back(Facet({0, 0, 0}, {i + 1.0, 1, 0}, {i + 1.0, 2, 0}));
    MStlBase refused, accepted;
    EXPECT_THAT([&] { MStlFileReaderTarget().Convert(refused, fan, {"fan"}, Identity, false); },
                ::testing::ThrowsMessage<std::runtime_error>(::testing::StrEq("too many neighbours")));
    EXPECT_EQ(refused.NumberOfPoints(), 0);
    EXPECT_EQ(Surfaces(refused), L"0 "); // left as it was
    fan[0].pop_back();
    MStlFileReaderTarget().Convert(accepted, fan, {"fan"}, Identity, false);
    EXPECT_EQ(Surfaces(accepted), L"fan65535 ");
}

// Random facets on a 9 x 9 x 9 lattice against a set-based merge: points in (z, x, y) order, facets kept.
TEST(MStlFileReaderTarget, MergeMatchesAReference)
{
    // Small spans (packed sort keys) with an offset, then spans too wide for 64-bit keys (wide records).
    const std::tuple<double, size_t, MStlReadTransformation> rows[] = {{1.0, 3, Identity},
                                                                       {0.37, 1, {{-0.5, 2.25, 0}, 1000.0}},
                                                                       {5.0e8, 2, Identity},
                                                                       {2.5e8, 1, {{}, 2.0}}};
    std::mt19937 random(7);
    std::uniform_int_distribution<int> grid(-4, 4), word(0, 0xFFFF);
    for (const auto& [spread, count, transformation] : rows)
    {
        Facets solids(count);
        std::set<Triple> distinct;
        std::vector<Triple> points;
        std::vector<std::pair<std::array<Triple, 3>, MStlColor>> kept, built;
        for (auto& solid : solids)
            for (int i = 0; i < 600; ++i)
            {
                Corner corners[3];
                std::array<Triple, 3> c;
                for (int k = 0; k < 3; ++k)
                {
                    corners[k] = {grid(random) * spread, grid(random) * spread, grid(random) * spread};
                    KelSDK::Math::point<int, 3> g;
                    transformation.Transform({corners[k][0], corners[k][1], corners[k][2]}, g);
                    c[k] = {g[0], g[1], g[2]};
                    distinct.insert({g[2], g[0], g[1]});
                }
                solid.push_back(Facet(corners[0], corners[1], corners[2], uint16_t(word(random))));
                if (c[0] != c[1] && c[0] != c[2] && c[1] != c[2])
                    kept.push_back({c, MStlColor::ConvertFrom16BitValue(solid.back().GetAttribute())});
            }
        MStlBase mesh;
        MStlFileReaderTarget().Convert(mesh, solids, std::vector<std::string>(count), transformation, true);
        for (const MStlPoint& p : mesh.Points())
            points.push_back({p.GetZ(), p.GetX(), p.GetY()});
        for (const MStlTriangle& t : mesh.Triangles())
            built.push_back({Corners(t), t.GetColor()});
        EXPECT_TRUE((points == std::vector<Triple>(distinct.begin(), distinct.end()) && built == kept))
            << spread;
    }
}
} // namespace

// Enough facets for the corner records to fill many buckets, and a plate whose corners crowd into
// one bucket beyond the size that is sorted through a scratch copy: points in (z, x, y) order and
// every facet's corners, against a plain sort of the positions.
TEST(MStlFileReaderTarget, MergeAcrossBucketsMatchesAPlainSort)
{
    struct Row
    {
        const char* label;
        size_t facets;
        bool crowded;
    };
    const Row rows[] = {{"many buckets", 40000, false}, {"one crowded bucket", 360000, true}};
    std::mt19937 random(11);
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.label);
        // Crowded: every corner on the plate z = 0 with x below 64, except one far corner that
        // stretches the x span, so that the top key bits are the same for nearly all corners.
        std::uniform_int_distribution<int> lattice(0, row.crowded ? 63 : 99);
        Facets solids(1);
        std::vector<Triple> positions, corners;
        for (size_t i = 0; i < row.facets; ++i)
        {
            Corner c[3];
            for (Corner& corner : c)
                corner = {double(lattice(random)), double(lattice(random)), row.crowded ? 0.0 : double(lattice(random))};
            if (row.crowded && i == 0)
                c[0][0] = 1.0e9;
            solids[0].push_back(Facet(c[0], c[1], c[2]));
            for (const Corner& corner : c)
                corners.push_back({int(corner[0]), int(corner[1]), int(corner[2])});
        }
        for (const Triple& c : corners)
            positions.push_back({c[2], c[0], c[1]});
        std::sort(positions.begin(), positions.end());
        positions.erase(std::unique(positions.begin(), positions.end()), positions.end());

        MStlBase mesh;
        MStlFileReaderTarget().Convert(mesh, solids, {""}, Identity, false);
        std::vector<Triple> points;
        for (const MStlPoint& p : mesh.Points())
            points.push_back({p.GetZ(), p.GetX(), p.GetY()});
        EXPECT_EQ(points, positions) << "points";
        std::vector<Triple> built, kept;
        for (const MStlTriangle& t : mesh.Triangles())
            for (const Triple& c : Corners(t))
                built.push_back(c);
        for (size_t f = 0; f < row.facets; ++f)
            if (corners[3 * f] != corners[3 * f + 1] && corners[3 * f] != corners[3 * f + 2] &&
                corners[3 * f + 1] != corners[3 * f + 2])
                kept.insert(kept.end(), corners.begin() + 3 * f, corners.begin() + 3 * f + 3);
        EXPECT_EQ(built, kept) << "triangle corners";
    }
}

// The Compact and OnDisk stores get what every corner handed to them in file order gives: vertices
// numbered by first use, every facet kept (collapsed ones too), colours per triangle. Into an empty
// store, with sharing off, and into a store that holds vertices already.
TEST(MStlFileReaderTarget, StoresMatchCornerByCornerFilling)
{
    std::mt19937 random(5);
    std::uniform_int_distribution<int> lattice(-6, 6), word(0, 0xFFFF);
    Facets solids(2);
    for (auto& solid : solids)
        for (int i = 0; i < 3000; ++i)
        {
            Corner c[3];
            for (Corner& corner : c)
                corner = {lattice(random) * 0.5, lattice(random) * 0.5, lattice(random) * 0.5};
            solid.push_back(Facet(c[0], c[1], c[2], uint16_t(word(random))));
        }
    solids[1].push_back(Facet({0, 0, 0}, {5e9, 0, 0}, {0, 1, 0})); // beyond the grid
    const MStlReadTransformation scale({0, 0, 0}, 100.0);
    struct Row
    {
        const char* label;
        MStlHybridState kind;
        bool sharing;
        bool prefilled;
    };
    const Row rows[] = {{"Compact", eStlCompact, true, false},
                        {"Compact holding vertices", eStlCompact, true, true},
                        {"OnDisk", eStlOnDisk, true, false},
                        {"OnDisk without sharing", eStlOnDisk, false, false}};
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.label);
        MStlBase built, expected;
        for (MStlBase* mesh : {&built, &expected})
        {
            ASSERT_TRUE(mesh->GetStlHybrid().SetState(row.kind));
            if (row.kind == eStlOnDisk)
                mesh->GetStlHybrid().GetStlOnDisk()->EnableVertexSharing(row.sharing);
            if (row.prefilled)
            {
                MStlCompact* store = mesh->GetStlHybrid().GetStlCompact();
                store->AddVertexIE(50, 50, 50);
                store->AddVertexIE(0, 0, 0);
            }
        }
        MStlFileReaderTarget target;
        target.Convert(built, solids, {"a", "b"}, scale, true);
        EXPECT_TRUE(target.IsOverflow()) << "overflow flag";

        // The reference: every corner by itself, in file order, as the store's adding protocol reads.
        MStlSurface* surface = expected.GetSurfaceList().GetSurface(0);
        MStlCompactHybrid* compact = expected.GetStlHybrid().GetStlCompact();
        MStlOnDisk* onDisk = expected.GetStlHybrid().GetStlOnDisk();
        MStlTriangleColorMask* mask = nullptr;
        if (compact != nullptr)
        {
            compact->EnableVertexSharing(false);
            compact->BeginAdding();
            compact->SetCurrentSurface(surface);
            mask = expected.GetColorMasks().CreateMainTriangleColorMask();
        }
        else
        {
            onDisk->OpenWrite(false);
            onDisk->StartAddingVertices();
            onDisk->StartAddingSurfaceTriangles(surface);
            onDisk->StartAddingTriangleColors();
        }
        for (const auto& solid : solids)
            for (const MStlFileTriangle& f : solid)
            {
                unsigned v[3];
                for (size_t k = 0; k < 3; ++k)
                {
                    KelSDK::Math::point<int, 3> g;
                    scale.Transform(f.GetVertex(k), g);
                    v[k] = compact != nullptr ? compact->AddVertexIE(g[0], g[1], g[2]) : onDisk->AddVertex(g[0], g[1], g[2]);
                }
                const MStlColor colour = MStlColor::ConvertFrom16BitValue(f.GetAttribute());
                if (compact != nullptr)
                {
                    mask->SetInfo(compact->AddTriangle(v[0], v[1], v[2]), colour);
                }
                else
                {
                    onDisk->AddSurfaceTriangle(v[0], v[1], v[2]);
                    onDisk->AddColor(colour);
                }
            }
        if (compact != nullptr)
            compact->UpdateParentBoundingBox();
        else
        {
            onDisk->UpdateParentBoundingBox();
            onDisk->Close();
        }
        EXPECT_EQ(CompareMeshes(built, expected), "") << "store contents";
        EXPECT_EQ(built.GetStlHybrid().GetNumVertices(), expected.GetStlHybrid().GetNumVertices()) << "vertices";
        EXPECT_EQ(built.GetBoundingBox().GetMax(), expected.GetBoundingBox().GetMax()) << "bounding box";
        // Later look-ups find the vertices the bulk merge added.
        KelSDK::Math::point<int, 3> g;
        scale.Transform(solids[0][7].GetVertex(1), g);
        if (compact != nullptr)
        {
            EXPECT_EQ(built.GetStlHybrid().GetStlCompact()->AddVertexIE(g[0], g[1], g[2]),
                      compact->AddVertexIE(g[0], g[1], g[2]))
                << "a known position";
        }
    }
}
