// The "UVMapList" plug-in section.
#include "PluginPayload.h"

#include <KelSDK/Common/ImageBitmap.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/Data/UVMapList.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>
#include <KelSDK/Triangles/IO/MStlTextureFileIO.h>
#include <KelSDK/Triangles/IO/UVMapListFileIOPlugin.h>

namespace KelSDK::Triangles::IO
{
using namespace KelSDK::Triangles::Data;
using KelSDK::UVMap;
using KelSDK::UVMapList;
using KelSDK::Common::ImageBitmap;

namespace
{
// The fields of one map record, read completely before the map is made.
struct MapRecord
{
    std::wstring name;
    std::vector<MStlTexture*> textures; // in file order; null where the position was outside the list
    double u = 1.0, v = 1.0;
    bool keepAspect = true;
    int32_t sizeMethod = 0;
    bool visible = true, bitmapVisible = true;
    std::shared_ptr<ImageBitmap> bitmap;
};

bool ReadMapRecord(PayloadReader& reader, const MStlTextureList& meshTextures, MapRecord& map)
{
    uint32_t count = 0;
    if (!reader.ReadText(map.name) || !reader.Read(count))
        return false;
    std::vector<uint32_t> positions(reader.Fitting(count, 4));
    if (positions.size() < count)
    {
        reader.Cut();
        return false;
    }
    bool ownBitmap = true;
    if (!reader.Read(positions.data(), positions.size()) || !reader.Read(map.u) || !reader.Read(map.v) ||
        !reader.Read(map.keepAspect) || !reader.Read(map.sizeMethod) || !reader.Read(map.visible) ||
        !reader.Read(map.bitmapVisible) || !reader.Read(ownBitmap))
        return false;
    for (uint32_t position : positions)
        map.textures.push_back(meshTextures.GetTexture(position));
    if (ownBitmap)
    {
        map.bitmap = ReadBitmapRecord(reader, true);
        if (map.bitmap && IsBlankBitmap(*map.bitmap))
            map.bitmap.reset();
        return !reader.IsCut();
    }
    uint32_t sharing = 0;
    if (!reader.Read(sharing))
        return false;
    if (sharing < map.textures.size() && map.textures[sharing] != nullptr)
        map.bitmap = map.textures[sharing]->GetSharedBitmap();
    return true;
}
} // namespace

UVMapListFileIOPlugin::UVMapListFileIOPlugin()
    : MStlFileIOPlugin(MStlTextureFileIOPlugin::GetSaveLoadOrderStatic() + 1)
{
}
UVMapListFileIOPlugin::~UVMapListFileIOPlugin() = default;

// Payload:
//   bool present (the mesh has a UV map list; false ends the payload) | u32 map count | maps
// Map record:
//   wide string name | u32 texture count | u32 position in the mesh's texture list per texture |
//   f64 U factor | f64 V factor | bool keep UV aspect ratio | i32 size method | bool visible |
//   bool bitmap visible | bool own bitmap |
//   own bitmap: the bitmap record (PluginPayload.h); else u32 position, within this map's
//   textures, of the first texture whose bitmap is the map's
void UVMapListFileIOPlugin::SaveData(MStlBase* mesh, MStlFileIO* writer)
{
    KelSDK::FileIO::MFile& file = *writer->GetFile();
    const UVMapList* list = UVMapList::Get(mesh, false);
    const bool present = list != nullptr;
    file.WRITE(&present, 1);
    if (!present)
        return;
    const MStlTextureList& meshTextures = mesh->GetTextures();
    const uint32_t count = static_cast<uint32_t>(list->GetNumberOfMaps());
    file.WRITE(&count, 1);
    for (uint32_t m = 0; m < count; ++m)
    {
        const UVMap& map = *list->GetMap(m);
        file.WRITE_STRING_RAW(map.GetName().c_str());
        const std::vector<MStlTexture*>& textures = map.GetTextures();
        const uint32_t textureCount = static_cast<uint32_t>(textures.size());
        file.WRITE(&textureCount, 1);
        uint32_t sharing = textureCount;
        for (uint32_t t = 0; t < textureCount; ++t)
        {
            const uint32_t position = static_cast<uint32_t>(meshTextures.GetIndexOfTexture(textures[t]));
            file.WRITE(&position, 1);
            if (sharing == textureCount && textures[t]->GetSharedBitmap() == map.GetSharedBitmap())
                sharing = t;
        }
        const double u = map.GetXYZToUFactor(), v = map.GetXYZToVFactor();
        const bool keepAspect = map.GetKeepUVAspectRatio();
        const int32_t sizeMethod = map.GetSizeMethod();
        const bool visible = map.GetVisibility(), bitmapVisible = map.GetBitmapVisibility();
        const bool ownBitmap = sharing == textureCount;
        file.WRITE(&u, 1);
        file.WRITE(&v, 1);
        file.WRITE(&keepAspect, 1);
        file.WRITE(&sizeMethod, 1);
        file.WRITE(&visible, 1);
        file.WRITE(&bitmapVisible, 1);
        file.WRITE(&ownBitmap, 1);
        if (ownBitmap)
            WriteBitmapRecord(file, map.GetSharedBitmap().get());
        else
            file.WRITE(&sharing, 1);
    }
}

void UVMapListFileIOPlugin::LoadData(MStlBase* mesh, MStlFileIO* reader)
{
    PayloadReader payload(*reader);
    bool present = false;
    uint32_t count = 0;
    if (!payload.Read(present) || !present || !payload.Read(count))
        return;
    UVMapList* list = UVMapList::Get(mesh, true);
    if (list == nullptr)
        return;
    for (uint32_t m = 0; m < count; ++m)
    {
        MapRecord record;
        if (!ReadMapRecord(payload, mesh->GetTextures(), record))
            return;
        UVMap& map = *list->AddMap();
        for (MStlTexture* texture : record.textures)
            map.AddTexture(texture);
        map.SetName(record.name);
        map.SetSizeMethod(static_cast<UVMap::ESizeMethod>(record.sizeMethod));
        map.SetXYZToUFactor(record.u);
        map.SetXYZToVFactor(record.v);
        map.SetKeepUVAspectRatio(record.keepAspect);
        map.SetBitmapVisibility(record.bitmapVisible);
        map.SetVisibility(record.visible);
        map.SetSharedBitmap(std::move(record.bitmap), false);
    }
}
} // namespace KelSDK::Triangles::IO
