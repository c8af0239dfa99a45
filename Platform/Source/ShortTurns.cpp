#include "ShortTurns.h"

#include "SystemCalls.h"

#include <cstdint>

namespace Brindle::Vok::Platform
{
namespace
{

// The host's sched_attr as first published. Older C libraries don't have it, and the kernel's header can't be included
// beside <sched.h>.
struct Scheduling
{
    std::uint32_t size = 48;
    std::uint32_t policy = 0;
    std::uint64_t flags = 0;
    std::int32_t nice = 0;
    std::uint32_t priority = 0;
    std::uint64_t turn = 0; ///< in nanoseconds; 0 where the host chooses alone, as Linux did before 6.12
    std::uint64_t deadline = 0;
    std::uint64_t period = 0;
};
static_assert(sizeof(Scheduling) == 48);

constexpr std::uint64_t shortTurn = 100'000; // the host gives none that is shorter

} // namespace

void AskForShortTurns() noexcept
{
    Scheduling scheduling;
    if (SystemCalls::GetScheduling(&scheduling, sizeof scheduling) != 0)
        return;
    if (scheduling.policy != SCHED_OTHER || scheduling.nice < 0 || scheduling.turn <= shortTurn)
        return;
    scheduling.turn = shortTurn;
    SystemCalls::SetScheduling(&scheduling);
}

} // namespace Brindle::Vok::Platform
