#include "Signal.h"

#include "Clock.h"
#include "Forks.h"
#include "HostErrors.h"
#include "ShortTurns.h"
#include "SystemCalls.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <utility>

namespace Brindle::Vok::Platform
{
namespace
{

// Guards all signals and who waits for them.
constinit std::mutex mutex;

// Another one in each child: its copies of the signals' lists have places of threads that only the parent has.
constinit unsigned currentProcess = 0;

// What wakes a thread from a poll. Each thread has its own, from its first poll to its end; negative before. A key of
// the host's closes it, as those are looked at behind all thread_local objects, and again for as long as there is one.
constinit thread_local int alarm = -1;

void CloseAlarm() noexcept
{
    if (alarm >= 0)
        SystemCalls::Close(std::exchange(alarm, -1));
}

// Negative with errno set when there is none.
int OpenAlarm() noexcept
{
    static pthread_key_t key;
    static int const error = pthread_key_create(&key, [](void*) { CloseAlarm(); });
    if (alarm >= 0)
        return alarm;
    errno = error != 0 ? error : pthread_setspecific(key, &alarm);
    if (errno != 0)
        return -1;
    AskForShortTurns(); // as the platform favours who waits for an operation when it has ended
    return alarm = SystemCalls::MakeEventDescriptor(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

// To wake from an alarm of before would be to wake the parent's thread.
void StartAnewInChild() noexcept
{
    ++currentProcess;
    CloseAlarm();
}

[[maybe_unused]] int const keepsOrderInChild = HoldInForks<mutex, StartAnewInChild>();

timespec TimeUntil(std::chrono::nanoseconds until) noexcept
{
    auto const left = std::max(until - TimeNow(), std::chrono::nanoseconds(0));
    auto const seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    return timespec{seconds.count(), (left - seconds).count()};
}

} // namespace

// One wait in progress.
class Wait
{
public:
    Wait(std::span<Signal* const> signals, bool all, std::chrono::nanoseconds deadline) noexcept
        : signals(signals), all(all), deadline(deadline)
    {
    }

    DWORD Run() noexcept
    {
        std::unique_lock lock(mutex);
        for (Signal* const signal : signals)
            signal->ForgetOtherProcess();
        Notice();
        if (!result)
            WaitForResult(lock);
        LookAtEarlierOperations(lock);
        return *result;
    }

    // With the lock, when a signal may have been set: takes it for this wait.
    void Notice() noexcept
    {
        std::size_t const ready = FirstReady();
        if (result || ready == signals.size())
            return;
        hasEarlierOperations = HasOperations(ready);
        End(ready);
        if (hasEarlierOperations)
            signals[ready]->Lend();
        Wake();
    }

    // With the lock.
    void Wake() noexcept
    {
        isWoken = true;
        if (isPolling)
        {
            std::uint64_t const one = 1;
            SystemCalls::Write(alarmDescriptor, &one, sizeof one);
        }
        else
            wakes.notify_one();
    }

private:
    void WaitForResult(std::unique_lock<std::mutex>& lock) noexcept
    {
        Presence const presence(*this);
        for (bool hasLooked = false; !result;)
        {
            std::size_t const ready = FirstReady();
            bool const isOver = deadline == std::chrono::nanoseconds(0) || (hasSlept && TimeNow() >= deadline);
            bool const mayEnd = ready != signals.size() || isOver;
            if (HasOperations(ready) && !(mayEnd && hasLooked))
                Poll(lock, ready, mayEnd);
            else if (mayEnd)
                End(ready);
            else
                Sleep(lock);
            hasLooked = mayEnd; // what may end by now has been looked at
        }
    }

    // Operations that come before what was taken may have ended, only that nobody had looked yet. The first one of the
    // list counts, and what was taken is set again for somebody else.
    void LookAtEarlierOperations(std::unique_lock<std::mutex>& lock) noexcept
    {
        if (!hasEarlierOperations)
            return;
        std::size_t const taken = *result - WAIT_OBJECT_0;
        Poll(lock, taken, true);
        std::size_t const ready = FirstReady();
        bool const isGivenBack = ready < taken;
        if (isGivenBack)
            End(ready);
        signals[taken]->EndLending(isGivenBack);
    }

    // The first signal that is set, or the first at all once all are; how many there are if it must wait.
    std::size_t FirstReady() const noexcept
    {
        auto const isSet = [](Signal const* signal) { return signal->IsSet(); };
        if (all)
            return std::ranges::all_of(signals, isSet) ? 0 : signals.size();
        return static_cast<std::size_t>(std::ranges::find_if(signals, isSet) - signals.begin());
    }

    bool HasOperations(std::size_t before) const noexcept
    {
        return std::ranges::any_of(signals.first(before), [](Signal const* signal)
                                   { return !signal->IsSet() && !signal->operations.empty(); });
    }

    void End(std::size_t ready) noexcept
    {
        if (ready == signals.size())
        {
            result = WAIT_TIMEOUT;
            return;
        }
        for (std::size_t at = ready; at < (all ? signals.size() : ready + 1); ++at)
            signals[at]->Take();
        result = WAIT_OBJECT_0 + static_cast<DWORD>(ready);
    }

    // Unless it has ended otherwise.
    void Fail(DWORD code) noexcept
    {
        if (result)
            return;
        FailWith(code);
        result = WAIT_FAILED;
    }

    void Sleep(std::unique_lock<std::mutex>& lock) noexcept
    {
        isWoken = false;
        auto const hasBeenWoken = [this] { return isWoken; };
        if (deadline == PendingOperation::never)
            wakes.wait(lock, hasBeenWoken);
        else
            wakes.wait_until(lock, std::chrono::steady_clock::time_point(deadline), hasBeenWoken);
        hasSlept = true;
    }

    // Waits for the operations and for the signals, or only looks, and lets the operations do what they can.
    void Poll(std::unique_lock<std::mutex>& lock, std::size_t before, bool onlyLooks) noexcept
    {
        alarmDescriptor = OpenAlarm();
        if (alarmDescriptor < 0)
            return Fail(CodeFromHost(errno));
        Operations operations;
        if (!operations.Collect(signals.first(before)))
            Fail(ERROR_NO_SYSTEM_RESOURCES); // and goes on, as those that it has must go without the lock
        isWoken = false;
        isPolling = true;
        bool const looks = onlyLooks || result;
        lock.unlock();
        int const error = operations.Poll(alarmDescriptor, looks ? std::chrono::nanoseconds(0) : deadline);
        lock.lock();
        isPolling = false;
        if (isWoken)
        {
            std::uint64_t count;
            SystemCalls::Read(alarmDescriptor, &count, sizeof count);
        }
        hasSlept = true;
        if (error != 0)
            Fail(CodeFromHost(error));
        lock.unlock();
        operations.Advance(error == 0);
        lock.lock();
    }

    // A wait among those for some signals. Comes and goes with the lock.
    class Presence
    {
    public:
        explicit Presence(Wait& wait) noexcept : signals(wait.signals)
        {
            for (std::size_t at = 0; at < signals.size(); ++at)
                signals[at]->Enter(places[at], wait);
        }
        ~Presence()
        {
            for (std::size_t at = 0; at < signals.size(); ++at)
                signals[at]->Leave(places[at]);
        }
        Presence(Presence const&) = delete;
        Presence& operator=(Presence const&) = delete;

    private:
        std::span<Signal* const> signals;
        std::array<Signal::Place, mostSignals> places;
    };

    // Those of some signals, kept alive. Filled with the lock and emptied without it.
    class Operations
    {
    public:
        // With the lock. False for too many.
        bool Collect(std::span<Signal* const> of) noexcept
        {
            for (Signal const* const signal : of)
                for (auto const& operation : signal->operations)
                {
                    if (signal->IsSet())
                        continue;
                    if (count == each.size())
                        return false;
                    each[count++] = operation;
                    if (!companion)
                        companion = operation->Companion();
                }
            return true;
        }

        // Gives an errno, 0 for none.
        int Poll(int alarmToHear, std::chrono::nanoseconds until) noexcept
        {
            auto const add = [&](std::size_t at, PendingOperation const* operation)
            {
                PendingOperation::Needs const needs =
                    operation ? operation->WhatItNeeds() : PendingOperation::Needs{-1, PendingOperation::never};
                descriptors[at] = {needs.descriptor, POLLIN, 0};
                dues[at] = needs.due;
                until = std::min(until, needs.due);
            };
            for (std::size_t at = 0; at < count; ++at)
                add(at, each[at].get());
            descriptors[count] = {alarmToHear, POLLIN, 0};
            add(count + 1, companion);
            auto const poll = [&]
            {
                timespec const time = TimeUntil(until);
                return SystemCalls::Poll(descriptors.data(), count + 2,
                                         until == PendingOperation::never ? nullptr : &time);
            };
            return Uninterrupted(poll) < 0 ? errno : 0;
        }

        // Without the lock, also because this may let go of the last ones.
        void Advance(bool hasPolled) noexcept
        {
            if (!hasPolled)
            {
                each = {};
                return;
            }
            if (companion && descriptors[count + 1].revents != 0)
                companion->Advance();
            for (std::size_t at = 0; at < count; ++at)
            {
                auto const operation = std::move(each[at]);
                if (descriptors[at].revents != 0 || dues[at] != PendingOperation::never)
                    operation->Advance();
            }
        }

    private:
        std::size_t count = 0;
        std::array<std::shared_ptr<PendingOperation>, mostSignals> each;
        PendingOperation* companion = nullptr;
        // The alarm and the companion come last.
        std::array<pollfd, mostSignals + 2> descriptors;
        std::array<std::chrono::nanoseconds, mostSignals + 2> dues;
    };

    std::span<Signal* const> signals;
    bool all;
    std::chrono::nanoseconds deadline;
    bool hasSlept = false;
    // Filled in by who ends the wait: the thread itself or one that sets a signal.
    std::optional<DWORD> result;
    std::condition_variable wakes;
    int alarmDescriptor = -1;
    bool isPolling = false;
    bool hasEarlierOperations = false;
    bool isWoken = false;
};

bool PrepareToWait() noexcept
{
    return OpenAlarm() >= 0 || FailWithHost(errno);
}

void Signal::Set() noexcept
{
    std::lock_guard const lock(mutex);
    count = 1;
    LetThrough();
}

void Signal::Reset() noexcept
{
    std::lock_guard const lock(mutex);
    count = 0;
    isResetWhileLent = lent != 0;
}

bool Signal::Add(LONG more, LONG& previous) noexcept
{
    std::lock_guard const lock(mutex);
    ForgetOtherProcess();
    previous = count + lent;
    if (more > most - previous)
        return false;
    count += more;
    LetThrough();
    return true;
}

bool Signal::Attach(std::shared_ptr<PendingOperation> operation) noexcept
{
    return WithoutThrowing(
        [&]
        {
            std::lock_guard const lock(mutex);
            ForgetOtherProcess();
            operations.push_back(std::move(operation));
            WakeAllLocked(); // they have one more descriptor to poll
            return true;
        });
}

void Signal::WakeAll() noexcept
{
    std::lock_guard const lock(mutex);
    ForgetOtherProcess();
    WakeAllLocked();
}

void Signal::WakeAllLocked() noexcept
{
    for (Place const* place = first; place; place = place->next)
        place->wait->Wake();
}

void Signal::End(PendingOperation const& operation) noexcept
{
    std::shared_ptr<PendingOperation> ended; // may be the last one; it goes without the lock
    std::lock_guard const lock(mutex);
    auto const found = std::ranges::find(operations, &operation, &std::shared_ptr<PendingOperation>::get);
    if (found != operations.end())
    {
        ended = std::move(*found);
        operations.erase(found);
    }
    count = 1;
    LetThrough();
}

void Signal::Enter(Place& place, Wait& wait) noexcept
{
    place = {&wait, last, nullptr};
    (last ? last->next : first) = &place;
    last = &place;
}

void Signal::Leave(Place& place) noexcept
{
    (place.previous ? place.previous->next : first) = place.next;
    (place.next ? place.next->previous : last) = place.previous;
}

void Signal::Lend() noexcept
{
    if (type != Type::manualReset)
        ++lent;
}

void Signal::EndLending(bool isGivenBack) noexcept
{
    if (type == Type::manualReset)
        return;
    --lent;
    if (isGivenBack && !isResetWhileLent)
        count = IsEvent() ? 1 : count + 1;
    isResetWhileLent = isResetWhileLent && lent != 0;
    LetThrough();
}

void Signal::LetThrough() noexcept
{
    ForgetOtherProcess();
    for (Place const* place = first; place && IsSet(); place = place->next)
        place->wait->Notice();
}

// What a thread of the parent was at work on may be in any state, and isn't destroyed either.
void Signal::ForgetOtherProcess() noexcept
{
    if (std::exchange(process, currentProcess) == currentProcess)
        return;
    first = last = nullptr;
    lent = 0;
    std::construct_at(&operations);
}

DWORD WaitForSignals(std::span<Signal* const> signals, bool all, std::chrono::nanoseconds deadline) noexcept
{
    return Wait(signals, all, deadline).Run();
}

} // namespace Brindle::Vok::Platform
