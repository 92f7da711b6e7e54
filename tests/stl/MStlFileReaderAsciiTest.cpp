// The ASCII reader: solids and names, the unnamed-solid rewind, the keyword quirks, the buffer seams
// (tokens across refills, seeking back past dropped data, pipes), real files, every prefix and
// bit-flipped copies of them.
#include <KelSDK/Common/Progress.h>
#include <KelSDK/Triangles/IO/MStlFileReaderAscii.h>
#include <KelSDK/Triangles/IO/StlFileUtilities.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using KelSDK::Triangles::IO::MStlFileReaderAscii;
using KelSDK::Triangles::IO::MStlFileTriangle;
using Point = MStlFileTriangle::Point;
using Names = std::vector<std::string>;
using Marks = std::vector<std::vector<int>>;
namespace Utilities = KelSDK::Triangles::IO::StlFileUtilities;

namespace
{
// One facet whose first corner is (v, v, v).
std::string F(int v)
{
    const std::string n = std::to_string(v);
    return "  facet normal 0 0 1\n   outer loop\n    vertex " + n + " " + n + " " + n +
           "\n    vertex 1 0 0\n    vertex 0 1 0\n   endloop\n  endfacet\n";
}

// The read appends to lists that already hold one entry; the result holds what was appended, and
// the first-corner x of each facet per solid. The code -1 stands for the number error.
struct ReadResult
{
    int code = -1;
    std::vector<std::vector<MStlFileTriangle>> solids;
    Names names;
    Marks marks;
    std::vector<MStlFileTriangle> all; // every facet in file order
};

ReadResult ReadText(std::istream& stream)
{
    ReadResult r;
    r.solids.resize(1);
    r.names.push_back("kept");
    try
    {
        r.code = MStlFileReaderAscii(stream).Read(r.solids, r.names, nullptr);
    }
    catch (const std::runtime_error& e)
    {
        EXPECT_STREQ(e.what(), "Can't convert double");
    }
    EXPECT_TRUE(r.names.at(0) == "kept" && r.solids.at(0).empty());
    r.solids.erase(r.solids.begin());
    r.names.erase(r.names.begin());
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

ReadResult ReadText(const std::string& text)
{
    std::istringstream stream(text);
    return ReadText(stream);
}

// A stream buffer over a string that cannot seek (like a pipe), handing out small pieces.
class PipeBuffer : public std::streambuf
{
public:
    explicit PipeBuffer(std::string text) : text_(std::move(text)) {}

protected:
    int_type underflow() override
    {
        if (next_ >= text_.size())
            return traits_type::eof();
        const std::size_t n = std::min<std::size_t>(7, text_.size() - next_);
        setg(&text_[next_], &text_[next_], &text_[next_] + n);
        next_ += n;
        return traits_type::to_int_type(*gptr());
    }

private:
    std::string text_;
    std::size_t next_ = 0;
};

const fs::path kDataDir = fs::path(KEL_TEST_DATA_DIR) / "stl";
const std::string kInfinite = "facet normal 0 0 1 outer loop vertex 1e999 0 0 vertex 1 0 0 vertex 0 1 0 "
                              "endloop endfacet\n";
const std::string kBlanks((std::size_t(3) << 20) / 2, ' '); // more than one buffer
const std::string kLongName(std::size_t(5) << 19, 'n');

std::string Load(const char* name)
{
    std::ifstream in;
    EXPECT_TRUE(Utilities::OpenInputFile(in, (kDataDir / name).wstring())) << name;
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
} // namespace

TEST(MStlFileReaderAscii, SolidsNamesAndQuirks)
{
    const int ok = MStlFileReaderAscii::Success, none = MStlFileReaderAscii::NoSolidFound;
    const std::string unnamed =
        "facet normal 0 0 1 outer loop vertex 5 5 5 vertex 1 0 0 vertex 0 1 0 endloop "
        "endfacet\n";
    const std::string mixed = "solid\tname\r\n\vFACET Normal 0 0 1\r\n OUTER\tLOOP\r\n VERTEX 1 2 3\r\n"
                              "VERTEX 4 5 6\f\nvertex 7 8 9\r\nENDLOOP\r\nEndFacet\r\nENDSOLID name";
    const std::string two = "solid a\n" + F(1) + F(2);
    const std::string badNumber = "solid a\n" + F(1) + "facet normal 0 0 1 outer loop vertex 1 2 3x next";
    const struct
    {
        int code;
        Names names;
        Marks marks;
        std::string text;
    } rows[] = {
        // clang-format off
        {none, {}, {}, ""},
        {none, {}, {}, "   \n\t"},
        {none, {}, {}, "facet normal 0 0 1 outer loop vertex 1 2 3 endloop endfacet"},
        {none, {}, {}, "solids endsolid soli d"},
        {ok, {"first", "second"}, {{1, 2}, {3}},
         "solid first extra words\n" + F(1) + F(2) + "endsolid first\nsolid second\n" + F(3) +
         "endsolid second\n"},
        // "solid" directly followed by "facet" (in any case): an empty name, and the first facet is read.
        {ok, {""}, {{5, 6}}, "solid " + unnamed + F(6) + "endsolid\n"},
        {ok, {""}, {{7}}, "SOLID FaCeT NORMAL 0 0 1 OUTER LOOP VERTEX 7 7 7 VERTEX 1 0 0 VERTEX 0 1 0 ENDLOOP"
                          " ENDFACET"},
        // A second unnamed solid repeats the name before it, and its endsolid test uses that name;
        // facet 3 lies between solids.
        {ok, {"a", "a", "c"}, {{1}, {2}, {4}},
         "solid a\n" + F(1) + "endsolid a\nsolid\n" + F(2) + "endsolid a\n" + F(3) + "solid c\n" + F(4)},
        // The name keeps its case: "ENDSOLID PART" does not close "Part", which runs on into "solid b".
        {ok, {"Part"}, {{1, 2}}, "SOLID Part\n" + F(1) + "ENDSOLID PART\nsolid b\n" + F(2) + "endsolid b\n"},
        {ok, {"Part", "b"}, {{1}, {2}},
         "SOLID Part\n" + F(1) + "ENDSOLID Part\nsolid b\n" + F(2) + "endsolid b\n"},
        // An invalid facet ends its solid; a solid without a valid facet still has its entries.
        {ok, {"a", "b"}, {{1}, {3}}, "solid a\n" + F(1) + kInfinite + F(2) + "endsolid a\nsolid b\n" + F(3)},
        {ok, {"empty", "nothing"}, {{}, {}},
         "solid empty\n" + kInfinite + "endsolid empty\nsolid nothing\nendsolid nothing\n"},
        // The input ending just before "endfacet" drops the facet; "endfacet" as the last bytes keeps it.
        {ok, {"a"}, {{1}}, two.substr(0, two.size() - 9)},
        {ok, {"a"}, {{1, 2}}, two.substr(0, two.size() - 1)},
        {ok, {"a"}, {{1, 2}}, two},
        {ok, {""}, {{}}, "solid"},
        {ok, {"name"}, {{1}}, mixed},
        // A bad number escapes with what was read before it.
        {-1, {"a"}, {{1}}, badNumber},
        // Blanks beyond one buffer between "solid" and "facet": the stream itself is sought back.
        {ok, {""}, {{8}}, "solid" + kBlanks + F(8) + "endsolid\n"},
        // A name longer than the buffer grows it.
        {ok, {kLongName, "z"}, {{9}, {10}},
         "solid " + kLongName + "\n" + F(9) + "endsolid " + kLongName + "\nsolid z\n" + F(10)},
        // clang-format on
    };
    for (const auto& row : rows)
    {
        const ReadResult r = ReadText(row.text);
        const std::string trace = row.text.substr(0, 60);
        EXPECT_EQ(r.code, row.code) << trace;
        EXPECT_EQ(r.names, row.names) << trace;
        EXPECT_EQ(r.marks, row.marks) << trace;
    }
    EXPECT_EQ(ReadText(mixed).solids.at(0).at(0).GetVertex(2), Point(7.0, 8.0, 9.0));

    std::istringstream bad(badNumber), failed("solid a\n" + F(1));
    ReadText(bad);
    std::string rest;
    bad >> rest;
    EXPECT_EQ(rest, "next") << "the stream is handed back just after the bad token";
    failed.setstate(std::ios::failbit);
    EXPECT_EQ(ReadText(failed).code, none);
}

TEST(MStlFileReaderAscii, TokensAcrossBufferRefills)
{
    // Move a solid across the 1 MiB refill boundary so that each of its tokens is cut once.
    const std::string body = "solid seam\nfacet normal 0.25 -0.5 1 outer loop vertex 123.456 7e-3 -9 "
                             "vertex 1 0 0 vertex 0 1 0 endloop endfacet endsolid seam\n";
    for (std::size_t shift = 0; shift < body.size(); shift += 3)
    {
        const ReadResult r = ReadText(std::string((std::size_t(1) << 20) - shift, ' ') + body);
        ASSERT_EQ(r.names, Names{"seam"}) << shift;
        ASSERT_EQ(r.solids.at(0).size(), 1u) << shift;
        EXPECT_EQ(r.solids[0][0].GetVertex(0), Point(123.456, 7e-3, -9.0)) << shift;
        EXPECT_EQ(r.solids[0][0].GetNormal(), Point(0.25, -0.5, 1.0)) << shift;
    }
}

TEST(MStlFileReaderAscii, ProgressMaximumIsSizeOver206)
{
    struct Recorder : KelSDK::Common::IProgressDelegate
    {
        void SetProgress(double fraction01) override { fractions.push_back(fraction01); }
        std::vector<double> fractions;
    };
    // 2060 bytes: a maximum of 10, so each facet attempt adds one tenth.
    std::string text = "solid a\n" + F(1);
    text.resize(2060, ' ');
    std::istringstream stream(text);
    auto progress = std::make_shared<Recorder>();
    std::vector<std::vector<MStlFileTriangle>> solids;
    Names names;
    EXPECT_EQ(MStlFileReaderAscii(stream).Read(solids, names, progress), MStlFileReaderAscii::Success);
    EXPECT_EQ(solids.at(0).size(), 1u);
    ASSERT_GE(progress->fractions.size(), 2u);
    EXPECT_DOUBLE_EQ(progress->fractions[0], 0.1);
    EXPECT_DOUBLE_EQ(progress->fractions[1], 0.2);
    EXPECT_DOUBLE_EQ(progress->fractions.back(), 1.0);
}

TEST(MStlFileReaderAscii, Pipes)
{
    // No size and no seeking, but the rewind of an unnamed solid stays inside the buffer.
    PipeBuffer pipe("solid a\n" + F(1) + "endsolid a\nsolid\n" + F(2) + "endsolid\n");
    std::istream stream(&pipe);
    ReadResult r = ReadText(stream);
    EXPECT_EQ(r.code, MStlFileReaderAscii::Success);
    EXPECT_EQ(r.names, (Names{"a", "a"}));
    EXPECT_EQ(r.marks, (Marks{{1}, {2}}));

    // Seeking back past dropped data is impossible there: the read stops like after a failed seekg.
    PipeBuffer longPipe("solid" + kBlanks + F(8));
    std::istream longStream(&longPipe);
    r = ReadText(longStream);
    EXPECT_EQ(r.code, MStlFileReaderAscii::Success);
    EXPECT_EQ(r.names, Names{""});
    EXPECT_EQ(r.marks, Marks{{}});
    EXPECT_TRUE(longStream.fail());
}

TEST(MStlFileReaderAscii, RealFiles)
{
    // "endsolid" without the name does not close a named solid: the text after it, a second "solid"
    // included, runs on into the first solid. The Cube has a blank before "solid" and CRLF line ends.
    const struct
    {
        const char* file;
        std::size_t facets;
        const char* name;
    } rows[] = {
        {"assimp__triangle.stl", 1, "testTriangle"},
        {"assimp__triangle_with_empty_solid.stl", 1, "testTriangle"},
        {"assimp__triangle_with_two_solids.stl", 2, "testTriangle_1"},
        {"assimp__sphereWithHole.stl", 285, "tinysphere_withhole"},
        {"assimp__Spider_ascii.stl", 1368, "NoName_1"},
        {"numpystl__stl_ascii_Cube.stl", 12, "PRO2STL"},
        {"numpystl__stl_ascii_HalfDonut.stl", 288, "HalfDonut.stl"},
        {"numpystl__stl_ascii_Moon_Chinese.stl", 116, "\xE6\x9C\x88\xE7\x90\x83"},
        {"derived/spherewithhole_ascii_truncated.stl", 142, "tinysphere_withhole"},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.file);
        const std::wstring path = (kDataDir / row.file).wstring();
        EXPECT_TRUE(Utilities::IsAscii(path));
        EXPECT_TRUE(Utilities::VerifyHeaderConsistency(path)) << "ASCII is always consistent";
        std::ifstream stream;
        ASSERT_TRUE(Utilities::OpenInputFile(stream, path));
        const ReadResult r = ReadText(stream);
        EXPECT_EQ(r.code, MStlFileReaderAscii::Success);
        EXPECT_EQ(r.names, Names{row.name});
        ASSERT_EQ(r.solids.size(), 1u);
        EXPECT_EQ(r.solids[0].size(), row.facets);
        for (const MStlFileTriangle& f : r.solids[0])
            ASSERT_TRUE(f.IsValid()) << "ASCII solids hold valid facets only";
    }
}

TEST(MStlFileReaderAscii, EveryPrefixAndBitFlipsOfRealFiles)
{
    for (const char* name : {"assimp__triangle_with_two_solids.stl", "numpystl__stl_ascii_Cube.stl",
                             "assimp__triangle_with_empty_solid.stl"})
    {
        SCOPED_TRACE(name);
        const std::string full = Load(name);
        const std::vector<MStlFileTriangle> all = ReadText(full).all;
        std::size_t previous = 0;
        for (std::size_t length = 0; length <= full.size(); ++length)
        {
            const ReadResult r = ReadText(full.substr(0, length));
            ASSERT_TRUE(r.code == -1 || r.code == 0 || r.code == 1) << length;
            ASSERT_EQ(r.solids.size(), r.names.size()) << length;
            ASSERT_TRUE(r.code != 1 || r.solids.empty()) << length;
            // Only complete facets are kept, in file order, and the count never goes back.
            const std::vector<MStlFileTriangle> read = r.all;
            ASSERT_LE(read.size(), all.size()) << length;
            for (std::size_t i = 0; i < read.size(); ++i)
                ASSERT_TRUE(read[i].GetVertex(0) == all[i].GetVertex(0) &&
                            read[i].GetVertex(1) == all[i].GetVertex(1) &&
                            read[i].GetVertex(2) == all[i].GetVertex(2))
                    << length << "/" << i;
            if (r.code != -1)
            {
                ASSERT_GE(read.size(), previous) << length;
                previous = read.size();
            }
        }
        EXPECT_EQ(previous, all.size());
    }

    std::mt19937 random(20261121);
    const std::string cube = Load("numpystl__stl_ascii_Cube.stl");
    for (int round = 0; round < 400; ++round)
    {
        std::string a = cube;
        for (int flips = 0; flips < 1 + round % 4; ++flips)
            a[random() % a.size()] ^= static_cast<char>(1u << (random() % 8));
        const ReadResult r = ReadText(a);
        ASSERT_TRUE(r.code == -1 || r.code == 0 || r.code == 1);
        ASSERT_EQ(r.solids.size(), r.names.size());
    }
}
