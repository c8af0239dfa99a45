#include "Clock.h"

#include "SystemCalls.h"

namespace Brindle::Vok::Platform
{
namespace
{

std::chrono::nanoseconds TimeOf(clockid_t clock) noexcept
{
    timespec now{};
    SystemCalls::GetTime(clock, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

} // namespace

std::chrono::nanoseconds TimeNow() noexcept
{
    return TimeOf(CLOCK_MONOTONIC);
}

std::chrono::nanoseconds ApproximateTimeNow() noexcept
{
    return TimeOf(CLOCK_MONOTONIC_COARSE);
}

} // namespace Brindle::Vok::Platform
