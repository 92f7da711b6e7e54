// The argument rules of kelmesh (the parser is header-only and shared with the program).
#include "../../tools/kelmesh/CommandLine.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

using namespace Kelmesh;

namespace
{
// The arguments of a command line written with spaces.
std::vector<std::string> Split(const std::string& text)
{
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

auto Fields(const CommandLine& l)
{
    return std::tie(l.command, l.input, l.output, l.flavour, l.colours, l.solidPerSurface, l.scale, l.quiet,
                    l.timing, l.kind, l.error);
}

TEST(KelmeshCommandLine, ValidArgumentsSetEveryField)
{
    // A lone "-" is a file name; the last --kind wins.
    using C = Colours;
    const std::pair<const char*, CommandLine> rows[] = {
        {"", {}},
        {"info -",
         {Command::Info, "-", "", Flavour::Same, C::Same, false, 1, false, true, Kind::Default, ""}},
        {"info a.stl --kind standard --no-timing",
         {Command::Info, "a.stl", "", Flavour::Same, C::Same, false, 1, false, false, Kind::Standard, ""}},
        {"info --kind ondisk a --kind compact",
         {Command::Info, "a", "", Flavour::Same, C::Same, false, 1, false, true, Kind::Compact, ""}},
        {"convert in.stl out.stl",
         {Command::Convert, "in.stl", "out.stl", Flavour::Same, C::Same, false, 1, false, true, Kind::Default,
          ""}},
        {"convert a b --scale=0.5 --kind=compact -q",
         {Command::Convert, "a", "b", Flavour::Same, C::Same, false, 0.5, true, true, Kind::Compact, ""}},
        {"convert --kind OnDisk a b --binary --binary --no-colours",
         {Command::Convert, "a", "b", Flavour::Binary, C::Off, false, 1, false, true, Kind::OnDisk, ""}},
        {"convert --colors a --ascii b --solid-per-surface --scale 25.4",
         {Command::Convert, "a", "b", Flavour::Ascii, C::On, true, 25.4, false, true, Kind::Default, ""}},
        // Help and version win wherever they stand, even beside a mistake.
        {"convert a --help --fast", {}},
        {"info --version",
         {Command::Version, "", "", Flavour::Same, C::Same, false, 1, false, true, Kind::Default, ""}}};
    for (const auto& [args, expected] : rows)
    {
        SCOPED_TRACE(args);
        const CommandLine line = ParseCommandLine(Split(args));
        EXPECT_EQ(Fields(line), Fields(expected));
    }
}

TEST(KelmeshCommandLine, RefusesWhatItCannotDo)
{
    // A --kind value is taken as the kind even when it looks like a file name.
    for (const char* bad :
         {"show a", "info", "info a.stl b.stl", "info a.stl --ascii", "info --kind a.stl",
          "info a.stl --kind", "info a.stl --kind=", "info a.stl --kind disk", "convert in.stl",
          "convert a b c", "convert a b --ascii --binary", "convert a b --fast", "convert a b --scale",
          "convert a b --scale 0", "convert a b --colors --no-colors", "info a.stl --no-colors",
          "convert a b --scale inf", "convert a b --scale 2x", "convert a b --scale="})
        EXPECT_FALSE(ParseCommandLine(Split(bad)).error.empty()) << bad;
}
} // namespace
