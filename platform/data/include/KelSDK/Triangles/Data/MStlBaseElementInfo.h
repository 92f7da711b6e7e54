// Element information of a mesh: thickness, tolerance and end caps per graph edge and a radius per
// vertex, each with a default for elements that have no value of their own.
#pragma once

#include <KelSDK/Triangles/Data/Export.h>
#include <KelSDK/Triangles/Data/MDataMask.h>
#include <KelSDK/Triangles/Data/MStlDependency.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace KelSDK::Triangles::Data
{
class MStlBase;
class MStlGraphEdge;
class MStlPoint;

// Thickness of a graph edge at its first and at its second point, in grid steps.
struct KELSDK_TRIANGLES_DATA_EXPORT MStlGraphEdgeThickness
{
    int32_t start = 0;
    int32_t end = 0;

    friend bool operator==(const MStlGraphEdgeThickness& a, const MStlGraphEdgeThickness& b)
    {
        return a.start == b.start && a.end == b.end;
    }
    friend bool operator!=(const MStlGraphEdgeThickness& a, const MStlGraphEdgeThickness& b)
    {
        return !(a == b);
    }
};

// How a graph edge ends when it is built as a solid strut.
enum eStlGraphEdgeCap : int
{
    eStlGraphEdgeCapNone = 0,  // open end
    eStlGraphEdgeCapFlat = 1,  // cut square to the edge
    eStlGraphEdgeCapRound = 2, // half sphere of the end's thickness
};

// The caps at the first and at the second point of a graph edge, eStlGraphEdgeCap values in 8 bits.
struct KELSDK_TRIANGLES_DATA_EXPORT MStlGraphEdgeCaps
{
    int8_t start = eStlGraphEdgeCapNone;
    int8_t end = eStlGraphEdgeCapNone;

    friend bool operator==(const MStlGraphEdgeCaps& a, const MStlGraphEdgeCaps& b)
    {
        return a.start == b.start && a.end == b.end;
    }
    friend bool operator!=(const MStlGraphEdgeCaps& a, const MStlGraphEdgeCaps& b) { return !(a == b); }
};

using MStlEdgeThicknessMask = MDataMask<MStlGraphEdge, MStlGraphEdgeThickness>;
using MStlEdgeToleranceMask = MDataMask<MStlGraphEdge, int32_t>;
using MStlEdgeCapMask = MDataMask<MStlGraphEdge, MStlGraphEdgeCaps>;
using MStlVertexRadiusMask = MDataMask<MStlPoint, int32_t>;

// Per-element attributes of one mesh. Each attribute has a default and, once a value is set for
// one element, a mask that holds a value for every element of the mesh (the others take the
// default that held when the mask was made). Elements are graph edges and vertices by index in
// the mesh's storage, whatever its kind; the Standard kind may also pass its MStlGraphEdge and
// MStlPoint objects. Getters take the element's value from the mask; where the element has none
// (no mask, or an element that is not the mesh's), useDefault chooses between the default (true)
// and zero (false). Setters return false, changing nothing, for an element that is not the mesh's.
// Nothing here is thread-safe; the masks allocate in proportion to the element counts.
class KELSDK_TRIANGLES_DATA_EXPORT MStlBaseElementInfo
{
public:
    explicit MStlBaseElementInfo(const MStlBase& stl);
    virtual ~MStlBaseElementInfo();
    MStlBaseElementInfo(const MStlBaseElementInfo&) = delete;
    MStlBaseElementInfo& operator=(const MStlBaseElementInfo&) = delete;

    // ---- edge thickness
    MStlGraphEdgeThickness GetDefaultEdgeThickness() const { return defaultThickness_; }
    // Elements added from now on take the new default; those the mask already holds keep theirs.
    void SetDefaultEdgeThickness(const MStlGraphEdgeThickness& value);
    bool IsEdgeThicknessMaskDefined() const { return thickness_ != nullptr; }
    MStlGraphEdgeThickness GetEdgeThickness(const MStlGraphEdge* edge) const;
    MStlGraphEdgeThickness GetEdgeThickness(size_t edgeIndex) const;
    bool SetEdgeThickness(const MStlGraphEdge* edge, const MStlGraphEdgeThickness& value);
    bool SetEdgeThickness(size_t edgeIndex, const MStlGraphEdgeThickness& value);

    // ---- edge tolerance (grid steps)
    int32_t GetDefaultEdgeTolerance() const { return defaultTolerance_; }
    void SetDefaultEdgeTolerance(int32_t value);
    bool IsEdgeToleranceMaskDefined() const { return tolerance_ != nullptr; }
    int32_t GetEdgeTolerance(const MStlGraphEdge* edge, bool useDefault) const;
    int32_t GetEdgeTolerance(size_t edgeIndex, bool useDefault) const;
    bool SetEdgeTolerance(const MStlGraphEdge* edge, int32_t value);
    bool SetEdgeTolerance(size_t edgeIndex, int32_t value);

    // ---- edge caps; the default is one eStlGraphEdgeCap value for both ends
    int32_t GetDefaultEdgeCap() const { return defaultCap_; }
    void SetDefaultEdgeCap(int32_t cap);
    bool IsEdgeCapMaskDefined() const { return caps_ != nullptr; }
    MStlGraphEdgeCaps GetEdgeCaps(const MStlGraphEdge* edge, bool useDefault) const;
    MStlGraphEdgeCaps GetEdgeCaps(size_t edgeIndex, bool useDefault) const;
    bool SetEdgeCaps(const MStlGraphEdge* edge, const MStlGraphEdgeCaps& value);
    bool SetEdgeCaps(size_t edgeIndex, const MStlGraphEdgeCaps& value);

    // ---- vertex radius (grid steps)
    int32_t GetDefaultVertexRadius() const { return defaultRadius_; }
    void SetDefaultVertexRadius(int32_t value);
    bool IsVertexRadiusMaskDefined() const { return radius_ != nullptr; }
    int32_t GetVertexRadius(const MStlPoint* point, bool useDefault) const;
    int32_t GetVertexRadius(size_t vertexIndex, bool useDefault) const;
    bool SetVertexRadius(const MStlPoint* point, int32_t value);
    bool SetVertexRadius(size_t vertexIndex, int32_t value);

    // ---- the masks as a whole: null while undefined. Define... makes the mask unless it exists
    // and sizes it to the mesh's current element count; Delete... drops it.
    MStlEdgeThicknessMask* GetEdgeThicknessMask() const { return thickness_.get(); }
    MStlEdgeToleranceMask* GetEdgeToleranceMask() const { return tolerance_.get(); }
    MStlEdgeCapMask* GetEdgeCapMask() const { return caps_.get(); }
    MStlVertexRadiusMask* GetVertexRadiusMask() const { return radius_.get(); }
    MStlEdgeThicknessMask* DefineEdgeThicknessMask();
    MStlEdgeToleranceMask* DefineEdgeToleranceMask();
    MStlEdgeCapMask* DefineEdgeCapMask();
    MStlVertexRadiusMask* DefineVertexRadiusMask();
    void DeleteEdgeThicknessMask() { thickness_.reset(); }
    void DeleteEdgeToleranceMask() { tolerance_.reset(); }
    void DeleteEdgeCapMask() { caps_.reset(); }
    void DeleteVertexRadiusMask() { radius_.reset(); }

    // The mesh's current numbers of graph edges and vertices (any storage kind).
    size_t GetNumberOfEdges() const;
    size_t GetNumberOfVertices() const;
    // Index of a graph edge or point of the mesh's Standard kind; SIZE_MAX for another's or null.
    size_t GetEdgeIndex(const MStlGraphEdge* edge) const;
    size_t GetVertexIndex(const MStlPoint* point) const;

protected:
    // The masks after the mesh changed: emptied when it lost its elements, grown when it gained some.
    void _ClearMasks();
    void _GrowEdgeMasks(size_t count);
    void _GrowVertexMask(size_t count);

private:
    const MStlBase& stl_;
    MStlGraphEdgeThickness defaultThickness_;
    int32_t defaultTolerance_ = 0;
    int32_t defaultCap_ = eStlGraphEdgeCapNone;
    int32_t defaultRadius_ = 0;
    std::unique_ptr<MStlEdgeThicknessMask> thickness_;
    std::unique_ptr<MStlEdgeToleranceMask> tolerance_;
    std::unique_ptr<MStlEdgeCapMask> caps_;
    std::unique_ptr<MStlVertexRadiusMask> radius_;
};

// The element information attached to a mesh. Its masks follow the mesh: they grow with the
// graph edges and points it adds and are emptied (staying defined) when it loses its elements.
class KELSDK_TRIANGLES_DATA_EXPORT MStlBaseElementInfoStlDependency : public MStlDependency,
                                                                      public MStlBaseElementInfo
{
public:
    explicit MStlBaseElementInfoStlDependency(MStlBase& stl);
    ~MStlBaseElementInfoStlDependency() override;
    static const char* DependencyKey() { return "KelSDK.Triangles.Data.MStlBaseElementInfo"; }

    // The mesh's element information; made (no masks, zero defaults) when create is true and it
    // has none, else null. Null for a null mesh.
    static MStlBaseElementInfoStlDependency* GetDependency(const MStlBase* stl, bool create);
    // Removes the mesh's element information, if any.
    static void DestroyInstance(MStlBase* stl);

    void OnClear(MStlBase& stl) override;
    void OnPointsAdded(MStlBase& stl, size_t first, size_t count) override;
    void OnGraphEdgesAdded(MStlBase& stl, size_t first, size_t count) override;
};
} // namespace KelSDK::Triangles::Data
