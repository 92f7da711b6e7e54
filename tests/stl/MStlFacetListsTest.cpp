// The read driver's lean facet store against the facet lists: the same mesh, element for element,
// from real files and from random ones that take every branch of mesh building.
#include "StlBuildTestSupport.h"

#include <KelSDK/Triangles/IO/MStlFileReader.h>
#include <KelSDK/Triangles/IO/MStlFileReaderAscii.h>
#include <KelSDK/Triangles/IO/MStlFileReaderBinary.h>
#include <KelSDK/Triangles/IO/MStlFileReaderTarget.h>
#include <KelSDK/Triangles/IO/StlFileUtilities.h>

#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <tuple>

using namespace StlBuildTest;
using P3 = KelSDK::Math::point<double, 3>;

namespace
{
// The box of every corner of the lists, NaN left out.
KelSDK::Math::boundingbox<double, 3> ListBox(const Facets& solids)
{
    P3 lo = P3::Filled(std::numeric_limits<double>::max()), hi = P3::Filled(std::numeric_limits<double>::lowest());
    for (const auto& solid : solids)
        for (const MStlFileTriangle& f : solid)
            for (size_t k = 0; k < 3; ++k)
                for (size_t a = 0; a < 3; ++a)
                {
                    lo[a] = f.GetVertex(k)[a] < lo[a] ? f.GetVertex(k)[a] : lo[a];
                    hi[a] = f.GetVertex(k)[a] > hi[a] ? f.GetVertex(k)[a] : hi[a];
                }
    return {lo, hi};
}

// One file read twice: by the driver into `lean`, and through the public readers' lists and
// MStlFileReaderTarget::Convert into `reference`, with the driver's transformation and the header's
// material and flags. Both meshes start with a material and flags that a binary header replaces.
struct BothWays
{
    BothWays(const std::filesystem::path& path, const MStlReadOptions& options, MStlHybridState kind)
        : reader(options)
    {
        for (MStlBase* mesh : {&lean, &reference})
        {
            mesh->GetStlHybrid().SetState(kind);
            MStlMaterial material;
            material.SetRGB(0x11223344u);
            mesh->SetMaterial(material);
            mesh->GetProperties().SetIsSupport(true);
        }
        reader.SetFileName(path.wstring());
        reader.SetTargetStl(&lean);
        leanOk = reader.Read(nullptr);

        std::ifstream stream(path, std::ios::binary);
        std::vector<std::string> names;
        MStlReadResults results;
        if (StlFileUtilities::IsAscii(path.wstring()))
        {
            listsOk = MStlFileReaderAscii(stream).Read(lists, names, nullptr) == MStlFileReaderAscii::Success;
        }
        else
        {
            MStlFileReaderBinary binary(stream);
            binary.SetOptions({true, false, false});
            MStlFileReaderBinary::FileHeader header;
            listsOk = binary.Read(header, lists, nullptr) == MStlFileReaderBinary::Ok;
            names.assign(lists.size(), std::string());
            results = MStlFileReaderBinary::ExtractHeaderInfo(header);
            if (!listsOk)
                return; // the driver leaves the mesh as it was
            if (results.hasColor)
                reference.SetMaterial(results.material);
            reference.GetProperties().SetIsSupport(results.isSupport);
            reference.GetProperties().SetIsSupposedSolid(results.isSupposedSolid);
        }
        if (!listsOk)
            return;
        box = ListBox(lists);
        const MStlReadTransformation& t = reader.GetReadTransformation();
        MStlFileReaderTarget target;
        target.Convert(reference, lists, names, t, results.hasColor);
        overflow = target.IsOverflow();
        for (size_t a = 0; a < 3; ++a)
            overflow = overflow || t.offset[a] + box.GetMin()[a] < -2147483647.0 / t.scale ||
                       t.offset[a] + box.GetMax()[a] > 2147483646.0 / t.scale;
    }

    uint64_t ListFacetCount() const
    {
        uint64_t n = 0;
        for (const auto& solid : lists)
            n += solid.size();
        return n;
    }

