// Sends what a host may tell of two directories through the queue of changes, in batches that are cut anywhere, and
// takes it out into buffers of any size at any time. Each operation is one letter, and what it needs stands behind it.
//
// Names must be told in the order of the events, each exactly once; in each stretch between two of them all that was
// modified must be told after its last modification, and nothing else. Only an overflow, of the host or of a buffer
// that can't hold the next record, stands for anything else.
#include "Require.h"

#include "ChangeQueue.h"
#include "Names.h"

#include <Brindle/Platform/Changes.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <utility>

using namespace Brindle::Vok::Platform;

namespace
{

using std::chrono::nanoseconds;

constexpr int ownWatch = 1;
constexpr int otherWatch = 2;

class Input
{
public:
    explicit Input(std::span<std::uint8_t const> bytes) : bytes(bytes) {}

    bool IsEmpty() const { return bytes.empty(); }
    std::uint8_t Next()
    {
        if (bytes.empty())
            return 0;
        std::uint8_t const byte = bytes[0];
        bytes = bytes.subspan(1);
        return byte;
    }
    /// One byte: a lower case letter is a name of its own, anything else is how many of the following bytes are one.
    std::string Name()
    {
        std::uint8_t const byte = Next();
        std::string name(1, static_cast<char>(byte));
        if (byte < 'a' || byte > 'z')
        {
            std::size_t const length = std::min<std::size_t>(byte, bytes.size());
            name.assign(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
            bytes = bytes.subspan(length);
            std::ranges::replace(name, '\0', '0');
            std::ranges::replace(name, '/', '_');
        }
        return name.empty() ? "empty" : name;
    }

private:
    std::span<std::uint8_t const> bytes;
};

struct Event
{
    int watch;
    std::uint32_t mask;
    std::uint32_t cookie;
    std::string name;

    bool IsOwn(std::uint32_t masks) const { return watch == ownWatch && (mask & masks) != 0; }
    std::size_t Size() const { return sizeof(inotify_event) + PaddedLength(); }
    std::size_t PaddedLength() const { return name.empty() ? 0 : (name.size() + 16) / 16 * 16; }
    void Write(std::byte* place) const
    {
        inotify_event const head{watch, mask, cookie, static_cast<std::uint32_t>(PaddedLength())};
        std::memcpy(place, &head, sizeof head);
        std::memset(place + sizeof head, 0, PaddedLength());
        std::memcpy(place + sizeof head, name.data(), name.size());
    }
};

std::size_t RecordSize(std::u16string const& name)
{
    return offsetof(FILE_NOTIFY_INFORMATION, FileName) + name.size() * sizeof(char16_t);
}

std::u16string TextOf(std::string const& name)
{
    std::wstring const wide = WideNameFromHost(name);
    return {wide.begin(), wide.end()};
}

/// What must still be told of: stretches of modifications, with what ends each of them.
class Expectation
{
public:
    explicit Expectation(DWORD filter) : filter(filter) {}

    void Add(Event const& event)
    {
        if ((event.mask & IN_Q_OVERFLOW) != 0)
            return End({End::Kind::overflow, {}});
        if (event.IsOwn(IN_MOVE_SELF | IN_IGNORED))
            return End({End::Kind::lost, {}});
        if (event.watch != ownWatch || event.name.empty())
            return;
        std::u16string const name = TextOf(event.name);
        DWORD const wanted = (event.mask & IN_ISDIR) != 0 ? FILE_NOTIFY_CHANGE_DIR_NAME : FILE_NOTIFY_CHANGE_FILE_NAME;
        if ((event.mask & (IN_MODIFY | IN_ATTRIB)) != 0)
        {
            stretches.back().untold.insert(name);
            stretches.back().modified.insert(name);
        }
        else if ((filter & wanted) == 0)
            return;
        else if ((event.mask & IN_MOVED_TO) != 0 && event.cookie == renamed)
            secondHalves.push_back(name); // its place is that of the first one
        else
        {
            DWORD const action = (event.mask & IN_MOVED_FROM) != 0 ? FILE_ACTION_RENAMED_OLD_NAME
                                 : (event.mask & IN_DELETE) != 0   ? FILE_ACTION_REMOVED
                                                                   : FILE_ACTION_ADDED;
            // A name that is moved out tells of a removal alone.
            End({End::Kind::name,
                 {action == FILE_ACTION_RENAMED_OLD_NAME && event.cookie == 0 ? FILE_ACTION_REMOVED : action, name}});
            renamed = action == FILE_ACTION_RENAMED_OLD_NAME ? event.cookie : 0;
        }
    }

