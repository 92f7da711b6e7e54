#include <KelSDK/Common/StringConversion.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

namespace SC = KelSDK::Common::StringConversion;

namespace
{
std::string bytes(std::initializer_list<unsigned> values)
{
    std::string s;
    for (unsigned v : values)
        s.push_back(static_cast<char>(v));
    return s;
}

// Every direction that must give the bytes back.
void expectByteRoundTrip(const std::string& s)
{
    EXPECT_EQ(SC::NativeToLocale(SC::LocaleToNative(s)), s);
    EXPECT_EQ(SC::NativeToUtf8(SC::Utf8ToNative(s)), s);
    EXPECT_EQ(SC::NativeToLocale(SC::LocaleToNative(s.c_str())), s.substr(0, s.find('\0')));
    EXPECT_EQ(SC::Utf16ToUtf8(SC::Utf8ToUtf16(s)), s);
    EXPECT_EQ(SC::NativeToUtf8(SC::Utf16ToNative(SC::NativeToUtf16(SC::Utf8ToNative(s)))), s);
}
} // namespace

TEST(StringConversion, ValidTextDecodesToItsCodePoints)
{
    EXPECT_EQ(SC::LocaleToNative("solid part"), L"solid part");
    EXPECT_EQ(SC::Utf8ToNative("\xC3\xA9t\xC3\xA9"), L"\u00E9t\u00E9");                  // 2-byte
    EXPECT_EQ(SC::Utf8ToNative("\xE2\x82\xAC 5"), L"\u20AC 5");                          // 3-byte
    EXPECT_EQ(SC::Utf8ToNative("\xF0\x9F\x98\x80"), std::wstring(1, wchar_t(0x1F600)));  // 4-byte
    EXPECT_EQ(SC::Utf8ToNative("\xF4\x8F\xBF\xBF"), std::wstring(1, wchar_t(0x10FFFF))); // the last
    EXPECT_EQ(SC::Utf8ToNative("\xEF\xBF\xBD"), L"\uFFFD");
    EXPECT_EQ(SC::Utf8ToUtf16("\xF0\x9F\x98\x80"), std::u16string(u"\xD83D\xDE00"));
    EXPECT_EQ(SC::NativeToUtf8(L"\u00E9\u20AC"), "\xC3\xA9\xE2\x82\xAC");
    EXPECT_EQ(SC::NativeToLocale(L"\u00E9"), "\xC3\xA9");
    EXPECT_EQ(SC::LocaleToNative(static_cast<const char*>(nullptr)), L"");
    EXPECT_EQ(SC::NativeToLocale(static_cast<const wchar_t*>(nullptr)), "");
    EXPECT_EQ(SC::Utf8ToNative(std::string("a\0b", 3)), std::wstring(L"a\0b", 3));
}

TEST(StringConversion, InvalidBytesBecomeSurrogateEscapes)
{
    // A Latin-1 name: 0xE9 is not UTF-8 and must not turn into U+00E9 (that would collide with "é").
    EXPECT_EQ(SC::Utf8ToNative("caf\xE9"), std::wstring(L"caf") + wchar_t(0xDCE9));
    EXPECT_NE(SC::Utf8ToNative("caf\xE9"), SC::Utf8ToNative("caf\xC3\xA9"));

    struct Case
    {
        std::string in;
        std::u16string expected;
    };
    const Case cases[] = {
        {bytes({0x80}), u"\xDC80"},                                     // stray continuation
        {bytes({0xC3}), u"\xDCC3"},                                     // truncated at the end
        {bytes({0xC3, 0x41}), u"\xDCC3\x41"},                           // truncated by ASCII
        {bytes({0xC0, 0xAF}), u"\xDCC0\xDCAF"},                         // overlong '/'
        {"a" + bytes({0xC0, 0xAF}) + "b", u"a\xDCC0\xDCAF\x62"},        // overlong inside a name
        {bytes({0xC1, 0xBF}), u"\xDCC1\xDCBF"},                         // overlong
        {bytes({0xE0, 0x80, 0xAF}), u"\xDCE0\xDC80\xDCAF"},             // overlong 3-byte '/'
        {bytes({0xF0, 0x80, 0x80, 0xAF}), u"\xDCF0\xDC80\xDC80\xDCAF"}, // overlong 4-byte
        {bytes({0xED, 0xA0, 0x80}), u"\xDCED\xDCA0\xDC80"},             // encoded surrogate U+D800
        {bytes({0xF4, 0x90, 0x80, 0x80}), u"\xDCF4\xDC90\xDC80\xDC80"}, // above U+10FFFF
        {bytes({0xF5, 0x80}), u"\xDCF5\xDC80"},
        {bytes({0xFF, 0xFE}), u"\xDCFF\xDCFE"},
        {bytes({0xE2, 0x82}), u"\xDCE2\xDC82"},             // truncated 3-byte
        {bytes({0xE2, 0x82, 0xAC, 0xAC}), u"\x20AC\xDCAC"}, // valid then stray
        {bytes({0xF0, 0x9F, 0x98, 0x80, 0xA0}), u"\xD83D\xDE00\xDCA0"},
    };
    for (const Case& c : cases)
    {
        EXPECT_EQ(SC::Utf8ToUtf16(c.in), c.expected);
        EXPECT_EQ(SC::NativeToUtf16(SC::Utf8ToNative(c.in)), c.expected);
        expectByteRoundTrip(c.in);
    }
}

