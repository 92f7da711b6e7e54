#include <KelSDK/Triangles/Data/MStlBlockPool.h>

#include <mutex>
#include <new>
#include <vector>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace KelSDK::Triangles::Data
{
namespace
{
#if defined(__linux__)
// Blocks from this size on get a mapping of their own, returned to the system when freed.
constexpr size_t MapThreshold = size_t(8) << 20;
#endif

// Standard blocks kept while a reuse scope lives.
struct Reuse
{
    std::mutex mutex;
    size_t scopes = 0;
    std::vector<void*> kept;
};

Reuse& TheReuse()
{
    static Reuse reuse;
    return reuse;
}

void* AllocateFromSystem(size_t bytes)
{
#if defined(__linux__)
    if (bytes >= MapThreshold)
    {
        void* block = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (block == MAP_FAILED)
            throw std::bad_alloc();
        return block;
    }
#endif
    return ::operator new(bytes);
}

void FreeToSystem(void* block, size_t bytes)
{
#if defined(__linux__)
    if (bytes >= MapThreshold)
    {
        munmap(block, bytes);
        return;
    }
#else
    (void)bytes;
#endif
    ::operator delete(block);
}
} // namespace

// Large blocks are filled right after they are allocated: they are neither populated in advance
// nor advised for huge pages. Both were measured: pre-faulting gains nothing over the faults of
// the filling itself, and on virtual machines whose host hands out memory on first touch, fresh
// 2 MiB pages cost several times more than 4 KiB ones.
void* MStlAllocateBlock(size_t bytes)
{
    if (bytes == MStlStandardBlockBytes)
    {
        Reuse& reuse = TheReuse();
        std::lock_guard<std::mutex> lock(reuse.mutex);
        if (!reuse.kept.empty())
        {
            void* block = reuse.kept.back();
            reuse.kept.pop_back();
            return block;
        }
    }
    return AllocateFromSystem(bytes);
}

void MStlFreeBlock(void* block, size_t bytes)
{
    if (block == nullptr)
        return;
    if (bytes >= MStlStandardBlockBytes)
    {
        Reuse& reuse = TheReuse();
        std::lock_guard<std::mutex> lock(reuse.mutex);
        if (reuse.scopes > 0)
        {
            if (bytes == MStlStandardBlockBytes)
            {
                reuse.kept.push_back(block);
                return;
            }
#if defined(__linux__)
            // A mapping can be freed in parts: its whole standard blocks are kept, the rest goes.
            unsigned char* bytesOf = static_cast<unsigned char*>(block);
            const size_t whole = bytes / MStlStandardBlockBytes;
            for (size_t i = 0; i < whole; ++i)
                reuse.kept.push_back(bytesOf + i * MStlStandardBlockBytes);
            if (bytes > whole * MStlStandardBlockBytes)
                munmap(bytesOf + whole * MStlStandardBlockBytes, bytes - whole * MStlStandardBlockBytes);
            return;
#endif
        }
    }
    FreeToSystem(block, bytes);
}

MStlBlockReuse::MStlBlockReuse()
{
    Reuse& reuse = TheReuse();
    std::lock_guard<std::mutex> lock(reuse.mutex);
    ++reuse.scopes;
}

MStlBlockReuse::~MStlBlockReuse()
{
    std::vector<void*> kept;
    {
        Reuse& reuse = TheReuse();
        std::lock_guard<std::mutex> lock(reuse.mutex);
        if (--reuse.scopes == 0)
            kept.swap(reuse.kept);
    }
    for (void* block : kept)
        FreeToSystem(block, MStlStandardBlockBytes);
}
} // namespace KelSDK::Triangles::Data

namespace KelSDK::Triangles::Data
{
void MStlBlockReuse::KeepAtMost(size_t bytes)
{
    std::vector<void*> surplus;
    {
        Reuse& reuse = TheReuse();
        std::lock_guard<std::mutex> lock(reuse.mutex);
        const size_t keep = bytes / MStlStandardBlockBytes + (bytes % MStlStandardBlockBytes != 0 ? 1 : 0);
        while (reuse.kept.size() > keep)
        {
            surplus.push_back(reuse.kept.back());
            reuse.kept.pop_back();
        }
    }
    for (void* block : surplus)
        FreeToSystem(block, MStlStandardBlockBytes);
}

size_t MStlBlockReuse::KeptBytes()
{
    Reuse& reuse = TheReuse();
    std::lock_guard<std::mutex> lock(reuse.mutex);
    return reuse.kept.size() * MStlStandardBlockBytes;
}
} // namespace KelSDK::Triangles::Data
