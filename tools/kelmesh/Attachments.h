// kelmesh: what "info" says about the attachments of a mesh (element information, surface zones,
// identity card, textures, UV maps), and which of them a conversion to STL leaves behind.
// Header-only so that the rules can be tested without running the program.
#pragma once

#include <KelSDK/Common/ImageBitmap.h>
#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/Triangles/Data.h>

#include <string>
#include <vector>

namespace Kelmesh
{
namespace AttachmentText
{
inline std::string Quoted(const std::wstring& name)
{
    return "\"" + KelSDK::Common::StringConversion::NativeToLocale(name) + "\"";
}

inline std::string Count(size_t n, const char* one, const char* many)
{
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

inline std::string BitmapSize(const KelSDK::Common::ImageBitmap* bitmap)
{
    if (bitmap == nullptr)
        return "no bitmap";
    return std::to_string(bitmap->GetWidth()) + " x " + std::to_string(bitmap->GetHeight());
}
} // namespace AttachmentText

// One line per attachment the mesh carries, in the order of the file's plug-in sections; none
// for a mesh without attachments.
inline std::vector<std::string> DescribeAttachments(const KelSDK::Triangles::Data::MStlBase& mesh)
{
    using namespace KelSDK::Triangles::Data;
    using namespace AttachmentText;
    std::vector<std::string> lines;
    if (const MStlBaseElementInfo* info = MStlBaseElementInfoStlDependency::GetDependency(&mesh, false))
    {
        const size_t edges = info->GetNumberOfEdges(), vertices = info->GetNumberOfVertices();
        const struct
        {
            bool defined;
            const char* name;
            size_t values;
        } masks[] = {{info->IsEdgeThicknessMaskDefined(), "edge thickness", edges},
                     {info->IsEdgeToleranceMaskDefined(), "edge tolerance", edges},
                     {info->IsEdgeCapMaskDefined(), "edge caps", edges},
                     {info->IsVertexRadiusMaskDefined(), "vertex radius", vertices}};
        std::string text;
        for (const auto& mask : masks)
            if (mask.defined)
                text += (text.empty() ? "" : ", ") + std::string(mask.name) + " (" +
                        Count(mask.values, "value", "values") + ")";
        lines.push_back("element info: " + (text.empty() ? std::string("defaults only, no masks") : text));
    }
    if (const SurfaceZones* zones = SurfaceZonesStlDependency::GetInstance(&mesh))
    {
        const SurfaceZone* zone = zones->GetNoSupportZone();
        lines.push_back("surface zones: " +
                        (zone ? "no-support zone of " +
                                    Count(zone->GetNumberOfTriangles(), "triangle", "triangles") + ", " +
                                    Count(zone->GetNumberOfEdges(), "edge", "edges")
                              : std::string("no no-support zone")));
    }
    if (const MStlRevisionSystem::MIDCard* card = MStlRevisionSystem::FindIDCard(&mesh))
        lines.push_back(
            "identity card: " +
            KelSDK::Common::StringConversion::NativeToLocale(card->GetGlobalID().GetString(true, true)) +
            ", revision " + std::to_string(card->GetRevision().GetNumber()) +
            (card->RevisionUpToDate() ? "" : " (out of date)") + ", " +
            Count(card->GetNumParentIDCards(), "parent", "parents"));
    const MStlTextureList& textures = mesh.GetTextures();
    if (textures.GetNumTextures() > 0)
    {
        std::string text = "textures:    " + std::to_string(textures.GetNumTextures());
        for (size_t t = 0; t < textures.GetNumTextures(); ++t)
        {
            const MStlTexture& texture = *textures.GetTexture(t);
            text += (t == 0 ? ": " : ", ") + Quoted(texture.GetName()) + " " +
                    BitmapSize(texture.GetSharedBitmap().get());
            for (size_t before = 0; before < t; ++before)
                if (texture.GetSharedBitmap() &&
                    texture.GetSharedBitmap() == textures.GetTexture(before)->GetSharedBitmap())
                {
                    text += " (bitmap of texture " + std::to_string(before + 1) + ")";
                    break;
                }
        }
        lines.push_back(text);
    }
    if (const KelSDK::UVMapList* maps = KelSDK::UVMapList::Get(&mesh, false))
    {
        std::string text = "UV maps:     " + std::to_string(maps->GetNumberOfMaps());
        for (size_t m = 0; m < maps->GetNumberOfMaps(); ++m)
        {
            const KelSDK::UVMap& map = *maps->GetMap(m);
            text += (m == 0 ? ": " : ", ") + Quoted(map.GetName()) + " with " +
                    Count(map.GetTextures().size(), "texture", "textures") + ", " +
                    BitmapSize(map.GetSharedBitmap().get());
        }
        lines.push_back(text);
    }
    return lines;
}

// The attachments of the mesh that an STL file cannot hold, named for a warning; empty when the
// mesh has none.
inline std::vector<std::string> AttachmentsStlCannotHold(const KelSDK::Triangles::Data::MStlBase& mesh)
{
    using namespace KelSDK::Triangles::Data;
    std::vector<std::string> names;
    if (MStlBaseElementInfoStlDependency::GetDependency(&mesh, false))
        names.push_back("element information");
    if (SurfaceZonesStlDependency::GetInstance(&mesh))
        names.push_back("surface zones");
    if (MStlRevisionSystem::FindIDCard(&mesh))
        names.push_back("identity card");
    if (mesh.GetTextures().GetNumTextures() > 0)
        names.push_back("textures");
    if (KelSDK::UVMapList::Get(&mesh, false))
        names.push_back("UV maps");
    return names;
}
} // namespace Kelmesh
