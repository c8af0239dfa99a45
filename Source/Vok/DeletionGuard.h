// What no deletion of directories may be given: a path that names no directory below a root. Deleting it would be
// deleting a drive, a share, or the directory that the process works in.
#pragma once

#include <Brindle/Vok/Platform.h>

#include <string_view>

namespace Brindle::Vok::Detail
{

/// ERROR_INVALID_PARAMETER for an empty text, ERROR_INVALID_NAME for one with a NUL in it, which the platform would cut
/// short, ERROR_ACCESS_DENIED for a root however it is written, such as `C:`, `\`, `\\server\share`, `.` or `a\..`;
/// otherwise 0.
DWORD CodeAgainstDeleting(std::wstring_view text) noexcept;

} // namespace Brindle::Vok::Detail
