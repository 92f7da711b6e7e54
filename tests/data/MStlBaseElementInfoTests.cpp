// Element information: defaults, masks made by the first per-element value, masks following the
// mesh's points and graph edges, foreign elements, and the index form for the Compact kind.
#include <KelSDK/Triangles/Data.h>

#include <gtest/gtest.h>

using namespace KelSDK::Triangles::Data;

namespace
{
// Three points and two graph edges of the Standard kind.
struct Wire
{
    MStlBase stl;
    std::vector<MStlPoint*> p;
    MStlGraphEdge* e0 = nullptr;
    MStlGraphEdge* e1 = nullptr;
    Wire()
    {
        stl.CreatePoints({{0, 0, 0}, {5, 0, 0}, {0, 5, 0}}, &p);
        e0 = stl.CreateGraphEdge(p[0], p[1]);
        e1 = stl.CreateGraphEdge(p[1], p[2]);
    }
};
} // namespace

TEST(MStlBaseElementInfo, FirstValueMakesTheMaskAndOtherElementsKeepTheDefault)
{
    Wire w;
    MStlBaseElementInfo& info = *MStlBaseElementInfoStlDependency::GetDependency(&w.stl, true);
    info.SetDefaultEdgeThickness({3, 4});
    info.SetDefaultEdgeTolerance(7);
    info.SetDefaultEdgeCap(eStlGraphEdgeCapRound);
    info.SetDefaultVertexRadius(9);
    // Without masks every element reads the default, or zero when the default is not wanted.
    EXPECT_EQ((MStlGraphEdgeThickness{3, 4}), info.GetEdgeThickness(w.e1));
    EXPECT_EQ(7, info.GetEdgeTolerance(w.e1, true));
    EXPECT_EQ(0, info.GetEdgeTolerance(w.e1, false));
    EXPECT_EQ((MStlGraphEdgeCaps{2, 2}), info.GetEdgeCaps(w.e0, true));
    EXPECT_EQ((MStlGraphEdgeCaps{0, 0}), info.GetEdgeCaps(w.e0, false));
    EXPECT_EQ(0, info.GetVertexRadius(w.p[2], false));

    ASSERT_TRUE(info.SetEdgeThickness(w.e0, {10, 20}));
    ASSERT_TRUE(info.SetEdgeTolerance(w.e0, -1));
    ASSERT_TRUE(info.SetEdgeCaps(w.e1, {eStlGraphEdgeCapFlat, eStlGraphEdgeCapNone}));
    ASSERT_TRUE(info.SetVertexRadius(w.p[1], 50));
    EXPECT_TRUE(info.IsEdgeThicknessMaskDefined());
    EXPECT_TRUE(info.IsEdgeToleranceMaskDefined());
    EXPECT_TRUE(info.IsEdgeCapMaskDefined());
    EXPECT_TRUE(info.IsVertexRadiusMaskDefined());
    EXPECT_EQ(2u, info.GetEdgeThicknessMask()->GetSize());
    EXPECT_EQ(3u, info.GetVertexRadiusMask()->GetSize());
    EXPECT_EQ((MStlGraphEdgeThickness{10, 20}), info.GetEdgeThickness(w.e0));
    EXPECT_EQ((MStlGraphEdgeThickness{3, 4}), info.GetEdgeThickness(w.e1));
    EXPECT_EQ(-1, info.GetEdgeTolerance(w.e0, false));
    // With a mask, an element without a value set has the default as its own value.
    EXPECT_EQ(7, info.GetEdgeTolerance(w.e1, false));
    EXPECT_EQ((MStlGraphEdgeCaps{1, 0}), info.GetEdgeCaps(w.e1, false));
    EXPECT_EQ((MStlGraphEdgeCaps{2, 2}), info.GetEdgeCaps(w.e0, false));
    EXPECT_EQ(50, info.GetVertexRadius(w.p[1], false));
    EXPECT_EQ(9, info.GetVertexRadius(w.p[0], false));

    // A new default reaches elements made later, not those the mask holds.
    info.SetDefaultVertexRadius(11);
    MStlPoint* late = w.stl.CreatePoint(9, 9, 9);
    EXPECT_EQ(9, info.GetVertexRadius(w.p[0], true));
    EXPECT_EQ(11, info.GetVertexRadius(late, true));
    EXPECT_EQ(11, info.GetDefaultVertexRadius());
    info.DeleteVertexRadiusMask();
    EXPECT_FALSE(info.IsVertexRadiusMaskDefined());
    EXPECT_EQ(11, info.GetVertexRadius(w.p[1], true));
}

