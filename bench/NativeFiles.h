// Native files for the benchmarks: paths in the temporary directory, whole-file save and load.
#pragma once

#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>

#include <benchmark/benchmark.h>

#include <filesystem>
#include <memory>
#include <string>

namespace KelBench
{
inline std::wstring TempFile(const std::string& name)
{
    return KelSDK::Common::StringConversion::Utf8ToNative(
        (std::filesystem::temp_directory_path() / name).string());
}

// Saves the mesh through a 1 MiB buffer; false when anything failed.
inline bool SaveNative(KelSDK::Triangles::Data::MStlBase& mesh, const std::wstring& name)
{
    KelSDK::FileIO::MFile file(1 << 20);
    if (!file.OPEN_WRITE(name))
        return false;
    KelSDK::Triangles::IO::MStlFileIO io;
    io.SetStl(&mesh);
    io.SetFile(file);
    const bool ok = io.Save(nullptr) == KelSDK::Triangles::IO::eStlFileIOSuccess;
    return file.Close() && ok;
}

// Loads the file into the mesh through a 1 MiB buffer; false when anything failed.
inline bool LoadNative(KelSDK::Triangles::Data::MStlBase& mesh, const std::wstring& name)
{
    KelSDK::FileIO::MFile file(1 << 20);
    if (!file.OPEN_READ(name))
        return false;
    KelSDK::Triangles::IO::MStlFileIO io;
    io.SetStl(&mesh);
    io.SetFile(file);
    return io.Load(nullptr) == KelSDK::Triangles::IO::eStlFileIOSuccess;
}

// The timed loop of a load benchmark: each round loads the file into a new mesh, which is freed
// outside the timing. Marks the benchmark failed when a load fails.
inline void LoadRounds(benchmark::State& state, const std::wstring& name)
{
    for (auto _ : state)
    {
        auto loaded = std::make_unique<KelSDK::Triangles::Data::MStlBase>();
        if (!LoadNative(*loaded, name))
        {
            state.SkipWithError("load failed");
            break;
        }
        state.PauseTiming();
        loaded.reset();
        state.ResumeTiming();
    }
}
} // namespace KelBench
