// A binary export that fails half-way, in the blocks a background thread writes: the call reports
// it, returns, and the file that was there before is left as it was.

#include <KelSDK/Common/Progress.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlBaseFileUtilities.h>

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
        // A 200 x 100 grid of squares, two triangles each: 40000 facets, 2 MB of binary STL.
        std::vector<std::array<int, 3>> points;
        for (int y = 0; y <= 100; ++y)
            for (int x = 0; x <= 200; ++x)
                points.push_back({x * 1000, y * 1000, (x * y) % 7 * 100});
        std::vector<std::vector<std::array<size_t, 3>>> triangles(1);
        for (size_t y = 0; y < 100; ++y)
            for (size_t x = 0; x < 200; ++x)
            {
                const size_t a = y * 201 + x;
                triangles[0].push_back({a, a + 1, a + 202});
                triangles[0].push_back({a, a + 202, a + 201});
            }
        std::vector<MStlSurface*> surfaces = {mesh_.GetMainSurface()};
        ASSERT_TRUE(mesh_.Create(points, triangles, &surfaces, nullptr, nullptr));
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
    // The same call without the delegate still writes the whole file.
    ASSERT_TRUE(MStlBaseFileUtilities::WriteStl(&mesh_, target_.wstring(),
                                                MStlWriteOptions(1e-3, true, false, false), nullptr));
    EXPECT_EQ(std::filesystem::file_size(target_), 84u + 50u * 40000u);
}

#if !defined(_WIN32)
TEST_F(FailureTest, ADiskFullHalfWayLeavesTheOldFile)
{
    // A file size limit makes the operating system refuse the write (EFBIG), as a full disk would;
    // at 700 kB the first blocks are written and a later one fails.
    struct rlimit previous;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &previous), 0);
    if (previous.rlim_max != RLIM_INFINITY && previous.rlim_max < 700000)
        GTEST_SKIP() << "file size limit already below the test's";
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit limited = previous;
    limited.rlim_cur = 700000;
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
