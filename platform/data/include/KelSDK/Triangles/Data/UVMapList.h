// UV maps of a mesh: named projections of a bitmap onto the mesh through some of its textures.
#pragma once

#include <KelSDK/Triangles/Data/Export.h>
#include <KelSDK/Triangles/Data/MStlDependency.h>

#include <cstddef>
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
class MStlTexture;
} // namespace KelSDK::Triangles::Data

namespace KelSDK
{
// One UV map: a name, the mesh textures it uses (in order, each once), the factors that turn
// model coordinates (grid steps) into U and V, how the map is sized, display switches, and the
// bitmap it shows (often the bitmap of one of its textures; compare by identity). Not thread-safe.
class KELSDK_TRIANGLES_DATA_EXPORT UVMap
{
public:
    // How the U and V extent of the map is chosen.
    enum ESizeMethod : int
    {
        eSizeByFactors = 0, // the U and V factors as they stand
        eSizeToObject = 1,  // the bitmap spans the mesh's bounding box
        eSizeToBitmap = 2,  // one bitmap pixel per grid step times the factors
    };

    explicit UVMap(const KelSDK::Triangles::Data::MStlBase& stl) : stl_(stl) {}

    const std::wstring& GetName() const { return name_; }
    void SetName(const std::wstring& name) { name_ = name; }

    // The textures, in the order they were added.
    const std::vector<KelSDK::Triangles::Data::MStlTexture*>& GetTextures() const { return textures_; }
    // Adds a texture of the mesh's texture list; false for null, a foreign texture or one the map
    // already has.
    bool AddTexture(KelSDK::Triangles::Data::MStlTexture* texture);
    // Removes a texture from the map (the texture itself stays); false when the map lacks it.
    bool RemoveTexture(const KelSDK::Triangles::Data::MStlTexture* texture);

    double GetXYZToUFactor() const { return uFactor_; }
    void SetXYZToUFactor(double factor) { uFactor_ = factor; }
    double GetXYZToVFactor() const { return vFactor_; }
    void SetXYZToVFactor(double factor) { vFactor_ = factor; }
    bool GetKeepUVAspectRatio() const { return keepAspect_; }
    void SetKeepUVAspectRatio(bool keep) { keepAspect_ = keep; }
    // Any value may be stored; files may hold methods this version does not know.
    ESizeMethod GetSizeMethod() const { return sizeMethod_; }
    void SetSizeMethod(ESizeMethod method) { sizeMethod_ = method; }
    bool GetVisibility() const { return visible_; }
    void SetVisibility(bool visible) { visible_ = visible; }
    bool GetBitmapVisibility() const { return bitmapVisible_; }
    void SetBitmapVisibility(bool visible) { bitmapVisible_ = visible; }

    // The bitmap shown by the map, or null.
    const std::shared_ptr<KelSDK::Common::ImageBitmap>& GetSharedBitmap() const { return bitmap_; }
    // Sets the bitmap (shared, not copied); with show, the bitmap is also made visible.
    void SetSharedBitmap(std::shared_ptr<KelSDK::Common::ImageBitmap> bitmap, bool show);

private:
    const KelSDK::Triangles::Data::MStlBase& stl_;
    std::wstring name_;
    std::vector<KelSDK::Triangles::Data::MStlTexture*> textures_;
    double uFactor_ = 1.0;
    double vFactor_ = 1.0;
    bool keepAspect_ = true;
    ESizeMethod sizeMethod_ = eSizeByFactors;
    bool visible_ = true;
    bool bitmapVisible_ = true;
    std::shared_ptr<KelSDK::Common::ImageBitmap> bitmap_;
};

// The UV maps of a mesh, attached to it. A texture that leaves the mesh's texture list leaves
// every map with it. Not thread-safe.
class KELSDK_TRIANGLES_DATA_EXPORT UVMapList : public KelSDK::Triangles::Data::MStlDependency
{
public:
    explicit UVMapList(KelSDK::Triangles::Data::MStlBase& stl) : stl_(stl) {}
    ~UVMapList() override;
    static const char* DependencyKey() { return "KelSDK.UVMapList"; }

    // The mesh's UV map list; made (empty) when create is true and it has none, else null. Null
    // for a null mesh.
    static UVMapList* Get(const KelSDK::Triangles::Data::MStlBase* stl, bool create);
    // Removes the mesh's UV map list, if any.
    static void Destroy(KelSDK::Triangles::Data::MStlBase* stl);

    // Appends a new map (no name, no textures, factors 1, aspect kept, visible) and returns it.
    UVMap* AddMap();
    size_t GetNumberOfMaps() const { return maps_.size(); }
    // The map at a position, or null when out of range.
    UVMap* GetMap(size_t index) const { return index < maps_.size() ? maps_[index].get() : nullptr; }
    // Removes and destroys a map of this list; false for a foreign one.
    bool RemoveMap(const UVMap* map);

    void OnTextureRemoved(KelSDK::Triangles::Data::MStlBase& stl,
                          const KelSDK::Triangles::Data::MStlTexture* texture) override;

private:
    KelSDK::Triangles::Data::MStlBase& stl_;
    std::vector<std::unique_ptr<UVMap>> maps_;
};
} // namespace KelSDK
