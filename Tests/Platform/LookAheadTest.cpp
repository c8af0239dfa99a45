// Long listings, for which a second thread asks about the entries.
#include "SearchedDirectory.h"

#include "Support/Directories.h"
#include "Support/StandIn.h"

#include <set>

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
    ASSERT_TRUE(Begin());
    EXPECT_EQ(Go(), files + 2);
    EXPECT_EQ(names.size(), static_cast<std::size_t>(files));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
    FindClose(search);

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
    for (int const most : {40, 100, 2'000})
    {
        ASSERT_TRUE(Begin());
        EXPECT_EQ(Go(most), most);
        // Not beyond what has been read from the host: the two share the place in the directory.
        RunInChild([&] { EXPECT_TRUE(Go(500) == 500 && FindClose(search)); });
        std::vector<HANDLE> others(20);
        WIN32_FIND_DATAW ignored;
        for (HANDLE& each : others)
            each = FindFirstFileW(drive.Path(L"*").c_str(), &ignored);
        int const rest = most < 2'000 ? files + 2 - most : 500; // the last search ends early
        EXPECT_EQ(Go(rest), rest);
        for (HANDLE const each : others)
            EXPECT_TRUE(FindClose(each));
        EXPECT_TRUE(FindClose(std::exchange(search, INVALID_HANDLE_VALUE)));
    }
    EXPECT_EQ(names.size(), static_cast<std::size_t>(files));
}

// The record at hand is the last one.
TEST_F(LongListing, TellsOfNothingThatItsThreadDeleted)
{
    ASSERT_TRUE(Begin());
    EXPECT_EQ(Go(300), 300);
    std::wstring const atHand = data.cFileName;
    for (int i = 0; i < files; ++i)
        DeleteFileW(drive.Path(L"d\\" + std::to_wstring(i)).c_str());
    names.clear();
    EXPECT_GT(Go(), 300); // the read-only ones are left
    names.erase(atHand);
    for (std::wstring const& name : names)
        ASSERT_EQ(std::stoi(name) % 7, 0);
}

} // namespace
