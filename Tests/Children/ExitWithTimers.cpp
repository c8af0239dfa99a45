// Ends while timers are set, one runs, and one goes with the statics.
#include <Brindle/Vok/Synchronization.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <thread>

using namespace Brindle::Vok;

namespace
{

FILETIME Due(std::int64_t ticks)
{
    auto const bits = static_cast<std::uint64_t>(ticks);
    return {static_cast<DWORD>(bits), static_cast<DWORD>(bits >> 32)};
}

constexpr std::int64_t inAnHour = -36'000'000'000;

void Quick(ThreadPoolTimer&) {}

/// Made before main, so it goes behind everything else.
struct Late
{
    ~Late()
    {
        timer.Start(Due(0));
        timer.Cancel();
        std::puts("late");
    }
    ThreadPoolTimer timer{Quick};
} late;

std::atomic<bool> runs = false;

} // namespace

int main()
{
    static ThreadPoolTimer last(Quick);
    last.Start(Due(inAnHour));
    late.timer.Start(Due(inAnHour));
    // These stay: what ends the process must not wait for them.
    auto* const blocked = new ThreadPoolTimer(
        [](ThreadPoolTimer&)
        {
            runs = true;
            runs.notify_all();
            std::this_thread::sleep_for(std::chrono::hours(1));
        });
    blocked->Start(Due(0));
    static auto* const kept = new ThreadPoolTimer(Quick);
    kept->Start(Due(-50));
    runs.wait(false);
    std::puts("end");
    return 0;
}
