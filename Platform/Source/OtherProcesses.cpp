#include "OtherProcesses.h"

#include "HostErrors.h"
#include "SystemCalls.h"

#include <atomic>
#include <chrono>
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

// Who relies on being alone holds a byte that tells when it last saw that it was: one for each 16 milliseconds, over
// and over again. It looks at least every 10 milliseconds while it deletes, so one whose byte is older than this
// deletes nothing before it looks again.
constexpr off_t firstReliance = 1;
constexpr off_t reliances = off_t{1} << 20;
constexpr std::chrono::milliseconds relianceTime{16};
constexpr std::chrono::milliseconds longestReliance{250};
constexpr timespec pause{0, 500'000};

constinit std::mutex mutex;

std::atomic<bool> isAnnounced{false};
// What follows is guarded by the mutex.
int presenceDescriptor = -1;
// A child shares the locks that its parent had on files, so it keeps the parent's presence beside its own.
int inheritedDescriptor = -1;
int relianceDescriptor = -1;
off_t reliance = 0;
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

struct flock RangeFor(int type, off_t start, off_t length) noexcept
{
    struct flock range = {};
    range.l_type = static_cast<short>(type);
    range.l_whence = SEEK_SET;
    range.l_start = start;
    range.l_len = length;
    return range;
}

bool Change(int descriptor, int type, off_t start, off_t length) noexcept
{
    struct flock range = RangeFor(type, start, length);
    return Uninterrupted([&] { return SystemCalls::LockRange(descriptor, F_OFD_SETLK, &range); }) == 0;
}

// When it can't be told there are some.
bool AreOthersPresent() noexcept
{
    struct flock range = RangeFor(F_WRLCK, presence, 1);
    return SystemCalls::LockRange(presenceDescriptor, F_OFD_GETLK, &range) != 0 || range.l_type != F_UNLCK;
}

off_t RelianceOfNow() noexcept
{
    timespec now{};
    SystemCalls::GetTime(CLOCK_MONOTONIC, &now);
    auto const time = std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
    return firstReliance + time / relianceTime % reliances;
}

bool DoesAnotherRely() noexcept
{
    struct flock range = RangeFor(F_WRLCK, firstReliance, reliances);
    if (SystemCalls::LockRange(presenceDescriptor, F_OFD_GETLK, &range) != 0 || range.l_type == F_UNLCK)
        return false;
    return (RelianceOfNow() - range.l_start + reliances) % reliances * relianceTime <= longestReliance;
}

bool MoveReliance() noexcept
{
    off_t const now = RelianceOfNow();
    if (now != reliance)
    {
        if (!Change(relianceDescriptor, F_RDLCK, now, 1))
            return false;
        if (reliance != 0)
            Change(relianceDescriptor, F_UNLCK, reliance, 1);
        reliance = now;
    }
    return true;
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
    if (presenceDescriptor >= 0 && !Change(presenceDescriptor, F_RDLCK, presence, 1))
        CloseIfOpen(presenceDescriptor);
    while (presenceDescriptor >= 0 && DoesAnotherRely())
        SystemCalls::Sleep(&pause);
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
        reliance = 0;
        if (!MoveReliance() || AreOthersPresent())
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
    return relying != 0 && MoveReliance() && !AreOthersPresent();
}

void EndRelyingOnNone() noexcept
{
    std::lock_guard const lock(mutex);
    if (relying == 0 || --relying != 0)
        return;
    // By name: a child may hold a copy of the descriptor until it runs its program.
    Change(relianceDescriptor, F_UNLCK, firstReliance, reliances);
    CloseIfOpen(relianceDescriptor);
}

} // namespace Brindle::Vok::Platform::OtherProcesses
