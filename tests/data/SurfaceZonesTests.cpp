// Surface zones: membership by element or index for every kind, refused members, order of adding
// against ascending order, and zones emptied with the mesh.
#include <KelSDK/Triangles/Data.h>

#include <gtest/gtest.h>

using namespace KelSDK::Triangles::Data;

namespace
{
// Four triangles over five points and two graph edges, in the given kind.
void Fill(MStlBase& stl, MStlHybridState kind)
{
    stl.GetStlHybrid().SetState(kind);
    MStlHybrid& h = stl.GetStlHybrid();
    h.StartAddingVertices();
    for (int i = 0; i < 5; ++i)
        h.AddVertex(i, i * i, 0);
    h.StartAddingTriangles(nullptr);
    for (unsigned i = 0; i < 4; ++i)
        h.AddTriangle(i, i + 1, (i + 2) % 5);
    h.Close();
    if (kind == eStlStandard)
    {
        stl.CreateGraphEdge(stl.GetPointList().GetPointWithIndex(0), stl.GetPointList().GetPointWithIndex(1));
        stl.CreateGraphEdge(stl.GetPointList().GetPointWithIndex(2), stl.GetPointList().GetPointWithIndex(3));
    }
    else if (kind == eStlCompact)
    {
        h.GetStlCompact()->AddEdge(0, 1);
        h.GetStlCompact()->AddEdge(2, 3);
    }
}
} // namespace

TEST(SurfaceZones, StandardMembersByObjectAndIndexWithOrderKept)
{
    MStlBase stl, other;
    Fill(stl, eStlStandard);
    Fill(other, eStlStandard);
    SurfaceZone& zone = *SurfaceZonesStlDependency::CreateInstance(&stl)->InitNoSupportZone();
    EXPECT_TRUE(zone.AddTriangle(MStlHybridEntity::FromTriangle(stl.GetTriangleWithIndex(3))));
    EXPECT_TRUE(zone.AddTriangle(MStlHybridEntity::FromIndex(1))); // a hybrid index is taken too
    EXPECT_TRUE(zone.AddTriangle(MStlHybridEntity::FromTriangle(stl.GetTriangleWithIndex(1))));
    EXPECT_FALSE(zone.AddTriangle(MStlHybridEntity::FromTriangle(other.GetTriangleWithIndex(0))));
    EXPECT_FALSE(zone.AddTriangle(MStlHybridEntity::FromIndex(4)));
    EXPECT_FALSE(zone.AddTriangle(MStlHybridEntity::FromTriangle(nullptr)));
    EXPECT_TRUE(zone.AddEdge(MStlHybridEntity::FromEdge(stl.GetGraphEdgeWithIndex(1))));
    EXPECT_FALSE(zone.AddEdge(MStlHybridEntity::FromEdge(other.GetGraphEdgeWithIndex(0))));
    EXPECT_EQ((std::vector<uint32_t>{3, 1}), zone.TriangleIndices());
    EXPECT_EQ((std::vector<uint32_t>{1, 3}), zone.SortedTriangleIndices(4));
    EXPECT_EQ((std::vector<uint32_t>{1}), zone.SortedTriangleIndices(3));
    EXPECT_TRUE(zone.HasTriangle(MStlHybridEntity::FromTriangle(stl.GetTriangleWithIndex(3))));
    EXPECT_FALSE(zone.HasTriangle(MStlHybridEntity::FromTriangle(other.GetTriangleWithIndex(3))));
    EXPECT_TRUE(zone.HasEdge(MStlHybridEntity::FromIndex(1)));
    EXPECT_FALSE(zone.HasEdge(MStlHybridEntity::FromIndex(0)));
    EXPECT_TRUE(zone.RemoveTriangle(MStlHybridEntity::FromIndex(3)));
    EXPECT_FALSE(zone.RemoveTriangle(MStlHybridEntity::FromIndex(3)));
    EXPECT_EQ((std::vector<uint32_t>{1}), zone.TriangleIndices());
    EXPECT_FALSE(zone.HasTriangleIndex(3));
}