    void Told(DWORD action, std::u16string const& name)
    {
        if (action == FILE_ACTION_RENAMED_NEW_NAME)
        {
            Require(awaitsSecondHalf && !secondHalves.empty() && secondHalves.front() == name, "Second half");
            secondHalves.pop_front();
            awaitsSecondHalf = false;
            return;
        }
        Require(!awaitsSecondHalf, "A renaming's halves are apart");
        Stretch& stretch = stretches.front();
        if (action == FILE_ACTION_MODIFIED)
        {
            Require(stretch.modified.contains(name), "Modified, but wasn't");
            stretch.untold.erase(name);
            return;
        }
        Require(stretch.untold.empty(), "A modification is lost");
        Require(IsEndedBy(End::Kind::name) && stretch.end.change == std::pair(action, name), "Another name");
        awaitsSecondHalf = action == FILE_ACTION_RENAMED_OLD_NAME;
        stretches.pop_front();
    }

    /// `isAllGone` says that the queue has nothing left but, maybe, the end of the directory: then the buffer may have
    /// been too small, and the host's overflow is only one of what went with it.
    void Overflowed(DWORD size, bool isAllGone)
    {
        Stretch const& stretch = stretches.front();
        bool const isOfHost = stretch.untold.empty() && IsEndedBy(End::Kind::overflow);
        bool isTooLarge = std::ranges::any_of(stretch.modified,
                                              [size](std::u16string const& name) { return RecordSize(name) > size; });
        if (IsEndedBy(End::Kind::name))
        {
            bool const hasTwo = stretch.end.change.first == FILE_ACTION_RENAMED_OLD_NAME && !secondHalves.empty();
            std::size_t const first = RecordSize(stretch.end.change.second);
            isTooLarge = isTooLarge || (hasTwo ? (first + 3) / 4 * 4 + RecordSize(secondHalves.front()) : first) > size;
        }
        if (isOfHost && !(isTooLarge && isAllGone))
            return stretches.pop_front();
        Require(isTooLarge, "Overflow without a reason");
        // All that is known goes, but not the end of the directory.
        auto const lost =
            std::ranges::find(stretches, End::Kind::lost, [](Stretch const& each) { return each.end.kind; });
        stretches.erase(stretches.begin(), lost);
        if (stretches.empty())
            stretches.emplace_back();
        stretches.front().untold.clear();
        stretches.front().modified.clear();
        secondHalves.clear();
        renamed = 0;
    }

    void Lost() const
    {
        Require(stretches.front().untold.empty() && IsEndedBy(End::Kind::lost), "Lost without a reason");
    }

    void EndOfRecords() const { Require(!awaitsSecondHalf, "A renaming without its second half"); }
    void Finish() const { Require(stretches.size() == 1 && stretches.front().untold.empty(), "Something isn't told"); }
    bool IsHeldRightly() const { return stretches.size() == 1; }

private:
    struct End
    {
        enum class Kind
        {
            none,
            name,
            overflow,
            lost
        };
        Kind kind = Kind::none;
        std::pair<DWORD, std::u16string> change;
    };
    struct Stretch
    {
        std::set<std::u16string> untold;
        std::set<std::u16string> modified;
        struct End end;
    };

    void End(struct End end)
    {
        stretches.back().end = std::move(end);
        stretches.emplace_back();
    }
    bool IsEndedBy(enum End::Kind kind) const { return stretches.front().end.kind == kind; }

    DWORD const filter;
    std::deque<Stretch> stretches{1};
    std::deque<std::u16string> secondHalves;
    std::uint32_t renamed = 0;
    bool awaitsSecondHalf = false;
};

class Run
{
public:
    Run(Input input, DWORD filter) : input(input), queue(ownWatch, filter), expectation(filter) {}

    void All()
    {
        while (!input.IsEmpty() && !isLost)
            Step();
        while (!isLost && (!events.empty() || !queue.IsEmpty()))
        {
            Read(events.size());
            Take(4096);
            if (outcome == ChangeQueue::Outcome::held)
                now = queue.Due(); // also when the queue is full of what is held
        }
        if (!isLost)
            expectation.Finish();
    }

private:
    void Step()
    {
        switch (input.Next())
        {
        case '+':
            return Happen(IN_CREATE);
        case '-':
            return Happen(IN_DELETE);
        case 'm':
            return Happen(IN_MODIFY);
        case 'a':
            return Happen(IN_ATTRIB);
        case 'o': // out
            return Happen(IN_MOVED_FROM);
        case 'i': // in
            return Happen(IN_MOVED_TO, cookie++);
        case 'r':
            return Rename(0);
        case 'D': // of a directory
            return Rename(IN_ISDIR);
        case 'd':
            return Happen(IN_CREATE | IN_ISDIR);
        case 's': // itself
            return events.push_back({ownWatch, IN_ATTRIB | IN_ISDIR, 0, ""});
        case 'p': // parent
            return events.push_back({otherWatch, IN_DELETE, 0, input.Name()});
        case '!':
            return events.push_back({-1, IN_Q_OVERFLOW, 0, ""});
        case 'x':
            return events.push_back({ownWatch, IN_MOVE_SELF, 0, ""});
        case 'w':
            now += std::chrono::microseconds(100) * input.Next();
            return;
        case '<':
            return Read(input.Next());
        case '>':
            return Take(static_cast<DWORD>(input.Next()) * 4);
        default:
            return;
        }
    }

