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
// Blocks from this size on get their own populated mapping.
constexpr size_t MapThreshold = size_t(8) << 20;
#endif
} // namespace

void* MStlAllocateBlock(size_t bytes)
{
#if defined(__linux__)
    if (bytes >= MapThreshold)
    {
        void* block =
            mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
        if (block == MAP_FAILED)
            throw std::bad_alloc();
        return block;
    }
#endif
    return ::operator new(bytes);
}

void MStlFreeBlock(void* block, size_t bytes)
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
} // namespace KelSDK::Triangles::Data
