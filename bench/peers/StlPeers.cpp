// Loads the same binary and ASCII STL files into an indexed mesh with shared vertices with this
// library and with each installed peer, and prints time, peak memory and the ratios against this
// library (wall-clock time, and the processor time of all threads, which a loaded machine
// distorts less). Every load runs in a child process of its own, so that the peak resident memory of one
// load (ru_maxrss of the child minus its size before loading) is not hidden by an earlier one.
//
//   bench_stl_peers [FACETS] [RUNS] [binary|ascii] [LIBRARY...]
//     default: 2000000 facets, best of 3 runs, both files, every library ("native" among the
//     libraries: this library's own format, loaded beside the binary imports)
//
// The last lines give the figures of the import targets: binary time against admesh and peak
// bytes per facet, admesh's ASCII time against ours and peak, and native load against binary STL.
//
// Peers: admesh (stl_open, stl_check_facets_exact, stl_generate_shared_vertices), OpenMesh
// (IO::read_mesh into a TriMesh), assimp (ReadFile with aiProcess_RemoveComponent of the normals
// and aiProcess_JoinIdenticalVertices, without which it does not merge by position).

#include "MeshGenerator.h"
#include "NativeFiles.h"

#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlBaseFileUtilities.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#ifdef KEL_PEER_ADMESH
#include <admesh/stl.h>
#endif
#ifdef KEL_PEER_OPENMESH
#include <OpenMesh/Core/IO/MeshIO.hh>
#include <OpenMesh/Core/Mesh/TriMesh_ArrayKernelT.hh>
#endif
#ifdef KEL_PEER_ASSIMP
#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#endif

namespace
{
// What one load produced; the counts show that every loader built the same indexed mesh.
struct Loaded
{
    bool ok = false;
    uint64_t vertices = 0;
    uint64_t triangles = 0;
};

struct Measurement
{
    bool ok = false;
    double seconds = 0.0;
    double cpuSeconds = 0.0; // user and system time of all threads of the child
    double peakBytes = 0.0;
    Loaded loaded;
};

using Loader = std::function<Loaded(const std::string& path)>;

// The native file that holds the same mesh as the binary STL file being compared (made once).
std::string nativeFile;

// The native file of a binary STL file, saved from its import when missing; empty on failure.
std::string EnsureNativeFile(const std::string& stl)
{
    std::string path = stl.substr(0, stl.size() - 4) + ".kstl";
    std::error_code ec;
    if (std::filesystem::exists(path, ec))
        return path;
    KelSDK::Triangles::Data::MStlBase mesh;
    if (!KelSDK::Triangles::IO::MStlBaseFileUtilities::ReadStlMM(&mesh, std::filesystem::path(stl).wstring()) ||
        !KelBench::SaveNative(mesh, std::filesystem::path(path + ".part").wstring()))
        return std::string();
    std::filesystem::rename(path + ".part", path);
    return path;
}

// This library's own format, the same mesh as the STL file (whose path is not used).
Loaded LoadKelNative(const std::string&)
{
    KelSDK::Triangles::Data::MStlBase mesh;
    Loaded r;
    r.ok = KelBench::LoadNative(mesh, std::filesystem::path(nativeFile).wstring());
    r.vertices = mesh.NumberOfPoints();
    r.triangles = mesh.NumberOfTriangles();
    return r;
}

Loaded LoadKel(const std::string& path)
{
    KelSDK::Triangles::Data::MStlBase mesh;
    Loaded r;
    r.ok =
        KelSDK::Triangles::IO::MStlBaseFileUtilities::ReadStlMM(&mesh, std::filesystem::path(path).wstring());
    r.vertices = mesh.NumberOfPoints();
    r.triangles = mesh.NumberOfTriangles();
    return r;
}

#ifdef KEL_PEER_ADMESH
Loaded LoadAdmesh(const std::string& path)
{
    stl_file stl;
    std::memset(&stl, 0, sizeof(stl));
    std::vector<char> name(path.begin(), path.end());
    name.push_back('\0');
    stl_open(&stl, name.data());
    Loaded r;
    if (stl_get_error(&stl) == 0)
    {
        stl_check_facets_exact(&stl);
        stl_generate_shared_vertices(&stl);
        r.ok = stl_get_error(&stl) == 0;
        r.vertices = static_cast<uint64_t>(stl.stats.shared_vertices);
        r.triangles = static_cast<uint64_t>(stl.stats.number_of_facets);
    }
    stl_close(&stl);
    return r;
}
#endif

#ifdef KEL_PEER_OPENMESH
Loaded LoadOpenMesh(const std::string& path)
{
    OpenMesh::TriMesh_ArrayKernelT<> mesh;
    Loaded r;
    r.ok = OpenMesh::IO::read_mesh(mesh, path);
    r.vertices = mesh.n_vertices();
    r.triangles = mesh.n_faces();
    return r;
}
#endif

#ifdef KEL_PEER_ASSIMP
Loaded LoadAssimp(const std::string& path)
{
    Assimp::Importer importer;
    importer.SetPropertyInteger(AI_CONFIG_PP_RVC_FLAGS, aiComponent_NORMALS);
    const aiScene* scene =
        importer.ReadFile(path, aiProcess_RemoveComponent | aiProcess_JoinIdenticalVertices);
    Loaded r;
    r.ok = scene != nullptr;
    if (scene != nullptr)
        for (unsigned m = 0; m < scene->mNumMeshes; ++m)
        {
            r.vertices += scene->mMeshes[m]->mNumVertices;
            r.triangles += scene->mMeshes[m]->mNumFaces;
        }
    return r;
}
#endif

double CpuSeconds(const rusage& usage)
{
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

double MaxRssBytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) * 1024.0; // kilobytes on Linux
}

