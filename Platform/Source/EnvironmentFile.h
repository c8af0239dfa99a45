// The system's variables in /etc/environment, as data: lines NAME=value with letters, digits and underscores in the
// name. "export" before it, blanks around and one pair of quotes are left out, and # begins a comment wherever it
// stands. A line of any other form counts as none.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Brindle::Vok::Platform
{

/// In the order of the lines, names twice where they stand twice. Pure; may throw std::bad_alloc.
std::vector<std::pair<std::string, std::string>> ParseEnvironmentFile(std::string_view file);

} // namespace Brindle::Vok::Platform
