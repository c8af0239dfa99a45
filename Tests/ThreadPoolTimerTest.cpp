// Timers as clients see them. The platform's own ones are tested elsewhere.
#include <Brindle/Vok/Synchronization.h>

#include "Support/HostVariable.h"
#include "Support/Replacement.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::ElementsAre;

namespace
{

/// What the calls of a thread give or get in the place of the platform's own.
thread_local std::function<PTP_TIMER(PTP_TIMER_CALLBACK, PVOID, PTP_CALLBACK_ENVIRON)> create;
thread_local std::function<void(BOOL cancelsPending)> await;
thread_local std::function<void(std::int64_t due, DWORD period, DWORD windowLength)> set;

} // namespace

VOK_TEST_REPLACE(create, create(a, b, c), PTP_TIMER, CreateThreadpoolTimer,
                 (PTP_TIMER_CALLBACK a, PVOID b, PTP_CALLBACK_ENVIRON c), (a, b, c))
VOK_TEST_REPLACE(await, await(b), void, WaitForThreadpoolTimerCallbacks, (PTP_TIMER a, BOOL b), (a, b))
VOK_TEST_REPLACE(set,
                 set(static_cast<std::int64_t>(std::uint64_t{due->dwHighDateTime} << 32 | due->dwLowDateTime), c, d),
                 void, SetThreadpoolTimer, (PTP_TIMER a, LPFILETIME due, DWORD c, DWORD d), (a, due, c, d))

namespace
{

constexpr std::int64_t year1970 = 116'444'736'000'000'000;

FILETIME Due(std::int64_t ticks)
{
    auto const bits = static_cast<std::uint64_t>(ticks);
    return {static_cast<DWORD>(bits), static_cast<DWORD>(bits >> 32)};
}

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

TEST(ThreadPoolTimer, LogsItsScopesInOrder)
{
    std::function<void()> expire;
    create = [&](PTP_TIMER_CALLBACK callback, PVOID context, PTP_CALLBACK_ENVIRON environment)
    {
        VOK_LOG(trace, "created");
        expire = [=] { callback(nullptr, context, nullptr); };
        return __real_CreateThreadpoolTimer(callback, context, environment);
    };
    set = [](auto...) { VOK_LOG(trace, "set"); };
    await = [](BOOL cancelsPending) { VOK_LOG(trace, "{}", cancelsPending ? "waited" : "waited for all"); };
    std::string const name = "Brindle::Vok::ThreadPoolTimer::";
    std::vector<std::string> lines;
    SubscriptionForLogCallbacks const subscription(
        [&](LogStatement const& statement)
        {
            std::string_view const function = statement.function;
            bool const isScope = function.starts_with(name);
            lines.push_back((isScope ? std::string(function.substr(name.size())) + ' ' : "") + statement.message);
        },
        VokLogSeverity::trace);
    ThreadPoolTimer* passed = nullptr;
    auto timer = std::make_unique<ThreadPoolTimer>([&](ThreadPoolTimer& timer) { passed = &timer; });
    timer->Start(Due(-1));
    timer->Cancel(); // which doesn't unset it
    expire();
    EXPECT_EQ(passed, timer.get());
    timer.reset();
    EXPECT_THAT(lines, ElementsAre("created", "Impl::Impl [ENTER]", "Impl::Impl [EXIT]", "ThreadPoolTimer [ENTER]",
                                   "ThreadPoolTimer [EXIT]", "Start [ENTER]", "Impl::Start [ENTER]",
                                   "Impl::Cancel [ENTER]", "waited", "Impl::Cancel [EXIT]", "set", "Impl::Start [EXIT]",
                                   "Start [EXIT]", "Cancel [ENTER]", "Impl::Cancel [ENTER]", "waited",
                                   "Impl::Cancel [EXIT]", "Cancel [EXIT]", "Impl::TimerCallback [ENTER]",
                                   "Impl::OnTimer [ENTER]", "Impl::OnTimer [EXIT]", "Impl::TimerCallback [EXIT]",
                                   "~ThreadPoolTimer [ENTER]", "~ThreadPoolTimer [EXIT]", "Impl::~Impl [ENTER]",
                                   "Impl::Cancel [ENTER]", "waited", "Impl::Cancel [EXIT]", "Impl::~Impl [EXIT]"));
    create = nullptr;
    set = nullptr;
    await = nullptr;
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
