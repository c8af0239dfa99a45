#include "UtfSubject.h"

#include <Brindle/Platform/ErrorCodes.h>
#include <Brindle/Platform/Text.h>

namespace
{

/// Texts up to this length are converted in one call, into a buffer that holds any result of theirs.
constexpr std::size_t ShortText = 256;

int ToWide(std::string const& text, wchar_t* buffer, int size)
{
    return MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), buffer, size);
}

int ToUtf8(std::wstring const& text, char* buffer, int size)
{
    return WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), buffer, size, nullptr, nullptr);
}

} // namespace

std::wstring ConvertToWide(std::string const& text)
{
    std::wstring result;
    // No text has more units than bytes, so a short one needs no count.
    auto const size = text.size() <= ShortText ? static_cast<int>(text.size()) : ToWide(text, nullptr, 0);
    result.resize_and_overwrite(static_cast<std::size_t>(size), [&](wchar_t* buffer, std::size_t)
                                { return static_cast<std::size_t>(ToWide(text, buffer, size)); });
    return result;
}

std::string ConvertToUtf8(std::wstring const& text)
{
    if (text.size() <= ShortText)
    {
        char buffer[3 * ShortText];
        return {buffer, static_cast<std::size_t>(ToUtf8(text, buffer, 3 * ShortText))};
    }
    std::string result;
    auto const convert = [&](char* buffer, std::size_t size)
    { return static_cast<std::size_t>(ToUtf8(text, buffer, static_cast<int>(size))); };
    // ASCII needs no count, and anything else is seen early, since no text has fewer bytes than units.
    auto const lastError = GetLastError();
    result.resize_and_overwrite(text.size(), convert);
    if (result.empty())
    {
        SetLastError(lastError);
        result.resize_and_overwrite(static_cast<std::size_t>(ToUtf8(text, nullptr, 0)), convert);
    }
    return result;
}
