// What a monitor tells of what really happens on the host.
#include "Support/ChangeRecorder.h"
#include "Support/Descriptors.h"
#include "Support/Directories.h"
#include "Support/LogRecorder.h"
#include "Support/TestDrive.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <random>
#include <set>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace
{

using Lines = std::vector<std::string>;

void Make(std::string const& file)
{
    int const descriptor = ::open(file.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0644);
    ASSERT_GE(descriptor, 0) << file;
    ::close(descriptor);
}

// Where the number of what may wait for a reader is small enough to be exceeded.
std::size_t MostEventsInQueue()
{
    std::size_t most = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most;
    return most;
}

} // namespace

TEST(DirectoryChanges, AreToldInTheirOrder)
{
    struct Row
    {
        char const* what;
        std::function<void(TestDrive const& drive)> run;
        Lines expected;
    };
    std::string const longest(255, 'n');
    Lines burst;
    for (int i = 0; i < 10'000; ++i)
        burst.push_back("added " + std::to_string(i));
    for (Row const& row :
         std::vector<Row>{
             {"written and deleted",
              [](auto& drive)
              {
                  drive.Write("in/a", "x");
                  fs::remove(drive.Host("in/a"));
              },
              {"added a", "modified a", "removed a"}},
             {"renamed inside",
              [](auto& drive) { fs::rename(drive.Host("in/old"), drive.Host("in/new")); },
              {"renamedOldName old", "renamedNewName new"}},
             {"replaced by renaming",
              [](auto& drive)
              {
                  drive.Write("in/a");
                  fs::rename(drive.Host("in/a"), drive.Host("in/old"));
              },
              {"added a", "renamedOldName a", "renamedNewName old"}},
             {"exchanged",
              [](auto& drive)
              {
                  drive.Write("in/a");
                  ::renameat2(AT_FDCWD, drive.Host("in/a").c_str(), AT_FDCWD, drive.Host("in/old").c_str(),
                              RENAME_EXCHANGE);
              },
              {"added a", "renamedOldName a", "renamedNewName old", "renamedOldName old", "renamedNewName a"}},
             {"moved out", [](auto& drive) { fs::rename(drive.Host("in/old"), drive.Host("out/b")); }, {"removed old"}},
             {"moved out and in",
              [](auto& drive)
              {
                  fs::rename(drive.Host("in/old"), drive.Host("out/b"));
                  fs::rename(drive.Host("out/b"), drive.Host("in/c"));
              },
              {"removed old", "added c"}},
             {"linked",
              [](auto& drive) { fs::create_hard_link(drive.Host("in/old"), drive.Host("in/l")); },
              {"added l"}},
             {"a burst",
              [&](auto& drive)
              {
                  for (std::string const& line : burst)
                      Make(drive.Host("in/" + line.substr(6)));
              },
              burst},
             {"truncated", [](auto& drive) { fs::resize_file(drive.Host("in/old"), 0); }, {"modified old"}},
             {"only its mode", [](auto& drive) { ::chmod(drive.Host("in/old").c_str(), 0600); }, {}},
             {"below and directories",
              [](auto& drive)
              {
                  drive.Write("in/sub/x", "x");
                  fs::rename(drive.Host("in/sub"), drive.Host("in/sub2"));
                  fs::create_directory(drive.Host("in/d"));
                  fs::rename(drive.Host("in/d"), drive.Host("out/d"));
              },
              {}},
             {"names",
              [&](auto& drive)
              {
                  for (std::string const& name : {std::string("ä\xF0\x9F\x98\x80"), std::string("b\xFF"), longest})
                      Make(drive.Host("in/" + name));
              },
              {"added ä\xF0\x9F\x98\x80", "added b\xEF\xBF\xBD", "added " + longest}},
         })
    {
        SCOPED_TRACE(row.what);
        TestDrive const drive;
        drive.Write("in/old", "old");
        drive.Write("out/x");
        fs::create_directory(drive.Host("in/sub"));
        WatchedDirectory watched(drive.Path(L"in"));
        row.run(drive);
        EXPECT_EQ(watched.Until(row.expected.size()), row.expected); // also when nothing follows
        Make(drive.Host("in/end"));
        Lines expected = row.expected;
        expected.emplace_back("added end");
        EXPECT_EQ(watched.Until("added end"), expected);
    }
}

TEST(DirectoryChanges, ComeThroughLinksAndMountsOfADirectory)
{
    TestDrive const drive;
    drive.Write("in/x");
    fs::create_directory(drive.Host("mount"));
    fs::create_directory_symlink("in", drive.Host("link"));
    WatchedDirectory link(drive.Path(L"link"));
    Make(drive.Host("in/a"));
    EXPECT_THAT(link.Until(1), ElementsAre("added a"));
    Make(drive.Host("link/b"));
    EXPECT_THAT(link.Until(2), ElementsAre("added a", "added b"));
    if (::mount(drive.Host("in").c_str(), drive.Host("mount").c_str(), nullptr, MS_BIND, nullptr) != 0)
        GTEST_SKIP() << "may not mount";
    {
        WatchedDirectory mount(drive.Path(L"mount"));
        Make(drive.Host("in/c"));
        EXPECT_THAT(mount.Until(1), ElementsAre("added c"));
        EXPECT_EQ(::umount(drive.Host("mount").c_str()), -1); // what is watched stays
    }
    EXPECT_EQ(::umount(drive.Host("mount").c_str()), 0);
}

TEST(DirectoryChanges, SayThatADirectoryHasGone)
{
    struct Row
    {
        char const* what;
        std::function<void(TestDrive const& drive)> run;
    };
    for (Row const& row :
         std::vector<Row>{
             {"deleted", [](auto& drive) { fs::remove(drive.Host("d/in")); }},
             {"renamed", [](auto& drive) { fs::rename(drive.Host("d/in"), drive.Host("d/else")); }},
             {"replaced",
              [](auto& drive)
              {
                  fs::create_directory(drive.Host("e"));
                  fs::rename(drive.Host("e"), drive.Host("d/in"));
              }},
         })
    {
        SCOPED_TRACE(row.what);
        TestDrive const drive;
        fs::create_directories(drive.Host("d/in"));
        LogRecorder const recorder(VokLogSeverity::error);
        {
            WatchedDirectory watched(drive.Path(L"d\\in"));
            fs::create_directory(drive.Host("d/other"));
            fs::remove(drive.Host("d/other")); // not ours
            Make(drive.Host("d/in/a"));
            fs::remove(drive.Host("d/in/a"));
            watched.Until(2);
            row.run(drive);
            EXPECT_THAT(watched.Until(3), ElementsAre("added a", "removed a", "overflow"));
            for (int i = 0; i < 5000 && recorder.Lines().size() < 3; ++i)
                std::this_thread::sleep_for(1ms);
        }
        std::string const refused =
            "Access is denied. (Windows Error 5). Failed to ReadDirectoryChanges " + WideToUtf8(drive.Path(L"d\\in"));
        EXPECT_THAT(recorder.Lines(),
                    ElementsAre("error: Unhandled GetOverlappedResult error [5]", EndsWith(refused),
                                AllOf(HasSubstr("Exception ["),
                                      EndsWith(refused + "] in directory monitor thread proc, exiting"))));
    }
}

// What goes on around it is no concern of the directory's queue, and wakes nobody often.
TEST(DirectoryChanges, AreNotLostToTrafficAroundTheDirectory)
{
    if (MostEventsInQueue() > 100'000)
        GTEST_SKIP() << "too many events may wait";
    TestDrive const drive("/dev/shm");
    drive.Write("in/x");
    std::atomic<bool> isOpen = false;
    ChangeRecorder recorder;
    auto const monitor = MakeDirectoryMonitorFactory()->MakeDirectoryMonitor(
        drive.Path(L"in"),
        [&, record = recorder.Callback()](DirectoryChange const& change)
        {
            isOpen.wait(false);
            record(change);
        });
    Lines expected;
    for (std::size_t i = 0; i < MostEventsInQueue() + 1000; ++i)
    {
        Make(drive.Host("a"));
        fs::remove(drive.Host("a"));
        if (i % 200 != 0)
            continue;
        Make(drive.Host("in/" + std::to_string(i)));
        expected.push_back("added " + std::to_string(i));
    }
    isOpen = true;
    isOpen.notify_all();
    EXPECT_EQ(recorder.Until(expected.size()), expected);
    fs::remove_all(drive.Host("in"));
    EXPECT_EQ(recorder.Until("overflow").back(), "overflow"); // its end is still seen
}

TEST(DirectoryChanges, ThatDidNotFitAreSaidToBeLost)
{
    if (MostEventsInQueue() > 100'000)
        GTEST_SKIP() << "too many events may wait";
    TestDrive const drive;
    fs::create_directories(drive.Host("d/in"));
    Path const watched = drive.Path(L"d\\in");
    std::atomic<bool> isOpen = false;
    ChangeRecorder recorder;
    auto const monitor = MakeDirectoryMonitorFactory()->MakeDirectoryMonitor(
        watched,
        [&, record = recorder.Callback()](DirectoryChange const& change)
        {
            isOpen.wait(false);
            EXPECT_EQ(change.action == DirectoryAction::overflow, change.path.ToString() == watched.ToString());
            record(change);
        });
    for (std::size_t i = 0; i < MostEventsInQueue() / 2 + 1000; ++i)
    {
        Make(drive.Host("d/in/a"));
        fs::remove(drive.Host("d/in/a"));
    }
    fs::rename(drive.Host("d"), drive.Host("e")); // which isn't its own end
    isOpen = true;
    isOpen.notify_all();
    Lines const lines = recorder.Until("overflow");
    EXPECT_EQ(std::ranges::count(lines, "overflow"), 1);
    EXPECT_GE(lines.size(), MostEventsInQueue());
    Make(drive.Host("e/in/b"));
    EXPECT_EQ(recorder.Until("added b").size(), lines.size() + 1);
}

// Of a file that is written in pieces come at most one for each 5 ms and two more, and one after the last.
TEST(DirectoryChanges, OfOneFileDoNotFloodTheHost)
{
    TestDrive const drive;
    std::atomic<int> count = 0;
    std::atomic<std::uintmax_t> sizeSeen = 0;
    auto const monitor =
        MakeDirectoryMonitorFactory()->MakeDirectoryMonitor(drive.Path(),
                                                            [&](DirectoryChange const& change)
                                                            {
                                                                if (change.action != DirectoryAction::modified)
                                                                    return;
                                                                ++count;
                                                                sizeSeen = fs::file_size(drive.Host("storm"));
                                                            });
    for (int const microseconds : {0, 10, 200})
    {
        count = 0;
        fs::remove(drive.Host("storm"));
        int const file = ::open(drive.Host("storm").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
        auto const begin = std::chrono::steady_clock::now();
        for (int i = 0; i < 1000; ++i)
        {
            ASSERT_EQ(::write(file, "piece", 5), 5);
            if (microseconds != 0)
                std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
        }
        auto const written = std::chrono::steady_clock::now();
        ::close(file);
        while (sizeSeen != 5000 && std::chrono::steady_clock::now() < written + 10s)
            std::this_thread::sleep_for(1ms);
        EXPECT_EQ(sizeSeen, 5000U);
        EXPECT_LT(std::chrono::steady_clock::now() - written, 1s);
        std::this_thread::sleep_for(20ms);
        EXPECT_LE(count, (written - begin) / 5ms + 2);
        sizeSeen = 0;
    }
}

// The host tells of a renaming in two events; between them the monitor may be faster than the host.
TEST(DirectoryChanges, KeepTheTwoNamesOfARenamingTogether)
{
    TestDrive const drive("/dev/shm");
    drive.Write("in/name0");
    drive.Write("out/x");
    std::string oldName;
    int pairs = 0;
    int removed = 0;
    std::promise<void> ended;
    auto const monitor = MakeDirectoryMonitorFactory()->MakeDirectoryMonitor(
        drive.Path(L"in"),
        [&](DirectoryChange const& change)
        {
            std::string const name = WideToUtf8(change.path.NameWithExtension());
            // Nothing comes between a pair, and nothing but a move out is told as a removal.
            EXPECT_EQ(change.action == DirectoryAction::renamedNewName, !oldName.empty()) << name;
            if (change.action == DirectoryAction::renamedOldName)
                oldName = name;
            else if (change.action == DirectoryAction::renamedNewName)
            {
                EXPECT_EQ(oldName, "name" + std::to_string(pairs));
                EXPECT_EQ(name, "name" + std::to_string(++pairs));
                oldName.clear();
            }
            else if (change.action == DirectoryAction::removed)
            {
                ++removed;
                EXPECT_EQ(name.front(), 'm');
            }
            else if (name == "end")
                ended.set_value();
        });
    std::atomic<bool> isOver = false;
    int moved = 0;
    std::thread mover(
        [&]
        {
            for (; !isOver; ++moved)
            {
                std::string const name = "m" + std::to_string(moved);
                Make(drive.Host("in/" + name));
                fs::rename(drive.Host("in/" + name), drive.Host("out/" + name));
                if (moved % 8 == 0)
                    std::this_thread::sleep_for(100us);
            }
        });
    for (int i = 0; i < 10'000; ++i)
    {
        fs::rename(drive.Host("in/name" + std::to_string(i)), drive.Host("in/name" + std::to_string(i + 1)));
        if (i % 4 == 0)
            std::this_thread::sleep_for(10us);
    }
    isOver = true;
    mover.join();
    Make(drive.Host("in/end"));
    ended.get_future().wait_for(10s);
    EXPECT_EQ(pairs, 10'000);
    EXPECT_EQ(removed, moved);
}

TEST(DirectoryChanges, LeaveNothingToAChildProcess)
{
    TestDrive const drive;
    WatchedDirectory watched(drive.Path());
    std::string const command = "ls -l /proc/self/fd > " + drive.Host("list");
    ASSERT_EQ(::system(command.c_str()), 0); // NOLINT(cert-env33-c): a command of the test's own
    EXPECT_THAT(drive.Read("list"), testing::Not(testing::ContainsRegex("inotify|eventfd|VokTest[^/]*$")));
}

// A directory's content followed by what is told alone, read anew only after an overflow.
TEST(DirectoryChanges, MirrorADirectory)
{
    int const operations = TakesLong() ? 1'000'000 : 50'000;
    TestDrive const drive("/dev/shm");
    drive.Write("in/x");
    drive.Write("out/x");
    std::set<std::string> mirror;
    std::map<std::string, std::uintmax_t> sizes;
    int overflows = 0;
    std::promise<void> ended;
    auto const read = [&]
    {
        mirror.clear();
        sizes.clear();
        for (fs::directory_entry const& entry : fs::directory_iterator(drive.Host("in")))
        {
            std::error_code gone;
            mirror.insert(entry.path().filename());
            sizes[entry.path().filename()] = fs::file_size(entry, gone);
        }
    };
    read();
    auto monitor = MakeDirectoryMonitorFactory()->MakeDirectoryMonitor(
        drive.Path(L"in"),
        [&, calls = 0, hasEnded = false](DirectoryChange const& change) mutable
        {
            std::string const name = WideToUtf8(change.path.NameWithExtension());
            switch (change.action)
            {
            case DirectoryAction::overflow:
                ++overflows;
                read();
                break;
            case DirectoryAction::added:
            case DirectoryAction::renamedNewName:
                mirror.insert(name); // may be known already, from what was read behind an overflow
                break;
            case DirectoryAction::removed:
            case DirectoryAction::renamedOldName:
                mirror.erase(name);
                break;
            case DirectoryAction::modified:
                break;
            }
            if (change.action != DirectoryAction::removed && change.action != DirectoryAction::renamedOldName)
            {
                std::error_code gone;
                sizes[name] = fs::file_size(drive.Host("in/" + name), gone);
            }
            if (++calls % 20'000 == 0)
                std::this_thread::sleep_for(100ms);  // some of them too slow
            if (!hasEnded && mirror.contains("end")) // also when it was read
            {
                hasEnded = true;
                ended.set_value();
            }
        });
    std::mt19937 random(12345);
    auto const inside = [&] { return drive.Host("in/" + std::to_string(random() % 200)); };
    auto const outside = [&] { return drive.Host("out/" + std::to_string(random() % 200)); };
    for (int i = 0; i < operations; ++i)
    {
        std::string const name = inside();
        switch (random() % 6)
        {
        case 0:
            ::close(::open(name.c_str(), O_CREAT | O_CLOEXEC, 0644));
            break;
        case 1:
            if (int const file = ::open(name.c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0644); file >= 0)
            {
                ASSERT_EQ(::write(file, "x", 1), 1);
                ::close(file);
            }
            break;
        case 2:
            ::unlink(name.c_str());
            break;
        case 3:
            ::rename(name.c_str(), inside().c_str());
            break;
        case 4:
            ::rename(name.c_str(), outside().c_str());
            break;
        default:
            ::rename(outside().c_str(), name.c_str());
        }
    }
    Make(drive.Host("in/end"));
    ASSERT_EQ(ended.get_future().wait_for(60s), std::future_status::ready);
    // What was written last is told of within a moment after it.
    std::this_thread::sleep_for(50ms);
    monitor.reset();
    std::set<std::string> const told = mirror;
    std::map<std::string, std::uintmax_t> const sizesTold = sizes;
    read();
    EXPECT_EQ(told, mirror);
    for (auto const& [name, size] : sizes)
        EXPECT_EQ(sizesTold.contains(name) ? sizesTold.at(name) : 0, size) << name;
    RecordProperty("overflows", overflows);
}
