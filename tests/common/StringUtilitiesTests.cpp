#include <KelSDK/Common/StringUtilities.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

using KelSDK::Common::StringUtilities::EqualsNoCase;
using KelSDK::Common::StringUtilities::ExtractFloat;
using KelSDK::Common::StringUtilities::StartsWithNoCase;

TEST(ExtractFloat, AcceptsWholeNumbersAsStrtodReadsThemInTheCLocale)
{
    // Limits of float and double, the smallest normal and denormal; beyond the range infinity, below
    // the smallest denormal zero (with the sign of the token), as strtod gives them; hexadecimal.
    std::istringstream accepted(
        "0 +1 1. -.5 +.5e-3 1E+05 00012.500 -1.234567e+02 3.4028234663852886e+38 1.7976931348623157e308 "
        "2.2250738585072014e-308 4.9406564584124654e-324 1e-310 inf INF -Infinity +inf 1e999 -1e999 "
        "1e99999999999999999999 1e-999 -1e-999 2e-324 0.0000000000000000000000000001e-400 0x10 0X1.8p1 -0x.8 "
        "0x1p-1074 0x1p1024 0x1p-1080 0xA.8P0");
    std::string token;
    while (accepted >> token)
    {
        char* end = nullptr;
        const double expected = std::strtod(token.c_str(), &end);
        ASSERT_EQ(*end, '\0') << token;
        double value = 12345.0;
        EXPECT_TRUE(ExtractFloat(token, value)) << token;
        EXPECT_EQ(value, expected) << token;
        EXPECT_EQ(std::signbit(value), token[0] == '-') << token;
    }
    for (const char* token : {"nan", "NaN", "NAN", "-nan", "+nan", "nan(123)", "nan(abc_1)"})
    {
        double value = 0;
        EXPECT_TRUE(ExtractFloat(token, value)) << token;
        EXPECT_TRUE(std::isnan(value)) << token;
    }
}

TEST(ExtractFloat, RejectsEverythingElseAndReadsOnlyTheGivenLength)
{
    for (const char* token :
         {"",      "-",    "+",       ".",    "e5",  "1e",    "1e+",   "1e-", "1,5",  " 1",     "1 ",
          "\t1",   "1\n",  "--1",     "+-1",  "-+1", "1.2.3", "1e5.0", "0x",  "0x+1", "0x-1",   "0xg",
          "0xinf", "0x1p", "infinit", "nan(", "1f",  "1d",    "abc",   "1 2", "- 1",  "0x1.8 ", "1e5x"})
    {
        double value = 42.0;
        EXPECT_FALSE(ExtractFloat(token, value)) << '"' << token << '"';
        EXPECT_EQ(value, 42.0) << token;
    }
    double value = 42.0;
    EXPECT_FALSE(ExtractFloat(std::string("1\0", 2), value));
    EXPECT_FALSE(ExtractFloat(nullptr, 0, value));
    EXPECT_EQ(value, 42.0);

    const char text[] = "12.5e3trailing";
    ASSERT_TRUE(ExtractFloat(text, 4, value));
    EXPECT_EQ(value, 12.5);
    ASSERT_TRUE(ExtractFloat(std::string_view(text, 6), value));
    EXPECT_EQ(value, 12500.0);
    EXPECT_FALSE(ExtractFloat(std::string_view(text, 5), value)); // "12.5e"
}

TEST(ExtractFloat, IgnoresACommaDecimalLocale)
{
    const std::string saved = std::setlocale(LC_ALL, nullptr);
    if (!std::setlocale(LC_ALL, "de_DE.UTF-8") && !std::setlocale(LC_ALL, "de_DE.utf8"))
        GTEST_SKIP() << "the de_DE.UTF-8 locale is not installed (scripts/install-deps generates it)";
    char* stop = nullptr; // the locale is active: strtod itself now stops at the point
    std::strtod("1.5", &stop);
    double dot = 0, comma = 42.0, exponent = 0;
    const bool ok[] = {ExtractFloat("1.5", dot), ExtractFloat("1,5", comma),
                       ExtractFloat("-2.5e-1", exponent)};
    std::setlocale(LC_ALL, saved.c_str());
    EXPECT_EQ(*stop, '.');
    EXPECT_TRUE(ok[0]);
    EXPECT_FALSE(ok[1]);
    EXPECT_TRUE(ok[2]);
    EXPECT_EQ(dot, 1.5);
    EXPECT_EQ(comma, 42.0);
    EXPECT_EQ(exponent, -0.25);
}

TEST(NoCaseComparison, AsciiLettersOnly)
{
    // Only A-Z fold ('@' and '`' differ by the case bit yet stay apart); bytes above 0x7F compare exactly.
    EXPECT_TRUE(EqualsNoCase("EndSolid", "endsolid"));
    EXPECT_TRUE(EqualsNoCase(std::string("a\0b", 3), std::string("A\0B", 3)));
    EXPECT_FALSE(EqualsNoCase("solid", "solids"));
    EXPECT_FALSE(EqualsNoCase("@", "`"));
    EXPECT_FALSE(EqualsNoCase("\xC3\xA9", "\xC3\x89"));
    EXPECT_TRUE(StartsWithNoCase("COLOR=abc", "color="));
    EXPECT_FALSE(StartsWithNoCase("sol", "solid"));
    EXPECT_FALSE(StartsWithNoCase("xsolid", "solid"));
}
