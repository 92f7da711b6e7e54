// The "StlTextures" plug-in of the native mesh format: a mesh's textures with their bitmaps.
#pragma once

#include <KelSDK/Triangles/IO/Export.h>
#include <KelSDK/Triangles/IO/MStlFileIOPlugin.h>

#include <cstdint>

namespace KelSDK::Triangles::Data
{
class MStlBase;
}

namespace KelSDK::Triangles::IO
{
// Writes and reads the texture list of a mesh through the file of an MStlFileIO. A bitmap that
// several textures share is written once and shared again after reading. Reading replaces the
// mesh's textures; a texture coordinate record for a triangle outside the mesh and a bitmap
// reference outside the file's bitmaps are skipped; a bitmap or a list that does not fit the
// bytes left ends the payload, keeping the textures read completely. No throw except
// std::bad_alloc; memory in proportion to the bytes read.
class KELSDK_TRIANGLES_IO_EXPORT MStlTextureFileIO
{
public:
    explicit MStlTextureFileIO(KelSDK::Triangles::Data::MStlBase& mesh) : mesh_(mesh) {}
    virtual ~MStlTextureFileIO();
    virtual void Read(MStlFileIO& reader);
    virtual void Write(MStlFileIO& writer);

private:
    KelSDK::Triangles::Data::MStlBase& mesh_;
};

// The registered plug-in "StlTextures", save/load order 0: it runs before the plug-ins that refer
// to textures by their position in the mesh's texture list.
class KELSDK_TRIANGLES_IO_EXPORT MStlTextureFileIOPlugin : public MStlFileIOPlugin
{
public:
    MStlTextureFileIOPlugin();
    ~MStlTextureFileIOPlugin() override;
    // The save/load order of the texture plug-in.
    static uint64_t GetSaveLoadOrderStatic() { return 0; }
    const wchar_t* GetName() const override { return L"StlTextures"; }
    void SaveData(KelSDK::Triangles::Data::MStlBase* mesh, MStlFileIO* writer) override;
    void LoadData(KelSDK::Triangles::Data::MStlBase* mesh, MStlFileIO* reader) override;
};
} // namespace KelSDK::Triangles::IO
