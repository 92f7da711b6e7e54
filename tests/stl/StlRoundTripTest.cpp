#include "StlBuildTestSupport.h"

#include <KelSDK/Common/InternalUnits.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlBaseFileUtilities.h>

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

using namespace KelSDK::Triangles::Data;
using namespace KelSDK::Triangles::IO;
using StlBuildTest::TempDir;

namespace
{
// Corners and colour of each triangle, read through the storage-independent interface.
using FacetView = std::pair<std::array<std::array<int, 3>, 3>, MStlColor>;

std::vector<FacetView> View(const MStlBase& mesh)
{
    const MStlHybrid& hybrid = mesh.GetStlHybrid();
    std::vector<FacetView> list(hybrid.GetNumTriangles());
    EXPECT_TRUE(hybrid.OpenRead());
    const bool colours = hybrid.StartGettingTriangleColors();
    for (size_t t = 0; t < list.size(); ++t)
    {
        unsigned v[3];
        EXPECT_TRUE(hybrid.GetTriangle(t, v[0], v[1], v[2]));
        auto& c = list[t].first;
        for (int k = 0; k < 3; ++k)
            EXPECT_TRUE(hybrid.GetVertex(v[k], c[k][0], c[k][1], c[k][2]));
        if (colours)
            list[t].second = hybrid.GetColor(t);
    }
    hybrid.Close();
    return list;
}

// An octahedron of 20 mm half-diagonal (closed, six shared vertices) with three coloured faces.
const std::vector<std::array<int, 3>> OctahedronPoints = {{200000, 0, 0},  {-200000, 0, 0}, {0, 200000, 0},
                                                          {0, -200000, 0}, {0, 0, 200000},  {0, 0, -200000}};
const std::vector<std::array<size_t, 3>> OctahedronFaces = {{0, 2, 4}, {2, 1, 4}, {1, 3, 4}, {3, 0, 4},
                                                            {2, 0, 5}, {1, 2, 5}, {3, 1, 5}, {0, 3, 5}};

void MakeOctahedron(MStlBase& mesh, MStlHybridState kind)
{
    mesh.SetName(L"octahedron");
    mesh.GetMainSurface()->SetName(L"octahedron");
    mesh.GetProperties().SetIsSupport(true);
    mesh.GetProperties().SetIsSupposedSolid(false);
    MStlHybrid& hybrid = mesh.GetStlHybrid();
    ASSERT_TRUE(hybrid.SetState(kind));
    ASSERT_TRUE(hybrid.StartAddingVertices());
    std::vector<unsigned> index;
    for (const auto& p : OctahedronPoints)
        index.push_back(hybrid.AddVertex(p[0], p[1], p[2]));
    ASSERT_TRUE(hybrid.StartAddingTriangles(nullptr));
    for (const auto& f : OctahedronFaces)
        hybrid.AddTriangle(index[f[0]], index[f[1]], index[f[2]]);
    ASSERT_TRUE(hybrid.StartAddingTriangleColors());
    for (uint32_t rgb : {0x0000FFu, 0u, 0x00FF00u, 0u, 0u, 0x123456u, 0u, 0u})
        hybrid.AddColor(rgb != 0 ? MStlColor(rgb) : MStlColor());
    hybrid.Close();
}

// Storage kind, binary, with colours.
using StlRoundTrip = ::testing::TestWithParam<std::tuple<MStlHybridState, bool, bool>>;

TEST_P(StlRoundTrip, WriteThenReadGivesTheSameMesh)
{
    const auto [kind, binary, colours] = GetParam();
    TempDir dir;
    MStlBase original;
    MakeOctahedron(original, kind);
    const std::wstring path = dir.File("octahedron.stl").wstring();
    const double toMillimetres = 1.0 / KelSDK::Common::MInternalUnits::Get();
    ASSERT_TRUE(MStlBaseFileUtilities::WriteStl(
        &original, path, MStlWriteOptions(toMillimetres, binary, colours, false), nullptr));
    MStlBase copy;
    ASSERT_TRUE(copy.GetStlHybrid().SetState(kind));
    ASSERT_TRUE(MStlBaseFileUtilities::ReadStlMM(&copy, path));
    // Colours travel only in binary files with the colour header, five bits per channel; the mesh
    // colour equals the header colour here, so uncoloured faces stay uncoloured.
    std::vector<FacetView> expected = View(original);
    for (FacetView& f : expected)
        f.second = binary && colours
                       ? MStlColor::ConvertFrom16BitValue(MStlColor::ConvertTo16BitValue(f.second))
                       : MStlColor();
    EXPECT_EQ(View(copy), expected);
    EXPECT_EQ(copy.GetStlHybrid().GetNumVertices(), 6u);
    EXPECT_TRUE(kind != eStlStandard || binary || copy.GetMainSurface()->GetName() == L"octahedron");
    EXPECT_EQ(copy.GetMaterial().GetColorIsReadFromFile(), binary && colours);
    EXPECT_EQ(copy.GetMaterial().GetRGB(), original.GetMaterial().GetRGB());
    // The flags travel in the binary header only.
    EXPECT_EQ(copy.GetProperties().GetIsSupport(), binary);
    EXPECT_EQ(copy.GetProperties().GetIsSupposedSolid(), !binary);
}

INSTANTIATE_TEST_SUITE_P(AllKinds, StlRoundTrip,
                         ::testing::Combine(::testing::Values(eStlStandard, eStlCompact, eStlOnDisk),
                                            ::testing::Bool(), ::testing::Bool()));

TEST(StlRoundTripSurfaces, AsciiSolidPerSurfaceKeepsSurfaces)
{
    TempDir dir;
    MStlBase original;
    std::vector<MStlSurface*> surfaces = {original.GetMainSurface(), original.AddSurface(nullptr)};
    surfaces[0]->SetName(L"upper half");
    surfaces[1]->SetName(L"lower_half");
    const auto half = OctahedronFaces.begin() + 4;
    const std::vector<std::vector<std::array<size_t, 3>>> faces = {{OctahedronFaces.begin(), half},
                                                                   {half, OctahedronFaces.end()}};
    ASSERT_TRUE(original.Create(OctahedronPoints, faces, &surfaces, nullptr, nullptr));
    const std::wstring path = dir.File("halves.stl").wstring();
    ASSERT_TRUE(MStlBaseFileUtilities::WriteStl(&original, path, MStlWriteOptions(1e-4, false, false, true),
                                                nullptr));
    MStlBase copy;
    ASSERT_TRUE(MStlBaseFileUtilities::ReadStlMM(&copy, path));
    const auto& list = copy.GetSurfaceList();
    ASSERT_EQ(list.GetNumSurfaces(false), 2u);
    // Only the first word after "solid" is the name.
    EXPECT_EQ(list.GetSurface(0)->GetName(), L"upper");
    EXPECT_EQ(list.GetSurface(1)->GetName(), L"lower_half");
    EXPECT_EQ(list.GetSurface(0), copy.GetMainSurface());
    for (size_t s = 0; s < 2; ++s)
        for (const MStlTriangle* t : list.GetSurface(s)->Triangles())
            EXPECT_EQ(t->GetSurface(), list.GetSurface(s));
    EXPECT_EQ(list.GetSurface(0)->GetNumberOfTriangles() + list.GetSurface(1)->GetNumberOfTriangles(), 8u);
    EXPECT_EQ(list.GetSurface(0)->GetNumberOfTriangles(), 4u);
    EXPECT_EQ(copy.NumberOfPoints(), 6u);
}

} // namespace
