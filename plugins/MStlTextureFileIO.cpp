// The "StlTextures" plug-in section.
#include "PluginPayload.h"

#include <KelSDK/Common/ImageBitmap.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>
#include <KelSDK/Triangles/IO/MStlTextureFileIO.h>

#include <unordered_map>

namespace KelSDK::Triangles::IO
{
using namespace KelSDK::Triangles::Data;
using KelSDK::Common::ImageBitmap;

namespace
{
constexpr uint32_t kNoBitmap = 0xFFFFFFFFu;
// Bytes of one coordinate record: u64 triangle, 3 floats u, 3 floats v.
constexpr size_t kCoordinateBytes = 32;

void WriteCoordinates(KelSDK::FileIO::MFile& file, const std::vector<MStlTextureCoordinates>& coordinates)
{
    const uint32_t count = static_cast<uint32_t>(coordinates.size());
    file.WRITE(&count, 1);
    unsigned char block[1024 * kCoordinateBytes];
    for (size_t done = 0; done < count;)
    {
        const size_t n = std::min<size_t>(1024, count - done);
        for (size_t i = 0; i < n; ++i)
        {
            const MStlTextureCoordinates& c = coordinates[done + i];
            KelSDK::FileIO::Detail::StoreLittleEndian(block + i * kCoordinateBytes, &c.triangle, 1);
            KelSDK::FileIO::Detail::StoreLittleEndian(block + i * kCoordinateBytes + 8, c.u.data(), 3);
            KelSDK::FileIO::Detail::StoreLittleEndian(block + i * kCoordinateBytes + 20, c.v.data(), 3);
        }
        file.WRITE(block, n * kCoordinateBytes);
        done += n;
    }
}

// Reads the coordinate records, skipping those of triangles the mesh lacks; false when cut.
bool ReadCoordinates(PayloadReader& reader, size_t triangles,
                     std::vector<MStlTextureCoordinates>& coordinates)
{
    uint32_t count = 0;
    if (!reader.Read(count))
        return false;
    const size_t fitting = reader.Fitting(count, kCoordinateBytes);
    coordinates.reserve(fitting);
    unsigned char block[1024 * kCoordinateBytes];
    for (size_t done = 0; done < fitting;)
    {
        const size_t n = std::min<size_t>(1024, fitting - done);
        if (!reader.Read(block, n * kCoordinateBytes))
            return false;
        for (size_t i = 0; i < n; ++i)
        {
            MStlTextureCoordinates c;
            std::memcpy(&c.triangle, block + i * kCoordinateBytes, 8);
            std::memcpy(c.u.data(), block + i * kCoordinateBytes + 8, 12);
            std::memcpy(c.v.data(), block + i * kCoordinateBytes + 20, 12);
            KelSDK::FileIO::Detail::FinishRead(&c.triangle, 1);
            KelSDK::FileIO::Detail::FinishRead(c.u.data(), 3);
            KelSDK::FileIO::Detail::FinishRead(c.v.data(), 3);
            if (c.triangle < triangles)
                coordinates.push_back(c);
        }
        done += n;
    }
    if (fitting == count)
        return true;
    reader.Cut();
    return false;
}
} // namespace

MStlTextureFileIO::~MStlTextureFileIO() = default;

// Payload (little-endian; "bool" one byte, "wide string" a u32 count of UTF-16 units and the
// units):
//   u32 bitmap count B, then B bitmaps: bool has alpha, the bitmap record (PluginPayload.h:
//       u32 width, u32 height, pixels, u32 data size, data, four wide strings)
//   u32 texture count T, then T textures:
//       wide string name
//       u32 bitmap: position among the B bitmaps, 0xFFFFFFFF for none
//       bool displacement enabled | f64 depth | bool invert
//       bool label enabled | wide string text | wide string font | f64 letter height
//       u32 coordinate count C, then C records: u64 triangle index, 3 x f32 u, 3 x f32 v
// Each bitmap is written once, in the order textures first use it.
void MStlTextureFileIO::Write(MStlFileIO& writer)
{
    KelSDK::FileIO::MFile& file = *writer.GetFile();
    const MStlTextureList& textures = mesh_.GetTextures();
    std::vector<const ImageBitmap*> bitmaps;
    std::unordered_map<const ImageBitmap*, uint32_t> position;
    std::vector<uint32_t> bitmapOf(textures.GetNumTextures(), kNoBitmap);
    for (size_t t = 0; t < textures.GetNumTextures(); ++t)
    {
        const ImageBitmap* bitmap = textures.GetTexture(t)->GetSharedBitmap().get();
        if (bitmap == nullptr)
            continue;
        const auto known = position.emplace(bitmap, static_cast<uint32_t>(bitmaps.size()));
        if (known.second)
            bitmaps.push_back(bitmap);
        bitmapOf[t] = known.first->second;
    }
    const uint32_t bitmapCount = static_cast<uint32_t>(bitmaps.size());
    file.WRITE(&bitmapCount, 1);
    for (const ImageBitmap* bitmap : bitmaps)
    {
        const bool alpha = bitmap->HasAlpha();
        file.WRITE(&alpha, 1);
        WriteBitmapRecord(file, bitmap);
    }
    const uint32_t textureCount = static_cast<uint32_t>(textures.GetNumTextures());
    file.WRITE(&textureCount, 1);
    for (size_t t = 0; t < textures.GetNumTextures(); ++t)
    {
        const MStlTexture& texture = *textures.GetTexture(t);
        file.WRITE_STRING_RAW(texture.GetName().c_str());
        file.WRITE(&bitmapOf[t], 1);
        const MStlTextureDisplacement& displacement = texture.Displacement();
        file.WRITE(&displacement.enabled, 1);
        file.WRITE(&displacement.depth, 1);
        file.WRITE(&displacement.invert, 1);
        const MStlTextureLabel& label = texture.Label();
        file.WRITE(&label.enabled, 1);
        file.WRITE_STRING_RAW(label.text.c_str());
        file.WRITE_STRING_RAW(label.font.c_str());
        file.WRITE(&label.height, 1);
        WriteCoordinates(file, texture.Coordinates());
    }
}

void MStlTextureFileIO::Read(MStlFileIO& reader)
{
    PayloadReader payload(reader);
    MStlTextureList& textures = mesh_.GetTextures();
    textures.Clear();
    uint32_t bitmapCount = 0;
    if (!payload.Read(bitmapCount))
        return;
    // A bitmap record takes at least 29 bytes (alpha, sizes, data size, four text lengths).
    std::vector<std::shared_ptr<ImageBitmap>> bitmaps(payload.Fitting(bitmapCount, 29));
    for (std::shared_ptr<ImageBitmap>& bitmap : bitmaps)
    {
        bool alpha = true;
        if (!payload.Read(alpha) || !(bitmap = ReadBitmapRecord(payload, alpha)))
            return;
    }
    uint32_t textureCount = 0;
    if (bitmaps.size() < bitmapCount || !payload.Read(textureCount))
        return;
    const size_t triangles = mesh_.GetStlHybrid().GetNumTriangles();
    for (uint32_t t = 0; t < textureCount; ++t)
    {
        auto texture = std::make_unique<MStlTexture>();
        std::wstring name;
        uint32_t bitmap = kNoBitmap;
        MStlTextureDisplacement& displacement = texture->Displacement();
        MStlTextureLabel& label = texture->Label();
        if (!payload.ReadText(name) || !payload.Read(bitmap) || !payload.Read(displacement.enabled) ||
            !payload.Read(displacement.depth) || !payload.Read(displacement.invert) ||
            !payload.Read(label.enabled) || !payload.ReadText(label.text) || !payload.ReadText(label.font) ||
            !payload.Read(label.height) || !ReadCoordinates(payload, triangles, texture->Coordinates()))
            return;
        texture->SetName(name);
        if (bitmap < bitmaps.size())
            texture->SetSharedBitmap(bitmaps[bitmap]);
        textures.AddTexture(std::move(texture));
    }
}

MStlTextureFileIOPlugin::MStlTextureFileIOPlugin() : MStlFileIOPlugin(GetSaveLoadOrderStatic()) {}
MStlTextureFileIOPlugin::~MStlTextureFileIOPlugin() = default;

void MStlTextureFileIOPlugin::SaveData(MStlBase* mesh, MStlFileIO* writer)
{
    MStlTextureFileIO(*mesh).Write(*writer);
}

void MStlTextureFileIOPlugin::LoadData(MStlBase* mesh, MStlFileIO* reader)
{
    MStlTextureFileIO(*mesh).Read(*reader);
}
} // namespace KelSDK::Triangles::IO
