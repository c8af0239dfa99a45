#include "Deletion.h"

#include "FileStatus.h"
#include "HostErrors.h"
#include "SearchedDirectory.h"
#include "SystemCalls.h"

namespace Brindle::Vok::Platform
{
namespace
{

bool Unlink(HostPath const& path, Place const& place) noexcept
{
    return SystemCalls::UnlinkAt(place.Directory(), place.Name(), 0) == 0 || FailOnPath(path, errno);
}

bool DeletePlainFile(HostPath const& path, Place const& place) noexcept
{
    SharedDescriptor held;
    return HoldForDeletion(path, place, 0, held) && Unlink(path, place);
}

bool Delete(HostPath const& path) noexcept
{
    Place const place(path);
    struct stat status;
    int const follow = path.NamesDirectory() ? 0 : AT_SYMLINK_NOFOLLOW;
    if (SystemCalls::StatusAt(place.Directory(), place.Name(), &status, follow) != 0)
        return FailOnPath(path, errno);
    if (S_ISDIR(status.st_mode))
        return FailWith(ERROR_ACCESS_DENIED);
    if (path.NamesDirectory())
        return FailWith(ERROR_INVALID_NAME);
    if (!S_ISLNK(status.st_mode) && IsReadOnly(status.st_mode))
        return FailWith(ERROR_ACCESS_DENIED);
    // Share modes are for files on disk; a link itself is never open.
    if (S_ISREG(status.st_mode))
        return DeletePlainFile(path, place);
    return Unlink(path, place);
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
