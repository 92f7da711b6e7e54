// STL import: both readers, the coloured header, real files and their prefixes, the driver and the rounding.
#include "StlBuildTestSupport.h"

#include <KelSDK/Triangles/IO/MStlFileReader.h>
#include <KelSDK/Triangles/IO/MStlFileReaderAscii.h>
#include <KelSDK/Triangles/IO/MStlFileReaderBinary.h>
#include <KelSDK/Triangles/IO/StlFileUtilities.h>

#include <climits>
#include <cstring>
#include <limits>
#include <tuple>

using namespace KelSDK::Triangles::Data;
using namespace KelSDK::Triangles::IO;
using R = MStlFileReaderBinary;
using Strings = std::vector<std::string>;
using Marks = std::vector<std::vector<int>>;
using Grid = KelSDK::Math::point<int, 3>;
using P3 = KelSDK::Math::point<double, 3>;

namespace
{
std::string Word32(uint32_t v)
{
    return {char(v & 0xFF), char((v >> 8) & 0xFF), char((v >> 16) & 0xFF), char(v >> 24)};
}

// An 80-byte header starting with text, the count, then the bytes that follow.
std::string Binary(std::string text, uint32_t count, const std::string& rest = "")
{
    text.resize(80, ' ');
    return text + Word32(count) + rest;
}

// Facets first, first + 1, ... of bytes below 64, so that every float is finite.
std::string Facets(int first, int count)
{
    std::string s;
    for (int i = first * 50; i < (first + count) * 50; ++i)
        s += static_cast<char>(i % 61);
    return s;
}

// The facets in their 50-byte binary form.
std::string Encoded(const std::vector<MStlFileTriangle>& facets)
{
    std::ostringstream out;
    for (const MStlFileTriangle& f : facets)
        f.Write(out, true);
    return out.str();
}

// Binary reader options, then the kinds of input stream: one that cannot seek (like a pipe), a failed one.
constexpr int kMultiple = 1, kFromSize = 2, kTrailing = 4, kPipe = 8, kFailed = 16;

struct PipeBuffer : std::streambuf
{
    explicit PipeBuffer(std::string& text) { setg(&text[0], &text[0], &text[0] + text.size()); }
};

// The code, the header, and the facets of each block written again as binary facets.
struct Result
{
    R::ErrorCode code = R::Ok;
    R::FileHeader header;
    Strings blocks;
};

Result Read(std::string bytes, int flags, std::vector<std::vector<MStlFileTriangle>> solids = {})
{
    PipeBuffer buffer(bytes);
    std::istream piped(&buffer);
    std::istringstream string(bytes);
    string.setstate((flags & kFailed) != 0 ? std::ios::badbit : std::ios::goodbit);
    R reader((flags & kPipe) != 0 ? piped : string);
    reader.SetOptions({(flags & kMultiple) != 0, (flags & kFromSize) != 0, (flags & kTrailing) != 0});
    Result r;
    r.code = reader.Read(r.header, solids, nullptr);
    for (const auto& solid : solids)
        r.blocks.push_back(Encoded(solid));
    return r;
}

// One solid of one facet with the three corners.
std::string Ascii(const std::string& a, const std::string& b = "1 0 0", const std::string& c = "0 1 0")
{
    return "solid s\nfacet normal 0 0 1\n outer loop\n  vertex " + a + "\n  vertex " + b + "\n  vertex " + c +
           "\n endloop\nendfacet\nendsolid s\n";
}

// A driver's read (or measuring) into a mesh that has the material 0x11223344, support set, solid not.
struct Reading
{
    explicit Reading(const std::string& bytes, const MStlReadOptions& options = {}, bool measureOnly = false)
        : reader(options)
    {
        MStlMaterial material;
        material.SetRGB(0x11223344u);
        mesh.SetMaterial(material);
        mesh.GetProperties().SetIsSupport(true);
        mesh.GetProperties().SetIsSupposedSolid(false);
        std::istringstream stream(bytes);
        reader.SetInputStream(&stream);
        reader.SetTargetStl(measureOnly ? nullptr : &mesh);
        ok = reader.Read(nullptr);
    }
    MStlFileReader reader;
    MStlBase mesh;
    bool ok = false;
};

// One facet whose first corner is (v, v, v).
std::string F(int v)
{
    const std::string n = std::to_string(v);
    return " facet normal 0 0 1\n  outer loop\n   vertex " + n + " " + n + " " + n +
           "\n   vertex 1 0 0\n   vertex 0 1 0\n  endloop\n endfacet\n";
}

// A read into lists holding one entry: code (-1: number error), names, first-corner x per solid, facets.
struct ReadResult
{
    int code = -1;
    Strings names{"kept"};
    Marks marks;
    std::vector<std::array<P3, 4>> all;
    bool failed = false;
};

ReadResult ReadText(std::string text, int flags = 0)
{
    PipeBuffer buffer(text);
    std::istream piped(&buffer);
    std::istringstream string(text);
    string.setstate((flags & kFailed) != 0 ? std::ios::failbit : std::ios::goodbit);
    std::istream& stream = (flags & kPipe) != 0 ? piped : string;
    std::vector<std::vector<MStlFileTriangle>> solids(1);
    ReadResult r;
    try
    {
        r.code = MStlFileReaderAscii(stream).Read(solids, r.names, nullptr);
    }
    catch (const std::runtime_error& e)
    {
        EXPECT_STREQ(e.what(), "Can't convert double");
    }
    EXPECT_EQ(r.names.at(0), "kept");
    EXPECT_TRUE(solids.at(0).empty());
    EXPECT_EQ(solids.size(), r.names.size());
    r.names.erase(r.names.begin());
    for (std::size_t s = 1; s < solids.size(); ++s)
    {
        r.marks.emplace_back();
        for (const MStlFileTriangle& f : solids[s])
        {
            r.all.push_back({f.GetNormal(), f.GetVertex(0), f.GetVertex(1), f.GetVertex(2)});
            r.marks.back().push_back(static_cast<int>(f.GetVertex(0)[0]));
        }
    }
    r.failed = stream.fail();
    return r;
}
} // namespace

