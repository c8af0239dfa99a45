// What a monitor makes of what the platform says, and how it lives.
#include "Vok/DirectoryMonitorImpl.h"

#include "Support/ChangeRecorder.h"
#include "Support/ChildProcess.h"
#include "Support/Descriptors.h"
#include "Support/LogRecorder.h"
#include "Support/TestDrive.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <future>
#include <stdexcept>
#include <sys/resource.h>

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
    constexpr char functionAndText[] =
        "Brindle::Vok::DirInfo::ProcessNotifications: Unhandled GetOverlappedResult error ";
    std::vector<std::string> const overflow = {"overflow C:\\data"};
    std::vector<std::string> const records = {"removed C:\\data\\a.txt", "renamedOldName C:\\data\\b",
                                              "renamedNewName C:\\data\\ä",
                                              "unexpected DirectoryAction C:\\data\\12345"};
    struct
    {
        BOOL result;
        DWORD code;
        DWORD byteCount;
        std::vector<std::string> expected;
        int readings;
    } const cases[] = {
        {TRUE, 0, 0, overflow, 2},  {FALSE, ERROR_IO_PENDING, 0, {}, 1}, {FALSE, ERROR_IO_INCOMPLETE, 0, overflow, 2},
        {FALSE, 5, 64, records, 2}, // the count alone says what was read
        {TRUE, 0, 1, records, 2},
    };
    for (auto const& each : cases)
    {
        ScriptedDirectory directory(each.result, each.code, each.byteCount);
        LogRecorder const recorder(VokLogSeverity::warning);
        directory.Start();
        Fill(directory, {{2, u"a.txt"}, {4, u"b"}, {5, u"ä"}, {9, u"12345"}});
        std::vector<std::string> told;
        directory.ProcessNotifications(
            [&](DirectoryChange const& change)
            { told.push_back(WideToUtf8(ToString(change.action) + L' ' + change.path.ToString())); });
        EXPECT_EQ(told, each.expected);
        EXPECT_EQ(directory.readings, each.readings);
        std::vector<std::string> logged;
        if (each.code != 0 && each.readings == 2)
            logged.push_back(functionAndText + ('[' + std::to_string(each.code) + ']'));
        EXPECT_EQ(recorder.LinesWithFunction(), logged);
    }
}

TEST(DirInfo, LosesTheOtherRecordsToACallbackThatThrows)
{
    ScriptedDirectory directory(TRUE, 0, 1);
    directory.Start();
    Fill(directory, {{1, u"a"}, {1, u"b"}, {1, u"c"}});
    int calls = 0;
    auto const callback = [&](DirectoryChange const&)
    {
        ++calls;
        throw std::runtime_error("x");
    };
    EXPECT_THROW(directory.ProcessNotifications(callback), std::runtime_error);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(directory.readings, 1);
}

TEST(DirectoryMonitor, IsNotMadeWhenADirectoryCannotBeWatched)
{
    TestDrive const drive;
    drive.Write("file");
    drive.Write("a/x");
    std::size_t const before = OpenDescriptors();
    std::string const opens = "Start The file was not found. (Windows Error 2). Failed to open directory to monitor ";
    std::string const refuses =
        "Start The directory's name is not valid. (Windows Error 267). Failed to open directory "
        "to monitor ";
    std::pair<std::wstring, std::string> const cases[] = {
        {L"ä", opens + WideToUtf8(drive.Path(L"ä"))},
        {L"file", refuses + WideToUtf8(drive.Path(L"file"))},
        {std::wstring(L"a\0b", 3), "Start The name or its syntax is wrong. (Windows Error 123). Failed to open "
                                   "directory to monitor " +
                                       WideToUtf8(drive.Path(L"a"))},
    };
    for (auto const& [name, message] : cases)
    {
        std::vector<Path> const directories = {drive.Path(L"a"), drive.Path(name), L"not:tried"};
        WindowsError const error = Thrown<WindowsError>([&] { Watch(directories, nullptr); });
        EXPECT_EQ(WithoutLine(error.what()), "Source/Vok/DirectoryMonitorImpl.cpp: Brindle::Vok::DirInfo::" + message);
        EXPECT_EQ(OpenDescriptors(), before);
    }
}

