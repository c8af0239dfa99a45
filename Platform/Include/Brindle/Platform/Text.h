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
// Code pages: 65001 and 0 (CP_ACP) are UTF-8, by the stand-in's own converter. Everything else goes through iconv of
// the C library, which must have its conversion modules installed. These pages are known by their numbers:
//
//     28591 to 28606           ISO 8859-1 to -16; there is no 28602
//     20127, 10000             US-ASCII, Macintosh
//     20866, 21866             KOI8-R, KOI8-U
//     20932, 51932, 50220      Japanese: EUC-JP twice, ISO 2022-JP
//     20936, 51936             Chinese: GB 2312 twice
//     54936                    GB 18030
//     949, 1361, 51949, 50225  Korean: UHC, Johab, EUC-KR, ISO 2022-KR
//     38598                    Hebrew, the same as 28598
//     37, 65000                EBCDIC of the USA, UTF-7
//
// and so is each page that iconv knows as CP and its number. With Debian 12 those are, among others, 437, 737, 775,
// 850, 852, 855, 857, 858, 860 to 866, 869, 874, 932 (Japanese), 936 and 950 (Chinese), 1250 to 1258, and the EBCDIC
// pages 500, 870, 875, 1026, 1047 and 1140 to 1149; `iconv --list` shows them all. An unknown page is
// ERROR_INVALID_PARAMETER (87). UTF-16 and UTF-32 (1200, 1201, 12000, 12001) are no pages here.
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
    /// U+FFFD, one for each maximal ill-formed part of UTF-8, and in other pages one for each byte and one for what is
    /// missing at the end. With MB_ERR_INVALID_CHARS in flags, which UTF-7 doesn't take (ERROR_INVALID_FLAGS), it is
    /// ERROR_NO_UNICODE_TRANSLATION instead. A buffer that is too small is ERROR_INSUFFICIENT_BUFFER; a null text,
    /// length 0 and an unknown page are ERROR_INVALID_PARAMETER.
    VOK_PLATFORM_EXPORT int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length,
                                                       LPWSTR buffer, int size) noexcept;
    /// Count of bytes written or, with size 0, needed; 0 on failure, with the same codes. A character that the page
    /// lacks becomes defaultCharacter, '?' if that is null, and sets *usedDefault; UTF-8 and UTF-7 take neither of the
    /// two. Ill-formed units count as U+FFFD. WC_ERR_INVALID_CHARS makes them ERROR_NO_UNICODE_TRANSLATION, and is for
    /// UTF-8 and GB 18030 alone: with another page it is ERROR_INVALID_FLAGS.
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
