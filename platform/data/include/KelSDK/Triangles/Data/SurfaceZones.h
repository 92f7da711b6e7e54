// Surface zones of a mesh: sets of triangles and graph edges that tools treat alike, such as the
// no-support zone, where no support structure may touch the part.
#pragma once

#include <KelSDK/Triangles/Data/Export.h>
#include <KelSDK/Triangles/Data/MStlBaseIndexed.h>
#include <KelSDK/Triangles/Data/MStlDependency.h>
#include <KelSDK/Triangles/Data/MStlHybrid.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace KelSDK::Triangles::Data
{
class MStlBase;

// A set of triangles and a set of graph edges of one mesh, each kept in the order of adding.
// Members are given as MStlHybridEntity values: for the Standard kind the MStlTriangle or
// MStlGraphEdge object (a hybrid index is taken as well), for the Compact and OnDisk kinds the
// element's index. Membership tests take constant time; memory is one bit per element of the
// mesh up to the highest member plus four bytes per member. Not thread-safe.
class KELSDK_TRIANGLES_DATA_EXPORT SurfaceZone
{
public:
    explicit SurfaceZone(const MStlBase& stl) : indexed_(stl) {}

    // Adds a triangle of the mesh; false (nothing added) for another mesh's triangle or an index
    // outside the mesh. Adding a member again changes nothing and returns true.
    bool AddTriangle(const MStlHybridEntity& triangle);
    bool AddEdge(const MStlHybridEntity& edge);
    // Removes a member; false when it was none. Takes time in proportion to the zone's size.
    bool RemoveTriangle(const MStlHybridEntity& triangle);
    bool RemoveEdge(const MStlHybridEntity& edge);
    bool HasTriangle(const MStlHybridEntity& triangle) const;
    bool HasEdge(const MStlHybridEntity& edge) const;
    // Membership by element index.
    bool HasTriangleIndex(size_t index) const { return Test(triangleBits_, index); }
    bool HasEdgeIndex(size_t index) const { return Test(edgeBits_, index); }

    size_t GetNumberOfTriangles() const { return triangles_.size(); }
    size_t GetNumberOfEdges() const { return edges_.size(); }
    // The member indices in the order of adding.
    const std::vector<uint32_t>& TriangleIndices() const { return triangles_; }
    const std::vector<uint32_t>& EdgeIndices() const { return edges_; }
    // The member indices below count in ascending order.
    std::vector<uint32_t> SortedTriangleIndices(size_t count) const
    {
        return Ascending(triangleBits_, count);
    }
    std::vector<uint32_t> SortedEdgeIndices(size_t count) const { return Ascending(edgeBits_, count); }
    // Removes every member.
    void Clear();
    // Drops members whose element the mesh no longer has.
    void _ValidateHybridTriangles();

private:
    static bool Test(const std::vector<uint64_t>& bits, size_t index)
    {
        return index / 64 < bits.size() && ((bits[index / 64] >> (index % 64)) & 1u) != 0;
    }
    static std::vector<uint32_t> Ascending(const std::vector<uint64_t>& bits, size_t count);
    static bool Add(std::vector<uint32_t>& members, std::vector<uint64_t>& bits, size_t index);
    static bool Remove(std::vector<uint32_t>& members, std::vector<uint64_t>& bits, size_t index);

    MStlBaseIndexed indexed_;
    std::vector<uint32_t> triangles_;
    std::vector<uint32_t> edges_;
    std::vector<uint64_t> triangleBits_;
    std::vector<uint64_t> edgeBits_;
};

// The zones of one mesh. Only the no-support zone exists so far.
class KELSDK_TRIANGLES_DATA_EXPORT SurfaceZones
{
public:
    explicit SurfaceZones(const MStlBase& stl);
    virtual ~SurfaceZones();
    SurfaceZones(const SurfaceZones&) = delete;
    SurfaceZones& operator=(const SurfaceZones&) = delete;

    // Makes the no-support zone exist and be empty; returns it.
    SurfaceZone* InitNoSupportZone();
    // The no-support zone; made (empty) when create is true and there is none, else null.
    SurfaceZone* GetNoSupportZone(bool create);
    const SurfaceZone* GetNoSupportZone() const { return noSupport_.get(); }
    void RemoveNoSupportZone() { noSupport_.reset(); }

protected:
    // Empties every zone (the mesh lost its elements).
    void _ClearZones();

private:
    const MStlBase& stl_;
    std::unique_ptr<SurfaceZone> noSupport_;
};

// The surface zones attached to a mesh; emptied when the mesh loses its elements.
class KELSDK_TRIANGLES_DATA_EXPORT SurfaceZonesStlDependency : public MStlDependency, public SurfaceZones
{
public:
    explicit SurfaceZonesStlDependency(MStlBase& stl) : SurfaceZones(stl) {}
    ~SurfaceZonesStlDependency() override;
    static const char* DependencyKey() { return "KelSDK.Triangles.Data.SurfaceZones"; }

    // The mesh's zones, made (without zones) when it has none; null for a null mesh.
    static SurfaceZones* CreateInstance(MStlBase* stl);
    // The mesh's zones, or null.
    static SurfaceZones* GetInstance(const MStlBase* stl);
    // Removes the mesh's zones, if any.
    static void DestroyInstance(MStlBase* stl);

    void OnClear(MStlBase& stl) override;
};
} // namespace KelSDK::Triangles::Data
