#include <KelSDK/Triangles/Data.h>

#include <gtest/gtest.h>

#include <set>

using namespace KelSDK::Triangles::Data;

namespace
{
using Points = std::vector<std::array<int, 3>>;
using Lists = std::vector<std::vector<std::array<size_t, 3>>>;

// Two triangles sharing the edge 1-2, points given sorted by (z, x, y).
Points Quad()
{
    return {{0, 0, 0}, {10, 0, 0}, {0, 10, 0}, {10, 10, 0}};
}

// The values of a vector in a block list.
template <typename T> MStlBlockList<T> Listed(const std::vector<T>& values)
{
    MStlBlockList<T> list;
    for (const T& v : values)
        list.PushBack(v);
    return list;
}

std::vector<const MStlTriangle*> Iterated(const MStlBase& stl)
{
    std::vector<const MStlTriangle*> out;
    for (auto it = stl.BeginTriangle(); it != stl.EndTriangle(); ++it)
        out.push_back(&*it);
    return out;
}

// Counts OnTrianglesAdded / OnClear calls and remembers the mesh it was made for.
struct CountingDependency : MStlDependency
{
    explicit CountingDependency(MStlBase&) {}
    static const char* DependencyKey() { return "test.counting"; }
    void OnClear(MStlBase&) override { ++clears; }
    void OnTrianglesAdded(MStlBase&, size_t first, size_t count) override
    {
        lastFirst = first;
        added += count;
    }
    void OnPointsAdded(MStlBase&, size_t, size_t count) override { points += count; }
    int clears = 0;
    size_t added = 0, lastFirst = 0, points = 0;
};
} // namespace

TEST(MStlBaseStandard, CreateSharesPointsAndKeepsInputOrder)
{
    MStlBase stl;
    std::vector<MStlPoint*> pts;
    std::vector<MStlTriangle*> tris;
    ASSERT_TRUE(stl.Create(Quad(), Lists{{{0, 1, 2}, {1, 3, 2}}}, nullptr, &pts, &tris));
    ASSERT_EQ(4u, pts.size());
    ASSERT_EQ(2u, tris.size());
    EXPECT_EQ(4u, stl.NumberOfPoints());
    EXPECT_EQ(2u, stl.NumberOfTriangles());
    // Shared corners are the same point objects.
    EXPECT_EQ(tris[0]->GetPoint(1), tris[1]->GetPoint(0));
    EXPECT_EQ(tris[0]->GetPoint(2), tris[1]->GetPoint(2));
    EXPECT_EQ(pts[3], tris[1]->GetPoint(1));
    EXPECT_EQ(10, pts[3]->GetX());
    EXPECT_EQ(10, pts[3]->GetY());
    // The point list runs in input order, the triangle order is the input order.
    std::vector<MStlPoint*> listed;
    for (MStlPoint* p = stl.GetPointList().GetFirstPoint(); p; p = p->GetNext())
        listed.push_back(p);
    EXPECT_EQ(pts, listed);
    EXPECT_EQ((std::vector<const MStlTriangle*>{tris[0], tris[1]}), Iterated(stl));
    EXPECT_EQ(0u, tris[0]->GetIndex());
    EXPECT_EQ(1u, tris[1]->GetIndex());
    EXPECT_EQ(tris[1], stl.GetTriangleWithIndex(1));
    EXPECT_EQ(nullptr, stl.GetTriangleWithIndex(2));
    // Everything went to the main surface of this mesh.
    EXPECT_EQ(stl.GetMainSurface(), tris[0]->GetSurface());
    EXPECT_EQ(&stl, tris[1]->GetStl());
    EXPECT_EQ(2u, stl.GetMainSurface()->GetNumberOfTriangles());
    // Defaults of a new triangle.
    EXPECT_FALSE(tris[0]->GetColor().IsDefined());
    EXPECT_TRUE(tris[0]->IsVisible());
    EXPECT_EQ(0, tris[0]->GetMark());
}

