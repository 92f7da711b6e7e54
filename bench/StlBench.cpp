// STL import and export on generated closed meshes (a torus) of 10^4 to 10^7 facets.
//   ReadBinary / ReadAscii          whole import into a Standard mesh in internal units
//   ReadBinaryOnly / ReadAsciiOnly  parsing and measuring without a target mesh
//   BuildStandard                   mesh building alone (facets already in memory)
//   SortCornerRecords               the parallel sort of 3 N corner records, for the split
//   WriteBinary / WriteAscii        export of a Standard mesh
//   WriteBinaryVsFwrite/N/P         binary export and one fwrite of as many bytes, in turns; P = 1 with
//                                   the parallel export (MStlFileWriter::SetParallel), 0 without
// The files are written once to the temporary directory and reused.

#include "MeshGenerator.h"

#include <KelSDK/Common/InternalUnits.h>
#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlBaseFileUtilities.h>
#include <KelSDK/Triangles/IO/MStlFileReader.h>
#include <KelSDK/Triangles/IO/MStlFileReaderBinary.h>
#include <KelSDK/Triangles/IO/MStlFileReaderTarget.h>
#include <KelSDK/Triangles/IO/MStlFileWriter.h>
#include <KelSDK/Triangles/IO/StlFileUtilities.h>

#include <benchmark/benchmark.h>
#include <tbb/parallel_sort.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <vector>

