// Timers as clients see them. The platform's own ones are tested elsewhere.
#include <Brindle/Vok/Synchronization.h>

#include "Support/Directories.h"
#include "Support/HostVariable.h"
#include "Support/LogRecorder.h"
#include "Support/Replacement.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using namespace std::chrono_literals;
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

/// The zone of a scope; the next one that asks for local time takes back what was set before.
struct TimeZone
{
    explicit TimeZone(char const* zone) : variable("TZ", zone) { ::tzset(); }

    HostVariable const variable;
};

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

/// What a time is handed on to the platform as.
std::int64_t Handed(std::tm const& time)
{
    std::int64_t handed = 0;
    set = [&](std::int64_t due, DWORD period, DWORD windowLength)
    {
        handed = due;
        EXPECT_EQ(period, 0U);
        EXPECT_EQ(windowLength, 0U);
    };
    ThreadPoolTimer([](ThreadPoolTimer&) {}).Start(time);
    set = nullptr;
    return handed;
}

} // namespace

TEST(ThreadPoolTimer, LogsItsScopesInOrder)
{
    std::string const name = "Brindle::Vok::ThreadPoolTimer::";
    auto const enter = [&](std::string const& function) { return name + function + ": [ENTER]"; };
    auto const exit = [&](std::string const& function) { return name + function + ": [EXIT]"; };
    std::function<void()> expire;
    create = [&](PTP_TIMER_CALLBACK callback, PVOID context, PTP_CALLBACK_ENVIRON environment)
    {
        EXPECT_EQ(environment, nullptr);
        VOK_LOG(trace, "created");
        expire = [=] { callback(nullptr, context, nullptr); };
        return __real_CreateThreadpoolTimer(callback, context, environment);
    };
    set = [](auto...) { VOK_LOG(trace, "set"); };
    await = [](BOOL cancelsPending)
    {
        EXPECT_TRUE(cancelsPending);
        VOK_LOG(trace, "waited");
    };
    struct Logs
    {
        ~Logs() { VOK_LOG(trace, "gone"); }
    };

    LogRecorder const recorder;
    std::size_t seen = 0;
    auto const next = [&]
    {
        std::vector<std::string> lines;
        for (auto const statements = recorder.Statements(); seen < statements.size(); ++seen)
        {
            bool const isScope = statements[seen].message.front() == '[';
            lines.push_back((isScope ? std::string(statements[seen].function) + ": " : "") + statements[seen].message);
        }
        return lines;
    };
    ThreadPoolTimer* passed = nullptr;
    auto timer = std::make_unique<ThreadPoolTimer>([&, logs = std::make_shared<Logs>()](ThreadPoolTimer& timer)
                                                   { passed = &timer; });
    EXPECT_THAT(next(), ElementsAre("created", enter("Impl::Impl"), exit("Impl::Impl"), enter("ThreadPoolTimer"),
                                    exit("ThreadPoolTimer")));
    for (bool const isLocal : {false, true})
    {
        isLocal ? timer->Start(Local(2030, 1, 1)) : timer->Start(Due(-1));
        EXPECT_THAT(next(), ElementsAre(enter("Start"), enter("Impl::Start"), enter("Impl::Cancel"), "waited",
                                        exit("Impl::Cancel"), "set", exit("Impl::Start"), exit("Start")));
    }
    timer->Cancel();
    EXPECT_THAT(next(), ElementsAre(enter("Cancel"), enter("Impl::Cancel"), "waited", exit("Impl::Cancel"),
                                    exit("Cancel"))); // which doesn't unset it
    expire();
    EXPECT_EQ(passed, timer.get());
    EXPECT_THAT(next(), ElementsAre(enter("Impl::TimerCallback"), enter("Impl::OnTimer"), exit("Impl::OnTimer"),
                                    exit("Impl::TimerCallback")));
    timer.reset();
    EXPECT_THAT(next(),
                ElementsAre(enter("~ThreadPoolTimer"), exit("~ThreadPoolTimer"), enter("Impl::~Impl"),
                            enter("Impl::Cancel"), "waited", exit("Impl::Cancel"), exit("Impl::~Impl"), "gone"));
    {
        ThreadPoolTimer const empty(nullptr);
        expire(); // nothing to call
    }
    next();

    create = [](auto...) { return SetLastError(ERROR_NO_SYSTEM_RESOURCES), nullptr; };
    WindowsError const error = Thrown<WindowsError>([] { ThreadPoolTimer(nullptr); });
    EXPECT_EQ(error.code().value(), ERROR_NO_SYSTEM_RESOURCES);
    EXPECT_EQ(WithoutLine(error.Message()), "Source/Vok/Synchronization.cpp: " + name + "Impl::Impl " +
                                                WindowsErrorToStringA(ERROR_NO_SYSTEM_RESOURCES) +
                                                " (Windows Error 1450). CreateThreadpoolTimer");
    auto const lines = next();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines.front(), enter("Impl::Impl"));
    EXPECT_EQ(lines.back(), name + "Impl::Impl: [EXCEPTION EXIT]");
    create = nullptr;
    set = nullptr;
    await = nullptr;
}

