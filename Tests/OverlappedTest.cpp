// Events, and operations that are cancelled in their owner's destructor.
#include <Brindle/Vok/Overlapped.h>

#include "Support/LogRecorder.h"
#include "Support/OpenHandle.h"
#include "Support/TestDrive.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

namespace
{

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
        event.Set();
        EXPECT_EQ(event.WaitOrTimeout(INFINITE), EventWaitResult::signalled);
        EXPECT_EQ(event.WaitOrTimeout(1), manualReset ? EventWaitResult::signalled : EventWaitResult::timedOut);
    }
}

TEST(Event, ThrowsWhatThePlatformRefuses)
{
    OpenHandle const semaphore(CreateSemaphoreW(nullptr, 0, 1, L"semaphore"));
    Event closed(L"", true);
    CloseHandle(closed.Handle());
    std::string const code = " The handle is not valid. (Windows Error 6). ";
    std::pair<std::function<void()>, std::string> const cases[] = {
        {[] { Event(L"semaphore", true); }, "Event" + code + "Failed to create event"},
        {[&] { closed.WaitOrTimeout(0); }, "WaitOrTimeout" + code + "WaitForSingleObject failed"},
        {[&] { closed.Set(); }, "Set" + code + "SetEvent"},
    };
    for (auto const& [call, message] : cases)
        EXPECT_THAT(Thrown<WindowsError>(call).Message(), testing::EndsWith(message));
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
    auto const toNull = [](Overlapped& operation)
    { operation.file = HandleOwner<Detail::InvalidHandleTraits>(nullptr); };
    auto const toInvalid = [](Overlapped& operation) { operation.file.Reset(); };
    std::pair<std::function<void(Overlapped&)>, std::vector<std::string>> const cases[] = {
        {nothing, {"info: Nothing to cancel"}},
        {begin, {"info: Operation Cancelled", "info: Done waiting for cancel"}},
        {toNull, {"info: Handle is not valid or set"}},
        {toInvalid, {"error: CancelIoEx failed. Error [6]."}}, // required: it is tried
    };
    for (auto const& [prepare, lines] : cases)
    {
        auto operation = std::make_unique<Overlapped>(HandleOwner<Detail::InvalidHandleTraits>(
            CreateFileW(drive.Path().c_str(), FILE_LIST_DIRECTORY, allShares, nullptr, OPEN_EXISTING,
                        FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr)));
        prepare(*operation);
        HANDLE const file = operation->file.Get();
        HANDLE const event = operation->event.Handle();
        LogRecorder const recorder;
        operation.reset();
        std::vector<std::string> expected{"trace: [ENTER]", "trace: [ENTER]", "trace: [EXIT]", "trace: [EXIT]"};
        expected.insert(expected.begin() + 2, lines.begin(), lines.end());
        EXPECT_EQ(recorder.Lines(), expected);
        EXPECT_FALSE(IsOpen(file));
        EXPECT_FALSE(IsOpen(event));
    }
}
