#include "ChangeQueue.h"

#include "Support/StandIn.h"

#include <cstring>

using namespace Brindle::Vok::Platform;
using namespace std::chrono_literals;

namespace
{

constexpr int watch = 1;
constexpr DWORD monitorFilter = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_LAST_WRITE;

struct Event
{
    std::uint32_t mask;
    std::string name;
    std::uint32_t cookie = 0;
    int wd = watch;
};

// What the host would tell next.
void Tell(ChangeQueue& queue, std::vector<Event> const& events)
{
    for (Event const& event : events)
    {
        std::span<std::byte> const space = queue.FreeSpace();
        auto const length = static_cast<std::uint32_t>(event.name.empty() ? 0 : (event.name.size() / 16 + 1) * 16);
        ASSERT_LE(sizeof(inotify_event) + length, space.size());
        auto* const told = reinterpret_cast<inotify_event*>(space.data());
        told->wd = event.wd;
        told->mask = event.mask;
        told->cookie = event.cookie;
        told->len = length;
        std::memset(told->name, 0, length);
        std::memcpy(told->name, event.name.data(), event.name.size());
        queue.Added(sizeof *told + length);
    }
}

// "+a -b ~c <d >e" of what is taken, or the outcome's name.
std::string Take(ChangeQueue& queue, std::chrono::nanoseconds now = 1s, bool isComplete = false, DWORD size = 4096)
{
    alignas(8) std::byte buffer[4096];
    ChangeQueue::Outcome const outcome = queue.Take(buffer, size, now, isComplete);
    constexpr char const* names[] = {"nothing", "records", "overflow", "lost", "held", "incomplete"};
    if (outcome != ChangeQueue::Outcome::records)
        return names[static_cast<std::size_t>(outcome)];
    std::string text;
    for (std::byte const* place = buffer;;)
    {
        auto const& record = *reinterpret_cast<FILE_NOTIFY_INFORMATION const*>(place);
        text += text.empty() ? "" : " ";
        text += "?+-~<>"[record.Action];
        for (DWORD i = 0; i < record.FileNameLength / sizeof(char16_t); ++i)
            text += record.FileName[i] < 0x80 ? static_cast<char>(record.FileName[i]) : '?';
        EXPECT_LE(reinterpret_cast<std::byte const*>(record.FileName) + record.FileNameLength,
                  buffer + queue.Written());
        if (record.NextEntryOffset == 0)
            return text;
        EXPECT_EQ(record.NextEntryOffset % alignof(FILE_NOTIFY_INFORMATION), 0U);
        place += record.NextEntryOffset;
    }
}

} // namespace

TEST(ChangeQueue, TranslatesWhatTheHostTells)
{
    constexpr DWORD everything = 0x17F;
    struct Row
    {
        char const* what;
        std::vector<Event> events;
        std::string expected;
        DWORD filter = monitorFilter;
    };
    for (Row const& row : std::vector<Row>{
             {"names come and go", {{IN_CREATE, "a"}, {IN_DELETE, "b"}}, "+a -b"},
             {"a file is moved in", {{IN_MOVED_TO, "a", 7}}, "+a"},
             {"a renaming", {{IN_MOVED_FROM, "a", 7}, {IN_MOVED_TO, "b", 7}}, "<a >b"},
             {"a write between its halves",
              {{IN_MOVED_FROM, "a", 7}, {IN_MODIFY, "x"}, {IN_MOVED_TO, "b", 7}},
              "<a >b ~x"},
             {"moved out and in", {{IN_MOVED_FROM, "a", 7}, {IN_MOVED_TO, "b", 8}}, "-a +b"},
             {"nobody knows yet", {{IN_MOVED_FROM, "a", 7}}, "incomplete"},
             {"what comes before goes first", {{IN_CREATE, "a"}, {IN_MOVED_FROM, "a", 7}}, "+a"},
             {"writes are one", {{IN_MODIFY, "a"}, {IN_MODIFY, "b"}, {IN_MODIFY, "a"}}, "~a ~b"},
             {"but not past a change of names, and the last one is held",
              {{IN_MODIFY, "a"}, {IN_DELETE, "a"}, {IN_CREATE, "a"}, {IN_MODIFY, "a"}},
              "~a -a +a"},
             {"nothing of directories",
              {{IN_CREATE | IN_ISDIR, "d"},
               {IN_MOVED_FROM | IN_ISDIR, "d", 7},
               {IN_MOVED_TO | IN_ISDIR, "e", 7},
               {IN_DELETE | IN_ISDIR, "e"}},
              "nothing"},
             {"the host lost some", {{IN_Q_OVERFLOW, "", 0, -1}, {IN_CREATE, "a"}}, "overflow"},
             {"the directory goes", {{IN_MOVE_SELF, ""}}, "lost"},
             {"directories alone", {{IN_CREATE | IN_ISDIR, "d"}, {IN_CREATE, "a"}}, "+d", FILE_NOTIFY_CHANGE_DIR_NAME},
             {"status and reading", {{IN_ATTRIB, "a"}, {IN_ACCESS, "b"}}, "~a ~b", everything},
         })
    {
        SCOPED_TRACE(row.what);
        ChangeQueue queue(watch, row.filter);
        Tell(queue, row.events);
        EXPECT_EQ(Take(queue), row.expected);
    }
}

TEST(ChangeQueue, FillsABufferWithWholeRecordsAndKeepsTheOthers)
{
    ChangeQueue queue(watch, monitorFilter);
    Tell(queue, {{IN_CREATE, "abc"}, {IN_MOVED_FROM, "abc", 7}, {IN_MOVED_TO, "d", 7}, {IN_DELETE, "d"}});
    // 18 bytes, 2 to align, and then a pair of 18 + 2 and 14.
    EXPECT_EQ(Take(queue, 1s, false, 20 + 20 + 13), "+abc");
    EXPECT_EQ(Take(queue, 1s, false, 20 + 14), "<abc >d");
    EXPECT_EQ(Take(queue, 1s, false, 13), "overflow"); // nothing fits, ever
    EXPECT_EQ(Take(queue), "nothing");
}

TEST(ChangeQueue, HoldsBackWhatWasWrittenAMomentAgo)
{
    ChangeQueue queue(watch, monitorFilter);
    Tell(queue, {{IN_MODIFY, "a"}});
    EXPECT_EQ(Take(queue, 1000ms), "~a");
    Tell(queue, {{IN_MODIFY, "a"}});
    EXPECT_EQ(Take(queue, 1001ms), "held");
    EXPECT_EQ(queue.Due(), 1005ms);
    EXPECT_EQ(Take(queue, 1004ms), "held");
    EXPECT_EQ(Take(queue, 1005ms), "~a");
    Tell(queue, {{IN_MODIFY, "a"}, {IN_MODIFY, "b"}}); // one that needn't wait overtakes the other
    EXPECT_EQ(Take(queue, 1006ms), "~b");
    Tell(queue, {{IN_MODIFY, "a"}, {IN_DELETE, "a"}}); // but no change of names does
    EXPECT_EQ(Take(queue, 1007ms), "~a -a");
    Tell(queue, {{IN_MODIFY, "b"}, {IN_CREATE | IN_ISDIR, "d"}}); // what nobody wants doesn't matter
    EXPECT_EQ(Take(queue, 1008ms), "held");
}
