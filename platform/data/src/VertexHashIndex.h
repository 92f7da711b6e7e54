// Exact-position vertex index of the Compact and OnDisk stores: open addressing, linear probing,
// positions kept in the table so that the vertices themselves may live on disk.
#pragma once

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
        // Linear probing stays short up to a load of 0.7 (slots are 16 bytes, four to a cache line).
        if ((count_ + 1) * 10 > slots_.size() * 7)
            Grow();
        const size_t mask = slots_.size() - 1;
        for (size_t i = Hash(x, y, z) & mask;; i = (i + 1) & mask)
        {
            Slot& s = slots_[i];
            if (s.index == Empty)
            {
                s = Slot{x, y, z, candidate};
                ++count_;
                return candidate;
            }
            if (s.x == x && s.y == y && s.z == z)
                return s.index;
        }
    }
    // The index stored for (x, y, z), or Empty.
    uint32_t Find(int x, int y, int z) const
    {
        if (slots_.empty())
            return Empty;
        const size_t mask = slots_.size() - 1;
        for (size_t i = Hash(x, y, z) & mask;; i = (i + 1) & mask)
        {
            const Slot& s = slots_[i];
            if (s.index == Empty)
                return Empty;
            if (s.x == x && s.y == y && s.z == z)
                return s.index;
        }
    }
    void Clear()
    {
        slots_ = std::vector<Slot>();
        count_ = 0;
    }
    size_t Size() const { return count_; }
    size_t MemoryBytes() const { return slots_.capacity() * sizeof(Slot); }

private:
    struct Slot
    {
        int x, y, z;
        uint32_t index;
    };

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
    void Grow()
    {
        std::vector<Slot> old;
        old.swap(slots_);
        slots_.assign(old.empty() ? 1024 : old.size() * 2, Slot{0, 0, 0, Empty});
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
    size_t count_ = 0;
};
} // namespace KelSDK::Triangles::Data
