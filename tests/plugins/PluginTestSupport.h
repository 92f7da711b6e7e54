// Shared pieces of the plug-in tests: a mesh carrying every attachment, and the plug-in block of a
// saved file taken apart into named payloads and put together again.
#pragma once

#include "../native/NativeTestSupport.h"

#include <KelSDK/Common/ImageBitmap.h>
#include <KelSDK/Triangles/Data.h>

#include <string>
#include <vector>

namespace PluginTest
{
using namespace NativeTest;
using KelSDK::UVMap;
using KelSDK::UVMapList;
using KelSDK::Common::ImageBitmap;
using namespace KelSDK::Triangles::Data::MStlRevisionSystem;

// The Standard test mesh or the Compact or OnDisk one (6 vertices, 4 triangles, graph edges in
// the Standard and Compact kinds).
inline void BuildKind(MStlBase& mesh, MStlHybridState kind)
{
    if (kind == eStlStandard)
        BuildStandard(mesh);
    else
        BuildHybrid(mesh, kind);
}

inline std::shared_ptr<ImageBitmap> Bitmap(uint32_t width, uint32_t height, uint32_t seed, bool alpha = true)
{
    std::shared_ptr<ImageBitmap> bitmap = ImageBitmap::Create(width, height, alpha);
    for (size_t i = 0; i < bitmap->GetPixels().size(); ++i)
        bitmap->GetPixels()[i] = seed * 0x01010101u + static_cast<uint32_t>(i);
    bitmap->SetOriginalData({0x89, 'P', 'N', 'G', static_cast<uint8_t>(seed)});
    bitmap->SetOriginalMetaData({L"tex" + std::to_wstring(seed) + L".png", L"png", L"d\u00e9cor", L"anna"});
    return bitmap;
}

// Every attachment with values that differ between elements:
// - textures: t0 and t1 share bitmap A, t2 has bitmap B (no alpha), t3 none; t0 has coordinates;
// - element information: every mask, a value per element;
// - no-support zone: triangles 3 and 1 (in that order), edge 1;
// - UV maps: "shared" (t2, t0; bitmap A of its second texture), "own" (no textures, bitmap C),
//   "hidden" (t1; bitmap D of its own, hidden, size method 2);
// - identity card: revision 7 out of date, two parents, the first with history and a parent.
inline void AttachEverything(MStlBase& mesh)
{
    MStlTextureList& textures = mesh.GetTextures();
    const auto a = Bitmap(2, 2, 1), b = Bitmap(1, 3, 2, false);
    MStlTexture* t[4];
    for (int i = 0; i < 4; ++i)
    {
        t[i] = textures.AddTexture();
        t[i]->SetName(L"texture " + std::to_wstring(i));
    }
    t[0]->SetSharedBitmap(a);
    t[1]->SetSharedBitmap(a);
    t[2]->SetSharedBitmap(b);
    t[0]->Coordinates() = {{1, {0.f, 1.f, 0.5f}, {0.25f, 0.75f, 1.f}},
                           {3, {-1.f, 2.f, 3.f}, {4.f, 5.f, 6.f}}};
    t[1]->Displacement() = {true, 12.5, true};
    t[2]->Label() = {true, L"KelSDK", L"Sans", 40.0};

    MStlBaseElementInfo& info = *MStlBaseElementInfoStlDependency::GetDependency(&mesh, true);
    info.SetDefaultEdgeThickness({100, 200});
    info.SetDefaultEdgeTolerance(-3);
    info.SetDefaultEdgeCap(eStlGraphEdgeCapFlat);
    info.SetDefaultVertexRadius(55);
    for (size_t e = 0; e < info.GetNumberOfEdges(); ++e)
    {
        const int v = static_cast<int>(e) + 1;
        info.SetEdgeThickness(e, {10 * v, -20 * v});
        info.SetEdgeTolerance(e, 7 * v);
        info.SetEdgeCaps(e, {static_cast<int8_t>(v), static_cast<int8_t>(-v)});
    }
    info.DefineEdgeThicknessMask();
    info.DefineEdgeToleranceMask();
    info.DefineEdgeCapMask();
    for (size_t p = 0; p < info.GetNumberOfVertices(); ++p)
        info.SetVertexRadius(p, 1000 + static_cast<int>(p));

    SurfaceZone& zone = *SurfaceZonesStlDependency::CreateInstance(&mesh)->InitNoSupportZone();
    zone.AddTriangle(MStlHybridEntity::FromIndex(3));
    zone.AddTriangle(MStlHybridEntity::FromIndex(1));
    zone.AddEdge(MStlHybridEntity::FromIndex(1));

    UVMapList& maps = *UVMapList::Get(&mesh, true);
    UVMap* shared = maps.AddMap();
    shared->SetName(L"shared");
    shared->AddTexture(t[2]);
    shared->AddTexture(t[0]);
    shared->SetSharedBitmap(a, false);
    shared->SetXYZToUFactor(0.125);
    shared->SetXYZToVFactor(-2.5);
    UVMap* own = maps.AddMap();
    own->SetName(L"own");
    own->SetSharedBitmap(Bitmap(3, 1, 3), false);
    own->SetKeepUVAspectRatio(false);
    own->SetSizeMethod(UVMap::eSizeToObject);
    UVMap* hidden = maps.AddMap();
    hidden->SetName(L"hidden");
    hidden->AddTexture(t[1]);
    hidden->SetSharedBitmap(Bitmap(1, 1, 4), false);
    hidden->SetSizeMethod(UVMap::eSizeToBitmap);
    hidden->SetVisibility(false);
    hidden->SetBitmapVisibility(false);

    MIDCard& card = *GetIDCard(&mesh);
    MIDCard grandparent = MIDCard::CreateNew();
    MIDCard parent = MIDCard::CreateNew();
    parent.CreateHistory().AddEntry(MHistoryEntry{L"Scan", L"scanner 2", 1600000000, L"bo"});
    parent.CreateHistory().AddEntry(MHistoryEntry{L"Cut", L"", 1600000100, L""});
    parent.AddParentIDCard(grandparent);
    card.AddParentIDCard(parent);
    card.AddParentIDCard(MIDCard::CreateNew());
    card.SetRevision(MRevGuid(MGuid::Generate(), 7), false, false);
}

// One section of a plug-in block.
struct Section
{
    std::wstring name;
    Bytes payload;
};

// The plug-in block of a saved file: where it starts and its sections in file order.
struct PluginBlock
{
    size_t start = SIZE_MAX;
    std::vector<Section> sections;

