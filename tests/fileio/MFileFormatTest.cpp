// FPRINTF: golden text, agreement with printf in the "C" locale, a point under a comma-decimal locale.
#include <KelSDK/FileIO/MFile.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

using KelSDK::FileIO::MFile;
using KelSDK::FileIO::MMemoryFile;

namespace
{
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
#endif
// The C library's text for the same conversion (the process locale is "C" here).
template <typename... Args> std::string Reference(const char* format, Args... args)
{
    char text[1024];
    const int n = std::snprintf(text, sizeof(text), format, args...);
    return n < 0 ? std::string() : std::string(text, static_cast<size_t>(n));
}

// Formats through a small-buffered memory file and returns the text.
template <typename... Args> std::string Format(const char* format, Args... args)
{
    MMemoryFile file;
    EXPECT_TRUE(file.OpenWrite());
    EXPECT_TRUE(file.FPRINTF(format, args...)) << format;
    EXPECT_TRUE(file.Close());
    return std::string(file.GetData().begin(), file.GetData().end());
}
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

// Restores the "C" locale however the test ends.
struct LocaleGuard
{
    ~LocaleGuard() { std::setlocale(LC_ALL, "C"); }
};
} // namespace

TEST(MFileFormat, GoldenText)
{
    EXPECT_EQ(Format("facet normal %f %f %f\n", 0.0, -1.0, 0.5),
              "facet normal 0.000000 -1.000000 0.500000\n");
    EXPECT_EQ(Format("vertex %.8f %.8f %.8f\n", 1.0, -0.1, 123456.789),
              "vertex 1.00000000 -0.10000000 123456.78900000\n");
    EXPECT_EQ(Format("%f", 1e20), "100000000000000000000.000000");
    EXPECT_EQ(Format("%.8f", 3.0e-9), "0.00000000");
    EXPECT_EQ(Format("%.8f", -4.9e-9), "-0.00000000");
    EXPECT_EQ(Format("%f %f %f", std::numeric_limits<double>::infinity(),
                     -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()),
              "inf -inf nan");
    EXPECT_EQ(Format("%5.2f|%-8.3f|%08.3f|%+.1f|% .1f", 3.14159, 2.5, -3.14159, 2.0, 2.0),
              " 3.14|2.500   |-003.142|+2.0| 2.0");
    EXPECT_EQ(Format("solid %s\n", "part"), "solid part\n");
    EXPECT_EQ(Format("%d %i %u %x %X %o %%", -42, 7, 4000000000u, 255, 255, 8),
              "-42 7 4000000000 ff FF 10 %");
    EXPECT_EQ(Format("%lld %llu %zu %hhd %hu", -9000000000LL, 18000000000000000000ULL, size_t{12},
                     static_cast<signed char>(-3), static_cast<unsigned short>(65535)),
              "-9000000000 18000000000000000000 12 -3 65535");
    EXPECT_EQ(Format("%5d|%-5d|%05d|%+d|%.3d|%#x", 42, 42, -42, 5, 7, 255), "   42|42   |-0042|+5|007|0xff");
    EXPECT_EQ(Format("%c%c%3c", 'a', 'b', 'c'), "ab  c");
    EXPECT_EQ(Format("%.2s|%4s|%-4s|", "abcdef", "ab", "ab"), "ab|  ab|ab  |");
    EXPECT_EQ(Format("%*d|%-*.*f", 4, 7, 8, 2, 1.5), "   7|1.50    ");
    EXPECT_EQ(Format(""), "");
}

TEST(MFileFormat, AgreesWithPrintfInTheCLocale)
{
    const double inf = std::numeric_limits<double>::infinity(),
                 nan = std::numeric_limits<double>::quiet_NaN();
    const double values[] = {0.0,      -0.0,     1.0,     -1.0,       0.1,       2.5,     0.125,
                             1e-300,   1.5e-7,   123.456, 1e15,       1e300,     9.99e15, -1e100,
                             6.02e23,  0.5,      inf,     -inf,       1.0 / 3.0, 2.0 / 3, 1e-5,
                             99999.95, 999999.5, 1234567, 0.00001234, 3.0e38,    nan};
    const char* formats[] = {"%f",  "%.8f",    "%.0f",  "%.1f",  "%.17f", "%e",     "%.3e",     "%.0e",
                             "%g",  "%.3g",    "%.0g",  "%.17g", "%G",    "%12.4f", "%-12.4e|", "%+g",
                             "% f", "%010.2f", "%#.0f", "%#g",   "%a",    "%.3a",   "%#.0e",    "%E"};
    for (const char* format : formats)
    {
        for (double value : values)
        {
            EXPECT_EQ(Format(format, value), Reference(format, value)) << format << " of " << value;
        }
    }
    const long double extended = 1.25L;
    EXPECT_EQ(Format("%Lf %Le", extended, extended), Reference("%Lf %Le", extended, extended));
    // Very long outputs are not cut.
    EXPECT_EQ(Format("%.600f", 1.0).size(), 602u);
    EXPECT_EQ(Format("%f", 1e300), Reference("%f", 1e300));
    EXPECT_EQ(Format("%700d|", 5).size(), 701u);
}

TEST(MFileFormat, DecimalPointUnderACommaLocale)
{
    LocaleGuard guard;
    if (!std::setlocale(LC_ALL, "de_DE.UTF-8") && !std::setlocale(LC_ALL, "de_DE.utf8"))
    {
        GTEST_SKIP() << "locale de_DE.UTF-8 is not installed (scripts/install-deps generates it)";
    }
    // The C library follows the locale here ...
    ASSERT_EQ(Reference("%.1f", 1.5), "1,5");
    // ... FPRINTF does not, on its fast path and on the C-library fallback.
    EXPECT_EQ(Format("vertex %.8f %.8f %.8f\n", 1.5, -2.25, 1e6),
              "vertex 1.50000000 -2.25000000 1000000.00000000\n");
    EXPECT_EQ(Format("%f %e %g", 0.5, 0.5, 0.5), "0.500000 5.000000e-01 0.5");
    EXPECT_EQ(Format("%#.2g %.2Lf %a", 1.0, 1.5L, 1.0), "1.0 1.50 0x1p+0");
    EXPECT_EQ(Format("%'d", 1234567), "1234567");
}

TEST(MFileFormat, BadFormatsFailWithAStatus)
{
    const char* bad[] = {"%", "abc %", "%y", "%n", "%ls", "%lc", "%5", "%.3", nullptr};
    for (const char* format : bad)
    {
        MMemoryFile file;
        ASSERT_TRUE(file.OpenWrite());
        int sink = 0;
        EXPECT_FALSE(file.FPRINTF(format, &sink)); // "%n" would store into sink
        EXPECT_EQ(file.GetStatus(), MFile::StatusBadFormat) << (format ? format : "null");
        EXPECT_EQ(sink, 0);
    }
    // Widths and precisions beyond any sane output.
    MMemoryFile file;
    ASSERT_TRUE(file.OpenWrite());
    EXPECT_FALSE(file.FPRINTF("%*d", 2000000000, 1));
    EXPECT_FALSE(file.FPRINTF("%.*f", 2000000000, 1.0));
    EXPECT_EQ(file.GetStatus(), MFile::StatusBadFormat);
}
