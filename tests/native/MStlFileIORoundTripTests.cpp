// Save and load back: every storage kind, with and without the optional sections, compared
// element by element.
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
    MStlTriangle* t0 = mesh.CreateTriangle(p[0], p[1], p[2], nullptr);
    MStlTriangle* t1 = mesh.CreateTriangle(p[1], p[3], p[2], second);
    MStlTriangle* t2 = mesh.CreateTriangle(p[1], p[4], p[3], nullptr);
    MStlTriangle* t3 = mesh.CreateTriangle(p[5], p[4], p[1], second);
    t0->SetColor(MStlColor(0xFF0000u));
    t2->SetColor(MStlColor(0u));
    t1->SetMark(3);
    t3->SetMark(255);
    t2->MakeInvisible();
    mesh.CreateGraphEdge(p[0], p[4]);
    mesh.CreateGraphEdge(p[3], p[3]);
    MStlSurfaceBorder* border = mesh.GetSurfaceBorders().AddBorder(second);
    MStlBorderContour contour;
    contour.subContours.push_back(MStlSubContour{{p[1], p[3]}, mesh.GetMainSurface()});
    contour.subContours.push_back(MStlSubContour{{p[3], p[4], p[1]}, nullptr});
    border->Contours().push_back(contour);
    border->Contours().push_back(MStlBorderContour{});
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
    const int v[6][3] = {{0, 0, 0}, {100000, 0, 0}, {0, 10, -7}, {10, 10, 5}, {20, 0, 5}, {0, 0, 0}};
    for (const auto& xyz : v)
        h.AddVertex(xyz[0], xyz[1], xyz[2]);
    ASSERT_TRUE(h.StartAddingTriangles(nullptr));
    h.AddTriangle(0, 1, 2);
    h.AddTriangle(1, 4, 3);
    ASSERT_TRUE(h.StartAddingTriangles(second));
    h.AddTriangle(1, 3, 2);
    ASSERT_TRUE(h.StartAddingTriangles(nullptr));
    h.AddTriangle(5, 4, 1);
    ASSERT_TRUE(h.StartAddingTriangleColors());
    h.AddColor(MStlColor(0xFF0000u));
    h.AddColor(MStlColor());
    h.AddColor(MStlColor(0u));
    h.AddColor(MStlColor(0x00ABCDEFu));
    ASSERT_TRUE(h.Close());
    h.UpdateParentBoundingBox();
    if (kind == eStlCompact)
    {
        h.GetStlCompact()->AddEdge(0, 4);
        h.GetStlCompact()->AddEdge(5, 5);
    }
    AddCommonParts(mesh);
}

void ExpectCommonParts(const MStlBase& a, const MStlBase& b)
{
    EXPECT_EQ(a.GetMaterial().GetRGB(), b.GetMaterial().GetRGB());
    EXPECT_EQ(a.GetMaterial().GetSpecular(), b.GetMaterial().GetSpecular());
    EXPECT_EQ(a.GetMaterial().GetAmbient(), b.GetMaterial().GetAmbient());
    EXPECT_EQ(a.GetMaterial().GetShininess(), b.GetMaterial().GetShininess());
    EXPECT_EQ(a.GetProperties().GetIsSupport(), b.GetProperties().GetIsSupport());
    EXPECT_EQ(a.GetProperties().GetIsSupposedSolid(), b.GetProperties().GetIsSupposedSolid());
    ASSERT_EQ(a.GetCurves().GetNumCurveSets(), b.GetCurves().GetNumCurveSets());
    for (size_t s = 0; s < a.GetCurves().GetNumCurveSets(); ++s)
    {
        const MStlCurveSet& x = *a.GetCurves().GetCurveSet(s);
        const MStlCurveSet& y = *b.GetCurves().GetCurveSet(s);
        EXPECT_EQ(x.GetName(), y.GetName());
        ASSERT_EQ(x.GetNumCurves(), y.GetNumCurves());
        for (size_t c = 0; c < x.GetNumCurves(); ++c)
        {
            EXPECT_EQ(x.Curves()[c].vertices, y.Curves()[c].vertices);
            EXPECT_EQ(x.Curves()[c].closed, y.Curves()[c].closed);
        }
    }
    EXPECT_EQ(a.GetRegisteredPoints().Points(), b.GetRegisteredPoints().Points());
    EXPECT_EQ(a.GetHistory(), b.GetHistory());
    const MStlPointColorMask* ma = a.GetColorMasks().GetMainPointColorMask();
    const MStlPointColorMask* mb = b.GetColorMasks().GetMainPointColorMask();
    ASSERT_NE(nullptr, mb);
    EXPECT_EQ(ma->GetDefault(), mb->GetDefault());
    EXPECT_EQ(ma->Values(), mb->Values());
    for (size_t s = 0; s < a.GetSurfaceList().GetNumSurfaces(false); ++s)
        EXPECT_EQ(a.GetSurfaceList().GetSurface(s)->IsVisible(),
                  b.GetSurfaceList().GetSurface(s)->IsVisible());
}

