// Learning of changes in a directory, beside a thread that blocks in read() on the host's own watch, Poco and Qt.
//
// - Change: one file is made while the watcher is asleep. The time runs from just before the creation to when the
//   watcher's thread begins the callback and looks at the clock, so that no row depends on how the maker is woken. The
//   host wakes the watcher before the creation returns; `making` is what the creation takes by itself, which is in all
//   rows. Each turn makes one file for the row's watcher and one for a plain one, each first in turn, as the machine's
//   speed changes by the minute; `ratio` is that of the medians. In microseconds: `median`, `p90`, `plain`, and the
//   `cpu` of the watcher's thread for an event that comes alone. In the rows Apart the maker and the watcher have a
//   processor each. In the others the host's scheduler chooses, which often is to run the watcher where the maker is:
//   in the middle of the creation or behind it, by what both ran before.
// - Burst: 10,000 creations as fast as they go, until the last one is told. `lost` weren't told; `cpu` and `user` are
//   the watcher's microseconds for an event, `user` by the host's ticks and so only good over some seconds. Qt isn't
//   there, as it only says that the directory changed, once for many.
// - Idle: two seconds without changes. `cpu` are the microseconds and `wakes` the awakenings of all threads but the one
//   that measures.
#include <Brindle/Vok/DirectoryMonitor.h>

#include "Workplace.h"

#include <Poco/Delegate.h>
#include <Poco/DirectoryWatcher.h>
#include <QCoreApplication>
#include <QFileSystemWatcher>
#include <QThread>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <fcntl.h>
#include <memory>
#include <sched.h>
#include <string>
#include <string_view>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <vector>

using namespace Brindle::Vok;

namespace
{

/// In microseconds.
double Time(clockid_t clock = CLOCK_MONOTONIC)
{
    timespec time;
    Check(::clock_gettime(clock, &time) == 0);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) * 1e-3;
}

rusage UsageOf(int who)
{
    rusage usage;
    Check(::getrusage(who, &usage) == 0);
    return usage;
}

struct Usage
{
    double cpu = 0;
    double user = 0;

    static Usage OfThisThread()
    {
        rusage const usage = UsageOf(RUSAGE_THREAD);
        return {Time(CLOCK_THREAD_CPUTIME_ID),
                static_cast<double>(usage.ru_utime.tv_sec) * 1e6 + static_cast<double>(usage.ru_utime.tv_usec)};
    }
};

/// What every watcher's callback does.
class Heard
{
public:
    explicit Heard(long all) : all(all) {}

    void Tell()
    {
        when = Time();
        long const number = count.load(std::memory_order_relaxed) + 1;
        if (number == 1)
            first = Usage::OfThisThread();
        if (number == all)
            last = Usage::OfThisThread();
        count.store(number, std::memory_order_release);
    }

    /// How many are missing in the end.
    long Await(long wanted) const
    {
        for (double const begin = Time(); count.load(std::memory_order_acquire) < wanted && Time() - begin < 5e6;)
            ::usleep(100);
        return wanted - count.load(std::memory_order_acquire);
    }

    double When() const { return when; }
    double Cpu() const { return (last.cpu - first.cpu) / static_cast<double>(all - 1); }
    double User() const { return (last.user - first.user) / static_cast<double>(all - 1); }

private:
    long const all;
    std::atomic<long> count = 0;
    double when = 0;
    Usage first;
    Usage last;
};

// The watchers

class Nobody
{
public:
    Nobody(std::string const&, Heard&) {}
};

class Plain
{
public:
    Plain(std::string const& directory, Heard& heard)
        : directory(directory), descriptor(::inotify_init1(IN_CLOEXEC)), thread(&Plain::Run, this, std::ref(heard))
    {
        Check(::inotify_add_watch(descriptor, directory.c_str(), IN_CREATE | IN_DELETE | IN_MODIFY | IN_MOVE) >= 0);
    }
    ~Plain()
    {
        Check(::mkdir((directory + "/stop").c_str(), 0777) == 0);
        thread.join();
        ::close(descriptor);
        Check(::rmdir((directory + "/stop").c_str()) == 0);
    }
    Plain(Plain const&) = delete;
    Plain& operator=(Plain const&) = delete;

private:
    void Run(Heard& heard) const
    {
        alignas(inotify_event) std::byte bytes[16 * 1024];
        for (;;)
        {
            ssize_t const size = ::read(descriptor, bytes, sizeof bytes);
            Check(size > 0);
            for (std::byte const* place = bytes; place < bytes + size;)
            {
                auto const& event = *reinterpret_cast<inotify_event const*>(place);
                if (event.len != 0 && std::string_view(event.name) == "stop")
                    return;
                heard.Tell();
                place += sizeof event + event.len;
            }
        }
    }

