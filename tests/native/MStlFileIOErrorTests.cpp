// Error codes of Load with their texts, and malformed files: wrong tags, impossible counts,
// unknown references, every truncation and thousands of bit flips.
#include "NativeTestSupport.h"

using namespace NativeTest;

namespace
{
bool IsLoadCode(MStlFileIO::MErrorCode code)
{
    return code == eStlFileIOSuccess || code == eStlFileIOBadFormat || code == eStlFileIOMarkCountMismatch ||
           code == eStlFileIOVisibilityCountMismatch || code == eStlFileIOUnknownReference;
}
} // namespace

TEST(NativeErrors, MissingMeshOrFileAndTheTextsOfCodesThatLoadDoesNotGive)
{
    const std::pair<int, const char*> texts[] = {
        {eStlFileIOFileNotOpen, "The file for stl file io was not open"},
        {eStlFileIOFileNotOpenForReading, "The file for stl file io was not open for reading"},
        {eStlFileIOFileNotOpenForWriting, "The file for stl file io was not open for writing"},
        {eStlFileIOVersionNotSupported, "The version of the file is not supported anymore."},
        {-1, "Unknown error detected."}};
    for (const auto& t : texts)
        EXPECT_STREQ(t.second, MStlFileIO::GetErrorString(static_cast<MStlFileIOErrorCode>(t.first)))
            << t.first;

    const Bytes bytes = StandardFile();
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
    EXPECT_EQ(ByteBuilder().header().raw({1, 1, 0, 1, 1, 1, 0, 0, 0, 1}).bytes, out.GetData());

    MStlBase mesh;
    MStlFileIO noFile;
    noFile.SetStl(&mesh);
    EXPECT_EQ(eStlFileIONoFile, noFile.Load(nullptr));
    EXPECT_STREQ("No file was set for stl file io.", noFile.GetLastErrorString());
    EXPECT_EQ(eStlFileIONoFile, noFile.Save(nullptr));
}

TEST(NativeErrors, EveryInnerTagIsCheckedButTheMagicTextIsNot)
{
    const Bytes good = StandardFile();
    const size_t base = 40 + 10 + 45; // header, info block, properties
    const size_t plugins = good.size() - PluginBlockSize();
    // Every inner section tag is checked: changing some byte with the tag's value must fail.
    for (uint8_t tag : {40, 41, 42, 43, 44, 45, 46, 47, 48,  49,  50, 51, 52, 53, 54,  55,
                        56, 57, 58, 59, 60, 61, 62, 63, 140, 141, 18, 19, 20, 21, 200, 201})
    {
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
        EXPECT_TRUE(failed) << "no occurrence of tag " << int(tag) << " is checked";
    }
    // The magic text itself is read but not compared ("kelvinstone..." loads).
    Bytes bytes = good;
    bytes[5] = 'k';
    MStlBase mesh;
    EXPECT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, mesh));
    EXPECT_EQ(4u, mesh.NumberOfTriangles());
}

