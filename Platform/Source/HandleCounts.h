// How many handles of this process hold locks on a file, by the file's number. Files share counters, so a counter that
// isn't zero may be another file's. (The number of a file that is open doesn't change.)
#pragma once

#include <atomic>
#include <cstdint>
#include <sys/types.h>

namespace Brindle::Vok::Platform
{

using HandleCounter = std::atomic<std::uint32_t>;
HandleCounter& HandlesOn(ino_t file) noexcept;

} // namespace Brindle::Vok::Platform
