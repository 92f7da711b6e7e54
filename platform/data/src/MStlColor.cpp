#include <KelSDK/Triangles/Data/MStlColor.h>

namespace KelSDK::Triangles::Data
{
namespace
{
// round(v * 31 / 255) and round(v * 255 / 31) in integers (no halves occur in either table).
constexpr uint32_t To5Bits(uint32_t v8)
{
    return (v8 * 31 + 127) / 255;
}
constexpr uint32_t To8Bits(uint32_t v5)
{
    return (v5 * 255 + 15) / 31;
}
} // namespace

MStlColor MStlColor::ConvertFrom16BitValue(unsigned short word)
{
    if (word & 0x8000u)
        return MStlColor();
    const uint32_t r = To8Bits(word & 0x1Fu);
    const uint32_t g = To8Bits((word >> 5) & 0x1Fu);
    const uint32_t b = To8Bits((word >> 10) & 0x1Fu);
    return MStlColor(r | (g << 8) | (b << 16));
}

unsigned short MStlColor::ConvertTo16BitValue(const MStlColor& color)
{
    if (!color.IsDefined())
        return 0x8000u;
    const uint32_t r = To5Bits(color.GetRed());
    const uint32_t g = To5Bits(color.GetGreen());
    const uint32_t b = To5Bits(color.GetBlue());
    return static_cast<unsigned short>(r | (g << 5) | (b << 10));
}

MStlColor ConvertFrom16BitValue(unsigned short word)
{
    return MStlColor::ConvertFrom16BitValue(word);
}
unsigned short ConvertTo16BitValue(const MStlColor& color)
{
    return MStlColor::ConvertTo16BitValue(color);
}
} // namespace KelSDK::Triangles::Data
