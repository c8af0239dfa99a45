// The one table behind every HANDLE. A handle is the number of a slot and the generation of its use, so a value that
// was closed, made up or belongs to another kind of object is recognised and never followed. Objects are counted: one
// that is closed while another thread works with it lives until that thread lets go.
//
//     auto file = HandleTable::Make<FileObject>();                // null with the last error set on failure
//     … nothing has the handle yet: who leaves here, leaves nothing …
//     HANDLE handle = file.Open();                                // can't fail any more
//     if (auto file = HandleTable::Find<FileObject>(handle))      // null with ERROR_INVALID_HANDLE
//         file->Descriptor() …
//
// Everything may be called from any thread, from static destructors and from detached threads while the process ends.
#pragma once

#include <Brindle/Platform/Types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

namespace Brindle::Vok::Platform
{

/// What a handle stands for. A room that adds a kind adds it here, before `count`.
enum class Kind : std::uint8_t
{
    file,
    search,
    event,
    semaphore,
    process,
    token,
    registryKey,
    module,
    count
};

/// A set of kinds, one bit each.
using Kinds = std::uint64_t;

template <class... Each>
constexpr Kinds KindsOf(Each... each) noexcept
{
    return ((Kinds{1} << static_cast<unsigned>(each)) | ... | Kinds{0});
}

static_assert(static_cast<unsigned>(Kind::count) <= 64);

/// What stands behind a handle. A derived class that handles are looked up as has a member
/// `static constexpr Kinds kinds`, the set of kinds whose objects are of that class.
class Object
{
public:
    explicit Object(Kind kind) noexcept : kind(kind) {}
    virtual ~Object() = default;
    Object(Object const&) = delete;
    Object& operator=(Object const&) = delete;

    Kind const kind;
};

class HandleTable
{
    struct Slot;

    template <class T, bool isOpen>
    class Holder
    {
    public:
        Holder() noexcept = default;
        Holder(Holder&& other) noexcept
            : object(std::exchange(other.object, nullptr)), slot(std::exchange(other.slot, nullptr))
        {
        }
        Holder& operator=(Holder&& other) noexcept
        {
            std::swap(object, other.object);
            std::swap(slot, other.slot);
            return *this;
        }
        ~Holder()
        {
            if (slot)
                isOpen ? Release(*slot) : Retire(*slot);
        }

        explicit operator bool() const noexcept { return object != nullptr; }
        T& operator*() const noexcept { return *object; }
        T* operator->() const noexcept { return object; }

    protected:
        friend class HandleTable;
        Holder(T* object, Slot* slot) noexcept : object(object), slot(slot) {}

        T* object = nullptr;
        Slot* slot = nullptr;
    };

public:
    /// A counted use of an object. The object lives at least as long.
    template <class T>
    using Reference = Holder<T, true>;

    /// An object that has its place in the table and no handle yet. It is destroyed unless it is opened.
    template <class T>
    class Unopened : public Holder<T, false>
    {
    public:
        using Holder<T, false>::Holder;

        /// Gives its handle, which is neither null nor INVALID_HANDLE_VALUE, and lets go of it. Not for a null one.
        HANDLE Open() noexcept
        {
            this->object = nullptr;
            return std::exchange(this->slot, nullptr)->Open();
        }
    };

    /// Makes an object. Null with ERROR_NOT_ENOUGH_MEMORY or ERROR_NO_SYSTEM_RESOURCES when there is no room.
    template <class T, class... Arguments>
    static Unopened<T> Make(Arguments&&... arguments) noexcept
    {
        static_assert(std::is_nothrow_constructible_v<T, Arguments...>);
        static_assert(sizeof(T) <= sizeof Slot::room);
        static_assert(alignof(T) <= alignof(std::max_align_t));
        Slot* const slot = TakeFreeSlot();
        if (!slot)
            return {};
        T* const object = new (slot->room) T(std::forward<Arguments>(arguments)...);
        slot->object = object;
        return Unopened<T>(object, slot);
    }

    /// Null with ERROR_INVALID_HANDLE when the handle isn't open or stands for another kind of object.
    template <class T>
    static Reference<T> Find(HANDLE handle) noexcept
    {
        Slot* const slot = Acquire(handle, T::kinds);
        return slot ? Reference<T>(static_cast<T*>(slot->object), slot) : Reference<T>();
    }

    /// Closes a handle of one of the kinds. The object is destroyed at once or when its last use by another thread
    /// ends. False with ERROR_INVALID_HANDLE as for Find.
    static bool Close(HANDLE handle, Kinds kinds) noexcept;

    /// Handles that are open, for tests that look for leaks: it looks through the whole table.
    static std::size_t OpenCount() noexcept;

private:
    // In cache lines of its own, so that threads that work with neighbouring handles don't slow each other. Objects
    // live in their slot: to open and close a file needs no memory.
    struct alignas(128) Slot
    {
        HANDLE Open() noexcept
        {
            std::uint64_t const generation = control.load(std::memory_order_relaxed) >> generationShift;
            control.store(generation << generationShift |
                              std::uint64_t{static_cast<unsigned>(object->kind)} << kindShift | openBit | 1,
                          std::memory_order_release);
            return reinterpret_cast<HANDLE>(generation << generationShift | std::uint64_t{number} << numberShift);
        }

        static bool Answers(std::uint64_t word, std::uint64_t generation, Kinds kinds) noexcept
        {
            return word >> generationShift == generation && (word & openBit) != 0 &&
                   (kinds >> (word >> kindShift & 0x3F) & 1) != 0;
        }

        // Generation in the high half, then the kind, whether the handle is open, and how many hold the object. An
        // open handle is itself one of the holders.
        std::atomic<std::uint64_t> control{std::uint64_t{1} << generationShift};
        Object* object = nullptr;
        std::uint32_t number = 0;
        // The number of the next free slot, 0 for none.
        std::atomic<std::uint32_t> nextFree{0};
        alignas(std::max_align_t) std::byte room[96];
    };

    static constexpr std::uint64_t countMask = 0x00FF'FFFF;
    static constexpr std::uint64_t openBit = 0x0100'0000;
    static constexpr unsigned kindShift = 25;
    static constexpr unsigned generationShift = 32;
    // Handles are multiples of four, as the platform's are.
    static constexpr unsigned numberShift = 2;

    static void Release(Slot& slot) noexcept
    {
        std::uint64_t const before = slot.control.fetch_sub(1, std::memory_order_acq_rel);
        if ((before & (openBit | countMask)) == 1)
            Retire(slot);
    }

    static Slot* Acquire(HANDLE handle, Kinds kinds) noexcept;
    // Destroys the object, which nobody holds any more, and gives the slot back with its next generation.
    static void Retire(Slot& slot) noexcept;
    // Null with the last error set.
    static Slot* TakeFreeSlot() noexcept;
    static void GiveBack(Slot& from, Slot& to) noexcept;
    static Slot* AddChunk() noexcept;
    static Slot* SlotOf(std::uint64_t value) noexcept;
    static Slot* SlotNumbered(std::uint32_t number) noexcept;

    struct Table;
    static Table table;
};

} // namespace Brindle::Vok::Platform
