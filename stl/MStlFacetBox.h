// Bounding box of the corners of facets, for mesh building when the caller has not measured it.
#pragma once

#include <KelSDK/Math/BoundingBox.h>

#include <cstdint>
#include <limits>

namespace KelSDK::Triangles::IO::Detail
{
// Box of every corner of every facet of a source (MStlFacetLists.h; normals are not part of it);
// the empty box (minimum +max, maximum -max) when there is no facet. NaN coordinates are left out.
template <class Source> KelSDK::Math::boundingbox<double, 3> MeasureFacetCorners(const Source& source)
{
    double lo[3], hi[3];
    for (int a = 0; a < 3; ++a)
    {
        lo[a] = std::numeric_limits<double>::max();
        hi[a] = std::numeric_limits<double>::lowest();
    }
    source.ForEachFacet(
        [&](const auto* corners, uint16_t)
        {
            for (int i = 0; i < 9; ++i)
            {
                const double v = corners[i];
                const int a = i % 3;
                lo[a] = v < lo[a] ? v : lo[a];
                hi[a] = v > hi[a] ? v : hi[a];
            }
        });
    return {KelSDK::Math::point<double, 3>(lo[0], lo[1], lo[2]), KelSDK::Math::point<double, 3>(hi[0], hi[1], hi[2])};
}
} // namespace KelSDK::Triangles::IO::Detail
