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
        HANDLE handle;
        void* buffer;
        DWORD filter;
        OVERLAPPED* overlapped;
        DWORD expected;
        BOOL subtree = FALSE;
        LPOVERLAPPED_COMPLETION_ROUTINE completion = nullptr;
    };
    for (Row const& row : {
             Row{"a file", file.Get(), buffer, 1, &overlapped, ERROR_INVALID_PARAMETER},
             Row{"no buffer", directory.Get(), nullptr, 1, &overlapped, ERROR_INVALID_PARAMETER},
             Row{"a misplaced buffer", directory.Get(), buffer + 2, 1, &overlapped, ERROR_INVALID_PARAMETER},
             Row{"no filter", directory.Get(), buffer, 0, &overlapped, ERROR_INVALID_PARAMETER},
             Row{"an unknown filter", directory.Get(), buffer, 0x201, &overlapped, ERROR_INVALID_PARAMETER},
             Row{"no state", directory.Get(), buffer, 1, nullptr, ERROR_INVALID_PARAMETER},
             Row{"a state for one that waits", waiting.Get(), buffer, 1, &overlapped, ERROR_INVALID_PARAMETER},
             Row{"no right", noRight.Get(), buffer, 1, &overlapped, ERROR_ACCESS_DENIED},
             Row{"subdirectories", directory.Get(), buffer, 1, &overlapped, ERROR_NOT_SUPPORTED, TRUE},
             Row{"a routine", directory.Get(), buffer, 1, &overlapped, ERROR_NOT_SUPPORTED, FALSE, completion},
             Row{"no event", directory.Get(), buffer, 1, &withSemaphore, ERROR_INVALID_HANDLE},
             Row{"no handle", nullptr, buffer, 1, &overlapped, ERROR_INVALID_HANDLE},
             Row{"no file", event.Get(), buffer, 1, &overlapped, ERROR_INVALID_HANDLE},
         })
    {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(CodeOf(
                      [&]
                      {
                          return ReadDirectoryChangesW(row.handle, row.buffer, sizeof buffer, row.subtree, row.filter,
                                                       nullptr, row.overlapped, row.completion);
                      }),
                  row.expected);
    }
    EXPECT_EQ(CodeOf([&] { return CancelIoEx(directory.Get(), nullptr); }), ERROR_NOT_FOUND);
    EXPECT_EQ(CodeOf([&] { return GetOverlappedResult(directory.Get(), nullptr, &count, FALSE); }),
              ERROR_INVALID_PARAMETER);
}

