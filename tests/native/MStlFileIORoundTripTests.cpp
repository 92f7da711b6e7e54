// Save and load back: every storage kind with every section, compared element by element.
#include "NativeTestSupport.h"

#include <KelSDK/Triangles/Data/MStlCompare.h>

using namespace NativeTest;

namespace
{
// Attachments that every kind carries: material, flags, curves, registered points, history,
// colour masks, face groups and surface names and visibilities.
void AddCommonParts(MStlBase& mesh)
{
    MStlMaterial material;
    material.SetRGB(0x80112233u);
    material.SetSpecular(5);
    material.SetAmbient(6);
    material.SetShininess(0.75f);
    mesh.SetMaterial(material);
    mesh.GetProperties().SetIsSupport(true);
    mesh.GetProperties().SetIsSupposedSolid(false);
    MStlCurveSet* set = mesh.GetCurves().AddCurveSet();
    set->SetName(L"outline \u00e9");
    set->AddCurve(MStlCurve{{{0, 0, 0}, {5, -5, 5}, {-2147483647 - 1, 2147483647, 0}}, true});
    set->AddCurve(MStlCurve{{}, false});
    mesh.GetCurves().AddCurveSet()->SetName(L"empty");
    mesh.GetRegisteredPoints().AddPoint(MStlRegisteredPoint{1, 2, 3, 77, L"fiducial"});
    mesh.GetRegisteredPoints().AddPoint(MStlRegisteredPoint{-1, -2, -3, 0, L""});
    mesh.GetHistory().AddEntry(MHistoryEntry{L"Import", L"part.stl", 1700000000, L"anna"});
    mesh.GetHistory().AddEntry(MHistoryEntry{L"Repair", L"", -5, L""});
    MStlPointColorMask* vertexColors = mesh.GetColorMasks().CreateMainPointColorMask();
    vertexColors->SetDefault(MStlColor(0x0000FFu));
    vertexColors->SetInfo(2, MStlColor(0x00FF00u));
    mesh.GetSurfaceList().GetSurface(0)->SetName(L"main");
    mesh.GetSurfaceList().GetSurface(1)->SetVisible(false);
    MStlBaseFaceGroupInfo* groups = mesh._CreateFaceGroupInfo();
    for (size_t t = 0; t < mesh.NumberOfTriangles(); ++t)
        groups->SetFaceID(t, static_cast<unsigned long>(100 + 3 * t));
}

// Standard kind: six points, four triangles alternating between two surfaces (an order that
// cannot be built surface by surface), colours, marks, visibilities, graph edges and a border.
void BuildStandard(MStlBase& mesh)
{
    MStlSurface* second = mesh.AddSurface();
    second->SetName(L"second");
    std::vector<MStlPoint*> p;
    ASSERT_TRUE(
        mesh.CreatePoints({{0, 0, 0}, {10, 0, 0}, {0, 10, 0}, {10, 10, 5}, {20, 0, 5}, {0, 0, 0}}, &p));
    p[1]->SetUserDefined(true);
    p[4]->SetUserDefined(true);
    mesh.CreateTriangle(p[0], p[1], p[2], nullptr)->SetColor(MStlColor(0xFF0000u));
    mesh.CreateTriangle(p[1], p[3], p[2], second)->SetMark(3);
    MStlTriangle* t2 = mesh.CreateTriangle(p[1], p[4], p[3], nullptr);
    t2->SetColor(MStlColor(0u));
    t2->MakeInvisible();
    mesh.CreateTriangle(p[5], p[4], p[1], second)->SetMark(255);
    mesh.CreateGraphEdge(p[0], p[4]);
    mesh.CreateGraphEdge(p[3], p[3]);
    MStlBorderContour contour;
    contour.subContours.push_back(MStlSubContour{{p[1], p[3]}, mesh.GetMainSurface()});
    contour.subContours.push_back(MStlSubContour{{p[3], p[4], p[1]}, nullptr});
    mesh.GetSurfaceBorders().AddBorder(second)->Contours() = {contour, MStlBorderContour{}};
    mesh.GetSurfaceBorders().AddBorder(nullptr);
    AddCommonParts(mesh);
}

// Compact or OnDisk kind through the uniform store interface, with one duplicate position
// (vertex sharing off) and graph edges where the kind has them.
void BuildHybrid(MStlBase& mesh, MStlHybridState kind)
{
    MStlHybrid& h = mesh.GetStlHybrid();
    ASSERT_TRUE(h.SetState(kind));
    h.SetVerticesShared(false);
    MStlSurface* second = mesh.AddSurface();
    second->SetName(L"second");
    ASSERT_TRUE(h.StartAddingVertices());
    for (const auto& v :
         {std::array<int, 3>{0, 0, 0}, {100000, 0, 0}, {0, 10, -7}, {10, 10, 5}, {20, 0, 5}, {0, 0, 0}})
        h.AddVertex(v[0], v[1], v[2]);
    const std::pair<MStlSurface*, std::array<unsigned, 3>> triangles[] = {
        {nullptr, {0, 1, 2}}, {nullptr, {1, 4, 3}}, {second, {1, 3, 2}}, {nullptr, {5, 4, 1}}};
    for (const auto& t : triangles)
    {
        ASSERT_TRUE(h.StartAddingTriangles(t.first));
        h.AddTriangle(t.second[0], t.second[1], t.second[2]);
    }
    ASSERT_TRUE(h.StartAddingTriangleColors());
    for (const MStlColor& c : {MStlColor(0xFF0000u), MStlColor(), MStlColor(0u), MStlColor(0x00ABCDEFu)})
        h.AddColor(c);
    ASSERT_TRUE(h.Close());
    h.UpdateParentBoundingBox();
    if (kind == eStlCompact)
    {
        h.GetStlCompact()->AddEdge(0, 4);
        h.GetStlCompact()->AddEdge(5, 5);
    }
    AddCommonParts(mesh);
}

// Compares geometry, colours, surfaces, face groups, user-defined marks and the attachments.
void ExpectSameMesh(const MStlBase& a, const MStlBase& b, bool attachments = true)
{
    MStlCompareOptions options;
    options.storageKind = true;
    options.attributes = false; // the mesh name and colour are not part of the format
    EXPECT_EQ("", CompareMeshes(a, b, options));
    if (!attachments)
        return;
    const MStlMaterial &x = a.GetMaterial(), &y = b.GetMaterial();
    EXPECT_EQ((std::array<uint32_t, 3>{x.GetRGB(), x.GetSpecular(), x.GetAmbient()}),
              (std::array<uint32_t, 3>{y.GetRGB(), y.GetSpecular(), y.GetAmbient()}));
    EXPECT_EQ(x.GetShininess(), y.GetShininess());
    EXPECT_TRUE(y.GetColorIsReadFromFile());
    EXPECT_EQ(a.GetProperties().GetIsSupport(), b.GetProperties().GetIsSupport());
    EXPECT_EQ(a.GetProperties().GetIsSupposedSolid(), b.GetProperties().GetIsSupposedSolid());
    ASSERT_EQ(a.GetCurves().GetNumCurveSets(), b.GetCurves().GetNumCurveSets());
    for (size_t s = 0; s < a.GetCurves().GetNumCurveSets(); ++s)
    {
        const MStlCurveSet &p = *a.GetCurves().GetCurveSet(s), &q = *b.GetCurves().GetCurveSet(s);
        EXPECT_EQ(p.GetName(), q.GetName());
        ASSERT_EQ(p.GetNumCurves(), q.GetNumCurves());
        for (size_t c = 0; c < p.GetNumCurves(); ++c)
        {
            EXPECT_EQ(p.Curves()[c].vertices, q.Curves()[c].vertices);
            EXPECT_EQ(p.Curves()[c].closed, q.Curves()[c].closed);
        }
    }
    EXPECT_EQ(a.GetRegisteredPoints().Points(), b.GetRegisteredPoints().Points());
    EXPECT_EQ(a.GetHistory(), b.GetHistory());
    const MStlPointColorMask *ma = a.GetColorMasks().GetMainPointColorMask(),
                             *mb = b.GetColorMasks().GetMainPointColorMask();
    ASSERT_NE(nullptr, mb);
    EXPECT_EQ(ma->GetDefault(), mb->GetDefault());
    EXPECT_EQ(ma->Values(), mb->Values());
    for (size_t s = 0; s < a.GetSurfaceList().GetNumSurfaces(false); ++s)
        EXPECT_EQ(a.GetSurfaceList().GetSurface(s)->IsVisible(),
                  b.GetSurfaceList().GetSurface(s)->IsVisible());
}

// Parts that only the Standard kind has: marks, visibilities, graph edges and borders.
void ExpectStandardParts(const MStlBase& mesh, const MStlBase& loaded)
{
    for (size_t t = 0; t < 4; ++t)
    {
        const MStlTriangle *x = mesh.GetTriangleWithIndex(t), *y = loaded.GetTriangleWithIndex(t);
        EXPECT_EQ(x->GetMark(), y->GetMark()) << t;
        EXPECT_EQ(x->IsVisible(), y->IsVisible()) << t;
    }
    EXPECT_EQ(0u, loaded.GetMarkInterface().GetValidity());
    EXPECT_FALSE(loaded.GetValidity().AreTriangleVisibilitiesValid());
    const MStlPointList& pl = loaded.GetPointList();
    ASSERT_EQ(2u, loaded.NumberOfGraphEdges());
    EXPECT_EQ(0u, pl.GetIndexOfPoint(loaded.GetGraphEdgeWithIndex(0)->GetPoint(0)));
    EXPECT_EQ(4u, pl.GetIndexOfPoint(loaded.GetGraphEdgeWithIndex(0)->GetPoint(1)));
    EXPECT_EQ(3u, pl.GetIndexOfPoint(loaded.GetGraphEdgeWithIndex(1)->GetPoint(1)));
    const MStlSurfaceBorderList& borders = loaded.GetSurfaceBorders();
    ASSERT_EQ(2u, borders.GetNumBorders());
    EXPECT_EQ(loaded.GetSurfaceList().GetSurface(1), borders.GetBorder(0)->GetSurface());
    EXPECT_EQ(nullptr, borders.GetBorder(1)->GetSurface());
    ASSERT_EQ(2u, borders.GetBorder(0)->Contours().size());
    EXPECT_TRUE(borders.GetBorder(0)->Contours()[1].subContours.empty());
    const MStlBorderContour& contour = borders.GetBorder(0)->Contours()[0];
    ASSERT_EQ(2u, contour.subContours.size());
    EXPECT_EQ(loaded.GetMainSurface(), contour.subContours[0].neighbour);
    EXPECT_EQ(nullptr, contour.subContours[1].neighbour);
    ASSERT_EQ(3u, contour.subContours[1].points.size());
    EXPECT_EQ(3u, pl.GetIndexOfPoint(contour.subContours[1].points[0]));
    EXPECT_EQ(pl.GetPointWithIndex(4), contour.subContours[1].points[1]);
    EXPECT_EQ(pl.GetPointWithIndex(3), pl.FindPoint(10, 10, 5)); // the point index finds loaded points
}
} // namespace

