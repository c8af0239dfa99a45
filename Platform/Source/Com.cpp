#include <Brindle/Platform/Com.h>

#include "HostErrors.h"
#include "SystemCalls.h"

#include <Brindle/Platform/Text.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <limits>

namespace Brindle::Vok::Platform
{

namespace
{

HRESULT ResultOf(DWORD code)
{
    return static_cast<HRESULT>(0x80070000U | code);
}

/// Fills the bytes from the kernel's random source, carrying on short calls.
HRESULT FillRandom(void* memory, std::size_t size)
{
    auto* bytes = static_cast<std::byte*>(memory);
    while (size > 0)
    {
        auto const count = Uninterrupted([&] { return SystemCalls::GetRandom(bytes, size, 0); });
        if (count < 0)
            return ResultOf(CodeFromHost(errno));
        if (count == 0)
            return ResultOf(ERROR_HANDLE_EOF);
        bytes += count;
        size -= static_cast<std::size_t>(count);
    }
    return S_OK;
}

constexpr std::size_t GuidTextLength = 38;

wchar_t* WriteHexadecimal(wchar_t* out, std::uint32_t value, unsigned digits)
{
    for (unsigned i = digits; i > 0; --i)
    {
        out[i - 1] = L"0123456789ABCDEF"[value & 0xF];
        value >>= 4;
    }
    return out + digits;
}

void WriteGuid(GUID const& guid, wchar_t* out)
{
    *out++ = L'{';
    out = WriteHexadecimal(out, guid.Data1, 8);
    *out++ = L'-';
    out = WriteHexadecimal(out, guid.Data2, 4);
    *out++ = L'-';
    out = WriteHexadecimal(out, guid.Data3, 4);
    *out++ = L'-';
    for (unsigned i = 0; i < 8; ++i)
    {
        if (i == 2)
            *out++ = L'-';
        out = WriteHexadecimal(out, guid.Data4[i], 2);
    }
    *out++ = L'}';
    *out = L'\0';
}

/// A BSTR points behind its length in bytes, and has a terminator that the length leaves out.
using BstrLength = std::uint32_t;

wchar_t* TextOfUnknownCode(HRESULT code)
{
    constexpr std::size_t size = 32;
    constexpr auto firstDispatch = 0x80040200U;
    constexpr auto lastDispatch = 0x8004FFFFU;
    auto* const text = static_cast<wchar_t*>(std::malloc(size * sizeof(wchar_t)));
    if (text == nullptr)
        return nullptr;
    auto const bits = static_cast<std::uint32_t>(code);
    if (bits > firstDispatch && bits <= lastDispatch)
        std::swprintf(text, size, L"IDispatch error #%d", static_cast<int>(bits - firstDispatch));
    else
        std::swprintf(text, size, L"Unknown error 0x%0lX", static_cast<unsigned long>(bits));
    return text;
}

/// The system's text without its line end, to be released with LocalFree; null when memory is short.
wchar_t* TextOfCode(HRESULT code)
{
    constexpr DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    constexpr DWORD userDefaultLanguage = 0x400;
    wchar_t* text = nullptr;
    FormatMessageW(flags, nullptr, static_cast<DWORD>(code), userDefaultLanguage, reinterpret_cast<LPWSTR>(&text), 0,
                   nullptr);
    if (text == nullptr)
        return TextOfUnknownCode(code);
    auto length = std::wcslen(text);
    if (length > 1 && text[length - 1] == L'\n')
    {
        text[--length] = L'\0';
        if (text[length - 1] == L'\r')
            text[--length] = L'\0';
    }
    return text;
}

} // namespace

} // namespace Brindle::Vok::Platform

using namespace Brindle::Vok::Platform;

LPVOID CoTaskMemAlloc(SIZE_T size) noexcept
{
    return std::malloc(std::max<SIZE_T>(size, 1));
}

void CoTaskMemFree(LPVOID memory) noexcept
{
    std::free(memory);
}

