// The facet record: its 50-byte binary form, the three text forms, and the token grammar of one
// ASCII facet.
#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using KelSDK::FileIO::MMemoryFile;
using KelSDK::Triangles::IO::MStlFileTriangle;
using Point = MStlFileTriangle::Point;

namespace
{
// normal (0, 0, 1); corners (1, 2, 3), (-1.5, 0.25, 1e300), (0, 0, 0); attribute 0x8001.
MStlFileTriangle SampleFacet()
{
    MStlFileTriangle f;
    f.SetNormal(Point(0.0, 0.0, 1.0));
    f.SetVertex(0, Point(1.0, 2.0, 3.0));
    f.SetVertex(1, Point(-1.5, 0.25, 1e300));
    f.SetVertex(2, Point(0.0, 0.0, 0.0));
    f.SetAttribute(0x8001);
    return f;
}

// The sample facet in binary, written out field by field (float32 little-endian).
const std::vector<unsigned char> kSampleBinary = {
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80, 0x3F, // normal 0, 0, 1
    0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x00, 0x40, 0x00, 0x00, 0x40, 0x40, // 1, 2, 3
    0x00, 0x00, 0xC0, 0xBF, 0x00, 0x00, 0x80, 0x3E, 0x00, 0x00, 0x80, 0x7F, // -1.5, 0.25, +inf
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // 0, 0, 0
    0x01, 0x80,                                                             // attribute 0x8001
};

// A facet whose numbers need rounding in the "%f" and "%.8f" forms.
MStlFileTriangle TextFacet()
{
    MStlFileTriangle f;
    f.SetNormal(Point(0.5, -0.25, 0.1234567));
    f.SetVertex(0, Point(1.0, 2.0, 3.0));
    f.SetVertex(1, Point(-10.5, 0.123456789, 1234.5));
    f.SetVertex(2, Point(0.0, -0.000000001, 100000.0));
    return f;
}

const char* const kTextFacetFormatted = "facet normal 0.500000 -0.250000 0.123457\n"
                                        "outer loop\n"
                                        "vertex 1.00000000 2.00000000 3.00000000\n"
                                        "vertex -10.50000000 0.12345679 1234.50000000\n"
                                        "vertex 0.00000000 -0.00000000 100000.00000000\n"
                                        "endloop\n"
                                        "endfacet\n";

const char* const kTextFacetStream = "facet normal 0.5 -0.25 0.123457\n"
                                     "outer loop\n"
                                     "facet vertex 1 2 3\n"
                                     "facet vertex -10.5 0.123457 1234.5\n"
                                     "facet vertex 0 -1e-09 100000\n"
                                     "endloop\n"
                                     "endfacet\n";

std::string Bytes(const std::vector<unsigned char>& v)
{
    return std::string(v.begin(), v.end());
}

std::string WrittenToFile(const MStlFileTriangle& f, bool binary)
{
    FILE* file = std::tmpfile();
    EXPECT_NE(file, nullptr);
    if (file == nullptr)
        return std::string();
    EXPECT_TRUE(f.Write(file, binary));
    std::fflush(file);
    std::string text(static_cast<std::size_t>(std::ftell(file)), '\0');
    std::rewind(file);
    EXPECT_EQ(std::fread(&text[0], 1, text.size(), file), text.size());
    std::fclose(file);
    return text;
}

std::string WrittenToMFile(const MStlFileTriangle& f, bool binary)
{
    MMemoryFile file;
    EXPECT_TRUE(file.OpenWrite());
    EXPECT_TRUE(f.Write(file, binary));
    EXPECT_TRUE(file.Flush());
    return Bytes(file.GetData());
}

void ExpectSameFacet(const MStlFileTriangle& a, const MStlFileTriangle& b)
{
    EXPECT_EQ(a.GetNormal(), b.GetNormal());
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(a.GetVertex(i), b.GetVertex(i)) << "corner " << i;
    EXPECT_EQ(a.GetAttribute(), b.GetAttribute());
}
} // namespace

TEST(MStlFileTriangle, DefaultIsAllZero)
{
    const MStlFileTriangle f;
    EXPECT_EQ(f.GetNormal(), Point(0.0, 0.0, 0.0));
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(f.GetVertex(i), Point(0.0, 0.0, 0.0));
    EXPECT_EQ(f.GetAttribute(), 0);
    EXPECT_TRUE(f.IsValid());
}

