// Progress reporting: a caller-supplied delegate, counting reporters and nested sub-ranges.
#pragma once

#include <KelSDK/Common/Export.h>

#include <cstdint>
#include <memory>
#include <string>

namespace KelSDK::Common
{
// Receives the progress of a long operation as a fraction from 0 to 1.
class KELSDK_COMMON_EXPORT IProgressDelegate
{
public:
    virtual ~IProgressDelegate();
    // Called with a fraction in [0, 1]; a reporter never passes a smaller value than before.
    virtual void SetProgress(double fraction01) = 0;
    // True when the user asked to stop; operations may poll it.
    virtual bool IsCancelled() const { return false; }
};

// Forwards fractions of one operation to a delegate, never backwards; base of the reporters.
class KELSDK_COMMON_EXPORT BaseProgressReporter
{
public:
    // A reporter that forwards to delegate (which may be null: then nothing is reported).
    explicit BaseProgressReporter(std::shared_ptr<IProgressDelegate> delegate);
    BaseProgressReporter(const BaseProgressReporter&) = delete;
    BaseProgressReporter& operator=(const BaseProgressReporter&) = delete;
    virtual ~BaseProgressReporter();

    // The fraction of the work done so far, in [0, 1].
    virtual double GetFraction() const = 0;
    // A delegate whose own 0..1 maps onto [GetFraction(), GetFraction() + weight] of this reporter
    // (weight clamped to what is left); it may outlive the reporter. Never null.
    std::shared_ptr<IProgressDelegate> CreateNestedDelegate(double weight);
    // The delegate's cancellation flag (false without a delegate).
    bool IsCancelled() const;
    // True when a delegate is attached.
    bool HasDelegate() const;

protected:
    // Forwards fraction (clamped to [0, 1]) when it is above everything reported so far.
    void _Report(double fraction);
    // The largest fraction forwarded so far, -1 when nothing has been forwarded.
    double _GetLastReported() const;

private:
    struct Sink;
    class NestedDelegate;
    std::shared_ptr<Sink> sink_;
};

// Counts steps up to a maximum and reports value / maximum in visible increments (1/1000 by default).
// operator++ is inline and costs a counter increment and one comparison except at those increments.
class KELSDK_COMMON_EXPORT IncrementalProgressReporter : public BaseProgressReporter
{
public:
    // Steps between two reports: maximum / ReportSteps (at least 1).
    static constexpr uint64_t ReportSteps = 1000;

    // scope names the operation ("Library.Class.Method"); a maximum of 0 counts as already complete;
    // startImmediately reports the starting fraction (0, or 1 for a maximum of 0) at once; otherwise the
    // first report comes with the first visible step.
    IncrementalProgressReporter(std::shared_ptr<IProgressDelegate> delegate, const char* scope,
                                uint64_t maximum, bool startImmediately = true);
    // Reports 1 unless Finish already did or an exception is leaving the operation.
    ~IncrementalProgressReporter() override;

    // One step done.
    IncrementalProgressReporter& operator++()
    {
        if (++value_ >= nextReport_)
            _Advance();
        return *this;
    }
    // One step done (the postfix form returns nothing useful to copy).
    void operator++(int) { ++*this; }
    // count steps done (saturating at the largest value).
    IncrementalProgressReporter& operator+=(uint64_t count);

    // The maximum given at construction.
    uint64_t GetMaxValue() const { return maximum_; }
    // Steps counted so far (may exceed the maximum; the fraction stops at 1).
    uint64_t GetValue() const { return value_; }
    // Sets the step count; a smaller value than before moves the count back but never the report.
    void SetValue(uint64_t value);
    // The scope name given at construction.
    const std::string& GetScope() const { return scope_; }
    // value / maximum clamped to [0, 1]; 1 for a maximum of 0 or after Finish.
    double GetFraction() const override;
    // Reports 1 (once) and stops further reports.
    void Finish();

private:
    // Reports the current fraction and computes the next step count at which to report again.
    void _Advance();

    uint64_t value_ = 0;
    uint64_t nextReport_ = UINT64_MAX;
    uint64_t maximum_ = 0;
    uint64_t stride_ = 1;
    bool finished_ = false;
    // Exceptions in flight when the reporter was made: more at destruction means unwinding.
    int uncaught_ = 0;
    std::string scope_;
};
} // namespace KelSDK::Common
