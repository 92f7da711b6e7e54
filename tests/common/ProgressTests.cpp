#include <KelSDK/Common/Progress.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

using KelSDK::Common::IncrementalProgressReporter;
using KelSDK::Common::IProgressDelegate;

namespace
{
// Records every fraction it receives.
class RecordingDelegate : public IProgressDelegate
{
public:
    void SetProgress(double fraction01) override { values.push_back(fraction01); }
    bool IsCancelled() const override { return cancelled; }

    bool IsMonotonic() const
    {
        for (std::size_t i = 1; i < values.size(); ++i)
            if (values[i] < values[i - 1])
                return false;
        return true;
    }
    double Last() const { return values.empty() ? -1.0 : values.back(); }

    std::vector<double> values;
    bool cancelled = false;
};
} // namespace

TEST(IncrementalProgressReporter, ForwardsInVisibleStepsOnlyAndEndsWithOne)
{
    auto delegate = std::make_shared<RecordingDelegate>();
    {
        IncrementalProgressReporter reporter(delegate, "KelSDK.Test.Count", 1000000, false);
        EXPECT_TRUE(delegate->values.empty());
        for (int i = 0; i < 1000000; ++i)
            ++reporter;
        EXPECT_EQ(reporter.GetValue(), 1000000u);
    }
    EXPECT_LE(delegate->values.size(), 1001u);
    EXPECT_GE(delegate->values.size(), 900u);
    EXPECT_TRUE(delegate->IsMonotonic());
    EXPECT_EQ(delegate->Last(), 1.0);
    EXPECT_NEAR(delegate->values.front(), 0.001, 1e-12);
    // 1.0 is reported once, although the count reached the maximum before the destructor ran.
    EXPECT_NE(delegate->values[delegate->values.size() - 2], 1.0);
}

TEST(IncrementalProgressReporter, StartImmediatelyReportsZeroAndScopeIsKept)
{
    auto delegate = std::make_shared<RecordingDelegate>();
    IncrementalProgressReporter reporter(delegate, "KelSDK.Triangles.IO.MStlBinaryFileReader.Read", 10);
    ASSERT_EQ(delegate->values.size(), 1u);
    EXPECT_EQ(delegate->values[0], 0.0);
    EXPECT_EQ(reporter.GetScope(), "KelSDK.Triangles.IO.MStlBinaryFileReader.Read");
    EXPECT_EQ(reporter.GetMaxValue(), 10u);

    // Small maximums report every step; postfix and += count like prefix.
    reporter++;
    reporter += 3;
    EXPECT_EQ(reporter.GetValue(), 4u);
    EXPECT_DOUBLE_EQ(delegate->Last(), 0.4);
    reporter.Finish();
    EXPECT_EQ(delegate->Last(), 1.0);
    const std::size_t calls = delegate->values.size();
    ++reporter;
    reporter.Finish();
    EXPECT_EQ(delegate->values.size(), calls);
    EXPECT_EQ(reporter.GetFraction(), 1.0);
}

TEST(IncrementalProgressReporter, MaximumZeroAndOverrunsDoNotDivideOrGoBeyondOne)
{
    auto delegate = std::make_shared<RecordingDelegate>();
    {
        IncrementalProgressReporter reporter(delegate, "zero", 0, false);
        EXPECT_EQ(reporter.GetFraction(), 1.0);
        for (int i = 0; i < 5000; ++i)
            ++reporter;
    }
    ASSERT_EQ(delegate->values.size(), 1u);
    EXPECT_EQ(delegate->values[0], 1.0);

    // An estimate that was too small: counting past the maximum stays at 1 and reports 1 once.
    auto over = std::make_shared<RecordingDelegate>();
    {
        IncrementalProgressReporter reporter(over, "over", 10, false);
        for (int i = 0; i < 100; ++i)
            ++reporter;
        EXPECT_EQ(reporter.GetFraction(), 1.0);
    }
    EXPECT_EQ(over->values.size(), 10u);
    EXPECT_EQ(over->Last(), 1.0);

    // The largest maximum (a stream without a size) and a saturating +=.
    auto unknown = std::make_shared<RecordingDelegate>();
    {
        IncrementalProgressReporter reporter(unknown, "unknown", UINT64_MAX, false);
        for (int i = 0; i < 1000; ++i)
            ++reporter;
        EXPECT_TRUE(unknown->values.empty());
        reporter += UINT64_MAX;
        EXPECT_EQ(reporter.GetValue(), UINT64_MAX);
        EXPECT_EQ(unknown->Last(), 1.0);
    }
    EXPECT_EQ(unknown->values.size(), 1u);
}

