// Environment blocks for programs that are to run as a user.
//
//     LPVOID block = nullptr;
//     if (!CreateEnvironmentBlock(&block, token, FALSE))
//         return GetLastError();
//     for (auto const* entry = static_cast<wchar_t const*>(block); *entry; entry += std::wcslen(entry) + 1)
//         …                                                        // "NAME=value"
//     DestroyEnvironmentBlock(block);
//
// A block holds UTF-16 code units, one a wchar_t: its entries with a NUL behind each, sorted by name without regard to
// the case of A to Z, and one more NUL. A name stands there once, however it is spelled. Everything may be called from
// any thread.
#pragma once

#include <Brindle/Platform/Types.h>

extern "C"
{
    /// Makes a block of these, each in the place of what came before it:
    ///
    ///     with `inherit`    the process's variables
    ///     always            the system's, from /etc/environment (lines NAME=value; "export" before the name, one pair
    ///                       of quotes around the value, and comments behind # are left out)
    ///     with a token      its user's, from the host's database: USERNAME, USERPROFILE, HOMEDRIVE, HOMEPATH, APPDATA,
    ///                       LOCALAPPDATA in Windows syntax; USER, LOGNAME, HOME, SHELL as the host has them
    ///
    /// TEMP and TMP are always there, and by the rules of Environment.h. The token needs TOKEN_QUERY and
    /// TOKEN_DUPLICATE; null is none. Fails with ERROR_INVALID_PARAMETER for a null `block`, ERROR_INVALID_HANDLE or
    /// ERROR_ACCESS_DENIED for the token, ERROR_NO_SUCH_USER when the database lacks its user, and the host's other
    /// failures; `*block` is null then.
    VOK_PLATFORM_EXPORT BOOL WINAPI CreateEnvironmentBlock(LPVOID* block, HANDLE token, BOOL inherit) noexcept;

    /// Frees a block. ERROR_INVALID_PARAMETER for null and for anything that is no block, or no more.
    VOK_PLATFORM_EXPORT BOOL WINAPI DestroyEnvironmentBlock(LPVOID block) noexcept;
}
