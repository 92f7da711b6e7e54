// MFile throughput: typed arrays written and read through the buffer (the STL facet pattern of
// three floats at a time, and large arrays that bypass it), on a file in the temporary
// directory (page cache) and in memory; and FPRINTF of ASCII STL vertex lines against the C
// library's snprintf.
#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/FileIO/MFile.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

using KelSDK::FileIO::MFile;
using KelSDK::FileIO::MMemoryFile;

namespace
{
constexpr size_t kFileBytes = size_t{256} << 20;
constexpr size_t kRecordBytes = 50; // binary STL facet: 12 floats and a 16-bit word
constexpr size_t kRecords = kFileBytes / kRecordBytes;
constexpr size_t kLargeChunkFloats = size_t{1} << 18; // 1 MiB per WRITE/READ

std::wstring BenchFileName()
{
    static const std::string name =
        (std::filesystem::temp_directory_path() /
         ("kel_mfile_bench_" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()) +
          ".bin"))
            .string();
    static const bool cleanup = []
    {
        std::atexit([] { std::remove(name.c_str()); });
        return true;
    }();
    (void)cleanup;
    return KelSDK::Common::StringConversion::Utf8ToNative(name);
}

const std::vector<float>& Floats()
{
    static const std::vector<float> floats = []
    {
        std::vector<float> v(kFileBytes / sizeof(float));
        for (size_t i = 0; i < v.size(); ++i)
        {
            v[i] = static_cast<float>(i % 100003) * 0.25f;
        }
        return v;
    }();
    return floats;
}

// Writes kRecords STL facet records: four WRITE(float, 3) and one WriteInt16 each. The floats
// come from a 192 KiB window of the source, as a writer's freshly computed facet would come from
// the cache, so that the figure is MFile's and the kernel's, not the source array's memory traffic.
bool WriteRecords(MFile& file)
{
    const float* base = Floats().data();
    const uint16_t attribute = 0x8000;
    bool ok = true;
    for (size_t r = 0; r < kRecords; ++r)
    {
        const float* f = base + (r & 4095) * 12;
        ok &= file.WRITE(f, 3);
        ok &= file.WRITE(f + 3, 3);
        ok &= file.WRITE(f + 6, 3);
        ok &= file.WRITE(f + 9, 3);
        ok &= file.WriteInt16(&attribute, 1);
    }
    return ok;
}

bool ReadRecords(MFile& file, float* out)
{
    uint16_t attribute = 0;
    bool ok = true;
    for (size_t r = 0; r < kRecords; ++r)
    {
        ok &= file.READ(out, 3);
        ok &= file.READ(out + 3, 3);
        ok &= file.READ(out + 6, 3);
        ok &= file.READ(out + 9, 3);
        ok &= file.ReadInt16(&attribute, 1);
        benchmark::DoNotOptimize(out);
    }
    return ok;
}

bool WriteLarge(MFile& file)
{
    const std::vector<float>& floats = Floats();
    bool ok = true;
    for (size_t at = 0; at < floats.size(); at += kLargeChunkFloats)
    {
        ok &= file.WRITE(floats.data() + at, kLargeChunkFloats);
    }
    return ok;
}

void EnsureBenchFile()
{
    static const bool written = []
    {
        MFile file(262144);
        return file.OPEN_WRITE(BenchFileName()) && WriteLarge(file) && file.Close();
    }();
    if (!written)
    {
        std::fprintf(stderr, "cannot write the benchmark file\n");
        std::abort();
    }
}

void BM_FileWriteStlRecords(benchmark::State& state)
{
    Floats();
    for (auto _ : state)
    {
        MFile file(state.range(0));
        if (!file.OPEN_WRITE(BenchFileName()) || !WriteRecords(file) || !file.Close())
        {
            state.SkipWithError("write failed");
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kRecords * kRecordBytes));
}

void BM_FileWriteLargeArrays(benchmark::State& state)
{
    Floats();
    for (auto _ : state)
    {
        MFile file(262144);
        if (!file.OPEN_WRITE(BenchFileName()) || !WriteLarge(file) || !file.Close())
        {
            state.SkipWithError("write failed");
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFileBytes));
}

void BM_FileReadStlRecords(benchmark::State& state)
{
    EnsureBenchFile();
    float out[12];
    for (auto _ : state)
    {
        MFile file(262144);
        if (!file.OPEN_READ(BenchFileName()) || !ReadRecords(file, out))
        {
            state.SkipWithError("read failed");
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kRecords * kRecordBytes));
}

