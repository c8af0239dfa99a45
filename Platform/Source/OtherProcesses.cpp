#include "OtherProcesses.h"

#include "Clock.h"
#include "Descriptor.h"
#include "HostErrors.h"
#include "RangeLock.h"
#include "SystemCalls.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <utility>

namespace Brindle::Vok::Platform::OtherProcesses
{
namespace
{

// The same file for all processes of one time namespace, containers among them, and nobody needs a right to open it.
constexpr char const* commonFile = "/proc/self/ns/time";
constexpr off_t presence = 0;

// Who relies on being alone holds a byte that tells when it last saw that it was: one for each 16 milliseconds, over
// and over again. So a byte that is older than the longest reliance belongs to one that looks again before it does
// anything.
constexpr off_t firstReliance = 1;
constexpr off_t reliances = off_t{1} << 20;
constexpr std::chrono::milliseconds relianceTime{16};
constexpr std::chrono::milliseconds timeBetweenLooks{10};
constexpr std::chrono::milliseconds longestReliance{250};
constexpr timespec pause{0, 500'000};

constinit std::mutex mutex;

std::atomic<bool> isAnnounced{false};
// When the descriptor is looked at again: a host may have closed it, with all others that it didn't know.
std::atomic<std::chrono::nanoseconds> nextCheck{std::chrono::nanoseconds(0)};
// What follows is guarded by the mutex.
int presenceDescriptor = -1;
// A child shares the locks that its parent had on files, so it keeps the parent's presence beside its own.
int inheritedDescriptor = -1;
int relianceDescriptor = -1;
// What the descriptors lead to.
dev_t commonDevice = 0;
ino_t commonNumber = 0;
unsigned relying = 0;
off_t reliance = 0;
std::chrono::nanoseconds nextLook{0};

// Otherwise the host has closed it, and the number may be another file's. One that the host tells nothing about now
// isn't given up.
bool IsStillOpen(int descriptor) noexcept
{
    struct stat status;
    if (descriptor < 0 || SystemCalls::Status(descriptor, &status) != 0)
        return descriptor >= 0 && errno != EBADF;
    return status.st_dev == commonDevice && status.st_ino == commonNumber;
}

void CloseIfOpen(int& descriptor) noexcept
{
    if (IsStillOpen(descriptor))
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

// When it can't be told there are some.
bool AreOthersPresent() noexcept
{
    return OthersLock(presenceDescriptor, presence, 1);
}

off_t RelianceOf(std::chrono::nanoseconds time) noexcept
{
    return firstReliance + time / relianceTime % reliances;
}

bool DoesAnotherRely() noexcept
{
    struct flock range = RangeFor(F_WRLCK, firstReliance, reliances);
    if (SystemCalls::LockRange(presenceDescriptor, F_OFD_GETLK, &range) != 0 || range.l_type == F_UNLCK)
        return false;
    return (RelianceOf(TimeNow()) - range.l_start + reliances) % reliances * relianceTime <= longestReliance;
}

// The byte comes first: who makes itself known after the look sees it.
bool LookAgain(std::chrono::nanoseconds now) noexcept
{
    if (!IsStillOpen(presenceDescriptor) || !IsStillOpen(relianceDescriptor))
        return false;
    if (off_t const current = RelianceOf(now); current != reliance)
    {
        if (!ChangeRange(relianceDescriptor, F_RDLCK, current, 1))
            return false;
        if (reliance != 0)
            ChangeRange(relianceDescriptor, F_UNLCK, reliance, 1);
        reliance = current;
    }
    bool const isAlone = !AreOthersPresent();
    nextLook = isAlone ? now + timeBetweenLooks : now;
    return isAlone;
}

// A number that is given anew was closed by the host, whatever it stood for.
void OpenCommonFile(int& descriptor) noexcept
{
    int const opened = OpenHost(AT_FDCWD, commonFile, O_RDONLY).Release();
    for (int* const each : {&presenceDescriptor, &inheritedDescriptor, &relianceDescriptor})
        if (*each == opened)
            *each = -1;
    descriptor = opened;
}

// Zero where there is no such file, or no locks on it; nobody sees this process then.
DWORD TakePresence() noexcept
{
    if (presenceDescriptor >= 0)
        return ERROR_SUCCESS;
    OpenCommonFile(presenceDescriptor);
    if (presenceDescriptor < 0)
        return errno == ENOENT || errno == ENOTDIR || errno == EACCES ? ERROR_SUCCESS : CodeFromHost(errno);
    struct stat status;
    if (SystemCalls::Status(presenceDescriptor, &status) != 0)
    {
        DWORD const code = CodeFromHost(errno);
        SystemCalls::Close(std::exchange(presenceDescriptor, -1));
        return code;
    }
    commonDevice = status.st_dev;
    commonNumber = status.st_ino;
    if (!ChangeRange(presenceDescriptor, F_RDLCK, presence, 1))
        CloseIfOpen(presenceDescriptor);
    return ERROR_SUCCESS;
}

// ApproximateTimeNow costs a fraction of TimeNow, and a look that comes a few milliseconds late does no harm.
bool IsKnown() noexcept
{
    return isAnnounced.load(std::memory_order_acquire) &&
           ApproximateTimeNow() < nextCheck.load(std::memory_order_relaxed);
}

} // namespace

DWORD Announce() noexcept
{
    if (IsKnown())
        return ERROR_SUCCESS;
    std::lock_guard const lock(mutex);
    if (IsKnown())
        return ERROR_SUCCESS;
    if (presenceDescriptor >= 0 && !IsStillOpen(presenceDescriptor))
        presenceDescriptor = -1;
    // Who has taken its presence to rely on being alone has not waited yet, unless it was alone.
    bool const mustWait = presenceDescriptor < 0 || (!isAnnounced.load(std::memory_order_relaxed) && relying == 0);
    if (DWORD const code = TakePresence(); code != ERROR_SUCCESS)
        return code;
    while (mustWait && presenceDescriptor >= 0 && DoesAnotherRely())
        SystemCalls::Sleep(&pause);
    nextCheck.store(TimeNow() + timeBetweenLooks, std::memory_order_relaxed);
    isAnnounced.store(true, std::memory_order_release);
    return ERROR_SUCCESS;
}

bool BeginRelyingOnNone() noexcept
{
    std::lock_guard const lock(mutex);
    // Known or not, who relies must be seen by others; but it need not wait for one that relies already.
    if (TakePresence() != ERROR_SUCCESS || !IsStillOpen(presenceDescriptor))
        return false;
    if (relying == 0)
    {
        OpenCommonFile(relianceDescriptor);
        reliance = 0;
        if (relianceDescriptor < 0 || !LookAgain(TimeNow()))
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
    if (relying == 0)
        return false;
    std::chrono::nanoseconds const now = TimeNow();
    return now < nextLook || LookAgain(now);
}

void EndRelyingOnNone() noexcept
{
    std::lock_guard const lock(mutex);
    if (relying == 0 || --relying != 0)
        return;
    // By name: a child may hold a copy of the descriptor until it runs its program.
    if (IsStillOpen(relianceDescriptor))
        ChangeRange(relianceDescriptor, F_UNLCK, firstReliance, reliances);
    CloseIfOpen(relianceDescriptor);
}

} // namespace Brindle::Vok::Platform::OtherProcesses
