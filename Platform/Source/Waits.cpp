#include "Clock.h"
#include "Forks.h"
#include "HostErrors.h"
#include "Signal.h"

#include <Brindle/Platform/ErrorCodes.h>
#include <Brindle/Platform/Waits.h>

#include <algorithm>
#include <array>
#include <map>
#include <mutex>
#include <string>

namespace Brindle::Vok::Platform
{
namespace
{

using Names = std::map<std::wstring, std::weak_ptr<Signal>, std::less<>>;

// The signals that have names. Never destroyed, as handles may be made and closed until the process has ended.
Names& TheNames()
{
    static Names& names = *new Names;
    return names;
}

// Guards the names.
constinit std::mutex mutex;

[[maybe_unused]] int const keepsOrderInChild = HoldInForks<mutex>();

/// Makes a signal, or gives the one that has the name. May throw std::bad_alloc.
std::shared_ptr<Signal> MakeOrFind(std::wstring_view name, bool& isNew, auto make)
{
    isNew = true;
    if (name.empty())
        return make();
    std::lock_guard const lock(mutex);
    Names& names = TheNames();
    std::erase_if(names, [](auto const& named) { return named.second.expired(); });
    if (auto const found = names.find(name); found != names.end())
        if (std::shared_ptr<Signal> signal = found->second.lock())
        {
            isNew = false;
            return signal;
        }
    std::shared_ptr<Signal> signal = make();
    names.insert_or_assign(std::wstring(name), signal);
    return signal;
}

HANDLE CreateSignal(Kind kind, LPSECURITY_ATTRIBUTES security, LPCWSTR name, auto make) noexcept
{
    if (security && security->lpSecurityDescriptor)
        return FailWith<HANDLE>(ERROR_NOT_SUPPORTED);
    return WithoutThrowing(
        [&]() -> HANDLE
        {
            bool isNew;
            std::shared_ptr<Signal> signal = MakeOrFind(name ? std::wstring_view(name) : L"", isNew, make);
            if (signal->IsEvent() != (kind == Kind::event))
                return FailWith<HANDLE>(ERROR_INVALID_HANDLE);
            auto object = HandleTable::Make<SignalObject>(kind, std::move(signal));
            if (!object)
                return nullptr;
            // As callers with a name look at it, also after a success.
            if (name && *name != 0)
                SetLastError(isNew ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
            return object.Open();
        });
}

/// Null with ERROR_INVALID_HANDLE for what isn't of the kind.
HandleTable::Reference<SignalObject> FindSignal(HANDLE handle, Kind kind) noexcept
{
    auto object = HandleTable::Find<SignalObject>(handle);
    if (object && object->kind == kind)
        return object;
    return FailWith<HandleTable::Reference<SignalObject>>(ERROR_INVALID_HANDLE);
}

std::chrono::nanoseconds DeadlineIn(DWORD milliseconds) noexcept
{
    if (milliseconds == INFINITE)
        return PendingOperation::never;
    return milliseconds == 0 ? std::chrono::nanoseconds(0) : TimeNow() + std::chrono::milliseconds(milliseconds);
}

DWORD FailToWait(DWORD code) noexcept
{
    FailWith(code);
    return WAIT_FAILED;
}

} // namespace
} // namespace Brindle::Vok::Platform

using namespace Brindle::Vok::Platform;

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCWSTR name) noexcept
{
    Signal::Type const type = manualReset ? Signal::Type::manualReset : Signal::Type::autoReset;
    return CreateSignal(Kind::event, security, name,
                        [&] { return std::make_shared<Signal>(type, initialState ? 1 : 0, 1); });
}

BOOL SetEvent(HANDLE event) noexcept
{
    auto const object = FindSignal(event, Kind::event);
    if (!object)
        return FALSE;
    object->signal->Set();
    return TRUE;
}

BOOL ResetEvent(HANDLE event) noexcept
{
    auto const object = FindSignal(event, Kind::event);
    if (!object)
        return FALSE;
    object->signal->Reset();
    return TRUE;
}

HANDLE CreateSemaphoreW(LPSECURITY_ATTRIBUTES security, LONG initialCount, LONG maximumCount, LPCWSTR name) noexcept
{
    if (initialCount < 0 || maximumCount < 1 || initialCount > maximumCount)
        return FailWith<HANDLE>(ERROR_INVALID_PARAMETER);
    return CreateSignal(Kind::semaphore, security, name,
                        [&] { return std::make_shared<Signal>(Signal::Type::semaphore, initialCount, maximumCount); });
}

BOOL ReleaseSemaphore(HANDLE semaphore, LONG count, LPLONG previousCount) noexcept
{
    auto const object = FindSignal(semaphore, Kind::semaphore);
    if (!object)
        return FALSE;
    if (count < 1)
        return FailWith(ERROR_INVALID_PARAMETER);
    LONG previous;
    if (!object->signal->Add(count, previous))
        return FailWith(ERROR_TOO_MANY_POSTS);
    if (previousCount)
        *previousCount = previous;
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) noexcept
{
    auto const found = HandleTable::Find<SignalObject>(object);
    if (!found)
        return WAIT_FAILED;
    Signal* const signal = found->signal.get();
    return WaitForSignals({&signal, 1}, false, DeadlineIn(milliseconds));
}

DWORD WaitForMultipleObjects(DWORD count, HANDLE const* objects, BOOL all, DWORD milliseconds) noexcept
{
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || !objects)
        return FailToWait(ERROR_INVALID_PARAMETER);
    std::array<HandleTable::Reference<SignalObject>, MAXIMUM_WAIT_OBJECTS> found;
    std::array<Signal*, MAXIMUM_WAIT_OBJECTS> signals;
    for (std::size_t at = 0; at < count; ++at)
    {
        found[at] = HandleTable::Find<SignalObject>(objects[at]);
        if (!found[at])
            return WAIT_FAILED;
        signals[at] = found[at]->signal.get();
        if (all && std::find(signals.begin(), signals.begin() + at, signals[at]) != signals.begin() + at)
            return FailToWait(ERROR_INVALID_PARAMETER);
    }
    return WaitForSignals(std::span(signals).first(count), all, DeadlineIn(milliseconds));
}
