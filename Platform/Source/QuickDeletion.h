// Deletion of many files of one directory, without opening each to learn whether somebody has it open.
//
// While no other process has files open through the library, the kernel's list of locks holds every handle that there
// is. It is read once and used for all that follows, until this process opens another file. An opening takes its locks
// first and then looks whether there is a deletion that trusts the list; a deletion says that it does and then reads
// the list. So at least one of the two sees the other.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <sys/types.h>

namespace Brindle::Vok::Platform
{

/// Deletions of files, one at a time: between looking at a file and taking its name away, no other deletion of this
/// process may make room for a new file of that name, and no opening may be granted that the deletion didn't know of.
/// (Another process may put a new file there, for the length of one system call.)
std::mutex& Deletions() noexcept;

/// What a search has told of a file, and when.
struct ToldStatus
{
    mode_t mode;
    ino_t number;
    std::chrono::nanoseconds time;
    /// Openings and changes of attributes by this process up to then.
    std::uint64_t changes;
};

/// The last two members, to be taken before the file is looked at.
ToldStatus ToldFromNow() noexcept;

/// To be called by whoever changed the attributes of a file.
void TellDeletionsOfChange() noexcept;
/// To be called by an opening between taking its locks and looking whether its file still has a name.
void TellDeletionsOfOpening() noexcept;

/// What a search's directory knows of it.
class QuickDeletion
{
public:
    QuickDeletion() noexcept = default;
    ~QuickDeletion() { End(); }
    QuickDeletion(QuickDeletion const&) = delete;
    QuickDeletion& operator=(QuickDeletion const&) = delete;

    /// With Deletions() held, for an open directory: whether it can be told of its files that nobody has them open.
    bool Begin(int directory) noexcept;
    /// With Deletions() still held: whether the file needs no second look. The caller has had no time to do more than
    /// to have it deleted.
    static bool IsRecent(ToldStatus const& told) noexcept;
    /// With Deletions() still held: whether a file of that number may be open.
    static bool MayBeOpen(ino_t file) noexcept;

private:
    enum class State : std::uint8_t
    {
        waits, ///< for the directory to have as many deletions as make it worthwhile
        relies,
        gaveUp
    };

    void End() noexcept;

    State state = State::waits;
    unsigned deletions = 0;
};

} // namespace Brindle::Vok::Platform
