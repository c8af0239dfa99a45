#include "DirectoryWatch.h"
#include "FileObject.h"
#include "Forks.h"
#include "HostErrors.h"

#include <Brindle/Platform/Changes.h>
#include <Brindle/Platform/ErrorCodes.h>
#include <Brindle/Platform/Waits.h>

#include <cstdint>
#include <mutex>

namespace Brindle::Vok::Platform
{
namespace
{

constexpr DWORD knownFilters = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME |
                               FILE_NOTIFY_CHANGE_ATTRIBUTES | FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE |
                               FILE_NOTIFY_CHANGE_LAST_ACCESS | FILE_NOTIFY_CHANGE_CREATION |
                               FILE_NOTIFY_CHANGE_SECURITY;

DWORD CodeAgainst(FileObject const& file, void const* buffer, BOOL subtree, DWORD filter, OVERLAPPED const* overlapped,
                  LPOVERLAPPED_COMPLETION_ROUTINE completion) noexcept
{
    bool const isAligned = reinterpret_cast<std::uintptr_t>(buffer) % alignof(FILE_NOTIFY_INFORMATION) == 0;
    if (file.type != FileObject::Type::directory || !buffer || !isAligned || (filter & knownFilters) == 0 ||
        (filter & ~knownFilters) != 0 || file.overlapped != (overlapped != nullptr))
        return ERROR_INVALID_PARAMETER;
    if (!file.reads)
        return ERROR_ACCESS_DENIED;
    return subtree || completion ? ERROR_NOT_SUPPORTED : ERROR_SUCCESS;
}

// For the watches of all files; their own work is done without it.
constinit std::mutex watchesMutex;

[[maybe_unused]] int const keepsOrderInChild = HoldInForks<watchesMutex>();

std::shared_ptr<DirectoryWatch> WatchOf(FileObject const& file) noexcept
{
    std::lock_guard const lock(watchesMutex);
    return file.watch && file.watch->IsOwn() ? file.watch : nullptr;
}

std::shared_ptr<DirectoryWatch> WatchOrMake(FileObject& file, DWORD filter) noexcept
{
    if (std::shared_ptr<DirectoryWatch> known = WatchOf(file))
        return known;
    std::shared_ptr<DirectoryWatch> made = DirectoryWatch::Make(file.Descriptor(), filter);
    std::lock_guard const lock(watchesMutex);
    if (file.watch && !file.watch->IsOwn())
        DirectoryWatch::Abandon(file.watch);
    if (!file.watch)
        file.watch = made; // otherwise another thread was faster, and this one goes without the lock
    return file.watch;
}

bool HasEnded(OVERLAPPED& overlapped) noexcept
{
    return StatusOf(overlapped) != statusPending;
}

bool ResultOf(OVERLAPPED& overlapped, DWORD& transferred) noexcept
{
    ULONG_PTR const status = StatusOf(overlapped);
    transferred = static_cast<DWORD>(overlapped.InternalHigh);
    return status == 0 || FailWith(static_cast<DWORD>(status & 0xFFFF));
}

// Without the file, which may be closed meanwhile: that ends its operations.
bool WaitForSignalOf(DirectoryWatch const* watch, OVERLAPPED const& overlapped) noexcept
{
    if (overlapped.hEvent)
        return WaitForSingleObject(overlapped.hEvent, INFINITE) != WAIT_FAILED;
    std::shared_ptr<Signal> const done = watch ? watch->Done() : nullptr;
    if (!done)
        return FailWith(ERROR_INVALID_HANDLE);
    Signal* const signal = done.get();
    return WaitForSignals({&signal, 1}, false, PendingOperation::never) != WAIT_FAILED;
}

// As the platform does: once the event is set it looks, whoever may have set it. Who only asks lets the reading take
// what has come.
bool WaitForEnd(DirectoryWatch* watch, OVERLAPPED& overlapped, bool waits) noexcept
{
    if (HasEnded(overlapped))
        return true;
    if (waits && !WaitForSignalOf(watch, overlapped))
        return false;
    if (watch && !HasEnded(overlapped))
    {
        watch->Companion()->Advance();
        watch->Advance();
    }
    return HasEnded(overlapped) || FailWith(ERROR_IO_INCOMPLETE);
}

} // namespace

void FileObject::EndWatch() noexcept
{
    watch->IsOwn() ? watch->Close() : DirectoryWatch::Abandon(watch);
}

} // namespace Brindle::Vok::Platform

using namespace Brindle::Vok::Platform;

BOOL ReadDirectoryChangesW(HANDLE directory, LPVOID buffer, DWORD size, BOOL subtree, DWORD filter, LPDWORD transferred,
                           LPOVERLAPPED overlapped, LPOVERLAPPED_COMPLETION_ROUTINE completion) noexcept
{
    auto file = HandleTable::Find<FileObject>(directory);
    if (!file)
        return FALSE;
    if (DWORD const code = CodeAgainst(*file, buffer, subtree, filter, overlapped, completion))
        return FailWith(code);
    OVERLAPPED own{};
    ChangeReading reading{overlapped ? overlapped : &own, static_cast<std::byte*>(buffer), size, nullptr};
    if (reading.overlapped->hEvent)
    {
        auto const event = HandleTable::Find<SignalObject>(reading.overlapped->hEvent);
        if (!event || !event->signal->IsEvent())
            return FailWith(ERROR_INVALID_HANDLE);
        reading.signal = event->signal;
    }
    // Who reads is likely to wait, and had better know now if it can't.
    std::shared_ptr<DirectoryWatch> const watch = PrepareToWait() ? WatchOrMake(*file, filter) : nullptr;
    if (!watch || !watch->Begin(std::move(reading)))
        return FALSE;
    if (overlapped)
        return TRUE;
    file = {};
    DWORD unwanted;
    bool const hasEnded = WaitForEnd(watch.get(), own, true);
    watch->Cancel(&own); // where the wait failed: nobody may write here any more
    return hasEnded && ResultOf(own, transferred ? *transferred : unwanted);
}

BOOL CancelIoEx(HANDLE file, LPOVERLAPPED overlapped) noexcept
{
    auto const found = HandleTable::Find<FileObject>(file);
    if (!found)
        return FALSE;
    std::shared_ptr<DirectoryWatch> const watch = WatchOf(*found);
    return (watch && watch->Cancel(overlapped)) || FailWith(ERROR_NOT_FOUND);
}

BOOL GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD transferred, BOOL wait) noexcept
{
    if (!overlapped || !transferred)
        return FailWith(ERROR_INVALID_PARAMETER);
    if (!HasEnded(*overlapped))
    {
        std::shared_ptr<DirectoryWatch> watch;
        if (auto const found = HandleTable::Find<FileObject>(file))
            watch = WatchOf(*found);
        if (!WaitForEnd(watch.get(), *overlapped, wait != FALSE))
            return FALSE;
    }
    return ResultOf(*overlapped, *transferred);
}
