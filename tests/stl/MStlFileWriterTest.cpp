#include "StlBuildTestSupport.h"

#include <KelSDK/Math/Transform.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlBaseFileUtilities.h>
#include <KelSDK/Triangles/IO/MStlFileWriter.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>

using namespace KelSDK::Triangles::Data;
using namespace KelSDK::Triangles::IO;
using StlBuildTest::ReadBytes;
using StlBuildTest::TempDir;

namespace
{
// One triangle of 1 mm legs in the xy plane (internal units of 10000 per mm), normal +z.
void MakeTriangle(MStlBase& mesh, const std::wstring& surfaceName = L"")
{
    mesh.GetMainSurface()->SetName(surfaceName);
    std::vector<MStlSurface*> surfaces = {mesh.GetMainSurface()};
    ASSERT_TRUE(
        mesh.Create({{0, 0, 0}, {10000, 0, 0}, {0, 10000, 0}}, {{{0, 1, 2}}}, &surfaces, nullptr, nullptr));
}

std::string Bytes(std::initializer_list<int> values)
{
    std::string s;
    for (int v : values)
        s.push_back(static_cast<char>(v));
    return s;
}

std::string Floats(std::initializer_list<float> values)
{
    std::string s;
    for (float v : values)
        s.append(reinterpret_cast<const char*>(&v), 4);
    return s;
}

std::string Padded(const std::string& content)
{
    return content + std::string(80 - content.size(), ' ');
}

const std::string TriangleFacet = Floats({0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0});

bool Write(const MStlBase& mesh, const std::filesystem::path& path, const MStlWriteOptions& options)
{
    return MStlBaseFileUtilities::WriteStl(&mesh, path.wstring(), options, nullptr);
}

TEST(MStlFileWriter, BinaryHeaderWithoutColours)
{
    TempDir dir;
    MStlBase mesh;
    MakeTriangle(mesh);
    mesh.GetProperties().SetIsSupposedSolid(false);
    ASSERT_TRUE(Write(mesh, dir.File("a.stl"), MStlWriteOptions(1e-4, true, false, false)));
    const std::string expected =
        Padded(std::string(";FACES") + '\0') + Bytes({1, 0, 0, 0}) + TriangleFacet + Bytes({0, 0});
    EXPECT_EQ(ReadBytes(dir.File("a.stl")), expected);

    mesh.GetProperties().SetIsSupport(true);
    mesh.GetProperties().SetIsSupposedSolid(true);
    ASSERT_TRUE(Write(mesh, dir.File("b.stl"), MStlWriteOptions(1e-4, true, false, false)));
    EXPECT_EQ(ReadBytes(dir.File("b.stl")).substr(0, 84),
              Padded(std::string(";ISSUP;SOLID") + '\0') + Bytes({1, 0, 0, 0}));
}

TEST(MStlFileWriter, BinaryHeaderWithColoursAndFacetWords)
{
    TempDir dir;
    MStlBase mesh;
    MStlMaterial material;
    material.SetRGB(0xFF3264C8u); // R 200, G 100, B 50, A 255
    material.SetDiffuse(0x01020304u);
    material.SetSpecular(0x05060708u);
    material.SetAmbient(0x090A0B0Cu);
    material.SetShininess(0.5f);
    mesh.SetMaterial(material);
    mesh.SetRGB(0x3264C8u); // the header colour: uncoloured triangles stay uncoloured
    std::vector<MStlSurface*> surfaces = {mesh.GetMainSurface()};
    std::vector<MStlTriangle*> created;
    ASSERT_TRUE(mesh.Create({{0, 0, 0}, {10000, 0, 0}, {0, 10000, 0}, {0, 0, 10000}},
                            {{{0, 1, 2}, {0, 1, 3}}}, &surfaces, nullptr, &created));
    created[0]->SetColor(MStlColor(0x0000FFu));
    ASSERT_TRUE(Write(mesh, dir.File("c.stl"), MStlWriteOptions(1e-4, true, true, false)));
    const std::string bytes = ReadBytes(dir.File("c.stl"));
    ASSERT_EQ(bytes.size(), 84u + 2 * 50);
    const std::string header = std::string("COLOR=") + Bytes({200, 100, 50, 255}) +
                               ",MATERIAL=" + Bytes({4, 3, 2, 1, 8, 7, 6, 5, 12, 11, 10, 9}) +
                               Floats({0.5f}) + ";SOLID" + '\0';
    EXPECT_EQ(bytes.substr(0, 84), Padded(header) + Bytes({2, 0, 0, 0}));
    EXPECT_EQ(bytes.substr(84 + 48, 2), Bytes({0x1F, 0x00}));      // red of its own
    EXPECT_EQ(bytes.substr(84 + 50 + 48, 2), Bytes({0x00, 0x80})); // no colour: bit 15

    // A mesh colour other than the header colour is written on the uncoloured triangles.
    mesh.SetRGB(0x00FF00u);
    ASSERT_TRUE(Write(mesh, dir.File("d.stl"), MStlWriteOptions(1e-4, true, true, false)));
    EXPECT_EQ(ReadBytes(dir.File("d.stl")).substr(84 + 50 + 48, 2), Bytes({0xE0, 0x03}));
}

TEST(MStlFileWriter, AsciiText)
{
    TempDir dir;
    MStlBase mesh;
    mesh.SetName(L"part");
    MakeTriangle(mesh, L"top");
    ASSERT_TRUE(Write(mesh, dir.File("a.stl"), MStlWriteOptions(1e-4, false, true, false)));
    const std::string facet = "facet normal 0.000000 0.000000 1.000000\n"
                              "outer loop\n"
                              "vertex 0.00000000 0.00000000 0.00000000\n"
                              "vertex 1.00000000 0.00000000 0.00000000\n"
                              "vertex 0.00000000 1.00000000 0.00000000\n"
                              "endloop\n"
                              "endfacet\n";
    EXPECT_EQ(ReadBytes(dir.File("a.stl")), "solid part\n" + facet + "endsolid part\n");
    ASSERT_TRUE(Write(mesh, dir.File("b.stl"), MStlWriteOptions(1e-4, false, false, true)));
    EXPECT_EQ(ReadBytes(dir.File("b.stl")), "solid top\n" + facet + "endsolid top\n");
}

TEST(MStlFileWriter, SolidPerSurfaceAndBinaryOrderFollowSurfaces)
{
    TempDir dir;
    MStlBase mesh;
    mesh.GetMainSurface()->SetName(L"one");
    std::vector<MStlSurface*> surfaces = {mesh.GetMainSurface(), mesh.AddSurface(nullptr),
                                          mesh.AddSurface(nullptr)};
    surfaces[1]->SetName(L"two");
    surfaces[2]->SetName(L"three");
    ASSERT_TRUE(mesh.Create({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 1}},
                            {{{0, 1, 2}}, {{0, 1, 3}, {1, 2, 4}}, {{0, 2, 3}}}, &surfaces, nullptr, nullptr));
    ASSERT_TRUE(Write(mesh, dir.File("a.stl"), MStlWriteOptions(1.0, false, false, true)));
    const std::string text = ReadBytes(dir.File("a.stl"));
    size_t facets = 0;
    for (size_t at = text.find("endfacet"); at != std::string::npos; at = text.find("endfacet", at + 1))
        ++facets;
    EXPECT_EQ(facets, 4u);
    const size_t one = text.find("solid one\n"), two = text.find("solid two\n"),
                 three = text.find("solid three\n");
    ASSERT_NE(three, std::string::npos);
    EXPECT_LT(one, text.find("endsolid one\n"));
    EXPECT_LT(text.find("endsolid one\n"), two);
    EXPECT_LT(text.find("endsolid two\n"), three);
    EXPECT_EQ(text.substr(text.size() - 15), "endsolid three\n");
}

