// The COM names that the library uses: task memory, identifiers, error information and _com_error.
#pragma once

#include <Brindle/Platform/ErrorCodes.h>
#include <Brindle/Platform/Types.h>

#include <string>

using BSTR = wchar_t*;
using LPOLESTR = wchar_t*;

extern "C"
{
    VOK_PLATFORM_EXPORT LPVOID WINAPI CoTaskMemAlloc(SIZE_T size) noexcept;
    VOK_PLATFORM_EXPORT void WINAPI CoTaskMemFree(LPVOID memory) noexcept;

    /// A fresh identifier from the kernel's random source, version 4.
    VOK_PLATFORM_EXPORT HRESULT WINAPI CoCreateGuid(GUID* guid) noexcept;
    /// {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}, to be released with CoTaskMemFree.
    VOK_PLATFORM_EXPORT HRESULT WINAPI StringFromCLSID(REFCLSID id, LPOLESTR* text) noexcept;

    VOK_PLATFORM_EXPORT BSTR WINAPI SysAllocString(wchar_t const* text) noexcept;
    VOK_PLATFORM_EXPORT void WINAPI SysFreeString(BSTR text) noexcept;
    VOK_PLATFORM_EXPORT UINT WINAPI SysStringLen(BSTR text) noexcept;
}