TEST(MStlFileReaderAscii, SolidsNamesQuirksPipesAndBufferSeams)
{
    const int ok = MStlFileReaderAscii::Success, none = MStlFileReaderAscii::NoSolidFound;
    const std::string inf =
        "facet normal 0 0 1 outer loop vertex 1e999 0 0 vertex 1 0 0 vertex 0 1 0 endloop endfacet\n";
    const std::string mixed = "solid\tname\r\n\vFACET Normal 0 0 1\r\n OUTER\tLOOP\r\n VERTEX 1 2 3\r\n"
                              "VERTEX 4 5 6\f\nvertex 7 8 9\r\nENDLOOP\r\nEndFacet\r\nENDSOLID name";
    const std::string two = "solid a\n" + F(1) + F(2), longName(std::size_t(5) << 19, 'n');
    // clang-format off
    const std::tuple<int, Strings, Marks, std::string> rows[] = {
        {none, {}, {}, ""},
        {none, {}, {}, "solids endsolid soli d facet normal 0 0 1 outer loop vertex 1 2 3 endloop endfacet"},
        {ok, {"first", "second"}, {{1, 2}, {3}},
         "solid first extra words\n" + F(1) + F(2) + "endsolid first\nsolid second\n" + F(3)},
        // "solid" directly followed by "facet" (in any case): no name, so no endsolid ends it.
        {ok, {""}, {{5, 6}}, "solid " + F(5) + "endsolid x\n" + F(6) + "endsolid\n"},
        {ok, {""}, {{7}}, "SOLID FaCeT" + F(7).substr(6)},
        // A second unnamed solid repeats the name before it (also for endsolid); facet 3 lies between solids.
        {ok, {"a", "a", "c"}, {{1}, {2}, {4}},
         "solid a\n" + F(1) + "endsolid a\nsolid\n" + F(2) + "endsolid a\n" + F(3) + "solid c\n" + F(4)},
        // The name keeps its case: "ENDSOLID PART" does not close "Part", which runs on into "solid b".
        {ok, {"Part"}, {{1, 2}}, "SOLID Part\n" + F(1) + "ENDSOLID PART\nsolid b\n" + F(2) + "endsolid b\n"},
        // An invalid facet ends its solid; a solid without a valid facet still has its entries.
        {ok, {"a", "b"}, {{1}, {3}}, "solid a\n" + F(1) + inf + F(2) + "endsolid a\nsolid b\n" + F(3)},
        {ok, {"empty", "nothing"}, {{}, {}},
         "solid empty\n" + inf + "endsolid empty\nsolid nothing\nendsolid nothing\n"},
        // The input ending just before "endfacet" drops the facet; "endfacet" as the last bytes keeps it.
        {ok, {"a"}, {{1}}, two.substr(0, two.size() - 9)},
        {ok, {"a"}, {{1, 2}}, two.substr(0, two.size() - 1)},
        {ok, {"name"}, {{1}}, mixed},
        // A facet without "normal" swallows the next one.
        {ok, {"q"}, {{1}}, "solid q\nfacet outer loop vertex 4 4 4 vertex 5 5 5 vertex 6 6 6" + F(1)},
        // A bad number escapes with what was read before it; a name longer than the buffer grows it.
        {-1, {"a"}, {{1}}, "solid a\n" + F(1) + "facet normal 0 0 1 outer loop vertex 1 2 3x"},
        {ok, {longName, "z"}, {{9}, {10}},
         "solid " + longName + "\n" + F(9) + "endsolid " + longName + "\nsolid z\n" + F(10)},
    };
    // clang-format on
    for (const auto& [code, names, marks, text] : rows)
        for (int pipe : {0, kPipe})
        {
            SCOPED_TRACE(text.substr(0, 60) + (pipe != 0 ? " (pipe)" : ""));
            const ReadResult r = ReadText(text, pipe);
            EXPECT_EQ(std::tie(r.code, r.names, r.marks), std::tie(code, names, marks));
        }
    EXPECT_EQ(ReadText(mixed).all.at(0)[3], P3(7.0, 8.0, 9.0));
    EXPECT_EQ(ReadText(two, kFailed).code, none);
    // Blanks beyond one buffer between "solid" and "facet": a pipe cannot seek back (like a failed seekg).
    const std::string far = "solid" + std::string(std::size_t(3) << 19, ' ') + F(8) + "endsolid\n";
    const ReadResult piped = ReadText(far, kPipe);
    EXPECT_EQ(ReadText(far).marks, Marks{{8}});
    EXPECT_EQ(piped.code, ok);
    EXPECT_EQ(piped.names, Strings{""});
    EXPECT_EQ(piped.marks, Marks{{}});
    EXPECT_TRUE(piped.failed);

    // Move a solid across the 1 MiB refill boundary so that each of its tokens is cut once.
    const std::string body = "solid seam\nfacet normal 0.25 -0.5 1 outer loop vertex 123.456 7e-3 -9 "
                             "vertex 1 0 0 vertex 0 1 0 endloop endfacet endsolid seam\n";
    for (std::size_t shift = 0; shift < body.size(); shift += 3)
    {
        const ReadResult r = ReadText(std::string((std::size_t(1) << 20) - shift, ' ') + body);
        ASSERT_EQ(r.names, Strings{"seam"}) << shift;
        ASSERT_EQ(r.all.size(), 1u) << shift;
        EXPECT_EQ(r.all[0][1], P3(123.456, 7e-3, -9.0)) << shift;
        EXPECT_EQ(r.all[0][0], P3(0.25, -0.5, 1.0)) << shift;
    }
}

