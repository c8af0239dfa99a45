// What a monitor makes of what the platform says, and how it lives.
#include "Vok/DirectoryMonitorImpl.h"

#include "Support/ChangeRecorder.h"
#include "Support/ChildProcess.h"
#include "Support/LogRecorder.h"
#include "Support/TestDrive.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cstring>
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

// A directory of which a platform says what a test makes up.
struct ScriptedDirectory : DirInfo
{
    ScriptedDirectory(BOOL result, DWORD code, DWORD byteCount)
        : DirInfo(L"C:\\data", false, 0x11), result(result), code(code), byteCount(byteCount)
    {
    }
    HANDLE OpenDirectory(std::wstring const&) override { return nullptr; } // Cancel leaves the platform alone
    bool ReadChanges(DWORD*) override { return ++readings > 0; }
    DWORD LastError() override { return code; }
    BOOL OverlappedResult(DWORD* bytesTransferred) override { return *bytesTransferred = byteCount, result; }

    BOOL result;
    DWORD code;
    DWORD byteCount;
    int readings = 0;
};

// Fills a directory's buffer as the platform does, with rubbish behind each name.
void Fill(DirInfo& directory, std::vector<std::pair<DWORD, std::u16string>> const& changes)
{
    std::memset(directory.buffer, 'x', sizeof directory.buffer);
    unsigned char* place = directory.buffer;
    for (auto const& [action, name] : changes)
    {
        auto* const record = reinterpret_cast<FILE_NOTIFY_INFORMATION*>(place);
        record->Action = action;
        record->FileNameLength = static_cast<DWORD>(name.size() * 2);
        std::ranges::copy(name, record->FileName);
        record->NextEntryOffset = &name == &changes.back().second ? 0 : 64;
        place += 64;
    }
}

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

TEST(DirInfo, TellsWhatTheReadingGave)
{
    std::vector<std::string> const overflow = {"overflow C:\\data"};
    std::vector<std::string> const records = {"removed C:\\data\\a.txt", "unexpected DirectoryAction C:\\data\\12345"};
    struct
    {
        BOOL result;
        DWORD code;
        DWORD byteCount;
        std::vector<std::string> told;
        std::vector<std::string> logged;
        int readings = 2;
    } const cases[] = {
        {TRUE, 0, 0, overflow, {}},
        {FALSE, ERROR_IO_PENDING, 0, {}, {}, 1},
        {FALSE, ERROR_IO_INCOMPLETE, 0, overflow, {"error: Unhandled GetOverlappedResult error [996]"}},
        {FALSE,
         5,
         64,
         records,
         {"error: Unhandled GetOverlappedResult error [5]"}}, // the count alone says what was read
    };
    for (auto const& each : cases)
    {
        ScriptedDirectory directory(each.result, each.code, each.byteCount);
        LogRecorder const recorder(VokLogSeverity::warning);
        directory.Start();
        Fill(directory, {{2, u"a.txt"}, {9, u"12345"}});
        std::vector<std::string> told;
        directory.ProcessNotifications(
            [&](DirectoryChange const& change)
            { told.push_back(WideToUtf8(ToString(change.action) + L' ' + change.path.ToString())); });
        EXPECT_EQ(told, each.told);
        EXPECT_EQ(directory.readings, each.readings);
        EXPECT_EQ(recorder.Lines(), each.logged);
    }
}

TEST(DirectoryMonitor, IsNotMadeWhenADirectoryCannotBeWatched)
{
    TestDrive const drive;
    drive.Write("file");
    drive.Write("a/x");
    std::string const opens = "Start The file was not found. (Windows Error 2). Failed to open directory to monitor ";
    std::string const reads = "RefreshWatch A parameter is wrong. (Windows Error 87). Failed to ReadDirectoryChanges ";
    for (auto const& [name, message] : {std::pair(L"ä", opens), {L"file", reads}})
    {
        std::vector<Path> const directories = {drive.Path(L"a"), drive.Path(name), L"not:tried"};
        WindowsError const error = Thrown<WindowsError>([&] { Watch(directories, nullptr); });
        EXPECT_EQ(WithoutLine(error.what()), "Source/Vok/DirectoryMonitorImpl.cpp: Brindle::Vok::DirInfo::" + message +
                                                 WideToUtf8(drive.Path(name)));
    }
}

TEST(DirectoryMonitor, EndsEarlyWithALineThatSaysWhy)
{
    TestDrive const drive;
    std::pair<DirectoryChangeCallback, std::string> const cases[] = {
        {[](DirectoryChange const&) { throw std::runtime_error("x"); }, "x"},
        {nullptr, std::bad_function_call().what()},
    };
    for (auto const& [callback, what] : cases)
    {
        LogRecorder const recorder(VokLogSeverity::error);
        auto const monitor = Watch({drive.Path()}, callback);
        drive.Write(what);
        WaitForErrors(recorder, 1);
        EXPECT_THAT(recorder.LinesWithFunction(), ElementsAre("Brindle::Vok::DirectoryMonitorImpl::Run: Exception [" +
                                                              what + "] in directory monitor thread proc, exiting"));
    }
}

TEST(DirectoryMonitor, WatchesUpTo63Directories)
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < 300)
        GTEST_SKIP() << "too few descriptors";
    TestDrive const drive;
    std::vector<Path> directories;
    for (int i = 0; i < 63; ++i)
    {
        drive.Write("d" + std::to_string(i) + "/x");
        directories.emplace_back(drive.Path(L"d" + std::to_wstring(i)));
    }
    {
        ChangeRecorder recorder;
        auto const monitor = Watch(directories, recorder.Callback());
        for (int i = 62; i >= 0; --i)
            std::filesystem::remove(drive.Host("d" + std::to_string(i) + "/x"));
        EXPECT_EQ(recorder.Until(63), std::vector<std::string>(63, "removed x"));
    }
    directories.emplace_back(drive.Path());
    LogRecorder const recorder(VokLogSeverity::error);
    {
        auto const monitor = Watch(directories, nullptr);
        WaitForErrors(recorder, 2);
    }
    std::string const message = "A parameter is wrong. (Windows Error 87). Unexpected WaitForMultipleObjects exit code "
                                "4294967295";
    EXPECT_THAT(recorder.LinesWithFunction(),
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
