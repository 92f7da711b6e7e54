// Merging the corners of STL facets into shared points (the Standard kind's mesh building): every
// corner is mapped onto the integer grid, the corner records are sorted by position (z, x, y) and
// swept once; equal positions become one point, numbered in sorted order.
//
// Records of small boxes pack the position into a 64-bit key (12 bytes a record). They are written
// straight into buckets by the top bits of the key, sized so that a bucket sorts inside the core's
// cache, and each bucket is sorted by radix passes over the remaining bits, the buckets side by side
// on the cores: linear work, the same per corner at every size. Any other input (a box whose key
// needs more than 64 bits, corners outside the grid, NaN) takes 24-byte records and one parallel
// comparison sort. Records with equal positions may end in any order; the result does not depend
// on it.
#pragma once

#include <KelSDK/Math/BoundingBox.h>
#include <KelSDK/Triangles/Data/MStlBlockPool.h>
#include <KelSDK/Triangles/IO/MStlReadTransformation.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <algorithm>
#include <limits>
#include <stdexcept>
#include <vector>

namespace KelSDK::Triangles::IO::Detail
{
// Maps a corner onto the grid with the read transformation; false when it left the signed 32-bit
// range (the written values are then the transformation's clamped ones, used as they are).
class GridMapper
{
public:
    explicit GridMapper(const MStlReadTransformation& transformation) : transformation_(transformation) {}

    template <typename T> bool Map(const T* corner, int32_t out[3]) const
    {
        KelSDK::Math::point<int, 3> g;
        const bool inside = transformation_.Transform(
            KelSDK::Math::point<double, 3>(static_cast<double>(corner[0]), static_cast<double>(corner[1]),
                                           static_cast<double>(corner[2])),
            g);
        out[0] = g[0];
        out[1] = g[1];
        out[2] = g[2];
        return inside;
    }
    bool Map(const KelSDK::Math::point<double, 3>& corner, int32_t out[3]) const { return Map(corner.data(), out); }
    // Corners that are grid coordinates already (mapped while they were read).
    bool Map(const int32_t* corner, int32_t out[3]) const
    {
        out[0] = corner[0];
        out[1] = corner[1];
        out[2] = corner[2];
        return true;
    }

private:
    const MStlReadTransformation& transformation_;
};

// Layout of the packed key: the grid box and the bit widths of the offsets from its minimum; z takes
// the top bits, then x, then y, so that ordering keys orders positions by (z, x, y).
struct KeyLayout
{
    int32_t minimum[3] = {0, 0, 0};
    int32_t maximum[3] = {0, 0, 0};
    unsigned bitsX = 0;
    unsigned bitsY = 0;
    unsigned bitsZ = 0;

    unsigned Bits() const { return bitsX + bitsY + bitsZ; }
    bool Contains(const int32_t p[3]) const
    {
        return p[0] >= minimum[0] && p[0] <= maximum[0] && p[1] >= minimum[1] && p[1] <= maximum[1] &&
               p[2] >= minimum[2] && p[2] <= maximum[2];
    }
    // Inline: every corner passes through it.
    uint64_t Encode(const int32_t p[3]) const
    {
        const uint64_t dx = static_cast<uint64_t>(static_cast<int64_t>(p[0]) - minimum[0]);
        const uint64_t dy = static_cast<uint64_t>(static_cast<int64_t>(p[1]) - minimum[1]);
        const uint64_t dz = static_cast<uint64_t>(static_cast<int64_t>(p[2]) - minimum[2]);
        // A shift by 64 is undefined; dz and dx are 0 whenever their shift would reach 64.
        const unsigned zShift = bitsX + bitsY;
        return (zShift >= 64 ? 0 : dz << zShift) | (bitsY >= 64 ? 0 : dx << bitsY) | dy;
    }
    std::array<int, 3> Decode(uint64_t key) const;
};

// The packed layout for a box of the corners, or false when its grid image needs more than 64 key
// bits or does not fit the integer range.
bool PlanPackedLayout(const KelSDK::Math::boundingbox<double, 3>& box, const GridMapper& mapper,
                      KeyLayout& layout);

// Corner record with a packed key and a 32-bit corner index (3 f + k). 12 bytes.
struct PackedCorner
{
    uint32_t keyLow;
    uint32_t keyHigh;
    uint32_t corner;

