// Taking texts apart that are made of lines, words and lists.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace Brindle::Vok::Platform
{

inline constexpr std::string_view blanks = " \t\r";

inline void SkipBlanks(std::string_view& text) noexcept
{
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
}

inline std::string_view WithoutBlanks(std::string_view text) noexcept
{
    SkipBlanks(text);
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

/// Takes the part in front of the first separator, and that one too.
inline std::string_view TakePart(std::string_view& text, char separator) noexcept
{
    std::string_view const part = text.substr(0, text.find(separator));
    text.remove_prefix(std::min(part.size() + 1, text.size()));
    return part;
}

/// Takes the first word; empty when there is none.
inline std::string_view TakeWord(std::string_view& text) noexcept
{
    SkipBlanks(text);
    std::string_view const word = text.substr(0, text.find_first_of(blanks));
    text.remove_prefix(word.size());
    return word;
}

/// Appends what stands between the separators and isn't empty.
inline void AppendList(std::string_view list, char separator, std::vector<std::string>& parts)
{
    while (!list.empty())
    {
        std::string_view const part = WithoutBlanks(TakePart(list, separator));
        if (!part.empty())
            parts.emplace_back(part);
    }
}

} // namespace Brindle::Vok::Platform