TEST(MStlBaseStandard, CreateDistributesListsOverSurfaces)
{
    MStlBase stl;
    stl.GetMainSurface()->SetName(L"a");
    MStlSurface* b = stl.AddSurface();
    b->SetName(L"b");
    MStlSurface* c = stl.AddSurface(b); // copies the name
    EXPECT_EQ(L"b", c->GetName());
    c->SetName(L"c");
    std::vector<MStlSurface*> surfaces{stl.GetMainSurface(), b, c};
    std::vector<MStlTriangle*> tris;
    ASSERT_TRUE(
        stl.Create(Quad(), Lists{{{0, 1, 2}}, {{1, 3, 2}, {0, 1, 3}}, {}}, &surfaces, nullptr, &tris));
    ASSERT_EQ(3u, tris.size());
    EXPECT_EQ(1u, stl.GetMainSurface()->GetNumberOfTriangles());
    EXPECT_EQ(2u, b->GetNumberOfTriangles());
    EXPECT_EQ(0u, c->GetNumberOfTriangles());
    EXPECT_EQ(b, tris[2]->GetSurface());
    EXPECT_EQ((std::vector<MStlTriangle*>{tris[1], tris[2]}), b->Triangles());
    EXPECT_EQ(3u, stl.GetSurfaceList().GetNumSurfaces(false));
    EXPECT_EQ(2u, stl.GetSurfaceList().GetNumSurfaces(true));
    // Surface iteration walks the list in order.
    std::vector<std::wstring> names;
    for (MStlIteratorFeatureSurfaceConst it(stl); !it.End(); ++it)
        names.push_back(it->GetName());
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"b", L"c"}), names);
    // More lists than surfaces: the rest goes to the main surface.
    std::vector<MStlSurface*> one{b};
    ASSERT_TRUE(stl.Create(Points{{5, 5, 5}}, Lists{{{0, 0, 0}}, {{0, 0, 0}}}, &one, nullptr, nullptr));
    EXPECT_EQ(3u, b->GetNumberOfTriangles());
    EXPECT_EQ(2u, stl.GetMainSurface()->GetNumberOfTriangles());
    // Empty surfaces can go, surfaces with triangles and the main surface cannot.
    EXPECT_FALSE(stl.GetSurfaceList().RemoveSurface(b));
    EXPECT_FALSE(stl.GetSurfaceList().RemoveSurface(stl.GetMainSurface()));
    EXPECT_TRUE(stl.GetSurfaceList().RemoveSurface(c));
    EXPECT_EQ(2u, stl.GetSurfaceList().GetNumSurfaces(false));
}

TEST(MStlBaseStandard, CreateRejectsBadInputWithoutTouchingTheMesh)
{
    MStlBase stl;
    ASSERT_TRUE(stl.Create(Quad(), Lists{{{0, 1, 2}}}, nullptr, nullptr, nullptr));
    // An index past the points of this call.
    EXPECT_FALSE(stl.Create(Quad(), Lists{{{0, 1, 2}, {0, 1, 4}}}, nullptr, nullptr, nullptr));
    EXPECT_FALSE(stl.Create(Quad(), Lists{{{SIZE_MAX, 1, 2}}}, nullptr, nullptr, nullptr));
    // A surface of another mesh.
    MStlBase other;
    std::vector<MStlSurface*> foreign{other.GetMainSurface()};
    EXPECT_FALSE(stl.Create(Quad(), Lists{{{0, 1, 2}}}, &foreign, nullptr, nullptr));
    EXPECT_EQ(4u, stl.NumberOfPoints());
    EXPECT_EQ(1u, stl.NumberOfTriangles());
    EXPECT_EQ(0u, other.NumberOfTriangles());
    // Not in the Standard kind.
    MStlBase compact;
    ASSERT_TRUE(compact.GetStlHybrid().SetState(eStlCompact));
    EXPECT_FALSE(compact.Create(Quad(), Lists{{{0, 1, 2}}}, nullptr, nullptr, nullptr));
    EXPECT_FALSE(compact.CreatePoints(Quad(), nullptr));
    EXPECT_EQ(nullptr, compact.CreateTriangle(nullptr, nullptr, nullptr));
    // Empty input is fine.
    EXPECT_TRUE(stl.Create({}, {}, nullptr, nullptr, nullptr));
    EXPECT_EQ(1u, stl.NumberOfTriangles());
}

// The flat list with 32-bit indices builds what the nested lists build, surface by surface.
TEST(MStlBaseStandard, CreateFromOneFlatListMatchesNestedLists)
{
    MStlBase nested, flat;
    std::vector<MStlSurface*> nestedSurfaces{nested.GetMainSurface(), nested.AddSurface(), nested.AddSurface()};
    std::vector<MStlSurface*> flatSurfaces{flat.GetMainSurface(), flat.AddSurface(), flat.AddSurface()};
    std::vector<MStlTriangle*> nestedTriangles, flatTriangles;
    std::vector<MStlPoint*> flatPoints;
    ASSERT_TRUE(nested.Create(Quad(), Lists{{{0, 1, 2}}, {}, {{1, 3, 2}, {0, 1, 3}}}, &nestedSurfaces, nullptr,
                              &nestedTriangles));
    ASSERT_TRUE(flat.Create(Quad(), std::vector<std::array<uint32_t, 3>>{{0, 1, 2}, {1, 3, 2}, {0, 1, 3}},
                            {1, 0, 2}, &flatSurfaces, &flatPoints, &flatTriangles));
    EXPECT_EQ("", CompareMeshes(nested, flat));
    ASSERT_EQ(3u, flatTriangles.size());
    EXPECT_EQ(flatSurfaces[2], flatTriangles[1]->GetSurface());
    EXPECT_EQ(flatPoints[3], flatTriangles[1]->GetPoint(1));
    EXPECT_EQ(flatTriangles[2], flat.GetTriangleWithIndex(2));
    EXPECT_EQ(2u, flatSurfaces[2]->GetNumberOfTriangles());
}

