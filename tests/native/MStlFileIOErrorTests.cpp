// Error codes of Load with their texts, and malformed files: wrong tags, impossible counts,
// unknown references, every truncation and thousands of bit flips.
#include "NativeTestSupport.h"

#include <KelSDK/Common/Progress.h>

#include <algorithm>

using namespace NativeTest;

namespace
{
// A small Standard mesh that uses every section: two surfaces, a border, a curve, an edge,
// colours, marks, visibilities, face groups, history and registered points.
void BuildSmall(MStlBase& mesh)
{
    MStlSurface* second = mesh.AddSurface();
    second->SetName(L"s");
    std::vector<MStlPoint*> p;
    ASSERT_TRUE(mesh.CreatePoints({{0, 0, 0}, {300, 0, 0}, {0, 3, 0}, {3, 3, 1}}, &p));
    p[2]->SetUserDefined(true);
    mesh.CreateTriangle(p[0], p[1], p[2], nullptr)->SetColor(MStlColor(0x112233u));
    mesh.CreateTriangle(p[1], p[3], p[2], second)->SetMark(4);
    mesh.CreateGraphEdge(p[0], p[3]);
    MStlSurfaceBorder* border = mesh.GetSurfaceBorders().AddBorder(second);
    border->Contours().push_back(MStlBorderContour{{MStlSubContour{{p[1], p[2]}, mesh.GetMainSurface()}}});
    mesh.GetCurves().AddCurveSet()->AddCurve(MStlCurve{{{1, 2, 3}}, false});
    mesh.GetHistory().AddEntry(MHistoryEntry{L"a", L"b", 3, L"c"});
    mesh.GetRegisteredPoints().AddPoint(MStlRegisteredPoint{1, 1, 1, 5, L"r"});
    mesh._CreateFaceGroupInfo()->SetFaceID(size_t(1), 9);
    mesh.GetColorMasks().CreateMainTriangleColorMask()->SetInfo(1, MStlColor(7));
}

Bytes SmallFile()
{
    MStlBase mesh;
    BuildSmall(mesh);
    return SaveToBytes(mesh, Switches::AllOn());
}

bool IsLoadCode(MStlFileIO::MErrorCode code)
{
    return code == eStlFileIOSuccess || code == eStlFileIOBadFormat || code == eStlFileIOMarkCountMismatch ||
           code == eStlFileIOVisibilityCountMismatch || code == eStlFileIOUnknownReference;
}
} // namespace

TEST(NativeErrors, TextsOfEveryCode)
{
    EXPECT_STREQ("File IO Succesfull.", MStlFileIO::GetErrorString(eStlFileIOSuccess));
    EXPECT_STREQ("No stl was set for stl file io.", MStlFileIO::GetErrorString(eStlFileIONoStl));
    EXPECT_STREQ("No file was set for stl file io.", MStlFileIO::GetErrorString(eStlFileIONoFile));
    EXPECT_STREQ("The file for stl file io was not open", MStlFileIO::GetErrorString(eStlFileIOFileNotOpen));
    EXPECT_STREQ("The file for stl file io was not open for reading",
                 MStlFileIO::GetErrorString(eStlFileIOFileNotOpenForReading));
    EXPECT_STREQ("The file for stl file io was not open for writing",
                 MStlFileIO::GetErrorString(eStlFileIOFileNotOpenForWriting));
    EXPECT_STREQ("The version of the file is not supported anymore.",
                 MStlFileIO::GetErrorString(eStlFileIOVersionNotSupported));
    EXPECT_STREQ("Incorrect file format detected.", MStlFileIO::GetErrorString(eStlFileIOBadFormat));
    for (int code : {8, 9, 10, 11, 12, -1})
        EXPECT_STREQ("Unknown error detected.",
                     MStlFileIO::GetErrorString(static_cast<MStlFileIOErrorCode>(code)));
    MStlFileIO io;
    EXPECT_EQ(eStlFileIOSuccess, io.GetLastError());
    EXPECT_STREQ("File IO Succesfull.", io.GetLastErrorString());
}

