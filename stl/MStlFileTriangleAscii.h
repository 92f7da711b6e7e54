// The token grammar of one ASCII STL facet, shared by MStlFileTriangle::ReadAscii (tokens taken
// from an std::istream) and MStlFileReaderAscii (tokens taken from its own large buffer).
#pragma once

#include <KelSDK/Common/StringUtilities.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>

#include <stdexcept>
#include <string_view>

namespace KelSDK::Triangles::IO::Detail
{
// The blanks that separate tokens: those of isspace in the "C" locale (space, \t \n \v \f \r),
// looked up in a table because the token scanners test every byte of the text.
struct StlSpaceTable
{
    bool isSpace[256] = {};
    constexpr StlSpaceTable()
    {
        isSpace[static_cast<unsigned char>(' ')] = true;
        for (unsigned char c = '\t'; c <= '\r'; ++c)
            isSpace[c] = true;
    }
};
inline constexpr StlSpaceTable kStlSpaceTable{};

inline bool IsStlSpace(unsigned char c)
{
    return kStlSpaceTable.isSpace[c];
}

// Case-insensitive keyword test. keyword is lower-case ASCII letters only, which lets one OR per byte
// decide; the answer is the one StringUtilities::EqualsNoCase gives. Inline because every token of a
// facet passes through it.
inline bool IsKeyword(std::string_view token, std::string_view keyword)
{
    if (token.size() != keyword.size())
        return false;
    for (std::size_t i = 0; i < token.size(); ++i)
    {
        if ((static_cast<unsigned char>(token[i]) | 0x20u) != static_cast<unsigned char>(keyword[i]))
            return false;
    }
    return true;
}

// Converts one number token; a token that is not a whole number is a format error of the facet.
inline double ConvertNumber(std::string_view token)
{
    double value = 0.0;
    if (!KelSDK::Common::StringUtilities::ExtractFloat(token.data(), token.size(), value))
        throw std::runtime_error("Can't convert double");
    return value;
}

// True for a token of the plain decimal form -?(d+(.d*)?|.d+)([eE][+-]?d+)?, which ConvertNumber
// always accepts; it answers without converting, for numbers that are read only to be checked.
inline bool IsPlainDecimal(std::string_view token)
{
    const char* p = token.data();
    const char* const end = p + token.size();
    const auto digits = [&p, end]()
    {
        const char* start = p;
        while (p != end && *p >= '0' && *p <= '9')
            ++p;
        return p != start;
    };
    if (p != end && *p == '-')
        ++p;
    const bool whole = digits();
    bool fraction = false;
    if (p != end && *p == '.')
    {
        ++p;
        fraction = digits();
    }
    if (!whole && !fraction)
        return false;
    if (p != end && (*p == 'e' || *p == 'E'))
    {
        ++p;
        if (p != end && (*p == '+' || *p == '-'))
            ++p;
        if (!digits())
            return false;
    }
    return p == end;
}

// Reads the next facet of the solid called solidName from tokens into facet.
//
// Tokens provides bool Next(std::string_view&) (false when no further token exists) and
// bool AtEnd() (a read has reached the end of the input). A token stays valid until the next call.
//
//   facet normal nx ny nz
//     outer loop
//       vertex x y z      (three times)
//     endloop
//   endfacet
//
// Keywords match in any case; anything between the expected keywords is skipped, so a stray word
// never fails a facet, only the end of the input does. Where a number is expected and the input has
// ended, the facet ends like at any other end of input. A facet without "normal" loses the token
// that follows "facet" (normally "outer") and therefore runs on into the next facet: files in the
// wild were read that way, and counts must stay as they always were.
// Returns false at the end of the input, at "endsolid solidName" (name compared exactly) and for a
// facet with a non-finite corner; throws std::runtime_error("Can't convert double") on a bad number.
// Without keepNormal the normal is only checked, and facet keeps the one it had.
template <bool keepNormal = true, class Tokens>
bool ParseAsciiFacet(Tokens& tokens, MStlFileTriangle& facet, std::string_view solidName)
{
    std::string_view token;
    bool sawFacet = false;
    while (!tokens.AtEnd())
    {
        if (!tokens.Next(token))
            return false;
        if (!solidName.empty() && IsKeyword(token, "endsolid"))
        {
            if (!tokens.Next(token))
                return false;
            if (token == solidName)
                return false;
        }
        if (IsKeyword(token, "facet"))
        {
            sawFacet = true;
            break;
        }
    }
    if (!sawFacet)
        return false;

    MStlFileTriangle::Point p;
    if (!tokens.Next(token))
        return false;
    if (IsKeyword(token, "normal"))
    {
        for (std::size_t axis = 0; axis < 3; ++axis)
        {
            if (!tokens.Next(token))
                return false;
            if (keepNormal)
                p[axis] = ConvertNumber(token);
            else if (!IsPlainDecimal(token))
                ConvertNumber(token);
        }
        if (keepNormal)
            facet.SetNormal(p);
    }

    const auto skipTo = [&tokens, &token](std::string_view keyword)
    {
        do
        {
            if (!tokens.Next(token))
                return false;
        } while (!IsKeyword(token, keyword));
        return true;
    };

    if (!skipTo("outer") || !skipTo("loop"))
        return false;
    for (std::size_t corner = 0; corner < 3; ++corner)
    {
        if (!skipTo("vertex"))
            return false;
        for (std::size_t axis = 0; axis < 3; ++axis)
        {
            if (!tokens.Next(token))
                return false;
            p[axis] = ConvertNumber(token);
        }
        facet.SetVertex(corner, p);
    }
    if (!skipTo("endloop") || !skipTo("endfacet"))
        return false;
    return facet.IsValid();
}
} // namespace KelSDK::Triangles::IO::Detail