    MStlFileReader reader;
    MStlBase lean, reference;
    Facets lists;
    KelSDK::Math::boundingbox<double, 3> box;
    bool leanOk = false, listsOk = false, overflow = false;
};

// Checks one file both ways, one property per assertion.
void ExpectSameBothWays(const std::filesystem::path& path, const MStlReadOptions& options = MStlReadOptions(),
                        MStlHybridState kind = eStlStandard)
{
    BothWays read(path, options, kind);
    EXPECT_EQ(read.leanOk, read.listsOk) << "read result";
    EXPECT_EQ(CompareMeshes(read.lean, read.reference), "") << "mesh";
    if (!read.listsOk)
        return;
    EXPECT_EQ(read.reader.GetNumberOfFacets(), read.ListFacetCount()) << "facet count";
    EXPECT_EQ(read.reader.GetBoundingBox().GetMin(), read.box.GetMin()) << "box minimum";
    EXPECT_EQ(read.reader.GetBoundingBox().GetMax(), read.box.GetMax()) << "box maximum";
    EXPECT_EQ(read.reader.GetResults().isOverflow, read.overflow) << "overflow flag";
    EXPECT_EQ(read.lean.GetStlHybrid().GetNumVertices(), read.reference.GetStlHybrid().GetNumVertices())
        << "vertices";
}

std::string Word32(uint32_t v)
{
    return {char(v & 0xFF), char((v >> 8) & 0xFF), char((v >> 16) & 0xFF), char(v >> 24)};
}

// What a random file holds besides plain facets on a lattice.
struct Mix
{
    size_t facets = 0;      // per solid or block
    size_t solids = 1;      // ASCII solids or binary blocks
    bool colour = false;    // binary: a "COLOR=" header and random attribute words after the first 300
    bool nan = false;       // some corner coordinates NaN (binary) or infinite (ASCII, ending its solid)
    bool huge = false;      // some corners far beyond the integer range
    double step = 0.25;     // lattice step in file units
    bool fineDigits = false; // ASCII: numbers with more digits than a float holds
    bool terse = false;      // ASCII: one short line per facet, so that the store outgrows its first estimate
};

// Corners on a 40 x 40 x 40 lattice (so that many are shared), with collapsed facets now and then.
std::array<double, 9> RandomCorners(std::mt19937& random, const Mix& mix)
{
    std::uniform_int_distribution<int> cell(-20, 19), rare(0, 199);
    std::array<double, 9> c;
    for (double& v : c)
        v = cell(random) * mix.step;
    if (rare(random) == 0)
        std::copy(c.begin(), c.begin() + 3, c.begin() + 3); // corners 1 and 2 on one point
    if (mix.fineDigits)
        for (double& v : c)
            v += 1.0 / 3.0;
    if (mix.huge && rare(random) == 1)
        c[4] = 7.5e9;
    return c;
}

std::string RandomBinary(uint32_t seed, const Mix& mix)
{
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> word(0, 0xFFFF), rare(0, 199);
    std::string header = mix.colour ? "random COLOR=" + Word32(0xFF804020u) + ";FACES" : "random";
    header.resize(80, ' ');
    std::string bytes = header;
    size_t written = 0;
    for (size_t block = 0; block < mix.solids; ++block)
    {
        bytes += Word32(static_cast<uint32_t>(mix.facets));
        for (size_t i = 0; i < mix.facets; ++i, ++written)
        {
            const std::array<double, 9> c = RandomCorners(random, mix);
            MStlFileTriangle f = Facet({c[0], c[1], c[2]}, {c[3], c[4], c[5]}, {c[6], c[7], c[8]},
                                       mix.colour && written >= 300 ? uint16_t(word(random)) : uint16_t(0));
            if (mix.nan && rare(random) == 2)
                f.SetVertex(2, {std::nan(""), 0.0, 1.0});
            unsigned char raw[50];
            f.EncodeBinary(raw);
            bytes.append(reinterpret_cast<const char*>(raw), sizeof(raw));
        }
    }
    return bytes;
}

std::string RandomAscii(uint32_t seed, const Mix& mix)
{
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> rare(0, 199);
    std::string text;
    char number[64];
    for (size_t s = 0; s < mix.solids; ++s)
    {
        const std::string name = "part" + std::to_string(s);
        text += "solid " + name + "\n";
        for (size_t i = 0; i < mix.facets; ++i)
        {
            std::array<double, 9> c = RandomCorners(random, mix);
            if (mix.nan && rare(random) == 2)
                c[0] = std::numeric_limits<double>::infinity();
            text += mix.terse ? "facet normal 0 0 1 outer loop" : "facet normal 0 0 1\nouter loop\n";
            for (int k = 0; k < 3; ++k)
            {
                text += mix.terse ? " vertex" : "vertex";
                for (int a = 0; a < 3; ++a)
                {
                    std::snprintf(number, sizeof(number), mix.terse ? " %g" : " %.17g", c[3 * k + a]);
                    text += number;
                }
                text += mix.terse ? "" : "\n";
            }
            text += mix.terse ? " endloop endfacet\n" : "endloop\nendfacet\n";
        }
        text += "endsolid " + name + "\n";
    }
    return text;
}

void WriteFile(const std::filesystem::path& path, const std::string& bytes)
{
    std::ofstream out(path, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}
} // namespace

TEST(MStlFacetLists, LeanReadOfRealFilesBuildsTheMeshOfTheFacetLists)
{
    const char* files[] = {
        "assimp__Spider_ascii.stl",         "assimp__Spider_binary.stl",
        "assimp__sphereWithHole.stl",       "assimp__triangle.stl",
        "assimp__triangle_with_empty_solid.stl", "assimp__triangle_with_two_solids.stl",
        "numpystl__stl_ascii_Cube.stl",     "numpystl__stl_ascii_HalfDonut.stl",
        "numpystl__stl_ascii_Moon_Chinese.stl", "numpystl__stl_binary_Cube.stl",
        "numpystl__stl_binary_CubeInvalidUnicode.stl", "numpystl__stl_binary_HalfDonut.stl",
        "numpystl__stl_binary_Star.stl",    "numpystl__stl_binary_StarWithEmptyHeader.stl",
        "numpystl__stl_tests_triamid.stl",  "derived/star_binary_COLOR_MATERIAL_header.stl",
        "derived/star_binary_bit15_valid_colours.stl", "derived/spherewithhole_ascii_truncated.stl",
    };
    const MStlReadOptions millimetres{0, {0, 0, 0}, 10000.0}, centred{1, {5, 5, 5}, 1000.0};
    for (const char* file : files)
        for (const MStlReadOptions* options : {&millimetres, &centred})
            for (MStlHybridState kind : {eStlStandard, eStlCompact, eStlOnDisk})
            {
                SCOPED_TRACE(std::string(file) + (options == &centred ? " centred" : "") + " kind " +
                             std::to_string(kind));
                ExpectSameBothWays(std::filesystem::path(KEL_TEST_DATA_DIR) / "stl" / file, *options, kind);
            }
}

TEST(MStlFacetLists, LeanReadOfRandomFilesBuildsTheMeshOfTheFacetLists)
{
    const TempDir dir;
    struct Row
    {
        const char* label;
        bool binary;
        Mix mix;
        MStlReadOptions options;
    };
    const MStlReadOptions plain{0, {0, 0, 0}, 1000.0}, suggested{2, {0, 0, 0}, 1000.0};
    const Row rows[] = {
        {"binary, three blocks", true, {500, 3}, plain},
        {"binary, coloured header and attributes", true, {800, 1, true}, plain},
        {"binary, NaN corners (wide records)", true, {600, 2, true, true}, plain},
        {"binary, corners beyond the grid", true, {600, 1, false, false, true}, plain},
        {"binary, corners beyond the grid, suggested transformation", true, {600, 1, false, false, true}, suggested},
        {"binary, many buckets", true, {60000, 1, true}, plain},
        {"ASCII, three solids", false, {400, 3, false, false, false, 0.25, true}, plain},
        {"ASCII, infinite corners end their solids", false, {400, 2, false, true}, plain},
        {"ASCII, many buckets", false, {30000, 1, false, false, false, 0.1, true}, plain},
        {"ASCII, terse facets in several chunks", false, {20000, 1, false, false, false, 0.5, false, true}, plain},
        {"ASCII, terse facets, suggested transformation", false, {20000, 2, false, false, false, 0.5, true, true},
         suggested},
        {"ASCII, corners beyond the grid", false, {600, 1, false, false, true}, plain},
        {"ASCII, corners beyond the grid, suggested transformation", false, {600, 1, false, false, true}, suggested},
    };
    uint32_t seed = 1;
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.label);
        const std::filesystem::path path = dir.File("random.stl");
        WriteFile(path, row.binary ? RandomBinary(seed++, row.mix) : RandomAscii(seed++, row.mix));
        ExpectSameBothWays(path, row.options);
    }
}

