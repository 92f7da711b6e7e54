#include <KelSDK/Triangles/Data/MStlBlockPool.h>

#include <new>

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
} // namespace

// Large blocks are filled right after they are allocated: they are neither populated in advance
// nor advised for huge pages. Both were measured: pre-faulting gains nothing over the faults of
// the filling itself, and on virtual machines whose host hands out memory on first touch, fresh
// 2 MiB pages cost several times more than 4 KiB ones.
void* MStlAllocateBlock(size_t bytes)
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

void MStlFreeBlock(void* block, size_t bytes)
{
    if (block == nullptr)
        return;
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
} // namespace KelSDK::Triangles::Data
