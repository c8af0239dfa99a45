// Creating directories, and removing directories and files.
#include "File.h"
#include "HostErrors.h"
#include "Names.h"
#include "SystemCalls.h"

#include <Brindle/Platform/Files.h>

namespace Brindle::Vok::Platform
{
namespace
{

constexpr ShareTerms DeletingTerms{FILE_SHARE_DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, true};

// Opens what is to be deleted and holds it against openings that don't share deletion. That needs a descriptor that
// reads or writes: what its owner may do neither with is not deleted, as nobody could say whether it is in use.
bool HoldForDeletion(HostPath const& path, int kindFlags, SharedDescriptor& held) noexcept
{
    int const flags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | kindFlags;
    ShareTerms terms = DeletingTerms;
    auto const open = [&](int access)
    { return Uninterrupted([&] { return SystemCalls::Open(path.Text(), flags | access, 0); }); };
    int descriptor = open(O_RDONLY);
    if (descriptor < 0 && errno == EACCES && (kindFlags & O_DIRECTORY) == 0)
    {
        terms.readable = false;
        descriptor = open(O_WRONLY);
    }
    if (descriptor < 0)
        return errno == ENOTDIR && (kindFlags & O_DIRECTORY) != 0 ? FailWith(ERROR_DIRECTORY) : FailOnPath(path, errno);
    held = SharedDescriptor(descriptor);
    long const code = held.LockBriefly(terms);
    return code == ERROR_SUCCESS || FailWith(code);
}

bool DeletePlainFile(HostPath const& path) noexcept
{
    SharedDescriptor held;
    if (!HoldForDeletion(path, 0, held))
        return false;
    return SystemCalls::Unlink(path.Text()) == 0 || FailOnPath(path, errno);
}

bool Delete(HostPath const& path) noexcept
{
    struct stat status;
    int const follow = path.NamesDirectory() ? 0 : AT_SYMLINK_NOFOLLOW;
    if (SystemCalls::StatusAt(AT_FDCWD, path.Text(), &status, follow) != 0)
        return FailOnPath(path, errno);
    if (S_ISDIR(status.st_mode))
        return FailWith(ERROR_ACCESS_DENIED);
    if (path.NamesDirectory())
        return FailWith(ERROR_INVALID_NAME);
    if (!S_ISLNK(status.st_mode) && IsReadOnly(status.st_mode))
        return FailWith(ERROR_ACCESS_DENIED);
    // Share modes are for files on disk; a link itself is never open.
    if (S_ISREG(status.st_mode))
        return DeletePlainFile(path);
    return SystemCalls::Unlink(path.Text()) == 0 || FailOnPath(path, errno);
}

bool Remove(HostPath const& path) noexcept
{
    if (path.IsRoot())
        return FailWith(ERROR_ACCESS_DENIED);
    SharedDescriptor held;
    if (!HoldForDeletion(path, O_DIRECTORY, held))
        return false;
    struct stat status;
    if (SystemCalls::Status(held.Get(), &status) != 0)
        return FailWithHost(errno);
    if (IsReadOnly(status.st_mode))
        return FailWith(ERROR_ACCESS_DENIED);
    if (SystemCalls::RemoveDirectory(path.Text()) == 0)
        return true;
    return errno == EEXIST ? FailWith(ERROR_DIR_NOT_EMPTY) : FailOnPath(path, errno);
}

bool Make(HostPath const& path) noexcept
{
    if (SystemCalls::MakeDirectory(path.Text(), 0777) == 0)
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
    return path.Assign(text) && Make(path);
}

BOOL RemoveDirectoryW(LPCWSTR text) noexcept
{
    using namespace Brindle::Vok::Platform;
    HostPath path;
    return path.Assign(text) && Remove(path);
}

BOOL DeleteFileW(LPCWSTR text) noexcept
{
    using namespace Brindle::Vok::Platform;
    HostPath path;
    return path.Assign(text) && Delete(path);
}
