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
    return std::tie(l.command, l.input, l.output, l.flavour, l.colors, l.solidPerSurface, l.scale, l.quiet,
                    l.kind, l.error);
}

TEST(KelmeshCommandLine, ValidArgumentsSetEveryField)
{
    // A lone "-" is a file name; the last --kind wins.
    const std::pair<const char*, CommandLine> rows[] = {
        {"", {}},
        {"info -", {Command::Info, "-", "", Flavour::Same, false, false, 1, false, Kind::Default, ""}},
        {"info a.stl --kind standard",
         {Command::Info, "a.stl", "", Flavour::Same, false, false, 1, false, Kind::Standard, ""}},
        {"info --kind ondisk a --kind compact",
         {Command::Info, "a", "", Flavour::Same, false, false, 1, false, Kind::Compact, ""}},
        {"convert in.stl out.stl",
         {Command::Convert, "in.stl", "out.stl", Flavour::Same, false, false, 1, false, Kind::Default, ""}},
        {"convert a b --scale=0.5 --kind=compact -q",
         {Command::Convert, "a", "b", Flavour::Same, false, false, 0.5, true, Kind::Compact, ""}},
        {"convert --kind OnDisk a b --binary --binary",
         {Command::Convert, "a", "b", Flavour::Binary, false, false, 1, false, Kind::OnDisk, ""}},
        {"convert --colors a --ascii b --solid-per-surface --scale 25.4",
         {Command::Convert, "a", "b", Flavour::Ascii, true, true, 25.4, false, Kind::Default, ""}}};
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
    for (const char* bad : {"show a", "info", "info a.stl b.stl", "info a.stl --ascii", "info --kind a.stl",
                            "info a.stl --kind", "info a.stl --kind=", "info a.stl --kind disk",
                            "convert in.stl", "convert a b c", "convert a b --ascii --binary",
                            "convert a b --fast", "convert a b --scale", "convert a b --scale 0",
                            "convert a b --scale inf", "convert a b --scale 2x", "convert a b --scale="})
        EXPECT_FALSE(ParseCommandLine(Split(bad)).error.empty()) << bad;
}
} // namespace
