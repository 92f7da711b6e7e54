// MStlBase: the mesh. Name, colour, material, properties, its storage (Standard points and
// triangles held here, or a Compact or OnDisk store behind MStlHybrid), surfaces, graph edges,
// per-triangle data, features and attachments.
#pragma once

#include <KelSDK/Math/BoundingBox.h>
#include <KelSDK/Triangles/Data/Export.h>
#include <KelSDK/Triangles/Data/MDataMask.h>
#include <KelSDK/Triangles/Data/MHistory.h>
#include <KelSDK/Triangles/Data/MStlBlockPool.h>
#include <KelSDK/Triangles/Data/MStlColor.h>
#include <KelSDK/Triangles/Data/MStlCurve.h>
#include <KelSDK/Triangles/Data/MStlDependency.h>
#include <KelSDK/Triangles/Data/MStlFeature.h>
#include <KelSDK/Triangles/Data/MStlHybrid.h>
#include <KelSDK/Triangles/Data/MStlMaterial.h>
#include <KelSDK/Triangles/Data/MStlPoint.h>
#include <KelSDK/Triangles/Data/MStlRegisteredPoints.h>
#include <KelSDK/Triangles/Data/MStlTexture.h>
#include <KelSDK/Triangles/Data/MStlTriangle.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace KelSDK::Triangles::Data
{
using MStlIteratorStlTriangle = MStlBlockPool<MStlTriangle>::Iterator<MStlTriangle&>;
using MStlIteratorStlTriangleConst = MStlBlockPool<MStlTriangle>::Iterator<const MStlTriangle&>;
using MStlIteratorStlPoint = MStlBlockPool<MStlPoint>::Iterator<MStlPoint&>;
using MStlIteratorStlPointConst = MStlBlockPool<MStlPoint>::Iterator<const MStlPoint&>;
using MStlIteratorStlEdge = MStlBlockPool<MStlGraphEdge>::Iterator<MStlGraphEdge&>;
using MStlIteratorStlEdgeConst = MStlBlockPool<MStlGraphEdge>::Iterator<const MStlGraphEdge&>;

// A begin/end pair for range-for.
template <typename It> struct MStlRange
{
    It first;
    It last;
    It begin() const { return first; }
    It end() const { return last; }
};

// Support and supposed-solid flags and the extremes of the mesh.
class KELSDK_TRIANGLES_DATA_EXPORT MStlBaseProperties
{
public:
    explicit MStlBaseProperties(const MStlBase* stl) : stl_(stl) {}

    bool GetIsSupport() const { return isSupport_; }
    void SetIsSupport(bool v) { isSupport_ = v; }
    // True (the default) when the mesh is meant to enclose a volume.
    bool GetIsSupposedSolid() const { return isSupposedSolid_; }
    void SetIsSupposedSolid(bool v) { isSupposedSolid_ = v; }
    // Smallest and largest vertex coordinate per axis over the mesh's storage, whatever its kind;
    // false and all zero when the mesh has no vertex.
    bool CalculateExtremes(int& xmin, int& xmax, int& ymin, int& ymax, int& zmin, int& zmax) const;

private:
    const MStlBase* stl_;
    bool isSupport_ = false;
    bool isSupposedSolid_ = true;
};

// Face group identifier per triangle (by triangle index). Triangles never given one read 0;
// identifiers for indices beyond the mesh's triangles (or beyond the size, without a mesh) are ignored.
class KELSDK_TRIANGLES_DATA_EXPORT MStlBaseFaceGroupInfo
{
public:
    MStlBaseFaceGroupInfo() = default;
    // Face groups of a mesh: identifiers may be set for any of its current triangles.
    explicit MStlBaseFaceGroupInfo(const MStlBase* stl) : stl_(stl) {}

    uint32_t GetFaceID(const MStlTriangle& triangle) const { return GetFaceID(triangle.GetIndex()); }
    void SetFaceID(const MStlTriangle& triangle, unsigned long id) { SetFaceID(triangle.GetIndex(), id); }
    // By triangle index (any storage kind).
    uint32_t GetFaceID(size_t triangleIndex) const
    {
        return triangleIndex < ids_.size() ? ids_[triangleIndex] : 0u;
    }
    void SetFaceID(size_t triangleIndex, unsigned long id);
    // Number of slots held (at least the triangles given an identifier).
    size_t GetSize() const { return ids_.size(); }
    // Sets the number of slots (new ones 0).
    void Resize(size_t count) { ids_.resize(count, 0u); }

private:
    const MStlBase* stl_ = nullptr;
    std::vector<uint32_t> ids_;
};

// Validity of derived per-triangle state that loaders and editors invalidate.
class KELSDK_TRIANGLES_DATA_EXPORT MStlValidity
{
public:
    // Triangle visibilities changed outside the normal editing path (e.g. loaded from a file).
    void InvalidateTriangleVisibilities() { visibilitiesValid_ = false; }
    void ValidateTriangleVisibilities() { visibilitiesValid_ = true; }
    bool AreTriangleVisibilitiesValid() const { return visibilitiesValid_; }
    // The cached bounding box no longer matches the vertices.
    void InvalidateBoundingBox() { boundingBoxValid_ = false; }
    bool IsBoundingBoxValid() const { return boundingBoxValid_; }

private:
    friend class MStlBase;
    bool visibilitiesValid_ = true;
    bool boundingBoxValid_ = false;
};

// Triangle marks (MStlTriangle::GetMark) are scratch values of editing tools; the validity field
// says whether the current marks belong to the tool that set them (0: no valid marks).
class KELSDK_TRIANGLES_DATA_EXPORT MStlMarkInterface
{
public:
    uint32_t GetValidity() const { return validity_; }
    void SetValidity(uint32_t validity) { validity_ = validity; }
    void InvalidateValidity() { validity_ = 0; }

private:
    uint32_t validity_ = 0;
};

// The mesh.
class KELSDK_TRIANGLES_DATA_EXPORT MStlBase
{
public:
    MStlBase();
    ~MStlBase();
    MStlBase(const MStlBase&) = delete;
    MStlBase& operator=(const MStlBase&) = delete;

    const std::wstring& GetName() const { return name_; }
    void SetName(const std::wstring& name) { name_ = name; }
    // Mesh colour 0x00BBGGRR (grey 0x00808080 by default).
    uint32_t GetRGB() const { return rgb_; }
    void SetRGB(uint32_t rgb) { rgb_ = rgb & 0xFFFFFFu; }
    const MStlMaterial& GetMaterial() const { return material_; }
    // Sets the material; the mesh colour follows the material's colour word (its low 24 bits).
    void SetMaterial(const MStlMaterial& material)
    {
        material_ = material;
        rgb_ = material.GetRGB() & 0xFFFFFFu;
    }
    MStlBaseProperties& GetProperties() { return properties_; }
    const MStlBaseProperties& GetProperties() const { return properties_; }

    // Empties the mesh: points, triangles, graph edges, the Compact/OnDisk store, colour masks,
    // face groups, marks, surface borders (they refer to points), triangles of every surface;
    // dependencies get OnClear. With all, the surfaces other than the (renamed, empty) main
    // surface, curves, registered points, textures and history go as well. Name, colour,
    // material, properties and storage kind stay.
    void ClearStl(bool all);

    MStlHybrid& GetStlHybrid() { return hybrid_; }
    const MStlHybrid& GetStlHybrid() const { return hybrid_; }

    // ---- Standard kind: points
    MStlPointList& GetPointList() { return pointList_; }
    const MStlPointList& GetPointList() const { return pointList_; }
    // Points of the Standard kind (MStlHybrid::GetNumVertices counts any kind).
    size_t NumberOfPoints() const { return points_.Size(); }
    // Appends one point to the point list.
    MStlPoint* CreatePoint(int x, int y, int z);
    // Appends points in the given order (duplicates are kept as separate points) in one block;
    // createdPoints (optional) receives them in input order. False (nothing done) unless the kind
    // is Standard.
    bool CreatePoints(std::vector<std::array<int, 3>> points, std::vector<MStlPoint*>* createdPoints);
    MStlIteratorStlPoint BeginPoint() { return points_.begin(); }
    MStlIteratorStlPoint EndPoint() { return points_.end(); }
    MStlIteratorStlPointConst BeginPoint() const;
    MStlIteratorStlPointConst EndPoint() const;

    // ---- Standard kind: triangles
    // Triangles held by the storage, whatever its kind (BeginTriangle/EndTriangle walk only the
    // Standard kind's triangles; for the other kinds use MStlHybrid by index).
    size_t NumberOfTriangles() const;
    // Appends a triangle of three points of this mesh to a surface of this mesh (null: the main
    // surface); null when a point is null or the kind is not Standard.
    MStlTriangle* CreateTriangle(MStlPoint* p0, MStlPoint* p1, MStlPoint* p2, MStlSurface* surface = nullptr);
    // Builds points and triangles in one call. points: positions, ideally distinct and sorted by
    // (z, x, y) (then the sorted point index is built without sorting). trianglesPerSurface[i]:
    // index triples into points for surface (*surfaces)[i]; lists without a surface (surfaces
    // null, shorter, or a null entry) go to the main surface. createdPoints / createdTriangles
    // (optional) receive the new elements in input order. Returns false and changes nothing when
    // the kind is not Standard, an index is out of range, a surface belongs to another mesh, or
    // there are more than 2^32 - 1 triangles. Triangles whose corners repeat an index are kept.
    bool Create(std::vector<std::array<int, 3>> points,
                std::vector<std::vector<std::array<size_t, 3>>> trianglesPerSurface,
                const std::vector<MStlSurface*>* surfaces, std::vector<MStlPoint*>* createdPoints,
                std::vector<MStlTriangle*>* createdTriangles);
    // Create for bulk builders, with the same result and failures: triangles holds the index
    // triples of all lists one after another, trianglesPerSurface[i] of them for list i (false,
    // nothing done, when the counts do not add up to its size). 12 bytes per triangle instead of
    // 24; the inputs are freed once consumed.
    bool Create(std::vector<std::array<int, 3>> points, std::vector<std::array<uint32_t, 3>> triangles,
                const std::vector<size_t>& trianglesPerSurface, const std::vector<MStlSurface*>* surfaces,
                std::vector<MStlPoint*>* createdPoints, std::vector<MStlTriangle*>* createdTriangles);
    // The same with block lists, released block by block as they are consumed (inside an
    // MStlBlockReuse scope the mesh's own blocks take over their memory).
    bool Create(MStlBlockList<std::array<int, 3>> points, MStlBlockList<std::array<uint32_t, 3>> triangles,
                const std::vector<size_t>& trianglesPerSurface, const std::vector<MStlSurface*>* surfaces,
                std::vector<MStlPoint*>* createdPoints, std::vector<MStlTriangle*>* createdTriangles);
    MStlIteratorStlTriangle BeginTriangle() { return triangles_.begin(); }
    MStlIteratorStlTriangle EndTriangle() { return triangles_.end(); }
    MStlIteratorStlTriangleConst BeginTriangle() const;
    MStlIteratorStlTriangleConst EndTriangle() const;
    MStlRange<MStlIteratorStlTriangle> Triangles() { return {BeginTriangle(), EndTriangle()}; }
    MStlRange<MStlIteratorStlTriangleConst> Triangles() const { return {BeginTriangle(), EndTriangle()}; }
    MStlRange<MStlIteratorStlPoint> Points() { return {BeginPoint(), EndPoint()}; }
    MStlRange<MStlIteratorStlPointConst> Points() const { return {BeginPoint(), EndPoint()}; }
    // The triangle at a position of the triangle order, or null.
    MStlTriangle* GetTriangleWithIndex(size_t index) const { return triangles_.At(index); }

    // ---- surfaces
    // The first surface of the surface list; it always exists.
    MStlSurface* GetMainSurface() const;
    // Appends a new empty surface to the surface list (a model's name and visibility are copied).
    MStlSurface* AddSurface(const MStlSurface* model = nullptr);
    MStlSurfaceList& GetSurfaceList() { return *surfaceList_; }
    const MStlSurfaceList& GetSurfaceList() const { return *surfaceList_; }
    // Moves a Standard-kind triangle to another surface of this mesh; false for foreign objects.
    bool MoveTriangleToSurface(MStlTriangle* triangle, MStlSurface* surface);

    // ---- graph edges (Standard kind)
    // Appends an edge between two points of this mesh; null when a point is null.
    MStlGraphEdge* CreateGraphEdge(MStlPoint* p0, MStlPoint* p1);
    size_t NumberOfGraphEdges() const { return edges_.Size(); }
    MStlRange<MStlIteratorStlEdge> GraphEdges() { return {edges_.begin(), edges_.end()}; }
    MStlRange<MStlIteratorStlEdgeConst> GraphEdges() const;
    // The edge at a position of the edge order, or null.
    MStlGraphEdge* GetGraphEdgeWithIndex(size_t index) const { return edges_.At(index); }

    // ---- per-triangle data
    MStlColorMasks& GetColorMasks() { return colorMasks_; }
    const MStlColorMasks& GetColorMasks() const { return colorMasks_; }
    // Face groups: null when the mesh carries none.
    MStlBaseFaceGroupInfo* GetFaceGroupInfo() const { return faceGroups_.get(); }
    // Creates face group information (all identifiers 0) unless present; returns it.
    MStlBaseFaceGroupInfo* _CreateFaceGroupInfo();
    void DeleteFaceGroupInfo() { faceGroups_.reset(); }
    MStlMarkInterface& GetMarkInterface() { return marks_; }
    const MStlMarkInterface& GetMarkInterface() const { return marks_; }
    MStlValidity& GetValidity() { return validity_; }
    const MStlValidity& GetValidity() const { return validity_; }
    // Shorthand for GetValidity().InvalidateTriangleVisibilities().
    void InvalidateTriangleVisibilities() { validity_.InvalidateTriangleVisibilities(); }

    // ---- features
    MStlCurveFeature& GetCurves() { return curves_; }
    const MStlCurveFeature& GetCurves() const { return curves_; }
    MStlSurfaceBorderList& GetSurfaceBorders() { return borders_; }
    const MStlSurfaceBorderList& GetSurfaceBorders() const { return borders_; }
    MStlRegisteredPoints& GetRegisteredPoints() { return registeredPoints_; }
    const MStlRegisteredPoints& GetRegisteredPoints() const { return registeredPoints_; }
    MStlTextureList& GetTextures() { return textures_; }
    const MStlTextureList& GetTextures() const { return textures_; }
    MHistory& GetHistory() { return history_; }
    const MHistory& GetHistory() const { return history_; }

    // ---- bounding box
    // Box of all vertices (recomputed when invalid); empty for a mesh without vertices.
    const KelSDK::Math::boundingbox<int, 3>& GetBoundingBox() const;
    // Stores a box computed elsewhere (the stores' UpdateParentBoundingBox) and marks it valid.
    void SetBoundingBox(const KelSDK::Math::boundingbox<int, 3>& box);

    // ---- dependencies (attachments), one per key
    // The dependency under a key, or null.
    MStlDependency* FindDependency(const std::string& key) const;
    // Stores a dependency under a key, destroying the one it replaces; returns the stored one.
    MStlDependency* SetDependency(const std::string& key, std::unique_ptr<MStlDependency> dependency);
    // Destroys the dependency under a key; false when there was none.
    bool RemoveDependency(const std::string& key);
    size_t GetNumDependencies() const { return dependencies_.size(); }
    // Calls OnTrianglesChanged of every dependency (for editors that reorder or move triangles).
    void NotifyTrianglesChanged();

private:
    friend class MStlHybrid;
    friend class MStlPointList;
    friend class MStlBaseImpl;
    friend class MStlTextureList;

    void _NotifyTrianglesAdded(size_t first, size_t count);
    // Places the points at the end of the point store in runs of whole pool blocks (input index i
    // is result[i / MStlBlockPool<MStlPoint>::PieceElements] + i % PieceElements), links and indexes
    // them, frees the input and lists them in *createdPoints when given.
    std::vector<MStlPoint*> _AppendPointRun(std::vector<std::array<int, 3>>& points,
                                            std::vector<MStlPoint*>* createdPoints);
    void _NotifyPointsAdded(size_t first, size_t count);
    void _NotifyGraphEdgesAdded(size_t first, size_t count);
    void _NotifyTextureRemoved(const MStlTexture* texture);
    void _ClearGeometry();

    std::wstring name_;
    uint32_t rgb_ = 0x808080u;
    MStlMaterial material_;
    MStlBaseProperties properties_;
    MStlHybrid hybrid_;
    MStlPointList pointList_;
    MStlBlockPool<MStlPoint> points_;
    MStlBlockPool<MStlTriangle> triangles_;
    MStlBlockPool<MStlGraphEdge> edges_;
    std::unique_ptr<MStlSurfaceList> surfaceList_;
    MStlColorMasks colorMasks_;
    std::unique_ptr<MStlBaseFaceGroupInfo> faceGroups_;
    MStlMarkInterface marks_;
    mutable MStlValidity validity_;
    MStlCurveFeature curves_;
    MStlSurfaceBorderList borders_;
    MStlRegisteredPoints registeredPoints_;
    MStlTextureList textures_;
    MHistory history_;
    mutable KelSDK::Math::boundingbox<int, 3> boundingBox_;
    std::map<std::string, std::unique_ptr<MStlDependency>> dependencies_;
};

// Typed access to a dependency class T that provides static const char* DependencyKey() and a
// constructor T(MStlBase&): the mesh's T, created on demand when create is true (else null).
template <typename T> T* GetStlDependency(const MStlBase* stl, bool create)
{
    if (!stl)
        return nullptr;
    MStlDependency* d = stl->FindDependency(T::DependencyKey());
    if (!d && create)
    {
        MStlBase* mutableStl = const_cast<MStlBase*>(stl);
        d = mutableStl->SetDependency(T::DependencyKey(),
                                      std::unique_ptr<MStlDependency>(new T(*mutableStl)));
    }
    return static_cast<T*>(d);
}

// Destroys the mesh's T dependency, if any.
template <typename T> void DestroyStlDependency(MStlBase* stl)
{
    if (stl)
        stl->RemoveDependency(T::DependencyKey());
}
} // namespace KelSDK::Triangles::Data
