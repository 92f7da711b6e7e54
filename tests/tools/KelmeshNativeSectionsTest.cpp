// What kelmesh's "info" reports about the sections of native files (header-only helpers of the
// program), checked on files written and read back through the native format.
#include "../../tools/kelmesh/NativeSections.h"

#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data.h>

#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

using KelSDK::Triangles::Data::MStlBase;
using KelSDK::Triangles::IO::MStlFileIO;
using KelSDK::Triangles::IO::MStlFileIOPlugin;

namespace
{
// A plug-in with a small payload; registered once for the whole test program.
class ProbePlugin : public MStlFileIOPlugin
{
public:
    const wchar_t* GetName() const override { return L"KelmeshProbe"; }
    void SaveData(MStlBase*, MStlFileIO* writer) override
    {
        const unsigned char payload[3] = {1, 2, 3};
        writer->GetFile()->WRITE(payload, 3);
    }
    void LoadData(MStlBase*, MStlFileIO*) override { ++loads; }
    int loads = 0;
};

ProbePlugin& Probe()
{
    static ProbePlugin probe;
    return probe;
}

std::wstring ScratchFile(const char* name)
{
    const std::string path = testing::TempDir() + "kelmesh_sections_" + name + ".kstl";
    return std::wstring(path.begin(), path.end());
}

// One triangle, saved with the switches the caller set on io.
void SaveTriangle(MStlFileIO& io, const std::wstring& path)
{
    MStlBase mesh;
    mesh.CreateTriangle(mesh.CreatePoint(0, 0, 0), mesh.CreatePoint(1000, 0, 0),
                        mesh.CreatePoint(0, 1000, 0));
    KelSDK::FileIO::MFile file;
    ASSERT_TRUE(file.OPEN_WRITE(path));
    io.SetStl(&mesh);
    io.SetFile(file);
    ASSERT_EQ(io.Save(nullptr), KelSDK::Triangles::IO::eStlFileIOSuccess);
    ASSERT_TRUE(file.Close());
}

// Loads path into a fresh mesh with io.
void Load(MStlFileIO& io, const std::wstring& path)
{
    MStlBase mesh;
    KelSDK::FileIO::MFile file;
    ASSERT_TRUE(file.OPEN_READ(path));
    io.SetStl(&mesh);
    io.SetFile(file);
    ASSERT_EQ(io.Load(nullptr), KelSDK::Triangles::IO::eStlFileIOSuccess);
    file.Close();
}

TEST(KelmeshNativeSections, PluginSectionsOfAFileAreMarkedByTheRegistry)
{
    ProbePlugin& probe = Probe();
    const std::wstring path = ScratchFile("plugins");
    MStlFileIO writer;
    SaveTriangle(writer, path);
    MStlFileIO reader;
    const int loadsBefore = probe.loads;
    Load(reader, path);
    EXPECT_EQ(probe.loads, loadsBefore + 1);

    const std::vector<std::wstring>& sections = reader.GetLoadedPluginSections();
    const auto real = Kelmesh::DescribePluginSections(sections, MStlFileIOPlugin::GetPlugins());
    ASSERT_EQ(real.size(), sections.size());
    bool found = false;
    for (const auto& section : real)
        if (section.name == "KelmeshProbe")
        {
            found = true;
            EXPECT_TRUE(section.registered);
        }
    EXPECT_TRUE(found);

    // A process without the plug-in: the same section is listed but not known.
    const auto none = Kelmesh::DescribePluginSections(sections, {});
    ASSERT_EQ(none.size(), sections.size());
    for (const auto& section : none)
        EXPECT_FALSE(section.registered) << section.name;

    // The listing without keeping the mesh finds the same names.
    std::vector<std::wstring> listed;
    EXPECT_EQ(MStlFileIO::ListPluginSections(path, listed), KelSDK::Triangles::IO::eStlFileIOSuccess);
    EXPECT_EQ(listed, sections);
}

TEST(KelmeshNativeSections, NamesKeepFileOrderAndMatchWhole)
{
    ProbePlugin& probe = Probe();
    const std::list<MStlFileIOPlugin*> registry = {nullptr, &probe};
    const auto described = Kelmesh::DescribePluginSections(
        {L"Textures", L"KelmeshProbe", L"KelmeshProbe2", L"KelmeshProb", L""}, registry);
    ASSERT_EQ(described.size(), 5u);
    EXPECT_EQ(described[0].name, "Textures");
    EXPECT_FALSE(described[0].registered);
    EXPECT_EQ(described[1].name, "KelmeshProbe");
    EXPECT_TRUE(described[1].registered);
    // A name that only starts or ends like a registered one is another section.
    EXPECT_FALSE(described[2].registered);
    EXPECT_FALSE(described[3].registered);
    EXPECT_EQ(described[4].name, "");
    EXPECT_FALSE(described[4].registered);
    EXPECT_TRUE(Kelmesh::DescribePluginSections({}, registry).empty());
}

TEST(KelmeshNativeSections, SwitchesAreThoseTheFileWasSavedWith)
{
    MStlFileIO defaults;
    EXPECT_EQ(Kelmesh::DescribeSectionSwitches(defaults),
              "points, triangles, curves, colours, registered points, masks");

    const std::wstring path = ScratchFile("switches");
    MStlFileIO writer;
    writer.SetSaveCurves(false);
    writer.SetSaveMasks(false);
    writer.SetSaveTriangleMarks(true);
    writer.SetSaveStlHistory(true);
    SaveTriangle(writer, path);
    // The reader starts from the defaults; loading replaces them by the file's switches.
    MStlFileIO reader;
    Load(reader, path);
    EXPECT_EQ(Kelmesh::DescribeSectionSwitches(reader),
              "points, triangles, colours, triangle marks, history, registered points");

    MStlFileIO off;
    for (auto set : {&MStlFileIO::SetSaveColors, &MStlFileIO::SetSaveCurves, &MStlFileIO::SetSaveMasks,
                     &MStlFileIO::SetSavePoints, &MStlFileIO::SetSaveRegisteredPoints,
                     &MStlFileIO::SetSaveStlHistory, &MStlFileIO::SetSaveTriangleMarks,
                     &MStlFileIO::SetSaveTriangleVisibilities, &MStlFileIO::SetSaveTriangles})
        (off.*set)(false);
    EXPECT_EQ(Kelmesh::DescribeSectionSwitches(off), "none");
}
} // namespace
