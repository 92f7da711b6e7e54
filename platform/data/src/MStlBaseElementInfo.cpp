#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/Data/MStlBaseElementInfo.h>

namespace KelSDK::Triangles::Data
{
namespace
{
// Makes the mask unless it exists, holding a value for each of count elements.
template <typename Mask, typename Info>
Mask* DefineMask(std::unique_ptr<Mask>& mask, const Info& defaultValue, size_t count)
{
    if (!mask)
        mask = std::make_unique<Mask>(defaultValue);
    if (mask->GetSize() < count)
        mask->Resize(count);
    return mask.get();
}

// A new default: the elements the mesh has keep the old one, elements added later take the new.
template <typename Mask, typename Info>
void ChangeDefault(Mask* mask, Info& stored, const Info& value, size_t count)
{
    if (mask)
    {
        if (mask->GetSize() < count)
            mask->Resize(count);
        mask->SetDefault(value);
    }
    stored = value;
}

// The value of an element: from the mask for an element of the mesh, else the default or zero.
template <typename Mask, typename Info>
Info ValueOf(const Mask* mask, const Info& defaultValue, size_t index, size_t count, bool useDefault)
{
    if (mask && index < count)
        return mask->GetInfo(index);
    return useDefault ? defaultValue : Info();
}

template <typename Mask, typename Info>
bool SetValue(std::unique_ptr<Mask>& mask, const Info& defaultValue, size_t index, size_t count,
              const Info& value)
{
    if (index >= count)
        return false;
    DefineMask(mask, defaultValue, count)->SetInfo(index, value);
    return true;
}

template <typename Mask> void GrowMask(Mask* mask, size_t count)
{
    if (mask && mask->GetSize() < count)
        mask->Resize(count);
}

MStlGraphEdgeCaps BothEnds(int32_t cap)
{
    return MStlGraphEdgeCaps{static_cast<int8_t>(cap), static_cast<int8_t>(cap)};
}
} // namespace

MStlBaseElementInfo::MStlBaseElementInfo(const MStlBase& stl) : stl_(stl) {}
MStlBaseElementInfo::~MStlBaseElementInfo() = default;

size_t MStlBaseElementInfo::GetNumberOfEdges() const
{
    return stl_.GetStlHybrid().GetNumberOfEdges();
}

size_t MStlBaseElementInfo::GetNumberOfVertices() const
{
    return stl_.GetStlHybrid().GetNumVertices();
}

size_t MStlBaseElementInfo::GetEdgeIndex(const MStlGraphEdge* edge) const
{
    if (edge == nullptr || stl_.GetGraphEdgeWithIndex(edge->GetIndex()) != edge)
        return SIZE_MAX;
    return edge->GetIndex();
}

size_t MStlBaseElementInfo::GetVertexIndex(const MStlPoint* point) const
{
    return point == nullptr ? SIZE_MAX : stl_.GetPointList().GetIndexOfPoint(point);
}

// ---- edge thickness

void MStlBaseElementInfo::SetDefaultEdgeThickness(const MStlGraphEdgeThickness& value)
{
    ChangeDefault(thickness_.get(), defaultThickness_, value, GetNumberOfEdges());
}
MStlGraphEdgeThickness MStlBaseElementInfo::GetEdgeThickness(const MStlGraphEdge* edge) const
{
    return GetEdgeThickness(GetEdgeIndex(edge));
}
MStlGraphEdgeThickness MStlBaseElementInfo::GetEdgeThickness(size_t edgeIndex) const
{
    return ValueOf(thickness_.get(), defaultThickness_, edgeIndex, GetNumberOfEdges(), true);
}
bool MStlBaseElementInfo::SetEdgeThickness(const MStlGraphEdge* edge, const MStlGraphEdgeThickness& value)
{
    return SetEdgeThickness(GetEdgeIndex(edge), value);
}
bool MStlBaseElementInfo::SetEdgeThickness(size_t edgeIndex, const MStlGraphEdgeThickness& value)
{
    return SetValue(thickness_, defaultThickness_, edgeIndex, GetNumberOfEdges(), value);
}
MStlEdgeThicknessMask* MStlBaseElementInfo::DefineEdgeThicknessMask()
{
    return DefineMask(thickness_, defaultThickness_, GetNumberOfEdges());
}

// ---- edge tolerance

void MStlBaseElementInfo::SetDefaultEdgeTolerance(int32_t value)
{
    ChangeDefault(tolerance_.get(), defaultTolerance_, value, GetNumberOfEdges());
}
int32_t MStlBaseElementInfo::GetEdgeTolerance(const MStlGraphEdge* edge, bool useDefault) const
{
    return GetEdgeTolerance(GetEdgeIndex(edge), useDefault);
}
int32_t MStlBaseElementInfo::GetEdgeTolerance(size_t edgeIndex, bool useDefault) const
{
    return ValueOf(tolerance_.get(), defaultTolerance_, edgeIndex, GetNumberOfEdges(), useDefault);
}
bool MStlBaseElementInfo::SetEdgeTolerance(const MStlGraphEdge* edge, int32_t value)
{
    return SetEdgeTolerance(GetEdgeIndex(edge), value);
}
bool MStlBaseElementInfo::SetEdgeTolerance(size_t edgeIndex, int32_t value)
{
    return SetValue(tolerance_, defaultTolerance_, edgeIndex, GetNumberOfEdges(), value);
}
MStlEdgeToleranceMask* MStlBaseElementInfo::DefineEdgeToleranceMask()
{
    return DefineMask(tolerance_, defaultTolerance_, GetNumberOfEdges());
}

// ---- edge caps

void MStlBaseElementInfo::SetDefaultEdgeCap(int32_t cap)
{
    if (caps_)
    {
        if (caps_->GetSize() < GetNumberOfEdges())
            caps_->Resize(GetNumberOfEdges());
        caps_->SetDefault(BothEnds(cap));
    }
    defaultCap_ = cap;
}
MStlGraphEdgeCaps MStlBaseElementInfo::GetEdgeCaps(const MStlGraphEdge* edge, bool useDefault) const
{
    return GetEdgeCaps(GetEdgeIndex(edge), useDefault);
}
MStlGraphEdgeCaps MStlBaseElementInfo::GetEdgeCaps(size_t edgeIndex, bool useDefault) const
{
    return ValueOf(caps_.get(), BothEnds(defaultCap_), edgeIndex, GetNumberOfEdges(), useDefault);
}
bool MStlBaseElementInfo::SetEdgeCaps(const MStlGraphEdge* edge, const MStlGraphEdgeCaps& value)
{
    return SetEdgeCaps(GetEdgeIndex(edge), value);
}
bool MStlBaseElementInfo::SetEdgeCaps(size_t edgeIndex, const MStlGraphEdgeCaps& value)
{
    return SetValue(caps_, BothEnds(defaultCap_), edgeIndex, GetNumberOfEdges(), value);
}
MStlEdgeCapMask* MStlBaseElementInfo::DefineEdgeCapMask()
{
    return DefineMask(caps_, BothEnds(defaultCap_), GetNumberOfEdges());
}

// ---- vertex radius

void MStlBaseElementInfo::SetDefaultVertexRadius(int32_t value)
{
    ChangeDefault(radius_.get(), defaultRadius_, value, GetNumberOfVertices());
}
int32_t MStlBaseElementInfo::GetVertexRadius(const MStlPoint* point, bool useDefault) const
{
    return GetVertexRadius(GetVertexIndex(point), useDefault);
}
int32_t MStlBaseElementInfo::GetVertexRadius(size_t vertexIndex, bool useDefault) const
{
    return ValueOf(radius_.get(), defaultRadius_, vertexIndex, GetNumberOfVertices(), useDefault);
}
bool MStlBaseElementInfo::SetVertexRadius(const MStlPoint* point, int32_t value)
{
    return SetVertexRadius(GetVertexIndex(point), value);
}
bool MStlBaseElementInfo::SetVertexRadius(size_t vertexIndex, int32_t value)
{
    return SetValue(radius_, defaultRadius_, vertexIndex, GetNumberOfVertices(), value);
}
MStlVertexRadiusMask* MStlBaseElementInfo::DefineVertexRadiusMask()
{
    return DefineMask(radius_, defaultRadius_, GetNumberOfVertices());
}

// ---- following the mesh

void MStlBaseElementInfo::_ClearMasks()
{
    for (MDataMaskBase* mask : std::initializer_list<MDataMaskBase*>{thickness_.get(), tolerance_.get(),
                                                                     caps_.get(), radius_.get()})
        if (mask)
            mask->Clear();
}

void MStlBaseElementInfo::_GrowEdgeMasks(size_t count)
{
    GrowMask(thickness_.get(), count);
    GrowMask(tolerance_.get(), count);
    GrowMask(caps_.get(), count);
}

void MStlBaseElementInfo::_GrowVertexMask(size_t count)
{
    GrowMask(radius_.get(), count);
}

MStlBaseElementInfoStlDependency::MStlBaseElementInfoStlDependency(MStlBase& stl) : MStlBaseElementInfo(stl)
{
}
MStlBaseElementInfoStlDependency::~MStlBaseElementInfoStlDependency() = default;

MStlBaseElementInfoStlDependency* MStlBaseElementInfoStlDependency::GetDependency(const MStlBase* stl,
                                                                                  bool create)
{
    return GetStlDependency<MStlBaseElementInfoStlDependency>(stl, create);
}

void MStlBaseElementInfoStlDependency::DestroyInstance(MStlBase* stl)
{
    DestroyStlDependency<MStlBaseElementInfoStlDependency>(stl);
}

void MStlBaseElementInfoStlDependency::OnClear(MStlBase&)
{
    _ClearMasks();
}

void MStlBaseElementInfoStlDependency::OnPointsAdded(MStlBase&, size_t first, size_t count)
{
    _GrowVertexMask(first + count);
}

void MStlBaseElementInfoStlDependency::OnGraphEdgesAdded(MStlBase&, size_t first, size_t count)
{
    _GrowEdgeMasks(first + count);
}
} // namespace KelSDK::Triangles::Data
