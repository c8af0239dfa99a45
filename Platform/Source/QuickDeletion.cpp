#include "QuickDeletion.h"

#include "Forks.h"
#include "OtherProcesses.h"

#include <atomic>
#include <mutex>
#include <pthread.h>

namespace Brindle::Vok::Platform
{
namespace
{

// To get ready costs as much as opening a few files.
constexpr unsigned leastTurns = 4;

constexpr pthread_rwlock_t free = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;
constinit pthread_rwlock_t deletionLock = free;

// How many rely on the counters, in the low half, and how many ever did, in the high one.
std::atomic<std::uint64_t> reliances{0};
constexpr std::uint64_t oneNow = 1;
constexpr std::uint64_t oneEver = std::uint64_t{1} << 32;

// A child has only the thread that made it, and nobody to unlock what another thread had locked. It relies on nothing.
[[maybe_unused]] int const startsAnewInChild = pthread_atfork(nullptr, nullptr,
                                                              []
                                                              {
                                                                  deletionLock = free;
                                                                  reliances = 0;
                                                              });

} // namespace

void DeletionLock::lock() noexcept
{
    pthread_rwlock_wrlock(&deletionLock);
}

void DeletionLock::lock_shared() noexcept
{
    pthread_rwlock_rdlock(&deletionLock);
}

void DeletionLock::unlock() noexcept
{
    pthread_rwlock_unlock(&deletionLock);
}

std::uint64_t QuickDeletionsSoFar() noexcept
{
    return reliances.load(std::memory_order_seq_cst);
}

bool MayHaveMetQuickDeletion(std::uint64_t before) noexcept
{
    std::uint64_t const now = reliances.load(std::memory_order_seq_cst);
    if (now == before && now % oneEver == 0)
        return false;
    DeletionLock lock;
    std::lock_guard const waits(lock); // when it is had, none is between its look at the counter and its end
    return true;
}

bool QuickDeletion::KnowsAllHandles() noexcept
{
    if (state == State::waits && ++turns >= leastTurns)
    {
        state = OtherProcesses::BeginRelyingOnNone() ? State::relies : State::gaveUp;
        if (state == State::relies)
        {
            forks = CurrentForks().descended;
            reliances.fetch_add(oneEver + oneNow, std::memory_order_seq_cst);
        }
    }
    if (state == State::relies && (forks != CurrentForks().descended || !OtherProcesses::AreStillNone()))
        End();
    return state == State::relies;
}

void QuickDeletion::End() noexcept
{
    if (state == State::relies && forks == CurrentForks().descended)
    {
        reliances.fetch_sub(oneNow, std::memory_order_seq_cst);
        OtherProcesses::EndRelyingOnNone();
    }
    state = State::gaveUp;
}

} // namespace Brindle::Vok::Platform
