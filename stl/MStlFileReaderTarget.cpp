#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/Math/Point.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlFileReaderTarget.h>

#include <tbb/parallel_sort.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
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

// Layout of the packed key: the box minimum and the bit widths of the x and y offsets (z takes the
// top bits).
struct KeyLayout
{
    int32_t minimum[3] = {0, 0, 0};
    unsigned bitsX = 0;
    unsigned bitsY = 0;

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

// The packed layout for the grid box of all corners, or false when the box needs more than 64
// key bits (or some corner does not map into the integer range).
bool PlanPackedLayout(const std::vector<std::vector<MStlFileTriangle>>& solids, const GridMapper& mapper,
                      KeyLayout& layout)
{
    double lo[3] = {std::numeric_limits<double>::max(), std::numeric_limits<double>::max(),
                    std::numeric_limits<double>::max()};
    double hi[3] = {std::numeric_limits<double>::lowest(), std::numeric_limits<double>::lowest(),
                    std::numeric_limits<double>::lowest()};
    bool allNumbers = true;
    for (const auto& solid : solids)
        for (const MStlFileTriangle& facet : solid)
            for (int k = 0; k < 3; ++k)
            {
                const point<double, 3>& c = Corner(facet, k);
                for (int a = 0; a < 3; ++a)
                {
                    const double v = c[a];
                    allNumbers = allNumbers && v == v;
                    lo[a] = v < lo[a] ? v : lo[a];
                    hi[a] = v > hi[a] ? v : hi[a];
                }
            }
    if (!allNumbers)
        return false;
    // Rounding (c + offset) * scale is monotonic in c on each axis, so the grid box is spanned by
    // the grid images of the two box corners (in either order when the scale is negative).
    int32_t gLo[3], gHi[3];
    if (!mapper.Map(point<double, 3>(lo[0], lo[1], lo[2]), gLo) ||
        !mapper.Map(point<double, 3>(hi[0], hi[1], hi[2]), gHi))
        return false;
    unsigned bits[3];
    for (int a = 0; a < 3; ++a)
    {
        const int32_t mn = gLo[a] < gHi[a] ? gLo[a] : gHi[a];
        const int32_t mx = gLo[a] < gHi[a] ? gHi[a] : gLo[a];
        layout.minimum[a] = mn;
        bits[a] = BitsFor(static_cast<uint64_t>(static_cast<int64_t>(mx) - mn));
    }
    layout.bitsX = bits[0];
    layout.bitsY = bits[1];
    return bits[0] + bits[1] + bits[2] <= 64;
}

// The shared-vertex merge: distinct positions in (z, x, y) order and, for every corner, the index
// of its position. CornerIndex is uint32_t whenever there are fewer than 2^32 corners.
template <typename CornerIndex> struct Merge
{
    std::vector<std::array<int, 3>> points;
    std::vector<CornerIndex> pointOfCorner;
};

// Sorts the records by position and sweeps them once. The distinct keys are collected in place at
// the front of the record array (the write position never passes the read position), so the
// point list is allocated once at its exact size.
template <typename CornerIndex>
void SortAndSweep(std::vector<PackedCorner>& records, const KeyLayout& layout, Merge<CornerIndex>& merge)
{
    tbb::parallel_sort(records.begin(), records.end());
    merge.pointOfCorner.resize(records.size());
    CornerIndex* map = merge.pointOfCorner.data();
    size_t count = 0;
    uint64_t last = 0;
    for (size_t i = 0; i < records.size(); ++i)
    {
        const uint64_t key = records[i].Key();
        if (i == 0 || key != last)
        {
            records[count].keyLow = records[i].keyLow;
            records[count].keyHigh = records[i].keyHigh;
            ++count;
            last = key;
        }
        map[records[i].corner] = static_cast<CornerIndex>(count - 1);
    }
    merge.points.resize(count);
    for (size_t p = 0; p < count; ++p)
        merge.points[p] = layout.Decode(records[p].Key());
}

template <typename CornerIndex> void SortAndSweep(std::vector<WideCorner>& records, Merge<CornerIndex>& merge)
{
    tbb::parallel_sort(records.begin(), records.end());
    merge.pointOfCorner.resize(records.size());
    CornerIndex* map = merge.pointOfCorner.data();
    size_t count = 0;
    for (size_t i = 0; i < records.size(); ++i)
    {
        const WideCorner& r = records[i];
        if (count == 0 || r.x != records[count - 1].x || r.y != records[count - 1].y ||
            r.z != records[count - 1].z)
        {
            records[count].x = r.x;
            records[count].y = r.y;
            records[count].z = r.z;
            ++count;
        }
        map[r.corner] = static_cast<CornerIndex>(count - 1);
    }
    merge.points.resize(count);
    for (size_t p = 0; p < count; ++p)
        merge.points[p] = {records[p].x, records[p].y, records[p].z};
}

// Builds the corner records (corner index 3 f + k over all solids), sorts and sweeps them.
// Returns true when some corner overflowed.
template <typename CornerIndex>
bool MergeCorners(const std::vector<std::vector<MStlFileTriangle>>& solids, size_t facetCount,
                  const GridMapper& mapper, Merge<CornerIndex>& merge)
{
    bool overflow = false;
    KeyLayout layout;
    if (facetCount <= std::numeric_limits<uint32_t>::max() / 3 && PlanPackedLayout(solids, mapper, layout))
    {
        std::vector<PackedCorner> records(3 * facetCount);
        PackedCorner* out = records.data();
        uint32_t corner = 0;
        for (const auto& solid : solids)
            for (const MStlFileTriangle& facet : solid)
                for (int k = 0; k < 3; ++k, ++corner, ++out)
                {
                    int32_t g[3];
                    // Every corner lies inside the planned box: the box was measured on the same
                    // values and no corner can overflow when its corners did not.
                    mapper.Map(Corner(facet, k), g);
                    const uint64_t key = layout.Encode(g);
                    out->keyLow = static_cast<uint32_t>(key);
                    out->keyHigh = static_cast<uint32_t>(key >> 32);
                    out->corner = corner;
                }
        SortAndSweep(records, layout, merge);
        return overflow;
    }
    std::vector<WideCorner> records(3 * facetCount);
    WideCorner* out = records.data();
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
    SortAndSweep(records, merge);
    return overflow;
}

// The triangles of each solid as point-index triples; a facet with two corners on the same point
// is marked in the degenerate bits and dropped.
template <typename CornerIndex>
std::vector<std::vector<std::array<size_t, 3>>>
BuildTriangles(const std::vector<std::vector<MStlFileTriangle>>& solids, const Merge<CornerIndex>& merge,
               std::vector<uint32_t>& degenerate)
{
    std::vector<uint64_t> uses(merge.points.size(), 0);
    std::vector<std::vector<std::array<size_t, 3>>> triangles(solids.size());
    const CornerIndex* map = merge.pointOfCorner.data();
    size_t f = 0;
    for (size_t s = 0; s < solids.size(); ++s)
    {
        auto& list = triangles[s];
        list.reserve(solids[s].size());
        const size_t end = f + solids[s].size();
        for (; f < end; ++f)
        {
            const size_t a = map[3 * f], b = map[3 * f + 1], c = map[3 * f + 2];
            if (a == b || a == c || b == c)
            {
                degenerate[f >> 5] |= uint32_t(1) << (f & 31);
                continue;
            }
            if (++uses[a] > MaxTrianglesPerPoint || ++uses[b] > MaxTrianglesPerPoint ||
                ++uses[c] > MaxTrianglesPerPoint)
                throw std::runtime_error("too many neighbours");
            list.push_back({a, b, c});
        }
    }
    return triangles;
}
} // namespace