void BM_FileReadLargeArrays(benchmark::State& state)
{
    EnsureBenchFile();
    std::vector<float> out(kLargeChunkFloats);
    for (auto _ : state)
    {
        MFile file(262144);
        bool ok = file.OPEN_READ(BenchFileName());
        for (size_t at = 0; ok && at < kFileBytes / sizeof(float); at += kLargeChunkFloats)
        {
            ok = file.READ(out.data(), out.size());
            benchmark::DoNotOptimize(out.data());
        }
        if (!ok)
        {
            state.SkipWithError("read failed");
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFileBytes));
}

void BM_MemoryWriteStlRecords(benchmark::State& state)
{
    Floats();
    for (auto _ : state)
    {
        MMemoryFile file;
        file.OpenWrite();
        if (!WriteRecords(file) || !file.Close())
        {
            state.SkipWithError("write failed");
        }
        benchmark::DoNotOptimize(file.GetData().data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kRecords * kRecordBytes));
}

// The same into one memory file reopened each time: its vector keeps its capacity, so this
// shows the buffer logic without the page faults of fresh memory that the previous one pays.
void BM_MemoryWriteStlRecordsReused(benchmark::State& state)
{
    Floats();
    MMemoryFile file;
    for (auto _ : state)
    {
        file.OpenWrite();
        if (!WriteRecords(file) || !file.Close())
        {
            state.SkipWithError("write failed");
        }
        benchmark::DoNotOptimize(file.GetData().data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kRecords * kRecordBytes));
}

void BM_MemoryReadStlRecords(benchmark::State& state)
{
    const uint8_t* floats = reinterpret_cast<const uint8_t*>(Floats().data());
    MMemoryFile file;
    file.OpenRead(floats, kRecords * kRecordBytes);
    float out[12];
    for (auto _ : state)
    {
        if (!file.Seek(0) || !ReadRecords(file, out))
        {
            state.SkipWithError("read failed");
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kRecords * kRecordBytes));
}

constexpr size_t kVertexLines = 1000000;

// One ASCII STL vertex line per call, as the STL writer emits them, to a file with its buffer.
void BM_FprintfVertexLines(benchmark::State& state)
{
    const std::vector<float>& floats = Floats();
    int64_t bytes = 0;
    for (auto _ : state)
    {
        MFile file(262144);
        bool ok = file.OPEN_ASCII_WRITE(BenchFileName());
        for (size_t i = 0; i < kVertexLines; ++i)
        {
            const float* v = floats.data() + 3 * i;
            ok &= file.FPRINTF("vertex %.8f %.8f %.8f\n", double(v[0]) * 0.001, double(v[1]) * -0.01,
                               double(v[2]));
        }
        bytes += file.GetSize();
        if (!file.Close() || !ok)
        {
            state.SkipWithError("write failed");
        }
    }
    state.SetBytesProcessed(bytes);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kVertexLines));
}

// The same lines through the C library's fprintf (locale-dependent; for comparison only).
void BM_CLibraryFprintfVertexLines(benchmark::State& state)
{
    const std::vector<float>& floats = Floats();
    const std::wstring wide = BenchFileName();
    const std::string name(wide.begin(), wide.end());
    int64_t bytes = 0;
    for (auto _ : state)
    {
        std::FILE* file = std::fopen(name.c_str(), "w");
        if (!file)
        {
            state.SkipWithError("cannot open");
            break;
        }
        std::setvbuf(file, nullptr, _IOFBF, 262144);
        for (size_t i = 0; i < kVertexLines; ++i)
        {
            const float* v = floats.data() + 3 * i;
            bytes += std::fprintf(file, "vertex %.8f %.8f %.8f\n", double(v[0]) * 0.001, double(v[1]) * -0.01,
                                  double(v[2]));
        }
        std::fclose(file);
    }
    state.SetBytesProcessed(bytes);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kVertexLines));
}
} // namespace

BENCHMARK(BM_FileWriteStlRecords)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(4)
    ->Arg(1 << 16)
    ->Arg(1 << 18)
    ->Arg(1 << 20)
    ->Arg(1 << 22);
BENCHMARK(BM_FileWriteLargeArrays)->Unit(benchmark::kMillisecond)->Iterations(4);
BENCHMARK(BM_FileReadStlRecords)->Unit(benchmark::kMillisecond)->Iterations(4);
BENCHMARK(BM_FileReadLargeArrays)->Unit(benchmark::kMillisecond)->Iterations(4);
BENCHMARK(BM_MemoryWriteStlRecords)->Unit(benchmark::kMillisecond)->Iterations(4);
BENCHMARK(BM_MemoryWriteStlRecordsReused)->Unit(benchmark::kMillisecond)->Iterations(4);
BENCHMARK(BM_MemoryReadStlRecords)->Unit(benchmark::kMillisecond)->Iterations(4);
BENCHMARK(BM_FprintfVertexLines)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_CLibraryFprintfVertexLines)->Unit(benchmark::kMillisecond)->Iterations(3);
