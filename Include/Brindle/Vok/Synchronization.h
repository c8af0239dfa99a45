// Event: something that threads wait for, with failures thrown.
//
//     Event done(L"", true);                                       // no name; stays set
//     std::thread worker([&] { Work(); done.Set(); });
//     while (done.WaitOrTimeout(1000) == EventWaitResult::timedOut)
//         std::cout << "still at it\n";
//
// Everything may be called from any thread at the same time, but for construction and destruction.
//
// ThreadPoolTimer: a function that runs once, at a given moment, on a thread of the process's pool.
//
//     ThreadPoolTimer timer([](ThreadPoolTimer&) { Rotate(); });
//     std::tm midnight = …;
//     timer.Start(midnight);                                       // and again, from another thread, once it has run
//
// The function
// - runs on a thread of the pool, with no lock held and for as long as it likes. It may use other timers, which don't
//   wait for it: where the pool's threads are busy with what takes long, more are started within milliseconds, until
//   there are 500. On Linux all signals are blocked there but those of the thread's own faults, and what it starts
//   inherits that;
// - must not call Start or Cancel of its own timer, nor destroy it: each waits for the function to return, for ever.
//   They wait when others call them too, who had better not hold a lock that the function takes;
// - must not throw nor end its thread: that ends the process;
// - is not called any more once the timer's destructor has returned, which waits for it.
//
// An empty function is no error, and nothing happens then.
//
// A time that is over and an invalid one are now, and so is a local one before 1970 or behind the year 3000 of UTC.
// A FILETIME counts 100 nanoseconds, from 1601 in UTC if it isn't negative. Such a time and a local one follow the
// system's clock when that is set. A negative one is an interval from now on and doesn't, nor does the time count in
// which the machine sleeps. When a timer runs late, it is by microseconds; by as long as the host has no processor for
// it; and by the time that the pool takes for more threads.
//
// Cancel doesn't take back what Start has set. It drops a run that is due and hasn't begun, and waits for one that has;
// a moment that is still to come stays set. To have nothing run any more, destroy the timer, or Start it for a later
// moment.
#pragma once

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/HandleOwner.h>
#include <Brindle/Vok/Platform.h>

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <string>

namespace Brindle::Vok
{

/// How a wait that may end without a signal did.
enum class EventWaitResult : std::uint32_t
{
    timedOut = 0, ///< the event wasn't set within the time
    signalled = 1 ///< the event was set, at once or in time
};

/// Owns an event of the platform, which isn't set at first.
class Event
{
public:
    /// An empty name makes an event without a name. Two events of one name in a process are the same one, and the
    /// second construction's `manualReset` has no effect. One that doesn't reset by hand is reset by the wait that it
    /// lets through. Throws WindowsError: 6 where the name is that of something else, such as a semaphore.
    Event(std::wstring name, bool manualReset)
        : handle(CreateEventW(nullptr, manualReset, FALSE, name.empty() ? nullptr : name.c_str()))
    {
        if (!handle.IsValid())
            VOK_THROW_LAST_ERROR("Failed to create event");
    }

    Event(Event const&) = delete;
    Event& operator=(Event const&) = delete;

    /// Lets waits through: all until the platform's ResetEvent, or the next one. Setting it again changes nothing.
    /// Throws WindowsError if Handle() was closed by somebody (6).
    void Set()
    {
        if (!SetEvent(handle.Get()))
            VOK_THROW_LAST_ERROR("SetEvent");
    }

    /// Waits for at most so many milliseconds, not at all for 0, of which the platform counts up to INFINITE - 1;
    /// INFINITE for as long as it takes. Throws WindowsError if Handle() was closed by somebody (6).
    EventWaitResult WaitOrTimeout(unsigned long milliseconds)
    {
        bool const isCounted = milliseconds <= INFINITE;
        DWORD const result =
            WaitForSingleObject(handle.Get(), isCounted ? static_cast<DWORD>(milliseconds) : INFINITE - 1);
        switch (result)
        {
        case WAIT_OBJECT_0:
            return EventWaitResult::signalled;
        case WAIT_TIMEOUT:
            return EventWaitResult::timedOut;
        case WAIT_ABANDONED:
            // A fixed code, as the platform sets no last error then.
            VOK_THROW(WindowsError, ERROR_ABANDONED_WAIT_0, "WaitForSingleObject abandoned");
        case WAIT_FAILED:
            VOK_THROW_LAST_ERROR("WaitForSingleObject failed");
        default:
            VOK_THROW_LAST_ERROR("WaitForSingleObject unexpected result [{}]", result);
        }
    }

    /// For the platform's own calls, such as ResetEvent and WaitForMultipleObjects. Stays this object's.
    HANDLE Handle() const noexcept { return handle.Get(); }

private:
    HandleOwner<Detail::NullHandleTraits> handle;
};

/// Runs its function once for each Start. It stays where it was made.
class ThreadPoolTimer
{
public:
    /// Throws WindowsError with 4, 8 or 1450 when the host has no descriptor, memory, thread or watch for the pool, and
    /// std::bad_alloc.
    VOK_EXPORT explicit ThreadPoolTimer(std::function<void(ThreadPoolTimer&)> callback);
    /// Drops what is set, and waits for the function if it runs.
    VOK_EXPORT ~ThreadPoolTimer();
    ThreadPoolTimer(ThreadPoolTimer const&) = delete;
    ThreadPoolTimer& operator=(ThreadPoolTimer const&) = delete;

    /// Waits for the function if it runs, and sets the moment, in the place of one set before. Of two calls at the same
    /// time the last one counts. The time is local; `tm_isdst` isn't looked at, and fields out of their ranges are
    /// carried over. It doesn't fail.
    VOK_EXPORT void Start(struct tm when);
    /// The same for a moment of UTC or an interval, in units of 100 nanoseconds.
    VOK_EXPORT void Start(FILETIME when);

    /// Drops a run that is due, and waits for the function if it runs. What is set for later stays set.
    VOK_EXPORT void Cancel();

private:
    class Impl;

    std::unique_ptr<Impl> impl;
};

} // namespace Brindle::Vok
