// Bulk storage for mesh elements: a few large blocks, element addresses stable for the pool's
// life, elements never moved. Used by the Standard kind for points, triangles and graph edges.
#pragma once

#include <KelSDK/Triangles/Data/Export.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace KelSDK::Triangles::Data
{
// Raw memory for element blocks and other large working arrays, uninitialised; large blocks are
// mapped on their own and go back to the system when freed. Throws std::bad_alloc when memory is
// exhausted.
KELSDK_TRIANGLES_DATA_EXPORT void* MStlAllocateBlock(size_t bytes);
// Frees memory from MStlAllocateBlock (bytes as requested); null is ignored.
KELSDK_TRIANGLES_DATA_EXPORT void MStlFreeBlock(void* block, size_t bytes);

// The size of a standard block: large pools and the working memory of bulk operations are made of
// blocks of this size, so that the blocks one step frees can serve the next (MStlBlockReuse). It
// holds a power of two of points (24 bytes) and of triangles (48 bytes), so that finding an
// element by its place in a bulk run is a shift.
constexpr size_t MStlStandardBlockBytes = size_t(48) << 20;

// While one of these lives (on any thread), standard blocks that are freed are kept and handed out
// again by MStlAllocateBlock, and larger blocks are cut into standard blocks where the platform can
// free part of a mapping; the kept blocks are freed when the last one ends. Memory used again this
// way costs no page faults: bulk operations that free working memory and then build a mesh (STL
// import) hold one for their whole run.
class KELSDK_TRIANGLES_DATA_EXPORT MStlBlockReuse
{
public:
    MStlBlockReuse();
    ~MStlBlockReuse();
    MStlBlockReuse(const MStlBlockReuse&) = delete;
    MStlBlockReuse& operator=(const MStlBlockReuse&) = delete;

    // Frees kept blocks until at most bytes are kept (what the next steps are known to need).
    static void KeepAtMost(size_t bytes);
    // Bytes kept for use again right now.
    static size_t KeptBytes();
};

// A list of values in standard blocks: it grows without moving what it holds, and bulk creation
// releases its blocks as it consumes them, so that inside an MStlBlockReuse scope the created
// elements take over that memory. A list of less than a block's worth takes one block of its size.
// Values are trivially copyable; new ones are zero.
template <typename T> class MStlBlockList
{
    static_assert(std::is_trivially_copyable<T>::value, "values are moved as bytes");

public:
    // Values per standard block.
    static constexpr size_t BlockElements = MStlStandardBlockBytes / sizeof(T);

    MStlBlockList() = default;
    ~MStlBlockList() { Clear(); }
    MStlBlockList(const MStlBlockList&) = delete;
    MStlBlockList& operator=(const MStlBlockList&) = delete;
    MStlBlockList(MStlBlockList&& other) noexcept { *this = std::move(other); }
    MStlBlockList& operator=(MStlBlockList&& other) noexcept
    {
        if (this != &other)
        {
            Clear();
            blocks_.swap(other.blocks_);
            size_ = other.size_;
            firstCapacity_ = other.firstCapacity_;
            other.size_ = 0;
            other.firstCapacity_ = 0;
        }
        return *this;
    }

    size_t Size() const { return size_; }
    bool Empty() const { return size_ == 0; }
    T& operator[](size_t i) { return blocks_[i / BlockElements][i % BlockElements]; }
    const T& operator[](size_t i) const { return blocks_[i / BlockElements][i % BlockElements]; }

    // Makes the list count long (bad_alloc when memory is exhausted).
    void Resize(size_t count)
    {
        _Grow(count);
        for (size_t i = size_; i < count; ++i)
            (*this)[i] = T();
        size_ = count;
    }
    void PushBack(const T& value)
    {
        if (size_ == _Capacity())
            _Grow(size_ + 1);
        (*this)[size_++] = value;
    }
    // Frees the blocks that hold nothing at or after index i; their values are gone.
    void ReleaseBefore(size_t i)
    {
        for (size_t b = 0; b < blocks_.size() && (b + 1) * BlockElements <= i; ++b)
            _Free(b);
    }
    void Clear()
    {
        for (size_t b = 0; b < blocks_.size(); ++b)
            _Free(b);
        blocks_.clear();
        size_ = 0;
        firstCapacity_ = 0;
    }

private:
    size_t _Capacity() const
    {
        return blocks_.size() <= 1 ? firstCapacity_ : blocks_.size() * BlockElements;
    }
    static size_t _BlockBytes(size_t capacity)
    {
        return capacity == BlockElements ? MStlStandardBlockBytes : capacity * sizeof(T);
    }
    void _Free(size_t b)
    {
        if (blocks_[b] != nullptr)
            MStlFreeBlock(blocks_[b], _BlockBytes(b == 0 ? firstCapacity_ : BlockElements));
        blocks_[b] = nullptr;
    }
    // Room for count values: the first block grows (by doubling, up to a whole block) while the
    // list fits one block; beyond that, whole blocks are added.
    void _Grow(size_t count)
    {
        if (count <= _Capacity())
            return;
        if (count <= BlockElements && blocks_.size() <= 1)
        {
            size_t capacity = std::max<size_t>(firstCapacity_ * 2, 64);
            capacity = std::min(std::max(capacity, count), BlockElements);
            T* block = static_cast<T*>(MStlAllocateBlock(_BlockBytes(capacity)));
            if (!blocks_.empty())
            {
                std::memcpy(static_cast<void*>(block), blocks_[0], size_ * sizeof(T));
                _Free(0);
                blocks_[0] = block;
            }
            else
            {
                blocks_.push_back(block);
            }
            firstCapacity_ = capacity;
            return;
        }
        if (!blocks_.empty() && firstCapacity_ < BlockElements)
        {
            // The first block becomes a whole one before more follow.
            T* block = static_cast<T*>(MStlAllocateBlock(MStlStandardBlockBytes));
            std::memcpy(static_cast<void*>(block), blocks_[0], size_ * sizeof(T));
            _Free(0);
            blocks_[0] = block;
            firstCapacity_ = BlockElements;
        }
        while (blocks_.size() * BlockElements < count)
        {
            blocks_.push_back(static_cast<T*>(MStlAllocateBlock(MStlStandardBlockBytes)));
            if (blocks_.size() == 1)
                firstCapacity_ = BlockElements;
        }
    }

    std::vector<T*> blocks_;
    size_t size_ = 0;
    size_t firstCapacity_ = 0; // capacity of the first block
};

template <typename T> class MStlBlockPool
{
    static_assert(std::is_trivially_destructible<T>::value, "pool elements are never destroyed one by one");

public:
    // Elements per block when no larger run is requested.
    static constexpr size_t DefaultBlock = 65536;
    // Elements of a standard block: bulk creation fills the pool in runs of this size, so that every
    // block but the last is a standard block.
    static constexpr size_t PieceElements = MStlStandardBlockBytes / sizeof(T);

    struct Block
    {
        T* data;
        size_t size;
        size_t capacity;
        size_t firstIndex; // index of data[0] in the pool's order
    };

    MStlBlockPool() = default;
    ~MStlBlockPool() { Clear(); }
    MStlBlockPool(const MStlBlockPool&) = delete;
    MStlBlockPool& operator=(const MStlBlockPool&) = delete;

    size_t Size() const { return size_; }
    const std::vector<Block>& Blocks() const { return blocks_; }

    // Room for count elements in one contiguous run, returned uninitialised; the caller constructs
    // them all and then calls Commit(count).
    T* Reserve(size_t count)
    {
        if (blocks_.empty() || blocks_.back().capacity - blocks_.back().size < count)
        {
            // A run of half a standard block or more gets a whole one.
            const size_t capacity =
                count >= PieceElements / 2 && count <= PieceElements ? PieceElements : std::max(count, DefaultBlock);
            T* data = static_cast<T*>(MStlAllocateBlock(BlockBytes(capacity)));
            blocks_.push_back(Block{data, 0, capacity, size_});
            byAddress_.clear();
        }
        Block& b = blocks_.back();
        return b.data + b.size;
    }
    void Commit(size_t count)
    {
        blocks_.back().size += count;
        size_ += count;
    }
    // Appends one element and returns it.
    T* Add(const T& value)
    {
        T* p = Reserve(1);
        new (p) T(value);
        Commit(1);
        return p;
    }

    // The element at a position in pool order, or null when out of range.
    T* At(size_t index) const
    {
        if (index >= size_)
            return nullptr;
        auto it = std::upper_bound(blocks_.begin(), blocks_.end(), index,
                                   [](size_t i, const Block& b) { return i < b.firstIndex; });
        const Block& b = *(it - 1);
        return b.data + (index - b.firstIndex);
    }
    // Position of an element of this pool, or SIZE_MAX for a foreign address.
    size_t IndexOf(const T* element) const
    {
        if (byAddress_.size() != blocks_.size())
        {
            byAddress_.resize(blocks_.size());
            for (size_t i = 0; i < blocks_.size(); ++i)
                byAddress_[i] = i;
            std::sort(byAddress_.begin(), byAddress_.end(),
                      [this](size_t a, size_t b)
                      { return std::less<const T*>()(blocks_[a].data, blocks_[b].data); });
        }
        auto it = std::upper_bound(byAddress_.begin(), byAddress_.end(), element,
                                   [this](const T* e, size_t b)
                                   { return std::less<const T*>()(e, blocks_[b].data); });
        if (it == byAddress_.begin())
            return SIZE_MAX;
        const Block& b = blocks_[*(it - 1)];
        if (!std::less<const T*>()(element, b.data + b.size))
            return SIZE_MAX;
        return b.firstIndex + static_cast<size_t>(element - b.data);
    }
    // Frees every block (elements are trivially destructible).
    void Clear()
    {
        for (Block& b : blocks_)
            MStlFreeBlock(b.data, BlockBytes(b.capacity));
        blocks_.clear();
        byAddress_.clear();
        size_ = 0;
    }

    // Forward iteration in pool order.
    template <typename Ref> class Iterator
    {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = std::remove_reference_t<Ref>*;
        using reference = Ref;

        Iterator() = default;
        Iterator(const MStlBlockPool* pool, size_t block, size_t offset)
            : pool_(pool), block_(block), offset_(offset)
        {
            Skip();
        }
        Ref operator*() const { return pool_->blocks_[block_].data[offset_]; }
        pointer operator->() const { return &**this; }
        Iterator& operator++()
        {
            ++offset_;
            Skip();
            return *this;
        }
        Iterator operator++(int)
        {
            Iterator old = *this;
            ++*this;
            return old;
        }
        friend bool operator==(const Iterator& a, const Iterator& b)
        {
            return a.block_ == b.block_ && a.offset_ == b.offset_;
        }
        friend bool operator!=(const Iterator& a, const Iterator& b) { return !(a == b); }

    private:
        void Skip()
        {
            while (pool_ && block_ < pool_->blocks_.size() && offset_ >= pool_->blocks_[block_].size)
            {
                ++block_;
                offset_ = 0;
            }
        }
        const MStlBlockPool* pool_ = nullptr;
        size_t block_ = 0;
        size_t offset_ = 0;
    };

    Iterator<T&> begin() const { return Iterator<T&>(this, 0, 0); }
    Iterator<T&> end() const { return Iterator<T&>(this, blocks_.size(), 0); }

private:
    // The bytes allocated for a block: a standard block for a whole piece.
    static size_t BlockBytes(size_t capacity)
    {
        return capacity == PieceElements ? MStlStandardBlockBytes : capacity * sizeof(T);
    }

    std::vector<Block> blocks_;
    mutable std::vector<size_t> byAddress_;
    size_t size_ = 0;
};
} // namespace KelSDK::Triangles::Data
