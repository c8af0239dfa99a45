#include "UtfSubject.h"

#include <Brindle/Platform/Text.h>

std::wstring ConvertToWide(std::string const& text)
{
    std::wstring result;
    auto const length = static_cast<int>(text.size());
    int const size = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
    result.resize_and_overwrite(
        static_cast<std::size_t>(size), [&](wchar_t* buffer, std::size_t)
        { return static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(), length, buffer, size)); });
    return result;
}

std::string ConvertToUtf8(std::wstring const& text)
{
    std::string result;
    auto const length = static_cast<int>(text.size());
    int const size = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    result.resize_and_overwrite(static_cast<std::size_t>(size),
                                [&](char* buffer, std::size_t)
                                {
                                    return static_cast<std::size_t>(WideCharToMultiByte(
                                        CP_UTF8, 0, text.data(), length, buffer, size, nullptr, nullptr));
                                });
    return result;
}