// The driver does not keep the normals of text facets, but still checks every normal as a number.
TEST(MStlFacetLists, LeanTextReadChecksNormalsItDoesNotKeep)
{
    const TempDir dir;
    const std::tuple<const char*, bool> rows[] = {
        {"0.5", true},   {"-7", true},    {"1e5", true},  {"-.25E-3", true}, {"3.", true},  {"+1", true},
        {"inf", true},   {"0x1p3", true}, {"1e999", true}, {"1e", false},     {"--1", false}, {"1.2.3", false},
        {".", false},    {"e5", false},   {"0x", false},  {"1e+", false},    {"-", false},  {"five", false},
    };
    for (const auto& [normal, accepted] : rows)
    {
        SCOPED_TRACE(normal);
        const std::filesystem::path path = dir.File("normal.stl");
        WriteFile(path, std::string("solid n\nfacet normal 0 ") + normal +
                            " 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\nendloop\nendfacet\nendsolid n\n");
        MStlBase mesh;
        bool threw = false;
        try
        {
            EXPECT_TRUE(MStlBaseFileUtilities::ReadStlMM(&mesh, path.wstring()));
        }
        catch (const std::runtime_error& e)
        {
            threw = true;
            EXPECT_STREQ("Can't convert double", e.what());
        }
        EXPECT_EQ(!accepted, threw) << "a normal that is no number throws";
        EXPECT_EQ(accepted ? 1u : 0u, mesh.NumberOfTriangles()) << "the facet of an accepted normal is read";
    }
}
