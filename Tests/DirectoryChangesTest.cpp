// What a monitor tells of what really happens on the host.
#include "Support/ChangeRecorder.h"
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
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::EndsWith;
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

// Takes no change until it is open. An overflow alone is told of the directory itself.
class BlockedMonitor : public ChangeRecorder
{
public:
    explicit BlockedMonitor(Path const& directory)
        : monitor(MakeDirectoryMonitorFactory()->MakeDirectoryMonitor(
              directory,
              [this, directory, record = Callback()](DirectoryChange const& change)
              {
                  isOpen.wait(false);
                  EXPECT_EQ(change.action == DirectoryAction::overflow, change.path.ToString() == directory.ToString());
                  record(change);
              }))
    {
    }
    void Open()
    {
        isOpen = true;
        isOpen.notify_all();
    }

private:
    std::atomic<bool> isOpen = false;
    std::unique_ptr<DirectoryMonitor> monitor;
};

} // namespace

TEST(DirectoryChanges, AreToldInTheirOrder)
{
    TestDrive const drive;
    for (char const* name : {"in/old", "in/sub/x", "out/x"})
        drive.Write(name, "content");
    WatchedDirectory watched(drive.Path(L"in"));
    Lines expected;
    auto const expect = [&](Lines const& more) // also when nothing follows
    {
        expected.insert(expected.end(), more.begin(), more.end());
        EXPECT_EQ(watched.Until(expected.size()), expected);
    };
    drive.Write("in/a", "x");
    ::renameat2(AT_FDCWD, drive.Host("in/a").c_str(), AT_FDCWD, drive.Host("in/old").c_str(), RENAME_EXCHANGE);
    expect(
        {"added a", "modified a", "renamedOldName a", "renamedNewName old", "renamedOldName old", "renamedNewName a"});
    fs::create_hard_link(drive.Host("in/old"), drive.Host("in/link"));
    fs::resize_file(drive.Host("in/a"), 0);
    expect({"added link", "modified a"});
    fs::rename(drive.Host("in/a"), drive.Host("out/a"));
    expect({"removed a"});
    // Nothing of modes, of what is below, and of directories.
    ::chmod(drive.Host("in/old").c_str(), 0600);
    drive.Write("in/sub/x", "x");
    fs::rename(drive.Host("in/sub"), drive.Host("in/sub2"));
    fs::rename(drive.Host("in/sub2"), drive.Host("out/sub"));
    std::string const longest(255, 'n');
    for (std::string const& name : {std::string("ä\xF0\x9F\x98\x80"), std::string("b\xFF"), longest})
        Make(drive.Host("in/" + name));
    expect({"added ä\xF0\x9F\x98\x80", "added b\xEF\xBF\xBD", "added " + longest});
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
    std::function<void(fs::path const&)> const ends[] = {
        [](fs::path const& in) { fs::remove(in); },
        [](fs::path const& in) { fs::rename(in, in.parent_path() / "else"); },
        [](fs::path const& in) { fs::rename(in.parent_path().parent_path() / "new", in); },
    };
    for (auto const& end : ends)
    {
        SCOPED_TRACE(&end - ends);
        TestDrive const drive;
        fs::create_directories(drive.Host("d/in"));
        fs::create_directory(drive.Host("new"));
        LogRecorder const recorder(VokLogSeverity::error);
        {
            WatchedDirectory watched(drive.Path(L"d\\in"));
            fs::create_directory(drive.Host("d/other"));
            fs::remove(drive.Host("d/other")); // not ours
            Make(drive.Host("d/in/a"));
            fs::remove(drive.Host("d/in/a"));
            watched.Until(2);
            end(drive.Host("d/in"));
            EXPECT_THAT(watched.Until(3), ElementsAre("added a", "removed a", "overflow"));
            for (int i = 0; i < 5000 && recorder.Lines().size() < 3; ++i)
                std::this_thread::sleep_for(1ms);
        }
        std::string const refused =
            "Access is denied. (Windows Error 5). Failed to ReadDirectoryChanges " + WideToUtf8(drive.Path(L"d\\in"));
        EXPECT_THAT(recorder.Lines(), ElementsAre("error: Unhandled GetOverlappedResult error [5]", EndsWith(refused),
                                                  EndsWith(refused + "] in directory monitor thread proc, exiting")));
    }
}

