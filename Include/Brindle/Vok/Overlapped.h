// Overlapped: one asynchronous operation's state, its event, and the handle that it runs on. The platform writes to the
// state, and to the buffer that the operation was given, until the operation has ended; so the destructor cancels it
// and waits for that before it closes anything.
//
//     auto const overlapped = std::make_unique<Overlapped>(std::move(directory));
//     ReadDirectoryChangesW(overlapped->file.Get(), buffer, sizeof buffer, FALSE, filter, nullptr,
//                           &overlapped->overlapped, nullptr);
//     overlapped->event.WaitOrTimeout(1000);
//
// It stays where it was made, and one thread works with it at a time.
#pragma once

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/HandleOwner.h>
#include <Brindle/Vok/Log.h>
#include <Brindle/Vok/Platform.h>
#include <Brindle/Vok/Synchronization.h>

#include <utility>

namespace Brindle::Vok
{

/// Owns what one asynchronous operation needs until its end.
class Overlapped
{
public:
    /// Takes over the handle, opened with FILE_FLAG_OVERLAPPED for operations that don't wait. Throws what Event's
    /// constructor does; the handle is closed then.
    explicit Overlapped(HandleOwner<Detail::InvalidHandleTraits> ownFile) : event(L"", false), file(std::move(ownFile))
    {
        overlapped.hEvent = event.Handle();
    }
    Overlapped(Overlapped const&) = delete;
    Overlapped& operator=(Overlapped const&) = delete;

    /// Waits until the operation has ended. What a log subscriber throws ends the process.
    ~Overlapped()
    {
        VOK_LOG_SCOPE();
        Cancel(file.Get(), &overlapped);
    }

    /// Cancels an operation and waits for its end; it may be over already, or never have begun. A null handle is a
    /// statement at info and no more. Failures are only logged, at error, and then nobody knows whether it has ended.
    static void Cancel(HANDLE ofFile, LPOVERLAPPED operation)
    {
        VOK_LOG_SCOPE();
        if (ofFile == nullptr) // required: INVALID_HANDLE_VALUE goes on, and fails
        {
            VOK_LOG(info, "Handle is not valid or set");
            return;
        }
        if (!CancelIoEx(ofFile, operation))
        {
            DWORD const code = GetLastError();
            if (code == ERROR_NOT_FOUND)
                VOK_LOG(info, "Nothing to cancel");
            else
                VOK_LOG(error, "CancelIoEx failed. Error [{}].", code);
            return;
        }
        VOK_LOG(info, "Operation Cancelled");
        DWORD count = 0;
        if (GetOverlappedResult(ofFile, operation, &count, TRUE))
            return; // it was over before it could be cancelled
        DWORD const code = GetLastError();
        if (code == ERROR_OPERATION_ABORTED || code == ERROR_NOT_FOUND)
            VOK_LOG(info, "Done waiting for cancel");
        else
            VOK_LOG(error, "GetOverlappedResult failed. Error [{}].", code);
    }

    /// The platform's state of the operation, which has this object's address.
    OVERLAPPED overlapped{};
    /// Set when the operation ends; resets itself.
    Event event;
    /// What the operation runs on.
    HandleOwner<Detail::InvalidHandleTraits> file;
};

} // namespace Brindle::Vok
