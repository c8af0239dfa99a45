#include <Brindle/Vok/String.h>

#include <Brindle/Vok/Error.h>

#include "LongestText.h"
#include "UninitializedStorage.h"

#include <cstddef>
#include <string>

namespace Brindle::Vok::String
{

std::wstring StringToWstring(std::string const& text, int codePage)
{
    std::wstring result;
    if (text.empty())
        return result;
    if (text.size() > Detail::longestText)
        VOK_THROW(WindowsError, ERROR_INVALID_PARAMETER, L"MultiByteToWideChar length calculation");
    auto const page = static_cast<UINT>(codePage);
    int const length = static_cast<int>(text.size());
    int const size = MultiByteToWideChar(page, 0, text.data(), length, nullptr, 0);
    if (size == 0)
        VOK_THROW_LAST_ERROR(L"MultiByteToWideChar length calculation");
    Detail::ResizeUninitialized(result, static_cast<std::size_t>(size));
    if (MultiByteToWideChar(page, 0, text.data(), length, result.data(), size) == 0)
        VOK_THROW_LAST_ERROR(L"MultiByteToWideChar");
    return result;
}

std::wstring StringToWstring(char const* text, int codePage)
{
    return text == nullptr ? std::wstring() : StringToWstring(std::string(text), codePage);
}

std::string WstringToString(std::wstring const& text, int codePage)
{
    std::string result;
    if (text.empty())
        return result;
    if (text.size() > Detail::longestText)
        VOK_THROW(WindowsError, ERROR_INVALID_PARAMETER, L"WideCharToMultiByte length calculation");
    auto const page = static_cast<UINT>(codePage);
    int const length = static_cast<int>(text.size());
    int const size = WideCharToMultiByte(page, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    if (size == 0)
        VOK_THROW_LAST_ERROR(L"WideCharToMultiByte length calculation");
    Detail::ResizeUninitialized(result, static_cast<std::size_t>(size));
    if (WideCharToMultiByte(page, 0, text.data(), length, result.data(), size, nullptr, nullptr) == 0)
        VOK_THROW_LAST_ERROR(L"WideCharToMultiByte");
    return result;
}

std::string WstringToString(wchar_t const* text, int codePage)
{
    return text == nullptr ? std::string() : WstringToString(std::wstring(text), codePage);
}

} // namespace Brindle::Vok::String
