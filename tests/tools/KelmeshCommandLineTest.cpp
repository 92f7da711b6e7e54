// The argument rules of kelmesh (the parser is header-only and shared with the program).
#include "../../tools/kelmesh/CommandLine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using Kelmesh::Command;
using Kelmesh::CommandLine;
using Kelmesh::Flavour;
using Kelmesh::Kind;
using Kelmesh::ParseCommandLine;

namespace
{
TEST(KelmeshCommandLine, InfoTakesOneFile)
{
    const CommandLine line = ParseCommandLine({"info", "part.stl"});
    EXPECT_TRUE(line.error.empty());
    EXPECT_EQ(line.command, Command::Info);
    EXPECT_EQ(line.input, "part.stl");
    EXPECT_FALSE(ParseCommandLine({"info"}).error.empty());
    EXPECT_FALSE(ParseCommandLine({"info", "a.stl", "b.stl"}).error.empty());
    EXPECT_FALSE(ParseCommandLine({"info", "a.stl", "--ascii"}).error.empty());
}

TEST(KelmeshCommandLine, ConvertWithEveryOption)
{
    const CommandLine line = ParseCommandLine(
        {"convert", "--colors", "in.stl", "--ascii", "out.stl", "--solid-per-surface", "--scale", "25.4"});
    ASSERT_TRUE(line.error.empty()) << line.error;
    EXPECT_EQ(line.command, Command::Convert);
    EXPECT_EQ(line.input, "in.stl");
    EXPECT_EQ(line.output, "out.stl");
    EXPECT_EQ(line.flavour, Flavour::Ascii);
    EXPECT_TRUE(line.colors);
    EXPECT_TRUE(line.solidPerSurface);
    EXPECT_DOUBLE_EQ(line.scale, 25.4);

    const CommandLine plain = ParseCommandLine({"convert", "in.stl", "out.stl"});
    EXPECT_EQ(plain.flavour, Flavour::Same);
    EXPECT_FALSE(plain.colors);
    EXPECT_EQ(plain.scale, 1.0);
    EXPECT_EQ(ParseCommandLine({"convert", "a", "b", "--scale=0.5"}).scale, 0.5);
    EXPECT_EQ(ParseCommandLine({"convert", "a", "b", "--binary", "--binary"}).flavour, Flavour::Binary);
}

TEST(KelmeshCommandLine, KindChoosesTheStorage)
{
    EXPECT_EQ(ParseCommandLine({"info", "a.stl"}).kind, Kind::Default);
    EXPECT_EQ(ParseCommandLine({"info", "a.stl", "--kind", "standard"}).kind, Kind::Standard);
    EXPECT_EQ(ParseCommandLine({"convert", "a", "b", "--kind=compact"}).kind, Kind::Compact);
    EXPECT_EQ(ParseCommandLine({"convert", "--kind", "OnDisk", "a", "b"}).kind, Kind::OnDisk);
    const CommandLine last = ParseCommandLine({"info", "--kind", "ondisk", "a.kstl", "--kind", "compact"});
    EXPECT_TRUE(last.error.empty()) << last.error;
    EXPECT_EQ(last.kind, Kind::Compact);
    // The value is taken as the kind even when it looks like a file name, so nothing is left over.
    EXPECT_FALSE(ParseCommandLine({"info", "--kind", "a.stl"}).error.empty());
    EXPECT_FALSE(ParseCommandLine({"info", "a.stl", "--kind"}).error.empty());
    EXPECT_FALSE(ParseCommandLine({"info", "a.stl", "--kind="}).error.empty());
    EXPECT_FALSE(ParseCommandLine({"info", "a.stl", "--kind", "disk"}).error.empty());
}

TEST(KelmeshCommandLine, RefusesWhatItCannotDo)
{
    const std::vector<std::vector<std::string>> bad = {
        {"convert", "in.stl"},
        {"convert", "a", "b", "c"},
        {"convert", "a", "b", "--ascii", "--binary"},
        {"convert", "a", "b", "--scale"},
        {"convert", "a", "b", "--scale", "0"},
        {"convert", "a", "b", "--scale", "inf"},
        {"convert", "a", "b", "--scale", "2x"},
        {"convert", "a", "b", "--scale", ""},
        {"convert", "a", "b", "--fast"},
        {"show", "a"},
    };
    for (const auto& args : bad)
        EXPECT_FALSE(ParseCommandLine(args).error.empty()) << args.back();
    // A lone "-" is a file name, and no arguments at all ask for the usage text.
    EXPECT_EQ(ParseCommandLine({"info", "-"}).input, "-");
    EXPECT_EQ(ParseCommandLine({}).command, Command::Help);
    EXPECT_TRUE(ParseCommandLine({"--help"}).error.empty());
}
} // namespace