TEST(MStlFileReaderBinary, CountsSizesBlocksAndStreamFailures)
{
    const auto b = [](uint32_t count, const std::string& rest) { return Binary("binary", count, rest); };
    const std::string short10 = b(10, Facets(0, 9) + std::string(25, '\0')), under = b(5, Facets(0, 10));
    const std::string long10 = b(10, Facets(0, 10) + "1234567"), huge = b(0xFFFFFFFFu, Facets(0, 2));
    const std::string twoBlocks = b(2, Facets(0, 2) + Word32(3) + Facets(2, 3));
    const std::string gaps = b(1, Facets(0, 1) + std::string(8, '\0') + Word32(1) + Facets(1, 1));
    // A last block that ends early: the chain does not add up, so only the first count is judged.
    const std::string cut = b(2, Facets(0, 2) + Word32(3) + Facets(2, 2) + std::string(25, '\0'));
    const std::tuple<R::ErrorCode, int, Strings, std::string> rows[] = {
        {R::Ok, 0, {""}, b(0, "")},
        {R::HeaderTruncated, 0, {}, b(0, "").substr(0, 82)}, // a cut count
        {R::SizeMismatch, 0, {}, b(2, Facets(0, 2) + '\0')}, // one byte over
        {R::StreamTooShort, 0, {}, short10},
        {R::SizeMismatch, kFromSize, {}, short10},
        {R::Ok, kFromSize | kTrailing, {Facets(0, 9)}, short10},
        {R::SizeMismatch, 0, {}, long10},
        {R::Ok, kTrailing, {Facets(0, 10)}, long10},
        {R::Ok, kFromSize, {Facets(0, 10)}, under},
        {R::Ok, kTrailing, {Facets(0, 5)}, under},
        {R::StreamTooShort, 0, {}, huge}, // no reservation, a clean code
        {R::Ok, kMultiple | kFromSize | kTrailing, {Facets(0, 2)}, huge},
        {R::Ok, kMultiple, {Facets(0, 2), Facets(2, 3)}, twoBlocks},
        {R::SizeMismatch, 0, {}, twoBlocks},
        {R::Ok, kMultiple, {Facets(0, 1), "", "", Facets(1, 1)}, gaps}, // empty blocks are solids too
        {R::Ok, kMultiple | kTrailing, {Facets(0, 2)}, cut},
        {R::StreamError, kMultiple | kTrailing, {}, b(1, Facets(0, 1) + "abc")}, // no room for the next count
        {R::Ok, 0, {Facets(0, 10000)}, b(10000, Facets(0, 10000))},              // more than one read fetches
    };
    StlBuildTest::TempDir dir;
    for (const auto& [code, flags, blocks, bytes] : rows)
    {
        SCOPED_TRACE(std::to_string(bytes.size()) + " bytes, options " + std::to_string(flags));
        const Result r = Read(bytes, flags);
        EXPECT_EQ(r.code, code) << r.code;
        if (code == R::Ok)
        {
            EXPECT_EQ(r.blocks, blocks);
        }
        EXPECT_EQ(std::string(r.header.begin(), r.header.end()), bytes.substr(0, 80)) << "handed back";
        // The size walk of a file agrees with the reader as STL import runs it.
        std::ofstream(dir.File("a.stl"), std::ios::binary) << bytes;
        EXPECT_EQ(StlFileUtilities::VerifyHeaderConsistency(dir.File("a.stl").wstring()),
                  Read(bytes, kMultiple).code == R::Ok);
    }

    // The outer list is resized to the blocks read, inner lists are kept; a NaN corner is kept too.
    const std::string nan = b(2, Facets(0, 2).replace(12, 4, std::string("\0\0\xC0\x7F", 4)));
    const Result kept = Read(nan, 0, {{MStlFileTriangle()}, {}, {4, MStlFileTriangle()}});
    EXPECT_EQ(kept.blocks, Strings{std::string(50, '\0') + nan.substr(84)});
    // A stream that cannot seek cannot be measured; a failed stream cannot be read.
    EXPECT_EQ(Read(nan, kPipe).code, R::StreamError);
    EXPECT_EQ(Read(nan, kFailed).code, R::StreamError);
}

