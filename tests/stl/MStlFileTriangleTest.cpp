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
#include <utility>
#include <vector>

using KelSDK::FileIO::MMemoryFile;
using KelSDK::Triangles::IO::MStlFileTriangle;
using Point = MStlFileTriangle::Point;

namespace
{
MStlFileTriangle MakeFacet(Point normal, Point a, Point b, Point c, uint16_t attribute = 0)
{
    MStlFileTriangle f;
    f.SetNormal(normal);
    f.SetVertex(0, a);
    f.SetVertex(1, b);
    f.SetVertex(2, c);
    f.SetAttribute(attribute);
    return f;
}

// 1e300 does not fit a float and is written as +inf.
const MStlFileTriangle kSample = MakeFacet(Point(0.0, 0.0, 1.0), Point(1.0, 2.0, 3.0),
                                           Point(-1.5, 0.25, 1e300), Point(0.0, 0.0, 0.0), 0x8001);

// The sample facet in binary, written out field by field (float32 little-endian).
const std::string kSampleBinary("\0\0\0\0\0\0\0\0\0\0\x80\x3F"         // normal 0, 0, 1
                                "\0\0\x80\x3F\0\0\0\x40\0\0\x40\x40"   // 1, 2, 3
                                "\0\0\xC0\xBF\0\0\x80\x3E\0\0\x80\x7F" // -1.5, 0.25, +inf
                                "\0\0\0\0\0\0\0\0\0\0\0\0"             // 0, 0, 0
                                "\x01\x80",                            // attribute 0x8001
                                50);

// A facet whose numbers need rounding in the "%f" and "%.8f" forms.
const MStlFileTriangle kText =
    MakeFacet(Point(0.5, -0.25, 0.1234567), Point(1.0, 2.0, 3.0), Point(-10.5, 0.123456789, 1234.5),
              Point(0.0, -0.000000001, 100000.0));

const char* const kTextFormatted = "facet normal 0.500000 -0.250000 0.123457\nouter loop\n"
                                   "vertex 1.00000000 2.00000000 3.00000000\n"
                                   "vertex -10.50000000 0.12345679 1234.50000000\n"
                                   "vertex 0.00000000 -0.00000000 100000.00000000\nendloop\nendfacet\n";

const char* const kTextStream = "facet normal 0.5 -0.25 0.123457\nouter loop\nfacet vertex 1 2 3\n"
                                "facet vertex -10.5 0.123457 1234.5\nfacet vertex 0 -1e-09 100000\n"
                                "endloop\nendfacet\n";

std::string WrittenToFile(const MStlFileTriangle& f, bool binary)
{
    FILE* file = std::tmpfile();
    if (file == nullptr)
        return "no temporary file";
    EXPECT_TRUE(f.Write(file, binary));
    std::string text(static_cast<std::size_t>(std::ftell(file)), '\0');
    std::rewind(file);
    EXPECT_EQ(std::fread(&text[0], 1, text.size(), file), text.size());
    std::fclose(file);
    return text;
}

std::string Encoded(const MStlFileTriangle& f)
{
    unsigned char bytes[MStlFileTriangle::BINARY_SIZE];
    f.EncodeBinary(bytes);
    return std::string(bytes, bytes + sizeof bytes);
}

std::string WrittenToMFile(const MStlFileTriangle& f, bool binary)
{
    MMemoryFile file;
    EXPECT_TRUE(file.OpenWrite());
    EXPECT_TRUE(f.Write(file, binary));
    EXPECT_TRUE(file.Flush());
    return std::string(file.GetData().begin(), file.GetData().end());
}
} // namespace

TEST(MStlFileTriangle, BinaryGoldenBytesOnEveryTargetAndReadBack)
{
    std::ostringstream stream;
    EXPECT_TRUE(kSample.Write(stream, true));
    EXPECT_EQ(stream.str(), kSampleBinary);
    EXPECT_EQ(WrittenToFile(kSample, true), kSampleBinary);
    EXPECT_EQ(WrittenToMFile(kSample, true), kSampleBinary);
    EXPECT_EQ(Encoded(kSample), kSampleBinary);

    std::istringstream in(kSampleBinary);
    MStlFileTriangle f;
    EXPECT_FALSE(f.ReadBinary(in)) << "the third corner has an infinite z";
    EXPECT_EQ(in.tellg(), std::streampos(50)) << "an invalid facet is still consumed whole";
    EXPECT_EQ(f.GetVertex(1)[2], std::numeric_limits<double>::infinity());
    EXPECT_EQ(Encoded(f), kSampleBinary) << "every field read back bit for bit";

    MMemoryFile file;
    ASSERT_TRUE(file.OpenRead(kSampleBinary.data(), kSampleBinary.size()));
    MStlFileTriangle g;
    EXPECT_FALSE(g.Read(file));
    EXPECT_EQ(file.Tell(), 50);
    EXPECT_EQ(Encoded(g), kSampleBinary);

    // 0.1 is not a float: the value read is the float nearest to 0.1, widened without change.
    std::ostringstream out;
    MakeFacet(Point(), Point(0.1, 1e-3, 16777217.0), Point(), Point()).Write(out, true);
    std::istringstream back(out.str());
    EXPECT_TRUE(f.Read(back, true));
    EXPECT_EQ(f.GetVertex(0), Point(double(0.1f), double(1e-3f), 16777216.0));
}