TEST(MStlFileWriter, CollapsedTrianglesAreNotWrittenNorCounted)
{
    TempDir dir;
    MStlBase mesh;
    std::vector<MStlSurface*> surfaces = {mesh.GetMainSurface()};
    // Points 1 and 3 share a position: the second triangle has no area and is left out.
    ASSERT_TRUE(mesh.Create({{0, 0, 0}, {5, 0, 0}, {0, 5, 0}, {5, 0, 0}}, {{{0, 1, 2}, {0, 1, 3}, {1, 2, 0}}},
                            &surfaces, nullptr, nullptr));
    MStlFileWriter writer(MStlWriteOptions(1.0, true, false, false));
    const std::wstring name = dir.File("c.stl").wstring();
    writer.SetFileName(name.c_str());
    writer.SetStlToWrite(&mesh);
    ASSERT_TRUE(writer.Write(nullptr));
    EXPECT_EQ(writer.GetFacetCount(), 2u);
    ASSERT_TRUE(writer.Close());
    const std::string bytes = ReadBytes(dir.File("c.stl"));
    ASSERT_EQ(bytes.size(), 84u + 2 * 50);
    EXPECT_EQ(bytes.substr(80, 4), Bytes({2, 0, 0, 0}));
}

TEST(MStlFileWriter, WriteStlMMIsColouredBinaryInMillimetres)
{
    TempDir dir;
    MStlBase mesh;
    MakeTriangle(mesh);
    ASSERT_TRUE(MStlBaseFileUtilities::WriteStlMM(&mesh, dir.File("mm.stl").wstring()));
    const std::string bytes = ReadBytes(dir.File("mm.stl"));
    ASSERT_EQ(bytes.size(), 134u);
    EXPECT_EQ(bytes.substr(0, 6), "COLOR=");
    EXPECT_EQ(bytes.substr(84, 48), TriangleFacet);
}

