// Deletion of many files without opening each, and searches of deep trees with few descriptors.
#include "SystemCalls.h"

#include "Support/ChildProcess.h"
#include "Support/Descriptors.h"
#include "Support/HostFaults.h"
#include "Support/OpenHandle.h"
#include "Support/TestDrive.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <thread>
#include <vector>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
namespace SystemCalls = Platform::SystemCalls;

namespace
{

class QuickDeletion : public testing::Test
{
protected:
    std::wstring Path(std::wstring const& name) const { return drive.Path(name); }

    void MakeFiles(int count) const
    {
        for (int i = 0; i < count; ++i)
            drive.Write("d/file" + std::to_string(i));
    }

    /// Deletes every file in d within a search and gives how many couldn't be, each with a sharing violation. `between`
    /// is called with the number of files that had their turn.
    int DeleteAll(std::function<void(int)> const& between = [](int) {}) const
    {
        int turns = 0;
        int refused = 0;
        WIN32_FIND_DATAW data;
        HANDLE const search = FindFirstFileW(Path(L"d\\*").c_str(), &data);
        while (FindNextFileW(search, &data))
        {
            if (std::wstring_view(data.cFileName) == L"..")
                continue;
            between(turns++);
            if (DeleteFileW(Path(L"d\\" + std::wstring(data.cFileName)).c_str()))
                continue;
            EXPECT_TRUE(GetLastError() == ERROR_SHARING_VIOLATION || GetLastError() == ERROR_FILE_NOT_FOUND);
            ++refused;
        }
        EXPECT_TRUE(FindClose(search));
        return refused;
    }

