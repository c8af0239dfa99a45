#include "Signal.h"

#include "HostErrors.h"
#include "SystemCalls.h"
#include "ToldStatus.h"

#include <Brindle/Platform/Waits.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <mutex>
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

// A child has only the thread that made it, and nobody to unlock what another thread had locked.
[[maybe_unused]] int const keepsOrderInChild =
    pthread_atfork([] { mutex.lock(); }, [] { mutex.unlock(); }, [] { mutex.unlock(); });

} // namespace

// A thread that waits, asleep or in a poll of descriptors.
class Waiter
{
public:
    // With the lock.
    void Wake() noexcept
    {
        isWoken = true;
        if (alarm < 0)
            wakes.notify_one();
        else
        {
            std::uint64_t const one = 1;
            SystemCalls::Write(alarm, &one, sizeof one);
        }
    }

    std::condition_variable wakes;
    // What a thread in a poll is woken by.
    int alarm = -1;
    bool isWoken = false;
};

void Signal::Set() noexcept
{
    std::lock_guard const lock(mutex);
    count = 1;
    WakeAll();
}

void Signal::Reset() noexcept
{
    std::lock_guard const lock(mutex);
    count = 0;
}

bool Signal::Add(LONG more, LONG& previous) noexcept
{
    std::lock_guard const lock(mutex);
    previous = count;
    if (more > most - count)
        return false;
    count += more;
    WakeAll();
    return true;
}

bool Signal::Attach(std::shared_ptr<PendingOperation> operation) noexcept
{
    return WithoutThrowing(
        [&]
        {
            std::lock_guard const lock(mutex);
            operations.push_back(std::move(operation));
            WakeAll(); // they have one more descriptor to poll
            return true;
        });
}

void Signal::Detach(PendingOperation const& operation) noexcept
{
    std::shared_ptr<PendingOperation> detached; // may be the last one; it goes without the lock
    std::lock_guard const lock(mutex);
    auto const found = std::ranges::find(operations, &operation, &std::shared_ptr<PendingOperation>::get);
    if (found == operations.end())
        return;
    detached = std::move(*found);
    operations.erase(found);
}

void Signal::Enter(Place& place, Waiter& waiter) noexcept
{
    place.waiter = &waiter;
    place.previous = nullptr;
    place.next = std::exchange(first, &place);
    if (place.next)
        place.next->previous = &place;
}

void Signal::Leave(Place& place) noexcept
{
    (place.previous ? place.previous->next : first) = place.next;
    if (place.next)
        place.next->previous = place.previous;
}

// Each looks for itself what it gets: which of several it can take is its own matter.
void Signal::WakeAll() noexcept
{
    for (Place* place = first; place; place = place->next)
        place->waiter->Wake();
}

namespace
{

// What wakes a thread from a poll. Each thread has its own, from its first poll to its end.
class Alarm
{
public:
    ~Alarm() { Close(); }

    // Negative with errno set when there is none.
    int Open() noexcept
    {
        if (descriptor < 0)
            descriptor = SystemCalls::MakeEventDescriptor(0, EFD_CLOEXEC | EFD_NONBLOCK);
        return descriptor;
    }

    void Quieten() const noexcept
    {
        std::uint64_t count;
        SystemCalls::Read(descriptor, &count, sizeof count);
    }

    void Close() noexcept
    {
        if (descriptor >= 0)
            SystemCalls::Close(std::exchange(descriptor, -1));
    }

private:
    int descriptor = -1;
};

thread_local Alarm alarm;

// The parent's thread would be woken in its place.
[[maybe_unused]] int const hasItsOwnInChild = pthread_atfork(nullptr, nullptr, [] { alarm.Close(); });

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
        for (bool hasPolled = false;;)
        {
            std::unique_lock lock(mutex);
            std::size_t const ready = FirstReady();
            bool const isOver = deadline == std::chrono::nanoseconds(0) || (hasSlept && TimeNow() >= deadline);
            bool const mayEnd = ready != signals.size() || isOver;
            // Operations that come before what is ready may have ended, only that nobody has looked yet.
            if (mayEnd && (hasPolled || !HasOperations(ready)))
                return ready != signals.size() ? Take(ready) : WAIT_TIMEOUT;
            if (HasOperations(ready) ? !Poll(lock, ready, mayEnd) : !Sleep(lock))
                return WAIT_FAILED;
            hasPolled = mayEnd;
        }
    }