TEST(DirectoryMonitor, ThrowsWhenThereIsNoThreadForIt)
{
    RunAsOrdinaryUser(
        [&]
        {
            rlimit const none{1, 1};
            ::setrlimit(RLIMIT_NPROC, &none);
            EXPECT_THROW(Watch({}, nullptr), std::system_error);
        });
}

TEST(DirectoryMonitor, EndsEarlyWithALineThatSaysWhy)
{
    TestDrive const drive;
    struct Row
    {
        DirectoryChangeCallback callback;
        std::string what;
    };
    for (Row const& row :
         std::vector<Row>{
             {[](DirectoryChange const&) { throw std::runtime_error("x"); }, "x"},
             {nullptr, std::bad_function_call().what()},
         })
    {
        LogRecorder const recorder(VokLogSeverity::error);
        auto const monitor = Watch({drive.Path()}, row.callback);
        drive.Write(row.what);
        WaitForErrors(recorder, 1);
        EXPECT_THAT(recorder.LinesWithFunction(),
                    ElementsAre("Brindle::Vok::DirectoryMonitorImpl::Run: Exception [" + row.what +
                                "] in directory monitor thread proc, exiting"));
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
    for (int i = 0; i < 62; ++i)
    {
        drive.Write("d" + std::to_string(i) + "/x");
        directories.emplace_back(drive.Path(L"d" + std::to_wstring(i)));
    }
    directories.push_back(directories.front()); // is told of twice
    {
        ChangeRecorder recorder;
        auto const monitor = Watch(directories, recorder.Callback());
        for (int i = 61; i >= 0; --i)
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

TEST(DirectoryMonitor, TellsNothingAfterItsEnd)
{
    TestDrive const drive;
    std::promise<void> isCalled;
    std::atomic<bool> mayReturn = false;
    std::atomic<int> calls = 0;
    auto monitor = Watch({drive.Path(), drive.Path()},
                         [&](DirectoryChange const&)
                         {
                             if (++calls == 1)
                                 isCalled.set_value();
                             mayReturn.wait(false);
                             drive.Write("for the next reading" + std::to_string(calls)); // which has always ended so
                         });
    drive.Write("a");
    drive.Write("b");
    isCalled.get_future().wait();
    auto destruction = std::async(std::launch::async, [&] { monitor.reset(); });
    EXPECT_EQ(destruction.wait_for(50ms), std::future_status::timeout);
    mayReturn = true;
    mayReturn.notify_all();
    destruction.wait();
    int const callsThen = calls;
    EXPECT_LE(callsThen, 6); // what was read, and at most one reading more
    drive.Write("c");
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(calls, callsThen);
}

TEST(DirectoryMonitor, EndsTheProcessForWhatNobodyCanHandle)
{
    TestDrive const drive;
    auto const endsWith = [&](auto callback)
    {
        return InChild(
            [&]
            {
                std::unique_ptr<DirectoryMonitor> monitor;
                std::atomic<bool> isMade = false;
                monitor = Watch({drive.Path()},
                                [&](DirectoryChange const&)
                                {
                                    isMade.wait(false);
                                    callback(monitor);
                                });
                isMade = true;
                drive.Write("a");
                std::this_thread::sleep_for(10s);
            });
    };
    EXPECT_EQ(endsWith([](auto&) { throw 1; }), -SIGABRT);
    EXPECT_EQ(endsWith([](auto& monitor) { monitor.reset(); }), -SIGABRT); // its own
}

TEST(DirectoryMonitor, ComesAndGoesWhileFilesDo)
{
    TestDrive const drive;
    std::atomic<bool> isOver = false;
    std::atomic<int> calls = 0;
    std::thread writer(
        [&]
        {
            for (int i = 0; !isOver; ++i)
                drive.Write("f" + std::to_string(i % 10));
        });
    std::vector<std::thread> watchers;
    for (int i = 0; i < 3; ++i)
        watchers.emplace_back(
            [&]
            {
                for (std::size_t round = 0; round < 100; ++round)
                    Watch(std::vector<Path>(round % 4, drive.Path()), [&](DirectoryChange const&) { ++calls; });
            });
    for (std::thread& watcher : watchers)
        watcher.join();
    isOver = true;
    writer.join();
    EXPECT_GT(calls, 0);
}
