#include "ToldStatus.h"

#include "Clock.h"

#include <algorithm>
#include <atomic>
#include <cstdint>

namespace Brindle::Vok::Platform
{
namespace
{

// Nothing is trusted before so many looks have shown how short one is.
constexpr std::int64_t looksToLearnFrom = 16;
std::atomic<std::int64_t> looks{0};
std::atomic<std::int64_t> shortestLook{1'000}; // nanoseconds

} // namespace

bool ToldStatus::Holds() const noexcept
{
    return holdsUntil.count() != 0 && TimeNow() < holdsUntil;
}

TimedLook::TimedLook() noexcept : start(TimeNow()) {}

std::chrono::nanoseconds TimedLook::End() const noexcept
{
    std::chrono::nanoseconds const now = TimeNow();
    std::int64_t const look = (now - start).count();
    std::int64_t const shortest = std::min(look, shortestLook.load(std::memory_order_relaxed));
    if (look == shortest)
        shortestLook.store(look, std::memory_order_relaxed);
    bool const learns = looks.load(std::memory_order_relaxed) < looksToLearnFrom;
    if (learns)
        looks.fetch_add(1, std::memory_order_relaxed);
    return learns || look > 2 * shortest ? std::chrono::nanoseconds(0)
                                         : now + std::chrono::nanoseconds(shortest * 3 / 4);
}

} // namespace Brindle::Vok::Platform