KelSDK::Math::point<float, 3> NormalOf(const std::string& bytes, size_t facet)
{
    KelSDK::Math::point<float, 3> n;
    std::memcpy(n.data(), bytes.data() + 84 + 50 * facet, 12);
    return n;
}

TEST(MStlFileWriter, TransformationMovesCornersAndNormals)
{
    TempDir dir;
    MStlBase mesh;
    std::vector<MStlSurface*> surfaces = {mesh.GetMainSurface()};
    // Normal (1, 0, 1) / sqrt 2.
    ASSERT_TRUE(
        mesh.Create({{0, 0, 0}, {0, 10, 0}, {10, 0, -10}}, {{{0, 2, 1}}}, &surfaces, nullptr, nullptr));
    const double r = std::sqrt(0.5);

    // A rotation of 90 degrees about z keeps the normal at unit length: (0, 1, 1) / sqrt 2.
    MStlFileWriter rotated(MStlWriteOptions(0.5, true, false, false));
    const std::wstring first = dir.File("r.stl").wstring();
    rotated.SetFileName(first.c_str());
    rotated.SetStlToWrite(&mesh);
    const auto rotation = KelSDK::Math::MMTransformMatrix::RotationZ(std::acos(-1.0) / 2) *
                          KelSDK::Math::MMTransformMatrix::Translation(0, 0, 100);
    rotated.SetWriteTransformation(&rotation);
    ASSERT_TRUE(rotated.Write(nullptr));
    ASSERT_TRUE(rotated.Close());
    const std::string a = ReadBytes(dir.File("r.stl"));
    EXPECT_NEAR(NormalOf(a, 0)[0], 0.0, 1e-6);
    EXPECT_NEAR(NormalOf(a, 0)[1], r, 1e-6);
    EXPECT_NEAR(NormalOf(a, 0)[2], r, 1e-6);
    // Corner 1 (10, 0, -10): scaled by 0.5 first, then rotated and lifted: (0, 5, 95).
    float corner[3];
    std::memcpy(corner, a.data() + 84 + 24, 12);
    EXPECT_NEAR(corner[0], 0.0, 1e-5);
    EXPECT_NEAR(corner[1], 5.0, 1e-5);
    EXPECT_NEAR(corner[2], 95.0, 1e-5);

    // A stretch along x is no orthonormal matrix: the normal (2, 0, 1) / sqrt 2 is renormalised.
    MStlFileWriter stretched(MStlWriteOptions(1.0, true, false, false));
    const std::wstring second = dir.File("s.stl").wstring();
    stretched.SetFileName(second.c_str());
    stretched.SetStlToWrite(&mesh);
    const auto stretch = KelSDK::Math::MMTransformMatrix::Scaling(2, 1, 1);
    stretched.SetWriteTransformation(&stretch);
    ASSERT_TRUE(stretched.Write(nullptr));
    ASSERT_TRUE(stretched.Close());
    const std::string b = ReadBytes(dir.File("s.stl"));
    EXPECT_NEAR(NormalOf(b, 0)[0], 2.0 / std::sqrt(5.0), 1e-6);
    EXPECT_NEAR(NormalOf(b, 0)[2], 1.0 / std::sqrt(5.0), 1e-6);
}

