// Exact files of every storage kind, and what reading each of them back gives.
#include "StlBuildTestSupport.h"

using namespace StlBuildTest;

namespace
{
std::string AsciiFacet(const std::string& normal, const std::string& a, const std::string& b,
                       const std::string& c)
{
    return "facet normal " + normal + "\nouter loop\nvertex " + a + "\nvertex " + b + "\nvertex " + c +
           "\nendloop\nendfacet\n";
}

// Corners and colour of each triangle, read through the storage-independent interface.
std::vector<std::pair<std::array<int, 9>, MStlColor>> View(const MStlBase& mesh)
{
    const MStlHybrid& h = mesh.GetStlHybrid();
    std::vector<std::pair<std::array<int, 9>, MStlColor>> list(h.GetNumTriangles());
    EXPECT_TRUE(h.OpenRead());
    const bool colours = h.StartGettingTriangleColors();
    for (size_t t = 0; t < list.size(); ++t)
    {
        unsigned v[3];
        int* c = list[t].first.data();
        EXPECT_TRUE(h.GetTriangle(t, v[0], v[1], v[2]) && h.GetVertex(v[0], c[0], c[1], c[2]) &&
                    h.GetVertex(v[1], c[3], c[4], c[5]) && h.GetVertex(v[2], c[6], c[7], c[8]));
        list[t].second = colours ? h.GetColor(t) : MStlColor();
    }
    h.Close();
    return list;
}

// Two right triangles of 20 mm legs, the first coloured 0x123456 (10, 6, 2 in five bits), and a flat one.
TEST(StlRoundTrip, GoldenFilesOfEveryStorageKindAndWhatReadingThemGives)
{
    // The facets in float32 (0, 1, 10, 20); the header: content, a zero byte, spaces to byte 80, the count.
    const std::string o = "\0\0\0\0"s, n = "\0\0\x80\x3F"s, t = "\0\0\x20\x41"s, l = "\0\0\xA0\x41"s;
    const std::string first = o + o + n + o + o + o + l + o + o + o + l + o,
                      second = o + n + o + o + o + o + o + o + l + l + o + o,
                      third = o + o + o + l + o + o + o + l + o + t + t + o;
    auto header = [](const std::string& content)
    { return content + '\0' + std::string(79 - content.size(), ' ') + "\x03\0\0\0"s; };
    const std::string coloured =
        header(
            "COLOR=\xC8\x64\x32\xFF,MATERIAL=\x04\x03\x02\x01\x08\x07\x06\x05\x0C\x0B\x0A\x09\0\0\0\x3F;SOLID"s) +
        first + "\xCA\x08"s + second;
    const std::string zeros = "0.00000000 0.00000000 0.00000000", x = "20.00000000 0.00000000 0.00000000",
                      y = "0.00000000 20.00000000 0.00000000";
    const std::string text1 = AsciiFacet("0.000000 0.000000 1.000000", zeros, x, y),
                      text2 = AsciiFacet("0.000000 1.000000 0.000000", zeros,
                                         "0.00000000 0.00000000 20.00000000", x) +
                              AsciiFacet("0.000000 0.000000 0.000000", x, y,
                                         "10.00000000 10.00000000 0.00000000");
    MStlMaterial material;
    material.SetRGB(0xFF3264C8u); // R 200, G 100, B 50, A 255
    material.SetDiffuse(0x01020304u);
    material.SetSpecular(0x05060708u);
    material.SetAmbient(0x090A0B0Cu);
    material.SetShininess(0.5f);
    TempDir dir;
    const std::wstring path = dir.File("golden.stl").wstring(), mm = dir.File("mm.stl").wstring();
    for (MStlHybridState kind : {eStlStandard, eStlCompact, eStlOnDisk})
    {
        const bool standard = kind == eStlStandard;
        const std::string none = "\0\x80"s, green = standard ? "\xE0\x03"s : none;
        // Stores write their own colours and one solid named after the mesh.
        const struct
        {
            MStlWriteOptions options;
            bool support;
            uint32_t meshRgb;
            std::string expected;
            const wchar_t* surfaces;
        } rows[] = {
            {MStlWriteOptions(1e-4, true, false, false), true, 0x3264C8u,
             header(";ISSUP;FACES") + first + "\0\0"s + second + "\0\0"s + third + "\0\0"s, L"3 "},
            {MStlWriteOptions(1e-4, true, true, false), false, 0x3264C8u, coloured + none + third + none,
             L"3 "},
            {MStlWriteOptions(1e-4, true, true, false), false, 0x00FF00u, coloured + green + third + green,
             L"3 "},
            {MStlWriteOptions(1e-4, false, true, false), false, 0x3264C8u,
             "solid part\n" + text1 + text2 + "endsolid part\n", L"part3 "},
            {MStlWriteOptions(1e-4, false, false, true), false, 0x3264C8u,
             standard
                 ? "solid top face\n" + text1 + "endsolid top face\nsolid side\n" + text2 + "endsolid side\n"
                 : "solid part\n" + text1 + text2 + "endsolid part\n",
             L"top1 side2 "},
        };
        for (const auto& row : rows)
        {
            SCOPED_TRACE(::testing::Message()
                         << "kind " << kind << ", expected " << row.expected.substr(0, 12));
            MStlBase mesh, copy;
            BuildHybrid(mesh, kind,
                        {{0, 0, 0}, {200000, 0, 0}, {0, 200000, 0}, {0, 0, 200000}, {100000, 100000, 0}},
                        {{0, 1, 2}, {0, 3, 1}, {1, 2, 4}}, {0x123456u, 0, 0}, 1);
            mesh.SetName(L"part");
            mesh.GetSurfaceList().GetSurface(0)->SetName(L"top face");
            mesh.GetSurfaceList().GetSurface(1)->SetName(L"side");
            mesh.SetMaterial(material);
            mesh.SetRGB(row.meshRgb);
            mesh.GetProperties().SetIsSupport(row.support);
            mesh.GetProperties().SetIsSupposedSolid(!row.support);
            ASSERT_TRUE(MStlBaseFileUtilities::WriteStl(&mesh, path, row.options, nullptr));
            EXPECT_EQ(ReadBytes(path), row.expected);
            const bool colours = row.options.binary && row.options.withColors;
            if (colours) // WriteStlMM: binary with colours, in millimetres
            {
                ASSERT_TRUE(MStlBaseFileUtilities::WriteStlMM(&mesh, mm));
                EXPECT_EQ(ReadBytes(mm), row.expected);
            }
            ASSERT_TRUE(copy.GetStlHybrid().SetState(kind) && MStlBaseFileUtilities::ReadStlMM(&copy, path));
            // Colours travel in coloured binary files only, five bits per channel, with the mesh colour owed.
            const bool owed = colours && standard && row.meshRgb != 0x3264C8u;
            auto expected = View(mesh);
            for (auto& f : expected)
                f.second = !colours ? MStlColor()
                                    : MStlColor::ConvertFrom16BitValue(MStlColor::ConvertTo16BitValue(
                                          owed && !f.second.IsDefined() ? MStlColor(row.meshRgb) : f.second));
            EXPECT_EQ(View(copy), expected);
            EXPECT_EQ(copy.GetStlHybrid().GetNumVertices(), 5u);
            EXPECT_EQ(copy.GetMaterial().GetColorIsReadFromFile(), colours);
            EXPECT_EQ(copy.GetMaterial().GetRGB(), colours ? material.GetRGB() : MStlMaterial().GetRGB());
            // The flags travel in the binary header; only the first word after "solid" is a name.
            EXPECT_EQ(copy.GetProperties().GetIsSupport(), row.options.binary && row.support);
            EXPECT_EQ(copy.GetProperties().GetIsSupposedSolid(), !row.options.binary || !row.support);
            EXPECT_EQ(Surfaces(copy), standard ? row.surfaces : L";");
        }
    }
}
} // namespace
