// How long a text the platform's conversions take.
#pragma once

#include <cstddef>
#include <limits>

namespace Brindle::Vok::Detail
{

/// In units or bytes. The platform counts in an int, and takes a negative one for something else.
inline constexpr std::size_t longestText = std::numeric_limits<int>::max();

} // namespace Brindle::Vok::Detail
