// The "ElementInfo" plug-in section.
#include "PluginPayload.h"

#include <KelSDK/Triangles/Data/MStlBaseElementInfo.h>
#include <KelSDK/Triangles/IO/MStlBaseElementInfoMStlFileIO.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>

namespace KelSDK::Triangles::IO
{
using namespace KelSDK::Triangles::Data;

namespace
{
// One attribute of the payload: the default, the mask switch and, with the switch on, one value
// per element. Field is the type of the value's fields in the file, fieldsPerValue their number.
template <typename Field, size_t fieldsPerValue, typename Mask, typename Value>
void WriteAttribute(KelSDK::FileIO::MFile& file, const Value& defaultValue, const Mask* mask, size_t count)
{
    WriteFields<Field, fieldsPerValue>(file, &defaultValue, 1);
    const bool defined = mask != nullptr;
    file.WRITE(&defined, 1);
    if (defined)
        WriteFieldsPadded<Field, fieldsPerValue>(file, mask->Values(), count, mask->GetDefault());
}

// Reads the mask switch and, when it is on, a fresh mask of count values; false when cut.
template <typename Field, size_t fieldsPerValue, typename Mask>
bool ReadMask(PayloadReader& reader, Mask* (MStlBaseElementInfo::*define)(),
              void (MStlBaseElementInfo::*drop)(), MStlBaseElementInfo& info, size_t count)
{
    bool defined = false;
    if (!reader.Read(defined))
        return false;
    (info.*drop)();
    if (!defined)
        return true;
    Mask* mask = (info.*define)(); // all count elements take the default until read
    return ReadFields<Field, fieldsPerValue>(reader, mask->Values().data(), count) == count;
}
} // namespace

MStlBaseElementInfoMStlFileIO::MStlBaseElementInfoMStlFileIO(MStlBaseElementInfo& info)
    : target_(&info), source_(&info)
{
}

MStlBaseElementInfoMStlFileIO::MStlBaseElementInfoMStlFileIO(const MStlBaseElementInfo& info)
    : target_(nullptr), source_(&info)
{
}

MStlBaseElementInfoMStlFileIO::~MStlBaseElementInfoMStlFileIO() = default;

// Payload after the present switch (little-endian; "int" is a signed 32-bit value):
//   2 ints default edge thickness (start, end) | bool mask | with the mask, 2 ints per edge
//   int default edge tolerance                 | bool mask | with the mask, 1 int per edge
//   int default edge cap                       | bool mask | with the mask, 2 signed chars per edge
//   int default vertex radius                  | bool mask | with the mask, 1 int per vertex
// Edges and vertices in index order; the counts are the mesh's and are not stored.
void MStlBaseElementInfoMStlFileIO::Write(MStlFileIO& writer)
{
    KelSDK::FileIO::MFile& file = *writer.GetFile();
    const MStlBaseElementInfo& info = *source_;
    const size_t edges = info.GetNumberOfEdges(), vertices = info.GetNumberOfVertices();
    WriteAttribute<int32_t, 2>(file, info.GetDefaultEdgeThickness(), info.GetEdgeThicknessMask(), edges);
    WriteAttribute<int32_t, 1>(file, info.GetDefaultEdgeTolerance(), info.GetEdgeToleranceMask(), edges);
    // The cap default is one int; the per-edge caps are two single bytes.
    const int32_t cap = info.GetDefaultEdgeCap();
    file.WRITE(&cap, 1);
    const bool capsDefined = info.IsEdgeCapMaskDefined();
    file.WRITE(&capsDefined, 1);
    if (capsDefined)
        WriteFieldsPadded<signed char, 2>(file, info.GetEdgeCapMask()->Values(), edges,
                                          info.GetEdgeCapMask()->GetDefault());
    WriteAttribute<int32_t, 1>(file, info.GetDefaultVertexRadius(), info.GetVertexRadiusMask(), vertices);
}

void MStlBaseElementInfoMStlFileIO::Read(MStlFileIO& reader)
{
    if (target_ == nullptr)
        return;
    MStlBaseElementInfo& info = *target_;
    PayloadReader payload(reader);
    const size_t edges = info.GetNumberOfEdges(), vertices = info.GetNumberOfVertices();
    MStlGraphEdgeThickness thickness;
    int32_t value = 0;
    // Each default is set before its mask is read: a file cut inside a mask keeps its default.
    if (!ReadFields<int32_t, 2>(payload, &thickness, 1))
        return;
    info.SetDefaultEdgeThickness(thickness);
    if (!ReadMask<int32_t, 2>(payload, &MStlBaseElementInfo::DefineEdgeThicknessMask,
                              &MStlBaseElementInfo::DeleteEdgeThicknessMask, info, edges) ||
        !payload.Read(value))
        return;
    info.SetDefaultEdgeTolerance(value);
    if (!ReadMask<int32_t, 1>(payload, &MStlBaseElementInfo::DefineEdgeToleranceMask,
                              &MStlBaseElementInfo::DeleteEdgeToleranceMask, info, edges) ||
        !payload.Read(value))
        return;
    info.SetDefaultEdgeCap(value);
    if (!ReadMask<signed char, 2>(payload, &MStlBaseElementInfo::DefineEdgeCapMask,
                                  &MStlBaseElementInfo::DeleteEdgeCapMask, info, edges) ||
        !payload.Read(value))
        return;
    info.SetDefaultVertexRadius(value);
    ReadMask<int32_t, 1>(payload, &MStlBaseElementInfo::DefineVertexRadiusMask,
                         &MStlBaseElementInfo::DeleteVertexRadiusMask, info, vertices);
}

MStlBaseElementInfoMStlFileIOPlugin::MStlBaseElementInfoMStlFileIOPlugin() : MStlFileIOPlugin(0) {}
MStlBaseElementInfoMStlFileIOPlugin::~MStlBaseElementInfoMStlFileIOPlugin() = default;

// Payload: bool present (the mesh has element information), then, when present, the companion's
// payload above.
void MStlBaseElementInfoMStlFileIOPlugin::SaveData(MStlBase* mesh, MStlFileIO* writer)
{
    const MStlBaseElementInfo* info = MStlBaseElementInfoStlDependency::GetDependency(mesh, false);
    const bool present = info != nullptr;
    writer->GetFile()->WRITE(&present, 1);
    if (present)
        MStlBaseElementInfoMStlFileIO(*info).Write(*writer);
}

void MStlBaseElementInfoMStlFileIOPlugin::LoadData(MStlBase* mesh, MStlFileIO* reader)
{
    PayloadReader payload(*reader);
    bool present = false;
    if (!payload.Read(present))
        return;
    if (!present)
    {
        MStlBaseElementInfoStlDependency::DestroyInstance(mesh);
        return;
    }
    if (MStlBaseElementInfo* info = MStlBaseElementInfoStlDependency::GetDependency(mesh, true))
        MStlBaseElementInfoMStlFileIO(*info).Read(*reader);
}
} // namespace KelSDK::Triangles::IO
