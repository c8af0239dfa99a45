#include <Brindle/Platform/Com.h>
#include <Brindle/Platform/Text.h>

#include <cstdint>
#include <cstdlib>
#include <cwchar>

namespace Brindle::Vok::Platform
{
namespace
{

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

// The system's text without its line end, to be released with LocalFree; null when memory is short.
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
    using namespace Brindle::Vok::Platform;
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