TEST(MStlFileReaderBinaryHeader, Grammar)
{
    const std::string rgba("\xC8\x64\x32\xFF", 4); // R 200, G 100, B 50, A 255
    // Diffuse, specular, ambient words and the shininess 1.0f, as the writer puts them.
    const std::string words("\x01\x02\x03\x04\x11\x12\x13\x14\x21\x22\x23\x24\x00\x00\x80\x3F", 16);
    const std::string color = "COLOR=" + rgba, material = ",MATERIAL=" + words, x44(44, 'x');
    const std::string prefix = "Kelvinstone Coloured STL File_" + color;
    MStlMaterial coloured, full;
    coloured.SetRGB(0xFF3264C8u);
    coloured.SetColorIsReadFromFile(true);
    full = coloured;
    full.SetDiffuse(0x04030201u);
    full.SetSpecular(0x14131211u);
    full.SetAmbient(0x24232221u);
    full.SetShininess(1.0f);
    const std::tuple<MStlMaterial, bool, bool, std::string, char> rows[] = {
        {coloured, false, true, prefix, ' '},
        {MStlMaterial(), false, true, prefix + ";FACES", ' '}, // only blanks may follow the prefix form
        {coloured, false, true, color, ' '},
        {coloured, false, false, color + ";FACES", ' '},
        {coloured, true, true, "solid part " + color + ";ISSUP;SOLID", ' '}, // free text before COLOR=
        {full, true, true, color + material + ";ISSUP;SOLID" + '\0', ' '},
        {MStlMaterial(), true, true, ";ISSUP", ' '}, // flags without a colour
        {MStlMaterial(), true, false, ";ISSUP;FACES", ' '},
        {MStlMaterial(), false, true, "color=" + rgba, ' '}, // matching is case-sensitive
        // COLOR= at 44: ",MATERIAL=" at 54, the words fill bytes 64..79; at 45 they would need byte 80.
        {full, false, true, x44 + color + material, ' '},
        {MStlMaterial(), false, true, "x" + x44 + color + material, ' '},
        // COLOR= at 70: the word fills bytes 76..79; at 71 it does not fit.
        {coloured, false, true, std::string(70, 'x') + color, ' '},
        {MStlMaterial(), false, true, std::string(71, 'x') + "COLOR=abcd", ' '},
        // Off-grammar text after the colour drops everything; the tail is one NUL or blank, then blanks.
        {MStlMaterial(), false, true, color + ";SOLIDx", ' '},
        {MStlMaterial(), false, true, color + ";SOLID", '\0'},
        {MStlMaterial(), false, true, "", '\0'},
    };
    for (const auto& [expected, support, solid, bytes, fill] : rows)
    {
        SCOPED_TRACE(bytes + (fill == ' ' ? "" : " (NUL padding)"));
        R::FileHeader h;
        h.fill(static_cast<unsigned char>(fill));
        std::memcpy(h.data(), bytes.data(), std::min<std::size_t>(bytes.size(), 80));
        const MStlReadResults r = R::ExtractHeaderInfo(h);
        EXPECT_EQ(r.material, expected);
        EXPECT_EQ(std::make_tuple(r.isOverflow, r.hasColor, r.isSupport, r.isSupposedSolid),
                  std::make_tuple(false, expected.GetColorIsReadFromFile(), support, solid));
    }
}

