// Helpers shared by the MFile tests: scratch directories and whole-file reads and writes.
#pragma once

#include "support/WidePath.h"

#include <KelSDK/FileIO/MFile.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace KelTest
{
using Bytes = std::vector<uint8_t>;

// A fresh directory under the system temporary directory (named after the test, with a random part
// for concurrent runs), removed with everything in it.
class ScratchDir
{
public:
    ScratchDir()
    {
        const testing::TestInfo* info = testing::UnitTest::GetInstance()->current_test_info();
        std::string name = std::string("kel_fileio_") + info->test_suite_name() + "_" + info->name() + "_" +
                           std::to_string(std::random_device()());
        std::replace(name.begin(), name.end(), '/', '_');
        path_ = std::filesystem::temp_directory_path() / name;
        std::filesystem::create_directories(path_);
    }
    ~ScratchDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    const std::filesystem::path& Path() const { return path_; }
    // The wide name of a file inside the directory.
    std::wstring Wide(const std::string& file) const { return KelTestSupport::WidePath(path_ / file); }
    // The names of everything in the directory.
    std::vector<std::string> List() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path_))
            names.push_back(entry.path().filename().string());
        return names;
    }

private:
    std::filesystem::path path_;
};

inline Bytes ReadWholeFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteWholeFile(const std::filesystem::path& path, const Bytes& bytes)
{
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}
} // namespace KelTest
