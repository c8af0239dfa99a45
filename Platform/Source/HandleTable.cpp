#include "HandleTable.h"

#include "HostErrors.h"

#include <Brindle/Platform/ErrorCodes.h>
#include <Brindle/Platform/Handles.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <pthread.h>
#include <type_traits>

namespace Brindle::Vok::Platform
{
namespace
{

// A slot's control word: generation in the high half, then the kind, whether the handle is open, and how many hold the
// object. An open handle is itself one of the holders.
constexpr std::uint64_t countMask = 0x00FF'FFFF;
constexpr std::uint64_t openBit = 0x0100'0000;
constexpr unsigned kindShift = 25;
constexpr unsigned generationShift = 32;

// Handles are multiples of four, as the platform's are.
constexpr unsigned indexShift = 2;
constexpr std::uint32_t slotsOfChunk = 1024;
constexpr std::uint32_t mostChunks = 4096;

constexpr std::uint64_t GenerationOf(std::uint64_t word)
{
    return word >> generationShift;
}

constexpr bool Answers(std::uint64_t word, std::uint64_t generation, Kinds kinds)
{
    return GenerationOf(word) == generation && (word & openBit) != 0 && (kinds >> (word >> kindShift & 0x3F) & 1) != 0;
}

} // namespace

// A cache line each, so that threads that work with neighbouring handles don't slow each other.
struct alignas(64) HandleTable::Slot
{
    std::atomic<std::uint64_t> control{std::uint64_t{1} << generationShift};
    Object* object = nullptr;
    std::uint32_t index = 0;
    Slot* nextFree = nullptr;
};

// Initialised before any code runs and never destroyed: handles work in every static constructor and destructor and in
// threads that outlive main. Chunks stay for the same reason, and because a stale handle may still be looked up.
struct HandleTable::Storage
{
    std::atomic<Slot*> chunks[mostChunks];
    std::mutex mutex;
    Slot* firstFree;
    std::uint32_t chunkCount;
};

constinit HandleTable::Storage HandleTable::storage{};

// A child has only the thread that made it, and nobody to unlock what another thread had locked.
[[maybe_unused]] int const HandleTable::keepsOrderInChild =
    pthread_atfork([] { storage.mutex.lock(); }, [] { storage.mutex.unlock(); }, [] { storage.mutex.unlock(); });

HANDLE HandleTable::Insert(std::unique_ptr<Object> object) noexcept
{
    static_assert(std::is_trivially_destructible_v<Storage>);
    Slot* const slot = TakeFreeSlot();
    if (!slot)
        return nullptr;
    auto const kind = static_cast<std::uint64_t>(object->kind);
    slot->object = object.release();
    std::uint64_t const generation = GenerationOf(slot->control.load(std::memory_order_relaxed));
    slot->control.store(generation << generationShift | kind << kindShift | openBit | 1, std::memory_order_release);
    std::uint64_t const value = generation << generationShift | (std::uint64_t{slot->index} + 1) << indexShift;
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
        closed = (word & ~openBit) - 1;
    } while (!slot->control.compare_exchange_weak(word, closed, std::memory_order_acq_rel, std::memory_order_acquire));
    if ((closed & countMask) == 0)
        Retire(*slot);
    return true;
}

std::size_t HandleTable::OpenCount() noexcept
{
    std::lock_guard const lock(storage.mutex);
    std::size_t count = 0;
    for (std::uint32_t chunk = 0; chunk < storage.chunkCount; ++chunk)
    {
        Slot const* const slots = storage.chunks[chunk].load(std::memory_order_relaxed);
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
        while (Answers(word, GenerationOf(value), kinds))
            if (slot->control.compare_exchange_weak(word, word + 1, std::memory_order_acquire))
                return slot;
    }
    return FailWith<Slot*>(ERROR_INVALID_HANDLE);
}

Object* HandleTable::ObjectOf(Slot& slot) noexcept
{
    return slot.object;
}

void HandleTable::Release(Slot& slot) noexcept
{
    std::uint64_t const before = slot.control.fetch_sub(1, std::memory_order_acq_rel);
    if ((before & (openBit | countMask)) == 1)
        Retire(slot);
}

void HandleTable::Retire(Slot& slot) noexcept
{
    delete std::exchange(slot.object, nullptr);
    std::uint64_t const next = GenerationOf(slot.control.load(std::memory_order_relaxed)) + 1;
    slot.control.store(next << generationShift, std::memory_order_relaxed);
    // A slot that has used up its generations is given up, since its next handles would equal its first.
    if (next >> (64 - generationShift) != 0)
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
    if (storage.chunkCount == mostChunks)
        return FailWith<Slot*>(ERROR_NO_SYSTEM_RESOURCES);
    Slot* const chunk = new (std::nothrow) Slot[slotsOfChunk];
    if (!chunk)
        return FailWith<Slot*>(ERROR_NOT_ENOUGH_MEMORY);
    for (std::uint32_t at = 0; at < slotsOfChunk; ++at)
    {
        chunk[at].index = storage.chunkCount * slotsOfChunk + at;
        chunk[at].nextFree = at + 1 < slotsOfChunk ? &chunk[at + 1] : nullptr;
    }
    storage.chunks[storage.chunkCount++].store(chunk, std::memory_order_release);
    return storage.firstFree = chunk;
}

HandleTable::Slot* HandleTable::SlotOf(std::uint64_t value) noexcept
{
    auto const low = static_cast<std::uint32_t>(value);
    std::uint32_t const number = low >> indexShift;
    if (low == 0 || (low & ((1U << indexShift) - 1)) != 0 || (number - 1) / slotsOfChunk >= mostChunks)
        return nullptr;
    Slot* const chunk = storage.chunks[(number - 1) / slotsOfChunk].load(std::memory_order_acquire);
    return chunk ? &chunk[(number - 1) % slotsOfChunk] : nullptr;
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

LSTATUS RegCloseKey(HKEY key) noexcept
{
    using namespace Brindle::Vok::Platform;
    // A status, and the last error stays as it was.
    DWORD const lastError = GetLastError();
    bool const closed = HandleTable::Close(reinterpret_cast<HANDLE>(key), KindsOf(Kind::registryKey));
    SetLastError(lastError);
    return closed ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

BOOL FreeLibrary(HMODULE module) noexcept
{
    using namespace Brindle::Vok::Platform;
    return HandleTable::Close(reinterpret_cast<HANDLE>(module), KindsOf(Kind::module));
}

BOOL DestroyEnvironmentBlock(LPVOID) noexcept
{
    // Nothing makes a block yet, so none can be given back.
    return Brindle::Vok::Platform::FailWith(ERROR_INVALID_PARAMETER);
}
