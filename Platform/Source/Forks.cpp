#include "Forks.h"

namespace Brindle::Vok::Platform
{

constinit std::atomic<unsigned> forksMade{0};
constinit std::atomic<unsigned> forksDescended{0};

namespace
{

[[maybe_unused]] int const countsForks = pthread_atfork(
    nullptr, [] { forksMade.fetch_add(1, std::memory_order_relaxed); },
    [] { forksDescended.fetch_add(1, std::memory_order_relaxed); });

} // namespace
} // namespace Brindle::Vok::Platform
