#include "SystemCalls.h"
#include "TimerQueue.h"

#include "Support/ChildProcess.h"
#include "Support/Descriptors.h"
#include "Support/Directories.h"
#include "Support/HostFaults.h"

#include <Brindle/Platform/Timers.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <vector>

using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;
using namespace std::chrono_literals;

namespace
{

using Ticks = std::int64_t;
constexpr Ticks millisecond = 10'000;
constexpr Ticks second = 1000 * millisecond;
constexpr Ticks hour = 3600 * second;
constexpr Ticks smallest = std::numeric_limits<Ticks>::min();
constexpr Ticks greatest = std::numeric_limits<Ticks>::max();
constexpr Ticks year1970 = 116'444'736'000'000'000;

Ticks Now()
{
    timespec now;
    ::clock_gettime(CLOCK_REALTIME, &now);
    return year1970 + now.tv_sec * second + now.tv_nsec / 100;
}

/// In between the pool and the host from before the pool's first thread on.
struct Seam
{
    Seam()
    {
        SystemCalls::MakeTimer.replacement = [this](clockid_t clock, int flags)
        {
            int const descriptor = SystemCalls::MakeTimer.host(clock, flags);
            std::lock_guard const lock(mutex);
            clocks[descriptor] = clock;
            return descriptor;
        };
        SystemCalls::SetTimer.replacement = [this](int descriptor, int flags, itimerspec const* time)
        {
            std::lock_guard const lock(mutex);
            EXPECT_EQ(flags, TFD_TIMER_ABSTIME);
            EXPECT_EQ(time->it_interval.tv_sec + time->it_interval.tv_nsec, 0);
            if (clocks[descriptor] != CLOCK_REALTIME)
                return SystemCalls::SetTimer.host(descriptor, flags, time);
            realTimer = descriptor;
            setTo = time->it_value;
            return SetRealTimer();
        };
        SystemCalls::GetTime.replacement = [this](clockid_t clock, timespec* time)
        {
            bool const isOfProcess = clock == CLOCK_PROCESS_CPUTIME_ID;
            int const result = SystemCalls::GetTime.host(isOfProcess ? CLOCK_MONOTONIC : clock, time);
            time->tv_sec += clock == CLOCK_REALTIME ? ahead.load() / second : 0;
            if (isOfProcess)
                time->tv_sec = areProcessorsBusy ? time->tv_sec * 1000 + time->tv_nsec / 1'000'000 : 0;
            return result;
        };
        SystemCalls::WaitForPoll.replacement = [this](int poll, epoll_event* events, int count, int milliseconds)
        {
            EXPECT_TRUE(milliseconds == -1 || milliseconds == 5000);
            return SystemCalls::WaitForPoll.host(poll, events, count, milliseconds < 0 ? -1 : idleMilliseconds.load());
        };
        SystemCalls::StartThread.replacement = [this](auto... arguments)
        { return threadsToStart-- > 0 ? SystemCalls::StartThread.host(arguments...) : EAGAIN; };
    }

    /// As when somebody sets the host's clock, to so much ahead of what it is.
    void SetClock(Ticks to)
    {
        std::lock_guard const lock(mutex);
        ahead = to;
        SetRealTimer();
    }

    int SetRealTimer() const
    {
        itimerspec time{{}, setTo};
        time.it_value.tv_sec -= ahead / second;
        if (time.it_value.tv_sec < 0)
            time.it_value = {0, 1};
        return SystemCalls::SetTimer.host(realTimer, TFD_TIMER_ABSTIME, &time);
    }

    std::mutex mutex;
    std::map<int, clockid_t> clocks;
    int realTimer = -1;
    timespec setTo{};
    std::atomic<Ticks> ahead = 0;
    std::atomic<bool> areProcessorsBusy = false;
    std::atomic<int> idleMilliseconds = 5000;
    std::atomic<int> threadsToStart = 1'000'000;
};

Seam& seam = *new Seam; // the pool's threads are still there at the end

template <class Condition>
bool Becomes(Condition condition)
{
    for (auto const begin = std::chrono::steady_clock::now(); !condition(); std::this_thread::sleep_for(1ms))
        if (std::chrono::steady_clock::now() - begin > 20s)
            return false;
    return true;
}

class Timer
{
public:
    explicit Timer(std::function<void(Timer&)> run = [](Timer&) {}) : run(std::move(run)) { EXPECT_TRUE(timer); }
    ~Timer() { Close(); }
    Timer(Timer const&) = delete;
    Timer& operator=(Timer const&) = delete;

