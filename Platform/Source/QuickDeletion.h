// Deletion of many files of one directory, without opening each to learn whether somebody has it open.
//
// While no other process has files open through the library, this one knows all handles that there are. It counts them
// in a table by the numbers of their files; a file whose counter is zero is deleted as it is. An opening counts itself
// first and then looks whether there is a deletion that relies on the table; a deletion says that it does and then
// looks at the table. So at least one of the two sees the other. (Locks of programs that don't use the library are seen
// only where files are opened, by the deletion of a single one.)
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <sys/types.h>

namespace Brindle::Vok::Platform
{

/// Deletions of files, one at a time: between looking at a file and taking its name away, no other deletion of this
/// process may make room for a new file of that name, and no opening may be granted that the deletion didn't know of.
/// (Another process may put a new file there, for the length of one system call.)
std::mutex& Deletions() noexcept;

/// The handles on files whose numbers share a counter.
using HandleCounter = std::atomic<std::uint32_t>;
HandleCounter& HandlesOn(ino_t file) noexcept;

/// A value that an opening takes before it looks whether its file still has a name, and gives back here when it has
/// counted itself. True when a quick deletion ran meanwhile or still runs, so that it must look again.
std::uint64_t QuickDeletionsSoFar() noexcept;
bool TellDeletionsOfOpening(std::uint64_t before) noexcept;

/// The state of it, of one thread's searches.
class QuickDeletion
{
public:
    QuickDeletion() noexcept = default;
    ~QuickDeletion() { End(); }
    QuickDeletion(QuickDeletion const&) = delete;
    QuickDeletion& operator=(QuickDeletion const&) = delete;

    /// With Deletions() held: whether it can be told of files that nobody has them open.
    bool Begin() noexcept;

private:
    enum class State : std::uint8_t
    {
        waits, ///< for as many deletions as make it worthwhile
        relies,
        gaveUp
    };

    void End() noexcept;

    State state = State::waits;
    unsigned deletions = 0;
};

} // namespace Brindle::Vok::Platform