HRESULT CoCreateGuid(GUID* guid) noexcept
{
    if (guid == nullptr)
        return E_INVALIDARG;
    GUID fresh;
    if (auto const result = FillRandom(&fresh, sizeof(fresh)); result != S_OK)
        return result;
    fresh.Data3 = static_cast<std::uint16_t>((fresh.Data3 & 0x0FFF) | 0x4000);
    fresh.Data4[0] = static_cast<std::uint8_t>((fresh.Data4[0] & 0x3F) | 0x80);
    *guid = fresh;
    return S_OK;
}

HRESULT StringFromCLSID(REFCLSID id, LPOLESTR* text) noexcept
{
    if (text == nullptr)
        return E_INVALIDARG;
    *text = static_cast<wchar_t*>(CoTaskMemAlloc((GuidTextLength + 1) * sizeof(wchar_t)));
    if (*text == nullptr)
        return E_OUTOFMEMORY;
    WriteGuid(id, *text);
    return S_OK;
}

BSTR SysAllocStringLen(wchar_t const* text, UINT length) noexcept
{
    constexpr auto limit = (std::numeric_limits<BstrLength>::max() - 2 * sizeof(wchar_t)) / sizeof(wchar_t);
    if (length > limit)
        return nullptr;
    auto const bytes = static_cast<BstrLength>(length * sizeof(wchar_t));
    auto* const memory = static_cast<std::byte*>(std::malloc(sizeof(BstrLength) + bytes + sizeof(wchar_t)));
    if (memory == nullptr)
        return nullptr;
    std::memcpy(memory, &bytes, sizeof(bytes));
    auto* const result = reinterpret_cast<wchar_t*>(memory + sizeof(BstrLength));
    if (text != nullptr)
        std::memcpy(result, text, bytes);
    result[length] = L'\0';
    return result;
}

BSTR SysAllocString(wchar_t const* text) noexcept
{
    if (text == nullptr)
        return nullptr;
    auto const length = std::wcslen(text);
    return length <= std::numeric_limits<UINT>::max() ? SysAllocStringLen(text, static_cast<UINT>(length)) : nullptr;
}

void SysFreeString(BSTR text) noexcept
{
    if (text != nullptr)
        std::free(reinterpret_cast<std::byte*>(text) - sizeof(BstrLength));
}

UINT SysStringLen(BSTR text) noexcept
{
    if (text == nullptr)
        return 0;
    BstrLength bytes;
    std::memcpy(&bytes, reinterpret_cast<std::byte const*>(text) - sizeof(BstrLength), sizeof(bytes));
    return static_cast<UINT>(bytes / sizeof(wchar_t));
}

_com_error::_com_error(HRESULT code, IErrorInfo* errorInfo, bool addRef) noexcept : code(code), errorInfo(errorInfo)
{
    if (errorInfo != nullptr && addRef)
        errorInfo->AddRef();
}

_com_error::_com_error(_com_error const& other) noexcept : _com_error(other.code, other.errorInfo, true) {}

_com_error& _com_error::operator=(_com_error const& other) noexcept
{
    if (this == &other)
        return *this;
    auto* const added = other.ErrorInfo();
    if (errorInfo != nullptr)
        errorInfo->Release();
    errorInfo = added;
    code = other.code;
    LocalFree(message.exchange(nullptr));
    return *this;
}

_com_error::~_com_error()
{
    if (errorInfo != nullptr)
        errorInfo->Release();
    LocalFree(message.load());
}

IErrorInfo* _com_error::ErrorInfo() const noexcept
{
    if (errorInfo != nullptr)
        errorInfo->AddRef();
    return errorInfo;
}

wchar_t const* _com_error::ErrorMessage() const noexcept
{
    if (auto const* const made = message.load())
        return made;
    auto* const fresh = TextOfCode(code);
    wchar_t* present = nullptr;
    if (message.compare_exchange_strong(present, fresh))
        return fresh != nullptr ? fresh : L"";
    LocalFree(fresh);
    return present;
}

_bstr_t _com_error::Source() const
{
    BSTR source = nullptr;
    if (errorInfo == nullptr || errorInfo->GetSource(&source) < 0)
        return _bstr_t();
    return _bstr_t(source, false);
}

_bstr_t _com_error::Description() const
{
    BSTR description = nullptr;
    if (errorInfo == nullptr || errorInfo->GetDescription(&description) < 0)
        return _bstr_t();
    return _bstr_t(description, false);
}