    void Set(Ticks due, DWORD period = 0)
    {
        auto const bits = static_cast<std::uint64_t>(due);
        FILETIME time{static_cast<DWORD>(bits), static_cast<DWORD>(bits >> 32)};
        SetThreadpoolTimer(timer, &time, period, 0);
    }
    void Unset() { SetThreadpoolTimer(timer, nullptr, 0, 0); }
    void Wait(bool cancelsPending = true) { WaitForThreadpoolTimerCallbacks(timer, cancelsPending); }
    void Close()
    {
        if (timer)
            CloseThreadpoolTimer(timer);
        timer = nullptr; // not before: a callback may still use it
    }
    bool HasBegun(int times = 1) const
    {
        return Becomes([&] { return begun >= times; });
    }

    std::atomic<int> begun = 0;
    std::atomic<int> ended = 0;

private:
    static void WINAPI Run(PTP_CALLBACK_INSTANCE instance, PVOID context, PTP_TIMER timer)
    {
        auto& self = *static_cast<Timer*>(context);
        EXPECT_EQ(instance, nullptr);
        EXPECT_TRUE(timer);
        ++self.begun;
        self.run(self);
        ++self.ended;
    }

    std::function<void(Timer&)> const run;
    PTP_TIMER timer = CreateThreadpoolTimer(Run, this, nullptr);
};

/// Timers whose callbacks run until they are let go.
class Blockers
{
public:
    ~Blockers() { LetGo(); }
    Timer& Add()
    {
        timers.emplace_back([this](Timer&) { free.wait(false); }).Set(0);
        return timers.back();
    }
    void LetGo()
    {
        free = true;
        free.notify_all();
    }
    /// Leaves no thread to run anything.
    void OccupyAll()
    {
        Add(); // the threads that the pool begins with
        seam.threadsToStart = 0;
        for (bool all = false; !all;)
        {
            Timer const& timer = Add();
            std::this_thread::sleep_for(100ms);
            all = timer.begun == 0;
        }
        timers.back().Wait();
    }

    std::atomic<bool> free = false;
    std::list<Timer> timers;
};

std::ptrdiff_t ThreadCount()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

} // namespace

