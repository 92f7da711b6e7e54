// Every prefix of valid binary and ASCII files, and bit-flipped copies, must end with a defined
// result: a result code (with only complete facets kept) or the documented number error.
#include <KelSDK/Triangles/IO/MStlFileReaderAscii.h>
#include <KelSDK/Triangles/IO/MStlFileReaderBinary.h>
#include <KelSDK/Triangles/IO/StlFileUtilities.h>

#include <gtest/gtest.h>

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
using Solids = std::vector<std::vector<MStlFileTriangle>>;

namespace
{
std::string Load(const char* name)
{
    std::ifstream in(fs::path(KEL_TEST_DATA_DIR) / "stl" / name, std::ios::binary);
    EXPECT_TRUE(in.good()) << name;
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<MStlFileTriangle> Flatten(const Solids& solids)
{
    std::vector<MStlFileTriangle> all;
    for (const auto& s : solids)
        all.insert(all.end(), s.begin(), s.end());
    return all;
}

bool SameFacet(const MStlFileTriangle& a, const MStlFileTriangle& b)
{
    for (std::size_t i = 0; i < 3; ++i)
    {
        const auto& p = a.GetVertex(i);
        const auto& q = b.GetVertex(i);
        for (std::size_t axis = 0; axis < 3; ++axis)
        {
            // Compare bit patterns through equality, letting NaN equal NaN.
            if (!(p[axis] == q[axis] || (p[axis] != p[axis] && q[axis] != q[axis])))
                return false;
        }
    }
    return a.GetAttribute() == b.GetAttribute();
}

int ReadBinary(const std::string& bytes, const MStlFileReaderBinary::Options& options, Solids& solids)
{
    std::istringstream stream(bytes);
    MStlFileReaderBinary reader(stream);
    reader.SetOptions(options);
    MStlFileReaderBinary::FileHeader header;
    const int code = reader.Read(header, solids, nullptr);
    MStlFileReaderBinary::ExtractHeaderInfo(header);
    return code;
}

// -1 for the number error, else the result code.
int ReadAscii(const std::string& text, Solids& solids, std::vector<std::string>& names)
{
    std::istringstream stream(text);
    try
    {
        return MStlFileReaderAscii(stream).Read(solids, names, nullptr);
    }
    catch (const std::runtime_error& e)
    {
        EXPECT_STREQ(e.what(), "Can't convert double");
        return -1;
    }
}

MStlFileReaderBinary::Options ImportOptions()
{
    MStlFileReaderBinary::Options o;
    o.readMultipleBlocks = true;
    return o;
}

MStlFileReaderBinary::Options TolerantOptions()
{
    MStlFileReaderBinary::Options o;
    o.countFromFileSize = true;
    o.allowTrailingBytes = true;
    return o;
}
} // namespace

TEST(StlTruncation, EveryPrefixOfBinaryFiles)
{
    for (const char* name : {"numpystl__stl_tests_triamid.stl", "numpystl__stl_binary_Cube.stl"})
    {
        SCOPED_TRACE(name);
        const std::string full = Load(name);
        Solids whole;
        ASSERT_EQ(ReadBinary(full, ImportOptions(), whole), MStlFileReaderBinary::Ok);
        const std::vector<MStlFileTriangle> all = Flatten(whole);

        for (std::size_t length = 0; length < full.size(); ++length)
        {
            const std::string prefix = full.substr(0, length);
            Solids solids;
            const int code = ReadBinary(prefix, ImportOptions(), solids);
            // Too short for the header and count, else too short for the declared count.
            ASSERT_EQ(code, length < 84 ? MStlFileReaderBinary::HeaderTruncated
                                        : MStlFileReaderBinary::StreamTooShort)
                << length;

            // Counting from the size reads exactly the complete facets.
            Solids tolerant;
            const int tolerantCode = ReadBinary(prefix, TolerantOptions(), tolerant);
            if (length < 84)
            {
                ASSERT_EQ(tolerantCode, MStlFileReaderBinary::HeaderTruncated);
                continue;
            }
            ASSERT_EQ(tolerantCode, MStlFileReaderBinary::Ok) << length;
            const std::vector<MStlFileTriangle> read = Flatten(tolerant);
            ASSERT_EQ(read.size(), (length - 84) / 50) << length;
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
        const std::string full = Load(name);
        Solids whole;
        std::vector<std::string> wholeNames;
        ASSERT_EQ(ReadAscii(full, whole, wholeNames), MStlFileReaderAscii::Success);
        const std::vector<MStlFileTriangle> all = Flatten(whole);

        std::size_t previous = 0;
        for (std::size_t length = 0; length <= full.size(); ++length)
        {
            Solids solids;
            std::vector<std::string> names;
            const int code = ReadAscii(full.substr(0, length), solids, names);
            ASSERT_TRUE(code == -1 || code == 0 || code == 1) << length;
            ASSERT_EQ(solids.size(), names.size()) << length;
            if (code == 1)
            {
                ASSERT_TRUE(solids.empty()) << length;
            }
            // Only complete facets are kept, in file order, and the count never goes back.
            const std::vector<MStlFileTriangle> read = Flatten(solids);
            ASSERT_LE(read.size(), all.size()) << length;
            for (std::size_t i = 0; i < read.size(); ++i)
                ASSERT_TRUE(SameFacet(read[i], all[i])) << length << "/" << i;
            if (code != -1)
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
    const std::string binary = Load("numpystl__stl_tests_triamid.stl");
    const std::string ascii = Load("numpystl__stl_ascii_Cube.stl");
    for (int round = 0; round < 400; ++round)
    {
        std::string b = binary;
        std::string a = ascii;
        for (int flips = 0; flips < 1 + round % 4; ++flips)
        {
            b[random() % b.size()] ^= static_cast<char>(1u << (random() % 8));
            a[random() % a.size()] ^= static_cast<char>(1u << (random() % 8));
        }
        // The count field gets flipped on its own too: the size rules must catch every value.
        if (round % 5 == 0)
            b[80 + random() % 4] ^= static_cast<char>(1u << (random() % 8));

        for (const auto& options : {ImportOptions(), TolerantOptions(), MStlFileReaderBinary::Options()})
        {
            Solids solids;
            const int code = ReadBinary(b, options, solids);
            ASSERT_GE(code, 0);
            ASSERT_LE(code, 4);
            ASSERT_LE(Flatten(solids).size(), (b.size() - 84) / 50);
        }
        Solids solids;
        std::vector<std::string> names;
        const int code = ReadAscii(a, solids, names);
        ASSERT_TRUE(code == -1 || code == 0 || code == 1);
        ASSERT_EQ(solids.size(), names.size());
    }
}
