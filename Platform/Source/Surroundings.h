// Where the watched directories of this process lie: what happens there may be their end, of which the host doesn't
// tell by itself as long as they are open. One of the host's watchers serves all of them, so that traffic around a
// directory neither fills its own watcher's queue nor takes another one of the few that a user has.
#pragma once

#include "Signal.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <vector>

namespace Brindle::Vok::Platform
{

class DirectoryWatch;

class Surroundings final : public PendingOperation
{
public:
    /// The one of this process, which lives as long as somebody has it. Null with the last error set.
    static std::shared_ptr<Surroundings> Get() noexcept;

    explicit Surroundings(int descriptor) noexcept : descriptor(descriptor) {}
    ~Surroundings() override;
    Surroundings(Surroundings const&) = delete;
    Surroundings& operator=(Surroundings const&) = delete;

    /// From here on the watch is told to look whether its directory has gone. A directory without a parent, or with one
    /// that can't be read, is left alone. False with the last error set.
    bool Add(std::shared_ptr<DirectoryWatch> const& watch, int directory) noexcept;
    /// Called by the destructor of what was added.
    void Remove(DirectoryWatch const& watch) noexcept;

    Needs WhatItNeeds() const noexcept override;
    void Advance() noexcept override;

private:
    struct Member
    {
        int parent; // the host's number for the watch
        DirectoryWatch const* key;
        std::weak_ptr<DirectoryWatch> watch;
        bool isConcerned = false;
    };

    bool Read(std::vector<std::shared_ptr<DirectoryWatch>>& concerned);

    int const descriptor;
    std::mutex mutex;
    std::vector<Member> members;
    // Until then nobody looks.
    std::atomic<std::chrono::nanoseconds> quietUntil{std::chrono::nanoseconds(0)};
};

} // namespace Brindle::Vok::Platform
