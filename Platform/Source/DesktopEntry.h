// What a .desktop file says of its application. Everything may throw std::bad_alloc.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Brindle::Vok::Platform
{

struct DesktopEntry
{
    std::string name;
    std::string icon;
    std::string exec;
    std::string tryExec;
    bool isApplication = false;
    bool isHidden = false;
};

DesktopEntry ReadDesktopEntry(std::string_view file);

/// The words of a command, without quotes and with their field codes. Nothing if a quote has no end.
std::optional<std::vector<std::string>> SplitCommand(std::string_view exec);

} // namespace Brindle::Vok::Platform
