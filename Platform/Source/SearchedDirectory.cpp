#include "SearchedDirectory.h"

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

// Searches are few at a time, so one list and one lock serve all threads. Neither is ever destroyed: static destructors
// may still delete directories.
std::mutex& Lock()
{
    static std::mutex& lock = *new std::mutex;
    return lock;
}

std::vector<std::shared_ptr<SearchedDirectory>>& Directories()
{
    static auto& directories = *new std::vector<std::shared_ptr<SearchedDirectory>>;
    return directories;
}

// How many directories the searches of one thread keep open.
constexpr std::size_t mostOpen = 16;

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

std::shared_ptr<SearchedDirectory> SearchedDirectory::Remember(int descriptor, std::string path, bool hasEntries)
{
    std::shared_ptr<SearchedDirectory> directory(new (std::nothrow)
                                                     SearchedDirectory(descriptor, std::move(path), hasEntries));
    if (!directory)
    {
        SystemCalls::Close(descriptor);
        throw std::bad_alloc();
    }
    {
        std::lock_guard const lock(Lock());
        directory->owner = NumberOfThisThread();
        Directories().push_back(directory);
    }
    while (std::shared_ptr<SearchedDirectory> const other = OldestToPark(*directory))
    {
        std::unique_lock const lock(other->use, std::try_to_lock); // its search may have been moved to another thread
        if (!lock || !other->stream.Park())
            break;
    }
    return directory;
}

std::shared_ptr<SearchedDirectory> SearchedDirectory::OldestToPark(SearchedDirectory const& newest) noexcept
{
    std::lock_guard const lock(Lock());
    auto const isOpen = [&](auto const& each) { return each->owner == newest.owner && !each->stream.IsParked(); };
    auto const& all = Directories();
    if (static_cast<std::size_t>(std::count_if(all.begin(), all.end(), isOpen)) <= mostOpen)
        return nullptr;
    auto const found = std::find_if(all.begin(), all.end(), isOpen);
    return found->get() == &newest ? nullptr : *found;
}

void SearchedDirectory::Forget() noexcept
{
    std::shared_ptr<SearchedDirectory> forgotten;
    std::lock_guard const lock(Lock());
    auto& all = Directories();
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
    std::lock_guard const lock(Lock());
    toldLength = std::min(name.size(), sizeof toldName);
    std::memcpy(toldName, name.data(), toldLength);
    told = status;
}

// Finds the directory among those of the calling thread.
void Place::Find(std::string_view path, std::string_view lastName) noexcept
{
    std::lock_guard const lock(Lock());
    auto const& all = Directories();
    auto const isOwn = [](auto const& each) { return each->owner == thisThread; };
    // The search that was opened last is the likeliest.
    auto const found =
        std::find_if(all.rbegin(), all.rend(), [&](auto const& each) { return isOwn(each) && each->path == path; });
    if (found == all.rend())
        return;
    directory = *found;
    first = *std::find_if(all.begin(), all.end(), isOwn);
    if (std::string_view(directory->toldName, directory->toldLength) == lastName)
        told = directory->told;
}

Place::Place(HostPath const& path) noexcept : name(path.Text())
{
    if (thisThread == 0 || path.IsRoot())
        return;
    try
    {
        // Absolute paths, which most are, take no memory.
        std::string const made = path.View().starts_with('/') ? std::string() : AbsolutePath(path);
        std::string_view const text = made.empty() ? path.View() : std::string_view(made);
        std::size_t const separator = text.rfind('/');
        std::string_view const last = text.substr(separator + 1);
        if (separator == std::string_view::npos || !path.View().ends_with(last))
            return;
        Find(text.substr(0, std::max<std::size_t>(separator, 1)), last);
        if (!directory)
            return;
        name = path.Text() + (path.View().size() - last.size());
        std::lock_guard const lock(directory->Use());
        isReachable = directory->EnsureOpen();
    }
    catch (std::bad_alloc const&)
    {
        isReachable = FailWith(ERROR_NOT_ENOUGH_MEMORY);
    }
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
