#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/Data/MStlBaseIndexed.h>

namespace KelSDK::Triangles::Data
{
size_t MStlBaseIndexed::GetIndexOfTriangle(const MStlTriangle* triangle) const
{
    if (triangle == nullptr || stl_.GetTriangleWithIndex(triangle->GetIndex()) != triangle)
        return MStlInvalidIndex;
    return triangle->GetIndex();
}

size_t MStlBaseIndexed::GetIndexOfEdge(const MStlGraphEdge* edge) const
{
    if (edge == nullptr || stl_.GetGraphEdgeWithIndex(edge->GetIndex()) != edge)
        return MStlInvalidIndex;
    return edge->GetIndex();
}

size_t MStlBaseIndexed::GetIndexOfTriangle(const MStlHybridEntity& triangle) const
{
    if (!triangle.isHybrid)
        return GetIndexOfTriangle(static_cast<const MStlTriangle*>(triangle.element));
    return triangle.index < GetNumberOfTriangles() ? triangle.index : MStlInvalidIndex;
}

size_t MStlBaseIndexed::GetIndexOfEdge(const MStlHybridEntity& edge) const
{
    if (!edge.isHybrid)
        return GetIndexOfEdge(static_cast<const MStlGraphEdge*>(edge.element));
    return edge.index < GetNumberOfEdges() ? edge.index : MStlInvalidIndex;
}

size_t MStlBaseIndexed::GetNumberOfTriangles() const
{
    return stl_.GetStlHybrid().GetNumTriangles();
}

size_t MStlBaseIndexed::GetNumberOfEdges() const
{
    return stl_.GetStlHybrid().GetNumberOfEdges();
}

MStlHybridEntity MStlBaseTriangleIndexedAccess::GetTriangleWithIndex(size_t index) const
{
    if (stl_.GetStlHybrid().GetState() == eStlStandard)
        return MStlHybridEntity::FromTriangle(stl_.GetTriangleWithIndex(index));
    return MStlHybridEntity::FromIndex(index < GetNumberOfTriangles() ? index : MStlInvalidIndex);
}

MStlHybridEntity MStlBaseEdgeIndexedAccess::GetEdgeWithIndex(size_t index) const
{
    if (stl_.GetStlHybrid().GetState() == eStlStandard)
        return MStlHybridEntity::FromEdge(stl_.GetGraphEdgeWithIndex(index));
    return MStlHybridEntity::FromIndex(index < GetNumberOfEdges() ? index : MStlInvalidIndex);
}
} // namespace KelSDK::Triangles::Data
