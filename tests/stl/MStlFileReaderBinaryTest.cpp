// The binary reader: counts against the stream size under the three options, multi-block files,
// error codes on crafted streams, the coloured-header grammar, real files, every prefix and
// bit-flipped copies of them.
#include <KelSDK/Triangles/IO/MStlFileReaderAscii.h>
#include <KelSDK/Triangles/IO/MStlFileReaderBinary.h>
#include <KelSDK/Triangles/IO/StlFileUtilities.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <random>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using KelSDK::Triangles::Data::MStlMaterial;
using KelSDK::Triangles::IO::MStlFileReaderAscii;
using KelSDK::Triangles::IO::MStlFileReaderBinary;
using KelSDK::Triangles::IO::MStlFileTriangle;
using KelSDK::Triangles::IO::MStlReadResults;
using Point = MStlFileTriangle::Point;
using Solids = std::vector<std::vector<MStlFileTriangle>>;
using Marks = std::vector<std::vector<int>>;
namespace Utilities = KelSDK::Triangles::IO::StlFileUtilities;

namespace
{
std::string Word32(uint32_t v)
{
    return {char(v & 0xFF), char((v >> 8) & 0xFF), char((v >> 16) & 0xFF), char(v >> 24)};
}

std::string Encoded(const MStlFileTriangle& f)
{
    unsigned char bytes[MStlFileTriangle::BINARY_SIZE];
    f.EncodeBinary(bytes);
    return std::string(bytes, bytes + sizeof bytes);
}

// count facets whose first corners are (m, m, m) for m = first, first + 1, ..., attribute m.
std::string Facets(int first, int count)
{
    std::string s;
    for (int m = first; m < first + count; ++m)
    {
        MStlFileTriangle f;
        f.SetNormal(Point(0.0, 0.0, 1.0));
        f.SetVertex(0, Point(m, m, m));
        f.SetVertex(2, Point(0.0, 1.0, 0.0));
        f.SetAttribute(static_cast<uint16_t>(m));
        s += Encoded(f);
    }
    return s;
}

std::vector<int> Range(int first, int count)
{
    std::vector<int> v(static_cast<std::size_t>(count));
    std::iota(v.begin(), v.end(), first);
    return v;
}

std::string Header(std::string text = "binary")
{
    text.resize(80, ' ');
    return text;
}

constexpr int kMultiple = 1, kFromSize = 2, kTrailing = 4;
constexpr int kImport = kMultiple; // how STL import reads binary files

// The result code, the header, the solids, and the first-corner x of each facet per solid.
struct Result
{
    MStlFileReaderBinary::ErrorCode code;
    MStlFileReaderBinary::FileHeader header;
    Solids solids;
    Marks marks;
    std::vector<MStlFileTriangle> all; // every facet in file order
};

Result ReadStream(std::istream& stream, int flags)
{
    MStlFileReaderBinary reader(stream);
    MStlFileReaderBinary::Options o;
    o.readMultipleBlocks = (flags & kMultiple) != 0;
    o.countFromFileSize = (flags & kFromSize) != 0;
    o.allowTrailingBytes = (flags & kTrailing) != 0;
    reader.SetOptions(o);
    Result r;
    r.code = reader.Read(r.header, r.solids, nullptr);
    for (const auto& solid : r.solids)
    {
        r.marks.emplace_back();
        for (const MStlFileTriangle& f : solid)
        {
            r.marks.back().push_back(static_cast<int>(f.GetVertex(0)[0]));
            r.all.push_back(f);
        }
    }
    return r;
}

Result ReadBytes(const std::string& bytes, int flags)
{
    std::istringstream stream(bytes);
    return ReadStream(stream, flags);
}

const fs::path kDataDir = fs::path(KEL_TEST_DATA_DIR) / "stl";

// Opens a file the way STL import does.
Result ReadFile(const char* name)
{
    std::ifstream stream;
    EXPECT_TRUE(Utilities::OpenInputFile(stream, (kDataDir / name).wstring())) << name;
    return ReadStream(stream, kImport);
}

// A stream buffer that cannot seek.
class PipeBuffer : public std::streambuf
{
public:
    explicit PipeBuffer(std::string text) : text_(std::move(text))
    {
        setg(&text_[0], &text_[0], &text_[0] + text_.size());
    }

private:
    std::string text_;
};
} // namespace

