#include "Support/ChildProcess.h"
#include "Support/HostFaults.h"
#include "Support/OpenHandle.h"
#include "Support/TestDrive.h"

#include <Brindle/Platform/Changes.h>
#include <Brindle/Platform/Waits.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <sched.h>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using namespace std::chrono_literals;

namespace
{

class Changes : public testing::Test
{
protected:
    Changes()
    {
        drive.Write("in/x");
        directory = OpenDirectory();
        overlapped.hEvent = event.Get();
    }

    OpenHandle OpenDirectory(DWORD flags = FILE_FLAG_OVERLAPPED) const
    {
        return Open(drive.Path(L"in"), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING,
                    FILE_FLAG_BACKUP_SEMANTICS | flags);
    }
    bool Read(OpenHandle const& directory, OVERLAPPED* operation, DWORD size = sizeof buffer)
    {
        return ReadDirectoryChangesW(directory.Get(), buffer, size, FALSE, FILE_NOTIFY_CHANGE_FILE_NAME, nullptr,
                                     operation, nullptr) != FALSE;
    }
    /// What has become of the operation of the directory.
    bool Result(BOOL waits) { return GetOverlappedResult(directory.Get(), &overlapped, &count, waits) != FALSE; }
    void Make(std::string const& name) const { drive.Write("in/" + name); }
    std::u16string_view Name() const
    {
        auto const& record = *reinterpret_cast<FILE_NOTIFY_INFORMATION const*>(buffer);
        return {record.FileName, record.FileNameLength / sizeof(char16_t)};
    }

