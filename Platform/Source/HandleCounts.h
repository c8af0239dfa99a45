// How many handles of this process hold locks on a file, by the file's number. Files share counters, so a counter that
// isn't zero may be another file's. (The number of a file that is open doesn't change.)
#pragma once

#include <atomic>
#include <cstdint>
#include <sys/types.h>

namespace Brindle::Vok::Platform
{

using HandleCounter = std::atomic<std::uint32_t>;

inline constexpr unsigned handleCounterBits = 12;
inline constinit HandleCounter handleCounters[1 << handleCounterBits] = {};

inline HandleCounter& HandlesOn(ino_t file) noexcept
{
    return handleCounters[static_cast<std::uint64_t>(file) * 0x9E37'79B9'7F4A'7C15U >> (64 - handleCounterBits)];
}

} // namespace Brindle::Vok::Platform
