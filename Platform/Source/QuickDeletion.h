// Deletion of many files, without opening each to learn whether somebody has it open.
//
// While no other process has files open through the library, this one knows all handles that there are
// (HandleCounts.h): a file whose counter is zero is deleted as it is. An opening counts itself first and then looks
// whether there is a deletion that relies on the counters; a deletion says that it does and then looks at the counter.
// So at least one of the two sees the other. Only where the files are on disks of this host: elsewhere another host may
// have them open. (A host that gives such a disk to others, over a network or to a guest, must know that theirs aren't
// seen. Locks of programs that don't use the library are seen only where a file is opened, by the deletion of a single
// one.)
#pragma once

#include <cstdint>

namespace Brindle::Vok::Platform
{

/// What deletions and openings of this process do one after another. A deletion that opens its file holds it alone,
/// between looking whether the name still leads there and taking the name away: no other may make room for a new file
/// of that name. (Another process may, or the host's own rename, between the last look and the end.) Quick deletions
/// share it between their look and the end; an opening that may have met one waits for it. Held over the host's calls,
/// so an opening may wait as long as an unlink takes. Within it the mutex of OtherProcesses may be taken, and no other.
/// Who waits to hold it alone goes first.
class DeletionLock
{
public:
    void lock() noexcept;
    void lock_shared() noexcept;
    void unlock() noexcept;
    void unlock_shared() noexcept { unlock(); }
};

/// For an opening that is about to look whether its file has a name: quick deletions that there are and have been.
std::uint64_t QuickDeletionsSoFar() noexcept;
/// For the same opening, when it has counted itself: whether a quick deletion ran since then or still runs, so that it
/// must look again. Waits for the end of one that may not have seen it.
bool MayHaveMetQuickDeletion(std::uint64_t before) noexcept;

/// One thread's right to delete by the counters: waits for a few deletions, holds until others come, then is given up
/// for good.
class QuickDeletion
{
public:
    QuickDeletion() noexcept = default;
    ~QuickDeletion() { End(); }
    QuickDeletion(QuickDeletion const&) = delete;
    QuickDeletion& operator=(QuickDeletion const&) = delete;

    /// Asked once for each file, with a DeletionLock held: whether the counters tell of all handles.
    bool KnowsAllHandles() noexcept;

private:
    enum class State : std::uint8_t
    {
        waits,
        relies,
        gaveUp
    };

    void End() noexcept;

    State state = State::waits;
    unsigned turns = 0;
    /// Forks that led to this process when it began to rely: a child that inherits it has nothing to end.
    unsigned forks = 0;
};

} // namespace Brindle::Vok::Platform
