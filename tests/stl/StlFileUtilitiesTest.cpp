// Flavour detection, binary size consistency, and the double-to-grid transformation with its
// overflow boundaries.
#include <KelSDK/Triangles/IO/MStlReadTransformation.h>
#include <KelSDK/Triangles/IO/StlFileUtilities.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>

namespace fs = std::filesystem;
using KelSDK::Math::boundingbox;
using Grid = KelSDK::Math::point<int, 3>;
using P3 = KelSDK::Math::point<double, 3>;
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
        std::ofstream(path_, std::ios::binary)
            .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    ~TempFile() { fs::remove(path_); }
    std::wstring Name() const { return path_.wstring(); }

private:
    fs::path path_;
};

std::string Word32(uint32_t v)
{
    return {char(v & 0xFF), char((v >> 8) & 0xFF), char((v >> 16) & 0xFF), char(v >> 24)};
}

// An 80-byte header starting with headerText, the count, facetBytes zero bytes, then extra.
std::string BinaryFile(const std::string& headerText, uint32_t count, std::size_t facetBytes,
                       const std::string& extra = std::string())
{
    std::string header = headerText;
    header.resize(80, ' ');
    return header + Word32(count) + std::string(facetBytes, '\0') + extra;
}

const std::string kAsciiText = "solid t\nfacet normal 0 0 1\nouter loop\n";
const std::wstring kMissing = L"/nonexistent/kel/none.stl";
} // namespace

TEST(StlFileUtilities, IsAscii)
{
    std::string ascii299 = "solid part\n  facet normal 0 0 1\n";
    ascii299.resize(299, ' ');
    std::string late = "solid x\n";
    late.resize(295, ' ');
    const struct
    {
        std::string bytes;
        bool ascii;
    } rows[] = {
        {ascii299, true},
        {"SOLID x\nFACET NORMAL 0 0 1", true},
        {"Solid x\nfacet\nOuter Loop\n", true},              // "outer loop" alone is enough
        {"solid x\nfacet  normal 0 0 1 outer\tloop", false}, // the phrases have one blank
        {"solid x\n", false},
        {late + "facet normal 0 0 1\n", false}, // the phrases must lie within the first 300 bytes
        // Binary files whose header starts with "solid": binary unless a phrase is in the first 300 bytes.
        {BinaryFile("solid REAR_CASE", 4, 200), false},
        {BinaryFile("solid x facet normal", 4, 200), true},
        // Without "solid" at the start only bytes after the first 80 are searched.
        {std::string(80, 'x'), false},
        {" solid x\nfacet normal 0 0 1\n", false},
        {BinaryFile("header facet normal", 1, 50), false},
        {std::string(80, ' ') + "facet normal", true},
        {std::string(81, ' ') + "OUTER LOOP", true},
        {std::string(75, ' ') + "facet normal" + std::string(20, ' '), false}, // starts before byte 80
        {"", false},
        {"soli", false},
    };
    for (const auto& row : rows)
    {
        std::istringstream stream(row.bytes);
        EXPECT_EQ(Utilities::IsAscii(stream), row.ascii) << row.bytes.substr(0, 40);
        EXPECT_TRUE(!row.ascii || (stream.good() && stream.tellg() == std::streampos(0)))
            << "position restored";
    }

    // Not at the start: the size is the end position, so the read comes up short.
    std::istringstream moved(kAsciiText), failed(kAsciiText);
    moved.seekg(2);
    EXPECT_FALSE(Utilities::IsAscii(moved));
    failed.setstate(std::ios::failbit);
    EXPECT_FALSE(Utilities::IsAscii(failed));

    EXPECT_FALSE(Utilities::IsAscii(kMissing));
}

TEST(StlFileUtilities, VerifyHeaderConsistency)
{
    const struct
    {
        std::string bytes;
        bool consistent;
    } rows[] = {
        {BinaryFile("x", 2, 100), true}, // 84 + 2 * 50 = 184 bytes
        {BinaryFile("x", 2, 100, std::string(1, '\0')),
         false}, // 185: a further count is read, the walk overshoots
        {BinaryFile("x", 2, 100, Word32(3) + std::string(150, '\0')), true},
        {BinaryFile("x", 0, 0, Word32(0) + Word32(0)), true},
        {BinaryFile("x", 1, 50, Word32(3) + std::string(149, '\0')), false},
        {BinaryFile("x", 2, 100, std::string(2, '\x01')), false}, // a count cut short reads as 0: 188 > 186
        {std::string(83, 'x'), false},
        {BinaryFile("x", 0xFFFFFFFFu, 100), false},
    };
    for (const auto& row : rows)
    {
        TempFile file(row.bytes);
        EXPECT_EQ(Utilities::VerifyHeaderConsistency(file.Name()), row.consistent) << row.bytes.size();
    }
    EXPECT_FALSE(Utilities::VerifyHeaderConsistency(kMissing));
}

