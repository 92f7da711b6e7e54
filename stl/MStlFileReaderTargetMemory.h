// Large working buffers of STL import: a hint that lets the operating system back them with huge
// pages. Filling a few hundred megabytes of fresh memory costs one page fault per 4 KiB page
// otherwise, which on some systems costs as much as the work done with the memory.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace KelSDK::Triangles::IO::Detail
{
// Advises transparent huge pages for the 2 MiB-aligned interior of a buffer of at least 8 MiB that
// has not been written yet (Linux; elsewhere, or when the system declines, nothing changes). The
// buffer works the same either way.
inline void AdviseHugePages(const void* data, size_t bytes)
{
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    constexpr uintptr_t hugePage = uintptr_t(1) << 21;
    if (data == nullptr || bytes < 4 * hugePage)
        return;
    const uintptr_t first = (reinterpret_cast<uintptr_t>(data) + hugePage - 1) & ~(hugePage - 1);
    const uintptr_t last = (reinterpret_cast<uintptr_t>(data) + bytes) & ~(hugePage - 1);
    if (last > first)
        madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
#else
    (void)data;
    (void)bytes;
#endif
}
} // namespace KelSDK::Triangles::IO::Detail
