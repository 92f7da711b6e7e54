// kelmesh command line: the parsed form of "kelmesh info FILE" and "kelmesh convert IN OUT [options]".
// Usage errors are one line (ParseCommandLine's error with UsageHint()) and exit status 2.
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
    Version,
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

// Colours of an STL output; Same writes them when the input has any.
enum class Colours
{
    Same,
    On,
    Off
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
    Colours colours = Colours::Same;
    bool solidPerSurface = false;
    double scale = 1.0;
    bool quiet = false;
    bool timing = true;
    Kind kind = Kind::Default;
    // Empty when the arguments are valid; otherwise what is wrong with them.
    std::string error;
};

inline const char* Usage()
{
    return "usage: kelmesh info FILE [--kind KIND] [--no-timing]\n"
           "       kelmesh convert IN OUT [--ascii | --binary] [--colors | --no-colors]\n"
           "                              [--solid-per-surface] [--scale FACTOR] [--kind KIND]\n"
           "                              [--quiet] [--no-timing]\n"
           "       kelmesh --help | --version\n"
           "  info     prints the format, storage kind, solids, counts, bounding box (mm), colours,\n"
           "           header flags and, for native files, the sections and plug-in sections\n"
           "  convert  writes IN as OUT, STL (.stl) or native (.kstl) by OUT's extension, keeping\n"
           "           what IN has; what OUT cannot hold is named in a warning on stderr.\n"
           "           STL output: --ascii/--binary choose the flavour (default: that of IN,\n"
           "           binary for a native IN); colours are written when IN has any (binary\n"
           "           only), --colors writes them always, --no-colors never; --solid-per-surface\n"
           "           writes one ASCII solid per surface; --scale multiplies every coordinate.\n"
           "           Native output keeps the whole mesh, colours included.\n"
           "  --kind   standard, compact or ondisk: the storage of the mesh an STL file is read\n"
           "           into (a native file is read into the kind it was saved from)\n"
           "  --quiet  no progress bar and no summary line (warnings and errors still appear)\n"
           "  --no-timing  leaves the times out, so that the output of two runs can be compared\n"
           "exit status: 0 done, 1 the input or output failed, 2 a usage error\n";
}

// The hint that follows a usage error on its line.
inline const char* UsageHint()
{
    return "(see 'kelmesh --help')";
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

// Options that only an STL output has a use for.
inline bool HasStlOutputOptions(const CommandLine& line)
{
    return line.flavour != Flavour::Same || line.colours != Colours::Same || line.solidPerSurface ||
           line.scale != 1.0;
}

inline CommandLine ParseCommandLine(const std::vector<std::string>& args)
{
    CommandLine line;
    if (args.empty() || args[0] == "help")
        return line;
    // Help and version win wherever they stand, as in other command line tools.
    for (const std::string& a : args)
        if (a == "-h" || a == "--help")
            return line;
    for (const std::string& a : args)
        if (a == "--version")
        {
            line.command = Command::Version;
            return line;
        }
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
        else if (a == "--colors" || a == "--colours" || a == "--no-colors" || a == "--no-colours")
        {
            const Colours wanted = a.rfind("--no-", 0) == 0 ? Colours::Off : Colours::On;
            if (line.colours != Colours::Same && line.colours != wanted)
            {
                line.error = "--colors and --no-colors exclude each other";
                return line;
            }
            line.colours = wanted;
        }
        else if (a == "--no-timing")
            line.timing = false;
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
    if (line.command == Command::Info && HasStlOutputOptions(line))
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