// Runs one load in a child process and reads its measurement back through a pipe.
Measurement MeasureInChild(const Loader& load, const std::string& path)
{
    Measurement m;
    int fds[2];
    if (pipe(fds) != 0)
        return m;
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0)
    {
        close(fds[0]);
        Measurement result;
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        const double before = MaxRssBytes();
        const double cpuBefore = CpuSeconds(usage);
        const auto start = std::chrono::steady_clock::now();
        result.loaded = load(path);
        result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        getrusage(RUSAGE_SELF, &usage);
        result.cpuSeconds = CpuSeconds(usage) - cpuBefore;
        result.peakBytes = MaxRssBytes() - before;
        result.ok = result.loaded.ok;
        const ssize_t written = write(fds[1], &result, sizeof(result));
        _exit(written == static_cast<ssize_t>(sizeof(result)) ? 0 : 1);
    }
    close(fds[1]);
    if (child > 0)
    {
        const ssize_t got = read(fds[0], &m, sizeof(m));
        int status = 0;
        waitpid(child, &status, 0);
        if (got != static_cast<ssize_t>(sizeof(m)) || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
            m = Measurement();
    }
    close(fds[0]);
    return m;
}

// Best measurement by "input/loader".
using Summary = std::map<std::string, Measurement>;

// The figures that the import targets are stated in, from this run's measurements.
void PrintTargets(const Summary& summary, uint64_t facets, int runs)
{
    const auto find = [&summary](const char* key) -> const Measurement*
    {
        const auto it = summary.find(key);
        return it != summary.end() && it->second.ok ? &it->second : nullptr;
    };
    const Measurement* binary = find("binary/KelSDK");
    const Measurement* ascii = find("ASCII/KelSDK");
    const Measurement* native = find("binary/native");
    const Measurement* binaryPeer = find("binary/admesh");
    const Measurement* asciiPeer = find("ASCII/admesh");
    std::printf("targets at %llu facets (best of %d runs, fresh processes, loaders in turns):\n",
                static_cast<unsigned long long>(facets), runs);
    const double n = static_cast<double>(facets);
    if (binary != nullptr)
    {
        if (binaryPeer != nullptr)
            std::printf("  binary STL, time against admesh:      %6.2f   (target at most 0.80)\n",
                        binary->seconds / binaryPeer->seconds);
        std::printf("  binary STL, peak bytes per facet:    %7.1f   (target at most 130)\n", binary->peakBytes / n);
        std::printf("  binary STL, time per facet:          %7.1f ns\n", 1e9 * binary->seconds / n);
    }
    if (ascii != nullptr)
    {
        if (asciiPeer != nullptr)
            std::printf("  ASCII STL, admesh's time against ours: %5.2f   (target at least 4.0)\n",
                        asciiPeer->seconds / ascii->seconds);
        std::printf("  ASCII STL, peak bytes per facet:     %7.1f   (target at most 160)\n", ascii->peakBytes / n);
    }
    if (native != nullptr && binary != nullptr)
        std::printf("  native load against binary STL:       %6.3f   (target at most 0.25)\n",
                    native->seconds / binary->seconds);
}
} // namespace