TEST(MStlFileTriangle, ValidityLooksAtTheCornersOnly)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    EXPECT_TRUE(MakeFacet(Point(nan, nan, nan), Point(), Point(), Point()).IsValid());
    std::string bytes = kSampleBinary; // a binary facet with a NaN normal and finite corners reads as valid
    bytes.replace(0, 4, "\0\0\xC0\x7F", 4);
    bytes[35] = 0x3F; // third corner z: +inf -> 1.0
    std::istringstream stream(bytes);
    MStlFileTriangle f;
    EXPECT_TRUE(f.ReadBinary(stream) && std::isnan(f.GetNormal()[0]));
    for (int i = 0; i < 27; ++i)
    {
        MStlFileTriangle g;
        Point p;
        p[i % 3] = i / 9 == 0 ? nan : (i / 9 == 1 ? inf : -inf);
        g.SetVertex(i / 3 % 3, p);
        EXPECT_FALSE(g.IsValid()) << "corner " << i / 3 % 3 << ", axis " << i % 3 << ": " << p[i % 3];
    }
}

TEST(MStlFileTriangle, ShortBinaryReadKeepsTheScratchBuffer)
{
    // The normal (1, 2, 3), then 8 bytes of the first corner (4, 5): the first corner keeps z from
    // the normal's buffer; the later fields read nothing and repeat the buffer.
    const std::string bytes("\0\0\x80\x3F\0\0\0\x40\0\0\x40\x40\0\0\x80\x40\0\0\xA0\x40", 20);
    std::istringstream stream(bytes);
    MStlFileTriangle f;
    f.SetAttribute(7);
    EXPECT_TRUE(f.ReadBinary(stream));
    EXPECT_TRUE(stream.eof());
    EXPECT_EQ(f.GetNormal(), Point(1.0, 2.0, 3.0));
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(f.GetVertex(i), Point(4.0, 5.0, 3.0)) << i;
    EXPECT_EQ(f.GetAttribute(), 0);

    // MFile zero-fills past the end.
    MMemoryFile file;
    ASSERT_TRUE(file.OpenRead(bytes.data(), bytes.size()));
    EXPECT_TRUE(f.Read(file));
    EXPECT_EQ(f.GetVertex(0), Point(4.0, 5.0, 0.0));
    EXPECT_EQ(f.GetVertex(2), Point(0.0, 0.0, 0.0));
    EXPECT_TRUE(file.HasError());
}

TEST(MStlFileTriangle, TextGoldenFormsIgnoreTheProcessLocale)
{
    EXPECT_EQ(WrittenToFile(kText, false), kTextFormatted);
    EXPECT_EQ(WrittenToMFile(kText, false), kTextFormatted);

    // Streams use their own formatting and "facet vertex" lines.
    std::ostringstream stream;
    EXPECT_TRUE(kText.Write(stream, false));
    EXPECT_EQ(stream.str(), kTextStream);
    std::ostringstream failed;
    failed.setstate(std::ios::badbit);
    EXPECT_FALSE(kText.Write(failed, false));
    EXPECT_FALSE(kText.Write(failed, true));

    const std::string saved = std::setlocale(LC_ALL, nullptr);
    if (!std::setlocale(LC_ALL, "de_DE.UTF-8") && !std::setlocale(LC_ALL, "de_DE.utf8"))
        GTEST_SKIP() << "the de_DE.UTF-8 locale is not installed";
    const std::string file = WrittenToFile(kText, false);
    const std::string mfile = WrittenToMFile(kText, false);
    std::setlocale(LC_ALL, saved.c_str());
    EXPECT_EQ(file, kTextFormatted);
    EXPECT_EQ(mfile, kTextFormatted);
}

