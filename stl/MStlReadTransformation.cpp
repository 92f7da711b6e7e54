#include <KelSDK/Triangles/IO/MStlReadTransformation.h>

#include <cmath>
#include <limits>

namespace KelSDK::Triangles::IO
{
long MStlReadTransformation::TransformCoordinate(double value, int axis) const
{
    const double v = (value + offset[static_cast<std::size_t>(axis)]) * scale;
    const double rounded = std::round(v); // halves away from zero, like lround
    // lround leaves values outside long (and NaN) unspecified; give them the nearest end of the range.
    constexpr double above = -static_cast<double>(std::numeric_limits<long>::min()); // 2^31 or 2^63
    if (rounded >= above)
        return std::numeric_limits<long>::max();
    if (rounded < -above)
        return std::numeric_limits<long>::min();
    if (std::isnan(rounded))
        return 0;
    return static_cast<long>(rounded);
}
} // namespace KelSDK::Triangles::IO
