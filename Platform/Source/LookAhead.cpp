#include "LookAhead.h"

#include "Clock.h"
#include "SystemCalls.h"
#include "Threads.h"

#include <algorithm>
#include <csignal>
#include <new>
#include <utility>

namespace Brindle::Vok::Platform
{
namespace
{

/// Fewer are not worth the start of a thread.
constexpr std::size_t leastEntries = 256;
/// Taken at a time, so that the two meet seldom.
constexpr std::size_t block = 16;
constexpr std::chrono::milliseconds longestAge{50};

constexpr std::uint64_t RangeOf(std::size_t front, std::size_t back)
{
    return static_cast<std::uint64_t>(back) << 32 | front;
}

constexpr std::size_t FrontOf(std::uint64_t range)
{
    return range & 0xFFFF'FFFF;
}

constexpr std::size_t BackOf(std::uint64_t range)
{
    return range >> 32;
}

/// The processors that the threads of all searches together may take: one is left for their callers.
class Processors
{
public:
    static bool Take() noexcept
    {
        cpu_set_t allowed;
        if (SystemCalls::GetProcessors(0, sizeof allowed, &allowed) != 0)
            return false;
        if (taken.fetch_add(1, std::memory_order_relaxed) + 1 < static_cast<unsigned>(CPU_COUNT(&allowed)))
            return true;
        GiveBack();
        return false;
    }
    static void GiveBack() noexcept { taken.fetch_sub(1, std::memory_order_relaxed); }

private:
    static constinit std::atomic<unsigned> taken;
    static int const startsAnewInChild;
};

constinit std::atomic<unsigned> Processors::taken{0};
[[maybe_unused]] int const Processors::startsAnewInChild =
    pthread_atfork(nullptr, nullptr, [] { taken.store(0, std::memory_order_relaxed); });

} // namespace

void LookAhead::Begin(int directory, EntryRecords const& entries, std::size_t from) noexcept
{
    if (hasTried || isOver || entries.count - from < leastEntries)
        return;
    hasTried = true;
    if (!Processors::Take())
        return;
    statuses.reset(new (std::nothrow) EntryStatus[entries.count]);
    descriptor = directory;
    records = entries;
    ownEnd = from;
    untaken.store(RangeOf(from, records.count), std::memory_order_relaxed);
    stops.store(false, std::memory_order_relaxed);
    end = ApproximateTimeNow() + longestAge;
    forks = CurrentForks();
    isRunning = statuses && StartThread(thread, Run, this);
    if (isRunning)
        return;
    statuses = nullptr;
    isOver = true;
    Processors::GiveBack();
}

EntryStatus const* LookAhead::Find(std::size_t entry) noexcept
{
    if (HasBegun() && ApproximateTimeNow() > end)
        EndForGood();
    if (!HasBegun() || entry < ownEnd || TakeFront(entry))
        return nullptr;
    Join();
    return HasBegun() ? &statuses[entry] : nullptr;
}

void LookAhead::End() noexcept
{
    hasTried = false;
    if (!HasBegun())
        return;
    stops.store(true, std::memory_order_relaxed);
    Join();
    statuses = nullptr;
}

void LookAhead::EndForGood() noexcept
{
    End();
    isOver = true;
}

// Relaxed order is enough: until the thread is joined the two share nothing but the range itself, and statuses are read
// only behind that.
bool LookAhead::TakeFront(std::size_t entry) noexcept
{
    std::uint64_t range = untaken.load(std::memory_order_relaxed);
    do
    {
        if (entry >= BackOf(range))
            return false;
        ownEnd = std::min(entry + block, BackOf(range));
    } while (!untaken.compare_exchange_weak(range, RangeOf(ownEnd, BackOf(range)), std::memory_order_relaxed));
    return true;
}

void LookAhead::Join() noexcept
{
    if (!std::exchange(isRunning, false))
        return;
    if (CurrentForks().descended != forks.descended)
    {
        statuses = nullptr; // nobody knows how far it came
        return;
    }
    int cancelState; // a host that cancels its thread means its own calls
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
    pthread_join(thread, nullptr);
    pthread_setcancelstate(cancelState, nullptr);
}

void* LookAhead::Run(void* self) noexcept
{
    static_cast<LookAhead*>(self)->Ask();
    Processors::GiveBack(); // here: the search may stand still for long
    return nullptr;
}

void LookAhead::Ask() noexcept
{
    std::uint64_t range = untaken.load(std::memory_order_relaxed);
    for (;;)
    {
        std::size_t const back = BackOf(range);
        if (FrontOf(range) >= back || stops.load(std::memory_order_relaxed))
            return;
        std::size_t const begin = std::max(FrontOf(range), back < block ? 0 : back - block);
        if (!untaken.compare_exchange_weak(range, RangeOf(FrontOf(range), begin), std::memory_order_relaxed))
            continue;
        for (std::size_t entry = begin; entry != back && !stops.load(std::memory_order_relaxed); ++entry)
            statuses[entry] = StatusOfEntry(descriptor, records.RecordOf(entry).d_name);
        range = RangeOf(FrontOf(range), begin);
    }
}

} // namespace Brindle::Vok::Platform
