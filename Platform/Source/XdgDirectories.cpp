#include "XdgDirectories.h"

#include "Identity.h"
#include "Lines.h"
#include "ProcessEnvironment.h"
#include "Users.h"

#include <optional>

namespace Brindle::Vok::Platform
{
namespace
{

std::optional<std::string> FindAbsolute(char const* variable)
{
    auto value = ReadHostVariable(variable);
    return value && value->starts_with('/') ? value : std::nullopt;
}

bool FindHome(uid_t user, bool isOfProcess, std::string& home)
{
    if (auto const variable = isOfProcess ? FindAbsolute("HOME") : std::nullopt)
    {
        home = *variable;
        return true;
    }
    User entry;
    if (!FindUser(user, entry))
        return false;
    home = entry.home;
    return true;
}

std::vector<std::string> AbsoluteParts(std::string_view list)
{
    std::vector<std::string> directories;
    AppendList(list, ':', directories);
    std::erase_if(directories, [](std::string const& directory) { return !directory.starts_with('/'); });
    return directories;
}

} // namespace

bool FindXdgDirectories(uid_t user, bool takesVariables, XdgDirectories& found)
{
    Identity process;
    if (!FindProcessIdentity(process))
        return false;
    bool const isOfProcess = user == process.user;
    if (!FindHome(user, isOfProcess, found.home))
        return false;
    auto const find = [&](char const* variable, char const* belowHome)
    {
        auto const value = isOfProcess && takesVariables ? FindAbsolute(variable) : std::nullopt;
        return value ? *value : found.home + belowHome;
    };
    found.config = find("XDG_CONFIG_HOME", "/.config");
    found.data = find("XDG_DATA_HOME", "/.local/share");
    found.cache = find("XDG_CACHE_HOME", "/.cache");
    return true;
}

std::vector<std::string> FindListedDirectories(char const* variable, std::string_view defaults)
{
    auto directories = AbsoluteParts(ReadHostVariable(variable).value_or(""));
    return directories.empty() ? AbsoluteParts(defaults) : directories;
}

} // namespace Brindle::Vok::Platform
