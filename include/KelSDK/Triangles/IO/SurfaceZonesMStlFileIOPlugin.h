// The "SurfaceZones" plug-in of the native mesh format: the no-support zone of a mesh.
#pragma once

#include <KelSDK/Triangles/IO/Export.h>
#include <KelSDK/Triangles/IO/MStlFileIOPlugin.h>

namespace KelSDK::Triangles::IO
{
// The registered plug-in "SurfaceZones", save/load order 0. Zone members are stored as triangle
// and graph-edge indices of the mesh saved in the same file. Loading replaces the mesh's zones
// (a section without zones removes them); indices outside the mesh are skipped, and a cut list
// keeps the members read before the cut. No throw except std::bad_alloc.
class KELSDK_TRIANGLES_IO_EXPORT SurfaceZonesMStlFileIOPlugin : public MStlFileIOPlugin
{
public:
    SurfaceZonesMStlFileIOPlugin();
    ~SurfaceZonesMStlFileIOPlugin() override;
    const wchar_t* GetName() const override { return L"SurfaceZones"; }
    void SaveData(KelSDK::Triangles::Data::MStlBase* mesh, MStlFileIO* writer) override;
    void LoadData(KelSDK::Triangles::Data::MStlBase* mesh, MStlFileIO* reader) override;
};
} // namespace KelSDK::Triangles::IO
