// Libraries of the host that a program loads, and where they and the program itself come from.
//
//     HMODULE const library = LoadLibraryW(L"C:\\opt\\plugin.so");    // null on failure
//     wchar_t path[MAX_PATH];
//     DWORD const count = GetModuleFileNameW(library, path, MAX_PATH);
//     bool const isWhole = count > 0 && count < MAX_PATH;
//     FreeLibrary(library);
//
// Paths are Windows syntax; C: is the host's root. Everything may be called from any thread.
//
// What is not guaranteed:
// - One value for one library: each LoadLibraryW gives a handle of its own, and FreeLibrary takes back that one. The
//   library stays while any of them is open.
// - That a damaged library is refused: only its headers are looked at, and the loader may end the process over what
//   comes behind them. Those that a library needs, and bare names, the loader looks into by itself.
#pragma once

#include <Brindle/Platform/Types.h>

extern "C"
{
    /// Loads a library and runs its constructors. A text with a separator or a drive is a path, a relative one from the
    /// working directory; a bare name is looked for where the host's loader looks, and gets no ending. Null on failure:
    /// ERROR_INVALID_PARAMETER for a null or empty name, ERROR_MOD_NOT_FOUND for a missing library or one that needs
    /// something missing, ERROR_BAD_EXE_FORMAT for a file that is no library of this machine or was cut short,
    /// ERROR_ACCESS_DENIED for one that may not be read and for a directory, ERROR_NOT_ENOUGH_MEMORY.
    VOK_PLATFORM_EXPORT HMODULE WINAPI LoadLibraryW(LPCWSTR name) noexcept;

    /// Releases a loaded library. ERROR_INVALID_HANDLE for anything else.
    VOK_PLATFORM_EXPORT BOOL WINAPI FreeLibrary(HMODULE module) noexcept;

    /// The absolute path of a loaded library, or of the program for null. The count without the terminator. A longer
    /// path is cut: the result is `size` then, the buffer ends in a NUL and the last error is
    /// ERROR_INSUFFICIENT_BUFFER; so it is for the size 0. Otherwise 0 on failure: ERROR_INVALID_HANDLE for what is no
    /// library, ERROR_INVALID_PARAMETER for a null buffer. A library that was loaded before is told of by the path of
    /// that time, a file that was deleted meanwhile by the path that it had.
    VOK_PLATFORM_EXPORT DWORD WINAPI GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size) noexcept;
    /// The same as UTF-8, sizes in bytes.
    VOK_PLATFORM_EXPORT DWORD WINAPI GetModuleFileNameA(HMODULE module, LPSTR buffer, DWORD size) noexcept;
}
