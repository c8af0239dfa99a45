#include "Descriptor.h"
#include "FileStatus.h"
#include "HandleTable.h"
#include "HostErrors.h"
#include "Names.h"
#include "Pattern.h"
#include "SearchedDirectory.h"
#include "SystemCalls.h"

#include <Brindle/Platform/Files.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>

namespace Brindle::Vok::Platform
{
namespace
{

void FillFrom(EntryStatus const& status, WIN32_FIND_DATAW& data) noexcept
{
    data.dwFileAttributes = AttributesFromMode(status.mode);
    data.ftCreationTime = status.creation;
    data.ftLastAccessTime = status.lastAccess;
    data.ftLastWriteTime = status.lastWrite;
    data.nFileSizeHigh = static_cast<DWORD>(status.size >> 32);
    data.nFileSizeLow = static_cast<DWORD>(status.size);
    data.dwReserved0 = S_ISLNK(status.mode) ? IO_REPARSE_TAG_SYMLINK : 0;
}

// What is left to tell of a name in a directory whose entries may be read but not asked about.
EntryStatus StatusFromType(unsigned char type) noexcept
{
    EntryStatus status{};
    status.mode = static_cast<mode_t>(DTTOIF(type)) | S_IWUSR;
    return status;
}

void FillName(std::string_view name, WIN32_FIND_DATAW& data) noexcept
{
    data.cFileName[WideNameFromHost(name, data.cFileName)] = 0;
    data.cAlternateFileName[0] = 0;
    data.dwReserved1 = 0;
}

// How many entries nobody has asked further about before a search is taken for a mere listing: no more looks are timed
// then, and statuses are asked for ahead.
constexpr unsigned entriesOfListing = 32;

/// A search under way. One for a plain name is at its end, and keeps the directory that the name is in.
class Search final : public Object
{
public:
    static constexpr Kinds kinds = KindsOf(Kind::search);

    Search(Pattern pattern, bool wantsDirectories) noexcept
        : Object(Kind::search), pattern(std::move(pattern)), wantsDirectories(wantsDirectories)
    {
    }
    ~Search() override
    {
        if (directory)
            directory->Forget();
    }

    /// False with the last error set.
    bool Open(HostPath const& path);
    /// For a plain name, of which the record tells. False with the last error set.
    bool FindPlainName(HostPath const& path, WIN32_FIND_DATAW& data);
    bool Next(WIN32_FIND_DATAW& data) noexcept;

private:
    bool NextEntry(DirectoryStream::Entry& entry) noexcept;
    int Examine(DirectoryStream::Entry const& entry, WIN32_FIND_DATAW& data) noexcept;
    EntryStatus Look(DirectoryStream::Entry const& entry, std::chrono::nanoseconds& holdsUntil) noexcept;

