#include "Support/StandIn.h"

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
    auto const code = [&](HANDLE handle, DWORD filter, BOOL subtree, OVERLAPPED* state) {
        return CodeOf([&]
                      { return ReadDirectoryChangesW(handle, buffer, 99, subtree, filter, nullptr, state, nullptr); });
    };
    EXPECT_EQ(code(directory.Get(), 0x201, FALSE, &overlapped), 87U);
    EXPECT_EQ(code(directory.Get(), 1, FALSE, nullptr), 87U);
    EXPECT_EQ(code(directory.Get(), 1, TRUE, &overlapped), 50U);
    EXPECT_EQ(code(Open(drive.Path(L"in\\x"), GENERIC_READ).Get(), 1, FALSE, &overlapped), 87U);
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
}

TEST_F(Changes, ReachAThreadThatWaitsSinceBefore)
{
    std::thread waiting([&] { EXPECT_EQ(WaitForSingleObject(event.Get(), 10'000), WAIT_OBJECT_0); });
    std::this_thread::sleep_for(10ms);
    EXPECT_TRUE(Read(directory, &overlapped));
    std::this_thread::sleep_for(10ms);
    Make("a");
    waiting.join();
    EXPECT_EQ(Name(), u"a");
}

// While another thread of the parent may be at work on them.
TEST_F(Changes, AreNotTakenByAChild)
{
    EXPECT_TRUE(Read(directory, &overlapped));
    std::atomic<bool> isOver = false;
    auto const look = [&]
    {
        while (!isOver)
            Result(FALSE);
    };
    std::thread looking(look);
    for (int round = 0; round < 50; ++round)
        RunInChild([&] { EXPECT_EQ(WaitForSingleObject(event.Get(), 0), WAIT_TIMEOUT); });
    isOver = true;
    looking.join();
    Make("a");
    EXPECT_EQ(WaitForSingleObject(event.Get(), 10'000), WAIT_OBJECT_0);
    EXPECT_EQ(Name(), u"a");
}

TEST_F(Changes, EndWhenCancelledOrClosed)
{
    for (OVERLAPPED* const which : {&overlapped, static_cast<OVERLAPPED*>(nullptr)})
    {
        EXPECT_TRUE(Read(directory, &overlapped));
        VOK_EXPECT_CODE(ERROR_SUCCESS, CancelIoEx(directory.Get(), which));
        VOK_EXPECT_CODE(ERROR_OPERATION_ABORTED, Result(TRUE));
        EXPECT_EQ(WaitForSingleObject(event.Get(), 0), WAIT_OBJECT_0);
        VOK_EXPECT_CODE(ERROR_NOT_FOUND, CancelIoEx(directory.Get(), &overlapped));
    }
    EXPECT_TRUE(Read(directory, &overlapped));
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
