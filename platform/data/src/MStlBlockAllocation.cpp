#include <KelSDK/Triangles/Data/MStlBlockPool.h>

#include <cstdint>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace KelSDK::Triangles::Data
{
namespace
{
#if defined(__linux__)
// Blocks from this size on get a mapping of their own, aligned to and advised for 2 MiB pages.
constexpr size_t MapThreshold = size_t(8) << 20;
constexpr size_t HugePage = size_t(2) << 20;

size_t MappedSize(size_t bytes)
{
    return (bytes + HugePage - 1) & ~(HugePage - 1);
}
#endif
} // namespace

// Large blocks are filled right after they are allocated, so they are not populated in advance
// (that would make the kernel fault in and clear every page twice as fast but still one 4 KiB page
// at a time); backed by 2 MiB pages, the filling itself takes one fault per 2 MiB.
void* MStlAllocateBlock(size_t bytes)
{
#if defined(__linux__)
    if (bytes >= MapThreshold)
    {
        const size_t size = MappedSize(bytes);
        // Over-allocate by one huge page and trim both ends, so the block starts on a 2 MiB boundary.
        void* mapped = mmap(nullptr, size + HugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapped == MAP_FAILED)
            throw std::bad_alloc();
        const uintptr_t start = reinterpret_cast<uintptr_t>(mapped);
        const uintptr_t aligned = (start + HugePage - 1) & ~(uintptr_t(HugePage) - 1);
        if (aligned > start)
            munmap(mapped, aligned - start);
        const uintptr_t end = start + size + HugePage;
        if (end > aligned + size)
            munmap(reinterpret_cast<void*>(aligned + size), end - (aligned + size));
#if defined(MADV_HUGEPAGE)
        madvise(reinterpret_cast<void*>(aligned), size, MADV_HUGEPAGE);
#endif
        return reinterpret_cast<void*>(aligned);
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
        munmap(block, MappedSize(bytes));
        return;
    }
#else
    (void)bytes;
#endif
    ::operator delete(block);
}
} // namespace KelSDK::Triangles::Data
