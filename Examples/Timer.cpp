// Does something every so many milliseconds until Ctrl-C: here it prints how late it is.
//
//     Timer MILLISECONDS        1 to 86400000, a day
#include "Arguments.h"

#include <Brindle/Vok/Synchronization.h>

#include <atomic>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <thread>

using namespace Brindle::Vok;

namespace
{

using Clock = std::chrono::steady_clock;

/// Calls a function again and again, on a thread of its own. A timer can't start itself again, so its function tells
/// that thread. The moments are counted from the beginning, so that lateness doesn't add up; those that a slow function
/// misses are left out. The function gets its moment. It must not throw, nor destroy this object.
class Repeater
{
public:
    /// Throws WindowsError or std::system_error if there is no descriptor, thread or memory for it.
    Repeater(std::chrono::milliseconds interval, std::function<void(Clock::time_point)> function)
        : interval(interval), function(std::move(function)), thread([this] { Run(); })
    {
    }

    /// Waits for a function that runs; none is called after that.
    ~Repeater()
    {
        isEnding = true;
        SetEvent(wake.Handle()); // as Set, which may throw
        thread.join();
    }
    Repeater(Repeater const&) = delete;
    Repeater& operator=(Repeater const&) = delete;

private:
    void Run()
    {
        for (Clock::time_point due = Clock::now() + interval;; due += interval)
        {
            Clock::time_point const now = Clock::now();
            if (due < now)
                due += (now - due) / interval * interval + interval;
            timer.Start(After(due - now));
            wake.WaitOrTimeout(INFINITE);
            if (isEnding)
                return;
            function(due);
        }
    }

    /// So long from now, in units of 100 nanoseconds; negative, which means that no change of the clock counts.
    static FILETIME After(Clock::duration span)
    {
        using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;
        auto const ticks = static_cast<std::uint64_t>(-std::chrono::ceil<Ticks>(span).count());
        return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    }

    // Made in this order, and gone in the opposite one: the thread uses the timer, whose function uses the event.
    std::chrono::milliseconds const interval;
    std::function<void(Clock::time_point)> const function;
    std::atomic<bool> isEnding = false;
    Event wake{L"", false};
    ThreadPoolTimer timer{[this](ThreadPoolTimer&) { wake.Set(); }};
    std::thread thread;
};

void RunUntilInterrupted(std::chrono::milliseconds interval)
{
    // Blocked before any thread starts, so that no thread but this one takes them.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    int count = 0;
    {
        Repeater const repeater(interval,
                                [&count](Clock::time_point due)
                                {
                                    std::chrono::duration<double, std::micro> const late = Clock::now() - due;
                                    std::printf("tick %d, late by %.0f microseconds\n", ++count, late.count());
                                    std::fflush(stdout);
                                });
        int signal;
        sigwait(&ends, &signal);
    }
    std::printf("ended after %d ticks\n", count); // of its own thread now
}

} // namespace

int main(int argc, char** argv)
{
    char const* const usage = "MILLISECONDS      1 to 86400000";
    if (auto const code = EndWithUsage(argv[0], {argv + 1, argv + argc}, 1, 1, usage))
        return *code;
    int milliseconds = 0;
    char const* const end = argv[1] + std::strlen(argv[1]);
    if (auto const [last, error] = std::from_chars(argv[1], end, milliseconds);
        error != std::errc() || last != end || milliseconds < 1 || milliseconds > 86'400'000)
        return RefuseCall(argv[0], usage);
    try
    {
        RunUntilInterrupted(std::chrono::milliseconds(milliseconds));
        return 0;
    }
    catch (std::exception const& exception)
    {
        std::fprintf(stderr, "failed: %s\n", exception.what());
        return 1;
    }
}
