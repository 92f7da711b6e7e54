// Save and load back: every storage kind with every section, compared element by element.
#include "NativeTestSupport.h"

#include <KelSDK/Triangles/Data/MStlCompare.h>

using namespace NativeTest;

namespace
{
// Compares geometry, colours, surfaces, face groups and user-defined marks.
void ExpectSameMesh(const MStlBase& a, const MStlBase& b)
{
    MStlCompareOptions options;
    options.storageKind = true;
    options.attributes = false; // the mesh name and colour are not part of the format
    EXPECT_EQ("", CompareMeshes(a, b, options));
}
} // namespace

// Every section is checked twice: the loaded mesh saves to the same bytes, and the parts that
// a symmetric writer/reader fault would hide are compared by value.
TEST(NativeRoundTrip, EveryKindWithEverySectionAndIntoAMeshOfAnotherKind)
{
    for (MStlHybridState kind : {eStlStandard, eStlCompact, eStlOnDisk})
    {
        SCOPED_TRACE(testing::Message() << "kind " << kind);
        MStlBase mesh, loaded;
        if (kind == eStlStandard)
            BuildStandard(mesh);
        else
            BuildHybrid(mesh, kind);
        MStlFileIO::MErrorCode code = eStlFileIONoStl;
        const Bytes bytes = SaveToBytes(mesh, kAllOn, &code);
        ASSERT_EQ(eStlFileIOSuccess, code);
        ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
        EXPECT_EQ(bytes, SaveToBytes(loaded, kAllOn));
        EXPECT_EQ(kind, loaded.GetStlHybrid().GetState());
        EXPECT_EQ(kind == eStlStandard, loaded.GetStlHybrid().GetVerticesShared());
        ExpectSameMesh(mesh, loaded);

        const MStlMaterial& m = loaded.GetMaterial();
        EXPECT_EQ((std::array<uint32_t, 3>{0x80112233u, 5, 6}),
                  (std::array<uint32_t, 3>{m.GetRGB(), m.GetSpecular(), m.GetAmbient()}));
        EXPECT_EQ(0.75f, m.GetShininess());
        EXPECT_TRUE(m.GetColorIsReadFromFile());
        EXPECT_TRUE(loaded.GetProperties().GetIsSupport());
        EXPECT_FALSE(loaded.GetProperties().GetIsSupposedSolid());
        ASSERT_EQ(2u, loaded.GetCurves().GetNumCurveSets());
        const MStlCurveSet& set = *loaded.GetCurves().GetCurveSet(0);
        EXPECT_EQ(L"outline \u00e9", set.GetName());
        ASSERT_EQ(2u, set.GetNumCurves());
        EXPECT_EQ(mesh.GetCurves().GetCurveSet(0)->Curves()[0].vertices, set.Curves()[0].vertices);
        EXPECT_TRUE(set.Curves()[0].closed);
        EXPECT_EQ(mesh.GetRegisteredPoints().Points(), loaded.GetRegisteredPoints().Points());
        EXPECT_EQ(mesh.GetHistory(), loaded.GetHistory());
        const MStlPointColorMask* mask = loaded.GetColorMasks().GetMainPointColorMask();
        ASSERT_NE(nullptr, mask);
        EXPECT_EQ(MStlColor(0x0000FFu), mask->GetDefault());
        EXPECT_EQ(mesh.GetColorMasks().GetMainPointColorMask()->Values(), mask->Values());
        EXPECT_FALSE(loaded.GetSurfaceList().GetSurface(1)->IsVisible());
        if (kind == eStlStandard)
        {
            // Marks, visibilities, graph edges and borders refer to the loaded triangles and points.
            const MStlPointList& pl = loaded.GetPointList();
            std::vector<int> marks;
            for (size_t t = 0; t < 4; ++t)
                marks.push_back(loaded.GetTriangleWithIndex(t)->GetMark() * 2 +
                                loaded.GetTriangleWithIndex(t)->IsVisible());
            EXPECT_EQ((std::vector<int>{1, 7, 0, 511}), marks);
            ASSERT_EQ(2u, loaded.NumberOfGraphEdges());
            EXPECT_EQ(pl.GetPointWithIndex(4), loaded.GetGraphEdgeWithIndex(0)->GetPoint(1));
            EXPECT_EQ(pl.GetPointWithIndex(3), loaded.GetGraphEdgeWithIndex(1)->GetPoint(1));
            const MStlSurfaceBorderList& borders = loaded.GetSurfaceBorders();
            ASSERT_EQ(2u, borders.GetNumBorders());
            EXPECT_EQ(loaded.GetSurfaceList().GetSurface(1), borders.GetBorder(0)->GetSurface());
            ASSERT_EQ(2u, borders.GetBorder(0)->Contours().size());
            const MStlBorderContour& contour = borders.GetBorder(0)->Contours()[0];
            ASSERT_EQ(2u, contour.subContours.size());
            EXPECT_EQ(loaded.GetMainSurface(), contour.subContours[0].neighbour);
            EXPECT_EQ((std::vector<const MStlPoint*>{pl.GetPointWithIndex(3), pl.GetPointWithIndex(4),
                                                     pl.GetPointWithIndex(1)}),
                      (std::vector<const MStlPoint*>(contour.subContours[1].points.begin(),
                                                     contour.subContours[1].points.end())));
            EXPECT_EQ(pl.GetPointWithIndex(3),
                      pl.FindPoint(10, 10, 5)); // the point index finds loaded points
        }
        MStlBase target; // a mesh of another kind takes the kind of the file
        if (kind == eStlStandard)
            BuildHybrid(target, eStlCompact);
        else
            BuildStandard(target);
        ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(SaveToBytes(mesh), target));
        ExpectSameMesh(mesh, target);
    }
}

