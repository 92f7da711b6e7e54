#include "Base64.h"

#include <array>

namespace KelSAX::Detail
{
namespace
{
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr uint8_t kBlank = 0xFE;
constexpr uint8_t kInvalid = 0xFF;
constexpr uint8_t kPad = 0xFD;

constexpr std::array<uint8_t, 256> MakeTable()
{
    std::array<uint8_t, 256> table{};
    for (auto& v : table)
        v = kInvalid;
    for (uint8_t i = 0; i < 64; ++i)
        table[static_cast<uint8_t>(kAlphabet[i])] = i;
    table[' '] = table['\t'] = table['\r'] = table['\n'] = kBlank;
    table['='] = kPad;
    return table;
}
constexpr std::array<uint8_t, 256> kTable = MakeTable();

bool IsBlank(char c)
{
    return kTable[static_cast<uint8_t>(c)] == kBlank;
}
} // namespace

void AppendBase64(std::string& out, const void* data, size_t bytes)
{
    const auto* in = static_cast<const uint8_t*>(data);
    const size_t start = out.size();
    out.resize(start + (bytes + 2) / 3 * 4);
    char* o = out.data() + start;
    size_t i = 0;
    for (; bytes - i >= 3; i += 3)
    {
        const uint32_t v = uint32_t(in[i]) << 16 | uint32_t(in[i + 1]) << 8 | in[i + 2];
        *o++ = kAlphabet[v >> 18];
        *o++ = kAlphabet[(v >> 12) & 63];
        *o++ = kAlphabet[(v >> 6) & 63];
        *o++ = kAlphabet[v & 63];
    }
    if (bytes - i == 1)
    {
        const uint32_t v = uint32_t(in[i]) << 16;
        *o++ = kAlphabet[v >> 18];
        *o++ = kAlphabet[(v >> 12) & 63];
        *o++ = '=';
        *o++ = '=';
    }
    else if (bytes - i == 2)
    {
        const uint32_t v = uint32_t(in[i]) << 16 | uint32_t(in[i + 1]) << 8;
        *o++ = kAlphabet[v >> 18];
        *o++ = kAlphabet[(v >> 12) & 63];
        *o++ = kAlphabet[(v >> 6) & 63];
        *o++ = '=';
    }
}

bool Base64DecodedSize(std::string_view text, uint64_t& bytes)
{
    uint64_t symbols = 0;
    uint64_t pads = 0;
    for (char c : text)
    {
        if (IsBlank(c))
            continue;
        ++symbols;
        if (c == '=')
            ++pads;
    }
    if (symbols % 4 != 0 || pads > 2)
        return false;
    bytes = symbols / 4 * 3 - pads;
    return true;
}

bool DecodeBase64(std::string_view text, uint8_t* out, size_t bytes)
{
    const char* p = text.data();
    const char* end = p + text.size();
    size_t written = 0;
    uint8_t quad[4];
    int have = 0;
    bool ended = false;
    while (p != end)
    {
        // Fast path: four symbols in a row and room for three bytes.
        if (have == 0 && end - p >= 4 && bytes - written >= 3)
        {
            const uint8_t a = kTable[static_cast<uint8_t>(p[0])], b = kTable[static_cast<uint8_t>(p[1])];
            const uint8_t c = kTable[static_cast<uint8_t>(p[2])], d = kTable[static_cast<uint8_t>(p[3])];
            if ((a | b | c | d) < 64)
            {
                if (ended)
                    return false;
                const uint32_t v = uint32_t(a) << 18 | uint32_t(b) << 12 | uint32_t(c) << 6 | d;
                out[written++] = static_cast<uint8_t>(v >> 16);
                out[written++] = static_cast<uint8_t>(v >> 8);
                out[written++] = static_cast<uint8_t>(v);
                p += 4;
                continue;
            }
        }
        const uint8_t s = kTable[static_cast<uint8_t>(*p++)];
        if (s == kBlank)
            continue;
        if (s == kInvalid || ended)
            return false;
        quad[have++] = s;
        if (have < 4)
            continue;
        have = 0;
        // Padding: "xx==" or "xxx=" at the very end only.
        int data = 4;
        if (quad[3] == kPad)
            data = quad[2] == kPad ? 2 : 3;
        if (quad[0] == kPad || quad[1] == kPad || (quad[2] == kPad && quad[3] != kPad))
            return false;
        for (int k = data; k < 4; ++k)
            quad[k] = 0;
        const uint32_t v =
            uint32_t(quad[0]) << 18 | uint32_t(quad[1]) << 12 | uint32_t(quad[2]) << 6 | quad[3];
        const size_t n = static_cast<size_t>(data - 1);
        if (bytes - written < n)
            return false;
        if (data < 4 && (v & (data == 2 ? 0xFFFFu : 0xFFu)) != 0)
            return false; // padding bits must be zero
        for (size_t k = 0; k < n; ++k)
            out[written++] = static_cast<uint8_t>(v >> (16 - 8 * k));
        if (data < 4)
            ended = true;
    }
    return have == 0 && written == bytes;
}
} // namespace KelSAX::Detail
