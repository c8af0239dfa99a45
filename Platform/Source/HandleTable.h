// The one table behind every HANDLE. A handle is the index of a slot and the generation of its use, so a value that was
// closed, made up or belongs to another kind of object is recognised and never followed. Objects are counted: one that
// is closed while another thread works with it lives until that thread lets go.
//
//     HANDLE handle = HandleTable::Insert(std::move(file));       // null with the last error set on failure
//     if (auto file = HandleTable::Find<FileObject>(handle))      // null with ERROR_INVALID_HANDLE
//         file->descriptor …
//
// Everything may be called from any thread, from static destructors and from detached threads while the process ends.
#pragma once

#include <Brindle/Platform/Types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
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

public:
    /// A counted use of an object. The object lives at least as long.
    template <class T>
    class Reference
    {
    public:
        Reference() noexcept = default;
        Reference(Reference&& other) noexcept
            : object(std::exchange(other.object, nullptr)), slot(std::exchange(other.slot, nullptr))
        {
        }
        Reference& operator=(Reference&& other) noexcept
        {
            std::swap(object, other.object);
            std::swap(slot, other.slot);
            return *this;
        }
        ~Reference()
        {
            if (slot)
                Release(*slot);
        }

        explicit operator bool() const noexcept { return object != nullptr; }
        T& operator*() const noexcept { return *object; }
        T* operator->() const noexcept { return object; }

    private:
        friend class HandleTable;
        Reference(T* object, Slot* slot) noexcept : object(object), slot(slot) {}

        T* object = nullptr;
        Slot* slot = nullptr;
    };

    /// Takes an object in and gives its handle, which is neither null nor INVALID_HANDLE_VALUE. Null with
    /// ERROR_NOT_ENOUGH_MEMORY or ERROR_NO_SYSTEM_RESOURCES when there is no room; the object is destroyed then.
    static HANDLE Insert(std::unique_ptr<Object> object) noexcept;

    /// Null with ERROR_INVALID_HANDLE when the handle isn't open or stands for another kind of object.
    template <class T>
    static Reference<T> Find(HANDLE handle) noexcept
    {
        Slot* const slot = Acquire(handle, T::kinds);
        return slot ? Reference<T>(static_cast<T*>(ObjectOf(*slot)), slot) : Reference<T>();
    }

    /// Closes a handle of one of the kinds. The object is destroyed at once or when its last use by another thread
    /// ends. False with ERROR_INVALID_HANDLE as for Find.
    static bool Close(HANDLE handle, Kinds kinds) noexcept;

    /// Handles that are open, for tests that look for leaks: it looks through the whole table.
    static std::size_t OpenCount() noexcept;

private:
    static Slot* Acquire(HANDLE handle, Kinds kinds) noexcept;
    static Object* ObjectOf(Slot& slot) noexcept;
    static void Release(Slot& slot) noexcept;
    static void Retire(Slot& slot) noexcept;
    static Slot* TakeFreeSlot() noexcept;
    static Slot* AddChunk() noexcept;
    static Slot* SlotOf(std::uint64_t value) noexcept;

    struct Storage;
    static Storage storage;
    static int const keepsOrderInChild;
};

} // namespace Brindle::Vok::Platform
