#include <KelSDK/Common/Progress.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <utility>

namespace KelSDK::Common
{
IProgressDelegate::~IProgressDelegate() = default;

// The delegate with the largest fraction forwarded so far; shared by a reporter and the nested
// delegates it hands out, so that these may outlive it and so that no path reports backwards.
struct BaseProgressReporter::Sink
{
    std::shared_ptr<IProgressDelegate> delegate;
    double last = -1.0;

    void Report(double fraction)
    {
        if (!delegate)
            return;
        if (!(fraction >= 0.0)) // also catches NaN
            fraction = 0.0;
        else if (fraction > 1.0)
            fraction = 1.0;
        if (fraction <= last)
            return;
        last = fraction;
        delegate->SetProgress(fraction);
    }
};

// Maps its own 0..1 onto [base, base + weight] of the sink it was made from.
class BaseProgressReporter::NestedDelegate : public IProgressDelegate
{
public:
    NestedDelegate(std::shared_ptr<Sink> sink, double base, double weight)
        : sink_(std::move(sink)), base_(base), weight_(weight)
    {
    }
    void SetProgress(double fraction01) override
    {
        if (!(fraction01 >= 0.0))
            fraction01 = 0.0;
        else if (fraction01 > 1.0)
            fraction01 = 1.0;
        sink_->Report(base_ + weight_ * fraction01);
    }
    bool IsCancelled() const override { return sink_->delegate && sink_->delegate->IsCancelled(); }

private:
    std::shared_ptr<Sink> sink_;
    double base_;
    double weight_;
};

BaseProgressReporter::BaseProgressReporter(std::shared_ptr<IProgressDelegate> delegate)
    : sink_(std::make_shared<Sink>())
{
    sink_->delegate = std::move(delegate);
}

BaseProgressReporter::~BaseProgressReporter() = default;

std::shared_ptr<IProgressDelegate> BaseProgressReporter::CreateNestedDelegate(double weight)
{
    double base = GetFraction();
    if (!(base >= 0.0))
        base = 0.0;
    base = std::min(base, 1.0);
    if (!(weight >= 0.0))
        weight = 0.0;
    weight = std::min(weight, 1.0 - base);
    return std::make_shared<NestedDelegate>(sink_, base, weight);
}

bool BaseProgressReporter::IsCancelled() const
{
    return sink_->delegate && sink_->delegate->IsCancelled();
}

bool BaseProgressReporter::HasDelegate() const
{
    return sink_->delegate != nullptr;
}

void BaseProgressReporter::_Report(double fraction)
{
    sink_->Report(fraction);
}

double BaseProgressReporter::_GetLastReported() const
{
    return sink_->last;
}

IncrementalProgressReporter::IncrementalProgressReporter(std::shared_ptr<IProgressDelegate> delegate,
                                                         const char* scope, uint64_t maximum,
                                                         bool startImmediately)
    : BaseProgressReporter(std::move(delegate)), maximum_(maximum),
      stride_(std::max<uint64_t>(1, maximum / ReportSteps)), uncaught_(std::uncaught_exceptions()),
      scope_(scope ? scope : "")
{
    if (!HasDelegate())
        return; // nextReport_ stays at the largest value: operator++ never leaves its fast path
    if (startImmediately)
        _Report(GetFraction());
    nextReport_ = maximum_ == 0 ? 1 : std::min(stride_, maximum_);
}

IncrementalProgressReporter::~IncrementalProgressReporter()
{
    // An operation left by an exception is not complete. A delegate may throw to cancel; the
    // final report must not throw again out of a destructor.
    if (std::uncaught_exceptions() > uncaught_)
        return;
    try
    {
        Finish();
    }
    catch (...)
    {
    }
}

IncrementalProgressReporter& IncrementalProgressReporter::operator+=(uint64_t count)
{
    value_ = (UINT64_MAX - value_ < count) ? UINT64_MAX : value_ + count;
    if (value_ >= nextReport_)
        _Advance();
    return *this;
}

void IncrementalProgressReporter::SetValue(uint64_t value)
{
    value_ = value;
    _Advance();
}

double IncrementalProgressReporter::GetFraction() const
{
    if (finished_ || maximum_ == 0 || value_ >= maximum_)
        return 1.0;
    return static_cast<double>(value_) / static_cast<double>(maximum_);
}

void IncrementalProgressReporter::Finish()
{
    if (finished_)
        return;
    finished_ = true;
    nextReport_ = UINT64_MAX;
    _Report(1.0);
}

void IncrementalProgressReporter::_Advance()
{
    if (finished_ || !HasDelegate())
    {
        nextReport_ = UINT64_MAX;
        return;
    }
    _Report(GetFraction());
    if (value_ >= maximum_)
        nextReport_ = UINT64_MAX; // complete: nothing visible is left until Finish
    else
        nextReport_ = (maximum_ - value_ > stride_) ? value_ + stride_ : maximum_;
}
} // namespace KelSDK::Common
