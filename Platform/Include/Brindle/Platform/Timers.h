// Timers of the process's pool of threads.
//
//     PTP_TIMER const timer = CreateThreadpoolTimer(Run, context, nullptr);    // null on failure
//     FILETIME due = …;
//     SetThreadpoolTimer(timer, &due, 0, 0);
//     …
//     WaitForThreadpoolTimerCallbacks(timer, TRUE);
//     CloseThreadpoolTimer(timer);
//
// Everything may be called from any thread, also from static destructors. A timer that is closed may not be used any
// more.
//
// When: each callback runs on a thread of the pool, with no lock held and for as long as it likes. It may do anything
// with timers, and set and close its own. Those of other timers don't wait for it, nor do further ones of its own
// timer: up to 500 run at a time. Eight threads are started as they are needed. Twice as many are when these have begun
// nothing for a millisecond, or when something has been due for two while the processors are not busy, and so on: so
// the eighth of some callbacks that block begins a millisecond late. Threads end five seconds after they had something
// to do, but for two, which end within ten seconds after the last timer. A callback that throws, or ends
// its thread, ends the process. Where the host has no thread left, what is due waits for a callback to end or for the
// next setting.
//
// On the pool's threads all signals are blocked but those of a fault of the thread's own, and on Linux their turns are
// short, so that they begin at once. Threads and programs that a callback starts inherit both.
//
// The end of the process by itself waits for no callback. A child process made by fork has its parent's timers, but
// none of them is set; a callback that makes one and comes back from it there ends its thread.
#pragma once

#include <Brindle/Platform/Types.h>

struct TP_TIMER;
struct TP_CALLBACK_INSTANCE;
struct TP_CALLBACK_ENVIRON;

using PTP_TIMER = TP_TIMER*;
using PTP_CALLBACK_INSTANCE = TP_CALLBACK_INSTANCE*;
using PTP_CALLBACK_ENVIRON = TP_CALLBACK_ENVIRON*;
using PTP_TIMER_CALLBACK = void(WINAPI*)(PTP_CALLBACK_INSTANCE instance, PVOID context, PTP_TIMER timer);

extern "C"
{
    /// A timer that isn't set. There is one pool only: null with ERROR_NOT_SUPPORTED for an environment,
    /// ERROR_INVALID_PARAMETER without a callback, ERROR_TOO_MANY_OPEN_FILES, ERROR_NOT_ENOUGH_MEMORY and
    /// ERROR_NO_SYSTEM_RESOURCES (no thread, no watch) when the host lacks what the first one needs. The callback gets
    /// the context, the timer, and null as its instance.
    VOK_PLATFORM_EXPORT PTP_TIMER WINAPI CreateThreadpoolTimer(PTP_TIMER_CALLBACK callback, PVOID context,
                                                               PTP_CALLBACK_ENVIRON environment) noexcept;

    /// Sets when it is due, in the place of a moment set before: from 0 on an absolute time, which follows the clock
    /// when that is set; negative a time from now on, which doesn't, and in which time that the machine sleeps doesn't
    /// count. A time that is over is now. Null unsets it, without waiting. `period`, in milliseconds, makes it due
    /// again and again; 0 doesn't. `windowLength` allows to be late and isn't made use of.
    VOK_PLATFORM_EXPORT void WINAPI SetThreadpoolTimer(PTP_TIMER timer, LPFILETIME due, DWORD period,
                                                       DWORD windowLength) noexcept;

    /// Waits until none of its callbacks runs, one that calls this included: it waits for ever. With `cancelsPending`
    /// one that is due and doesn't run yet is dropped; otherwise it is waited for too. A time that is still to come
    /// stays set; so this may last as long as a period is shorter than its callback takes.
    VOK_PLATFORM_EXPORT void WINAPI WaitForThreadpoolTimerCallbacks(PTP_TIMER timer, BOOL cancelsPending) noexcept;

    /// Unsets and frees it. None of its callbacks runs after this or is about to, as it waits for those that run on
    /// other threads; a callback may close its own timer.
    VOK_PLATFORM_EXPORT void WINAPI CloseThreadpoolTimer(PTP_TIMER timer) noexcept;
}
