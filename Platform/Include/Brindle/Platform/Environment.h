// Environment variables of the process. Names are found without regard to the case of A to Z, an exact spelling first.
// TEMP and TMP give Windows-syntax text: a host value that begins with '/' is turned into one, and a missing one is
// C:\tmp.
//
//     wchar_t directory[MAX_PATH];
//     DWORD const count = GetEnvironmentVariableW(L"TEMP", directory, MAX_PATH);
//     bool const found = count > 0 && count < MAX_PATH;
//
// Calls may come from any thread. They are serialised against each other, but not against the C library's setenv and
// putenv: a program that changes its environment while other threads read it does so through SetEnvironmentVariableW.
#pragma once

#include <Brindle/Platform/Types.h>

extern "C"
{
    /// Count of characters without the terminator, or with it the size needed when the buffer is too small. 0 for a
    /// missing variable (ERROR_ENVVAR_NOT_FOUND) and for an empty one, which sets the last error to 0.
    VOK_PLATFORM_EXPORT DWORD WINAPI GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD size) noexcept;
    /// A null value removes the variable.
    VOK_PLATFORM_EXPORT BOOL WINAPI SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value) noexcept;
    /// Replaces each %NAME%; an unknown one stays as it stands. The count with the terminator; when it is greater than
    /// size the buffer holds nothing useful.
    VOK_PLATFORM_EXPORT DWORD WINAPI ExpandEnvironmentStringsW(LPCWSTR text, LPWSTR buffer, DWORD size) noexcept;
}