TEST(StringConversion, ByteStringsRoundTripExactly)
{
    expectByteRoundTrip("");
    expectByteRoundTrip("plain ASCII solid name");
    expectByteRoundTrip("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80 mixed");
    expectByteRoundTrip(std::string("nul\0inside", 10));

    std::string all;
    for (int b = 0; b < 256; ++b)
        all.push_back(static_cast<char>(b));
    expectByteRoundTrip(all);

    // Random bytes, mostly invalid; and random short fragments of valid multi-byte sequences.
    std::mt19937 random(12345);
    const std::string pieces[] = {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                                  "a",        "\xED\x9F\xBF", "\xEE\x80\x80"};
    for (int round = 0; round < 500; ++round)
    {
        std::string s;
        const int length = static_cast<int>(random() % 24);
        for (int i = 0; i < length; ++i)
        {
            if (random() % 2)
                s.push_back(static_cast<char>(random() & 0xFF));
            else
            {
                const std::string& p = pieces[random() % 6];
                s += p.substr(0, 1 + random() % p.size());
            }
        }
        expectByteRoundTrip(s);
    }
}

TEST(StringConversion, WideTextThatUtf8CannotHoldBecomesReplacementCharacter)
{
    // Lone surrogates other than the escapes, and values beyond U+10FFFF.
    EXPECT_EQ(SC::NativeToUtf8(std::wstring(1, wchar_t(0xD800))), "\xEF\xBF\xBD");
    EXPECT_EQ(SC::NativeToUtf8(std::wstring(1, wchar_t(0xDC7F))), "\xEF\xBF\xBD");
    EXPECT_EQ(SC::NativeToUtf8(std::wstring(1, wchar_t(0xDD00))), "\xEF\xBF\xBD");
    EXPECT_EQ(SC::Utf16ToUtf8(u"\xD800"
                              u"A"),
              "\xEF\xBF\xBD"
              "A");
    EXPECT_EQ(SC::Utf16ToUtf8(u"\xDE00\xD83D"), "\xEF\xBF\xBD\xEF\xBF\xBD"); // pair in the wrong order
    EXPECT_EQ(SC::Utf16ToUtf8(u"\xD83D\xDE00"), "\xF0\x9F\x98\x80");
    if constexpr (sizeof(wchar_t) == 4)
    {
        EXPECT_EQ(SC::NativeToUtf8(std::wstring(1, static_cast<wchar_t>(0x110000))), "\xEF\xBF\xBD");
        EXPECT_EQ(SC::NativeToUtf8(std::wstring(1, static_cast<wchar_t>(-1))), "\xEF\xBF\xBD");
        EXPECT_EQ(SC::NativeToUtf16(std::wstring(1, static_cast<wchar_t>(0x110000))), u"\xFFFD");
    }
}

TEST(StringConversion, Utf16KeepsPairsAndLoneSurrogates)
{
    const std::wstring text = SC::Utf8ToNative("a\xC3\xA9\xF0\x9F\x98\x80\xFF");
    const std::u16string units = SC::NativeToUtf16(text);
    EXPECT_EQ(units, std::u16string(u"a\u00E9\xD83D\xDE00\xDCFF"));
    EXPECT_EQ(SC::Utf16ToNative(units), text);
    // Lone surrogates pass between the wide forms unchanged.
    const std::u16string lone = u"\xD800x\xDC00";
    EXPECT_EQ(SC::NativeToUtf16(SC::Utf16ToNative(lone)), lone);
}
