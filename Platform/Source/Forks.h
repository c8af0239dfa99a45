// Forks of the process: what its locks need for them, and how many there were.
#pragma once

#include <atomic>
#include <mutex>
#include <pthread.h>
#include <sys/single_threaded.h>

namespace Brindle::Vok::Platform
{

/// Has forks wait for the mutex from here on: a child has only the thread that made it, and nobody to unlock what
/// another thread had locked. `inChild` runs there before that unlocks it. For a static beside it.
template <std::mutex& mutex, auto inChild = nullptr>
int HoldInForks() noexcept
{
    return pthread_atfork([] { mutex.lock(); }, [] { mutex.unlock(); },
                          []
                          {
                              if constexpr (inChild != nullptr)
                                  inChild();
                              mutex.unlock();
                          });
}

/// Forks since the process started: those it made, and those that led to it.
struct ForkCounts
{
    unsigned made = 0;
    unsigned descended = 0;
};

// Counted by the handlers in Forks.cpp. Here, so that opening and closing a file call no function for them.
extern constinit std::atomic<unsigned> forksMade;
extern constinit std::atomic<unsigned> forksDescended;

inline ForkCounts CurrentForks() noexcept
{
    return {forksMade.load(std::memory_order_relaxed), forksDescended.load(std::memory_order_relaxed)};
}

/// Whether a child process may hold a copy of a descriptor that was opened at that count. With other threads around one
/// may be starting a program this very moment, in ways that call no handler.
inline bool MayBeCopied(ForkCounts const& then) noexcept
{
    ForkCounts const now = CurrentForks();
    return now.descended == then.descended && (now.made != then.made || !__libc_single_threaded);
}

} // namespace Brindle::Vok::Platform
