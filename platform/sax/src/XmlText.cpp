#include "XmlText.h"

#include <cstdint>

namespace KelSAX::Detail
{
bool IsElementName(std::string_view name)
{
    if (name.empty())
        return false;
    for (size_t i = 0; i < name.size(); ++i)
    {
        const char c = name[i];
        const bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
        const bool other = (c >= '0' && c <= '9') || c == '.' || c == '-';
        if (!letter && (i == 0 || !other))
            return false;
    }
    return true;
}

bool IsXmlText(std::string_view text)
{
    const auto* p = reinterpret_cast<const uint8_t*>(text.data());
    const auto* end = p + text.size();
    while (p != end)
    {
        const uint8_t c = *p;
        if (c < 0x80)
        {
            if (c < 0x20 && c != '\t' && c != '\n' && c != '\r')
                return false;
            ++p;
            continue;
        }
        int extra;
        uint32_t cp;
        if (c >= 0xC2 && c <= 0xDF)
        {
            extra = 1;
            cp = c & 0x1F;
        }
        else if (c >= 0xE0 && c <= 0xEF)
        {
            extra = 2;
            cp = c & 0x0F;
        }
        else if (c >= 0xF0 && c <= 0xF4)
        {
            extra = 3;
            cp = c & 0x07;
        }
        else
        {
            return false;
        }
        if (end - p <= extra)
            return false;
        for (int k = 1; k <= extra; ++k)
        {
            if ((p[k] & 0xC0) != 0x80)
                return false;
            cp = cp << 6 | (p[k] & 0x3F);
        }
        const uint32_t least = extra == 1 ? 0x80 : extra == 2 ? 0x800 : 0x10000;
        if (cp < least || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF) || cp == 0xFFFE || cp == 0xFFFF)
            return false;
        p += extra + 1;
    }
    return true;
}

void AppendEscaped(std::string& out, std::string_view text)
{
    size_t start = 0;
    for (size_t i = 0; i < text.size(); ++i)
    {
        const char* replacement = nullptr;
        switch (text[i])
        {
        case '&':
            replacement = "&amp;";
            break;
        case '<':
            replacement = "&lt;";
            break;
        case '>':
            replacement = "&gt;";
            break;
        case '\r':
            replacement = "&#13;";
            break;
        default:
            continue;
        }
        out.append(text.data() + start, i - start);
        out.append(replacement);
        start = i + 1;
    }
    out.append(text.data() + start, text.size() - start);
}

std::string_view TrimBlanks(std::string_view text)
{
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    size_t a = 0, b = text.size();
    while (a < b && blank(text[a]))
        ++a;
    while (b > a && blank(text[b - 1]))
        --b;
    return text.substr(a, b - a);
}
} // namespace KelSAX::Detail