TEST(MStlBaseStandard, CreateFromOneFlatListRejectsCountsAndIndicesThatDoNotFit)
{
    MStlBase stl;
    using Flat = std::vector<std::array<uint32_t, 3>>;
    const Flat two{{0, 1, 2}, {1, 3, 2}};
    {
        SCOPED_TRACE("counts short of the list");
        EXPECT_FALSE(stl.Create(Listed(Quad()), Listed(two), {1}, nullptr, nullptr, nullptr));
    }
    {
        SCOPED_TRACE("counts beyond the list");
        EXPECT_FALSE(stl.Create(Listed(Quad()), Listed(two), {1, 2}, nullptr, nullptr, nullptr));
    }
    {
        SCOPED_TRACE("an index past the points");
        EXPECT_FALSE(stl.Create(Listed(Quad()), Listed(Flat{{0, 1, 4}}), {1}, nullptr, nullptr, nullptr));
    }
    EXPECT_EQ(0u, stl.NumberOfPoints());
    EXPECT_EQ(0u, stl.NumberOfTriangles());
    EXPECT_TRUE(stl.Create(Listed(Points()), Listed(Flat()), {}, nullptr, nullptr, nullptr));
    {
        SCOPED_TRACE("vectors: counts short of the list");
        EXPECT_FALSE(stl.Create(Quad(), two, {1}, nullptr, nullptr, nullptr));
    }
}

TEST(MStlBaseStandard, ElementsStayPutWhileTheMeshGrows)
{
    MStlBase stl;
    std::vector<MStlPoint*> first;
    ASSERT_TRUE(stl.CreatePoints(Quad(), &first));
    const MStlPoint copy = *first[2];
    // Grow well past one block, point by point and in bulk.
    for (int i = 0; i < 70000; ++i)
        stl.CreatePoint(i, 1, 2);
    Points many(150000, {7, 7, 7});
    ASSERT_TRUE(stl.CreatePoints(many, nullptr));
    EXPECT_EQ(copy.GetX(), first[2]->GetX());
    EXPECT_EQ(copy.GetY(), first[2]->GetY());
    EXPECT_EQ(4u + 70000u + 150000u, stl.NumberOfPoints());
    // List order, indices and iteration agree across blocks.
    size_t i = 0;
    auto it = stl.BeginPoint();
    for (MStlPoint* p = stl.GetPointList().GetFirstPoint(); p; p = p->GetNext(), ++it, ++i)
    {
        ASSERT_EQ(&*it, p);
        if (i % 9973 == 0)
        {
            ASSERT_EQ(i, stl.GetPointList().GetIndexOfPoint(p));
            ASSERT_EQ(p, stl.GetPointList().GetPointWithIndex(i));
        }
    }
    EXPECT_EQ(stl.NumberOfPoints(), i);
    EXPECT_TRUE(it == stl.EndPoint());
    EXPECT_EQ(SIZE_MAX, stl.GetPointList().GetIndexOfPoint(&copy));
    EXPECT_EQ(nullptr, stl.GetPointList().GetPointWithIndex(i));
}

TEST(MStlBaseStandard, SortedPointIndexFollowsSortingSwitch)
{
    MStlBase stl;
    MStlPointList& list = stl.GetPointList();
    EXPECT_TRUE(list.IsSortingEnabled());
    // Unsorted input, point by point: look-up still exact.
    MStlPoint* a = stl.CreatePoint(5, 5, 5);
    MStlPoint* b = stl.CreatePoint(1, 2, 3);
    MStlPoint* c = stl.CreatePoint(-4, 9, 3);
    EXPECT_EQ(a, list.FindPoint(5, 5, 5));
    EXPECT_EQ(b, list.FindPoint(1, 2, 3));
    EXPECT_EQ(c, list.FindPoint(-4, 9, 3));
    EXPECT_EQ(nullptr, list.FindPoint(1, 2, 4));
    // Switched off: nothing is found and bulk creation does not index.
    list.DisableSorting();
    EXPECT_FALSE(list.IsSortingEnabled());
    std::vector<MStlPoint*> created;
    ASSERT_TRUE(stl.CreatePoints(Points{{9, 9, 9}, {0, 0, -1}}, &created));
    EXPECT_EQ(nullptr, list.FindPoint(9, 9, 9));
    EXPECT_EQ(nullptr, list.FindPoint(5, 5, 5));
    // Switched on again: rebuilt over all points, wrong "already sorted" guess corrected.
    list.EnableSorting(true, true);
    EXPECT_EQ(created[0], list.FindPoint(9, 9, 9));
    EXPECT_EQ(created[1], list.FindPoint(0, 0, -1));
    EXPECT_EQ(a, list.FindPoint(5, 5, 5));
    list.DisableSorting();
    list.EnableSorting(false, false); // built lazily at the next look-up
    EXPECT_EQ(c, list.FindPoint(-4, 9, 3));
    // Points added later while sorting is on are found too, and the list order is unchanged.
    MStlPoint* d = stl.CreatePoint(-100, 0, 0);
    EXPECT_EQ(d, list.FindPoint(-100, 0, 0));
    EXPECT_EQ(a, list.GetFirstPoint());
    EXPECT_EQ(d, list.GetLastPoint());
    EXPECT_EQ(6u, list.GetNumPoints());
    // Moving a point needs a re-sort.
    a->Set(50, 50, 50);
    list.DisableSorting();
    list.EnableSorting(false, true);
    EXPECT_EQ(a, list.FindPoint(50, 50, 50));
    EXPECT_EQ(nullptr, list.FindPoint(5, 5, 5));
}