private:
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

    DWORD Take(std::size_t ready) const noexcept
    {
        for (std::size_t at = ready; at < (all ? signals.size() : ready + 1); ++at)
            signals[at]->Take();
        return WAIT_OBJECT_0 + static_cast<DWORD>(ready);
    }

    bool Sleep(std::unique_lock<std::mutex>& lock) noexcept
    {
        Waiter waiter;
        Presence const presence(signals, waiter);
        auto const isWoken = [&waiter] { return waiter.isWoken; };
        if (deadline == PendingOperation::never)
            waiter.wakes.wait(lock, isWoken);
        else
            waiter.wakes.wait_until(lock, std::chrono::steady_clock::time_point(deadline), isWoken);
        hasSlept = true;
        return true;
    }

    // Waits for the operations and for the signals, or only looks, and lets the operations do what they can.
    bool Poll(std::unique_lock<std::mutex>& lock, std::size_t before, bool onlyLooks) noexcept
    {
        Operations operations;
        if (!operations.Collect(signals.first(before)))
            return FailWith(ERROR_NO_SYSTEM_RESOURCES);
        Waiter waiter;
        if (!PrepareToWait())
            return false;
        waiter.alarm = alarm.Open();
        {
            Presence const presence(signals, waiter);
            lock.unlock();
            operations.Poll(waiter.alarm, onlyLooks ? std::chrono::nanoseconds(0) : deadline);
            lock.lock();
        }
        if (waiter.isWoken)
            alarm.Quieten();
        lock.unlock();
        operations.Advance();
        hasSlept = true;
        return true;
    }

    // A thread among those that wait for some signals. Comes and goes with the lock.
    class Presence
    {
    public:
        Presence(std::span<Signal* const> signals, Waiter& waiter) noexcept : signals(signals)
        {
            for (std::size_t at = 0; at < signals.size(); ++at)
                signals[at]->Enter(places[at], waiter);
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
                    descriptors[count] = {operation->Descriptor(), POLLIN, 0};
                    each[count++] = operation;
                }
            return true;
        }

        void Poll(int alarmDescriptor, std::chrono::nanoseconds until) noexcept
        {
            for (std::size_t at = 0; at < count; ++at)
                until = std::min(until, each[at]->Due());
            descriptors[count] = {alarmDescriptor, POLLIN, 0};
            timespec const time = TimeUntil(until);
            if (SystemCalls::Poll(descriptors.data(), count + 1, until == PendingOperation::never ? nullptr : &time) <
                0)
                for (std::size_t at = 0; at < count; ++at)
                    descriptors[at].revents = 0; // interrupted
        }

        void Advance() noexcept
        {
            for (std::size_t at = 0; at < count; ++at)
                if (descriptors[at].revents != 0 || each[at]->Due() != PendingOperation::never)
                    each[at]->Advance();
        }

    private:
        std::size_t count = 0;
        std::array<std::shared_ptr<PendingOperation>, mostSignals> each;
        std::array<pollfd, mostSignals + 1> descriptors;
    };

    std::span<Signal* const> signals;
    bool all;
    std::chrono::nanoseconds deadline;
    bool hasSlept = false;
};

bool PrepareToWait() noexcept
{
    return alarm.Open() >= 0 || FailWithHost(errno);
}

DWORD WaitForSignals(std::span<Signal* const> signals, bool all, std::chrono::nanoseconds deadline) noexcept
{
    return Wait(signals, all, deadline).Run();
}

} // namespace Brindle::Vok::Platform