TEST(NativeRoundTrip, EveryKindWithEverySectionAndIntoAMeshOfAnotherKind)
{
    for (MStlHybridState kind : {eStlStandard, eStlCompact, eStlOnDisk})
    {
        SCOPED_TRACE(testing::Message() << "kind " << kind);
        MStlBase mesh;
        if (kind == eStlStandard)
            BuildStandard(mesh);
        else
            BuildHybrid(mesh, kind);
        MStlFileIO::MErrorCode code = eStlFileIONoStl;
        const Bytes bytes = SaveToBytes(mesh, kAllOn, &code);
        ASSERT_EQ(eStlFileIOSuccess, code);
        MStlBase loaded;
        ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
        EXPECT_EQ(kind, loaded.GetStlHybrid().GetState());
        ExpectSameMesh(mesh, loaded);
        if (kind == eStlStandard)
            ExpectStandardParts(mesh, loaded);
        else
        {
            EXPECT_FALSE(loaded.GetStlHybrid().GetVerticesShared());
            EXPECT_EQ(bytes, SaveToBytes(loaded, kAllOn)); // the loaded mesh saves to the same bytes
        }
        if (kind == eStlCompact)
        {
            const MStlCompact& c = *loaded.GetStlHybrid().GetStlCompact();
            ASSERT_EQ(2u, c.GetNumberOfEdges());
            unsigned i0 = 0, i1 = 0;
            c.GetEdge(0, i0, i1);
            EXPECT_EQ(0u, i0);
            EXPECT_EQ(4u, i1);
        }
        MStlBase target; // a mesh of another kind takes the kind of the file
        if (kind == eStlStandard)
            BuildHybrid(target, eStlCompact);
        else
            BuildStandard(target);
        ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(SaveToBytes(mesh), target));
        EXPECT_EQ(kind, target.GetStlHybrid().GetState());
        ExpectSameMesh(mesh, target, false);
    }
}

