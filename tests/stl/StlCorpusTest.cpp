// Real STL files from other projects' test folders: each must read with the flavour, result code,
// solids, names and header information that the reading rules give.
#include <KelSDK/Triangles/IO/MStlFileReaderAscii.h>
#include <KelSDK/Triangles/IO/MStlFileReaderBinary.h>
#include <KelSDK/Triangles/IO/StlFileUtilities.h>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using KelSDK::Triangles::IO::MStlFileReaderAscii;
using KelSDK::Triangles::IO::MStlFileReaderBinary;
using KelSDK::Triangles::IO::MStlFileTriangle;
using KelSDK::Triangles::IO::MStlReadResults;
namespace Utilities = KelSDK::Triangles::IO::StlFileUtilities;

namespace
{
const fs::path kDataDir = fs::path(KEL_TEST_DATA_DIR) / "stl";
// The shared corpus beside the repository, when the machine has it.
const fs::path kSharedCorpus = fs::path(KEL_TEST_DATA_DIR) / ".." / ".." / ".." / "shared" / "corpus" / "stl";

struct FileRead
{
    bool ascii = false;
    int code = -1;
    std::vector<std::vector<MStlFileTriangle>> solids;
    std::vector<std::string> names;
    MStlReadResults header;
};

// Reads a file the way STL import does: detection by name, then the ASCII reader or the binary
// reader with multiple blocks and neither tolerance.
FileRead ReadFile(const fs::path& path)
{
    FileRead r;
    r.ascii = Utilities::IsAscii(path.wstring());
    std::ifstream stream;
    EXPECT_TRUE(Utilities::OpenInputFile(stream, path.wstring())) << path;
    if (r.ascii)
    {
        r.code = MStlFileReaderAscii(stream).Read(r.solids, r.names, nullptr);
    }
    else
    {
        MStlFileReaderBinary reader(stream);
        MStlFileReaderBinary::Options options;
        options.readMultipleBlocks = true;
        reader.SetOptions(options);
        MStlFileReaderBinary::FileHeader header;
        r.code = reader.Read(header, r.solids, nullptr);
        r.header = MStlFileReaderBinary::ExtractHeaderInfo(header);
    }
    return r;
}

std::vector<std::size_t> Sizes(const FileRead& r)
{
    std::vector<std::size_t> sizes;
    for (const auto& s : r.solids)
        sizes.push_back(s.size());
    return sizes;
}

struct Expectation
{
    const char* file;
    bool ascii;
    int code;
    std::vector<std::size_t> facets;
    std::vector<std::string> names; // ASCII only
};

void Check(const fs::path& dir, const Expectation& e)
{
    SCOPED_TRACE(e.file);
    const FileRead r = ReadFile(dir / e.file);
    EXPECT_EQ(r.ascii, e.ascii);
    EXPECT_EQ(r.code, e.code);
    EXPECT_EQ(Sizes(r), e.facets);
    if (e.ascii)
    {
        EXPECT_EQ(r.names, e.names);
    }
    for (const auto& solid : r.solids)
        for (const MStlFileTriangle& f : solid)
            ASSERT_TRUE(f.IsValid() || !e.ascii) << "ASCII solids hold valid facets only";
}
} // namespace

