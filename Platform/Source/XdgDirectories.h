// Where the files of a user and of the machine are, by the rules of the XDG base directories. A relative path in a
// variable counts as none. All of these may throw std::bad_alloc.
#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace Brindle::Vok::Platform
{

struct XdgDirectories
{
    std::string home;
    std::string config;
    std::string data;
    std::string cache;
};

/// For the process's own user HOME counts, and if it `takesVariables` the others do; for anybody else the home of the
/// host's database and what is below it. False with ERROR_NO_SUCH_USER or the host's failure.
bool FindXdgDirectories(uid_t user, bool takesVariables, XdgDirectories& found);

inline constexpr char const* configurationOfMachine = "/etc/xdg";

/// The absolute directories of a variable that lists them, or those of the default list.
std::vector<std::string> FindListedDirectories(char const* variable, std::string_view defaults);

} // namespace Brindle::Vok::Platform