    void Happen(std::uint32_t mask, std::uint32_t ofCookie = 0)
    {
        events.push_back({ownWatch, mask, ofCookie, input.Name()});
    }

    // Writes may come between the halves, but no change of names. A few of them: as many as fill the queue in the
    // middle of a renaming don't happen.
    void Rename(std::uint32_t kind)
    {
        events.push_back({ownWatch, IN_MOVED_FROM | kind, cookie, input.Name()});
        std::string const newName = input.Name();
        for (int count = input.Next() % 4; count > 0; --count)
            Happen(IN_MODIFY);
        events.push_back({ownWatch, IN_MOVED_TO | kind, cookie++, newName});
    }

    void Read(std::size_t most)
    {
        std::span<std::byte> space = queue.FreeSpace();
        std::size_t count = 0;
        for (; most > 0 && !events.empty() && events.front().Size() <= space.size() - count; --most)
        {
            events.front().Write(space.data() + count);
            count += events.front().Size();
            expectation.Add(events.front());
            events.pop_front();
        }
        queue.Added(count);
    }

    void Take(DWORD size)
    {
        auto const buffer = std::make_unique<std::uint32_t[]>(size / 4); // exactly as large, for the sanitizer
        auto* const bytes = reinterpret_cast<std::byte*>(buffer.get());
        outcome = queue.Take(bytes, size, now, false);
        if (outcome == ChangeQueue::Outcome::incomplete)
        {
            // Once the renaming has ended its second half is there, and maybe more.
            auto const end = std::ranges::find_if(events, [](Event const& event)
                                                  { return event.IsOwn(IN_CREATE | IN_DELETE | IN_MOVE); });
            bool const isSecond = end != events.end() && (end->mask & IN_MOVED_TO) != 0;
            auto const needed = isSecond ? static_cast<std::size_t>(end - events.begin()) + 1 : 0;
            std::size_t const before = events.size();
            Read(needed + input.Next() % 4);
            if (before - events.size() < needed)
                return; // no room, in a queue that is full: not of this world
            outcome = queue.Take(bytes, size, now, true);
            Require(outcome != ChangeQueue::Outcome::incomplete, "Incomplete when all is there");
        }
        switch (outcome)
        {
        case ChangeQueue::Outcome::records:
            return Records(bytes, size);
        case ChangeQueue::Outcome::overflow:
            return expectation.Overflowed(size, IsAllGone());
        case ChangeQueue::Outcome::lost:
            expectation.Lost();
            Require(queue.Take(bytes, size, now, false) == outcome, "Lost, and found again");
            isLost = true;
            return;
        case ChangeQueue::Outcome::held:
            Require(queue.Due() > now && queue.Due() <= now + std::chrono::milliseconds(5), "Due at a wrong time");
            return Require(expectation.IsHeldRightly(), "A name is held");
        case ChangeQueue::Outcome::nothing:
            Require(queue.IsEmpty(), "Nothing, but not empty");
            return expectation.Finish();
        case ChangeQueue::Outcome::incomplete:
            return;
        }
    }

    bool IsAllGone() const
    {
        auto const copy = std::make_unique<ChangeQueue>(queue);
        return copy->IsEmpty() || copy->Take(nullptr, 0, now, true) == ChangeQueue::Outcome::lost;
    }

    void Records(std::byte const* bytes, DWORD size)
    {
        std::size_t const end = queue.Written();
        Require(end <= size, "More than the buffer");
        for (std::size_t place = 0;;)
        {
            Require(end - place >= offsetof(FILE_NOTIFY_INFORMATION, FileName), "A record's head outside");
            auto const& record = *reinterpret_cast<FILE_NOTIFY_INFORMATION const*>(bytes + place);
            std::size_t const length = offsetof(FILE_NOTIFY_INFORMATION, FileName) + std::size_t{record.FileNameLength};
            Require(length % 2 == 0 && length <= end - place, "A record outside");
            auto const* const begin = record.FileName;
            expectation.Told(record.Action, {begin, begin + record.FileNameLength / 2});
            if (record.NextEntryOffset == 0)
                return Require(place + length == end, "The chain ends early"), expectation.EndOfRecords();
            Require(record.NextEntryOffset == (length + 3) / 4 * 4, "A gap in the chain");
            place += record.NextEntryOffset;
            Require(place < end, "The chain leads outside");
        }
    }

    Input input;
    ChangeQueue queue;
    Expectation expectation;
    std::deque<Event> events; // that nobody has read
    std::uint32_t cookie = 1;
    nanoseconds now{1'000'000'000};
    ChangeQueue::Outcome outcome = ChangeQueue::Outcome::nothing;
    bool isLost = false;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    Input input({data, size});
    DWORD const names = input.Next() & (FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME);
    Run(input, names | FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_ATTRIBUTES).All();
    return 0;
}
