#include "TimerPool.h"

#include "Forks.h"
#include "HostErrors.h"
#include "Identity.h"
#include "ShortTurns.h"
#include "SystemCalls.h"
#include "Threads.h"

#include <Brindle/Platform/Security.h>

#include <exception>
#include <memory>
#include <new>
#include <thread>
#include <utility>

namespace Brindle::Vok::Platform
{
namespace
{

constexpr std::int64_t ticksInSecond = 10'000'000;
constexpr std::int64_t ticksInMillisecond = 10'000;
constexpr std::int64_t nanosecondsInTick = 100;
/// 1970-01-01, where the host's time begins, in the platform's.
constexpr std::int64_t hostEpoch = 11'644'473'600 * ticksInSecond;

constexpr unsigned realTime = 0;
constexpr unsigned monotonic = 1;

/// As many stay as long as there are timers: one that runs a callback, and one to take over.
constexpr unsigned leastThreads = 2;
constexpr unsigned mostThreads = 500;
constexpr timespec shortPause{0, 1'000'000};
constexpr std::int64_t mostWaiting = 2 * ticksInMillisecond;
constexpr int idleMilliseconds = 5000;

// Guards the pool.
constinit std::mutex mutex;
constinit TimerPool* pool = nullptr;
// What the calling thread runs. Null again where that has closed it, so that nobody touches it any more.
constinit thread_local TP_TIMER const* ownTimer = nullptr;

std::int64_t TicksOf(clockid_t clock) noexcept
{
    timespec now;
    SystemCalls::GetTime(clock, &now);
    return now.tv_sec * ticksInSecond + now.tv_nsec / nanosecondsInTick;
}

std::int64_t SumOrMost(std::int64_t a, std::int64_t b) noexcept
{
    std::int64_t sum;
    return __builtin_add_overflow(a, b, &sum) ? std::numeric_limits<std::int64_t>::max() : sum;
}

/// The clock, and the time on it. One that is over is now, also when the clock is set back; it has its turn behind
/// those that have been due for longer.
std::pair<unsigned, std::int64_t> TimeOf(FILETIME const& due) noexcept
{
    auto const ticks = static_cast<std::int64_t>(std::uint64_t{due.dwHighDateTime} << 32 | due.dwLowDateTime);
    if (ticks >= 0 && ticks - hostEpoch > TicksOf(CLOCK_REALTIME))
        return {realTime, ticks - hostEpoch};
    if (ticks >= 0)
        return {monotonic, TicksOf(CLOCK_MONOTONIC)};
    // The smallest number has no opposite; one more is as good.
    std::int64_t const interval = -(ticks + 1);
    // What was cut off the time of now must not make it come early.
    return {monotonic, SumOrMost(SumOrMost(TicksOf(CLOCK_MONOTONIC), 2), interval)};
}

/// Of the whole process, on all processors that it may use.
bool AreProcessorsBusy(std::int64_t time, std::int64_t processTime) noexcept
{
    static auto const processors = static_cast<std::int64_t>(std::thread::hardware_concurrency());
    return processTime * 4 >= time * processors * 3;
}

/// A thread of the pool belongs to the process, whoever started it and whatever its last function left behind.
void BeTheProcess() noexcept
{
    while (!RevertToSelf() && GetLastError() == ERROR_NOT_ENOUGH_MEMORY)
        SystemCalls::Sleep(&shortPause);
    if (IsActing())
        std::terminate(); // the next function would run as somebody
}

} // namespace

// A child has none of the threads, and shares the descriptors with its parent.
void TimerPool::StartAnewInChild() noexcept
{
    if (pool)
        pool->Forget();
}

[[maybe_unused]] int const TimerPool::startsAnewInChild = HoldInForks<mutex, StartAnewInChild>();

TimerPool& TimerPool::Get() noexcept
{
    return *pool;
}

// Setting and closing

TP_TIMER* TimerPool::Make(PTP_TIMER_CALLBACK callback, PVOID context) noexcept
{
    return WithoutThrowing(
        [&]() -> TP_TIMER*
        {
            Lock const lock(mutex);
            if (!pool)
                pool = std::make_unique<TimerPool>().release(); // for as long as the process lives
            for (Clock& clock : pool->clocks)
                clock.queue.Reserve(pool->timers + 1);
            auto timer = std::make_unique<TP_TIMER>(callback, context, pool->process);
            if (!pool->Begin())
                return nullptr;
            ++pool->timers;
            return timer.release();
        });
}

void TimerPool::Set(TP_TIMER& timer, FILETIME const* due, DWORD period) noexcept
{
    Lock const lock(mutex);
    Adopt(timer);
    if (timer.IsQueued())
        Drop(timer);
    if (!due || timer.isClosing)
        return;
    // In a child of a process the first one that is set starts anew. Without the means to it waits for another try.
    if (threads == 0)
        Begin();
    else if (idle == 0)
        StartThread(); // there was none to be had before
    timer.period = period;
    auto const [clock, time] = TimeOf(*due);
    Queue(timer, clock, time);
}

void TimerPool::Wait(TP_TIMER& timer, bool cancelsPending) noexcept
{
    Lock lock(mutex);
    Adopt(timer);
    if (cancelsPending && IsPending(timer))
    {
        Requeue(timer);
        TellWaiters();
    }
    ++waiters;
    finished.wait(lock, [&] { return timer.running == 0 && (cancelsPending || !IsPending(timer)); });
    --waiters;
}

void TimerPool::Close(TP_TIMER& timer) noexcept
{
    Lock lock(mutex);
    Adopt(timer);
    if (timer.IsQueued())
        Drop(timer);
    timer.isClosing = true;
    unsigned const own = ownTimer == &timer ? 1 : 0;
    ++waiters;
    finished.wait(lock, [&] { return timer.running == own; });
    --waiters;
    if (own != 0)
        ownTimer = nullptr; // Run knows by this that it has gone
    delete &timer;
    --timers;
    EndWaiting();
}

// Queues, with the lock

// In a child of the process that used it last it isn't set and doesn't run.
void TimerPool::Adopt(TP_TIMER& timer) const noexcept
{
    if (timer.process == process)
        return;
    timer.process = process;
    timer.place = QueuedTimer::nowhere;
    timer.running = 0;
    timer.isClosing = false;
}

void TimerPool::Queue(TP_TIMER& timer, unsigned clock, std::int64_t due) noexcept
{
    timer.clock = clock;
    clocks[clock].queue.Add(timer, due);
    ArmFor(clocks[clock], due);
}

// Others may wait for what it was due for.
void TimerPool::Drop(TP_TIMER& timer) noexcept
{
    clocks[timer.clock].queue.Remove(timer);
    TellWaiters();
}

void TimerPool::Requeue(TP_TIMER& timer) noexcept
{
    std::int64_t const period = timer.period * ticksInMillisecond;
    std::int64_t const due = clocks[timer.clock].queue.DueOf(timer);
    clocks[timer.clock].queue.Remove(timer);
    if (period == 0)
        return;
    std::int64_t const now = TicksOf(clocks[timer.clock].id);
    std::int64_t const missed = now > due ? (now - due) / period : 0;
    Queue(timer, timer.clock, SumOrMost(due, (missed + 1) * period));
}

bool TimerPool::IsPending(TP_TIMER const& timer) const noexcept
{
    return timer.IsQueued() && TimePending(timer) >= 0;
}

// Of one that is queued; negative before it is due.
std::int64_t TimerPool::TimePending(TP_TIMER const& timer) const noexcept
{
    return TicksOf(clocks[timer.clock].id) - clocks[timer.clock].queue.DueOf(timer);
}

// The one that has waited longest; null if none is due. Most are intervals, and of many that are due at once all but
// the first are found without asking the clock.
TP_TIMER* TimerPool::FirstPending() noexcept
{
    Clock const& intervals = clocks[monotonic];
    if (clocks[realTime].queue.IsEmpty() && !intervals.queue.IsEmpty())
    {
        if (intervals.queue.FirstDue() > monotonicTime)
            monotonicTime = TicksOf(CLOCK_MONOTONIC);
        bool const isPending = intervals.queue.FirstDue() <= monotonicTime;
        return isPending ? static_cast<TP_TIMER*>(&intervals.queue.First()) : nullptr;
    }
    TP_TIMER* first = nullptr;
    std::int64_t longest = -1;
    for (Clock const& clock : clocks)
    {
        if (clock.queue.IsEmpty())
            continue;
        auto& timer = static_cast<TP_TIMER&>(clock.queue.First());
        std::int64_t const time = TimePending(timer);
        if (time <= longest)
            continue;
        longest = time;
        first = &timer;
    }
    return first;
}

// Sees to it that the descriptors tell of what is due next, also if that is over. One that is set to an earlier time,
// or that has told of one to a thread that is on its way, is good as it is.
void TimerPool::Arrange() noexcept
{
    for (Clock& clock : clocks)
        if (!clock.queue.IsEmpty())
            ArmFor(clock, clock.queue.FirstDue());
}

void TimerPool::ArmFor(Clock& clock, std::int64_t due) noexcept
{
    if (due >= clock.armedFor || clock.descriptor < 0)
        return;
    clock.armedFor = due;
    SetDescriptor(clock);
}

void TimerPool::TellWaiters() noexcept
{
    if (waiters != 0)
        finished.notify_all();
}

// One that is idle without an end is woken once the last timer has gone, to be idle for a while; when it ends it wakes
// the next one. Never while another is idle for a while: the host might wake that one, again and again.
void TimerPool::EndWaiting() noexcept
{
    if (timers == 0 && idle != 0 && idle == idleForEver)
        ArmFor(clocks[monotonic], 0);
}

void TimerPool::SetDescriptor(Clock const& clock) noexcept
{
    itimerspec time{};
    time.it_value = {clock.armedFor / ticksInSecond, clock.armedFor % ticksInSecond * nanosecondsInTick};
    if (clock.armedFor <= 0)
        time.it_value = {0, 1}; // zero would unset it
    SystemCalls::SetTimer(clock.descriptor, TFD_TIMER_ABSTIME, &time);
}

// Threads

// What the first timer needs. On failure nothing of it is left.
bool TimerPool::Begin() noexcept
{
    if (!Open())
        return false;
    if (KeepThreads())
    {
        Arrange();
        return true;
    }
    CloseDescriptors();
    return false;
}

bool TimerPool::Open() noexcept
{
    if (poll >= 0)
        return true;
    poll = SystemCalls::MakePoll(EPOLL_CLOEXEC);
    bool isOpen = poll >= 0;
    for (Clock& clock : clocks)
    {
        if (!isOpen)
            break;
        clock.descriptor = SystemCalls::MakeTimer(clock.id, TFD_CLOEXEC | TFD_NONBLOCK);
        // Each time that it is due wakes one thread, once.
        epoll_event event{EPOLLIN | EPOLLET, {.ptr = &clock}};
        isOpen = clock.descriptor >= 0 && SystemCalls::ChangePoll(poll, EPOLL_CTL_ADD, clock.descriptor, &event) == 0;
    }
    if (isOpen)
        return true;
    FailWith(CodeOfRefusedWatch(errno));
    CloseDescriptors();
    return false;
}

void TimerPool::CloseDescriptors() noexcept
{
    for (int* const descriptor : {&poll, &clocks[realTime].descriptor, &clocks[monotonic].descriptor})
        if (*descriptor >= 0)
            SystemCalls::Close(std::exchange(*descriptor, -1));
    for (Clock& clock : clocks)
        clock.armedFor = never;
}

bool TimerPool::StartThread() noexcept
{
    pthread_t thread;
    if (threads == mostThreads || !Platform::StartThread(thread, Work, this, true))
        return false;
    ++threads;
    ++idle; // to be counted on at once
    return true;
}

bool TimerPool::KeepThreads() noexcept
{
    while (threads < leastThreads)
        if (!StartThread())
            return threads > 0 || FailWith(ERROR_NO_SYSTEM_RESOURCES);
    return true;
}

// In a child. Its parent's timers are adopted when they are used.
void TimerPool::Forget() noexcept
{
    ++process;
    threads = idle = idleForEver = waiters = 0;
    enoughThreads = enoughAtFirst;
    ::new (static_cast<void*>(&finished)) std::condition_variable; // the old one counts threads that are not there
    for (Clock& clock : clocks)
        clock.queue.Forget();
    CloseDescriptors();
    ownTimer = nullptr;
}

void* TimerPool::Work(void* pool) noexcept
{
    static_cast<TimerPool*>(pool)->Work();
    return nullptr;
}

void TimerPool::Work() noexcept
{
    BeTheProcess();
    AskForShortTurns();
    Lock lock(mutex);
    for (;;)
    {
        if (!FirstPending())
        {
            if (!BeIdle(lock))
                return;
        }
        else if (MayTake(lock))
        {
            --idle;
            while (TP_TIMER* const timer = FirstPending())
                if (!Run(lock, *timer))
                    return;
            ++idle;
        }
    }
}

// Whether another thread is idle, or can't be. There may be no timer left to take afterwards.
bool TimerPool::MayTake(Lock& lock) noexcept
{
    if (idle > 1)
        return true;
    if (threads >= enoughThreads)
    {
        if (!NeedsMoreThreads(lock) || idle > 1)
            return idle > 1;
        enoughThreads *= 2;
    }
    StartThread(); // or nobody is, until one of those that are busy has finished
    return true;
}

// Takes a while. They may be quick, and better without more of them, also when they have all processors.
bool TimerPool::NeedsMoreThreads(Lock& lock) noexcept
{
    std::uint64_t const begunBefore = begun;
    std::int64_t const before = TicksOf(CLOCK_MONOTONIC);
    std::int64_t const processBefore = TicksOf(CLOCK_PROCESS_CPUTIME_ID);
    lock.unlock();
    SystemCalls::Sleep(&shortPause);
    lock.lock();
    if (begun == begunBefore)
        return true;
    TP_TIMER const* const first = FirstPending();
    return first && TimePending(*first) > mostWaiting &&
           !AreProcessorsBusy(TicksOf(CLOCK_MONOTONIC) - before, TicksOf(CLOCK_PROCESS_CPUTIME_ID) - processBefore);
}

// False in a child process that the callback has made and that has come back from it: the pool there is another one.
bool TimerPool::Run(Lock& lock, TP_TIMER& timer) noexcept
{
    unsigned const before = process;
    Requeue(timer);
    if (idle != 0)
        Arrange();
    ++begun;
    ++timer.running;
    lock.unlock();
    ownTimer = &timer;
    timer.callback(nullptr, timer.context, &timer);
    if (IsActing())
        BeTheProcess();
    lock.lock();
    if (process != before)
        return false;
    if (std::exchange(ownTimer, nullptr))
        --timer.running;
    TellWaiters();
    return true;
}

// False when the thread is to end.
bool TimerPool::BeIdle(Lock& lock) noexcept
{
    Arrange();
    bool const isForEver = IsNeededIdle();
    idleForEver += isForEver ? 1 : 0;
    lock.unlock();
    epoll_event event;
    int const count = SystemCalls::WaitForPoll(poll, &event, 1, isForEver ? -1 : idleMilliseconds);
    lock.lock();
    idleForEver -= isForEver ? 1 : 0;
    if (count > 0)
        static_cast<Clock*>(event.data.ptr)->armedFor = never; // it has told
    if (count > 0 || FirstPending() || IsNeededIdle())
        return true;
    if (--threads < enoughAtFirst)
        enoughThreads = enoughAtFirst;
    --idle;
    EndWaiting();
    return false;
}

bool TimerPool::IsNeededIdle() const noexcept
{
    return timers != 0 && idle <= leastThreads;
}

} // namespace Brindle::Vok::Platform
