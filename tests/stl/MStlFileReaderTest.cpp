#include "StlBuildTestSupport.h"

#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlFileReader.h>

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>

using namespace KelSDK::Triangles::Data;
using namespace KelSDK::Triangles::IO;
using StlBuildTest::Facet;
using StlBuildTest::Facets;

namespace
{
using Point = KelSDK::Math::point<double, 3>;

std::string AsciiFacet(const std::string& a, const char* b, const char* c)
{
    return "facet normal 0 0 1\n outer loop\n  vertex " + a + "\n  vertex " + b + "\n  vertex " + c +
           "\n endloop\nendfacet\n";
}

// One solid of one facet with the three corners.
std::string Ascii(const std::string& name, const std::string& a, const char* b, const char* c)
{
    return "solid " + name + "\n" + AsciiFacet(a, b, c) + "endsolid " + name + "\n";
}

std::string Word(uint32_t v)
{
    return std::string(reinterpret_cast<const char*>(&v), 4);
}

// A binary STL: the header padded with spaces, then one block per list (count and facets).
std::string BinaryStl(const std::string& header, const Facets& blocks)
{
    std::string bytes(80, ' ');
    std::memcpy(&bytes[0], header.data(), std::min<size_t>(header.size(), 80));
    for (const auto& block : blocks)
    {
        bytes += Word(static_cast<uint32_t>(block.size()));
        for (const MStlFileTriangle& f : block)
        {
            unsigned char facet[50];
            f.EncodeBinary(facet);
            bytes.append(reinterpret_cast<const char*>(facet), 50);
        }
    }
    return bytes;
}

// Reads the bytes through a reader of its own into a mesh of its own (or only measures them); prepare
// sets the mesh up first.
struct Reading
{
    Reading(const std::string& bytes, const MStlReadOptions& options = MStlReadOptions(),
            bool measureOnly = false, void (*prepare)(MStlBase&) = nullptr)
        : reader(options)
    {
        if (prepare != nullptr)
            prepare(mesh);
        std::istringstream stream(bytes);
        reader.SetInputStream(&stream);
        reader.SetTargetStl(measureOnly ? nullptr : &mesh);
        ok = reader.Read(nullptr);
    }
    MStlFileReader reader;
    MStlBase mesh;
    bool ok = false;
};

TEST(MStlFileReader, InputsThatCannotBeRead)
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
    // Recognised as ASCII by its phrases, but there is no "solid" keyword.
    EXPECT_FALSE(Reading(std::string(90, ' ') + AsciiFacet("0 0 0", "1 0 0", "0 1 0")).ok);
    // A binary stream one byte short of its count.
    std::string cut = BinaryStl("", {{Facet({0, 0, 0}, {1, 0, 0}, {0, 1, 0})}});
    cut.pop_back();
    const Reading truncated(cut);
    EXPECT_FALSE(truncated.ok);
    EXPECT_EQ(truncated.mesh.NumberOfTriangles(), 0u);
    // A bad number escapes as the documented exception.
    try
    {
        Reading(Ascii("s", "1 2 x", "0 0 0", "1 1 1"));
        FAIL() << "no exception";
    }
    catch (const std::runtime_error& e)
    {
        EXPECT_STREQ(e.what(), "Can't convert double");
    }
}

TEST(MStlFileReader, MeasuresWithoutTargetAndCentres)
{
    const Reading measured(Ascii("s", "1 -2 3", "4 5 -6", "0 0 0"),
                           MStlReadOptions{1, {100, 100, 100}, 1000.0}, true);
    ASSERT_TRUE(measured.ok);
    EXPECT_TRUE(measured.reader.WasAscii());
    EXPECT_EQ(measured.reader.GetBoundingBox().GetMin(), Point(0, -2, -6));
    EXPECT_EQ(measured.reader.GetBoundingBox().GetMax(), Point(4, 5, 3));
    EXPECT_EQ(measured.reader.GetReadTransformation().offset, Point(0, 0, 0));
    EXPECT_EQ(measured.reader.GetReadTransformation().scale, 1.0);

    const Reading centred(Ascii("s", "10 10 10", "20 10 10", "20 20 20"), MStlReadOptions{1, {0, 0, 0}, 1.0});
    ASSERT_TRUE(centred.ok);
    EXPECT_EQ(centred.reader.GetReadTransformation().offset, Point(-15, -15, -15));
    EXPECT_EQ(StlBuildTest::Corners(*centred.mesh.Triangles().begin())[2][2], 5);
}

