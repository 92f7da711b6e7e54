// The binary reader: counts against the stream size under the three options, multi-block files,
// error codes on crafted streams, and the coloured-header grammar case by case.
#include <KelSDK/Common/Progress.h>
#include <KelSDK/Triangles/IO/MStlFileReaderBinary.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

using KelSDK::Triangles::Data::MStlMaterial;
using KelSDK::Triangles::IO::MStlFileReaderBinary;
using KelSDK::Triangles::IO::MStlFileTriangle;
using KelSDK::Triangles::IO::MStlReadResults;
using Point = MStlFileTriangle::Point;
using Solids = std::vector<std::vector<MStlFileTriangle>>;
using Options = MStlFileReaderBinary::Options;

namespace
{
class RecordingDelegate : public KelSDK::Common::IProgressDelegate
{
public:
    void SetProgress(double fraction01) override { fractions.push_back(fraction01); }
    std::vector<double> fractions;
};

std::string Word32(uint32_t v)
{
    std::string s(4, '\0');
    for (int i = 0; i < 4; ++i)
        s[static_cast<std::size_t>(i)] = static_cast<char>((v >> (8 * i)) & 0xFF);
    return s;
}

// A facet whose first corner is (mark, mark, mark), attribute = mark.
std::string FacetBytes(int mark)
{
    MStlFileTriangle f;
    f.SetNormal(Point(0.0, 0.0, 1.0));
    f.SetVertex(0, Point(mark, mark, mark));
    f.SetVertex(1, Point(1.0, 0.0, 0.0));
    f.SetVertex(2, Point(0.0, 1.0, 0.0));
    f.SetAttribute(static_cast<uint16_t>(mark));
    unsigned char bytes[50];
    f.EncodeBinary(bytes);
    return std::string(bytes, bytes + 50);
}

std::string Facets(int first, int count)
{
    std::string s;
    for (int i = 0; i < count; ++i)
        s += FacetBytes(first + i);
    return s;
}

std::string Header(const std::string& text = "binary")
{
    std::string h = text;
    h.resize(80, ' ');
    return h;
}

struct ReadResult
{
    MStlFileReaderBinary::ErrorCode code;
    MStlFileReaderBinary::FileHeader header;
    Solids solids;
};

ReadResult ReadBytes(const std::string& bytes, const Options& options = Options(),
                     std::shared_ptr<RecordingDelegate> progress = nullptr)
{
    std::istringstream stream(bytes);
    MStlFileReaderBinary reader(stream);
    reader.SetOptions(options);
    ReadResult r;
    r.code = reader.Read(r.header, r.solids, progress);
    return r;
}

Options MakeOptions(bool multiple, bool fromSize, bool trailing)
{
    Options o;
    o.readMultipleBlocks = multiple;
    o.countFromFileSize = fromSize;
    o.allowTrailingBytes = trailing;
    return o;
}

std::vector<int> Marks(const std::vector<MStlFileTriangle>& facets)
{
    std::vector<int> marks;
    for (const MStlFileTriangle& f : facets)
        marks.push_back(static_cast<int>(f.GetVertex(0)[0]));
    return marks;
}

std::vector<int> Range(int first, int count)
{
    std::vector<int> v;
    for (int i = 0; i < count; ++i)
        v.push_back(first + i);
    return v;
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

TEST(MStlFileReaderBinary, ZeroFacets)
{
    const ReadResult r = ReadBytes(Header("zero") + Word32(0));
    EXPECT_EQ(r.code, MStlFileReaderBinary::Ok);
    ASSERT_EQ(r.solids.size(), 1u);
    EXPECT_TRUE(r.solids[0].empty());
    EXPECT_EQ(std::string(r.header.begin(), r.header.end()), Header("zero"));
}

TEST(MStlFileReaderBinary, FacetsAreDecodedVerbatim)
{
    std::string nanFacet = FacetBytes(0);
    const float nan = std::nanf("");
    std::memcpy(&nanFacet[12], &nan, 4); // first corner x
    const ReadResult r = ReadBytes(Header() + Word32(3) + Facets(1, 2) + nanFacet);
    ASSERT_EQ(r.code, MStlFileReaderBinary::Ok);
    ASSERT_EQ(r.solids.at(0).size(), 3u);
    const MStlFileTriangle& f = r.solids[0][1];
    EXPECT_EQ(f.GetNormal(), Point(0.0, 0.0, 1.0));
    EXPECT_EQ(f.GetVertex(0), Point(2.0, 2.0, 2.0));
    EXPECT_EQ(f.GetVertex(2), Point(0.0, 1.0, 0.0));
    EXPECT_EQ(f.GetAttribute(), 2);
    EXPECT_TRUE(std::isnan(r.solids[0][2].GetVertex(0)[0])) << "binary facets are kept although invalid";
}

TEST(MStlFileReaderBinary, CountAgainstSizeUnderTheOptions)
{
    // Count 10, 9.5 facets of data.
    const std::string short10 = Header() + Word32(10) + Facets(0, 9) + std::string(25, '\0');
    EXPECT_EQ(ReadBytes(short10).code, MStlFileReaderBinary::StreamTooShort);
    EXPECT_EQ(ReadBytes(short10, MakeOptions(false, true, false)).code, MStlFileReaderBinary::SizeMismatch);
    ReadResult r = ReadBytes(short10, MakeOptions(false, true, true));
    EXPECT_EQ(r.code, MStlFileReaderBinary::Ok);
    EXPECT_EQ(Marks(r.solids.at(0)), Range(0, 9));
    EXPECT_EQ(ReadBytes(short10, MakeOptions(false, false, true)).code, MStlFileReaderBinary::StreamTooShort);

    // Count 10, ten facets and 7 extra bytes.
    const std::string long10 = Header() + Word32(10) + Facets(0, 10) + std::string(7, 'x');
    EXPECT_EQ(ReadBytes(long10).code, MStlFileReaderBinary::SizeMismatch);
    r = ReadBytes(long10, MakeOptions(false, false, true));
    EXPECT_EQ(r.code, MStlFileReaderBinary::Ok);
    EXPECT_EQ(Marks(r.solids.at(0)), Range(0, 10));

    // Count 5 over ten facets: countFromFileSize takes ten.
    const std::string under = Header() + Word32(5) + Facets(0, 10);
    EXPECT_EQ(ReadBytes(under).code, MStlFileReaderBinary::SizeMismatch);
    r = ReadBytes(under, MakeOptions(false, true, false));
    EXPECT_EQ(r.code, MStlFileReaderBinary::Ok);
    EXPECT_EQ(Marks(r.solids.at(0)), Range(0, 10));
    r = ReadBytes(under, MakeOptions(false, false, true));
    EXPECT_EQ(Marks(r.solids.at(0)), Range(0, 5));

    // A count far beyond the stream: no reservation, a clean code.
    const std::string huge = Header() + Word32(0xFFFFFFFFu) + Facets(0, 2);
    EXPECT_EQ(ReadBytes(huge).code, MStlFileReaderBinary::StreamTooShort);
    r = ReadBytes(huge, MakeOptions(true, true, true));
    EXPECT_EQ(r.code, MStlFileReaderBinary::Ok);
    EXPECT_EQ(Marks(r.solids.at(0)), Range(0, 2));
}

TEST(MStlFileReaderBinary, MultipleBlocks)
{
    const std::string twoBlocks = Header() + Word32(2) + Facets(0, 2) + Word32(3) + Facets(10, 3);
    ReadResult r = ReadBytes(twoBlocks, MakeOptions(true, false, false));
    EXPECT_EQ(r.code, MStlFileReaderBinary::Ok);
    ASSERT_EQ(r.solids.size(), 2u);
    EXPECT_EQ(Marks(r.solids[0]), Range(0, 2));
    EXPECT_EQ(Marks(r.solids[1]), Range(10, 3));
    EXPECT_EQ(ReadBytes(twoBlocks).code, MStlFileReaderBinary::SizeMismatch);

    // Empty blocks in between are solids too.
    r = ReadBytes(Header() + Word32(1) + Facets(0, 1) + Word32(0) + Word32(0) + Word32(1) + Facets(5, 1),
                  MakeOptions(true, false, false));
    EXPECT_EQ(r.code, MStlFileReaderBinary::Ok);
    ASSERT_EQ(r.solids.size(), 4u);
    EXPECT_TRUE(r.solids[1].empty() && r.solids[2].empty());
    EXPECT_EQ(Marks(r.solids[3]), Range(5, 1));

    // A last block that ends early: the chain does not add up, so only the first count is judged.
    const std::string cut =
        Header() + Word32(2) + Facets(0, 2) + Word32(3) + Facets(10, 2) + std::string(25, '\0');
    EXPECT_EQ(ReadBytes(cut, MakeOptions(true, false, false)).code, MStlFileReaderBinary::SizeMismatch);
    r = ReadBytes(cut, MakeOptions(true, false, true));
    EXPECT_EQ(r.code, MStlFileReaderBinary::Ok);
    ASSERT_EQ(r.solids.size(), 1u);
    EXPECT_EQ(Marks(r.solids[0]), Range(0, 2));

    // Fewer than four bytes after a block: the next count cannot be read.
    EXPECT_EQ(ReadBytes(Header() + Word32(1) + Facets(0, 1) + "abc", MakeOptions(true, false, true)).code,
              MStlFileReaderBinary::StreamError);
    // One trailing byte (as in files that end with a newline).
    EXPECT_EQ(ReadBytes(Header() + Word32(1) + Facets(0, 1) + "\n", MakeOptions(true, false, false)).code,
              MStlFileReaderBinary::StreamError);
}

TEST(MStlFileReaderBinary, TruncatedHeaderAndStreamFailures)
{
    for (std::size_t size : {0u, 1u, 79u, 80u, 83u})
        EXPECT_EQ(ReadBytes(std::string(size, 's')).code, MStlFileReaderBinary::HeaderTruncated) << size;

    // A stream that cannot seek cannot be measured.
    PipeBuffer pipe(Header() + Word32(1) + Facets(0, 1));
    std::istream stream(&pipe);
    MStlFileReaderBinary reader(stream);
    MStlFileReaderBinary::FileHeader header;
    Solids solids;
    EXPECT_EQ(reader.Read(header, solids, nullptr), MStlFileReaderBinary::StreamError);

    std::istringstream failed(Header() + Word32(0));
    failed.setstate(std::ios::badbit);
    MStlFileReaderBinary failedReader(failed);
    EXPECT_EQ(failedReader.Read(header, solids, nullptr), MStlFileReaderBinary::StreamError);
}

TEST(MStlFileReaderBinary, OuterListIsResizedInnerListsKept)
{
    std::istringstream stream(Header() + Word32(2) + Facets(7, 2));
    MStlFileReaderBinary reader(stream);
    MStlFileReaderBinary::FileHeader header;
    Solids solids(3);
    solids[0].resize(1);
    solids[2].resize(4);
    EXPECT_EQ(reader.Read(header, solids, nullptr), MStlFileReaderBinary::Ok);
    ASSERT_EQ(solids.size(), 1u);
    EXPECT_EQ(Marks(solids[0]), (std::vector<int>{0, 7, 8}));
}

TEST(MStlFileReaderBinary, ProgressStepsPerFacet)
{
    auto progress = std::make_shared<RecordingDelegate>();
    const ReadResult r = ReadBytes(Header() + Word32(4) + Facets(0, 4), Options(), progress);
    EXPECT_EQ(r.code, MStlFileReaderBinary::Ok);
    EXPECT_EQ(progress->fractions, (std::vector<double>{0.25, 0.5, 0.75, 1.0}));
}

TEST(MStlFileReaderBinary, LargeBlocksAcrossReadChunks)
{
    // More facets than one read fetches, then a cut inside a facet: complete facets stay.
    const int n = 10000;
    std::string bytes = Header() + Word32(n) + Facets(0, n);
    ReadResult r = ReadBytes(bytes);
    EXPECT_EQ(r.code, MStlFileReaderBinary::Ok);
    EXPECT_EQ(Marks(r.solids.at(0)), Range(0, n));
}

// ----- coloured header -----

namespace
{
MStlFileReaderBinary::FileHeader MakeHeader(const std::string& bytes, char fill = ' ')
{
    MStlFileReaderBinary::FileHeader h;
    h.fill(static_cast<unsigned char>(fill));
    std::memcpy(h.data(), bytes.data(), std::min<std::size_t>(bytes.size(), 80));
    return h;
}

void ExpectDefault(const MStlReadResults& r, const std::string& what)
{
    EXPECT_FALSE(r.isOverflow) << what;
    EXPECT_FALSE(r.hasColor) << what;
    EXPECT_TRUE(r.material == MStlMaterial()) << what;
    EXPECT_TRUE(r.isSupposedSolid) << what;
    EXPECT_FALSE(r.isSupport) << what;
}

const std::string kRGBA("\xC8\x64\x32\xFF", 4); // R 200, G 100, B 50, A 255
constexpr uint32_t kRGBAWord = 0xFF3264C8u;
} // namespace

TEST(MStlFileReaderBinaryHeader, FullPrefixForm)
{
    MStlReadResults r =
        MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader("Kelvinstone Coloured STL File_COLOR=" + kRGBA));
    EXPECT_TRUE(r.hasColor);
    EXPECT_EQ(r.material.GetRGB(), kRGBAWord);
    EXPECT_TRUE(r.material.GetColorIsReadFromFile());
    EXPECT_TRUE(r.isSupposedSolid);

    ExpectDefault(MStlFileReaderBinary::ExtractHeaderInfo(
                      MakeHeader("Kelvinstone Coloured STL File_COLOR=" + kRGBA + ";FACES")),
                  "only blanks may follow the prefix form");
    ExpectDefault(MStlFileReaderBinary::ExtractHeaderInfo(
                      MakeHeader("Kelvinstone Coloured STL File_COLOR=" + kRGBA, '\0')),
                  "NUL padding after the prefix form");
}

TEST(MStlFileReaderBinaryHeader, ColourAndFlags)
{
    MStlReadResults r = MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader("COLOR=" + kRGBA));
    EXPECT_TRUE(r.hasColor);
    EXPECT_EQ(r.material.GetRGB(), kRGBAWord);
    EXPECT_TRUE(r.material.GetColorIsReadFromFile());
    EXPECT_TRUE(r.isSupposedSolid);
    EXPECT_FALSE(r.isSupport);