TEST(MStlBaseStandard, SortedInputKeepsLookUpExactForLargeRuns)
{
    MStlBase stl;
    Points pts;
    for (int z = -20; z < 20; ++z)
        for (int x = -20; x < 20; ++x)
            for (int y = -20; y < 20; ++y)
                pts.push_back({x, y, z});
    std::vector<MStlPoint*> created;
    ASSERT_TRUE(stl.Create(pts, {}, nullptr, &created, nullptr));
    for (size_t i = 0; i < pts.size(); i += 37)
        ASSERT_EQ(created[i], stl.GetPointList().FindPoint(pts[i][0], pts[i][1], pts[i][2]));
    EXPECT_EQ(nullptr, stl.GetPointList().FindPoint(20, 0, 0));
}

TEST(MStlBaseStandard, UserDefinedFlags)
{
    MStlBase stl;
    MStlPoint* p = stl.CreatePoint(1, 2, 3);
    EXPECT_FALSE(p->IsUserDefined(false));
    p->SetUserDefined(true);
    EXPECT_TRUE(p->IsUserDefined(false));
    p->SetUserDefined(false);
    p->SetFlags(MStlPoint::FlagFirstUserBit << 3);
    EXPECT_FALSE(p->IsUserDefined(false));
    EXPECT_TRUE(p->IsUserDefined(true));
    double d[3];
    p->Get(d);
    EXPECT_EQ(3.0, d[2]);
}

TEST(MStlBaseStandard, NormalsCollapsedAndDegenerateTriangles)
{
    MStlBase stl;
    std::vector<MStlPoint*> p;
    ASSERT_TRUE(stl.CreatePoints(Points{{0, 0, 0}, {10, 0, 0}, {0, 10, 0}, {0, 0, 0}, {20, 0, 0}}, &p));
    MStlTriangle* ok = stl.CreateTriangle(p[0], p[1], p[2]);
    MStlTriangle* flipped = stl.CreateTriangle(p[0], p[2], p[1]);
    MStlTriangle* samePoint = stl.CreateTriangle(p[0], p[0], p[1]);
    MStlTriangle* samePosition = stl.CreateTriangle(p[3], p[1], p[0]); // p[3] lies on p[0]
    MStlTriangle* colinear = stl.CreateTriangle(p[0], p[1], p[4]);
    ASSERT_TRUE(ok);
    ASSERT_TRUE(flipped);
    ASSERT_TRUE(samePoint);
    ASSERT_TRUE(samePosition);
    ASSERT_TRUE(colinear);
    EXPECT_EQ(1.0, ok->GetNormal()[2]);
    EXPECT_EQ(-1.0, flipped->GetNormal()[2]);
    EXPECT_DOUBLE_EQ(100.0, ok->GetDoubleArea());
    EXPECT_FALSE(ok->IsCollapsed());
    EXPECT_TRUE(samePoint->IsCollapsed());
    EXPECT_TRUE(samePosition->IsCollapsed());
    // A sliver without area has distinct corners: not collapsed, zero normal.
    EXPECT_FALSE(colinear->IsCollapsed());
    const auto n = colinear->GetNormal();
    EXPECT_EQ(0.0, n[0]);
    EXPECT_EQ(0.0, n[1]);
    EXPECT_EQ(0.0, n[2]);
    EXPECT_EQ(nullptr, stl.CreateTriangle(p[0], nullptr, p[1]));
}

