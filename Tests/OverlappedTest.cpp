// Events, and asynchronous operations with their end.
#include "Support/Descriptors.h"
#include "Support/LogRecorder.h"
#include "Support/TestDrive.h"
#include "Support/Thrown.h"

#include <Brindle/Vok/Overlapped.h>
#include <Brindle/Vok/Synchronization.h>

#include <gmock/gmock.h>

#include <optional>
#include <type_traits>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::ElementsAre;
using testing::EndsWith;

namespace
{

// Results that the platform gives seldom or never here: each is given once, with a last error.
struct Unusual
{
    std::optional<DWORD> wait;
    bool failsToGetResult = false;
    DWORD code = 0;
};
Unusual unusual;

} // namespace

extern "C" DWORD WINAPI __real_WaitForSingleObject(HANDLE, DWORD) noexcept;
extern "C" DWORD WINAPI __wrap_WaitForSingleObject(HANDLE object, DWORD milliseconds) noexcept
{
    if (!unusual.wait)
        return __real_WaitForSingleObject(object, milliseconds);
    SetLastError(unusual.code);
    return *unusual.wait;
}

extern "C" BOOL WINAPI __real_GetOverlappedResult(HANDLE, LPOVERLAPPED, LPDWORD, BOOL) noexcept;
extern "C" BOOL WINAPI __wrap_GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD count,
                                                  BOOL wait) noexcept
{
    BOOL const result = __real_GetOverlappedResult(file, overlapped, count, wait);
    if (!unusual.failsToGetResult)
        return result;
    SetLastError(unusual.code);
    return FALSE;
}

TEST(Event, SaysHowAWaitEnded)
{
    static_assert(std::is_same_v<std::underlying_type_t<EventWaitResult>, std::uint32_t>);
    Event manual(L"", true);
    Event automatic(L"", false);
    EXPECT_EQ(manual.WaitOrTimeout(0), EventWaitResult::timedOut);
    manual.Set();
    automatic.Set();
    EXPECT_EQ(manual.WaitOrTimeout(0), EventWaitResult::signalled);
    EXPECT_EQ(manual.WaitOrTimeout(INFINITE), EventWaitResult::signalled);
    EXPECT_EQ(automatic.WaitOrTimeout(1), EventWaitResult::signalled);
    EXPECT_EQ(automatic.WaitOrTimeout(1), EventWaitResult::timedOut);
    Event named(L"Vok event", true);
    Event again(L"Vok event", true);
    named.Set();
    EXPECT_EQ(again.WaitOrTimeout(0), EventWaitResult::signalled);
}

TEST(Event, ThrowsWhatIsNoResult)
{
    struct Row
    {
        DWORD result;
        std::string message;
    };
    for (Row const& row : {
             Row{WAIT_ABANDONED, "The wait ended because the owner of the object is gone. (Windows Error 735). "
                                 "WaitForSingleObject abandoned"},
             Row{WAIT_FAILED, "The handle is not valid. (Windows Error 6). WaitForSingleObject failed"},
             Row{WAIT_OBJECT_0 + 1, "The handle is not valid. (Windows Error 6). WaitForSingleObject unexpected result "
                                    "[1]"},
         })
    {
        Event event(L"", false);
        unusual = {.wait = row.result, .failsToGetResult = false, .code = ERROR_INVALID_HANDLE};
        EXPECT_THAT(WithoutLine(Thrown<WindowsError>([&] { event.WaitOrTimeout(1); }).what()),
                    EndsWith("Synchronization.h: Brindle::Vok::Event::WaitOrTimeout " + row.message));
        unusual = {};
    }
    HANDLE const semaphore = CreateSemaphoreW(nullptr, 0, 1, L"Vok taken");
    EXPECT_THAT(WithoutLine(Thrown<WindowsError>([] { Event(L"Vok taken", true); }).what()),
                EndsWith("Synchronization.h: Brindle::Vok::Event::Event The handle is not valid. (Windows Error 6). "
                         "Failed to create event"));
    Event closed(L"", true);
    CloseHandle(closed.Handle());
    EXPECT_THAT(WithoutLine(Thrown<WindowsError>([&] { closed.Set(); }).what()),
                EndsWith("Brindle::Vok::Event::Set The handle is not valid. (Windows Error 6). SetEvent"));
    CloseHandle(semaphore);
}

