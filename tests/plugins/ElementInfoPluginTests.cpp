// The "ElementInfo" section: its bytes with and without masks, what loading removes and keeps,
// and payloads cut short.
#include "PluginTestSupport.h"

using namespace PluginTest;

namespace
{
// Element information with the given defaults and no masks.
MStlBaseElementInfo& Defaults(MStlBase& mesh)
{
    MStlBaseElementInfo& info = *MStlBaseElementInfoStlDependency::GetDependency(&mesh, true);
    info.SetDefaultEdgeThickness({0x01020304, -2});
    info.SetDefaultEdgeTolerance(5);
    info.SetDefaultEdgeCap(eStlGraphEdgeCapRound);
    info.SetDefaultVertexRadius(-7);
    return info;
}
} // namespace

TEST(ElementInfoPlugin, AbsentIsOneFalseByteAndDefaultsOnlyAreTwentyFiveBytes)
{
    MStlBase mesh;
    BuildStandard(mesh);
    EXPECT_EQ(Bytes{0}, SplitPluginBlock(SaveToBytes(mesh)).Payload(L"ElementInfo"));
    Defaults(mesh);
    const Bytes expected =
        ByteBuilder().u8(1).u32(0x01020304).i32(-2).u8(0).i32(5).u8(0).i32(2).u8(0).i32(-7).u8(0).bytes;
    ASSERT_EQ(25u, expected.size());
    EXPECT_EQ(expected, SplitPluginBlock(SaveToBytes(mesh)).Payload(L"ElementInfo"));
}

TEST(ElementInfoPlugin, MasksFollowEdgeAndVertexOrderWithCapsAsSingleBytes)
{
    MStlBase mesh; // 6 points, 2 graph edges
    BuildStandard(mesh);
    MStlBaseElementInfo& info = Defaults(mesh);
    info.SetEdgeThickness(mesh.GetGraphEdgeWithIndex(1), {30, 31});
    info.SetEdgeTolerance(mesh.GetGraphEdgeWithIndex(0), 9);
    info.SetEdgeCaps(mesh.GetGraphEdgeWithIndex(1), {eStlGraphEdgeCapFlat, -1});
    info.SetVertexRadius(mesh.GetPointList().GetPointWithIndex(5), 600);
    ByteBuilder e;
    e.u8(1).u32(0x01020304).i32(-2).u8(1).u32(0x01020304).i32(-2).i32(30).i32(31); // thickness
    e.i32(5).u8(1).i32(9).i32(5);                                                  // tolerance
    e.i32(2).u8(1).u8(2).u8(2).u8(1).u8(0xFF);                                     // caps
    e.i32(-7).u8(1).i32(-7).i32(-7).i32(-7).i32(-7).i32(-7).i32(600);              // radius
    const Bytes bytes = SaveToBytes(mesh);
    EXPECT_EQ(e.bytes, SplitPluginBlock(bytes).Payload(L"ElementInfo"));

    MStlBase loaded;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
    EXPECT_EQ("", Differences(mesh, loaded));
    const MStlBaseElementInfo* back = MStlBaseElementInfoStlDependency::GetDependency(&loaded, false);
    ASSERT_NE(nullptr, back);
    EXPECT_EQ((MStlGraphEdgeCaps{1, -1}), back->GetEdgeCaps(loaded.GetGraphEdgeWithIndex(1), false));
    EXPECT_EQ(600, back->GetVertexRadius(loaded.GetPointList().GetPointWithIndex(5), false));
}

TEST(ElementInfoPlugin, LoadingReplacesWhatTheMeshHad)
{
    MStlBase source;
    BuildStandard(source);
    const Bytes absent = SaveToBytes(source);
    Defaults(source);
    const Bytes defaultsOnly = SaveToBytes(source);

    MStlBase target;
    BuildStandard(target);
    MStlBaseElementInfo& old = *MStlBaseElementInfoStlDependency::GetDependency(&target, true);
    old.SetVertexRadius(size_t(0), 1);
    old.SetEdgeCaps(size_t(0), {1, 1});
    // Loading into a mesh that already has its elements keeps them (the file's switches say so)
    // and replaces the element information: the defaults come back, masks not in the file go.
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(defaultsOnly, target));
    const MStlBaseElementInfo* info = MStlBaseElementInfoStlDependency::GetDependency(&target, false);
    ASSERT_NE(nullptr, info);
    EXPECT_FALSE(info->IsVertexRadiusMaskDefined());
    EXPECT_FALSE(info->IsEdgeCapMaskDefined());
    EXPECT_EQ(-7, info->GetDefaultVertexRadius());
    EXPECT_EQ(eStlGraphEdgeCapRound, info->GetDefaultEdgeCap());
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(absent, target));
    EXPECT_EQ(nullptr, MStlBaseElementInfoStlDependency::GetDependency(&target, false));
}

TEST(ElementInfoPlugin, APayloadCutInsideAMaskKeepsWhatWasReadAndTheFileGoesOn)
{
    MStlBase mesh;
    BuildStandard(mesh);
    AttachEverything(mesh);
    const Bytes bytes = SaveToBytes(mesh);
    const Bytes payload = SplitPluginBlock(bytes).Payload(L"ElementInfo");
    // Cut two and a half radii from the end: the radius mask keeps its first three values.
    const Bytes cut(payload.begin(), payload.end() - 10);
    MStlBase loaded;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(WithPayload(bytes, L"ElementInfo", cut), loaded));
    const MStlBaseElementInfo& info = *MStlBaseElementInfoStlDependency::GetDependency(&loaded, false);
    ASSERT_TRUE(info.IsVertexRadiusMaskDefined());
    EXPECT_EQ(1002, info.GetVertexRadius(size_t(2), false));
    EXPECT_EQ(55, info.GetVertexRadius(size_t(3), false));
    EXPECT_EQ(55, info.GetVertexRadius(size_t(5), false));
    EXPECT_EQ((MStlGraphEdgeCaps{2, -2}), info.GetEdgeCaps(size_t(1), false));
    // The sections after it are intact.
    MStlBaseElementInfoStlDependency::DestroyInstance(&mesh);
    MStlBaseElementInfoStlDependency::DestroyInstance(&loaded);
    EXPECT_EQ("", Differences(mesh, loaded));
}
