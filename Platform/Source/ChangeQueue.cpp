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
constexpr std::uint32_t lastEvents = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;

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

ChangeQueue::Outcome ChangeQueue::Take(std::byte* buffer, DWORD size, std::chrono::nanoseconds now,
                                       bool isComplete) noexcept
{
    if (IsAllHeld(now))
    {
        Compact();
        return Outcome::held;
    }
    due = std::chrono::nanoseconds::max();
    Writer writer(buffer, size);
    std::size_t const first = begin;
    auto const finish = [&](Outcome otherwise)
    {
        written = writer.Written();
        return writer.IsEmpty() ? otherwise : Outcome::records;
    };
    while (begin != end)
    {
        inotify_event const& event = EventAt(begin);
        std::size_t const next = Behind(event, begin);
        if ((event.mask & IN_Q_OVERFLOW) != 0)
        {
            if (writer.IsEmpty())
                begin = next;
            return finish(Outcome::overflow);
        }
        if (IsLast(event))
            return finish(Outcome::lost);
        DWORD const action = ActionOf(event);
        bool fits = true;
        if (action == FILE_ACTION_MODIFIED && !ComesAgain(event, next))
        {
            fits = writer.Append({{action, NameOf(event)}});
            if (fits)
                Told(NameOf(event), now);
        }
        else if (action == FILE_ACTION_RENAMED_OLD_NAME)
        {
            bool mayCome = !isComplete || begin != first;
            inotify_event* const other = OtherHalf(event, next, mayCome);
            if (!other && mayCome)
                return finish(Outcome::incomplete);
            fits = other ? writer.Append({{action, NameOf(event)}, {FILE_ACTION_RENAMED_NEW_NAME, NameOf(*other)}})
                         : writer.Append({{FILE_ACTION_REMOVED, NameOf(event)}});
            if (fits && other)
                other->mask = 0; // told already
        }
        else if (action != FILE_ACTION_MODIFIED && action != noAction)
            fits = writer.Append({{action, NameOf(event)}});
        if (!fits && writer.IsEmpty())
            DropAll(); // as the platform does with a buffer that is too small
        if (!fits)
            return finish(Outcome::overflow);
        begin = next;
    }
    return finish(Outcome::nothing);
}

void ChangeQueue::DropAll() noexcept
{
    while (begin != end && !IsLast(EventAt(begin)))
        begin = Behind(EventAt(begin), begin);
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

// One telling is enough for writes behind which there is another one, as long as nothing else happened in between.
bool ChangeQueue::ComesAgain(inotify_event const& event, std::size_t place) const noexcept
{
    constexpr int mostToCompare = 64;
    for (int i = 0; i < mostToCompare && place != end; ++i, place = Behind(EventAt(place), place))
    {
        inotify_event const& later = EventAt(place);
        if ((later.mask & (nameEvents | lastEvents | IN_Q_OVERFLOW)) != 0)
            return false;
        if (ActionOf(later) == FILE_ACTION_MODIFIED && NameOf(later) == NameOf(event))
            return true;
    }
    return false;
}

bool ChangeQueue::IsAllHeld(std::chrono::nanoseconds now) noexcept
{
    due = std::chrono::nanoseconds::max();
    for (std::size_t place = begin; place != end; place = Behind(EventAt(place), place))
    {
        inotify_event const& event = EventAt(place);
        std::chrono::nanoseconds const until =
            ActionOf(event) == FILE_ACTION_MODIFIED ? HeldUntil(NameOf(event)) : std::chrono::nanoseconds(0);
        bool const isOfInterest = ActionOf(event) != noAction || (event.mask & (IN_Q_OVERFLOW | lastEvents)) != 0;
        if (isOfInterest && until <= now)
            return false;
        if (isOfInterest)
            due = std::min(due, until);
    }
    return due != std::chrono::nanoseconds::max();
}

// Of what is held one event for each name is enough, and there are only as many names as are known to be modified.
void ChangeQueue::Compact() noexcept
{
    std::size_t kept = begin;
    for (std::size_t place = begin; place != end;)
    {
        inotify_event const& event = EventAt(place);
        std::size_t const size = Behind(event, place) - place;
        bool isNew = ActionOf(event) == FILE_ACTION_MODIFIED;
        for (std::size_t known = begin; isNew && known != kept; known = Behind(EventAt(known), known))
            isNew = NameOf(EventAt(known)) != NameOf(event);
        if (isNew)
        {
            std::memmove(bytes + kept, bytes + place, size);
            kept += size;
        }
        place += size;
    }
    end = kept;
}

std::chrono::nanoseconds ChangeQueue::HeldUntil(std::string_view name) const noexcept
{
    auto const found = std::ranges::find(modifications, std::hash<std::string_view>()(name), &Modification::name);
    return found != modifications.end() ? found->heldUntil : std::chrono::nanoseconds(0);
}

void ChangeQueue::Told(std::string_view name, std::chrono::nanoseconds now) noexcept
{
    std::size_t const hash = std::hash<std::string_view>()(name);
    auto found = std::ranges::find(modifications, hash, &Modification::name);
    if (found == modifications.end())
        found = modifications.begin() + static_cast<std::ptrdiff_t>(nextModification++ % modifications.size());
    *found = {hash, now + timeBetweenModifications};
}

} // namespace Brindle::Vok::Platform
