// Making and deleting directories, as both generations of the file system do it. What fails is told with the location
// that the caller gives, so that each generation's errors and statements name its own file and function.
#pragma once

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/Path.h>

#include "PathText.h"

namespace Brindle::Vok::Detail
{

/// Makes a directory; where its parent is missing, createParent(path) makes that first, which a replacement of a
/// service may do in its own way. Throws WindowsError.
template <class CreateParent>
void MakeDirectory(Location const& location, Path const& path, CreateParent createParent)
{
    auto const create = [&path]
    { return !RefuseNul(path.ToString()) && CreateDirectoryW(path.ToString().c_str(), nullptr); };
    if (create() || GetLastError() == ERROR_ALREADY_EXISTS)
        return;
    bool const lacksParent = GetLastError() == ERROR_PATH_NOT_FOUND && !path.DirectoryNormalized().empty();
    if (lacksParent)
        createParent(path.DriveAndDirectoryNormalized());
    // Required: a directory that somebody else made in between is reported.
    if (!lacksParent || !create())
        throw MakeLastErrorToThrow(location, "CreateDirectory [{}]", path.ToString());
}

/// Deletes everything in a directory, and with `contentsOnly` false the directory too. `existed` tells whether it was
/// there; `error` is assigned on failure only.
void DeleteDirectory(Location const& location, Path const& path, bool contentsOnly, bool& existed, Error& error);

/// A path below %TEMP% at which nothing is, because its name is a fresh identifier and the suffix. Nothing is made.
Path UnusedTemporaryPath(wchar_t const* suffix = L"");

} // namespace Brindle::Vok::Detail
