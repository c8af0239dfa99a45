// Directories whose searches are open, and the places in them.
//
// While a search is open, what the same thread searches, deletes or makes writable in its directory goes through the
// search's descriptor. That is faster than a walk along the whole path, and it stays in that very directory, whatever
// has been put in the place of any directory on the way. A name that the search told of as no link isn't followed if it
// has become one. A search for a plain name keeps the directory of the name open in the same way.
//
// Of the searches of a thread only so many keep their directories open; those that were opened first are parked, and
// opened again when their turn comes. So descriptors stay bounded however deep a tree is.
#pragma once

#include "Descriptor.h"
#include "DirectoryStream.h"
#include "Names.h"
#include "QuickDeletion.h"
#include "ToldStatus.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace Brindle::Vok::Platform
{

/// The directory of one search. Objects are shared: who works in the directory keeps it.
class SearchedDirectory
{
public:
    /// Takes over the descriptor, and may park any other directory of the thread, so a Place that was made before must
    /// not be used afterwards. `path` is absolute. From here until Forget() the calling thread's places are found in
    /// it. May throw std::bad_alloc.
    static std::shared_ptr<SearchedDirectory> Remember(Descriptor descriptor, std::string path, bool hasEntries);
    /// The search has ended, perhaps on another thread.
    void Forget() noexcept;

    /// Held by whoever works with the stream.
    std::mutex& Use() noexcept { return use; }
    DirectoryStream& Stream() noexcept { return stream; }
    /// In a child process: another thread was at work here when its parent forked, so nobody can go on.
    bool IsTorn() const noexcept { return torn != nullptr; }
    /// Opens a parked directory, with Use() held. False with the last error set, ERROR_INVALID_HANDLE for a torn one.
    bool EnsureOpen() noexcept;

    /// Keeps what the search tells of its current entry.
    void Tell(std::string_view name, ToldStatus const& status) noexcept;
    /// How many entries it has told of since the thread last asked about one, or changed one.
    unsigned ToldUnasked() const noexcept { return toldUnasked.load(std::memory_order_relaxed); }

private:
    friend class Place;

    SearchedDirectory(int descriptor, std::string path, bool hasEntries) noexcept
        : path(std::move(path)), stream(descriptor, hasEntries)
    {
    }

    static void StartAnewInChild() noexcept;
    static int const keepsOrderInChild;
    void ParkOthers() const noexcept;
    std::shared_ptr<SearchedDirectory> OldestToPark(SearchedDirectory const* after) const noexcept;

    std::string const path;
    std::mutex use;
    DirectoryStream stream;
    QuickDeletion quick;
    bool isLocal = false;
    /// Itself, so that what is torn is never destroyed.
    std::shared_ptr<SearchedDirectory> torn;
    // What follows is guarded by the mutex of all searches.
    std::uint64_t owner = 0;
    char toldName[256] = {};
    std::size_t toldLength = 0;
    ToldStatus told = {};
    std::atomic<unsigned> toldUnasked{0};
};

/// Where the last name of a path is looked up: in the directory of an open search, otherwise from the path as a whole.
class Place
{
public:
    explicit Place(HostPath const& path) noexcept;

    /// What a search of the calling thread has just told of the path, without opening what is parked.
    static std::optional<ToldStatus> ToldOf(HostPath const& path) noexcept;

    /// False with the last error set when the search's directory had been parked and can't be opened again. Nothing
    /// else may be done with the place then: the path may lead to another directory now.
    bool IsReachable() const noexcept { return isReachable; }
    /// A descriptor, or AT_FDCWD.
    int Directory() const noexcept;
    char const* Name() const noexcept { return name; }
    /// A link at this place was put there after a search had told of something else.
    bool RefusesLinks() const noexcept { return told && !S_ISLNK(told->mode); }
    /// What the search has just told of the name.
    std::optional<ToldStatus> const& Told() const noexcept { return told; }
    bool IsSearched() const noexcept { return directory != nullptr; }
    /// In a searched directory on a disk that only this host has, and whose numbers of files stay.
    bool IsLocal() const noexcept { return directory && directory->isLocal; }
    /// For a place in a searched directory: the right to delete quickly, for as long as the thread's first search is
    /// open.
    QuickDeletion& Quick() const noexcept { return first->quick; }

private:
    std::shared_ptr<SearchedDirectory> directory;
    std::shared_ptr<SearchedDirectory> first;
    char const* name = nullptr;
    std::optional<ToldStatus> told;
    bool isReachable = true;

    Place() noexcept = default;
    /// False with the last error set.
    bool Find(HostPath const& path) noexcept;
    void Find(std::string_view path, std::string_view lastName) noexcept;
};

/// The path from the host's root. Empty with the last error set when the working directory can't be told. May throw
/// std::bad_alloc.
std::string AbsolutePath(HostPath const& path);

} // namespace Brindle::Vok::Platform
