// The plug-in block: skipping unknown sections, plug-ins that read too little, bad end
// positions and counts, and the file helpers for tools.
#include "NativeTestSupport.h"

#include <cstdio>

using namespace NativeTest;

TEST(NativePlugins, UnknownSectionsShortReadsBadEndPositionsAndCounts)
{
    // A file from a process with a plug-in "TX" that this one lacks (TA renamed, same length).
    Bytes bytes = StandardFile();
    const size_t name = Find(bytes, {2, 0, 0, 0, 'T', 0, 'A', 0});
    ASSERT_NE(SIZE_MAX, name);
    bytes[name + 6] = 'X';
    Plugins().Reset();
    MStlBase mesh;
    MStlFileIO io;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, mesh, nullptr, &io));
    EXPECT_EQ(0, Plugins().alpha.loadCount);
    EXPECT_EQ(1, Plugins().beta.loadCount);
    // TS after the skipped section read 2 of its 6 bytes; the block still ends correctly.
    EXPECT_EQ(1, Plugins().shortReader.loadCount);
    EXPECT_EQ((Bytes{0x51, 0x52}), Plugins().shortReader.loaded);
    EXPECT_EQ((std::vector<std::wstring>{L"ElementInfo", L"StlTextures", L"RevisionInfo", L"SurfaceZones",
                                         L"UVMapList", L"TB", L"TX", L"TS"}),
              io.GetLoadedPluginSections());

    // Bad end positions and counts.
    const Bytes good = StandardFile();
    const size_t block = good.size() - PluginBlockSize();
    const size_t end = block + 5 + 4 + 2 * 11; // end position of the first section, "ElementInfo"
    const struct
    {
        const char* what;
        uint32_t value;
        size_t offset;
    } cases[] = {
        {"end position past the file", static_cast<uint32_t>(good.size() + 1), end},
        {"end position before the payload", static_cast<uint32_t>(end), end},
        {"section count larger than the file", 0x10000000u, block + 1},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.what);
        Bytes bad = good;
        for (int i = 0; i < 4; ++i)
            bad[c.offset + i] = static_cast<uint8_t>(c.value >> (8 * i));
        MStlBase mesh;
        EXPECT_EQ(eStlFileIOBadFormat, LoadFromBytes(bad, mesh));
    }
    // Fewer sections than plug-ins: the count in the file decides.
    ByteBuilder b;
    b.raw(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(block))).u8(194).u32(0).u8(195);
    Plugins().Reset();
    MStlBase other;
    EXPECT_EQ(eStlFileIOSuccess, LoadFromBytes(b.bytes, other));
    EXPECT_EQ(0, Plugins().alpha.loadCount);
}

TEST(NativePlugins, FileHelpersAndSaveLoadThroughARealFile)
{
    const std::string narrow = std::string(::testing::TempDir()) + "kel_native_helper.kstl";
    const std::wstring native(narrow.begin(), narrow.end()), missing = native + L".missing";
    MStlBase mesh, loaded;
    mesh.Create({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{{0, 1, 2}}}, nullptr, nullptr, nullptr);
    for (bool save : {true, false}) // on disk, the end positions are patched by seeking back
    {
        KelSDK::FileIO::MFile f;
        ASSERT_TRUE(save ? f.OPEN_WRITE(native) : f.OPEN_READ(native));
        MStlFileIO io;
        io.SetStl(save ? &mesh : &loaded);
        io.SetFile(f);
        Plugins().Reset();
        ASSERT_EQ(eStlFileIOSuccess, save ? io.Save(nullptr) : io.Load(nullptr));
        ASSERT_TRUE(f.Close());
    }
    EXPECT_EQ(1u, loaded.NumberOfTriangles());
    EXPECT_EQ(Plugins().alpha.payload, Plugins().alpha.loaded);
    EXPECT_TRUE(MStlFileIO::IsNativeFile(native));
    EXPECT_FALSE(MStlFileIO::IsNativeFile(missing));
    std::vector<std::wstring> sections;
    EXPECT_EQ(eStlFileIOSuccess, MStlFileIO::ListPluginSections(native, sections));
    EXPECT_EQ((std::vector<std::wstring>{L"ElementInfo", L"StlTextures", L"RevisionInfo", L"SurfaceZones",
                                         L"UVMapList", L"TB", L"TA", L"TS"}),
              sections);
    EXPECT_EQ(eStlFileIOFileNotOpen, MStlFileIO::ListPluginSections(missing, sections));
    {
        KelSDK::FileIO::MFile g; // a text STL file is not native
        ASSERT_TRUE(g.OPEN_WRITE(native));
        g.WRITE_STRING("solid x\nendsolid x\n");
        ASSERT_TRUE(g.Close());
    }
    EXPECT_FALSE(MStlFileIO::IsNativeFile(native));
    EXPECT_EQ(eStlFileIOBadFormat, MStlFileIO::ListPluginSections(native, sections));
    std::remove(narrow.c_str());
}
