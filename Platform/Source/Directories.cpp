#include "Deletion.h"
#include "FileStatus.h"
#include "HostErrors.h"
#include "SearchedDirectory.h"
#include "SystemCalls.h"

#include <Brindle/Platform/Files.h>

namespace Brindle::Vok::Platform
{
namespace
{

bool RemoveDirectoryAt(HostPath const& path) noexcept
{
    if (path.IsRoot())
        return FailWith(ERROR_ACCESS_DENIED);
    Place const place(path);
    if (!place.IsReachable())
        return false;
    SharedDescriptor held;
    if (!HoldForDeletion(path, place, O_DIRECTORY, held))
        return false;
    struct stat status;
    if (SystemCalls::Status(held.Get(), &status) != 0)
        return FailWithHost(errno);
    if (IsReadOnly(status.st_mode))
        return FailWith(ERROR_ACCESS_DENIED);
    if (Uninterrupted([&] { return SystemCalls::UnlinkAt(place.Directory(), place.Name(), AT_REMOVEDIR); }) == 0)
        return true;
    if (errno == EINVAL) // the working directory by the name "."
        return FailWith(ERROR_SHARING_VIOLATION);
    return errno == EEXIST ? FailWith(ERROR_DIR_NOT_EMPTY) : FailOnPath(path, errno);
}

bool MakeDirectoryAt(HostPath const& path) noexcept
{
    if (Uninterrupted([&] { return SystemCalls::MakeDirectory(path.Text(), 0777); }) == 0)
        return true;
    return errno == ENOENT ? FailWith(ERROR_PATH_NOT_FOUND) : FailWithHost(errno);
}

} // namespace
} // namespace Brindle::Vok::Platform

BOOL CreateDirectoryW(LPCWSTR text, LPSECURITY_ATTRIBUTES security) noexcept
{
    using namespace Brindle::Vok::Platform;
    if (security && security->lpSecurityDescriptor)
        return FailWith(ERROR_NOT_SUPPORTED);
    HostPath path;
    return path.Assign(text) && MakeDirectoryAt(path);
}

BOOL RemoveDirectoryW(LPCWSTR text) noexcept
{
    using namespace Brindle::Vok::Platform;
    HostPath path;
    return path.Assign(text) && RemoveDirectoryAt(path);
}
