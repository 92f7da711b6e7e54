#include "StlBuildTestSupport.h"

#include <KelSDK/Math/Transform.h>
#include <KelSDK/Triangles/IO/MStlFileWriter.h>

using namespace StlBuildTest;
using KelSDK::Math::MMTransformMatrix;

namespace
{
TEST(MStlFileWriter, TransformationMovesCornersAndNormals)
{
    TempDir dir;
    const std::wstring path = dir.File("t.stl").wstring();
    MStlBase mesh;
    BuildHybrid(mesh, eStlStandard, {{0, 0, 0}, {10, 0, -10}, {0, 10, 0}}, {{0, 1, 2}}, {0});
    // Scaled first, then moved; a stretch is no orthonormal matrix, so its normal is renormalised.
    const double r = std::sqrt(0.5), s = 1.0 / std::sqrt(5.0);
    const struct
    {
        MMTransformMatrix transformation;
        double scale, normal[3], corner[3];
    } rows[] = {
        {MMTransformMatrix::RotationZ(std::acos(-1.0) / 2) * MMTransformMatrix::Translation(0, 0, 100),
         0.5,
         {0, r, r},
         {0, 5, 95}},
        {MMTransformMatrix::Scaling(2, 1, 1), 1.0, {2 * s, 0, s}, {20, 0, -10}}};
    for (const auto& row : rows)
    {
        MStlFileWriter writer(MStlWriteOptions(row.scale, true, false, false));
        writer.SetFileName(path.c_str());
        writer.SetStlToWrite(&mesh);
        writer.SetWriteTransformation(&row.transformation);
        ASSERT_TRUE(writer.Write(nullptr) && writer.Close());
        std::istringstream bytes(ReadBytes(path).substr(80));
        MStlFileTriangle facet;
        ASSERT_TRUE(bytes.ignore(4) && facet.ReadBinary(bytes) && bytes.tellg() == 54);
        for (int i = 0; i < 3; ++i)
            EXPECT_TRUE(std::abs(facet.GetNormal()[i] - row.normal[i]) < 1e-6 &&
                        std::abs(facet.GetVertex(1)[i] - row.corner[i]) < 1e-5)
                << "scale " << row.scale << ", axis " << i;
    }
}

// Nothing open: no header, no close; a writer that failed to open stays closed and creates nothing.
TEST(MStlFileWriter, StatesAndFailures)
{
    TempDir dir;
    MStlBase mesh;
    BuildHybrid(mesh, eStlStandard, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}}, {0});
    MStlFileWriter writer(MStlWriteOptions(1.0, true, false, false));
    EXPECT_FALSE(writer.WriteHeader(&mesh, &mesh.GetMaterial()) || writer.Close());
    writer.SetFileName(dir.File("missing/dir/x.stl").wstring().c_str());
    writer.SetStlToWrite(&mesh);
    EXPECT_FALSE(writer.OpenWrite() || writer.Write(nullptr));
    EXPECT_FALSE(std::filesystem::exists(dir.File("missing")));
}

// Blocks of records with batched normals give exactly the per-facet encoding of GetNormal() and corners.
TEST(MStlFileWriter, BinaryRecordsMatchPerFacetEncodingOnRandomTriangles)
{
    std::mt19937 random(20261121);
    std::uniform_int_distribution<int> coordinate(-2147483647, 2147483647);
    std::uniform_int_distribution<size_t> rangeOf(0, 3), surfaceOf(0, 2);
    // Corners of a triangle within +-3, +-1000, +-2^20 or +-2^31; a point twice is collapsed too.
    std::vector<std::array<int, 3>> points = {{0, 0, 0}, {1, 0, 0}};
    std::vector<std::vector<std::array<size_t, 3>>> triangles = {{{0, 0, 1}}, {}, {}};
    for (size_t t = 0; t < 20011; ++t)
    {
        const int shift = std::array<int, 4>{29, 21, 11, 0}[rangeOf(random)];
        for (int k = 0; k < 3; ++k)
            points.push_back(
                {coordinate(random) >> shift, coordinate(random) >> shift, coordinate(random) >> shift});
        triangles[surfaceOf(random)].push_back({points.size() - 3, points.size() - 2, points.size() - 1});
    }
    MStlBase mesh;
    std::vector<MStlSurface*> surfaces = {mesh.GetMainSurface(), mesh.AddSurface(nullptr),
                                          mesh.AddSurface(nullptr)};
    std::vector<MStlTriangle*> created;
    ASSERT_TRUE(mesh.Create(points, triangles, &surfaces, nullptr, &created));
    for (size_t t = 0; t < created.size(); t += 3)
        created[t]->SetColor(MStlColor(static_cast<uint32_t>(t * 2654435761u)));
    mesh.SetRGB(0x00FF00u); // not the header colour: written on the uncoloured triangles
    TempDir dir;
    const std::wstring path = dir.File("r.stl").wstring();
    for (const bool withColors : {false, true})
        for (const double scale : {1.0, 1e-4, 3.7})
        {
            std::string expected;
            MStlIteratorFeatureSurfaceConst it(mesh);
            for (it.Begin(); !it.End(); ++it)
                for (const MStlTriangle* triangle : (*it).Triangles())
                {
                    if (triangle->IsCollapsed())
                        continue;
                    MStlFileTriangle facet;
                    facet.SetNormal(triangle->GetNormal());
                    for (int k = 0; k < 3; ++k)
                        facet.SetVertex(k, MStlFileTriangle::Point(triangle->GetPoint(k)->GetX(),
                                                                   triangle->GetPoint(k)->GetY(),
                                                                   triangle->GetPoint(k)->GetZ()) *
                                               scale);
                    const MStlColor color =
                        triangle->GetColor().IsDefined() ? triangle->GetColor() : MStlColor(0x00FF00u);
                    facet.SetAttribute(withColors ? MStlColor::ConvertTo16BitValue(color) : uint16_t(0));
                    unsigned char bytes[MStlFileTriangle::BINARY_SIZE];
                    facet.EncodeBinary(bytes);
                    expected.append(reinterpret_cast<const char*>(bytes), sizeof bytes);
                }
            const uint32_t count = static_cast<uint32_t>(expected.size() / 50);
            ASSERT_TRUE(count > 19900u && count < 20011u)
                << count; // a few random triangles are collapsed too
            ASSERT_TRUE(MStlBaseFileUtilities::WriteStl(
                &mesh, path, MStlWriteOptions(scale, true, withColors, false), nullptr));
            EXPECT_TRUE(ReadBytes(path).substr(80) ==
                        std::string({char(count), char(count >> 8), char(count >> 16), 0}) + expected)
                << "colours " << withColors << ", scale " << scale;
        }
}
} // namespace
