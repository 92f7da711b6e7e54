// Real STL files from other projects' test folders read as the reading rules say; every prefix and
// bit-flipped copies of some of them end with a defined result (a code, or the number error).
#include <KelSDK/Triangles/IO/MStlFileReaderAscii.h>
#include <KelSDK/Triangles/IO/MStlFileReaderBinary.h>
#include <KelSDK/Triangles/IO/StlFileUtilities.h>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using KelSDK::Triangles::IO::MStlFileReaderAscii;
using KelSDK::Triangles::IO::MStlFileReaderBinary;
using KelSDK::Triangles::IO::MStlFileTriangle;
using KelSDK::Triangles::IO::MStlReadResults;
using Options = MStlFileReaderBinary::Options;
namespace Utilities = KelSDK::Triangles::IO::StlFileUtilities;

namespace
{
const fs::path kDataDir = fs::path(KEL_TEST_DATA_DIR) / "stl";

struct Read
{
    bool ascii = false;
    int code = -1; // -1 for the number error of the ASCII reader
    std::vector<std::vector<MStlFileTriangle>> solids;
    std::vector<std::string> names;
    MStlReadResults header;
    std::vector<MStlFileTriangle> All() const
    {
        std::vector<MStlFileTriangle> all;
        for (const auto& s : solids)
            all.insert(all.end(), s.begin(), s.end());
        return all;
    }
};

// STL import reads binary files with multiple blocks and neither tolerance.
Options MakeOptions(bool multiple, bool tolerant)
{
    Options o;
    o.readMultipleBlocks = multiple;
    o.countFromFileSize = o.allowTrailingBytes = tolerant;
    return o;
}
const Options kImport = MakeOptions(true, false);

Read ReadStream(std::istream& stream, bool ascii, const Options& options = kImport)
{
    Read r;
    r.ascii = ascii;
    if (ascii)
    {
        try
        {
            r.code = MStlFileReaderAscii(stream).Read(r.solids, r.names, nullptr);
        }
        catch (const std::runtime_error& e)
        {
            EXPECT_STREQ(e.what(), "Can't convert double");
        }
        return r;
    }
    MStlFileReaderBinary reader(stream);
    reader.SetOptions(options);
    MStlFileReaderBinary::FileHeader header;
    r.code = reader.Read(header, r.solids, nullptr);
    r.header = MStlFileReaderBinary::ExtractHeaderInfo(header);
    return r;
}

Read ReadBytes(const std::string& bytes, bool ascii, const Options& options = kImport)
{
    std::istringstream stream(bytes);
    return ReadStream(stream, ascii, options);
}

// Reads a file the way STL import does: detection by name, then the reader of that flavour.
Read ReadFile(const fs::path& path)
{
    std::ifstream stream;
    EXPECT_TRUE(Utilities::OpenInputFile(stream, path.wstring())) << path;
    return ReadStream(stream, Utilities::IsAscii(path.wstring()));
}

std::string Load(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.good()) << path;
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool SameFacet(const MStlFileTriangle& a, const MStlFileTriangle& b)
{
    return a.GetVertex(0) == b.GetVertex(0) && a.GetVertex(1) == b.GetVertex(1) &&
           a.GetVertex(2) == b.GetVertex(2) && a.GetAttribute() == b.GetAttribute();
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
    const Read r = ReadFile(dir / e.file);
    EXPECT_EQ(r.ascii, e.ascii);
    EXPECT_EQ(r.code, e.code);
    std::vector<std::size_t> sizes;
    for (const auto& s : r.solids)
        sizes.push_back(s.size());
    EXPECT_EQ(sizes, e.facets);
    EXPECT_EQ(r.names, e.names);
    // The size walk agrees with the binary reader, and ASCII is always consistent.
    EXPECT_EQ(Utilities::VerifyHeaderConsistency((dir / e.file).wstring()), e.ascii || e.code == 0);
    for (const MStlFileTriangle& f : r.All())
        ASSERT_TRUE(f.IsValid() || !e.ascii) << "ASCII solids hold valid facets only";
}
} // namespace

TEST(StlCorpus, CopiedFiles)
{
    const int tooShort = MStlFileReaderBinary::StreamTooShort;
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
        // A binary header that starts with "solid", and one byte after the last facet that cannot
        // hold a further count.
        {"numpystl__stl_binary_HalfDonut.stl", false, MStlFileReaderBinary::StreamError, {}, {}},
        {"numpystl__stl_binary_Star.stl", false, 0, {68}, {}},
        {"numpystl__stl_binary_StarWithEmptyHeader.stl", false, 0, {68}, {}},
        {"numpystl__stl_tests_triamid.stl", false, 0, {10}, {}},
        {"derived/spider_binary_truncated_midfacet.stl", false, tooShort, {}, {}},
        {"derived/star_binary_count_too_large.stl", false, tooShort, {}, {}},
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
    const std::vector<MStlFileTriangle> a = ReadFile(kDataDir / "assimp__Spider_ascii.stl").All();
    const std::vector<MStlFileTriangle> b = ReadFile(kDataDir / "assimp__Spider_binary.stl").All();
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t i = 0; i < a.size(); ++i)
        for (std::size_t corner = 0; corner < 3; ++corner)
            for (std::size_t axis = 0; axis < 3; ++axis)
            {
                const double x = a[i].GetVertex(corner)[axis];
                ASSERT_NEAR(x, b[i].GetVertex(corner)[axis], 1e-5 * std::max(1.0, std::fabs(x)))
                    << "facet " << i;
            }
}

