// Searches that are open while other things happen to their directories, and many of them at a time.
#include "Support/Descriptors.h"
#include "Support/OpenHandle.h"
#include "Support/TestDrive.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string_view>
#include <sys/stat.h>
#include <vector>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

namespace
{

class SearchedDirectories : public testing::Test
{
protected:
    std::wstring Path(std::wstring const& name) const { return drive.Path(name); }

    TestDrive drive;
};

TEST_F(SearchedDirectories, DeepSearchesTakeFewDescriptors)
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

TEST_F(SearchedDirectories, AParkedDirectoryIsNotMistakenForAnother)
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

TEST_F(SearchedDirectories, TakeFewDescriptorsWhenTheyTakeTurns)
{
    constexpr int count = 40;
    std::size_t const before = OpenDescriptors();
    std::vector<HANDLE> searches;
    WIN32_FIND_DATAW data;
    for (int i = 0; i < count; ++i)
    {
        drive.Write(std::to_string(i) + "/file");
        searches.push_back(FindFirstFileW(Path(std::to_wstring(i) + L"\\*").c_str(), &data));
    }
    for (wchar_t const* name : {L"..", L"file"})
        for (HANDLE const search : searches)
        {
            EXPECT_TRUE(FindNextFileW(search, &data));
            EXPECT_STREQ(data.cFileName, name);
            EXPECT_LE(OpenDescriptors() - before, 20U);
        }
    for (HANDLE const search : searches)
        EXPECT_TRUE(FindClose(search));
}

} // namespace
