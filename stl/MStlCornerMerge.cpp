#include "MStlCornerMerge.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_sort.h>

#include <algorithm>
#include <cstring>

namespace KelSDK::Triangles::IO::Detail
{
namespace
{
// Records per bucket aimed at: 192 KiB of packed records, sorted inside a core's level-2 cache.
constexpr size_t kBucketRecords = size_t(1) << 14;
// At most 2^16 buckets: their write positions stay in cache while the records are distributed.
constexpr unsigned kMaxBucketBits = 16;
// A bucket beyond this many records (input crowded into a few positions of the key, such as a
// flat plate) is sorted in place rather than through a scratch copy of its size.
constexpr size_t kLargestRadixBucket = size_t(1) << 20;
// Key bits per radix pass at most: 2048 counters.
constexpr unsigned kDigitBits = 11;

// Shifts that give 0 for a shift by the full width (a plain shift by 64 is undefined).
inline uint64_t ShiftRight(uint64_t v, unsigned bits)
{
    return bits >= 64 ? 0 : v >> bits;
}
inline uint64_t LowBits(uint64_t v, unsigned bits)
{
    return bits >= 64 ? v : v & ((uint64_t(1) << bits) - 1);
}

unsigned BitsFor(uint64_t span)
{
    unsigned bits = 0;
    while (bits < 64 && (span >> bits) != 0)
        ++bits;
    return bits;
}

// Sorts the records of one bucket by their keys' low bits (those below the bucket's shift; the
// bits above are equal within a bucket): least significant digit first, each pass a stable
// distribution into scratch and back. Passes over a digit that all records share are skipped.
struct RadixScratch
{
    std::vector<PackedCorner> records;
    std::vector<uint32_t> counts;
};

void RadixSortBucket(PackedCorner* records, size_t count, unsigned bits, RadixScratch& scratch)
{
    if (count < 2 || bits == 0)
        return;
    if (count <= 32)
    {
        std::sort(records, records + count);
        return;
    }
    const unsigned passes = (bits + kDigitBits - 1) / kDigitBits;
    const unsigned digit = (bits + passes - 1) / passes;
    const uint64_t mask = (uint64_t(1) << digit) - 1;
    // All histograms in one read of the bucket.
    std::vector<uint32_t>& counts = scratch.counts;
    counts.assign(size_t(passes) << digit, 0);
    for (size_t i = 0; i < count; ++i)
    {
        const uint64_t key = records[i].Key();
        for (unsigned p = 0; p < passes; ++p)
            ++counts[(size_t(p) << digit) + ((key >> (p * digit)) & mask)];
    }
    if (scratch.records.size() < count)
        scratch.records.resize(count);
    PackedCorner* from = records;
    PackedCorner* to = scratch.records.data();
    for (unsigned p = 0; p < passes; ++p)
    {
        uint32_t* c = counts.data() + (size_t(p) << digit);
        const unsigned low = p * digit;
        if (c[(from[0].Key() >> low) & mask] == count)
            continue; // one digit value for all: the order stays
        uint32_t sum = 0;
        for (size_t d = 0; d <= mask; ++d)
        {
            const uint32_t n = c[d];
            c[d] = sum;
            sum += n;
        }
        for (size_t i = 0; i < count; ++i)
            to[c[(from[i].Key() >> low) & mask]++] = from[i];
        std::swap(from, to);
    }
    if (from != records)
        std::memcpy(records, from, count * sizeof(PackedCorner));
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

// Sweeps the sorted records once: each record that differs from the last opened point opens the
// next point, and the record's corner gets that point. The distinct positions are gathered in
// place at the front of the record array (the write position never passes the read position), so
// that the point list is allocated once at its exact size.
template <typename Record>
void Sweep(Record* records, size_t count, const KeyLayout& layout, CornerMerge& merge)
{
    merge.triangles.Resize(count / 3);
    auto& triangles = merge.triangles;
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
        const uint32_t corner = records[i].corner;
        triangles[corner / 3][corner % 3] = static_cast<uint32_t>(points - 1);
    }
    merge.largestRun = run > largest ? run : largest;
    merge.points.Resize(points);
    for (size_t p = 0; p < points; ++p)
        merge.points[p] = Position(records[p], layout);
}
} // namespace

std::array<int, 3> KeyLayout::Decode(uint64_t key) const
{
    const uint64_t dy = LowBits(key, bitsY);
    const uint64_t dx = LowBits(ShiftRight(key, bitsY), bitsX);
    const uint64_t dz = ShiftRight(key, bitsX + bitsY);
    return {static_cast<int>(minimum[0] + static_cast<int64_t>(dx)),
            static_cast<int>(minimum[1] + static_cast<int64_t>(dy)),
            static_cast<int>(minimum[2] + static_cast<int64_t>(dz))};
}

// Rounding (c + offset) * scale is monotonic in c on each axis, so the grid box is spanned by the
// images of the two box corners (in either order when the scale is negative).
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
    return layout.Bits() <= 64;
}

Buckets PlanBuckets(const KeyLayout& layout, size_t count)
{
    unsigned bucketBits = 0;
    while (bucketBits < kMaxBucketBits && (count >> bucketBits) > kBucketRecords)
        ++bucketBits;
    bucketBits = std::min(bucketBits, layout.Bits());
    Buckets buckets;
    buckets.shift = layout.Bits() - bucketBits;
    buckets.start.assign((size_t(1) << bucketBits) + 1, 0);
    return buckets;
}

void DistributeGroups(size_t groups, const std::function<void(size_t)>& distribute)
{
    tbb::parallel_for(tbb::blocked_range<size_t>(0, groups, 1),
                      [&](const tbb::blocked_range<size_t>& range)
                      {
                          for (size_t g = range.begin(); g != range.end(); ++g)
                              distribute(g);
                      });
}

void SortAndSweepPacked(const RecordArray<PackedCorner>& records, const Buckets& buckets, const KeyLayout& layout,
                        CornerMerge& merge)
{
    PackedCorner* data = records.Data();
    const size_t bucketCount = buckets.start.size() - 1;
    tbb::parallel_for(tbb::blocked_range<size_t>(0, bucketCount),
                      [&](const tbb::blocked_range<size_t>& range)
                      {
                          RadixScratch scratch;
                          for (size_t b = range.begin(); b != range.end(); ++b)
                          {
                              PackedCorner* first = data + buckets.start[b];
                              const size_t n = buckets.start[b + 1] - buckets.start[b];
                              if (n > kLargestRadixBucket)
                                  tbb::parallel_sort(first, first + n);
                              else
                                  RadixSortBucket(first, n, buckets.shift, scratch);
                          }
                      });
    Sweep(data, records.Size(), layout, merge);
}

void SortAndSweepWide(const RecordArray<WideCorner>& records, CornerMerge& merge)
{
    tbb::parallel_sort(records.Data(), records.Data() + records.Size());
    Sweep(records.Data(), records.Size(), KeyLayout(), merge);
}
} // namespace KelSDK::Triangles::IO::Detail