TEST(NativeErrors, CraftedBytesGiveTheirCodes)
{
    const Bytes good = StandardFile();
    const size_t triangles = Find(good, {40, 4, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2});
    ASSERT_NE(SIZE_MAX, triangles);
    const size_t base = 40 + 10 + 45,
                 plugins = good.size() - PluginBlockSize(); // base section, plug-in block
    const auto flip = [&good](size_t at) { return static_cast<uint8_t>(good[at] ^ 0x55); };
    const struct
    {
        const char* what;
        Bytes pattern;     // located from the triangle list on (0: offset is absolute)
        size_t at, length; // patched bytes relative to the pattern
        uint8_t value;
        MStlFileIO::MErrorCode code;
    } cases[] = {
        {"tag: first byte", {}, 0, 1, flip(0), eStlFileIOBadFormat},
        {"tag: end of header", {}, 39, 1, flip(39), eStlFileIOBadFormat},
        {"tag: begin of base section", {}, base, 1, flip(base), eStlFileIOBadFormat},
        {"tag: begin of point list", {}, base + 14, 1, flip(base + 14), eStlFileIOBadFormat},
        {"tag: begin of plug-in block", {}, plugins, 1, flip(plugins), eStlFileIOBadFormat},
        {"tag: end of plug-in block", {}, good.size() - 1, 1, flip(good.size() - 1), eStlFileIOBadFormat},
        {"tag: begin of face groups", {}, plugins - 19, 1, flip(plugins - 19), eStlFileIOBadFormat},
        {"tag: end of face groups", {}, plugins - 1, 1, flip(plugins - 1), eStlFileIOBadFormat},
        {"vertex count in the properties", {}, 50 + 27, 8, 0xFF, eStlFileIOBadFormat},
        {"triangle count in the properties", {}, 50 + 36, 8, 0xFF, eStlFileIOBadFormat},
        {"width 5 in the properties", {}, 50 + 26, 1, 5, eStlFileIOBadFormat},
        {"triangle list count", {40, 4, 0, 0, 0, 0, 0, 0, 0}, 3, 1, 0x7F, eStlFileIOBadFormat},
        {"corner index 6 of 6", {40, 4, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 10, 1, 6, eStlFileIOBadFormat},
        {"surface count", {42, 2, 0, 0, 0}, 3, 1, 0x7F, eStlFileIOBadFormat},
        {"history count", {50, 2, 0, 0, 0}, 3, 1, 0x7F, eStlFileIOBadFormat},
        {"registered point count", {52, 2, 0, 0, 0}, 3, 1, 0x7F, eStlFileIOBadFormat},
        {"curve set count", {44, 2, 0, 0, 0}, 3, 1, 0x7F, eStlFileIOBadFormat},
        {"mark count", {20, 4, 0, 0, 0}, 1, 1, 5, eStlFileIOMarkCountMismatch},
        {"visibility count", {200, 4, 0, 0, 0}, 1, 1, 5, eStlFileIOVisibilityCountMismatch},
        {"sub-contour neighbour 99", {140, 1, 0, 0, 0}, 1, 1, 99, eStlFileIOUnknownReference},
        {"sub-contour point id 7", {2, 0, 0, 0, 1, 2, 4, 141}, 6, 1, 7, eStlFileIOUnknownReference},
        {"border surface naming the border itself", {56, 2, 0, 0, 0}, 1, 1, 3, eStlFileIOUnknownReference},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.what);
        const size_t at = c.pattern.empty() ? 0 : Find(good, c.pattern, triangles);
        ASSERT_NE(SIZE_MAX, at);
        Bytes bad = good;
        std::fill_n(bad.begin() + static_cast<std::ptrdiff_t>(at + c.at), c.length, c.value);
        MStlBase mesh;
        std::string text;
        EXPECT_EQ(c.code, LoadFromBytes(bad, mesh, &text));
        EXPECT_EQ(c.code == eStlFileIOBadFormat ? "Incorrect file format detected."
                                                : "Unknown error detected.",
                  text);
        if (c.code == eStlFileIOMarkCountMismatch) // nothing was read from the section
        {
            EXPECT_EQ(0, mesh.GetTriangleWithIndex(1)->GetMark());
        }
    }
}

TEST(NativeErrors, EveryTruncationFailsAndBitFlipsGiveACode)
{
    const Bytes good = StandardFile();
    for (size_t size = 0; size < good.size(); ++size)
    {
        MStlBase mesh;
        const auto code =
            LoadFromBytes(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)), mesh);
        EXPECT_NE(eStlFileIOSuccess, code) << "prefix of " << size << " bytes";
        EXPECT_TRUE(IsLoadCode(code)) << code;
    }
    MStlBase mesh;
    std::string text;
    EXPECT_EQ(eStlFileIOSuccess, LoadFromBytes(good, mesh, &text));
    EXPECT_EQ("File IO Succesfull.", text);

    // Thousands of single and double bit flips: always one of the codes of Load.
    const size_t bits = good.size() * 8;
    uint64_t state = 0x9E3779B97F4A7C15ull;
    for (int i = 0; i < 3000; ++i)
    {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        Bytes bad = good;
        const size_t bit = static_cast<size_t>((state >> 33) % bits);
        bad[bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
        const size_t other = static_cast<size_t>((state >> 11) % bits);
        if (i % 3 == 0) // and a second flip elsewhere
            bad[other / 8] ^= static_cast<uint8_t>(1u << (other % 8));
        MStlBase mesh;
        const MStlFileIO::MErrorCode code = LoadFromBytes(bad, mesh);
        EXPECT_TRUE(IsLoadCode(code)) << "flip of bit " << bit << " gave " << code;
    }
}