TEST(MStlBaseElementInfo, MasksFollowAddedElementsAndAClearedMesh)
{
    Wire w;
    MStlBaseElementInfo& info = *MStlBaseElementInfoStlDependency::GetDependency(&w.stl, true);
    info.SetDefaultEdgeTolerance(4);
    info.SetEdgeTolerance(w.e1, 8);
    info.SetEdgeThickness(w.e1, {1, 1});
    info.SetEdgeCaps(w.e1, {1, 1});
    info.SetVertexRadius(w.p[0], 6);
    MStlGraphEdge* e2 = w.stl.CreateGraphEdge(w.p[2], w.p[0]);
    std::vector<MStlPoint*> more;
    w.stl.CreatePoints({{1, 1, 1}, {2, 2, 2}}, &more);
    EXPECT_EQ(3u, info.GetEdgeToleranceMask()->GetSize());
    EXPECT_EQ(3u, info.GetEdgeThicknessMask()->GetSize());
    EXPECT_EQ(3u, info.GetEdgeCapMask()->GetSize());
    EXPECT_EQ(5u, info.GetVertexRadiusMask()->GetSize());
    EXPECT_EQ(4, info.GetEdgeTolerance(e2, false));
    EXPECT_TRUE(info.SetEdgeTolerance(e2, 12));

    w.stl.ClearStl(false);
    EXPECT_TRUE(info.IsEdgeToleranceMaskDefined());
    EXPECT_EQ(0u, info.GetEdgeToleranceMask()->GetSize());
    EXPECT_EQ(0u, info.GetVertexRadiusMask()->GetSize());
    EXPECT_EQ(4, info.GetDefaultEdgeTolerance());
    // The new elements of the emptied mesh start from the defaults.
    MStlPoint* a = w.stl.CreatePoint(0, 0, 0);
    MStlGraphEdge* e = w.stl.CreateGraphEdge(a, a);
    EXPECT_EQ(4, info.GetEdgeTolerance(e, false));
    EXPECT_EQ(0, info.GetVertexRadius(a, false));
}

TEST(MStlBaseElementInfo, ForeignAndNullElementsAreRefused)
{
    Wire w, other;
    MStlBaseElementInfo& info = *MStlBaseElementInfoStlDependency::GetDependency(&w.stl, true);
    EXPECT_FALSE(info.SetEdgeThickness(other.e1, {1, 2}));
    EXPECT_FALSE(info.SetEdgeCaps(static_cast<const MStlGraphEdge*>(nullptr), {1, 1}));
    EXPECT_FALSE(info.SetVertexRadius(other.p[0], 5));
    EXPECT_FALSE(info.SetVertexRadius(size_t(3), 5));
    EXPECT_FALSE(info.IsEdgeThicknessMaskDefined());
    EXPECT_FALSE(info.IsVertexRadiusMaskDefined());
    info.SetDefaultVertexRadius(2);
    info.SetVertexRadius(w.p[0], 7);
    EXPECT_EQ(2, info.GetVertexRadius(other.p[0], true));
    EXPECT_EQ(0, info.GetVertexRadius(other.p[0], false));
}

TEST(MStlBaseElementInfo, CompactKindByIndexIncludingElementsAddedAfterTheMask)
{
    MStlBase stl;
    stl.GetStlHybrid().SetState(eStlCompact);
    MStlCompact& store = *stl.GetStlHybrid().GetStlCompact();
    for (int i = 0; i < 3; ++i)
        stl.GetStlHybrid().AddVertex(i, 0, 0);
    store.AddEdge(0, 1);
    MStlBaseElementInfo& info = *MStlBaseElementInfoStlDependency::GetDependency(&stl, true);
    info.SetDefaultEdgeThickness({2, 2});
    ASSERT_TRUE(info.SetEdgeThickness(size_t(0), {5, 6}));
    ASSERT_TRUE(info.SetVertexRadius(size_t(2), 30));
    EXPECT_FALSE(info.SetEdgeThickness(size_t(1), {1, 1}));
    // The compact store does not report additions; the mask still answers for the new elements.
    store.AddEdge(1, 2);
    EXPECT_EQ((MStlGraphEdgeThickness{2, 2}), info.GetEdgeThickness(size_t(1)));
    EXPECT_TRUE(info.SetEdgeThickness(size_t(1), {8, 9}));
    EXPECT_EQ((MStlGraphEdgeThickness{8, 9}), info.GetEdgeThickness(size_t(1)));
    EXPECT_EQ(30, info.GetVertexRadius(size_t(2), false));
    EXPECT_EQ(size_t(-1), info.GetEdgeIndex(nullptr));
}
