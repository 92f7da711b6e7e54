#include <KelSDK/Common/StringUtilities.h>

#include <charconv>
#include <cstdint>
#include <limits>
#include <system_error>

namespace KelSDK::Common::StringUtilities
{
namespace
{
char lowerAscii(char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

int digitValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    const char l = lowerAscii(c);
    if (l >= 'a' && l <= 'f')
        return l - 'a' + 10;
    return -1;
}

// Decides whether a number that std::from_chars found out of range lies above the double range
// (true) or below the smallest denormal (false). The text has already been matched completely, so it
// is digits with an optional point and an optional exponent ('e' for decimal, 'p' for hexadecimal).
// The power of the leading non-zero digit plus the exponent has the sign of the answer: overflow
// needs a value of at least about 2^1024, underflow one below 2^-1074.
bool isOverflow(const char* p, const char* end, bool hex)
{
    const int base = hex ? 16 : 10;
    const int64_t digitPower = hex ? 4 : 1; // exponent units (of 2 or 10) per digit
    const char exponentMark = hex ? 'p' : 'e';
    const int64_t limit = int64_t(1) << 40;

    int64_t leading = 0; // power (in exponent units) of the first non-zero digit
    bool seenNonZero = false;
    bool afterPoint = false;
    int64_t integerDigits = 0;
    int64_t fractionZeros = 0;
    for (; p != end && lowerAscii(*p) != exponentMark; ++p)
    {
        if (*p == '.')
        {
            afterPoint = true;
            continue;
        }
        const int d = digitValue(*p);
        if (d < 0 || d >= base)
            break;
        if (!afterPoint)
        {
            if (seenNonZero || d != 0)
            {
                seenNonZero = true;
                if (integerDigits < limit)
                    ++integerDigits;
            }
        }
        else if (!seenNonZero)
        {
            if (d == 0)
            {
                if (fractionZeros < limit)
                    ++fractionZeros;
            }
            else
                seenNonZero = true;
        }
    }
    leading = integerDigits > 0 ? (integerDigits - 1) * digitPower : -(fractionZeros + 1) * digitPower;

    int64_t exponent = 0;
    if (p != end && lowerAscii(*p) == exponentMark)
    {
        ++p;
        bool negative = false;
        if (p != end && (*p == '+' || *p == '-'))
        {
            negative = *p == '-';
            ++p;
        }
        for (; p != end && *p >= '0' && *p <= '9'; ++p)
            if (exponent < limit)
                exponent = exponent * 10 + (*p - '0');
        if (negative)
            exponent = -exponent;
    }
    return leading + exponent > 0;
}
} // namespace

bool ExtractFloat(const char* text, std::size_t length, double& value)
{
    if (!text || length == 0)
        return false;
    const char* p = text;
    const char* const end = text + length;
    bool negative = false;
    if (*p == '+' || *p == '-')
    {
        negative = *p == '-';
        ++p;
    }
    // std::from_chars takes no '+' and its own '-' only once; a second sign is never a number.
    if (p == end || *p == '+' || *p == '-')
        return false;

    bool hex = false;
    std::chars_format format = std::chars_format::general;
    if (end - p >= 2 && p[0] == '0' && (p[1] == 'x' || p[1] == 'X'))
    {
        // strtod's hexadecimal form; from_chars wants it without the prefix. At least one hex digit or
        // the point must follow, else strtod would read only the "0" (and "0xinf" is no number).
        hex = true;
        format = std::chars_format::hex;
        p += 2;
        if (p == end || (*p != '.' && digitValue(*p) < 0))
            return false;
    }

    double parsed = 0.0;
    const std::from_chars_result r = std::from_chars(p, end, parsed, format);
    if (r.ptr != end)
        return false;
    if (r.ec == std::errc::result_out_of_range)
        parsed = isOverflow(p, end, hex) ? std::numeric_limits<double>::infinity() : 0.0;
    else if (r.ec != std::errc())
        return false;
    value = negative ? -parsed : parsed;
    return true;
}

bool ExtractFloat(std::string_view token, double& value)
{
    return ExtractFloat(token.data(), token.size(), value);
}

bool EqualsNoCase(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (lowerAscii(a[i]) != lowerAscii(b[i]))
            return false;
    return true;
}

bool StartsWithNoCase(std::string_view text, std::string_view prefix)
{
    return text.size() >= prefix.size() && EqualsNoCase(text.substr(0, prefix.size()), prefix);
}
} // namespace KelSDK::Common::StringUtilities
