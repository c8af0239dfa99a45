// Share modes of open files, kept by the host's locks on the open files themselves, so that they hold between processes
// and are gone when their process is.
//
// Every handle with a right to data or to delete holds a shared lock on the whole file (flock), one that shares nothing
// an exclusive one: that is the common case and costs one call. A handle that shares something also marks bytes far
// beyond any file's end (open file description locks): one marker for each right that it uses and one for each that it
// denies to others. A use conflicts with a denial of the same right.
//
// Two that open at the same moment both mark first and then look. So marks come in two sets: provisional ones of
// openings under way and definite ones of open handles. A definite conflict refuses at once; a provisional one makes
// the opening withdraw, wait a moment and try again, so that one of two racing openings succeeds.
#pragma once

#include "Forks.h"
#include "HandleCounts.h"
#include "SystemCalls.h"

#include <Brindle/Platform/ErrorCodes.h>
#include <Brindle/Platform/Files.h>

#include <utility>

namespace Brindle::Vok::Platform
{

/// The rights that share modes are about, as FILE_SHARE_READ, FILE_SHARE_WRITE and FILE_SHARE_DELETE.
struct ShareTerms
{
    DWORD uses;
    DWORD shares;
    /// The descriptor can read. Markers need a kind of lock that the descriptor's own rights allow.
    bool readable;
};

/// The terms that deny nothing to others.
inline constexpr DWORD allShares = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/// Sleeps for a moment of random length that grows with the attempts, 20 microseconds to about 3 milliseconds.
void PauseForOthers(int attempt) noexcept;

/// An open descriptor and the locks that it holds. The locks belong to the open file, which a child process shares from
/// its fork until it runs its program. So where there may be such a child, closing gives the locks back by name instead
/// of leaving that to the descriptor's end; and in the child itself closing leaves them to the parent.
class SharedDescriptor
{
public:
    SharedDescriptor() noexcept = default;
    explicit SharedDescriptor(int descriptor) noexcept : descriptor(descriptor) {}
    SharedDescriptor(SharedDescriptor&& other) noexcept
        : descriptor(std::exchange(other.descriptor, -1)), locks(std::exchange(other.locks, Locks::none)),
          counter(std::exchange(other.counter, nullptr)), forks(other.forks)
    {
    }
    SharedDescriptor& operator=(SharedDescriptor&& other) noexcept
    {
        std::swap(descriptor, other.descriptor);
        std::swap(locks, other.locks);
        std::swap(counter, other.counter);
        std::swap(forks, other.forks);
        return *this;
    }
    ~SharedDescriptor()
    {
        if (descriptor < 0)
            return;
        if (locks != Locks::none && MayBeCopied(forks))
            Unlock();
        SystemCalls::Close(descriptor); // first: the count covers the descriptor
        if (counter)
            counter->fetch_sub(1, std::memory_order_release);
    }

    int Get() const noexcept { return descriptor; }

    /// Takes the locks for an open handle, which hold until Unlock or destruction. Zero, ERROR_SHARING_VIOLATION, or
    /// ERROR_NOT_SUPPORTED where the file system keeps no locks and the terms deny something to others: a promise that
    /// can't be kept isn't made. Terms that deny nothing need no lock there, as nobody else can deny anything either.
    /// Waits up to some 10 milliseconds for locks that no handle of this process accounts for, and up to 100 while
    /// other openings of the file race with this one.
    DWORD Lock(ShareTerms const& terms) noexcept
    {
        // The common case needs one call and nothing else.
        if (terms.shares == 0 && SystemCalls::LockWhole(descriptor, LOCK_EX | LOCK_NB) == 0)
        {
            Hold(Locks::whole);
            return ERROR_SUCCESS;
        }
        return LockPatiently(terms, false);
    }

    /// The same for a use that ends at once, such as deleting: openings that conflict with it wait for its end. Not for
    /// terms that share nothing.
    DWORD LockBriefly(ShareTerms const& terms) noexcept { return LockPatiently(terms, true); }

    void Unlock() noexcept;

    /// Is counted among the handles on its file from here to its end.
    void CountOn(ino_t file) noexcept
    {
        counter = &HandlesOn(file);
        counter->fetch_add(1, std::memory_order_seq_cst);
    }

private:
    enum class Locks
    {
        none,
        whole,
        wholeAndMarkers
    };

    DWORD LockPatiently(ShareTerms const& terms, bool briefly) noexcept;
    DWORD LockUnshared(ShareTerms const& terms, bool& hasRaced) noexcept;
    // `hasRaced` if it gave way to other openings again and again, and met no open handle.
    DWORD LockShared(ShareTerms const& terms, bool briefly, bool& hasRaced) noexcept;
    bool MayBeHeldHere() const noexcept;

    void Hold(Locks taken) noexcept
    {
        locks = taken;
        forks = CurrentForks();
    }

    int descriptor = -1;
    Locks locks = Locks::none;
    HandleCounter* counter = nullptr;
    /// How many forks this process had made, and how many had made it, when the locks were taken.
    ForkCounts forks;
};

} // namespace Brindle::Vok::Platform
