#include "MStlFacetBox.h"
#include "MStlFileReaderTargetMemory.h"

#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/Math/BoundingBox.h>
#include <KelSDK/Math/Point.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlFileReaderTarget.h>

#include <tbb/parallel_sort.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <vector>

namespace KelSDK::Triangles::IO
{
using KelSDK::Math::point;
using namespace KelSDK::Triangles::Data;

namespace
{
// A point may be a corner of at most this many triangles of a Standard mesh.
constexpr uint64_t MaxTrianglesPerPoint = 65535;

// The corner k (0, 1, 2) of a facet.
inline const point<double, 3>& Corner(const MStlFileTriangle& facet, int k)
{
    return facet.GetVertex(k);
}

// Maps a corner onto the grid with the read transformation; false when it left the signed 32-bit
// range (the written values are then the transformation's clamped ones, used as they are).
class GridMapper
{
public:
    explicit GridMapper(const MStlReadTransformation& transformation) : transformation_(transformation) {}

    bool Map(const point<double, 3>& in, int32_t out[3]) const
    {
        point<int, 3> g;
        const bool inside = transformation_.Transform(in, g);
        out[0] = g[0];
        out[1] = g[1];
        out[2] = g[2];
        return inside;
    }

private:
    const MStlReadTransformation& transformation_;
};

// Corner record when the grid box of all corners fits a 64-bit key and there are fewer than 2^32
// corners: the key holds z, x, y relative to the box minimum, in that order from the top bits, so
// that ordering keys orders the positions by (z, x, y) as signed integers. 12 bytes.
struct PackedCorner
{
    uint32_t keyLow;
    uint32_t keyHigh;
    uint32_t corner;

    uint64_t Key() const { return (static_cast<uint64_t>(keyHigh) << 32) | keyLow; }
    friend bool operator<(const PackedCorner& a, const PackedCorner& b) { return a.Key() < b.Key(); }
};

// Corner record for any other input: the grid position and the 64-bit corner index. 24 bytes.
struct WideCorner
{
    int32_t x;
    int32_t y;
    int32_t z;
    uint64_t corner;

    friend bool operator<(const WideCorner& a, const WideCorner& b)
    {
        if (a.z != b.z)
            return a.z < b.z;
        if (a.x != b.x)
            return a.x < b.x;
        return a.y < b.y;
    }
};

// Shifts that give 0 for a shift by the full width (a plain shift by 64 is undefined).
inline uint64_t ShiftLeft(uint64_t v, unsigned bits)
{
    return bits >= 64 ? 0 : v << bits;
}
inline uint64_t ShiftRight(uint64_t v, unsigned bits)
{
    return bits >= 64 ? 0 : v >> bits;
}
inline uint64_t LowBits(uint64_t v, unsigned bits)
{
    return bits >= 64 ? v : v & ((uint64_t(1) << bits) - 1);
}

// Layout of the packed key: the grid box and the bit widths of the x and y offsets (z takes the
// top bits).
struct KeyLayout
{
    int32_t minimum[3] = {0, 0, 0};
    int32_t maximum[3] = {0, 0, 0};
    unsigned bitsX = 0;
    unsigned bitsY = 0;
    unsigned bitsZ = 0;

