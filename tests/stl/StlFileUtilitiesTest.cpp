// Flavour detection, binary size consistency, and the double-to-grid transformation with its
// overflow boundaries.
#include <KelSDK/Triangles/IO/MStlReadTransformation.h>
#include <KelSDK/Triangles/IO/StlFileUtilities.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>

namespace fs = std::filesystem;
using KelSDK::Math::boundingbox;
using KelSDK::Math::point;
using Grid = point<int, 3>;
using P3 = point<double, 3>;
using KelSDK::Triangles::IO::MStlReadTransformation;
namespace Utilities = KelSDK::Triangles::IO::StlFileUtilities;

namespace
{
// A file in the temporary folder, removed when the test ends.
class TempFile
{
public:
    explicit TempFile(const std::string& bytes)
    {
        static int counter = 0;
        path_ = fs::temp_directory_path() /
                ("kel_stlutil_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "_" +
                 std::to_string(counter++) + ".stl");
        std::ofstream out(path_, std::ios::binary);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    ~TempFile() { fs::remove(path_); }
    std::wstring Name() const { return path_.wstring(); }

private:
    fs::path path_;
};

std::string Word32(uint32_t v)
{
    std::string s(4, '\0');
    for (int i = 0; i < 4; ++i)
        s[static_cast<std::size_t>(i)] = static_cast<char>((v >> (8 * i)) & 0xFF);
    return s;
}

// A binary file: an 80-byte header starting with headerText, the count, then facetBytes bytes of
// facet data (zeros), then extra.
std::string BinaryFile(const std::string& headerText, uint32_t count, std::size_t facetBytes,
                       const std::string& extra = std::string())
{
    std::string header = headerText;
    header.resize(80, ' ');
    return header + Word32(count) + std::string(facetBytes, '\0') + extra;
}

bool IsAsciiText(const std::string& bytes)
{
    std::istringstream stream(bytes);
    return Utilities::IsAscii(stream);
}
} // namespace

TEST(StlFileUtilities, IsAsciiDecidesOnTheFacetPhrases)
{
    // A 299-byte text that starts with "solid" and holds "facet normal".
    std::string ascii = "solid part\n  facet normal 0 0 1\n";
    ascii.resize(299, ' ');
    EXPECT_TRUE(IsAsciiText(ascii));
    EXPECT_TRUE(IsAsciiText("SOLID x\nFACET NORMAL 0 0 1"));
    EXPECT_TRUE(IsAsciiText("Solid x\nfacet\nOuter Loop\n")) << "\"outer loop\" alone is enough";
    EXPECT_FALSE(IsAsciiText("solid x\nfacet  normal 0 0 1 outer\tloop")) << "the phrases have one blank";
    EXPECT_FALSE(IsAsciiText("solid x\n")) << "no phrase";

    // The phrases must lie within the first 300 bytes.
    std::string late = "solid x\n";
    late.resize(295, ' ');
    EXPECT_FALSE(IsAsciiText(late + "facet normal 0 0 1\n"));

    // Binary files whose header starts with "solid": binary unless a phrase is in the first 300 bytes.
    EXPECT_FALSE(IsAsciiText(BinaryFile("solid REAR_CASE", 4, 200)));
    EXPECT_TRUE(IsAsciiText(BinaryFile("solid x facet normal", 4, 200)));

    // Without "solid" at the start only bytes after the first 80 are searched.
    EXPECT_FALSE(IsAsciiText(std::string(80, 'x'))) << "80 bytes";
    EXPECT_FALSE(IsAsciiText(" solid x\nfacet normal 0 0 1\n")) << "short, and a blank before solid";
    EXPECT_FALSE(IsAsciiText(BinaryFile("header facet normal", 1, 50)));
    EXPECT_TRUE(IsAsciiText(std::string(80, ' ') + "facet normal"));
    EXPECT_TRUE(IsAsciiText(std::string(81, ' ') + "OUTER LOOP"));
    EXPECT_FALSE(IsAsciiText(std::string(75, ' ') + "facet normal" + std::string(20, ' ')))
        << "a phrase that starts before byte 80";

    EXPECT_FALSE(IsAsciiText(""));
    EXPECT_FALSE(IsAsciiText("soli"));
}

TEST(StlFileUtilities, IsAsciiRestoresTheStreamPosition)
{
    std::istringstream stream("solid x\nfacet normal 0 0 1\nouter loop\n");
    EXPECT_TRUE(Utilities::IsAscii(stream));
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(stream.tellg(), std::streampos(0));

    // Not at the start: the size is the end position, so the read comes up short.
    std::istringstream moved("solid x\nfacet normal 0 0 1\nouter loop\n");
    moved.seekg(2);
    EXPECT_FALSE(Utilities::IsAscii(moved));

    std::istringstream failed("solid x\nfacet normal");
    failed.setstate(std::ios::failbit);
    EXPECT_FALSE(Utilities::IsAscii(failed));
}

TEST(StlFileUtilities, IsAsciiOnFiles)
{
    TempFile ascii("solid t\nfacet normal 0 0 1\nouter loop\n");
    TempFile binary(BinaryFile("solid t", 1, 50));
    EXPECT_TRUE(Utilities::IsAscii(ascii.Name()));
    EXPECT_FALSE(Utilities::IsAscii(binary.Name()));
    EXPECT_FALSE(Utilities::IsAscii(std::wstring(L"/nonexistent/kel/none.stl")));
}

TEST(StlFileUtilities, VerifyHeaderConsistency)
{
    TempFile exact(BinaryFile("x", 2, 100));
    EXPECT_TRUE(Utilities::VerifyHeaderConsistency(exact.Name())) << "84 + 2 * 50 = 184 bytes";
    TempFile oneMore(BinaryFile("x", 2, 100, std::string(1, '\0')));
    EXPECT_FALSE(Utilities::VerifyHeaderConsistency(oneMore.Name())) << "185 bytes: the walk overshoots";
    TempFile shorter(BinaryFile("x", 2, 99));
    EXPECT_FALSE(Utilities::VerifyHeaderConsistency(shorter.Name()));
    TempFile twoBlocks(BinaryFile("x", 2, 100, Word32(3) + std::string(150, '\0')));
    EXPECT_TRUE(Utilities::VerifyHeaderConsistency(twoBlocks.Name()));
    TempFile zeroBlocks(BinaryFile("x", 0, 0, Word32(0) + Word32(0)));
    EXPECT_TRUE(Utilities::VerifyHeaderConsistency(zeroBlocks.Name()));
    TempFile badSecond(BinaryFile("x", 1, 50, Word32(3) + std::string(149, '\0')));
    EXPECT_FALSE(Utilities::VerifyHeaderConsistency(badSecond.Name()));
    // A further count cut short reads as 0: 184 + 4 > 186.
    TempFile cutCount(BinaryFile("x", 2, 100, std::string(2, '\x01')));
    EXPECT_FALSE(Utilities::VerifyHeaderConsistency(cutCount.Name()));

    TempFile tiny(std::string(83, 'x'));
    EXPECT_FALSE(Utilities::VerifyHeaderConsistency(tiny.Name()));
    TempFile ascii("solid t\nfacet normal 0 0 1\nouter loop\n");
    EXPECT_TRUE(Utilities::VerifyHeaderConsistency(ascii.Name())) << "ASCII is always consistent";
    EXPECT_FALSE(Utilities::VerifyHeaderConsistency(std::wstring(L"/nonexistent/kel/none.stl")));
    TempFile huge(BinaryFile("x", 0xFFFFFFFFu, 100));
    EXPECT_FALSE(Utilities::VerifyHeaderConsistency(huge.Name()));
}

TEST(MStlReadTransformation, RoundsHalvesAwayFromZero)
{
    const MStlReadTransformation t;
    point<int, 3> out;
    EXPECT_TRUE(t.Transform(P3(-2.5, 2.5, 0.49999999), out));
    EXPECT_EQ(out, Grid(-3, 3, 0));
    EXPECT_TRUE(t.Transform(P3(-0.5, 1.4999, -1.5000001), out));
    EXPECT_EQ(out, Grid(-1, 1, -2));
    EXPECT_EQ(t.TransformCoordinate(-2.5, 0), -3);
    EXPECT_EQ(t.TransformCoordinate(2.5, 2), 3);

    const MStlReadTransformation shifted(P3(10.0, -20.0, 0.25), 1000.0);
    EXPECT_TRUE(shifted.Transform(P3(0.0015, 0.0, -0.25), out));
    EXPECT_EQ(out, Grid(10002, -20000, 0));
    EXPECT_EQ(shifted.TransformCoordinate(0.0015, 0), 10002);
    EXPECT_EQ(shifted.TransformCoordinate(1.0, 1), -19000);
    EXPECT_EQ(shifted.TransformCoordinate(0.0, 2), 250);
}

TEST(MStlReadTransformation, OverflowBoundaries)
{
    const MStlReadTransformation t;
    point<int, 3> out;
    EXPECT_TRUE(t.Transform(P3(2147483647.0, -2147483647.0, 2147483646.5), out));
    EXPECT_EQ(out, Grid(INT_MAX, -INT_MAX, INT_MAX));
    EXPECT_FALSE(t.Transform(P3(2147483647.0001, 0.0, 0.0), out));
    EXPECT_FALSE(t.Transform(P3(0.0, -2147483647.5, 0.0), out));
    EXPECT_FALSE(t.Transform(P3(0.0, 0.0, -2147483648.0), out));
    // Values that cannot be converted get defined stand-ins (and the result false).
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    EXPECT_FALSE(t.Transform(P3(nan, inf, -1e300), out));
    EXPECT_EQ(out, Grid(0, INT_MAX, INT_MIN));

    const MStlReadTransformation scaled(P3(), 10000.0);
    EXPECT_TRUE(scaled.Transform(P3(214748.3647, 0.0, 0.0), out));
    EXPECT_FALSE(scaled.Transform(P3(214748.3648, 0.0, 0.0), out));

    EXPECT_EQ(t.TransformCoordinate(1e30, 0), std::numeric_limits<long>::max());
    EXPECT_EQ(t.TransformCoordinate(-1e30, 0), std::numeric_limits<long>::min());
    EXPECT_EQ(t.TransformCoordinate(nan, 1), 0);
}

TEST(StlFileUtilities, SuggestReadTransformation)
{
    const point<double, 3> origin;
    // A box that fits keeps a zero offset and the scale.
    const boundingbox<double, 3> small(P3(-10.0, -10.0, -10.0), P3(10.0, 20.0, 30.0));
    MStlReadTransformation t = Utilities::SuggestReadTransformation(small, P3(5.0, 5.0, 5.0), 1000.0);
    EXPECT_EQ(t.offset, origin);
    EXPECT_EQ(t.scale, 1000.0);

    // 0 .. 3e9 with scale 1: centred, and 1.5e9 fits.
    const boundingbox<double, 3> wide(P3(0.0, 0.0, 0.0), P3(3e9, 3e9, 3e9));
    t = Utilities::SuggestReadTransformation(wide, origin, 1.0);
    EXPECT_EQ(t.offset, P3(-1.5e9, -1.5e9, -1.5e9));
    EXPECT_EQ(t.scale, 1.0);
    // With scale 1000 the scale is divided by ten three times.
    t = Utilities::SuggestReadTransformation(wide, origin, 1000.0);
    EXPECT_EQ(t.offset, P3(-1.5e9, -1.5e9, -1.5e9));
    EXPECT_DOUBLE_EQ(t.scale, 1.0);

    // The bounds of the fit test: maximum 2147483646 and minimum -2147483647 (scale 1).
    const boundingbox<double, 3> atUpper(P3(0.0, 0.0, 0.0), P3(2147483646.0, 0.0, 0.0));
    EXPECT_EQ(Utilities::SuggestReadTransformation(atUpper, origin, 1.0).offset, origin);
    const boundingbox<double, 3> aboveUpper(P3(0.0, 0.0, 0.0), P3(2147483646.5, 0.0, 0.0));
    t = Utilities::SuggestReadTransformation(aboveUpper, origin, 1.0);
    EXPECT_EQ(t.offset[0], -1073741823.25);
    EXPECT_EQ(t.scale, 1.0);
    const boundingbox<double, 3> atLower(P3(-2147483647.0, 0.0, 0.0), P3(0.0, 0.0, 0.0));
    EXPECT_EQ(Utilities::SuggestReadTransformation(atLower, origin, 1.0).offset, origin);
    const boundingbox<double, 3> belowLower(P3(-2147483647.5, 0.0, 0.0), P3(0.0, 0.0, 0.0));
    EXPECT_NE(Utilities::SuggestReadTransformation(belowLower, origin, 1.0).offset, origin);

    // The reference point moves the centre; the factor test uses 2147483647 itself.
    const boundingbox<double, 3> span(P3(0.0, 0.0, 0.0), P3(4294967294.0, 0.0, 0.0));
    t = Utilities::SuggestReadTransformation(span, P3(0.0, 7.0, 0.0), 1.0);
    EXPECT_EQ(t.offset, P3(-2147483647.0, 7.0, 0.0));
    EXPECT_EQ(t.scale, 1.0) << "m = 2147483647 exactly is not above the limit";
    t = Utilities::SuggestReadTransformation(span, P3(1.0, 0.0, 0.0), 1.0);
    EXPECT_DOUBLE_EQ(t.scale, 0.1);

    // A box with an infinite side still ends with a (zero) scale instead of looping.
    const double inf = std::numeric_limits<double>::infinity();
    const boundingbox<double, 3> endless(P3(0.0, 0.0, 0.0), P3(inf, 0.0, 0.0));
    t = Utilities::SuggestReadTransformation(endless, origin, 1.0);
    EXPECT_EQ(t.scale, 0.0);
}
