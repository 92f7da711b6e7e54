#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/Data/MStlFeature.h>

#include <algorithm>

namespace KelSDK::Triangles::Data
{
namespace
{
// The owner lists of features, curve sets, borders and textures hold their items by unique_ptr.

// The item at index; nullptr past the end.
template <typename T> T* ItemAt(const std::vector<std::unique_ptr<T>>& items, size_t index)
{
    return index < items.size() ? items[index].get() : nullptr;
}

// The position of item in the list; SIZE_MAX when the list does not hold it.
template <typename T> size_t IndexOfItem(const std::vector<std::unique_ptr<T>>& items, const T* item)
{
    for (size_t i = 0; i < items.size(); ++i)
        if (items[i].get() == item)
            return i;
    return SIZE_MAX;
}

// Removes and destroys item; false when the list does not hold it.
template <typename T> bool EraseItem(std::vector<std::unique_ptr<T>>& items, const T* item)
{
    auto it =
        std::find_if(items.begin(), items.end(), [item](const auto& owned) { return owned.get() == item; });
    if (it == items.end())
        return false;
    items.erase(it);
    return true;
}
} // namespace

MStlFeatureItem::~MStlFeatureItem() = default;
MStlSurface::~MStlSurface() = default;
MStlFeature::~MStlFeature() = default;
MStlSurfaceList::~MStlSurfaceList() = default;

size_t MStlFeature::GetNumSurfaces(bool onlyNonEmpty) const
{
    if (!onlyNonEmpty)
        return surfaces_.size();
    return static_cast<size_t>(std::count_if(surfaces_.begin(), surfaces_.end(),
                                             [](const auto& s) { return s->GetNumberOfTriangles() > 0; }));
}

MStlSurface* MStlFeature::GetSurface(size_t index) const
{
    return ItemAt(surfaces_, index);
}

size_t MStlFeature::GetIndexOfSurface(const MStlSurface* surface) const
{
    return IndexOfItem(surfaces_, surface);
}

MStlSurface* MStlFeature::AddNewSurface(const MStlSurface* model)
{
    surfaces_.push_back(std::make_unique<MStlSurface>(GetStl(), this));
    MStlSurface* s = surfaces_.back().get();
    if (model)
    {
        s->SetName(model->GetName());
        s->SetVisible(model->IsVisible());
    }
    return s;
}

bool MStlFeature::RemoveSurface(MStlSurface* surface)
{
    const size_t i = GetIndexOfSurface(surface);
    if (i == SIZE_MAX || i == 0 || surface->GetNumberOfTriangles() > 0)
        return false;
    if (MStlBase* stl = GetStl())
    {
        if (stl->GetStlHybrid()._UsesSurface(surface))
            return false;
        stl->GetStlHybrid()._ForgetSurface(surface);
        stl->GetSurfaceBorders().Forget(surface);
    }
    surfaces_.erase(surfaces_.begin() + static_cast<std::ptrdiff_t>(i));
    return true;
}

MStlSurfaceList::MStlSurfaceList(MStlBase* stl) : MStlFeature(stl)
{
    AddNewSurface(nullptr);
}

MStlIteratorFeatureSurfaceConst::MStlIteratorFeatureSurfaceConst(const MStlBase& stl)
    : feature_(&stl.GetSurfaceList())
{
}
bool MStlIteratorFeatureSurfaceConst::End() const
{
    return index_ >= feature_->GetNumSurfaces(false);
}
const MStlSurface& MStlIteratorFeatureSurfaceConst::operator*() const
{
    return *feature_->GetSurface(index_);
}

MStlIteratorFeatureSurface::MStlIteratorFeatureSurface(MStlBase& stl) : feature_(&stl.GetSurfaceList()) {}
bool MStlIteratorFeatureSurface::End() const
{
    return index_ >= feature_->GetNumSurfaces(false);
}
MStlSurface& MStlIteratorFeatureSurface::operator*() const
{
    return *feature_->GetSurface(index_);
}

// ---- curves and borders

MStlCurveSet::~MStlCurveSet() = default;
MStlCurveFeature::~MStlCurveFeature() = default;
MStlSurfaceBorder::~MStlSurfaceBorder() = default;

MStlCurve& MStlCurveSet::AddCurve(MStlCurve curve)
{
    curves_.push_back(std::move(curve));
    return curves_.back();
}

MStlCurveSet* MStlCurveFeature::GetCurveSet(size_t index) const
{
    return ItemAt(sets_, index);
}

MStlCurveSet* MStlCurveFeature::AddCurveSet()
{
    sets_.push_back(std::make_unique<MStlCurveSet>(GetStl()));
    return sets_.back().get();
}

bool MStlCurveFeature::RemoveCurveSet(MStlCurveSet* set)
{
    return EraseItem(sets_, set);
}

MStlSurfaceBorder* MStlSurfaceBorderList::GetBorder(size_t index) const
{
    return ItemAt(borders_, index);
}

MStlSurfaceBorder* MStlSurfaceBorderList::AddBorder(MStlSurface* surface)
{
    borders_.push_back(std::make_unique<MStlSurfaceBorder>(stl_, surface));
    return borders_.back().get();
}

bool MStlSurfaceBorderList::RemoveBorder(MStlSurfaceBorder* border)
{
    return EraseItem(borders_, border);
}

void MStlSurfaceBorderList::Forget(const MStlFeatureItem* item)
{
    borders_.erase(std::remove_if(borders_.begin(), borders_.end(),
                                  [item](const auto& b)
                                  { return b->GetSurface() == item || b.get() == item; }),
                   borders_.end());
    for (auto& b : borders_)
        for (MStlBorderContour& c : b->Contours())
            for (MStlSubContour& s : c.subContours)
                if (s.neighbour == item)
                    s.neighbour = nullptr;
}

// ---- textures, registered points, masks, dependencies

MStlTexture::~MStlTexture() = default;

MStlTexture* MStlTextureList::GetTexture(size_t index) const
{
    return ItemAt(textures_, index);
}

size_t MStlTextureList::GetIndexOfTexture(const MStlTexture* texture) const
{
    return IndexOfItem(textures_, texture);
}

MStlTexture* MStlTextureList::AddTexture(std::unique_ptr<MStlTexture> texture)
{
    if (!texture)
        texture = std::make_unique<MStlTexture>();
    textures_.push_back(std::move(texture));
    return textures_.back().get();
}

bool MStlTextureList::RemoveTexture(MStlTexture* texture)
{
    const size_t i = GetIndexOfTexture(texture);
    if (i == SIZE_MAX)
        return false;
    if (owner_)
        owner_->_NotifyTextureRemoved(texture);
    textures_.erase(textures_.begin() + static_cast<std::ptrdiff_t>(i));
    return true;
}

void MStlTextureList::Clear()
{
    if (owner_)
        for (const auto& texture : textures_)
            owner_->_NotifyTextureRemoved(texture.get());
    textures_.clear();
}

const MStlRegisteredPoint* MStlRegisteredPoints::FindPoint(uint32_t id) const
{
    for (const MStlRegisteredPoint& p : points_)
        if (p.id == id)
            return &p;
    return nullptr;
}

MDataMaskBase::~MDataMaskBase() = default;
MStlColorMasks::MStlColorMasks() = default;
MStlColorMasks::~MStlColorMasks() = default;

MStlTriangleColorMask* MStlColorMasks::CreateMainTriangleColorMask()
{
    if (!triangleColors_)
        triangleColors_ = std::make_unique<MStlTriangleColorMask>();
    return triangleColors_.get();
}

MStlPointColorMask* MStlColorMasks::CreateMainPointColorMask()
{
    if (!pointColors_)
        pointColors_ = std::make_unique<MStlPointColorMask>();
    return pointColors_.get();
}

void MStlColorMasks::Clear()
{
    triangleColors_.reset();
    pointColors_.reset();
}

MStlDependency::~MStlDependency() = default;
void MStlDependency::OnClear(MStlBase&) {}
void MStlDependency::OnTrianglesAdded(MStlBase&, size_t, size_t) {}
void MStlDependency::OnPointsAdded(MStlBase&, size_t, size_t) {}
void MStlDependency::OnGraphEdgesAdded(MStlBase&, size_t, size_t) {}
void MStlDependency::OnTextureRemoved(MStlBase&, const MStlTexture*) {}
void MStlDependency::OnTrianglesChanged(MStlBase&) {}

void MStlBaseFaceGroupInfo::SetFaceID(size_t triangleIndex, unsigned long id)
{
    if (triangleIndex >= ids_.size() && stl_ && triangleIndex < stl_->NumberOfTriangles())
        ids_.resize(stl_->NumberOfTriangles(), 0u);
    if (triangleIndex < ids_.size())
        ids_[triangleIndex] = static_cast<uint32_t>(id);
}
} // namespace KelSDK::Triangles::Data