TEST(MStlFileTriangle, TextRoundTripsThroughReadAscii)
{
    std::istringstream formatted(kTextFormatted);
    MStlFileTriangle back;
    EXPECT_TRUE(back.Read(formatted, false));
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t axis = 0; axis < 3; ++axis)
            EXPECT_NEAR(back.GetVertex(i)[axis], kText.GetVertex(i)[axis], 5e-9);
    EXPECT_NEAR(back.GetNormal()[2], 0.123457, 1e-12);

    // The stream form has an extra "facet" before each vertex; the grammar skips it.
    std::istringstream streamed(kTextStream);
    EXPECT_TRUE(back.ReadAscii(streamed, "name"));
    EXPECT_EQ(back.GetVertex(2), Point(0.0, -1e-9, 100000.0));
}

TEST(MStlFileTriangle, AsciiGrammar)
{
    // Keywords ignore case; the last token at the very end of the input counts.
    std::istringstream upper(
        "FACET NORMAL 0 0 1 OUTER LOOP VERTEX 1 2 3 Vertex 4 5 6 vErTeX 7 8 9 ENDLOOP ENDFACET");
    MStlFileTriangle f;
    EXPECT_TRUE(f.ReadAscii(upper, "Part"));
    EXPECT_TRUE(upper.eof());
    EXPECT_EQ(f.GetVertex(2), Point(7.0, 8.0, 9.0));
    EXPECT_EQ(f.GetNormal(), Point(0.0, 0.0, 1.0));

    // "endsolid" with the solid's own name ends the solid; the name in another case does not, and an
    // empty name disables the test (the tokens endsolid x solid y are skipped).
    const std::string facet =
        " facet normal 0 0 1 outer loop vertex 1 1 1 vertex 2 2 2 vertex 3 3 3 endloop endfacet";
    std::istringstream closing("ENDSOLID Part" + facet), otherCase("endsolid part" + facet),
        unnamed("endsolid x solid y" + facet);
    EXPECT_FALSE(f.ReadAscii(closing, "Part"));
    EXPECT_TRUE(f.ReadAscii(otherCase, "Part"));
    EXPECT_EQ(f.GetVertex(2), Point(3.0, 3.0, 3.0));
    MStlFileTriangle h;
    EXPECT_TRUE(h.Read(unnamed, false));
    EXPECT_EQ(h.GetVertex(0), Point(1.0, 1.0, 1.0));

    // A facet without "normal" swallows the next facet.
    std::istringstream text("facet outer loop vertex 4 4 4 vertex 5 5 5 vertex 6 6 6 endloop endfacet\n" +
                            facet);
    f.SetNormal(Point(9.0, 9.0, 9.0));
    EXPECT_TRUE(f.ReadAscii(text, ""));
    EXPECT_EQ(f.GetVertex(0), Point(1.0, 1.0, 1.0)) << "the first facet's corners are lost";
    EXPECT_EQ(f.GetNormal(), Point(9.0, 9.0, 9.0)) << "without \"normal\" the normal is left as it was";
    EXPECT_FALSE(MStlFileTriangle().ReadAscii(text, ""));
}

TEST(MStlFileTriangle, AsciiFailures)
{
    // The end of the input anywhere inside a facet is a plain false, also where a number is due; a
    // bad number throws.
    const std::string bad = "Can't convert double";
    const std::pair<std::string, std::string> rows[] = {
        // clang-format off
        {"", ""}, {"   ", ""}, {"facet", ""}, {"facet normal", ""}, {"facet normal 0 0", ""},
        {"facet normal 0 0 1 outer", ""},
        {"facet normal 0 0 1 outer loop vertex 1 2 3 vertex 1 2 3 vertex 1 2", ""},
        {"facet normal 0 0 1 outer loop vertex 1 2 3 vertex 1 2 3 vertex 1 2 3 endloop", ""},
        {"facet normal 0 0 1 outer loop vertex 1,5 2 3", bad}, {"facet normal 0 x 1 outer loop", bad},
        // clang-format on
    };
    for (const auto& row : rows)
    {
        std::istringstream stream(row.first);
        std::string thrown;
        try
        {
            EXPECT_FALSE(MStlFileTriangle().ReadAscii(stream, "")) << '"' << row.first << '"';
        }
        catch (const std::runtime_error& e)
        {
            thrown = e.what();
        }
        EXPECT_EQ(thrown, row.second) << row.first;
    }

    // An infinite corner makes the facet invalid after it has been read completely.
    std::istringstream infinite("facet normal 0 0 1 outer loop vertex 1 2 inf vertex 1 2 3 vertex 1 2 3 "
                                "endloop endfacet next");
    EXPECT_FALSE(MStlFileTriangle().ReadAscii(infinite, ""));
    std::string rest;
    infinite >> rest;
    EXPECT_EQ(rest, "next");
}
