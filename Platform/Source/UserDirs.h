// The file user-dirs.dirs, as data: each line that counts gives one directory,
//
//     XDG_DESKTOP_DIR="$HOME/Desktop"
//     XDG_MUSIC_DIR="/srv/music"         # a comment
//
// and the last line of a name wins. A backslash keeps the character behind it as it is. A line of any other form counts
// as none: nothing is expanded or run.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Brindle::Vok::Platform
{

/// The directory of a name such as "XDG_DESKTOP_DIR", with the home in the place of $HOME. Pure; may throw
/// std::bad_alloc.
std::optional<std::string> FindUserDirectory(std::string_view file, std::string_view name, std::string_view home);

} // namespace Brindle::Vok::Platform