    uint64_t Key() const { return (static_cast<uint64_t>(keyHigh) << 32) | keyLow; }
    friend bool operator<(const PackedCorner& a, const PackedCorner& b) { return a.Key() < b.Key(); }
};

// Corner record for any other input: the grid position and the corner index. 16 bytes.
struct WideCorner
{
    int32_t x;
    int32_t y;
    int32_t z;
    uint32_t corner;

    friend bool operator<(const WideCorner& a, const WideCorner& b)
    {
        if (a.z != b.z)
            return a.z < b.z;
        if (a.x != b.x)
            return a.x < b.x;
        return a.y < b.y;
    }
};

// An uninitialised array of records in memory of the mesh model's block allocation.
template <typename Record> class RecordArray
{
public:
    explicit RecordArray(size_t count)
        : data_(static_cast<Record*>(KelSDK::Triangles::Data::MStlAllocateBlock(count * sizeof(Record)))),
          count_(count)
    {
    }
    ~RecordArray() { KelSDK::Triangles::Data::MStlFreeBlock(data_, count_ * sizeof(Record)); }
    RecordArray(const RecordArray&) = delete;
    RecordArray& operator=(const RecordArray&) = delete;
    Record* Data() const { return data_; }
    size_t Size() const { return count_; }

private:
    Record* data_;
    size_t count_;
};

// The buckets of the packed records: a record goes to bucket Key() >> shift.
struct Buckets
{
    unsigned shift = 0;
    std::vector<size_t> start; // bucket b holds [start[b], start[b + 1]); counts during the first pass
};

// Buckets for count records of a layout, about a cache's worth of records each.
Buckets PlanBuckets(const KeyLayout& layout, size_t count);

// Groups of facets that are distributed into the buckets side by side.
constexpr size_t kDistributionGroups = 8;
// Calls distribute(g) for every group g, on the cores side by side (the first pass of the sort).
void DistributeGroups(size_t groups, const std::function<void(size_t)>& distribute);

// Result of the merge.
struct CornerMerge
{
    // The distinct positions in (z, x, y) order.
    KelSDK::Triangles::Data::MStlBlockList<std::array<int, 3>> points;
    // Per facet, in facet order over all solids, the points of its three corners.
    KelSDK::Triangles::Data::MStlBlockList<std::array<uint32_t, 3>> triangles;
    // The most corners found at one position (bounds the triangles any point can get).
    size_t largestRun = 0;
    // Some corner left the integer range.
    bool overflow = false;
};

// Sorts the bucketed packed records and sweeps them into the merge (points and corner map).
void SortAndSweepPacked(const RecordArray<PackedCorner>& records, const Buckets& buckets, const KeyLayout& layout,
                        CornerMerge& merge);
// Sorts the wide records and sweeps them into the merge.
void SortAndSweepWide(const RecordArray<WideCorner>& records, CornerMerge& merge);

// Merges the corners of all facets of a source (see MStlFacetLists.h) whose corner box (in file
// coordinates) is box; a box that misses some corner only costs time. The source's coordinates are
// consumed. Throws std::length_error when there are more corners than 32-bit indices can number.
template <class Source>
void MergeCorners(Source& source, uint64_t facetCount, const KelSDK::Math::boundingbox<double, 3>& box,
                  const GridMapper& mapper, CornerMerge& merge)
{
    if (facetCount > std::numeric_limits<uint32_t>::max() / 3)
        throw std::length_error("too many facets for 32-bit corner indices");
    const size_t count = static_cast<size_t>(3 * facetCount);
    KeyLayout layout;
    if (PlanPackedLayout(box, mapper, layout))
    {
        Buckets buckets = PlanBuckets(layout, count);
        size_t* sizes = buckets.start.data() + 1;
        const unsigned shift = buckets.shift;
        if constexpr (Source::CanRewrite)
        {
            // The store's own box holds every corner that is not NaN, so with no NaN (and, for grid
            // corners, none that failed to map) every corner maps into the layout: each facet's coordinates are overwritten with its three records
            // (12 bytes each, the size of three float corners), and the mapping is done once. The
            // chunks form a few groups with bucket sizes of their own, so that the groups can be
            // distributed into the buckets side by side, each from its own offsets.
            if (source.EveryCornerInBox())
            {
                const size_t chunks = source.ChunkCount();
                const size_t groups = std::min<size_t>(chunks, kDistributionGroups);
                const size_t bucketCount = buckets.start.size() - 1;
                std::vector<size_t> groupSizes(groups * bucketCount, 0);
                uint32_t corner = 0;
                for (size_t c = 0; c < chunks; ++c)
                {
                    size_t* counts = groupSizes.data() + (c * groups / chunks) * bucketCount;
                    source.RewriteChunk(c,
                                        [&](auto* corners)
                                        {
                                            PackedCorner records[3];
                                            for (int k = 0; k < 3; ++k, ++corner)
                                            {
                                                int32_t g[3];
                                                mapper.Map(corners + 3 * k, g);
                                                const uint64_t key = layout.Encode(g);
                                                records[k] = PackedCorner{static_cast<uint32_t>(key),
                                                                          static_cast<uint32_t>(key >> 32), corner};
                                                ++counts[key >> shift];
                                            }
                                            std::memcpy(static_cast<void*>(corners), records, sizeof(records));
                                        });
                }
                // Group g starts in bucket b after the bucket's records of the groups before it.
                std::vector<size_t> next(groups * bucketCount);
                size_t at = 0;
                for (size_t b = 0; b < bucketCount; ++b)
                {
                    buckets.start[b] = at;
                    for (size_t g = 0; g < groups; ++g)
                    {
                        next[g * bucketCount + b] = at;
                        at += groupSizes[g * bucketCount + b];
                    }
                }
                buckets.start[bucketCount] = at;
                RecordArray<PackedCorner> records(count);
                DistributeGroups(groups,
                                 [&](size_t g)
                                 {
                                     PackedCorner* out = records.Data();
                                     size_t* position = next.data() + g * bucketCount;
                                     // The chunks c with c * groups / chunks == g.
                                     const size_t end = ((g + 1) * chunks + groups - 1) / groups;
                                     for (size_t c = (g * chunks + groups - 1) / groups; c < end; ++c)
                                         source.ConsumeChunk(c,
                                                             [&](const auto* corners)
                                                             {
                                                                 PackedCorner written[3];
                                                                 std::memcpy(written, static_cast<const void*>(corners),
                                                                             sizeof(written));
                                                                 for (const PackedCorner& record : written)
                                                                     out[position[record.Key() >> shift]++] = record;
                                                             });
                                 });
                source.Release();
                SortAndSweepPacked(records, buckets, layout, merge);
                return;
            }
        }
        else
        {
            // First pass: bucket sizes; every corner must lie inside the planned box.
            bool fits = true;
            source.ForEachFacet(
                [&](const auto* corners, uint16_t)
                {
                    for (int k = 0; k < 3 && fits; ++k)
                    {
                        int32_t g[3];
                        if (!mapper.Map(corners + 3 * k, g) || !layout.Contains(g))
                            fits = false;
                        else
                            ++sizes[layout.Encode(g) >> shift];
                    }
                });
            if (fits)
            {
                for (size_t b = 1; b < buckets.start.size(); ++b)
                    buckets.start[b] += buckets.start[b - 1];
                std::vector<size_t> next(buckets.start.begin(), buckets.start.end() - 1);
                RecordArray<PackedCorner> records(count);
                PackedCorner* out = records.Data();
                uint32_t corner = 0;
                source.ConsumeFacets(
                    [&](const auto* corners, uint16_t)
                    {
                        for (int k = 0; k < 3; ++k, ++corner)
                        {
                            int32_t g[3];
                            mapper.Map(corners + 3 * k, g);
                            const uint64_t key = layout.Encode(g);
                            out[next[key >> shift]++] =
                                PackedCorner{static_cast<uint32_t>(key), static_cast<uint32_t>(key >> 32), corner};
                        }
                    });
                SortAndSweepPacked(records, buckets, layout, merge);
                return;
            }
        }
    }
    RecordArray<WideCorner> records(count);
    WideCorner* out = records.Data();
    uint32_t corner = 0;
    bool overflow = false;
    source.ConsumeFacets(
        [&](const auto* corners, uint16_t)
        {
            for (int k = 0; k < 3; ++k, ++corner, ++out)
            {
                int32_t g[3];
                if (!mapper.Map(corners + 3 * k, g))
                    overflow = true;
                out->x = g[0];
                out->y = g[1];
                out->z = g[2];
                out->corner = corner;
            }
        });
    SortAndSweepWide(records, merge);
    merge.overflow = overflow || source.AnyOutside();
}
} // namespace KelSDK::Triangles::IO::Detail