TEST(TimerQueue, GivesWhatAModelGives)
{
    std::mt19937 random(1);
    std::vector<QueuedTimer> timers(300);
    std::set<std::pair<Ticks, QueuedTimer const*>> model;
    TimerQueue queue;
    queue.Reserve(timers.size());
    for (int step = 0; step < 50'000; ++step)
    {
        QueuedTimer& timer = step % 3 == 0 && !model.empty() ? queue.First() : timers[random() % timers.size()];
        if (timer.IsQueued())
        {
            ASSERT_EQ(model.erase({queue.DueOf(timer), &timer}), 1U);
            queue.Remove(timer);
        }
        else
        {
            Ticks const due = static_cast<Ticks>(random() % 100) - 50;
            model.emplace(due, &timer);
            queue.Add(timer, due);
        }
        ASSERT_EQ(queue.IsEmpty(), model.empty());
        ASSERT_TRUE(model.empty() || queue.FirstDue() == model.begin()->first);
        ASSERT_TRUE(model.empty() || queue.DueOf(queue.First()) == queue.FirstDue());
    }
    queue.Forget();
    EXPECT_TRUE(queue.IsEmpty());
}

TEST(Timers, RunOnceForEachMomentThatStays)
{
    Timer once;
    Timer sooner;
    Timer later;
    Timer unset;
    Timer periodic;
    Timer early;
    Timer late;
    Ticks const begin = Now();
    once.Set(-millisecond);
    for (Ticks const due : {begin + hour, -hour, -millisecond})
        sooner.Set(due);
    later.Set(-20 * millisecond);
    later.Set(-hour);
    unset.Set(-20 * millisecond, 1);
    unset.Unset();
    std::this_thread::sleep_for(40ms); // until nothing is set for a moment that comes first
    early.Set(-20 * millisecond);
    late.Set(-hour);
    EXPECT_TRUE(early.HasBegun());
    periodic.Set(-millisecond, 5);
    EXPECT_TRUE(once.HasBegun() && sooner.HasBegun() && periodic.HasBegun(8));
    EXPECT_GE(Now() - begin, 36 * millisecond);
    periodic.Unset();
    periodic.Wait();
    int const runs = periodic.begun;
    std::this_thread::sleep_for(40ms);
    EXPECT_EQ(once.begun, 1);
    EXPECT_EQ(sooner.begun, 1);
    EXPECT_EQ(later.begun + unset.begun, 0);
    EXPECT_EQ(periodic.begun, runs);
    once.Set(Now() + millisecond);
    EXPECT_TRUE(once.HasBegun(2));
}

TEST(Timers, DueAtTheEndsOfTimeRunAtOnceOrNever)
{
    std::pair<Ticks, bool> const cases[] = {
        {0, true},         {year1970, true},      {Now() - hour, true}, {Now() + hour, false},
        {greatest, false}, {year1970 * 2, false}, {-1, true},           {-hour, false},
        {smallest, false}, {smallest + 1, false}, {smallest / 2, false}};
    std::list<Timer> timers;
    for (auto const& [due, runs] : cases)
        for (DWORD const period : {DWORD{0}, ~DWORD{0}})
        {
            Timer& timer = timers.emplace_back();
            timer.Set(due, period);
            EXPECT_TRUE(!runs || timer.HasBegun()) << due;
            std::this_thread::sleep_for(2ms);
            timer.Wait();
            EXPECT_EQ(timer.begun, runs ? 1 : 0) << due;
        }
}

TEST(Timers, AbsoluteTimesFollowTheClockAndIntervalsDoNot)
{
    Timer absolute;
    Timer interval;
    interval.Set(-30 * second);
    absolute.Set(Now() + hour);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(absolute.begun, 0);
    seam.SetClock(hour);
    EXPECT_TRUE(absolute.HasBegun());
    absolute.Set(Now() + hour + 50 * millisecond);
    seam.SetClock(0); // an hour away again
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(absolute.begun, 1);
    absolute.Set(0);
    EXPECT_TRUE(absolute.HasBegun(2));
    absolute.Set(Now() + 30 * millisecond);
    seam.SetClock(-hour);
    std::this_thread::sleep_for(60ms);
    EXPECT_EQ(absolute.begun, 2);
    seam.SetClock(0);
    EXPECT_TRUE(absolute.HasBegun(3));
    EXPECT_EQ(interval.begun, 0);
}

TEST(Timers, HaveThreadsThatOnlyTheirOwnFaultsInterrupt)
{
    Timer timer(
        [](Timer&)
        {
            sigset_t blocked;
            ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
            for (int const signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS})
                EXPECT_FALSE(sigismember(&blocked, signal)) << signal;
            for (int const signal : {SIGTERM, SIGINT, SIGCHLD, SIGALRM, SIGUSR1})
                EXPECT_TRUE(sigismember(&blocked, signal)) << signal;
        });
    timer.Set(0);
    EXPECT_TRUE(timer.HasBegun());
    std::lock_guard const lock(seam.mutex);
    for (auto const& [descriptor, clock] : seam.clocks)
        EXPECT_EQ(::fcntl(descriptor, F_GETFD), FD_CLOEXEC);
}

TEST(Timers, WaitingDropsWhatIsDueAndLeavesWhatIsToCome)
{
    Timer coming;
    coming.Set(-30 * millisecond);
    coming.Wait();
    coming.Wait(false);
    EXPECT_EQ(coming.begun, 0);
    EXPECT_TRUE(coming.HasBegun());

    Timer running([](Timer&) { std::this_thread::sleep_for(50ms); });
    for (bool const cancels : {true, false})
    {
        int const before = running.begun;
        running.Set(0);
        EXPECT_TRUE(running.HasBegun(before + 1));
        running.Wait(cancels);
        EXPECT_EQ(running.ended, before + 1);
    }
}

