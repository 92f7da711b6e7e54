// kelmesh: inspects and converts mesh files with KelSDK.Triangles.IO (usage: CommandLine.h).
// Formats (STL and the native format) are found by content first, then by file extension (see Formats()).
// Errors are one line on stderr with the operating system's reason where it has one; exit status 1
// for a failed input or output, 2 for a usage error. What a conversion cannot carry is named in
// warnings on stderr (Conversion.h). An output file is replaced only when it was written whole.

#include "CommandLine.h"
#include "Conversion.h"
#include "NativeSections.h"
#include "StlReadFailure.h"

#include <KelSDK/Common/InternalUnits.h>
#include <KelSDK/Common/Progress.h>
#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>
#include <KelSDK/Triangles/IO/MStlFileIOPlugin.h>
#include <KelSDK/Triangles/IO/MStlFileReader.h>
#include <KelSDK/Triangles/IO/MStlFileWriter.h>
#include <KelSDK/Triangles/IO/StlFileUtilities.h>
#include <KelSDK/Triangles/IO/Version.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#ifdef _WIN32
#include <io.h>
#define KELMESH_ISATTY(fd) _isatty(fd)
#define KELMESH_FILENO(f) _fileno(f)
#else
#include <unistd.h>
#define KELMESH_ISATTY(fd) isatty(fd)
#define KELMESH_FILENO(f) fileno(f)
#endif

namespace
{
using Kelmesh::ReadSummary;
using KelSDK::Triangles::Data::MStlBase;
namespace IO = KelSDK::Triangles::IO;

// A bar on stderr, redrawn when the whole percentage changes; only used on a terminal.
class TerminalProgress : public KelSDK::Common::IProgressDelegate
{
public:
    explicit TerminalProgress(std::string label) : label_(std::move(label)) {}
    ~TerminalProgress() override { Done(); }

    void SetProgress(double fraction) override
    {
        const int percent = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * 100.0);
        if (percent == shown_)
            return;
        shown_ = percent;
        const int width = 30;
        const int filled = percent * width / 100;
        std::fprintf(stderr, "\r%-10s [%s%s] %3d%%", label_.c_str(), std::string(filled, '#').c_str(),
                     std::string(width - filled, '.').c_str(), percent);
        std::fflush(stderr);
    }
    // Ends the bar's line (once).
    void Done()
    {
        if (shown_ >= 0)
            std::fputc('\n', stderr);
        shown_ = -1;
    }

private:
    std::string label_;
    int shown_ = -1;
};

std::shared_ptr<TerminalProgress> MakeProgress(const Kelmesh::CommandLine& line, const char* label)
{
    if (line.quiet || !KELMESH_ISATTY(KELMESH_FILENO(stderr)))
        return nullptr;
    return std::make_shared<TerminalProgress>(label);
}

// One mesh file format. recognise looks at the content (null: the format has no signature and is
// only chosen by extension); read fills the mesh (in internal units, in the storage kind the mesh
// has, unless the format carries a kind of its own); write writes it.
struct MeshFormat
{
    const char* name;
    std::vector<std::string> extensions;
    bool (*recognise)(const std::wstring& path);
    bool (*read)(const std::wstring& path, MStlBase& mesh, ReadSummary& summary,
                 std::shared_ptr<KelSDK::Common::IProgressDelegate> progress, std::string& error);
    bool (*write)(const std::wstring& path, MStlBase& mesh, const Kelmesh::Output& output,
                  std::shared_ptr<KelSDK::Common::IProgressDelegate> progress, std::string& error);
};

// Internal grid steps per millimetre as the STL entry points use them (a whole number).
double StepsPerMillimetre()
{
    const double steps = std::round(KelSDK::Common::MInternalUnits::Get());
    return std::clamp(steps, 1.0, 2147483647.0);
}

// The operating system's reason, or fallback when there is none.
std::string Reason(const std::error_code& error, const char* fallback)
{
    return error ? error.message() : fallback;
}

std::string Hex32(uint32_t v)
{
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08X", v);
    return text;
}

// ---- STL -------------------------------------------------------------------------------------

// An STL file has no signature; a text with the STL phrases, or binary counts that match the file
// size exactly, are taken as STL.
bool RecogniseStl(const std::wstring& path)
{
    return IO::StlFileUtilities::IsAscii(path) || IO::StlFileUtilities::VerifyHeaderConsistency(path);
}

