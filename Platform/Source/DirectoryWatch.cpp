#include "DirectoryWatch.h"

#include "Clock.h"
#include "HostErrors.h"
#include "SystemCalls.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <string_view>
#include <sys/inotify.h>
#include <utility>

namespace Brindle::Vok::Platform
{

int AddDirectoryWatch(int descriptor, int directory, char const* suffix, std::uint32_t mask) noexcept
{
    char path[48];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d%s", directory, suffix);
    return SystemCalls::AddWatch(descriptor, path, mask);
}

std::shared_ptr<DirectoryWatch> DirectoryWatch::Make(int directory, DWORD filter) noexcept
{
    std::shared_ptr<Surroundings> surroundings = Surroundings::Get();
    if (!surroundings)
        return nullptr;
    int const descriptor = SystemCalls::MakeWatcher(IN_CLOEXEC | IN_NONBLOCK);
    if (descriptor < 0)
        return FailWith<std::shared_ptr<DirectoryWatch>>(CodeFromHost(errno));
    std::shared_ptr<DirectoryWatch> made;
    int const watch = AddDirectoryWatch(descriptor, directory, "", ChangeQueue::MaskOf(filter));
    if (watch < 0)
        FailWith(CodeOfRefusedWatch(errno));
    else
        made = WithoutThrowing([&] { return std::make_shared<DirectoryWatch>(directory, descriptor, watch, filter); });
    if (!made)
    {
        SystemCalls::Close(descriptor);
        return nullptr;
    }
    made->surroundings = std::move(surroundings);
    bool const isWhole = WithoutThrowing(
        [&]
        {
            made->place = made->CurrentPlace();
            return made->surroundings->Add(made, directory);
        });
    return isWhole ? made : nullptr;
}

DirectoryWatch::DirectoryWatch(int directory, int descriptor, int watch, DWORD filter) noexcept
    : directory(directory), descriptor(descriptor), queue(watch, filter)
{
}

DirectoryWatch::~DirectoryWatch()
{
    surroundings->Remove(*this);
    SystemCalls::Close(descriptor);
}

bool DirectoryWatch::Begin(ChangeReading next) noexcept
{
    std::lock_guard const lock(mutex);
    if (reading.overlapped)
        return FailWith(ERROR_BUSY);
    if (isLost)
        return FailWith(ERROR_ACCESS_DENIED);
    if (!next.signal)
    {
        if (!done &&
            !(done = WithoutThrowing([] { return std::make_shared<Signal>(Signal::Type::manualReset, 0, 1); })))
            return false;
        next.signal = done;
    }
    next.signal->Reset();
    if (!next.signal->Attach(shared_from_this()))
        return false;
    next.overlapped->InternalHigh = 0;
    std::atomic_ref(next.overlapped->Internal).store(statusPending, std::memory_order_release);
    reading = std::move(next);
    if (!queue.IsEmpty() || mayHaveGone || mayHaveMoved)
        Deliver();
    return true;
}

bool DirectoryWatch::Cancel(OVERLAPPED const* overlapped) noexcept
{
    std::lock_guard const lock(mutex);
    if (!reading.overlapped || (overlapped && overlapped != reading.overlapped))
        return false;
    Complete(ERROR_OPERATION_ABORTED, 0);
    return true;
}

void DirectoryWatch::Close() noexcept
{
    std::lock_guard const lock(mutex);
    isClosed = true;
    if (reading.overlapped)
        Complete(ERROR_SUCCESS, 0);
}

// The descriptor would keep the host's instance from ending with the parent.
void DirectoryWatch::Abandon(std::shared_ptr<DirectoryWatch>& watch) noexcept
{
    SystemCalls::Close(watch->descriptor);
    std::construct_at(&watch);
}

void DirectoryWatch::Advance() noexcept
{
    std::lock_guard const lock(mutex);
    if (isClosed || !reading.overlapped)
        return; // another thread was faster
    ReadEvents();
    Deliver();
}

// Also more than there is space for, when most of it is told once only: the host's own queue is not to overflow because
// of files that are written all the time.
void DirectoryWatch::ReadEvents() noexcept
{
    constexpr int mostTimes = 64;
    for (int i = 0; i < mostTimes && ReadSome() && hasMore; ++i)
        queue.Condense();
}

// False when there is nothing, or nothing more behind an overflow.
bool DirectoryWatch::ReadSome() noexcept
{
    std::span<std::byte> const space = queue.FreeSpace();
    ssize_t const count = Uninterrupted([&] { return SystemCalls::Read(descriptor, space.data(), space.size()); });
    hasMore = count > static_cast<ssize_t>(space.size() / 2);
    if (count <= 0)
        return false;
    queue.Added(static_cast<std::size_t>(count));
    if (!queue.CutBehindOverflow())
        return true;
    hasMore = false;
    DropBehindOverflow();
    return false;
}

// As long as the host's note of an overflow waits in its queue, events go in behind it where there is room and get lost
// where there is none, without another note. So all of them are covered by that one, which nobody has been told of yet.
void DirectoryWatch::DropBehindOverflow() noexcept
{
    mayHaveGone = true; // also of that nothing is heard any more
    for (bool isAnother = true; std::exchange(isAnother, false);)
    {
        int left = 0;
        if (SystemCalls::CountReadable(descriptor, &left) != 0)
            return;
        while (left > 0)
        {
            alignas(inotify_event) std::byte dropped[4096];
            ssize_t const count = Uninterrupted([&] { return SystemCalls::Read(descriptor, dropped, sizeof dropped); });
            if (count <= 0)
                return;
            for (std::size_t at = 0; at < static_cast<std::size_t>(count);)
            {
                auto const& event = *reinterpret_cast<inotify_event const*>(dropped + at);
                at += sizeof event + event.len;
                isAnother = isAnother || (event.mask & IN_Q_OVERFLOW) != 0;
            }
            left -= static_cast<int>(count);
        }
    }
}

void DirectoryWatch::Deliver() noexcept
{
    due = never;
    isResting = false;
    if (std::exchange(mayHaveMoved, false) && HasMoved())
    {
        isLost = true;
        return Complete(ERROR_ACCESS_DENIED, 0);
    }
    for (bool isComplete = false;;)
    {
        switch (queue.Take(reading.buffer, reading.size, TimeNow(), isComplete))
        {
        case ChangeQueue::Outcome::records:
            return Complete(ERROR_SUCCESS, queue.Written());
        case ChangeQueue::Outcome::overflow:
            mayHaveMoved = true;
            return Complete(ERROR_SUCCESS, 0);
        case ChangeQueue::Outcome::lost:
            isLost = true;
            return Complete(ERROR_ACCESS_DENIED, 0);
        case ChangeQueue::Outcome::nothing:
            isLost = std::exchange(mayHaveGone, false) && HasGone();
            if (isLost)
                Complete(ERROR_ACCESS_DENIED, 0);
            return;
        case ChangeQueue::Outcome::held:
            if (!hasMore)
                return Hold();
            ReadEvents();
            isComplete = false;
            break;
        case ChangeQueue::Outcome::incomplete:
            WaitForRenaming();
            ReadEvents();
            isComplete = true;
            break;
        }
    }
}

// Files that are written all the time would wake the thread for each write, only to be held. After some looks the
// others can wait for a moment too.
void DirectoryWatch::Hold() noexcept
{
    constexpr int mostLooks = 16;
    constexpr std::chrono::milliseconds rest{1};
    isResting = ++looksSinceDelivery > mostLooks;
    due = isResting ? std::min<std::chrono::nanoseconds>(queue.Due(), TimeNow() + rest) : queue.Due();
    reading.signal->WakeAll(); // this need not be the thread that waits
}

PendingOperation::Needs DirectoryWatch::WhatItNeeds() const noexcept
{
    std::lock_guard const lock(mutex);
    return {isResting ? -1 : descriptor, due};
}

std::shared_ptr<Signal> DirectoryWatch::Done() const noexcept
{
    std::lock_guard const lock(mutex);
    return done;
}

void DirectoryWatch::LookWhetherItHasGone() noexcept
{
    std::lock_guard const lock(mutex);
    mayHaveGone = true;
    if (!isClosed && reading.overlapped)
        Deliver();
}

// Some file systems count links to a directory that has gone. None gives its entries.
bool DirectoryWatch::HasGone() const noexcept
{
    alignas(8) char entries[1024];
    struct stat status;
    return SystemCalls::Status(directory, &status) != 0 || status.st_nlink == 0 ||
           (SystemCalls::ReadDirectory(directory, entries, sizeof entries) < 0 && errno == ENOENT);
}

// May throw std::bad_alloc.
DirectoryWatch::Place DirectoryWatch::CurrentPlace() const
{
    char path[32];
    char text[PATH_MAX];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", directory);
    ssize_t const length = SystemCalls::ReadLink(path, text, sizeof text);
    std::string_view const whole(text, length > 0 ? static_cast<std::size_t>(length) : 0);
    Place current{0, 0, std::string(whole.substr(whole.rfind('/') + 1))};
    if (struct stat parent; SystemCalls::StatusAt(directory, "..", &parent, 0) == 0)
        current.device = parent.st_dev, current.parent = parent.st_ino;
    return current;
}

bool DirectoryWatch::HasMoved() const noexcept
{
    return WithoutThrowing([this] { return CurrentPlace() != place; });
}

// Who renames holds the directory's lock until the host has told of both names. Reading entries waits for that lock.
void DirectoryWatch::WaitForRenaming() const noexcept
{
    alignas(8) char entries[1024];
    SystemCalls::ReadDirectory(directory, entries, sizeof entries);
}

void DirectoryWatch::Complete(DWORD code, DWORD byteCount) noexcept
{
    due = never;
    looksSinceDelivery = 0;
    ChangeReading const ended = std::exchange(reading, {});
    ended.overlapped->InternalHigh = byteCount;
    std::atomic_ref(ended.overlapped->Internal)
        .store(code == ERROR_SUCCESS ? 0 : statusOfFailure | code, std::memory_order_release);
    ended.signal->End(*this); // last: the owner may have freed the rest as soon as it sees the status
}

} // namespace Brindle::Vok::Platform