TEST(MStlFileTriangle, BinaryFacetIsTheSame50BytesOnEveryTarget)
{
    const MStlFileTriangle f = SampleFacet();
    const std::string expected = Bytes(kSampleBinary);

    std::ostringstream stream;
    EXPECT_TRUE(f.Write(stream, true));
    EXPECT_EQ(stream.str(), expected);
    EXPECT_EQ(WrittenToFile(f, true), expected);
    EXPECT_EQ(WrittenToMFile(f, true), expected);

    unsigned char encoded[MStlFileTriangle::BINARY_SIZE];
    f.EncodeBinary(encoded);
    EXPECT_EQ(std::string(encoded, encoded + sizeof encoded), expected);
}

TEST(MStlFileTriangle, BinaryReadWidensFloatsExactly)
{
    std::istringstream stream(Bytes(kSampleBinary));
    MStlFileTriangle f;
    EXPECT_FALSE(f.ReadBinary(stream)) << "the third corner has an infinite z";
    EXPECT_EQ(stream.tellg(), std::streampos(50)) << "an invalid facet is still consumed whole";
    EXPECT_EQ(f.GetNormal(), Point(0.0, 0.0, 1.0));
    EXPECT_EQ(f.GetVertex(0), Point(1.0, 2.0, 3.0));
    EXPECT_EQ(f.GetVertex(1)[0], -1.5);
    EXPECT_EQ(f.GetVertex(1)[1], 0.25);
    EXPECT_TRUE(std::isinf(f.GetVertex(1)[2]));
    EXPECT_EQ(f.GetAttribute(), 0x8001);

    // 0.1 is not a float: the value read is the float nearest to 0.1, widened without change.
    MStlFileTriangle g;
    g.SetVertex(0, Point(0.1, 1e-3, 16777217.0));
    std::ostringstream out;
    g.Write(out, true);
    std::istringstream in(out.str());
    MStlFileTriangle back;
    EXPECT_TRUE(back.Read(in, true));
    EXPECT_EQ(back.GetVertex(0), Point(double(0.1f), double(1e-3f), 16777216.0));

    MMemoryFile file;
    ASSERT_TRUE(file.OpenRead(kSampleBinary.data(), kSampleBinary.size()));
    MStlFileTriangle fromFile;
    EXPECT_FALSE(fromFile.Read(file));
    ExpectSameFacet(fromFile, f);
    EXPECT_EQ(file.Tell(), 50);
}

TEST(MStlFileTriangle, ValidityLooksAtTheCornersOnly)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    MStlFileTriangle f;
    f.SetNormal(Point(nan, nan, nan));
    EXPECT_TRUE(f.IsValid());
    for (std::size_t corner = 0; corner < 3; ++corner)
    {
        for (std::size_t axis = 0; axis < 3; ++axis)
        {
            for (double bad : {nan, inf, -inf})
            {
                MStlFileTriangle g;
                Point p;
                p[axis] = bad;
                g.SetVertex(corner, p);
                EXPECT_FALSE(g.IsValid()) << corner << "/" << axis << "/" << bad;
            }
        }
    }

    // A NaN normal in a binary facet reads as valid.
    std::vector<unsigned char> bytes = kSampleBinary;
    bytes[35] = 0x3F; // third corner z: +inf -> 1.0
    bytes[3] = 0x7F;
    bytes[2] = 0xC0; // normal x: quiet NaN
    std::istringstream stream(Bytes(bytes));
    MStlFileTriangle g;
    EXPECT_TRUE(g.ReadBinary(stream));
    EXPECT_TRUE(std::isnan(g.GetNormal()[0]));
}

TEST(MStlFileTriangle, ShortBinaryReadKeepsTheScratchBuffer)
{
    // 20 bytes: the normal (1, 2, 3), then 8 bytes of the first corner (4, 5). The first corner keeps
    // z from the normal's buffer; the later fields read nothing and repeat the buffer.
    const std::vector<unsigned char> bytes = {0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x00, 0x40, 0x00, 0x00,
                                              0x40, 0x40, 0x00, 0x00, 0x80, 0x40, 0x00, 0x00, 0xA0, 0x40};
    std::istringstream stream(Bytes(bytes));
    MStlFileTriangle f;
    f.SetAttribute(7);
    EXPECT_TRUE(f.ReadBinary(stream));
    EXPECT_TRUE(stream.eof());
    EXPECT_EQ(f.GetNormal(), Point(1.0, 2.0, 3.0));
    EXPECT_EQ(f.GetVertex(0), Point(4.0, 5.0, 3.0));
    EXPECT_EQ(f.GetVertex(1), Point(4.0, 5.0, 3.0));
    EXPECT_EQ(f.GetVertex(2), Point(4.0, 5.0, 3.0));
    EXPECT_EQ(f.GetAttribute(), 0);

    // MFile zero-fills past the end.
    MMemoryFile file;
    ASSERT_TRUE(file.OpenRead(bytes.data(), bytes.size()));
    MStlFileTriangle g;
    EXPECT_TRUE(g.Read(file));
    EXPECT_EQ(g.GetVertex(0), Point(4.0, 5.0, 0.0));
    EXPECT_EQ(g.GetVertex(2), Point(0.0, 0.0, 0.0));
    EXPECT_TRUE(file.HasError());
}