TEST(MStlReadTransformation, RoundingAndOverflowBoundaries)
{
    const MStlReadTransformation t, shifted(P3(10.0, -20.0, 0.25), 1000.0), scaled(P3(), 10000.0);
    const double nan = std::numeric_limits<double>::quiet_NaN(),
                 inf = std::numeric_limits<double>::infinity();
    Grid out;
    // Halves round away from zero.
    EXPECT_TRUE(t.Transform(P3(-2.5, 2.5, 0.49999999), out) && out == Grid(-3, 3, 0)) << out[0];
    EXPECT_TRUE(t.Transform(P3(-0.5, 1.4999, -1.5000001), out) && out == Grid(-1, 1, -2)) << out[0];
    EXPECT_TRUE(shifted.Transform(P3(0.0015, 0.0, -0.25), out) && out == Grid(10002, -20000, 0)) << out[0];
    EXPECT_TRUE(t.Transform(P3(2147483647.0, -2147483647.0, 2147483646.5), out) &&
                out == Grid(INT_MAX, -INT_MAX, INT_MAX));
    EXPECT_TRUE(scaled.Transform(P3(214748.3647, 0.0, 0.0), out) && out == Grid(INT_MAX, 0, 0));
    EXPECT_FALSE(scaled.Transform(P3(214748.3648, 0.0, 0.0), out));
    EXPECT_FALSE(t.Transform(P3(2147483647.0001, 0.0, 0.0), out));
    EXPECT_FALSE(t.Transform(P3(0.0, -2147483647.5, 0.0), out));
    EXPECT_FALSE(t.Transform(P3(0.0, 0.0, -2147483648.0), out));
    // Values that cannot be converted get defined stand-ins (and the result false).
    EXPECT_FALSE(t.Transform(P3(nan, inf, -1e300), out));
    EXPECT_EQ(out, Grid(0, INT_MAX, INT_MIN));

    EXPECT_EQ(t.TransformCoordinate(-2.5, 0), -3);
    EXPECT_EQ(t.TransformCoordinate(2.5, 2), 3);
    EXPECT_EQ(shifted.TransformCoordinate(0.0015, 0), 10002);
    EXPECT_EQ(shifted.TransformCoordinate(1.0, 1), -19000);
    EXPECT_EQ(shifted.TransformCoordinate(0.0, 2), 250);
    EXPECT_EQ(t.TransformCoordinate(1e30, 0), std::numeric_limits<long>::max());
    EXPECT_EQ(t.TransformCoordinate(-1e30, 0), std::numeric_limits<long>::min());
    EXPECT_EQ(t.TransformCoordinate(nan, 1), 0);
}

TEST(StlFileUtilities, SuggestReadTransformation)
{
    const P3 origin;
    const auto suggest = [](P3 low, P3 high, P3 reference, double scale)
    { return Utilities::SuggestReadTransformation(boundingbox<double, 3>(low, high), reference, scale); };

    // A box that fits keeps a zero offset and the scale.
    MStlReadTransformation t =
        suggest(P3(-10.0, -10.0, -10.0), P3(10.0, 20.0, 30.0), P3(5.0, 5.0, 5.0), 1000.0);
    EXPECT_EQ(t.offset, origin);
    EXPECT_EQ(t.scale, 1000.0);
    // 0 .. 3e9 with scale 1: centred, and 1.5e9 fits; with scale 1000 the scale is divided by ten three
    // times.
    t = suggest(origin, P3(3e9, 3e9, 3e9), origin, 1.0);
    EXPECT_EQ(t.offset, P3(-1.5e9, -1.5e9, -1.5e9));
    EXPECT_EQ(t.scale, 1.0);
    t = suggest(origin, P3(3e9, 3e9, 3e9), origin, 1000.0);
    EXPECT_EQ(t.offset, P3(-1.5e9, -1.5e9, -1.5e9));
    EXPECT_DOUBLE_EQ(t.scale, 1.0);

    // The bounds of the fit test: maximum 2147483646 and minimum -2147483647 (scale 1).
    EXPECT_EQ(suggest(origin, P3(2147483646.0, 0.0, 0.0), origin, 1.0).offset, origin);
    t = suggest(origin, P3(2147483646.5, 0.0, 0.0), origin, 1.0);
    EXPECT_EQ(t.offset[0], -1073741823.25);
    EXPECT_EQ(t.scale, 1.0);
    EXPECT_EQ(suggest(P3(-2147483647.0, 0.0, 0.0), origin, origin, 1.0).offset, origin);
    EXPECT_NE(suggest(P3(-2147483647.5, 0.0, 0.0), origin, origin, 1.0).offset, origin);

    // The reference point moves the centre; the factor test uses 2147483647 itself.
    t = suggest(origin, P3(4294967294.0, 0.0, 0.0), P3(0.0, 7.0, 0.0), 1.0);
    EXPECT_EQ(t.offset, P3(-2147483647.0, 7.0, 0.0));
    EXPECT_EQ(t.scale, 1.0) << "m = 2147483647 exactly is not above the limit";
    EXPECT_DOUBLE_EQ(suggest(origin, P3(4294967294.0, 0.0, 0.0), P3(1.0, 0.0, 0.0), 1.0).scale, 0.1);

    // A box with an infinite side still ends with a (zero) scale instead of looping.
    EXPECT_EQ(suggest(origin, P3(std::numeric_limits<double>::infinity(), 0.0, 0.0), origin, 1.0).scale, 0.0);
}
