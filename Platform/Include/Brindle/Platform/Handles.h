// Closing what the other rooms opened.
//
//     HANDLE const file = CreateFileW(…);
//     if (!CloseHandle(file))
//         return GetLastError();
//
// Everything may be called from any thread, also while another thread uses the handle.
#pragma once

#include <Brindle/Platform/Types.h>

extern "C"
{
    /// Closes the handle of a file or a directory, and of any other object that has no closing function of its own.
    /// Fails with ERROR_INVALID_HANDLE for a search, a registry key or a module, and for a stale, foreign or null
    /// value. An object that another thread is using at that moment lives on until that use ends.
    VOK_PLATFORM_EXPORT BOOL WINAPI CloseHandle(HANDLE handle) noexcept;

    /// Ends a search. ERROR_INVALID_HANDLE for anything else.
    VOK_PLATFORM_EXPORT BOOL WINAPI FindClose(HANDLE search) noexcept;
}
