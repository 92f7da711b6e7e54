// The facets of an STL read on their way from the readers to mesh building, in one of two forms:
// the caller's lists of MStlFileTriangle (104 bytes a facet), or the read driver's lean store, which
// keeps only the nine corner coordinates in the width the file holds them (float for binary files,
// 36 bytes a facet; double for text, 72 bytes) and the attribute words, in large chunks that mesh
// building can release one by one as it consumes them.
//
// Both forms offer the same walk to mesh building: facets in order over all solids, each as nine
// coordinates (corner 1 x y z, corner 2, corner 3) and its attribute word. A float widens to the
// same double that MStlFileTriangle would hold, so both forms give the same mesh.
#pragma once

#include "MStlFileTriangleBinary.h"
#include "MStlFileTriangleList.h"

#include <KelSDK/Math/BoundingBox.h>
#include <KelSDK/Triangles/Data/MStlBlockPool.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>
#include <KelSDK/Triangles/IO/MStlReadTransformation.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <vector>

namespace KelSDK::Triangles::IO::Detail
{
// Where the binary reader puts what it reads: one solid per block, filled in order.
class BinaryFacetSink
{
public:
    virtual ~BinaryFacetSink() = default;
    // Makes the number of solids count, keeping the facets of those that stay.
    virtual void SetSolidCount(size_t count) = 0;
    // Room for count more facets in a solid.
    virtual void Reserve(size_t solid, uint64_t count) = 0;
    // Appends count 50-byte binary facets to a solid.
    virtual void AppendBinary(size_t solid, const unsigned char* facets, size_t count) = 0;
};

// Where the text reader puts what it reads: facets go to the solid added last.
class TextFacetSink
{
public:
    virtual ~TextFacetSink() = default;
    // Appends an empty solid and returns its index.
    virtual size_t AddSolid() = 0;
    // Room for count more facets in a solid.
    virtual void Reserve(size_t solid, uint64_t count) = 0;
    // Appends one facet to a solid.
    virtual void Append(size_t solid, const MStlFileTriangle& facet) = 0;
    // False when the facets' normals are of no use: they are then checked but not converted.
    virtual bool KeepsNormals() const { return true; }
};

// The caller's lists of MStlFileTriangle.
class ListSink final : public BinaryFacetSink, public TextFacetSink
{
public:
    explicit ListSink(std::vector<std::vector<MStlFileTriangle>>& solids) : solids_(solids) {}
    void SetSolidCount(size_t count) override { solids_.resize(count); }
    size_t AddSolid() override
    {
        solids_.emplace_back();
        return solids_.size() - 1;
    }
    void Reserve(size_t solid, uint64_t count) override
    {
        ReserveFacets(solids_[solid], static_cast<std::size_t>(count));
    }
    void AppendBinary(size_t solid, const unsigned char* facets, size_t count) override
    {
        std::vector<MStlFileTriangle>& list = solids_[solid];
        for (size_t i = 0; i < count; ++i, facets += MStlFileTriangle::BINARY_SIZE)
        {
            list.emplace_back();
            DecodeBinaryFacet(facets, list.back());
        }
    }
    void Append(size_t solid, const MStlFileTriangle& facet) override { solids_[solid].push_back(facet); }

private:
    std::vector<std::vector<MStlFileTriangle>>& solids_;
};

// The caller's lists as mesh building walks them.
class ListFacets
{
public:
    // The lists are the caller's: mesh building may not overwrite them.
    static constexpr bool CanRewrite = false;
    // File coordinates, mapped by mesh building.
    bool AnyOutside() const { return false; }

    explicit ListFacets(const std::vector<std::vector<MStlFileTriangle>>& solids) : solids_(solids) {}

