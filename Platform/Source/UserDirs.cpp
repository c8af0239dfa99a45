#include "UserDirs.h"

#include "Lines.h"

namespace Brindle::Vok::Platform
{
namespace
{

bool Skip(std::string_view& text, std::string_view expected) noexcept
{
    if (!text.starts_with(expected))
        return false;
    text.remove_prefix(expected.size());
    return true;
}

// Takes what stands in quotes, the first of which is gone already.
std::optional<std::string> TakeQuoted(std::string_view& text)
{
    std::string value;
    while (!text.empty() && text.front() != '"')
    {
        if (text.front() == '\\')
            text.remove_prefix(1);
        if (text.empty() || text.front() == '\0')
            return std::nullopt;
        value += text.front();
        text.remove_prefix(1);
    }
    return Skip(text, "\"") ? std::optional(std::move(value)) : std::nullopt;
}

std::optional<std::string> DirectoryInLine(std::string_view line, std::string_view name, std::string_view home)
{
    SkipBlanks(line);
    if (!Skip(line, name))
        return std::nullopt;
    SkipBlanks(line);
    if (!Skip(line, "="))
        return std::nullopt;
    SkipBlanks(line);
    if (!Skip(line, "\""))
        return std::nullopt;
    bool const isBelowHome = line.starts_with("$HOME/") || line.starts_with("$HOME\"");
    if (isBelowHome)
        Skip(line, "$HOME");
    else if (!line.starts_with('/'))
        return std::nullopt;
    std::optional<std::string> directory = TakeQuoted(line);
    SkipBlanks(line);
    if (!directory || !(line.empty() || line.starts_with('#')))
        return std::nullopt;
    if (isBelowHome)
        directory->insert(0, home);
    return directory;
}

} // namespace

std::optional<std::string> FindUserDirectory(std::string_view file, std::string_view name, std::string_view home)
{
    std::optional<std::string> last;
    while (!file.empty())
    {
        if (auto directory = DirectoryInLine(TakePart(file, '\n'), name, home))
            last = std::move(directory);
    }
    return last;
}

} // namespace Brindle::Vok::Platform
