// kelmesh: inspects and converts mesh files with KelSDK.Triangles.IO.
//   kelmesh info FILE
//   kelmesh convert IN OUT [--ascii | --binary] [--colors] [--solid-per-surface] [--scale FACTOR]
// Formats are found by content first, then by file extension (see Formats()). Errors are one line
// on stderr and a non-zero exit status; an output file is replaced only when it was written whole.

#include "CommandLine.h"

#include <KelSDK/Common/InternalUnits.h>
#include <KelSDK/Common/Progress.h>
#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlFileReader.h>
#include <KelSDK/Triangles/IO/MStlFileWriter.h>
#include <KelSDK/Triangles/IO/StlFileUtilities.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
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

// What reading a file told beyond the mesh itself.
struct ReadSummary
{
    std::string format;                       // "binary STL", "ASCII STL"
    bool ascii = false;                       // text flavour of the format
    uint64_t facetsInFile = 0;                // before collapsed facets were dropped
    KelSDK::Math::boundingbox<double, 3> box; // millimetres
    std::vector<std::string> details;         // format-specific lines for "info"
};

// One mesh file format. recognise looks at the content (null: the format has no signature and is
// only chosen by extension); read fills a Standard mesh in internal units; write writes it.
struct MeshFormat
{
    const char* name;
    std::vector<std::string> extensions;
    bool (*recognise)(const std::wstring& path);
    bool (*read)(const std::wstring& path, MStlBase& mesh, ReadSummary& summary,
                 std::shared_ptr<KelSDK::Common::IProgressDelegate> progress, std::string& error);
    bool (*write)(const std::wstring& path, const MStlBase& mesh, const ReadSummary& input,
                  const Kelmesh::CommandLine& line,
                  std::shared_ptr<KelSDK::Common::IProgressDelegate> progress, std::string& error);
};

// Internal grid steps per millimetre as the STL entry points use them (a whole number).
double StepsPerMillimetre()
{
    const double steps = std::round(KelSDK::Common::MInternalUnits::Get());
    return std::clamp(steps, 1.0, 2147483647.0);
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
        error = "not a readable STL file (an ASCII text without \"solid\", or a binary file whose "
                "size does not match its facet counts)";
        return false;
    }
    const IO::MStlReadResults results = reader.GetResults();
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

bool WriteStl(const std::wstring& path, const MStlBase& mesh, const ReadSummary& input,
              const Kelmesh::CommandLine& line, std::shared_ptr<KelSDK::Common::IProgressDelegate> progress,
              std::string& error)
{
    const bool binary =
        line.flavour == Kelmesh::Flavour::Same ? !input.ascii : line.flavour == Kelmesh::Flavour::Binary;
    IO::MStlFileWriter writer(
        IO::MStlWriteOptions(line.scale / StepsPerMillimetre(), binary, line.colors, line.solidPerSurface));
    writer.SetFileName(path.c_str());
    writer.SetStlToWrite(&mesh);
    const bool written = writer.Write(std::move(progress));
    // Close also when Write failed: MFile then drops the temporary and keeps any previous file.
    const bool closed = writer.Close();
    if (!written || !closed)
    {
        error = "the file could not be written completely (the previous file, if any, is unchanged)";
        return false;
    }
    return true;
}