TEST(MStlFileReader, FlavourDetectionRealFilesAndEveryPrefix)
{
    const std::string ascii299 = "solid part\n  facet normal 0 0 1\n" + std::string(267, ' ');
    const std::tuple<std::string, bool> sniffs[] = {
        {ascii299, true},
        {"Solid x\nfacet\nOuter Loop\n", true},                      // "outer loop" alone is enough
        {"solid x\nfacet  normal 0 0 1 outer\tloop", false},         // the phrases have one blank
        {"solid x" + std::string(288, ' ') + "facet normal", false}, // phrases count in the first 300 bytes
        {Binary("solid x", 4, std::string(200, '\0')), false},       // a binary header may start with "solid"
        // Without "solid" at the start only bytes after the first 80 are searched.
        {Binary("header facet normal", 1, std::string(50, '\0')), false},
        {std::string(75, ' ') + "facet normal" + std::string(20, ' '), false}, // starts before byte 80
        {std::string(80, 'x'), false},
    };
    for (const auto& [bytes, ascii] : sniffs)
    {
        std::istringstream stream(bytes);
        EXPECT_EQ(StlFileUtilities::IsAscii(stream), ascii) << bytes.substr(0, 40);
        if (ascii)
        {
            EXPECT_EQ(stream.tellg(), 0)
                << bytes.substr(0, 40) << " (an ASCII stream is handed back at its start)";
        }
    }
    // Not at the start: the size is the end position, so the read comes up short.
    std::istringstream moved(ascii299), failed(ascii299);
    moved.seekg(2);
    failed.setstate(std::ios::failbit);
    EXPECT_FALSE(StlFileUtilities::IsAscii(moved));
    EXPECT_FALSE(StlFileUtilities::IsAscii(failed));
    EXPECT_FALSE(StlFileUtilities::IsAscii(L"/nonexistent/kel/none.stl"));
    EXPECT_FALSE(StlFileUtilities::VerifyHeaderConsistency(L"/nonexistent/kel/none.stl"));

    // ASCII: facets and the one name (a bare "endsolid" runs on); binary: the code as import reads it.
    const std::tuple<const char*, std::size_t, const char*, int> rows[] = {
        {"assimp__triangle_with_empty_solid.stl", 1, "testTriangle", 0},
        {"assimp__triangle_with_two_solids.stl", 2, "testTriangle_1", 0},
        {"numpystl__stl_ascii_Cube.stl", 12, "PRO2STL", 0},
        {"numpystl__stl_ascii_HalfDonut.stl", 288, "HalfDonut.stl", 0},
        {"numpystl__stl_ascii_Moon_Chinese.stl", 116, "\xE6\x9C\x88\xE7\x90\x83", 0},
        {"derived/spherewithhole_ascii_truncated.stl", 142, "tinysphere_withhole", 0},
        {"assimp__Spider_binary.stl", 0, nullptr, R::Ok},
        {"numpystl__stl_binary_Cube.stl", 0, nullptr, R::Ok},
        {"numpystl__stl_binary_HalfDonut.stl", 0, nullptr, R::StreamError}, // one byte after the last facet
        {"numpystl__stl_binary_Star.stl", 0, nullptr, R::Ok},
        {"numpystl__stl_binary_StarWithEmptyHeader.stl", 0, nullptr, R::Ok},
        {"numpystl__stl_tests_triamid.stl", 0, nullptr, R::Ok},
        {"derived/star_binary_COLOR_MATERIAL_header.stl", 0, nullptr, R::Ok},
        {"derived/star_binary_bit15_valid_colours.stl", 0, nullptr, R::Ok},
    };
    for (const auto& [file, facets, name, code] : rows)
    {
        SCOPED_TRACE(file);
        const std::filesystem::path path = std::filesystem::path(KEL_TEST_DATA_DIR) / "stl" / file;
        const std::string full = StlBuildTest::ReadBytes(path);
        EXPECT_EQ(StlFileUtilities::IsAscii(path.wstring()), name != nullptr);
        EXPECT_EQ(StlFileUtilities::VerifyHeaderConsistency(path.wstring()), code == R::Ok);
        if (name != nullptr)
        {
            const ReadResult r = ReadText(full);
            EXPECT_EQ(r.code, MStlFileReaderAscii::Success);
            EXPECT_EQ(r.names, Strings{name});
            EXPECT_EQ(r.all.size(), facets);
            // Every prefix keeps complete facets only, in file order, and their count never goes back.
            std::size_t previous = 0;
            for (std::size_t length = 0; length <= full.size() && full.size() < 2000; ++length)
            {
                const ReadResult p = ReadText(full.substr(0, length));
                // A number error (-1), facets, or no solid at all (1).
                ASSERT_THAT(p.code, ::testing::AnyOf(-1, 0, 1)) << length;
                if (p.code == 1)
                {
                    ASSERT_TRUE(p.names.empty()) << length;
                }
                ASSERT_LE(p.all.size(), r.all.size()) << length;
                if (p.code != -1)
                {
                    ASSERT_GE(p.all.size(), previous) << length;
                }
                ASSERT_TRUE(std::equal(p.all.begin(), p.all.end(), r.all.begin())) << length;
                previous = p.code == -1 ? previous : p.all.size();
            }
            if (full.size() < 2000)
            {
                EXPECT_EQ(previous, r.all.size());
            }
            continue;
        }
        // One block, every field of every facet bit for bit; "COLOR=" headers hold the words 0xFF3264C8.
        const Result r = Read(full, kMultiple);
        EXPECT_EQ(r.code, code);
        EXPECT_EQ(r.blocks, (code == R::Ok ? Strings{full.substr(84)} : Strings()));
        const MStlMaterial m = R::ExtractHeaderInfo(r.header).material;
        EXPECT_EQ(m.GetColorIsReadFromFile(), std::string(file).find("COLOR") != std::string::npos);
        if (m.GetColorIsReadFromFile())
        {
            for (uint32_t word : {m.GetRGB(), m.GetDiffuse(), m.GetSpecular(), m.GetAmbient()})
            {
                EXPECT_EQ(word, 0xFF3264C8u);
            }
        }
        // Every prefix is too short; counting from the size reads exactly the complete facets.
        for (std::size_t length = 0; code == R::Ok && full.size() < 4000 && length < full.size(); ++length)
        {
            const std::string prefix = full.substr(0, length);
            const Result tolerant = Read(prefix, kFromSize | kTrailing);
            ASSERT_EQ(Read(prefix, kMultiple).code, length < 84 ? R::HeaderTruncated : R::StreamTooShort)
                << length;
            ASSERT_EQ(tolerant.code, length < 84 ? R::HeaderTruncated : R::Ok) << length;
            if (length >= 84)
            {
                ASSERT_EQ(tolerant.blocks, Strings{full.substr(84, (length - 84) / 50 * 50)}) << length;
            }
        }
    }
}