    std::string const directory;
    int const descriptor;
    std::thread thread;
};

class Ours
{
public:
    Ours(std::string const& directory, Heard& heard)
        : monitor(MakeDirectoryMonitorFactory()->MakeDirectoryMonitor(
              L"T:\\" + std::wstring(directory.begin() + static_cast<std::ptrdiff_t>(directory.rfind('/') + 1),
                                     directory.end()),
              [&heard](DirectoryChange const& change)
              {
                  if (change.action != DirectoryAction::overflow)
                      heard.Tell();
              }))
    {
    }

private:
    std::unique_ptr<DirectoryMonitor> monitor;
};

class PocoWatcher
{
public:
    PocoWatcher(std::string const& directory, Heard& heard) : heard(heard), watcher(directory)
    {
        watcher.itemAdded += Poco::delegate(this, &PocoWatcher::Tell);
        watcher.itemRemoved += Poco::delegate(this, &PocoWatcher::Tell);
    }

private:
    void Tell(Poco::DirectoryWatcher::DirectoryEvent const&) { heard.Tell(); }

    Heard& heard;
    Poco::DirectoryWatcher watcher;
};

class QtWatcher : private QThread
{
public:
    QtWatcher(std::string const& directory, Heard& heard) : directory(directory), heard(heard)
    {
        static int count = 0;
        static QCoreApplication const application(count, nullptr);
        start();
    }
    ~QtWatcher() override
    {
        quit();
        wait();
    }

private:
    void run() override
    {
        QFileSystemWatcher watcher({QString::fromStdString(directory)});
        connect(&watcher, &QFileSystemWatcher::directoryChanged, [this] { heard.Tell(); });
        exec();
    }

    std::string const directory;
    Heard& heard;
};

// What is measured

/// A directory of its own for each run, so that nothing of the one before is told.
std::string MakeDirectory()
{
    static int number = 0;
    std::string directory = HostPath("Watched" + std::to_string(number++));
    Check(::mkdir(directory.c_str(), 0777) == 0);
    return directory;
}

void AwaitStart()
{
    ::usleep(100'000); // some begin to watch on their own thread only
}

void Make(std::string const& path)
{
    int const descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    Check(descriptor >= 0 && ::close(descriptor) == 0);
}

double Quantile(std::vector<double>& values, double part)
{
    auto const place = values.begin() + static_cast<std::ptrdiff_t>(static_cast<double>(values.size() - 1) * part);
    std::nth_element(values.begin(), place, values.end());
    return *place;
}

constexpr long changes = 1000;

/// On the one of the allowed processors that has so many before it, as threads do that are started from here on.
void RunOn(cpu_set_t const& allowed, int number)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int processor = 0; processor < CPU_SETSIZE; ++processor)
        if (CPU_ISSET(processor, &allowed) && number-- == 0)
            CPU_SET(processor, &set);
    Check(::sched_setaffinity(0, sizeof set, &set) == 0);
}

/// A watched directory in which one file comes and goes.
template <typename Watcher>
class Watched
{
public:
    void MakeOne()
    {
        ::usleep(500); // until the watcher is asleep
        double const begin = Time();
        Make(path);
        makingTimes.push_back(Time() - begin);
        Check(heard.Await(++events) == 0);
        times.push_back(heard.When() - begin);
        Check(::unlink(path.c_str()) == 0 && heard.Await(++events) == 0);
    }

    std::vector<double> times;
    std::vector<double> makingTimes;
    Heard heard{2 * changes};

private:
    std::string const directory = MakeDirectory();
    std::string const path = directory + "/file.txt";
    long events = 0;
    Watcher watcher{directory, heard};
};

