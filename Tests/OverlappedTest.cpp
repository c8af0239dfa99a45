// Events, and operations that are cancelled in their owner's destructor.
#include <Brindle/Vok/Overlapped.h>

#include "Support/LogRecorder.h"
#include "Support/OpenHandle.h"
#include "Support/Replacement.h"
#include "Support/TestDrive.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::EndsWith;

namespace
{

/// What a call gives in the place of the platform's own result.
std::optional<DWORD> waitResult;
std::function<BOOL()> cancel;
std::function<BOOL()> getResult;

} // namespace

VOK_TEST_REPLACE(waitResult, *waitResult, DWORD, WaitForSingleObject, (HANDLE a, DWORD b), (a, b))
VOK_TEST_REPLACE(cancel, cancel(), BOOL, CancelIoEx, (HANDLE a, LPOVERLAPPED b), (a, b))
VOK_TEST_REPLACE(getResult, getResult(), BOOL, GetOverlappedResult, (HANDLE a, LPOVERLAPPED b, LPDWORD c, BOOL d),
                 (a, b, c, d))

namespace
{

auto FailingWith(DWORD code)
{
    return [code] { return SetLastError(code), FALSE; };
}

BOOL FailUnexpectedly()
{
    ADD_FAILURE() << "an unexpected call of the platform";
    return FALSE;
}

bool IsOpen(HANDLE handle)
{
    return CodeOf([=] { return CloseHandle(handle); }) != ERROR_INVALID_HANDLE;
}

} // namespace

TEST(Event, IsResetByItselfOrNot)
{
    for (bool const manualReset : {false, true})
    {
        Event event(L"", manualReset);
        EXPECT_EQ(event.WaitOrTimeout(1), EventWaitResult::timedOut);
        event.Set();
        EXPECT_EQ(event.WaitOrTimeout(INFINITE), EventWaitResult::signalled);
        EXPECT_EQ(event.WaitOrTimeout(0), manualReset ? EventWaitResult::signalled : EventWaitResult::timedOut);
    }
}

TEST(Event, ThrowsWhatThePlatformRefuses)
{
    OpenHandle const semaphore(CreateSemaphoreW(nullptr, 0, 1, L"semaphore"));
    Event event(L"", true);
    auto const waiting = [&](DWORD result)
    {
        return [&event, result]
        {
            waitResult = result;
            SetLastError(5);
            event.WaitOrTimeout(0);
        };
    };
    std::pair<std::function<void()>, std::string> const cases[] = {
        {[] { Event(L"semaphore", true); }, "Event The handle is not valid. (Windows Error 6). Failed to create event"},
        {waiting(WAIT_ABANDONED), "(Windows Error 735). WaitForSingleObject abandoned"},
        {waiting(WAIT_FAILED), "WaitOrTimeout Access is denied. (Windows Error 5). WaitForSingleObject failed"},
        {waiting(0xFFFFFFFE), "(Windows Error 5). WaitForSingleObject unexpected result [4294967294]"},
        {[&] { CloseHandle(event.Handle()), event.Set(); }, "Set The handle is not valid. (Windows Error 6). SetEvent"},
    };
    for (auto const& [call, message] : cases)
    {
        auto const error = Thrown<WindowsError>(call);
        waitResult.reset();
        EXPECT_THAT(error.Message(), EndsWith(message));
    }
}

TEST(Overlapped, LogsHowItIsCancelledAndClosesItsHandles)
{
    TestDrive const drive;
    alignas(4) std::byte buffer[1024];
    auto const nothing = [](Overlapped&) {};
    auto const begin = [&](Overlapped& operation)
    {
        EXPECT_TRUE(ReadDirectoryChangesW(operation.file.Get(), buffer, sizeof buffer, FALSE,
                                          FILE_NOTIFY_CHANGE_FILE_NAME, nullptr, &operation.overlapped, nullptr));
    };
    auto const endDuringCancel = [&]
    {
        drive.Write("made");
        return TRUE;
    };
    auto const toNull = [](Overlapped& operation)
    { operation.file = HandleOwner<Detail::InvalidHandleTraits>(nullptr); };
    auto const toInvalid = [](Overlapped& operation) { operation.file.Reset(); };
    std::string const cancelled = "info: Operation Cancelled";
    std::string const done = "info: Done waiting for cancel";
    struct
    {
        std::function<void(Overlapped&)> prepare;
        std::function<BOOL()> cancel;
        std::function<BOOL()> getResult;
        std::vector<std::string> lines;
    } const cases[] = {
        {nothing, {}, FailUnexpectedly, {"info: Nothing to cancel"}},
        {begin, {}, {}, {cancelled, done}},
        {begin, endDuringCancel, {}, {cancelled}},
        {begin, {}, FailingWith(1168), {cancelled, done}},
        {begin, {}, FailingWith(4'000'000'000), {cancelled, "error: GetOverlappedResult failed. Error [4000000000]."}},
        {toNull, FailUnexpectedly, FailUnexpectedly, {"info: Handle is not valid or set"}},
        {toInvalid, {}, FailUnexpectedly, {"error: CancelIoEx failed. Error [6]."}}, // required: it is tried
    };
    for (auto const& each : cases)
    {
        SCOPED_TRACE(&each - cases);
        auto operation = std::make_unique<Overlapped>(HandleOwner<Detail::InvalidHandleTraits>(
            CreateFileW(drive.Path().c_str(), FILE_LIST_DIRECTORY, allShares, nullptr, OPEN_EXISTING,
                        FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr)));
        each.prepare(*operation);
        HANDLE const file = operation->file.Get();
        HANDLE const event = operation->event.Handle();
        LogRecorder const recorder;
        cancel = each.cancel;
        getResult = each.getResult;
        operation.reset();
        cancel = getResult = nullptr;

        std::vector<std::string> expected{"trace: [ENTER]", "trace: [ENTER]", "trace: [EXIT]", "trace: [EXIT]"};
        expected.insert(expected.begin() + 2, each.lines.begin(), each.lines.end());
        EXPECT_EQ(recorder.Lines(), expected);
        EXPECT_FALSE(IsOpen(file));
        EXPECT_FALSE(IsOpen(event));
    }
}