    r = MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader("COLOR=" + kRGBA + ";FACES"));
    EXPECT_TRUE(r.hasColor);
    EXPECT_FALSE(r.isSupposedSolid);

    r = MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader("solid part COLOR=" + kRGBA + ";ISSUP;SOLID"));
    EXPECT_TRUE(r.hasColor) << "free text before COLOR=";
    EXPECT_TRUE(r.isSupport);
    EXPECT_TRUE(r.isSupposedSolid);

    // Flags without a colour.
    r = MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader(";ISSUP"));
    EXPECT_TRUE(r.isSupport);
    EXPECT_FALSE(r.hasColor);
    EXPECT_FALSE(r.material.GetColorIsReadFromFile());
    r = MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader(";FACES"));
    EXPECT_FALSE(r.isSupposedSolid);
    r = MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader(";ISSUP;FACES"));
    EXPECT_TRUE(r.isSupport);
    EXPECT_FALSE(r.isSupposedSolid);
    // ";SOLID" before ";ISSUP" is off the grammar.
    ExpectDefault(MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader(";SOLID;ISSUP")), ";SOLID;ISSUP");
    // Matching is case-sensitive.
    ExpectDefault(MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader("color=" + kRGBA)), "lower-case color=");
    ExpectDefault(MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader(";issup")), ";issup");
}