TEST(MStlBaseStandard, FaceGroupsPresentAndAbsent)
{
    MStlBase stl;
    std::vector<MStlTriangle*> t;
    ASSERT_TRUE(stl.Create(Quad(), Lists{{{0, 1, 2}, {1, 3, 2}}}, nullptr, nullptr, &t));
    EXPECT_EQ(nullptr, stl.GetFaceGroupInfo());
    MStlBaseFaceGroupInfo* info = stl._CreateFaceGroupInfo();
    ASSERT_NE(nullptr, info);
    EXPECT_EQ(info, stl._CreateFaceGroupInfo()); // created once
    EXPECT_EQ(0u, info->GetFaceID(*t[1]));
    info->SetFaceID(*t[1], 0xFFFFFFFFul);
    EXPECT_EQ(0xFFFFFFFFu, info->GetFaceID(*t[1]));
    EXPECT_EQ(0u, info->GetFaceID(*t[0]));
    // New triangles extend the identifiers; identifiers past the mesh are ignored.
    MStlTriangle* more = stl.CreateTriangle(t[0]->GetPoint0(), t[0]->GetPoint1(), t[1]->GetPoint1());
    info->SetFaceID(*more, 7);
    EXPECT_EQ(7u, info->GetFaceID(*more));
    info->SetFaceID(size_t(1000000), 5);
    EXPECT_EQ(3u, info->GetSize());
    stl.DeleteFaceGroupInfo();
    EXPECT_EQ(nullptr, stl.GetFaceGroupInfo());
    EXPECT_EQ(0u, stl._CreateFaceGroupInfo()->GetFaceID(*t[1]));
}

TEST(MStlBaseStandard, ClearStlEmptiesGeometryAndNotifiesDependencies)
{
    MStlBase stl;
    stl.SetName(L"part");
    stl.SetRGB(0x123456);
    auto* dep = GetStlDependency<CountingDependency>(&stl, true);
    ASSERT_NE(nullptr, dep);
    EXPECT_EQ(dep, GetStlDependency<CountingDependency>(&stl, false));
    MStlSurface* extra = stl.AddSurface();
    std::vector<MStlSurface*> s{nullptr, extra};
    std::vector<MStlPoint*> p;
    ASSERT_TRUE(stl.Create(Quad(), Lists{{{0, 1, 2}}, {{1, 3, 2}}}, &s, &p, nullptr));
    EXPECT_EQ(2u, dep->added);
    EXPECT_EQ(4u, dep->points);
    stl.CreateGraphEdge(p[0], p[3]);
    stl._CreateFaceGroupInfo();
    stl.GetSurfaceBorders().AddBorder(extra)->Contours().push_back({});
    stl.GetCurves().AddCurveSet()->AddCurve({{{0, 0, 0}, {1, 1, 1}}, false});
    stl.GetHistory().AddEntry({L"Import", L"a.stl", 1, L"me"});

    stl.ClearStl(false);
    EXPECT_EQ(1, dep->clears);
    EXPECT_EQ(0u, stl.NumberOfPoints());
    EXPECT_EQ(0u, stl.NumberOfTriangles());
    EXPECT_EQ(0u, stl.NumberOfGraphEdges());
    EXPECT_EQ(nullptr, stl.GetPointList().GetFirstPoint());
    EXPECT_EQ(nullptr, stl.GetFaceGroupInfo());
    EXPECT_EQ(0u, stl.GetSurfaceBorders().GetNumBorders());
    EXPECT_EQ(2u, stl.GetSurfaceList().GetNumSurfaces(false));
    EXPECT_EQ(0u, extra->GetNumberOfTriangles());
    EXPECT_EQ(1u, stl.GetCurves().GetNumCurveSets());
    EXPECT_EQ(1u, stl.GetHistory().GetNumEntries());
    EXPECT_TRUE(stl.BeginTriangle() == stl.EndTriangle());

    stl.GetMainSurface()->SetName(L"main");
    stl.ClearStl(true);
    EXPECT_EQ(2, dep->clears);
    EXPECT_EQ(1u, stl.GetSurfaceList().GetNumSurfaces(false));
    EXPECT_EQ(L"", stl.GetMainSurface()->GetName());
    EXPECT_EQ(0u, stl.GetCurves().GetNumCurveSets());
    EXPECT_EQ(0u, stl.GetHistory().GetNumEntries());
    EXPECT_EQ(L"part", stl.GetName());
    EXPECT_EQ(0x123456u, stl.GetRGB());
    // The mesh is usable again.
    ASSERT_TRUE(stl.Create(Quad(), Lists{{{0, 1, 2}}}, nullptr, nullptr, nullptr));
    EXPECT_EQ(1u, stl.NumberOfTriangles());
    EXPECT_EQ(0u, dep->lastFirst);
    DestroyStlDependency<CountingDependency>(&stl);
    EXPECT_EQ(nullptr, GetStlDependency<CountingDependency>(&stl, false));
    EXPECT_FALSE(stl.RemoveDependency(CountingDependency::DependencyKey()));
}

