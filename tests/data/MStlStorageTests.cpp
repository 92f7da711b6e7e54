#include <KelSDK/Common/ImageBitmap.h>
#include <KelSDK/Triangles/Data.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>

using namespace KelSDK::Triangles::Data;

namespace
{
struct Item
{
    int value;
};

// A Standard mesh of two triangles on two named surfaces with colours and face groups.
void BuildPair(MStlBase& stl)
{
    stl.SetName(L"pair");
    MStlSurface* second = stl.AddSurface();
    second->SetName(L"second");
    std::vector<MStlSurface*> surfaces{stl.GetMainSurface(), second};
    std::vector<MStlTriangle*> t;
    ASSERT_TRUE(stl.Create({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}}, {{{0, 1, 2}}, {{1, 3, 2}}},
                           &surfaces, nullptr, &t));
    t[0]->SetColor(MStlColor(0x0000FF));
    stl._CreateFaceGroupInfo()->SetFaceID(*t[1], 4);
}
} // namespace

TEST(MStlBlockPool, BlocksIndicesAndIteration)
{
    MStlBlockPool<Item> pool;
    EXPECT_EQ(nullptr, pool.At(0));
    EXPECT_TRUE(pool.begin() == pool.end());
    for (int i = 0; i < 10; ++i)
        pool.Add(Item{i});
    // A run larger than the room left opens a new block; the tail of the old one stays unused.
    const size_t run = MStlBlockPool<Item>::DefaultBlock + 5;
    Item* r = pool.Reserve(run);
    for (size_t i = 0; i < run; ++i)
        r[i].value = int(10 + i);
    pool.Commit(run);
    pool.Add(Item{-1}); // does not fit behind the run: a third block
    ASSERT_EQ(3u, pool.Blocks().size());
    ASSERT_EQ(11u + run, pool.Size());
    int expected = 0;
    size_t count = 0;
    for (const Item& item : pool)
    {
        if (count + 1 < pool.Size())
        {
            ASSERT_EQ(expected++, item.value);
        }
        ++count;
    }
    EXPECT_EQ(pool.Size(), count);
    for (size_t i : {size_t(0), size_t(9), size_t(10), size_t(10) + run - 1, size_t(10) + run})
    {
        Item* p = pool.At(i);
        ASSERT_NE(nullptr, p) << i;
        EXPECT_EQ(i, pool.IndexOf(p)) << i;
    }
    EXPECT_EQ(nullptr, pool.At(pool.Size()));
    Item outside{0};
    EXPECT_EQ(SIZE_MAX, pool.IndexOf(&outside));
    EXPECT_EQ(SIZE_MAX, pool.IndexOf(nullptr));
    // One past the used part of the first block is not an element.
    EXPECT_EQ(SIZE_MAX, pool.IndexOf(pool.At(9) + 1));
    pool.Clear();
    EXPECT_EQ(0u, pool.Size());
    EXPECT_TRUE(pool.begin() == pool.end());
}

TEST(MDataMask, DefaultsGrowthAndClear)
{
    MDataMask<MStlTriangle, int> mask(-1);
    EXPECT_EQ(-1, mask.GetInfo(5));
    mask.SetInfo(3, 7);
    EXPECT_EQ(4u, mask.GetSize());
    EXPECT_EQ(-1, mask.GetInfo(0));
    EXPECT_EQ(7, mask.GetInfo(3));
    mask.SetDefault(0);
    mask.Resize(6);
    EXPECT_EQ(0, mask.GetInfo(5));
    EXPECT_EQ(-1, mask.GetInfo(2)); // slots made before keep their value
    mask.Clear();
    EXPECT_EQ(0u, mask.GetSize());
    MStlColorMasks masks;
    EXPECT_EQ(nullptr, masks.GetMainPointColorMask());
    masks.CreateMainPointColorMask()->SetInfo(0, MStlColor(1));
    masks.CreateMainTriangleColorMask();
    masks.Clear();
    EXPECT_EQ(nullptr, masks.GetMainPointColorMask());
    EXPECT_EQ(nullptr, masks.GetMainTriangleColorMask());
}

