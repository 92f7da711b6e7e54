// The writer: exact files of every storage kind and what reading them back gives, transformations, states,
// the parallel binary encoding and failed exports.
#include "StlBuildTestSupport.h"
#include "support/FileSizeLimit.h"

#include <KelSDK/Common/Progress.h>
#include <KelSDK/Math/Transform.h>
#include <KelSDK/Triangles/IO/MStlFileWriter.h>

#include <memory>
#include <tuple>

using namespace StlBuildTest;
using KelSDK::Math::MMTransformMatrix;

#if defined(__linux__)
#include <dlfcn.h>
#include <pthread.h>

namespace
{
// Threads started by the current thread, counted by the pthread_create below.
thread_local int threadsStartedHere = 0;
} // namespace

// Every thread of this test program starts here (the library's std::thread and TBB's workers
// alike): counted for the starting thread, then started by the C library's own pthread_create.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                              void* argument)
{
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const Create next = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    ++threadsStartedHere;
    return next(thread, attributes, start, argument);
}
#endif

namespace
{
// Corners and colour of each triangle, read through the storage-independent interface.
std::vector<std::pair<std::array<int, 9>, MStlColor>> View(const MStlBase& mesh)
{
    const MStlHybrid& h = mesh.GetStlHybrid();
    std::vector<std::pair<std::array<int, 9>, MStlColor>> list(h.GetNumTriangles());
    const bool colours = h.OpenRead() && h.StartGettingTriangleColors();
    for (size_t t = 0; t < list.size(); ++t)
    {
        unsigned v[3];
        int* c = list[t].first.data();
        EXPECT_TRUE(h.GetTriangle(t, v[0], v[1], v[2]));
        EXPECT_TRUE(h.GetVertex(v[0], c[0], c[1], c[2]));
        EXPECT_TRUE(h.GetVertex(v[1], c[3], c[4], c[5]));
        EXPECT_TRUE(h.GetVertex(v[2], c[6], c[7], c[8]));
        list[t].second = colours ? h.GetColor(t) : MStlColor();
    }
    h.Close();
    return list;
}

// The binary records of the mesh, facet by facet: MStlFileTriangle's encoding of GetNormal() and
// the scaled corners, collapsed triangles left out, the mesh colour owed where it differs from the header's.
std::string Records(const MStlBase& mesh, double scale, bool withColours)
{
    std::string records;
    MStlIteratorFeatureSurfaceConst it(mesh);
    for (it.Begin(); !it.End(); ++it)
        for (const MStlTriangle* t : (*it).Triangles())
        {
            const auto c = Corners(*t);
            const auto n = t->GetNormal();
            auto scaled = [&](int k) { return Corner{c[k][0] * scale, c[k][1] * scale, c[k][2] * scale}; };
            MStlColor colour = t->GetColor();
            if (!colour.IsDefined() && mesh.GetRGB() != (mesh.GetMaterial().GetRGB() & 0xFFFFFFu))
                colour.SetRGB(mesh.GetRGB());
            unsigned char bytes[MStlFileTriangle::BINARY_SIZE];
            Facet(scaled(0), scaled(1), scaled(2), withColours ? MStlColor::ConvertTo16BitValue(colour) : 0,
                  {n[0], n[1], n[2]})
                .EncodeBinary(bytes);
            records += t->IsCollapsed() ? "" : std::string(bytes, bytes + 50);
        }
    return records;
}

// Two right triangles of 20 mm legs, the first coloured 0x123456 (10, 6, 2 in five bits), and a flat one.
TEST(StlRoundTrip, GoldenFilesOfEveryStorageKindAndWhatReadingThemGives)
{
    // The facets in float32 (0, 1, 10, 20); the header: content, a zero byte, spaces to byte 80, the count.
    const std::string o = "\0\0\0\0"s, n = "\0\0\x80\x3F"s, t = "\0\0\x20\x41"s, l = "\0\0\xA0\x41"s;
    const std::string first = o + o + n + o + o + o + l + o + o + o + l + o,
                      second = o + n + o + o + o + o + o + o + l + l + o + o,
                      third = o + o + o + l + o + o + o + l + o + t + t + o;
    auto header = [](const std::string& content)
    { return content + '\0' + std::string(79 - content.size(), ' ') + "\x03\0\0\0"s; };
    const std::string coloured =
        header(
            "COLOR=\xC8\x64\x32\xFF,MATERIAL=\x04\x03\x02\x01\x08\x07\x06\x05\x0C\x0B\x0A\x09\0\0\0\x3F;SOLID"s) +
        first + "\xCA\x08"s + second;
    auto text =
        [](const std::string& normal, const std::string& a, const std::string& b, const std::string& c)
    {
        return "facet normal " + normal + "\nouter loop\nvertex " + a + "\nvertex " + b + "\nvertex " + c +
               "\nendloop\nendfacet\n";
    };
    const std::string zeros = "0.00000000 0.00000000 0.00000000", x = "20.00000000 0.00000000 0.00000000",
                      y = "0.00000000 20.00000000 0.00000000";
    const std::string text1 = text("0.000000 0.000000 1.000000", zeros, x, y),
                      text2 =
                          text("0.000000 1.000000 0.000000", zeros, "0.00000000 0.00000000 20.00000000", x) +
                          text("0.000000 0.000000 0.000000", x, y, "10.00000000 10.00000000 0.00000000");
    MStlMaterial material;
    material.SetRGB(0xFF3264C8u); // R 200, G 100, B 50, A 255
    material.SetDiffuse(0x01020304u);
    material.SetSpecular(0x05060708u);
    material.SetAmbient(0x090A0B0Cu);
    material.SetShininess(0.5f);
    TempDir dir;
    const std::wstring path = dir.File("golden.stl").wstring();
    for (MStlHybridState kind : {eStlStandard, eStlCompact, eStlOnDisk})
    {
        const bool standard = kind == eStlStandard;
        const std::string zero = "\0\0"s, none = "\0\x80"s, green = standard ? "\xE0\x03"s : none;
        const MStlWriteOptions plain(1e-4, true, false, false), withColours(1e-4, true, true, false),
            ascii(1e-4, false, true, false), perSurface(1e-4, false, false, true);
        // Options, support (";ISSUP;FACES", else ";SOLID"), mesh colour, the file.
        const std::tuple<MStlWriteOptions, bool, uint32_t, std::string> rows[] = {
            {plain, true, 0x3264C8u, header(";ISSUP;FACES") + first + zero + second + zero + third + zero},
            {withColours, false, 0x3264C8u, coloured + none + third + none},
            {withColours, false, 0x00FF00u, coloured + green + third + green},
            {ascii, false, 0x3264C8u, "solid part\n" + text1 + text2 + "endsolid part\n"},
            {perSurface, false, 0x3264C8u,
             standard
                 ? "solid top face\n" + text1 + "endsolid top face\nsolid side\n" + text2 + "endsolid side\n"
                 : "solid part\n" + text1 + text2 + "endsolid part\n"},
        };
        for (const auto& [options, support, meshRgb, file] : rows)
        {
            SCOPED_TRACE(::testing::Message() << "kind " << kind << ", expected " << file.substr(0, 12));
            MStlBase mesh, copy;
            BuildHybrid(mesh, kind,
                        {{0, 0, 0}, {200000, 0, 0}, {0, 200000, 0}, {0, 0, 200000}, {100000, 100000, 0}},
                        {{0, 1, 2}, {0, 3, 1}, {1, 2, 4}}, {0x123456u, 0, 0}, 1);
            mesh.SetName(L"part");
            mesh.GetSurfaceList().GetSurface(0)->SetName(L"top face");
            mesh.GetSurfaceList().GetSurface(1)->SetName(L"side");
            mesh.SetMaterial(material);
            mesh.SetRGB(meshRgb);
            mesh.GetProperties().SetIsSupport(support);
            mesh.GetProperties().SetIsSupposedSolid(!support);
            // WriteStlMM writes binary with colours in millimetres, like the options of the coloured rows.
            const bool colours = options.binary && options.withColors;
            ASSERT_TRUE(colours && meshRgb == 0x3264C8u
                            ? MStlBaseFileUtilities::WriteStlMM(&mesh, path)
                            : MStlBaseFileUtilities::WriteStl(&mesh, path, options, nullptr));
            EXPECT_EQ(ReadBytes(path), file);
            ASSERT_TRUE(copy.GetStlHybrid().SetState(kind));
            ASSERT_TRUE(MStlBaseFileUtilities::ReadStlMM(&copy, path));
            // Colours travel in coloured binary files only, five bits per channel, with the mesh colour owed.
            const bool owed = colours && standard && meshRgb != 0x3264C8u;
            auto expected = View(mesh);
            for (auto& f : expected)
                f.second = !colours ? MStlColor()
                                    : MStlColor::ConvertFrom16BitValue(MStlColor::ConvertTo16BitValue(
                                          owed && !f.second.IsDefined() ? MStlColor(meshRgb) : f.second));
            EXPECT_EQ(View(copy), expected);
            EXPECT_EQ(copy.GetStlHybrid().GetNumVertices(), 5);
            EXPECT_EQ(copy.GetMaterial().GetColorIsReadFromFile(), colours);
            EXPECT_EQ(copy.GetMaterial().GetRGB(), (colours ? material : MStlMaterial()).GetRGB());
            // The flags travel in the binary header; only the first word after "solid" is a name.
            EXPECT_EQ(copy.GetProperties().GetIsSupport(), (options.binary && support));
            EXPECT_EQ(copy.GetProperties().GetIsSupposedSolid(), (!options.binary || !support));
            const wchar_t* read[] = {L"part3 ", L"top1 side2 ", L"3 ", L"3 "}; // ASCII, per surface, binary
            EXPECT_EQ(Surfaces(copy), standard ? read[2 * options.binary + options.solidPerSurface] : L";");
        }
    }
}

// The attribute word of every facet of a binary file, in file order.
std::vector<uint16_t> AttributeWords(const std::string& file)
{
    std::vector<uint16_t> words;
    for (size_t at = 84 + 48; at + 2 <= file.size(); at += 50)
        words.push_back(static_cast<uint16_t>(static_cast<unsigned char>(file[at]) |
                                              static_cast<unsigned char>(file[at + 1]) << 8));
    return words;
}

// A real coloured file (header colour, facets red, green and without a colour of their own): read and
// written back with colours, every attribute word and the header colour come back as they were.
TEST(StlRoundTrip, ColouredBinaryFileKeepsItsAttributeWordsAndHeaderColour)
{
    const std::filesystem::path source = std::filesystem::path(KEL_TEST_DATA_DIR) / "stl" / "derived" /
                                         "star_binary_COLOR_MATERIAL_header.stl";
    const std::string original = ReadBytes(source);
    ASSERT_EQ(original.size(), 84u + 68u * 50u);
    MStlBase mesh;
    ASSERT_TRUE(MStlBaseFileUtilities::ReadStlMM(&mesh, source.wstring()));
    TempDir dir;
    const std::filesystem::path copy = dir.File("star.stl");
    ASSERT_TRUE(MStlBaseFileUtilities::WriteStlMM(&mesh, copy.wstring()));
    const std::string written = ReadBytes(copy);
    EXPECT_EQ(written.substr(0, 10), original.substr(0, 10)) << "\"COLOR=\" and the header colour word";
    EXPECT_EQ(written.substr(80, 4), original.substr(80, 4)) << "facet count";
    EXPECT_EQ(AttributeWords(written), AttributeWords(original));
}

TEST(MStlFileWriter, TransformationMovesCornersAndNormals)
{
    TempDir dir;
    const std::wstring path = dir.File("t.stl").wstring();
    MStlBase mesh;
    BuildHybrid(mesh, eStlStandard, {{0, 0, 0}, {10, 0, -10}, {0, 10, 0}}, {{0, 1, 2}}, {0});
    // Normal (1, 0, 1) / sqrt 2; corner 1 is scaled, then moved; a stretch renormalises the normal.
    using P = MStlFileTriangle::Point;
    const double r = std::sqrt(0.5), s = std::sqrt(0.2);
    const std::tuple<MMTransformMatrix, double, P, P> rows[] = {
        {MMTransformMatrix::RotationZ(std::acos(-1.0) / 2) * MMTransformMatrix::Translation(0, 0, 100), 0.5,
         P(0, r, r), P(0, 5, 95)},
        {MMTransformMatrix::Scaling(2, 1, 1), 1.0, P(2 * s, 0, s), P(20, 0, -10)}};
    for (const auto& [transformation, scale, normal, corner] : rows)
    {
        MStlFileWriter writer(MStlWriteOptions(scale, true, false, false));
        writer.SetFileName(path.c_str());
        writer.SetStlToWrite(&mesh);
        writer.SetWriteTransformation(&transformation);
        ASSERT_TRUE(writer.Write(nullptr));
        ASSERT_TRUE(writer.Close());
        std::istringstream bytes(ReadBytes(path).substr(84));
        MStlFileTriangle facet;
        ASSERT_TRUE(facet.ReadBinary(bytes));
        ASSERT_EQ(bytes.tellg(), 50);
        EXPECT_LT((facet.GetNormal() - normal).length(), 1e-6) << scale;
        EXPECT_LT((facet.GetVertex(1) - corner).length(), 1e-5) << scale;
    }
}

TEST(MStlFileWriter, StatesFailuresAndRecordsOfExtremeCorners)
{
    TempDir dir;
    const std::wstring path = dir.File("x.stl").wstring();
    // A collapsed triangle, then 70 (a full batch of normals) with corners 2^32 apart (64-bit edges).
    std::vector<std::array<int, 3>> points = {{5, 5, 5}, {5, 5, 5}, {-2147483647, 0, 0}};
    std::vector<std::array<unsigned, 3>> faces = {{0, 1, 2}};
    for (unsigned i = 0; i < 70; ++i, faces.push_back({2, 2 * i + 1, 2 * i + 2}))
        points.insert(points.end(), {{2147483647, -2147483647, 7 * int(i)}, {int(i), 2147483647, -3}});
    MStlBase mesh;
    BuildHybrid(mesh, eStlStandard, points, faces, {});
    // Nothing open: no header, no close; a writer that failed to open stays closed and creates nothing.
    MStlFileWriter writer(MStlWriteOptions(1.0, true, false, false));
    writer.SetStlToWrite(&mesh);
    writer.SetFileName(dir.File("missing/x.stl").wstring().c_str());
    EXPECT_FALSE(writer.WriteHeader(&mesh, &mesh.GetMaterial()));
    EXPECT_FALSE(writer.Close());
    EXPECT_FALSE(writer.OpenWrite());
    EXPECT_EQ(writer.GetSystemError(), std::errc::no_such_file_or_directory) << "the missing folder";
    EXPECT_FALSE(writer.Write(nullptr));
    EXPECT_FALSE(std::filesystem::exists(dir.File("missing")));
    ASSERT_TRUE(
        MStlBaseFileUtilities::WriteStl(&mesh, path, MStlWriteOptions(3.7, true, false, false), nullptr));
    const std::string expected = "\x46\0\0\0"s + Records(mesh, 3.7, false);
    EXPECT_EQ(ReadBytes(path).substr(80), expected);
}

// 120000 facets of a grid over two surfaces, every fifth coloured, with two collapsed ones: large
// enough for chunks encoded side by side and slots written by the background thread.
void BuildGrid(MStlBase& mesh)
{
    std::vector<std::array<int, 3>> points;
    for (int y = 0; y <= 150; ++y)
        for (int x = 0; x <= 400; ++x)
            points.push_back({x * 1000, y * 1000, (x * y) % 7 * 100});
    std::vector<std::array<unsigned, 3>> faces = {{7, 7, 8}};
    for (unsigned a = 0; a + 402 < points.size(); ++a)
        if (a % 401 != 400)
            faces.insert(faces.end(), {{a, a + 1, a + 402}, {a, a + 402, a + 401}});
    faces.insert(faces.begin() + 90001, {9, 10, 10});
    std::vector<uint32_t> colours(faces.size());
    for (size_t t = 0; t < colours.size(); t += 5)
        colours[t] = static_cast<uint32_t>(t * 2654435761u) | 1u;
    BuildHybrid(mesh, eStlStandard, points, faces, colours, 70001);
    mesh.SetRGB(0x00FF00u);
}

// Writes the mesh as binary STL through a writer, as it comes (on the caller's thread) or in parallel.
bool WriteBinary(const MStlBase& mesh, const std::filesystem::path& path, bool colours, bool parallel)
{
    MStlFileWriter writer(MStlWriteOptions(1e-3, true, colours, false));
    writer.SetFileName(path.wstring().c_str());
    writer.SetStlToWrite(&mesh);
    if (parallel)
        writer.SetParallel(true);
    const bool written = writer.Write(nullptr);
    return writer.Close() && written;
}

TEST(MStlFileWriter, ParallelEncodingGivesTheFacetByFacetBytes)
{
    TempDir dir;
    MStlBase mesh;
    BuildGrid(mesh);
    for (const bool parallel : {false, true})
        for (const bool colours : {false, true})
        {
            SCOPED_TRACE(::testing::Message() << "parallel " << parallel << ", colours " << colours);
            ASSERT_TRUE(WriteBinary(mesh, dir.File("g.stl"), colours, parallel));
            const std::string bytes = ReadBytes(dir.File("g.stl")), expected = Records(mesh, 1e-3, colours);
            ASSERT_EQ(expected.size(), 50u * 120000u);
            ASSERT_EQ(bytes.size(), 84u + expected.size());
            EXPECT_EQ(bytes.substr(80, 4), "\xC0\xD4\x01\x00"s);
            size_t differing = 0;
            for (size_t at = 0; at < expected.size(); at += 50)
                differing += bytes.compare(84 + at, 50, expected, at, 50) != 0;
            EXPECT_EQ(differing, 0u);
        }
}

// A host application's save must stay on its thread unless it asks for the parallel export.
TEST(MStlFileWriter, ExportStartsThreadsOnlyWhenAskedToRunInParallel)
{
#if !defined(__linux__)
    GTEST_SKIP() << "threads are counted through pthread_create";
#else
    TempDir dir;
    MStlBase mesh;
    BuildGrid(mesh);
    for (const bool parallel : {false, true})
    {
        SCOPED_TRACE(parallel ? "parallel" : "default");
        threadsStartedHere = 0;
        ASSERT_TRUE(WriteBinary(mesh, dir.File("g.stl"), false, parallel));
        if (parallel)
        {
            EXPECT_GT(threadsStartedHere, 0) << "the background writer";
        }
        else
        {
            EXPECT_EQ(threadsStartedHere, 0);
        }
    }
#endif
}

// An export that fails half-way, by an exception from the progress delegate or (where a file size
// limit can stand in for a full disk) by the disk, leaves the old file and nothing beside it.
TEST(MStlFileWriter, AFailedExportKeepsTheOldFile)
{
    struct Cancel : KelSDK::Common::IProgressDelegate
    {
        void SetProgress(double fraction) override
        {
            if (fraction > 0.5)
                throw std::runtime_error("cancelled");
        }
    };
    TempDir dir;
    MStlBase mesh;
    BuildGrid(mesh);
    const std::wstring path = dir.File("model.stl").wstring();
    std::ofstream(dir.File("model.stl")) << "yesterday";
    auto keptOldFile = [&]
    {
        return ReadBytes(dir.File("model.stl")) == "yesterday" &&
               std::distance(std::filesystem::directory_iterator(dir.path), {}) == 1;
    };
    const MStlWriteOptions options(1e-3, true, false, false);
    EXPECT_THROW(MStlBaseFileUtilities::WriteStl(&mesh, path, options, std::make_shared<Cancel>()),
                 std::runtime_error);
    EXPECT_TRUE(keptOldFile());
#if !defined(_WIN32)
    bool written = true;
    {
        const KelTestSupport::FileSizeLimit limit(3000000); // the first slots are written, a later one fails
        if (!limit.Active())
            GTEST_SKIP() << "file size limit already below the test's";
        written = MStlBaseFileUtilities::WriteStl(&mesh, path, options, nullptr);
    }
    EXPECT_FALSE(written);
    EXPECT_TRUE(keptOldFile());
#endif
}
} // namespace
