#include "FileStatus.h"
#include "HandleTable.h"
#include "HostErrors.h"
#include "Names.h"
#include "Pattern.h"
#include "SearchedDirectory.h"
#include "SystemCalls.h"

#include <Brindle/Platform/Files.h>

#include <cstring>
#include <dirent.h>
#include <memory>
#include <new>
#include <string>
#include <string_view>

namespace Brindle::Vok::Platform
{
namespace
{

void SetTime(FILETIME& time, statx_timestamp const& from) noexcept
{
    time = FileTimeFromHost(from.tv_sec, from.tv_nsec);
}

void FillFrom(struct statx const& status, WIN32_FIND_DATAW& data) noexcept
{
    data.dwFileAttributes = AttributesFromMode(status.stx_mode);
    SetTime(data.ftCreationTime, status.stx_mask & STATX_BTIME ? status.stx_btime : status.stx_ctime);
    SetTime(data.ftLastAccessTime, status.stx_atime);
    SetTime(data.ftLastWriteTime, status.stx_mtime);
    std::uint64_t const size = S_ISREG(status.stx_mode) ? status.stx_size : 0;
    data.nFileSizeHigh = static_cast<DWORD>(size >> 32);
    data.nFileSizeLow = static_cast<DWORD>(size);
    data.dwReserved0 = S_ISLNK(status.stx_mode) ? IO_REPARSE_TAG_SYMLINK : 0;
}

// What is left to tell of a name in a directory whose entries may be read but not asked about.
void FillFromType(unsigned char type, WIN32_FIND_DATAW& data) noexcept
{
    struct statx status
    {
    };
    status.stx_mode = static_cast<__u16>(DTTOIF(type) | S_IWUSR);
    status.stx_mask = STATX_BTIME;
    FillFrom(status, data);
    data.ftCreationTime = data.ftLastAccessTime = data.ftLastWriteTime = {};
}

void FillName(std::string_view name, WIN32_FIND_DATAW& data) noexcept
{
    data.cFileName[WideNameFromHost(name, data.cFileName)] = 0;
    data.cAlternateFileName[0] = 0;
    data.dwReserved1 = 0;
}

constexpr unsigned wantedStatus = STATX_BASIC_STATS | STATX_BTIME;

/// A search under way. One that was for a plain name has no directory and is at its end.
class Search final : public Object
{
public:
    static constexpr Kinds kinds = KindsOf(Kind::search);

    explicit Search(Pattern pattern) : Object(Kind::search), pattern(std::move(pattern)) {}
    ~Search() override
    {
        if (directory)
            directory->Forget();
    }

    /// False with the last error set.
    bool Open(HostPath const& path);
    bool Next(WIN32_FIND_DATAW& data) noexcept;

private:
    struct Entry
    {
        char const* name;
        std::size_t length;
        unsigned char type;
    };

    bool NextEntry(Entry& entry) noexcept;
    bool ReadEntries() noexcept;

