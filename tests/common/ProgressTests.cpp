#include <KelSDK/Common/Progress.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

using KelSDK::Common::IncrementalProgressReporter;
using KelSDK::Common::IProgressDelegate;

namespace
{
// Records every fraction it receives.
struct RecordingDelegate : IProgressDelegate
{
    void SetProgress(double fraction01) override { values.push_back(fraction01); }
    bool IsCancelled() const override { return cancelled; }
    std::vector<double> values;
    bool cancelled = false;
};

// Counts steps one by one up to a maximum and returns what the delegate received, the destructor's
// report included.
std::vector<double> Count(uint64_t maximum, int steps)
{
    auto delegate = std::make_shared<RecordingDelegate>();
    {
        IncrementalProgressReporter reporter(delegate, "count", maximum, false);
        for (int i = 0; i < steps; ++i)
            ++reporter;
    }
    return delegate->values;
}
} // namespace

TEST(IncrementalProgressReporter, ForwardsInVisibleStepsOnlyNeverBackwardsAndOneOnce)
{
    const std::vector<double> million = Count(1000000, 1000000);
    EXPECT_GE(million.size(), 900u);
    EXPECT_LE(million.size(), 1001u);
    EXPECT_TRUE(std::is_sorted(million.begin(), million.end()));
    EXPECT_NEAR(million.front(), 0.001, 1e-12);
    // 1.0 is reported once, although the count reached the maximum before the destructor ran.
    EXPECT_EQ(million.back(), 1.0);
    EXPECT_NE(million[million.size() - 2], 1.0);
    // A maximum of 0 is complete; counting past a maximum that was too small stays at 1; the largest
    // maximum (a stream without a size) reports nothing before the end.
    EXPECT_EQ(Count(0, 5000), std::vector<double>{1.0});
    EXPECT_EQ(Count(10, 100).size(), 10u);
    EXPECT_EQ(Count(UINT64_MAX, 1000), std::vector<double>{1.0});

    // An immediate 0; a smaller value moves the count back but not the report; += saturates;
    // Finish reports 1 once.
    auto delegate = std::make_shared<RecordingDelegate>();
    IncrementalProgressReporter reporter(delegate, "small", 10);
    reporter++;
    reporter += 5;
    reporter.SetValue(2);
    reporter += 5;
    ASSERT_EQ(delegate->values.size(), 4u);
    EXPECT_EQ(delegate->values[0], 0.0);
    EXPECT_DOUBLE_EQ(delegate->values[3], 0.7);
    reporter += UINT64_MAX;
    EXPECT_EQ(reporter.GetValue(), UINT64_MAX);
    reporter.Finish();
    reporter.Finish();
    EXPECT_EQ(delegate->values.size(), 5u);
    EXPECT_EQ(delegate->values.back(), 1.0);
}

// A delegate may cancel by throwing: the exception leaves the operation (no std::terminate from
// the destructor's final report), and an operation left that way is not reported complete.
TEST(IncrementalProgressReporter, AThrowingDelegateCancelsWithoutACompletionReport)
{
    struct ThrowingDelegate : RecordingDelegate
    {
        void SetProgress(double fraction01) override
        {
            RecordingDelegate::SetProgress(fraction01);
            if (fraction01 >= 0.5)
                throw std::runtime_error("cancelled");
        }
    };
    auto delegate = std::make_shared<ThrowingDelegate>();
    EXPECT_THROW(
        {
            IncrementalProgressReporter reporter(delegate, "cancel", 1000);
            for (int i = 0; i < 1000; ++i)
                ++reporter;
        },
        std::runtime_error);
    EXPECT_EQ(delegate->values.back(), 0.5);
    // Reaching the end without an exception, the throwing final report is swallowed.
    auto last = std::make_shared<ThrowingDelegate>();
    {
        IncrementalProgressReporter reporter(last, "end", 0, false);
    }
    EXPECT_EQ(last->values, std::vector<double>{1.0});
}

TEST(ProgressNesting, NestedSlicesAreClampedAndCancellationOutlivesTheReporter)
{
    auto delegate = std::make_shared<RecordingDelegate>();
    std::shared_ptr<IProgressDelegate> nested;
    {
        IncrementalProgressReporter outer(delegate, "outer", 4, false);
        outer += 2;                                // 0.5
        nested = outer.CreateNestedDelegate(0.25); // [0.5, 0.75]
        {
            IncrementalProgressReporter inner(nested, "inner", 10, false);
            inner += 4;                                       // 0.4 of the slice: 0.6
            auto innermost = inner.CreateNestedDelegate(0.5); // [0.4, 0.9] of the slice: [0.6, 0.725]
            innermost->SetProgress(0.5);
            EXPECT_DOUBLE_EQ(delegate->values.back(), 0.6625);
            innermost->SetProgress(7.0); // out-of-range fractions are clamped to the slice
            EXPECT_DOUBLE_EQ(delegate->values.back(), 0.725);
        }
        EXPECT_DOUBLE_EQ(delegate->values.back(), 0.75);
        outer.CreateNestedDelegate(5.0)->SetProgress(0.6); // a weight beyond what is left is clamped
        EXPECT_DOUBLE_EQ(delegate->values.back(), 0.8);
        EXPECT_TRUE(std::is_sorted(delegate->values.begin(), delegate->values.end()));
        delegate->cancelled = true;
    }
    // A nested delegate may outlive its reporter.
    nested->SetProgress(0.5);
    EXPECT_TRUE(nested->IsCancelled());
}
