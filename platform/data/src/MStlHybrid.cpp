#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/Data/MStlHybrid.h>

namespace KelSDK::Triangles::Data
{
MStlHybrid::MStlHybrid(MStlBase* parent) : parent_(parent) {}
MStlHybrid::~MStlHybrid() = default;

bool MStlHybrid::SetState(MStlHybridState state)
{
    if (state != eStlStandard && state != eStlCompact && state != eStlOnDisk)
        return false;
    parent_->ClearStl(false);
    compact_.reset();
    onDisk_.reset();
    state_ = state;
    if (state == eStlCompact)
    {
        compact_ = std::make_unique<MStlCompactHybrid>(parent_);
        compact_->EnableVertexSharing(verticesShared_);
    }
    else if (state == eStlOnDisk)
    {
        onDisk_ = std::make_unique<MStlOnDisk>(parent_);
        onDisk_->EnableVertexSharing(verticesShared_);
    }
    return true;
}

void MStlHybrid::_Clear()
{
    if (compact_)
        compact_->Clear();
    if (onDisk_)
        onDisk_->Clear();
    addSurface_ = nullptr;
    addColor_ = 0;
}

bool MStlHybrid::_UsesSurface(const MStlSurface* surface) const
{
    if (state_ == eStlStandard)
        return false;
    const size_t n = GetNumTriangles();
    for (size_t i = 0; i < n; ++i)
        if (GetTriangleSurface(i) == surface)
            return true;
    return false;
}

void MStlHybrid::_ForgetSurface(const MStlSurface* surface)
{
    if (addSurface_ == surface)
        addSurface_ = nullptr;
    if (compact_)
        compact_->ForgetSurface(surface, parent_->GetMainSurface());
    if (onDisk_ && onDisk_->IsOpenForWriting())
        onDisk_->ForgetSurface(surface, parent_->GetMainSurface());
}

size_t MStlHybrid::GetNumVertices() const
{
    switch (state_)
    {
    case eStlCompact:
        return compact_->GetNumVertices();
    case eStlOnDisk:
        return onDisk_->GetNumVertices();
    default:
        return parent_->NumberOfPoints();
    }
}

size_t MStlHybrid::GetNumTriangles() const
{
    switch (state_)
    {
    case eStlCompact:
        return compact_->GetNumTriangles();
    case eStlOnDisk:
        return onDisk_->GetNumTriangles();
    default:
        return parent_->triangles_.Size();
    }
}

size_t MStlHybrid::GetNumberOfEdges() const
{
    switch (state_)
    {
    case eStlCompact:
        return compact_->GetNumberOfEdges();
    case eStlOnDisk:
        return 0;
    default:
        return parent_->NumberOfGraphEdges();
    }
}

bool MStlHybrid::GetVerticesShared() const
{
    switch (state_)
    {
    case eStlCompact:
        return compact_->IsVertexSharingEnabled();
    case eStlOnDisk:
        return onDisk_->IsVertexSharingEnabled();
    default:
        return verticesShared_;
    }
}

void MStlHybrid::SetVerticesShared(bool shared)
{
    verticesShared_ = shared;
    if (compact_)
        compact_->EnableVertexSharing(shared);
    if (onDisk_)
        onDisk_->EnableVertexSharing(shared);
}

bool MStlHybrid::OpenRead() const
{
    return state_ == eStlOnDisk ? onDisk_->OpenRead() : true;
}

bool MStlHybrid::Close() const
{
    return state_ == eStlOnDisk ? onDisk_->Close() : true;
}

bool MStlHybrid::GetTriangle(size_t index, unsigned& i0, unsigned& i1, unsigned& i2) const
{
    switch (state_)
    {
    case eStlCompact:
        return compact_->GetTriangle(index, i0, i1, i2);
    case eStlOnDisk:
        return onDisk_->GetTriangle(index, i0, i1, i2);
    default:
        break;
    }
    const MStlTriangle* t = parent_->triangles_.At(index);
    if (!t)
        return false;
    const size_t a = parent_->points_.IndexOf(t->GetPoint0());
    const size_t b = parent_->points_.IndexOf(t->GetPoint1());
    const size_t c = parent_->points_.IndexOf(t->GetPoint2());
    if (a == SIZE_MAX || b == SIZE_MAX || c == SIZE_MAX)
        return false;
    i0 = static_cast<unsigned>(a);
    i1 = static_cast<unsigned>(b);
    i2 = static_cast<unsigned>(c);
    return true;
}

bool MStlHybrid::GetVertex(size_t index, int& x, int& y, int& z) const
{
    switch (state_)
    {
    case eStlCompact:
        if (index >= compact_->GetNumVertices())
            return false;
        else
        {
            const MVertex v = compact_->GetVertex(index);
            x = v.GetX();
            y = v.GetY();
            z = v.GetZ();
            return true;
        }
    case eStlOnDisk:
        return onDisk_->GetVertex(index, x, y, z, false);
    default:
        break;
    }
    const MStlPoint* p = parent_->points_.At(index);
    if (!p)
        return false;
    x = p->GetX();
    y = p->GetY();
    z = p->GetZ();
    return true;
}

MStlSurface* MStlHybrid::GetTriangleSurface(size_t index) const
{
    switch (state_)
    {
    case eStlCompact:
        return compact_->GetTriangleSurface(index);
    case eStlOnDisk:
        return onDisk_->GetTriangleSurface(index);
    default:
        break;
    }
    const MStlTriangle* t = parent_->triangles_.At(index);
    return t ? t->GetSurface() : nullptr;
}

bool MStlHybrid::StartGettingTriangleColors() const
{
    switch (state_)
    {
    case eStlCompact:
        return parent_->GetColorMasks().GetMainTriangleColorMask() != nullptr;
    case eStlOnDisk:
        return onDisk_->GetNumColors() > 0;
    default:
        return true;
    }
}

MStlColor MStlHybrid::GetColor(size_t index) const
{
    switch (state_)
    {
    case eStlCompact:
        if (const MStlTriangleColorMask* mask = parent_->GetColorMasks().GetMainTriangleColorMask())
            return mask->GetInfo(index);
        return MStlColor();
    case eStlOnDisk:
        return onDisk_->GetColor(index);
    default:
        break;
    }
    const MStlTriangle* t = parent_->triangles_.At(index);
    return t ? t->GetColor() : MStlColor();
}

bool MStlHybrid::StartAddingVertices()
{
    switch (state_)
    {
    case eStlCompact:
        compact_->BeginAdding();
        return true;
    case eStlOnDisk:
        onDisk_->StartAddingVertices();
        return onDisk_->IsOpenForWriting();
    default:
        return true;
    }
}

unsigned MStlHybrid::AddVertex(int x, int y, int z)
{
    switch (state_)
    {
    case eStlCompact:
        return compact_->AddVertex(x, y, z);
    case eStlOnDisk:
        return onDisk_->AddVertex(x, y, z);
    default:
        break;
    }
    if (parent_->NumberOfPoints() >= MStlInvalidVertex)
        return MStlInvalidVertex;
    parent_->CreatePoint(x, y, z);
    return static_cast<unsigned>(parent_->NumberOfPoints() - 1);
}

bool MStlHybrid::StartAddingTriangles(MStlSurface* surface)
{
    if (!surface)
        surface = parent_->GetMainSurface();
    if (surface->GetStl() != parent_)
        return false;
    addSurface_ = surface;
    switch (state_)
    {
    case eStlCompact:
        compact_->BeginAdding();
        compact_->SetCurrentSurface(surface);
        return true;
    case eStlOnDisk:
        onDisk_->StartAddingSurfaceTriangles(surface);
        return onDisk_->IsOpenForWriting();
    default:
        return true;
    }
}

size_t MStlHybrid::AddTriangle(unsigned i0, unsigned i1, unsigned i2)
{
    switch (state_)
    {
    case eStlCompact:
        return compact_->AddTriangle(i0, i1, i2);
    case eStlOnDisk:
        return onDisk_->AddSurfaceTriangle(i0, i1, i2);
    default:
        break;
    }
    if (!addSurface_)
        addSurface_ = parent_->GetMainSurface();
    MStlPoint* a = parent_->points_.At(i0);
    MStlPoint* b = parent_->points_.At(i1);
    MStlPoint* c = parent_->points_.At(i2);
    MStlTriangle* t = parent_->CreateTriangle(a, b, c, addSurface_);
    return t ? t->GetIndex() : MStlInvalidIndex;
}

bool MStlHybrid::StartAddingTriangleColors()
{
    addColor_ = 0;
    if (state_ == eStlOnDisk)
    {
        onDisk_->StartAddingTriangleColors();
        return onDisk_->IsOpenForWriting();
    }
    if (state_ == eStlCompact)
        parent_->GetColorMasks().CreateMainTriangleColorMask();
    return true;
}

bool MStlHybrid::AddColor(const MStlColor& color)
{
    switch (state_)
    {
    case eStlCompact:
        if (addColor_ >= compact_->GetNumTriangles())
            return false;
        parent_->GetColorMasks().CreateMainTriangleColorMask()->SetInfo(addColor_++, color);
        return true;
    case eStlOnDisk:
        return onDisk_->AddColor(color);
    default:
        break;
    }
    MStlTriangle* t = parent_->triangles_.At(addColor_);
    if (!t)
        return false;
    t->SetColor(color);
    ++addColor_;
    return true;
}

void MStlHybrid::UpdateParentBoundingBox()
{
    switch (state_)
    {
    case eStlCompact:
        compact_->UpdateParentBoundingBox();
        break;
    case eStlOnDisk:
        onDisk_->UpdateParentBoundingBox();
        break;
    default:
        parent_->GetValidity().InvalidateBoundingBox();
        parent_->GetBoundingBox();
        break;
    }
}
} // namespace KelSDK::Triangles::Data