TEST(NativeRoundTrip, LargerMeshAcrossIndexWidthsAndAFileWithoutGeometry)
{
    // 300 x 300 grid: 90000 vertices (three-byte indices) and 178802 triangles.
    const size_t n = 300;
    std::vector<std::array<int, 3>> points;
    std::vector<std::array<size_t, 3>> triangles;
    for (size_t x = 0; x < n; ++x)
        for (size_t y = 0; y < n; ++y)
        {
            points.push_back({int(x) * 1000, int(y) * 1000, int(x * y) % 70000});
            const size_t a = x * n + y;
            if (x + 1 < n && y + 1 < n)
                triangles.insert(triangles.end(), {{a, a + n, a + 1}, {a + 1, a + n, a + n + 1}});
        }
    MStlBase mesh, loaded, target;
    ASSERT_TRUE(mesh.Create(points, {triangles}, nullptr, nullptr, nullptr));
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(SaveToBytes(mesh), loaded));
    ExpectSameMesh(mesh, loaded);

    // Saved without the point and triangle lists, the properties still carry the counts, which
    // exceed what the small file could hold; the load does not need them.
    mesh.GetRegisteredPoints().AddPoint(MStlRegisteredPoint{4, 5, 6, 1, L"p"});
    const Bytes bytes = SaveToBytes(mesh, kRegistered);
    ASSERT_LT(bytes.size(), 600u);
    ASSERT_TRUE(target.CreatePoints({{1, 1, 1}}, nullptr));
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, target));
    EXPECT_EQ(1u, target.GetPointList().GetNumPoints());
    EXPECT_EQ(mesh.GetRegisteredPoints().Points(), target.GetRegisteredPoints().Points());
}

// A name read from a file may hold a NUL, which the zero-terminated write cannot: it ends at its
// first NUL, so that load, save and load again give the same mesh (a finding of the fuzz target:
// the second surface named with the single UTF-16 unit 0).
TEST(NativeRoundTrip, ANameThatHoldsANulLoadsAsItSavesBack)
{
    using Set = void (*)(MStlBase&, const std::wstring&);
    using Get = std::wstring (*)(const MStlBase&);
    const std::tuple<const char*, Set, Get> rows[] = {
        {"second surface",
         [](MStlBase& m, const std::wstring& n) { m.GetSurfaceList().GetSurface(1)->SetName(n); },
         [](const MStlBase& m) { return m.GetSurfaceList().GetSurface(1)->GetName(); }},
        {"curve set", [](MStlBase& m, const std::wstring& n) { m.GetCurves().GetCurveSet(1)->SetName(n); },
         [](const MStlBase& m) { return m.GetCurves().GetCurveSet(1)->GetName(); }},
        {"registered point",
         [](MStlBase& m, const std::wstring& n) {
             m.GetRegisteredPoints().AddPoint(MStlRegisteredPoint{4, 5, 6, 9, n});
         },
         [](const MStlBase& m) { return m.GetRegisteredPoints().GetPoint(2).name; }},
        {"history entry",
         [](MStlBase& m, const std::wstring& n) {
             m.GetHistory().AddEntry(MHistoryEntry{n, L"", 0, L""});
         },
         [](const MStlBase& m) { return m.GetHistory().GetEntry(2).operation; }},
    };
    for (const auto& [label, set, get] : rows)
    {
        SCOPED_TRACE(label);
        MStlBase mesh, loaded, again;
        BuildStandard(mesh);
        set(mesh, L"\u2603"); // one unit, 03 26, that no other run of the file holds
        Bytes file = SaveToBytes(mesh, kAllOn);
        const size_t at = Find(file, {1, 0, 0, 0, 0x03, 0x26});
        ASSERT_NE(at, SIZE_MAX);
        file[at + 4] = 0;
        file[at + 5] = 0;
        ASSERT_EQ(LoadFromBytes(file, loaded), eStlFileIOSuccess);
        ASSERT_EQ(LoadFromBytes(SaveToBytes(loaded, kAllOn), again), eStlFileIOSuccess);
        EXPECT_EQ(get(loaded), get(again));
        EXPECT_EQ(get(loaded), L"");
        ExpectSameMesh(loaded, again);
    }
}
