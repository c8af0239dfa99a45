#include "FileObject.h"
#include "HostErrors.h"
#include "SystemCalls.h"

#include <Brindle/Platform/Files.h>

#include <algorithm>

namespace Brindle::Vok::Platform
{
namespace
{

// The host moves no more than this in one call.
constexpr std::size_t mostAtOnce = 0x7FFF'F000;

// Keeps a signal that the host raises beside an error code from ending the process: it is blocked for the transfer and
// taken back when it came.
class SignalGuard
{
public:
    explicit SignalGuard(int signal) noexcept
    {
        sigemptyset(&guarded);
        sigaddset(&guarded, signal);
        sigset_t pending;
        sigemptyset(&pending);
        SystemCalls::PendingSignals(&pending);
        wasPending = sigismember(&pending, signal) == 1;
        SystemCalls::ChangeSignalMask(SIG_BLOCK, &guarded, &previousMask);
    }

    ~SignalGuard()
    {
        if (raised && !wasPending)
        {
            timespec const now{};
            Uninterrupted([&] { return SystemCalls::TakeSignal(&guarded, &now); });
        }
        SystemCalls::ChangeSignalMask(SIG_SETMASK, &previousMask, nullptr);
    }

    SignalGuard(SignalGuard const&) = delete;
    SignalGuard& operator=(SignalGuard const&) = delete;

    bool raised = false;

private:
    sigset_t guarded;
    sigset_t previousMask;
    bool wasPending;
};

bool CheckTransfer(FileObject const& file, bool allowed, OVERLAPPED const* overlapped) noexcept
{
    if (!allowed)
        return FailWith(ERROR_ACCESS_DENIED);
    if (file.type == FileObject::Type::directory || file.type == FileObject::Type::link)
        return FailWith(ERROR_INVALID_FUNCTION);
    // Asynchronous transfers of files are not offered.
    if (overlapped)
        return FailWith(ERROR_NOT_SUPPORTED);
    if (file.overlapped)
        return FailWith(ERROR_INVALID_PARAMETER);
    return true;
}

// Gives what was moved; errno in `error` if that is not everything and not the end either.
template <class Move>
std::size_t MoveAll(std::size_t count, bool oncePerCall, int& error, Move move) noexcept
{
    std::size_t done = 0;
    while (done < count)
    {
        ssize_t const moved = Uninterrupted([&] { return move(done, std::min(count - done, mostAtOnce)); });
        if (moved < 0)
            error = errno;
        if (moved <= 0)
            break;
        done += static_cast<std::size_t>(moved);
        if (oncePerCall)
            break;
    }
    return done;
}

bool Read(FileObject& file, void* buffer, DWORD count, DWORD& transferred) noexcept
{
    int error = 0;
    // What a FIFO or a terminal has at the moment is a whole answer.
    std::size_t const done =
        MoveAll(count, file.type == FileObject::Type::other, error,
                [&](std::size_t from, std::size_t most)
                { return SystemCalls::Read(file.Descriptor(), static_cast<char*>(buffer) + from, most); });
    if (error != 0)
        return FailWithHost(error);
    transferred = static_cast<DWORD>(done);
    return true;
}

// Whether the host may answer a write with a signal: at a broken pipe or terminal, or at the size that the process's
// files may have.
bool MayRaiseSignal(FileObject const& file) noexcept
{
    return file.type == FileObject::Type::other || file.mayMeetLimit.load(std::memory_order_relaxed);
}

std::size_t WriteOnce(FileObject& file, char const* bytes, std::size_t count, int& error) noexcept
{
    return MoveAll(count, true, error,
                   [&](std::size_t, std::size_t most) { return SystemCalls::Write(file.Descriptor(), bytes, most); });
}

std::size_t WriteGuarded(FileObject const& file, char const* bytes, std::size_t count, int& error) noexcept
{
    bool const isPlain = file.type == FileObject::Type::plain;
    SignalGuard guard(isPlain ? SIGXFSZ : SIGPIPE);
    std::size_t const done = MoveAll(count, false, error,
                                     [&](std::size_t from, std::size_t most)
                                     { return SystemCalls::Write(file.Descriptor(), bytes + from, most); });
    guard.raised = error == (isPlain ? EFBIG : EPIPE);
    return done;
}

bool Write(FileObject& file, void const* buffer, DWORD count, DWORD& transferred) noexcept
{
    int error = 0;
    auto const* const bytes = static_cast<char const*>(buffer);
    std::size_t done = MayRaiseSignal(file) ? 0 : WriteOnce(file, bytes, count, error);
    if (done < count && error == 0)
    {
        // A write that was cut short has met a limit, and the next one raises its signal.
        if (done > 0)
            file.mayMeetLimit.store(true, std::memory_order_relaxed);
        done += WriteGuarded(file, bytes + done, count - done, error);
    }
    if (done != count)
        return error != 0 ? FailWithHost(error) : FailWith(ERROR_WRITE_FAULT);
    transferred = count;
    return true;
}

// What reading and writing have in common: `permission` is the handle's right that it needs, and work(file, done) moves
// the bytes.
template <class Work>
bool Transfer(HANDLE handle, bool FileObject::*permission, LPDWORD transferred, OVERLAPPED const* overlapped,
              Work work) noexcept
{
    DWORD unwanted;
    DWORD& done = transferred ? *transferred : unwanted;
    done = 0;
    auto const file = HandleTable::Find<FileObject>(handle);
    return file && CheckTransfer(*file, (*file).*permission, overlapped) && work(*file, done);
}

} // namespace
} // namespace Brindle::Vok::Platform

BOOL ReadFile(HANDLE handle, LPVOID buffer, DWORD count, LPDWORD transferred, LPOVERLAPPED overlapped) noexcept
{
    using namespace Brindle::Vok::Platform;
    return Transfer(handle, &FileObject::reads, transferred, overlapped,
                    [&](FileObject& file, DWORD& done) { return Read(file, buffer, count, done); });
}

BOOL WriteFile(HANDLE handle, LPCVOID buffer, DWORD count, LPDWORD transferred, LPOVERLAPPED overlapped) noexcept
{
    using namespace Brindle::Vok::Platform;
    return Transfer(handle, &FileObject::writes, transferred, overlapped,
                    [&](FileObject& file, DWORD& done) { return Write(file, buffer, count, done); });
}
