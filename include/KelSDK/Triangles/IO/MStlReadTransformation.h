// Maps STL file coordinates (doubles) onto the signed 32-bit grid of the mesh.
#pragma once

#include <KelSDK/Math/Point.h>
#include <KelSDK/Triangles/IO/Export.h>

namespace KelSDK::Triangles::IO
{
// integer coordinate = round((coordinate + offset) * scale).
class KELSDK_TRIANGLES_IO_EXPORT MStlReadTransformation
{
public:
    // Offset (0, 0, 0), scale 1.0.
    MStlReadTransformation() = default;
    // The given offset and scale.
    MStlReadTransformation(const KelSDK::Math::point<double, 3>& offset, double scale)
        : offset(offset), scale(scale)
    {
    }

    // Rounds each axis half away from zero into out; false when some |(in + offset) * scale| exceeds
    // 2147483647 (out then holds clamped values that must not be used).
    bool Transform(const KelSDK::Math::point<double, 3>& in, KelSDK::Math::point<int, 3>& out) const;
    // (value + offset[axis]) * scale rounded like lround; axis 0, 1, 2 for x, y, z.
    long TransformCoordinate(double value, int axis) const;

    // Added to each coordinate before scaling.
    KelSDK::Math::point<double, 3> offset;
    // Integer steps per coordinate unit.
    double scale = 1.0;
};

// Inline: mesh building calls this for every corner of every facet.
inline bool MStlReadTransformation::Transform(const KelSDK::Math::point<double, 3>& in,
                                              KelSDK::Math::point<int, 3>& out) const
{
    constexpr double limit = 2147483647.0;
    bool inside = true;
    for (std::size_t axis = 0; axis < 3; ++axis)
    {
        const double v = (in[axis] + offset[axis]) * scale;
        if (v >= -limit && v <= limit)
        {
            out[axis] = static_cast<int>(v >= 0.0 ? v + 0.5 : v - 0.5);
        }
        else
        {
            // Out of range or NaN: a defined value instead of an overflowing conversion.
            out[axis] = v > 0.0 ? 2147483647 : (v < 0.0 ? -2147483647 - 1 : 0);
            inside = false;
        }
    }
    return inside;
}
} // namespace KelSDK::Triangles::IO