TEST(MStlFileReaderBinary, CountsSizesAndBlocks)
{
    using R = MStlFileReaderBinary;
    const std::string h = Header();
    const std::string short10 = h + Word32(10) + Facets(0, 9) + std::string(25, '\0'); // 9.5 facets
    const std::string long10 = h + Word32(10) + Facets(0, 10) + std::string(7, 'x');
    const std::string under = h + Word32(5) + Facets(0, 10);
    const std::string huge = h + Word32(0xFFFFFFFFu) + Facets(0, 2); // no reservation, a clean code
    const std::string twoBlocks = h + Word32(2) + Facets(0, 2) + Word32(3) + Facets(10, 3);
    // A last block that ends early: the chain does not add up, so only the first count is judged.
    const std::string cut = h + Word32(2) + Facets(0, 2) + Word32(3) + Facets(10, 2) + std::string(25, '\0');
    const struct
    {
        R::ErrorCode code;
        int flags;
        Marks marks; // checked when the code is Ok
        std::string bytes;
    } rows[] = {
        // clang-format off
        {R::Ok, 0, {{}}, Header("zero") + Word32(0)},
        {R::StreamTooShort, 0, {}, short10},
        {R::SizeMismatch, kFromSize, {}, short10},
        {R::Ok, kFromSize | kTrailing, {Range(0, 9)}, short10},
        {R::StreamTooShort, kTrailing, {}, short10},
        {R::SizeMismatch, 0, {}, long10},
        {R::Ok, kTrailing, {Range(0, 10)}, long10},
        {R::SizeMismatch, 0, {}, under},
        {R::Ok, kFromSize, {Range(0, 10)}, under},
        {R::Ok, kTrailing, {Range(0, 5)}, under},
        {R::StreamTooShort, 0, {}, huge},
        {R::Ok, kMultiple | kFromSize | kTrailing, {Range(0, 2)}, huge},
        {R::Ok, kMultiple, {Range(0, 2), Range(10, 3)}, twoBlocks},
        {R::SizeMismatch, 0, {}, twoBlocks},
        // Empty blocks in between are solids too.
        {R::Ok, kMultiple, {{0}, {}, {}, {5}},
         h + Word32(1) + Facets(0, 1) + Word32(0) + Word32(0) + Word32(1) + Facets(5, 1)},
        {R::SizeMismatch, kMultiple, {}, cut},
        {R::Ok, kMultiple | kTrailing, {Range(0, 2)}, cut},
        // Fewer than four bytes after a block: the next count cannot be read, also one newline.
        {R::StreamError, kMultiple | kTrailing, {}, h + Word32(1) + Facets(0, 1) + "abc"},
        {R::StreamError, kMultiple, {}, h + Word32(1) + Facets(0, 1) + "\n"},
        // More facets than one read fetches.
        {R::Ok, 0, {Range(0, 10000)}, h + Word32(10000) + Facets(0, 10000)},
        // clang-format on
    };
    for (const auto& row : rows)
    {
        const Result r = ReadBytes(row.bytes, row.flags);
        EXPECT_EQ(r.code, row.code) << row.bytes.size() << " flags " << row.flags;
        if (row.code == R::Ok)
        {
            EXPECT_EQ(r.marks, row.marks) << row.bytes.size() << " flags " << row.flags;
            EXPECT_EQ(std::string(r.header.begin(), r.header.end()), row.bytes.substr(0, 80))
                << "handed back";
        }
    }
}

TEST(MStlFileReaderBinary, FacetsAreDecodedVerbatim)
{
    std::string nanFacet = Facets(0, 1);
    const float nan = std::nanf("");
    std::memcpy(&nanFacet[12], &nan, 4); // first corner x
    const Result r = ReadBytes(Header() + Word32(3) + Facets(1, 2) + nanFacet, 0);
    ASSERT_EQ(r.code, MStlFileReaderBinary::Ok);
    ASSERT_EQ(r.solids.at(0).size(), 3u);
    EXPECT_EQ(Encoded(r.solids[0][0]) + Encoded(r.solids[0][1]), Facets(1, 2)) << "every field, bit for bit";
    EXPECT_TRUE(std::isnan(r.solids[0][2].GetVertex(0)[0])) << "binary facets are kept although invalid";
}

