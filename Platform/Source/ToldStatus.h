// What a search has told of an entry, and for how long that is as good as another look.
//
// For three quarters of the time that the shortest look at a file takes, nobody can have changed the file on account of
// what the search told, and no other thread of this process can have deleted it and put one that it holds in its place:
// with the way to the question each takes longer. So whoever asks about the entry at once, as a walk with questions and
// a deletion do, needs no second look. A look that took much longer than the shortest was held up: what it saw may be
// as old as that, so it isn't trusted. (What began before the look, and the host's own rename of a file that is open,
// may come in between, as they may behind any look.)
#pragma once

#include <chrono>
#include <sys/types.h>

namespace Brindle::Vok::Platform
{

struct ToldStatus
{
    bool Holds() const noexcept;

    mode_t mode = 0;
    ino_t number = 0;
    std::chrono::nanoseconds holdsUntil{0};
};

/// A look that takes its time.
class TimedLook
{
public:
    TimedLook() noexcept;
    /// Until when what was learned holds; zero for a look that took so long that it was held up.
    std::chrono::nanoseconds End() const noexcept;

private:
    std::chrono::nanoseconds start;
};

} // namespace Brindle::Vok::Platform