TEST(MStlPointList, DuplicatePositionsStaySeparatePoints)
{
    MStlBase stl;
    std::vector<MStlPoint*> p;
    ASSERT_TRUE(stl.CreatePoints({{1, 1, 1}, {1, 1, 1}, {0, 0, 0}}, &p));
    EXPECT_EQ(3u, stl.NumberOfPoints());
    EXPECT_NE(p[0], p[1]);
    MStlPoint* found = stl.GetPointList().FindPoint(1, 1, 1);
    EXPECT_THAT(found, ::testing::AnyOf(p[0], p[1]));
    EXPECT_EQ(p[2], stl.GetPointList().FindPoint(0, 0, 0));
    // Const and mutable iteration see the same points.
    const MStlBase& constStl = stl;
    auto it = stl.BeginPoint();
    for (const MStlPoint& q : constStl.Points())
        EXPECT_EQ(&q, &*it++);
    EXPECT_TRUE(it == stl.EndPoint());
}

TEST(MStlHybrid, VerticesSharedSwitchAppliesToEveryKind)
{
    for (MStlHybridState kind : {eStlStandard, eStlCompact, eStlOnDisk})
    {
        MStlBase stl;
        MStlHybrid& h = stl.GetStlHybrid();
        ASSERT_TRUE(h.SetState(kind));
        EXPECT_TRUE(h.GetVerticesShared()) << kind;
        ASSERT_TRUE(h.StartAddingVertices());
        EXPECT_EQ(0u, h.AddVertex(5, 5, 5));
        // Shared: the Compact and OnDisk stores merge; Standard always appends a point.
        EXPECT_EQ(kind == eStlStandard ? 1u : 0u, h.AddVertex(5, 5, 5)) << kind;
        h.SetVerticesShared(false);
        EXPECT_FALSE(h.GetVerticesShared());
        const unsigned next = unsigned(h.GetNumVertices());
        EXPECT_EQ(next, h.AddVertex(5, 5, 5)) << kind;
        h.Close();
        // The switch survives a change of kind.
        ASSERT_TRUE(h.SetState(kind == eStlOnDisk ? eStlCompact : eStlOnDisk));
        EXPECT_FALSE(h.GetVerticesShared());
    }
}

TEST(MStlHybrid, ColoursBeyondTheTrianglesAreRefused)
{
    for (MStlHybridState kind : {eStlStandard, eStlCompact})
    {
        MStlBase stl;
        MStlHybrid& h = stl.GetStlHybrid();
        ASSERT_TRUE(h.SetState(kind));
        h.StartAddingVertices();
        h.AddVertex(0, 0, 0);
        h.AddVertex(1, 0, 0);
        h.AddVertex(0, 1, 0);
        h.StartAddingTriangles(nullptr);
        ASSERT_EQ(0u, h.AddTriangle(0, 1, 2));
        ASSERT_TRUE(h.StartAddingTriangleColors());
        EXPECT_TRUE(h.AddColor(MStlColor(3)));
        EXPECT_FALSE(h.AddColor(MStlColor(4)));
        EXPECT_EQ(MStlColor(3), h.GetColor(0));
    }
}

