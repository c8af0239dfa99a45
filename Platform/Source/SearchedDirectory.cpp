#include "SearchedDirectory.h"

#include "HostErrors.h"
#include "SystemCalls.h"

#include <algorithm>
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

// The address tells threads apart. The flag spares threads without a search the lock; it may stay set when a search was
// closed by another thread.
constinit thread_local bool mayHaveSearches = false;

} // namespace

std::shared_ptr<SearchedDirectory> SearchedDirectory::Remember(int descriptor, std::string path)
{
    std::shared_ptr<SearchedDirectory> directory(new (std::nothrow) SearchedDirectory(descriptor, std::move(path)));
    if (!directory)
    {
        SystemCalls::Close(descriptor);
        throw std::bad_alloc();
    }
    std::lock_guard const lock(Lock());
    directory->owner = &mayHaveSearches;
    Directories().push_back(directory);
    mayHaveSearches = true;
    return directory;
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
    if (owner == &mayHaveSearches)
        mayHaveSearches = std::any_of(all.begin(), all.end(), [&](auto const& each) { return each->owner == owner; });
}

SearchedDirectory::~SearchedDirectory()
{
    SystemCalls::Close(descriptor);
}

void SearchedDirectory::Tell(std::string_view name, bool isLink) noexcept
{
    std::lock_guard const lock(Lock());
    toldLength = std::min(name.size(), sizeof told);
    std::memcpy(told, name.data(), toldLength);
    toldLink = isLink;
}

std::shared_ptr<SearchedDirectory> SearchedDirectory::Find(std::string_view path, std::string_view name,
                                                           bool& mayBeLink) noexcept
{
    std::lock_guard const lock(Lock());
    auto const& all = Directories();
    // The search that was opened last is the likeliest.
    auto const found =
        std::find_if(all.rbegin(), all.rend(),
                     [path](auto const& each) { return each->owner == &mayHaveSearches && each->path == path; });
    if (found == all.rend())
        return nullptr;
    SearchedDirectory const& directory = **found;
    mayBeLink = directory.toldLink || std::string_view(directory.told, directory.toldLength) != name;
    return *found;
}

Place::Place(HostPath const& path) noexcept : name(path.Text())
{
    if (!mayHaveSearches || path.IsRoot())
        return;
    try
    {
        std::string const text = AbsolutePath(path);
        std::size_t const separator = text.rfind('/');
        std::string_view const last = std::string_view(text).substr(separator + 1);
        if (separator == std::string::npos || !path.View().ends_with(last))
            return;
        std::string_view const parent = std::string_view(text).substr(0, std::max<std::size_t>(separator, 1));
        directory = SearchedDirectory::Find(parent, last, mayBeLink);
        if (directory)
            name = path.Text() + (path.View().size() - last.size());
    }
    catch (std::bad_alloc const&) // the whole path leads there too
    {
    }
}

int Place::Directory() const noexcept
{
    return directory ? directory->Descriptor() : AT_FDCWD;
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
