// Cost per facet against size for every way a mesh comes in: binary and ASCII STL into a Standard
// mesh, binary STL into the Compact and OnDisk kinds, and the native format, on closed tori of 10^5,
// 10^6, 10^7 and 2*10^7 facets (files written once into the temporary directory and reused).
//
// Each load runs as one iteration (several for small sizes, timed one by one), repeated; the best
// time counts, as the others only add the noise of a shared machine. Peak memory is the rise of
// the resident set's high-water mark over the load (the mark is reset before it; Linux only), so
// it includes the mesh itself. After Google Benchmark's own rows the program prints one table:
// nanoseconds and peak bytes per facet by size and kind, then the ratios that matter: the cost
// per facet of each size against 10^6 facets, and native load against binary STL import.
//
//   bench_ImportScaleBench [--benchmark_filter=binary|ascii|native|compact|ondisk/<facets>] [--benchmark_repetitions=N]
//   the peer comparison at 10^7 facets: bench_stl_peers 10000000 3

#include "MeshGenerator.h"
#include "NativeFiles.h"

#include <KelSDK/Common/InternalUnits.h>
#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlBaseFileUtilities.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace
{
using KelSDK::Triangles::Data::MStlBase;
namespace Data = KelSDK::Triangles::Data;
namespace IO = KelSDK::Triangles::IO;

const uint64_t kSizes[] = {100000, 1000000, 10000000, 20000000};
const char* const kKinds[] = {"binary", "ascii", "native", "compact", "ondisk"};

// Resident-set figures of this process from /proc (0 elsewhere).
double StatusBytes(const char* field)
{
#if defined(__linux__)
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::string key = std::string(field) + ":";
    while (std::getline(status, line))
        if (line.compare(0, key.size(), key) == 0)
            return std::stod(line.substr(key.size())) * 1024.0; // kB
#else
    (void)field;
#endif
    return 0.0;
}

// Sets the high-water mark of the resident set to the current resident set.
void ResetPeak()
{
#if defined(__linux__)
    std::ofstream("/proc/self/clear_refs") << "5";
#endif
}

std::wstring Wide(const std::string& path)
{
    return KelSDK::Common::StringConversion::Utf8ToNative(path);
}

// The native file of the torus, saved from its binary STL import when missing.
std::string NativeFile(const KelBench::TorusFiles& files, uint64_t size)
{
    const std::string path =
        (std::filesystem::temp_directory_path() / ("kel_bench_torus_" + std::to_string(size) + ".kstl")).string();
    std::error_code ec;
    if (std::filesystem::exists(path, ec))
        return path;
    MStlBase mesh;
    if (!IO::MStlBaseFileUtilities::ReadStlMM(&mesh, Wide(files.binary)) || !KelBench::SaveNative(mesh, Wide(path + ".part")))
        return std::string();
    std::filesystem::rename(path + ".part", path);
    return path;
}

// One load of a kind into a fresh mesh; false when it failed.
bool Load(const std::string& kind, const KelBench::TorusFiles& files, const std::string& native, MStlBase& mesh)
{
    if (kind == "native")
        return KelBench::LoadNative(mesh, Wide(native));
    if (kind == "compact")
        mesh.GetStlHybrid().SetState(Data::eStlCompact);
    if (kind == "ondisk")
        mesh.GetStlHybrid().SetState(Data::eStlOnDisk);
    return IO::MStlBaseFileUtilities::ReadStlMM(&mesh, Wide(kind == "ascii" ? files.ascii : files.binary));
}

struct Figures
{
    double secondsPerFacet = 0.0; // best load
    double peakBytes = 0.0;       // largest rise of the high-water mark over a load
    uint64_t facets = 0;
};
std::map<std::pair<std::string, uint64_t>, Figures> results;

void LoadBenchmark(benchmark::State& state, const std::string& kind, uint64_t size)
{
    const KelBench::TorusFiles files = KelBench::EnsureTorusFiles(size, kind == "ascii");
    const std::string native = kind == "native" ? NativeFile(files, size) : std::string();
    if (kind == "native" && native.empty())
    {
        state.SkipWithError("the native file could not be written");
        return;
    }
    Figures& figures = results[{kind, size}];
    figures.facets = files.facets;
    for (auto _ : state)
    {
        auto mesh = std::make_unique<MStlBase>();
        const double before = StatusBytes("VmRSS");
        ResetPeak();
        const auto start = std::chrono::steady_clock::now();
        const bool ok = Load(kind, files, native, *mesh);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const double peak = StatusBytes("VmHWM") - before;
        state.SetIterationTime(seconds);
        if (!ok || mesh->GetStlHybrid().GetNumTriangles() != files.facets)
        {
            state.SkipWithError("the load failed or built another number of triangles");
            break;
        }
        const double perFacet = seconds / static_cast<double>(files.facets);
        if (figures.secondsPerFacet == 0.0 || perFacet < figures.secondsPerFacet)
            figures.secondsPerFacet = perFacet;
        figures.peakBytes = std::max(figures.peakBytes, peak);
        state.PauseTiming();
        mesh.reset();
        state.ResumeTiming();
    }
    state.counters["ns/facet"] = figures.secondsPerFacet * 1e9;
    state.counters["peak B/facet"] = figures.peakBytes / static_cast<double>(files.facets);
}

void PrintSummary()
{
    if (results.empty())
        return;
    std::printf("\nbest time (ns) and peak memory (bytes) per facet, by size\n%12s", "facets");
    for (const char* kind : kKinds)
        std::printf("  %9s ns %7s B", kind, "peak");
    std::printf("\n");
    for (uint64_t size : kSizes)
    {
        bool any = false;
        for (const char* kind : kKinds)
            any = any || results.count({kind, size}) != 0;
        if (!any)
            continue;
        std::printf("%12llu", static_cast<unsigned long long>(size));
        for (const char* kind : kKinds)
        {
            const auto found = results.find({kind, size});
            if (found == results.end() || found->second.secondsPerFacet == 0.0)
                std::printf("  %12s %9s", "-", "-");
            else
                std::printf("  %12.1f %9.1f", found->second.secondsPerFacet * 1e9,
                            found->second.peakBytes / static_cast<double>(found->second.facets));
        }
        std::printf("\n");
    }
    std::printf("\ncost per facet against 10^6 facets (flat is 1.00; binary at 2*10^7: bar 1.3)\n");
    for (const char* kind : kKinds)
    {
        const auto base = results.find({kind, 1000000});
        if (base == results.end() || base->second.secondsPerFacet == 0.0)
            continue;
        std::printf("  %-8s", kind);
        for (uint64_t size : kSizes)
        {
            const auto found = results.find({kind, size});
            if (found != results.end() && found->second.secondsPerFacet > 0.0)
                std::printf("  %llu: %.2f", static_cast<unsigned long long>(size),
                            found->second.secondsPerFacet / base->second.secondsPerFacet);
        }
        std::printf("\n");
    }
    std::printf("\nnative load against binary STL import of the same mesh (bar at 10^7: 0.25)\n");
    for (uint64_t size : kSizes)
    {
        const auto native = results.find({"native", size});
        const auto binary = results.find({"binary", size});
        if (native != results.end() && binary != results.end() && binary->second.secondsPerFacet > 0.0 &&
            native->second.secondsPerFacet > 0.0)
            std::printf("  %llu: %.3f\n", static_cast<unsigned long long>(size),
                        native->second.secondsPerFacet / binary->second.secondsPerFacet);
    }
}
} // namespace

int main(int argc, char** argv)
{
    for (const char* kind : kKinds)
        for (uint64_t size : kSizes)
        {
            const std::string k = kind;
            benchmark::RegisterBenchmark((k + "/" + std::to_string(size)).c_str(),
                                         [k, size](benchmark::State& state) { LoadBenchmark(state, k, size); })
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond)
                ->Iterations(static_cast<int64_t>(std::max<uint64_t>(1, 3000000 / size)))
                ->Repetitions(3)
                ->ReportAggregatesOnly(true);
        }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    PrintSummary();
    return 0;
}