bool ReadStl(const std::wstring& path, MStlBase& mesh, ReadSummary& summary,
             std::shared_ptr<KelSDK::Common::IProgressDelegate> progress, std::string& error)
{
    IO::MStlReadOptions options;
    options.transformationMode = 0;
    options.scale = StepsPerMillimetre();
    IO::MStlFileReader reader(options);
    reader.SetFileName(path);
    reader.SetTargetStl(&mesh);
    if (!reader.Read(std::move(progress)))
    {
        // The reader's own code says which case it is; the first bytes and the size fill in the figures.
        KelSDK::FileIO::MFile file;
        std::string head;
        uint64_t size = 0;
        if (file.OPEN_READ(path))
        {
            size = static_cast<uint64_t>(file.GetSize());
            head.resize(static_cast<size_t>(std::min<uint64_t>(size, 300)));
            file.READ(head.data(), head.size());
        }
        error = Kelmesh::DescribeStlFailure(reader.GetFailure(), reader.GetReaderCode(), head, size);
        return false;
    }
    const IO::MStlReadResults results = reader.GetResults();
    summary.headerColour = results.hasColor;
    summary.stl = true;
    summary.ascii = reader.WasAscii();
    summary.format = summary.ascii ? "ASCII STL" : "binary STL";
    summary.facetsInFile = reader.GetNumberOfFacets();
    summary.box = reader.GetBoundingBox();
    if (!summary.ascii)
    {
        if (results.hasColor)
        {
            const auto& m = results.material;
            const uint32_t rgba = m.GetRGB();
            char colour[96];
            std::snprintf(colour, sizeof(colour), "R %u G %u B %u A %u", rgba & 0xFF, (rgba >> 8) & 0xFF,
                          (rgba >> 16) & 0xFF, rgba >> 24);
            summary.details.push_back(std::string("header colour: ") + colour);
            summary.details.push_back("header material: diffuse " + Hex32(m.GetDiffuse()) + ", specular " +
                                      Hex32(m.GetSpecular()) + ", ambient " + Hex32(m.GetAmbient()) +
                                      ", shininess " + std::to_string(m.GetShininess()));
        }
        else
            summary.details.push_back("header colour: none");
        summary.details.push_back(std::string("header flags: ") + (results.isSupport ? "support, " : "") +
                                  (results.isSupposedSolid ? "solid" : "faces"));
    }
    if (results.isOverflow)
        summary.details.push_back("warning: coordinates beyond the internal range were clamped");
    return true;
}

bool WriteStl(const std::wstring& path, MStlBase& mesh, const Kelmesh::Output& output,
              std::shared_ptr<KelSDK::Common::IProgressDelegate> progress, std::string& error)
{
    IO::MStlFileWriter writer(IO::MStlWriteOptions(output.scale / StepsPerMillimetre(), !output.ascii,
                                                   output.colours, output.solidPerSurface));
    writer.SetFileName(path.c_str());
    writer.SetStlToWrite(&mesh);
    // A command line program has the machine to itself: large binary exports use every core.
    writer.SetParallel(true);
    const bool written = writer.Write(std::move(progress));
    // Close also when Write failed: MFile then drops the temporary and keeps any previous file.
    const bool closed = writer.Close();
    if (!written || !closed)
    {
        error = Reason(writer.GetSystemError(), "the file could not be written completely") +
                " (the previous file, if any, is unchanged)";
        return false;
    }
    return true;
}

// ---- native format ---------------------------------------------------------------------------

const char* const kKindNames[3] = {"Standard", "Compact", "OnDisk"};

const char* KindName(KelSDK::Triangles::Data::MStlHybridState state)
{
    const int k = static_cast<int>(state);
    return k >= 0 && k <= 2 ? kKindNames[k] : "unknown";
}

// A native file starts with byte 0 and the magic text.
bool RecogniseNative(const std::wstring& path)
{
    return IO::MStlFileIO::IsNativeFile(path);
}

std::string NativeError(const IO::MStlFileIO& io)
{
    return std::string("native file: ") + io.GetLastErrorString() + " (code " +
           std::to_string(static_cast<int>(io.GetLastError())) + ")";
}

