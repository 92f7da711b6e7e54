#include "StlBuildTestSupport.h"

#include <KelSDK/Common/InternalUnits.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlBaseFileUtilities.h>
#include <KelSDK/Triangles/IO/MStlFileReader.h>

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>

using namespace KelSDK::Triangles::Data;
using namespace KelSDK::Triangles::IO;
using StlBuildTest::Facet;
using StlBuildTest::TempDir;

namespace
{
using Point = KelSDK::Math::point<double, 3>;

std::string AsciiSolid(const std::string& name, const std::string& facets)
{
    return "solid " + name + "\n" + facets + "endsolid " + name + "\n";
}

std::string AsciiFacet(const char* a, const char* b, const char* c)
{
    return std::string("facet normal 0 0 1\n outer loop\n  vertex ") + a + "\n  vertex " + b + "\n  vertex " +
           c + "\n endloop\nendfacet\n";
}

// A binary STL: the header padded with spaces, then one block per list (count and facets).
std::string BinaryStl(const std::string& header, const std::vector<std::vector<MStlFileTriangle>>& blocks)
{
    std::string bytes(80, ' ');
    std::memcpy(&bytes[0], header.data(), std::min<size_t>(header.size(), 80));
    for (const auto& block : blocks)
    {
        const uint32_t count = static_cast<uint32_t>(block.size());
        char word[4];
        std::memcpy(word, &count, 4);
        bytes.append(word, 4);
        for (const MStlFileTriangle& f : block)
        {
            unsigned char facet[50];
            f.EncodeBinary(facet);
            bytes.append(reinterpret_cast<const char*>(facet), 50);
        }
    }
    return bytes;
}

std::string Word(uint32_t v)
{
    return std::string(reinterpret_cast<const char*>(&v), 4);
}

TEST(MStlFileReader, NeedsAnInput)
{
    MStlFileReader reader{MStlReadOptions()};
    MStlBase mesh;
    reader.SetTargetStl(&mesh);
    EXPECT_FALSE(reader.Read(nullptr));
    reader.SetFileName(L"/nonexistent/kel/none.stl");
    EXPECT_FALSE(reader.Read(nullptr));
    std::istringstream failed("solid x\n");
    failed.setstate(std::ios::failbit);
    reader.SetInputStream(&failed);
    EXPECT_FALSE(reader.Read(nullptr));
}

TEST(MStlFileReader, WithoutTargetOnlyMeasures)
{
    std::istringstream text(AsciiSolid("s", AsciiFacet("1 -2 3", "4 5 -6", "0 0 0")));
    MStlFileReader reader{MStlReadOptions{1, {100, 100, 100}, 1000.0}};
    reader.SetInputStream(&text);
    ASSERT_TRUE(reader.Read(nullptr));
    EXPECT_TRUE(reader.WasAscii());
    EXPECT_EQ(reader.GetNumberOfFacets(), 1u);
    EXPECT_EQ(reader.GetBoundingBox().GetMin(), Point(0, -2, -6));
    EXPECT_EQ(reader.GetBoundingBox().GetMax(), Point(4, 5, 3));
    EXPECT_EQ(reader.GetReadTransformation().offset, Point(0, 0, 0));
    EXPECT_EQ(reader.GetReadTransformation().scale, 1.0);
}

TEST(MStlFileReader, CentresOnTheReferencePoint)
{
    std::istringstream text(AsciiSolid("s", AsciiFacet("10 10 10", "20 10 10", "20 20 20")));
    MStlFileReader reader{MStlReadOptions{1, {0, 0, 0}, 1.0}};
    MStlBase mesh;
    reader.SetInputStream(&text);
    reader.SetTargetStl(&mesh);
    ASSERT_TRUE(reader.Read(nullptr));
    EXPECT_EQ(reader.GetReadTransformation().offset, Point(-15, -15, -15));
    const auto& first = *mesh.Triangles().begin();
    EXPECT_EQ(first.GetPoint(0)->GetX(), -5);
    EXPECT_EQ(first.GetPoint(2)->GetZ(), 5);
}

TEST(MStlFileReader, SuggestedTransformationFitsAHugeBox)
{
    std::istringstream text(AsciiSolid("s", AsciiFacet("0 0 0", "3e9 0 0", "0 3e9 3e9")));
    MStlFileReader reader{MStlReadOptions{2, {0, 0, 0}, 1000.0}};
    MStlBase mesh;
    reader.SetInputStream(&text);
    reader.SetTargetStl(&mesh);
    ASSERT_TRUE(reader.Read(nullptr));
    EXPECT_EQ(reader.GetReadTransformation().offset, Point(-1.5e9, -1.5e9, -1.5e9));
    EXPECT_EQ(reader.GetReadTransformation().scale, 1.0);
    EXPECT_FALSE(reader.GetResults().isOverflow);
    EXPECT_EQ(mesh.NumberOfTriangles(), 1u);

    // The same box without the suggestion overflows, and the mesh is built all the same.
    std::istringstream again(text.str());
    MStlFileReader plain{MStlReadOptions{0, {0, 0, 0}, 1000.0}};
    MStlBase other;
    plain.SetInputStream(&again);
    plain.SetTargetStl(&other);
    ASSERT_TRUE(plain.Read(nullptr));
    EXPECT_TRUE(plain.GetResults().isOverflow);
    EXPECT_EQ(other.NumberOfTriangles(), 1u);
}

TEST(MStlFileReader, OverflowBoundaries)
{
    // Upper bound 2147483646, lower bound -2147483647 (per unit of scale).
    const struct
    {
        const char* x;
        bool overflow;
    } cases[] = {
        {"2147483646", false}, {"2147483646.5", true}, {"-2147483647", false}, {"-2147483647.5", true}};
    for (const auto& c : cases)
    {
        std::istringstream text(
            AsciiSolid("s", AsciiFacet((std::string(c.x) + " 0 0").c_str(), "0 1 0", "0 0 1")));
        MStlFileReader reader{MStlReadOptions{0, {0, 0, 0}, 1.0}};
        MStlBase mesh;
        reader.SetInputStream(&text);
        reader.SetTargetStl(&mesh);
        ASSERT_TRUE(reader.Read(nullptr)) << c.x;
        EXPECT_EQ(reader.GetResults().isOverflow, c.overflow) << c.x;
    }
}

TEST(MStlFileReader, AsciiInputKeepsMaterialAndProperties)
{
    MStlBase mesh;
    MStlMaterial material;
    material.SetRGB(0x11223344u);
    mesh.SetMaterial(material);
    mesh.GetProperties().SetIsSupport(true);
    mesh.GetProperties().SetIsSupposedSolid(false);
    std::istringstream text(AsciiSolid("s", AsciiFacet("0 0 0", "1 0 0", "0 1 0")));
    MStlFileReader reader{MStlReadOptions()};
    reader.SetInputStream(&text);
    reader.SetTargetStl(&mesh);
    ASSERT_TRUE(reader.Read(nullptr));
    EXPECT_EQ(mesh.GetMaterial(), material);
    EXPECT_TRUE(mesh.GetProperties().GetIsSupport());
    EXPECT_FALSE(mesh.GetProperties().GetIsSupposedSolid());
    EXPECT_FALSE(reader.GetResults().hasColor);
}

TEST(MStlFileReader, BinaryHeaderColourMaterialAndFlags)
{
    const std::string header =
        "COLOR=" + Word(0xFF3264C8u) + ",MATERIAL=" + Word(1) + Word(2) + Word(3) + Word(4) + ";ISSUP;FACES";
    const std::vector<std::vector<MStlFileTriangle>> blocks = {
        {Facet({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 0x001F), Facet({1, 0, 0}, {1, 1, 0}, {0, 1, 0}, 0x8000)}};
    std::istringstream bytes(BinaryStl(header, blocks));
    MStlBase mesh;
    MStlFileReader reader{MStlReadOptions()};
    reader.SetInputStream(&bytes);
    reader.SetTargetStl(&mesh);
    ASSERT_TRUE(reader.Read(nullptr));
    EXPECT_FALSE(reader.WasAscii());
    const MStlReadResults results = reader.GetResults();
    EXPECT_TRUE(results.hasColor);
    EXPECT_EQ(mesh.GetMaterial().GetRGB(), 0xFF3264C8u);
    EXPECT_EQ(mesh.GetMaterial().GetDiffuse(), 1u);
    EXPECT_TRUE(mesh.GetMaterial().GetColorIsReadFromFile());
    EXPECT_TRUE(mesh.GetProperties().GetIsSupport());
    EXPECT_FALSE(mesh.GetProperties().GetIsSupposedSolid());
    const auto triangles = StlBuildTest::TrianglesOf(mesh);
    ASSERT_EQ(triangles.size(), 2u);
    EXPECT_EQ(triangles[0]->GetColor(), MStlColor::ConvertFrom16BitValue(0x001F));
    EXPECT_FALSE(triangles[1]->GetColor().IsDefined());
}

TEST(MStlFileReader, BinaryWithoutHeaderColourIgnoresAttributeWords)
{
    // Attribute words of two blanks, as some exporters write them: not colours without "COLOR=".
    const std::vector<std::vector<MStlFileTriangle>> blocks = {
        {Facet({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 0x2020)}};
    std::istringstream bytes(BinaryStl("exported by someone", blocks));
    MStlBase mesh;
    MStlFileReader reader{MStlReadOptions()};
    reader.SetInputStream(&bytes);
    reader.SetTargetStl(&mesh);
    ASSERT_TRUE(reader.Read(nullptr));
    EXPECT_FALSE(reader.GetResults().hasColor);
    ASSERT_EQ(mesh.NumberOfTriangles(), 1u);
    EXPECT_FALSE(mesh.Triangles().begin()->GetColor().IsDefined());
    EXPECT_FALSE(mesh.GetMaterial().GetColorIsReadFromFile());
    // A header without flags leaves the defaults.
    EXPECT_TRUE(mesh.GetProperties().GetIsSupposedSolid());
}

TEST(MStlFileReader, BinaryBlocksBecomeSurfaces)
{
    const std::vector<std::vector<MStlFileTriangle>> blocks = {
        {Facet({0, 0, 0}, {1, 0, 0}, {0, 1, 0}), Facet({1, 0, 0}, {1, 1, 0}, {0, 1, 0})},
        {Facet({0, 0, 1}, {1, 0, 1}, {0, 1, 1})}};
    std::istringstream bytes(BinaryStl("", blocks));
    MStlBase mesh;
    MStlFileReader reader{MStlReadOptions()};
    reader.SetInputStream(&bytes);
    reader.SetTargetStl(&mesh);
    ASSERT_TRUE(reader.Read(nullptr));
    EXPECT_EQ(reader.GetNumberOfFacets(), 3u);
    ASSERT_EQ(mesh.GetSurfaceList().GetNumSurfaces(false), 2u);
    EXPECT_EQ(mesh.GetSurfaceList().GetSurface(0)->GetNumberOfTriangles(), 2u);
    EXPECT_EQ(mesh.GetSurfaceList().GetSurface(1)->GetNumberOfTriangles(), 1u);

    // A stream one byte short of its count is refused.
    std::string cut = BinaryStl("", {blocks[0]});
    cut.pop_back();
    std::istringstream truncated(cut);
    MStlBase none;
    MStlFileReader failing{MStlReadOptions()};
    failing.SetInputStream(&truncated);
    failing.SetTargetStl(&none);
    EXPECT_FALSE(failing.Read(nullptr));
    EXPECT_EQ(none.NumberOfTriangles(), 0u);
}

TEST(MStlFileReader, ReadStlMMMapsMillimetresOntoTheGrid)
{
    TempDir dir;
    const auto path = dir.File("mm.stl");
    StlBuildTest::WriteBytes(path, AsciiSolid("part", AsciiFacet("1.5 0 0", "0 -2.25 0", "0 0 0.00005")));
    MStlBase mesh;
    ASSERT_TRUE(MStlBaseFileUtilities::ReadStlMM(&mesh, path.wstring()));
    const double steps = KelSDK::Common::MInternalUnits::Get();
    const auto corners = StlBuildTest::Corners(*mesh.Triangles().begin());
    EXPECT_EQ(corners[0][0], static_cast<int>(1.5 * steps));
    EXPECT_EQ(corners[1][1], static_cast<int>(-2.25 * steps));
    EXPECT_EQ(corners[2][2], static_cast<int>(std::lround(0.00005 * steps)));
    EXPECT_EQ(mesh.GetMainSurface()->GetName(), L"part");
}

TEST(MStlFileReader, BadNumbersEscapeAsExceptions)
{
    TempDir dir;
    const auto path = dir.File("bad.stl");
    StlBuildTest::WriteBytes(path, AsciiSolid("s", AsciiFacet("1 2 x", "0 0 0", "1 1 1")));
    MStlBase mesh;
    try
    {
        MStlBaseFileUtilities::ReadStl(&mesh, path.wstring(), MStlReadOptions(), nullptr);
        FAIL() << "no exception";
    }
    catch (const std::runtime_error& e)
    {
        EXPECT_STREQ(e.what(), "Can't convert double");
    }
}

TEST(MStlFileReader, TextWithoutSolidIsRefused)
{
    TempDir dir;
    const auto path = dir.File("nosolid.stl");
    // Recognised as ASCII by its phrases, but there is no "solid" keyword.
    StlBuildTest::WriteBytes(path, std::string(90, ' ') + AsciiFacet("0 0 0", "1 0 0", "0 1 0"));
    MStlBase mesh;
    EXPECT_FALSE(MStlBaseFileUtilities::ReadStl(&mesh, path.wstring(), MStlReadOptions(), nullptr));
    EXPECT_EQ(mesh.NumberOfTriangles(), 0u);
}
} // namespace
