// Triangles and graph edges of a mesh by index, the same way for every storage kind: the Standard
// kind by its element objects, the Compact and OnDisk kinds by MStlHybridEntity indices.
#pragma once

#include <KelSDK/Triangles/Data/Export.h>
#include <KelSDK/Triangles/Data/MStlHybrid.h>

#include <cstddef>

namespace KelSDK::Triangles::Data
{
class MStlBase;
class MStlGraphEdge;
class MStlTriangle;

// Indices of a mesh's elements. A Standard-kind triangle's index is its position in the triangle
// order, kept by the mesh as triangles are made; a graph edge's is its position in the edge order.
// Reads the mesh only; any thread that may read the mesh.
class KELSDK_TRIANGLES_DATA_EXPORT MStlBaseIndexed
{
public:
    explicit MStlBaseIndexed(const MStlBase& stl) : stl_(stl) {}

    // Index of a triangle of this mesh; MStlInvalidIndex for null or another mesh's triangle.
    size_t GetIndexOfTriangle(const MStlTriangle* triangle) const;
    // Index of a graph edge of this mesh; MStlInvalidIndex for null or another mesh's edge.
    size_t GetIndexOfEdge(const MStlGraphEdge* edge) const;
    // Index of an element given as an entity: its own index when hybrid, else the index of the
    // triangle (or edge) it points to; MStlInvalidIndex when that is not an element of this mesh.
    size_t GetIndexOfTriangle(const MStlHybridEntity& triangle) const;
    size_t GetIndexOfEdge(const MStlHybridEntity& edge) const;
    // The mesh's element counts (any storage kind).
    size_t GetNumberOfTriangles() const;
    size_t GetNumberOfEdges() const;
    const MStlBase& GetStl() const { return stl_; }

protected:
    const MStlBase& stl_;
};

// The scope in which code numbers a mesh's triangles. The mesh keeps every triangle's index
// current as it makes triangles, so the numbering needs no extra pass and nothing to release.
using MStlBaseSetTriangleIndices = MStlBaseIndexed;

// Triangles by index as entities of the mesh's kind.
class KELSDK_TRIANGLES_DATA_EXPORT MStlBaseTriangleIndexedAccess : public MStlBaseIndexed
{
public:
    explicit MStlBaseTriangleIndexedAccess(const MStlBase& stl) : MStlBaseIndexed(stl) {}
    // The triangle with the index: the Standard kind's triangle object (null element when out of
    // range), else a hybrid entity holding the index (MStlInvalidIndex when out of range).
    MStlHybridEntity GetTriangleWithIndex(size_t index) const;
};

// Graph edges by index as entities of the mesh's kind (the OnDisk kind has none).
class KELSDK_TRIANGLES_DATA_EXPORT MStlBaseEdgeIndexedAccess : public MStlBaseIndexed
{
public:
    explicit MStlBaseEdgeIndexedAccess(const MStlBase& stl) : MStlBaseIndexed(stl) {}
    // As MStlBaseTriangleIndexedAccess::GetTriangleWithIndex, for graph edges.
    MStlHybridEntity GetEdgeWithIndex(size_t index) const;
};
} // namespace KelSDK::Triangles::Data
