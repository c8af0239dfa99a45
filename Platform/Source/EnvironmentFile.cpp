#include "EnvironmentFile.h"

#include "Ascii.h"

#include <algorithm>

namespace Brindle::Vok::Platform
{
namespace
{

constexpr std::string_view blanks = " \t\r";

std::string_view Trimmed(std::string_view text) noexcept
{
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

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
        std::size_t const end = std::min(file.find('\n'), file.size());
        std::string_view line = Trimmed(file.substr(0, end));
        file.remove_prefix(std::min(end + 1, file.size()));
        line = Trimmed(line.substr(0, line.find('#')));
        constexpr std::string_view prefix = "export";
        if (line.starts_with(prefix) && line.find_first_of(blanks) == prefix.size())
            line = Trimmed(line.substr(prefix.size()));
        std::size_t const equals = line.find('=');
        if (equals == line.npos || !IsName(line.substr(0, equals)) || line.find('\0') != line.npos)
            continue;
        variables.emplace_back(line.substr(0, equals), Unquoted(line.substr(equals + 1)));
    }
    return variables;
}

} // namespace Brindle::Vok::Platform
