// All five built-in sections together: round trips in every storage kind, a reader that lacks one
// plug-in, files from before the plug-ins, the one-time registry under concurrent first use, and
// every cut of the block.
#include "PluginTestSupport.h"

#include <KelSDK/Triangles/IO/MStlTextureFileIO.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <thread>

using namespace PluginTest;

namespace
{
const wchar_t* const kBuiltins[] = {L"ElementInfo", L"StlTextures", L"RevisionInfo", L"SurfaceZones",
                                    L"UVMapList"};

Bytes ReadFixture(const std::string& name)
{
    std::ifstream in(std::string(KEL_TEST_DATA_DIR) + "/native/" + name, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Removes the attachment that the named section carries.
void Drop(MStlBase& mesh, const std::wstring& section)
{
    if (section == L"ElementInfo")
        MStlBaseElementInfoStlDependency::DestroyInstance(&mesh);
    else if (section == L"StlTextures")
    {
        mesh.GetTextures().Clear();
        // The map "shared" takes its bitmap from one of its textures, so it has none either.
        UVMapList::Get(&mesh, false)->GetMap(0)->SetSharedBitmap(nullptr, false);
    }
    else if (section == L"SurfaceZones")
        SurfaceZonesStlDependency::DestroyInstance(&mesh);
    else if (section == L"UVMapList")
        UVMapList::Destroy(&mesh);
}
} // namespace

TEST(PluginBlock, TheUVMapsComeAfterTheTextures)
{
    MStlFileIO io; // registers the built-ins
    for (const MStlFileIOPlugin* plugin : MStlFileIOPlugin::GetPlugins())
        for (const std::wstring name : kBuiltins)
            if (name == plugin->GetName())
            {
                EXPECT_EQ(name == L"UVMapList" ? MStlTextureFileIOPlugin::GetSaveLoadOrderStatic() + 1 : 0u,
                          plugin->GetSaveLoadOrder())
                    << ByteBuilder::Narrow(name);
            }
}

TEST(PluginBlock, EveryAttachmentRoundTripsInEveryKind)
{
    for (MStlHybridState kind : {eStlStandard, eStlCompact, eStlOnDisk})
    {
        SCOPED_TRACE(testing::Message() << "kind " << kind);
        MStlBase mesh, loaded;
        BuildKind(mesh, kind);
        AttachEverything(mesh);
        const Bytes bytes = SaveToBytes(mesh, kAllOn);
        ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
        EXPECT_EQ("", Differences(mesh, loaded));
        EXPECT_EQ(bytes, SaveToBytes(loaded, kAllOn));
        // What the comparison relies on is really there.
        EXPECT_EQ(4u, loaded.GetTextures().GetNumTextures());
        EXPECT_EQ(3u, UVMapList::Get(&loaded, false)->GetNumberOfMaps());
        EXPECT_EQ(2u, FindIDCard(&loaded)->GetNumParentIDCards());
        EXPECT_EQ(
            2u, SurfaceZonesStlDependency::GetInstance(&loaded)->GetNoSupportZone()->GetNumberOfTriangles());
        EXPECT_TRUE(
            MStlBaseElementInfoStlDependency::GetDependency(&loaded, false)->IsVertexRadiusMaskDefined());
    }
}

TEST(PluginBlock, AReaderWithoutOnePluginSkipsItsSectionAndReadsTheOthers)
{
    MStlBase mesh;
    BuildStandard(mesh);
    AttachEverything(mesh);
    const Bytes file = SaveToBytes(mesh);
    for (const wchar_t* missing : kBuiltins)
    {
        SCOPED_TRACE(ByteBuilder::Narrow(missing));
        // A section whose name no plug-in of this process has: one letter changed, same length.
        PluginBlock block = SplitPluginBlock(file);
        for (Section& s : block.sections)
            if (s.name == missing)
                s.name[0] = L'X';
        MStlBase loaded, expected;
        BuildStandard(expected);
        AttachEverything(expected);
        *GetIDCard(&expected) = *GetIDCard(&mesh);
        ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(WithPluginBlock(file, block), loaded));
        if (std::wstring(missing) == L"RevisionInfo")
        {
            EXPECT_EQ(nullptr, FindIDCard(&loaded));
        }
        else
        {
            Drop(expected, missing);
            EXPECT_EQ(*GetIDCard(&mesh), *FindIDCard(&loaded));
        }
        EXPECT_EQ("", Differences(expected, loaded));
    }
}

TEST(PluginBlock, FilesSavedBeforeThePluginsStillLoad)
{
    const Bytes old = ReadFixture("tetra_edges_before_plugins.kstl");
    ASSERT_EQ(254u, old.size());
    MStlBase mesh;
    MStlFileIO io;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(old, mesh, nullptr, &io));
    EXPECT_TRUE(io.GetLoadedPluginSections().empty());
    EXPECT_EQ(4u, mesh.NumberOfTriangles());
    EXPECT_EQ(2u, mesh.NumberOfGraphEdges());
    EXPECT_EQ(nullptr, MStlBaseElementInfoStlDependency::GetDependency(&mesh, false));
    EXPECT_EQ(nullptr, SurfaceZonesStlDependency::GetInstance(&mesh));
    EXPECT_EQ(nullptr, UVMapList::Get(&mesh, false));
    EXPECT_EQ(nullptr, FindIDCard(&mesh));
    // The loaded mesh takes attachments and keeps them through a file of today.
    AttachEverything(mesh);
    MStlBase again;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(SaveToBytes(mesh), again));
    EXPECT_EQ("", Differences(mesh, again));
}

