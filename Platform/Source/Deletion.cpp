#include "Deletion.h"

#include "FileStatus.h"
#include "HostErrors.h"
#include "QuickDeletion.h"
#include "SearchedDirectory.h"
#include "SystemCalls.h"

#include <mutex>
#include <optional>
#include <shared_mutex>

namespace Brindle::Vok::Platform
{
namespace
{

bool Unlink(HostPath const& path, Place const& place) noexcept
{
    return Uninterrupted([&] { return SystemCalls::UnlinkAt(place.Directory(), place.Name(), 0); }) == 0 ||
           FailOnPath(path, errno);
}

enum class Outcome
{
    deleted,
    failed,
    elsewhere
};

Outcome DeleteIfStillThere(HostPath const& path, Place const& place, SharedDescriptor const& held) noexcept
{
    DeletionLock deletions;
    std::lock_guard const lock(deletions);
    struct stat named;
    struct stat locked;
    if (SystemCalls::StatusAt(place.Directory(), place.Name(), &named, AT_SYMLINK_NOFOLLOW) != 0 ||
        SystemCalls::Status(held.Get(), &locked) != 0)
    {
        FailOnPath(path, errno);
        return Outcome::failed;
    }
    if (named.st_dev != locked.st_dev || named.st_ino != locked.st_ino)
        return Outcome::elsewhere;
    return Unlink(path, place) ? Outcome::deleted : Outcome::failed;
}

// A link, a FIFO, a device: share modes are for files on disk, and a link itself is never open.
Outcome DeleteUnlessPlain(HostPath const& path, Place const& place) noexcept
{
    DeletionLock deletions;
    std::lock_guard const lock(deletions);
    struct stat status;
    if (SystemCalls::StatusAt(place.Directory(), place.Name(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    {
        FailOnPath(path, errno);
        return Outcome::failed;
    }
    if (S_ISREG(status.st_mode))
        return Outcome::elsewhere;
    return Unlink(path, place) ? Outcome::deleted : Outcome::failed;
}

bool MayBeDeleted(HostPath const& path, mode_t mode) noexcept
{
    if (S_ISDIR(mode))
        return FailWith(ERROR_ACCESS_DENIED);
    if (path.NamesDirectory())
        return FailWith(ERROR_INVALID_NAME);
    return S_ISLNK(mode) || !IsReadOnly(mode) || FailWith(ERROR_ACCESS_DENIED);
}

// In the directory of a search. Nothing when it takes an opening to learn whether somebody has the file open.
std::optional<bool> DeleteQuickly(HostPath const& path, Place const& place) noexcept
{
    DeletionLock deletions;
    std::shared_lock const lock(deletions);
    if (!place.Quick().KnowsAllHandles())
        return std::nullopt;
    struct stat status;
    mode_t mode = 0;
    ino_t number = 0;
    // That a file was read-only is mostly past: its reader has made it writable to delete it.
    if (place.Told() && !IsReadOnly(place.Told()->mode) && place.Told()->Holds())
    {
        mode = place.Told()->mode;
        number = place.Told()->number;
    }
    else if (SystemCalls::StatusAt(place.Directory(), place.Name(), &status, AT_SYMLINK_NOFOLLOW) == 0)
    {
        mode = status.st_mode;
        number = status.st_ino;
    }
    else
        return FailOnPath(path, errno);
    if (!MayBeDeleted(path, mode))
        return false;
    if (S_ISREG(mode) && HandlesOn(number).load(std::memory_order_seq_cst) != 0)
        return std::nullopt;
    return Unlink(path, place);
}

Outcome TryToDelete(HostPath const& path, Place const& place) noexcept
{
    struct stat status;
    int const follow = path.NamesDirectory() ? 0 : AT_SYMLINK_NOFOLLOW;
    if (SystemCalls::StatusAt(place.Directory(), place.Name(), &status, follow) != 0)
    {
        FailOnPath(path, errno);
        return Outcome::failed;
    }
    if (!MayBeDeleted(path, status.st_mode))
        return Outcome::failed;
    if (!S_ISREG(status.st_mode))
        return DeleteUnlessPlain(path, place);
    SharedDescriptor held;
    return HoldForDeletion(path, place, 0, held) ? DeleteIfStillThere(path, place, held) : Outcome::failed;
}

bool Delete(HostPath const& path) noexcept
{
    constexpr int mostAttempts = 16;
    Place const place(path);
    if (!place.IsReachable())
        return false;
    if (place.IsLocal() && !path.NamesDirectory())
        if (std::optional<bool> const done = DeleteQuickly(path, place))
            return *done;
    for (int attempt = 0; attempt < mostAttempts; ++attempt)
        if (Outcome const outcome = TryToDelete(path, place); outcome != Outcome::elsewhere)
            return outcome == Outcome::deleted;
    return FailWith(ERROR_SHARING_VIOLATION); // somebody puts a new file there all the time
}

} // namespace

bool HoldForDeletion(HostPath const& path, Place const& place, int kindFlags, SharedDescriptor& held) noexcept
{
    int const flags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | kindFlags;
    ShareTerms terms{FILE_SHARE_DELETE, allShares, true};
    auto const open = [&](int access)
    { return Uninterrupted([&] { return SystemCalls::Open(place.Directory(), place.Name(), flags | access, 0); }); };
    int descriptor = open(O_RDONLY);
    if (descriptor < 0 && errno == EACCES && (kindFlags & O_DIRECTORY) == 0)
    {
        terms.readable = false;
        descriptor = open(O_WRONLY);
    }
    if (descriptor < 0)
        return errno == ENOTDIR && (kindFlags & O_DIRECTORY) != 0 ? FailWith(ERROR_DIRECTORY) : FailOnPath(path, errno);
    held = SharedDescriptor(descriptor);
    DWORD const code = held.LockBriefly(terms);
    return code == ERROR_SUCCESS || FailWith(code);
}

} // namespace Brindle::Vok::Platform

BOOL DeleteFileW(LPCWSTR text) noexcept
{
    using namespace Brindle::Vok::Platform;
    HostPath path;
    return path.Assign(text) && Delete(path);
}
