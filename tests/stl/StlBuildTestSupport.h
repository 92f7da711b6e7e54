// Small fixtures shared by the mesh building, read driver, writer and round-trip tests.
#pragma once

#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace StlBuildTest
{
using KelSDK::Triangles::IO::MStlFileTriangle;
using Facets = std::vector<std::vector<MStlFileTriangle>>;
using Corner = std::array<double, 3>;

inline MStlFileTriangle Facet(Corner a, Corner b, Corner c, uint16_t attribute = 0)
{
    MStlFileTriangle f;
    f.SetVertex(0, {a[0], a[1], a[2]});
    f.SetVertex(1, {b[0], b[1], b[2]});
    f.SetVertex(2, {c[0], c[1], c[2]});
    f.SetAttribute(attribute);
    return f;
}

// Grid coordinates of a triangle's corners in corner order.
inline std::array<std::array<int, 3>, 3> Corners(const KelSDK::Triangles::Data::MStlTriangle& t)
{
    auto corner = [&t](int k) {
        return std::array<int, 3>{t.GetPoint(k)->GetX(), t.GetPoint(k)->GetY(), t.GetPoint(k)->GetZ()};
    };
    return {corner(0), corner(1), corner(2)};
}

inline std::vector<const KelSDK::Triangles::Data::MStlTriangle*>
TrianglesOf(const KelSDK::Triangles::Data::MStlBase& mesh)
{
    std::vector<const KelSDK::Triangles::Data::MStlTriangle*> list;
    for (const auto& t : mesh.Triangles())
        list.push_back(&t);
    return list;
}

// A directory of its own for one test, removed with everything in it afterwards.
class TempDir
{
public:
    TempDir()
    {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        std::string name = "kel_stlbuild_" + std::string(info->test_suite_name()) + "_" + info->name();
        std::replace(name.begin(), name.end(), '/', '_'); // parameterised tests carry slashes
        path_ = std::filesystem::temp_directory_path() / name;
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    ~TempDir()
    {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    std::filesystem::path File(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

inline std::string ReadBytes(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteBytes(const std::filesystem::path& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}
} // namespace StlBuildTest
