// The timers that are set, by the time when they are due: a heap whose entries know where they stand, so that any of
// them can be taken out.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace Brindle::Vok::Platform
{

/// What stands in a queue.
struct QueuedTimer
{
    static constexpr std::size_t nowhere = std::numeric_limits<std::size_t>::max();

    bool IsQueued() const noexcept { return place != nowhere; }

    std::size_t place = nowhere;
};

class TimerQueue
{
public:
    /// Room for so many in all. May throw std::bad_alloc, and then nothing has changed.
    void Reserve(std::size_t count)
    {
        if (count > entries.capacity())
            entries.reserve(std::max(count, 2 * entries.capacity()));
    }

    bool IsEmpty() const noexcept { return entries.empty(); }
    /// Of one that isn't empty.
    std::int64_t FirstDue() const noexcept { return entries.front().due; }
    QueuedTimer& First() const noexcept { return *entries.front().timer; }
    std::int64_t DueOf(QueuedTimer const& timer) const noexcept { return entries[timer.place].due; }

    /// Needs room that was reserved.
    void Add(QueuedTimer& timer, std::int64_t due) noexcept
    {
        entries.push_back({due, &timer});
        MoveUp(entries.size() - 1, {due, &timer});
    }

    void Remove(QueuedTimer& timer) noexcept
    {
        std::size_t const place = timer.place;
        timer.place = QueuedTimer::nowhere;
        Entry const last = entries.back();
        entries.pop_back();
        if (place == entries.size())
            return;
        if (place > 0 && last.due < entries[Above(place)].due)
            MoveUp(place, last);
        else
            MoveDown(place, last);
    }

    /// None is queued any more, which they don't know themselves.
    void Forget() noexcept { entries.clear(); }

private:
    struct Entry
    {
        std::int64_t due;
        QueuedTimer* timer;
    };

    // Four below each: half the levels of two, and neighbours in memory.
    static constexpr std::size_t width = 4;
    static std::size_t Above(std::size_t place) noexcept { return (place - 1) / width; }

    void Put(std::size_t place, Entry const& entry) noexcept
    {
        entries[place] = entry;
        entry.timer->place = place;
    }

    void MoveUp(std::size_t place, Entry const entry) noexcept
    {
        for (; place > 0 && entry.due < entries[Above(place)].due; place = Above(place))
            Put(place, entries[Above(place)]);
        Put(place, entry);
    }

    void MoveDown(std::size_t place, Entry const entry) noexcept
    {
        for (;;)
        {
            std::size_t const begin = place * width + 1;
            std::size_t const end = begin + width < entries.size() ? begin + width : entries.size();
            std::size_t least = begin;
            for (std::size_t at = begin + 1; at < end; ++at)
                if (entries[at].due < entries[least].due)
                    least = at;
            if (begin >= end || entry.due <= entries[least].due)
                return Put(place, entry);
            Put(place, entries[least]);
            place = least;
        }
    }

    std::vector<Entry> entries;
};

} // namespace Brindle::Vok::Platform
