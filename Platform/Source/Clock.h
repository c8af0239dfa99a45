// The clock of waits, changes and what a search has told.
#pragma once

#include <chrono>

namespace Brindle::Vok::Platform
{

/// Since some moment that stays the same.
std::chrono::nanoseconds TimeNow() noexcept;
/// The same a few milliseconds late, in a fraction of the time.
std::chrono::nanoseconds ApproximateTimeNow() noexcept;

} // namespace Brindle::Vok::Platform