TEST(StlCorpus, CopiedFiles)
{
    const std::vector<Expectation> table = {
        // "endsolid" without the name does not close a named solid: the text after it, a second
        // "solid" included, runs on into the first solid.
        {"assimp__triangle.stl", true, 0, {1}, {"testTriangle"}},
        {"assimp__triangle_with_empty_solid.stl", true, 0, {1}, {"testTriangle"}},
        {"assimp__triangle_with_two_solids.stl", true, 0, {2}, {"testTriangle_1"}},
        {"assimp__sphereWithHole.stl", true, 0, {285}, {"tinysphere_withhole"}},
        {"assimp__Spider_ascii.stl", true, 0, {1368}, {"NoName_1"}},
        {"assimp__Spider_binary.stl", false, 0, {1368}, {}},
        // A blank before "solid" and CRLF line ends; detected by the phrases after byte 80.
        {"numpystl__stl_ascii_Cube.stl", true, 0, {12}, {"PRO2STL"}},
        {"numpystl__stl_ascii_HalfDonut.stl", true, 0, {288}, {"HalfDonut.stl"}},
        {"numpystl__stl_ascii_Moon_Chinese.stl", true, 0, {116}, {"\xE6\x9C\x88\xE7\x90\x83"}},
        {"numpystl__stl_binary_Cube.stl", false, 0, {12}, {}},
        {"numpystl__stl_binary_CubeInvalidUnicode.stl", false, 0, {12}, {}},
        // A binary header that starts with "solid", and one byte after the last facet: the byte
        // cannot hold a further count.
        {"numpystl__stl_binary_HalfDonut.stl", false, MStlFileReaderBinary::StreamError, {}, {}},
        {"numpystl__stl_binary_Star.stl", false, 0, {68}, {}},
        {"numpystl__stl_binary_StarWithEmptyHeader.stl", false, 0, {68}, {}},
        {"numpystl__stl_tests_triamid.stl", false, 0, {10}, {}},
        {"derived/spider_binary_truncated_midfacet.stl", false, MStlFileReaderBinary::StreamTooShort, {}, {}},
        {"derived/star_binary_count_too_large.stl", false, MStlFileReaderBinary::StreamTooShort, {}, {}},
        {"derived/star_binary_count_too_small.stl", false, MStlFileReaderBinary::SizeMismatch, {}, {}},
        {"derived/spherewithhole_ascii_truncated.stl", true, 0, {142}, {"tinysphere_withhole"}},
        {"derived/binary_zero_facets.stl", false, 0, {0}, {}},
        {"derived/empty_file.stl", false, MStlFileReaderBinary::HeaderTruncated, {}, {}},
        {"derived/star_binary_COLOR_MATERIAL_header.stl", false, 0, {68}, {}},
        {"derived/star_binary_bit15_valid_colours.stl", false, 0, {68}, {}},
    };
    for (const Expectation& e : table)
        Check(kDataDir, e);
}

TEST(StlCorpus, AsciiAndBinaryTwinsAgree)
{
    const FileRead ascii = ReadFile(kDataDir / "assimp__Spider_ascii.stl");
    const FileRead binary = ReadFile(kDataDir / "assimp__Spider_binary.stl");
    ASSERT_EQ(Sizes(ascii), Sizes(binary));
    const auto& a = ascii.solids.at(0);
    const auto& b = binary.solids.at(0);
    for (std::size_t i = 0; i < a.size(); ++i)
    {
        for (std::size_t corner = 0; corner < 3; ++corner)
        {
            for (std::size_t axis = 0; axis < 3; ++axis)
            {
                const double x = a[i].GetVertex(corner)[axis];
                const double y = b[i].GetVertex(corner)[axis];
                ASSERT_NEAR(x, y, 1e-5 * std::max(1.0, std::fabs(x))) << "facet " << i;
            }
        }
    }
}

