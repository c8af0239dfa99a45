// How many handles of this process hold locks on a file or a directory, by its number. Files share counters, so a
// counter that isn't zero may be another file's. (The number of a file that is open doesn't change.) Counting is
// sequentially consistent with a quick deletion's look, for the reason that stands at CountAndLook in CreateFile.cpp.
#pragma once

#include <atomic>
#include <cstdint>
#include <sys/stat.h>

namespace Brindle::Vok::Platform
{

using HandleCounter = std::atomic<std::uint32_t>;

inline constexpr unsigned handleCounterBits = 12;
inline constinit HandleCounter handleCounters[1 << handleCounterBits] = {};

inline bool IsCounted(mode_t mode) noexcept
{
    return S_ISREG(mode) || S_ISDIR(mode);
}

inline HandleCounter& HandlesOn(ino_t file) noexcept
{
    return handleCounters[static_cast<std::uint64_t>(file) * 0x9E37'79B9'7F4A'7C15U >> (64 - handleCounterBits)];
}

} // namespace Brindle::Vok::Platform
