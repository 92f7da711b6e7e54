// Binary export of a mesh large enough for parallel encoding and the background writer: the bytes
// match the facet-by-facet encoding, and an export that fails half-way (the disk, or an exception
// from the progress delegate) leaves the file that was there before as it was.

#include <KelSDK/Common/Progress.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlBaseFileUtilities.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#if !defined(_WIN32)
#include <csignal>
#include <sys/resource.h>
#endif

using namespace KelSDK::Triangles::Data;
using namespace KelSDK::Triangles::IO;

namespace
{
const std::string OldContent = "the model saved yesterday";

class FailureTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        dir_ =
            std::filesystem::temp_directory_path() /
            ("kel_stl_fail_" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        std::filesystem::remove_all(dir_);
        std::filesystem::create_directories(dir_);
        std::ofstream(target_ = dir_ / "model.stl", std::ios::binary) << OldContent;
        // A 400 x 150 grid of squares, two triangles each (120000 facets, 6 MB of binary STL), on
        // three surfaces of uneven size, with collapsed triangles that are not written.
        std::vector<std::array<int, 3>> points;
        for (int y = 0; y <= 150; ++y)
            for (int x = 0; x <= 400; ++x)
                points.push_back({x * 1000, y * 1000, (x * y) % 7 * 100});
        std::vector<std::vector<std::array<size_t, 3>>> triangles(3);
        for (size_t y = 0; y < 150; ++y)
            for (size_t x = 0; x < 400; ++x)
            {
                const size_t a = y * 401 + x;
                const size_t surface = a < 35000 ? 0 : a < 35003 ? 1 : 2;
                triangles[surface].push_back({a, a + 1, a + 402});
                triangles[surface].push_back({a, a + 402, a + 401});
            }
        triangles[1].push_back({7, 7, 8});
        triangles[2].insert(triangles[2].begin() + 9000, {9, 10, 10});
        std::vector<MStlSurface*> surfaces = {mesh_.GetMainSurface(), mesh_.AddSurface(nullptr),
                                              mesh_.AddSurface(nullptr)};
        std::vector<MStlTriangle*> created;
        ASSERT_TRUE(mesh_.Create(points, triangles, &surfaces, nullptr, &created));
        for (size_t t = 0; t < created.size(); t += 5)
            created[t]->SetColor(MStlColor(static_cast<uint32_t>(t * 2654435761u)));
        mesh_.SetRGB(0x00FF00u);
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    // The target still holds the old bytes and no temporary file is left beside it.
    void ExpectOldFileOnly()
    {
        std::ifstream in(target_, std::ios::binary);
        const std::string content(std::istreambuf_iterator<char>(in), {});
        EXPECT_TRUE(content == OldContent) << "the target now has " << content.size() << " bytes";
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_), {}), 1);
    }

    std::filesystem::path dir_;
    std::filesystem::path target_;
    MStlBase mesh_;
};

class ThrowingProgress : public KelSDK::Common::IProgressDelegate
{
public:
    void SetProgress(double fraction01) override
    {
        if (fraction01 > 0.5)
            throw std::runtime_error("cancelled");
    }
};

TEST_F(FailureTest, AnExceptionFromTheProgressDelegateLeavesTheOldFile)
{
    EXPECT_THROW(MStlBaseFileUtilities::WriteStl(&mesh_, target_.wstring(),
                                                 MStlWriteOptions(1e-3, true, false, false),
                                                 std::make_shared<ThrowingProgress>()),
                 std::runtime_error);
    ExpectOldFileOnly();
}

// The records a binary file must hold for the mesh: every surface in order, every triangle with
// corners at distinct positions, encoded one by one from GetNormal() and the scaled corners.
std::string ExpectedRecords(const MStlBase& mesh, double scale, bool withColors)
{
    std::string records;
    MStlIteratorFeatureSurfaceConst it(mesh);
    for (it.Begin(); !it.End(); ++it)
        for (const MStlTriangle* triangle : (*it).Triangles())
        {
            if (triangle->IsCollapsed())
                continue;
            MStlFileTriangle facet;
            facet.SetNormal(triangle->GetNormal());
            for (int k = 0; k < 3; ++k)
            {
                const MStlPoint* p = triangle->GetPoint(k);
                facet.SetVertex(k, MStlFileTriangle::Point(p->GetX(), p->GetY(), p->GetZ()) * scale);
            }
            MStlColor color = triangle->GetColor();
            if (!color.IsDefined())
                color.SetRGB(mesh.GetRGB());
            facet.SetAttribute(withColors ? MStlColor::ConvertTo16BitValue(color) : uint16_t(0));
            unsigned char bytes[MStlFileTriangle::BINARY_SIZE];
            facet.EncodeBinary(bytes);
            records.append(reinterpret_cast<const char*>(bytes), sizeof bytes);
        }
    return records;
}

// Large enough for the chunks to be encoded in parallel and written by the background thread:
// the bytes are those of the facet-by-facet encoding.
TEST_F(FailureTest, ParallelEncodingGivesTheFacetByFacetBytes)
{
    for (const bool withColors : {false, true})
    {
        ASSERT_TRUE(MStlBaseFileUtilities::WriteStl(
            &mesh_, target_.wstring(), MStlWriteOptions(1e-3, true, withColors, false), nullptr));
        std::ifstream in(target_, std::ios::binary);
        const std::string bytes(std::istreambuf_iterator<char>(in), {});
        const std::string expected = ExpectedRecords(mesh_, 1e-3, withColors);
        ASSERT_EQ(expected.size(), 50u * 120000u);
        ASSERT_EQ(bytes.size(), 84u + expected.size());
        EXPECT_EQ(bytes.substr(80, 4), std::string("\xC0\xD4\x01\x00", 4));
        size_t differing = 0;
        for (size_t at = 0; at < expected.size(); at += 50)
            differing += bytes.compare(84 + at, 50, expected, at, 50) != 0;
        EXPECT_EQ(differing, 0u) << withColors;
    }
}

#if !defined(_WIN32)
TEST_F(FailureTest, ADiskFullHalfWayLeavesTheOldFile)
{
    // A file size limit makes the operating system refuse the write (EFBIG), as a full disk would;
    // at 3 MB the first slots are written and a later one fails.
    struct rlimit previous;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &previous), 0);
    if (previous.rlim_max != RLIM_INFINITY && previous.rlim_max < 3000000)
        GTEST_SKIP() << "file size limit already below the test's";
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit limited = previous;
    limited.rlim_cur = 3000000;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    const bool written = MStlBaseFileUtilities::WriteStl(&mesh_, target_.wstring(),
                                                         MStlWriteOptions(1e-3, true, false, false), nullptr);
    setrlimit(RLIMIT_FSIZE, &previous);
    std::signal(SIGXFSZ, previousHandler);
    EXPECT_FALSE(written);
    ExpectOldFileOnly();
}
#endif
} // namespace
