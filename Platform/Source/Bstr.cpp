#include <Brindle/Platform/Com.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <limits>

namespace Brindle::Vok::Platform
{
namespace
{

// A BSTR points behind its length in bytes, and has a terminator that the length leaves out.
using BstrLength = std::uint32_t;

} // namespace
} // namespace Brindle::Vok::Platform

BSTR SysAllocString(wchar_t const* text) noexcept
{
    if (text == nullptr)
        return nullptr;
    auto const length = std::wcslen(text);
    return length <= std::numeric_limits<UINT>::max() ? SysAllocStringLen(text, static_cast<UINT>(length)) : nullptr;
}

BSTR SysAllocStringLen(wchar_t const* text, UINT length) noexcept
{
    using namespace Brindle::Vok::Platform;
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

void SysFreeString(BSTR text) noexcept
{
    using namespace Brindle::Vok::Platform;
    if (text != nullptr)
        std::free(reinterpret_cast<std::byte*>(text) - sizeof(BstrLength));
}

UINT SysStringLen(BSTR text) noexcept
{
    using namespace Brindle::Vok::Platform;
    if (text == nullptr)
        return 0;
    BstrLength bytes;
    std::memcpy(&bytes, reinterpret_cast<std::byte const*>(text) - sizeof(BstrLength), sizeof(bytes));
    return static_cast<UINT>(bytes / sizeof(wchar_t));
}