// Compares geometry, colours, surfaces, face groups and user-defined marks.
void ExpectSameMesh(const MStlBase& a, const MStlBase& b)
{
    MStlCompareOptions options;
    options.storageKind = true;
    options.attributes = false; // the mesh name and colour are not part of the format
    EXPECT_EQ("", CompareMeshes(a, b, options));
}

std::array<int, 3> At(const MStlPoint* p)
{
    return {p->GetX(), p->GetY(), p->GetZ()};
}
} // namespace

TEST(NativeRoundTrip, StandardKindWithEverySection)
{
    MStlBase mesh;
    BuildStandard(mesh);
    MStlFileIO::MErrorCode code = eStlFileIONoStl;
    const Bytes bytes = SaveToBytes(mesh, Switches::AllOn(), &code);
    ASSERT_EQ(eStlFileIOSuccess, code);
    MStlBase loaded;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
    ExpectSameMesh(mesh, loaded);
    ExpectCommonParts(mesh, loaded);
    EXPECT_TRUE(loaded.GetMaterial().GetColorIsReadFromFile());

    // Triangles keep their order, marks and visibilities.
    ASSERT_EQ(4u, loaded.NumberOfTriangles());
    for (size_t t = 0; t < 4; ++t)
    {
        const MStlTriangle* x = mesh.GetTriangleWithIndex(t);
        const MStlTriangle* y = loaded.GetTriangleWithIndex(t);
        EXPECT_EQ(x->GetMark(), y->GetMark()) << t;
        EXPECT_EQ(x->IsVisible(), y->IsVisible()) << t;
        EXPECT_EQ(x->GetColor(), y->GetColor()) << t;
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(mesh.GetPointList().GetIndexOfPoint(x->GetPoint(c)),
                      loaded.GetPointList().GetIndexOfPoint(y->GetPoint(c)));
    }
    EXPECT_EQ(0u, loaded.GetMarkInterface().GetValidity());
    EXPECT_FALSE(loaded.GetValidity().AreTriangleVisibilitiesValid());

    // Graph edges refer to the loaded points at the same positions.
    ASSERT_EQ(2u, loaded.NumberOfGraphEdges());
    const MStlPointList& pl = loaded.GetPointList();
    EXPECT_EQ(0u, pl.GetIndexOfPoint(loaded.GetGraphEdgeWithIndex(0)->GetPoint(0)));
    EXPECT_EQ(4u, pl.GetIndexOfPoint(loaded.GetGraphEdgeWithIndex(0)->GetPoint(1)));
    EXPECT_EQ(3u, pl.GetIndexOfPoint(loaded.GetGraphEdgeWithIndex(1)->GetPoint(1)));

    // Borders: surface, contours, sub-contour points and neighbours.
    const MStlSurfaceBorderList& borders = loaded.GetSurfaceBorders();
    ASSERT_EQ(2u, borders.GetNumBorders());
    EXPECT_EQ(loaded.GetSurfaceList().GetSurface(1), borders.GetBorder(0)->GetSurface());
    EXPECT_EQ(nullptr, borders.GetBorder(1)->GetSurface());
    ASSERT_EQ(2u, borders.GetBorder(0)->Contours().size());
    const MStlBorderContour& contour = borders.GetBorder(0)->Contours()[0];
    ASSERT_EQ(2u, contour.subContours.size());
    EXPECT_EQ(loaded.GetMainSurface(), contour.subContours[0].neighbour);
    EXPECT_EQ(nullptr, contour.subContours[1].neighbour);
    ASSERT_EQ(3u, contour.subContours[1].points.size());
    EXPECT_EQ(3u, pl.GetIndexOfPoint(contour.subContours[1].points[0]));
    EXPECT_EQ((std::array<int, 3>{20, 0, 5}), At(contour.subContours[1].points[1]));
    EXPECT_TRUE(borders.GetBorder(0)->Contours()[1].subContours.empty());

    // The point index finds loaded points.
    EXPECT_EQ(pl.GetPointWithIndex(3), pl.FindPoint(10, 10, 5));
}

