#include <KelSDK/Common/StringUtilities.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

using KelSDK::Common::StringUtilities::EqualsNoCase;
using KelSDK::Common::StringUtilities::ExtractFloat;
using KelSDK::Common::StringUtilities::StartsWithNoCase;

namespace
{
const double inf = std::numeric_limits<double>::infinity();

struct Accepted
{
    const char* token;
    double expected;
};

const Accepted accepted[] = {
    {"0", 0.0},
    {"1", 1.0},
    {"-1", -1.0},
    {"+1", 1.0},
    {"1.", 1.0},
    {".5", 0.5},
    {"-.5", -0.5},
    {"+.5e-3", 0.0005},
    {"1e5", 1e5},
    {"1E+05", 1e5},
    {"2.5e-3", 2.5e-3},
    {"00012.500", 12.5},
    {"-1.234567e+02", -123.4567},
    {"3.4028234663852886e+38", 3.4028234663852886e+38},
    {"1.7976931348623157e308", 1.7976931348623157e308},
    {"2.2250738585072014e-308", 2.2250738585072014e-308}, // smallest normal
    {"4.9406564584124654e-324", 4.9406564584124654e-324}, // smallest denormal
    {"1e-310", 1e-310},                                   // a denormal
    {"inf", inf},
    {"INF", inf},
    {"-Infinity", -inf},
    {"+inf", inf},
    {"1e999", inf}, // beyond the range: infinity, as strtod gives it
    {"-1e999", -inf},
    {"1e99999999999999999999", inf},
    {"1e-999", 0.0}, // below the smallest denormal: zero, as strtod gives it
    {"2e-324", 0.0},
    {"0.0000000000000000000000000001e-400", 0.0},
    {"0x10", 16.0},
    {"0X1.8p1", 3.0},
    {"-0x.8", -0.5},
    {"0x1p-1074", 4.9406564584124654e-324},
    {"0x1p1024", inf},
    {"0x1p-1080", 0.0},
    {"0xA.8P0", 10.5},
};

const char* const rejected[] = {
    "",      "-",    "+",       ".",    "e5",  "1e",    "1e+",   "1e-", "1,5",  " 1",     "1 ",
    "\t1",   "1\n",  "--1",     "+-1",  "-+1", "1.2.3", "1e5.0", "0x",  "0x+1", "0x-1",   "0xg",
    "0xinf", "0x1p", "infinit", "nan(", "1f",  "1d",    "abc",   "1 2", "- 1",  "0x1.8 ", "1e5x",
};
} // namespace

TEST(ExtractFloat, AcceptsWholeNumbers)
{
    for (const Accepted& a : accepted)
    {
        double value = 12345.0;
        EXPECT_TRUE(ExtractFloat(a.token, value)) << a.token;
        EXPECT_EQ(value, a.expected) << a.token;
        // The sign of a zero that underflowed follows the token.
        if (a.expected == 0.0)
        {
            EXPECT_EQ(std::signbit(value), a.token[0] == '-') << a.token;
        }
    }
    double v = 0;
    ASSERT_TRUE(ExtractFloat("-1e-999", v));
    EXPECT_TRUE(std::signbit(v));
    EXPECT_EQ(v, 0.0);
}

TEST(ExtractFloat, AgreesWithStrtodInTheCLocale)
{
    for (const Accepted& a : accepted)
    {
        char* end = nullptr;
        const double expected = std::strtod(a.token, &end);
        ASSERT_EQ(*end, '\0') << a.token;
        double value = 0;
        ASSERT_TRUE(ExtractFloat(a.token, value)) << a.token;
        EXPECT_EQ(value, expected) << a.token;
    }
}

TEST(ExtractFloat, NotANumberInAnyCase)
{
    for (const char* token : {"nan", "NaN", "NAN", "-nan", "+nan", "nan(123)", "nan(abc_1)"})
    {
        double value = 0;
        EXPECT_TRUE(ExtractFloat(token, value)) << token;
        EXPECT_TRUE(std::isnan(value)) << token;
    }
}

