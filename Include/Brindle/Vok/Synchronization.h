// Event: something that threads wait for, with failures thrown.
//
//     Event done(L"", true);                                       // no name; stays set
//     std::thread worker([&] { Work(); done.Set(); });
//     while (done.WaitOrTimeout(1000) == EventWaitResult::timedOut)
//         std::cout << "still at it\n";
//
// Everything may be called from any thread at the same time, but for construction and destruction.
#pragma once

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/HandleOwner.h>
#include <Brindle/Vok/Platform.h>

#include <cstdint>
#include <string>

namespace Brindle::Vok
{

/// How a wait that may end without a signal did.
enum class EventWaitResult : std::uint32_t
{
    timedOut = 0,
    signalled = 1
};

/// Owns an event of the platform, which isn't set at first.
class Event
{
public:
    /// An empty name makes an event without a name. Two events of one name in a process are the same one, and the
    /// second construction's `manualReset` has no effect. An event that doesn't reset by hand lets one wait through for
    /// each Set. Throws WindowsError.
    Event(std::wstring name, bool manualReset)
        : handle(CreateEventW(nullptr, manualReset, FALSE, name.empty() ? nullptr : name.c_str()))
    {
        if (!handle.IsValid())
            VOK_THROW_LAST_ERROR("Failed to create event");
    }

    Event(Event const&) = delete;
    Event& operator=(Event const&) = delete;

    /// Throws WindowsError.
    void Set()
    {
        if (!SetEvent(handle.Get()))
            VOK_THROW_LAST_ERROR("SetEvent");
    }

    /// Waits for at most so many milliseconds, of which the platform counts up to INFINITE - 1; INFINITE for as long as
    /// it takes. Throws WindowsError.
    EventWaitResult WaitOrTimeout(unsigned long milliseconds)
    {
        bool const isCounted = milliseconds <= INFINITE;
        DWORD const result =
            WaitForSingleObject(handle.Get(), isCounted ? static_cast<DWORD>(milliseconds) : INFINITE - 1);
        switch (result)
        {
        case WAIT_OBJECT_0:
            return EventWaitResult::signalled;
        case WAIT_TIMEOUT:
            return EventWaitResult::timedOut;
        case WAIT_ABANDONED:
            // A fixed code, as the platform sets no last error then.
            VOK_THROW(WindowsError, ERROR_ABANDONED_WAIT_0, "WaitForSingleObject abandoned");
        case WAIT_FAILED:
            VOK_THROW_LAST_ERROR("WaitForSingleObject failed");
        default:
            VOK_THROW_LAST_ERROR("WaitForSingleObject unexpected result [{}]", result);
        }
    }

    /// For the platform's own calls, such as ResetEvent and WaitForMultipleObjects. Stays this object's.
    HANDLE Handle() const noexcept { return handle.Get(); }

private:
    HandleOwner<Detail::NullHandleTraits> handle;
};

} // namespace Brindle::Vok
