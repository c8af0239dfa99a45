// The changes of one open directory: the host's watch, and the reading that is going on.
//
// A child process made by fork has none of its parent's: a thread of the parent may have been in the middle of one.
// What is left of it there is neither used nor destroyed.
#pragma once

#include "ChangeQueue.h"
#include "Forks.h"
#include "Signal.h"
#include "Surroundings.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <sys/types.h>

namespace Brindle::Vok::Platform
{

/// One reading of changes. `signal` is set at its end.
struct ChangeReading
{
    OVERLAPPED* overlapped;
    std::byte* buffer;
    DWORD size;
    std::shared_ptr<Signal> signal;
};

/// The host's watch of a directory that is open, or of its parent ("/.."). Negative with errno set.
int AddDirectoryWatch(int descriptor, int directory, char const* suffix, std::uint32_t mask) noexcept;

class DirectoryWatch final : public PendingOperation, public std::enable_shared_from_this<DirectoryWatch>
{
public:
    /// Watches from here on. The descriptor of the directory must stay open until Close. Null with the last error set:
    /// ERROR_TOO_MANY_OPEN_FILES, ERROR_NO_SYSTEM_RESOURCES without a watch left, what the host says otherwise.
    static std::shared_ptr<DirectoryWatch> Make(int directory, DWORD filter) noexcept;

    DirectoryWatch(int directory, int descriptor, int watch, DWORD filter) noexcept;
    ~DirectoryWatch() override;
    DirectoryWatch(DirectoryWatch const&) = delete;
    DirectoryWatch& operator=(DirectoryWatch const&) = delete;

    /// False with the last error set: ERROR_BUSY during another reading, ERROR_ACCESS_DENIED when the directory has
    /// gone, ERROR_NOT_ENOUGH_MEMORY.
    bool Begin(ChangeReading next) noexcept;
    /// Ends the reading, or only that of `overlapped` if it isn't null. False if there is none.
    bool Cancel(OVERLAPPED const* overlapped) noexcept;
    /// Ends the reading with nothing. Called when the directory is about to be closed.
    void Close() noexcept;

    /// Whether this process made it, and not one that it was forked from.
    bool IsOwn() const noexcept { return descended == CurrentForks().descended; }
    /// What is to be done with one that isn't.
    static void Abandon(std::shared_ptr<DirectoryWatch>& watch) noexcept;

    /// What a reading that has no event of its own signals. Null before the first one.
    std::shared_ptr<Signal> Done() const noexcept;

    Needs WhatItNeeds() const noexcept override;
    void Advance() noexcept override;
    PendingOperation* Companion() const noexcept override { return surroundings.get(); }
    /// Ends the reading if it has.
    void LookWhetherItHasGone() noexcept;

private:
    /// What a renaming of the directory itself changes, and one of a directory above it doesn't.
    struct Place
    {
        dev_t device = 0; ///< of the parent
        ino_t parent = 0; ///< zero for one that can't be asked
        std::string name;

        bool operator==(Place const&) const = default;
    };

    // All with the lock.
    void ReadEvents() noexcept;
    bool ReadSome() noexcept;
    void DropBehindOverflow() noexcept;
    void Deliver() noexcept;
    void Hold() noexcept;
    bool HasGone() const noexcept;
    Place CurrentPlace() const;
    bool HasMoved() const noexcept;
    void WaitForRenaming() const noexcept;
    void Complete(DWORD code, DWORD byteCount) noexcept;

    // Taken before the lock of the signals, never behind it.
    mutable std::mutex mutex;
    int const directory;
    int const descriptor;
    unsigned const descended = CurrentForks().descended;
    std::shared_ptr<Surroundings> surroundings;
    Place place;
    bool isClosed = false;     // for good, by Close
    bool isLost = false;       // for good: the directory has gone or moved
    bool mayHaveGone = true;   // at first, before anybody watched; each delivery that has nothing else looks
    bool mayHaveMoved = false; // after an overflow; the next delivery looks
    bool hasMore = false;      // likely: the last reading of the host's events took much
    int looksSinceDelivery = 0;
    ChangeQueue queue;
    ChangeReading reading{};
    std::shared_ptr<Signal> done;
    /// Of what is held: when to go on, and whether anything is to be read before.
    std::chrono::nanoseconds due = never;
    bool isResting = false;
};

/// What stands in OVERLAPPED::Internal.
inline constexpr ULONG_PTR statusPending = 0x103;
/// Of an operation that failed with a code.
inline constexpr ULONG_PTR statusOfFailure = 0xC007'0000;

inline ULONG_PTR StatusOf(OVERLAPPED& overlapped) noexcept
{
    return std::atomic_ref(overlapped.Internal).load(std::memory_order_acquire);
}

} // namespace Brindle::Vok::Platform
