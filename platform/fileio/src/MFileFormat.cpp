// FPRINTF: printf-style formatting that always writes a decimal point.
//
// The C library's printf follows the process locale (LC_NUMERIC), so a host application that
// sets a German locale would get "1,5" in an STL file. Here the format string is parsed once per
// call: literal text and plain integer, string and character conversions are written directly;
// floating-point conversions go through std::to_chars, which is locale-independent and much
// faster than printf, with flags and width applied by hand. The rare conversions that to_chars
// does not cover ('#' flag, %a, long double) use snprintf under the "C" locale.

#include <KelSDK/FileIO/MFile.h>

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>

#if defined(_WIN32)
#include <locale.h>
#elif defined(__APPLE__)
#include <xlocale.h>
#else
#include <locale.h>
#endif

namespace KelSDK::FileIO
{
namespace
{
// Widths and precisions beyond this are refused: no line of a mesh file needs them, and a
// width taken from an argument must not make one conversion write gigabytes.
constexpr int kLargestField = 100000;

struct Conversion
{
    bool left = false;      // '-'
    bool plus = false;      // '+'
    bool space = false;     // ' '
    bool alternate = false; // '#'
    bool zero = false;      // '0'
    int width = -1;
    int precision = -1;
    char length[3] = {0, 0, 0}; // "hh", "h", "l", "ll", "j", "z", "t", "L"
    char conversion = 0;
};

#if defined(_WIN32)
_locale_t CLocale()
{
    static const _locale_t locale = _create_locale(LC_ALL, "C");
    return locale;
}
#else
locale_t CLocale()
{
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    return locale;
}
#endif

// Rebuilds the printf text of one conversion ("%-08.3Lf") for the snprintf fallback.
std::string ConversionText(const Conversion& conv)
{
    std::string text = "%";
    if (conv.left)
        text += '-';
    if (conv.plus)
        text += '+';
    if (conv.space)
        text += ' ';
    if (conv.alternate)
        text += '#';
    if (conv.zero)
        text += '0';
    if (conv.width >= 0)
        text += std::to_string(conv.width);
    if (conv.precision >= 0)
        text += '.' + std::to_string(conv.precision);
    text += conv.length;
    text += conv.conversion;
    return text;
}

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
// One conversion through the C library under the "C" locale, its text stored in out.
template <typename Value> bool FormatWithCLibrary(const Conversion& conv, Value value, std::string& out)
{
    const std::string format = ConversionText(conv);
    char small[256];
#if defined(_WIN32)
    int n = _snprintf_l(small, sizeof(small), format.c_str(), CLocale(), value);
    if (n < 0)
    {
        n = _scprintf_l(format.c_str(), CLocale(), value);
    }
#else
    const locale_t previous = uselocale(CLocale());
    int n = std::snprintf(small, sizeof(small), format.c_str(), value);
#endif
    if (n >= 0 && static_cast<size_t>(n) < sizeof(small))
    {
        out.assign(small, static_cast<size_t>(n));
    }
    else if (n >= 0)
    {
        out.resize(static_cast<size_t>(n) + 1);
#if defined(_WIN32)
        n = _snprintf_l(&out[0], out.size(), format.c_str(), CLocale(), value);
#else
        n = std::snprintf(&out[0], out.size(), format.c_str(), value);
#endif
        out.resize(n >= 0 ? static_cast<size_t>(n) : 0);
    }
#if !defined(_WIN32)
    uselocale(previous);
#endif
    return n >= 0;
}
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

// Writes body (a number as to_chars made it, with its '-' if any) with the sign flags, zero
// padding and width of conv.
bool WritePadded(MFile& file, const Conversion& conv, const char* body, size_t length, bool zeroAllowed)
{
    char sign = 0;
    if (length != 0 && body[0] == '-')
    {
        sign = '-';
        ++body;
        --length;
    }
    else if (conv.plus)
    {
        sign = '+';
    }
    else if (conv.space)
    {
        sign = ' ';
    }
    const size_t total = length + (sign ? 1 : 0);
    const size_t width = conv.width > 0 ? static_cast<size_t>(conv.width) : 0;
    const size_t padding = width > total ? width - total : 0;
    static const char spaces[] = "                                ";
    static const char zeros[] = "00000000000000000000000000000000";
    auto pad = [&file](const char* fill, size_t count)
    {
        bool ok = true;
        while (ok && count != 0)
        {
            const size_t n = std::min(count, size_t{32});
            ok = file.WRITE(fill, n);
            count -= n;
        }
        return ok;
    };
    bool ok = true;
    const bool zeroPad = conv.zero && !conv.left && zeroAllowed;
    if (!conv.left && !zeroPad)
    {
        ok = pad(spaces, padding);
    }
    if (ok && sign)
    {
        ok = file.WRITE(&sign, 1);
    }
    if (ok && zeroPad)
    {
        ok = pad(zeros, padding);
    }
    if (ok && length != 0)
    {
        ok = file.WRITE(body, length);
    }
    if (ok && conv.left)
    {
        ok = pad(spaces, padding);
    }
    return ok;
}

bool WriteText(MFile& file, const std::string& text)
{
    return text.empty() || file.WRITE(text.data(), text.size());
}

bool FormatFloat(MFile& file, const Conversion& conv, double value)
{
    std::chars_format format = std::chars_format::fixed;
    const bool upper = conv.conversion == 'F' || conv.conversion == 'E' || conv.conversion == 'G';
    switch (conv.conversion)
    {
    case 'e':
    case 'E':
        format = std::chars_format::scientific;
        break;
    case 'g':
    case 'G':
        format = std::chars_format::general;
        break;
    default:
        break;
    }
    int precision = conv.precision < 0 ? 6 : conv.precision;
    if (format == std::chars_format::general && precision == 0)
    {
        precision = 1;
    }
    char text[512];
    const std::to_chars_result result = std::to_chars(text, text + sizeof(text), value, format, precision);
    if (result.ec != std::errc())
    {
        // Longer than 512 characters (%.600f, %f of 1e300 with many decimals).
        std::string out;
        return FormatWithCLibrary(conv, value, out) && WriteText(file, out);
    }
    const size_t length = static_cast<size_t>(result.ptr - text);
    const bool finite = std::isfinite(value);
    if (upper)
    {
        for (size_t i = 0; i < length; ++i)
        {
            if (text[i] >= 'a' && text[i] <= 'z')
            {
                text[i] = static_cast<char>(text[i] - 'a' + 'A');
            }
        }
    }
    return WritePadded(file, conv, text, length, finite);
}

template <typename Int> bool FormatInteger(MFile& file, const Conversion& conv, Int value)
{
    const bool plain = !conv.left && !conv.plus && !conv.space && !conv.alternate && !conv.zero &&
                       conv.width < 0 && conv.precision < 0;
    if (!plain || conv.conversion == 'o')
    {
        std::string out;
        return FormatWithCLibrary(conv, value, out) && WriteText(file, out);
    }
    char text[72];
    const int base = conv.conversion == 'x' || conv.conversion == 'X' ? 16 : 10;
    const std::to_chars_result result = std::to_chars(text, text + sizeof(text), value, base);
    const size_t length = static_cast<size_t>(result.ptr - text);
    if (conv.conversion == 'X')
    {
        for (size_t i = 0; i < length; ++i)
        {
            if (text[i] >= 'a' && text[i] <= 'f')
            {
                text[i] = static_cast<char>(text[i] - 'a' + 'A');
            }
        }
    }
    return file.WRITE(text, length);
}

bool IsSigned(char conversion)
{
    return conversion == 'd' || conversion == 'i';
}

// Takes the integer argument of a conversion by its length modifier and formats it.
bool FormatIntegerArgument(MFile& file, const Conversion& conv, va_list& args)
{
    const std::string_view length(conv.length);
    const bool isSigned = IsSigned(conv.conversion);
    if (length.empty())
    {
        return isSigned ? FormatInteger(file, conv, va_arg(args, int))
                        : FormatInteger(file, conv, va_arg(args, unsigned int));
    }
    if (length == "hh")
    {
        return isSigned ? FormatInteger(file, conv, static_cast<signed char>(va_arg(args, int)))
                        : FormatInteger(file, conv, static_cast<unsigned char>(va_arg(args, unsigned int)));
    }
    if (length == "h")
    {
        return isSigned ? FormatInteger(file, conv, static_cast<short>(va_arg(args, int)))
                        : FormatInteger(file, conv, static_cast<unsigned short>(va_arg(args, unsigned int)));
    }
    if (length == "l")
    {
        return isSigned ? FormatInteger(file, conv, va_arg(args, long))
                        : FormatInteger(file, conv, va_arg(args, unsigned long));
    }
    if (length == "ll")
    {
        return isSigned ? FormatInteger(file, conv, va_arg(args, long long))
                        : FormatInteger(file, conv, va_arg(args, unsigned long long));
    }
    if (length == "j")
    {
        return isSigned ? FormatInteger(file, conv, va_arg(args, intmax_t))
                        : FormatInteger(file, conv, va_arg(args, uintmax_t));
    }
    if (length == "z")
    {
        return isSigned ? FormatInteger(file, conv, va_arg(args, std::make_signed_t<size_t>))
                        : FormatInteger(file, conv, va_arg(args, size_t));
    }
    if (length == "t")
    {
        return isSigned ? FormatInteger(file, conv, va_arg(args, ptrdiff_t))
                        : FormatInteger(file, conv, va_arg(args, std::make_unsigned_t<ptrdiff_t>));
    }
    return false;
}

// Parses flags, width, precision and length of the conversion starting after '%'; *-arguments
// are taken from args. Returns the position after the conversion character, or null.
const char* ParseSpec(const char* p, Conversion& conv, va_list& args)
{
    for (;; ++p)
    {
        if (*p == '-')
            conv.left = true;
        else if (*p == '+')
            conv.plus = true;
        else if (*p == ' ')
            conv.space = true;
        else if (*p == '#')
            conv.alternate = true;
        else if (*p == '0')
            conv.zero = true;
        else if (*p != '\'') // thousands grouping: the "C" locale has none
            break;
    }
    if (*p == '*')
    {
        const int width = va_arg(args, int);
        if (width < -kLargestField || width > kLargestField)
        {
            return nullptr;
        }
        conv.left = conv.left || width < 0;
        conv.width = width < 0 ? -width : width;
        ++p;
    }
    else
    {
        for (; *p >= '0' && *p <= '9'; ++p)
        {
            conv.width = std::max(conv.width, 0);
            if (conv.width > kLargestField)
            {
                return nullptr;
            }
            conv.width = conv.width * 10 + (*p - '0');
        }
    }
    if (*p == '.')
    {
        ++p;
        conv.precision = 0;
        if (*p == '*')
        {
            const int precision = va_arg(args, int);
            if (precision > kLargestField)
            {
                return nullptr;
            }
            conv.precision = precision < 0 ? -1 : precision;
            ++p;
        }
        else
        {
            for (; *p >= '0' && *p <= '9'; ++p)
            {
                if (conv.precision > kLargestField)
                {
                    return nullptr;
                }
                conv.precision = conv.precision * 10 + (*p - '0');
            }
        }
    }
    if ((p[0] == 'h' && p[1] == 'h') || (p[0] == 'l' && p[1] == 'l'))
    {
        conv.length[0] = p[0];
        conv.length[1] = p[1];
        p += 2;
    }
    else if (*p == 'h' || *p == 'l' || *p == 'j' || *p == 'z' || *p == 't' || *p == 'L')
    {
        conv.length[0] = *p++;
    }
    conv.conversion = *p;
    return *p ? p + 1 : nullptr;
}
} // namespace

bool MFile::FPRINTF(const char* format, ...)
{
    if (mode_ != Mode::Write)
    {
        _SetError(StatusNotOpen);
        return false;
    }
    if (!format)
    {
        _SetError(StatusBadFormat);
        return false;
    }
    va_list args;
    va_start(args, format);
    bool ok = true;
    const char* p = format;
    while (ok && *p)
    {
        const char* percent = std::strchr(p, '%');
        const size_t literal = percent ? static_cast<size_t>(percent - p) : std::strlen(p);
        if (literal != 0)
        {
            ok = WRITE(p, literal);
        }
        if (!percent || !ok)
        {
            break;
        }
        if (percent[1] == '%')
        {
            ok = WRITE(percent, 1);
            p = percent + 2;
            continue;
        }
        Conversion conv;
        const char* next = ParseSpec(percent + 1, conv, args);
        if (!next)
        {
            _SetError(StatusBadFormat);
            ok = false;
            break;
        }
        p = next;
        const std::string_view length(conv.length);
        switch (conv.conversion)
        {
        case 'd':
        case 'i':
        case 'u':
        case 'x':
        case 'X':
        case 'o':
            ok = FormatIntegerArgument(*this, conv, args);
            if (!ok && !HasError())
            {
                _SetError(StatusBadFormat);
            }
            break;
        case 'f':
        case 'F':
        case 'e':
        case 'E':
        case 'g':
        case 'G':
        case 'a':
        case 'A':
            if (length == "L")
            {
                std::string out;
                ok = FormatWithCLibrary(conv, va_arg(args, long double), out) && WriteText(*this, out);
            }
            else if (conv.alternate || conv.conversion == 'a' || conv.conversion == 'A')
            {
                std::string out;
                ok = FormatWithCLibrary(conv, va_arg(args, double), out) && WriteText(*this, out);
            }
            else
            {
                ok = FormatFloat(*this, conv, va_arg(args, double));
            }
            break;
        case 'c':
        {
            const int c = va_arg(args, int);
            if (!length.empty())
            {
                ok = false; // %lc needs a wide-character locale
            }
            else if (conv.width < 0 && !conv.left)
            {
                const char byte = static_cast<char>(c);
                ok = WRITE(&byte, 1);
            }
            else
            {
                std::string out;
                ok = FormatWithCLibrary(conv, c, out) && WriteText(*this, out);
            }
            break;
        }
        case 's':
        {
            const char* text = va_arg(args, const char*);
            if (!length.empty())
            {
                ok = false; // %ls needs a wide-character locale
                break;
            }
            if (!text)
            {
                text = "(null)";
            }
            if (conv.width < 0 && conv.precision < 0)
            {
                ok = WRITE_STRING(text);
            }
            else
            {
                std::string out;
                ok = FormatWithCLibrary(conv, text, out) && WriteText(*this, out);
            }
            break;
        }
        case 'p':
        {
            std::string out;
            ok = FormatWithCLibrary(conv, va_arg(args, void*), out) && WriteText(*this, out);
            break;
        }
        default:
            // %n writes through a pointer and wide conversions need a locale: neither is offered.
            _SetError(StatusBadFormat);
            ok = false;
            break;
        }
    }
    va_end(args);
    if (!ok && !HasError())
    {
        _SetError(StatusBadFormat);
    }
    return ok;
}
} // namespace KelSDK::FileIO