namespace
{

class OverlappedReading : public testing::Test
{
protected:
    std::unique_ptr<Overlapped> Open() const
    {
        return std::make_unique<Overlapped>(HandleOwner<Detail::InvalidHandleTraits>(
            CreateFileW(drive.Path().c_str(), FILE_LIST_DIRECTORY, allShares, nullptr, OPEN_EXISTING,
                        FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr)));
    }
    void Read(Overlapped& operation)
    {
        EXPECT_TRUE(ReadDirectoryChangesW(operation.file.Get(), buffer, sizeof buffer, FALSE,
                                          FILE_NOTIFY_CHANGE_FILE_NAME, nullptr, &operation.overlapped, nullptr));
    }
    /// What the log hears of the end.
    static std::vector<std::string> LinesAtTheEndOf(std::unique_ptr<Overlapped> operation)
    {
        LogRecorder const recorder;
        operation.reset();
        return recorder.Lines();
    }

    static constexpr DWORD allShares = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    std::size_t const descriptorsBefore = OpenDescriptors();
    TestDrive drive;
    alignas(8) unsigned char buffer[256]{};
};

} // namespace

TEST_F(OverlappedReading, EndsBeforeItsOwnerHasGone)
{
    static_assert(std::is_standard_layout_v<OVERLAPPED> && offsetof(Overlapped, overlapped) == 0);
    auto const linesWith = [](std::vector<std::string> inner)
    {
        std::vector<std::string> lines = {"trace: [ENTER]", "trace: [ENTER]"};
        lines.insert(lines.end(), inner.begin(), inner.end());
        lines.insert(lines.end(), {"trace: [EXIT]", "trace: [EXIT]"});
        return lines;
    };
    EXPECT_EQ(LinesAtTheEndOf(Open()), linesWith({"info: Nothing to cancel"}));

    auto running = Open();
    Read(*running);
    EXPECT_EQ(LinesAtTheEndOf(std::move(running)),
              linesWith({"info: Operation Cancelled", "info: Done waiting for cancel"}));

    auto over = Open();
    Read(*over);
    drive.Write("a");
    EXPECT_EQ(over->event.WaitOrTimeout(10'000), EventWaitResult::signalled);
    EXPECT_EQ(LinesAtTheEndOf(std::move(over)), linesWith({"info: Nothing to cancel"}));

    auto unknown = Open();
    Read(*unknown);
    unusual = {.wait = {}, .failsToGetResult = true, .code = 31};
    EXPECT_EQ(LinesAtTheEndOf(std::move(unknown)),
              linesWith({"info: Operation Cancelled", "error: GetOverlappedResult failed. Error [31]."}));
    unusual = {};

    auto const none = [] { return HandleOwner<Detail::InvalidHandleTraits>(); };
    EXPECT_EQ(LinesAtTheEndOf(std::make_unique<Overlapped>(none())),
              linesWith({"error: CancelIoEx failed. Error [6]."}));
    EXPECT_EQ(LinesAtTheEndOf(std::make_unique<Overlapped>(HandleOwner<Detail::InvalidHandleTraits>(nullptr))),
              linesWith({"info: Handle is not valid or set"}));
    EXPECT_EQ(OpenDescriptors(), descriptorsBefore);
}

TEST_F(OverlappedReading, LogsUnderItsFunctions)
{
    LogRecorder const recorder;
    Open().reset();
    EXPECT_THAT(recorder.LinesWithFunction(), ElementsAre("Brindle::Vok::Overlapped::~Overlapped: [ENTER]",
                                                          "Brindle::Vok::Overlapped::Cancel: [ENTER]",
                                                          "Brindle::Vok::Overlapped::Cancel: Nothing to cancel",
                                                          "Brindle::Vok::Overlapped::Cancel: [EXIT]",
                                                          "Brindle::Vok::Overlapped::~Overlapped: [EXIT]"));
}
