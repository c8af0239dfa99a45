#include "TimerQueue.h"

#include "Support/Directories.h"
#include "Support/StandIn.h"

#include <set>

using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;
using namespace std::chrono_literals;

namespace
{

using Ticks = std::int64_t;
constexpr Ticks millisecond = 10'000;
constexpr Ticks hour = 3'600'000 * millisecond;
constexpr Ticks smallest = std::numeric_limits<Ticks>::min();
constexpr Ticks greatest = std::numeric_limits<Ticks>::max();
constexpr Ticks year1970 = 116'444'736'000'000'000;

Ticks Now()
{
    timespec now;
    ::clock_gettime(CLOCK_REALTIME, &now);
    return year1970 + now.tv_sec * 1000 * millisecond + now.tv_nsec / 100;
}

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
    Ticks const begin = Now();
    for (Ticks const due : {begin + hour, -hour, -20 * millisecond})
        sooner.Set(due);
    later.Set(-20 * millisecond);
    later.Set(-hour);
    unset.Set(-20 * millisecond, 1);
    unset.Unset();
    once.Set(-40 * millisecond);
    EXPECT_TRUE(once.HasBegun() && sooner.HasBegun());
    EXPECT_GE(Now() - begin, 36 * millisecond);
    periodic.Set(-millisecond, 5);
    EXPECT_TRUE(periodic.HasBegun(8));
    periodic.Unset();
    periodic.Wait();
    int const runs = periodic.begun;
    std::this_thread::sleep_for(40ms);
    EXPECT_EQ(periodic.begun, runs);
    EXPECT_TRUE(once.begun == 1 && sooner.begun == 1);
    EXPECT_EQ(later.begun + unset.begun, 0);
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

TEST(Timers, ThatBlockHoldNoOtherUp)
{
    std::atomic<bool> isFree = false;
    std::list<Timer> blockers;
    for (int i = 0; i < 12; ++i)
    {
        blockers.emplace_back([&](Timer&) { isFree.wait(false); }).Set(0);
        EXPECT_TRUE(blockers.back().HasBegun());
    }
    Timer last;
    last.Set(-2 * millisecond);
    EXPECT_TRUE(last.HasBegun());
    isFree = true;
    isFree.notify_all();
}

TEST(Timers, InAForkedChildAreThereAndUnset)
{
    std::atomic<bool> isFree = false;
    Timer running([&](Timer&) { isFree.wait(false); });
    running.Set(0);
    EXPECT_TRUE(running.HasBegun());
    Timer set;
    set.Set(-100 * millisecond);
    RunInChild(
        [&]
        {
            running.Wait();
            std::this_thread::sleep_for(150ms);
            EXPECT_EQ(set.begun, 0);
            set.Set(-millisecond);
            EXPECT_TRUE(set.HasBegun());
            set.Close();
            running.Close();
        });
    EXPECT_TRUE(set.HasBegun());
    isFree = true;
    isFree.notify_all();
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
