// The native format's plug-in block on a 2M-triangle torus with every attachment filled: a
// radius on every vertex, thickness, tolerance and caps on every graph edge (two per vertex,
// along both grid directions), a no-support zone of every tenth triangle, two 1024 x 1024
// textures shared by three UV maps, and an identity card with a parent. Files live in the
// temporary directory (page cache), so the figures are CPU and memory cost, not disk speed.
//   BM_PluginBlockSave/Load: the five payloads alone, written to and read from a file of their
//     own; bytes_per_second is the block's throughput.
//   BM_MeshSave/Load/0 and /1: the whole native file without and with the attachments.
// Wall-clock time; repeated five times: the mean, median, min and max rows show the spread on a
// shared machine.
#include "MeshGenerator.h"
#include "NativeFiles.h"

#include <KelSDK/Common/ImageBitmap.h>
#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>
#include <KelSDK/Triangles/IO/MStlFileIOPlugin.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>

using namespace KelSDK::Triangles::Data;
using namespace KelSDK::Triangles::IO;
using KelBench::LoadNative;
using KelBench::SaveNative;
using KelBench::TempFile;

namespace
{
constexpr uint64_t kTriangles = 2000000;

// The torus on the grid (10000 steps per mm) with graph edges along both directions of its
// u x v vertex grid.
std::unique_ptr<MStlBase> MakeMesh()
{
    KelBench::GeneratedMesh g = KelBench::MakeTorus(kTriangles);
    std::vector<std::array<int, 3>> points(g.vertices.size());
    for (size_t i = 0; i < points.size(); ++i)
        for (int k = 0; k < 3; ++k)
            points[i][k] = static_cast<int>(std::lround(g.vertices[i][k] * 10000.0));
    const size_t triangles = g.triangles.size();
    auto mesh = std::make_unique<MStlBase>();
    std::vector<MStlPoint*> created;
    mesh->Create(std::move(points), std::move(g.triangles), {triangles}, nullptr, &created, nullptr);
    // The generator's vertex i * v + j lies at ring i, position j; its triangles (i, j) pair up.
    const size_t v = static_cast<size_t>(std::llround(std::sqrt(static_cast<double>(kTriangles) / 8.0)));
    const size_t u = created.size() / v;
    for (size_t i = 0; i < u; ++i)
        for (size_t j = 0; j < v; ++j)
        {
            mesh->CreateGraphEdge(created[i * v + j], created[((i + 1) % u) * v + j]);
            mesh->CreateGraphEdge(created[i * v + j], created[i * v + (j + 1) % v]);
        }
    return mesh;
}

std::shared_ptr<KelSDK::Common::ImageBitmap> Bitmap(uint32_t seed)
{
    auto bitmap = KelSDK::Common::ImageBitmap::Create(1024, 1024);
    for (size_t i = 0; i < bitmap->GetPixels().size(); ++i)
        bitmap->GetPixels()[i] = static_cast<uint32_t>(i * 2654435761u) ^ seed;
    bitmap->SetOriginalMetaData({L"texture.png", L"png", L"", L""});
    return bitmap;
}

void Attach(MStlBase& mesh)
{
    MStlBaseElementInfo& info = *MStlBaseElementInfoStlDependency::GetDependency(&mesh, true);
    MStlEdgeThicknessMask& thickness = *info.DefineEdgeThicknessMask();
    MStlEdgeToleranceMask& tolerance = *info.DefineEdgeToleranceMask();
    MStlEdgeCapMask& caps = *info.DefineEdgeCapMask();
    for (size_t e = 0; e < info.GetNumberOfEdges(); ++e)
    {
        const int32_t value = static_cast<int32_t>(e % 5000);
        thickness.SetInfo(e, {value, value + 10});
        tolerance.SetInfo(e, value / 2);
        caps.SetInfo(e, {eStlGraphEdgeCapRound, static_cast<int8_t>(e % 3)});
    }
    MStlVertexRadiusMask& radius = *info.DefineVertexRadiusMask();
    for (size_t p = 0; p < info.GetNumberOfVertices(); ++p)
        radius.SetInfo(p, static_cast<int32_t>(1000 + p % 777));

    SurfaceZone& zone = *SurfaceZonesStlDependency::CreateInstance(&mesh)->InitNoSupportZone();
    for (size_t t = 0; t < mesh.NumberOfTriangles(); t += 10)
        zone.AddTriangle(MStlHybridEntity::FromIndex(t));

    MStlTexture* a = mesh.GetTextures().AddTexture();
    MStlTexture* b = mesh.GetTextures().AddTexture();
    a->SetSharedBitmap(Bitmap(1));
    b->SetSharedBitmap(Bitmap(2));
    KelSDK::UVMapList& maps = *KelSDK::UVMapList::Get(&mesh, true);
    for (MStlTexture* textures : {a, b, a})
    {
        KelSDK::UVMap* map = maps.AddMap();
        map->AddTexture(textures);
        map->SetSharedBitmap(textures->GetSharedBitmap(), false);
    }
    maps.GetMap(2)->AddTexture(b);

    MStlRevisionSystem::MIDCard parent = MStlRevisionSystem::MIDCard::CreateNew();
    parent.CreateHistory().AddEntry(MHistoryEntry{L"Import", L"torus.stl", 1700000000, L"bench"});
    MStlRevisionSystem::GetIDCard(&mesh)->AddParentIDCard(parent);
}

// The mesh with or without attachments, made once per process.
MStlBase& Mesh(bool attached)
{
    static std::unique_ptr<MStlBase> meshes[2];
    if (!meshes[attached])
    {
        meshes[attached] = MakeMesh();
        if (attached)
            Attach(*meshes[attached]);
    }
    return *meshes[attached];
}

// Writes the payloads of every registered plug-in one after another; the file's size.
int64_t SavePayloads(MStlBase& mesh, const std::wstring& name)
{
    KelSDK::FileIO::MFile file(1 << 20);
    if (!file.OPEN_WRITE(name))
        return -1;
    MStlFileIO io;
    io.SetFile(file);
    for (MStlFileIOPlugin* plugin : MStlFileIOPlugin::GetPlugins())
        plugin->SaveData(&mesh, &io);
    const int64_t size = file.GetSize();
    return file.Close() ? size : -1;
}

bool LoadPayloads(MStlBase& mesh, const std::wstring& name)
{
    KelSDK::FileIO::MFile file(1 << 20);
    if (!file.OPEN_READ(name))
        return false;
    MStlFileIO io;
    io.SetFile(file);
    for (MStlFileIOPlugin* plugin : MStlFileIOPlugin::GetPlugins())
        plugin->LoadData(&mesh, &io);
    return !file.HasError() && file.GetRemaining() == 0;
}

void Counters(benchmark::State& state, MStlBase& mesh, int64_t bytes)
{
    state.SetBytesProcessed(state.iterations() * bytes);
    state.counters["MB"] = static_cast<double>(bytes) / 1e6;
    state.counters["triangles"] = static_cast<double>(mesh.NumberOfTriangles());
    state.counters["edges"] = static_cast<double>(mesh.NumberOfGraphEdges());
}

void BM_PluginBlockSave(benchmark::State& state)
{
    MStlBase& mesh = Mesh(true);
    const std::wstring name = TempFile("kel_plugin_bench_block.bin");
    int64_t bytes = 0;
    for (auto _ : state)
        if ((bytes = SavePayloads(mesh, name)) < 0)
        {
            state.SkipWithError("writing the payloads failed");
            break;
        }
    Counters(state, mesh, bytes);
    std::filesystem::remove(std::filesystem::path(name));
}

void BM_PluginBlockLoad(benchmark::State& state)
{
    MStlBase& mesh = Mesh(true);
    const std::wstring name = TempFile("kel_plugin_bench_block.bin");
    const int64_t bytes = SavePayloads(mesh, name);
    if (bytes < 0)
        state.SkipWithError("writing the payloads failed");
    for (auto _ : state)
    {
        // Maps are appended on loading; start each round from none.
        state.PauseTiming();
        KelSDK::UVMapList::Destroy(&mesh);
        state.ResumeTiming();
        if (!LoadPayloads(mesh, name))
        {
            state.SkipWithError("reading the payloads failed");
            break;
        }
    }
    Counters(state, mesh, bytes);
    std::filesystem::remove(std::filesystem::path(name));
}

void BM_MeshSave(benchmark::State& state)
{
    MStlBase& mesh = Mesh(state.range(0) != 0);
    const std::wstring name = TempFile("kel_plugin_bench_mesh.kstl");
    for (auto _ : state)
        if (!SaveNative(mesh, name))
        {
            state.SkipWithError("save failed");
            break;
        }
    Counters(state, mesh, static_cast<int64_t>(std::filesystem::file_size(std::filesystem::path(name))));
    std::filesystem::remove(std::filesystem::path(name));
}

void BM_MeshLoad(benchmark::State& state)
{
    MStlBase& mesh = Mesh(state.range(0) != 0);
    const std::wstring name = TempFile("kel_plugin_bench_mesh.kstl");
    if (!SaveNative(mesh, name))
        state.SkipWithError("save failed");
    KelBench::LoadRounds(state, name);
    Counters(state, mesh, static_cast<int64_t>(std::filesystem::file_size(std::filesystem::path(name))));
    std::filesystem::remove(std::filesystem::path(name));
}

double Min(const std::vector<double>& v)
{
    return *std::min_element(v.begin(), v.end());
}
double Max(const std::vector<double>& v)
{
    return *std::max_element(v.begin(), v.end());
}

// Wall-clock milliseconds, five repetitions with their spread.
void Repeated(benchmark::internal::Benchmark* b)
{
    b->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5);
    b->ComputeStatistics("min", Min)->ComputeStatistics("max", Max);
}
} // namespace

BENCHMARK(BM_PluginBlockSave)->Apply(Repeated);
BENCHMARK(BM_PluginBlockLoad)->Apply(Repeated);
BENCHMARK(BM_MeshSave)->Arg(0)->Arg(1)->Apply(Repeated);
BENCHMARK(BM_MeshLoad)->Arg(0)->Arg(1)->Apply(Repeated);
