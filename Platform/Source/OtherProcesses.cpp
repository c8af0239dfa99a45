#include "OtherProcesses.h"

#include "HostErrors.h"
#include "SystemCalls.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <pthread.h>

namespace Brindle::Vok::Platform::OtherProcesses
{
namespace
{

// The same file for all processes of a kernel, containers among them, and nobody needs a right to open it.
constexpr char const* commonFile = "/proc/self/ns/time";
constexpr off_t presence = 0;
constexpr off_t reliance = 1;

// Who relies on being alone looks every 10 milliseconds whether it still is. One that hasn't done so for this long does
// no deletion at the time.
constexpr int mostWaits = 500;
constexpr timespec waitTime{0, 500'000};

constinit std::mutex mutex;

std::atomic<bool> isAnnounced{false};
// What follows is guarded by the mutex.
int presenceDescriptor = -1;
// A child shares the locks that its parent had on files, so it keeps the parent's presence beside its own.
int inheritedDescriptor = -1;
int relianceDescriptor = -1;
unsigned relying = 0;

void CloseIfOpen(int& descriptor) noexcept
{
    if (descriptor >= 0)
        SystemCalls::Close(descriptor);
    descriptor = -1;
}

void StartAnewInChild() noexcept
{
    std::construct_at(&mutex);
    if (presenceDescriptor >= 0)
    {
        CloseIfOpen(inheritedDescriptor);
        inheritedDescriptor = presenceDescriptor;
        presenceDescriptor = -1;
    }
    CloseIfOpen(relianceDescriptor);
    relying = 0;
    isAnnounced.store(false, std::memory_order_relaxed);
}

[[maybe_unused]] int const startsAnewInChild = pthread_atfork(nullptr, nullptr, StartAnewInChild);

struct flock ByteRange(int type, off_t byte) noexcept
{
    struct flock range = {};
    range.l_type = static_cast<short>(type);
    range.l_whence = SEEK_SET;
    range.l_start = byte;
    range.l_len = 1;
    return range;
}

bool Change(int descriptor, int type, off_t byte) noexcept
{
    struct flock range = ByteRange(type, byte);
    return Uninterrupted([&] { return SystemCalls::LockRange(descriptor, F_OFD_SETLK, &range); }) == 0;
}

bool OthersHold(int descriptor, off_t byte) noexcept
{
    struct flock range = ByteRange(F_WRLCK, byte);
    return SystemCalls::LockRange(descriptor, F_OFD_GETLK, &range) != 0 || range.l_type != F_UNLCK;
}

int OpenCommonFile() noexcept
{
    return Uninterrupted([] { return SystemCalls::Open(AT_FDCWD, commonFile, O_RDONLY | O_CLOEXEC, 0); });
}

} // namespace

DWORD Announce() noexcept
{
    if (isAnnounced.load(std::memory_order_acquire))
        return ERROR_SUCCESS;
    std::lock_guard const lock(mutex);
    if (isAnnounced.load(std::memory_order_relaxed))
        return ERROR_SUCCESS;
    presenceDescriptor = OpenCommonFile();
    if (presenceDescriptor < 0 && (errno == EMFILE || errno == ENFILE || errno == ENOMEM))
        return CodeFromHost(errno);
    // Where there is no such file nobody can rely on anything.
    if (presenceDescriptor >= 0 && !Change(presenceDescriptor, F_RDLCK, presence))
        CloseIfOpen(presenceDescriptor);
    for (int waits = 0; presenceDescriptor >= 0 && OthersHold(presenceDescriptor, reliance) && waits < mostWaits;
         ++waits)
        SystemCalls::Sleep(&waitTime);
    isAnnounced.store(true, std::memory_order_release);
    return ERROR_SUCCESS;
}

bool BeginRelyingOnNone() noexcept
{
    if (Announce() != ERROR_SUCCESS)
        return false;
    std::lock_guard const lock(mutex);
    if (presenceDescriptor < 0)
        return false;
    if (relying == 0)
    {
        relianceDescriptor = OpenCommonFile();
        if (relianceDescriptor < 0)
            return false;
        if (!Change(relianceDescriptor, F_RDLCK, reliance) || OthersHold(presenceDescriptor, presence))
        {
            CloseIfOpen(relianceDescriptor);
            return false;
        }
    }
    ++relying;
    return true;
}

bool AreStillNone() noexcept
{
    std::lock_guard const lock(mutex);
    return relying != 0 && !OthersHold(presenceDescriptor, presence);
}

void EndRelyingOnNone() noexcept
{
    std::lock_guard const lock(mutex);
    if (relying == 0 || --relying != 0)
        return;
    Change(relianceDescriptor, F_UNLCK,
           reliance); // a child may hold a copy of the descriptor until it runs its program
    CloseIfOpen(relianceDescriptor);
}

} // namespace Brindle::Vok::Platform::OtherProcesses