int main(int argc, char** argv)
{
    const uint64_t facets = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 2000000;
    const int runs = argc > 2 ? std::max(1, std::atoi(argv[2])) : 3;
    const std::string only = argc > 3 ? argv[3] : "";
    std::vector<std::string> chosen(argv + std::min(argc, 4), argv + argc);
    std::printf("generating (or reusing) a torus of about %llu facets...\n",
                static_cast<unsigned long long>(facets));
    const KelBench::TorusFiles files =
        KelBench::EnsureTorusFiles(facets, argc <= 3 || std::string(argv[3]) != "binary");

    std::vector<std::pair<const char*, Loader>> loaders = {{"KelSDK", &LoadKel}};
#ifdef KEL_PEER_ADMESH
    loaders.push_back({"admesh", &LoadAdmesh});
#endif
#ifdef KEL_PEER_OPENMESH
    loaders.push_back({"OpenMesh", &LoadOpenMesh});
#endif
#ifdef KEL_PEER_ASSIMP
    loaders.push_back({"assimp", &LoadAssimp});
#endif

    if (!chosen.empty())
    {
        // KelSDK always runs first: it is the reference of the ratios.
        std::vector<std::pair<const char*, Loader>> kept = {loaders.front()};
        for (size_t i = 1; i < loaders.size(); ++i)
            if (std::find(chosen.begin(), chosen.end(), loaders[i].first) != chosen.end())
                kept.push_back(loaders[i]);
        loaders = kept;
    }
    // The native load of the same mesh runs beside the binary imports, for the ratio of the two.
    if (only != "ascii" && (chosen.empty() || std::find(chosen.begin(), chosen.end(), "native") != chosen.end()))
    {
        nativeFile = EnsureNativeFile(files.binary);
        if (nativeFile.empty())
            std::printf("the native file could not be written; native load left out\n");
    }
    std::vector<std::pair<const char*, std::string>> inputs;
    if (only != "ascii")
        inputs.push_back({"binary", files.binary});
    if (only != "binary")
        inputs.push_back({"ASCII", files.ascii});
    Summary summary;
    std::printf("best of %d runs per load, loaders taking turns, each load in a fresh process; machine "
                "shared with other work\n\n",
                runs);
    for (const auto& input : inputs)
    {
        const double bytes = static_cast<double>(std::filesystem::file_size(input.second));
        std::printf("%s STL, %llu facets, %.1f MB: %s\n", input.first,
                    static_cast<unsigned long long>(files.facets), bytes / 1e6, input.second.c_str());
        std::printf("  %-9s %9s %9s %9s %9s %11s %9s %10s %10s\n", "library", "time s", "x KelSDK", "cpu s",
                    "x KelSDK", "peak MB", "B/facet", "vertices", "triangles");
        std::vector<std::pair<const char*, Loader>> turn = loaders;
        if (std::string(input.first) == "binary" && !nativeFile.empty())
            turn.insert(turn.begin() + 1, {"native", &LoadKelNative});
        // The loaders take turns run by run, so that a change of load on the machine affects all.
        std::vector<Measurement> best(turn.size());
        for (int run = 0; run < runs; ++run)
            for (size_t l = 0; l < turn.size(); ++l)
            {
                const Measurement m = MeasureInChild(turn[l].second, input.second);
                if (m.ok && (!best[l].ok || m.seconds < best[l].seconds))
                    best[l] = m;
            }
        const Measurement& reference = best.front();
        for (size_t l = 0; l < turn.size(); ++l)
        {
            summary[std::string(input.first) + "/" + turn[l].first] = best[l];
            const Measurement& m = best[l];
            if (!m.ok)
            {
                std::printf("  %-9s failed\n", turn[l].first);
                continue;
            }
            std::printf("  %-9s %9.3f %9.2f %9.3f %9.2f %11.1f %9.1f %10llu %10llu\n", turn[l].first,
                        m.seconds, reference.ok ? m.seconds / reference.seconds : 0.0, m.cpuSeconds,
                        reference.ok ? m.cpuSeconds / reference.cpuSeconds : 0.0, m.peakBytes / 1e6,
                        m.peakBytes / static_cast<double>(files.facets),
                        static_cast<unsigned long long>(m.loaded.vertices),
                        static_cast<unsigned long long>(m.loaded.triangles));
        }
        std::printf("\n");
    }
    PrintTargets(summary, files.facets, runs);
    return 0;
}
