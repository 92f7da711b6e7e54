// Mesh model benchmarks: Create in the Standard kind, corner-by-corner filling of the Compact and
// OnDisk kinds. Besides time, each reports the resident memory the mesh added (counters in
// bytes), read from the operating system; figures are only meaningful with one iteration.
#include <KelSDK/Triangles/Data.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>

#if defined(__linux__)
#include <sys/resource.h>
#include <unistd.h>
#endif

using namespace KelSDK::Triangles::Data;

namespace
{
// Current resident set in bytes (0 where unknown).
double ResidentBytes()
{
#if defined(__linux__)
    long pages = 0, resident = 0;
    if (FILE* f = std::fopen("/proc/self/statm", "r"))
    {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2)
            resident = 0;
        std::fclose(f);
    }
    return double(resident) * double(sysconf(_SC_PAGESIZE));
#else
    return 0.0;
#endif
}

// Peak resident set of the process in bytes (0 where unknown).
double PeakResidentBytes()
{
#if defined(__linux__)
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return double(u.ru_maxrss) * 1024.0;
#else
    return 0.0;
#endif
}

// A flat n x n grid of points in (z, x, y) order and two triangles per cell: about 2 n^2
// triangles over n^2 points, the proportions of a closed STL surface.
struct Grid
{
    std::vector<std::array<int, 3>> points;
    std::vector<std::vector<std::array<size_t, 3>>> triangles;
};

Grid MakeGrid(size_t n)
{
    Grid g;
    g.points.reserve(n * n);
    for (size_t x = 0; x < n; ++x)
        for (size_t y = 0; y < n; ++y)
            g.points.push_back({int(x) * 1000, int(y) * 1000, 0});
    g.triangles.resize(1);
    auto& t = g.triangles[0];
    t.reserve(2 * (n - 1) * (n - 1));
    for (size_t x = 0; x + 1 < n; ++x)
        for (size_t y = 0; y + 1 < n; ++y)
        {
            const size_t a = x * n + y, b = (x + 1) * n + y, c = a + 1, d = b + 1;
            t.push_back({a, b, d});
            t.push_back({a, d, c});
        }
    return g;
}

size_t SideForTriangles(int64_t triangles)
{
    return size_t(std::ceil(std::sqrt(double(triangles) / 2.0))) + 1;
}

