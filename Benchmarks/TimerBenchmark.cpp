// Timers beside asio's, which one thread runs, and Poco's. Platform is the timer of the platform without our class.
//
// - Lateness: a timer is due in 2 milliseconds, and the machine is idle. The time runs from then until its callback
//   looks at the clock, in microseconds: `median`, `p99`. Each turn sets one of the row and one of asio's, as the
//   machine's speed changes by the minute; `ratio` and `ratio99` are to asio's.
// - Arm: a timer that is set for in two seconds and unset again, alone or with 10,000 others that stay set. Asio's
//   cancelled waits are completed by its thread, or in the row AsioAlone by the thread that cancels, with no other. Vok
//   is Start, which replaces the time before.
// - AtOnce: 10,000 timers are due at one moment: from then until the last callback has begun. `threads` ran them.
// - Many: 1,000,000 timers are set for moments of the next hour; the time and the bytes of one. They are made before.
#include <Brindle/Vok/Synchronization.h>

#include <Poco/Timer.h>
#include <asio.hpp>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <malloc.h>
#include <optional>
#include <random>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <utility>
#include <vector>

using namespace Brindle::Vok;

namespace
{

/// In nanoseconds.
std::int64_t Now()
{
    timespec now;
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1'000'000'000 + now.tv_nsec;
}

FILETIME In(std::int64_t nanoseconds)
{
    auto const ticks = static_cast<std::uint64_t>(-(nanoseconds / 100));
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

/// What every callback does.
class Heard
{
public:
    void Tell()
    {
        thread_local unsigned lastRound = 0;
        if (std::exchange(lastRound, round) != round)
            threads.fetch_add(1, std::memory_order_relaxed);
        when.store(Now(), std::memory_order_relaxed);
        count.fetch_add(1, std::memory_order_release);
    }
    /// When the last one was told.
    std::int64_t Await(long wanted) const
    {
        while (count.load(std::memory_order_acquire) < wanted)
            ::usleep(100);
        return when;
    }

    std::atomic<long> threads = 0;

private:
    static inline std::atomic<unsigned> rounds = 0;
    unsigned const round = ++rounds;
    std::atomic<std::int64_t> when = 0;
    std::atomic<long> count = 0;
};

Heard* heard = nullptr;

// The timers. Each has a function for In and what makes it one of many.

class Ours
{
public:
    void Set(std::int64_t nanoseconds) { timer.Start(In(nanoseconds)); }
    void Arm() { Set(2'000'000'000); }

private:
    ThreadPoolTimer timer{[](ThreadPoolTimer&) { heard->Tell(); }};
};

class Platform
{
public:
    Platform() = default;
    Platform(Platform const&) = delete;
    Platform& operator=(Platform const&) = delete;
    ~Platform()
    {
        WaitForThreadpoolTimerCallbacks(timer, TRUE);
        CloseThreadpoolTimer(timer);
    }
    void Set(std::int64_t nanoseconds)
    {
        FILETIME due = In(nanoseconds);
        SetThreadpoolTimer(timer, &due, 0, 0);
    }
    void Arm()
    {
        Set(2'000'000'000);
        SetThreadpoolTimer(timer, nullptr, 0, 0);
    }

private:
    PTP_TIMER const timer =
        CreateThreadpoolTimer([](PTP_CALLBACK_INSTANCE, PVOID, PTP_TIMER) { heard->Tell(); }, nullptr, nullptr);
};

template <bool hasThread>
class Asio
{
public:
    void Set(std::int64_t nanoseconds)
    {
        timer.expires_after(std::chrono::nanoseconds(nanoseconds));
        timer.async_wait(
            [](asio::error_code error)
            {
                if (!error)
                    heard->Tell();
            });
    }
    void Arm()
    {
        Set(2'000'000'000);
        timer.cancel();
        if constexpr (!hasThread)
            Context().poll();
    }

private:
    static asio::io_context& Context()
    {
        // Neither goes at the end of the process, when the thread still uses them.
        static asio::io_context& context = *new asio::io_context;
        static auto const& work [[maybe_unused]] = *new auto(asio::make_work_guard(context));
        if constexpr (hasThread) [[maybe_unused]]
            static std::thread* const thread = new std::thread([] { context.run(); });
        return context;
    }

    asio::steady_timer timer{Context()};
};

class PocoTimer
{
public:
    ~PocoTimer() { timer.stop(); }
    void Set(std::int64_t nanoseconds)
    {
        timer.stop();
        timer.setStartInterval(static_cast<long>(nanoseconds / 1'000'000));
        timer.start(Poco::TimerCallback<PocoTimer>(*this, &PocoTimer::Tell));
    }

private:
    void Tell(Poco::Timer&) { heard->Tell(); }

    Poco::Timer timer;
};

// What is measured

double Quantile(std::vector<double>& values, double part)
{
    auto const place = values.begin() + static_cast<std::ptrdiff_t>(static_cast<double>(values.size() - 1) * part);
    std::nth_element(values.begin(), place, values.end());
    return *place;
}

/// In microseconds, of a timer that is set now.
double LatenessOf(auto& timer)
{
    Heard told;
    heard = &told;
    std::int64_t const due = Now() + 2'000'000;
    timer.Set(2'000'000);
    ::usleep(2500); // and nothing else happens meanwhile
    return static_cast<double>(told.Await(1) - due) * 1e-3;
}

template <class Timer>
void Lateness(benchmark::State& state)
{
    std::vector<double> times;
    std::vector<double> asioTimes;
    Timer timer;
    Asio<true> asio;
    for (auto _ : state)
    {
        times.push_back(LatenessOf(timer));
        asioTimes.push_back(LatenessOf(asio));
        state.SetIterationTime(times.back() * 1e-6);
    }
    double const median = Quantile(times, 0.5);
    double const p99 = Quantile(times, 0.99);
    state.counters["median"] = median;
    state.counters["p99"] = p99;
    state.counters["ratio"] = median / Quantile(asioTimes, 0.5);
    state.counters["ratio99"] = p99 / Quantile(asioTimes, 0.99);
}

template <class Timer>
void Arm(benchmark::State& state)
{
    std::deque<Timer> others(static_cast<std::size_t>(state.range(0)));
    for (Timer& other : others)
        other.Set(600'000'000'000);
    Timer timer;
    for (auto _ : state)
        timer.Arm();
}

template <class Timer>
void AtOnce(benchmark::State& state)
{
    constexpr long count = 10'000;
    double threads = 0;
    for (auto _ : state)
    {
        Heard told;
        heard = &told;
        std::deque<Timer> timers(count);
        std::int64_t const due = Now() + 100'000'000;
        for (Timer& timer : timers)
            timer.Set(due - Now());
        state.SetIterationTime(static_cast<double>(told.Await(count) - due) * 1e-9);
        threads = std::max(threads, static_cast<double>(told.threads));
    }
    state.counters["threads"] = threads;
}

double BytesInUse()
{
    struct mallinfo2 const info = ::mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

template <class Timer>
void Many(benchmark::State& state)
{
    constexpr std::size_t count = 1'000'000;
    std::mt19937_64 random(1);
    std::vector<std::int64_t> times(count);
    for (std::int64_t& time : times)
        time = 600'000'000'000 + static_cast<std::int64_t>(random() % 3'000'000'000'000);
    for (auto _ : state)
    {
        double const before = BytesInUse();
        std::deque<Timer> timers(count);
        std::int64_t const begin = Now();
        for (std::size_t i = 0; i < count; ++i)
            timers[i].Set(times[i]);
        auto const spent = static_cast<double>(Now() - begin);
        state.SetIterationTime(spent * 1e-9);
        state.counters["ns"] = spent / count;
        state.counters["bytes"] = (BytesInUse() - before) / count;
    }
}

[[maybe_unused]] bool const isRegistered = []
{
    struct Row
    {
        char const* name;
        void (*run)(benchmark::State&);
    };
    for (Row const& row : {Row{"Lateness/Vok", Lateness<Ours>}, Row{"Lateness/Platform", Lateness<Platform>},
                           Row{"Lateness/Asio", Lateness<Asio<true>>}, Row{"Lateness/Poco", Lateness<PocoTimer>}})
        benchmark::RegisterBenchmark(row.name, row.run)
            ->Iterations(2000)
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
    for (Row const& row : {Row{"Arm/Vok", Arm<Ours>}, Row{"Arm/Platform", Arm<Platform>},
                           Row{"Arm/Asio", Arm<Asio<true>>}, Row{"Arm/AsioAlone", Arm<Asio<false>>}})
        benchmark::RegisterBenchmark(row.name, row.run)->Arg(0)->Arg(10'000)->UseRealTime();
    for (Row const& row : {Row{"AtOnce/Vok", AtOnce<Ours>}, Row{"AtOnce/Platform", AtOnce<Platform>},
                           Row{"AtOnce/Asio", AtOnce<Asio<true>>}})
        benchmark::RegisterBenchmark(row.name, row.run)->Iterations(10)->UseManualTime()->Unit(benchmark::kMillisecond);
    for (Row const& row :
         {Row{"Many/Vok", Many<Ours>}, Row{"Many/Platform", Many<Platform>}, Row{"Many/Asio", Many<Asio<false>>}})
        benchmark::RegisterBenchmark(row.name, row.run)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
    return true;
}();

} // namespace
