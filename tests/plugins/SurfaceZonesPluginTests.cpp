// The "SurfaceZones" section: its absent forms, index order per kind, indices outside the mesh
// and counts larger than the payload.
#include "PluginTestSupport.h"

using namespace PluginTest;

namespace
{
Bytes ZonePayload(const MStlBase& mesh)
{
    return SplitPluginBlock(SaveToBytes(const_cast<MStlBase&>(mesh))).Payload(L"SurfaceZones");
}
} // namespace

TEST(SurfaceZonesPlugin, AbsentFormsAndTheEmptyZone)
{
    MStlBase mesh;
    BuildStandard(mesh);
    EXPECT_EQ(Bytes{0}, ZonePayload(mesh));
    SurfaceZones& zones = *SurfaceZonesStlDependency::CreateInstance(&mesh);
    EXPECT_EQ((Bytes{1, 0}), ZonePayload(mesh));
    zones.InitNoSupportZone();
    EXPECT_EQ((Bytes{1, 1, 0, 0, 0, 0, 0, 0, 0, 0}), ZonePayload(mesh));
}

TEST(SurfaceZonesPlugin, StandardKeepsTheZoneOrderOtherKindsWriteAscending)
{
    for (MStlHybridState kind : {eStlStandard, eStlCompact, eStlOnDisk})
    {
        SCOPED_TRACE(testing::Message() << "kind " << kind);
        MStlBase mesh;
        BuildKind(mesh, kind);
        SurfaceZone& zone = *SurfaceZonesStlDependency::CreateInstance(&mesh)->InitNoSupportZone();
        for (size_t t : {3, 0, 1})
            zone.AddTriangle(MStlHybridEntity::FromIndex(t));
        zone.AddEdge(MStlHybridEntity::FromIndex(1));
        zone.AddEdge(MStlHybridEntity::FromIndex(0));
        ByteBuilder e;
        e.u8(1).u8(1).u32(3);
        (kind == eStlStandard ? e.u32(3).u32(0).u32(1) : e.u32(0).u32(1).u32(3));
        (kind == eStlOnDisk ? e.u32(0) : e.u32(2).u32(0).u32(1)); // the on-disk kind has no graph edges
        const Bytes bytes = SaveToBytes(mesh);
        EXPECT_EQ(e.bytes, SplitPluginBlock(bytes).Payload(L"SurfaceZones"));
        MStlBase loaded;
        ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
        EXPECT_EQ("", Differences(mesh, loaded));
    }
}

TEST(SurfaceZonesPlugin, LoadingReplacesTheZonesOfTheMesh)
{
    MStlBase source, target;
    BuildStandard(source);
    BuildStandard(target);
    SurfaceZonesStlDependency::CreateInstance(&target)->InitNoSupportZone()->AddTriangle(
        MStlHybridEntity::FromIndex(0));
    SurfaceZonesStlDependency::CreateInstance(&source);
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(SaveToBytes(source), target));
    ASSERT_NE(nullptr, SurfaceZonesStlDependency::GetInstance(&target));
    EXPECT_EQ(nullptr, SurfaceZonesStlDependency::GetInstance(&target)->GetNoSupportZone(false));
    SurfaceZonesStlDependency::DestroyInstance(&source);
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(SaveToBytes(source), target));
    EXPECT_EQ(nullptr, SurfaceZonesStlDependency::GetInstance(&target));
}

TEST(SurfaceZonesPlugin, IndicesOutsideTheMeshAreSkippedAndShortListsKeepWhatTheyHold)
{
    for (MStlHybridState kind : {eStlStandard, eStlCompact})
    {
        SCOPED_TRACE(testing::Message() << "kind " << kind);
        MStlBase mesh;
        BuildKind(mesh, kind);
        const Bytes file = SaveToBytes(mesh);
        const struct
        {
            const char* what;
            Bytes payload;
            std::vector<uint32_t> triangles, edges;
        } rows[] = {
            {"indices past the last element",
             ByteBuilder()
                 .u8(1)
                 .u8(1)
                 .u32(4)
                 .u32(2)
                 .u32(4)
                 .u32(0xFFFFFFFFu)
                 .u32(1)
                 .u32(2)
                 .u32(1)
                 .u32(2)
                 .bytes,
             {2, 1},
             {1}},
            {"more triangles counted than the payload holds",
             ByteBuilder().u8(1).u8(1).u32(1000).u32(3).u32(0).bytes,
             {3, 0},
             {}},
            {"edge count missing", ByteBuilder().u8(1).u8(1).u32(1).u32(2).bytes, {2}, {}},
            {"a huge count and nothing else", ByteBuilder().u8(1).u8(1).u32(0xFFFFFFFFu).bytes, {}, {}},
        };
        for (const auto& row : rows)
        {
            SCOPED_TRACE(row.what);
            MStlBase loaded;
            ASSERT_EQ(eStlFileIOSuccess,
                      LoadFromBytes(WithPayload(file, L"SurfaceZones", row.payload), loaded));
            const SurfaceZones* zones = SurfaceZonesStlDependency::GetInstance(&loaded);
            ASSERT_NE(nullptr, zones);
            ASSERT_NE(nullptr, zones->GetNoSupportZone());
            EXPECT_EQ(row.triangles, zones->GetNoSupportZone()->TriangleIndices());
            EXPECT_EQ(row.edges, zones->GetNoSupportZone()->EdgeIndices());
            EXPECT_EQ(4u, loaded.NumberOfTriangles());
        }
    }
}
