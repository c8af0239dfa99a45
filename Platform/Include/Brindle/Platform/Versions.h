// Version resources of programs and libraries: PE files of 32 and of 64 bits, on whatever machine they run.
//
//     std::vector<unsigned char> data(GetFileVersionInfoSizeW(path, nullptr));
//     bool const found = !data.empty() && GetFileVersionInfoW(path, 0, static_cast<DWORD>(data.size()), data.data());
//
// The data are the bytes of the file's resource and begin with its VS_VERSIONINFO record. Of several version resources
// it is the one of name 1, or else the first, and its language-neutral form, or else the first. Nothing is read but
// headers, the resource directory and the resource. Everything may be called from any thread. A call that fails sets
// the last error, and one that succeeds leaves it alone:
// - what CreateFileW has for a file that can't be opened to be read by one who shares everything
// - ERROR_RESOURCE_DATA_NOT_FOUND for a file that is no PE image, or is one without resources, and for empty data
// - ERROR_RESOURCE_TYPE_NOT_FOUND where no resource is a version, ERROR_RESOURCE_NAME_NOT_FOUND and
//   ERROR_RESOURCE_LANG_NOT_FOUND where that type has no names or a name no languages
// - ERROR_BAD_EXE_FORMAT for headers that are cut off or don't agree, ERROR_INVALID_DATA for damaged resources
#pragma once

#include <Brindle/Platform/Types.h>

extern "C"
{
    /// Bytes of the resource, 0 on failure. `handle` may be null; otherwise 0 is stored there.
    VOK_PLATFORM_EXPORT DWORD WINAPI GetFileVersionInfoSizeW(LPCWSTR path, LPDWORD handle) noexcept;
    /// Copies the resource, or as much of it as `size` bytes hold; what is behind it in a larger buffer stays. `handle`
    /// means nothing. ERROR_INVALID_PARAMETER for null data.
    VOK_PLATFORM_EXPORT BOOL WINAPI GetFileVersionInfoW(LPCWSTR path, DWORD handle, DWORD size, LPVOID data) noexcept;
}
