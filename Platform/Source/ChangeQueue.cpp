#include "ChangeQueue.h"

#include "Names.h"

#include <Brindle/Platform/Changes.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <utility>

namespace Brindle::Vok::Platform
{
namespace
{

// How often a file that is written again and again is told of.
constexpr std::chrono::milliseconds timeBetweenModifications{5};

constexpr DWORD nameChanges = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME;
constexpr DWORD contentChanges = FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_SIZE;
constexpr DWORD statusChanges = FILE_NOTIFY_CHANGE_ATTRIBUTES | FILE_NOTIFY_CHANGE_SECURITY;

constexpr std::uint32_t nameEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
constexpr std::uint32_t lastEvents = IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;

constexpr DWORD noAction = 0;

} // namespace

// Puts records into a buffer, each behind the one before.
class ChangeQueue::Writer
{
public:
    Writer(std::byte* buffer, DWORD size) noexcept : buffer(buffer), size(size) {}

    bool IsEmpty() const noexcept { return written == 0; }
    DWORD Written() const noexcept { return written; }

    // False, and nothing changes, if not all of them fit. At most two.
    bool Append(std::initializer_list<std::pair<DWORD, std::string_view>> changes) noexcept
    {
        DWORD const writtenBefore = written;
        FILE_NOTIFY_INFORMATION* const lastBefore = last;
        for (auto const& [action, name] : changes)
            if (!Append(action, name))
            {
                written = writtenBefore;
                last = lastBefore;
                if (last)
                    last->NextEntryOffset = 0;
                return false;
            }
        return true;
    }

private:
    bool Append(DWORD action, std::string_view name) noexcept
    {
        wchar_t units[NAME_MAX];
        std::size_t const count = WideNameFromHost(name.substr(0, NAME_MAX), units);
        std::size_t const begin = (written + 3) & ~std::size_t{3};
        std::size_t const length = offsetof(FILE_NOTIFY_INFORMATION, FileName) + count * sizeof(char16_t);
        if (begin + length > size)
            return false;
        auto* const record = reinterpret_cast<FILE_NOTIFY_INFORMATION*>(buffer + begin);
        record->NextEntryOffset = 0;
        record->Action = action;
        record->FileNameLength = static_cast<DWORD>(count * sizeof(char16_t));
        std::transform(units, units + count, record->FileName,
                       [](wchar_t unit) { return static_cast<char16_t>(unit); });
        if (last)
            last->NextEntryOffset =
                static_cast<DWORD>(reinterpret_cast<std::byte*>(record) - reinterpret_cast<std::byte*>(last));
        last = record;
        written = static_cast<DWORD>(begin + length);
        return true;
    }