TEST(Timers, WaitingForWhatIsDueEndsWithItsRunOrItsEnd)
{
    Blockers blockers;
    blockers.OccupyAll();
    Timer dropped;
    dropped.Set(0);
    dropped.Wait();

    struct Case
    {
        char const* name;
        std::function<void(Timer&)> end;
        int runs;
    };
    for (Case const& each : {Case{"unset", [](Timer& timer) { timer.Unset(); }, 0},
                             {"set anew", [](Timer& timer) { timer.Set(-hour); }, 0},
                             {"dropped", [](Timer& timer) { timer.Wait(); }, 0},
                             {"run", [&](Timer&) { blockers.LetGo(); }, 1}})
    {
        Timer timer;
        std::atomic<bool> waited = false;
        timer.Set(0);
        std::thread waiting([&] { timer.Wait(false), waited = true; });
        std::this_thread::sleep_for(30ms);
        EXPECT_FALSE(waited) << each.name;
        each.end(timer);
        EXPECT_TRUE(Becomes([&] { return waited.load(); })) << each.name;
        waiting.join();
        EXPECT_EQ(timer.ended, each.runs) << each.name;
    }
    seam.threadsToStart = 1'000'000;
    EXPECT_EQ(dropped.begun, 0);
}

TEST(Timers, WithoutAThreadTheyRunWhenOneIsFreeOrStarts)
{
    Blockers blockers;
    blockers.OccupyAll();
    Timer timer;
    timer.Set(0);
    seam.threadsToStart = 1'000'000;
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(timer.begun, 0);
    timer.Set(0);
    EXPECT_TRUE(timer.HasBegun());
}

TEST(Timers, ClosingWaitsAndEndsThem)
{
    Timer itself([](Timer& timer) { timer.Close(); });
    itself.Set(0, 1000);
    EXPECT_TRUE(Becomes([&] { return itself.ended == 1; }));

    Timer again(
        [](Timer& timer)
        {
            std::this_thread::sleep_for(30ms);
            timer.Set(0, 1);
        });
    again.Set(0);
    EXPECT_TRUE(again.HasBegun());
    again.Close();
    int const runs = again.begun;
    EXPECT_EQ(again.ended, runs);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(again.begun, runs);
}

TEST(Timers, NothingRunsBehindTheClosing)
{
    auto const until = std::chrono::steady_clock::now() + (TakesLong() ? 60s : 300ms);
    std::atomic<int> runs = 0;
    std::vector<std::thread> threads;
    for (unsigned seed = 0; seed < 4; ++seed)
        threads.emplace_back(
            [&, seed]
            {
                std::mt19937 random(seed);
                while (std::chrono::steady_clock::now() < until)
                {
                    auto life = std::make_unique<int>(42); // a run behind the closing reads what is freed
                    Timer timer([&runs, alive = life.get()](Timer&) { runs += *alive == 42 ? 1 : -1'000'000; });
                    for (unsigned step = random() % 4; step-- > 0;)
                    {
                        Ticks const from = random() % 3000;
                        timer.Set(random() % 2 ? Now() + from : -1 - from, random() % 4 == 0);
                        if (random() % 2)
                            std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
                        if (random() % 3 == 0)
                            timer.Wait(random() % 2);
                    }
                    timer.Close();
                    *life = 0;
                }
            });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GT(runs, 10);
}

TEST(Timers, ThatAreDueAtOnceGetThreadsWhereThatHelps)
{
    for (bool const areProcessorsBusy : {true, false})
    {
        seam.areProcessorsBusy = areProcessorsBusy;
        int const count = areProcessorsBusy ? 10'000 : 300;
        auto const before = ThreadCount();
        std::atomic<std::ptrdiff_t> most = 0;
        auto const work = [&](int i)
        {
            std::this_thread::sleep_for(std::chrono::microseconds(areProcessorsBusy ? 20 : 1000 + i * 30));
            if (i % (count / 100) == 0)
                most = std::max(most.load(), ThreadCount());
        };
        std::list<Timer> timers;
        Ticks const due = Now() + 100 * millisecond;
        for (int i = 0; i < count; ++i)
            timers.emplace_back([&, i](Timer&) { work(i); }).Set(due);
        for (Timer const& timer : timers)
            ASSERT_TRUE(timer.HasBegun());
        // Some come also when the machine stops all of them for a moment.
        EXPECT_TRUE(areProcessorsBusy ? most - before < 200 : most - before >= 32) << most - before;
        seam.areProcessorsBusy = false;
    }
}

