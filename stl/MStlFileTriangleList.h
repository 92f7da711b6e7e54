// Reserving the facet lists that the readers fill: one reservation from the known or estimated
// count, so that a list does not grow (and copy) while it is filled.
#pragma once

#include <KelSDK/Triangles/IO/MStlFileTriangle.h>

#include <cstddef>
#include <vector>

namespace KelSDK::Triangles::IO::Detail
{
// Reserves room for count more facets in list.
inline void ReserveFacets(std::vector<MStlFileTriangle>& list, std::size_t count)
{
    const std::size_t wanted = list.size() + count;
    if (wanted > list.capacity())
        list.reserve(wanted);
}
} // namespace KelSDK::Triangles::IO::Detail
