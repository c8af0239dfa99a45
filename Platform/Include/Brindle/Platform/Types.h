// The platform's basic types, as wide as the platform has them: DWORD, LONG, BOOL and HRESULT have 32 bits on every
// host, HANDLE is an opaque pointer. Wide text is UTF-16 code units, one a wchar_t.
#pragma once

#include <cstddef>
#include <cstdint>

#define VOK_PLATFORM_EXPORT __attribute__((visibility("default")))

#define WINAPI
#define CALLBACK
#define TRUE 1
#define FALSE 0
#define MAX_PATH 260

using BOOL = int;
using BYTE = unsigned char;
using UINT = unsigned int;
using WORD = unsigned short;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using LONG_PTR = std::intptr_t;
using ULONG_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using HRESULT = LONG;
using LSTATUS = LONG;

using CHAR = char;
using WCHAR = wchar_t;
using LPSTR = char*;
using LPCSTR = char const*;
using LPWSTR = wchar_t*;
using LPCWSTR = wchar_t const*;
using PVOID = void*;
using LPVOID = void*;
using LPCVOID = void const*;
using LPBOOL = BOOL*;
using LPDWORD = DWORD*;
using LPLONG = LONG*;

/// The access right that stands for all that can be had.
#define MAXIMUM_ALLOWED 0x02000000L

using HANDLE = void*;
using HLOCAL = HANDLE;
using HINSTANCE = struct HINSTANCE__*;
using HMODULE = HINSTANCE;
using HKEY = struct HKEY__*;

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))

/// 128-bit identifier.
struct GUID
{
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};

using IID = GUID;
using CLSID = GUID;
using REFGUID = GUID const&;
using REFCLSID = CLSID const&;

inline bool operator==(GUID const& a, GUID const& b) noexcept
{
    return __builtin_memcmp(&a, &b, sizeof(GUID)) == 0;
}

/// A moment as 100-nanosecond ticks since 1601-01-01 UTC, in two halves.
struct FILETIME
{
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

using LPFILETIME = FILETIME*;

union LARGE_INTEGER
{
    // The platform's own layout: the halves are reached without a member name.
    __extension__ struct
    {
        DWORD LowPart;
        LONG HighPart;
    };
    struct
    {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};

using PLARGE_INTEGER = LARGE_INTEGER*;

/// The stand-in never lets a child process inherit a handle, so bInheritHandle has no effect.
struct SECURITY_ATTRIBUTES
{
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};

using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;

/// State of one asynchronous operation.
struct OVERLAPPED
{
    ULONG_PTR Internal;
    ULONG_PTR InternalHigh;
    DWORD Offset;
    DWORD OffsetHigh;
    HANDLE hEvent;
};

using LPOVERLAPPED = OVERLAPPED*;
