// From the host's errno to the platform's codes, and setting the last error of the calling thread. A call that succeeds
// leaves the last error alone, so nothing here is called on the way to a success.
#pragma once

#include <Brindle/Platform/ErrorCodes.h>

#include <cerrno>

namespace Brindle::Vok::Platform
{

/// The platform's code for an errno. ERROR_GEN_FAILURE for one that the platform has no word for. Where a code depends
/// on what was tried (EEXIST for a file or a directory, ENOENT for a name or its directory), the caller decides first.
DWORD CodeFromHost(int error) noexcept;

/// Sets the last error and gives false, for `return FailWith(…)`.
inline bool FailWith(long code) noexcept
{
    SetLastError(static_cast<DWORD>(code));
    return false;
}

inline bool FailWithHost(int error) noexcept
{
    return FailWith(CodeFromHost(error));
}

/// Makes a host call again for as long as a signal interrupts it.
template <class Call>
auto Uninterrupted(Call call) noexcept
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

} // namespace Brindle::Vok::Platform