// A caller tells the user why a file was refused from the step that failed and that reader's own code.
TEST(MStlFileReader, FailureNamesTheStepAndTheReadersCode)
{
    using F = MStlFileReader::EFailure;
    const std::string good = Ascii("0 0 0");
    const std::tuple<const char*, std::string, F, int> rows[] = {
        {"ASCII", good, F::None, 0},
        {"ASCII phrases without solid", std::string(90, ' ') + good.substr(8), F::AsciiReader, 1},
        {"a solid without facets", "solid empty\nendsolid empty\n", F::BinaryReader, R::HeaderTruncated},
        {"one facet short", Binary("", 2, Facets(0, 1)), F::BinaryReader, R::StreamTooShort},
        {"three bytes after the facets", Binary("", 1, Facets(0, 1) + "abc"), F::BinaryReader,
         R::StreamError},
        {"binary", Binary("", 1, Facets(0, 1)), F::None, 0},
    };
    for (const auto& [label, bytes, failure, code] : rows)
    {
        SCOPED_TRACE(label);
        const Reading run(bytes);
        EXPECT_EQ(run.ok, failure == F::None);
        EXPECT_EQ(run.reader.GetFailure(), failure);
        EXPECT_EQ(run.reader.GetReaderCode(), code);
    }
    MStlFileReader reader{MStlReadOptions()};
    reader.SetFileName(L"/nonexistent/kel/none.stl");
    EXPECT_FALSE(reader.Read(nullptr));
    EXPECT_EQ(reader.GetFailure(), F::NoInput);
}