// A writer compares the mesh colour with the material's to tell which facets owe the mesh colour; a
// material set afterwards (as a reader does) must not leave the default grey behind.
TEST(MStlBaseStandard, MeshColourFollowsTheMaterialsColourWord)
{
    MStlBase stl;
    MStlMaterial material;
    material.SetRGB(0x7F3264C8u); // alpha 0x7F is not part of the mesh colour
    stl.SetMaterial(material);
    EXPECT_EQ(0x3264C8u, stl.GetRGB());
    stl.SetRGB(0x010203u); // a colour of its own stays until the next material
    EXPECT_EQ(0x010203u, stl.GetRGB());
    EXPECT_EQ(0x7F3264C8u, stl.GetMaterial().GetRGB());
}

TEST(MStlBaseStandard, PropertiesExtremesAndBoundingBox)
{
    MStlBase stl;
    int e[6] = {1, 1, 1, 1, 1, 1};
    EXPECT_FALSE(stl.GetProperties().CalculateExtremes(e[0], e[1], e[2], e[3], e[4], e[5]));
    EXPECT_EQ(0, e[3]);
    EXPECT_TRUE(stl.GetBoundingBox().IsEmpty());
    EXPECT_FALSE(stl.GetProperties().GetIsSupport());
    EXPECT_TRUE(stl.GetProperties().GetIsSupposedSolid());
    ASSERT_TRUE(stl.CreatePoints(Points{{-5, 7, 100}, {3, -9, -2}}, nullptr));
    ASSERT_TRUE(stl.GetProperties().CalculateExtremes(e[0], e[1], e[2], e[3], e[4], e[5]));
    EXPECT_EQ((std::vector<int>{-5, 3, -9, 7, -2, 100}), std::vector<int>(e, e + 6));
    EXPECT_EQ(-9, stl.GetBoundingBox().GetMin()[1]);
    stl.CreatePoint(0, 0, 1000); // invalidates the cached box
    EXPECT_EQ(1000, stl.GetBoundingBox().GetMax()[2]);
}

TEST(MStlBaseStandard, MarksVisibilitiesAndValidity)
{
    MStlBase stl;
    std::vector<MStlTriangle*> t;
    ASSERT_TRUE(stl.Create(Quad(), Lists{{{0, 1, 2}, {1, 3, 2}}}, nullptr, nullptr, &t));
    t[0]->SetMark(200);
    t[1]->MakeInvisible();
    EXPECT_EQ(200, t[0]->GetMark());
    EXPECT_FALSE(t[1]->IsVisible());
    t[1]->MakeVisible();
    EXPECT_TRUE(t[1]->IsVisible());
    stl.GetMarkInterface().SetValidity(3);
    stl.GetMarkInterface().InvalidateValidity();
    EXPECT_EQ(0u, stl.GetMarkInterface().GetValidity());
    EXPECT_TRUE(stl.GetValidity().AreTriangleVisibilitiesValid());
    stl.InvalidateTriangleVisibilities();
    EXPECT_FALSE(stl.GetValidity().AreTriangleVisibilitiesValid());
    // Moving a triangle between surfaces.
    MStlSurface* s = stl.AddSurface();
    EXPECT_TRUE(stl.MoveTriangleToSurface(t[0], s));
    EXPECT_EQ(s, t[0]->GetSurface());
    EXPECT_EQ(1u, stl.GetMainSurface()->GetNumberOfTriangles());
    MStlBase other;
    EXPECT_FALSE(stl.MoveTriangleToSurface(t[0], other.GetMainSurface()));
}