namespace
{
using KelSDK::Triangles::Data::MStlBase;
namespace IO = KelSDK::Triangles::IO;

std::wstring Wide(const std::string& path)
{
    return KelSDK::Common::StringConversion::Utf8ToNative(path);
}

void SetFacetCounters(benchmark::State& state, uint64_t facets, uint64_t bytes)
{
    state.counters["facets"] = static_cast<double>(facets);
    state.counters["facets/s"] =
        benchmark::Counter(static_cast<double>(facets), benchmark::Counter::kIsIterationInvariantRate);
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
}

void Read(benchmark::State& state, bool ascii, bool withTarget)
{
    const KelBench::TorusFiles files =
        KelBench::EnsureTorusFiles(static_cast<uint64_t>(state.range(0)), ascii);
    const std::string& path = ascii ? files.ascii : files.binary;
    const std::wstring name = Wide(path);
    for (auto _ : state)
    {
        MStlBase mesh;
        IO::MStlReadOptions options;
        options.scale = KelSDK::Common::MInternalUnits::Get();
        IO::MStlFileReader reader(options);
        reader.SetFileName(name);
        reader.SetTargetStl(withTarget ? &mesh : nullptr);
        if (!reader.Read(nullptr))
            state.SkipWithError("read failed");
        benchmark::DoNotOptimize(mesh.NumberOfTriangles());
    }
    SetFacetCounters(state, files.facets, std::filesystem::file_size(path));
}

void ReadBinary(benchmark::State& state)
{
    Read(state, false, true);
}
void ReadBinaryOnly(benchmark::State& state)
{
    Read(state, false, false);
}
void ReadAscii(benchmark::State& state)
{
    Read(state, true, true);
}
void ReadAsciiOnly(benchmark::State& state)
{
    Read(state, true, false);
}

void BuildStandard(benchmark::State& state)
{
    const KelBench::TorusFiles files =
        KelBench::EnsureTorusFiles(static_cast<uint64_t>(state.range(0)), false);
    std::ifstream in(files.binary, std::ios::binary);
    IO::MStlFileReaderBinary reader(in);
    IO::MStlFileReaderBinary::FileHeader header;
    std::vector<std::vector<IO::MStlFileTriangle>> facets;
    if (reader.Read(header, facets, nullptr) != 0)
    {
        state.SkipWithError("read failed");
        return;
    }
    const std::vector<std::string> names(facets.size());
    const IO::MStlReadTransformation transformation({0, 0, 0}, KelSDK::Common::MInternalUnits::Get());
    for (auto _ : state)
    {
        MStlBase mesh;
        IO::MStlFileReaderTarget target;
        target.Convert(mesh, facets, names, transformation, false);
        benchmark::DoNotOptimize(mesh.NumberOfTriangles());
    }
    SetFacetCounters(state, files.facets, 0);
}

// The same record layout and comparison as the mesh building's packed corner records.
struct Corner
{
    uint32_t keyLow;
    uint32_t keyHigh;
    uint32_t corner;
    uint64_t Key() const { return (static_cast<uint64_t>(keyHigh) << 32) | keyLow; }
    friend bool operator<(const Corner& a, const Corner& b) { return a.Key() < b.Key(); }
};

void SortCornerRecords(benchmark::State& state)
{
    const KelBench::GeneratedMesh mesh = KelBench::MakeTorus(static_cast<uint64_t>(state.range(0)));
    std::vector<Corner> source;
    source.reserve(3 * mesh.triangles.size());
    for (const auto& t : mesh.triangles)
        for (uint32_t v : t)
        {
            const uint64_t key = static_cast<uint64_t>(v) * 0x9E3779B97F4A7C15ull >> 3;
            source.push_back({static_cast<uint32_t>(key), static_cast<uint32_t>(key >> 32),
                              static_cast<uint32_t>(source.size())});
        }
    std::vector<Corner> records(source.size());
    for (auto _ : state)
    {
        state.PauseTiming();
        records = source;
        state.ResumeTiming();
        tbb::parallel_sort(records.begin(), records.end());
        benchmark::DoNotOptimize(records.data());
    }
    SetFacetCounters(state, mesh.triangles.size(), 0);
}

// The torus of the benchmark's size as a Standard mesh in internal units; false (the benchmark
// skipped) when it cannot be read.
bool ReadTorus(benchmark::State& state, const KelBench::TorusFiles& files, MStlBase& mesh)
{
    if (IO::MStlBaseFileUtilities::ReadStlMM(&mesh, Wide(files.binary)))
        return true;
    state.SkipWithError("read failed");
    return false;
}

void Write(benchmark::State& state, bool binary)
{
    const KelBench::TorusFiles files =
        KelBench::EnsureTorusFiles(static_cast<uint64_t>(state.range(0)), false);
    MStlBase mesh;
    if (!ReadTorus(state, files, mesh))
        return;
    const std::string out = (std::filesystem::temp_directory_path() / "kel_bench_write.stl").string();
    const IO::MStlWriteOptions options(1.0 / KelSDK::Common::MInternalUnits::Get(), binary, false, false);
    for (auto _ : state)
    {
        if (!IO::MStlBaseFileUtilities::WriteStl(&mesh, Wide(out), options, nullptr))
            state.SkipWithError("write failed");
    }
    SetFacetCounters(state, files.facets, std::filesystem::file_size(out));
    std::filesystem::remove(out);
}

void WriteBinary(benchmark::State& state)
{
    Write(state, true);
}
void WriteAscii(benchmark::State& state)
{
    Write(state, false);
}

// Binary export against the floor for it, one fwrite of as many bytes, in turns within every
// iteration so that both see the same load on a shared machine. The time is the pair's; the
// counters give each side's mean and the ratio export / fwrite.
void WriteBinaryVsFwrite(benchmark::State& state)
{
    const KelBench::TorusFiles files =
        KelBench::EnsureTorusFiles(static_cast<uint64_t>(state.range(0)), false);
    MStlBase mesh;
    if (!ReadTorus(state, files, mesh))
        return;
    const size_t bytes = static_cast<size_t>(84 + 50 * files.facets);
    const std::vector<char> data(bytes, 'x');
    const std::filesystem::path dir = std::filesystem::temp_directory_path();
    const std::string exported = (dir / "kel_bench_export.stl").string();
    const std::string written = (dir / "kel_bench_fwrite.bin").string();
    const IO::MStlWriteOptions options(1.0 / KelSDK::Common::MInternalUnits::Get(), true, false, false);
    const std::wstring exportedName = Wide(exported);
    using Clock = std::chrono::steady_clock;
    double exportSeconds = 0.0, fwriteSeconds = 0.0;
    for (auto _ : state)
    {
        const Clock::time_point start = Clock::now();
        IO::MStlFileWriter writer(options);
        writer.SetFileName(exportedName.c_str());
        writer.SetStlToWrite(&mesh);
        writer.SetParallel(state.range(1) != 0);
        if (!writer.Write(nullptr) || !writer.Close())
            state.SkipWithError("write failed");
        const Clock::time_point middle = Clock::now();
        std::FILE* file = std::fopen(written.c_str(), "wb");
        if (file == nullptr || std::fwrite(data.data(), 1, bytes, file) != bytes || std::fclose(file) != 0)
            state.SkipWithError("fwrite failed");
        const Clock::time_point end = Clock::now();
        exportSeconds += std::chrono::duration<double>(middle - start).count();
        fwriteSeconds += std::chrono::duration<double>(end - middle).count();
    }
    const double iterations = static_cast<double>(state.iterations());
    state.counters["export_ms"] = 1e3 * exportSeconds / iterations;
    state.counters["fwrite_ms"] = 1e3 * fwriteSeconds / iterations;
    state.counters["ratio"] = exportSeconds / fwriteSeconds;
    SetFacetCounters(state, files.facets, bytes);
    std::filesystem::remove(exported);
    std::filesystem::remove(written);
}

void BinarySizes(benchmark::internal::Benchmark* b)
{
    b->Arg(10000)->Arg(100000)->Arg(1000000)->Arg(2000000)->Arg(10000000);
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}
void AsciiSizes(benchmark::internal::Benchmark* b)
{
    b->Arg(10000)->Arg(100000)->Arg(1000000)->Arg(2000000);
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}
} // namespace

BENCHMARK(ReadBinary)->Apply(BinarySizes);
BENCHMARK(ReadBinaryOnly)->Apply(BinarySizes);
BENCHMARK(BuildStandard)->Apply(BinarySizes);
BENCHMARK(SortCornerRecords)->Apply(BinarySizes);
BENCHMARK(ReadAscii)->Apply(AsciiSizes);
BENCHMARK(ReadAsciiOnly)->Apply(AsciiSizes);
BENCHMARK(WriteBinary)->Apply(BinarySizes);
BENCHMARK(WriteBinaryVsFwrite)
    ->ArgsProduct({{10000, 100000, 1000000, 2000000, 10000000}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(WriteAscii)->Apply(AsciiSizes);
