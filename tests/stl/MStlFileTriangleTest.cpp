// The facet record: its 50-byte binary form, the three text forms and the grammar of one ASCII facet.
#include "StlBuildTestSupport.h"

#include <KelSDK/FileIO/MFile.h>

#include <clocale>

using namespace StlBuildTest;

namespace
{
// 1e300 does not fit a float and is written as +inf; the bytes are float32 little-endian.
const MStlFileTriangle kSample = Facet({1, 2, 3}, {-1.5, 0.25, 1e300}, {0, 0, 0}, 0x8001, {0, 0, 1});
const std::string kSampleBinary = "\0\0\0\0\0\0\0\0\0\0\x80\x3F"s         // normal 0, 0, 1
                                  "\0\0\x80\x3F\0\0\0\x40\0\0\x40\x40"s   // 1, 2, 3
                                  "\0\0\xC0\xBF\0\0\x80\x3E\0\0\x80\x7F"s // -1.5, 0.25, +inf
                                  "\0\0\0\0\0\0\0\0\0\0\0\0\x01\x80"s;    // 0, 0, 0, attribute 0x8001
// A facet whose numbers need rounding in the "%f" and "%.8f" forms.
const MStlFileTriangle kText =
    Facet({1, 2, 3}, {-10.5, 0.123456789, 1234.5}, {0, -0.000000001, 100000}, 0, {0.5, -0.25, 0.1234567});
const std::string kTextFormatted = "facet normal 0.500000 -0.250000 0.123457\nouter loop\n"
                                   "vertex 1.00000000 2.00000000 3.00000000\n"
                                   "vertex -10.50000000 0.12345679 1234.50000000\n"
                                   "vertex 0.00000000 -0.00000000 100000.00000000\nendloop\nendfacet\n";
const std::string kTextStream = "facet normal 0.5 -0.25 0.123457\nouter loop\nfacet vertex 1 2 3\n"
                                "facet vertex -10.5 0.123457 1234.5\nfacet vertex 0 -1e-09 100000\n"
                                "endloop\nendfacet\n";

// The bytes that Write(FILE*) and Write(MFile&) give, one after the other.
std::string WrittenTwice(const MStlFileTriangle& f, bool binary)
{
    FILE* file = std::tmpfile();
    KelSDK::FileIO::MMemoryFile memory;
    if (file == nullptr || !memory.OpenWrite())
        return "no file";
    EXPECT_TRUE(f.Write(file, binary));
    EXPECT_TRUE(f.Write(memory, binary));
    EXPECT_TRUE(memory.Flush());
    std::string text(static_cast<std::size_t>(std::ftell(file)), '\0');
    std::rewind(file);
    EXPECT_EQ(std::fread(&text[0], 1, text.size(), file), text.size());
    std::fclose(file);
    return text + std::string(memory.GetData().begin(), memory.GetData().end());
}

// Normal, corners and attribute word.
std::string Describe(const MStlFileTriangle& f)
{
    std::ostringstream out;
    out.precision(10);
    for (const auto& p : {f.GetNormal(), f.GetVertex(0), f.GetVertex(1), f.GetVertex(2)})
        out << p[0] << ' ' << p[1] << ' ' << p[2] << " / ";
    return out.str() + std::to_string(f.GetAttribute());
}

// The facet read from text or false, then the next token left in the input.
std::string Outcome(const std::string& text, const std::string& name)
{
    std::istringstream stream(text);
    MStlFileTriangle f;
    std::string result = f.ReadAscii(stream, name) ? Describe(f) : "false", rest;
    stream >> rest;
    return result + " | " + rest;
}
} // namespace