    bool Contains(const int32_t p[3]) const
    {
        return p[0] >= minimum[0] && p[0] <= maximum[0] && p[1] >= minimum[1] && p[1] <= maximum[1] &&
               p[2] >= minimum[2] && p[2] <= maximum[2];
    }
    uint64_t Encode(const int32_t p[3]) const
    {
        const uint64_t dx = static_cast<uint64_t>(static_cast<int64_t>(p[0]) - minimum[0]);
        const uint64_t dy = static_cast<uint64_t>(static_cast<int64_t>(p[1]) - minimum[1]);
        const uint64_t dz = static_cast<uint64_t>(static_cast<int64_t>(p[2]) - minimum[2]);
        return ShiftLeft(dz, bitsX + bitsY) | ShiftLeft(dx, bitsY) | dy;
    }
    std::array<int, 3> Decode(uint64_t key) const
    {
        const uint64_t dy = LowBits(key, bitsY);
        const uint64_t dx = LowBits(ShiftRight(key, bitsY), bitsX);
        const uint64_t dz = ShiftRight(key, bitsX + bitsY);
        return {static_cast<int>(minimum[0] + static_cast<int64_t>(dx)),
                static_cast<int>(minimum[1] + static_cast<int64_t>(dy)),
                static_cast<int>(minimum[2] + static_cast<int64_t>(dz))};
    }
};

unsigned BitsFor(uint64_t span)
{
    unsigned bits = 0;
    while (bits < 64 && (span >> bits) != 0)
        ++bits;
    return bits;
}

using Solids = std::vector<std::vector<MStlFileTriangle>>;

// The box of all corners in file coordinates; NaN values are left out (their corners overflow).

// The packed layout for a box of the corners, or false when its grid image needs more than 64 key
// bits or does not fit the integer range. Rounding (c + offset) * scale is monotonic in c on each
// axis, so the grid box is spanned by the images of the two box corners (in either order when the
// scale is negative).
bool PlanPackedLayout(const KelSDK::Math::boundingbox<double, 3>& box, const GridMapper& mapper,
                      KeyLayout& layout)
{
    if (box.IsEmpty())
        return false;
    int32_t gLo[3], gHi[3];
    if (!mapper.Map(box.GetMin(), gLo) || !mapper.Map(box.GetMax(), gHi))
        return false;
    unsigned bits[3];
    for (int a = 0; a < 3; ++a)
    {
        layout.minimum[a] = gLo[a] < gHi[a] ? gLo[a] : gHi[a];
        layout.maximum[a] = gLo[a] < gHi[a] ? gHi[a] : gLo[a];
        bits[a] = BitsFor(static_cast<uint64_t>(static_cast<int64_t>(layout.maximum[a]) - layout.minimum[a]));
    }
    layout.bitsX = bits[0];
    layout.bitsY = bits[1];
    layout.bitsZ = bits[2];
    return bits[0] + bits[1] + bits[2] <= 64;
}

// Packed records for all corners (corner index 3 f + k over all solids); false as soon as a
// corner leaves the integer range or the planned box (a box that was not measured on these facets
// or held NaN values), in which case the wide records must be used.
//
// The records are written grouped by the top bits of their keys (a counting pass, then a placing
// pass), so that the sort gets them nearly in order: its first partitioning levels then find
// every element already on the right side, and the comparisons there cost no mispredicted
// branches. The sort itself is unchanged and decides the final order.
bool FillPacked(const Solids& solids, const GridMapper& mapper, const KeyLayout& layout, PackedCorner* out)
{
    const unsigned totalBits = layout.bitsX + layout.bitsY + layout.bitsZ;
    const unsigned groupBits = totalBits < 10 ? totalBits : 10;
    const unsigned shift = totalBits - groupBits;
    std::vector<size_t> next((size_t(1) << groupBits) + 1, 0);
    for (const auto& solid : solids)
        for (const MStlFileTriangle& facet : solid)
            for (int k = 0; k < 3; ++k)
            {
                int32_t g[3];
                if (!mapper.Map(Corner(facet, k), g) || !layout.Contains(g))
                    return false;
                ++next[(layout.Encode(g) >> shift) + 1];
            }
    for (size_t i = 1; i < next.size(); ++i)
        next[i] += next[i - 1];
    uint32_t corner = 0;
    for (const auto& solid : solids)
        for (const MStlFileTriangle& facet : solid)
            for (int k = 0; k < 3; ++k, ++corner)
            {
                int32_t g[3];
                mapper.Map(Corner(facet, k), g);
                const uint64_t key = layout.Encode(g);
                PackedCorner& record = out[next[key >> shift]++];
                record.keyLow = static_cast<uint32_t>(key);
                record.keyHigh = static_cast<uint32_t>(key >> 32);
                record.corner = corner;
            }
    return true;
}

// Wide records for all corners; returns true when some corner overflowed.
bool FillWide(const Solids& solids, const GridMapper& mapper, WideCorner* out)
{
    bool overflow = false;
    uint64_t corner = 0;
    for (const auto& solid : solids)
        for (const MStlFileTriangle& facet : solid)
            for (int k = 0; k < 3; ++k, ++corner, ++out)
            {
                int32_t g[3];
                if (!mapper.Map(Corner(facet, k), g))
                    overflow = true;
                out->x = g[0];
                out->y = g[1];
                out->z = g[2];
                out->corner = corner;
            }
    return overflow;
}

inline bool SamePosition(const PackedCorner& a, const PackedCorner& b)
{
    return a.keyLow == b.keyLow && a.keyHigh == b.keyHigh;
}
inline bool SamePosition(const WideCorner& a, const WideCorner& b)
{
    return a.x == b.x && a.y == b.y && a.z == b.z;
}
inline std::array<int, 3> Position(const PackedCorner& r, const KeyLayout& layout)
{
    return layout.Decode(r.Key());
}
inline std::array<int, 3> Position(const WideCorner& r, const KeyLayout&)
{
    return {r.x, r.y, r.z};
}

// Result of the merge: the distinct positions in (z, x, y) order, every facet's three point
// indices (in a flat list over all solids, in corner order) and the most corners found at one
// position, which bounds the number of triangles of any point.
struct Merge
{
    std::vector<std::array<int, 3>> points;
    std::vector<std::array<size_t, 3>> corners;
    size_t largestRun = 0;
};

// Sorts the records by position and sweeps them once: each record that differs from the last
// opened point opens the next point, and the record's corner gets that point. The distinct
// positions are gathered in place at the front of the record array (the write position never
// passes the read position), so the point list is allocated once at its exact size.
template <typename Record>
void SortAndSweep(Record* records, size_t count, const KeyLayout& layout, Merge& merge)
{
    tbb::parallel_sort(records, records + count);
    merge.corners.reserve(count / 3);
    Detail::AdviseHugePages(merge.corners.data(), merge.corners.capacity() * sizeof(merge.corners[0]));
    merge.corners.resize(count / 3);
    size_t* corners = merge.corners.data()->data();
    size_t points = 0, run = 0, largest = 0;
    for (size_t i = 0; i < count; ++i)
    {
        if (points == 0 || !SamePosition(records[i], records[points - 1]))
        {
            records[points] = records[i];
            ++points;
            largest = run > largest ? run : largest;
            run = 0;
        }
        ++run;
        corners[records[i].corner] = points - 1;
    }
    merge.largestRun = run > largest ? run : largest;
    merge.points.reserve(points);
    Detail::AdviseHugePages(merge.points.data(), points * sizeof(merge.points[0]));
    for (size_t p = 0; p < points; ++p)
        merge.points.push_back(Position(records[p], layout));
}

// Records, sort and sweep; returns true when some corner overflowed.
bool MergeCorners(const Solids& solids, size_t facetCount, const KelSDK::Math::boundingbox<double, 3>& box,
                  const GridMapper& mapper, Merge& merge)
{
    const size_t count = 3 * facetCount;
    KeyLayout layout;
    if (facetCount <= std::numeric_limits<uint32_t>::max() / 3 && PlanPackedLayout(box, mapper, layout))
    {
        // Filled completely before use, so allocated without clearing.
        std::unique_ptr<PackedCorner[]> records(new PackedCorner[count]);
        Detail::AdviseHugePages(records.get(), count * sizeof(PackedCorner));
        if (FillPacked(solids, mapper, layout, records.get()))
        {
            SortAndSweep(records.get(), count, layout, merge);
            return false;
        }
    }
    std::unique_ptr<WideCorner[]> records(new WideCorner[count]);
    Detail::AdviseHugePages(records.get(), count * sizeof(WideCorner));
    const bool overflow = FillWide(solids, mapper, records.get());
    SortAndSweep(records.get(), count, layout, merge);
    return overflow;
}

// Splits the flat corner list into one triangle list per solid. A facet with two corners on the
// same point is marked in the degenerate bits and dropped. Uses of each point are counted against
// the limit only when some position holds more corners than the limit: a point cannot serve more
// triangles than it has corners, so below that no count could exceed it. A single solid keeps the
// flat list itself, compacted in place.
std::vector<std::vector<std::array<size_t, 3>>> SplitIntoSolids(const Solids& solids, Merge& merge,
                                                                std::vector<uint32_t>& degenerate)
{
    const bool countUses = merge.largestRun > MaxTrianglesPerPoint;
    std::vector<uint64_t> uses(countUses ? merge.points.size() : 0, 0);
    std::vector<std::vector<std::array<size_t, 3>>> triangles(solids.size());
    std::vector<std::array<size_t, 3>>& all = merge.corners;
    size_t f = 0;
    for (size_t s = 0; s < solids.size(); ++s)
    {
        const bool inPlace = solids.size() == 1;
        auto& list = inPlace ? all : triangles[s];
        if (!inPlace)
            list.reserve(solids[s].size());
        size_t kept = 0;
        const size_t end = f + solids[s].size();
        for (; f < end; ++f)
        {
            const std::array<size_t, 3> t = all[f];
            if (t[0] == t[1] || t[0] == t[2] || t[1] == t[2])
            {
                degenerate[f >> 5] |= uint32_t(1) << (f & 31);
                continue;
            }
            if (countUses && (++uses[t[0]] > MaxTrianglesPerPoint || ++uses[t[1]] > MaxTrianglesPerPoint ||
                              ++uses[t[2]] > MaxTrianglesPerPoint))
                throw std::runtime_error("too many neighbours");
            if (inPlace)
                all[kept++] = t;
            else
                list.push_back(t);
        }
        if (inPlace)
        {
            all.resize(kept);
            triangles[0] = std::move(all);
        }
    }
    return triangles;
}

// The surface that a Compact or OnDisk store fills: the mesh's first one, made when there is none.
MStlSurface* FirstSurface(MStlBase& mesh)
{
    MStlSurfaceList& surfaces = mesh.GetSurfaceList();
    if (surfaces.GetNumSurfaces(false) == 0)
        surfaces.AddNewSurface(nullptr);
    return surfaces.GetSurface(0);
}

// Feeds the facets to a Compact or OnDisk store in file order: each corner mapped onto the grid
// and handed to addVertex(g), which returns its vertex index, then addFacet(v, facet) with the
// three indices. Returns true when a corner lay outside the grid.
template <typename AddVertex, typename AddFacet>
bool FeedStore(const Solids& solids, const GridMapper& mapper, AddVertex addVertex, AddFacet addFacet)
{
    bool overflow = false;
    for (const auto& solid : solids)
        for (const MStlFileTriangle& facet : solid)
        {
            unsigned v[3];
            for (int k = 0; k < 3; ++k)
            {
                int32_t g[3];
                if (!mapper.Map(Corner(facet, k), g))
                    overflow = true;
                v[k] = addVertex(g);
            }
            addFacet(v, facet);
        }
    return overflow;
}
} // namespace

void MStlFileReaderTarget::Convert(MStlBase& mesh, const std::vector<std::vector<MStlFileTriangle>>& solids,
                                   const std::vector<std::string>& solidNames,
                                   const MStlReadTransformation& transformation, bool withColors)
{
    _Convert(mesh, solids, solidNames, transformation, withColors, nullptr);
}

void MStlFileReaderTarget::Convert(MStlBase& mesh, const std::vector<std::vector<MStlFileTriangle>>& solids,
                                   const std::vector<std::string>& solidNames,
                                   const MStlReadTransformation& transformation, bool withColors,
                                   const KelSDK::Math::boundingbox<double, 3>& cornerBox)
{
    _Convert(mesh, solids, solidNames, transformation, withColors, &cornerBox);
}

void MStlFileReaderTarget::_Convert(MStlBase& mesh, const std::vector<std::vector<MStlFileTriangle>>& solids,
                                    const std::vector<std::string>& solidNames,
                                    const MStlReadTransformation& transformation, bool withColors,
                                    const KelSDK::Math::boundingbox<double, 3>* cornerBox)
{
    switch (static_cast<int>(mesh.GetStlHybrid().GetState()))
    {
    case 0:
        _ConvertStandard(mesh, solids, solidNames, transformation, withColors, cornerBox);
        return;
    case 1:
        _ConvertCompact(mesh, solids, transformation, withColors);
        return;
    case 2:
        _ConvertOnDisk(mesh, solids, transformation, withColors);
        return;
    default:
        error_ = true;
        return;
    }
}

void MStlFileReaderTarget::_ConvertStandard(MStlBase& mesh,
                                            const std::vector<std::vector<MStlFileTriangle>>& solids,
                                            const std::vector<std::string>& solidNames,
                                            const MStlReadTransformation& transformation, bool withColors,
                                            const KelSDK::Math::boundingbox<double, 3>* cornerBox)
{
    overflow_ = false;
    size_t facetCount = 0;
    for (const auto& solid : solids)
        facetCount += solid.size();
    if (facetCount == 0)
        return;

    const GridMapper mapper(transformation);
    std::vector<uint32_t> degenerate((facetCount + 31) / 32, 0);
    std::vector<std::array<int, 3>> points;
    std::vector<std::vector<std::array<size_t, 3>>> triangles;
    {
        Merge merge;
        overflow_ = MergeCorners(solids, facetCount, cornerBox ? *cornerBox : MeasureFacetCorners(solids),
                                 mapper, merge);
        triangles = SplitIntoSolids(solids, merge, degenerate);
        points = std::move(merge.points);
    }

    // One surface per solid: the main surface for the first, a new one for each further name.
    std::vector<MStlSurface*> surfaces;
    surfaces.reserve(solidNames.size());
    for (size_t s = 0; s < solidNames.size(); ++s)
    {
        MStlSurface* surface = s == 0 ? mesh.GetMainSurface() : mesh.AddSurface(nullptr);
        surface->SetName(KelSDK::Common::StringConversion::LocaleToNative(solidNames[s].c_str()));
        surfaces.push_back(surface);
    }

    // Create makes every triangle without a colour of its own, which is what a read without
    // colours asks for; the created triangles are only needed to colour them.
    if (!withColors)
    {
        mesh.Create(std::move(points), std::move(triangles), &surfaces, nullptr, nullptr);
        return;
    }
    std::vector<MStlTriangle*> created;
    mesh.Create(std::move(points), std::move(triangles), &surfaces, nullptr, &created);
    size_t next = 0;
    size_t f = 0;
    for (const auto& solid : solids)
        for (const MStlFileTriangle& facet : solid)
        {
            const bool dropped = (degenerate[f >> 5] >> (f & 31)) & 1u;
            ++f;
            if (dropped || next >= created.size())
                continue;
            created[next++]->SetColor(MStlColor::ConvertFrom16BitValue(facet.GetAttribute()));
        }
}

void MStlFileReaderTarget::_ConvertCompact(MStlBase& mesh,
                                           const std::vector<std::vector<MStlFileTriangle>>& solids,
                                           const MStlReadTransformation& transformation, bool withColors)
{
    MStlCompactHybrid* store = mesh.GetStlHybrid().GetStlCompact();
    if (store == nullptr)
    {
        error_ = true;
        return;
    }
    store->EnableVertexSharing(false);
    store->BeginAdding();
    store->SetCurrentSurface(FirstSurface(mesh));

    MStlTriangleColorMask* mask = nullptr;
    if (withColors)
    {
        MStlColorMasks& masks = mesh.GetColorMasks();
        if (masks.GetMainTriangleColorMask() == nullptr)
            masks.CreateMainTriangleColorMask();
        mask = masks.GetMainTriangleColorMask();
    }

    overflow_ = FeedStore(
        solids, GridMapper(transformation),
        [store](const int32_t(&g)[3]) { return store->AddVertexIE(g[0], g[1], g[2]); },
        [store, mask](const unsigned(&v)[3], const MStlFileTriangle& facet)
        {
            const size_t triangle = store->AddTriangle(v[0], v[1], v[2]);
            if (mask != nullptr && triangle != MStlInvalidIndex)
                mask->SetInfo(triangle, MStlColor::ConvertFrom16BitValue(facet.GetAttribute()));
        });
    store->UpdateParentBoundingBox();
}

void MStlFileReaderTarget::_ConvertOnDisk(MStlBase& mesh,
                                          const std::vector<std::vector<MStlFileTriangle>>& solids,
                                          const MStlReadTransformation& transformation, bool withColors)
{
    MStlOnDisk* store = mesh.GetStlHybrid().GetStlOnDisk();
    if (store == nullptr)
    {
        error_ = true;
        return;
    }
    store->OpenWrite(false);
    store->StartAddingVertices();
    store->StartAddingSurfaceTriangles(FirstSurface(mesh));
    if (withColors)
        store->StartAddingTriangleColors();

    overflow_ = FeedStore(
        solids, GridMapper(transformation),
        [store](const int32_t(&g)[3]) { return store->AddVertex(g[0], g[1], g[2]); },
        [store, withColors](const unsigned(&v)[3], const MStlFileTriangle& facet)
        {
            store->AddSurfaceTriangle(v[0], v[1], v[2]);
            if (withColors)
                store->AddColor(MStlColor::ConvertFrom16BitValue(facet.GetAttribute()));
        });
    store->UpdateParentBoundingBox();
    store->Close();
}
} // namespace KelSDK::Triangles::IO
