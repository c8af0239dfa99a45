// From the host's errno to the platform's codes, and setting the last error of the calling thread. A call that succeeds
// leaves the last error alone, so nothing here is called on the way to a success.
#pragma once

#include <Brindle/Platform/ErrorCodes.h>

#include <cerrno>
#include <new>

namespace Brindle::Vok::Platform
{

/// The platform's code for an errno. ERROR_GEN_FAILURE for one that the platform has no word for. Where a code depends
/// on what was tried (EEXIST for a file or a directory, ENOENT for a name or its directory), the caller decides first.
DWORD CodeFromHost(int error) noexcept;

/// The same for an errno of watching something: a limit of that is no full disk.
inline DWORD CodeOfRefusedWatch(int error) noexcept
{
    return error == ENOSPC ? ERROR_NO_SYSTEM_RESOURCES : CodeFromHost(error);
}

/// Sets the last error and gives what means failure: false, 0 or null, for `return FailWith(…)`. Cold: callers
/// are laid out for their success.
template <class Result = bool>
[[gnu::cold]] Result FailWith(DWORD code) noexcept
{
    SetLastError(code);
    return Result{};
}

/// The same for an errno.
[[gnu::cold]] inline bool FailWithHost(int error) noexcept
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

/// Does the work of a function whose callers are promised a result, also when memory runs out: that ends in what means
/// failure, with ERROR_NOT_ENOUGH_MEMORY.
template <class Work>
auto WithoutThrowing(Work work) noexcept -> decltype(work())
{
    try
    {
        return work();
    }
    catch (std::bad_alloc const&)
    {
        return FailWith<decltype(work())>(ERROR_NOT_ENOUGH_MEMORY);
    }
}

/// Does the work of a function that gives its code itself, as WithoutThrowing does: 0, or what the work left as the
/// last error. The caller's last error stays as it was.
template <class Work>
DWORD CodeOfWork(Work work) noexcept
{
    DWORD const lastError = GetLastError();
    DWORD const code = WithoutThrowing(work) ? DWORD{ERROR_SUCCESS} : GetLastError();
    SetLastError(lastError);
    return code;
}

} // namespace Brindle::Vok::Platform