TEST(MStlFileTriangle, FormattedTextIsTheSameOnFileAndMFile)
{
    const MStlFileTriangle f = TextFacet();
    EXPECT_EQ(WrittenToFile(f, false), kTextFacetFormatted);
    EXPECT_EQ(WrittenToMFile(f, false), kTextFacetFormatted);
}

TEST(MStlFileTriangle, FormattedTextIgnoresTheProcessLocale)
{
    const std::string saved = std::setlocale(LC_ALL, nullptr);
    if (!std::setlocale(LC_ALL, "de_DE.UTF-8") && !std::setlocale(LC_ALL, "de_DE.utf8"))
        GTEST_SKIP() << "the de_DE.UTF-8 locale is not installed";
    const std::string file = WrittenToFile(TextFacet(), false);
    const std::string mfile = WrittenToMFile(TextFacet(), false);
    std::setlocale(LC_ALL, saved.c_str());
    EXPECT_EQ(file, kTextFacetFormatted);
    EXPECT_EQ(mfile, kTextFacetFormatted);
}

TEST(MStlFileTriangle, StreamTextUsesStreamFormattingAndFacetVertexLines)
{
    const MStlFileTriangle f = TextFacet();
    std::ostringstream stream;
    EXPECT_TRUE(f.Write(stream, false));
    EXPECT_EQ(stream.str(), kTextFacetStream);
    EXPECT_NE(stream.str(), WrittenToFile(f, false));

    // The stream's own precision applies.
    std::ostringstream precise;
    precise.precision(10);
    f.Write(precise, false);
    EXPECT_NE(precise.str().find("facet vertex -10.5 0.123456789 1234.5\n"), std::string::npos);

    std::ostringstream failed;
    failed.setstate(std::ios::badbit);
    EXPECT_FALSE(f.Write(failed, false));
    EXPECT_FALSE(f.Write(failed, true));
}

TEST(MStlFileTriangle, TextRoundTripsThroughReadAscii)
{
    const MStlFileTriangle f = TextFacet();
    std::istringstream formatted(kTextFacetFormatted);
    MStlFileTriangle back;
    EXPECT_TRUE(back.Read(formatted, false));
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t axis = 0; axis < 3; ++axis)
            EXPECT_NEAR(back.GetVertex(i)[axis], f.GetVertex(i)[axis], 5e-9);
    EXPECT_NEAR(back.GetNormal()[2], 0.123457, 1e-12);

    // The stream form has an extra "facet" before each vertex; the grammar skips it.
    std::istringstream streamed(kTextFacetStream);
    MStlFileTriangle back2;
    EXPECT_TRUE(back2.ReadAscii(streamed, "name"));
    EXPECT_EQ(back2.GetVertex(2), Point(0.0, -1e-9, 100000.0));
}

TEST(MStlFileTriangle, AsciiKeywordsIgnoreCaseButNamesDoNot)
{
    std::istringstream upper("FACET NORMAL 0 0 1 OUTER LOOP VERTEX 1 2 3 Vertex 4 5 6 vErTeX 7 8 9 "
                             "ENDLOOP ENDFACET");
    MStlFileTriangle f;
    EXPECT_TRUE(f.ReadAscii(upper, "Part"));
    EXPECT_EQ(f.GetVertex(2), Point(7.0, 8.0, 9.0));
    EXPECT_EQ(f.GetNormal(), Point(0.0, 0.0, 1.0));

    const std::string facet = " facet normal 0 0 1 outer loop vertex 1 1 1 vertex 2 2 2 vertex 3 3 3 "
                              "endloop endfacet";
    // "endsolid" with the solid's own name ends the solid...
    std::istringstream closing("ENDSOLID Part" + facet);
    MStlFileTriangle g;
    EXPECT_FALSE(g.ReadAscii(closing, "Part"));
    // ...but a name in another case does not, and the next facet is read.
    std::istringstream otherCase("endsolid part" + facet);
    EXPECT_TRUE(g.ReadAscii(otherCase, "Part"));
    EXPECT_EQ(g.GetVertex(2), Point(3.0, 3.0, 3.0));
    // An empty name disables the test: the tokens endsolid x solid y are skipped.
    std::istringstream unnamed("endsolid x solid y" + facet);
    MStlFileTriangle h;
    EXPECT_TRUE(h.Read(unnamed, false));
    EXPECT_EQ(h.GetVertex(0), Point(1.0, 1.0, 1.0));
}

