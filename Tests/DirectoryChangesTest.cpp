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
#include <map>
#include <random>
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

} // namespace

TEST(DirectoryChanges, AreToldInTheirOrder)
{
    TestDrive const drive;
    for (char const* name : {"in/old", "in/sub/x", "out/x"})
        drive.Write(name, "content");
    fs::create_directory_symlink("in", drive.Host("link"));
    WatchedDirectory watched(drive.Path(L"link"));
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
    fs::rename(drive.Host("in/sub"), drive.Host("out/sub"));
    std::string const longest(255, 'n');
    for (char const* name : {"b\xFF", longest.c_str()})
        drive.Write(std::string("in/") + name);
    expect({"added b\xEF\xBF\xBD", "added " + longest});
}

TEST(DirectoryChanges, SayThatADirectoryHasGone)
{
    TestDrive const drive;
    drive.Write("d/in/a");
    LogRecorder const recorder(VokLogSeverity::error);
    WatchedDirectory watched(drive.Path(L"d\\in"));
    fs::create_directory(drive.Host("d/other"));
    fs::remove(drive.Host("d/other")); // not ours
    fs::remove(drive.Host("d/in/a"));
    watched.Until(1);
    fs::rename(drive.Host("d/in"), drive.Host("d/else"));
    EXPECT_THAT(watched.Until(2), ElementsAre("removed a", "overflow"));
    for (int i = 0; i < 5000 && recorder.Lines().size() < 3; ++i)
        std::this_thread::sleep_for(1ms);
    std::string const refused =
        "Access is denied. (Windows Error 5). Failed to ReadDirectoryChanges " + WideToUtf8(drive.Path(L"d\\in"));
    EXPECT_THAT(recorder.Lines(), ElementsAre("error: Unhandled GetOverlappedResult error [5]", EndsWith(refused),
                                              EndsWith(refused + "] in directory monitor thread proc, exiting")));
}

TEST(DirectoryChanges, ThatDidNotFitAreSaidToBeLost)
{
    std::size_t most = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most;
    if (most > 100'000)
        GTEST_SKIP() << "too many events may wait";
    TestDrive const drive;
    fs::create_directories(drive.Host("d/in"));
    std::atomic<bool> isOpen = false;
    ChangeRecorder recorder;
    auto const monitor = MakeDirectoryMonitorFactory()->MakeDirectoryMonitor(
        drive.Path(L"d\\in"),
        [&, record = recorder.Callback()](DirectoryChange const& change)
        {
            isOpen.wait(false);
            EXPECT_EQ(change.action == DirectoryAction::overflow, change.path.ToString() == drive.Path(L"d\\in"));
            record(change);
        });
    for (std::size_t i = 0; i < most / 2 + 1000; ++i)
    {
        drive.Write("d/in/a");
        fs::remove(drive.Host("d/in/a"));
    }
    fs::rename(drive.Host("d"), drive.Host("e")); // which isn't its own end
    isOpen = true;
    isOpen.notify_all();
    Lines const lines = recorder.Until("overflow");
    EXPECT_EQ(std::ranges::count(lines, "overflow"), 1);
    EXPECT_GE(lines.size(), most);
    drive.Write("e/in/b");
    EXPECT_EQ(recorder.Until("added b").size(), lines.size() + 1);
}

// A directory's content and sizes followed by what is told alone, read anew only after an overflow.
TEST(DirectoryChanges, MirrorADirectory)
{
    int const operations = TakesLong() ? 1'000'000 : 50'000;
    TestDrive const drive("/dev/shm");
    drive.Write("in/x");
    drive.Write("out/x");
    std::map<std::string, std::uintmax_t> mirror;
    std::atomic<bool> hasEnded = false;
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
        [&, calls = 0](DirectoryChange const& change) mutable
        {
            std::string const name = WideToUtf8(change.path.NameWithExtension());
            if (change.action == DirectoryAction::overflow)
                read();
            else if (change.action == DirectoryAction::removed || change.action == DirectoryAction::renamedOldName)
                mirror.erase(name);
            else if (change.action != DirectoryAction::modified || mirror.contains(name))
                look(name); // added ones may be known already, from what was read behind an overflow
            if (++calls % 20'000 == 0)
                std::this_thread::sleep_for(100ms); // some of them too slow
            hasEnded = mirror.contains("end");      // also when it was read
        });
    std::mt19937 random(12345);
    auto const inside = [&] { return drive.Host("in/" + std::to_string(random() % 200)); };
    auto const outside = [&] { return drive.Host("out/" + std::to_string(random() % 200)); };
    for (int i = 0; i < operations; ++i)
    {
        std::string const name = inside();
        switch (random() % 4)
        {
        case 0:
            std::ofstream(name, std::ios::app) << std::string(random() % 2, 'x');
            break;
        case 1:
            ::unlink(name.c_str());
            break;
        case 2:
            ::rename(name.c_str(), (random() % 2 == 0 ? inside() : outside()).c_str());
            break;
        default:
            ::rename(outside().c_str(), name.c_str());
        }
    }
    drive.Write("in/end");
    for (int i = 0; i < 6000 && !hasEnded; ++i)
        std::this_thread::sleep_for(10ms);
    // What was written last is told of within a moment after it.
    std::this_thread::sleep_for(50ms);
    monitor.reset();
    auto const told = mirror;
    read();
    EXPECT_EQ(told, mirror);
}
