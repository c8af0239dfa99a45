#include "HandleTable.h"

#include "HostErrors.h"

#include <Brindle/Platform/Handles.h>

#include <atomic>
#include <mutex>
#include <new>
#include <type_traits>

namespace Brindle::Vok::Platform
{
namespace
{

// A slot's control word: generation in the high half, then the kind, whether the handle is open, and how many hold the
// object. An open handle is itself one of the holders.
constexpr std::uint64_t CountMask = 0x00FF'FFFF;
constexpr std::uint64_t OpenBit = 0x0100'0000;
constexpr unsigned KindShift = 25;
constexpr unsigned GenerationShift = 32;

// Handles are multiples of four, as the platform's are.
constexpr unsigned IndexShift = 2;
constexpr std::uint32_t SlotsOfChunk = 1024;
constexpr std::uint32_t MostChunks = 4096;

constexpr std::uint64_t GenerationOf(std::uint64_t word)
{
    return word >> GenerationShift;
}

constexpr bool Answers(std::uint64_t word, std::uint64_t generation, Kinds kinds)
{
    return GenerationOf(word) == generation && (word & OpenBit) != 0 && (kinds >> (word >> KindShift & 0x3F) & 1) != 0;
}

} // namespace

// A cache line each, so that threads that work with neighbouring handles don't slow each other.
struct alignas(64) HandleTable::Slot
{
    std::atomic<std::uint64_t> control{std::uint64_t{1} << GenerationShift};
    Object* object = nullptr;
    std::uint32_t index = 0;
    Slot* nextFree = nullptr;
};

// Initialised before any code runs and never destroyed: handles work in every static constructor and destructor and in
// threads that outlive main. Chunks stay for the same reason, and because a stale handle may still be looked up.
struct HandleTable::Storage
{
    std::atomic<Slot*> chunks[MostChunks];
    std::mutex mutex;
    Slot* firstFree;
    std::uint32_t chunkCount;
    std::atomic<std::size_t> openCount;
};

constinit HandleTable::Storage HandleTable::storage{};

HANDLE HandleTable::Insert(std::unique_ptr<Object> object) noexcept
{
    static_assert(std::is_trivially_destructible_v<Storage>);
    Slot* const slot = TakeFreeSlot();
    if (!slot)
        return nullptr;
    auto const kind = static_cast<std::uint64_t>(object->kind);
    slot->object = object.release();
    std::uint64_t const generation = GenerationOf(slot->control.load(std::memory_order_relaxed));
    slot->control.store(generation << GenerationShift | kind << KindShift | OpenBit | 1, std::memory_order_release);
    storage.openCount.fetch_add(1, std::memory_order_relaxed);
    std::uint64_t const value = generation << GenerationShift | (std::uint64_t{slot->index} + 1) << IndexShift;
    return reinterpret_cast<HANDLE>(value);
}

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
        if (!Answers(word, GenerationOf(value), kinds))
            return FailWith(ERROR_INVALID_HANDLE);
        closed = (word & ~OpenBit) - 1;
    } while (!slot->control.compare_exchange_weak(word, closed, std::memory_order_acq_rel, std::memory_order_acquire));
    storage.openCount.fetch_sub(1, std::memory_order_relaxed);
    if ((closed & CountMask) == 0)
        Retire(*slot);
    return true;
}

std::size_t HandleTable::OpenCount() noexcept
{
    return storage.openCount.load(std::memory_order_relaxed);
}

HandleTable::Slot* HandleTable::Acquire(HANDLE handle, Kinds kinds) noexcept
{
    auto const value = reinterpret_cast<std::uint64_t>(handle);
    if (Slot* const slot = SlotOf(value))
    {
        std::uint64_t word = slot->control.load(std::memory_order_acquire);
        while (Answers(word, GenerationOf(value), kinds))
            if (slot->control.compare_exchange_weak(word, word + 1, std::memory_order_acquire))
                return slot;
    }
    FailWith(ERROR_INVALID_HANDLE);
    return nullptr;
}

Object* HandleTable::ObjectOf(Slot& slot) noexcept
{
    return slot.object;
}

void HandleTable::Release(Slot& slot) noexcept
{
    std::uint64_t const before = slot.control.fetch_sub(1, std::memory_order_acq_rel);
    if ((before & (OpenBit | CountMask)) == 1)
        Retire(slot);
}

void HandleTable::Retire(Slot& slot) noexcept
{
    delete std::exchange(slot.object, nullptr);
    std::uint64_t const next = GenerationOf(slot.control.load(std::memory_order_relaxed)) + 1;
    slot.control.store(next << GenerationShift, std::memory_order_relaxed);
    // A slot that has used up its generations is given up, since its next handles would equal its first.
    if (next >> (64 - GenerationShift) != 0)
        return;
    std::lock_guard const lock(storage.mutex);
    slot.nextFree = std::exchange(storage.firstFree, &slot);
}

HandleTable::Slot* HandleTable::TakeFreeSlot() noexcept
{
    std::lock_guard const lock(storage.mutex);
    Slot* const slot = storage.firstFree ? storage.firstFree : AddChunk();
    if (slot)
        storage.firstFree = std::exchange(slot->nextFree, nullptr);
    return slot;
}

HandleTable::Slot* HandleTable::AddChunk() noexcept
{
    if (storage.chunkCount == MostChunks)
    {
        FailWith(ERROR_NO_SYSTEM_RESOURCES);
        return nullptr;
    }
    Slot* const chunk = new (std::nothrow) Slot[SlotsOfChunk];
    if (!chunk)
    {
        FailWith(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    for (std::uint32_t at = 0; at < SlotsOfChunk; ++at)
    {
        chunk[at].index = storage.chunkCount * SlotsOfChunk + at;
        chunk[at].nextFree = at + 1 < SlotsOfChunk ? &chunk[at + 1] : nullptr;
    }
    storage.chunks[storage.chunkCount++].store(chunk, std::memory_order_release);
    return storage.firstFree = chunk;
}

HandleTable::Slot* HandleTable::SlotOf(std::uint64_t value) noexcept
{
    auto const low = static_cast<std::uint32_t>(value);
    std::uint32_t const number = low >> IndexShift;
    if (low == 0 || (low & ((1U << IndexShift) - 1)) != 0 || (number - 1) / SlotsOfChunk >= MostChunks)
        return nullptr;
    Slot* const chunk = storage.chunks[(number - 1) / SlotsOfChunk].load(std::memory_order_acquire);
    return chunk ? &chunk[(number - 1) % SlotsOfChunk] : nullptr;
}

} // namespace Brindle::Vok::Platform

BOOL CloseHandle(HANDLE handle) noexcept
{
    using namespace Brindle::Vok::Platform;
    // Searches, registry keys and modules have closing functions of their own.
    return HandleTable::Close(handle, ~KindsOf(Kind::search, Kind::registryKey, Kind::module));
}
