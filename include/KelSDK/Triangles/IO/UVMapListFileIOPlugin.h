// The "UVMapList" plug-in of the native mesh format: a mesh's UV maps.
#pragma once

#include <KelSDK/Triangles/IO/Export.h>
#include <KelSDK/Triangles/IO/MStlFileIOPlugin.h>

namespace KelSDK::Triangles::IO
{
// The registered plug-in "UVMapList", save/load order one after the texture plug-in's: maps refer
// to textures by their position in the mesh's texture list as that plug-in loaded it. A map's
// bitmap is written in full unless one of its own textures holds the same bitmap, in which case
// only that texture's position in the map is written. Loading appends the maps to the mesh's
// list; texture positions outside the list are skipped, and a map cut short is not added. No
// throw except std::bad_alloc; memory in proportion to the bytes read.
class KELSDK_TRIANGLES_IO_EXPORT UVMapListFileIOPlugin : public MStlFileIOPlugin
{
public:
    UVMapListFileIOPlugin();
    ~UVMapListFileIOPlugin() override;
    const wchar_t* GetName() const override { return L"UVMapList"; }
    void SaveData(KelSDK::Triangles::Data::MStlBase* mesh, MStlFileIO* writer) override;
    void LoadData(KelSDK::Triangles::Data::MStlBase* mesh, MStlFileIO* reader) override;
};
} // namespace KelSDK::Triangles::IO
