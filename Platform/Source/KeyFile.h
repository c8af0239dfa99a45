// Files of groups and keys, as .desktop files and lists of applications are.
//
//     [Group]
//     Key=value
#pragma once

#include "Lines.h"

#include <string_view>

namespace Brindle::Vok::Platform
{

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

} // namespace Brindle::Vok::Platform