TEST(MStlFileReaderBinaryHeader, WriterLayoutWithMaterial)
{
    // What the writer puts there: colour, material words, flags, one NUL, blanks.
    const std::string words = std::string("\x01\x02\x03\x04", 4) + std::string("\x11\x12\x13\x14", 4) +
                              std::string("\x21\x22\x23\x24", 4) + std::string("\x00\x00\x80\x3F", 4);
    MStlReadResults r = MStlFileReaderBinary::ExtractHeaderInfo(
        MakeHeader("COLOR=" + kRGBA + ",MATERIAL=" + words + ";ISSUP;SOLID" + std::string(1, '\0')));
    EXPECT_TRUE(r.hasColor);
    EXPECT_TRUE(r.isSupport);
    EXPECT_TRUE(r.isSupposedSolid);
    EXPECT_EQ(r.material.GetRGB(), kRGBAWord);
    EXPECT_EQ(r.material.GetDiffuse(), 0x04030201u);
    EXPECT_EQ(r.material.GetSpecular(), 0x14131211u);
    EXPECT_EQ(r.material.GetAmbient(), 0x24232221u);
    EXPECT_EQ(r.material.GetShininess(), 1.0f);
    EXPECT_TRUE(r.material.GetColorIsReadFromFile());

    // COLOR= at 44: ",MATERIAL=" at 54 (54 + 10 < 65), the words fill bytes 64..79 and p = 80.
    r = MStlFileReaderBinary::ExtractHeaderInfo(
        MakeHeader(std::string(44, 'x') + "COLOR=" + kRGBA + ",MATERIAL=" + words));
    EXPECT_TRUE(r.hasColor);
    EXPECT_EQ(r.material.GetAmbient(), 0x24232221u);
    EXPECT_EQ(r.material.GetShininess(), 1.0f);
    // COLOR= at 45: the words would need byte 80, so ",MATERIAL=" stays unread and breaks the tail.
    ExpectDefault(MStlFileReaderBinary::ExtractHeaderInfo(
                      MakeHeader(std::string(45, 'x') + "COLOR=" + kRGBA + ",MATERIAL=" + words)),
                  "material that does not fit");
}

