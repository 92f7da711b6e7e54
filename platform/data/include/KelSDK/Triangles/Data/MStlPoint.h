// Points of the Standard storage kind and the point list that keeps them in creation order.
#pragma once

#include <KelSDK/Triangles/Data/Export.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace KelSDK::Triangles::Data
{
class MStlBase;
class MStlPointList;

// A mesh vertex on the integer grid. Points live in bulk-allocated blocks owned by the mesh:
// their addresses stay valid until the mesh is cleared or destroyed.
class KELSDK_TRIANGLES_DATA_EXPORT MStlPoint
{
public:
    // Flag bits of GetFlags(): bit 0 is the user-defined mark, bits 8 to 31 are free for callers.
    static constexpr uint32_t FlagUserDefined = 1u;
    static constexpr uint32_t FlagFirstUserBit = 1u << 8;

    MStlPoint() = default;
    MStlPoint(int x, int y, int z) : x_(x), y_(y), z_(z) {}

    int GetX() const { return x_; }
    int GetY() const { return y_; }
    int GetZ() const { return z_; }
    // Coordinate by axis 0, 1, 2 (any other axis gives z).
    int Get(int axis) const { return axis == 0 ? x_ : (axis == 1 ? y_ : z_); }
    // Writes x, y, z as doubles to xyz[0..2].
    void Get(double* xyz) const;
    // Writes x, y, z to xyz[0..2].
    void Get(int* xyz) const;
    // Moves the point. A point in a sorted point list must be re-sorted afterwards
    // (MStlPointList::EnableSorting), or FindPoint may miss it.
    void Set(int x, int y, int z)
    {
        x_ = x;
        y_ = y;
        z_ = z;
    }

    // True when the user-defined mark is set; with anyUserFlag also when any bit from
    // FlagFirstUserBit upwards is set.
    bool IsUserDefined(bool anyUserFlag) const;
    // Sets or clears the user-defined mark.
    void SetUserDefined(bool userDefined);
    uint32_t GetFlags() const { return flags_; }
    void SetFlags(uint32_t flags) { flags_ = flags; }

    // The next point of the mesh's point list, or null after the last one.
    MStlPoint* GetNext() const { return next_; }

    // Exact lexicographic order by (z, x, y): the order of the sorted point index.
    static bool LessZXY(const MStlPoint& a, const MStlPoint& b)
    {
        if (a.z_ != b.z_)
            return a.z_ < b.z_;
        if (a.x_ != b.x_)
            return a.x_ < b.x_;
        return a.y_ < b.y_;
    }

private:
    friend class MStlPointList;
    friend class MStlBase;
    friend class MStlBaseImpl;

    int x_ = 0;
    int y_ = 0;
    int z_ = 0;
    uint32_t flags_ = 0;
    MStlPoint* next_ = nullptr;
};

// The points of a mesh in creation order (GetFirstPoint / MStlPoint::GetNext), with an optional
// index sorted by (z, x, y) for exact look-up. Sorting can be switched off during bulk creation
// and switched on again afterwards, which rebuilds the index once.
class KELSDK_TRIANGLES_DATA_EXPORT MStlPointList
{
public:
    MStlPointList(const MStlPointList&) = delete;
    MStlPointList& operator=(const MStlPointList&) = delete;

    // The first point of the list, or null when the mesh has no points.
    MStlPoint* GetFirstPoint() const { return first_; }
    // The last point of the list, or null when the mesh has no points.
    MStlPoint* GetLastPoint() const { return last_; }
    // Number of points in the list.
    size_t GetNumPoints() const { return count_; }

    // Stops maintaining the sorted index (new points are not indexed; FindPoint returns null).
    void DisableSorting();
    // Maintains the sorted index again. assumeSorted: the caller guarantees that the list order is
    // already (z, x, y) order, so the index is built without sorting (checked; a wrong guess falls
    // back to sorting). buildNow: build the index at once instead of at the next look-up.
    void EnableSorting(bool assumeSorted, bool buildNow);
    // True while the sorted index is maintained.
    bool IsSortingEnabled() const { return sortingEnabled_; }

    // A point at exactly (x, y, z), or null when there is none or sorting is disabled. With
    // several points at the same position one of them is returned.
    MStlPoint* FindPoint(int x, int y, int z) const;

    // Position of a point of this list in list order (0-based), or SIZE_MAX for a foreign point.
    size_t GetIndexOfPoint(const MStlPoint* point) const;
    // The point at a list position, or null when out of range.
    MStlPoint* GetPointWithIndex(size_t index) const;

private:
    friend class MStlBase;
    friend class MStlBaseImpl;
    explicit MStlPointList(MStlBase& owner) : owner_(owner) {}

    void _Append(MStlPoint* first, MStlPoint* last, size_t count);
    void _Clear();
    void _IndexNewPoints(MStlPoint* first, size_t count, bool sortedRun);
    void _RebuildIndex(bool assumeSorted) const;
    void _AddRun(std::vector<MStlPoint*> run) const;

    MStlBase& owner_;
    MStlPoint* first_ = nullptr;
    MStlPoint* last_ = nullptr;
    size_t count_ = 0;
    bool sortingEnabled_ = true;
    // The sorted index: sorted runs whose sizes shrink geometrically (a small number of binary
    // searches per look-up, amortised logarithmic insertion), and a short unsorted list of the
    // newest points that look-ups scan.
    mutable std::vector<std::vector<MStlPoint*>> runs_;
    mutable std::vector<MStlPoint*> fresh_;
    mutable bool indexBuilt_ = true;
};
} // namespace KelSDK::Triangles::Data
