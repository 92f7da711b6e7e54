#include <KelSDK/Common/StringConversion.h>

#include <cstdint>
#include <cstring>
#include <string>

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#endif

namespace KelSDK::Common::StringConversion
{
namespace
{
constexpr char32_t replacementCharacter = 0xFFFD;
constexpr char32_t escapeBase = 0xDC00; // invalid byte b (0x80..0xFF) becomes U+DC00 + b

bool isContinuation(unsigned char b)
{
    return (b & 0xC0) == 0x80;
}

// Appends one code point as UTF-32, or as UTF-16 (a surrogate pair above U+FFFF) for 16-bit units.
template <typename Unit> void appendCodePoint(std::basic_string<Unit>& out, char32_t cp)
{
    if constexpr (sizeof(Unit) == 2)
    {
        if (cp >= 0x10000)
        {
            cp -= 0x10000;
            out.push_back(static_cast<Unit>(0xD800 + (cp >> 10)));
            out.push_back(static_cast<Unit>(0xDC00 + (cp & 0x3FF)));
            return;
        }
    }
    out.push_back(static_cast<Unit>(cp));
}

// Length of the valid UTF-8 sequence starting at s[i] and its code point; 0 when it is not valid.
// Only the shortest form of each code point is valid, and surrogates and values above U+10FFFF are not.
std::size_t decodeOne(const unsigned char* s, std::size_t i, std::size_t n, char32_t& cp)
{
    const unsigned char b0 = s[i];
    const std::size_t left = n - i;
    if (b0 >= 0xC2 && b0 <= 0xDF)
    {
        if (left < 2 || !isContinuation(s[i + 1]))
            return 0;
        cp = (char32_t(b0 & 0x1F) << 6) | (s[i + 1] & 0x3F);
        return 2;
    }
    if (b0 >= 0xE0 && b0 <= 0xEF)
    {
        if (left < 3)
            return 0;
        const unsigned char b1 = s[i + 1];
        const unsigned char lo = (b0 == 0xE0) ? 0xA0 : 0x80; // E0 80..9F would be overlong
        const unsigned char hi = (b0 == 0xED) ? 0x9F : 0xBF; // ED A0..BF would be a surrogate
        if (b1 < lo || b1 > hi || !isContinuation(s[i + 2]))
            return 0;
        cp = (char32_t(b0 & 0x0F) << 12) | (char32_t(b1 & 0x3F) << 6) | (s[i + 2] & 0x3F);
        return 3;
    }
    if (b0 >= 0xF0 && b0 <= 0xF4)
    {
        if (left < 4)
            return 0;
        const unsigned char b1 = s[i + 1];
        const unsigned char lo = (b0 == 0xF0) ? 0x90 : 0x80; // F0 80..8F would be overlong
        const unsigned char hi = (b0 == 0xF4) ? 0x8F : 0xBF; // F4 90.. would exceed U+10FFFF
        if (b1 < lo || b1 > hi || !isContinuation(s[i + 2]) || !isContinuation(s[i + 3]))
            return 0;
        cp = (char32_t(b0 & 0x07) << 18) | (char32_t(b1 & 0x3F) << 12) | (char32_t(s[i + 2] & 0x3F) << 6) |
             (s[i + 3] & 0x3F);
        return 4;
    }
    return 0;
}

template <typename Unit> std::basic_string<Unit> decodeUtf8(const char* text, std::size_t n)
{
    std::basic_string<Unit> out;
    out.reserve(n);
    const auto* s = reinterpret_cast<const unsigned char*>(text);
    std::size_t i = 0;
    while (i < n)
    {
        const unsigned char b0 = s[i];
        if (b0 < 0x80)
        {
            out.push_back(static_cast<Unit>(b0));
            ++i;
            continue;
        }
        char32_t cp = 0;
        const std::size_t len = decodeOne(s, i, n, cp);
        if (len == 0)
        {
            out.push_back(static_cast<Unit>(escapeBase + b0));
            ++i;
            continue;
        }
        appendCodePoint(out, cp);
        i += len;
    }
    return out;
}

void appendUtf8(std::string& out, char32_t cp)
{
    if (cp < 0x80)
        out.push_back(static_cast<char>(cp));
    else if (cp < 0x800)
    {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
    else if (cp < 0x10000)
    {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
    else
    {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

// Reads the next code point from 32-bit or 16-bit units (a high surrogate followed by a low one in
// 16-bit units forms a pair); lone surrogates are returned as they are.
template <typename Unit> char32_t nextCodePoint(const Unit* s, std::size_t n, std::size_t& i)
{
    char32_t cp = static_cast<char32_t>(s[i]);
    if constexpr (sizeof(Unit) == 2)
    {
        cp &= 0xFFFF;
        if (cp >= 0xD800 && cp <= 0xDBFF && n - i >= 2)
        {
            const char32_t low = static_cast<char32_t>(s[i + 1]) & 0xFFFF;
            if (low >= 0xDC00 && low <= 0xDFFF)
            {
                i += 2;
                return 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
            }
        }
    }
    ++i;
    return cp;
}

template <typename Unit> std::string encodeUtf8(const Unit* s, std::size_t n)
{
    std::string out;
    out.reserve(n);
    std::size_t i = 0;
    while (i < n)
    {
        const char32_t cp = nextCodePoint(s, n, i);
        if (cp >= escapeBase + 0x80 && cp <= escapeBase + 0xFF)
            out.push_back(static_cast<char>(static_cast<unsigned char>(cp - escapeBase)));
        else if ((cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF)
            appendUtf8(out, replacementCharacter);
        else
            appendUtf8(out, cp);
    }
    return out;
}

// Re-encodes between unit widths without judging the content: pairs join (16 to 32 bits) or split
// (32 to 16 bits), lone surrogates pass through, values above U+10FFFF become U+FFFD.
template <typename To, typename From> std::basic_string<To> recode(const From* s, std::size_t n)
{
    std::basic_string<To> out;
    out.reserve(n);
    std::size_t i = 0;
    while (i < n)
    {
        char32_t cp = nextCodePoint(s, n, i);
        if (cp > 0x10FFFF)
            cp = replacementCharacter;
        appendCodePoint(out, cp);
    }
    return out;
}

#ifdef _WIN32
// Locale text on Windows is in the ANSI code page.
std::wstring ansiToWide(const char* text, std::size_t n)
{
    if (n == 0)
        return std::wstring();
    std::wstring out;
    const int count = MultiByteToWideChar(CP_ACP, 0, text, static_cast<int>(n), nullptr, 0);
    if (count <= 0)
        return decodeUtf8<wchar_t>(text, n);
    out.resize(static_cast<std::size_t>(count));
    MultiByteToWideChar(CP_ACP, 0, text, static_cast<int>(n), &out[0], count);
    return out;
}

std::string wideToAnsi(const wchar_t* text, std::size_t n)
{
    if (n == 0)
        return std::string();
    std::string out;
    const int count = WideCharToMultiByte(CP_ACP, 0, text, static_cast<int>(n), nullptr, 0, nullptr, nullptr);
    if (count <= 0)
        return encodeUtf8(text, n);
    out.resize(static_cast<std::size_t>(count));
    WideCharToMultiByte(CP_ACP, 0, text, static_cast<int>(n), &out[0], count, nullptr, nullptr);
    return out;
}
#endif
} // namespace

std::wstring LocaleToNative(const char* text)
{
    if (!text)
        return std::wstring();
#ifdef _WIN32
    return ansiToWide(text, std::strlen(text));
#else
    return decodeUtf8<wchar_t>(text, std::strlen(text));
#endif
}

std::wstring LocaleToNative(const std::string& text)
{
#ifdef _WIN32
    return ansiToWide(text.data(), text.size());
#else
    return decodeUtf8<wchar_t>(text.data(), text.size());
#endif
}

std::string NativeToLocale(const wchar_t* text)
{
    if (!text)
        return std::string();
#ifdef _WIN32
    return wideToAnsi(text, std::wcslen(text));
#else
    return encodeUtf8(text, std::wcslen(text));
#endif
}

std::string NativeToLocale(const std::wstring& text)
{
#ifdef _WIN32
    return wideToAnsi(text.data(), text.size());
#else
    return encodeUtf8(text.data(), text.size());
#endif
}

std::string NativeToUtf8(const std::wstring& text)
{
    return encodeUtf8(text.data(), text.size());
}

std::wstring Utf8ToNative(const std::string& text)
{
    return decodeUtf8<wchar_t>(text.data(), text.size());
}

std::u16string NativeToUtf16(const std::wstring& text)
{
    return recode<char16_t>(text.data(), text.size());
}

std::wstring Utf16ToNative(const std::u16string& text)
{
    return recode<wchar_t>(text.data(), text.size());
}

std::u16string Utf8ToUtf16(const std::string& text)
{
    return decodeUtf8<char16_t>(text.data(), text.size());
}

std::string Utf16ToUtf8(const std::u16string& text)
{
    return encodeUtf8(text.data(), text.size());
}
} // namespace KelSDK::Common::StringConversion