TEST(ThreadPoolTimer, TakesLocalTimesAsTheZoneHasThem)
{
    constexpr char const* utc = "UTC0";
    constexpr char const* berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
    constexpr char const* newYork = "EST5EDT,M3.2.0,M11.1.0";
    constexpr std::int64_t invalid = -1;
    struct Case
    {
        char const* zone;
        std::tm time;
        std::int64_t seconds; ///< since 1970
    };
    for (Case const& each : {Case{utc, Local(1970, 1, 1), 0},
                             {utc, Local(1970, 1, 1, 0, 0, 1), 1},
                             {utc, Local(1969, 12, 31, 23, 59, 59), invalid},
                             {utc, Local(1500, 6, 1), invalid},
                             {utc, Local(2039, 1, 1), 2'177'452'800},
                             {utc, Local(3000, 12, 31, 23, 59, 59), 32'535'215'999},
                             {utc, Local(3001, 1, 1), invalid},
                             {utc, Local(2147483647, 1, 1), invalid},
                             {utc, Local(2020, 14, -1, 25, 61, -1), 1'612'058'459},
                             {berlin, Local(1970, 1, 1), invalid},
                             {berlin, Local(2024, 7, 1, 12, 0, 0, 0), 1'719'828'000},
                             {berlin, Local(2024, 7, 1, 12, 0, 0, 1), 1'719'828'000},
                             {berlin, Local(2024, 1, 1, 12, 0, 0, 1), 1'704'106'800},
                             {newYork, Local(1970, 1, 1), 18'000},
                             {newYork, Local(2024, 1, 1, 12, 0, 0, 1), 1'704'128'400}})
    {
        TimeZone const zone(each.zone);
        EXPECT_EQ(Handed(each.time), year1970 + each.seconds * 10'000'000) << each.zone << ' ' << each.seconds;
    }
    // One that daylight saving leaves out is read as if it didn't begin then, or had begun.
    TimeZone const zone(newYork);
    EXPECT_THAT(Handed(Local(2024, 3, 10, 2, 30)) / 10'000'000 - year1970 / 10'000'000,
                testing::AnyOf(1'710'055'800, 1'710'052'200));

    std::tm wrong = Local(1960, 1, 32);
    EXPECT_EQ(_mktime64(&wrong), -1);
    EXPECT_EQ(wrong.tm_mday, 32);
    std::tm right = Local(2024, 1, 32, 0, 0, 0, -1);
    EXPECT_EQ(_mktime64(&right), 1'706'763'600);
    EXPECT_EQ(right.tm_mon, 1);
    EXPECT_EQ(right.tm_mday, 1);
    EXPECT_EQ(_mktime64(nullptr), -1);
}

TEST(ThreadPoolTimer, ComesAndGoesOnManyThreads)
{
    auto const until = std::chrono::steady_clock::now() + (TakesLong() ? 60s : 300ms);
    std::atomic<int> runs = 0;
    std::array<std::shared_ptr<ThreadPoolTimer>, 4> timers; // which all threads share, two at a time
    std::mutex mutex;
    std::vector<std::thread> threads;
    for (unsigned seed = 0; seed < 8; ++seed)
        threads.emplace_back(
            [&, seed]
            {
                std::mt19937 random(seed);
                while (std::chrono::steady_clock::now() < until)
                {
                    auto& place = timers[random() % timers.size()];
                    std::unique_lock lock(mutex);
                    auto timer = place;
                    lock.unlock();
                    if (!timer || random() % 8 == 0)
                    {
                        auto life = std::make_shared<int>(42);
                        timer =
                            std::make_shared<ThreadPoolTimer>([&runs, life](ThreadPoolTimer&) { runs += *life / 42; });
                        lock.lock();
                        auto const old = std::exchange(place, timer);
                        lock.unlock();
                    }
                    std::int64_t const from = static_cast<std::int64_t>(random() % 2000);
                    random() % 3 == 0 ? timer->Cancel() : timer->Start(Due(-1 - from));
                    if (random() % 4 == 0)
                        std::this_thread::sleep_for(50us);
                }
            });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GT(runs, 10);
}