TEST(PluginBlock, ConcurrentFirstUseRegistersEachBuiltinOnce)
{
    // A fresh process, so that this really is the first MStlFileIO; threads start together.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            for (const MStlFileIOPlugin* plugin : MStlFileIOPlugin::GetPlugins())
                for (const wchar_t* name : kBuiltins)
                    if (std::wstring(name) == plugin->GetName())
                    {
                        std::fprintf(stderr, "registered before the first MStlFileIO\n");
                        std::exit(2);
                    }
            std::atomic<int> waiting{8};
            std::vector<std::thread> threads;
            for (int t = 0; t < 8; ++t)
                threads.emplace_back(
                    [&waiting]
                    {
                        --waiting;
                        while (waiting.load() > 0)
                            std::this_thread::yield();
                        MStlFileIO io;
                        (void)io;
                    });
            for (std::thread& t : threads)
                t.join();
            for (const wchar_t* name : kBuiltins)
            {
                int found = 0;
                for (const MStlFileIOPlugin* plugin : MStlFileIOPlugin::GetPlugins())
                    found += std::wstring(name) == plugin->GetName();
                if (found != 1)
                {
                    std::fprintf(stderr, "registered %d times\n", found);
                    std::exit(1);
                }
            }
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(PluginBlock, EveryCutOfTheBlockGivesADefinedResult)
{
    MStlBase mesh;
    BuildStandard(mesh);
    AttachEverything(mesh);
    const Bytes file = SaveToBytes(mesh);
    const size_t block = SplitPluginBlock(file).start;
    // Files cut anywhere in the block fail as a whole; the sanitizers watch every read.
    for (size_t size = block; size < file.size(); ++size)
    {
        MStlBase loaded;
        ASSERT_EQ(
            eStlFileIOBadFormat,
            LoadFromBytes(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size)), loaded))
            << "cut at " << size;
    }
    // Payloads cut anywhere (end positions moved back, the next sections moved up) load, and the
    // sections after the cut one stay whole.
    const PluginBlock whole = SplitPluginBlock(file);
    for (size_t s = 0; s < 5; ++s)
        for (size_t keep = 0; keep < whole.sections[s].payload.size(); ++keep)
        {
            PluginBlock cut = whole;
            cut.sections[s].payload.resize(keep);
            MStlBase loaded;
            ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(WithPluginBlock(file, cut), loaded))
                << ByteBuilder::Narrow(whole.sections[s].name) << " cut to " << keep;
            if (s < 4)
            {
                EXPECT_EQ(3u, UVMapList::Get(&loaded, false)->GetNumberOfMaps())
                    << ByteBuilder::Narrow(whole.sections[s].name) << " cut to " << keep;
            }
        }
    // Bytes flipped in the block: any result, but a defined one; what loads saves and loads back
    // to the same mesh.
    for (size_t i = block; i < file.size(); i += 3)
    {
        Bytes flipped = file;
        flipped[i] ^= 0xA5;
        MStlBase loaded, again;
        if (LoadFromBytes(flipped, loaded) != eStlFileIOSuccess)
            continue;
        ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(SaveToBytes(loaded), again)) << "flipped at " << i;
        EXPECT_EQ("", Differences(loaded, again)) << "flipped at " << i;
    }
}
