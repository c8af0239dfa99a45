#include "EnvironmentFile.h"

#include "Ascii.h"
#include "Lines.h"

#include <algorithm>

namespace Brindle::Vok::Platform
{
namespace
{

bool IsName(std::string_view text) noexcept
{
    return !text.empty() &&
           std::ranges::all_of(text,
                               [](char unit) { return IsLetter(unit) || (unit >= '0' && unit <= '9') || unit == '_'; });
}

std::string_view Unquoted(std::string_view value) noexcept
{
    bool const isQuoted =
        value.size() >= 2 && value.front() == value.back() && (value.front() == '"' || value.front() == '\'');
    return isQuoted ? value.substr(1, value.size() - 2) : value;
}

} // namespace

std::vector<std::pair<std::string, std::string>> ParseEnvironmentFile(std::string_view file)
{
    std::vector<std::pair<std::string, std::string>> variables;
    while (!file.empty())
    {
        std::string_view line = TakePart(file, '\n');
        line = WithoutBlanks(line.substr(0, line.find('#')));
        constexpr std::string_view prefix = "export";
        if (line.starts_with(prefix) && line.find_first_of(blanks) == prefix.size())
            line = WithoutBlanks(line.substr(prefix.size()));
        std::size_t const equals = line.find('=');
        if (equals == line.npos || !IsName(line.substr(0, equals)) || line.find('\0') != line.npos)
            continue;
        variables.emplace_back(line.substr(0, equals), Unquoted(line.substr(equals + 1)));
    }
    return variables;
}

} // namespace Brindle::Vok::Platform