TEST(MStlFileReaderBinary, StreamFailuresAndTheOuterList)
{
    MStlFileReaderBinary::FileHeader header;
    Solids solids;
    // A stream that cannot seek cannot be measured.
    PipeBuffer pipe(Header() + Word32(1) + Facets(0, 1));
    std::istream stream(&pipe);
    EXPECT_EQ(MStlFileReaderBinary(stream).Read(header, solids, nullptr), MStlFileReaderBinary::StreamError);
    std::istringstream failed(Header() + Word32(0));
    failed.setstate(std::ios::badbit);
    EXPECT_EQ(MStlFileReaderBinary(failed).Read(header, solids, nullptr), MStlFileReaderBinary::StreamError);

    // The outer list is resized to the blocks read; the inner lists already there are kept.
    std::istringstream good(Header() + Word32(2) + Facets(7, 2));
    solids.assign(3, {});
    solids[0].resize(1);
    solids[2].resize(4);
    EXPECT_EQ(MStlFileReaderBinary(good).Read(header, solids, nullptr), MStlFileReaderBinary::Ok);
    ASSERT_EQ(solids.size(), 1u);
    ASSERT_EQ(solids[0].size(), 3u);
    EXPECT_EQ(solids[0][0].GetVertex(0)[0], 0.0);
    EXPECT_EQ(solids[0][1].GetVertex(0)[0], 7.0);
    EXPECT_EQ(solids[0][2].GetVertex(0)[0], 8.0);
}

namespace
{
MStlReadResults Extract(const std::string& bytes, char fill = ' ')
{
    MStlFileReaderBinary::FileHeader h;
    h.fill(static_cast<unsigned char>(fill));
    std::memcpy(h.data(), bytes.data(), std::min<std::size_t>(bytes.size(), 80));
    return MStlFileReaderBinary::ExtractHeaderInfo(h);
}

const std::string kRGBA("\xC8\x64\x32\xFF", 4); // R 200, G 100, B 50, A 255
constexpr uint32_t kRGBAWord = 0xFF3264C8u;
// Diffuse, specular, ambient words and the shininess 1.0f, as the writer puts them.
const std::string kWords("\x01\x02\x03\x04\x11\x12\x13\x14\x21\x22\x23\x24\x00\x00\x80\x3F", 16);
} // namespace

TEST(MStlFileReaderBinaryHeader, Grammar)
{
    const std::string color = "COLOR=" + kRGBA, prefix = "Kelvinstone Coloured STL File_" + color;
    const std::string nul(1, '\0'), x44(44, 'x');
    const struct
    {
        bool color, support, solid;
        std::string bytes;
        char fill;
    } rows[] = {
        // clang-format off
        {true, false, true, prefix, ' '},
        {false, false, true, prefix + ";FACES", ' '}, // only blanks may follow the prefix form
        {false, false, true, prefix, '\0'},
        {true, false, true, color, ' '},
        {true, false, false, color + ";FACES", ' '},
        {true, true, true, "solid part " + color + ";ISSUP;SOLID", ' '}, // free text before COLOR=
        {true, true, true, color + ",MATERIAL=" + kWords + ";ISSUP;SOLID" + nul, ' '},
        // Flags without a colour; ";SOLID" before ";ISSUP" is off the grammar; matching is case-sensitive.
        {false, true, true, ";ISSUP", ' '},
        {false, false, false, ";FACES", ' '},
        {false, true, false, ";ISSUP;FACES", ' '},
        {false, false, true, ";SOLID;ISSUP", ' '},
        {false, false, true, "color=" + kRGBA, ' '},
        {false, false, true, ";issup", ' '},
        // COLOR= at 44: ",MATERIAL=" at 54, the words fill bytes 64..79; at 45 they would need byte 80.
        {true, false, true, x44 + color + ",MATERIAL=" + kWords, ' '},
        {false, false, true, "x" + x44 + color + ",MATERIAL=" + kWords, ' '},
        // COLOR= at 70: the word fills bytes 76..79; at 71 it does not fit.
        {true, false, true, std::string(70, 'x') + color, ' '},
        {false, false, true, std::string(71, 'x') + "COLOR=abcd", ' '},
        // Off-grammar text after the colour drops everything; the tail is one NUL or blank, then blanks.
        {false, false, true, color + " trailing", ' '},
        {false, false, true, color + ";SOLIDx", ' '},
        {true, false, true, color + ";SOLID" + nul, ' '},
        {false, false, true, color + ";SOLID", '\0'},
        {false, false, true, "", '\0'},
        {false, false, true, "solid REAR_CASE", ' '},
        {false, false, true, color + color, ' '}, // only the first COLOR= counts
        // clang-format on
    };
    for (const auto& row : rows)
    {
        const MStlReadResults r = Extract(row.bytes, row.fill);
        const std::string trace = row.bytes + (row.fill == ' ' ? "" : " (NUL padding)");
        EXPECT_FALSE(r.isOverflow) << trace;
        EXPECT_EQ(r.hasColor, row.color) << trace;
        EXPECT_EQ(r.material.GetColorIsReadFromFile(), row.color) << trace;
        EXPECT_EQ(r.isSupport, row.support) << trace;
        EXPECT_EQ(r.isSupposedSolid, row.solid) << trace;
        EXPECT_EQ(r.material.GetRGB(), row.color ? kRGBAWord : MStlMaterial().GetRGB()) << trace;
        EXPECT_TRUE(row.color || r.material == MStlMaterial()) << trace;
    }

    for (const MStlReadResults& r : {Extract(color + ",MATERIAL=" + kWords + ";ISSUP;SOLID" + nul),
                                     Extract(x44 + color + ",MATERIAL=" + kWords)})
    {
        EXPECT_EQ(r.material.GetDiffuse(), 0x04030201u);
        EXPECT_EQ(r.material.GetSpecular(), 0x14131211u);
        EXPECT_EQ(r.material.GetAmbient(), 0x24232221u);
        EXPECT_EQ(r.material.GetShininess(), 1.0f);
    }
}

