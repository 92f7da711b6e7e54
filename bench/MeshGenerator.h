// Closed test meshes for the benchmarks: a torus of about N facets, written as binary and ASCII
// STL files in the temporary directory (made once, reused while they exist with the right size).
#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace KelBench
{
struct GeneratedMesh
{
    std::vector<std::array<float, 3>> vertices;
    std::vector<std::array<uint32_t, 3>> triangles;
};

// A torus (major radius 60 mm, minor 20 mm) with u x v quads split into 2 u v triangles: a
// closed two-manifold in which every vertex is shared by six triangles.
inline GeneratedMesh MakeTorus(uint64_t facetCount)
{
    const double target = static_cast<double>(std::max<uint64_t>(facetCount, 32));
    const uint32_t v = static_cast<uint32_t>(std::max(4.0, std::round(std::sqrt(target / 8.0))));
    const uint32_t u = static_cast<uint32_t>(std::max(4.0, std::round(target / (2.0 * v))));
    const double pi = 3.14159265358979323846;
    GeneratedMesh mesh;
    mesh.vertices.reserve(static_cast<size_t>(u) * v);
    for (uint32_t i = 0; i < u; ++i)
    {
        const double a = 2.0 * pi * i / u;
        for (uint32_t j = 0; j < v; ++j)
        {
            const double b = 2.0 * pi * j / v;
            const double ring = 60.0 + 20.0 * std::cos(b);
            mesh.vertices.push_back({static_cast<float>(ring * std::cos(a)),
                                     static_cast<float>(ring * std::sin(a)),
                                     static_cast<float>(20.0 * std::sin(b))});
        }
    }
    mesh.triangles.reserve(2 * static_cast<size_t>(u) * v);
    for (uint32_t i = 0; i < u; ++i)
    {
        const uint32_t i1 = (i + 1) % u;
        for (uint32_t j = 0; j < v; ++j)
        {
            const uint32_t j1 = (j + 1) % v;
            const uint32_t p00 = i * v + j, p10 = i1 * v + j, p01 = i * v + j1, p11 = i1 * v + j1;
            mesh.triangles.push_back({p00, p10, p11});
            mesh.triangles.push_back({p00, p11, p01});
        }
    }
    return mesh;
}

inline std::array<float, 3> FacetNormal(const GeneratedMesh& mesh, const std::array<uint32_t, 3>& t)
{
    const auto& a = mesh.vertices[t[0]];
    const auto& b = mesh.vertices[t[1]];
    const auto& c = mesh.vertices[t[2]];
    const double ux = b[0] - a[0], uy = b[1] - a[1], uz = b[2] - a[2];
    const double vx = c[0] - a[0], vy = c[1] - a[1], vz = c[2] - a[2];
    double nx = uy * vz - uz * vy, ny = uz * vx - ux * vz, nz = ux * vy - uy * vx;
    const double len = std::sqrt(nx * nx + ny * ny + nz * nz);
    if (len > 0.0)
    {
        nx /= len;
        ny /= len;
        nz /= len;
    }
    return {static_cast<float>(nx), static_cast<float>(ny), static_cast<float>(nz)};
}

class OutputFile
{
public:
    explicit OutputFile(const std::string& path) : file_(std::fopen(path.c_str(), "wb"))
    {
        if (!file_)
            throw std::runtime_error("cannot create " + path);
        buffer_.reserve(1 << 20);
    }
    ~OutputFile()
    {
        if (file_)
            std::fclose(file_);
    }
    void Put(const void* data, size_t size)
    {
        const char* p = static_cast<const char*>(data);
        buffer_.insert(buffer_.end(), p, p + size);
        if (buffer_.size() >= (1u << 20))
            Drain();
    }
    void Put(const char* text) { Put(text, std::strlen(text)); }
    void PutFloat(float value)
    {
        char text[32];
        const auto r = std::to_chars(text, text + sizeof(text), value, std::chars_format::scientific, 6);
        Put(text, static_cast<size_t>(r.ptr - text));
    }
    void Finish()
    {
        Drain();
        if (std::fclose(file_) != 0)
            throw std::runtime_error("cannot write a benchmark file");
        file_ = nullptr;
    }

private:
    void Drain()
    {
        if (!buffer_.empty() && std::fwrite(buffer_.data(), 1, buffer_.size(), file_) != buffer_.size())
            throw std::runtime_error("cannot write a benchmark file");
        buffer_.clear();
    }
    std::FILE* file_;
    std::vector<char> buffer_;
};

inline void WriteBinaryStl(const GeneratedMesh& mesh, const std::string& path)
{
    OutputFile out(path);
    char header[80];
    std::memset(header, ' ', sizeof(header));
    std::memcpy(header, "KelBench torus", 14);
    out.Put(header, sizeof(header));
    const uint32_t count = static_cast<uint32_t>(mesh.triangles.size());
    out.Put(&count, 4);
    for (const auto& t : mesh.triangles)
    {
        unsigned char facet[50];
        const auto n = FacetNormal(mesh, t);
        std::memcpy(facet, n.data(), 12);
        for (int k = 0; k < 3; ++k)
            std::memcpy(facet + 12 + 12 * k, mesh.vertices[t[k]].data(), 12);
        facet[48] = facet[49] = 0;
        out.Put(facet, sizeof(facet));
    }
    out.Finish();
}

inline void WriteAsciiStl(const GeneratedMesh& mesh, const std::string& path)
{
    OutputFile out(path);
    out.Put("solid torus\n");
    for (const auto& t : mesh.triangles)
    {
        const auto n = FacetNormal(mesh, t);
        out.Put("  facet normal ");
        for (int i = 0; i < 3; ++i)
        {
            out.PutFloat(n[i]);
            out.Put(i < 2 ? " " : "\n");
        }
        out.Put("    outer loop\n");
        for (int k = 0; k < 3; ++k)
        {
            out.Put("      vertex ");
            for (int i = 0; i < 3; ++i)
            {
                out.PutFloat(mesh.vertices[t[k]][i]);
                out.Put(i < 2 ? " " : "\n");
            }
        }
        out.Put("    endloop\n  endfacet\n");
    }
    out.Put("endsolid torus\n");
    out.Finish();
}

struct TorusFiles
{
    std::string binary;
    std::string ascii;
    uint64_t facets = 0;
};

// Paths of the binary and ASCII torus files of about facetCount facets, written when missing.
inline TorusFiles EnsureTorusFiles(uint64_t facetCount, bool withAscii = true)
{
    namespace fs = std::filesystem;
    const GeneratedMesh mesh = MakeTorus(facetCount);
    TorusFiles files;
    files.facets = mesh.triangles.size();
    const fs::path dir = fs::temp_directory_path();
    const std::string stem = "kel_bench_torus_" + std::to_string(facetCount);
    files.binary = (dir / (stem + "_binary.stl")).string();
    files.ascii = (dir / (stem + "_ascii.stl")).string();
    // Each file is written under a temporary name and renamed, so an interrupted run leaves no
    // partial file behind that a later run would take for a finished one.
    std::error_code ec;
    if (!fs::exists(files.binary, ec))
    {
        WriteBinaryStl(mesh, files.binary + ".part");
        fs::rename(files.binary + ".part", files.binary);
    }
    if (withAscii && !fs::exists(files.ascii, ec))
    {
        WriteAsciiStl(mesh, files.ascii + ".part");
        fs::rename(files.ascii + ".part", files.ascii);
    }
    return files;
}
} // namespace KelBench