    TestDrive drive;
};

/// Other test programs that run at the same time aren't there for this one.
class Alone
{
    static constexpr off_t presence = 0;

public:
    SystemCalls::Redirection<int(int, int, struct flock*)> const alone{
        SystemCalls::LockRange, [](int descriptor, int command, struct flock* range)
        {
            bool const asksForOthers = command == F_OFD_GETLK && range->l_start == presence && range->l_len == 1;
            if (!asksForOthers)
                return SystemCalls::LockRange.host(descriptor, command, range);
            range->l_type = F_UNLCK;
            return 0;
        }};
};

TEST_F(QuickDeletion, OpensNoFileWhenAlone)
{
    MakeFiles(50);
    Alone const alone;
    int opened = 0;
    SystemCalls::Redirection const counting(SystemCalls::Open,
                                            [&](int directory, char const* path, int flags, mode_t mode)
                                            {
                                                opened += std::string_view(path).starts_with("file") ? 1 : 0;
                                                return SystemCalls::Open.host(directory, path, flags, mode);
                                            });
    EXPECT_EQ(DeleteAll(), 0);
    EXPECT_LE(opened, 4);
    EXPECT_FALSE(drive.Exists("d/file0"));
}

TEST_F(QuickDeletion, SparesWhatThisProcessHolds)
{
    MakeFiles(50);
    Alone const alone;
    std::vector<OpenHandle> held;
    for (int i = 0; i < 50; i += 5)
        held.push_back(Open(Path(L"d\\file" + std::to_wstring(i)), GENERIC_READ));
    int openedLate = 0;
    int const refused = DeleteAll(
        [&](int turn)
        {
            // Some that are still there, when the deletion has long been quick.
            for (int i = 1; turn == 20 && i < 50; i += 5)
            {
                OpenHandle late = Open(Path(L"d\\file" + std::to_wstring(i)), GENERIC_READ);
                openedLate += late ? 1 : 0;
                held.push_back(std::move(late));
            }
        });
    EXPECT_GT(openedLate, 0);
    EXPECT_EQ(refused, 10 + openedLate);
    for (int i = 0; i < 50; i += 5)
        EXPECT_TRUE(drive.Exists("d/file" + std::to_string(i)));
    held.clear();
    EXPECT_EQ(DeleteAll(), 0);
}

TEST_F(QuickDeletion, SparesWhatAnotherProcessComesToHold)
{
    MakeFiles(50);
    std::unique_ptr<ChildProcess> child;
    int const refused = DeleteAll(
        [&](int turn)
        {
            if (turn != 20)
                return;
            child = std::make_unique<ChildProcess>(
                [&](ChildProcess::Channel& channel)
                {
                    std::vector<OpenHandle> held;
                    held.reserve(50);
                    for (int i = 0; i < 50; ++i)
                        held.push_back(Open(Path(L"d\\file" + std::to_wstring(i)), GENERIC_READ));
                    channel.Ready();
                    channel.Wait();
                    return 0;
                });
            child->WaitUntilReady();
        });
    EXPECT_EQ(refused, 30);
    child->Go();
    EXPECT_EQ(child->Join(), 0);
    EXPECT_EQ(DeleteAll(), 0);
}

TEST_F(QuickDeletion, NeverTakesTheNameOfAFileThatIsHeld)
{
    Alone const alone;
    std::atomic<bool> stops{false};
    std::atomic<int> lost{0};
    std::thread opener(
        [&]
        {
            for (int i = 0; !stops; i = (i + 7) % 64)
            {
                OpenHandle const held = Open(Path(L"d\\file" + std::to_wstring(i)), GENERIC_READ);
                lost += held && !drive.Exists("d/file" + std::to_string(i)) ? 1 : 0;
            }
        });
    for (int round = 0; round < 30; ++round)
    {
        MakeFiles(64);
        DeleteAll();
    }
    stops = true;
    opener.join();
    EXPECT_EQ(lost, 0);
}

TEST_F(QuickDeletion, DeepSearchesTakeFewDescriptors)
{
    constexpr int depth = 60;
    std::string host = "d";
    for (int i = 0; i < depth; ++i)
    {
        drive.Write(host + "/a");
        drive.Write(host + "/z");
        host += "/m";
    }
    drive.Write(host + "/bottom");
    std::size_t const before = OpenDescriptors();
    std::size_t most = 0;
    int deleted = 0;
    std::function<void(std::wstring const&)> const deleteBelow = [&](std::wstring const& directory)
    {
        WIN32_FIND_DATAW data;
        HANDLE const search = FindFirstFileW((directory + L"\\*").c_str(), &data);
        ASSERT_NE(search, INVALID_HANDLE_VALUE) << GetLastError();
        while (FindNextFileW(search, &data))
        {
            std::wstring_view const name = data.cFileName;
            std::wstring const path = directory + L"\\" + std::wstring(name);
            if (name == L"..")
                continue;
            if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
                deleteBelow(path);
            bool const isDirectory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
            ASSERT_TRUE(isDirectory ? RemoveDirectoryW(path.c_str()) : DeleteFileW(path.c_str())) << GetLastError();
            ++deleted;
        }
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
        most = std::max(most, OpenDescriptors() - before);
        EXPECT_TRUE(FindClose(search));
    };
    deleteBelow(Path(L"d"));
    EXPECT_EQ(deleted, 3 * depth + 1);
    EXPECT_LE(most, 20U);
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(QuickDeletion, AParkedDirectoryIsNotMistakenForAnother)
{
    std::string host = "d";
    std::wstring path = Path(L"d");
    std::vector<HANDLE> searches;
    WIN32_FIND_DATAW data;
    drive.Write("outside/precious");
    drive.Write("d/precious");
    for (int i = 0; i < 30; ++i, host += "/m", path += L"\\m")
    {
        ::mkdir(drive.Host(host).c_str(), 0777);
        searches.push_back(FindFirstFileW((path + L"\\*").c_str(), &data));
        ASSERT_NE(searches.back(), INVALID_HANDLE_VALUE);
    }
    std::filesystem::rename(drive.Host("d"), drive.Host("moved"));
    std::filesystem::create_symlink("outside", drive.Host("d"));
    EXPECT_EQ(CodeOf([&] { return DeleteFileW(Path(L"d\\precious").c_str()); }), 3U);
    EXPECT_EQ(CodeOf([&] { return FindNextFileW(searches[0], &data); }), 3U);
    EXPECT_TRUE(drive.Exists("outside/precious"));
    EXPECT_TRUE(drive.Exists("moved/precious"));
    std::filesystem::remove(drive.Host("d"));
    std::filesystem::rename(drive.Host("moved"), drive.Host("d"));
    EXPECT_TRUE(FindNextFileW(searches[0], &data));
    EXPECT_STREQ(data.cFileName, L".."); // nothing is lost
    EXPECT_TRUE(DeleteFileW(Path(L"d\\precious").c_str()));
    for (HANDLE const search : searches)
        EXPECT_TRUE(FindClose(search));
}

} // namespace