    Pattern pattern;
    std::shared_ptr<SearchedDirectory> directory;
    unsigned dotsGiven = 0;
    unsigned toldBefore = 0;
    bool isPlain = false;
    bool wantsDirectories;
};

bool Search::Open(HostPath const& path)
{
    std::string absolute = AbsolutePath(path);
    if (absolute.empty())
        return false;
    Place const place(path);
    if (!place.IsReachable())
        return false;
    int const flags = O_RDONLY | O_DIRECTORY | O_NONBLOCK | (place.RefusesLinks() ? O_NOFOLLOW : 0);
    Descriptor opened = OpenHost(place.Directory(), place.Name(), flags);
    if (opened)
    {
        directory = SearchedDirectory::Remember(std::move(opened), std::move(absolute), true);
        return true;
    }
    int const error = errno;
    if (error == ENOENT)
        return FailWith(ERROR_PATH_NOT_FOUND);
    if (error != ENOTDIR)
        return FailWithHost(error);
    // Either the name is no directory, or one on the way to it isn't.
    struct stat status;
    bool const isThere = SystemCalls::StatusAt(place.Directory(), place.Name(), &status, 0) == 0;
    return FailWith(isThere ? ERROR_DIRECTORY : ERROR_PATH_NOT_FOUND);
}

bool Search::FindPlainName(HostPath const& path, WIN32_FIND_DATAW& data)
{
    if (path.IsRoot() || path.NamesDirectory())
        return FailWith(ERROR_FILE_NOT_FOUND);
    std::string absolute = AbsolutePath(path);
    Place const place(path);
    if (absolute.empty() || !place.IsReachable())
        return false;
    std::string const name = absolute.substr(absolute.rfind('/') + 1);
    absolute.resize(std::max<std::size_t>(absolute.size() - name.size(), 2) - 1);
    char const* const parent = place.IsSearched() ? "." : absolute.c_str();
    Descriptor opened = OpenHost(place.Directory(), parent, O_PATH | O_DIRECTORY);
    int const descriptor = opened.Get();
    if (!opened)
        return errno == ENOENT || errno == ENOTDIR ? FailWith(ERROR_PATH_NOT_FOUND) : FailWithHost(errno);
    directory = SearchedDirectory::Remember(std::move(opened), std::move(absolute), false);
    isPlain = true;
    EntryStatus const status = StatusOfEntry(descriptor, name.c_str());
    if (status.error != 0)
        return FailWithHost(status.error);
    if (name.size() >= MAX_PATH)
        return FailWith(ERROR_FILENAME_EXCED_RANGE);
    FillFrom(status, data);
    FillName(name, data);
    directory->Tell(name, {status.mode, status.number}); // which doesn't hold: nobody took the time
    return true;
}

bool Search::Next(WIN32_FIND_DATAW& data) noexcept
{
    if (isPlain)
        return FailWith(ERROR_NO_MORE_FILES);
    std::lock_guard const lock(directory->Use());
    bool const isAtEnd = !directory->IsTorn() && dotsGiven == 2 && directory->Stream().IsAtEnd();
    if (!isAtEnd && !directory->EnsureOpen())
        return false;
    for (DirectoryStream::Entry entry; NextEntry(entry);)
    {
        if (entry.length >= MAX_PATH)
            return FailWith(ERROR_FILENAME_EXCED_RANGE); // no file system of the host has such names
        if (wantsDirectories && entry.type != DT_DIR && entry.type != DT_LNK && entry.type != DT_UNKNOWN)
            continue; // a link may lead to one
        FillName({entry.name, entry.length}, data);
        if (!pattern.Fits(data.cFileName))
            continue;
        int const error = Examine(entry, data);
        if (error == 0)
            return true;
        if (error != ENOENT) // otherwise it vanished
            return FailWithHost(error);
    }
    return false;
}

// Gives what the host failed with, or 0.
int Search::Examine(DirectoryStream::Entry const& entry, WIN32_FIND_DATAW& data) noexcept
{
    std::chrono::nanoseconds holdsUntil{0};
    EntryStatus status = Look(entry, holdsUntil);
    if (status.error == EACCES)
        status = StatusFromType(entry.type);
    if (status.error != 0)
        return status.error;
    FillFrom(status, data);
    directory->Tell({entry.name, entry.length}, {status.mode, status.number, holdsUntil});
    return 0;
}

EntryStatus Search::Look(DirectoryStream::Entry const& entry, std::chrono::nanoseconds& holdsUntil) noexcept
{
    DirectoryStream& stream = directory->Stream();
    unsigned const toldUnasked = directory->ToldUnasked();
    if (toldUnasked < toldBefore)
        stream.StopAskingAhead(); // somebody has asked about an entry, or changed one
    toldBefore = toldUnasked;
    if (toldUnasked < entriesOfListing)
    {
        TimedLook const look;
        EntryStatus const status = StatusOfEntry(stream.Descriptor(), entry.name);
        if (status.error == 0)
            holdsUntil = look.End();
        return status;
    }
    if (pattern.FitsAll() && !wantsDirectories)
        stream.AskAhead();
    EntryStatus const* const known = stream.KnownStatus();
    return known ? *known : StatusOfEntry(stream.Descriptor(), entry.name);
}

// False with the last error set, ERROR_NO_MORE_FILES at the end.
bool Search::NextEntry(DirectoryStream::Entry& entry) noexcept
{
    if (dotsGiven == 2)
        return directory->Stream().Next(entry);
    ++dotsGiven;
    entry = {dotsGiven == 1 ? "." : "..", dotsGiven, DT_DIR};
    return true;
}

// Where the last part of a path begins.
std::size_t BeginOfName(std::wstring_view text) noexcept
{
    bool const verbatim = text.starts_with(L"\\\\?\\");
    std::size_t const separator = text.find_last_of(verbatim ? L"\\" : L"\\/");
    if (separator != std::wstring_view::npos)
        return separator + 1;
    return text.size() >= 2 && text[1] == L':' ? 2 : 0;
}

HandleTable::Unopened<Search> BeginSearch(std::wstring_view text, bool wantsDirectories, WIN32_FIND_DATAW& data)
{
    std::size_t const begin = BeginOfName(text);
    Pattern pattern(text.substr(begin));
    bool const isWild = pattern.IsWild();
    auto search = HandleTable::Make<Search>(std::move(pattern), wantsDirectories);
    if (!search)
        return {};
    if (!isWild)
    {
        HostPath path;
        bool const found = begin < text.size() ? path.Assign(text) && search->FindPlainName(path, data)
                                               : FailWith(ERROR_FILE_NOT_FOUND);
        return found ? std::move(search) : HandleTable::Unopened<Search>();
    }
    HostPath directory;
    if (!directory.Assign(begin == 0 ? std::wstring_view(L".") : text.substr(0, begin)) || !search->Open(directory))
        return {};
    if (search->Next(data))
        return search;
    if (GetLastError() == ERROR_NO_MORE_FILES)
        FailWith(ERROR_FILE_NOT_FOUND);
    return {};
}

HANDLE OpenSearch(LPCWSTR text, bool wantsDirectories, WIN32_FIND_DATAW& data) noexcept
{
    try
    {
        if (auto search = BeginSearch(text ? std::wstring_view(text) : std::wstring_view(), wantsDirectories, data))
            return search.Open();
    }
    catch (std::bad_alloc const&)
    {
        FailWith(ERROR_NOT_ENOUGH_MEMORY);
    }
    return INVALID_HANDLE_VALUE;
}

} // namespace
} // namespace Brindle::Vok::Platform

