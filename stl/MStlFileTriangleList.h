// Reserving the facet lists that the readers fill: one reservation from the known or estimated
// count, and on Linux a hint that large lists may use huge pages, which cuts the page faults of
// filling hundreds of megabytes of fresh memory by a factor of several hundred.
#pragma once

#include <KelSDK/Triangles/IO/MStlFileTriangle.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace KelSDK::Triangles::IO::Detail
{
// Reserves room for count more facets in list.
inline void ReserveFacets(std::vector<MStlFileTriangle>& list, std::size_t count)
{
    const std::size_t wanted = list.size() + count;
    if (wanted <= list.capacity())
        return;
    list.reserve(wanted);
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    // Only the whole 2 MiB pages inside the block are advised; small lists are left alone.
    constexpr std::uintptr_t kHuge = std::uintptr_t(2) << 20;
    const std::uintptr_t begin = reinterpret_cast<std::uintptr_t>(list.data());
    const std::uintptr_t end = begin + list.capacity() * sizeof(MStlFileTriangle);
    const std::uintptr_t first = (begin + kHuge - 1) & ~(kHuge - 1);
    const std::uintptr_t last = end & ~(kHuge - 1);
    if (last > first)
        ::madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
#endif
}
} // namespace KelSDK::Triangles::IO::Detail