TEST(MStlBaseFeatures, CurvesBordersTexturesRegisteredPointsHistory)
{
    MStlBase stl;
    MStlSurface* s = stl.AddSurface();
    std::vector<MStlPoint*> p;
    ASSERT_TRUE(stl.CreatePoints(Quad(), &p));
    MStlSurfaceBorder* border = stl.GetSurfaceBorders().AddBorder(s);
    border->Contours().push_back({{{{p[0], p[1]}, stl.GetMainSurface()}, {{p[1], p[0]}, nullptr}}});
    EXPECT_EQ(2u, border->Contours()[0].subContours.size());
    // Removing an empty surface drops its borders and sub-contour references to it.
    MStlSurfaceBorder* mainBorder = stl.GetSurfaceBorders().AddBorder(stl.GetMainSurface());
    mainBorder->Contours().push_back({{{{p[2]}, s}}});
    EXPECT_TRUE(stl.GetSurfaceList().RemoveSurface(s));
    ASSERT_EQ(1u, stl.GetSurfaceBorders().GetNumBorders());
    EXPECT_EQ(nullptr, stl.GetSurfaceBorders().GetBorder(0)->Contours()[0].subContours[0].neighbour);

    MStlCurveSet* set = stl.GetCurves().AddCurveSet();
    set->SetName(L"cut");
    set->AddCurve({{{0, 0, 0}, {5, 0, 0}, {5, 5, 0}}, true});
    EXPECT_EQ(1u, stl.GetCurves().GetCurveSet(0)->GetNumCurves());
    EXPECT_EQ(nullptr, stl.GetCurves().GetCurveSet(1));
    EXPECT_TRUE(stl.GetCurves().RemoveCurveSet(set));
    EXPECT_FALSE(stl.GetCurves().RemoveCurveSet(set));

    MStlTexture* tex = stl.GetTextures().AddTexture();
    tex->SetName(L"logo");
    tex->Coordinates().push_back({0, {0.f, 1.f, 0.f}, {0.f, 0.f, 1.f}});
    EXPECT_EQ(0u, stl.GetTextures().GetIndexOfTexture(tex));
    EXPECT_EQ(nullptr, tex->GetSharedBitmap());
    EXPECT_EQ(SIZE_MAX, stl.GetTextures().GetIndexOfTexture(nullptr));

    stl.GetRegisteredPoints().AddPoint({1, 2, 3, 42, L"fiducial"});
    ASSERT_NE(nullptr, stl.GetRegisteredPoints().FindPoint(42));
    EXPECT_EQ(L"fiducial", stl.GetRegisteredPoints().FindPoint(42)->name);
    EXPECT_EQ(nullptr, stl.GetRegisteredPoints().FindPoint(43));

    MHistory& h = stl.GetHistory();
    h.AddEntry({L"Import", L"a.stl", 100, L"u"});
    h.AddEntry({L"Repair", L"", 200, L"u"});
    EXPECT_EQ(L"Repair", h.GetEntry(1).operation);
    MHistory copy = h;
    EXPECT_EQ(copy, h);

    MStlGraphEdge* e = stl.CreateGraphEdge(p[0], p[3]);
    ASSERT_NE(nullptr, e);
    EXPECT_EQ(p[3], e->GetPoint(1));
    EXPECT_EQ(nullptr, stl.CreateGraphEdge(p[0], nullptr));
    size_t n = 0;
    for (const MStlGraphEdge& edge : static_cast<const MStlBase&>(stl).GraphEdges())
        n += edge.GetPoint(0) == p[0];
    EXPECT_EQ(1u, n);
}

TEST(MStlBaseStandard, FindOrCreatePointByPointStaysExact)
{
    // The pattern of an incremental loader: look a position up, create it when missing.
    MStlBase stl;
    MStlPointList& list = stl.GetPointList();
    uint32_t state = 12345;
    std::vector<std::array<int, 3>> asked;
    size_t created = 0;
    for (int i = 0; i < 60000; ++i)
    {
        state = state * 1664525u + 1013904223u;
        const std::array<int, 3> q{int(state % 97) - 48, int((state >> 8) % 89),
                                   int((state >> 16) % 83) - 40};
        asked.push_back(q);
        MStlPoint* p = list.FindPoint(q[0], q[1], q[2]);
        if (!p)
        {
            p = stl.CreatePoint(q[0], q[1], q[2]);
            ++created;
        }
        ASSERT_EQ(p, list.FindPoint(q[0], q[1], q[2]));
    }
    EXPECT_EQ(created, stl.NumberOfPoints());
    std::set<std::array<int, 3>> distinct(asked.begin(), asked.end());
    EXPECT_EQ(distinct.size(), created);
    // A bulk run in between, unsorted, joins the index.
    std::vector<MStlPoint*> bulk;
    ASSERT_TRUE(stl.CreatePoints({{1000, 0, 0}, {-1000, 0, 0}, {0, 0, 1000}}, &bulk));
    EXPECT_EQ(bulk[1], list.FindPoint(-1000, 0, 0));
    for (const auto& q : distinct)
    {
        MStlPoint* p = list.FindPoint(q[0], q[1], q[2]);
        ASSERT_NE(nullptr, p);
        ASSERT_EQ(q[2], p->GetZ());
    }
}

// Standard blocks freed inside a reuse scope come back from the next allocation; larger mappings
// are cut into standard blocks where the platform can free part of one; nothing stays kept after
// the scope.
TEST(MStlBlockReuse, FreedStandardBlocksServeTheNextAllocations)
{
    constexpr size_t block = MStlStandardBlockBytes;
    {
        const MStlBlockReuse scope;
        void* first = MStlAllocateBlock(block);
        MStlFreeBlock(first, block);
        EXPECT_EQ(block, MStlBlockReuse::KeptBytes()) << "a freed standard block is kept";
        void* again = MStlAllocateBlock(block);
        EXPECT_EQ(first, again) << "the kept block is handed out again";
        EXPECT_EQ(0u, MStlBlockReuse::KeptBytes()) << "and no longer kept";
        MStlFreeBlock(again, block);
        void* larger = MStlAllocateBlock(2 * block + block / 2);
        MStlFreeBlock(larger, 2 * block + block / 2);
#if defined(__linux__)
        EXPECT_EQ(3 * block, MStlBlockReuse::KeptBytes()) << "two standard blocks cut from a larger mapping";
#else
        EXPECT_EQ(block, MStlBlockReuse::KeptBytes()) << "a larger block is freed whole";
#endif
        MStlBlockReuse::KeepAtMost(block + 1);
        EXPECT_EQ(2 * block, MStlBlockReuse::KeptBytes()) << "what is kept is rounded up to whole blocks";
        MStlFreeBlock(MStlAllocateBlock(block / 2), block / 2);
        EXPECT_EQ(2 * block, MStlBlockReuse::KeptBytes()) << "other sizes are not kept";
    }
    EXPECT_EQ(0u, MStlBlockReuse::KeptBytes()) << "the end of the scope frees everything kept";
    MStlFreeBlock(MStlAllocateBlock(block), block);
    EXPECT_EQ(0u, MStlBlockReuse::KeptBytes()) << "without a scope nothing is kept";
}