void BM_CreateStandard(benchmark::State& state)
{
    const size_t n = SideForTriangles(state.range(0));
    double modelBytes = 0, points = 0, triangles = 0;
    for (auto _ : state)
    {
        state.PauseTiming();
        auto stl = std::make_unique<MStlBase>();
        Grid g = MakeGrid(n);
        points = double(g.points.size());
        triangles = double(g.triangles[0].size());
        const double before = ResidentBytes();
        state.ResumeTiming();
        // The inputs are moved in; Create releases them as it goes.
        const bool ok = stl->Create(std::move(g.points), std::move(g.triangles), nullptr, nullptr, nullptr);
        state.PauseTiming();
        if (!ok)
            state.SkipWithError("Create failed");
        // What stays is the mesh itself, minus the inputs that were freed.
        modelBytes = ResidentBytes() - before + (points * 12 + triangles * 24);
        stl.reset();
        state.ResumeTiming();
    }
    state.counters["points"] = points;
    state.counters["triangles"] = triangles;
    state.counters["model_bytes"] = modelBytes;
    state.counters["budget_bytes"] = 64 * triangles + 32 * points;
    state.counters["peak_rss"] = PeakResidentBytes();
}
BENCHMARK(BM_CreateStandard)
    ->Arg(1 << 20)
    ->Arg(2000000)
    ->Arg(10000000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

// Corner-by-corner filling of a store, as an STL import does: three corners per facet, each
// looked up for sharing, then the triangle and its colour.
template <typename AddCorner, typename AddTriangle>
void FillCornerByCorner(size_t n, AddCorner addCorner, AddTriangle addTriangle)
{
    for (size_t x = 0; x + 1 < n; ++x)
        for (size_t y = 0; y + 1 < n; ++y)
        {
            const int x0 = int(x) * 1000, x1 = x0 + 1000, y0 = int(y) * 1000, y1 = y0 + 1000;
            unsigned a = addCorner(x0, y0), b = addCorner(x1, y0), d = addCorner(x1, y1);
            addTriangle(a, b, d);
            a = addCorner(x0, y0), d = addCorner(x1, y1);
            const unsigned c = addCorner(x0, y1);
            addTriangle(a, d, c);
        }
}

void BM_FillCompact(benchmark::State& state)
{
    const size_t n = SideForTriangles(state.range(0));
    double bytes = 0, triangles = 0;
    for (auto _ : state)
    {
        MStlBase stl;
        stl.GetStlHybrid().SetState(eStlCompact);
        MStlCompactHybrid* c = stl.GetStlHybrid().GetStlCompact();
        const double before = ResidentBytes();
        c->EnableVertexSharing(false);
        c->BeginAdding();
        c->SetCurrentSurface(stl.GetSurfaceList().GetSurface(0));
        MStlTriangleColorMask* mask = stl.GetColorMasks().CreateMainTriangleColorMask();
        FillCornerByCorner(
            n, [&](int x, int y) { return c->AddVertexIE(x, y, 0); },
            [&](unsigned a, unsigned b, unsigned d)
            { mask->SetInfo(c->AddTriangle(a, b, d), MStlColor(0xFF)); });
        c->UpdateParentBoundingBox();
        bytes = ResidentBytes() - before;
        triangles = double(c->GetNumTriangles());
        benchmark::DoNotOptimize(c->GetNumVertices());
    }
    state.counters["triangles"] = triangles;
    state.counters["store_bytes"] = bytes;
}
BENCHMARK(BM_FillCompact)->Arg(1 << 20)->Arg(2000000)->Unit(benchmark::kMillisecond)->Iterations(1);

// Writes the grid into the OnDisk store and reads every triangle with its corners back. Reports
// the resident memory beyond the vertex-sharing index.
void BM_FillOnDisk(benchmark::State& state)
{
    const size_t n = SideForTriangles(state.range(0));
    double beyondIndex = 0, index = 0, triangles = 0;
    for (auto _ : state)
    {
        MStlBase stl;
        stl.GetStlHybrid().SetState(eStlOnDisk);
        MStlOnDisk* d = stl.GetStlHybrid().GetStlOnDisk();
        const double before = ResidentBytes();
        d->OpenWrite(false);
        d->StartAddingVertices();
        d->StartAddingSurfaceTriangles(stl.GetSurfaceList().GetSurface(0));
        d->StartAddingTriangleColors();
        FillCornerByCorner(
            n, [&](int x, int y) { return d->AddVertex(x, y, 0); },
            [&](unsigned a, unsigned b, unsigned c)
            {
                d->AddSurfaceTriangle(a, b, c);
                d->AddColor(MStlColor(0xFF));
            });
        d->UpdateParentBoundingBox();
        if (!d->Close() || !d->OpenRead())
            state.SkipWithError("OnDisk store failed");
        int64_t sum = 0;
        for (size_t t = 0; t < d->GetNumTriangles(); ++t)
        {
            unsigned i[3];
            d->GetTriangle(t, i[0], i[1], i[2]);
            for (unsigned k : i)
            {
                int x, y, z;
                d->GetVertex(k, x, y, z, false);
                sum += x + y + z;
            }
            sum += d->GetColor(t).GetRGB();
        }
        benchmark::DoNotOptimize(sum);
        index = double(d->GetSharingIndexBytes());
        beyondIndex = ResidentBytes() - before - index;
        triangles = double(d->GetNumTriangles());
        d->Close();
    }
    state.counters["triangles"] = triangles;
    state.counters["index_bytes"] = index;
    state.counters["beyond_index_bytes"] = beyondIndex;
}
BENCHMARK(BM_FillOnDisk)->Arg(1 << 20)->Arg(20000000)->Unit(benchmark::kMillisecond)->Iterations(1);
} // namespace