TEST(MStlFileTriangle, BinaryGoldenBytesReadBackValidityAndShortReads)
{
    std::ostringstream stream;
    unsigned char encoded[MStlFileTriangle::BINARY_SIZE];
    kSample.EncodeBinary(encoded);
    EXPECT_TRUE(kSample.Write(stream, true));
    EXPECT_EQ(stream.str() + std::string(encoded, encoded + 50) + WrittenTwice(kSample, true),
              kSampleBinary + kSampleBinary + kSampleBinary + kSampleBinary);
    // Both binary readers consume an invalid facet (corner 1 has an infinite z) whole, bit for bit.
    std::istringstream in(kSampleBinary);
    MStlFileTriangle f, g;
    KelSDK::FileIO::MMemoryFile file;
    ASSERT_TRUE(file.OpenRead(kSampleBinary.data(), kSampleBinary.size()));
    EXPECT_FALSE(f.Read(in, true));
    EXPECT_FALSE(g.Read(file));
    EXPECT_EQ(in.tellg(), std::streampos(50));
    EXPECT_EQ(file.Tell(), 50);
    EXPECT_EQ(Describe(g), Describe(f));
    EXPECT_EQ(Describe(f), "0 0 1 / 1 2 3 / -1.5 0.25 inf / 0 0 0 / 32769");
    // Validity looks at the nine corner coordinates only: a NaN normal read from a file is valid.
    std::string bytes = kSampleBinary;
    bytes.replace(0, 4, "\0\0\xC0\x7F"s);
    bytes[35] = 0x3F; // corner 1 z: +inf -> 1.0
    std::istringstream nanNormal(bytes);
    EXPECT_TRUE(f.ReadBinary(nanNormal));
    EXPECT_TRUE(std::isnan(f.GetNormal()[0]));
    EXPECT_FALSE(Facet({}, {}, {0, 0, NAN}).IsValid());

    // A short read (normal 1 2 3, corner 4 5): streams repeat the scratch buffer, MFile reads zeros.
    bytes = "\0\0\x80\x3F\0\0\0\x40\0\0\x40\x40\0\0\x80\x40\0\0\xA0\x40"s;
    std::istringstream shortStream(bytes);
    f.SetAttribute(7);
    EXPECT_TRUE(f.ReadBinary(shortStream));
    EXPECT_TRUE(shortStream.eof());
    EXPECT_EQ(Describe(f), "1 2 3 / 4 5 3 / 4 5 3 / 4 5 3 / 0");
    ASSERT_TRUE(file.OpenRead(bytes.data(), bytes.size()));
    EXPECT_TRUE(f.Read(file));
    EXPECT_TRUE(file.HasError());
    EXPECT_EQ(Describe(f), "1 2 3 / 4 5 0 / 0 0 0 / 0 0 0 / 0");
}

// A host application may run under a locale whose decimal separator is a comma; STL text keeps its point.
TEST(MStlFileTriangle, TextIgnoresACommaDecimalLocale)
{
    const std::string saved = std::setlocale(LC_ALL, nullptr);
    if (!std::setlocale(LC_ALL, "de_DE.UTF-8") && !std::setlocale(LC_ALL, "de_DE.utf8"))
        GTEST_SKIP() << "the de_DE.UTF-8 locale is not installed (scripts/install-deps generates it)";
    const std::string written = WrittenTwice(kText, false);
    std::setlocale(LC_ALL, saved.c_str());
    EXPECT_EQ(written, kTextFormatted + kTextFormatted);
}

TEST(MStlFileTriangle, TextFormsAndTheirGrammar)
{
    // Streams use their own formatting and "facet vertex" lines; the others ignore the process locale.
    std::ostringstream stream, failed;
    failed.setstate(std::ios::badbit);
    EXPECT_TRUE(kText.Write(stream, false));
    EXPECT_FALSE(kText.Write(failed, false));
    EXPECT_FALSE(kText.Write(failed, true));
    EXPECT_EQ(stream.str(), kTextStream);
    EXPECT_EQ(WrittenTwice(kText, false), kTextFormatted + kTextFormatted);

    const std::string facet =
        " facet normal 0 0 1 outer loop vertex 1 1 1 vertex 2 2 2 vertex 3 3 3 endloop endfacet";
    const std::string one23 = "0 0 1 / 1 1 1 / 2 2 2 / 3 3 3 / 0 | ";
    const std::vector<std::array<std::string, 3>> rows = {
        // Both text forms read back; the stream form's extra "facet" before each vertex is skipped.
        {kTextFormatted, "", "0.5 -0.25 0.123457 / 1 2 3 / -10.5 0.12345679 1234.5 / 0 -0 100000 / 0 | "},
        {kTextStream, "name", "0.5 -0.25 0.123457 / 1 2 3 / -10.5 0.123457 1234.5 / 0 -1e-09 100000 / 0 | "},
        // Keywords in any case; "endsolid" with the solid's own name ends it, and without a name it is
        // skipped.
        {"FACET NORMAL 0 0 1 OUTER LOOP VERTEX 1 1 1 Vertex 2 2 2 vErTeX 3 3 3 ENDLOOP ENDFACET", "P", one23},
        {"ENDSOLID Part" + facet, "Part", "false | facet"},
        {"endsolid x solid y" + facet, "", one23},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Outcome(row[0], row[1]), row[2]) << '"' << row[0] << '"';
    EXPECT_THAT([&] { Outcome("facet normal 0 0 1 outer loop vertex 1,5 2 3", ""); },
                ::testing::ThrowsMessage<std::runtime_error>(::testing::StrEq("Can't convert double")));
    // The end of the input anywhere inside a facet is a plain false, also where a number is due.
    const std::string loop = "facet normal 0 0 1 outer loop vertex 1 2 3 vertex 1 2 3 vertex 1 2";
    for (const std::string& cut : {""s, "stray"s, "facet"s, "facet normal 0 0"s, "facet normal 0 0 1 outer"s,
                                   loop, loop + " 3 endloop"})
        EXPECT_EQ(Outcome(cut, ""), "false | ") << '"' << cut << '"';
}
