// The plug-in registry and the plug-in block: order, skipping unknown sections, plug-ins that
// read too little, end positions, and the file helpers for tools.
#include "NativeTestSupport.h"

#include <cstdio>
#include <string>

using namespace NativeTest;

namespace
{
// Names of the test plug-ins in registry order (other plug-ins of the process are left out).
std::vector<std::wstring> TestPluginOrder()
{
    std::vector<std::wstring> names;
    for (MStlFileIOPlugin* p : MStlFileIOPlugin::GetPlugins())
    {
        const std::wstring name = p->GetName();
        if (name == L"TA" || name == L"TS" || name == L"TB")
            names.push_back(name);
    }
    return names;
}

Bytes TriangleFile()
{
    MStlBase mesh;
    mesh.Create({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{{0, 1, 2}}}, nullptr, nullptr, nullptr);
    return SaveToBytes(mesh);
}
} // namespace

TEST(NativePlugins, RegistryIsSortedStablyByOrder)
{
    Plugins();
    // Registered as TA (5), TS (5), TB (2): TB first, then TA and TS in registration order.
    EXPECT_EQ((std::vector<std::wstring>{L"TB", L"TA", L"TS"}), TestPluginOrder());
    EXPECT_EQ(5u, Plugins().alpha.GetSaveLoadOrder());
    EXPECT_EQ(2u, Plugins().beta.GetSaveLoadOrder());
}

TEST(NativePlugins, EveryPluginReadsItsSectionAndShortReadsAreCorrected)
{
    const Bytes bytes = TriangleFile();
    Plugins().Reset();
    MStlBase mesh;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, mesh));
    EXPECT_EQ(1, Plugins().beta.loadCount);
    EXPECT_EQ(1, Plugins().alpha.loadCount);
    EXPECT_EQ(Plugins().alpha.Payload(), Plugins().alpha.loaded);
    // TS read 2 of its 6 bytes; the block still ends correctly.
    EXPECT_EQ(1, Plugins().shortReader.loadCount);
    EXPECT_EQ((Bytes{0x51, 0x52}), Plugins().shortReader.loaded);
}

TEST(NativePlugins, UnknownSectionsAreSkipped)
{
    // A file from a process with a plug-in "TX" that this one lacks (TA renamed, same length).
    Bytes bytes = TriangleFile();
    const size_t name = Find(bytes, {2, 0, 0, 0, 'T', 0, 'A', 0});
    ASSERT_NE(SIZE_MAX, name);
    bytes[name + 6] = 'X';
    Plugins().Reset();
    KelSDK::FileIO::MMemoryFile file;
    file.OpenRead(bytes.data(), bytes.size());
    MStlBase mesh;
    MStlFileIO io;
    io.SetStl(&mesh);
    io.SetFile(file);
    ASSERT_EQ(eStlFileIOSuccess, io.Load(nullptr));
    EXPECT_EQ(0, Plugins().alpha.loadCount);
    EXPECT_EQ(1, Plugins().shortReader.loadCount); // the plug-in after it is still read
    EXPECT_EQ((Bytes{0x51, 0x52}), Plugins().shortReader.loaded);
    EXPECT_EQ((std::vector<std::wstring>{L"TB", L"TX", L"TS"}), io.GetLoadedPluginSections());

    // An unknown section with a payload of its own, added by hand before the known ones.
    const size_t block = bytes.size() - PluginBlockSize();
    ByteBuilder edited;
    edited.bytes.assign(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(block));
    edited.u8(194).u32(4);
    edited.section("Ghost", {1, 2, 3, 4, 5, 6, 7, 8, 9});
    edited.section("TB", {});
    edited.section("TA", {0xA1, 0xA2, 0xA3, 0xA4});
    edited.section("TS", {0x51, 0x52, 0x53, 0x54, 0x55, 0x56});
    edited.u8(195);
    Plugins().Reset();
    MStlBase other;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(edited.bytes, other));
    EXPECT_EQ(Plugins().alpha.Payload(), Plugins().alpha.loaded);
    EXPECT_EQ(1, Plugins().beta.loadCount);
}

