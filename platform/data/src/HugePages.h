// A hint that a large table which is accessed at random may use 2 MiB pages.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace KelSDK::Triangles::Data
{
// Advises 2 MiB pages for the 2 MiB-aligned interior of a table of at least 8 MiB that has not been
// written yet (Linux; elsewhere, or when the system declines, nothing changes). Only for memory that
// is probed at random: there the translation misses of 4 KiB pages cost more than the slower first
// touch of 2 MiB pages; memory that is filled and read in order is better left to 4 KiB pages.
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
} // namespace KelSDK::Triangles::Data