TEST(MStlFileReader, OverflowBoundariesAndTheSuggestedTransformation)
{
    // Upper bound 2147483646, lower bound -2147483647 (per unit of scale).
    const std::pair<const char*, bool> cases[] = {
        {"2147483646", false}, {"2147483646.5", true}, {"-2147483647", false}, {"-2147483647.5", true}};
    for (const auto& [x, overflow] : cases)
    {
        Reading run(Ascii("s", x + std::string(" 0 0"), "0 1 0", "0 0 1"),
                    MStlReadOptions{0, {0, 0, 0}, 1.0});
        ASSERT_TRUE(run.ok) << x;
        EXPECT_EQ(run.reader.GetResults().isOverflow, overflow) << x;
    }
    // A huge box fits with the suggested transformation; without it, it overflows and is built all the same.
    const std::string huge = Ascii("s", "0 0 0", "3e9 0 0", "0 3e9 3e9");
    Reading suggested(huge, MStlReadOptions{2, {0, 0, 0}, 1000.0}),
        plain(huge, MStlReadOptions{0, {0, 0, 0}, 1000.0});
    ASSERT_TRUE(suggested.ok && plain.ok);
    EXPECT_EQ(suggested.reader.GetReadTransformation().offset, Point(-1.5e9, -1.5e9, -1.5e9));
    EXPECT_EQ(suggested.reader.GetReadTransformation().scale, 1.0);
    EXPECT_FALSE(suggested.reader.GetResults().isOverflow);
    EXPECT_TRUE(plain.reader.GetResults().isOverflow);
    EXPECT_EQ(suggested.mesh.NumberOfTriangles(), 1u);
    EXPECT_EQ(plain.mesh.NumberOfTriangles(), 1u);
}

TEST(MStlFileReader, HeaderColourMaterialAndFlags)
{
    // Two blocks (count and facets each) become two surfaces; the round trips cover colours and flags.
    const Facets blocks = {{Facet({0, 0, 0}, {1, 0, 0}, {0, 1, 0}), Facet({1, 0, 0}, {1, 1, 0}, {0, 1, 0})},
                           {Facet({0, 0, 1}, {1, 0, 1}, {0, 1, 1})}};
    const std::string header =
        "COLOR=" + Word(0xFF3264C8u) + ",MATERIAL=" + Word(1) + Word(2) + Word(3) + Word(4) + ";ISSUP;FACES";
    Reading coloured(BinaryStl(header, blocks));
    ASSERT_TRUE(coloured.ok);
    EXPECT_FALSE(coloured.reader.WasAscii());
    EXPECT_EQ(coloured.reader.GetNumberOfFacets(), 3u);
    ASSERT_EQ(coloured.mesh.GetSurfaceList().GetNumSurfaces(false), 2u);
    EXPECT_EQ(coloured.mesh.GetSurfaceList().GetSurface(0)->GetNumberOfTriangles(), 2u);
    EXPECT_EQ(coloured.mesh.GetSurfaceList().GetSurface(1)->GetNumberOfTriangles(), 1u);
    EXPECT_TRUE(coloured.reader.GetResults().hasColor);
    EXPECT_EQ(coloured.mesh.GetMaterial().GetRGB(), 0xFF3264C8u);
    EXPECT_EQ(coloured.mesh.GetMaterial().GetDiffuse(), 1u);
    EXPECT_TRUE(coloured.mesh.GetProperties().GetIsSupport());

    // Attribute words of two blanks, as some exporters write them: not colours without "COLOR=";
    // a header without flags leaves the defaults.
    Reading plain(BinaryStl("exported by someone", {{Facet({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 0x2020)}}));
    ASSERT_TRUE(plain.ok);
    EXPECT_FALSE(plain.reader.GetResults().hasColor);
    ASSERT_EQ(plain.mesh.NumberOfTriangles(), 1u);
    EXPECT_FALSE(plain.mesh.Triangles().begin()->GetColor().IsDefined());
    EXPECT_TRUE(plain.mesh.GetProperties().GetIsSupposedSolid());

    // ASCII input keeps the material and flags the mesh had.
    Reading ascii(Ascii("s", "0 0 0", "1 0 0", "0 1 0"), MStlReadOptions(), false,
                  [](MStlBase& mesh)
                  {
                      MStlMaterial material;
                      material.SetRGB(0x11223344u);
                      mesh.SetMaterial(material);
                      mesh.GetProperties().SetIsSupport(true);
                  });
    ASSERT_TRUE(ascii.ok);
    EXPECT_EQ(ascii.mesh.GetMaterial().GetRGB(), 0x11223344u);
    EXPECT_TRUE(ascii.mesh.GetProperties().GetIsSupport());
}
} // namespace
