// Code pages and the system's texts.
//
//     wchar_t wide[64];
//     int const count = MultiByteToWideChar(CP_UTF8, 0, "text", -1, wide, 64);   // 5, with the terminator
//     if (count == 0)
//         return GetLastError();
//
// Everything may be called from any thread. Lengths and sizes count bytes of narrow and code units of wide text; -1
// stands for a text that ends with NUL.
//
// Code pages: 65001 (UTF-8) and 0 are the library's own. Any other number is what the C library's iconv knows under
// that number: 437 and its kin, 850, 874, 932, 936, 949, 950, 1250 to 1258, 20127, 20866, 21866, 28591 to 28606, 54936
// and more; 65000 is UTF-7. A page that it doesn't know is ERROR_INVALID_PARAMETER.
#pragma once

#include <Brindle/Platform/Types.h>

#define CP_ACP 0U
#define CP_UTF8 65001U
#define MB_ERR_INVALID_CHARS 0x00000008U
#define WC_ERR_INVALID_CHARS 0x00000080U

#define FORMAT_MESSAGE_ALLOCATE_BUFFER 0x00000100U
#define FORMAT_MESSAGE_IGNORE_INSERTS 0x00000200U
#define FORMAT_MESSAGE_FROM_SYSTEM 0x00001000U

extern "C"
{
    /// Count of code units written or, with size 0, needed; 0 on failure. CP_ACP is UTF-8 here. Invalid input becomes
    /// U+FFFD, one for each maximal ill-formed part, unless flags hold MB_ERR_INVALID_CHARS.
    VOK_PLATFORM_EXPORT int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length,
                                                       LPWSTR buffer, int size) noexcept;
    /// Count of bytes written or, with size 0, needed; 0 on failure.
    VOK_PLATFORM_EXPORT int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR text, int length,
                                                       LPSTR buffer, int size, LPCSTR defaultCharacter,
                                                       LPBOOL usedDefault) noexcept;

    /// The system's text of a Win32 code or an HRESULT, ending in CR LF. With FORMAT_MESSAGE_ALLOCATE_BUFFER the
    /// buffer argument is the address of a pointer, whose text LocalFree releases. The count of characters without
    /// the terminator; 0 for an unknown code (ERROR_MR_MID_NOT_FOUND), or for a text with inserts when their
    /// expansion was asked for (ERROR_INVALID_PARAMETER).
    VOK_PLATFORM_EXPORT DWORD WINAPI FormatMessageW(DWORD flags, LPCVOID source, DWORD code, DWORD language,
                                                    LPWSTR buffer, DWORD size, void* arguments) noexcept;
    VOK_PLATFORM_EXPORT DWORD WINAPI FormatMessageA(DWORD flags, LPCVOID source, DWORD code, DWORD language,
                                                    LPSTR buffer, DWORD size, void* arguments) noexcept;
    /// Null on success; a null argument does nothing.
    VOK_PLATFORM_EXPORT HLOCAL WINAPI LocalFree(HLOCAL memory) noexcept;
}
