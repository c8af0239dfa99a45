// One owner and one scope for a raw handle of the platform.
//
//     HandleOwner<Detail::InvalidHandleTraits> file = VokCreateFile(...);
//     ReadFile(file.Get(), ...);
//     // closed here
//
// The traits say which value means that there is no handle, and how a handle is closed. A failed close is silent, so an
// owner is safe during stack unwinding. An owner isn't synchronised, and two owners of one raw value close it twice.
#pragma once

#include <Brindle/Vok/Platform.h>

#include <utility>

namespace Brindle::Vok
{

/// Traits have a type Raw, a static InvalidValue of that type, which stands for no handle, and a static function
/// Close(Raw), which may not throw.
template <class Traits>
class HandleOwner
{
public:
    /// The type of the raw handle.
    using Raw = typename Traits::Raw;

    /// Owns nothing.
    HandleOwner() noexcept = default;
    /// Takes ownership of a raw value, whatever it is.
    explicit HandleOwner(Raw owned) noexcept : raw(owned) {}

    /// The other one owns nothing then.
    HandleOwner(HandleOwner&& other) noexcept : raw(std::exchange(other.raw, Traits::InvalidValue)) {}
    /// Closes what this owned; the other one owns nothing then. Assigning an owner to itself changes nothing.
    HandleOwner& operator=(HandleOwner&& other) noexcept
    {
        if (this != &other)
        {
            Close();
            raw = std::exchange(other.raw, Traits::InvalidValue);
        }
        return *this;
    }
    HandleOwner(HandleOwner const&) = delete;
    HandleOwner& operator=(HandleOwner const&) = delete;

    /// Closes the handle, if there is one.
    ~HandleOwner() { Close(); }

    /// The raw value; ownership stays here.
    Raw Get() const noexcept { return raw; }

    /// Whether there is a handle: the value differs from the traits' invalid one.
    bool IsValid() const noexcept { return raw != Traits::InvalidValue; }

    /// Closes the present value, if valid, and takes ownership of `newRaw`. The present value itself changes nothing.
    void Reset(Raw newRaw = Traits::InvalidValue) noexcept
    {
        if (newRaw == raw)
            return;
        Close();
        raw = newRaw;
    }

private:
    void Close() noexcept
    {
        if (IsValid())
        {
            Traits::Close(raw);
            raw = Traits::InvalidValue;
        }
    }

    Raw raw = Traits::InvalidValue;
};

/// Its traits are those of the library's own owners; each has what HandleOwner asks for.
namespace Detail
{

/// Files and semaphores. Null counts as a handle here and is closed.
struct InvalidHandleTraits
{
    using Raw = HANDLE;
    static inline Raw const InvalidValue = INVALID_HANDLE_VALUE;
    static void Close(Raw raw) noexcept { CloseHandle(raw); }
};

/// Tokens and events. INVALID_HANDLE_VALUE counts as a handle here and is closed.
struct NullHandleTraits
{
    using Raw = HANDLE;
    static constexpr Raw InvalidValue = nullptr;
    static void Close(Raw raw) noexcept { CloseHandle(raw); }
};

/// Loaded libraries.
struct ModuleHandleTraits
{
    using Raw = HMODULE;
    static constexpr Raw InvalidValue = nullptr;
    static void Close(Raw raw) noexcept { FreeLibrary(raw); }
};

/// Open registry keys.
struct RegistryHkeyHandleTraits
{
    using Raw = HKEY;
    static constexpr Raw InvalidValue = nullptr;
    static void Close(Raw raw) noexcept { RegCloseKey(raw); }
};

/// Environment blocks.
struct EnvironmentBlockHandleTraits
{
    using Raw = void*;
    static constexpr Raw InvalidValue = nullptr;
    static void Close(Raw raw) noexcept { DestroyEnvironmentBlock(raw); }
};

/// Directory searches.
struct FindHandleTraits
{
    using Raw = HANDLE;
    static inline Raw const InvalidValue = INVALID_HANDLE_VALUE;
    static void Close(Raw raw) noexcept { FindClose(raw); }
};

} // namespace Detail
} // namespace Brindle::Vok