TEST(MStlFileReaderBinary, RealFiles)
{
    using R = MStlFileReaderBinary;
    const struct
    {
        const char* file;
        R::ErrorCode code;
        std::vector<std::size_t> facets; // per solid, when the code is Ok
    } rows[] = {
        {"assimp__Spider_binary.stl", R::Ok, {1368}},
        {"numpystl__stl_binary_Cube.stl", R::Ok, {12}},
        {"numpystl__stl_binary_CubeInvalidUnicode.stl", R::Ok, {12}},
        // A header that starts with "solid", and one byte after the last facet that cannot hold a count.
        {"numpystl__stl_binary_HalfDonut.stl", R::StreamError, {}},
        {"numpystl__stl_binary_Star.stl", R::Ok, {68}},
        {"numpystl__stl_binary_StarWithEmptyHeader.stl", R::Ok, {68}},
        {"numpystl__stl_tests_triamid.stl", R::Ok, {10}},
        {"derived/spider_binary_truncated_midfacet.stl", R::StreamTooShort, {}},
        {"derived/star_binary_count_too_large.stl", R::StreamTooShort, {}},
        {"derived/star_binary_count_too_small.stl", R::SizeMismatch, {}},
        {"derived/binary_zero_facets.stl", R::Ok, {0}},
        {"derived/empty_file.stl", R::HeaderTruncated, {}},
        {"derived/star_binary_COLOR_MATERIAL_header.stl", R::Ok, {68}},
        {"derived/star_binary_bit15_valid_colours.stl", R::Ok, {68}},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.file);
        const std::wstring path = (kDataDir / row.file).wstring();
        EXPECT_FALSE(Utilities::IsAscii(path));
        // The size walk agrees with the reader.
        EXPECT_EQ(Utilities::VerifyHeaderConsistency(path), row.code == R::Ok);
        const Result r = ReadFile(row.file);
        EXPECT_EQ(r.code, row.code);
        std::vector<std::size_t> sizes;
        for (const auto& solid : r.solids)
            sizes.push_back(solid.size());
        EXPECT_EQ(sizes, row.facets);
    }

    // The colour and material words of a header, and the facet colour words kept as attributes.
    Result r = ReadFile("derived/star_binary_COLOR_MATERIAL_header.stl");
    MStlReadResults info = MStlFileReaderBinary::ExtractHeaderInfo(r.header);
    EXPECT_TRUE(info.hasColor && info.material.GetColorIsReadFromFile());
    for (uint32_t word : {info.material.GetRGB(), info.material.GetDiffuse(), info.material.GetSpecular(),
                          info.material.GetAmbient()})
        EXPECT_EQ(word, 0xFF3264C8u);
    ASSERT_EQ(r.solids.at(0).size(), 68u);
    EXPECT_EQ(r.solids[0][0].GetAttribute(), 0x001F);
    EXPECT_EQ(r.solids[0][1].GetAttribute(), 0x03E0);
    EXPECT_EQ(r.solids[0][2].GetAttribute(), 0x8000);
    r = ReadFile("derived/star_binary_bit15_valid_colours.stl");
    EXPECT_FALSE(MStlFileReaderBinary::ExtractHeaderInfo(r.header).hasColor);
    ASSERT_EQ(r.solids.at(0).size(), 68u);
    for (std::size_t i = 0; i < 68; ++i)
        ASSERT_EQ(r.solids[0][i].GetAttribute(), i % 2 == 0 ? 0xFC00 : 0) << i;

    // The ASCII twin of the spider file holds the same corners.
    std::ifstream text;
    ASSERT_TRUE(Utilities::OpenInputFile(text, (kDataDir / "assimp__Spider_ascii.stl").wstring()));
    Solids ascii;
    std::vector<std::string> names;
    ASSERT_EQ(MStlFileReaderAscii(text).Read(ascii, names, nullptr), MStlFileReaderAscii::Success);
    const std::vector<MStlFileTriangle> b = ReadFile("assimp__Spider_binary.stl").all;
    ASSERT_EQ(ascii.at(0).size(), b.size());
    for (std::size_t i = 0; i < b.size(); ++i)
        for (int k = 0; k < 9; ++k)
        {
            const double x = ascii[0][i].GetVertex(k / 3)[k % 3];
            ASSERT_NEAR(x, b[i].GetVertex(k / 3)[k % 3], 1e-5 * std::max(1.0, std::fabs(x))) << "facet " << i;
        }
}

