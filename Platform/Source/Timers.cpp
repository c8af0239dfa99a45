#include "HostErrors.h"
#include "TimerPool.h"

#include <Brindle/Platform/ErrorCodes.h>
#include <Brindle/Platform/Timers.h>

using namespace Brindle::Vok::Platform;

PTP_TIMER CreateThreadpoolTimer(PTP_TIMER_CALLBACK callback, PVOID context, PTP_CALLBACK_ENVIRON environment) noexcept
{
    if (!callback)
        return FailWith<PTP_TIMER>(ERROR_INVALID_PARAMETER);
    if (environment)
        return FailWith<PTP_TIMER>(ERROR_NOT_SUPPORTED);
    return TimerPool::Make(callback, context);
}

void SetThreadpoolTimer(PTP_TIMER timer, LPFILETIME due, DWORD period, DWORD) noexcept
{
    TimerPool::Get().Set(*timer, due, period);
}

void WaitForThreadpoolTimerCallbacks(PTP_TIMER timer, BOOL cancelsPending) noexcept
{
    TimerPool::Get().Wait(*timer, cancelsPending != FALSE);
}

void CloseThreadpoolTimer(PTP_TIMER timer) noexcept
{
    TimerPool::Get().Close(*timer);
}
