// Save and load of the native mesh format on closed tori of 10^4 to 10^7 triangles, and the
// import of the same 2M-triangle mesh from binary STL for comparison. Files live in the temporary
// directory (page cache), so the figures are CPU cost, not disk speed.
#include "NativeFiles.h"

#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/IO/MStlBaseFileUtilities.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

using namespace KelSDK::Triangles::Data;
using namespace KelSDK::Triangles::IO;
using KelBench::LoadNative;
using KelBench::SaveNative;
using KelBench::TempFile;

namespace
{
// A closed torus of about `triangles` triangles on the integer grid (10000 steps per mm: major
// radius 60 mm, minor radius 20 mm), points in (z, x, y) order as an STL import leaves them.
std::unique_ptr<MStlBase> MakeTorus(int64_t triangles)
{
    const int64_t v = std::max<int64_t>(4, std::llround(std::sqrt(static_cast<double>(triangles) / 8.0)));
    const int64_t u = std::max<int64_t>(4, std::llround(static_cast<double>(triangles) / (2.0 * v)));
    const double pi = 3.14159265358979323846;
    std::vector<std::array<int, 3>> points(static_cast<size_t>(u * v));
    for (int64_t i = 0; i < u; ++i)
        for (int64_t j = 0; j < v; ++j)
        {
            const double a = 2.0 * pi * i / u, b = 2.0 * pi * j / v;
            const double ring = 600000.0 + 200000.0 * std::cos(b);
            points[static_cast<size_t>(i * v + j)] = {static_cast<int>(std::lround(ring * std::cos(a))),
                                                      static_cast<int>(std::lround(ring * std::sin(a))),
                                                      static_cast<int>(std::lround(200000.0 * std::sin(b)))};
        }
    // Sort the points by (z, x, y) and renumber the corners.
    std::vector<uint32_t> order(points.size());
    for (size_t i = 0; i < order.size(); ++i)
        order[i] = static_cast<uint32_t>(i);
    std::sort(order.begin(), order.end(),
              [&](uint32_t a, uint32_t b)
              {
                  const auto& p = points[a];
                  const auto& q = points[b];
                  return std::tie(p[2], p[0], p[1]) < std::tie(q[2], q[0], q[1]);
              });
    std::vector<size_t> newIndex(points.size());
    std::vector<std::array<int, 3>> sorted(points.size());
    for (size_t k = 0; k < order.size(); ++k)
    {
        newIndex[order[k]] = k;
        sorted[k] = points[order[k]];
    }
    std::vector<std::array<size_t, 3>> tris;
    tris.reserve(static_cast<size_t>(2 * u * v));
    for (int64_t i = 0; i < u; ++i)
        for (int64_t j = 0; j < v; ++j)
        {
            const int64_t i1 = (i + 1) % u, j1 = (j + 1) % v;
            const size_t p00 = newIndex[static_cast<size_t>(i * v + j)];
            const size_t p10 = newIndex[static_cast<size_t>(i1 * v + j)];
            const size_t p01 = newIndex[static_cast<size_t>(i * v + j1)];
            const size_t p11 = newIndex[static_cast<size_t>(i1 * v + j1)];
            tris.push_back({p00, p10, p11});
            tris.push_back({p00, p11, p01});
        }
    auto mesh = std::make_unique<MStlBase>();
    mesh->Create(std::move(sorted), {std::move(tris)}, nullptr, nullptr, nullptr);
    return mesh;
}

int64_t FileSize(const std::wstring& name)
{
    std::error_code ec;
    const auto size = std::filesystem::file_size(std::filesystem::path(name), ec);
    return ec ? -1 : static_cast<int64_t>(size);
}

// The torus of a size, made once per process.
MStlBase& Torus(int64_t triangles)
{
    static std::map<int64_t, std::unique_ptr<MStlBase>> cache;
    auto& slot = cache[triangles];
    if (!slot)
        slot = MakeTorus(triangles);
    return *slot;
}

// Binary STL of the mesh in millimetres: 80-byte header, count, 50 bytes per facet.
bool SaveBinaryStl(const MStlBase& mesh, const std::wstring& name)
{
    KelSDK::FileIO::MFile file(1 << 20);
    if (!file.OPEN_WRITE(name))
        return false;
    const char header[80] = "native bench torus";
    file.WRITE(header, 80);
    const uint32_t count = static_cast<uint32_t>(mesh.NumberOfTriangles());
    file.WRITE(&count, 1);
    for (auto it = mesh.BeginTriangle(); it != mesh.EndTriangle(); ++it)
    {
        const auto n = it->GetNormal();
        float record[12] = {static_cast<float>(n[0]), static_cast<float>(n[1]), static_cast<float>(n[2])};
        for (int c = 0; c < 3; ++c)
            for (int k = 0; k < 3; ++k)
                record[3 + 3 * c + k] = static_cast<float>(it->GetPoint(c)->Get(k) / 10000.0);
        file.WRITE(record, 12);
        const uint16_t attribute = 0;
        file.WRITE(&attribute, 1);
    }
    return file.Close();
}

void BM_NativeSave(benchmark::State& state)
{
    MStlBase& mesh = Torus(state.range(0));
    const std::wstring name = TempFile("kel_native_bench_save.kstl");
    for (auto _ : state)
        if (!SaveNative(mesh, name))
        {
            state.SkipWithError("save failed");
            break;
        }
    state.counters["triangles"] = static_cast<double>(mesh.NumberOfTriangles());
    state.counters["fileMB"] = static_cast<double>(FileSize(name)) / 1e6;
    state.counters["bytesPerTriangle"] = static_cast<double>(FileSize(name)) / mesh.NumberOfTriangles();
    std::filesystem::remove(std::filesystem::path(name));
}

void BM_NativeLoad(benchmark::State& state)
{
    MStlBase& mesh = Torus(state.range(0));
    const std::wstring name = TempFile("kel_native_bench_load.kstl");
    if (!SaveNative(mesh, name))
        state.SkipWithError("save failed");
    KelBench::LoadRounds(state, name);
    state.counters["triangles"] = static_cast<double>(mesh.NumberOfTriangles());
    std::filesystem::remove(std::filesystem::path(name));
}

// The same 2M-triangle torus imported from binary STL and loaded from the native format in one
// run; the counters give the time and size ratios.
void BM_NativeVersusBinaryStl(benchmark::State& state)
{
    MStlBase& mesh = Torus(state.range(0));
    const std::wstring stl = TempFile("kel_native_bench_compare.stl");
    const std::wstring native = TempFile("kel_native_bench_compare.kstl");
    if (!SaveBinaryStl(mesh, stl) || !SaveNative(mesh, native))
        state.SkipWithError("writing the files failed");
    double stlSeconds = 0, nativeSeconds = 0, stlTriangles = 0;
    int64_t rounds = 0;
    for (auto _ : state)
    {
        auto a = std::make_unique<MStlBase>();
        auto b = std::make_unique<MStlBase>();
        auto t0 = std::chrono::steady_clock::now();
        const bool stlOk = MStlBaseFileUtilities::ReadStlMM(a.get(), stl);
        auto t1 = std::chrono::steady_clock::now();
        const bool nativeOk = LoadNative(*b, native);
        auto t2 = std::chrono::steady_clock::now();
        if (!stlOk || !nativeOk)
        {
            state.SkipWithError(!stlOk ? "STL import failed" : "native load failed");
            break;
        }
        stlSeconds += std::chrono::duration<double>(t1 - t0).count();
        nativeSeconds += std::chrono::duration<double>(t2 - t1).count();
        ++rounds;
        stlTriangles = static_cast<double>(a->NumberOfTriangles());
        if (b->NumberOfTriangles() != mesh.NumberOfTriangles() ||
            a->NumberOfTriangles() != mesh.NumberOfTriangles())
        {
            state.SkipWithError("a reader built another number of triangles");
            break;
        }
        state.PauseTiming();
        a.reset();
        b.reset();
        state.ResumeTiming();
    }
    if (rounds > 0)
    {
        state.counters["stlImportSeconds"] = stlSeconds / rounds;
        state.counters["nativeLoadSeconds"] = nativeSeconds / rounds;
        state.counters["timeRatio"] = nativeSeconds / stlSeconds;
        state.counters["stlTriangles"] = stlTriangles;
    }
    state.counters["stlMB"] = static_cast<double>(FileSize(stl)) / 1e6;
    state.counters["nativeMB"] = static_cast<double>(FileSize(native)) / 1e6;
    state.counters["sizeRatio"] = static_cast<double>(FileSize(native)) / static_cast<double>(FileSize(stl));
    std::filesystem::remove(std::filesystem::path(stl));
    std::filesystem::remove(std::filesystem::path(native));
}
} // namespace

BENCHMARK(BM_NativeSave)->RangeMultiplier(10)->Range(10000, 10000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NativeLoad)->RangeMultiplier(10)->Range(10000, 10000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NativeVersusBinaryStl)->Arg(10000)->Arg(2000000)->Unit(benchmark::kMillisecond)->Iterations(3);