    size_t SolidCount() const { return solids_.size(); }
    uint64_t SolidSize(size_t solid) const { return solids_[solid].size(); }
    uint64_t FacetCount() const
    {
        uint64_t n = 0;
        for (const auto& solid : solids_)
            n += solid.size();
        return n;
    }
    // The box of every corner (NaN left out); the empty box (minimum +max, maximum -max) when there
    // is no facet.
    KelSDK::Math::boundingbox<double, 3> CornerBox() const
    {
        double lo[3], hi[3];
        for (int a = 0; a < 3; ++a)
        {
            lo[a] = std::numeric_limits<double>::max();
            hi[a] = std::numeric_limits<double>::lowest();
        }
        for (const auto& solid : solids_)
            for (const MStlFileTriangle& facet : solid)
                for (size_t k = 0; k < 3; ++k)
                    for (size_t a = 0; a < 3; ++a)
                    {
                        const double v = facet.GetVertex(k)[a];
                        lo[a] = v < lo[a] ? v : lo[a];
                        hi[a] = v > hi[a] ? v : hi[a];
                    }
        return {KelSDK::Math::point<double, 3>(lo[0], lo[1], lo[2]),
                KelSDK::Math::point<double, 3>(hi[0], hi[1], hi[2])};
    }
    // fn(const double* corners, uint16_t attribute) for every facet in order.
    template <typename Fn> void ForEachFacet(Fn&& fn) const
    {
        for (const auto& solid : solids_)
            for (const MStlFileTriangle& facet : solid)
            {
                double c[9];
                for (size_t k = 0; k < 3; ++k)
                    for (size_t a = 0; a < 3; ++a)
                        c[3 * k + a] = facet.GetVertex(k)[a];
                fn(static_cast<const double*>(c), facet.GetAttribute());
            }
    }
    // The caller keeps its lists: the same walk.
    template <typename Fn> void ConsumeFacets(Fn&& fn) { ForEachFacet(fn); }
    // fn(uint16_t attribute) for every facet in order.
    template <typename Fn> void ForEachAttribute(Fn&& fn) const
    {
        for (const auto& solid : solids_)
            for (const MStlFileTriangle& facet : solid)
                fn(facet.GetAttribute());
    }

private:
    const std::vector<std::vector<MStlFileTriangle>>& solids_;
};

// The lean store: the corners of every facet in chunks of up to ChunkFacets facets, as type T: float
// or double file coordinates, or int32_t grid coordinates when the read transformation is known
// before reading (then the corners are mapped while they arrive, as mesh building would map them).
// Beside them: the attribute words in one list (kept only from the first that is not 0 on; the
// words before it are 0), facet counts per solid, and the box of every corner in file coordinates,
// measured while the facets arrive. Not copyable.
template <typename T> class LeanFacets
{
public:
    // Facets per chunk: a full chunk takes a standard block, which mesh building can use again once
    // it has consumed the chunk.
    static constexpr size_t ChunkFacets = KelSDK::Triangles::Data::MStlStandardBlockBytes / (9 * sizeof(T));
    // Mesh building may overwrite the coordinates of a facet (36 bytes at least) with its three
    // corner records.
    static constexpr bool CanRewrite = true;

    LeanFacets()
    {
        for (int a = 0; a < 3; ++a)
        {
            lo_[a] = std::numeric_limits<double>::max();
            hi_[a] = std::numeric_limits<double>::lowest();
        }
    }
    ~LeanFacets() { Release(); }
    LeanFacets(const LeanFacets&) = delete;
    LeanFacets& operator=(const LeanFacets&) = delete;

    void SetSolidCount(size_t count) { solidSizes_.resize(count, 0); }
    size_t AddSolid()
    {
        solidSizes_.push_back(0);
        return solidSizes_.size() - 1;
    }
    // The next chunk is made large enough for count facets (up to ChunkFacets), so that a small
    // input gets a small chunk.
    void Reserve(uint64_t count) { expected_ = count; }

    // Takes the nine file coordinates of a facet into the box.
    template <typename U> void Measure(const U* corners)
    {
        for (int i = 0; i < 9; ++i)
        {
            const double v = corners[i];
            const int a = i % 3;
            // Comparisons with NaN are false: a NaN corner leaves the box as it was.
            lo_[a] = v < lo_[a] ? v : lo_[a];
            hi_[a] = v > hi_[a] ? v : hi_[a];
            hasNaN_ = hasNaN_ || v != v;
        }
    }
    // Appends a facet to a solid: nine coordinates in corner order and its attribute word.
    void Store(size_t solid, const T* corners, uint16_t attribute)
    {
        T* slot = _Slot();
        for (int i = 0; i < 9; ++i)
            slot[i] = corners[i];
        if (attribute != 0 && attributes_.empty())
            attributes_.assign(static_cast<size_t>(count_), 0);
        if (!attributes_.empty() || attribute != 0)
            attributes_.push_back(attribute);
        ++solidSizes_[solid];
        ++count_;
    }
    // Grid coordinates only: some corner could not be mapped into the integer range (its
    // coordinates are the mapping's stand-ins).
    void MarkOutside() { outside_ = true; }

    size_t SolidCount() const { return solidSizes_.size(); }
    uint64_t SolidSize(size_t solid) const { return solidSizes_[solid]; }
    uint64_t FacetCount() const { return count_; }
    // True when every corner maps into a packed key layout planned from the box: grid corners all
    // mapped; file coordinates without NaN (which the box leaves out).
    bool EveryCornerInBox() const { return std::is_same<T, int32_t>::value ? !outside_ : !hasNaN_; }
    // Grid coordinates only: some corner could not be mapped into the integer range.
    bool AnyOutside() const { return outside_; }
    // The box of every corner appended (empty when there is none).
    KelSDK::Math::boundingbox<double, 3> CornerBox() const
    {
        return {KelSDK::Math::point<double, 3>(lo_[0], lo_[1], lo_[2]),
                KelSDK::Math::point<double, 3>(hi_[0], hi_[1], hi_[2])};
    }

    // fn(const T* corners, uint16_t attribute) for every facet in order.
    template <typename Fn> void ForEachFacet(Fn&& fn) const
    {
        uint64_t f = 0;
        for (const Chunk& chunk : chunks_)
            for (size_t i = 0; i < chunk.size; ++i, ++f)
                fn(static_cast<const T*>(chunk.corners + 9 * i), _Attribute(f));
    }
    // The walk of ForEachFacet, releasing every chunk as soon as it has been walked; afterwards only
    // the attributes and the counts are left.
    template <typename Fn> void ConsumeFacets(Fn&& fn)
    {
        uint64_t f = 0;
        for (Chunk& chunk : chunks_)
        {
            for (size_t i = 0; i < chunk.size; ++i, ++f)
                fn(static_cast<const T*>(chunk.corners + 9 * i), _Attribute(f));
            _Free(chunk);
        }
        chunks_.clear();
    }

    // Chunk by chunk, for mesh building: the facets are chunk 0 first, then chunk 1, and so on.
    size_t ChunkCount() const { return chunks_.size(); }
    // fn(T* corners) for every facet of a chunk in order; fn may overwrite the nine coordinates.
    template <typename Fn> void RewriteChunk(size_t c, Fn&& fn)
    {
        Chunk& chunk = chunks_[c];
        for (size_t i = 0; i < chunk.size; ++i)
            fn(chunk.corners + 9 * i);
    }
    // fn(const T* corners) for every facet of a chunk in order, then releases the chunk. Distinct
    // chunks may be consumed on different threads at once.
    template <typename Fn> void ConsumeChunk(size_t c, Fn&& fn)
    {
        Chunk& chunk = chunks_[c];
        for (size_t i = 0; i < chunk.size; ++i)
            fn(static_cast<const T*>(chunk.corners + 9 * i));
        _Free(chunk);
    }
    // fn(uint16_t attribute) for every facet in order.
    template <typename Fn> void ForEachAttribute(Fn&& fn) const
    {
        for (uint64_t f = 0; f < count_; ++f)
            fn(_Attribute(f));
    }
    // Frees the coordinates (counts, box and attributes stay).
    void Release()
    {
        for (Chunk& chunk : chunks_)
            _Free(chunk);
        chunks_.clear();
    }

private:
    struct Chunk
    {
        T* corners;
        size_t size;
        size_t capacity;
    };

    uint16_t _Attribute(uint64_t f) const
    {
        return f < attributes_.size() ? attributes_[static_cast<size_t>(f)] : uint16_t(0);
    }

    // Room for one more facet: the end of the last chunk, or a new chunk.
    T* _Slot()
    {
        if (chunks_.empty() || chunks_.back().size == chunks_.back().capacity)
        {
            // The first chunk follows the expected count; later ones double up to the full size.
            size_t capacity = chunks_.empty() ? 256 : chunks_.back().capacity * 2;
            if (expected_ > capacity)
                capacity = static_cast<size_t>(std::min<uint64_t>(expected_, ChunkFacets));
            capacity = std::min(capacity, ChunkFacets);
            T* corners = static_cast<T*>(KelSDK::Triangles::Data::MStlAllocateBlock(_Bytes(capacity)));
            chunks_.push_back(Chunk{corners, 0, capacity});
            expected_ = 0;
        }
        Chunk& chunk = chunks_.back();
        return chunk.corners + 9 * chunk.size++;
    }
    // A full chunk takes a whole standard block.
    static size_t _Bytes(size_t capacity)
    {
        return capacity == ChunkFacets ? KelSDK::Triangles::Data::MStlStandardBlockBytes : capacity * 9 * sizeof(T);
    }
    static void _Free(Chunk& chunk)
    {
        KelSDK::Triangles::Data::MStlFreeBlock(chunk.corners, _Bytes(chunk.capacity));
        chunk.corners = nullptr;
    }

    std::vector<Chunk> chunks_;
    std::vector<uint16_t> attributes_;
    std::vector<uint64_t> solidSizes_;
    uint64_t count_ = 0;
    uint64_t expected_ = 0;
    double lo_[3];
    double hi_[3];
    bool hasNaN_ = false;
    bool outside_ = false;
};

// Binary facets into the lean store, as float (the normals are not kept).
class LeanBinarySink final : public BinaryFacetSink
{
public:
    explicit LeanBinarySink(LeanFacets<float>& facets) : facets_(facets) {}
    void SetSolidCount(size_t count) override { facets_.SetSolidCount(count); }
    void Reserve(size_t, uint64_t count) override { facets_.Reserve(count); }
    void AppendBinary(size_t solid, const unsigned char* facets, size_t count) override
    {
        for (size_t i = 0; i < count; ++i, facets += MStlFileTriangle::BINARY_SIZE)
        {
            float corners[9];
            for (int j = 0; j < 9; ++j)
                corners[j] = LoadF32(facets + 12 + 4 * j);
            facets_.Measure(corners);
            facets_.Store(solid, corners, static_cast<uint16_t>(facets[48] | (facets[49] << 8)));
        }
    }

private:
    LeanFacets<float>& facets_;
};

// Text facets into the lean store, as double (the normals are neither kept nor converted).
class LeanTextSink final : public TextFacetSink
{
public:
    explicit LeanTextSink(LeanFacets<double>& facets) : facets_(facets) {}
    size_t AddSolid() override { return facets_.AddSolid(); }
    void Reserve(size_t, uint64_t count) override { facets_.Reserve(count); }
    bool KeepsNormals() const override { return false; }
    void Append(size_t solid, const MStlFileTriangle& facet) override
    {
        double corners[9];
        for (size_t k = 0; k < 3; ++k)
            for (size_t a = 0; a < 3; ++a)
                corners[3 * k + a] = facet.GetVertex(k)[a];
        facets_.Measure(corners);
        facets_.Store(solid, corners, facet.GetAttribute());
    }

private:
    LeanFacets<double>& facets_;
};

// Text facets into the lean store, mapped onto the grid with a transformation known before reading
// (the normals are neither kept nor converted).
class LeanGridSink final : public TextFacetSink
{
public:
    LeanGridSink(LeanFacets<int32_t>& facets, const MStlReadTransformation& transformation)
        : facets_(facets), transformation_(transformation)
    {
    }
    size_t AddSolid() override { return facets_.AddSolid(); }
    void Reserve(size_t, uint64_t count) override { facets_.Reserve(count); }
    bool KeepsNormals() const override { return false; }
    void Append(size_t solid, const MStlFileTriangle& facet) override
    {
        int32_t grid[9];
        double corners[9];
        for (size_t k = 0; k < 3; ++k)
        {
            KelSDK::Math::point<int, 3> g;
            if (!transformation_.Transform(facet.GetVertex(k), g))
                facets_.MarkOutside();
            for (size_t a = 0; a < 3; ++a)
            {
                grid[3 * k + a] = g[a];
                corners[3 * k + a] = facet.GetVertex(k)[a];
            }
        }
        facets_.Measure(corners);
        facets_.Store(solid, grid, facet.GetAttribute());
    }

private:
    LeanFacets<int32_t>& facets_;
    const MStlReadTransformation& transformation_;
};
} // namespace KelSDK::Triangles::IO::Detail