TEST(IncrementalProgressReporter, ReportingNeverGoesBackwards)
{
    auto delegate = std::make_shared<RecordingDelegate>();
    IncrementalProgressReporter reporter(delegate, "back", 100);
    reporter.SetValue(60);
    EXPECT_DOUBLE_EQ(delegate->Last(), 0.6);
    reporter.SetValue(20);
    EXPECT_EQ(reporter.GetValue(), 20u);
    EXPECT_DOUBLE_EQ(delegate->Last(), 0.6);
    reporter += 50;
    EXPECT_DOUBLE_EQ(delegate->Last(), 0.7);
    EXPECT_TRUE(delegate->IsMonotonic());
}

TEST(IncrementalProgressReporter, NullDelegateCountsWithoutReporting)
{
    IncrementalProgressReporter reporter(nullptr, "silent", 100);
    for (int i = 0; i < 50; ++i)
        ++reporter;
    EXPECT_EQ(reporter.GetValue(), 50u);
    EXPECT_DOUBLE_EQ(reporter.GetFraction(), 0.5);
    EXPECT_FALSE(reporter.IsCancelled());
    EXPECT_FALSE(reporter.HasDelegate());
    auto nested = reporter.CreateNestedDelegate(0.5);
    ASSERT_NE(nested, nullptr);
    nested->SetProgress(0.5); // goes nowhere
    EXPECT_FALSE(nested->IsCancelled());
    IncrementalProgressReporter unnamed(nullptr, nullptr, 1);
    EXPECT_EQ(unnamed.GetScope(), "");
}

TEST(ProgressNesting, NestedDelegateMapsOntoItsSlice)
{
    auto delegate = std::make_shared<RecordingDelegate>();
    IncrementalProgressReporter reporter(delegate, "outer", 100, false);
    reporter.SetValue(50);
    auto nested = reporter.CreateNestedDelegate(0.25);
    nested->SetProgress(0.0);
    nested->SetProgress(0.5);
    EXPECT_DOUBLE_EQ(delegate->Last(), 0.625);
    nested->SetProgress(1.0);
    EXPECT_DOUBLE_EQ(delegate->Last(), 0.75);
    // Out-of-range fractions are clamped to the slice.
    nested->SetProgress(7.0);
    EXPECT_DOUBLE_EQ(delegate->Last(), 0.75);
    EXPECT_TRUE(delegate->IsMonotonic());

    // The outer count continues behind the nested work without stepping back.
    reporter.SetValue(60);
    EXPECT_DOUBLE_EQ(delegate->Last(), 0.75);
    reporter.SetValue(80);
    EXPECT_DOUBLE_EQ(delegate->Last(), 0.8);
}

TEST(ProgressNesting, TwoLevelsDeepThroughNestedReporters)
{
    auto delegate = std::make_shared<RecordingDelegate>();
    IncrementalProgressReporter outer(delegate, "outer", 4, false);
    outer += 2;                                     // 0.5
    auto level1 = outer.CreateNestedDelegate(0.25); // [0.5, 0.75]
    {
        IncrementalProgressReporter middle(level1, "middle", 10, false);
        middle += 4; // 0.4 of the slice: 0.6
        EXPECT_DOUBLE_EQ(delegate->Last(), 0.6);
        auto level2 = middle.CreateNestedDelegate(0.5); // [0.4, 0.9] of the slice: [0.6, 0.725]
        {
            IncrementalProgressReporter inner(level2, "inner", 2, false);
            ++inner;
            EXPECT_DOUBLE_EQ(delegate->Last(), 0.6625);
        }
        EXPECT_DOUBLE_EQ(delegate->Last(), 0.725);
    }
    EXPECT_DOUBLE_EQ(delegate->Last(), 0.75);
    EXPECT_TRUE(delegate->IsMonotonic());
}

TEST(ProgressNesting, WeightIsClampedAndCancellationPassesThrough)
{
    auto delegate = std::make_shared<RecordingDelegate>();
    std::shared_ptr<IProgressDelegate> nested;
    {
        IncrementalProgressReporter reporter(delegate, "clamp", 10, false);
        reporter += 8;
        nested = reporter.CreateNestedDelegate(5.0); // only 0.2 is left
        nested->SetProgress(1.0);
        EXPECT_DOUBLE_EQ(delegate->Last(), 1.0);
        delegate->cancelled = true;
        EXPECT_TRUE(reporter.IsCancelled());
        EXPECT_TRUE(nested->IsCancelled());
    }
    // A nested delegate may outlive its reporter.
    nested->SetProgress(0.5);
    EXPECT_TRUE(nested->IsCancelled());

    auto negative = std::make_shared<RecordingDelegate>();
    IncrementalProgressReporter reporter(negative, "negative", 10, false);
    reporter += 3;
    auto none = reporter.CreateNestedDelegate(-1.0);
    none->SetProgress(1.0);
    EXPECT_DOUBLE_EQ(negative->Last(), 0.3);
}
