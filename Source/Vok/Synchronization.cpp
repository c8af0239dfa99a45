#include <Brindle/Vok/Synchronization.h>

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/Log.h>

#include <cstdint>
#include <utility>

namespace Brindle::Vok
{

class ThreadPoolTimer::Impl
{
public:
    Impl(ThreadPoolTimer* owner, std::function<void(ThreadPoolTimer&)> callback)
        : callback(std::move(callback)), timer(CreateThreadpoolTimer(TimerCallback, this, nullptr)), owner(owner)
    {
        VOK_LOG_SCOPE();
        if (!timer)
            VOK_THROW_LAST_ERROR("CreateThreadpoolTimer");
    }
    Impl(Impl const&) = delete;
    Impl& operator=(Impl const&) = delete;

    ~Impl()
    {
        VOK_LOG_SCOPE();
        Cancel();
        CloseThreadpoolTimer(timer); // also waits, for what began behind the cancellation
    }

    void Start(FILETIME when)
    {
        VOK_LOG_SCOPE();
        Cancel();
        SetThreadpoolTimer(timer, &when, 0, 0);
    }

    void Cancel()
    {
        VOK_LOG_SCOPE();
        WaitForThreadpoolTimerCallbacks(timer, TRUE); // required: it stays set
    }

private:
    static void WINAPI TimerCallback(PTP_CALLBACK_INSTANCE, PVOID context, PTP_TIMER)
    {
        VOK_LOG_SCOPE();
        static_cast<Impl*>(context)->OnTimer();
    }

    void OnTimer()
    {
        VOK_LOG_SCOPE();
        if (callback)
            callback(*owner);
    }

    std::function<void(ThreadPoolTimer&)> const callback;
    PTP_TIMER const timer;
    ThreadPoolTimer* const owner;
};

ThreadPoolTimer::ThreadPoolTimer(std::function<void(ThreadPoolTimer&)> callback)
    : impl(std::make_unique<Impl>(this, std::move(callback)))
{
    VOK_LOG_SCOPE();
}

ThreadPoolTimer::~ThreadPoolTimer()
{
    VOK_LOG_SCOPE();
}

void ThreadPoolTimer::Start(struct tm when)
{
    VOK_LOG_SCOPE();
    constexpr std::int64_t secondsTo1970 = 11'644'473'600;
    constexpr std::int64_t ticksInSecond = 10'000'000;
    when.tm_isdst = -1;
    // Required: -1 for an invalid time is used like any other, and is over.
    auto const ticks = static_cast<std::uint64_t>((_mktime64(&when) + secondsTo1970) * ticksInSecond);
    impl->Start(FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)});
}

void ThreadPoolTimer::Start(FILETIME when)
{
    VOK_LOG_SCOPE();
    impl->Start(when);
}

void ThreadPoolTimer::Cancel()
{
    VOK_LOG_SCOPE();
    impl->Cancel();
}

} // namespace Brindle::Vok
