// The ASCII reader: solids and names, the unnamed-solid rewind, the keyword quirks, progress, and
// the buffer seams (tokens across refills, seeking back past dropped data, unseekable streams).
#include <KelSDK/Common/Progress.h>
#include <KelSDK/Triangles/IO/MStlFileReaderAscii.h>

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

using KelSDK::Triangles::IO::MStlFileReaderAscii;
using KelSDK::Triangles::IO::MStlFileTriangle;
using Point = MStlFileTriangle::Point;
using Solids = std::vector<std::vector<MStlFileTriangle>>;

namespace
{
class RecordingDelegate : public KelSDK::Common::IProgressDelegate
{
public:
    void SetProgress(double fraction01) override { fractions.push_back(fraction01); }
    std::vector<double> fractions;
};

// One facet whose first corner is (v, v, v).
std::string Facet(int v, const char* indent = "  ")
{
    const std::string n = std::to_string(v);
    return std::string(indent) + "facet normal 0 0 1\n" + indent + " outer loop\n" + indent + "  vertex " +
           n + " " + n + " " + n + "\n" + indent + "  vertex 1 0 0\n" + indent + "  vertex 0 1 0\n" + indent +
           " endloop\n" + indent + "endfacet\n";
}

struct ReadResult
{
    MStlFileReaderAscii::EReturnCode code;
    Solids solids;
    std::vector<std::string> names;
};

ReadResult ReadText(std::istream& stream, std::shared_ptr<RecordingDelegate> progress = nullptr)
{
    ReadResult r;
    r.code = MStlFileReaderAscii(stream).Read(r.solids, r.names, progress);
    return r;
}

ReadResult ReadText(const std::string& text)
{
    std::istringstream stream(text);
    return ReadText(stream);
}

// First-corner x of each facet of a solid.
std::vector<int> Marks(const std::vector<MStlFileTriangle>& facets)
{
    std::vector<int> marks;
    for (const MStlFileTriangle& f : facets)
        marks.push_back(static_cast<int>(f.GetVertex(0)[0]));
    return marks;
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
        char* p = &text_[next_];
        setg(p, p, p + n);
        next_ += n;
        return traits_type::to_int_type(*p);
    }

private:
    std::string text_;
    std::size_t next_ = 0;
};
} // namespace

TEST(MStlFileReaderAscii, NoSolidLeavesTheListsAlone)
{
    for (const char* text : {"", "   \n\t", "facet normal 0 0 1 outer loop vertex 1 2 3 endloop endfacet",
                             "solids endsolid soli d"})
    {
        std::istringstream stream(text);
        Solids solids(1);
        std::vector<std::string> names{"kept"};
        EXPECT_EQ(MStlFileReaderAscii(stream).Read(solids, names, nullptr), MStlFileReaderAscii::NoSolidFound)
            << '"' << text << '"';
        EXPECT_EQ(solids.size(), 1u);
        EXPECT_EQ(names, std::vector<std::string>{"kept"});
    }
    std::istringstream failed("solid a\n" + Facet(1));
    failed.setstate(std::ios::failbit);
    EXPECT_EQ(ReadText(failed).code, MStlFileReaderAscii::NoSolidFound);
}

TEST(MStlFileReaderAscii, SolidsAndNamesAreAppended)
{
    std::istringstream stream("solid first extra words\n" + Facet(1) + Facet(2) + "endsolid first\n" +
                              "solid second\n" + Facet(3) + "endsolid second\n");
    Solids solids(1);
    std::vector<std::string> names{"old"};
    EXPECT_EQ(MStlFileReaderAscii(stream).Read(solids, names, nullptr), MStlFileReaderAscii::Success);
    ASSERT_EQ(solids.size(), 3u);
    EXPECT_EQ(names, (std::vector<std::string>{"old", "first", "second"}));
    EXPECT_EQ(Marks(solids[1]), (std::vector<int>{1, 2}));
    EXPECT_EQ(Marks(solids[2]), (std::vector<int>{3}));
    EXPECT_EQ(solids[1][0].GetVertex(2), Point(0.0, 1.0, 0.0));
    EXPECT_TRUE(stream.eof());
}

