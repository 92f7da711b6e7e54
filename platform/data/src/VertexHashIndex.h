// Exact-position vertex index of the Compact and OnDisk stores: open addressing, linear probing,
// positions kept in the table so that the vertices themselves may live on disk.
//
// Meshes come in with locality: a vertex is asked for again a few rows of triangles after it was
// added. Once the table outgrows the caches, every probe of it is a miss of main memory, so a
// small direct-mapped table of the latest answers (512 KiB, a core's cache) is asked first; it
// only ever holds pairs that the main table holds as well. The main table itself asks for 2 MiB
// pages: probes land anywhere in it, and with 4 KiB pages nearly each one would also miss the
// address translation caches.
#pragma once

#include "HugePages.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace KelSDK::Triangles::Data
{
class VertexHashIndex
{
public:
    static constexpr uint32_t Empty = 0xFFFFFFFFu;

    // The index stored for (x, y, z); when there is none, stores candidate and returns it.
    uint32_t FindOrInsert(int x, int y, int z, uint32_t candidate)
    {
        const size_t hash = Hash(x, y, z);
        Slot* recent = _Recent(hash);
        if (recent != nullptr && recent->index != Empty && recent->x == x && recent->y == y && recent->z == z)
            return recent->index;
        // Linear probing stays short up to a load of 0.7 (slots are 16 bytes, four to a cache line).
        if ((count_ + 1) * 10 > slots_.size() * 7)
        {
            Grow();
            recent = _Recent(hash);
        }
        const size_t mask = slots_.size() - 1;
        for (size_t i = hash & mask;; i = (i + 1) & mask)
        {
            Slot& s = slots_[i];
            if (s.index == Empty)
            {
                s = Slot{x, y, z, candidate};
                ++count_;
                _Remember(recent, s);
                return candidate;
            }
            if (s.x == x && s.y == y && s.z == z)
            {
                _Remember(recent, s);
                return s.index;
            }
        }
    }
    // The index stored for (x, y, z), or Empty.
    uint32_t Find(int x, int y, int z) const
    {
        if (slots_.empty())
            return Empty;
        const size_t hash = Hash(x, y, z);
        Slot* recent = _Recent(hash);
        if (recent != nullptr && recent->index != Empty && recent->x == x && recent->y == y && recent->z == z)
            return recent->index;
        const size_t mask = slots_.size() - 1;
        for (size_t i = hash & mask;; i = (i + 1) & mask)
        {
            const Slot& s = slots_[i];
            if (s.index == Empty)
                return Empty;
            if (s.x == x && s.y == y && s.z == z)
            {
                _Remember(recent, s);
                return s.index;
            }
        }
    }
    // Stores count positions that are distinct and not in the table yet, with the indices
    // first, first + 1, ... (bulk loading). The table grows once, and the entries go in in the
    // order of their home slots, so that the table is written from front to back rather than at
    // random.
    void InsertNew(const std::array<int, 3>* positions, size_t count, uint32_t first)
    {
        if (count == 0)
            return;
        size_t size = slots_.empty() ? 1024 : slots_.size();
        while ((count_ + count) * 10 > size * 7)
            size *= 2;
        // Filled front to back, the table needs no 2 MiB pages (whose first touch costs more).
        while (slots_.size() < size)
            Grow(false);
        const size_t mask = slots_.size() - 1;
        // Counting sort of the new entries by the top bits of their home slots.
        unsigned shift = 0;
        while ((mask >> shift) >= (size_t(1) << 16))
            ++shift;
        std::vector<uint32_t> homes(count);
        std::vector<uint32_t> starts((mask >> shift) + 2, 0);
        for (size_t i = 0; i < count; ++i)
        {
            homes[i] = static_cast<uint32_t>((Hash(positions[i][0], positions[i][1], positions[i][2]) & mask) >> shift);
            ++starts[homes[i] + 1];
        }
        for (size_t b = 1; b < starts.size(); ++b)
            starts[b] += starts[b - 1];
        // The entries themselves are distributed, so that the insertion reads them in order.
        std::vector<Slot> sorted(count);
        for (size_t i = 0; i < count; ++i)
            sorted[starts[homes[i]]++] =
                Slot{positions[i][0], positions[i][1], positions[i][2], first + static_cast<uint32_t>(i)};
        homes = std::vector<uint32_t>();
        for (const Slot& entry : sorted)
        {
            size_t slot = Hash(entry.x, entry.y, entry.z) & mask;
            while (slots_[slot].index != Empty)
                slot = (slot + 1) & mask;
            slots_[slot] = entry;
        }
        count_ += count;
    }
    void Clear()
    {
        slots_ = std::vector<Slot>();
        recent_ = std::vector<Slot>();
        count_ = 0;
    }
    size_t Size() const { return count_; }
    size_t MemoryBytes() const { return (slots_.capacity() + recent_.capacity()) * sizeof(Slot); }

private:
    struct Slot
    {
        int x, y, z;
        uint32_t index;
    };

    // Entries of the table of latest answers, which exists once the main table has this many slots.
    static constexpr size_t RecentSlots = size_t(1) << 15;

    static size_t Hash(int x, int y, int z)
    {
        uint64_t h = static_cast<uint32_t>(x) * 0x9E3779B97F4A7C15ull;
        h ^= static_cast<uint32_t>(y) * 0xC2B2AE3D27D4EB4Full;
        h ^= static_cast<uint32_t>(z) * 0x165667B19E3779F9ull;
        h ^= h >> 29;
        h *= 0xBF58476D1CE4E5B9ull;
        h ^= h >> 32;
        return static_cast<size_t>(h);
    }
    // The slot of the latest answers for a hash (its upper bits, the main table takes the lower
    // ones), or null while the main table is small.
    Slot* _Recent(size_t hash) const
    {
        return recent_.empty() ? nullptr : &recent_[(hash >> 40) & (RecentSlots - 1)];
    }
    static void _Remember(Slot* recent, const Slot& answer)
    {
        if (recent != nullptr)
            *recent = answer;
    }
    void Grow(bool hugePages = true)
    {
        std::vector<Slot> old;
        old.swap(slots_);
        slots_.reserve(old.empty() ? 1024 : old.size() * 2);
        if (hugePages)
            AdviseHugePages(slots_.data(), slots_.capacity() * sizeof(Slot));
        slots_.assign(old.empty() ? 1024 : old.size() * 2, Slot{0, 0, 0, Empty});
        if (recent_.empty() && slots_.size() >= RecentSlots)
            recent_.assign(RecentSlots, Slot{0, 0, 0, Empty});
        const size_t mask = slots_.size() - 1;
        for (const Slot& s : old)
        {
            if (s.index == Empty)
                continue;
            size_t i = Hash(s.x, s.y, s.z) & mask;
            while (slots_[i].index != Empty)
                i = (i + 1) & mask;
            slots_[i] = s;
        }
    }

    std::vector<Slot> slots_;
    mutable std::vector<Slot> recent_;
    size_t count_ = 0;
};
} // namespace KelSDK::Triangles::Data
