// A program outside the source tree that uses the installed package: it builds a tetrahedron,
// writes it as binary STL and reads it back.
#include <KelSDK/Triangles/IO.h>

#include <cstdio>
#include <filesystem>
#include <string>

using namespace KelSDK::Triangles;

int main()
{
    Data::MStlBase mesh;
    std::vector<std::array<int, 3>> points = {{0, 0, 0}, {10000, 0, 0}, {0, 10000, 0}, {0, 0, 10000}};
    std::vector<std::vector<std::array<size_t, 3>>> triangles = {{{0, 2, 1}, {0, 1, 3}, {0, 3, 2}, {1, 2, 3}}};
    mesh.Create(points, triangles, nullptr, nullptr, nullptr);

    const std::filesystem::path file = std::filesystem::temp_directory_path() / "kel_consumer_tetra.stl";
    if (!IO::MStlBaseFileUtilities::WriteStlMM(&mesh, file.wstring()))
        return 1;
    Data::MStlBase back;
    const bool read = IO::MStlBaseFileUtilities::ReadStlMM(&back, file.wstring());
    std::filesystem::remove(file);
    std::printf("KelSDK.Triangles.IO %s: %zu triangles written and read back\n", IO::GetLibraryVersion(),
                static_cast<size_t>(back.NumberOfTriangles()));
    return (read && back.NumberOfTriangles() == 4) ? 0 : 1;
}
