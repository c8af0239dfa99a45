// How a monitor lives.
#include "Support/ChangeRecorder.h"
#include "Support/ChildProcess.h"
#include "Support/Failures.h"
#include "Support/TestDrive.h"

#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <stdexcept>
#include <sys/resource.h>
#include <thread>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::EndsWith;

namespace
{

void WaitForErrors(LogRecorder const& recorder, std::size_t count)
{
    auto const end = std::chrono::steady_clock::now() + 10s;
    while (recorder.Lines().size() < count && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(1ms);
}

std::unique_ptr<DirectoryMonitor> Watch(std::vector<Path> const& directories, DirectoryChangeCallback callback)
{
    return MakeDirectoryMonitorFactory()->MakeDirectoryMonitor(directories, std::move(callback));
}

} // namespace

TEST(DirectoryMonitor, IsNotMadeWhenADirectoryCannotBeWatched)
{
    TestDrive const drive;
    drive.Write("file");
    drive.Write("a/x");
    std::string const opens = "Start The file was not found. (Windows Error 2). Failed to open directory to monitor ";
    std::string const refuses =
        "Start The directory's name is not valid. (Windows Error 267). Failed to open directory "
        "to monitor ";
    for (auto const& [name, message] : {std::pair(L"ä", opens), {L"file", refuses}})
    {
        std::vector<Path> const directories = {drive.Path(L"a"), drive.Path(name), L"not:tried"};
        auto const error = Thrown<WindowsError>([&] { Watch(directories, nullptr); });
        EXPECT_EQ(WithoutLine(error.what()), "Source/Vok/DirectoryMonitorImpl.cpp: Brindle::Vok::DirInfo::" + message +
                                                 WideToUtf8(drive.Path(name)));
    }
}

TEST(DirectoryMonitor, EndsEarlyWithALineThatSaysWhy)
{
    TestDrive const drive;
    LogRecorder const recorder(VokLogSeverity::error);
    auto const monitor = Watch({drive.Path()}, [](DirectoryChange const&) { throw std::runtime_error("x"); });
    drive.Write("a");
    WaitForErrors(recorder, 1);
    EXPECT_THAT(recorder.LinesWithFunction(), ElementsAre("Brindle::Vok::DirectoryMonitorImpl::Run: Exception [x] in "
                                                          "directory monitor thread proc, exiting"));
}

TEST(DirectoryMonitor, WatchesUpTo63Directories)
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < 300)
        GTEST_SKIP() << "too few descriptors";
    TestDrive const drive;
    std::vector<Path> directories(63, drive.Path());
    {
        ChangeRecorder recorder;
        auto const monitor = Watch(directories, recorder.Callback());
        drive.Write("x");
        EXPECT_EQ(recorder.Until(63), std::vector<std::string>(63, "added x"));
    }
    directories.emplace_back(drive.Path());
    LogRecorder const recorder(VokLogSeverity::error);
    auto const monitor = Watch(directories, nullptr);
    WaitForErrors(recorder, 2);
    std::string const message =
        "A parameter is wrong. (Windows Error 87). Unexpected WaitForMultipleObjects exit code 4294967295";
    EXPECT_THAT(recorder.Lines(),
                ElementsAre(EndsWith(message), EndsWith(message + "] in directory monitor thread proc, exiting")));
}

TEST(DirectoryMonitor, EndsTheProcessForWhatNobodyCanHandle)
{
    TestDrive const drive;
    auto const throws = [&]
    {
        auto const monitor = Watch({drive.Path()}, [](DirectoryChange const&) { throw 1; });
        drive.Write("a");
        std::this_thread::sleep_for(10s);
    };
    EXPECT_EQ(InChild(throws), -SIGABRT);
    auto const endsItself = [&]
    {
        std::unique_ptr<DirectoryMonitor> monitor;
        monitor = Watch({drive.Path()}, [&](DirectoryChange const&) { monitor.reset(); });
        drive.Write("b");
        std::this_thread::sleep_for(10s);
    };
    EXPECT_EQ(InChild(endsItself), -SIGABRT);
}

TEST(DirectoryMonitor, ComesAndGoesWhileFilesDoAndTellsNothingAfterItsEnd)
{
    TestDrive const drive;
    std::atomic<int> calls = 0;
    std::jthread const writer(
        [&](std::stop_token const& stops)
        {
            for (int i = 0; !stops.stop_requested(); ++i)
                drive.Write("f" + std::to_string(i % 10));
        });
    auto const watch = [&]
    {
        for (std::size_t round = 0; round < 100; ++round)
        {
            std::atomic<bool> isAlive = true;
            auto const callback = [&](DirectoryChange const&)
            {
                ++calls;
                std::this_thread::yield();
                EXPECT_TRUE(isAlive);
            };
            Watch(std::vector<Path>(round % 4, drive.Path()), callback);
            isAlive = false;
        }
    };
    std::thread other(watch);
    watch();
    other.join();
    EXPECT_GT(calls, 0);
}