    // The payload of the named section (empty when there is none).
    Bytes Payload(const std::wstring& name) const
    {
        for (const Section& s : sections)
            if (s.name == name)
                return s.payload;
        ADD_FAILURE() << "no section of that name";
        return {};
    }
};

// Splits the plug-in block of a file saved by this process (its first section is "ElementInfo").
inline PluginBlock SplitPluginBlock(const Bytes& file)
{
    PluginBlock block;
    const size_t name = Find(file, ByteBuilder().wstr("ElementInfo").bytes);
    if (name == SIZE_MAX || name < 5 || file[name - 5] != 194)
    {
        ADD_FAILURE() << "no plug-in block";
        return block;
    }
    block.start = name - 5;
    const auto u32 = [&file](size_t at)
    {
        return uint32_t(file[at]) | uint32_t(file[at + 1]) << 8 | uint32_t(file[at + 2]) << 16 |
               uint32_t(file[at + 3]) << 24;
    };
    size_t at = block.start + 1;
    const uint32_t count = u32(at);
    at += 4;
    for (uint32_t i = 0; i < count; ++i)
    {
        Section s;
        const uint32_t units = u32(at);
        for (uint32_t c = 0; c < units; ++c)
            s.name += static_cast<wchar_t>(file[at + 4 + 2 * c] | file[at + 5 + 2 * c] << 8);
        at += 4 + 2 * units;
        const uint32_t end = u32(at);
        s.payload.assign(file.begin() + static_cast<std::ptrdiff_t>(at + 4),
                         file.begin() + static_cast<std::ptrdiff_t>(end));
        at = end;
        block.sections.push_back(std::move(s));
    }
    return block;
}

// The file with its plug-in block rebuilt from the given sections (end positions recomputed).
inline Bytes WithPluginBlock(const Bytes& file, const PluginBlock& block)
{
    ByteBuilder b;
    b.raw(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(block.start)));
    b.u8(194).u32(static_cast<uint32_t>(block.sections.size()));
    for (const Section& s : block.sections)
        b.section(ByteBuilder::Narrow(s.name), s.payload);
    return b.u8(195).bytes;
}

// The file with one section's payload replaced.
inline Bytes WithPayload(const Bytes& file, const std::wstring& name, const Bytes& payload)
{
    PluginBlock block = SplitPluginBlock(file);
    for (Section& s : block.sections)
        if (s.name == name)
            s.payload = payload;
    return WithPluginBlock(file, block);
}

// Compares everything the format keeps (the mesh's name and colour are not part of it).
inline std::string Differences(const MStlBase& a, const MStlBase& b)
{
    MStlCompareOptions options;
    options.storageKind = true;
    options.attributes = false;
    return CompareMeshes(a, b, options);
}
} // namespace PluginTest