TEST(SurfaceZones, CompactAndOnDiskMembersByIndexWithinTheStore)
{
    for (MStlHybridState kind : {eStlCompact, eStlOnDisk})
    {
        SCOPED_TRACE(kind);
        MStlBase stl;
        Fill(stl, kind);
        SurfaceZone& zone = *SurfaceZonesStlDependency::CreateInstance(&stl)->GetNoSupportZone(true);
        EXPECT_TRUE(zone.AddTriangle(MStlHybridEntity::FromIndex(2)));
        EXPECT_TRUE(zone.AddTriangle(MStlHybridEntity::FromIndex(0)));
        EXPECT_FALSE(zone.AddTriangle(MStlHybridEntity::FromIndex(4)));
        EXPECT_EQ(2u, zone.GetNumberOfTriangles());
        EXPECT_EQ((std::vector<uint32_t>{0, 2}), zone.SortedTriangleIndices(4));
        // The on-disk store holds no graph edges.
        EXPECT_EQ(kind == eStlCompact, zone.AddEdge(MStlHybridEntity::FromIndex(1)));
        EXPECT_EQ(kind == eStlCompact, zone.HasEdge(MStlHybridEntity::FromIndex(1)));
    }
}

TEST(SurfaceZones, MembersGoWithTheMeshElementsButTheZoneStays)
{
    MStlBase stl;
    Fill(stl, eStlStandard);
    SurfaceZones& zones = *SurfaceZonesStlDependency::CreateInstance(&stl);
    SurfaceZone& zone = *zones.InitNoSupportZone();
    zone.AddTriangle(MStlHybridEntity::FromIndex(2));
    zone.AddEdge(MStlHybridEntity::FromIndex(0));
    stl.GetStlHybrid().SetState(eStlCompact); // empties the mesh
    ASSERT_EQ(&zone, zones.GetNoSupportZone(false));
    EXPECT_EQ(0u, zone.GetNumberOfTriangles());
    EXPECT_EQ(0u, zone.GetNumberOfEdges());
    EXPECT_FALSE(zone.HasTriangleIndex(2));
    // InitNoSupportZone empties a zone that has members.
    Fill(stl, eStlCompact);
    zones.GetNoSupportZone(false)->AddTriangle(MStlHybridEntity::FromIndex(1));
    EXPECT_EQ(0u, zones.InitNoSupportZone()->GetNumberOfTriangles());
}

TEST(MStlBaseIndexed, IndicesAndEntitiesForEveryKind)
{
    MStlBase standard, compact, other;
    Fill(standard, eStlStandard);
    Fill(compact, eStlCompact);
    Fill(other, eStlStandard);
    const MStlBaseSetTriangleIndices indices(standard);
    EXPECT_EQ(2u, indices.GetIndexOfTriangle(standard.GetTriangleWithIndex(2)));
    EXPECT_EQ(MStlInvalidIndex, indices.GetIndexOfTriangle(other.GetTriangleWithIndex(2)));
    EXPECT_EQ(1u, indices.GetIndexOfEdge(standard.GetGraphEdgeWithIndex(1)));
    EXPECT_EQ(MStlInvalidIndex, indices.GetIndexOfEdge(other.GetGraphEdgeWithIndex(1)));
    const MStlBaseTriangleIndexedAccess triangles(standard);
    EXPECT_EQ(MStlHybridEntity::FromTriangle(standard.GetTriangleWithIndex(3)),
              triangles.GetTriangleWithIndex(3));
    EXPECT_EQ(nullptr, triangles.GetTriangleWithIndex(4).element);
    const MStlBaseEdgeIndexedAccess edges(compact);
    EXPECT_EQ(MStlHybridEntity::FromIndex(1), edges.GetEdgeWithIndex(1));
    EXPECT_EQ(MStlInvalidIndex, edges.GetEdgeWithIndex(2).index);
}
