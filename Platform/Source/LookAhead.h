// A second thread that asks the host about the entries of a directory, from the last one backwards, while a search goes
// through them from the first one on. Most of the time of such a question the processor waits for memory, so two that
// ask at a time are nearly twice as fast as one.
//
//     lookAhead.Begin(descriptor, records, from);
//     EntryStatus const* status = lookAhead.Find(entry);     // for each in turn; null: ask yourself
//     lookAhead.End();                                       // before the descriptor is closed or the records go
//
// The thread asks with the credentials of the thread that began, whoever that impersonated. A status is as old as the
// beginning, and 50 milliseconds at most: whoever takes longer over the entries asks about the rest again. For one
// thread at a time.
#pragma once

#include "FileStatus.h"
#include "Forks.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <dirent.h>
#include <memory>
#include <pthread.h>

namespace Brindle::Vok::Platform
{

/// The record at a place in what the host gave, in units of 8 bytes.
inline dirent64 const& RecordAt(std::uint64_t const* records, std::uint16_t place) noexcept
{
    return *reinterpret_cast<dirent64 const*>(records + place);
}

/// The host's records of a directory's entries, and their order.
struct EntryRecords
{
    dirent64 const& RecordOf(std::size_t entry) const noexcept { return RecordAt(records, order[entry]); }

    std::uint64_t const* records;
    std::uint16_t const* order;
    std::size_t count;
};

class LookAhead
{
public:
    LookAhead() noexcept = default;
    ~LookAhead() { End(); }
    LookAhead(LookAhead const&) = delete;
    LookAhead& operator=(LookAhead const&) = delete;

    /// Does nothing where a second thread can't help: for few entries, without a processor or memory for it. Nor does
    /// it once it has ended early.
    void Begin(int directory, EntryRecords const& entries, std::size_t from) noexcept;
    /// The status of an entry that the second thread has asked about. Null where the caller is to ask, which goes for
    /// all entries if nothing has begun. Waits for the thread once all are taken. The entries asked for only grow.
    EntryStatus const* Find(std::size_t entry) noexcept;
    /// At the end of the entries.
    void End() noexcept;
    /// Somebody has changed something, or is about to: what has been learned is forgotten, and nothing begins any more.
    void EndForGood() noexcept;
    bool HasBegun() const noexcept { return statuses != nullptr; }

private:
    static void* Run(void* self) noexcept;
    void Ask() noexcept;
    bool TakeFront(std::size_t entry) noexcept;
    void Join() noexcept;

    int descriptor = -1;
    EntryRecords records{};
    std::unique_ptr<EntryStatus[]> statuses;
    /// What nobody has taken yet: the first one in the low half, the end in the high half. The caller takes entries
    /// from the front, the thread from the back.
    std::atomic<std::uint64_t> untaken{0};
    /// The end of what the caller has taken.
    std::size_t ownEnd = 0;
    /// The thread need not go on.
    std::atomic<bool> stops{false};
    pthread_t thread{};
    bool isRunning = false;
    /// Since the last end.
    bool hasTried = false;
    bool isOver = false;
    std::chrono::nanoseconds end{0};
    /// A child process doesn't have the thread.
    ForkCounts forks;
};

} // namespace Brindle::Vok::Platform
