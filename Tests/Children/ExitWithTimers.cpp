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

/// Made before main, so it goes behind everything else.
struct Late
{
    ~Late()
    {
        timer.Start(Due(0));
        timer.Cancel();
        std::puts("late");
    }
    ThreadPoolTimer timer{nullptr};
} late;

std::atomic<bool> runs = false;

} // namespace

int main()
{
    late.timer.Start(Due(-36'000'000'000)); // in an hour
    // This one stays: what ends the process must not wait for it.
    auto* const blocked = new ThreadPoolTimer(
        [](ThreadPoolTimer&)
        {
            runs = true;
            runs.notify_all();
            std::this_thread::sleep_for(std::chrono::hours(1));
        });
    blocked->Start(Due(0));
    runs.wait(false);
    std::puts("end");
    return 0;
}
