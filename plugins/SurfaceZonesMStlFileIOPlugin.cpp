// The "SurfaceZones" plug-in section.
#include "PluginPayload.h"

#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/Data/MStlBaseIndexed.h>
#include <KelSDK/Triangles/Data/SurfaceZones.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>
#include <KelSDK/Triangles/IO/SurfaceZonesMStlFileIOPlugin.h>

namespace KelSDK::Triangles::IO
{
using namespace KelSDK::Triangles::Data;

namespace
{
void WriteIndexList(KelSDK::FileIO::MFile& file, const std::vector<uint32_t>& indices)
{
    const uint32_t count = static_cast<uint32_t>(indices.size());
    file.WRITE(&count, 1);
    file.WRITE(indices.data(), indices.size());
}

// Reads a count and that many indices (as far as the payload holds them) and hands each to add.
template <typename Add> bool ReadIndexList(PayloadReader& reader, Add add)
{
    uint32_t count = 0;
    if (!reader.Read(count))
        return false;
    const size_t fitting = reader.Fitting(count, 4);
    std::vector<uint32_t> block(std::min(fitting, kStagingValues));
    for (size_t done = 0; done < fitting; done += block.size())
    {
        block.resize(std::min(block.size(), fitting - done));
        if (!reader.Read(block.data(), block.size()))
            return false;
        for (uint32_t index : block)
            add(index);
    }
    if (fitting == count)
        return true;
    reader.Cut();
    return false;
}
} // namespace

SurfaceZonesMStlFileIOPlugin::SurfaceZonesMStlFileIOPlugin() : MStlFileIOPlugin(0) {}
SurfaceZonesMStlFileIOPlugin::~SurfaceZonesMStlFileIOPlugin() = default;

// Payload:
//   bool zones present | bool no-support zone present |
//   u32 triangle count, u32 triangle indices | u32 edge count, u32 edge indices
// Either switch false ends the payload. The Standard kind writes the triangles in the zone's own
// order and the edges in edge order; the Compact and OnDisk kinds write both in ascending order.
void SurfaceZonesMStlFileIOPlugin::SaveData(MStlBase* mesh, MStlFileIO* writer)
{
    KelSDK::FileIO::MFile& file = *writer->GetFile();
    SurfaceZones* zones = SurfaceZonesStlDependency::GetInstance(mesh);
    const bool present = zones != nullptr;
    file.WRITE(&present, 1);
    if (!present)
        return;
    SurfaceZone* zone = zones->GetNoSupportZone(false);
    const bool zonePresent = zone != nullptr;
    file.WRITE(&zonePresent, 1);
    if (!zonePresent)
        return;
    const MStlHybrid& hybrid = mesh->GetStlHybrid();
    if (hybrid.GetState() != eStlStandard)
    {
        WriteIndexList(file, zone->SortedTriangleIndices(hybrid.GetNumTriangles()));
        WriteIndexList(file, zone->SortedEdgeIndices(hybrid.GetNumberOfEdges()));
        return;
    }
    // The zone keeps its members as the triangle indices that the mesh maintains.
    zone->_ValidateHybridTriangles();
    WriteIndexList(file, zone->TriangleIndices());
    WriteIndexList(file, zone->SortedEdgeIndices(mesh->NumberOfGraphEdges()));
}

void SurfaceZonesMStlFileIOPlugin::LoadData(MStlBase* mesh, MStlFileIO* reader)
{
    PayloadReader payload(*reader);
    bool present = false;
    if (!payload.Read(present))
        return;
    SurfaceZonesStlDependency::DestroyInstance(mesh);
    if (!present)
        return;
    SurfaceZones* zones = SurfaceZonesStlDependency::CreateInstance(mesh);
    bool zonePresent = false;
    if (zones == nullptr || !payload.Read(zonePresent) || !zonePresent)
        return;
    SurfaceZone& zone = *zones->InitNoSupportZone();
    const MStlBaseTriangleIndexedAccess triangles(*mesh);
    if (!ReadIndexList(payload, [&](uint32_t i) { zone.AddTriangle(triangles.GetTriangleWithIndex(i)); }))
        return;
    const MStlBaseEdgeIndexedAccess edges(*mesh);
    ReadIndexList(payload, [&](uint32_t i) { zone.AddEdge(edges.GetEdgeWithIndex(i)); });
}
} // namespace KelSDK::Triangles::IO