TEST(MStlFileReaderAscii, UnnamedSolidIsWoundBack)
{
    // "solid" directly followed by "facet": an empty name, and the first facet is read.
    ReadResult r = ReadText("solid facet normal 0 0 1 outer loop vertex 5 5 5 vertex 1 0 0 vertex 0 1 0 "
                            "endloop endfacet\n" +
                            Facet(6) + "endsolid\n");
    ASSERT_EQ(r.code, MStlFileReaderAscii::Success);
    EXPECT_EQ(r.names, std::vector<std::string>{""});
    ASSERT_EQ(r.solids.size(), 1u);
    EXPECT_EQ(Marks(r.solids[0]), (std::vector<int>{5, 6}));

    // A second unnamed solid repeats the name before it, and its endsolid test uses that name.
    r = ReadText("solid a\n" + Facet(1) + "endsolid a\nsolid\n" + Facet(2) + "endsolid a\n" + Facet(3) +
                 "solid c\n" + Facet(4));
    EXPECT_EQ(r.names, (std::vector<std::string>{"a", "a", "c"}));
    ASSERT_EQ(r.solids.size(), 3u);
    EXPECT_EQ(Marks(r.solids[1]), (std::vector<int>{2})) << "\"endsolid a\" closed the second solid";
    EXPECT_EQ(Marks(r.solids[2]), (std::vector<int>{4})) << "facet 3 lies between solids";

    // The word "facet" in any case as the name means an unnamed solid.
    r = ReadText(
        "SOLID FaCeT NORMAL 0 0 1 OUTER LOOP VERTEX 7 7 7 VERTEX 1 0 0 VERTEX 0 1 0 ENDLOOP ENDFACET");
    EXPECT_EQ(r.names, std::vector<std::string>{""});
    EXPECT_EQ(Marks(r.solids.at(0)), (std::vector<int>{7}));
}

TEST(MStlFileReaderAscii, NameKeepsItsCaseAndEndsolidMustMatchIt)
{
    // "ENDSOLID PART" does not close "Part": its facets run on into the next solid's text.
    ReadResult r =
        ReadText("SOLID Part\n" + Facet(1, "") + "ENDSOLID PART\nsolid b\n" + Facet(2, "") + "endsolid b\n");
    EXPECT_EQ(r.names, std::vector<std::string>{"Part"});
    ASSERT_EQ(r.solids.size(), 1u);
    EXPECT_EQ(Marks(r.solids[0]), (std::vector<int>{1, 2}));

    r = ReadText("SOLID Part\n" + Facet(1, "") + "ENDSOLID Part\nsolid b\n" + Facet(2, "") + "endsolid b\n");
    EXPECT_EQ(r.names, (std::vector<std::string>{"Part", "b"}));
}

