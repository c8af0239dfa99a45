#include "FileStatus.h"

#include "FileObject.h"
#include "HostErrors.h"
#include "SearchedDirectory.h"
#include "SystemCalls.h"

#include <Brindle/Platform/Files.h>

#include <algorithm>
#include <limits>

namespace Brindle::Vok::Platform
{
namespace
{

constexpr std::int64_t ticksOfSecond = 10'000'000;
constexpr std::int64_t secondsFrom1601To1970 = 11'644'473'600;

FILETIME FileTimeOf(struct statx_timestamp const& time) noexcept
{
    return FileTimeFromHost(time.tv_sec, time.tv_nsec);
}

// The last change of a file whose file system doesn't keep its birth.
FILETIME CreationTimeOf(struct statx const& status) noexcept
{
    return FileTimeOf(status.stx_mask & STATX_BTIME ? status.stx_btime : status.stx_ctime);
}

// The status of what the path leads to, or of a link that leads nowhere itself.
bool GetStatus(HostPath const& path, struct stat& status) noexcept
{
    if (SystemCalls::StatusAt(AT_FDCWD, path.Text(), &status, 0) != 0)
    {
        int const error = errno;
        if ((error != ENOENT && error != ELOOP) ||
            SystemCalls::StatusAt(AT_FDCWD, path.Text(), &status, AT_SYMLINK_NOFOLLOW) != 0)
            return FailOnPath(path, error);
    }
    if (path.NamesDirectory() && !S_ISDIR(status.st_mode))
        return FailWith(ERROR_INVALID_NAME);
    return true;
}

// The status of a name in the directory of a search that told of it as no link.
bool GetStatusOfFixed(HostPath const& path, Place const& place, struct stat& status) noexcept
{
    if (SystemCalls::StatusAt(place.Directory(), place.Name(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return FailOnPath(path, errno);
    return !S_ISLNK(status.st_mode) || FailWith(ERROR_CANT_RESOLVE_FILENAME);
}

bool SetReadOnly(HostPath const& path, bool readOnly) noexcept
{
    Place const place(path);
    if (!place.IsReachable())
        return false;
    struct stat status;
    if (!(place.RefusesLinks() ? GetStatusOfFixed(path, place, status) : GetStatus(path, status)))
        return false;
    if (IsReadOnly(status.st_mode) == readOnly)
        return true;
    // The sticky bit means nothing for a plain file: it is the mark of one whose creation ends this moment.
    mode_t const kept = status.st_mode & (S_ISREG(status.st_mode) && status.st_size == 0 ? 06777 : 07777);
    mode_t const mode = readOnly ? kept & ~writeBits : kept | S_IWUSR;
    int const changed = place.RefusesLinks()
                            ? SystemCalls::ChangeModeAt(place.Directory(), place.Name(), mode, AT_SYMLINK_NOFOLLOW)
                            : SystemCalls::ChangeModeAt(AT_FDCWD, path.Text(), mode, 0);
    return changed == 0 || FailOnPath(path, errno);
}

bool GetSize(FileObject& file, LONGLONG& size) noexcept
{
    // The first question is answered by what opening has seen.
    size = file.sizeAtOpening.exchange(FileObject::noSize, std::memory_order_relaxed);
    if (size != FileObject::noSize)
        return true;
    if (file.type == FileObject::Type::other)
        return FailWith(ERROR_INVALID_FUNCTION);
    struct stat status;
    if (SystemCalls::Status(file.Descriptor(), &status) != 0)
        return FailWithHost(errno);
    size = file.type == FileObject::Type::plain ? status.st_size : 0;
    return true;
}

} // namespace

DWORD AttributesFromMode(mode_t mode) noexcept
{
    DWORD attributes = S_ISREG(mode) ? FILE_ATTRIBUTE_ARCHIVE : 0;
    if (S_ISDIR(mode))
        attributes = FILE_ATTRIBUTE_DIRECTORY;
    if (S_ISLNK(mode))
        attributes = FILE_ATTRIBUTE_REPARSE_POINT;
    else if (IsReadOnly(mode))
        attributes |= FILE_ATTRIBUTE_READONLY;
    return attributes != 0 ? attributes : FILE_ATTRIBUTE_NORMAL;
}

FILETIME FileTimeFromHost(std::int64_t seconds, std::uint32_t nanoseconds) noexcept
{
    std::int64_t const since1601 = seconds + secondsFrom1601To1970;
    // Moments that the ticks can't count stand at the nearest one that they can.
    std::int64_t const last = std::numeric_limits<std::int64_t>::max() / ticksOfSecond - 1;
    std::int64_t const ticks = since1601 < 0 ? 0 : std::min(since1601, last) * ticksOfSecond + nanoseconds / 100;
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

EntryStatus StatusOfEntry(int directory, char const* name) noexcept
{
    EntryStatus result;
    struct statx status;
    constexpr unsigned wanted = STATX_BASIC_STATS | STATX_BTIME;
    result.error =
        SystemCalls::ExtendedStatusAt(directory, name, AT_SYMLINK_NOFOLLOW, wanted, &status) == 0 ? 0 : errno;
    if (result.error != 0)
        return result;
    result.mode = status.stx_mode;
    result.number = status.stx_ino;
    result.size = S_ISREG(status.stx_mode) ? status.stx_size : 0;
    result.creation = CreationTimeOf(status);
    result.lastAccess = FileTimeOf(status.stx_atime);
    result.lastWrite = FileTimeOf(status.stx_mtime);
    return result;
}

bool FailOnPath(HostPath const& path, int error) noexcept
{
    if (error == ENXIO)
    {
        // A FIFO that nobody reads can't be opened for writing without waiting.
        struct stat status;
        if (SystemCalls::StatusAt(AT_FDCWD, path.Text(), &status, 0) == 0 && S_ISFIFO(status.st_mode))
            return FailWith(ERROR_NOT_READY);
    }
    if (error != ENOENT)
        return FailWithHost(error);
    std::string_view const text = path.View();
    std::size_t const separator = text.rfind('/');
    if (separator == std::string_view::npos || separator == 0)
        return FailWith(ERROR_FILE_NOT_FOUND);
    struct stat status;
    HostPath parent;
    if (!parent.AssignHost(text.substr(0, separator)))
        return false;
    bool const parentIsThere = SystemCalls::StatusAt(AT_FDCWD, parent.Text(), &status, 0) == 0;
    return FailWith(parentIsThere ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
}

} // namespace Brindle::Vok::Platform

DWORD GetFileAttributesW(LPCWSTR text) noexcept
{
    using namespace Brindle::Vok::Platform;
    HostPath path;
    if (!path.Assign(text))
        return INVALID_FILE_ATTRIBUTES;
    if (auto const told = Place::ToldOf(path); told && !S_ISLNK(told->mode) && !path.NamesDirectory() && told->Holds())
        return AttributesFromMode(told->mode);
    struct stat status;
    return GetStatus(path, status) ? AttributesFromMode(status.st_mode) : INVALID_FILE_ATTRIBUTES;
}

BOOL SetFileAttributesW(LPCWSTR text, DWORD attributes) noexcept
{
    using namespace Brindle::Vok::Platform;
    HostPath path;
    return path.Assign(text) && SetReadOnly(path, (attributes & FILE_ATTRIBUTE_READONLY) != 0);
}

BOOL PathIsDirectoryW(LPCWSTR text) noexcept
{
    DWORD const attributes = GetFileAttributesW(text);
    bool const isDirectory = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return isDirectory ? static_cast<BOOL>(FILE_ATTRIBUTE_DIRECTORY) : FALSE;
}

BOOL GetFileSizeEx(HANDLE handle, PLARGE_INTEGER size) noexcept
{
    using namespace Brindle::Vok::Platform;
    auto const file = HandleTable::Find<FileObject>(handle);
    if (!file)
        return FALSE;
    if (!size)
        return FailWith(ERROR_INVALID_PARAMETER);
    LONGLONG found;
    if (!GetSize(*file, found))
        return FALSE;
    size->QuadPart = found;
    return TRUE;
}

BOOL GetFileTime(HANDLE handle, LPFILETIME creation, LPFILETIME lastAccess, LPFILETIME lastWrite) noexcept
{
    using namespace Brindle::Vok::Platform;
    auto const file = HandleTable::Find<FileObject>(handle);
    if (!file)
        return FALSE;
    struct statx status;
    constexpr unsigned wanted = STATX_BTIME | STATX_CTIME | STATX_ATIME | STATX_MTIME;
    if (SystemCalls::ExtendedStatusAt(file->Descriptor(), "", AT_EMPTY_PATH, wanted, &status) != 0)
        return FailWithHost(errno);
    if (creation)
        *creation = CreationTimeOf(status);
    if (lastAccess)
        *lastAccess = FileTimeOf(status.stx_atime);
    if (lastWrite)
        *lastWrite = FileTimeOf(status.stx_mtime);
    return TRUE;
}