TEST(NativeErrors, MissingMeshOrFile)
{
    const Bytes bytes = SmallFile();
    KelSDK::FileIO::MMemoryFile file;
    file.OpenRead(bytes.data(), bytes.size());
    MStlFileIO reader;
    reader.SetFile(file);
    EXPECT_EQ(eStlFileIONoStl, reader.Load(nullptr));
    EXPECT_STREQ("No stl was set for stl file io.", reader.GetLastErrorString());

    // Saving without a mesh still writes the header and the info block.
    KelSDK::FileIO::MMemoryFile out;
    out.OpenWrite();
    MStlFileIO writer;
    writer.SetFile(out);
    EXPECT_EQ(eStlFileIONoStl, writer.Save(nullptr));
    out.Close();
    ByteBuilder expected;
    expected.header().raw({1, 1, 0, 1, 1, 1, 0, 0, 0, 1});
    EXPECT_EQ(expected.bytes, out.GetData());

    MStlBase mesh;
    MStlFileIO noFile;
    noFile.SetStl(&mesh);
    EXPECT_EQ(nullptr, noFile.GetFile());
    EXPECT_EQ(eStlFileIONoFile, noFile.Load(nullptr));
    EXPECT_EQ(eStlFileIONoFile, noFile.Save(nullptr));
}

TEST(NativeErrors, WrongTagsAreBadFormat)
{
    const Bytes good = SmallFile();
    struct Case
    {
        const char* what;
        size_t offset;
    };
    const size_t base = 40 + 10 + 45; // header, info block, properties
    const size_t plugins = good.size() - PluginBlockSize();
    const Case cases[] = {
        {"first byte", 0},
        {"end of header", 39},
        {"begin of base section", base},
        {"begin of point list", base + 1 + 12 + 1},
        {"begin of plug-in block", plugins},
        {"end of plug-in block", good.size() - 1},
        {"begin of face groups", plugins - 3 - 8},
        {"end of face groups", plugins - 1},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.what);
        Bytes bad = good;
        bad[c.offset] ^= 0x55;
        MStlBase mesh;
        std::string text;
        EXPECT_EQ(eStlFileIOBadFormat, LoadFromBytes(bad, mesh, &text));
        EXPECT_EQ("Incorrect file format detected.", text);
    }
    // Every inner section tag is checked as well.
    for (uint8_t tag : {40, 41, 42, 43, 44, 45, 46, 47, 48,  49,  50, 51, 52, 53, 54,  55,
                        56, 57, 58, 59, 60, 61, 62, 63, 140, 141, 18, 19, 20, 21, 200, 201})
    {
        SCOPED_TRACE(testing::Message() << "tag " << int(tag));
        // Some byte with the tag's value is the tag itself: changing it must fail.
        bool failed = false;
        for (size_t i = base; i < plugins && !failed; ++i)
        {
            if (good[i] != tag)
                continue;
            Bytes bad = good;
            bad[i] = 0xEE;
            MStlBase mesh;
            failed = LoadFromBytes(bad, mesh) == eStlFileIOBadFormat;
        }
        EXPECT_TRUE(failed) << "no occurrence of the tag is checked";
    }
}

TEST(NativeErrors, DifferentMagicTextStillLoads)
{
    Bytes bytes = SmallFile();
    bytes[5] = 'k'; // "kelvinstone..."
    MStlBase mesh;
    EXPECT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, mesh));
    EXPECT_EQ(2u, mesh.NumberOfTriangles());
}

TEST(NativeErrors, MarkAndVisibilityCountsMustMatchTheTriangles)
{
    MStlBase source;
    BuildSmall(source);
    Switches s = Switches::AllOn();
    const Bytes good = SaveToBytes(source, s);
    struct Case
    {
        uint8_t tag;
        MStlFileIO::MErrorCode code;
    };
    for (const Case& c :
         {Case{20, eStlFileIOMarkCountMismatch}, Case{200, eStlFileIOVisibilityCountMismatch}})
    {
        const size_t at = Find(good, {c.tag, 2, 0, 0, 0});
        ASSERT_NE(SIZE_MAX, at);
        Bytes bad = good;
        bad[at + 1] = 3;
        MStlBase mesh;
        std::string text;
        EXPECT_EQ(c.code, LoadFromBytes(bad, mesh, &text));
        EXPECT_EQ("Unknown error detected.", text);
        // Nothing was read from the section: the marks stay at their defaults.
        if (c.tag == 20)
        {
            EXPECT_EQ(0, mesh.GetTriangleWithIndex(1)->GetMark());
        }
    }
}

