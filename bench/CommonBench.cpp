// Costs of the Common helpers that sit in per-facet and per-token loops: the progress counter,
// number parsing and narrow/wide conversion.
#include <KelSDK/Common/Progress.h>
#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/Common/StringUtilities.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

using namespace KelSDK::Common;

namespace
{
class CountingDelegate : public IProgressDelegate
{
public:
    void SetProgress(double fraction01) override
    {
        last = fraction01;
        ++calls;
    }
    double last = 0.0;
    long calls = 0;
};

// Tokens as an ASCII STL file holds them.
std::vector<std::string> makeTokens(std::size_t count)
{
    std::vector<std::string> tokens;
    tokens.reserve(count);
    char buffer[64];
    unsigned state = 12345;
    for (std::size_t i = 0; i < count; ++i)
    {
        state = state * 1103515245u + 12345u;
        const double v = (static_cast<double>(state % 2000000) - 1000000.0) / 997.0;
        std::snprintf(buffer, sizeof buffer, (i % 2) ? "%e" : "%f", v);
        tokens.emplace_back(buffer);
    }
    return tokens;
}
} // namespace

// One increment per facet, as the STL readers count.
static void BM_ProgressIncrement(benchmark::State& state)
{
    auto delegate = std::make_shared<CountingDelegate>();
    const uint64_t n = 1000000;
    for (auto _ : state)
    {
        IncrementalProgressReporter reporter(state.range(0) ? delegate : nullptr, "bench", n, false);
        for (uint64_t i = 0; i < n; ++i)
            ++reporter;
        benchmark::DoNotOptimize(reporter.GetValue());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * n));
}
BENCHMARK(BM_ProgressIncrement)->Arg(0)->Arg(1);

static void BM_ExtractFloat(benchmark::State& state)
{
    const auto tokens = makeTokens(4096);
    for (auto _ : state)
        for (const std::string& t : tokens)
        {
            double v = 0;
            benchmark::DoNotOptimize(StringUtilities::ExtractFloat(t, v));
            benchmark::DoNotOptimize(v);
        }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * tokens.size()));
}
BENCHMARK(BM_ExtractFloat);

// The same tokens through strtod, for comparison.
static void BM_Strtod(benchmark::State& state)
{
    const auto tokens = makeTokens(4096);
    for (auto _ : state)
        for (const std::string& t : tokens)
        {
            char* end = nullptr;
            benchmark::DoNotOptimize(std::strtod(t.c_str(), &end));
        }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * tokens.size()));
}
BENCHMARK(BM_Strtod);

static void BM_Utf8RoundTrip(benchmark::State& state)
{
    std::string text;
    for (int i = 0; i < 1000; ++i)
        text += "solid Teil-\xC3\xA9\xE2\x82\xAC ";
    for (auto _ : state)
    {
        const std::wstring wide = StringConversion::Utf8ToNative(text);
        benchmark::DoNotOptimize(StringConversion::NativeToUtf8(wide));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_Utf8RoundTrip);
