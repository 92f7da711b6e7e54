// Bounding box of the corners of facet lists, shared by the read driver and mesh building.
#pragma once

#include <KelSDK/Math/BoundingBox.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>

#include <limits>
#include <vector>

namespace KelSDK::Triangles::IO
{
// Box of every corner of every facet of every solid (normals are not part of it); the empty box
// (minimum +max, maximum -max) when there is no facet.
inline KelSDK::Math::boundingbox<double, 3>
MeasureFacetCorners(const std::vector<std::vector<MStlFileTriangle>>& solids)
{
    double lo[3], hi[3];
    for (int a = 0; a < 3; ++a)
    {
        lo[a] = std::numeric_limits<double>::max();
        hi[a] = std::numeric_limits<double>::lowest();
    }
    for (const auto& solid : solids)
        for (const MStlFileTriangle& facet : solid)
            for (int k = 0; k < 3; ++k)
            {
                const KelSDK::Math::point<double, 3>& c = facet.GetVertex(k);
                for (int a = 0; a < 3; ++a)
                {
                    lo[a] = c[a] < lo[a] ? c[a] : lo[a];
                    hi[a] = c[a] > hi[a] ? c[a] : hi[a];
                }
            }
    return {KelSDK::Math::point<double, 3>(lo[0], lo[1], lo[2]),
            KelSDK::Math::point<double, 3>(hi[0], hi[1], hi[2])};
}
} // namespace KelSDK::Triangles::IO