TEST(Timers, ThatAreOverHaveTheirTurn)
{
    std::atomic<bool> isOver = false;
    auto const repeat = [&](Timer& timer)
    {
        std::this_thread::sleep_for(100us);
        if (!isOver)
            timer.Set(0);
    };
    std::list<Timer> again;
    for (int i = 0; i < 20; ++i)
        again.emplace_back(repeat).Set(0);
    Timer timer;
    timer.Set(-millisecond);
    EXPECT_TRUE(timer.HasBegun());
    isOver = true;
}

TEST(Timers, ThatBlockHoldNoOtherUpAndIdleThreadsEnd)
{
    RunInChild(
        []
        {
            seam.idleMilliseconds = 20;
            std::thread([] {}).join(); // ThreadSanitizer has one of its own from then on
            auto const before = ThreadCount();
            for (int round = 0; round < 2; ++round)
            {
                Blockers blockers;
                for (int i = 0; i < 12; ++i)
                    EXPECT_TRUE(blockers.Add().HasBegun());
                Timer& last = blockers.timers.emplace_back();
                last.Set(-2 * millisecond);
                EXPECT_TRUE(last.HasBegun());
                EXPECT_GE(ThreadCount(), before + 12);
                blockers.LetGo();
                EXPECT_TRUE(Becomes([&] { return ThreadCount() == before + 2; })) << ThreadCount();
                std::this_thread::sleep_for(60ms);
                EXPECT_EQ(ThreadCount(), before + 2);
                blockers.timers.clear();
                EXPECT_TRUE(Becomes([&] { return ThreadCount() == before; })) << ThreadCount();
            }
        });
}

TEST(Timers, InAForkedChildAreThereAndUnset)
{
    Blockers blockers;
    Timer& running = blockers.Add();
    EXPECT_TRUE(running.HasBegun());
    Timer closed;
    closed.Set(-hour);
    Timer set;
    set.Set(-100 * millisecond);
    EXPECT_EQ(InChild(
                  [&]
                  {
                      running.Wait();
                      std::this_thread::sleep_for(150ms);
                      EXPECT_EQ(set.begun, 0);
                      {
                          SystemCalls::Redirection const none(SystemCalls::MakePoll, FailingWith(EMFILE));
                          set.Set(-millisecond); // without effect until another try
                      }
                      Timer second;
                      second.Set(-5 * millisecond);
                      EXPECT_TRUE(set.HasBegun());
                      EXPECT_TRUE(second.HasBegun());
                      set.Close();
                      closed.Close();
                      Timer fresh;
                      fresh.Set(Now() + millisecond);
                      EXPECT_TRUE(fresh.HasBegun());
                      running.Close();
                  }),
              0);
    EXPECT_TRUE(set.HasBegun());
}

// Neither sanitizer bears the end of a thread that has become the first one of a child.
#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
TEST(Timers, CallbackThatComesBackInAForkedChildEndsIt)
{
    std::atomic<pid_t> child = -1;
    Timer forks([&](Timer&) { child = ::fork(); });
    forks.Set(0);
    forks.HasBegun();
    forks.Wait();
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}
#endif

TEST(Timers, NeedAFunctionTheDefaultPoolAndAThread)
{
    EXPECT_EQ(CreateThreadpoolTimer(nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    int environment;
    EXPECT_EQ(CreateThreadpoolTimer([](auto...) {}, nullptr, reinterpret_cast<PTP_CALLBACK_ENVIRON>(&environment)),
              nullptr);
    EXPECT_EQ(GetLastError(), ERROR_NOT_SUPPORTED);

    EXPECT_EQ(InChild(
                  []
                  {
                      seam.threadsToStart = 1; // does for those that are quick
                      Timer timer;
                      timer.Set(-millisecond);
                      EXPECT_TRUE(timer.HasBegun());
                  }),
              0);
}

TEST(Timers, WhoseCallbackThrowsEndTheProcess)
{
    auto const run = []
    {
        Timer timer([](Timer&) { throw 1; });
        timer.Set(0);
        std::this_thread::sleep_for(20s);
    };
    EXPECT_EQ(InChild(run), -SIGABRT);
}