TEST(MStlFileReader, FailuresMeasuringMeshPropertiesTransformationSuggestedAndRounded)
{
    MStlFileReader reader{MStlReadOptions()};
    EXPECT_FALSE(reader.Read(nullptr));
    reader.SetFileName(L"/nonexistent/kel/none.stl");
    EXPECT_FALSE(reader.Read(nullptr));
    std::istringstream failed("solid x\n");
    failed.setstate(std::ios::failbit);
    reader.SetInputStream(&failed);
    EXPECT_FALSE(reader.Read(nullptr));
    // ASCII by its phrases but without "solid"; a binary stream one facet short of its count.
    const Reading noSolid(std::string(90, ' ') + Ascii("0 0 0").substr(8)), cut(Binary("", 2, Facets(0, 1)));
    EXPECT_FALSE(noSolid.ok);
    EXPECT_FALSE(cut.ok);
    EXPECT_EQ(noSolid.mesh.NumberOfTriangles() + cut.mesh.NumberOfTriangles(), 0);
    EXPECT_THAT([] { Reading(Ascii("1 2 x")); },
                ::testing::ThrowsMessage<std::runtime_error>(::testing::StrEq("Can't convert double")));

    // Without a target only the box is measured; the transformation keeps its initial value.
    const Reading measured(Ascii("1 -2 3", "4 5 -6", "0 0 0"), {1, {100, 100, 100}, 1000.0}, true);
    const MStlReadTransformation& initial = measured.reader.GetReadTransformation();
    EXPECT_TRUE(measured.ok);
    EXPECT_EQ(initial.offset, P3());
    EXPECT_EQ(initial.scale, 1.0);
    EXPECT_EQ(measured.reader.GetBoundingBox().GetMin(), P3(0, -2, -6));
    EXPECT_EQ(measured.reader.GetBoundingBox().GetMax(), P3(4, 5, 3));
    const std::string huge = Ascii("0 0 0", "3e9 0 0", "0 3e9 3e9");
    // A mesh that overflows is built all the same.
    const std::tuple<std::string, int, double, P3, double, bool> rows[] = {
        {Ascii("10 10 10", "20 10 10", "20 20 20"), 1, 1.0, P3(-15, -15, -15), 1.0, false},
        {Ascii("2147483646 0 0"), 0, 1.0, P3(), 1.0, false},
        {Ascii("2147483646.5 0 0"), 0, 1.0, P3(), 1.0, true},
        {Ascii("-2147483647 0 0"), 0, 1.0, P3(), 1.0, false},
        {Ascii("-2147483647.5 0 0"), 0, 1.0, P3(), 1.0, true},
        {huge, 2, 1000.0, P3(-1.5e9, -1.5e9, -1.5e9), 1.0, false}, // the scale divided by ten three times
        {huge, 0, 1000.0, P3(), 1000.0, true},
    };
    for (const auto& [text, mode, scale, offset, used, overflow] : rows)
    {
        SCOPED_TRACE(text);
        Reading run(text, {mode, {0, 0, 0}, scale});
        ASSERT_TRUE(run.ok);
        ASSERT_EQ(run.mesh.NumberOfTriangles(), 1u);
        const MStlReadTransformation& t = run.reader.GetReadTransformation();
        EXPECT_EQ(std::make_tuple(t.offset, t.scale, run.reader.GetResults().isOverflow),
                  std::make_tuple(offset, used, overflow));
        if (mode == 1)
        {
            EXPECT_EQ(StlBuildTest::Corners(*run.mesh.Triangles().begin())[2][2], 5);
        }
    }

    // ASCII keeps the mesh's material and flags; binary blocks become surfaces, flags come from the header.
    const auto state = [](const Reading& r)
    {
        const MStlBaseProperties& p = r.mesh.GetProperties();
        return std::make_tuple(r.ok, r.mesh.GetMaterial().GetRGB(), p.GetIsSupport(), p.GetIsSupposedSolid());
    };
    EXPECT_EQ(state(Reading(Ascii("0 0 0"))), std::make_tuple(true, 0x11223344u, true, false));
    const auto at = [](double z) { return StlBuildTest::Facet({0, 0, z}, {1, 0, z}, {0, 1, z}, 0x2020); };
    const Reading binary(Binary("plain", 2, Encoded({at(0), at(1)}) + Word32(1) + Encoded({at(2)})));
    EXPECT_EQ(StlBuildTest::Surfaces(binary.mesh), L"2 1 ");
    EXPECT_EQ(state(binary), std::make_tuple(true, 0x11223344u, false, true));
    for (const MStlTriangle& t : binary.mesh.Triangles())
        EXPECT_FALSE(t.GetColor().IsDefined());

    const P3 o;
    const double inf = std::numeric_limits<double>::infinity(), nan = std::nan("");
    const std::tuple<P3, P3, P3, double, P3, double> boxes[] = {
        // 0 .. 3e9: centred, and 1.5e9 fits; with scale 1000 the scale is divided by ten three times.
        {o, P3(3e9, 3e9, 3e9), o, 1.0, P3(-1.5e9, -1.5e9, -1.5e9), 1.0},
        {o, P3(3e9, 3e9, 3e9), o, 1000.0, P3(-1.5e9, -1.5e9, -1.5e9), 1.0},
        // The bounds of the fit test: maximum 2147483646 and minimum -2147483647 (scale 1).
        {o, P3(2147483646.0, 0, 0), o, 1.0, o, 1.0},
        {o, P3(2147483646.5, 0, 0), o, 1.0, P3(-1073741823.25, 0, 0), 1.0},
        {P3(-2147483647.5, 0, 0), o, o, 1.0, P3(1073741823.75, 0, 0), 1.0},
        // The reference point moves the centre; m = 2147483647 exactly is not above the factor limit.
        {o, P3(4294967294.0, 0, 0), P3(0, 7, 0), 1.0, P3(-2147483647.0, 7, 0), 1.0},
        {o, P3(4294967294.0, 0, 0), P3(1, 0, 0), 1.0, P3(-2147483646.0, 0, 0), 0.1},
        {o, P3(inf, 0, 0), o, 1.0, P3(-inf, 0, 0), 0.0}, // an infinite side ends with a zero scale
    };
    for (const auto& [low, high, reference, scale, offset, suggested] : boxes)
    {
        const MStlReadTransformation t =
            StlFileUtilities::SuggestReadTransformation({low, high}, reference, scale);
        EXPECT_EQ(t.offset, offset);
        EXPECT_DOUBLE_EQ(t.scale, suggested);
        if (suggested == scale)
        {
            EXPECT_EQ(t.scale, scale) << "exactly kept when nothing is divided";
        }
    }

    // Halves round away from zero; up to 2147483647 after offset and scale converts.
    const MStlReadTransformation t, shifted(P3(10.0, -20.0, 0.25), 1000.0), scaled(P3(), 10000.0);
    Grid out;
    EXPECT_TRUE(t.Transform(P3(-2.5, 2.5, 0.49999999), out)) << out[0];
    EXPECT_EQ(out, Grid(-3, 3, 0)) << out[0];
    EXPECT_TRUE(shifted.Transform(P3(0.0015, 0.0, -0.25), out)) << out[0];
    EXPECT_EQ(out, Grid(10002, -20000, 0)) << out[0];
    EXPECT_TRUE(t.Transform(P3(2147483647.0, -2147483647.0, 2147483646.5), out));
    EXPECT_EQ(out, Grid(INT_MAX, -INT_MAX, INT_MAX));
    EXPECT_TRUE(scaled.Transform(P3(214748.3647, 0.0, 0.0), out));
    EXPECT_EQ(out, Grid(INT_MAX, 0, 0));
    EXPECT_FALSE(scaled.Transform(P3(214748.3648, 0.0, 0.0), out));
    EXPECT_FALSE(t.Transform(P3(0.0, -2147483647.5, 0.0), out));
    // Values that cannot be converted get defined stand-ins (and the result false).
    EXPECT_FALSE(t.Transform(P3(nan, inf, -1e300), out));
    EXPECT_EQ(out, Grid(0, INT_MAX, INT_MIN));
    // TransformCoordinate rounds the same way and gives the ends of long beyond them.
    EXPECT_EQ(t.TransformCoordinate(-2.5, 0), -3);
    EXPECT_EQ(shifted.TransformCoordinate(1.0, 1), -19000);
    EXPECT_EQ(t.TransformCoordinate(1e30, 0), std::numeric_limits<long>::max());
    EXPECT_EQ(t.TransformCoordinate(-1e30, 0), std::numeric_limits<long>::min());
    EXPECT_EQ(t.TransformCoordinate(nan, 1), 0);
}
