// What kelmesh's "info" reports about the sections of native files (header-only helpers of the program).
#include "../../tools/kelmesh/NativeSections.h"

#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data.h>

#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

using KelSDK::Triangles::Data::MStlBase;
using namespace KelSDK::Triangles::IO;

namespace
{
// Registered while the test program starts (plug-ins stay registered); its section is empty.
struct ProbePlugin : MStlFileIOPlugin
{
    const wchar_t* GetName() const override { return L"KelmeshProbe"; }
    void SaveData(MStlBase*, MStlFileIO*) override {}
    void LoadData(MStlBase*, MStlFileIO*) override {}
};

ProbePlugin probe;

TEST(KelmeshNativeSections, SwitchesAndPluginSectionsAreThoseOfTheFile)
{
    const std::string name = testing::TempDir() + "kelmesh_sections.kstl";
    const std::wstring path(name.begin(), name.end());
    MStlBase mesh;
    mesh.CreateTriangle(mesh.CreatePoint(0, 0, 0), mesh.CreatePoint(1000, 0, 0),
                        mesh.CreatePoint(0, 1000, 0));
    KelSDK::FileIO::MFile file;
    ASSERT_TRUE(file.OPEN_WRITE(path));
    MStlFileIO writer;
    writer.SetSaveCurves(false);
    writer.SetSaveMasks(false);
    writer.SetSaveTriangleMarks(true);
    writer.SetSaveStlHistory(true);
    writer.SetStl(&mesh);
    writer.SetFile(file);
    ASSERT_EQ(writer.Save(nullptr), eStlFileIOSuccess);
    ASSERT_TRUE(file.Close());

    // The reader starts from the defaults; loading replaces them by the file's switches.
    MStlFileIO reader;
    EXPECT_EQ(Kelmesh::DescribeSectionSwitches(reader),
              "points, triangles, curves, colours, registered points, masks");
    MStlBase loaded;
    ASSERT_TRUE(file.OPEN_READ(path));
    reader.SetStl(&loaded);
    reader.SetFile(file);
    ASSERT_EQ(reader.Load(nullptr), eStlFileIOSuccess);
    file.Close();
    EXPECT_EQ(Kelmesh::DescribeSectionSwitches(reader),
              "points, triangles, colours, triangle marks, history, registered points");
    // The probe's section (registered first) and the five built-in ones, all read by a plug-in.
    const auto sections =
        Kelmesh::DescribePluginSections(reader.GetLoadedPluginSections(), MStlFileIOPlugin::GetPlugins());
    ASSERT_EQ(sections.size(), 6u);
    EXPECT_EQ(sections[0].name, "KelmeshProbe");
    EXPECT_EQ(sections[5].name, "UVMapList");
    for (const auto& section : sections)
        EXPECT_TRUE(section.registered) << section.name;
}

TEST(KelmeshNativeSections, NamesKeepFileOrderAndMatchWhole)
{
    const std::list<MStlFileIOPlugin*> registry = {nullptr, &probe};
    const std::vector<std::wstring> names = {L"Textures", L"KelmeshProbe", L"KelmeshProbe2", L"KelmeshProb",
                                             L""};
    const auto described = Kelmesh::DescribePluginSections(names, registry);
    ASSERT_EQ(described.size(), names.size());
    for (size_t i = 0; i < names.size(); ++i)
    {
        EXPECT_EQ(described[i].name, std::string(names[i].begin(), names[i].end()));
        EXPECT_EQ(described[i].registered, i == 1) << described[i].name;
    }
    EXPECT_TRUE(Kelmesh::DescribePluginSections({}, registry).empty());

    MStlFileIO off;
    for (auto set : {&MStlFileIO::SetSaveColors, &MStlFileIO::SetSaveCurves, &MStlFileIO::SetSaveMasks,
                     &MStlFileIO::SetSavePoints, &MStlFileIO::SetSaveRegisteredPoints,
                     &MStlFileIO::SetSaveStlHistory, &MStlFileIO::SetSaveTriangleMarks,
                     &MStlFileIO::SetSaveTriangleVisibilities, &MStlFileIO::SetSaveTriangles})
        (off.*set)(false);
    EXPECT_EQ(Kelmesh::DescribeSectionSwitches(off), "none");
}
} // namespace
