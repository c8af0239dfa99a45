// Directories whose searches are open, and the places in them.
//
// While a search is open, what the same thread does to a name of its directory goes through the search's descriptor.
// That is faster than a walk along the whole path, and it stays in that very directory, whatever has been put in the
// place of any directory on the way. A name that the search told of as no link isn't followed if it has become one.
#pragma once

#include "Names.h"

#include <memory>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace Brindle::Vok::Platform
{

/// The open directory of one search. Objects are shared: who works in the directory keeps its descriptor open.
class SearchedDirectory
{
public:
    /// Takes over the descriptor. `path` is absolute. From here until Forget() the calling thread's places are found in
    /// it. May throw std::bad_alloc, and closes the descriptor then.
    static std::shared_ptr<SearchedDirectory> Remember(int descriptor, std::string path);
    /// The search has ended, perhaps on another thread.
    void Forget() noexcept;

    ~SearchedDirectory();
    SearchedDirectory(SearchedDirectory const&) = delete;
    SearchedDirectory& operator=(SearchedDirectory const&) = delete;

    int Descriptor() const noexcept { return descriptor; }

    /// Keeps what the search tells of its current entry.
    void Tell(std::string_view name, bool isLink) noexcept;

private:
    friend class Place;

    SearchedDirectory(int descriptor, std::string path) noexcept : path(std::move(path)), descriptor(descriptor) {}

    /// That of the calling thread for a path; null if there is none. mayBeLink becomes true unless the search has just
    /// told of the name as something else.
    static std::shared_ptr<SearchedDirectory> Find(std::string_view path, std::string_view name,
                                                   bool& mayBeLink) noexcept;

    std::string const path;
    int const descriptor;
    // What follows is guarded by the mutex of all searches.
    void const* owner = nullptr;
    char told[256] = {};
    std::size_t toldLength = 0;
    bool toldLink = false;
};

/// Where the last name of a path is looked up: in the directory of an open search, otherwise from the path as a whole.
class Place
{
public:
    explicit Place(HostPath const& path) noexcept;

    /// A descriptor, or AT_FDCWD.
    int Directory() const noexcept;
    char const* Name() const noexcept { return name; }
    /// A link at this place was put there after a search had told of something else.
    bool RefusesLinks() const noexcept { return directory && !mayBeLink; }

private:
    std::shared_ptr<SearchedDirectory> directory;
    char const* name;
    bool mayBeLink = true;
};

/// The path from the host's root. Empty with the last error set when the working directory can't be told. May throw
/// std::bad_alloc.
std::string AbsolutePath(HostPath const& path);

} // namespace Brindle::Vok::Platform
