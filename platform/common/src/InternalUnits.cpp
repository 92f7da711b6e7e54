#include <KelSDK/Common/InternalUnits.h>

#include <atomic>
#include <cmath>

namespace KelSDK::Common
{
namespace
{
std::atomic<double>& stepsPerMillimetre()
{
    static std::atomic<double> value{MInternalUnits::Default};
    return value;
}
} // namespace

double MInternalUnits::Get()
{
    return stepsPerMillimetre().load(std::memory_order_relaxed);
}

void MInternalUnits::Set(double steps)
{
    if (!std::isfinite(steps) || !(steps > 0.0))
        return;
    stepsPerMillimetre().store(steps, std::memory_order_relaxed);
}
} // namespace KelSDK::Common
