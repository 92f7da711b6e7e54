// Small fixtures shared by the mesh building, read driver, writer and round-trip tests.
#pragma once

#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlBaseFileUtilities.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace StlBuildTest
{
using namespace KelSDK::Triangles::Data;
using namespace KelSDK::Triangles::IO;
using namespace std::string_literals;
using Facets = std::vector<std::vector<MStlFileTriangle>>;
using Corner = std::array<double, 3>;

inline MStlFileTriangle Facet(Corner a, Corner b, Corner c, uint16_t attribute = 0, Corner normal = {})
{
    MStlFileTriangle f;
    f.SetVertex(0, {a[0], a[1], a[2]});
    f.SetVertex(1, {b[0], b[1], b[2]});
    f.SetVertex(2, {c[0], c[1], c[2]});
    f.SetNormal({normal[0], normal[1], normal[2]});
    f.SetAttribute(attribute);
    return f;
}

// Grid coordinates of a triangle's corners in corner order.
inline std::array<std::array<int, 3>, 3> Corners(const MStlTriangle& t)
{
    const MStlPoint *a = t.GetPoint(0), *b = t.GetPoint(1), *c = t.GetPoint(2);
    return {{{a->GetX(), a->GetY(), a->GetZ()},
             {b->GetX(), b->GetY(), b->GetZ()},
             {c->GetX(), c->GetY(), c->GetZ()}}};
}

// A mesh of any storage kind; faces from index split on go to a second surface; colour 0 is none.
inline void BuildHybrid(MStlBase& mesh, MStlHybridState kind, const std::vector<std::array<int, 3>>& points,
                        const std::vector<std::array<unsigned, 3>>& faces,
                        const std::vector<uint32_t>& colours, size_t split = SIZE_MAX)
{
    MStlHybrid& hybrid = mesh.GetStlHybrid();
    ASSERT_TRUE(hybrid.SetState(kind));
    ASSERT_TRUE(hybrid.StartAddingVertices());
    for (unsigned i = 0; i < points.size(); ++i) // Standard appends; stores merge equal positions
        EXPECT_EQ(hybrid.AddVertex(points[i][0], points[i][1], points[i][2]), i);
    for (size_t f = 0; f < faces.size(); ++f)
    {
        if (f == 0 || f == split)
        {
            EXPECT_TRUE(hybrid.StartAddingTriangles(f == 0 ? nullptr : mesh.AddSurface(nullptr)));
        }
        hybrid.AddTriangle(faces[f][0], faces[f][1], faces[f][2]);
    }
    ASSERT_TRUE(hybrid.StartAddingTriangleColors());
    for (uint32_t rgb : colours)
        hybrid.AddColor(rgb != 0 ? MStlColor(rgb) : MStlColor());
    hybrid.Close();
}

// The surface names of a mesh, each followed by its triangle count (Standard kind) or by ";".
inline std::wstring Surfaces(const MStlBase& mesh)
{
    std::wstring names;
    const MStlSurfaceList& list = mesh.GetSurfaceList();
    const bool standard = mesh.GetStlHybrid().GetState() == eStlStandard;
    for (size_t s = 0; s < list.GetNumSurfaces(false); ++s)
        names += list.GetSurface(s)->GetName() +
                 (standard ? std::to_wstring(list.GetSurface(s)->GetNumberOfTriangles()) + L" " : L";");
    return names;
}

// A directory of its own for one run of one test, removed with everything in it afterwards.
struct TempDir
{
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::filesystem::path path =
        std::filesystem::temp_directory_path() /
        ("kel_stl_"s + test->test_suite_name() + "_" + test->name() + "_" +
         std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));
    std::error_code ignored;
    TempDir() { std::filesystem::create_directories(path); }
    ~TempDir() { std::filesystem::remove_all(path, ignored); }
    std::filesystem::path File(const std::string& name) const { return path / name; }
};

inline std::string ReadBytes(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
} // namespace StlBuildTest
