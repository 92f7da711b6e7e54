// Scanning STL text for the ends of blank runs and tokens, sixteen bytes at a time where the
// processor has SSE2 (every x86-64 does), byte by byte elsewhere. Both scans need a stop byte of
// the kind they look for at the end of the data, and may read up to 15 bytes past it, which the
// buffer must hold (initialised, so that no tool reports a read of undefined memory).
#pragma once

#include "MStlFileTriangleAscii.h"

#include <cstddef>

#if defined(__SSE2__) || defined(_M_X64) || defined(_M_AMD64)
#include <emmintrin.h>
#define KEL_STL_SCAN_SSE2 1
#endif

namespace KelSDK::Triangles::IO::Detail
{
// Bytes a buffer must hold beyond its stop byte.
constexpr std::size_t kScanPadding = 16;

#if defined(KEL_STL_SCAN_SSE2)
// Bit i set when byte i of the sixteen at p is a blank: ' ', or '\t' to '\r' (9 to 13).
inline unsigned BlankMask(const char* p)
{
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i space = _mm_cmpeq_epi8(v, _mm_set1_epi8(' '));
    const __m128i fromTab = _mm_sub_epi8(v, _mm_set1_epi8(9));
    const __m128i control = _mm_cmpeq_epi8(_mm_min_epu8(fromTab, _mm_set1_epi8(4)), fromTab);
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(space, control)));
}

inline unsigned LowestBit(unsigned mask)
{
#if defined(_MSC_VER) && !defined(__clang__)
    unsigned long index;
    _BitScanForward(&index, mask);
    return static_cast<unsigned>(index);
#else
    return static_cast<unsigned>(__builtin_ctz(mask));
#endif
}
#endif

// The first byte at or after p that is not a blank.
inline const char* SkipBlanks(const char* p)
{
#if defined(KEL_STL_SCAN_SSE2)
    for (;; p += 16)
    {
        const unsigned other = ~BlankMask(p) & 0xFFFFu;
        if (other != 0)
            return p + LowestBit(other);
    }
#else
    while (IsStlSpace(static_cast<unsigned char>(*p)))
        ++p;
    return p;
#endif
}

// The first blank at or after p.
inline const char* SkipToken(const char* p)
{
#if defined(KEL_STL_SCAN_SSE2)
    for (;; p += 16)
    {
        const unsigned blanks = BlankMask(p);
        if (blanks != 0)
            return p + LowestBit(blanks);
    }
#else
    while (!IsStlSpace(static_cast<unsigned char>(*p)))
        ++p;
    return p;
#endif
}
} // namespace KelSDK::Triangles::IO::Detail
