#include "HandleTable.h"

#include "HostErrors.h"

#include <Brindle/Platform/ErrorCodes.h>
#include <Brindle/Platform/Handles.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>
#include <type_traits>

namespace Brindle::Vok::Platform
{
namespace
{

constexpr std::uint32_t slotsOfChunk = 1024;
constexpr std::uint32_t mostChunks = 4096;

} // namespace

// Initialised before any code runs and never destroyed: handles work in every static constructor and destructor and in
// threads that outlive main. Chunks stay for the same reason, and because a stale handle may still be looked up. There
// is no lock, so a child process finds everything in order, whatever another thread was at when it was forked; the
// slots that other threads were just taking or giving back are lost to it.
struct HandleTable::Table
{
    std::atomic<Slot*> chunks[mostChunks];
    // The number of the first free slot, 0 for none, in the low half; the high half counts the changes, so that a
    // thread that was held up sees that the list is another one, though it begins with the same slot.
    //
    // Giving back releases and taking acquires. Every change is a read-modify-write, so who reads any later value sees
    // what was written before each slot of the list was given back: its control word, its link and its chunk. A link
    // may be read while another thread rewrites it; the count of changes makes the exchange fail then.
    std::atomic<std::uint64_t> firstFree;
};

constinit HandleTable::Table HandleTable::table{};

bool HandleTable::Close(HANDLE handle, Kinds kinds) noexcept
{
    auto const value = reinterpret_cast<std::uint64_t>(handle);
    Slot* const slot = SlotOf(value);
    if (!slot)
        return FailWith(ERROR_INVALID_HANDLE);
    std::uint64_t word = slot->control.load(std::memory_order_acquire);
    std::uint64_t closed;
    do
    {
        if (!Slot::Answers(word, value >> generationShift, kinds))
            return FailWith(ERROR_INVALID_HANDLE);
        closed = (word & ~openBit) - 1;
    } while (!slot->control.compare_exchange_weak(word, closed, std::memory_order_acq_rel, std::memory_order_acquire));
    if ((closed & countMask) == 0)
        Retire(*slot);
    return true;
}

std::size_t HandleTable::OpenCount() noexcept
{
    std::size_t count = 0;
    for (std::atomic<Slot*> const& chunk : table.chunks)
    {
        Slot const* const slots = chunk.load(std::memory_order_acquire);
        if (!slots)
            break;
        count += static_cast<std::size_t>(std::count_if(
            slots, slots + slotsOfChunk,
            [](Slot const& slot) { return (slot.control.load(std::memory_order_relaxed) & openBit) != 0; }));
    }
    return count;
}

HandleTable::Slot* HandleTable::Acquire(HANDLE handle, Kinds kinds) noexcept
{
    auto const value = reinterpret_cast<std::uint64_t>(handle);
    if (Slot* const slot = SlotOf(value))
    {
        std::uint64_t word = slot->control.load(std::memory_order_acquire);
        while (Slot::Answers(word, value >> generationShift, kinds))
            if (slot->control.compare_exchange_weak(word, word + 1, std::memory_order_acquire))
                return slot;
    }
    return FailWith<Slot*>(ERROR_INVALID_HANDLE);
}

void HandleTable::Retire(Slot& slot) noexcept
{
    static_assert(std::is_trivially_destructible_v<Table>);
    std::destroy_at(std::exchange(slot.object, nullptr));
    std::uint64_t const next = (slot.control.load(std::memory_order_relaxed) >> generationShift) + 1;
    // Relaxed, as GiveBack publishes it; until then a stale handle sees a word that isn't open.
    slot.control.store(next << generationShift, std::memory_order_relaxed);
    // A slot that has used up its generations is given up, since its next handles would equal its first.
    if (next >> (64 - generationShift) == 0)
        GiveBack(slot, slot);
}

HandleTable::Slot* HandleTable::TakeFreeSlot() noexcept
{
    std::uint64_t first = table.firstFree.load(std::memory_order_acquire);
    while (Slot* const slot = SlotNumbered(static_cast<std::uint32_t>(first)))
    {
        std::uint64_t const rest = slot->nextFree.load(std::memory_order_relaxed);
        if (table.firstFree.compare_exchange_weak(first, ((first >> 32) + 1) << 32 | rest, std::memory_order_acquire))
            return slot;
    }
    return AddChunk();
}

// Takes back a row of slots that lead from one to the other.
void HandleTable::GiveBack(Slot& from, Slot& to) noexcept
{
    std::uint64_t first = table.firstFree.load(std::memory_order_relaxed);
    do
        to.nextFree.store(static_cast<std::uint32_t>(first), std::memory_order_relaxed);
    while (!table.firstFree.compare_exchange_weak(first, ((first >> 32) + 1) << 32 | from.number,
                                                  std::memory_order_release, std::memory_order_relaxed));
}

// Gives the first slot of a new chunk. Threads that come here at the same time each add one.
HandleTable::Slot* HandleTable::AddChunk() noexcept
{
    Slot* const chunk = new (std::nothrow) Slot[slotsOfChunk];
    if (!chunk)
        return FailWith<Slot*>(ERROR_NOT_ENOUGH_MEMORY);
    for (std::uint32_t index = 0; index < mostChunks; ++index)
    {
        if (table.chunks[index].load(std::memory_order_relaxed))
            continue;
        for (std::uint32_t at = 0; at < slotsOfChunk; ++at)
        {
            chunk[at].number = index * slotsOfChunk + at + 1;
            chunk[at].nextFree.store(chunk[at].number + 1, std::memory_order_relaxed);
        }
        Slot* none = nullptr;
        if (!table.chunks[index].compare_exchange_strong(none, chunk, std::memory_order_release))
            continue;
        GiveBack(chunk[1], chunk[slotsOfChunk - 1]);
        return &chunk[0];
    }
    delete[] chunk;
    return FailWith<Slot*>(ERROR_NO_SYSTEM_RESOURCES);
}

HandleTable::Slot* HandleTable::SlotOf(std::uint64_t value) noexcept
{
    auto const low = static_cast<std::uint32_t>(value);
    return (low & ((1U << numberShift) - 1)) == 0 ? SlotNumbered(low >> numberShift) : nullptr;
}

// Null for 0, whose index wraps to the largest one, and for what no chunk has.
HandleTable::Slot* HandleTable::SlotNumbered(std::uint32_t number) noexcept
{
    std::uint32_t const index = number - 1;
    if (index / slotsOfChunk >= mostChunks)
        return nullptr;
    Slot* const chunk = table.chunks[index / slotsOfChunk].load(std::memory_order_acquire);
    return chunk ? &chunk[index % slotsOfChunk] : nullptr;
}

} // namespace Brindle::Vok::Platform

BOOL CloseHandle(HANDLE handle) noexcept
{
    using namespace Brindle::Vok::Platform;
    // Searches, registry keys and modules have closing functions of their own.
    return HandleTable::Close(handle, ~KindsOf(Kind::search, Kind::registryKey, Kind::module));
}

BOOL FindClose(HANDLE search) noexcept
{
    using namespace Brindle::Vok::Platform;
    return HandleTable::Close(search, KindsOf(Kind::search));
}
