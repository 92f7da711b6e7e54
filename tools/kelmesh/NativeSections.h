// kelmesh: what "info" says about the sections of a native mesh file. Header-only so that the
// rules can be tested without running the program.
#pragma once

#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>
#include <KelSDK/Triangles/IO/MStlFileIOPlugin.h>

#include <cwchar>
#include <list>
#include <string>
#include <utility>
#include <vector>

namespace Kelmesh
{
// A plug-in section of a file and whether this process has a plug-in that reads it.
struct PluginSection
{
    std::string name;
    bool registered = false;
};

// The sections in file order, each marked with whether a plug-in of that name is in registry.
inline std::vector<PluginSection>
DescribePluginSections(const std::vector<std::wstring>& sections,
                       const std::list<KelSDK::Triangles::IO::MStlFileIOPlugin*>& registry)
{
    std::vector<PluginSection> described;
    described.reserve(sections.size());
    for (const std::wstring& section : sections)
    {
        PluginSection entry;
        entry.name = KelSDK::Common::StringConversion::NativeToLocale(section);
        for (const auto* plugin : registry)
        {
            const wchar_t* name = plugin != nullptr ? plugin->GetName() : nullptr;
            if (name != nullptr && section == name)
            {
                entry.registered = true;
                break;
            }
        }
        described.push_back(std::move(entry));
    }
    return described;
}

// The mesh sections a loaded file carries by its info-block switches, in the file's order
// ("none" when every switch is off).
inline std::string DescribeSectionSwitches(const KelSDK::Triangles::IO::MStlFileIO& io)
{
    const std::pair<bool, const char*> switches[] = {
        {io.GetSavePoints(), "points"},
        {io.GetSaveTriangles(), "triangles"},
        {io.GetSaveCurves(), "curves"},
        {io.GetSaveColors(), "colours"},
        {io.GetSaveTriangleMarks(), "triangle marks"},
        {io.GetSaveTriangleVisibilities(), "triangle visibilities"},
        {io.GetSaveStlHistory(), "history"},
        {io.GetSaveRegisteredPoints(), "registered points"},
        {io.GetSaveMasks(), "masks"},
    };
    std::string text;
    for (const auto& [on, name] : switches)
        if (on)
            text += (text.empty() ? "" : ", ") + std::string(name);
    return text.empty() ? "none" : text;
}
} // namespace Kelmesh
