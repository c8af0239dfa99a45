#include <Brindle/Platform/Com.h>

#include "HostErrors.h"
#include "SystemCalls.h"

#include <cstddef>

namespace Brindle::Vok::Platform
{
namespace
{

// Fills the bytes from the kernel's random source, carrying on short calls.
HRESULT FillRandom(void* memory, std::size_t size)
{
    auto* bytes = static_cast<std::byte*>(memory);
    while (size > 0)
    {
        auto const count = Uninterrupted([&] { return SystemCalls::GetRandom(bytes, size, 0); });
        if (count < 0)
            return HRESULT_FROM_WIN32(CodeFromHost(errno));
        if (count == 0)
            return HRESULT_FROM_WIN32(ERROR_HANDLE_EOF);
        bytes += count;
        size -= static_cast<std::size_t>(count);
    }
    return S_OK;
}

constexpr std::size_t guidTextLength = 38;

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

} // namespace
} // namespace Brindle::Vok::Platform

HRESULT CoCreateGuid(GUID* guid) noexcept
{
    using namespace Brindle::Vok::Platform;
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
    using namespace Brindle::Vok::Platform;
    if (text == nullptr)
        return E_INVALIDARG;
    *text = static_cast<wchar_t*>(CoTaskMemAlloc((guidTextLength + 1) * sizeof(wchar_t)));
    if (*text == nullptr)
        return E_OUTOFMEMORY;
    WriteGuid(id, *text);
    return S_OK;
}
