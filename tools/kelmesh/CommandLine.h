// kelmesh command line: the parsed form of "kelmesh info FILE" and "kelmesh convert IN OUT [options]".
// Header-only and free of library calls, so that the parsing rules can be tested on their own.
#pragma once

#include <charconv>
#include <cmath>
#include <string>
#include <vector>

namespace Kelmesh
{
enum class Command
{
    Help,
    Info,
    Convert
};

// Output flavour of a conversion; Same keeps the flavour of the input.
enum class Flavour
{
    Same,
    Ascii,
    Binary
};

// Storage kind of the mesh a file is read into; Default leaves the choice to the reader (Standard
// for STL, the kind a native file was saved from).
enum class Kind
{
    Default,
    Standard,
    Compact,
    OnDisk
};

struct CommandLine
{
    Command command = Command::Help;
    std::string input;
    std::string output;
    Flavour flavour = Flavour::Same;
    bool colors = false;
    bool solidPerSurface = false;
    double scale = 1.0;
    bool quiet = false;
    Kind kind = Kind::Default;
    // Empty when the arguments are valid; otherwise what is wrong with them.
    std::string error;
};

inline const char* Usage()
{
    return "usage: kelmesh info FILE [--kind KIND]\n"
           "       kelmesh convert IN OUT [--ascii | --binary] [--colors] [--solid-per-surface]\n"
           "                              [--scale FACTOR] [--kind KIND] [--quiet]\n"
           "  info     prints the format, storage kind, solids, counts, bounding box (mm), colours,\n"
           "           header flags and, for native files, the sections and plug-in sections\n"
           "  convert  writes IN as OUT, STL (.stl) or native (.kstl) by OUT's extension;\n"
           "           --ascii/--binary choose the STL flavour (default: that of IN, binary for a\n"
           "           native IN), --colors writes the STL colour header and per-facet colours\n"
           "           (native files always keep colours), --solid-per-surface writes one ASCII\n"
           "           solid per surface, --scale multiplies every STL coordinate\n"
           "  --kind   standard, compact or ondisk: the storage of the mesh an STL file is read\n"
           "           into (a native file is read into the kind it was saved from)\n";
}

// A finite, non-zero number written in full (no trailing characters).
inline bool ParseScale(const std::string& text, double& value)
{
    double parsed = 0.0;
    const char* first = text.data();
    const char* last = text.data() + text.size();
    if (first != last && *first == '+')
        ++first;
    const auto result = std::from_chars(first, last, parsed);
    if (result.ec != std::errc() || result.ptr != last || !std::isfinite(parsed) || parsed == 0.0)
        return false;
    value = parsed;
    return true;
}

// "standard", "compact" or "ondisk" (any letter case).
inline bool ParseKind(const std::string& text, Kind& kind)
{
    std::string lower = text;
    for (char& c : lower)
        c = (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
    if (lower == "standard")
        kind = Kind::Standard;
    else if (lower == "compact")
        kind = Kind::Compact;
    else if (lower == "ondisk")
        kind = Kind::OnDisk;
    else
        return false;
    return true;
}

inline CommandLine ParseCommandLine(const std::vector<std::string>& args)
{
    CommandLine line;
    if (args.empty() || args[0] == "-h" || args[0] == "--help" || args[0] == "help")
        return line;
    std::vector<std::string> positional;
    const std::string& verb = args[0];
    if (verb == "info")
        line.command = Command::Info;
    else if (verb == "convert")
        line.command = Command::Convert;
    else
    {
        line.error = "unknown command '" + verb + "'";
        return line;
    }
    for (size_t i = 1; i < args.size(); ++i)
    {
        const std::string& a = args[i];
        if (a == "--ascii" || a == "--binary")
        {
            const Flavour wanted = a == "--ascii" ? Flavour::Ascii : Flavour::Binary;
            if (line.flavour != Flavour::Same && line.flavour != wanted)
            {
                line.error = "--ascii and --binary exclude each other";
                return line;
            }
            line.flavour = wanted;
        }
        else if (a == "--colors" || a == "--colours")
            line.colors = true;
        else if (a == "--solid-per-surface")
            line.solidPerSurface = true;
        else if (a == "--quiet" || a == "-q")
            line.quiet = true;
        else if (a == "--scale" || a.rfind("--scale=", 0) == 0)
        {
            std::string value;
            if (a == "--scale")
            {
                if (i + 1 >= args.size())
                {
                    line.error = "--scale needs a factor";
                    return line;
                }
                value = args[++i];
            }
            else
                value = a.substr(8);
            if (!ParseScale(value, line.scale))
            {
                line.error = "--scale needs a finite non-zero number, not '" + value + "'";
                return line;
            }
        }
        else if (a == "--kind" || a.rfind("--kind=", 0) == 0)
        {
            std::string value;
            if (a == "--kind")
            {
                if (i + 1 >= args.size())
                {
                    line.error = "--kind needs standard, compact or ondisk";
                    return line;
                }
                value = args[++i];
            }
            else
                value = a.substr(7);
            if (!ParseKind(value, line.kind))
            {
                line.error = "--kind needs standard, compact or ondisk, not '" + value + "'";
                return line;
            }
        }
        else if (a.size() > 1 && a[0] == '-' && a != "-")
        {
            line.error = "unknown option '" + a + "'";
            return line;
        }
        else
            positional.push_back(a);
    }
    const size_t wanted = line.command == Command::Info ? 1 : 2;
    if (positional.size() != wanted)
    {
        line.error =
            line.command == Command::Info ? "info needs exactly one FILE" : "convert needs IN and OUT";
        return line;
    }
    const bool writeOptions =
        line.flavour != Flavour::Same || line.colors || line.solidPerSurface || line.scale != 1.0;
    if (line.command == Command::Info && writeOptions)
    {
        line.error = "info takes no conversion options";
        return line;
    }
    line.input = positional[0];
    if (wanted == 2)
        line.output = positional[1];
    return line;
}
} // namespace Kelmesh