TEST(MStlFileWriter, StatesAndFailures)
{
    TempDir dir;
    MStlBase mesh;
    MakeTriangle(mesh);
    MStlFileWriter writer(MStlWriteOptions(1.0, true, false, false));
    // Nothing open: no header, no close.
    EXPECT_FALSE(writer.WriteHeader(&mesh, &mesh.GetMaterial()));
    EXPECT_FALSE(writer.Close());
    writer.SetFileName(dir.File("missing/dir/x.stl").wstring().c_str());
    writer.SetStlToWrite(&mesh);
    EXPECT_FALSE(writer.OpenWrite());
    EXPECT_FALSE(writer.Write(nullptr)); // a writer that failed to open stays closed
    EXPECT_FALSE(std::filesystem::exists(dir.File("missing")));

    // A complete write replaces an existing file.
    StlBuildTest::WriteBytes(dir.File("keep.stl"), "old");
    MStlFileWriter second(MStlWriteOptions(1.0, true, false, false));
    const std::wstring keep = dir.File("keep.stl").wstring();
    second.SetFileName(keep.c_str());
    second.SetStlToWrite(&mesh);
    ASSERT_TRUE(second.OpenWrite());
    EXPECT_EQ(ReadBytes(dir.File("keep.stl")), "old");
    ASSERT_TRUE(second.Write(nullptr));
    EXPECT_EQ(ReadBytes(dir.File("keep.stl")), "old");
    ASSERT_TRUE(second.Close());
    EXPECT_EQ(ReadBytes(dir.File("keep.stl")).size(), 134u);
}

// Builds the same two triangles in a Compact or OnDisk store through the hybrid interface.
void MakeHybrid(MStlBase& mesh, MStlHybridState kind)
{
    ASSERT_TRUE(mesh.GetStlHybrid().SetState(kind));
    MStlHybrid& hybrid = mesh.GetStlHybrid();
    ASSERT_TRUE(hybrid.StartAddingVertices());
    const unsigned v0 = hybrid.AddVertex(0, 0, 0), v1 = hybrid.AddVertex(10000, 0, 0),
                   v2 = hybrid.AddVertex(0, 10000, 0), v3 = hybrid.AddVertex(0, 0, 10000);
    ASSERT_TRUE(hybrid.StartAddingTriangles(nullptr));
    hybrid.AddTriangle(v0, v1, v2);
    hybrid.AddTriangle(v0, v3, v1);
    ASSERT_TRUE(hybrid.StartAddingTriangleColors());
    hybrid.AddColor(MStlColor(0x0000FFu));
    hybrid.AddColor(MStlColor());
    hybrid.Close();
}

TEST(MStlFileWriter, CompactAndOnDiskStores)
{
    for (MStlHybridState kind : {eStlCompact, eStlOnDisk})
    {
        TempDir dir;
        MStlBase mesh;
        mesh.SetName(L"store");
        MakeHybrid(mesh, kind);
        ASSERT_TRUE(Write(mesh, dir.File("b.stl"), MStlWriteOptions(1e-4, true, true, false))) << kind;
        const std::string bytes = ReadBytes(dir.File("b.stl"));
        ASSERT_EQ(bytes.size(), 84u + 2 * 50) << kind;
        EXPECT_EQ(bytes.substr(84, 48), TriangleFacet) << kind;
        EXPECT_EQ(bytes.substr(84 + 48, 2), Bytes({0x1F, 0x00})) << kind;
        EXPECT_EQ(bytes.substr(84 + 50 + 48, 2), Bytes({0x00, 0x80})) << kind;
        // Geometric normal of the second triangle: (0,0,0), (0,0,1), (1,0,0) -> +y.
        EXPECT_EQ(bytes.substr(84 + 50, 12), Floats({0, 1, 0})) << kind;

        ASSERT_TRUE(Write(mesh, dir.File("a.stl"), MStlWriteOptions(1e-4, false, false, true))) << kind;
        const std::string text = ReadBytes(dir.File("a.stl"));
        EXPECT_EQ(text.substr(0, 12), "solid store\n") << kind;
        EXPECT_EQ(text.substr(text.size() - 15), "endsolid store\n") << kind;
        EXPECT_NE(text.find("vertex 0.00000000 0.00000000 1.00000000\n"), std::string::npos) << kind;
    }
}
// The records a binary file must hold for the mesh: for every surface in order, every triangle
// with corners at distinct positions, encoded by MStlFileTriangle from GetNormal() and the scaled
// corners, with the colour word of the triangle (or of the mesh, when it differs from the header).
std::string ExpectedRecords(const MStlBase& mesh, double scale, bool withColors, uint32_t& count)
{
    std::string records;
    count = 0;
    const uint32_t headerColor = mesh.GetMaterial().GetRGB() & 0xFFFFFFu;
    MStlIteratorFeatureSurfaceConst it(mesh);
    for (it.Begin(); !it.End(); ++it)
        for (const MStlTriangle* triangle : (*it).Triangles())
        {
            if (triangle->IsCollapsed())
                continue;
            MStlFileTriangle facet;
            facet.SetNormal(triangle->GetNormal());
            for (int k = 0; k < 3; ++k)
            {
                const MStlPoint* p = triangle->GetPoint(k);
                facet.SetVertex(k, MStlFileTriangle::Point(p->GetX(), p->GetY(), p->GetZ()) * scale);
            }
            MStlColor color = triangle->GetColor();
            if (!color.IsDefined() && mesh.GetRGB() != headerColor)
                color.SetRGB(mesh.GetRGB());
            facet.SetAttribute(withColors ? MStlColor::ConvertTo16BitValue(color) : uint16_t(0));
            unsigned char bytes[MStlFileTriangle::BINARY_SIZE];
            facet.EncodeBinary(bytes);
            records.append(reinterpret_cast<const char*>(bytes), sizeof bytes);
            ++count;
        }
    return records;
}

