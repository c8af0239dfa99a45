// Long listings, for which a second thread asks about the entries.
#include "SearchedDirectory.h"
#include "SystemCalls.h"

#include "Support/ChildProcess.h"
#include "Support/Directories.h"
#include "Support/HostFaults.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

namespace
{

class LongListing : public testing::Test
{
protected:
    static constexpr int files = 5'000;

    LongListing()
    {
        std::filesystem::create_directory(drive.Host("d"));
        for (int i = 0; i < files; ++i)
        {
            std::string const host = drive.Host("d/" + std::to_string(i));
            int const file = ::open(host.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, i % 7 == 0 ? 0444 : 0644);
            EXPECT_EQ(::ftruncate(file, i), 0);
            ::close(file);
        }
    }
    ~LongListing() override { FindClose(search); }

    bool Begin() { return (search = FindFirstFileW(drive.Path(L"d\\*").c_str(), &data)) != INVALID_HANDLE_VALUE; }
    /// From the record at hand on. Every record is to be the file's own. Gives how many there are, and goes to the
    /// next.
    int Go(int most = files + 2)
    {
        int count = 0;
        for (bool more = true; more && count < most; more = FindNextFileW(search, &data))
        {
            ++count;
            std::wstring const name = data.cFileName;
            if (name == L"." || name == L"..")
                continue;
            auto const number = static_cast<DWORD>(std::stoul(name));
            EXPECT_EQ(data.nFileSizeLow, number);
            EXPECT_EQ((data.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0, number % 7 == 0);
            names.insert(name);
        }
        return count;
    }

    TestDrive drive{QuickPlace()};
    WIN32_FIND_DATAW data{};
    HANDLE search = INVALID_HANDLE_VALUE;
    std::set<std::wstring> names;
};

TEST_F(LongListing, TellsOfEveryEntryOnceAndOfNoneThatVanished)
{
    std::atomic<int> others{0};
    auto const counted = [&, own = std::this_thread::get_id()](auto... arguments)
    {
        bool const isOther = std::this_thread::get_id() != own;
        others += isOther;
        if (!isOther)
            std::this_thread::yield(); // where the machine has one processor only
        return SystemCalls::ExtendedStatusAt.host(arguments...);
    };
    for (auto const& [processors, starts] : {std::pair(1, true), {2, false}, {2, true}})
    {
        auto const start = [starts = starts](auto... arguments)
        { return starts ? SystemCalls::StartThread.host(arguments...) : EAGAIN; };
        SystemCalls::Redirection const starting(SystemCalls::StartThread, start);
        auto const allow = [count = processors](pid_t, std::size_t, cpu_set_t* allowed)
        {
            CPU_ZERO(allowed);
            for (int processor = 0; processor < count; ++processor)
                CPU_SET(processor, allowed);
            return 0;
        };
        SystemCalls::Redirection const allowing(SystemCalls::GetProcessors, allow);
        SystemCalls::Redirection const counting(SystemCalls::ExtendedStatusAt, counted);
        names.clear();
        others = 0;
        ASSERT_TRUE(Begin());
        EXPECT_EQ(Go(), files + 2);
        EXPECT_EQ(names.size(), static_cast<std::size_t>(files));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
        EXPECT_EQ(others > 0, processors > 1 && starts);
        FindClose(search);
    }

    auto const vanish = [](int directory, char const* name, auto... arguments) {
        return name[0] == '1' ? FailingWith(ENOENT)()
                              : SystemCalls::ExtendedStatusAt.host(directory, name, arguments...);
    };
    SystemCalls::Redirection const vanishing(SystemCalls::ExtendedStatusAt, vanish);
    names.clear();
    ASSERT_TRUE(Begin());
    EXPECT_EQ(Go(), files + 2 - 1'111); // 1, 10 to 19, 100 to 199, 1000 to 1999
    EXPECT_FALSE(names.contains(L"1999"));
}

// In the middle of it the thread is at work: then the search ends, the process forks, or the directory is parked.
TEST_F(LongListing, MayEndOrForkOrBeParkedInTheMiddle)
{
    for (int most : {40, 100, 2'000})
    {
        ASSERT_TRUE(Begin());
        EXPECT_EQ(Go(most), most);
        // Not beyond what has been read from the host: the two share the place in the directory.
        EXPECT_EQ(InChild([&] { EXPECT_TRUE(Go(500) == 500 && FindClose(search)); }), 0);
        std::vector<HANDLE> inner(20);
        for (HANDLE& each : inner)
        {
            WIN32_FIND_DATAW ignored;
            each = FindFirstFileW(drive.Path(L"*").c_str(), &ignored);
        }
        EXPECT_EQ(Go(), files + 2 - most);
        EXPECT_EQ(names.size(), static_cast<std::size_t>(files));
        for (HANDLE const each : inner)
            EXPECT_TRUE(FindClose(each));
        EXPECT_TRUE(FindClose(search));
        ASSERT_TRUE(Begin());
        EXPECT_EQ(Go(most), most);
        EXPECT_TRUE(FindClose(search));
        names.clear();
    }
    search = INVALID_HANDLE_VALUE;
}

// The record at hand is the last one.
TEST_F(LongListing, TellsOfNothingThatItsThreadDeletedOrThatIsGoneForLong)
{
    ASSERT_TRUE(Begin());
    EXPECT_EQ(Go(300), 300);
    std::wstring const atHand = data.cFileName;
    std::size_t deleted = 0;
    for (int i = 0; i < files; ++i)
        deleted += DeleteFileW(drive.Path(L"d\\" + std::to_wstring(i)).c_str()) != FALSE;
    names.clear();
    EXPECT_GT(Go(), 300); // the read-only ones are left
    names.erase(atHand);
    for (std::wstring const& name : names)
        ASSERT_EQ(std::stoi(name) % 7, 0);
    EXPECT_EQ(deleted, static_cast<std::size_t>(files - (files + 6) / 7));
    EXPECT_TRUE(FindClose(search));

    ASSERT_TRUE(Begin());
    EXPECT_EQ(Go(300), 300);
    std::this_thread::sleep_for(std::chrono::milliseconds(70));
    std::filesystem::remove_all(drive.Host("d"));
    EXPECT_EQ(Go(), 1);
}

TEST_F(LongListing, OfAnotherThreadThatIsAtWorkEndsInAChild)
{
    ASSERT_TRUE(Begin());
    std::atomic<bool> isAtWork{false};
    std::atomic<bool> mayGoOn{false};
    auto const halt = [&](auto... arguments)
    {
        isAtWork = true;
        while (!mayGoOn)
            std::this_thread::yield();
        return SystemCalls::ReadDirectory.host(arguments...);
    };
    SystemCalls::Redirection const halting(SystemCalls::ReadDirectory, halt);
    std::thread other([&] { EXPECT_EQ(Go(), files + 2); });
    while (!isAtWork)
        std::this_thread::yield();
    ChildProcess child(
        [&](ChildProcess::Channel&)
        {
            bool const ends = FindNextFileW(search, &data) == FALSE && GetLastError() == ERROR_INVALID_HANDLE;
            return ends && FindClose(search) ? 0 : 1;
        });
    mayGoOn = true;
    EXPECT_EQ(child.Join(), 0);
    other.join();
}

// What is made up for an entry that may not be asked about is told of, but no answer to a question. The clock goes on
// during looks only, so that what a look has shown would hold.
TEST_F(LongListing, WithoutRightsToAskTellsOfNamesOnly)
{
    long now = 1'000'000;
    long step = 100;
    auto const tell = [&](clockid_t, timespec* time) { return *time = {1, now += step}, 0; };
    SystemCalls::Redirection const steady(SystemCalls::GetTime, tell);
    SystemCalls::Redirection const refusing(SystemCalls::ExtendedStatusAt, FailingWith(EACCES));
    SystemCalls::Redirection const refusingToo(SystemCalls::StatusAt, FailingWith(EACCES));
    ASSERT_TRUE(Begin());
    for (int i = 0; i < 60; ++i)
    {
        step = 100;
        ASSERT_TRUE(FindNextFileW(search, &data));
        step = 0;
        std::wstring const path = drive.Path(L"d\\") + data.cFileName;
        EXPECT_EQ(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
    }
}

} // namespace