HANDLE FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data) noexcept
{
    return FindFirstFileExW(pattern, FindExInfoStandard, data, FindExSearchNameMatch, nullptr, 0);
}

HANDLE FindFirstFileExW(LPCWSTR pattern, FINDEX_INFO_LEVELS level, LPVOID data, FINDEX_SEARCH_OPS operation,
                        LPVOID filter, DWORD flags) noexcept
{
    using namespace Brindle::Vok::Platform;
    DWORD code = ERROR_SUCCESS;
    if (!data || filter)
        code = ERROR_INVALID_PARAMETER;
    else if ((level != FindExInfoStandard && level != FindExInfoBasic) || flags != 0 ||
             (operation != FindExSearchNameMatch && operation != FindExSearchLimitToDirectories))
        code = ERROR_NOT_SUPPORTED;
    if (code == ERROR_SUCCESS)
        return OpenSearch(pattern, operation == FindExSearchLimitToDirectories, *static_cast<WIN32_FIND_DATAW*>(data));
    FailWith(code);
    return INVALID_HANDLE_VALUE;
}

BOOL FindNextFileW(HANDLE handle, LPWIN32_FIND_DATAW data) noexcept
{
    using namespace Brindle::Vok::Platform;
    auto const search = HandleTable::Find<Search>(handle);
    if (!search)
        return FALSE;
    return data ? search->Next(*data) : FailWith(ERROR_INVALID_PARAMETER);
}