TEST(NativePlugins, BadEndPositionsAndCounts)
{
    const Bytes good = TriangleFile();
    const size_t block = good.size() - PluginBlockSize();
    // The end position of the first section (TB) lies right after its name.
    const size_t end = block + 5 + 4 + 4;
    struct Case
    {
        const char* what;
        uint32_t value;
        size_t offset;
    };
    const Case cases[] = {
        {"end position past the file", static_cast<uint32_t>(good.size() + 1), end},
        {"end position before the payload", static_cast<uint32_t>(end), end},
        {"section count larger than the file", 0x10000000u, block + 1},
    };
    for (const Case& c : cases)
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
    b.bytes.assign(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(block));
    b.u8(194).u32(0).u8(195);
    Plugins().Reset();
    MStlBase mesh;
    EXPECT_EQ(eStlFileIOSuccess, LoadFromBytes(b.bytes, mesh));
    EXPECT_EQ(0, Plugins().alpha.loadCount);
}

namespace
{
std::wstring TempName(const char* stem)
{
    const std::string narrow = std::string(::testing::TempDir()) + stem;
    return std::wstring(narrow.begin(), narrow.end());
}
} // namespace

TEST(NativePlugins, FileHelpersForTools)
{
    const Bytes bytes = TriangleFile();
    const std::wstring native = TempName("kel_native_helper.kstl");
    const std::wstring other = TempName("kel_native_helper.stl");
    {
        KelSDK::FileIO::MFile f;
        ASSERT_TRUE(f.OPEN_WRITE(native));
        f.WRITE(bytes.data(), bytes.size());
        ASSERT_TRUE(f.Close());
        KelSDK::FileIO::MFile g;
        ASSERT_TRUE(g.OPEN_WRITE(other));
        g.WRITE_STRING("solid x\nendsolid x\n");
        ASSERT_TRUE(g.Close());
    }
    EXPECT_TRUE(MStlFileIO::IsNativeFile(native));
    EXPECT_FALSE(MStlFileIO::IsNativeFile(other));
    EXPECT_FALSE(MStlFileIO::IsNativeFile(TempName("kel_native_missing.kstl")));

    std::vector<std::wstring> sections;
    EXPECT_EQ(eStlFileIOSuccess, MStlFileIO::ListPluginSections(native, sections));
    EXPECT_EQ((std::vector<std::wstring>{L"TB", L"TA", L"TS"}), sections);
    EXPECT_EQ(eStlFileIOBadFormat, MStlFileIO::ListPluginSections(other, sections));
    EXPECT_EQ(eStlFileIOFileNotOpen,
              MStlFileIO::ListPluginSections(TempName("kel_native_missing.kstl"), sections));

    // Through a real file: save and load with MFile on disk (end positions patched by seeking).
    MStlBase mesh;
    mesh.Create({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{{0, 1, 2}}}, nullptr, nullptr, nullptr);
    {
        KelSDK::FileIO::MFile f;
        ASSERT_TRUE(f.OPEN_WRITE(native));
        MStlFileIO io;
        io.SetStl(&mesh);
        io.SetFile(f);
        ASSERT_EQ(eStlFileIOSuccess, io.Save(nullptr));
        ASSERT_TRUE(f.Close());
    }
    {
        KelSDK::FileIO::MFile f;
        ASSERT_TRUE(f.OPEN_READ(native));
        MStlBase loaded;
        MStlFileIO io;
        io.SetStl(&loaded);
        io.SetFile(f);
        Plugins().Reset();
        ASSERT_EQ(eStlFileIOSuccess, io.Load(nullptr));
        EXPECT_EQ(1u, loaded.NumberOfTriangles());
        EXPECT_EQ(Plugins().alpha.Payload(), Plugins().alpha.loaded);
    }
    std::remove(std::string(native.begin(), native.end()).c_str());
    std::remove(std::string(other.begin(), other.end()).c_str());
}
