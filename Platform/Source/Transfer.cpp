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

// Keeps the signal that a broken pipe raises from ending the process: it is blocked for the transfer and taken back
// when it came.
class BrokenPipeGuard
{
public:
    BrokenPipeGuard() noexcept
    {
        sigemptyset(&brokenPipe);
        sigaddset(&brokenPipe, SIGPIPE);
        sigset_t pending;
        sigemptyset(&pending);
        SystemCalls::PendingSignals(&pending);
        wasPending = sigismember(&pending, SIGPIPE) == 1;
        SystemCalls::ChangeSignalMask(SIG_BLOCK, &brokenPipe, &previousMask);
    }

    ~BrokenPipeGuard()
    {
        if (broken && !wasPending)
        {
            timespec const now{};
            Uninterrupted([&] { return SystemCalls::TakeSignal(&brokenPipe, &now); });
        }
        SystemCalls::ChangeSignalMask(SIG_SETMASK, &previousMask, nullptr);
    }

    BrokenPipeGuard(BrokenPipeGuard const&) = delete;
    BrokenPipeGuard& operator=(BrokenPipeGuard const&) = delete;

    bool broken = false;

private:
    sigset_t brokenPipe;
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

bool WriteAll(FileObject& file, void const* buffer, DWORD count, int& error) noexcept
{
    std::size_t const done =
        MoveAll(count, false, error,
                [&](std::size_t from, std::size_t most)
                { return SystemCalls::Write(file.Descriptor(), static_cast<char const*>(buffer) + from, most); });
    return done == count;
}

bool Write(FileObject& file, void const* buffer, DWORD count, DWORD& transferred) noexcept
{
    int error = 0;
    bool complete;
    if (file.type == FileObject::Type::other)
    {
        BrokenPipeGuard guard;
        complete = WriteAll(file, buffer, count, error);
        guard.broken = error == EPIPE;
    }
    else
        complete = WriteAll(file, buffer, count, error);
    if (!complete)
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
