#include "StlBuildTestSupport.h"

#include <KelSDK/Common/InternalUnits.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlBaseFileUtilities.h>
#include <KelSDK/Triangles/IO/MStlFileReader.h>

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using namespace KelSDK::Triangles::Data;
using namespace KelSDK::Triangles::IO;
using StlBuildTest::TempDir;

namespace
{
// Corners and colour of one triangle, read through the storage-independent interface.
struct FacetView
{
    std::array<std::array<int, 3>, 3> corners;
    MStlColor color;
    bool operator==(const FacetView& o) const { return corners == o.corners && color == o.color; }
};

std::vector<FacetView> View(const MStlBase& mesh)
{
    const MStlHybrid& hybrid = mesh.GetStlHybrid();
    std::vector<FacetView> list;
    EXPECT_TRUE(hybrid.OpenRead());
    const bool colours = hybrid.StartGettingTriangleColors();
    for (size_t t = 0; t < hybrid.GetNumTriangles(); ++t)
    {
        FacetView view;
        unsigned v[3];
        EXPECT_TRUE(hybrid.GetTriangle(t, v[0], v[1], v[2]));
        for (int k = 0; k < 3; ++k)
            EXPECT_TRUE(hybrid.GetVertex(v[k], view.corners[k][0], view.corners[k][1], view.corners[k][2]));
        if (colours)
            view.color = hybrid.GetColor(t);
        list.push_back(view);
    }
    hybrid.Close();
    return list;
}

// An octahedron of 20 mm half-diagonal (closed, six shared vertices) with three coloured faces.
const std::vector<std::array<int, 3>> OctahedronPoints = {{200000, 0, 0},  {-200000, 0, 0}, {0, 200000, 0},
                                                          {0, -200000, 0}, {0, 0, 200000},  {0, 0, -200000}};
const std::vector<std::array<unsigned, 3>> OctahedronFaces = {{0, 2, 4}, {2, 1, 4}, {1, 3, 4}, {3, 0, 4},
                                                              {2, 0, 5}, {1, 2, 5}, {3, 1, 5}, {0, 3, 5}};
const std::vector<MStlColor> OctahedronColours = {MStlColor(0x0000FFu), MStlColor(), MStlColor(0x00FF00u),
                                                  MStlColor(),          MStlColor(), MStlColor(0x123456u),
                                                  MStlColor(),          MStlColor()};

void MakeOctahedron(MStlBase& mesh, MStlHybridState kind)
{
    mesh.SetName(L"octahedron");
    mesh.GetMainSurface()->SetName(L"octahedron");
    ASSERT_TRUE(mesh.GetStlHybrid().SetState(kind));
    MStlHybrid& hybrid = mesh.GetStlHybrid();
    ASSERT_TRUE(hybrid.StartAddingVertices());
    std::vector<unsigned> index;
    for (const auto& p : OctahedronPoints)
        index.push_back(hybrid.AddVertex(p[0], p[1], p[2]));
    ASSERT_TRUE(hybrid.StartAddingTriangles(nullptr));
    for (const auto& f : OctahedronFaces)
        hybrid.AddTriangle(index[f[0]], index[f[1]], index[f[2]]);
    ASSERT_TRUE(hybrid.StartAddingTriangleColors());
    for (const MStlColor& c : OctahedronColours)
        hybrid.AddColor(c);
    hybrid.Close();
}

MStlColor ThroughAttributeWord(const MStlColor& c)
{
    return MStlColor::ConvertFrom16BitValue(MStlColor::ConvertTo16BitValue(c));
}

struct Case
{
    MStlHybridState kind;
    bool binary;
    bool colours;
};

class StlRoundTrip : public ::testing::TestWithParam<Case>
{
};

TEST_P(StlRoundTrip, WriteThenReadGivesTheSameMesh)
{
    const Case c = GetParam();
    TempDir dir;
    MStlBase original;
    MakeOctahedron(original, c.kind);
    const std::wstring path = dir.File("octahedron.stl").wstring();
    ASSERT_TRUE(MStlBaseFileUtilities::WriteStl(
        &original, path,
        MStlWriteOptions(1.0 / KelSDK::Common::MInternalUnits::Get(), c.binary, c.colours, false), nullptr));

    MStlBase copy;
    ASSERT_TRUE(copy.GetStlHybrid().SetState(c.kind));
    ASSERT_TRUE(MStlBaseFileUtilities::ReadStlMM(&copy, path));

    std::vector<FacetView> expected = View(original);
    // Colours travel only in binary files with the colour header, five bits per channel; the mesh
    // colour equals the header colour here, so uncoloured faces stay uncoloured.
    for (FacetView& f : expected)
        f.color = c.binary && c.colours ? ThroughAttributeWord(f.color) : MStlColor();
    const std::vector<FacetView> actual = View(copy);
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t t = 0; t < expected.size(); ++t)
    {
        EXPECT_EQ(actual[t].corners, expected[t].corners) << "triangle " << t;
        EXPECT_EQ(actual[t].color, expected[t].color) << "triangle " << t;
    }
    EXPECT_EQ(copy.GetStlHybrid().GetNumVertices(), 6u);
    if (c.kind == eStlStandard && !c.binary)
    {
        EXPECT_EQ(copy.GetMainSurface()->GetName(), L"octahedron");
    }
    if (c.binary && c.colours)
    {
        EXPECT_EQ(copy.GetMaterial().GetRGB(), original.GetMaterial().GetRGB());
        EXPECT_TRUE(copy.GetMaterial().GetColorIsReadFromFile());
    }
}

