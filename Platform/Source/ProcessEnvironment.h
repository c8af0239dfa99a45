// The process's own variables for other rooms, under the lock and by the rules of Environment.cpp. All of these may
// throw std::bad_alloc.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Brindle::Vok::Platform
{

/// The bytes of a variable that is spelled so; nothing for one that is missing or empty.
std::optional<std::string> ReadHostVariable(std::string_view name);

/// All of them in the host's order, without those that have no name.
std::vector<std::pair<std::string, std::string>> ReadHostVariables();

/// TEMP or TMP as the platform's text, from the host's values of it and of the other one; null and empty ones count as
/// not set.
std::wstring TemporaryDirectoryFrom(char const* own, char const* other);

} // namespace Brindle::Vok::Platform