TEST(MStlFileReaderBinaryHeader, ColourPositionAndTail)
{
    // COLOR= at 70: the word fills bytes 76..79 and p = 80.
    MStlReadResults r =
        MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader(std::string(70, 'x') + "COLOR=" + kRGBA));
    EXPECT_TRUE(r.hasColor);
    EXPECT_EQ(r.material.GetRGB(), kRGBAWord);
    // COLOR= at 71..74: the word does not fit.
    for (std::size_t at : {71u, 74u})
    {
        MStlReadResults d =
            MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader(std::string(at, 'x') + "COLOR=abcd"));
        ExpectDefault(d, "COLOR= at " + std::to_string(at));
    }
    // Off-grammar text after the colour drops everything.
    ExpectDefault(MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader("COLOR=" + kRGBA + " trailing")),
                  "text");
    ExpectDefault(MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader("COLOR=" + kRGBA + ";SOLIDx")),
                  ";SOLIDx");
    // The tail: one NUL or blank, then only blanks.
    r = MStlFileReaderBinary::ExtractHeaderInfo(
        MakeHeader("COLOR=" + kRGBA + ";SOLID" + std::string(1, '\0')));
    EXPECT_TRUE(r.hasColor);
    ExpectDefault(MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader("COLOR=" + kRGBA + ";SOLID", '\0')),
                  "NUL padding");
    ExpectDefault(MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader("", '\0')), "80 NUL bytes");
    ExpectDefault(MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader("solid REAR_CASE")),
                  "plain solid header");
    r = MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader(""));
    ExpectDefault(r, "80 blanks");
    // Only the first COLOR= counts.
    r = MStlFileReaderBinary::ExtractHeaderInfo(MakeHeader("COLOR=" + kRGBA + "COLOR=" + kRGBA));
    ExpectDefault(r, "two colours");
}
