// The 50-byte binary STL facet, decoded and encoded through memcpy of little-endian values.
//
//   offset  0  float32 x 3   normal x, y, z
//   offset 12  float32 x 3   vertex 1
//   offset 24  float32 x 3   vertex 2
//   offset 36  float32 x 3   vertex 3
//   offset 48  uint16        attribute word
#pragma once

#include <KelSDK/Triangles/IO/MStlFileTriangle.h>

#include <cstdint>
#include <cstring>

namespace KelSDK::Triangles::IO::Detail
{
#if defined(__BYTE_ORDER__) && defined(__ORDER_BIG_ENDIAN__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
inline constexpr bool kBigEndianHost = true;
#else
inline constexpr bool kBigEndianHost = false;
#endif

// Reads the little-endian 32-bit word at bytes.
inline uint32_t LoadU32(const unsigned char* bytes)
{
    return static_cast<uint32_t>(bytes[0]) | (static_cast<uint32_t>(bytes[1]) << 8) |
           (static_cast<uint32_t>(bytes[2]) << 16) | (static_cast<uint32_t>(bytes[3]) << 24);
}

// Stores value little-endian at bytes.
inline void StoreU32(unsigned char* bytes, uint32_t value)
{
    bytes[0] = static_cast<unsigned char>(value);
    bytes[1] = static_cast<unsigned char>(value >> 8);
    bytes[2] = static_cast<unsigned char>(value >> 16);
    bytes[3] = static_cast<unsigned char>(value >> 24);
}

// Reads the little-endian float32 at bytes.
inline float LoadF32(const unsigned char* bytes)
{
    float f;
    if constexpr (kBigEndianHost)
    {
        const uint32_t word = LoadU32(bytes);
        std::memcpy(&f, &word, 4);
    }
    else
    {
        std::memcpy(&f, bytes, 4);
    }
    return f;
}

// Stores f little-endian at bytes.
inline void StoreF32(unsigned char* bytes, float f)
{
    if constexpr (kBigEndianHost)
    {
        uint32_t word;
        std::memcpy(&word, &f, 4);
        StoreU32(bytes, word);
    }
    else
    {
        std::memcpy(bytes, &f, 4);
    }
}

// Fills facet from 50 bytes; each float32 is widened exactly to double.
inline void DecodeBinaryFacet(const unsigned char* bytes, MStlFileTriangle& facet)
{
    const auto load = [bytes](std::size_t field)
    {
        const unsigned char* p = bytes + 12 * field;
        return MStlFileTriangle::Point(LoadF32(p), LoadF32(p + 4), LoadF32(p + 8));
    };
    facet.SetNormal(load(0));
    facet.SetVertex(0, load(1));
    facet.SetVertex(1, load(2));
    facet.SetVertex(2, load(3));
    facet.SetAttribute(static_cast<uint16_t>(bytes[48] | (bytes[49] << 8)));
}

// Stores facet as 50 bytes; each double is narrowed to float32 (round to nearest, no clamping).
inline void EncodeBinaryFacet(const MStlFileTriangle& facet, unsigned char* bytes)
{
    const auto store = [bytes](std::size_t field, const MStlFileTriangle::Point& p)
    {
        unsigned char* q = bytes + 12 * field;
        for (std::size_t axis = 0; axis < 3; ++axis)
            StoreF32(q + 4 * axis, static_cast<float>(p[axis]));
    };
    store(0, facet.GetNormal());
    store(1, facet.GetVertex(0));
    store(2, facet.GetVertex(1));
    store(3, facet.GetVertex(2));
    const uint16_t attribute = facet.GetAttribute();
    bytes[48] = static_cast<unsigned char>(attribute & 0xFF);
    bytes[49] = static_cast<unsigned char>(attribute >> 8);
}
} // namespace KelSDK::Triangles::IO::Detail