// The file decides the storage kind (it stores the kind it was saved from).
bool ReadNative(const std::wstring& path, MStlBase& mesh, ReadSummary& summary,
                std::shared_ptr<KelSDK::Common::IProgressDelegate> progress, std::string& error)
{
    KelSDK::FileIO::MFile file;
    if (!file.OPEN_READ(path))
    {
        error = Reason(file.GetSystemError(), "the file cannot be opened");
        return false;
    }
    IO::MStlFileIO io;
    io.SetStl(&mesh);
    io.SetFile(file);
    const IO::MStlFileIO::MErrorCode code = io.Load(std::move(progress));
    file.Close();
    if (code != IO::eStlFileIOSuccess)
    {
        error = NativeError(io);
        return false;
    }
    summary.format = "native";
    summary.facetsInFile = mesh.GetStlHybrid().GetNumTriangles();
    // The colour section always holds a material; it is a colour to keep when it is not the default.
    KelSDK::Triangles::Data::MStlMaterial plain;
    plain.SetColorIsReadFromFile(mesh.GetMaterial().GetColorIsReadFromFile());
    summary.headerColour = mesh.GetMaterial() != plain;
    const auto& properties = mesh.GetProperties();
    // The box of the vertices on the internal grid, in millimetres.
    int e[6] = {0, 0, 0, 0, 0, 0};
    if (properties.CalculateExtremes(e[0], e[1], e[2], e[3], e[4], e[5]))
    {
        const double mm = 1.0 / StepsPerMillimetre();
        using Box = KelSDK::Math::boundingbox<double, 3>;
        summary.box = Box(Box::point_type(e[0] * mm, e[2] * mm, e[4] * mm),
                          Box::point_type(e[1] * mm, e[3] * mm, e[5] * mm));
    }
    summary.details.push_back("sections:    " + Kelmesh::DescribeSectionSwitches(io));
    const std::vector<Kelmesh::PluginSection> plugins =
        Kelmesh::DescribePluginSections(io.GetLoadedPluginSections(), IO::MStlFileIOPlugin::GetPlugins());
    summary.details.push_back("plug-in sections: " + std::to_string(plugins.size()));
    for (const Kelmesh::PluginSection& plugin : plugins)
        if (!plugin.registered)
            summary.unreadSections.push_back(plugin.name);
    for (const Kelmesh::PluginSection& plugin : plugins)
        summary.details.push_back(
            "  \"" + plugin.name +
            "\": " + (plugin.registered ? "plug-in registered" : "no plug-in registered (skipped)"));
    summary.details.push_back(std::string("mesh flags:  ") + (properties.GetIsSupport() ? "support, " : "") +
                              (properties.GetIsSupposedSolid() ? "solid" : "faces"));
    return true;
}

// Written beside the target and moved over it only when the whole file was written.
bool WriteNative(const std::wstring& path, MStlBase& mesh, const Kelmesh::Output& /*output*/,
                 std::shared_ptr<KelSDK::Common::IProgressDelegate> progress, std::string& error)
{
    KelSDK::FileIO::MFile file;
    if (!file.OPEN_WRITE(path))
    {
        error = Reason(file.GetSystemError(), "the file cannot be created");
        return false;
    }
    IO::MStlFileIO io;
    io.SetStl(&mesh);
    io.SetFile(file);
    if (io.Save(std::move(progress)) != IO::eStlFileIOSuccess)
    {
        file.Abandon();
        error = NativeError(io) + " (the previous file, if any, is unchanged)";
        return false;
    }
    if (!file.Close())
    {
        error = Reason(file.GetSystemError(), "the file could not be written completely") +
                " (the previous file, if any, is unchanged)";
        return false;
    }
    return true;
}

// Known formats in the order their signatures are tested. Formats with a signature come first;
// STL, which has none, is tested last and is the format of the ".stl" extension.
const std::vector<MeshFormat>& Formats()
{
    static const std::vector<MeshFormat> formats = {
        {"native", {".kstl"}, &RecogniseNative, &ReadNative, &WriteNative},
        {"STL", {".stl"}, &RecogniseStl, &ReadStl, &WriteStl},
    };
    return formats;
}

// "native (.kstl), STL (.stl)" for the error lines.
std::string KnownFormats()
{
    std::string text;
    for (const MeshFormat& format : Formats())
    {
        text += (text.empty() ? "" : ", ") + std::string(format.name) + " (";
        for (size_t e = 0; e < format.extensions.size(); ++e)
            text += (e == 0 ? "" : " ") + format.extensions[e];
        text += ")";
    }
    return text;
}

std::string LowerExtension(const std::string& path)
{
    std::string ext = std::filesystem::path(path).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c); });
    return ext;
}

const MeshFormat* FormatByExtension(const std::string& path)
{
    const std::string ext = LowerExtension(path);
    for (const MeshFormat& format : Formats())
        if (std::find(format.extensions.begin(), format.extensions.end(), ext) != format.extensions.end())
            return &format;
    return nullptr;
}

// By content first, then by extension.
const MeshFormat* FormatForReading(const std::string& path, const std::wstring& wide)
{
    for (const MeshFormat& format : Formats())
        if (format.recognise != nullptr && format.recognise(wide))
            return &format;
    return FormatByExtension(path);
}