TEST(NativeRoundTrip, CompactAndOnDiskKinds)
{
    for (MStlHybridState kind : {eStlCompact, eStlOnDisk})
    {
        SCOPED_TRACE(testing::Message() << "kind " << kind);
        MStlBase mesh;
        BuildHybrid(mesh, kind);
        MStlFileIO::MErrorCode code = eStlFileIONoStl;
        const Bytes bytes = SaveToBytes(mesh, Switches::AllOn(), &code);
        ASSERT_EQ(eStlFileIOSuccess, code);
        MStlBase loaded;
        ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
        EXPECT_EQ(kind, loaded.GetStlHybrid().GetState());
        EXPECT_FALSE(loaded.GetStlHybrid().GetVerticesShared());
        ExpectSameMesh(mesh, loaded);
        ExpectCommonParts(mesh, loaded);
        if (kind == eStlCompact)
        {
            const MStlCompact& c = *loaded.GetStlHybrid().GetStlCompact();
            ASSERT_EQ(2u, c.GetNumberOfEdges());
            unsigned i0 = 0, i1 = 0;
            c.GetEdge(0, i0, i1);
            EXPECT_EQ(0u, i0);
            EXPECT_EQ(4u, i1);
        }
        // The loaded mesh saves to the same bytes.
        EXPECT_EQ(bytes, SaveToBytes(loaded, Switches::AllOn()));
    }
}

TEST(NativeRoundTrip, KindsLoadIntoAMeshOfAnotherKind)
{
    MStlBase compact;
    BuildHybrid(compact, eStlCompact);
    const Bytes bytes = SaveToBytes(compact);
    MStlBase target;
    BuildStandard(target);
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, target));
    EXPECT_EQ(eStlCompact, target.GetStlHybrid().GetState());
    ExpectSameMesh(compact, target);
}

TEST(NativeRoundTrip, SurfaceGroupedTrianglesAndSwitchesOff)
{
    // Triangles grouped by surface, saved with the default switches (no marks, visibilities
    // or history): those stay as the target had them (history) or at their defaults.
    MStlBase mesh;
    MStlSurface* second = mesh.AddSurface();
    second->SetName(L"second");
    std::vector<MStlSurface*> surfaces{mesh.GetMainSurface(), second};
    ASSERT_TRUE(mesh.Create({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}, {2, 2, 2}},
                            {{{0, 1, 2}}, {{1, 3, 2}, {2, 3, 4}}}, &surfaces, nullptr, nullptr));
    mesh.GetTriangleWithIndex(0)->SetMark(9);
    mesh.GetHistory().AddEntry(MHistoryEntry{L"op", L"", 1, L""});
    const Bytes bytes = SaveToBytes(mesh);
    MStlBase loaded;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
    ExpectSameMesh(mesh, loaded);
    EXPECT_EQ(0, loaded.GetTriangleWithIndex(0)->GetMark());
    EXPECT_EQ(0u, loaded.GetHistory().GetNumEntries());
    EXPECT_EQ(2u, loaded.GetSurfaceList().GetSurface(1)->GetNumberOfTriangles());
}

TEST(NativeRoundTrip, LargerMeshAcrossIndexWidths)
{
    // 300 x 300 grid: 90000 vertices (three-byte indices) and 178802 triangles.
    const int n = 300;
    std::vector<std::array<int, 3>> points;
    for (int z = 0; z < 1; ++z)
        for (int x = 0; x < n; ++x)
            for (int y = 0; y < n; ++y)
                points.push_back({x * 1000, y * 1000, (x * y) % 70000});
    std::vector<std::array<size_t, 3>> triangles;
    for (int x = 0; x + 1 < n; ++x)
        for (int y = 0; y + 1 < n; ++y)
        {
            const size_t a = static_cast<size_t>(x * n + y);
            triangles.push_back({a, a + n, a + 1});
            triangles.push_back({a + 1, a + n, a + n + 1});
        }
    MStlBase mesh;
    ASSERT_TRUE(mesh.Create(points, {triangles}, nullptr, nullptr, nullptr));
    const Bytes bytes = SaveToBytes(mesh);
    MStlBase loaded;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
    ExpectSameMesh(mesh, loaded);
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
    Switches s = Switches::AllOff();
    s.registeredPoints = true;
    const Bytes bytes = SaveToBytes(mesh, s);
    ASSERT_LT(bytes.size(), 600u);

    MStlBase target;
    ASSERT_TRUE(target.CreatePoints({{1, 1, 1}}, nullptr));
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, target));
    EXPECT_EQ(1u, target.GetPointList().GetNumPoints());
    EXPECT_EQ(mesh.GetRegisteredPoints().Points(), target.GetRegisteredPoints().Points());
}
