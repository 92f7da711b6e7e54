// Per-triangle colour: a defined flag and an RGB word (red in the lowest byte: 0x00BBGGRR).
#pragma once

#include <KelSDK/Triangles/Data/Export.h>

#include <cstdint>

namespace KelSDK::Triangles::Data
{
class KELSDK_TRIANGLES_DATA_EXPORT MStlColor
{
public:
    // An undefined colour (the triangle has no colour of its own).
    constexpr MStlColor() = default;
    // A defined colour with the given 0x00BBGGRR word (the top byte is ignored).
    constexpr explicit MStlColor(uint32_t rgb) : rgb_(rgb & 0xFFFFFFu), defined_(true) {}

    constexpr bool IsDefined() const { return defined_; }
    // The 0x00BBGGRR word; 0 for an undefined colour.
    constexpr uint32_t GetRGB() const { return rgb_; }
    // Makes the colour defined with the given 0x00BBGGRR word.
    constexpr void SetRGB(uint32_t rgb)
    {
        rgb_ = rgb & 0xFFFFFFu;
        defined_ = true;
    }
    // Makes the colour undefined.
    constexpr void Reset()
    {
        rgb_ = 0;
        defined_ = false;
    }
    constexpr uint8_t GetRed() const { return static_cast<uint8_t>(rgb_ & 0xFF); }
    constexpr uint8_t GetGreen() const { return static_cast<uint8_t>((rgb_ >> 8) & 0xFF); }
    constexpr uint8_t GetBlue() const { return static_cast<uint8_t>((rgb_ >> 16) & 0xFF); }

    friend constexpr bool operator==(const MStlColor& a, const MStlColor& b)
    {
        return a.defined_ == b.defined_ && a.rgb_ == b.rgb_;
    }
    friend constexpr bool operator!=(const MStlColor& a, const MStlColor& b) { return !(a == b); }

    // Decodes an STL attribute word: bits 0-4 red, 5-9 green, 10-14 blue (5 bits each, widened
    // with round(v*255/31)); bit 15 set means the facet has no colour (undefined result).
    static MStlColor ConvertFrom16BitValue(unsigned short word);
    // Encodes as an STL attribute word (8 to 5 bits with round(v*31/255)); undefined gives 0x8000.
    static unsigned short ConvertTo16BitValue(const MStlColor& color);

private:
    uint32_t rgb_ = 0;
    bool defined_ = false;
};

// Free-function spellings of the two conversions.
KELSDK_TRIANGLES_DATA_EXPORT MStlColor ConvertFrom16BitValue(unsigned short word);
KELSDK_TRIANGLES_DATA_EXPORT unsigned short ConvertTo16BitValue(const MStlColor& color);
} // namespace KelSDK::Triangles::Data