// Known formats in the order their signatures are tested. Formats with a signature come first;
// STL, which has none, is tested last and is the format of the ".stl" extension.
const std::vector<MeshFormat>& Formats()
{
    static const std::vector<MeshFormat> formats = {
        {"STL", {".stl"}, &RecogniseStl, &ReadStl, &WriteStl},
    };
    return formats;
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

// Reads path into mesh; prints the error line itself and returns false on failure.
bool ReadMesh(const Kelmesh::CommandLine& line, const std::string& path, MStlBase& mesh, ReadSummary& summary,
              double& seconds)
{
    const std::wstring wide = KelSDK::Common::StringConversion::LocaleToNative(path);
    std::error_code ec;
    if (!std::filesystem::exists(std::filesystem::u8path(path), ec))
        return FailRead(path, "no such file");
    if (!std::filesystem::is_regular_file(std::filesystem::u8path(path), ec))
        return FailRead(path, "not a regular file");
    const MeshFormat* format = FormatForReading(path, wide);
    if (format == nullptr)
        return FailRead(path, "unknown mesh format (known: STL)");
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
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return true;
}

void PrintInfo(const std::string& path, const MStlBase& mesh, const ReadSummary& summary, double seconds)
{
    std::printf("file:        %s\n", path.c_str());
    std::printf("format:      %s\n", summary.format.c_str());
    const auto& surfaces = mesh.GetSurfaceList();
    const size_t solids = surfaces.GetNumSurfaces(false);
    std::printf("solids:      %zu\n", solids);
    for (size_t s = 0; s < solids; ++s)
    {
        const auto* surface = surfaces.GetSurface(s);
        const std::string name = KelSDK::Common::StringConversion::NativeToLocale(surface->GetName());
        std::printf("  %zu: \"%s\", %zu triangles\n", s + 1, name.c_str(), surface->GetNumberOfTriangles());
    }
    const uint64_t triangles = mesh.NumberOfTriangles();
    std::printf("facets:      %llu in the file, %llu triangles after welding\n",
                static_cast<unsigned long long>(summary.facetsInFile),
                static_cast<unsigned long long>(triangles));
    std::printf("degenerate:  %llu facets dropped (two corners on the same grid point)\n",
                static_cast<unsigned long long>(
                    summary.facetsInFile >= triangles ? summary.facetsInFile - triangles : 0));
    std::printf("vertices:    %zu welded\n", mesh.NumberOfPoints());
    size_t coloured = 0;
    for (const auto& triangle : mesh.Triangles())
        coloured += triangle.GetColor().IsDefined() ? 1 : 0;
    std::printf("colours:     %zu facets with a colour of their own\n", coloured);
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
    std::printf("read in:     %.3f s\n", seconds);
}

int RunInfo(const Kelmesh::CommandLine& line)
{
    MStlBase mesh;
    ReadSummary summary;
    double seconds = 0.0;
    if (!ReadMesh(line, line.input, mesh, summary, seconds))
        return 1;
    PrintInfo(line.input, mesh, summary, seconds);
    return 0;
}

int RunConvert(const Kelmesh::CommandLine& line)
{
    const MeshFormat* target = FormatByExtension(line.output);
    if (target == nullptr)
        return Fail("write", line.output, "unknown output format (use the extension .stl)");
    MStlBase mesh;
    ReadSummary summary;
    double readSeconds = 0.0;
    if (!ReadMesh(line, line.input, mesh, summary, readSeconds))
        return 1;
    std::string error;
    const auto start = std::chrono::steady_clock::now();
    try
    {
        auto progress = MakeProgress(line, "writing");
        const bool ok = target->write(KelSDK::Common::StringConversion::LocaleToNative(line.output), mesh,
                                      summary, line, progress, error);
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
    if (!line.quiet)
        std::printf("%s (%s, %llu facets) -> %s: read %.3f s, written %.3f s\n", line.input.c_str(),
                    summary.format.c_str(), static_cast<unsigned long long>(mesh.NumberOfTriangles()),
                    line.output.c_str(), readSeconds, writeSeconds);
    return 0;
}
} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    const Kelmesh::CommandLine line = Kelmesh::ParseCommandLine(args);
    if (!line.error.empty())
    {
        std::fprintf(stderr, "kelmesh: %s\n%s", line.error.c_str(), Kelmesh::Usage());
        return 2;
    }
    switch (line.command)
    {
    case Kelmesh::Command::Info:
        return RunInfo(line);
    case Kelmesh::Command::Convert:
        return RunConvert(line);
    case Kelmesh::Command::Help:
        std::printf("%s", Kelmesh::Usage());
        return 0;
    }
    return 2;
}