template <typename Watcher, bool apart>
void Change(benchmark::State& state)
{
    cpu_set_t before;
    Check(::sched_getaffinity(0, sizeof before, &before) == 0);
    if (apart)
        RunOn(before, 1);
    Watched<Watcher> watched;
    Watched<Plain> plain;
    AwaitStart();
    if (apart)
        RunOn(before, 0);
    bool isFirst = false;
    for (auto _ : state)
    {
        isFirst = !isFirst;
        if (isFirst)
            watched.MakeOne();
        plain.MakeOne();
        if (!isFirst)
            watched.MakeOne();
        state.SetIterationTime(watched.times.back() * 1e-6);
    }
    Check(::sched_setaffinity(0, sizeof before, &before) == 0);
    double const median = Quantile(watched.times, 0.5);
    double const plainMedian = Quantile(plain.times, 0.5);
    state.counters["median"] = median;
    state.counters["p90"] = Quantile(watched.times, 0.9);
    state.counters["plain"] = plainMedian;
    state.counters["ratio"] = median / plainMedian;
    state.counters["making"] = Quantile(watched.makingTimes, 0.5);
    state.counters["cpu"] = watched.heard.Cpu();
    state.counters["plainCpu"] = plain.heard.Cpu();
}

constexpr long creations = 10'000;

template <typename Watcher>
void Burst(benchmark::State& state)
{
    double lost = 0;
    double cpu = 0;
    double user = 0;
    for (auto _ : state)
    {
        std::string const directory = MakeDirectory();
        std::vector<std::string> paths;
        for (long i = 0; i < creations; ++i)
            paths.push_back(directory + "/file" + std::to_string(i));
        Heard heard(creations);
        Watcher const watcher(directory, heard);
        AwaitStart();
        double const begin = Time();
        for (std::string const& path : paths)
            Make(path);
        lost += static_cast<double>(heard.Await(creations));
        state.SetIterationTime((heard.When() - begin) * 1e-6);
        cpu += heard.Cpu();
        user += heard.User();
    }
    state.counters["lost"] = lost;
    state.counters["cpu"] = benchmark::Counter(cpu, benchmark::Counter::kAvgIterations);
    state.counters["user"] = benchmark::Counter(user, benchmark::Counter::kAvgIterations);
}

template <typename Watcher>
void Idle(benchmark::State& state)
{
    Heard heard(0);
    Watcher const watcher(MakeDirectory(), heard);
    AwaitStart();
    auto const cpuOfOthers = [] { return Time(CLOCK_PROCESS_CPUTIME_ID) - Time(CLOCK_THREAD_CPUTIME_ID); };
    auto const wakesOfOthers = [] { return UsageOf(RUSAGE_SELF).ru_nvcsw - UsageOf(RUSAGE_THREAD).ru_nvcsw; };
    for (auto _ : state)
    {
        double const cpu = cpuOfOthers();
        long const wakes = wakesOfOthers();
        ::sleep(2);
        state.counters["wakes"] = static_cast<double>(wakesOfOthers() - wakes);
        state.counters["cpu"] = cpuOfOthers() - cpu;
    }
}

[[maybe_unused]] bool const isRegistered = []
{
    struct Row
    {
        char const* name;
        void (*run)(benchmark::State&);
    };
    for (Row const& row : {Row{"Change/Plain", Change<Plain, false>}, Row{"Change/Vok", Change<Ours, false>},
                           Row{"Change/Poco", Change<PocoWatcher, false>}, Row{"Change/Qt", Change<QtWatcher, false>},
                           Row{"Apart/Plain", Change<Plain, true>}, Row{"Apart/Vok", Change<Ours, true>},
                           Row{"Apart/Poco", Change<PocoWatcher, true>}, Row{"Apart/Qt", Change<QtWatcher, true>}})
        benchmark::RegisterBenchmark(row.name, row.run)->Iterations(changes)->UseManualTime();
    for (Row const& row :
         {Row{"Burst/Plain", Burst<Plain>}, Row{"Burst/Vok", Burst<Ours>}, Row{"Burst/Poco", Burst<PocoWatcher>}})
        benchmark::RegisterBenchmark(row.name, row.run)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);
    for (Row const& row :
         {Row{"Idle/Nobody", Idle<Nobody>}, Row{"Idle/Plain", Idle<Plain>}, Row{"Idle/Vok", Idle<Ours>},
          Row{"Idle/Poco", Idle<PocoWatcher>}, Row{"Idle/Qt", Idle<QtWatcher>}})
        benchmark::RegisterBenchmark(row.name, row.run)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
    return true;
}();

} // namespace
