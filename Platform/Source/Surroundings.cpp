#include "Surroundings.h"

#include "Clock.h"
#include "DirectoryWatch.h"
#include "Forks.h"
#include "HostErrors.h"
#include "SystemCalls.h"

#include <algorithm>
#include <cstddef>
#include <new>
#include <sys/inotify.h>
#include <utility>

namespace Brindle::Vok::Platform
{
namespace
{

// Busy surroundings, such as a directory of temporary files, wake nobody more often.
constexpr std::chrono::milliseconds quietTime{100};

// Never destroyed: directories are watched until the process has ended.
union Current
{
    constexpr Current() noexcept : one() {}
    ~Current() {}
    std::weak_ptr<Surroundings> one;
};

constinit std::mutex currentMutex;
constinit Current current;

// A child's own ones are others: what it read of its parent's would be lost to that.
[[maybe_unused]] int const hasItsOwnInChild = HoldInForks<currentMutex, [] { current.one.reset(); }>();

bool HasParent(int directory) noexcept
{
    struct stat own;
    struct stat parent;
    return SystemCalls::Status(directory, &own) == 0 && SystemCalls::StatusAt(directory, "..", &parent, 0) == 0 &&
           (own.st_dev != parent.st_dev || own.st_ino != parent.st_ino);
}

} // namespace

std::shared_ptr<Surroundings> Surroundings::Get() noexcept
{
    std::lock_guard const lock(currentMutex);
    if (std::shared_ptr<Surroundings> known = current.one.lock())
        return known;
    int const descriptor = SystemCalls::MakeWatcher(IN_CLOEXEC | IN_NONBLOCK);
    if (descriptor < 0)
        return FailWith<std::shared_ptr<Surroundings>>(CodeFromHost(errno));
    auto made = WithoutThrowing([&] { return std::make_shared<Surroundings>(descriptor); });
    if (!made)
        SystemCalls::Close(descriptor);
    current.one = made;
    return made;
}

Surroundings::~Surroundings()
{
    SystemCalls::Close(descriptor);
}

bool Surroundings::Add(std::shared_ptr<DirectoryWatch> const& watch, int directory) noexcept
{
    if (!HasParent(directory))
        return true;
    return WithoutThrowing(
        [&]
        {
            std::lock_guard const lock(mutex);
            members.push_back({-1, watch.get(), watch, false});
            // Also when another one takes its place.
            int const parent = AddDirectoryWatch(descriptor, directory, "/..", IN_DELETE | IN_MOVED_TO | IN_ONLYDIR);
            members.back().parent = parent;
            if (parent >= 0)
                return true;
            members.pop_back();
            return errno == EACCES || FailWith(CodeOfRefusedWatch(errno));
        });
}

void Surroundings::Remove(DirectoryWatch const& watch) noexcept
{
    std::lock_guard const lock(mutex);
    auto const found = std::ranges::find(members, &watch, &Member::key);
    if (found == members.end())
        return;
    int const parent = found->parent;
    members.erase(found);
    if (std::ranges::find(members, parent, &Member::parent) == members.end())
        SystemCalls::RemoveWatch(descriptor, parent);
}

PendingOperation::Needs Surroundings::WhatItNeeds() const noexcept
{
    std::chrono::nanoseconds const until = quietUntil.load(std::memory_order_relaxed);
    bool const isQuiet = until != std::chrono::nanoseconds(0) && until > TimeNow();
    return isQuiet ? Needs{-1, until} : Needs{descriptor, never};
}

void Surroundings::Advance() noexcept
{
    std::vector<std::shared_ptr<DirectoryWatch>> concerned;
    try
    {
        if (WhatItNeeds().descriptor < 0 || !Read(concerned))
            return;
    }
    catch (std::bad_alloc const&)
    {
        return; // nothing was read; the next try is after the quiet time
    }
    for (std::shared_ptr<DirectoryWatch> const& watch : concerned)
        watch->LookWhetherItHasGone();
}

// Whether there was anything. May throw std::bad_alloc.
bool Surroundings::Read(std::vector<std::shared_ptr<DirectoryWatch>>& concerned)
{
    alignas(inotify_event) std::byte bytes[4096];
    quietUntil.store(TimeNow() + quietTime, std::memory_order_relaxed);
    std::lock_guard const lock(mutex);
    concerned.reserve(members.size()); // the last one that lets go of a watch must not do it with the lock
    for (Member& member : members)
        member.isConcerned = false;
    bool hasRead = false;
    for (;;)
    {
        ssize_t const count = Uninterrupted([&] { return SystemCalls::Read(descriptor, bytes, sizeof bytes); });
        if (count <= 0)
            return hasRead;
        hasRead = true;
        for (std::size_t at = 0; at < static_cast<std::size_t>(count);)
        {
            auto const& event = *reinterpret_cast<inotify_event const*>(bytes + at);
            at += sizeof event + event.len;
            bool const isOfAll = (event.mask & IN_Q_OVERFLOW) != 0;
            if (!isOfAll && (event.mask & IN_ISDIR) == 0)
                continue;
            for (Member& member : members)
                if (!member.isConcerned && (isOfAll || member.parent == event.wd))
                    if (auto watch = member.watch.lock())
                    {
                        member.isConcerned = true;
                        concerned.push_back(std::move(watch));
                    }
        }
    }
}

} // namespace Brindle::Vok::Platform
