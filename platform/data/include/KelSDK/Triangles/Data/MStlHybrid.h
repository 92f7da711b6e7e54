// Storage kinds of a mesh: Standard (linked points and triangles, MStlBase itself), Compact (flat
// arrays in memory) and OnDisk (temporary files), with MStlHybrid as the uniform access to all three.
#pragma once

#include <KelSDK/Triangles/Data/Export.h>
#include <KelSDK/Triangles/Data/MStlColor.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace KelSDK::Triangles::Data
{
class MStlBase;
class MStlSurface;
class MStlTriangle;
class MStlGraphEdge;

// Storage kind of a mesh; the values are stored in files.
enum MStlHybridState : int
{
    eStlStandard = 0,
    eStlCompact = 1,
    eStlOnDisk = 2
};

// Index value returned by the adding operations on failure.
constexpr unsigned MStlInvalidVertex = 0xFFFFFFFFu;
constexpr size_t MStlInvalidIndex = SIZE_MAX;

// A vertex of the Compact kind.
class KELSDK_TRIANGLES_DATA_EXPORT MVertex
{
public:
    MVertex() = default;
    MVertex(int x, int y, int z) : xyz_{x, y, z} {}
    int GetX() const { return xyz_[0]; }
    int GetY() const { return xyz_[1]; }
    int GetZ() const { return xyz_[2]; }
    const std::array<int, 3>& Get() const { return xyz_; }

private:
    std::array<int, 3> xyz_{};
};

// An element of any storage kind: a Standard-kind triangle or graph edge by pointer, or a
// Compact/OnDisk element by its index in the store.
struct KELSDK_TRIANGLES_DATA_EXPORT MStlHybridEntity
{
    const void* element = nullptr; // MStlTriangle* or MStlGraphEdge* for the Standard kind
    size_t index = MStlInvalidIndex;
    bool isHybrid = false; // true: index is valid; false: element is valid

    static MStlHybridEntity FromTriangle(const MStlTriangle* t) { return {t, MStlInvalidIndex, false}; }
    static MStlHybridEntity FromEdge(const MStlGraphEdge* e) { return {e, MStlInvalidIndex, false}; }
    static MStlHybridEntity FromIndex(size_t i) { return {nullptr, i, true}; }
    friend bool operator==(const MStlHybridEntity& a, const MStlHybridEntity& b)
    {
        return a.isHybrid == b.isHybrid && (a.isHybrid ? a.index == b.index : a.element == b.element);
    }
    friend bool operator!=(const MStlHybridEntity& a, const MStlHybridEntity& b) { return !(a == b); }
};

// Compact kind: vertices, index triples, surface per triangle and graph edges in flat arrays.
// Triangle colours live in the mesh's colour masks (MStlColorMasks) by triangle index.
class KELSDK_TRIANGLES_DATA_EXPORT MStlCompact
{
public:
    MStlCompact();
    virtual ~MStlCompact();
    MStlCompact(const MStlCompact&) = delete;
    MStlCompact& operator=(const MStlCompact&) = delete;

    // Virtual adding protocol, in this order: begin adding, choose the surface of the following
    // triangles, add triangles by vertex index.
    // Prepares for adding (nothing is removed).
    virtual void BeginAdding();
    // Surface of the triangles added from now on (null: no surface).
    virtual void SetCurrentSurface(MStlSurface* surface);
    // Appends a triangle; returns its index, or MStlInvalidIndex (nothing added) when a vertex
    // index is out of range.
    virtual size_t AddTriangle(unsigned i0, unsigned i1, unsigned i2);

    // When enabled, AddVertex merges exact positions like AddVertexIE; when disabled it appends.
    void EnableVertexSharing(bool enable) { shareVertices_ = enable; }
    bool IsVertexSharingEnabled() const { return shareVertices_; }
    // Appends a vertex (or, with sharing enabled, returns an existing one at the position).
    unsigned AddVertex(int x, int y, int z);
    // The index of a vertex at exactly (x, y, z), appending one when there is none.
    unsigned AddVertexIE(int x, int y, int z);
    // Appends vertices at distinct positions that the store does not hold yet, as bulk loading
    // knows them to be; their indices run on from GetNumVertices(). The same store as AddVertexIE
    // for each, without a look-up per vertex. False (nothing added) beyond 32-bit indices.
    bool AddNewVertices(const std::array<int, 3>* positions, size_t count);
    // Reserves room for the given numbers of vertices and triangles.
    void Reserve(size_t vertices, size_t triangles);

    size_t GetNumVertices() const { return vertices_.size(); }
    size_t GetNumTriangles() const { return triangles_.size(); }
    // The vertex at an index (0, 0, 0 when out of range).
    MVertex GetVertex(size_t index) const;
    // The vertex indices of a triangle; false when the index is out of range.
    bool GetTriangle(size_t index, unsigned& i0, unsigned& i1, unsigned& i2) const;
    // The surface of a triangle, or null.
    MStlSurface* GetTriangleSurface(size_t index) const;

    // Graph edges between two vertices; AddEdge returns the edge index or MStlInvalidIndex.
    size_t AddEdge(unsigned i0, unsigned i1);
    size_t GetNumberOfEdges() const { return edges_.size(); }
    bool GetEdge(size_t index, unsigned& i0, unsigned& i1) const;

    // Smallest and largest coordinate per axis (min x, max x, min y, max y, min z, max z);
    // false (and zeros) when there is no vertex.
    bool GetExtremes(int (&extremes)[6]) const;
    // Removes every vertex, triangle and edge.
    virtual void Clear();
    // When the current surface is this one, triangles added from now on go to replacement.
    void ForgetSurface(const MStlSurface* surface, MStlSurface* replacement);

protected:
    struct Index;

    std::vector<std::array<int, 3>> vertices_;
    std::vector<std::array<uint32_t, 3>> triangles_;
    std::vector<uint32_t> triangleSurfaces_; // position in surfaces_
    std::vector<MStlSurface*> surfaces_;
    std::vector<std::array<uint32_t, 2>> edges_;
    uint32_t currentSurface_ = 0;
    bool shareVertices_ = true;
    std::unique_ptr<Index> index_;
};

// The Compact store of a mesh: an MStlCompact that knows its mesh.
class KELSDK_TRIANGLES_DATA_EXPORT MStlCompactHybrid : public MStlCompact
{
public:
    explicit MStlCompactHybrid(MStlBase* parent) : parent_(parent) {}
    ~MStlCompactHybrid() override;
    // Sets the mesh's bounding box from the store's vertices.
    void UpdateParentBoundingBox();
    MStlBase* GetParent() const { return parent_; }

private:
    MStlBase* parent_;
};

// OnDisk kind: vertices (3 x int32), triangles (3 x uint32) and colours (uint32 each) in three
// temporary files owned by the store and removed with it (on POSIX unlinked as soon as they are
// created). Written sequentially between OpenWrite and Close, read by index between OpenRead and
// Close. Exact vertex positions are shared through an in-memory hash index, the only part of
// the store whose memory grows with the mesh.
class KELSDK_TRIANGLES_DATA_EXPORT MStlOnDisk
{
public:
    explicit MStlOnDisk(MStlBase* parent);
    ~MStlOnDisk();
    MStlOnDisk(const MStlOnDisk&) = delete;
    MStlOnDisk& operator=(const MStlOnDisk&) = delete;

    // Opens for writing; append false empties the store first. False when a file cannot be created.
    bool OpenWrite(bool append);
    // Opens for reading (finishing any writing); false when the files cannot be read.
    bool OpenRead();
    // Ends writing or reading, flushing written data; false when a write failed.
    bool Close();
    bool IsOpenForWriting() const;
    bool IsOpenForReading() const;

    // Marks the start of the vertex block (vertices may also follow triangles).
    void StartAddingVertices();
    // Triangles added from now on belong to this surface.
    void StartAddingSurfaceTriangles(MStlSurface* surface);
    // Colours added from now on belong to the triangles in order, from the first without one.
    void StartAddingTriangleColors();
    // When enabled (the default), AddVertex returns an existing vertex at the same position.
    void EnableVertexSharing(bool enable);
    bool IsVertexSharingEnabled() const;
    // Adds a vertex (or finds it); MStlInvalidVertex when not open for writing or a write failed.
    unsigned AddVertex(int x, int y, int z);
    // Appends vertices at distinct positions that the store does not hold yet, as bulk loading
    // knows them to be; their indices run on from GetNumVertices(). The same store as AddVertex for
    // each, without a look-up per vertex. False when not open for writing, a write failed, or
    // beyond 32-bit indices.
    bool AddNewVertices(const std::array<int, 3>* positions, size_t count);
    // Adds a triangle; MStlInvalidIndex when not open for writing or an index is out of range.
    size_t AddSurfaceTriangle(unsigned i0, unsigned i1, unsigned i2);
    // Adds the colour of the next triangle; false when not open for writing.
    bool AddColor(const MStlColor& color);
    // Sets the mesh's bounding box from the extremes of the added vertices.
    void UpdateParentBoundingBox();

    size_t GetNumVertices() const;
    size_t GetNumTriangles() const;
    size_t GetNumColors() const;
    // Reads a vertex; false when the store is closed or out of range. sequential tells that the
    // reads go on in index order; the block cache serves both patterns alike, so it changes nothing.
    bool GetVertex(size_t index, int& x, int& y, int& z, bool sequential) const;
    // Reads a triangle; false when the store is closed or out of range.
    bool GetTriangle(size_t index, unsigned& i0, unsigned& i1, unsigned& i2) const;
    // Colour of a triangle; undefined when none was added for it or the store is closed.
    MStlColor GetColor(size_t index) const;
    // The surface of a triangle, or null.
    MStlSurface* GetTriangleSurface(size_t index) const;
    // Extremes as MStlCompact::GetExtremes.
    bool GetExtremes(int (&extremes)[6]) const;
    // Empties the store (the files are truncated; the store stays closed).
    void Clear();
    // When the current surface is this one, triangles added from now on go to replacement.
    void ForgetSurface(const MStlSurface* surface, MStlSurface* replacement);
    // Bytes held by the vertex-sharing index (the part of the store that grows with the mesh).
    size_t GetSharingIndexBytes() const;

private:
    struct Impl;
    MStlBase* parent_;
    std::unique_ptr<Impl> impl_;
};

// Uniform access to the storage of a mesh, whichever its kind. Indices run over vertices and
// triangles in the store's order: for the Standard kind the point list order and the triangle
// iteration order of the mesh.
class KELSDK_TRIANGLES_DATA_EXPORT MStlHybrid
{
public:
    explicit MStlHybrid(MStlBase* parent);
    ~MStlHybrid();
    MStlHybrid(const MStlHybrid&) = delete;
    MStlHybrid& operator=(const MStlHybrid&) = delete;

    MStlHybridState GetState() const { return state_; }
    // Switches the storage kind; the mesh is emptied (ClearStl(false)) even when the kind stays.
    // False (nothing changed) for a value that is not a known kind.
    bool SetState(MStlHybridState state);

    size_t GetNumVertices() const;
    size_t GetNumTriangles() const;
    size_t GetNumberOfEdges() const;
    // Whether equal vertex positions are shared (the Compact and OnDisk stores merge them on
    // AddVertex when set). True by default.
    bool GetVerticesShared() const;
    void SetVerticesShared(bool shared);

    // Prepares index access (opens the OnDisk files for reading); false when that fails.
    bool OpenRead() const;
    // Ends index access or adding; false when an OnDisk write failed.
    bool Close() const;
    // Vertex indices of a triangle; false when out of range or not readable.
    bool GetTriangle(size_t index, unsigned& i0, unsigned& i1, unsigned& i2) const;
    // Coordinates of a vertex; false when out of range or not readable.
    bool GetVertex(size_t index, int& x, int& y, int& z) const;
    // Surface of a triangle, or null.
    MStlSurface* GetTriangleSurface(size_t index) const;
    // Prepares colour access; false when the store holds no triangle colours.
    bool StartGettingTriangleColors() const;
    // Colour of a triangle (undefined when it has none).
    MStlColor GetColor(size_t index) const;

    // Prepares adding vertices (the OnDisk store is opened for appending when not open).
    bool StartAddingVertices();
    // Adds a vertex and returns its index (MStlInvalidVertex on failure). The Standard kind
    // always appends a point; the others merge positions while GetVerticesShared() holds.
    unsigned AddVertex(int x, int y, int z);
    // Triangles added from now on go to this surface (null: the main surface).
    bool StartAddingTriangles(MStlSurface* surface);
    // Adds a triangle by vertex indices; MStlInvalidIndex when an index is out of range.
    size_t AddTriangle(unsigned i0, unsigned i1, unsigned i2);
    // Colours added from now on go to the triangles in index order, starting at the first.
    bool StartAddingTriangleColors();
    // Sets the colour of the next triangle; false when there is no such triangle.
    bool AddColor(const MStlColor& color);

    // The Compact store, or null unless the kind is Compact.
    MStlCompactHybrid* GetStlCompact() const { return compact_.get(); }
    // The OnDisk store, or null unless the kind is OnDisk.
    MStlOnDisk* GetStlOnDisk() const { return onDisk_.get(); }
    // Sets the mesh's bounding box from the store.
    void UpdateParentBoundingBox();
    MStlBase* GetStl() const { return parent_; }

private:
    friend class MStlBase;
    friend class MStlFeature;
    void _Clear();
    // True when a triangle of the Compact or OnDisk store lies on the surface.
    bool _UsesSurface(const MStlSurface* surface) const;
    // Stops adding to a surface that is going away.
    void _ForgetSurface(const MStlSurface* surface);

    MStlBase* parent_;
    MStlHybridState state_ = eStlStandard;
    bool verticesShared_ = true;
    std::unique_ptr<MStlCompactHybrid> compact_;
    std::unique_ptr<MStlOnDisk> onDisk_;
    MStlSurface* addSurface_ = nullptr;
    size_t addColor_ = 0;
};
} // namespace KelSDK::Triangles::Data