TEST(NativeErrors, UnknownReferences)
{
    const Bytes good = SmallFile();
    // Sub-contour: tag 140, then the neighbour identifier (1: the main surface).
    const size_t sub = Find(good, {140, 1, 0, 0, 0});
    ASSERT_NE(SIZE_MAX, sub);
    Bytes bad = good;
    bad[sub + 1] = 99;
    MStlBase mesh;
    std::string text;
    EXPECT_EQ(eStlFileIOUnknownReference, LoadFromBytes(bad, mesh, &text));
    EXPECT_EQ("Unknown error detected.", text);

    // A sub-contour point identifier beyond the points: byte array width 1, ids 2 and 3.
    const size_t ids = Find(good, {2, 0, 0, 0, 1, 2, 3, 141});
    ASSERT_NE(SIZE_MAX, ids);
    bad = good;
    bad[ids + 6] = 5;
    EXPECT_EQ(eStlFileIOUnknownReference, LoadFromBytes(bad, mesh));

    // The border's surface identifier must name a surface.
    const size_t border = Find(good, {56, 2, 0, 0, 0});
    ASSERT_NE(SIZE_MAX, border);
    bad = good;
    bad[border + 1] = 3; // the border itself, not a surface
    EXPECT_EQ(eStlFileIOUnknownReference, LoadFromBytes(bad, mesh));
}

TEST(NativeErrors, CountsLargerThanTheFileAreBadFormat)
{
    const Bytes good = SmallFile();
    // Properties: vertex count at offset 50 + 27, triangle count at 50 + 36.
    for (size_t offset : {size_t(50 + 27), size_t(50 + 36)})
    {
        Bytes bad = good;
        std::fill(bad.begin() + static_cast<std::ptrdiff_t>(offset),
                  bad.begin() + static_cast<std::ptrdiff_t>(offset + 8), 0xFF);
        MStlBase mesh;
        EXPECT_EQ(eStlFileIOBadFormat, LoadFromBytes(bad, mesh)) << offset;
    }
    // Triangle list count, surface count, history count, registered point count, curve sets:
    // searched from the triangle list on, which follows the point list.
    const size_t triangles = Find(good, {40, 2, 0, 0, 0, 0, 0, 0, 0});
    ASSERT_NE(SIZE_MAX, triangles);
    for (const Bytes& pattern : {Bytes{40, 2, 0, 0, 0, 0, 0, 0, 0}, Bytes{42, 2, 0, 0, 0},
                                 Bytes{50, 1, 0, 0, 0}, Bytes{52, 1, 0, 0, 0}, Bytes{44, 1, 0, 0, 0}})
    {
        const size_t at = Find(good, pattern, triangles);
        ASSERT_NE(SIZE_MAX, at);
        Bytes bad = good;
        bad[at + 3] = 0x7F;
        MStlBase mesh;
        EXPECT_EQ(eStlFileIOBadFormat, LoadFromBytes(bad, mesh)) << int(pattern[0]);
    }
    // Widths outside 1..4 in the properties.
    Bytes bad = good;
    bad[50 + 26] = 5;
    MStlBase mesh;
    EXPECT_EQ(eStlFileIOBadFormat, LoadFromBytes(bad, mesh));
}

TEST(NativeErrors, CornerIndicesBeyondThePointsAreBadFormat)
{
    const Bytes good = SmallFile();
    const size_t at = Find(good, {40, 2, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2});
    ASSERT_NE(SIZE_MAX, at);
    Bytes bad = good;
    bad[at + 10] = 4; // four points: index 4 is out of range
    MStlBase mesh;
    EXPECT_EQ(eStlFileIOBadFormat, LoadFromBytes(bad, mesh));
}