TEST(StlCorpus, HeaderInformation)
{
    FileRead r = ReadFile(kDataDir / "derived/star_binary_COLOR_MATERIAL_header.stl");
    EXPECT_TRUE(r.header.hasColor);
    EXPECT_EQ(r.header.material.GetRGB(), 0xFF3264C8u);
    EXPECT_EQ(r.header.material.GetDiffuse(), 0xFF3264C8u);
    EXPECT_EQ(r.header.material.GetSpecular(), 0xFF3264C8u);
    EXPECT_EQ(r.header.material.GetAmbient(), 0xFF3264C8u);
    EXPECT_TRUE(r.header.material.GetColorIsReadFromFile());
    ASSERT_EQ(r.solids.at(0).size(), 68u);
    EXPECT_EQ(r.solids[0][0].GetAttribute(), 0x001F);
    EXPECT_EQ(r.solids[0][1].GetAttribute(), 0x03E0);
    EXPECT_EQ(r.solids[0][2].GetAttribute(), 0x8000);

    r = ReadFile(kDataDir / "derived/star_binary_bit15_valid_colours.stl");
    EXPECT_FALSE(r.header.hasColor);
    ASSERT_EQ(r.solids.at(0).size(), 68u);
    for (std::size_t i = 0; i < 68; ++i)
        ASSERT_EQ(r.solids[0][i].GetAttribute(), i % 2 == 0 ? 0xFC00 : 0) << i;

    // Headers that are plain text, blanks or invalid UTF-8 carry no colour.
    for (const char* file : {"numpystl__stl_binary_Cube.stl", "numpystl__stl_binary_CubeInvalidUnicode.stl",
                             "numpystl__stl_binary_StarWithEmptyHeader.stl", "assimp__Spider_binary.stl"})
    {
        r = ReadFile(kDataDir / file);
        EXPECT_FALSE(r.header.hasColor) << file;
        EXPECT_TRUE(r.header.isSupposedSolid) << file;
    }
}

TEST(StlCorpus, VerifyHeaderConsistencyOnFiles)
{
    EXPECT_TRUE(Utilities::VerifyHeaderConsistency((kDataDir / "numpystl__stl_binary_Star.stl").wstring()));
    EXPECT_TRUE(Utilities::VerifyHeaderConsistency((kDataDir / "numpystl__stl_ascii_Cube.stl").wstring()));
    EXPECT_FALSE(
        Utilities::VerifyHeaderConsistency((kDataDir / "numpystl__stl_binary_HalfDonut.stl").wstring()));
    EXPECT_FALSE(
        Utilities::VerifyHeaderConsistency((kDataDir / "derived/star_binary_count_too_small.stl").wstring()));
    EXPECT_FALSE(Utilities::VerifyHeaderConsistency(
        (kDataDir / "derived/spider_binary_truncated_midfacet.stl").wstring()));
    EXPECT_FALSE(Utilities::VerifyHeaderConsistency((kDataDir / "derived/empty_file.stl").wstring()));
}

// The larger files of the shared corpus (and the GPL-licensed ones, which stay out of the
// repository) are read from beside the repository when they are there.
TEST(StlCorpus, SharedCorpusBesideTheRepository)
{
    if (!fs::exists(kSharedCorpus / "LIST.txt"))
        GTEST_SKIP() << "no shared corpus at " << kSharedCorpus;
    const std::vector<Expectation> table = {
        {"assimp__3DSMaxExport.STL", false, 0, {2000}, {}},
        {"assimp__Wuson.stl", false, 0, {3732}, {}},
        {"numpystl__stl_binary_rear_case.stl", false, 0, {18808}, {}},
        {"numpystl__stl_tests_bwb.stl", true, 0, {4464}, {"\"bwb\""}},
        {"admesh__examples_block.stl", true, 0, {12}, {"Untitled1"}},
        {"admesh__examples_hourglass.stl", true, 0, {2146}, {"Created"}},
        {"admesh__test_block_basic.stl", true, 0, {12}, {"Processed"}},
        {"admesh__test_block_binary.stl", false, 0, {12}, {}},
        {"admesh__test_block_exact-bad.stl", true, 0, {12}, {"Processed"}},
        {"admesh__test_block_nearby-bad.stl", true, 0, {12}, {"Processed"}},
        {"admesh__test_block_fill-holes-bad.stl", true, 0, {11}, {"Processed"}},
    };
    for (const Expectation& e : table)
        Check(kSharedCorpus, e);

    const FileRead wuson = ReadFile(kSharedCorpus / "assimp__Wuson.stl");
    EXPECT_FALSE(wuson.header.hasColor);
    for (const MStlFileTriangle& f : wuson.solids.at(0))
        ASSERT_EQ(f.GetAttribute(), 0x2020);
}