TEST_F(Changes, AreKeptBetweenReadings)
{
    EXPECT_TRUE(Read(directory, &overlapped));
    EXPECT_EQ(CodeOf([&] { return Read(directory, &overlapped); }), ERROR_BUSY);
    EXPECT_EQ(CodeOf([&] { return GetOverlappedResult(directory.Get(), &overlapped, &count, FALSE); }),
              ERROR_IO_INCOMPLETE);
    EXPECT_EQ(WaitForSingleObject(event.Get(), 1), WAIT_TIMEOUT);
    Make("a");
    EXPECT_EQ(WaitForSingleObject(event.Get(), 10'000), WAIT_OBJECT_0);
    EXPECT_TRUE(GetOverlappedResult(directory.Get(), &overlapped, &count, FALSE));
    EXPECT_EQ(count, 12 + 2U);
    EXPECT_EQ(Name(), u"a");
    Make("b");
    EXPECT_TRUE(Read(directory, &overlapped));
    EXPECT_TRUE(GetOverlappedResult(directory.Get(), &overlapped, &count, TRUE));
    EXPECT_EQ(Name(), u"b");
    Make("much too long");
    EXPECT_TRUE(Read(directory, &overlapped, 16)); // which the platform says with no bytes
    EXPECT_TRUE(GetOverlappedResult(directory.Get(), &overlapped, &count, TRUE));
    EXPECT_EQ(count, 0U);
}

TEST_F(Changes, AreLookedForByWhoAsks)
{
    overlapped.hEvent = nullptr;
    EXPECT_TRUE(Read(directory, &overlapped));
    EXPECT_FALSE(GetOverlappedResult(directory.Get(), &overlapped, &count, FALSE));
    Make("a");
    EXPECT_TRUE(GetOverlappedResult(directory.Get(), &overlapped, &count, FALSE));
    EXPECT_EQ(Name(), u"a");
    OpenHandle const waiting = OpenDirectory(0);
    std::atomic<bool> isTold = false;
    std::thread maker(
        [&]
        {
            for (std::string name = "b"; !isTold; name += 'b')
            {
                Make(name);
                std::this_thread::sleep_for(1ms);
            }
        });
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
        code = CodeOf([&] { return GetOverlappedResult(directory.Get(), &overlapped, &count, FALSE); });
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
    std::thread asking(
        [&]
        {
            DWORD unused;
            while (!isOver)
                GetOverlappedResult(directory.Get(), &overlapped, &unused, FALSE);
        });
    for (int round = 0; round < 50; ++round)
        EXPECT_EQ(InChild(
                      [&]
                      {
                          EXPECT_EQ(CodeOf([&] { return CancelIoEx(directory.Get(), nullptr); }), ERROR_NOT_FOUND);
                          EXPECT_EQ(WaitForSingleObject(event.Get(), 0), WAIT_TIMEOUT);
                          OVERLAPPED own{};
                          EXPECT_TRUE(Read(directory, &own));
                          directory.Close();
                          event.Close();
                      }),
                  0);
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
    EXPECT_EQ(CodeOf([&] { return CancelIoEx(directory.Get(), &other); }), ERROR_NOT_FOUND);
    for (OVERLAPPED* const which : {&overlapped, static_cast<OVERLAPPED*>(nullptr)})
    {
        EXPECT_EQ(CodeOf([&] { return CancelIoEx(directory.Get(), which); }), ERROR_SUCCESS);
        EXPECT_EQ(CodeOf([&] { return GetOverlappedResult(directory.Get(), &overlapped, &count, TRUE); }),
                  ERROR_OPERATION_ABORTED);
        EXPECT_EQ(count, 0U);
        EXPECT_EQ(WaitForSingleObject(event.Get(), 0), WAIT_OBJECT_0);
        EXPECT_EQ(CodeOf([&] { return CancelIoEx(directory.Get(), &overlapped); }), ERROR_NOT_FOUND);
        EXPECT_TRUE(Read(directory, &overlapped));
    }
    HANDLE const handle = directory.Get();
    std::thread closer(
        [&]
        {
            std::this_thread::sleep_for(5ms);
            directory.Close();
        });
    EXPECT_TRUE(GetOverlappedResult(handle, &overlapped, &count, TRUE)); // which doesn't hold it
    closer.join();
    EXPECT_EQ(count, 0U);
    EXPECT_TRUE(RemoveDirectoryW(drive.Path(L"in").c_str()) || GetLastError() == ERROR_DIR_NOT_EMPTY);
}

TEST_F(Changes, AreNotOverForAnEventThatSomebodyElseHasSet)
{
    EXPECT_TRUE(Read(directory, &overlapped));
    SetEvent(event.Get());
    EXPECT_EQ(CodeOf([&] { return GetOverlappedResult(directory.Get(), &overlapped, &count, TRUE); }),
              ERROR_IO_INCOMPLETE);
    Make("a");
    EXPECT_TRUE(GetOverlappedResult(directory.Get(), &overlapped, &count, TRUE));
    EXPECT_EQ(Name(), u"a");
}

TEST_F(Changes, EndOnceAlsoInARace)
{
    int aborted = 0;
    for (int round = 0; round < 500; ++round)
    {
        ASSERT_TRUE(Read(directory, &overlapped));
        std::atomic<bool> goes = false;
        std::thread maker(
            [&]
            {
                goes = true;
                Make(std::to_string(round));
            });
        while (!goes)
            std::this_thread::yield();
        for (int i = 0; i < round % 64; ++i)
            std::this_thread::yield();
        bool const cancelled = CancelIoEx(directory.Get(), &overlapped) != FALSE;
        bool const isRead = GetOverlappedResult(directory.Get(), &overlapped, &count, TRUE) != FALSE;
        EXPECT_NE(cancelled, isRead);
        aborted += cancelled ? 1 : 0;
        maker.join();
        // What was told of while nobody read comes with the next one.
        if (cancelled)
        {
            ASSERT_TRUE(Read(directory, &overlapped));
            ASSERT_TRUE(GetOverlappedResult(directory.Get(), &overlapped, &count, TRUE));
        }
        std::string const name = std::to_string(round);
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
    for (int round = 0; round < 50; ++round)
    {
        for (int write = 0; write < 2; ++write)
        {
            ASSERT_TRUE(ReadDirectoryChangesW(directory.Get(), buffer, sizeof buffer, FALSE, filter, nullptr,
                                              &overlapped, nullptr));
            std::thread writer(
                [&]
                {
                    std::this_thread::sleep_for(100us);
                    drive.Write("in/x", "content");
                    for (DWORD unused = 0;
                         write == 1 && !GetOverlappedResult(directory.Get(), &overlapped, &unused, FALSE);)
                        std::this_thread::sleep_for(200us);
                });
            EXPECT_EQ(WaitForSingleObject(event.Get(), 10'000), WAIT_OBJECT_0);
            writer.join();
        }
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
        std::thread reading(
            [&]
            {
                EXPECT_EQ(::syscall(SYS_sched_setattr, 0, &scheduling, 0), 0);
                EXPECT_TRUE(Read(OpenDirectory(), &overlapped));
                EXPECT_EQ(::syscall(SYS_sched_getattr, 0, &scheduling, sizeof scheduling, 0), 0);
            });
        reading.join();
        return scheduling.turn;
    };
    if (std::uint64_t const turn = turnAfterReading(SCHED_OTHER))
        EXPECT_EQ(turn, 100'000U);
    else
        GTEST_SKIP() << "the host chooses alone";
    EXPECT_EQ(turnAfterReading(SCHED_BATCH), 2'000'000U);
}
