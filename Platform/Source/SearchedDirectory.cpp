#include "SearchedDirectory.h"

#include "Forks.h"
#include "HostErrors.h"
#include "SystemCalls.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>
#include <iterator>
#include <mutex>
#include <new>
#include <vector>

namespace Brindle::Vok::Platform
{
namespace
{

// Searches are few at a time, so one list and one lock serve all threads. They are there before any code runs, as a
// fork needs them, and the list is never destroyed: static destructors may still delete directories.
constinit std::mutex listMutex;

union List
{
    constexpr List() noexcept : directories() {}
    ~List() {}
    std::vector<std::shared_ptr<SearchedDirectory>> directories;
};

constinit List list;

// How many directories the searches of one thread keep open.
constexpr std::size_t mostOpen = 16;

// Other hosts may have files on other kinds open, and of a file of theirs the number may change.
bool IsOnLocalDisk(int descriptor) noexcept
{
    struct statfs status;
    if (SystemCalls::StatusOfFileSystem(descriptor, &status) != 0)
        return false;
    constexpr std::uint64_t kinds[] = {0xEF53, 0x5846'5342, 0x9123'683E, 0xF2F5'2010,
                                       0x0102'1994}; // ext, XFS, Btrfs, F2FS, tmpfs
    return std::find(std::begin(kinds), std::end(kinds), static_cast<std::uint64_t>(status.f_type)) != std::end(kinds);
}

// The number of the calling thread, given at its first search; zero for one that has none. (Of a thread whose last
// search was closed by another one it stays.)
constinit thread_local std::uint64_t thisThread = 0;

std::uint64_t NumberOfThisThread() noexcept
{
    static constinit std::atomic<std::uint64_t> last{0};
    if (thisThread == 0)
        thisThread = ++last;
    return thisThread;
}

} // namespace

// A child must find the list in order, and no directory in the hands of a thread that it doesn't have.
void SearchedDirectory::StartAnewInChild() noexcept
{
    for (std::shared_ptr<SearchedDirectory> const& each : list.directories)
    {
        if (!each->use.try_lock())
            each->torn = each;
        std::construct_at(&each->use);
    }
}

[[maybe_unused]] int const SearchedDirectory::keepsOrderInChild = HoldInForks<listMutex, StartAnewInChild>();

std::shared_ptr<SearchedDirectory> SearchedDirectory::Remember(Descriptor descriptor, std::string path, bool hasEntries)
{
    std::unique_ptr<SearchedDirectory> made(new SearchedDirectory(descriptor.Get(), std::move(path), hasEntries));
    int const number = descriptor.Release();
    std::shared_ptr<SearchedDirectory> const directory(std::move(made));
    directory->isLocal = IsOnLocalDisk(number);
    {
        std::lock_guard const lock(listMutex);
        directory->owner = NumberOfThisThread();
        list.directories.push_back(directory);
    }
    directory->ParkOthers();
    return directory;
}

bool SearchedDirectory::EnsureOpen() noexcept
{
    if (IsTorn())
        return FailWith(ERROR_INVALID_HANDLE);
    if (!stream.IsParked())
        return true;
    if (!stream.Reopen(path))
        return false;
    ParkOthers();
    return true;
}

void SearchedDirectory::ParkOthers() const noexcept
{
    // One whose search has been moved to another thread may be in use there, and one whose names don't fit into memory
    // stays open; then it is the next one's turn.
    for (std::shared_ptr<SearchedDirectory> other = OldestToPark(nullptr); other; other = OldestToPark(other.get()))
        if (std::unique_lock const lock(other->use, std::try_to_lock); lock)
            other->stream.Park();
}

// Of the calling thread's open directories, when there are too many, the one that was opened first, behind a given one.
std::shared_ptr<SearchedDirectory> SearchedDirectory::OldestToPark(SearchedDirectory const* after) const noexcept
{
    std::lock_guard const lock(listMutex);
    auto const& all = list.directories;
    auto const isOpen = [](auto const& each) { return each->owner == thisThread && !each->stream.IsParked(); };
    if (static_cast<std::size_t>(std::count_if(all.begin(), all.end(), isOpen)) <= mostOpen)
        return nullptr;
    auto const begin = std::find_if(all.begin(), all.end(), [after](auto const& each) { return each.get() == after; });
    auto const found = std::find_if(begin == all.end() ? all.begin() : std::next(begin), all.end(),
                                    [&](auto const& each) { return isOpen(each) && each.get() != this; });
    return found == all.end() ? nullptr : *found;
}

void SearchedDirectory::Forget() noexcept
{
    std::shared_ptr<SearchedDirectory> forgotten;
    std::lock_guard const lock(listMutex);
    auto& all = list.directories;
    auto const found = std::find_if(all.rbegin(), all.rend(), [this](auto const& each) { return each.get() == this; });
    if (found == all.rend())
        return;
    forgotten = std::move(*found);
    all.erase(std::next(found).base());
    bool const isLast = std::none_of(all.begin(), all.end(), [&](auto const& each) { return each->owner == owner; });
    if (owner == thisThread && isLast)
        thisThread = 0;
}

void SearchedDirectory::Tell(std::string_view name, ToldStatus const& status) noexcept
{
    std::lock_guard const lock(listMutex);
    toldLength = std::min(name.size(), sizeof toldName);
    std::memcpy(toldName, name.data(), toldLength);
    told = status;
    toldUnasked.fetch_add(1, std::memory_order_relaxed);
}

// Finds the directory among those of the calling thread.
void Place::Find(std::string_view path, std::string_view lastName) noexcept
{
    std::lock_guard const lock(listMutex);
    auto const& all = list.directories;
    auto const isOwn = [](auto const& each) { return each->owner == thisThread; };
    // The search that was opened last is the likeliest.
    auto const found =
        std::find_if(all.rbegin(), all.rend(), [&](auto const& each) { return isOwn(each) && each->path == path; });
    if (found == all.rend())
        return;
    directory = *found;
    directory->toldUnasked.store(0, std::memory_order_relaxed);
    first = *std::find_if(all.begin(), all.end(), isOwn);
    if (std::string_view(directory->toldName, directory->toldLength) == lastName)
        told = directory->told;
}

Place::Place(HostPath const& path) noexcept : name(path.Text())
{
    if (!Find(path) || !directory)
        return;
    std::lock_guard const lock(directory->Use());
    isReachable = directory->EnsureOpen();
}

std::optional<ToldStatus> Place::ToldOf(HostPath const& path) noexcept
{
    Place place;
    place.Find(path);
    return place.told;
}

bool Place::Find(HostPath const& path) noexcept
{
    if (thisThread == 0 || path.IsRoot())
        return true;
    try
    {
        // Absolute paths, which most are, take no memory.
        std::string const made = path.View().starts_with('/') ? std::string() : AbsolutePath(path);
        std::string_view const text = made.empty() ? path.View() : std::string_view(made);
        std::size_t const separator = text.rfind('/');
        std::string_view const last = text.substr(separator + 1);
        if (separator == std::string_view::npos || !path.View().ends_with(last))
            return true;
        Find(text.substr(0, std::max<std::size_t>(separator, 1)), last);
        if (directory)
            name = path.Text() + (path.View().size() - last.size());
    }
    catch (std::bad_alloc const&)
    {
        isReachable = FailWith(ERROR_NOT_ENOUGH_MEMORY);
    }
    return isReachable;
}

int Place::Directory() const noexcept
{
    return directory ? directory->Stream().Descriptor() : AT_FDCWD;
}

std::string AbsolutePath(HostPath const& path)
{
    std::string_view const text = path.View();
    if (text.starts_with('/'))
        return std::string(text);
    char buffer[PATH_MAX];
    if (!SystemCalls::GetWorkingDirectory(buffer, sizeof buffer))
    {
        FailWithHost(errno);
        return {};
    }
    std::string absolute = buffer;
    if (text == ".")
        return absolute;
    if (absolute != "/")
        absolute += '/';
    return absolute.append(text);
}

} // namespace Brindle::Vok::Platform
