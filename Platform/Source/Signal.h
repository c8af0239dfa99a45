// What threads wait for: events and semaphores. One lock guards all of them, so that a wait for several sees all in one
// state. Who sets a signal ends the waits that can end because of it, the oldest first: each setting of an event that
// resets itself lets one wait through, also when the next one follows before anybody has woken up. A wait that has an
// operation earlier in its list looks at that once more, and may give back what it got; until then it only borrows it.
//
// A signal may be the end of an operation on a descriptor. Nobody waits for that descriptor but the threads that wait
// for the signal: they poll it, and let the operation take what has come, which may signal.
//
// A child process made by fork has the signals as they were, but none of the waits and of the operations.
//
// Locks, each taken before those behind it: a directory watch's own; the signals'. The lock of the watches of files
// (Changes.cpp), that of the names (Waits.cpp) and those of the surroundings are taken alone.
#pragma once

#include "HandleTable.h"

#include <Brindle/Platform/Waits.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace Brindle::Vok::Platform
{

/// An operation in progress, which waiting threads carry on. Kept alive by those that do.
class PendingOperation
{
public:
    static constexpr std::chrono::nanoseconds never = std::chrono::nanoseconds::max();

    virtual ~PendingOperation() = default;

    struct Needs
    {
        int descriptor;               ///< something is to be done when it is readable; negative for none
        std::chrono::nanoseconds due; ///< or at this time, on the clock of TimeNow
    };

    // All are called by any threads, also at once, and without the lock of the signals.

    /// What is to be waited for. Where it changes to an earlier time but by Advance, the signal's WakeAll makes waiting
    /// threads ask again.
    virtual Needs WhatItNeeds() const noexcept = 0;
    /// Does what can be done without waiting; may set its signal.
    virtual void Advance() noexcept = 0;
    /// One that is carried on along with it, the same for many. Null for none. Lives as long as this.
    virtual PendingOperation* Companion() const noexcept { return nullptr; }
};

class Wait;

class Signal
{
public:
    enum class Type
    {
        autoReset,
        manualReset,
        semaphore
    };

    Signal(Type type, LONG count, LONG most) noexcept : type(type), count(count), most(most) {}
    ~Signal() { ForgetOtherProcess(); }
    Signal(Signal const&) = delete;
    Signal& operator=(Signal const&) = delete;

    bool IsEvent() const noexcept { return type != Type::semaphore; }

    void Set() noexcept;
    void Reset() noexcept;
    /// False, and nothing changes, when the count would exceed the maximum.
    bool Add(LONG more, LONG& previous) noexcept;

    /// From here until its end waiting threads carry the operation on. False without memory.
    bool Attach(std::shared_ptr<PendingOperation> operation) noexcept;
    /// Sets the signal too.
    void End(PendingOperation const& operation) noexcept;
    /// Lets the waiting threads ask anew what the operations need.
    void WakeAll() noexcept;

private:
    friend class Wait; // and its parts

    /// The place of one wait in a signal's list.
    struct Place
    {
        Wait* wait;
        Place* previous;
        Place* next;
    };

    // With the lock.
    bool IsSet() const noexcept { return count > 0; }
    void Take() noexcept
    {
        if (type != Type::manualReset)
            --count;
    }
    void Enter(Place& place, Wait& wait) noexcept;
    void Leave(Place& place) noexcept;
    void LetThrough() noexcept;
    void Lend() noexcept;
    void EndLending(bool isGivenBack) noexcept;
    void WakeAllLocked() noexcept;
    void ForgetOtherProcess() noexcept;

    Type const type;
    LONG count;
    LONG const most;
    LONG lent = 0; ///< of a semaphore's count, what may still come back
    bool isResetWhileLent = false;
    unsigned process = 0;
    Place* first = nullptr;
    Place* last = nullptr;
    std::vector<std::shared_ptr<PendingOperation>> operations;
};

/// What a handle of an event or a semaphore stands for. Handles of one name share the signal.
class SignalObject final : public Object
{
public:
    static constexpr Kinds kinds = KindsOf(Kind::event, Kind::semaphore);

    SignalObject(Kind kind, std::shared_ptr<Signal> signal) noexcept : Object(kind), signal(std::move(signal)) {}

    std::shared_ptr<Signal> const signal;
};

inline constexpr std::size_t mostSignals = MAXIMUM_WAIT_OBJECTS;

/// Gets what the calling thread needs to wait for operations, which it keeps, so that a wait can't fail for want of it.
/// False with the last error set.
bool PrepareToWait() noexcept;

/// Waits until one of at most `mostSignals` signals is set, or all, and takes it or them. Gives the first one's place.
/// WAIT_TIMEOUT at the deadline, on the clock of TimeNow, which may be PendingOperation::never, or 0 to look only;
/// WAIT_FAILED with the last error set when the host can't wait.
DWORD WaitForSignals(std::span<Signal* const> signals, bool all, std::chrono::nanoseconds deadline) noexcept;

} // namespace Brindle::Vok::Platform