TEST(MStlOnDisk, SurfaceRunsAndReopening)
{
    MStlBase stl;
    ASSERT_TRUE(stl.GetStlHybrid().SetState(eStlOnDisk));
    MStlOnDisk* d = stl.GetStlHybrid().GetStlOnDisk();
    MStlSurface* a = stl.GetMainSurface();
    MStlSurface* b = stl.AddSurface();
    ASSERT_TRUE(d->OpenWrite(false));
    for (int i = 0; i < 3; ++i)
        d->AddVertex(i, 0, 0);
    // a a | b | (switch without triangles) | a a
    d->StartAddingSurfaceTriangles(a);
    d->AddSurfaceTriangle(0, 1, 2);
    d->AddSurfaceTriangle(0, 1, 2);
    d->StartAddingSurfaceTriangles(b);
    d->AddSurfaceTriangle(0, 1, 2);
    d->StartAddingSurfaceTriangles(b);
    d->StartAddingSurfaceTriangles(a);
    d->AddSurfaceTriangle(0, 1, 2);
    d->AddSurfaceTriangle(0, 1, 2);
    ASSERT_TRUE(d->Close());
    const std::vector<MStlSurface*> expected{a, a, b, a, a};
    for (size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(expected[i], d->GetTriangleSurface(i)) << i;
    EXPECT_EQ(nullptr, d->GetTriangleSurface(5));
    // Colours are optional: none written, none reported.
    EXPECT_FALSE(stl.GetStlHybrid().StartGettingTriangleColors());
    for (int pass = 0; pass < 2; ++pass)
    {
        ASSERT_TRUE(d->OpenRead());
        EXPECT_TRUE(d->IsOpenForReading());
        unsigned i0, i1, i2;
        EXPECT_TRUE(d->GetTriangle(4, i0, i1, i2));
        EXPECT_FALSE(d->GetColor(0).IsDefined());
        EXPECT_TRUE(d->Close());
        EXPECT_FALSE(d->IsOpenForReading());
    }
    d->Clear();
    EXPECT_EQ(0u, d->GetNumTriangles());
    int e[6];
    EXPECT_FALSE(d->GetExtremes(e));
}

TEST(CompareMeshes, ReportsTheFirstDifferenceOfEachKind)
{
    MStlBase a, b;
    BuildPair(a);
    BuildPair(b);
    EXPECT_EQ("", CompareMeshes(a, b));

    b.SetName(L"other");
    EXPECT_EQ("name \"pair\" != \"other\"", CompareMeshes(a, b));
    MStlCompareOptions noAttributes;
    noAttributes.attributes = false;
    EXPECT_EQ("", CompareMeshes(a, b, noAttributes));
    b.SetName(L"pair");

    MStlMaterial m;
    m.SetShininess(2.0f);
    b.SetMaterial(m);
    EXPECT_EQ("material differs", CompareMeshes(a, b));
    b.SetMaterial(a.GetMaterial());
    b.GetProperties().SetIsSupport(true);
    EXPECT_EQ("support flag differs", CompareMeshes(a, b));
    b.GetProperties().SetIsSupport(false);

    b.GetPointList().GetFirstPoint()->Set(0, 0, 9);
    EXPECT_EQ("vertex 0: (0, 0, 0) != (0, 0, 9)", CompareMeshes(a, b));
    b.GetPointList().GetFirstPoint()->Set(0, 0, 0);
    b.GetPointList().GetLastPoint()->SetUserDefined(true);
    EXPECT_EQ("vertex 3: user-defined mark differs", CompareMeshes(a, b));
    b.GetPointList().GetLastPoint()->SetUserDefined(false);

    b.GetTriangleWithIndex(0)->ResetColor();
    EXPECT_EQ("triangle 0: colour 0xff != undefined", CompareMeshes(a, b));
    MStlCompareOptions noColors;
    noColors.colors = false;
    EXPECT_EQ("", CompareMeshes(a, b, noColors));
    b.GetTriangleWithIndex(0)->SetColor(MStlColor(0xFF));

    ASSERT_TRUE(b.MoveTriangleToSurface(b.GetTriangleWithIndex(1), b.GetMainSurface()));
    EXPECT_EQ("triangle 1: surface 1 != 0", CompareMeshes(a, b));
    ASSERT_TRUE(b.MoveTriangleToSurface(b.GetTriangleWithIndex(1), b.GetSurfaceList().GetSurface(1)));
    b.GetSurfaceList().GetSurface(1)->SetName(L"renamed");
    EXPECT_EQ("surface 1: name \"second\" != \"renamed\"", CompareMeshes(a, b));
    b.GetSurfaceList().GetSurface(1)->SetName(L"second");

    b.GetFaceGroupInfo()->SetFaceID(size_t(1), 5);
    EXPECT_EQ("triangle 1: face group 4 != 5", CompareMeshes(a, b));
    b.DeleteFaceGroupInfo();
    EXPECT_EQ("face groups present only in the first mesh", CompareMeshes(a, b));
    MStlCompareOptions noGroups;
    noGroups.faceGroups = false;
    EXPECT_EQ("", CompareMeshes(a, b, noGroups));

    MStlBase c;
    BuildPair(c);
    c.CreateTriangle(c.GetPointList().GetFirstPoint(), c.GetPointList().GetLastPoint(),
                     c.GetPointList().GetPointWithIndex(1));
    EXPECT_EQ("triangle count 2 != 3", CompareMeshes(a, c));
    // Same positions, different corner order.
    MStlBase d;
    d.SetName(L"pair");
    MStlSurface* second = d.AddSurface();
    second->SetName(L"second");
    std::vector<MStlSurface*> surfaces{d.GetMainSurface(), second};
    std::vector<MStlTriangle*> tris;
    ASSERT_TRUE(d.Create({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}}, {{{0, 2, 1}}, {{1, 3, 2}}}, &surfaces,
                         nullptr, &tris));
    tris[0]->SetColor(MStlColor(0x0000FF));
    EXPECT_EQ("triangle 0: vertex indices (0, 1, 2) != (0, 2, 1)", CompareMeshes(a, d, noGroups));
}