    std::byte* buffer;
    DWORD size;
    DWORD written = 0;
    FILE_NOTIFY_INFORMATION* last = nullptr;
};

std::uint32_t ChangeQueue::MaskOf(DWORD filter) noexcept
{
    // What is written to a file that has no name any more concerns nobody here.
    return IN_ONLYDIR | IN_EXCL_UNLINK | IN_MOVE_SELF | ((filter & nameChanges) != 0 ? nameEvents : 0) |
           ((filter & contentChanges) != 0 ? IN_MODIFY : 0) | ((filter & statusChanges) != 0 ? IN_ATTRIB : 0) |
           ((filter & FILE_NOTIFY_CHANGE_LAST_ACCESS) != 0 ? IN_ACCESS : 0);
}

std::span<std::byte> ChangeQueue::FreeSpace() noexcept
{
    std::memmove(bytes, bytes + begin, end - begin);
    end -= begin;
    begin = 0;
    return std::span(bytes).subspan(end);
}

bool ChangeQueue::CutBehindOverflow() noexcept
{
    for (std::size_t place = begin; place != end;)
    {
        inotify_event const& event = EventAt(place);
        place = Behind(event, place);
        if ((event.mask & IN_Q_OVERFLOW) == 0)
            continue;
        std::size_t kept = place;
        for (; place != end; place = Behind(EventAt(place), place))
            if (IsLast(EventAt(place)))
            {
                Move(place, kept);
                break;
            }
        end = kept;
        return true;
    }
    return false;
}

void ChangeQueue::Condense() noexcept
{
    ++stretch;
    Merge(BeginOfModifications());
}

ChangeQueue::Outcome ChangeQueue::Take(std::byte* buffer, DWORD size, std::chrono::nanoseconds now,
                                       bool isComplete) noexcept
{
    due = std::chrono::nanoseconds::max();
    Writer writer(buffer, size);
    Outcome outcome = TakeInOrder(writer, BeginOfModifications(), now, isComplete);
    if (outcome == Outcome::nothing)
        outcome = TakeModifications(writer, now);
    written = writer.Written();
    return writer.IsEmpty() ? outcome : Outcome::records;
}

// Behind the last event that isn't of a modification.
std::size_t ChangeQueue::BeginOfModifications() const noexcept
{
    std::size_t last = begin;
    for (std::size_t place = begin; place != end;)
    {
        inotify_event const& event = EventAt(place);
        DWORD const action = ActionOf(event);
        place = Behind(event, place);
        if (IsLast(event) || (event.mask & IN_Q_OVERFLOW) != 0 ||
            (action != noAction && action != FILE_ACTION_MODIFIED))
            last = place;
    }
    return last;
}

// Nothing is held here, because it may not be told behind what follows. Outcome::nothing when all is written.
ChangeQueue::Outcome ChangeQueue::TakeInOrder(Writer& writer, std::size_t until, std::chrono::nanoseconds now,
                                              bool isComplete) noexcept
{
    std::size_t const first = begin;
    ++stretch;
    while (begin != until)
    {
        inotify_event const& event = EventAt(begin);
        std::size_t const next = Behind(event, begin);
        DWORD const action = ActionOf(event);
        bool fits = true;
        if ((event.mask & IN_Q_OVERFLOW) != 0)
        {
            if (writer.IsEmpty())
                begin = next;
            return Outcome::overflow;
        }
        if (IsLast(event))
            return Outcome::lost;
        if (action == FILE_ACTION_MODIFIED)
            fits = IsSeen(begin, begin) || WriteModification(writer, event, now);
        else if (action != noAction)
            ++stretch;
        if (action == FILE_ACTION_RENAMED_OLD_NAME)
        {
            Outcome const outcome = TakeRenaming(writer, event, isComplete && begin == first);
            if (outcome == Outcome::incomplete)
                return outcome;
            fits = outcome == Outcome::records;
        }
        else if (action == FILE_ACTION_ADDED || action == FILE_ACTION_REMOVED)
            fits = writer.Append({{action, NameOf(event)}});
        if (!fits && writer.IsEmpty())
            DropAll(); // as the platform does with a buffer that is too small
        if (!fits)
            return Outcome::overflow;
        begin = next;
    }
    return Outcome::nothing;
}

// Of the first half at the beginning: records, incomplete, or overflow when it doesn't fit.
ChangeQueue::Outcome ChangeQueue::TakeRenaming(Writer& writer, inotify_event const& event, bool isComplete) noexcept
{
    bool mayCome = !isComplete;
    inotify_event* const other = OtherHalf(event, Behind(event, begin), mayCome);
    if (!other && mayCome)
        return Outcome::incomplete;
    bool const fits = other ? writer.Append({{FILE_ACTION_RENAMED_OLD_NAME, NameOf(event)},
                                             {FILE_ACTION_RENAMED_NEW_NAME, NameOf(*other)}})
                            : writer.Append({{FILE_ACTION_REMOVED, NameOf(event)}});
    if (fits && other)
        other->mask = 0; // told already
    return fits ? Outcome::records : Outcome::overflow;
}

ChangeQueue::Outcome ChangeQueue::TakeModifications(Writer& writer, std::chrono::nanoseconds now) noexcept
{
    Merge(begin);
    // Where too many are held for any more to be read, they are told early.
    bool const mayHold = sizeof bytes - (end - begin) >= sizeof(inotify_event) + NAME_MAX + 1;
    bool fits = true;
    std::size_t kept = begin;
    for (std::size_t place = begin; place != end;)
    {
        inotify_event const& event = EventAt(place);
        std::size_t const next = Behind(event, place);
        std::chrono::nanoseconds const heldUntil = ModificationOf(NameOf(event)).heldUntil;
        bool const isHeld = mayHold && heldUntil > now;
        if (isHeld)
            due = std::min(due, heldUntil);
        fits = fits && (isHeld || WriteModification(writer, event, now));
        if (isHeld || !fits)
            Move(place, kept);
        place = next;
    }
    end = kept;
    if (fits)
        return begin == end ? Outcome::nothing : Outcome::held;
    if (writer.IsEmpty())
        DropAll();
    return Outcome::overflow;
}

bool ChangeQueue::WriteModification(Writer& writer, inotify_event const& event, std::chrono::nanoseconds now) noexcept
{
    bool const fits = writer.Append({{FILE_ACTION_MODIFIED, NameOf(event)}});
    if (fits)
        ModificationOf(NameOf(event)).heldUntil = now + timeBetweenModifications;
    return fits;
}

// Leaves one event of each file that wasn't written in this stretch, and nothing that isn't told.
void ChangeQueue::Merge(std::size_t from) noexcept
{
    std::size_t kept = from;
    for (std::size_t place = from; place != end;)
    {
        std::size_t const next = Behind(EventAt(place), place);
        if (ActionOf(EventAt(place)) == FILE_ACTION_MODIFIED && !IsSeen(place, kept))
            Move(place, kept);
        place = next;
    }
    end = kept;
}

void ChangeQueue::Move(std::size_t from, std::size_t& to) noexcept
{
    std::size_t const size = Behind(EventAt(from), from) - from;
    std::memmove(bytes + to, bytes + from, size);
    to += size;
}

void ChangeQueue::DropAll() noexcept
{
    while (begin != end && !IsLast(EventAt(begin)))
        begin = Behind(EventAt(begin), begin);
}

// Whether the file was seen in this stretch; from now on it was, at the new place.
bool ChangeQueue::IsSeen(std::size_t place, std::size_t newPlace) noexcept
{
    std::string_view const name = NameOf(EventAt(place));
    Modification& known = ModificationOf(name);
    if (known.stretch == stretch && NameOf(EventAt(known.place)) == name)
        return true;
    known.stretch = stretch;
    known.place = static_cast<std::uint32_t>(newPlace);
    return false;
}

// May forget another one for it, which is told more often then.
ChangeQueue::Modification& ChangeQueue::ModificationOf(std::string_view name) noexcept
{
    constexpr std::size_t neighbours = 8;
    std::size_t const hash = std::hash<std::string_view>()(name);
    Modification* oldest = nullptr;
    for (std::size_t i = 0; i < neighbours; ++i)
    {
        Modification& each = modifications[(hash + i) % modifications.size()];
        if (each.name == hash)
            return each;
        if (!oldest || each.heldUntil < oldest->heldUntil)
            oldest = &each;
    }
    *oldest = {hash, {}, 0, 0};
    return *oldest;
}

bool ChangeQueue::IsLast(inotify_event const& event) const noexcept
{
    return event.wd == watch && (event.mask & lastEvents) != 0;
}

bool ChangeQueue::WantsNameOf(inotify_event const& event) const noexcept
{
    bool const isDirectory = (event.mask & IN_ISDIR) != 0;
    return (filter & (isDirectory ? FILE_NOTIFY_CHANGE_DIR_NAME : FILE_NOTIFY_CHANGE_FILE_NAME)) != 0;
}

DWORD ChangeQueue::ActionOf(inotify_event const& event) const noexcept
{
    if (event.wd != watch || event.len == 0)
        return noAction;
    if ((event.mask & nameEvents) == 0)
        return (event.mask & (IN_MODIFY | IN_ATTRIB | IN_ACCESS)) != 0 ? FILE_ACTION_MODIFIED : noAction;
    if (!WantsNameOf(event))
        return noAction;
    if ((event.mask & IN_MOVED_FROM) != 0)
        return FILE_ACTION_RENAMED_OLD_NAME;
    return (event.mask & IN_DELETE) != 0 ? FILE_ACTION_REMOVED : FILE_ACTION_ADDED;
}

// The host holds the directory's lock until it has told of both halves, so a name that changed after the first one
// proves that there is no second one.
inotify_event* ChangeQueue::OtherHalf(inotify_event const& first, std::size_t place, bool& mayCome) noexcept
{
    for (; place != end; place = Behind(EventAt(place), place))
    {
        inotify_event const& event = EventAt(place);
        if (event.wd != watch || (event.mask & nameEvents) == 0)
            continue;
        if ((event.mask & IN_MOVED_TO) != 0 && event.cookie == first.cookie)
            return const_cast<inotify_event*>(&event);
        mayCome = false;
        break;
    }
    return nullptr;
}

} // namespace Brindle::Vok::Platform
