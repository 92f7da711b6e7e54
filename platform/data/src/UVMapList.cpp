#include <KelSDK/Common/ImageBitmap.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/Data/UVMapList.h>

#include <algorithm>

namespace KelSDK
{
using KelSDK::Triangles::Data::MStlBase;
using KelSDK::Triangles::Data::MStlTexture;

bool UVMap::AddTexture(MStlTexture* texture)
{
    if (texture == nullptr || stl_.GetTextures().GetIndexOfTexture(texture) == SIZE_MAX ||
        std::find(textures_.begin(), textures_.end(), texture) != textures_.end())
        return false;
    textures_.push_back(texture);
    return true;
}

bool UVMap::RemoveTexture(const MStlTexture* texture)
{
    const auto it = std::find(textures_.begin(), textures_.end(), texture);
    if (it == textures_.end())
        return false;
    textures_.erase(it);
    return true;
}

void UVMap::SetSharedBitmap(std::shared_ptr<KelSDK::Common::ImageBitmap> bitmap, bool show)
{
    bitmap_ = std::move(bitmap);
    if (show)
        bitmapVisible_ = true;
}

UVMapList::~UVMapList() = default;

UVMapList* UVMapList::Get(const MStlBase* stl, bool create)
{
    return KelSDK::Triangles::Data::GetStlDependency<UVMapList>(stl, create);
}

void UVMapList::Destroy(MStlBase* stl)
{
    KelSDK::Triangles::Data::DestroyStlDependency<UVMapList>(stl);
}

UVMap* UVMapList::AddMap()
{
    maps_.push_back(std::make_unique<UVMap>(stl_));
    return maps_.back().get();
}

bool UVMapList::RemoveMap(const UVMap* map)
{
    const auto it = std::find_if(maps_.begin(), maps_.end(), [map](const auto& m) { return m.get() == map; });
    if (it == maps_.end())
        return false;
    maps_.erase(it);
    return true;
}

void UVMapList::OnTextureRemoved(MStlBase&, const MStlTexture* texture)
{
    for (const auto& map : maps_)
        map->RemoveTexture(texture);
}
} // namespace KelSDK