    TestDrive drive;
    OpenHandle directory;
    OpenHandle event{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    OVERLAPPED overlapped{};
    alignas(8) unsigned char buffer[512]{};
    DWORD count = 99;
};

} // namespace

TEST_F(Changes, RefuseWhatCannotBeRead)
{
    OpenHandle const file = Open(drive.Path(L"in\\x"), GENERIC_READ, allShares, OPEN_EXISTING, FILE_FLAG_OVERLAPPED);
    OpenHandle const noRight =
        Open(drive.Path(L"in"), 0, allShares, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED);
    OpenHandle const waiting = OpenDirectory(0);
    OpenHandle const semaphore(CreateSemaphoreW(nullptr, 0, 1, nullptr));
    OVERLAPPED withSemaphore{};
    withSemaphore.hEvent = semaphore.Get();
    auto const completion = [](DWORD, DWORD, LPOVERLAPPED) {};
    struct Row
    {
        char const* what;
        DWORD code;
        HANDLE handle;
        void* buffer;
        DWORD filter;
        OVERLAPPED* overlapped;
        BOOL subtree = FALSE;
        LPOVERLAPPED_COMPLETION_ROUTINE completion = nullptr;
    };
    HANDLE const good = directory.Get();
    for (Row const& row : std::initializer_list<Row>{
             {"a file", 87, file.Get(), buffer, 1, &overlapped},
             {"no buffer", 87, good, nullptr, 1, &overlapped},
             {"a misplaced buffer", 87, good, buffer + 2, 1, &overlapped},
             {"no filter", 87, good, buffer, 0, &overlapped},
             {"an unknown filter", 87, good, buffer, 0x201, &overlapped},
             {"no state", 87, good, buffer, 1, nullptr},
             {"a state for one that waits", 87, waiting.Get(), buffer, 1, &overlapped},
             {"no right", 5, noRight.Get(), buffer, 1, &overlapped},
             {"subdirectories", 50, good, buffer, 1, &overlapped, TRUE},
             {"a routine", 50, good, buffer, 1, &overlapped, FALSE, completion},
             {"no event", 6, good, buffer, 1, &withSemaphore},
             {"no handle", 6, nullptr, buffer, 1, &overlapped},
             {"no file", 6, event.Get(), buffer, 1, &overlapped},
         })
        VOK_EXPECT_CODE(row.code, ReadDirectoryChangesW(row.handle, row.buffer, sizeof buffer, row.subtree, row.filter,
                                                        nullptr, row.overlapped, row.completion))
            << row.what;
    VOK_EXPECT_CODE(ERROR_NOT_FOUND, CancelIoEx(good, nullptr));
    VOK_EXPECT_CODE(ERROR_INVALID_PARAMETER, GetOverlappedResult(good, nullptr, &count, FALSE));
}

TEST_F(Changes, AreKeptBetweenReadings)
{
    EXPECT_TRUE(Read(directory, &overlapped));
    VOK_EXPECT_CODE(ERROR_BUSY, Read(directory, &overlapped));
    // An event that somebody else has set doesn't end it.
    SetEvent(event.Get());
    for (BOOL const waits : {FALSE, TRUE})
        VOK_EXPECT_CODE(ERROR_IO_INCOMPLETE, Result(waits));
    EXPECT_EQ(WaitForSingleObject(event.Get(), 1), WAIT_TIMEOUT);
    Make("a");
    EXPECT_EQ(WaitForSingleObject(event.Get(), 10'000), WAIT_OBJECT_0);
    EXPECT_TRUE(Result(FALSE));
    EXPECT_EQ(count, 12 + 2U);
    EXPECT_EQ(Name(), u"a");
    Make("b");
    EXPECT_TRUE(Read(directory, &overlapped));
    EXPECT_TRUE(Result(TRUE));
    EXPECT_EQ(Name(), u"b");
    Make("much too long");
    EXPECT_TRUE(Read(directory, &overlapped, 16)); // which the platform says with no bytes
    EXPECT_TRUE(Result(TRUE));
    EXPECT_EQ(count, 0U);
}

TEST_F(Changes, AreLookedForByWhoAsks)
{
    overlapped.hEvent = nullptr;
    EXPECT_TRUE(Read(directory, &overlapped));
    EXPECT_FALSE(Result(FALSE));
    Make("a");
    EXPECT_TRUE(Result(FALSE));
    EXPECT_EQ(Name(), u"a");
    OpenHandle const waiting = OpenDirectory(0);
    std::atomic<bool> isTold = false;
    auto const make = [&]
    {
        for (std::string name = "b"; !isTold; name += 'b')
        {
            Make(name);
            std::this_thread::sleep_for(1ms);
        }
    };
    std::thread maker(make);
    EXPECT_TRUE(ReadDirectoryChangesW(waiting.Get(), buffer, sizeof buffer, FALSE, FILE_NOTIFY_CHANGE_FILE_NAME, &count,
                                      nullptr, nullptr));
    isTold = true;
    maker.join();
    EXPECT_GE(count, 12 + 2U);
}

TEST_F(Changes, EndWithTheDirectoryAlsoForWhoOnlyAsks)
{
    EXPECT_TRUE(Read(directory, &overlapped));
    std::filesystem::remove_all(drive.Host("in"));
    DWORD code = ERROR_IO_INCOMPLETE;
    for (int i = 0; i < 1000 && (code == ERROR_IO_INCOMPLETE || code == 0); ++i)
    {
        std::this_thread::sleep_for(1ms);
        code = CodeOf([&] { return Result(FALSE); });
        if (code == 0)
            Read(directory, &overlapped); // of x
    }
    EXPECT_EQ(code, ERROR_ACCESS_DENIED);
}

// While another thread of the parent may be at work on them.
TEST_F(Changes, AreNotTakenByAChild)
{
    EXPECT_TRUE(Read(directory, &overlapped));
    std::atomic<bool> isOver = false;
    auto const ask = [&]
    {
        DWORD unused;
        while (!isOver)
            GetOverlappedResult(directory.Get(), &overlapped, &unused, FALSE);
    };
    std::thread asking(ask);
    auto const run = [&]
    {
        VOK_EXPECT_CODE(ERROR_NOT_FOUND, CancelIoEx(directory.Get(), nullptr));
        EXPECT_EQ(WaitForSingleObject(event.Get(), 0), WAIT_TIMEOUT);
        OVERLAPPED own{};
        EXPECT_TRUE(Read(directory, &own));
        directory.Close();
        event.Close();
    };
    for (int round = 0; round < 50; ++round)
        RunInChild(run);
    isOver = true;
    asking.join();
    Make("a");
    EXPECT_EQ(WaitForSingleObject(event.Get(), 10'000), WAIT_OBJECT_0);
    EXPECT_EQ(Name(), u"a");
}

TEST_F(Changes, EndWhenCancelledOrClosed)
{
    OVERLAPPED other{};
    EXPECT_TRUE(Read(directory, &overlapped));
    VOK_EXPECT_CODE(ERROR_NOT_FOUND, CancelIoEx(directory.Get(), &other));
    for (OVERLAPPED* const which : {&overlapped, static_cast<OVERLAPPED*>(nullptr)})
    {
        VOK_EXPECT_CODE(ERROR_SUCCESS, CancelIoEx(directory.Get(), which));
        VOK_EXPECT_CODE(ERROR_OPERATION_ABORTED, Result(TRUE));
        EXPECT_EQ(count, 0U);
        EXPECT_EQ(WaitForSingleObject(event.Get(), 0), WAIT_OBJECT_0);
        VOK_EXPECT_CODE(ERROR_NOT_FOUND, CancelIoEx(directory.Get(), &overlapped));
        EXPECT_TRUE(Read(directory, &overlapped));
    }
    HANDLE const handle = directory.Get();
    auto const close = [&]
    {
        std::this_thread::sleep_for(5ms);
        directory.Close();
    };
    std::thread closer(close);
    EXPECT_TRUE(GetOverlappedResult(handle, &overlapped, &count, TRUE)); // which doesn't hold it
    closer.join();
    EXPECT_EQ(count, 0U);
    EXPECT_TRUE(RemoveDirectoryW(drive.Path(L"in").c_str()) || GetLastError() == ERROR_DIR_NOT_EMPTY);
}

TEST_F(Changes, EndOnceAlsoInARace)
{
    int aborted = 0;
    for (int round = 0; round < 500; ++round)
    {
        std::string const name = std::to_string(round);
        ASSERT_TRUE(Read(directory, &overlapped));
        std::atomic<bool> goes = false;
        std::thread maker([&] { goes = true, Make(name); });
        for (int i = 0; !goes || i < round % 64; ++i)
            std::this_thread::yield();
        bool const cancelled = CancelIoEx(directory.Get(), &overlapped) != FALSE;
        EXPECT_NE(cancelled, Result(TRUE));
        aborted += cancelled ? 1 : 0;
        maker.join();
        // What was told of while nobody read comes with the next one.
        ASSERT_TRUE(!cancelled || (Read(directory, &overlapped) && Result(TRUE)));
        ASSERT_TRUE(Name() == std::u16string(name.begin(), name.end())) << round;
    }
    EXPECT_GT(aborted, 0);
}

// A reading whose own event nobody could wait for must not write behind its caller's back.
TEST_F(Changes, AreNotWrittenAfterAWaitThatFailed)
{
    OpenHandle const waiting = OpenDirectory(0);
    {
        SystemCalls::Redirection const none(SystemCalls::Poll, FailingWith(ENOMEM));
        EXPECT_EQ(CodeOf(
                      [&]
                      {
                          return ReadDirectoryChangesW(waiting.Get(), buffer, sizeof buffer, FALSE,
                                                       FILE_NOTIFY_CHANGE_FILE_NAME, &count, nullptr, nullptr);
                      }),
                  ERROR_NOT_ENOUGH_MEMORY);
    }
    EXPECT_EQ(CodeOf([&] { return CancelIoEx(waiting.Get(), nullptr); }), ERROR_NOT_FOUND);
    // Nor is there anything to wait for in another handle's operation without an event.
    overlapped.hEvent = nullptr;
    OpenHandle const withEvent = OpenDirectory();
    OVERLAPPED other{};
    other.hEvent = event.Get();
    EXPECT_TRUE(Read(directory, &overlapped));
    EXPECT_TRUE(Read(withEvent, &other));
    EXPECT_EQ(CodeOf([&] { return GetOverlappedResult(withEvent.Get(), &overlapped, &count, TRUE); }),
              ERROR_INVALID_HANDLE);
}

// Who looks takes the events, and must tell the one that waits of what is held.
TEST_F(Changes, AreNotKeptFromTheOneThatWaits)
{
    constexpr DWORD filter = FILE_NOTIFY_CHANGE_LAST_WRITE;
    for (int round = 0; round < 100; ++round)
    {
        bool const looks = round % 2 == 1;
        ASSERT_TRUE(ReadDirectoryChangesW(directory.Get(), buffer, sizeof buffer, FALSE, filter, nullptr, &overlapped,
                                          nullptr));
        auto const write = [&]
        {
            std::this_thread::sleep_for(100us);
            drive.Write("in/x", "content");
            while (looks && !Result(FALSE))
                std::this_thread::sleep_for(200us);
        };
        std::thread writer(write);
        EXPECT_EQ(WaitForSingleObject(event.Get(), 10'000), WAIT_OBJECT_0);
        writer.join();
    }
}

// A change is told of at once, whatever else the processor is doing.
TEST_F(Changes, GiveShortTurnsToWhoReadsThem)
{
    struct Scheduling // as the host has it
    {
        std::uint32_t size = 48, policy;
        std::uint64_t flags = 0;
        std::int32_t nice = 0;
        std::uint32_t priority = 0;
        std::uint64_t turn = 2'000'000, deadline = 0, period = 0;
    };
    auto const turnAfterReading = [this](std::uint32_t policy)
    {
        Scheduling scheduling{.policy = policy};
        auto const read = [&]
        {
            EXPECT_EQ(::syscall(SYS_sched_setattr, 0, &scheduling, 0), 0);
            EXPECT_TRUE(Read(OpenDirectory(), &overlapped));
            EXPECT_EQ(::syscall(SYS_sched_getattr, 0, &scheduling, sizeof scheduling, 0), 0);
        };
        std::thread(read).join();
        return scheduling.turn;
    };
    std::uint64_t const turn = turnAfterReading(SCHED_OTHER);
    if (turn == 0)
        GTEST_SKIP() << "the host chooses alone";
    EXPECT_EQ(turn, 100'000U);
    EXPECT_EQ(turnAfterReading(SCHED_BATCH), 2'000'000U);
}