// The one error line of a failed run; returns the exit status.
int Fail(const char* verb, const std::string& path, const std::string& reason)
{
    std::fprintf(stderr, "kelmesh: cannot %s '%s': %s\n", verb, path.c_str(), reason.c_str());
    return 1;
}

bool FailRead(const std::string& path, const std::string& reason)
{
    Fail("read", path, reason);
    return false;
}

// The one line of a usage error; returns the exit status.
int UsageError(const std::string& error)
{
    std::fprintf(stderr, "kelmesh: %s %s\n", error.c_str(), Kelmesh::UsageHint());
    return 2;
}

// Reads path into mesh; prints the error line itself and returns false on failure.
bool ReadMesh(const Kelmesh::CommandLine& line, const std::string& path, MStlBase& mesh, ReadSummary& summary,
              double& seconds)
{
    const std::wstring wide = KelSDK::Common::StringConversion::LocaleToNative(path);
    {
        KelSDK::FileIO::MFile probe;
        if (!probe.OPEN_READ(wide))
            return FailRead(path, Reason(probe.GetSystemError(), "the file cannot be opened"));
    }
    const MeshFormat* format = FormatForReading(path, wide);
    if (format == nullptr)
        return FailRead(path, "unknown mesh format (known: " + KnownFormats() + ")");
    if (line.kind != Kelmesh::Kind::Default)
    {
        const auto wanted =
            static_cast<KelSDK::Triangles::Data::MStlHybridState>(static_cast<int>(line.kind) - 1);
        if (!mesh.GetStlHybrid().SetState(wanted))
            return FailRead(path, "the storage kind cannot be chosen");
    }
    std::string error;
    const auto start = std::chrono::steady_clock::now();
    try
    {
        auto progress = MakeProgress(line, "reading");
        const bool ok = format->read(wide, mesh, summary, progress, error);
        if (progress)
            progress->Done();
        if (!ok)
            return FailRead(path, error);
    }
    catch (const std::exception& e)
    {
        return FailRead(path, e.what());
    }
    const auto kind = mesh.GetStlHybrid().GetState();
    if (line.kind != Kelmesh::Kind::Default && static_cast<int>(kind) != static_cast<int>(line.kind) - 1)
        return FailRead(path, std::string("the file holds a mesh of the ") + KindName(kind) +
                                  " kind; --kind chooses the storage of STL input only");
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    summary.counts = Kelmesh::CountMesh(mesh);
    return true;
}

void PrintInfo(const Kelmesh::CommandLine& line, const MStlBase& mesh, const ReadSummary& summary,
               double seconds)
{
    const auto& hybrid = mesh.GetStlHybrid();
    const Kelmesh::MeshCounts& counts = summary.counts;
    std::printf("file:        %s\n", line.input.c_str());
    std::printf("format:      %s\n", summary.format.c_str());
    std::printf("storage:     %s\n", KindName(hybrid.GetState()));
    const auto& surfaces = mesh.GetSurfaceList();
    const size_t solids = surfaces.GetNumSurfaces(false);
    std::printf("solids:      %zu\n", solids);
    for (size_t s = 0; s < solids; ++s)
    {
        const auto* surface = surfaces.GetSurface(s);
        const std::string name = KelSDK::Common::StringConversion::NativeToLocale(surface->GetName());
        const auto found = counts.perSurface.find(surface);
        std::printf("  %zu: \"%s\", %zu triangles\n", s + 1, name.c_str(),
                    found != counts.perSurface.end() ? found->second : size_t{0});
    }
    const uint64_t triangles = hybrid.GetNumTriangles();
    if (summary.stl)
    {
        std::printf("facets:      %llu in the file, %llu triangles after welding\n",
                    static_cast<unsigned long long>(summary.facetsInFile),
                    static_cast<unsigned long long>(triangles));
        std::printf("degenerate:  %llu facets dropped (two corners on the same grid point)\n",
                    static_cast<unsigned long long>(
                        summary.facetsInFile >= triangles ? summary.facetsInFile - triangles : 0));
        std::printf("vertices:    %zu welded\n", hybrid.GetNumVertices());
    }
    else
    {
        std::printf("facets:      %llu triangles\n", static_cast<unsigned long long>(triangles));
        std::printf("vertices:    %zu\n", hybrid.GetNumVertices());
    }
    std::printf("colours:     %zu facets with a colour of their own\n", counts.coloured);
    if (summary.box.IsEmpty())
        std::printf("bounding box: empty\n");
    else
    {
        const auto& lo = summary.box.GetMin();
        const auto& hi = summary.box.GetMax();
        std::printf("bounding box: x %.4f .. %.4f, y %.4f .. %.4f, z %.4f .. %.4f mm\n", lo[0], hi[0], lo[1],
                    hi[1], lo[2], hi[2]);
        std::printf("size:        %.4f x %.4f x %.4f mm\n", hi[0] - lo[0], hi[1] - lo[1], hi[2] - lo[2]);
    }
    for (const std::string& detail : summary.details)
        std::printf("%s\n", detail.c_str());
    if (line.timing)
        std::printf("read in:     %.3f s\n", seconds);
}

