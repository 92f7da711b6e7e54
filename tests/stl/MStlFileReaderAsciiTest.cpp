// The ASCII reader: solids and names, the unnamed-solid rewind, the keyword quirks, and the buffer
// seams (tokens across refills, seeking back past dropped data, unseekable streams).
#include <KelSDK/Triangles/IO/MStlFileReaderAscii.h>

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

using KelSDK::Triangles::IO::MStlFileReaderAscii;
using KelSDK::Triangles::IO::MStlFileTriangle;
using Point = MStlFileTriangle::Point;
using Solids = std::vector<std::vector<MStlFileTriangle>>;
using Names = std::vector<std::string>;
using Marks = std::vector<std::vector<int>>;

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
// the first-corner x of each facet per solid.
struct ReadResult
{
    MStlFileReaderAscii::EReturnCode code;
    Solids solids;
    Names names;
    Marks marks;
};

ReadResult ReadText(std::istream& stream)
{
    ReadResult r;
    Solids solids(1);
    Names names{"kept"};
    r.code = MStlFileReaderAscii(stream).Read(solids, names, nullptr);
    EXPECT_EQ(names.at(0), "kept");
    EXPECT_TRUE(solids.at(0).empty());
    r.solids.assign(solids.begin() + 1, solids.end());
    r.names.assign(names.begin() + 1, names.end());
    for (const auto& solid : r.solids)
    {
        r.marks.emplace_back();
        for (const MStlFileTriangle& f : solid)
            r.marks.back().push_back(static_cast<int>(f.GetVertex(0)[0]));
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

const std::string kInfinite = "facet normal 0 0 1 outer loop vertex 1e999 0 0 vertex 1 0 0 vertex 0 1 0 "
                              "endloop endfacet\n";
const std::string kTwoFacets = "solid a\n" + F(1) + F(2);
const std::string kBlanks((std::size_t(3) << 20) / 2, ' '); // more than one buffer
const std::string kLongName(std::size_t(5) << 19, 'n');
} // namespace

TEST(MStlFileReaderAscii, SolidsNamesAndQuirks)
{
    const auto ok = MStlFileReaderAscii::Success, none = MStlFileReaderAscii::NoSolidFound;
    const std::string unnamed =
        "facet normal 0 0 1 outer loop vertex 5 5 5 vertex 1 0 0 vertex 0 1 0 endloop endfacet\n";
    const std::string mixed = "solid\tname\r\n\vFACET Normal 0 0 1\r\n OUTER\tLOOP\r\n VERTEX 1 2 3\r\n"
                              "VERTEX 4 5 6\f\nvertex 7 8 9\r\nENDLOOP\r\nEndFacet\r\nENDSOLID name";
    const std::string& two = kTwoFacets;
    const struct
    {
        MStlFileReaderAscii::EReturnCode code;
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
        // The end of the input inside a facet drops it; "endfacet" as the very last bytes completes it.
        {ok, {"a"}, {{1}}, two.substr(0, two.size() - 9)},
        {ok, {"a"}, {{1}}, two.substr(0, two.size() - 30)},
        {ok, {"a"}, {{1}}, two.substr(0, two.size() - 60)},
        {ok, {"a"}, {{1}}, two.substr(0, two.size() - 100)},
        {ok, {"a"}, {{1, 2}}, two.substr(0, two.size() - 1)},
        {ok, {"a"}, {{1, 2}}, two},
        {ok, {""}, {{}}, "solid"},
        {ok, {"name"}, {{1}}, mixed},
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

    std::istringstream failed("solid a\n" + F(1));
    failed.setstate(std::ios::failbit);
    EXPECT_EQ(ReadText(failed).code, none);
}

TEST(MStlFileReaderAscii, BadNumberEscapesWithWhatWasRead)
{
    std::istringstream stream("solid a\n" + F(1) + "facet normal 0 0 1 outer loop vertex 1 2 3x next");
    Solids solids;
    Names names;
    try
    {
        MStlFileReaderAscii(stream).Read(solids, names, nullptr);
        ADD_FAILURE() << "a bad number must throw";
    }
    catch (const std::runtime_error& e)
    {
        EXPECT_STREQ(e.what(), "Can't convert double");
    }
    EXPECT_EQ(names, Names{"a"});
    ASSERT_EQ(solids.size(), 1u);
    ASSERT_EQ(solids[0].size(), 1u);
    EXPECT_EQ(solids[0][0].GetVertex(0), Point(1.0, 1.0, 1.0));
    std::string rest;
    stream >> rest;
    EXPECT_EQ(rest, "next") << "the stream is handed back just after the bad token";
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

TEST(MStlFileReaderAscii, UnseekableStreams)
{
    // A pipe: no size and no seeking, but the rewind of an unnamed solid stays inside the buffer.
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
