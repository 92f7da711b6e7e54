// What kelmesh says about a conversion: what the output cannot hold, and why a file was refused.
#include "../../tools/kelmesh/Conversion.h"
#include "../../tools/kelmesh/StlReadFailure.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

using namespace Kelmesh;
using namespace KelSDK::Triangles::Data;
using Lost = std::vector<std::string>;

namespace
{
// Two surfaces of one triangle each, the first coloured.
void TwoSurfaces(MStlBase& mesh)
{
    const std::vector<MStlSurface*> surfaces = {mesh.GetMainSurface(), mesh.AddSurface()};
    ASSERT_TRUE(mesh.Create({{0, 0, 0}, {10, 0, 0}, {0, 10, 0}, {0, 0, 10}}, {{{0, 1, 2}}, {{0, 3, 1}}},
                            &surfaces, nullptr, nullptr));
    mesh.GetTriangleWithIndex(0)->SetColor(MStlColor(0x123456u));
}

Output Stl(bool ascii, bool colours)
{
    Output output;
    output.stl = true;
    output.ascii = ascii;
    output.colours = colours;
    return output;
}

TEST(KelmeshConversion, WhatTheOutputCannotHoldIsNamed)
{
    MStlBase mesh;
    TwoSurfaces(mesh);
    ReadSummary coloured;
    coloured.headerColour = true;
    coloured.counts = CountMesh(mesh);
    Output refused = Stl(true, false), perSurfaceRefused = Stl(true, false);
    refused.coloursRefused = true;
    perSurfaceRefused.coloursRefused = true;
    perSurfaceRefused.solidPerSurface = true;
    const Output native;
    const std::tuple<const char*, Output, Lost> rows[] = {
        {"native", native, {}},
        {"binary with colours",
         Stl(false, true),
         {"the division into 2 solids (binary STL holds one solid)"}},
        {"ASCII",
         Stl(true, false),
         {"1 facet colour and the mesh colour and material (ASCII STL has no colours)",
          "the division into 2 solids (--solid-per-surface keeps it)"}},
        {"ASCII without colours, one solid per surface", perSurfaceRefused, {}},
        {"ASCII without colours on request",
         refused,
         {"the division into 2 solids (--solid-per-surface keeps it)"}},
    };
    for (const auto& [label, output, lost] : rows)
    {
        SCOPED_TRACE(label);
        EXPECT_EQ(WhatIsLost(mesh, coloured, output), lost);
    }
}

TEST(KelmeshConversion, NativeDataPluginSectionsAndFlagsAreNamedForStl)
{
    MStlBase mesh;
    TwoSurfaces(mesh);
    mesh.GetHistory().AddEntry(MHistoryEntry());
    mesh.GetProperties().SetIsSupport(true);
    ReadSummary input;
    input.unreadSections = {"Probe"};
    EXPECT_EQ(WhatIsLost(mesh, input, Output()),
              Lost{"plug-in section \"Probe\" (no plug-in registered for it)"});
    Output ascii = Stl(true, false);
    ascii.solidPerSurface = true;
    EXPECT_EQ(WhatIsLost(mesh, input, ascii),
              (Lost{"plug-in section \"Probe\" (no plug-in registered for it)",
                    "the mesh flags (support, solid; ASCII STL has no header)",
                    "1 history entry (STL holds triangles only)"}));
}

TEST(KelmeshConversion, ARefusedStlFileSaysWhichCaseItIs)
{
    using F = KelSDK::Triangles::IO::MStlFileReader::EFailure;
    using B = KelSDK::Triangles::IO::MStlFileReaderBinary;
    // An 84-byte binary start declaring 10 facets, after a header of the given text.
    const auto binary = [](std::string text)
    {
        text.resize(80, '\0');
        return text + std::string("\x0A\0\0\0", 4);
    };
    const std::string solidText = "solid empty\nendsolid empty\n";
    const std::tuple<const char*, F, int, std::string, uint64_t, std::string> rows[] = {
        {"empty", F::BinaryReader, B::HeaderTruncated, "", 0, "an empty file"},
        {"a solid without facets", F::BinaryReader, B::HeaderTruncated, solidText, 27,
         "begins with \"solid\" but holds no facet in its first 300 bytes, so it was read as binary: "
         "27 bytes, too short for the header and facet count of a binary STL (84 bytes)"},
        {"short", F::BinaryReader, B::StreamTooShort, binary("x"), 300,
         "a binary STL shorter than its facet count (10 facets need 584 bytes, the file has 300)"},
        {"trailing, read as a further block", F::BinaryReader, B::StreamError, binary("SOLID x"), 585,
         "begins with \"solid\" but holds no facet in its first 300 bytes, so it was read as binary: "
         "a binary STL with 1 byte after its 10 facets"},
        {"trailing", F::BinaryReader, B::SizeMismatch, binary("x"), 600,
         "a binary STL with 16 bytes after its 10 facets"},
        {"a further block that fails", F::BinaryReader, B::StreamError, binary("x"), 584,
         "a binary STL whose facets could not be read"},
        {"notes", F::BinaryReader, B::StreamTooShort, "notes\nmore notes\n", 17,
         "not an STL file: a text that neither begins with \"solid\" nor holds facets"},
        {"text without solid", F::AsciiReader, 1, "facet normal", 12,
         "an ASCII text with facets but without \"solid\""},
        {"mesh building", F::MeshBuilding, 0, "", 0, "the facets could not be made into a mesh"},
    };
    for (const auto& [label, failure, code, head, size, text] : rows)
    {
        SCOPED_TRACE(label);
        EXPECT_EQ(DescribeStlFailure(failure, code, head, size), text);
    }
}
} // namespace
