// What the platform says of a path at which nothing is.
#pragma once

#include <Brindle/Vok/Platform.h>

namespace Brindle::Vok::Detail
{

/// Whether a call failed because a path or a directory on the way to it isn't there.
inline bool IsMissing(DWORD code) noexcept
{
    return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND;
}

} // namespace Brindle::Vok::Detail