// Binary records are encoded block by block, with the normals finished in batches: many random
// triangles (tiny, huge and flat ones, collapsed ones, over several blocks and a partial last
// batch, on three surfaces) must give exactly the bytes of the per-facet encoding of
// GetNormal() and the scaled corners, with and without colours.
TEST(MStlFileWriter, BinaryRecordsMatchPerFacetEncodingOnRandomTriangles)
{
    TempDir dir;
    MStlBase mesh;
    std::mt19937 random(20261121);
    std::vector<std::array<int, 3>> points;
    const int ranges[] = {3, 1000, 1 << 20, 2147483647};
    for (int range : ranges)
    {
        std::uniform_int_distribution<int> coordinate(-range, range);
        for (int i = 0; i < 3000; ++i)
            points.push_back({coordinate(random), coordinate(random), coordinate(random)});
    }
    points.push_back(points[5]); // the same position as point 5, under another index
    std::uniform_int_distribution<int> rangeOf(0, 3);
    std::uniform_int_distribution<int> inRange(0, 2999);
    std::uniform_int_distribution<int> surfaceOf(0, 2);
    std::vector<std::vector<std::array<size_t, 3>>> triangles(3);
    for (int t = 0; t < 20011; ++t)
    {
        // Corners from one coordinate range, so that small and large triangles both occur.
        const size_t base = static_cast<size_t>(3000 * rangeOf(random));
        triangles[surfaceOf(random)].push_back(
            {base + size_t(inRange(random)), base + size_t(inRange(random)), base + size_t(inRange(random))});
    }
    triangles[0].push_back({5, 12000, 7}); // collapsed: two points at one position
    triangles[1].push_back({8, 8, 9});     // collapsed: one point twice
    triangles[2].push_back({3000, 3000, 3000});
    std::vector<MStlSurface*> surfaces = {mesh.GetMainSurface(), mesh.AddSurface(nullptr),
                                          mesh.AddSurface(nullptr)};
    std::vector<MStlTriangle*> created;
    ASSERT_TRUE(mesh.Create(points, triangles, &surfaces, nullptr, &created));
    for (size_t t = 0; t < created.size(); t += 3)
        created[t]->SetColor(MStlColor(static_cast<uint32_t>(t * 2654435761u)));
    mesh.SetRGB(0x00FF00u);

    for (const bool withColors : {false, true})
        for (const double scale : {1.0, 1e-4, 3.7})
        {
            uint32_t count = 0;
            const std::string expected = ExpectedRecords(mesh, scale, withColors, count);
            // Random corners repeat now and then (and the three added triangles are collapsed).
            ASSERT_GT(count, 19000u);
            ASSERT_LT(count, 20011u);
            ASSERT_TRUE(Write(mesh, dir.File("r.stl"), MStlWriteOptions(scale, true, withColors, false)));
            const std::string bytes = ReadBytes(dir.File("r.stl"));
            ASSERT_EQ(bytes.size(), 84u + expected.size()) << withColors << ' ' << scale;
            EXPECT_EQ(bytes.substr(80, 4), Bytes({int(count & 0xFF), int(count >> 8), 0, 0}));
            size_t differing = 0;
            for (size_t at = 0; at < expected.size(); at += 50)
                differing += bytes.compare(84 + at, 50, expected, at, 50) != 0;
            EXPECT_EQ(differing, 0u) << withColors << ' ' << scale;
        }
}
} // namespace