TEST(MStlFileReaderAscii, InvalidFacetEndsItsSolid)
{
    const std::string infinite = "facet normal 0 0 1 outer loop vertex 1e999 0 0 vertex 1 0 0 vertex 0 1 0 "
                                 "endloop endfacet\n";
    ReadResult r =
        ReadText("solid a\n" + Facet(1) + infinite + Facet(2) + "endsolid a\nsolid b\n" + Facet(3));
    EXPECT_EQ(r.names, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(Marks(r.solids.at(0)), (std::vector<int>{1}));
    EXPECT_EQ(Marks(r.solids.at(1)), (std::vector<int>{3}));

    // A solid without a valid facet still has its entries.
    r = ReadText("solid empty\n" + infinite + "endsolid empty\nsolid nothing\nendsolid nothing\n");
    EXPECT_EQ(r.names, (std::vector<std::string>{"empty", "nothing"}));
    ASSERT_EQ(r.solids.size(), 2u);
    EXPECT_TRUE(r.solids[0].empty());
    EXPECT_TRUE(r.solids[1].empty());
}

TEST(MStlFileReaderAscii, EndOfInputInsideAFacetDropsIt)
{
    const std::string full = "solid a\n" + Facet(1) + Facet(2);
    for (std::size_t cut : {full.size() - 9, full.size() - 30, full.size() - 60, full.size() - 100})
    {
        ReadResult r = ReadText(full.substr(0, cut));
        EXPECT_EQ(r.code, MStlFileReaderAscii::Success);
        EXPECT_EQ(Marks(r.solids.at(0)), (std::vector<int>{1})) << cut;
    }
    // "endfacet" as the very last bytes still completes the facet.
    ReadResult r = ReadText(full.substr(0, full.size() - 1));
    EXPECT_EQ(Marks(r.solids.at(0)), (std::vector<int>{1, 2}));
    r = ReadText(full);
    EXPECT_EQ(Marks(r.solids.at(0)), (std::vector<int>{1, 2}));
    // "solid" as the last token: one solid without name or facets.
    r = ReadText("solid");
    EXPECT_EQ(r.code, MStlFileReaderAscii::Success);
    EXPECT_EQ(r.names, std::vector<std::string>{""});
}

TEST(MStlFileReaderAscii, BadNumberEscapesWithWhatWasRead)
{
    std::istringstream stream("solid a\n" + Facet(1) + "facet normal 0 0 1 outer loop vertex 1 2 3x next");
    Solids solids;
    std::vector<std::string> names;
    try
    {
        MStlFileReaderAscii(stream).Read(solids, names, nullptr);
        ADD_FAILURE() << "a bad number must throw";
    }
    catch (const std::runtime_error& e)
    {
        EXPECT_STREQ(e.what(), "Can't convert double");
    }
    EXPECT_EQ(names, std::vector<std::string>{"a"});
    EXPECT_EQ(Marks(solids.at(0)), (std::vector<int>{1}));
    // The stream is handed back just after the bad token.
    std::string rest;
    stream >> rest;
    EXPECT_EQ(rest, "next");
}

TEST(MStlFileReaderAscii, MixedSeparatorsAndCase)
{
    ReadResult r = ReadText("solid\tname\r\n\vFACET Normal 0 0 1\r\n OUTER\tLOOP\r\n VERTEX 1 2 3\r\n"
                            "VERTEX 4 5 6\f\nvertex 7 8 9\r\nENDLOOP\r\nEndFacet\r\nENDSOLID name");
    EXPECT_EQ(r.names, std::vector<std::string>{"name"});
    ASSERT_EQ(r.solids.at(0).size(), 1u);
    EXPECT_EQ(r.solids[0][0].GetVertex(2), Point(7.0, 8.0, 9.0));
}

TEST(MStlFileReaderAscii, ProgressMaximumIsSizeOver206)
{
    // 2060 bytes: a maximum of 10, so the first step reports one tenth.
    std::string text = "solid a\n" + Facet(1);
    text.resize(2060, ' ');
    std::istringstream stream(text);
    auto progress = std::make_shared<RecordingDelegate>();
    ReadResult r = ReadText(stream, progress);
    EXPECT_EQ(r.solids.at(0).size(), 1u);
    ASSERT_GE(progress->fractions.size(), 2u);
    EXPECT_DOUBLE_EQ(progress->fractions[0], 0.1);
    EXPECT_DOUBLE_EQ(progress->fractions[1], 0.2) << "one step per facet attempt";
    EXPECT_DOUBLE_EQ(progress->fractions.back(), 1.0);
}

TEST(MStlFileReaderAscii, TokensAcrossBufferRefills)
{
    // Move a solid across the 1 MiB refill boundary so that each of its tokens is cut once.
    const std::size_t boundary = std::size_t(1) << 20;
    const std::string body = "solid seam\nfacet normal 0.25 -0.5 1 outer loop vertex 123.456 7e-3 -9 "
                             "vertex 1 0 0 vertex 0 1 0 endloop endfacet endsolid seam\n";
    for (std::size_t shift = 0; shift < body.size(); shift += 3)
    {
        std::string text(boundary - shift, ' ');
        text += body;
        ReadResult r = ReadText(text);
        ASSERT_EQ(r.names, std::vector<std::string>{"seam"}) << shift;
        ASSERT_EQ(r.solids.at(0).size(), 1u) << shift;
        EXPECT_EQ(r.solids[0][0].GetVertex(0), Point(123.456, 7e-3, -9.0)) << shift;
        EXPECT_EQ(r.solids[0][0].GetNormal(), Point(0.25, -0.5, 1.0)) << shift;
    }
}

TEST(MStlFileReaderAscii, RewindPastDroppedBufferSeeksTheStream)
{
    // Blanks beyond one buffer between "solid" and "facet": the remembered position is no longer
    // buffered when "facet" is seen, so the stream itself is sought back.
    const std::string text = "solid" + std::string((std::size_t(3) << 20) / 2, ' ') + Facet(8) + "endsolid\n";
    ReadResult r = ReadText(text);
    EXPECT_EQ(r.names, std::vector<std::string>{""});
    EXPECT_EQ(Marks(r.solids.at(0)), (std::vector<int>{8}));

    // A name longer than the buffer grows it.
    const std::string longName(std::size_t(5) << 19, 'n');
    r = ReadText("solid " + longName + "\n" + Facet(9) + "endsolid " + longName + "\nsolid z\n" + Facet(10));
    ASSERT_EQ(r.names.size(), 2u);
    EXPECT_EQ(r.names[0], longName);
    EXPECT_EQ(Marks(r.solids[0]), (std::vector<int>{9}));
    EXPECT_EQ(Marks(r.solids[1]), (std::vector<int>{10}));
}

TEST(MStlFileReaderAscii, UnseekableStreams)
{
    // A pipe: no size (progress without a maximum) and no seeking, but the rewind of an unnamed solid
    // stays inside the reader's buffer.
    PipeBuffer pipe("solid a\n" + Facet(1) + "endsolid a\nsolid\n" + Facet(2) + "endsolid\n");
    std::istream stream(&pipe);
    ReadResult r = ReadText(stream);
    EXPECT_EQ(r.code, MStlFileReaderAscii::Success);
    EXPECT_EQ(r.names, (std::vector<std::string>{"a", "a"}));
    EXPECT_EQ(Marks(r.solids.at(0)), (std::vector<int>{1}));
    EXPECT_EQ(Marks(r.solids.at(1)), (std::vector<int>{2}));

    // Seeking back past dropped data is impossible there: the read stops like after a failed seekg.
    PipeBuffer longPipe("solid" + std::string((std::size_t(3) << 20) / 2, ' ') + Facet(8));
    std::istream longStream(&longPipe);
    r = ReadText(longStream);
    EXPECT_EQ(r.code, MStlFileReaderAscii::Success);
    EXPECT_EQ(r.names, std::vector<std::string>{""});
    EXPECT_TRUE(r.solids.at(0).empty());
    EXPECT_TRUE(longStream.fail());
}
