// The one pool of threads that run the callbacks of timers.
//
// Idle threads wait for the host's two timer descriptors, one for each clock, which are set to the first time that is
// due. So setting a timer wakes nobody; the host wakes one idle thread, and that one runs the callback itself. Before
// it does it sets the descriptors to what is due next, and sees to it that another thread is idle: none ever waits for
// a callback to end, as long as the host has threads.
#pragma once

#include "TimerQueue.h"

#include <Brindle/Platform/Timers.h>

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <limits>
#include <mutex>

/// A timer. What changes is guarded by the pool's lock.
struct TP_TIMER : Brindle::Vok::Platform::QueuedTimer
{
    TP_TIMER(PTP_TIMER_CALLBACK callback, PVOID context, unsigned process)
    noexcept : callback(callback), context(context), process(process)
    {
    }

    PTP_TIMER_CALLBACK const callback;
    PVOID const context;
    unsigned process;   ///< whose pool it was used in last
    unsigned clock = 0; ///< whose queue it is in
    DWORD period = 0;   ///< in milliseconds
    unsigned running = 0;
    bool isClosing = false;
};

namespace Brindle::Vok::Platform
{

class TimerPool
{
public:
    /// Null with the last error set: see CreateThreadpoolTimer.
    static TP_TIMER* Make(PTP_TIMER_CALLBACK callback, PVOID context) noexcept;
    /// The pool of all timers. There is one as soon as there is a timer.
    static TimerPool& Get() noexcept;

    /// Null unsets it.
    void Set(TP_TIMER& timer, FILETIME const* due, DWORD period) noexcept;
    void Wait(TP_TIMER& timer, bool cancelsPending) noexcept;
    void Close(TP_TIMER& timer) noexcept;

private:
    using Lock = std::unique_lock<std::mutex>;

    // In 100 nanoseconds.
    static constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

    struct Clock
    {
        explicit Clock(clockid_t id) noexcept : id(id) {}

        clockid_t id;
        int descriptor = -1;
        TimerQueue queue;
        /// What the descriptor is set to; or, once that is over, was set to, until a thread has been told of it. So
        /// nobody sets it to a later time, and each time wakes one thread.
        std::int64_t armedFor = never;
    };

    // All with the lock.
    bool Begin() noexcept;
    bool Open() noexcept;
    bool StartThread() noexcept;
    bool KeepThreads() noexcept;
    void Forget() noexcept;
    void Adopt(TP_TIMER& timer) const noexcept;
    void Queue(TP_TIMER& timer, unsigned clock, std::int64_t due) noexcept;
    void Drop(TP_TIMER& timer) noexcept;
    bool IsPending(TP_TIMER const& timer) const noexcept;
    std::int64_t TimePending(TP_TIMER const& timer) const noexcept;
    void Requeue(TP_TIMER& timer) noexcept;
    TP_TIMER* FirstPending() noexcept;
    void Arrange() noexcept;
    static void ArmFor(Clock& clock, std::int64_t due) noexcept;
    void TellWaiters() noexcept;
    void EndWaiting() noexcept;
    static void SetDescriptor(Clock const& clock) noexcept;
    void CloseDescriptors() noexcept;
    bool Run(Lock& lock, TP_TIMER& timer) noexcept;

    // A thread.
    static void* Work(void* pool) noexcept;
    void Work() noexcept;
    bool BeIdle(Lock& lock) noexcept;
    bool IsNeededIdle() const noexcept;
    bool MayTake(Lock& lock) noexcept;
    bool NeedsMoreThreads(Lock& lock) noexcept;

    static void StartAnewInChild() noexcept;
    static int const startsAnewInChild;

    std::condition_variable finished;
    std::array<Clock, 2> clocks{Clock(CLOCK_REALTIME), Clock(CLOCK_MONOTONIC)};
    std::int64_t monotonicTime = 0; ///< or later
    int poll = -1;
    std::size_t timers = 0;
    unsigned threads = 0;
    /// So many are started as soon as they are needed; more only when they are too slow for what is due.
    static constexpr unsigned enoughAtFirst = 8;
    unsigned enoughThreads = enoughAtFirst;
    unsigned idle = 0;        ///< or about to be: those that have been started or woken, or that think about MayTake
    unsigned idleForEver = 0; ///< those of them that wait without an end
    unsigned waiters = 0;
    std::uint64_t begun = 0; ///< callbacks
    unsigned process = 0;
};

} // namespace Brindle::Vok::Platform