// More points and triangles than one standard block holds: the runs continue across blocks.
TEST(MStlBaseStandard, CreateAcrossStandardBlocks)
{
    const size_t side = 1500; // 2.25 million points, 1.1 million triangles of a strip
    Points points;
    points.reserve(side * side);
    for (size_t y = 0; y < side; ++y)
        for (size_t x = 0; x < side; ++x)
            points.push_back({int(x), int(y), 0});
    std::vector<std::array<uint32_t, 3>> triangles;
    for (uint32_t i = 0; i + side + 1 < points.size() && triangles.size() < 1100000; i += 2)
        triangles.push_back({i, i + 1, i + uint32_t(side)});
    const size_t count = triangles.size();
    ASSERT_GT(points.size(), MStlBlockPool<MStlPoint>::PieceElements);
    ASSERT_GT(count, MStlBlockPool<MStlTriangle>::PieceElements);
    const std::vector<std::array<uint32_t, 3>> expected = triangles;
    MStlBase stl;
    std::vector<MStlPoint*> created;
    std::vector<MStlTriangle*> made;
    ASSERT_TRUE(stl.Create(Listed(points), Listed(triangles), {count}, nullptr, &created, &made));
    size_t i = 0, wrong = 0;
    for (MStlPoint* p = stl.GetPointList().GetFirstPoint(); p; p = p->GetNext(), ++i)
        wrong += i >= created.size() || created[i] != p || p->GetX() != points[i][0] || p->GetY() != points[i][1];
    EXPECT_EQ(points.size(), i) << "the point list runs over every block";
    EXPECT_EQ(0u, wrong) << "points in input order with their positions";
    EXPECT_EQ(created.back(), stl.GetPointList().FindPoint(int(side) - 1, int(side) - 1, 0)) << "sorted index";
    size_t t = 0, wrongCorners = 0;
    for (const MStlTriangle& triangle : stl.Triangles())
    {
        for (int k = 0; k < 3; ++k)
            wrongCorners += triangle.GetPoint(k) != created[expected[t][k]];
        wrongCorners += made[t] != &triangle || triangle.GetIndex() != t;
        ++t;
    }
    EXPECT_EQ(count, t) << "triangles";
    EXPECT_EQ(0u, wrongCorners) << "every triangle's corners, index and place in the created list";
}

// A block list keeps its values across the growth of its first block and into further standard
// blocks, zeroes what it grows by, and frees whole blocks before a given place.
TEST(MStlBlockList, GrowsAcrossBlocksAndReleasesFromTheFront)
{
    using List = MStlBlockList<std::array<uint32_t, 3>>;
    const size_t count = List::BlockElements + 1000;
    List list;
    for (uint32_t i = 0; i < 100; ++i)
        list.PushBack({i, i + 1, i + 2});
    list.Resize(count);
    EXPECT_EQ(count, list.Size()) << "size";
    EXPECT_EQ(99u, list[99][0]) << "values pushed before the first block became a whole one";
    EXPECT_EQ(0u, list[100][2]) << "values added by Resize are zero";
    EXPECT_EQ(0u, list[count - 1][1]) << "in the second block too";
    list[count - 1] = {7, 8, 9};
    {
        const MStlBlockReuse scope;
        list.ReleaseBefore(List::BlockElements - 1);
        EXPECT_EQ(0u, MStlBlockReuse::KeptBytes()) << "a block with a value at or after the place stays";
        list.ReleaseBefore(List::BlockElements);
        EXPECT_EQ(MStlStandardBlockBytes, MStlBlockReuse::KeptBytes()) << "the first block goes once passed";
        EXPECT_EQ(9u, list[count - 1][2]) << "the second block keeps its values";
        List moved = std::move(list);
        EXPECT_EQ(count, moved.Size()) << "a move takes the values";
        EXPECT_EQ(0u, list.Size()) << "and leaves an empty list";
    }
}
