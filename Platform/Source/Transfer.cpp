#include "File.h"
#include "HostErrors.h"
#include "SystemCalls.h"

#include <Brindle/Platform/Files.h>

#include <algorithm>

namespace Brindle::Vok::Platform
{
namespace
{

// The host moves no more than this in one call.
constexpr std::size_t MostAtOnce = 0x7FFF'F000;

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

bool CheckTransfer(File const& file, bool allowed, OVERLAPPED const* overlapped) noexcept
{
    if (!allowed)
        return FailWith(ERROR_ACCESS_DENIED);
    if (file.type == File::Type::directory || file.type == File::Type::link)
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
        ssize_t const moved = Uninterrupted([&] { return move(done, std::min(count - done, MostAtOnce)); });
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

bool Read(File& file, void* buffer, DWORD count, DWORD& transferred) noexcept
{
    int error = 0;
    // What a FIFO or a terminal has at the moment is a whole answer.
    std::size_t const done =
        MoveAll(count, file.type == File::Type::other, error,
                [&](std::size_t from, std::size_t most)
                { return SystemCalls::Read(file.Descriptor(), static_cast<char*>(buffer) + from, most); });
    if (error != 0)
        return FailWithHost(error);
    transferred = static_cast<DWORD>(done);
    return true;
}

bool WriteAll(File& file, void const* buffer, DWORD count, int& error) noexcept
{
    std::size_t const done =
        MoveAll(count, false, error,
                [&](std::size_t from, std::size_t most)
                { return SystemCalls::Write(file.Descriptor(), static_cast<char const*>(buffer) + from, most); });
    return done == count;
}

bool Write(File& file, void const* buffer, DWORD count, DWORD& transferred) noexcept
{
    int error = 0;
    bool complete;
    if (file.type == File::Type::other)
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

} // namespace
} // namespace Brindle::Vok::Platform

BOOL ReadFile(HANDLE handle, LPVOID buffer, DWORD count, LPDWORD transferred, LPOVERLAPPED overlapped) noexcept
{
    using namespace Brindle::Vok::Platform;
    DWORD unwanted;
    DWORD& done = transferred ? *transferred : unwanted;
    done = 0;
    auto const file = HandleTable::Find<File>(handle);
    return file && CheckTransfer(*file, file->reads, overlapped) && Read(*file, buffer, count, done);
}

BOOL WriteFile(HANDLE handle, LPCVOID buffer, DWORD count, LPDWORD transferred, LPOVERLAPPED overlapped) noexcept
{
    using namespace Brindle::Vok::Platform;
    DWORD unwanted;
    DWORD& done = transferred ? *transferred : unwanted;
    done = 0;
    auto const file = HandleTable::Find<File>(handle);
    return file && CheckTransfer(*file, file->writes, overlapped) && Write(*file, buffer, count, done);
}
