// Textures of a mesh: an image shared with other textures and UV maps, placed on triangles.
#pragma once

#include <KelSDK/Triangles/Data/Export.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace KelSDK::Common
{
class ImageBitmap;
}

namespace KelSDK::Triangles::Data
{
class MStlBase;

// Texture coordinates of the three corners of one triangle (by the triangle's index).
struct KELSDK_TRIANGLES_DATA_EXPORT MStlTextureCoordinates
{
    uint64_t triangle = 0;
    std::array<float, 3> u{};
    std::array<float, 3> v{};
};

// How a texture displaces the surface (embossing) when it is applied.
struct KELSDK_TRIANGLES_DATA_EXPORT MStlTextureDisplacement
{
    bool enabled = false;
    double depth = 0.0;  // grid steps along the normal at full intensity
    bool invert = false; // dark pixels raise instead of lower
};

// A text label rendered into the texture.
struct KELSDK_TRIANGLES_DATA_EXPORT MStlTextureLabel
{
    bool enabled = false;
    std::wstring text;
    std::wstring font;
    double height = 0.0; // letter height in grid steps
};

// One texture: a shared bitmap plus where and how it lies on the mesh.
class KELSDK_TRIANGLES_DATA_EXPORT MStlTexture
{
public:
    MStlTexture() = default;
    virtual ~MStlTexture();

    const std::wstring& GetName() const { return name_; }
    void SetName(const std::wstring& name) { name_ = name; }
    // The image; textures and UV maps may share one bitmap (compare by identity).
    const std::shared_ptr<KelSDK::Common::ImageBitmap>& GetSharedBitmap() const { return bitmap_; }
    void SetSharedBitmap(std::shared_ptr<KelSDK::Common::ImageBitmap> bitmap) { bitmap_ = std::move(bitmap); }

    std::vector<MStlTextureCoordinates>& Coordinates() { return coordinates_; }
    const std::vector<MStlTextureCoordinates>& Coordinates() const { return coordinates_; }
    MStlTextureDisplacement& Displacement() { return displacement_; }
    const MStlTextureDisplacement& Displacement() const { return displacement_; }
    MStlTextureLabel& Label() { return label_; }
    const MStlTextureLabel& Label() const { return label_; }

private:
    std::wstring name_;
    std::shared_ptr<KelSDK::Common::ImageBitmap> bitmap_;
    std::vector<MStlTextureCoordinates> coordinates_;
    MStlTextureDisplacement displacement_;
    MStlTextureLabel label_;
};

// The textures of a mesh in order; positions are how other objects refer to them.
class KELSDK_TRIANGLES_DATA_EXPORT MStlTextureList
{
public:
    MStlTextureList() = default;
    MStlTextureList(const MStlTextureList&) = delete;
    MStlTextureList& operator=(const MStlTextureList&) = delete;

    size_t GetNumTextures() const { return textures_.size(); }
    // The texture at a position, or null when out of range.
    MStlTexture* GetTexture(size_t index) const;
    // Position of a texture of this list, or SIZE_MAX for a foreign one.
    size_t GetIndexOfTexture(const MStlTexture* texture) const;
    // Appends a texture (a new empty one when null is given) and returns it.
    MStlTexture* AddTexture(std::unique_ptr<MStlTexture> texture = nullptr);
    // Removes and destroys a texture of this list; false for a foreign one. The mesh's
    // attachments hear of it first (MStlDependency::OnTextureRemoved).
    bool RemoveTexture(MStlTexture* texture);
    // Removes and destroys every texture, telling the mesh's attachments of each.
    void Clear();

private:
    friend class MStlBase;
    MStlBase* owner_ = nullptr; // the mesh whose list this is (set by the mesh)
    std::vector<std::unique_ptr<MStlTexture>> textures_;
};
} // namespace KelSDK::Triangles::Data