TEST(StlCorpus, HeaderInformation)
{
    Read r = ReadFile(kDataDir / "derived/star_binary_COLOR_MATERIAL_header.stl");
    EXPECT_TRUE(r.header.hasColor);
    EXPECT_TRUE(r.header.material.GetColorIsReadFromFile());
    for (uint32_t word : {r.header.material.GetRGB(), r.header.material.GetDiffuse(),
                          r.header.material.GetSpecular(), r.header.material.GetAmbient()})
        EXPECT_EQ(word, 0xFF3264C8u);
    ASSERT_EQ(r.solids.at(0).size(), 68u);
    EXPECT_EQ(r.solids[0][0].GetAttribute(), 0x001F);
    EXPECT_EQ(r.solids[0][1].GetAttribute(), 0x03E0);
    EXPECT_EQ(r.solids[0][2].GetAttribute(), 0x8000);

    r = ReadFile(kDataDir / "derived/star_binary_bit15_valid_colours.stl");
    EXPECT_FALSE(r.header.hasColor);
    ASSERT_EQ(r.solids.at(0).size(), 68u);
    for (std::size_t i = 0; i < 68; ++i)
        ASSERT_EQ(r.solids[0][i].GetAttribute(), i % 2 == 0 ? 0xFC00 : 0) << i;
}

TEST(StlTruncation, EveryPrefixOfBinaryFiles)
{
    for (const char* name : {"numpystl__stl_tests_triamid.stl", "numpystl__stl_binary_Cube.stl"})
    {
        SCOPED_TRACE(name);
        const std::string full = Load(kDataDir / name);
        const Read whole = ReadBytes(full, false);
        ASSERT_EQ(whole.code, MStlFileReaderBinary::Ok);
        const std::vector<MStlFileTriangle> all = whole.All();
        for (std::size_t length = 0; length < full.size(); ++length)
        {
            // Too short for the header and count, else too short for the declared count.
            const std::string prefix = full.substr(0, length);
            const int header = MStlFileReaderBinary::HeaderTruncated;
            ASSERT_EQ(ReadBytes(prefix, false).code,
                      length < 84 ? header : MStlFileReaderBinary::StreamTooShort)
                << length;
            // Counting from the size reads exactly the complete facets.
            const Read tolerant = ReadBytes(prefix, false, MakeOptions(false, true));
            ASSERT_EQ(tolerant.code, length < 84 ? header : MStlFileReaderBinary::Ok) << length;
            const std::vector<MStlFileTriangle> read = tolerant.All();
            ASSERT_EQ(read.size(), length < 84 ? 0 : (length - 84) / 50) << length;
            for (std::size_t i = 0; i < read.size(); ++i)
                ASSERT_TRUE(SameFacet(read[i], all[i])) << length << "/" << i;
        }
    }
}

TEST(StlTruncation, EveryPrefixOfAsciiFiles)
{
    for (const char* name : {"assimp__triangle_with_two_solids.stl", "numpystl__stl_ascii_Cube.stl",
                             "assimp__triangle_with_empty_solid.stl"})
    {
        SCOPED_TRACE(name);
        const std::string full = Load(kDataDir / name);
        const Read whole = ReadBytes(full, true);
        ASSERT_EQ(whole.code, MStlFileReaderAscii::Success);
        const std::vector<MStlFileTriangle> all = whole.All();
        std::size_t previous = 0;
        for (std::size_t length = 0; length <= full.size(); ++length)
        {
            const Read r = ReadBytes(full.substr(0, length), true);
            ASSERT_TRUE(r.code == -1 || r.code == 0 || r.code == 1) << length;
            ASSERT_EQ(r.solids.size(), r.names.size()) << length;
            ASSERT_TRUE(r.code != 1 || r.solids.empty()) << length;
            // Only complete facets are kept, in file order, and the count never goes back.
            const std::vector<MStlFileTriangle> read = r.All();
            ASSERT_LE(read.size(), all.size()) << length;
            for (std::size_t i = 0; i < read.size(); ++i)
                ASSERT_TRUE(SameFacet(read[i], all[i])) << length << "/" << i;
            if (r.code != -1)
            {
                ASSERT_GE(read.size(), previous) << length;
                previous = read.size();
            }
        }
        EXPECT_EQ(previous, all.size());
    }
}

TEST(StlTruncation, BitFlippedFilesGiveDefinedResults)
{
    std::mt19937 random(20261121);
    const std::string binary = Load(kDataDir / "numpystl__stl_tests_triamid.stl");
    const std::string ascii = Load(kDataDir / "numpystl__stl_ascii_Cube.stl");
    for (int round = 0; round < 400; ++round)
    {
        std::string b = binary, a = ascii;
        for (int flips = 0; flips < 1 + round % 4; ++flips)
        {
            b[random() % b.size()] ^= static_cast<char>(1u << (random() % 8));
            a[random() % a.size()] ^= static_cast<char>(1u << (random() % 8));
        }
        // The count field gets flipped on its own too: the size rules must catch every value.
        if (round % 5 == 0)
            b[80 + random() % 4] ^= static_cast<char>(1u << (random() % 8));
        for (const Options& options : {kImport, MakeOptions(false, true), Options()})
        {
            const Read r = ReadBytes(b, false, options);
            ASSERT_GE(r.code, 0);
            ASSERT_LE(r.code, 4);
            ASSERT_LE(r.All().size(), (b.size() - 84) / 50);
        }
        const Read r = ReadBytes(a, true);
        ASSERT_TRUE(r.code == -1 || r.code == 0 || r.code == 1);
        ASSERT_EQ(r.solids.size(), r.names.size());
    }
}
