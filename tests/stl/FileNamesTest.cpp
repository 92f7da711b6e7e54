// File names beyond ASCII through the entry points that take a file name. A name is a wide string;
// the file on disk must carry the same name in the system's encoding (UTF-8 here), so that other
// programs find it, and reading it back by the same wide name must give the same mesh.
#include "StlBuildTestSupport.h"
#include "support/WidePath.h"

#include <KelSDK/Triangles/IO/MStlFileWriter.h>

#include <tuple>

using namespace StlBuildTest;

namespace
{
// The names of everything in a directory, as the operating system holds them.
std::vector<std::string> Listing(const std::filesystem::path& dir)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        names.push_back(entry.path().filename().string());
    return names;
}

// The wide name and its bytes on disk: Latin-1 letters, a CJK word, a character beyond 16 bits (a
// surrogate pair in UTF-16), blanks and punctuation.
const std::tuple<const wchar_t*, const char*> kNames[] = {
    {L"Zahnrad_\u00fc\u00df.stl", "Zahnrad_\xC3\xBC\xC3\x9F.stl"},
    {L"\u6b6f\u8eca.stl", "\xE6\xAD\xAF\xE8\xBB\x8A.stl"},
    {L"\U0001F600.stl", "\xF0\x9F\x98\x80.stl"},
    {L"caf\u00e9 \u2014 copy (2).stl", "caf\xC3\xA9 \xE2\x80\x94 copy (2).stl"},
};

TEST(FileNames, StlWriteAndReadTakeNamesBeyondAscii)
{
    MStlBase mesh;
    BuildHybrid(mesh, eStlStandard, {{0, 0, 0}, {10, 0, 0}, {0, 10, 0}, {0, 0, 10}}, {{0, 1, 2}, {0, 3, 1}},
                {});
    for (const auto& [name, bytes] : kNames)
    {
        SCOPED_TRACE(bytes);
        TempDir dir;
        const std::wstring path = KelTestSupport::WidePath(dir.path) + L"/" + name;
        for (const bool binary : {true, false})
        {
            SCOPED_TRACE(binary ? "binary" : "ASCII");
            ASSERT_TRUE(MStlBaseFileUtilities::WriteStl(
                &mesh, path, MStlWriteOptions(1.0, binary, false, false), nullptr));
            EXPECT_EQ(Listing(dir.path), std::vector<std::string>{bytes});
            MStlBase back;
            ASSERT_TRUE(MStlBaseFileUtilities::ReadStl(&back, path, MStlReadOptions(), nullptr));
            EXPECT_EQ(back.NumberOfTriangles(), 2u);
        }
    }
}
} // namespace
