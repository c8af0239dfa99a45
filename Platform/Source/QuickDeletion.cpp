#include "QuickDeletion.h"

#include "HostErrors.h"
#include "OtherProcesses.h"
#include "SystemCalls.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <memory>
#include <pthread.h>
#include <string_view>

namespace Brindle::Vok::Platform
{
namespace
{

// To get ready costs as much as looking at a few files.
constexpr unsigned leastDeletions = 4;
constexpr std::chrono::milliseconds longestTrust{10};
constexpr std::chrono::microseconds longestGlance{50};

/// The numbers of the files that somebody has a lock on.
class LockedFiles
{
public:
    /// False when they can't be told, or are too many.
    bool Read() noexcept
    {
        count = 0;
        int const descriptor =
            Uninterrupted([] { return SystemCalls::Open(AT_FDCWD, "/proc/locks", O_RDONLY | O_CLOEXEC, 0); });
        if (descriptor < 0)
            return false;
        bool const read = ReadFrom(descriptor);
        SystemCalls::Close(descriptor);
        return read;
    }

    bool Has(ino_t file) const noexcept { return std::find(files, files + count, file) != files + count; }

private:
    // The kernel gives at most a page at a time, and only what comes at one time is of one moment.
    bool ReadFrom(int descriptor) noexcept
    {
        char text[4096];
        auto const read = [&]
        { return Uninterrupted([&] { return SystemCalls::Read(descriptor, text, sizeof text); }); };
        ssize_t const size = read();
        if (size < 0 || !Take({text, static_cast<std::size_t>(size)}))
            return false;
        return read() == 0;
    }

    // A line ends in "... 08:01:1234 0 EOF": device, number of the file, and the range.
    bool Take(std::string_view text) noexcept
    {
        for (std::size_t end; (end = text.find('\n')) != std::string_view::npos; text.remove_prefix(end + 1))
        {
            std::string_view const line = text.substr(0, end);
            std::string_view const number = line.substr(line.rfind(':') + 1);
            if (count == std::size(files) ||
                std::from_chars(number.data(), number.data() + number.size(), files[count]).ec != std::errc())
                return false;
            ++count;
        }
        return text.empty();
    }

    ino_t files[128];
    std::size_t count = 0;
};

constinit std::mutex deletions;

// How many directories rely on the list. Openings look at it without the lock.
std::atomic<unsigned> relying{0};
// Openings while somebody relies on the list, and changes of attributes.
std::atomic<std::uint64_t> changes{0};
// What follows is guarded by the lock of deletions.
std::uint64_t changesListed = 0;
bool isListed = false;
LockedFiles lockedFiles;
std::chrono::nanoseconds trustedUntil{0};

// A child has only the thread that made it, and nobody to unlock what another thread had locked. It starts with
// directories that rely on what was true for its parent.
[[maybe_unused]] int const startsAnewInChild = pthread_atfork(nullptr, nullptr,
                                                              []
                                                              {
                                                                  std::construct_at(&deletions);
                                                                  isListed = false;
                                                                  trustedUntil = {};
                                                              });

std::chrono::nanoseconds Now() noexcept
{
    timespec now{};
    SystemCalls::GetTime(CLOCK_MONOTONIC, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

// The numbers in the list are those of the status on these only, and nobody on another host can have a file open.
bool IsSuitable(int directory) noexcept
{
    struct statfs status;
    if (SystemCalls::StatusOfFileSystem(directory, &status) != 0)
        return false;
    constexpr decltype(status.f_type) ext4 = 0xEF53;
    constexpr decltype(status.f_type) xfs = 0x5846'5342;
    constexpr decltype(status.f_type) tmpfs = 0x0102'1994;
    return status.f_type == ext4 || status.f_type == xfs || status.f_type == tmpfs;
}

// Sees that the list is of now. False when there are others.
bool Refresh() noexcept
{
    std::chrono::nanoseconds const now = Now();
    if (now >= trustedUntil)
    {
        if (!OtherProcesses::AreStillNone())
            return false;
        trustedUntil = now + longestTrust;
        isListed = false; // programs that don't use the library may have come to have files open
    }
    if (!isListed || changesListed != changes.load())
    {
        changesListed = changes.load();
        isListed = lockedFiles.Read();
    }
    return isListed;
}

} // namespace

std::mutex& Deletions() noexcept
{
    return deletions;
}

void TellDeletionsOfOpening() noexcept
{
    // Not a plain load, which could come before the lock that was taken.
    if (relying.fetch_add(0, std::memory_order_seq_cst) == 0)
        return;
    std::lock_guard const lock(deletions);
    ++changes;
}

void TellDeletionsOfChange() noexcept
{
    ++changes;
}

ToldStatus ToldFromNow() noexcept
{
    return {0, 0, Now(), changes.load()};
}

bool QuickDeletion::Begin(int directory) noexcept
{
    if (state == State::waits && ++deletions >= leastDeletions)
    {
        bool const begins = IsSuitable(directory) && OtherProcesses::BeginRelyingOnNone();
        state = begins ? State::relies : State::gaveUp;
        if (begins && relying.fetch_add(1, std::memory_order_seq_cst) == 0)
            isListed = false; // openings didn't count meanwhile
    }
    if (state != State::relies)
        return false;
    if (Refresh())
        return true;
    End();
    return false;
}

void QuickDeletion::End() noexcept
{
    if (state == State::relies)
    {
        relying.fetch_sub(1, std::memory_order_relaxed);
        OtherProcesses::EndRelyingOnNone();
    }
    state = State::gaveUp;
}

bool QuickDeletion::IsRecent(ToldStatus const& told) noexcept
{
    return told.changes == changes.load() && Now() - told.time < longestGlance;
}

bool QuickDeletion::MayBeOpen(ino_t file) noexcept
{
    return lockedFiles.Has(file);
}

} // namespace Brindle::Vok::Platform
