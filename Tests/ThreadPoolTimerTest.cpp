// Timers as clients see them. The platform's own ones are tested elsewhere.
#include <Brindle/Vok/Synchronization.h>

#include "Support/HostVariable.h"
#include "Support/LogRecorder.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <thread>
#include <vector>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::ElementsAre;

namespace
{

/// What a setting gets in the place of the platform.
std::function<void(std::int64_t due, DWORD period, DWORD windowLength)> set;

} // namespace

extern "C" void WINAPI __real_SetThreadpoolTimer(PTP_TIMER, LPFILETIME, DWORD, DWORD) noexcept;
extern "C" void WINAPI __wrap_SetThreadpoolTimer(PTP_TIMER timer, LPFILETIME due, DWORD period, DWORD window) noexcept
{
    if (set)
        set(static_cast<std::int64_t>(std::uint64_t{due->dwHighDateTime} << 32 | due->dwLowDateTime), period, window);
    else
        __real_SetThreadpoolTimer(timer, due, period, window);
}

namespace
{

constexpr std::int64_t year1970 = 116'444'736'000'000'000;

std::tm Local(int year, int month, int day, int hour = 0, int minute = 0, int second = 0, int isDst = 0)
{
    std::tm time{};
    time.tm_year = year - 1900;
    time.tm_mon = month - 1;
    time.tm_mday = day;
    time.tm_hour = hour;
    time.tm_min = minute;
    time.tm_sec = second;
    time.tm_isdst = isDst;
    return time;
}

} // namespace

TEST(ThreadPoolTimer, PassesItselfStaysSetWhenCancelledAndEndsWithItsRun)
{
    LogRecorder const recorder;
    std::atomic<ThreadPoolTimer*> passed = nullptr;
    std::atomic<bool> hasRun = false;
    {
        ThreadPoolTimer timer(
            [&](ThreadPoolTimer& timer)
            {
                passed = &timer;
                passed.notify_all();
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                hasRun = true;
            });
        constexpr auto in20Milliseconds = static_cast<std::uint64_t>(-200'000);
        timer.Start(FILETIME{static_cast<DWORD>(in20Milliseconds), static_cast<DWORD>(in20Milliseconds >> 32)});
        timer.Cancel();
        passed.wait(nullptr);
        EXPECT_EQ(passed, &timer);
    }
    EXPECT_TRUE(hasRun);
    std::vector<std::string> const lines = recorder.LinesWithFunction();
    EXPECT_THAT(std::vector(lines.begin() + 4, lines.begin() + 8),
                ElementsAre("Brindle::Vok::ThreadPoolTimer::Start: [ENTER]",
                            "Brindle::Vok::ThreadPoolTimer::Impl::Start: [ENTER]",
                            "Brindle::Vok::ThreadPoolTimer::Impl::Cancel: [ENTER]",
                            "Brindle::Vok::ThreadPoolTimer::Impl::Cancel: [EXIT]"));
}

TEST(ThreadPoolTimer, TakesLocalTimesAsTheZoneHasThem)
{
    constexpr char const* utc = "UTC0";
    constexpr char const* berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
    constexpr std::int64_t invalid = -1;
    struct Case
    {
        char const* zone;
        std::tm time;
        std::int64_t seconds; ///< since 1970
    };
    for (Case const& each : {Case{utc, Local(1970, 1, 1), 0},
                             {utc, Local(1969, 12, 31, 23, 59, 59), invalid},
                             {utc, Local(3000, 12, 31, 23, 59, 59), 32'535'215'999},
                             {utc, Local(3001, 1, 1), invalid},
                             {utc, Local(2020, 14, -1, 25, 61, -1), 1'612'058'459},
                             {berlin, Local(1970, 1, 1), invalid},
                             {berlin, Local(2024, 7, 1, 12, 0, 0, 0), 1'719'828'000},
                             {berlin, Local(2024, 1, 1, 12, 0, 0, 1), 1'704'106'800},
                             {"EST5EDT,M3.2.0,M11.1.0", Local(1970, 1, 1), 18'000}})
    {
        HostVariable const zone("TZ", each.zone);
        ::tzset();
        std::int64_t handed = 0;
        set = [&](std::int64_t due, DWORD period, DWORD windowLength)
        { handed = period == 0 && windowLength == 0 ? due : 0; };
        ThreadPoolTimer(nullptr).Start(each.time);
        set = nullptr;
        EXPECT_EQ(handed, year1970 + each.seconds * 10'000'000) << each.zone << ' ' << each.seconds;
    }
}