    Pattern pattern;
    std::shared_ptr<SearchedDirectory> directory;
    unsigned dotsGiven = 0;
    std::size_t at = 0;
    std::size_t end = 0;
    alignas(dirent64) char entries[32 * 1024];
};

bool Search::Open(HostPath const& path)
{
    std::string absolute = AbsolutePath(path);
    if (absolute.empty())
        return false;
    Place const place(path);
    int const flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK | (place.RefusesLinks() ? O_NOFOLLOW : 0);
    int const descriptor = Uninterrupted([&] { return SystemCalls::Open(place.Directory(), place.Name(), flags, 0); });
    if (descriptor >= 0)
    {
        directory = SearchedDirectory::Remember(descriptor, std::move(absolute));
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

bool Search::Next(WIN32_FIND_DATAW& data) noexcept
{
    if (!directory)
        return FailWith(ERROR_NO_MORE_FILES);
    for (Entry entry; NextEntry(entry);)
    {
        if (entry.length >= MAX_PATH)
            return FailWith(ERROR_FILENAME_EXCED_RANGE); // no file system of the host has such names
        FillName({entry.name, entry.length}, data);
        if (!pattern.Fits(data.cFileName))
            continue;
        struct statx status;
        int const result = SystemCalls::ExtendedStatusAt(directory->Descriptor(), entry.name, AT_SYMLINK_NOFOLLOW,
                                                         wantedStatus, &status);
        if (result != 0 && errno == ENOENT)
            continue; // It vanished.
        if (result != 0 && errno != EACCES)
            return FailWithHost(errno);
        if (result == 0)
            FillFrom(status, data);
        else
            FillFromType(entry.type, data);
        directory->Tell({entry.name, entry.length}, (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0);
        return true;
    }
    return false;
}

// False with the last error set, ERROR_NO_MORE_FILES at the end.
bool Search::NextEntry(Entry& entry) noexcept
{
    if (dotsGiven < 2)
    {
        ++dotsGiven;
        entry = {dotsGiven == 1 ? "." : "..", dotsGiven, DT_DIR};
        return true;
    }
    for (;;)
    {
        if (at == end && !ReadEntries())
            return false;
        auto const* const found = reinterpret_cast<dirent64 const*>(entries + at);
        at += found->d_reclen;
        entry = {found->d_name, std::strlen(found->d_name), found->d_type};
        std::string_view const name(entry.name, entry.length);
        if (name != "." && name != "..")
            return true;
    }
}

bool Search::ReadEntries() noexcept
{
    long const count =
        Uninterrupted([&] { return SystemCalls::ReadDirectory(directory->Descriptor(), entries, sizeof entries); });
    if (count < 0)
        return errno == ENOENT ? FailWith(ERROR_NO_MORE_FILES) : FailWithHost(errno); // a directory that was removed
    at = 0;
    end = static_cast<std::size_t>(count);
    return count > 0 || FailWith(ERROR_NO_MORE_FILES);
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

// The entry of exactly this name.
bool FindPlainName(std::wstring_view text, WIN32_FIND_DATAW& data) noexcept
{
    HostPath path;
    if (!path.Assign(text))
        return false;
    if (path.IsRoot() || path.NamesDirectory())
        return FailWith(ERROR_FILE_NOT_FOUND);
    std::string_view const host = path.View();
    std::string_view const name = host.substr(host.rfind('/') + 1);
    Place const place(path);
    struct statx status;
    if (SystemCalls::ExtendedStatusAt(place.Directory(), place.Name(), AT_SYMLINK_NOFOLLOW, wantedStatus, &status) != 0)
        return FailOnPath(path, errno);
    if (name.size() >= MAX_PATH)
        return FailWith(ERROR_FILENAME_EXCED_RANGE);
    FillFrom(status, data);
    FillName(name, data);
    return true;
}

std::unique_ptr<Search> BeginSearch(std::wstring_view text, WIN32_FIND_DATAW& data)
{
    std::size_t const begin = BeginOfName(text);
    Pattern pattern(text.substr(begin));
    auto search = std::make_unique<Search>(pattern);
    if (!pattern.IsWild())
    {
        bool const found = begin < text.size() ? FindPlainName(text, data) : FailWith(ERROR_FILE_NOT_FOUND);
        return found ? std::move(search) : nullptr;
    }
    HostPath directory;
    if (!directory.Assign(begin == 0 ? std::wstring_view(L".") : text.substr(0, begin)) || !search->Open(directory))
        return nullptr;
    if (search->Next(data))
        return search;
    if (GetLastError() == ERROR_NO_MORE_FILES)
        FailWith(ERROR_FILE_NOT_FOUND);
    return nullptr;
}

HANDLE Find(LPCWSTR text, WIN32_FIND_DATAW& data) noexcept
{
    try
    {
        if (auto search = BeginSearch(text ? std::wstring_view(text) : std::wstring_view(), data))
        {
            HANDLE const handle = HandleTable::Insert(std::move(search));
            return handle ? handle : INVALID_HANDLE_VALUE;
        }
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
        return Find(pattern, *static_cast<WIN32_FIND_DATAW*>(data));
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