TEST(MStlFileReaderBinary, EveryPrefixAndBitFlipsOfRealFiles)
{
    for (const char* name : {"numpystl__stl_tests_triamid.stl", "numpystl__stl_binary_Cube.stl"})
    {
        SCOPED_TRACE(name);
        std::ifstream in(kDataDir / name, std::ios::binary);
        const std::string full((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        const std::vector<MStlFileTriangle> all = ReadBytes(full, kImport).all;
        for (std::size_t length = 0; length < full.size(); ++length)
        {
            // Too short for the header and count, else too short for the declared count; counting from
            // the size reads exactly the complete facets.
            const std::string prefix = full.substr(0, length);
            const auto header = MStlFileReaderBinary::HeaderTruncated;
            ASSERT_EQ(ReadBytes(prefix, kImport).code,
                      length < 84 ? header : MStlFileReaderBinary::StreamTooShort)
                << length;
            const Result tolerant = ReadBytes(prefix, kFromSize | kTrailing);
            ASSERT_EQ(tolerant.code, length < 84 ? header : MStlFileReaderBinary::Ok) << length;
            const std::vector<MStlFileTriangle> read = tolerant.all;
            ASSERT_EQ(read.size(), length < 84 ? 0 : (length - 84) / 50) << length;
            for (std::size_t i = 0; i < read.size(); ++i)
                ASSERT_EQ(Encoded(read[i]), Encoded(all[i])) << length << "/" << i;
        }

        std::mt19937 random(20261121);
        for (int round = 0; round < 400; ++round)
        {
            std::string b = full;
            for (int flips = 0; flips < 1 + round % 4; ++flips)
                b[random() % b.size()] ^= static_cast<char>(1u << (random() % 8));
            // The count field gets flipped on its own too: the size rules must catch every value.
            if (round % 5 == 0)
                b[80 + random() % 4] ^= static_cast<char>(1u << (random() % 8));
            for (int flags : {kImport, kFromSize | kTrailing, 0})
            {
                const Result r = ReadBytes(b, flags);
                ASSERT_GE(r.code, 0);
                ASSERT_LE(r.code, 4);
                ASSERT_LE(r.all.size(), (b.size() - 84) / 50);
            }
        }
    }
}