std::string Name(const ::testing::TestParamInfo<Case>& info)
{
    const char* kinds[] = {"Standard", "Compact", "OnDisk"};
    return std::string(kinds[info.param.kind]) + (info.param.binary ? "Binary" : "Ascii") +
           (info.param.colours ? "Colours" : "Plain");
}

INSTANTIATE_TEST_SUITE_P(AllKinds, StlRoundTrip,
                         ::testing::Values(Case{eStlStandard, true, true}, Case{eStlStandard, true, false},
                                           Case{eStlStandard, false, true}, Case{eStlStandard, false, false},
                                           Case{eStlCompact, true, true}, Case{eStlCompact, true, false},
                                           Case{eStlCompact, false, true}, Case{eStlCompact, false, false},
                                           Case{eStlOnDisk, true, true}, Case{eStlOnDisk, true, false},
                                           Case{eStlOnDisk, false, true}, Case{eStlOnDisk, false, false}),
                         Name);

TEST(StlRoundTripSurfaces, AsciiSolidPerSurfaceKeepsSurfacesAndFlags)
{
    TempDir dir;
    MStlBase original;
    std::vector<MStlSurface*> surfaces = {original.GetMainSurface(), original.AddSurface(nullptr)};
    surfaces[0]->SetName(L"upper half");
    surfaces[1]->SetName(L"lower_half");
    std::vector<std::vector<std::array<size_t, 3>>> faces(2);
    for (size_t f = 0; f < OctahedronFaces.size(); ++f)
        faces[f / 4].push_back({OctahedronFaces[f][0], OctahedronFaces[f][1], OctahedronFaces[f][2]});
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
    EXPECT_EQ(list.GetSurface(0)->GetNumberOfTriangles(), 4u);
    EXPECT_EQ(list.GetSurface(1)->GetNumberOfTriangles(), 4u);
    EXPECT_EQ(copy.NumberOfPoints(), 6u);
}

TEST(StlRoundTripSurfaces, BinaryFlagsTravelInTheHeader)
{
    TempDir dir;
    MStlBase original;
    MakeOctahedron(original, eStlStandard);
    original.GetProperties().SetIsSupport(true);
    original.GetProperties().SetIsSupposedSolid(false);
    for (bool colours : {false, true})
    {
        const std::wstring path = dir.File(colours ? "c.stl" : "p.stl").wstring();
        ASSERT_TRUE(MStlBaseFileUtilities::WriteStl(&original, path,
                                                    MStlWriteOptions(1e-4, true, colours, false), nullptr));
        MStlBase copy;
        ASSERT_TRUE(MStlBaseFileUtilities::ReadStlMM(&copy, path));
        EXPECT_TRUE(copy.GetProperties().GetIsSupport()) << colours;
        EXPECT_FALSE(copy.GetProperties().GetIsSupposedSolid()) << colours;
    }
}

// Every prefix of a written file read through the whole driver into a Standard mesh: each ends
// with true, false or the ASCII number exception, never with a crash or a sanitizer report.
void ReadEveryPrefix(const std::string& bytes, size_t& accepted)
{
    for (size_t n = 0; n <= bytes.size(); ++n)
    {
        std::istringstream stream(bytes.substr(0, n));
        MStlFileReader reader{MStlReadOptions{0, {0, 0, 0}, 10000.0}};
        MStlBase mesh;
        reader.SetInputStream(&stream);
        reader.SetTargetStl(&mesh);
        try
        {
            if (reader.Read(nullptr))
            {
                ++accepted;
                EXPECT_LE(mesh.NumberOfTriangles(), OctahedronFaces.size());
            }
        }
        catch (const std::runtime_error& e)
        {
            EXPECT_STREQ(e.what(), "Can't convert double");
        }
    }
}

TEST(StlRoundTripTruncation, EveryPrefixOfAWrittenFile)
{
    TempDir dir;
    MStlBase original;
    MakeOctahedron(original, eStlStandard);
    for (bool binary : {true, false})
    {
        const auto path = dir.File(binary ? "b.stl" : "a.stl");
        ASSERT_TRUE(MStlBaseFileUtilities::WriteStl(&original, path.wstring(),
                                                    MStlWriteOptions(1e-4, binary, true, false), nullptr));
        size_t accepted = 0;
        ReadEveryPrefix(StlBuildTest::ReadBytes(path), accepted);
        // Binary: only the whole file matches its count. ASCII: every prefix that holds "solid"
        // and the first facet phrase is read as far as its facets are complete.
        if (binary)
        {
            EXPECT_EQ(accepted, 1u);
        }
        else
        {
            EXPECT_GT(accepted, 100u);
        }
    }
}
} // namespace