// What goes on around it is no concern of the directory's queue, and wakes nobody often.
TEST(DirectoryChanges, AreNotLostToTrafficAroundTheDirectory)
{
    if (MostEventsInQueue() > 100'000)
        GTEST_SKIP() << "too many events may wait";
    TestDrive const drive("/dev/shm");
    drive.Write("in/x");
    BlockedMonitor watched(drive.Path(L"in"));
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
    watched.Open();
    EXPECT_EQ(watched.Until(expected.size()), expected);
    fs::remove_all(drive.Host("in"));
    EXPECT_EQ(watched.Until("overflow").back(), "overflow"); // its end is still seen
}

TEST(DirectoryChanges, ThatDidNotFitAreSaidToBeLost)
{
    if (MostEventsInQueue() > 100'000)
        GTEST_SKIP() << "too many events may wait";
    TestDrive const drive;
    fs::create_directories(drive.Host("d/in"));
    BlockedMonitor watched(drive.Path(L"d\\in"));
    for (std::size_t i = 0; i < MostEventsInQueue() / 2 + 1000; ++i)
    {
        Make(drive.Host("d/in/a"));
        fs::remove(drive.Host("d/in/a"));
    }
    fs::rename(drive.Host("d"), drive.Host("e")); // which isn't its own end
    watched.Open();
    Lines const lines = watched.Until("overflow");
    EXPECT_EQ(std::ranges::count(lines, "overflow"), 1);
    EXPECT_GE(lines.size(), MostEventsInQueue());
    Make(drive.Host("e/in/b"));
    EXPECT_EQ(watched.Until("added b").size(), lines.size() + 1);
}

// Of a file that is written in pieces come at most one for each 5 ms and two more.
TEST(DirectoryChanges, OfOneFileDoNotFloodTheHost)
{
    TestDrive const drive;
    std::ofstream file(drive.Host("storm"));
    WatchedDirectory watched(drive.Path());
    auto const begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 1000; ++i)
    {
        file << "piece" << std::flush;
        if (i % 2 == 0)
            std::this_thread::sleep_for(100us);
    }
    auto const written = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(50ms); // the last one comes within a moment
    EXPECT_LE(std::ssize(watched.Until(1)), (written - begin) / 5ms + 2);
}

// The host tells of a renaming in two events; between them the monitor may be faster than the host.
TEST(DirectoryChanges, KeepTheTwoNamesOfARenamingTogether)
{
    TestDrive const drive("/dev/shm");
    drive.Write("in/name0");
    drive.Write("out/x");
    WatchedDirectory watched(drive.Path(L"in"));
    std::atomic<bool> isOver = false;
    int moved = 0;
    std::thread mover(
        [&]
        {
            for (; !isOver; ++moved)
            {
                Make(drive.Host("in/moved"));
                fs::rename(drive.Host("in/moved"), drive.Host("out/moved"));
                if (moved % 8 == 0)
                    std::this_thread::sleep_for(100us);
            }
        });
    int renamed = 0;
    for (; renamed < 10'000; ++renamed)
    {
        fs::rename(drive.Host("in/name" + std::to_string(renamed)),
                   drive.Host("in/name" + std::to_string(renamed + 1)));
        if (renamed % 4 == 0)
            std::this_thread::sleep_for(10us);
    }
    isOver = true;
    mover.join();
    Make(drive.Host("in/end"));
    // Nothing comes between a pair, and nothing but a move out is told as a removal.
    int pairs = 0;
    int removed = 0;
    Lines const lines = watched.Until("added end");
    for (auto line = lines.begin(); line != lines.end(); ++line)
    {
        if (*line == "removed moved")
            ++removed;
        else if (*line != "added moved" && *line != "added end")
        {
            ASSERT_EQ(*line, "renamedOldName name" + std::to_string(pairs));
            ASSERT_EQ(*++line, "renamedNewName name" + std::to_string(++pairs));
        }
    }
    EXPECT_EQ(pairs, renamed);
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

// A directory's content and sizes followed by what is told alone, read anew only after an overflow.
TEST(DirectoryChanges, MirrorADirectory)
{
    int const operations = TakesLong() ? 1'000'000 : 50'000;
    TestDrive const drive("/dev/shm");
    drive.Write("in/x");
    drive.Write("out/x");
    std::map<std::string, std::uintmax_t> mirror;
    int overflows = 0;
    std::promise<void> ended;
    auto const look = [&](std::string const& name)
    {
        std::error_code gone;
        mirror[name] = fs::file_size(drive.Host("in/" + name), gone);
    };
    auto const read = [&]
    {
        mirror.clear();
        for (fs::directory_entry const& entry : fs::directory_iterator(drive.Host("in")))
            look(entry.path().filename());
    };
    read();
    auto monitor = MakeDirectoryMonitorFactory()->MakeDirectoryMonitor(
        drive.Path(L"in"),
        [&, calls = 0, hasEnded = false](DirectoryChange const& change) mutable
        {
            std::string const name = WideToUtf8(change.path.NameWithExtension());
            if (change.action == DirectoryAction::overflow)
            {
                ++overflows;
                read();
            }
            else if (change.action == DirectoryAction::removed || change.action == DirectoryAction::renamedOldName)
                mirror.erase(name);
            else if (change.action != DirectoryAction::modified || mirror.contains(name))
                look(name); // added ones may be known already, from what was read behind an overflow
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
    auto const told = mirror;
    read();
    EXPECT_EQ(told, mirror);
    RecordProperty("overflows", overflows);
}
