// Reader-only STL benchmarks: the binary and ASCII readers on files of a generated closed mesh
// (a torus grid), read from disk through std::ifstream as STL import does.
#include <KelSDK/Triangles/IO/MStlFileReaderAscii.h>
#include <KelSDK/Triangles/IO/MStlFileReaderBinary.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>

#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace KelSDK::Triangles::IO;

namespace
{
// Facets of a closed torus made of rings x segments quads (two facets each), in millimetres.
std::vector<MStlFileTriangle> TorusFacets(int64_t facets)
{
    const int rings = static_cast<int>(std::sqrt(static_cast<double>(facets) / 2.0));
    const int segments = static_cast<int>(facets / 2 / rings);
    const double pi = 3.14159265358979323846;
    const auto at = [&](int i, int j)
    {
        const double u = 2.0 * pi * (i % rings) / rings;
        const double v = 2.0 * pi * (j % segments) / segments;
        const double r = 80.0 + 25.0 * std::cos(v);
        return MStlFileTriangle::Point(r * std::cos(u), r * std::sin(u), 25.0 * std::sin(v));
    };
    std::vector<MStlFileTriangle> out;
    out.reserve(static_cast<std::size_t>(2 * rings * segments));
    for (int i = 0; i < rings; ++i)
    {
        for (int j = 0; j < segments; ++j)
        {
            const MStlFileTriangle::Point a = at(i, j), b = at(i + 1, j), c = at(i + 1, j + 1),
                                          d = at(i, j + 1);
            for (const auto& corners : {std::array<MStlFileTriangle::Point, 3>{a, b, c},
                                        std::array<MStlFileTriangle::Point, 3>{a, c, d}})
            {
                MStlFileTriangle f;
                for (std::size_t k = 0; k < 3; ++k)
                    f.SetVertex(k, corners[k]);
                f.SetNormal(f.GetGeometricNormal());
                out.push_back(f);
            }
        }
    }
    return out;
}

// Writes (once per process) the file for a facet count and flavour; returns its path.
const fs::path& BenchFile(int64_t facets, bool binary)
{
    static std::map<std::pair<int64_t, bool>, fs::path> files;
    auto found = files.find({facets, binary});
    if (found != files.end())
        return found->second;
    const fs::path path = fs::temp_directory_path() / ("kel_stlreaderbench_" + std::to_string(facets) +
                                                       (binary ? "_bin.stl" : "_ascii.stl"));
    const std::vector<MStlFileTriangle> mesh = TorusFacets(facets);
    FILE* file = std::fopen(path.string().c_str(), "wb");
    if (binary)
    {
        char header[80] = "binary torus";
        std::fwrite(header, 1, 80, file);
        const uint32_t count = static_cast<uint32_t>(mesh.size());
        std::fwrite(&count, 4, 1, file);
    }
    else
    {
        std::fputs("solid torus\n", file);
    }
    for (const MStlFileTriangle& f : mesh)
        f.Write(file, binary);
    if (!binary)
        std::fputs("endsolid torus\n", file);
    std::fclose(file);
    static const bool cleanup = std::atexit(
                                    []
                                    {
                                        for (const auto& entry : files)
                                            fs::remove(entry.second);
                                    }) == 0;
    (void)cleanup;
    return files.emplace(std::make_pair(facets, binary), path).first->second;
}

void BM_ReadBinary(benchmark::State& state)
{
    const fs::path& path = BenchFile(state.range(0), true);
    std::size_t facets = 0;
    for (auto _ : state)
    {
        std::ifstream stream(path, std::ios::binary);
        MStlFileReaderBinary reader(stream);
        MStlFileReaderBinary::Options options;
        options.readMultipleBlocks = true;
        reader.SetOptions(options);
        MStlFileReaderBinary::FileHeader header;
        std::vector<std::vector<MStlFileTriangle>> solids;
        if (reader.Read(header, solids, nullptr) != MStlFileReaderBinary::Ok)
            state.SkipWithError("read failed");
        facets = solids.at(0).size();
        benchmark::DoNotOptimize(solids.data());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * facets));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * fs::file_size(path)));
}

void BM_ReadAscii(benchmark::State& state)
{
    const fs::path& path = BenchFile(state.range(0), false);
    std::size_t facets = 0;
    for (auto _ : state)
    {
        std::ifstream stream(path, std::ios::binary);
        std::vector<std::vector<MStlFileTriangle>> solids;
        std::vector<std::string> names;
        if (MStlFileReaderAscii(stream).Read(solids, names, nullptr) != MStlFileReaderAscii::Success)
            state.SkipWithError("read failed");
        facets = solids.at(0).size();
        benchmark::DoNotOptimize(solids.data());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * facets));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * fs::file_size(path)));
}
} // namespace

BENCHMARK(BM_ReadBinary)->Arg(10000)->Arg(100000)->Arg(1000000)->Arg(2000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadAscii)->Arg(10000)->Arg(100000)->Arg(1000000)->Arg(2000000)->Unit(benchmark::kMillisecond);
