#include "QuickDeletion.h"

#include "HostErrors.h"
#include "OtherProcesses.h"
#include "ToldStatus.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <pthread.h>

namespace Brindle::Vok::Platform
{
namespace
{

// To get ready costs as much as looking at a few files.
constexpr unsigned leastDeletions = 4;
constexpr std::chrono::milliseconds longestTrust{10};

constinit std::mutex deletions;

// How many directories rely on the table, in the low half, and how many ever did, in the high one.
std::atomic<std::uint64_t> relying{0};
constexpr std::uint64_t oneRelying = 1;
constexpr std::uint64_t oneEver = std::uint64_t{1} << 32;
// Guarded by the lock of deletions.
std::chrono::nanoseconds trustedUntil{0};

constexpr unsigned counterBits = 12;
constinit HandleCounter counters[1 << counterBits] = {};

// A child has only the thread that made it, and nobody to unlock what another thread had locked. It starts with
// directories that rely on what was true for its parent.
[[maybe_unused]] int const startsAnewInChild = pthread_atfork(nullptr, nullptr,
                                                              []
                                                              {
                                                                  std::construct_at(&deletions);
                                                                  trustedUntil = {};
                                                              });

bool AreStillNone() noexcept
{
    std::chrono::nanoseconds const now = TimeNow();
    if (now < trustedUntil)
        return true;
    if (!OtherProcesses::AreStillNone())
        return false;
    trustedUntil = now + longestTrust;
    return true;
}

} // namespace

std::mutex& Deletions() noexcept
{
    return deletions;
}

HandleCounter& HandlesOn(ino_t file) noexcept
{
    return counters[static_cast<std::uint64_t>(file) * 0x9E37'79B9'7F4A'7C15U >> (64 - counterBits)];
}

std::uint64_t QuickDeletionsSoFar() noexcept
{
    return relying.load(std::memory_order_seq_cst);
}

bool TellDeletionsOfOpening(std::uint64_t before) noexcept
{
    std::uint64_t const now = relying.load(std::memory_order_seq_cst);
    if (now == before && now % oneEver == 0)
        return false;
    std::lock_guard const lock(deletions); // when it is free, none is between its look at the table and its end
    return true;
}

bool QuickDeletion::Begin() noexcept
{
    if (state == State::waits && ++deletions >= leastDeletions)
    {
        state = OtherProcesses::BeginRelyingOnNone() ? State::relies : State::gaveUp;
        if (state == State::relies)
            relying.fetch_add(oneEver + oneRelying, std::memory_order_seq_cst);
    }
    if (state == State::relies && !AreStillNone())
        End();
    return state == State::relies;
}

void QuickDeletion::End() noexcept
{
    if (state == State::relies)
    {
        relying.fetch_sub(oneRelying, std::memory_order_seq_cst);
        OtherProcesses::EndRelyingOnNone();
    }
    state = State::gaveUp;
}

} // namespace Brindle::Vok::Platform
