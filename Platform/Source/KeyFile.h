// Files of groups and keys, as .desktop files and lists of applications are.
//
//     [Group]
//     Key=value
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace Brindle::Vok::Platform
{

inline std::string_view WithoutBlanks(std::string_view text) noexcept
{
    constexpr std::string_view blanks = " \t\r";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

/// Takes the part in front of the first separator, and that one too.
inline std::string_view TakePart(std::string_view& text, char separator) noexcept
{
    std::string_view const part = text.substr(0, text.find(separator));
    text.remove_prefix(std::min(part.size() + 1, text.size()));
    return part;
}

/// Shows (group, key, value) of each line that has one, in the file's order. They are parts of its text.
template <class Show>
void ForEachKey(std::string_view file, Show show)
{
    std::string_view group;
    while (!file.empty())
    {
        std::string_view const line = WithoutBlanks(TakePart(file, '\n'));
        if (line.starts_with('['))
            group = line.ends_with(']') ? line.substr(1, line.size() - 2) : std::string_view();
        std::size_t const equals = line.find('=');
        if (line.empty() || line[0] == '#' || line[0] == '[' || equals == line.npos)
            continue;
        show(group, WithoutBlanks(line.substr(0, equals)), WithoutBlanks(line.substr(equals + 1)));
    }
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
