// What the host has told of the changes in a directory and nobody has taken yet, and its translation into the
// platform's records.
//
//     queue.Added(read(descriptor, queue.FreeSpace()));
//     switch (queue.Take(buffer, size, now, false)) …
//
// The host tells of a renaming in two events, which can be read apart: the second one may not be there yet. So where
// the first one is the last thing that is known, the queue asks for more.
//
// What happens to names is told of in its order. Between two such events, in one stretch, a file that was modified is
// told of once. Of the modifications behind the last one of them those of files that were told of a moment ago are
// held, that is, kept until they are due; the others aren't.
#pragma once

#include <Brindle/Platform/Types.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <sys/inotify.h>

namespace Brindle::Vok::Platform
{

class ChangeQueue
{
public:
    enum class Outcome
    {
        nothing,    ///< that anybody wants
        records,    ///< are in the buffer
        overflow,   ///< of the host's queue, or the buffer can't hold even the first record; behind records it is full
        lost,       ///< the directory has gone or got another name; stays so
        held,       ///< only what was told of a moment ago; look again when it is Due()
        incomplete, ///< the other half of a renaming may be on its way
    };

    /// For the changes of one watch of the host, by the platform's filter.
    ChangeQueue(int watch, DWORD filter) noexcept : watch(watch), filter(filter) {}

    /// What the host is to be asked for.
    static std::uint32_t MaskOf(DWORD filter) noexcept;

    /// Where the host's next events go; large enough for one at least, once all that can be taken has been taken.
    std::span<std::byte> FreeSpace() noexcept;
    void Added(std::size_t byteCount) noexcept { end += byteCount; }
    /// Takes away what is behind the first overflow, of which the host may have lost some more. False if there is none.
    bool CutBehindOverflow() noexcept;
    /// Makes space of what needs to be told once only.
    void Condense() noexcept;
    bool IsEmpty() const noexcept { return begin == end; }

    /// Puts records into a buffer, as many as fit, and gives their bytes in Written(). `isComplete` says that the
    /// renaming that was incomplete a moment ago is all there; what was added with it may end in yet another first
    /// half.
    Outcome Take(std::byte* buffer, DWORD size, std::chrono::nanoseconds now, bool isComplete) noexcept;
    DWORD Written() const noexcept { return written; }
    std::chrono::nanoseconds Due() const noexcept { return due; }

private:
    class Writer;

    inotify_event const& EventAt(std::size_t place) const noexcept
    {
        return *reinterpret_cast<inotify_event const*>(bytes + place);
    }
    static std::size_t Behind(inotify_event const& event, std::size_t place) noexcept
    {
        return place + sizeof event + event.len;
    }
    static std::string_view NameOf(inotify_event const& event) noexcept
    {
        return event.len != 0 ? std::string_view(event.name) : std::string_view();
    }

    // What is known of a file that was modified.
    struct Modification
    {
        std::size_t name = 0; // hash
        std::chrono::nanoseconds heldUntil{0};
        std::uint32_t stretch = 0; // in which it was seen last
        std::uint32_t place = 0;   // and where
    };

    bool IsLast(inotify_event const& event) const noexcept;
    bool WantsNameOf(inotify_event const& event) const noexcept;
    DWORD ActionOf(inotify_event const& event) const noexcept;
    inotify_event* OtherHalf(inotify_event const& first, std::size_t place, bool& mayCome) noexcept;
    std::size_t BeginOfModifications() const noexcept;
    Outcome TakeRenaming(Writer& writer, inotify_event const& event, bool isComplete) noexcept;
    Outcome TakeInOrder(Writer& writer, std::size_t until, std::chrono::nanoseconds now, bool isComplete) noexcept;
    Outcome TakeModifications(Writer& writer, std::chrono::nanoseconds now) noexcept;
    bool WriteModification(Writer& writer, inotify_event const& event, std::chrono::nanoseconds now) noexcept;
    void Merge(std::size_t from) noexcept;
    void DropAll() noexcept;
    void Move(std::size_t from, std::size_t& to) noexcept;
    bool IsSeen(std::size_t place, std::size_t newPlace) noexcept;
    Modification& ModificationOf(std::string_view name) noexcept;

    int watch;
    DWORD filter;
    std::size_t begin = 0;
    std::size_t end = 0;
    DWORD written = 0;
    std::chrono::nanoseconds due = std::chrono::nanoseconds::max();

    // The latest ones, each at one of some neighbouring places.
    std::array<Modification, 1024> modifications;
    // Between two changes of names one telling is enough for a file.
    // Each look begins one anew, as places don't hold when the bytes move.
    std::uint32_t stretch = 1;

    alignas(inotify_event) std::byte bytes[16 * 1024];
};

} // namespace Brindle::Vok::Platform