TEST(NativeErrors, EveryTruncationFails)
{
    for (MStlHybridState kind : {eStlStandard, eStlCompact})
    {
        MStlBase source;
        if (kind == eStlStandard)
        {
            BuildSmall(source);
        }
        else
        {
            MStlHybrid& h = source.GetStlHybrid();
            h.SetState(kind);
            h.StartAddingVertices();
            h.AddVertex(0, 0, 0);
            h.AddVertex(1, 0, 0);
            h.AddVertex(0, 1, 0);
            h.StartAddingTriangles(nullptr);
            h.AddTriangle(0, 1, 2);
            h.Close();
        }
        const Bytes good = SaveToBytes(source, Switches::AllOn());
        for (size_t size = 0; size < good.size(); ++size)
        {
            const Bytes prefix(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
            MStlBase mesh;
            const MStlFileIO::MErrorCode code = LoadFromBytes(prefix, mesh);
            EXPECT_NE(eStlFileIOSuccess, code) << "prefix of " << size << " bytes";
            EXPECT_TRUE(IsLoadCode(code)) << code;
        }
        MStlBase mesh;
        EXPECT_EQ(eStlFileIOSuccess, LoadFromBytes(good, mesh));
    }
}

TEST(NativeErrors, BitFlipsGiveACode)
{
    const Bytes good = SmallFile();
    const size_t bits = good.size() * 8;
    uint64_t state = 0x9E3779B97F4A7C15ull;
    for (int i = 0; i < 3000; ++i)
    {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        Bytes bad = good;
        const size_t bit = static_cast<size_t>((state >> 33) % bits);
        bad[bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
        if (i % 3 == 0) // and a second flip elsewhere
        {
            const size_t other = static_cast<size_t>((state >> 11) % bits);
            bad[other / 8] ^= static_cast<uint8_t>(1u << (other % 8));
        }
        MStlBase mesh;
        const MStlFileIO::MErrorCode code = LoadFromBytes(bad, mesh);
        EXPECT_TRUE(IsLoadCode(code)) << "flip of bit " << bit << " gave " << code;
    }
}

namespace
{
struct RecordingDelegate : KelSDK::Common::IProgressDelegate
{
    std::vector<double> fractions;
    void SetProgress(double fraction) override { fractions.push_back(fraction); }
    bool Saw(double f) const
    {
        return std::any_of(fractions.begin(), fractions.end(),
                           [f](double x) { return std::abs(x - f) < 1e-9; });
    }
};
} // namespace

TEST(NativeProgress, StepsOfSaveAndLoad)
{
    // 16384 points: two reports of 8192 steps; the save maximum is 2, the load maximum 3.
    std::vector<std::array<int, 3>> points;
    for (int i = 0; i < 16384; ++i)
        points.push_back({i, 0, 0});
    MStlBase mesh;
    ASSERT_TRUE(mesh.CreatePoints(points, nullptr));
    Switches pointsOnly = Switches::AllOff();
    pointsOnly.points = true;

    KelSDK::FileIO::MMemoryFile out;
    out.OpenWrite();
    MStlFileIO writer;
    pointsOnly.Apply(writer);
    writer.SetStl(&mesh);
    writer.SetFile(out);
    auto saveProgress = std::make_shared<RecordingDelegate>();
    ASSERT_EQ(eStlFileIOSuccess, writer.Save(saveProgress));
    out.Close();
    EXPECT_TRUE(saveProgress->Saw(0.5));
    EXPECT_TRUE(saveProgress->Saw(1.0));

    KelSDK::FileIO::MMemoryFile in;
    in.OpenRead(out.GetData().data(), out.GetData().size());
    MStlBase loaded;
    MStlFileIO reader;
    reader.SetStl(&loaded);
    reader.SetFile(in);
    auto loadProgress = std::make_shared<RecordingDelegate>();
    ASSERT_EQ(eStlFileIOSuccess, reader.Load(loadProgress));
    EXPECT_TRUE(loadProgress->Saw(1.0 / 3.0));
    EXPECT_TRUE(loadProgress->Saw(2.0 / 3.0));
    EXPECT_TRUE(loadProgress->Saw(1.0));
    EXPECT_TRUE(std::is_sorted(loadProgress->fractions.begin(), loadProgress->fractions.end()));

    // Small meshes: a save maximum of 1 (only 0 and 1 are reported).
    MStlBase small;
    small.CreatePoints({{1, 1, 1}}, nullptr);
    KelSDK::FileIO::MMemoryFile out2;
    out2.OpenWrite();
    MStlFileIO writer2;
    writer2.SetStl(&small);
    writer2.SetFile(out2);
    auto smallProgress = std::make_shared<RecordingDelegate>();
    ASSERT_EQ(eStlFileIOSuccess, writer2.Save(smallProgress));
    for (double f : smallProgress->fractions)
        EXPECT_TRUE(f == 0.0 || f == 1.0) << f;
}
