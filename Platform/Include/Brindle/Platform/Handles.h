// Closing what the other rooms opened.
#pragma once

#include <Brindle/Platform/Types.h>

extern "C"
{
    /// Closes any handle. A stale, foreign or null value fails with ERROR_INVALID_HANDLE. An object that another
    /// thread is using at that moment lives on until that use ends.
    VOK_PLATFORM_EXPORT BOOL WINAPI CloseHandle(HANDLE handle) noexcept;

    /// Ends a search.
    VOK_PLATFORM_EXPORT BOOL WINAPI FindClose(HANDLE search) noexcept;
    /// Closes a registry key.
    VOK_PLATFORM_EXPORT LSTATUS WINAPI RegCloseKey(HKEY key) noexcept;
    /// Releases a loaded library.
    VOK_PLATFORM_EXPORT BOOL WINAPI FreeLibrary(HMODULE module) noexcept;
    /// Frees an environment block.
    VOK_PLATFORM_EXPORT BOOL WINAPI DestroyEnvironmentBlock(LPVOID environment) noexcept;
}
