#include <KelSDK/Common/StringConversion.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

namespace SC = KelSDK::Common::StringConversion;

namespace
{
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

TEST(StringConversion, TextDecodesToCodePointsAndInvalidBytesToSurrogateEscapes)
{
    // A Latin-1 name: 0xE9 is not UTF-8 and must not turn into U+00E9 (that would collide with "é").
    EXPECT_EQ(SC::Utf8ToNative("caf\xE9"), std::wstring(L"caf") + wchar_t(0xDCE9));
    EXPECT_EQ(SC::Utf8ToNative("\xF0\x9F\x98\x80"), std::wstring(1, wchar_t(0x1F600)));
    EXPECT_EQ(SC::LocaleToNative(static_cast<const char*>(nullptr)), L"");
    EXPECT_EQ(SC::NativeToLocale(static_cast<const wchar_t*>(nullptr)), "");
    const std::pair<std::string, std::u16string> rows[] = {
        {"solid part", u"solid part"},
        {"\xC3\xA9t\xC3\xA9", u"\u00E9t\u00E9"}, // 2-byte
        {"\xE2\x82\xAC 5", u"\u20AC 5"},         // 3-byte
        {"\xEF\xBF\xBD", u"\uFFFD"},             // the replacement character itself
        {"\xF0\x9F\x98\x80", u"\xD83D\xDE00"},   // 4-byte
        {"\xF4\x8F\xBF\xBF", u"\xDBFF\xDFFF"},   // the last code point
        {std::string("a\0b", 3), std::u16string(u"a\0b", 3)},
        {"\x80", u"\xDC80"},                               // stray continuation
        {"\xC3", u"\xDCC3"},                               // truncated at the end
        {"\xC3\x41", u"\xDCC3\x41"},                       // truncated by ASCII
        {"a\xC0\xAF", u"a\xDCC0\xDCAF"},                   // overlong '/'
        {"\xE0\x80\xAF", u"\xDCE0\xDC80\xDCAF"},           // overlong 3-byte '/'
        {"\xF0\x80\x80\xAF", u"\xDCF0\xDC80\xDC80\xDCAF"}, // overlong 4-byte
        {"\xED\xA0\x80", u"\xDCED\xDCA0\xDC80"},           // encoded surrogate U+D800
        {"\xF4\x90\x80\x80", u"\xDCF4\xDC90\xDC80\xDC80"}, // above U+10FFFF
        {"\xF5\x80\xFF\xFE", u"\xDCF5\xDC80\xDCFF\xDCFE"}, // never valid lead bytes
        {"\xE2\x82\xAC\xAC", u"\x20AC\xDCAC"},             // valid then stray
        {"\xF0\x9F\x98\x80\xA0", u"\xD83D\xDE00\xDCA0"}};
    for (const auto& [in, expected] : rows)
    {
        EXPECT_EQ(SC::Utf8ToUtf16(in), expected);
        EXPECT_EQ(SC::NativeToUtf16(SC::Utf8ToNative(in)), expected);
        EXPECT_EQ(SC::Utf16ToNative(expected), SC::Utf8ToNative(in)); // escapes pass unchanged
        expectByteRoundTrip(in);
    }
}

TEST(StringConversion, EveryByteStringRoundTrips)
{
    // Every byte value.
    std::string all;
    for (int b = 0; b < 256; ++b)
        all.push_back(static_cast<char>(b));
    expectByteRoundTrip(all);
}

TEST(StringConversion, WideTextThatUtf8CannotHoldBecomesReplacementCharacter)
{
    // Lone surrogates other than the escapes and a pair in the wrong order; between the wide forms
    // lone surrogates pass unchanged.
    EXPECT_EQ(SC::NativeToUtf8({wchar_t(0xDC7F), wchar_t(0xD800)}), "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(SC::Utf16ToUtf8({0xDE00, 0xD83D}), "\xEF\xBF\xBD\xEF\xBF\xBD");
    const std::u16string lone = u"\xD800x\xDC00";
    EXPECT_EQ(SC::NativeToUtf16(SC::Utf16ToNative(lone)), lone);
}