TEST(MStlFileTriangle, FacetWithoutNormalSwallowsTheNextFacet)
{
    std::istringstream text("facet outer loop vertex 1 1 1 vertex 2 2 2 vertex 3 3 3 endloop endfacet\n"
                            "facet normal 0 0 1 outer loop vertex 4 4 4 vertex 5 5 5 vertex 6 6 6 endloop "
                            "endfacet");
    MStlFileTriangle f;
    f.SetNormal(Point(9.0, 9.0, 9.0));
    EXPECT_TRUE(f.ReadAscii(text, ""));
    EXPECT_EQ(f.GetVertex(0), Point(4.0, 4.0, 4.0)) << "the first facet's corners are lost";
    EXPECT_EQ(f.GetNormal(), Point(9.0, 9.0, 9.0)) << "without \"normal\" the normal is left as it was";
    MStlFileTriangle g;
    EXPECT_FALSE(g.ReadAscii(text, ""));
}

TEST(MStlFileTriangle, AsciiFailures)
{
    MStlFileTriangle f;
    std::istringstream badNumber("facet normal 0 0 1 outer loop vertex 1,5 2 3");
    try
    {
        f.ReadAscii(badNumber, "");
        ADD_FAILURE() << "a bad number must throw";
    }
    catch (const std::runtime_error& e)
    {
        EXPECT_STREQ(e.what(), "Can't convert double");
    }
    std::istringstream badNormal("facet normal 0 x 1 outer loop");
    EXPECT_THROW(f.ReadAscii(badNormal, ""), std::runtime_error);

    // The end of the input anywhere inside a facet is a plain false, also where a number is due.
    for (const char* text :
         {"", "   ", "facet", "facet normal", "facet normal 0 0", "facet normal 0 0 1 outer",
          "facet normal 0 0 1 outer loop vertex 1 2 3 vertex 1 2 3 vertex 1 2",
          "facet normal 0 0 1 outer loop vertex 1 2 3 vertex 1 2 3 vertex 1 2 3 endloop"})
    {
        std::istringstream stream(text);
        MStlFileTriangle g;
        EXPECT_FALSE(g.ReadAscii(stream, "")) << '"' << text << '"';
    }

    // An infinite corner makes the facet invalid after it has been read completely.
    std::istringstream infinite("facet normal 0 0 1 outer loop vertex 1 2 inf vertex 1 2 3 vertex 1 2 3 "
                                "endloop endfacet next");
    EXPECT_FALSE(f.ReadAscii(infinite, ""));
    std::string rest;
    infinite >> rest;
    EXPECT_EQ(rest, "next");
}

TEST(MStlFileTriangle, LastTokenAtTheEndOfTheInputCounts)
{
    std::istringstream text(
        "facet normal 0 0 1 outer loop vertex 1 2 3 vertex 4 5 6 vertex 7 8 9 endloop endfacet");
    MStlFileTriangle f;
    EXPECT_TRUE(f.ReadAscii(text, ""));
    EXPECT_TRUE(text.eof());
}

TEST(MStlFileTriangle, NormalHelpers)
{
    MStlFileTriangle f;
    f.SetVertex(0, Point(0.0, 0.0, 0.0));
    f.SetVertex(1, Point(2.0, 0.0, 0.0));
    f.SetVertex(2, Point(0.0, 3.0, 0.0));
    f.SetNormal(Point(0.0, 0.0, -4.0));
    EXPECT_EQ(f.GetGeometricNormal(), Point(0.0, 0.0, 1.0));
    EXPECT_EQ(f.GetNormalizedNormal(), Point(0.0, 0.0, -1.0));
    f.SetVertex(2, Point(4.0, 0.0, 0.0));
    EXPECT_EQ(f.GetGeometricNormal(), Point(0.0, 0.0, 0.0)) << "collinear corners";
}