int RunInfo(const Kelmesh::CommandLine& line)
{
    MStlBase mesh;
    ReadSummary summary;
    double seconds = 0.0;
    if (!ReadMesh(line, line.input, mesh, summary, seconds))
        return 1;
    PrintInfo(line, mesh, summary, seconds);
    return 0;
}

// What the conversion writes: the command line's choices, else what the input has.
Kelmesh::Output ChooseOutput(const MeshFormat& target, const Kelmesh::CommandLine& line,
                             const ReadSummary& input)
{
    Kelmesh::Output output;
    output.stl = target.write == &WriteStl;
    if (!output.stl)
        return output;
    output.ascii =
        line.flavour == Kelmesh::Flavour::Same ? input.ascii : line.flavour == Kelmesh::Flavour::Ascii;
    const bool colours =
        line.colours == Kelmesh::Colours::On || (line.colours == Kelmesh::Colours::Same && HasColours(input));
    output.colours = colours && !output.ascii;
    output.coloursRefused = line.colours == Kelmesh::Colours::Off;
    output.solidPerSurface = line.solidPerSurface;
    output.scale = line.scale;
    return output;
}

int RunConvert(const Kelmesh::CommandLine& line)
{
    const MeshFormat* target = FormatByExtension(line.output);
    if (target == nullptr)
        return UsageError("'" + line.output + "' has no known output format (known: " + KnownFormats() + ")");
    // The native format stores the mesh as it is: the STL writer's options have no meaning there.
    if (target->write != &WriteStl && Kelmesh::HasStlOutputOptions(line))
        return UsageError(
            "--ascii, --binary, --colors, --no-colors, --solid-per-surface and --scale apply to "
            "STL output only");
    MStlBase mesh;
    ReadSummary summary;
    double readSeconds = 0.0;
    if (!ReadMesh(line, line.input, mesh, summary, readSeconds))
        return 1;
    const Kelmesh::Output output = ChooseOutput(*target, line, summary);
    std::string error;
    const auto start = std::chrono::steady_clock::now();
    try
    {
        auto progress = MakeProgress(line, "writing");
        const bool ok = target->write(KelSDK::Common::StringConversion::LocaleToNative(line.output), mesh,
                                      output, progress, error);
        if (progress)
            progress->Done();
        if (!ok)
            return Fail("write", line.output, error);
    }
    catch (const std::exception& e)
    {
        return Fail("write", line.output, e.what());
    }
    const double writeSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // Warnings are not progress: --quiet keeps them.
    for (const std::string& lost : Kelmesh::WhatIsLost(mesh, summary, output))
        std::fprintf(stderr, "kelmesh: warning: '%s' does not hold %s\n", line.output.c_str(), lost.c_str());
    if (line.quiet)
        return 0;
    std::printf("%s (%s, %llu facets) -> %s", line.input.c_str(), summary.format.c_str(),
                static_cast<unsigned long long>(mesh.NumberOfTriangles()), line.output.c_str());
    if (line.timing)
        std::printf(": read %.3f s, written %.3f s", readSeconds, writeSeconds);
    std::printf("\n");
    return 0;
}

int Run(const Kelmesh::CommandLine& line)
{
    switch (line.command)
    {
    case Kelmesh::Command::Info:
        return RunInfo(line);
    case Kelmesh::Command::Convert:
        return RunConvert(line);
    case Kelmesh::Command::Version:
        std::printf("kelmesh (KelSDK.Triangles.IO) %s\n", IO::GetLibraryVersion());
        return 0;
    case Kelmesh::Command::Help:
        break;
    }
    std::printf("%s", Kelmesh::Usage());
    return 0;
}
} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    const Kelmesh::CommandLine line = Kelmesh::ParseCommandLine(args);
    if (!line.error.empty())
        return UsageError(line.error);
    const int status = Run(line);
    // Output that did not arrive (a full disk, a closed pipe) is a failure like any other.
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
    {
        std::fprintf(stderr, "kelmesh: cannot write to standard output: %s\n", std::strerror(errno));
        return status != 0 ? status : 1;
    }
    return status;
}