void MStlFileReaderTarget::Convert(MStlBase& mesh, const std::vector<std::vector<MStlFileTriangle>>& solids,
                                   const std::vector<std::string>& solidNames,
                                   const MStlReadTransformation& transformation, bool withColors)
{
    switch (static_cast<int>(mesh.GetStlHybrid().GetState()))
    {
    case 0:
        _ConvertStandard(mesh, solids, solidNames, transformation, withColors);
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
                                            const MStlReadTransformation& transformation, bool withColors)
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
    if (3 * static_cast<uint64_t>(facetCount) <= std::numeric_limits<uint32_t>::max())
    {
        Merge<uint32_t> merge;
        overflow_ = MergeCorners(solids, facetCount, mapper, merge);
        triangles = BuildTriangles(solids, merge, degenerate);
        points = std::move(merge.points);
    }
    else
    {
        Merge<uint64_t> merge;
        overflow_ = MergeCorners(solids, facetCount, mapper, merge);
        triangles = BuildTriangles(solids, merge, degenerate);
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

    std::vector<MStlTriangle*> created;
    mesh.Create(std::move(points), std::move(triangles), &surfaces, nullptr, &created);

    if (!withColors)
    {
        for (MStlTriangle* triangle : created)
            triangle->ResetColor();
        return;
    }
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
    MStlSurfaceList& surfaces = mesh.GetSurfaceList();
    if (surfaces.GetNumSurfaces(false) == 0)
        surfaces.AddNewSurface(nullptr);
    store->SetCurrentSurface(surfaces.GetSurface(0));

    MStlTriangleColorMask* mask = nullptr;
    if (withColors)
    {
        MStlColorMasks& masks = mesh.GetColorMasks();
        if (masks.GetMainTriangleColorMask() == nullptr)
            masks.CreateMainTriangleColorMask();
        mask = masks.GetMainTriangleColorMask();
    }

    overflow_ = false;
    const GridMapper mapper(transformation);
    for (const auto& solid : solids)
        for (const MStlFileTriangle& facet : solid)
        {
            unsigned v[3];
            for (int k = 0; k < 3; ++k)
            {
                int32_t g[3];
                if (!mapper.Map(Corner(facet, k), g))
                    overflow_ = true;
                v[k] = store->AddVertexIE(g[0], g[1], g[2]);
            }
            const size_t triangle = store->AddTriangle(v[0], v[1], v[2]);
            if (mask != nullptr && triangle != MStlInvalidIndex)
                mask->SetInfo(triangle, MStlColor::ConvertFrom16BitValue(facet.GetAttribute()));
        }
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
    MStlSurfaceList& surfaces = mesh.GetSurfaceList();
    if (surfaces.GetNumSurfaces(false) == 0)
        surfaces.AddNewSurface(nullptr);
    store->StartAddingSurfaceTriangles(surfaces.GetSurface(0));
    if (withColors)
        store->StartAddingTriangleColors();

    overflow_ = false;
    const GridMapper mapper(transformation);
    for (const auto& solid : solids)
        for (const MStlFileTriangle& facet : solid)
        {
            unsigned v[3];
            for (int k = 0; k < 3; ++k)
            {
                int32_t g[3];
                if (!mapper.Map(Corner(facet, k), g))
                    overflow_ = true;
                v[k] = store->AddVertex(g[0], g[1], g[2]);
            }
            store->AddSurfaceTriangle(v[0], v[1], v[2]);
            if (withColors)
                store->AddColor(MStlColor::ConvertFrom16BitValue(facet.GetAttribute()));
        }
    store->UpdateParentBoundingBox();
    store->Close();
}
} // namespace KelSDK::Triangles::IO