TEST(CompareMeshes, ReportsTheFirstDifferenceOfEachAttachment)
{
    // Both meshes get the same attachments; each row then changes one thing in the second.
    const auto attach = [](MStlBase& stl)
    {
        auto bitmap = KelSDK::Common::ImageBitmap::Create(1, 1);
        for (int i = 0; i < 2; ++i)
            stl.GetTextures().AddTexture()->SetSharedBitmap(bitmap);
        MStlGraphEdge* edge =
            stl.CreateGraphEdge(stl.GetPointList().GetFirstPoint(), stl.GetPointList().GetLastPoint());
        MStlBaseElementInfoStlDependency::GetDependency(&stl, true)->SetEdgeTolerance(edge, 3);
        SurfaceZonesStlDependency::CreateInstance(&stl)->InitNoSupportZone()->AddTriangle(
            MStlHybridEntity::FromIndex(1));
        KelSDK::UVMap* map = KelSDK::UVMapList::Get(&stl, true)->AddMap();
        map->AddTexture(stl.GetTextures().GetTexture(1));
        map->SetSharedBitmap(bitmap, false);
        MStlRevisionSystem::GetIDCard(&stl)->SetGlobalID(MStlRevisionSystem::MGlobalGuid());
    };
    const struct
    {
        const char* expected;
        std::function<void(MStlBase&)> change;
    } rows[] = {
        {"texture 0: name differs", [](MStlBase& b) { b.GetTextures().GetTexture(0)->SetName(L"x"); }},
        {"texture 1: shares its bitmap with another texture in only one mesh", [](MStlBase& b)
         { b.GetTextures().GetTexture(1)->SetSharedBitmap(KelSDK::Common::ImageBitmap::Create(1, 1)); }},
        {"element information present only in the first mesh",
         [](MStlBase& b) { MStlBaseElementInfoStlDependency::DestroyInstance(&b); }},
        {"edge tolerance of element 0 differs", [](MStlBase& b)
         { MStlBaseElementInfoStlDependency::GetDependency(&b, false)->SetEdgeTolerance(size_t(0), 4); }},
        {"no-support zone: triangles differ",
         [](MStlBase& b)
         {
             SurfaceZonesStlDependency::GetInstance(&b)->GetNoSupportZone(false)->AddTriangle(
                 MStlHybridEntity::FromIndex(0));
         }},
        {"UV map 0: shares its bitmap with a texture in only one mesh",
         [](MStlBase& b) { KelSDK::UVMapList::Get(&b, false)->GetMap(0)->SetSharedBitmap(nullptr, false); }},
        {"identity card: revision differs",
         [](MStlBase& b) { MStlRevisionSystem::GetIDCard(&b)->SetRevision({}, true, false); }},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.expected);
        MStlBase a, b;
        BuildPair(a);
        BuildPair(b);
        attach(a);
        attach(b);
        MStlRevisionSystem::GetIDCard(&b)->SetRevision(MStlRevisionSystem::GetIDCard(&a)->GetRevision(), true,
                                                       false);
        MStlRevisionSystem::GetIDCard(&a)->SetRevision(MStlRevisionSystem::GetIDCard(&a)->GetRevision(), true,
                                                       false);
        ASSERT_EQ("", CompareMeshes(a, b));
        row.change(b);
        EXPECT_EQ(row.expected, CompareMeshes(a, b));
        MStlCompareOptions noAttachments;
        noAttachments.attachments = false;
        EXPECT_EQ("", CompareMeshes(a, b, noAttachments));
    }
    // Numbers read from files may be NaN: the same bits compare equal.
    MStlBase a, b;
    for (MStlBase* stl : {&a, &b})
        stl->GetTextures().AddTexture()->Displacement().depth = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ("", CompareMeshes(a, b));
}

TEST(MStlHybridEntity, IdentityByPointerOrIndex)
{
    MStlBase stl;
    BuildPair(stl);
    const MStlTriangle* t = stl.GetTriangleWithIndex(0);
    EXPECT_EQ(MStlHybridEntity::FromTriangle(t), MStlHybridEntity::FromTriangle(t));
    EXPECT_NE(MStlHybridEntity::FromTriangle(t), MStlHybridEntity::FromTriangle(stl.GetTriangleWithIndex(1)));
    EXPECT_EQ(MStlHybridEntity::FromIndex(3), MStlHybridEntity::FromIndex(3));
    EXPECT_NE(MStlHybridEntity::FromIndex(3), MStlHybridEntity::FromIndex(4));
    EXPECT_NE(MStlHybridEntity::FromIndex(0), MStlHybridEntity::FromTriangle(nullptr));
    const MVertex v(1, -2, 3);
    EXPECT_EQ(-2, v.GetY());
    EXPECT_EQ((std::array<int, 3>{1, -2, 3}), v.Get());
}
