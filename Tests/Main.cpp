// The tests' main: as in many hosts, the global locale is the environment's. What the tests open they must close.
#include "HandleTable.h"

#include <Brindle/Vok/Platform.h>

#include "Support/Descriptors.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <locale>
#include <stdexcept>

namespace
{

struct OpenThings
{
    bool AreAllThatIsOpen() const
    {
        OpenThings const now;
        if (now.handles == handles && now.descriptors == descriptors)
            return true;
        std::fprintf(stderr, "Open before and after all tests: %zu and %zu handles, %zu and %zu descriptors\n", handles,
                     now.handles, descriptors, now.descriptors);
        return false;
    }

    std::size_t handles = Brindle::Vok::Platform::HandleTable::OpenCount();
    std::size_t descriptors = Brindle::Vok::Testing::OpenDescriptors();
};

// A thread keeps a descriptor from the first time on that it waits for an operation.
void WaitOnce()
{
    HANDLE const root = CreateFileW(L"\\", FILE_LIST_DIRECTORY, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr);
    OVERLAPPED overlapped{};
    overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    alignas(DWORD) char buffer[512];
    ReadDirectoryChangesW(root, buffer, sizeof buffer, FALSE, FILE_NOTIFY_CHANGE_FILE_NAME, nullptr, &overlapped,
                          nullptr);
    WaitForSingleObject(overlapped.hEvent, 1);
    CloseHandle(root);
    CloseHandle(overlapped.hEvent);
}

} // namespace

int main(int argumentCount, char** arguments)
{
    try
    {
        std::locale::global(std::locale(""));
    }
    catch (std::runtime_error const&)
    {
        // The environment names a locale that this machine lacks; the classic one stays.
    }
    testing::InitGoogleMock(&argumentCount, arguments);
    // The first opening keeps a descriptor, by which other processes see this one.
    CloseHandle(CreateFileW(L"\\dev\\null", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    WaitOnce();
    OpenThings const before;
    int const result = RUN_ALL_TESTS();
    return before.AreAllThatIsOpen() ? result : 1;
}