TEST(NativeRoundTrip, LargerMeshAcrossIndexWidths)
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
    MStlBase mesh;
    ASSERT_TRUE(mesh.Create(points, {triangles}, nullptr, nullptr, nullptr));
    MStlBase loaded;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(SaveToBytes(mesh), loaded));
    ExpectSameMesh(mesh, loaded, false);
}

TEST(NativeRoundTrip, FileWithoutGeometryKeepsTheTargetsGeometry)
{
    // 200 points saved without the point and triangle lists: the properties still carry the
    // counts, which exceed what the small file could hold; the load does not need them.
    std::vector<std::array<int, 3>> points;
    for (int i = 0; i < 200; ++i)
        points.push_back({i, 2 * i, 3 * i});
    MStlBase mesh;
    ASSERT_TRUE(mesh.CreatePoints(points, nullptr));
    mesh.GetRegisteredPoints().AddPoint(MStlRegisteredPoint{4, 5, 6, 1, L"p"});
    const Bytes bytes = SaveToBytes(mesh, kRegistered);
    ASSERT_LT(bytes.size(), 600u);
    MStlBase target;
    ASSERT_TRUE(target.CreatePoints({{1, 1, 1}}, nullptr));
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, target));
    EXPECT_EQ(1u, target.GetPointList().GetNumPoints());
    EXPECT_EQ(mesh.GetRegisteredPoints().Points(), target.GetRegisteredPoints().Points());
}