TEST(ExtractFloat, RejectsEverythingElseAndLeavesTheValueAlone)
{
    for (const char* token : rejected)
    {
        double value = 42.0;
        EXPECT_FALSE(ExtractFloat(token, value)) << '"' << token << '"';
        EXPECT_EQ(value, 42.0) << token;
    }
    double value = 42.0;
    EXPECT_FALSE(ExtractFloat(std::string("1\0", 2), value));
    EXPECT_FALSE(ExtractFloat(nullptr, 0, value));
    EXPECT_EQ(value, 42.0);
}

TEST(ExtractFloat, ReadsOnlyTheGivenLength)
{
    const char text[] = "12.5e3trailing";
    double value = 0;
    ASSERT_TRUE(ExtractFloat(text, 4, value));
    EXPECT_EQ(value, 12.5);
    ASSERT_TRUE(ExtractFloat(std::string_view(text, 6), value));
    EXPECT_EQ(value, 12500.0);
    EXPECT_FALSE(ExtractFloat(std::string_view(text, 5), value)); // "12.5e"
}

TEST(ExtractFloat, IgnoresACommaDecimalLocale)
{
    const char* previous = std::setlocale(LC_ALL, nullptr);
    const std::string saved = previous ? previous : "C";
    if (!std::setlocale(LC_ALL, "de_DE.UTF-8") && !std::setlocale(LC_ALL, "de_DE.utf8"))
        GTEST_SKIP() << "the de_DE.UTF-8 locale is not installed (scripts/install-deps generates it)";
    // The locale is active: strtod itself now stops at the point.
    char* end = nullptr;
    std::strtod("1.5", &end);
    const bool commaLocale = *end == '.';

    double value = 0;
    const bool dot = ExtractFloat("1.5", value);
    const double dotValue = value;
    double comma = 42.0;
    const bool commaAccepted = ExtractFloat("1,5", comma);
    double exponent = 0;
    const bool exponentOk = ExtractFloat("-2.5e-1", exponent);
    std::setlocale(LC_ALL, saved.c_str());

    EXPECT_TRUE(commaLocale);
    EXPECT_TRUE(dot);
    EXPECT_EQ(dotValue, 1.5);
    EXPECT_FALSE(commaAccepted);
    EXPECT_EQ(comma, 42.0);
    EXPECT_TRUE(exponentOk);
    EXPECT_EQ(exponent, -0.25);
}

TEST(NoCaseComparison, AsciiLettersOnly)
{
    EXPECT_TRUE(EqualsNoCase("solid", "SOLID"));
    EXPECT_TRUE(EqualsNoCase("EndSolid", "endsolid"));
    EXPECT_TRUE(EqualsNoCase("", ""));
    EXPECT_FALSE(EqualsNoCase("solid", "solids"));
    EXPECT_FALSE(EqualsNoCase("facet", "facet "));
    EXPECT_FALSE(EqualsNoCase("a", "b"));
    // Only A-Z fold: '@' (0x40) and '`' (0x60), '[' and '{' differ by the same bit and stay apart.
    EXPECT_FALSE(EqualsNoCase("@", "`"));
    EXPECT_FALSE(EqualsNoCase("[", "{"));
    // Bytes above 0x7F compare exactly.
    EXPECT_FALSE(EqualsNoCase("\xC3\xA9", "\xC3\x89"));
    EXPECT_TRUE(EqualsNoCase("\xC3\xA9x", "\xC3\xA9X"));
    EXPECT_TRUE(EqualsNoCase(std::string("a\0b", 3), std::string("A\0B", 3)));

    EXPECT_TRUE(StartsWithNoCase("COLOR=abc", "color="));
    EXPECT_TRUE(StartsWithNoCase("solid", ""));
    EXPECT_TRUE(StartsWithNoCase("solid", "SOLID"));
    EXPECT_FALSE(StartsWithNoCase("sol", "solid"));
    EXPECT_FALSE(StartsWithNoCase("xsolid", "solid"));
}
