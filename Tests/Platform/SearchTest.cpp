#include "Pattern.h"
#include "SystemCalls.h"

#include "Support/Descriptors.h"
#include "Support/OpenHandle.h"
#include "Support/TestDrive.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <list>
#include <sys/stat.h>
#include <thread>
#include <vector>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

namespace
{

class OpenSearch
{
public:
    explicit OpenSearch(std::wstring const& pattern) : handle(FindFirstFileW(pattern.c_str(), &data)) {}
    ~OpenSearch() { EXPECT_TRUE(!*this || FindClose(handle)); }
    OpenSearch(OpenSearch const&) = delete;
    OpenSearch& operator=(OpenSearch const&) = delete;

    explicit operator bool() const { return handle != INVALID_HANDLE_VALUE; }
    bool Next() { return FindNextFileW(handle, &data) != FALSE; }

    WIN32_FIND_DATAW data{};
    HANDLE handle;
};

/// The names that a search gives, "." and ".." first as they come, the others sorted.
std::vector<std::wstring> NamesOf(std::wstring const& pattern)
{
    std::vector<std::wstring> names;
    OpenSearch search(pattern);
    if (!search)
        return {L"code " + std::to_wstring(GetLastError())};
    do
        names.emplace_back(search.data.cFileName);
    while (search.Next());
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
    std::size_t const dots = names.size() >= 2 && names[0] == L"." && names[1] == L".." ? 2 : 0;
    std::sort(names.begin() + static_cast<std::ptrdiff_t>(dots), names.end());
    return names;
}

using Names = std::vector<std::wstring>;

class Searching : public testing::Test
{
protected:
    std::wstring Path(std::wstring const& name) const { return drive.Path(name); }

    TestDrive drive;
};

TEST(Pattern, FitsByThePlatformsRules)
{
    std::tuple<wchar_t const*, Names, Names> const cases[] = {
        {L"*", {L"a", L"a.b", L".a", L"."}, {}},
        {L"*.*", {L"a", L"a.b", L".."}, {}},
        {L"*.", {L"a"}, {L"a.b"}},
        {L"*.txt", {L"a.txt", L"A.TXT", L"a.b.txt", L".txt"}, {L"a.txtx", L"txt", L"a.txt.b"}},
        {L"a*", {L"a", L"ab", L"A.b"}, {L"b", L""}},
        {L"*a*b*", {L"ab", L"xaxbx", L"aab"}, {L"ba", L"a"}},
        {L"?", {L"a"}, {L"ab"}},
        {L"a?", {L"a", L"ab"}, {L"abc"}},
        {L"a??.b", {L"a.b", L"axx.b"}, {L"axxx.b"}},
        {L"a.?", {L"a", L"a.", L"a.b"}, {L"a.bc"}},
        {L"a.*", {L"a", L"a.b.c"}, {L"ab"}},
        {L"?\u00C4", {L"x\u00C4"}, {L"x\u00E4"}},
    };
    for (auto const& [pattern, fitting, others] : cases)
    {
        for (std::wstring const& name : fitting)
            EXPECT_TRUE(Platform::Pattern(pattern).Fits(name)) << testing::PrintToString(name);
        for (std::wstring const& name : others)
            EXPECT_FALSE(Platform::Pattern(pattern).Fits(name)) << testing::PrintToString(name);
    }
}

TEST_F(Searching, GivesDotsFirstAndEveryNameOnce)
{
    EXPECT_EQ(NamesOf(Path(L"*")), (Names{L".", L".."}));
    drive.Write("a");
    drive.Write(".git/x");
    drive.Write("two words .");
    drive.Write("\xF0\x9F\x98\x80");
    drive.Write("a:b");
    drive.Write("\xFF");
    Names const all{L".", L"..", L".git", L"a", L"a\uF03Ab", L"two words .", L"\xD83D\xDE00", L"\xDCFF"};
    for (wchar_t const* pattern : {L"*", L"\\*", L".\\*", L"*.*"})
        EXPECT_EQ(NamesOf(Path(pattern)), all);
    EXPECT_EQ(NamesOf(L"\\\\?\\" + Path(L".git\\*")), (Names{L".", L"..", L"x"}));
    EXPECT_EQ(NamesOf(Path(L"a")), Names{L"a"});
    EXPECT_EQ(NamesOf(Path(L"A*")), (Names{L"a", L"a\uF03Ab"}));
}

TEST_F(Searching, FailuresHaveThePlatformsCodes)
{
    drive.Write("file");
    std::pair<std::wstring, wchar_t const*> const cases[] = {{Path(L"missing\\*"), L"code 3"},
                                                             {Path(L"missing\\file"), L"code 3"},
                                                             {Path(L"missing"), L"code 2"},
                                                             {Path(L"x*"), L"code 2"},
                                                             {Path(L"file\\*"), L"code 267"},
                                                             {Path(L"file\\x\\*"), L"code 3"},
                                                             {Path(L""), L"code 2"},
                                                             {L"", L"code 2"},
                                                             {L"Q:\\*", L"code 3"},
                                                             {L"\\\\nowhere\\share\\*", L"code 53"}};
    for (auto const& [pattern, code] : cases)
        EXPECT_EQ(NamesOf(pattern), Names{code});
    WIN32_FIND_DATAW data;
    OpenHandle const file = Open(Path(L"file"), GENERIC_READ);
    for (HANDLE const wrong : {INVALID_HANDLE_VALUE, file.Get()})
        VOK_EXPECT_CODE(6, FindNextFileW(wrong, &data));
    VOK_EXPECT_CODE(6, FindClose(file.Get()));
}

TEST_F(Searching, RecordsTellWhatStatusTells)
{
    drive.Write("file", "12345");
    ASSERT_EQ(::chmod(drive.Host("file").c_str(), 0444), 0);
    ASSERT_EQ(::mkdir(drive.Host("directory").c_str(), 0777), 0);
    ASSERT_EQ(::symlink("directory", drive.Host("link").c_str()), 0);
    ASSERT_EQ(::mkfifo(drive.Host("pipe").c_str(), 0666), 0);
    std::tuple<wchar_t const*, DWORD, DWORD, DWORD> const cases[] = {
        {L"directory", FILE_ATTRIBUTE_DIRECTORY, 0, 0},
        {L"link", FILE_ATTRIBUTE_REPARSE_POINT, 0, IO_REPARSE_TAG_SYMLINK},
        {L"pipe", FILE_ATTRIBUTE_NORMAL, 0, 0},
        {L"file", FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_READONLY, 5, 0},
    };
    for (auto const& [name, attributes, size, tag] : cases)
    {
        OpenSearch const search(Path(name));
        ASSERT_TRUE(search);
        EXPECT_EQ(search.data.dwFileAttributes, attributes);
        EXPECT_EQ(search.data.nFileSizeLow, size);
        EXPECT_EQ(search.data.dwReserved0, tag);
    }
    OpenSearch const search(Path(L"file"));
    OpenHandle const file = Open(Path(L"file"), GENERIC_READ);
    FILETIME written{};
    ASSERT_TRUE(GetFileTime(file.Get(), nullptr, nullptr, &written));
    EXPECT_EQ(search.data.ftLastWriteTime.dwLowDateTime, written.dwLowDateTime);
    EXPECT_EQ(search.data.ftLastWriteTime.dwHighDateTime, written.dwHighDateTime);
}

TEST_F(Searching, ADirectorySwappedForALinkLeadsNowhere)
{
    drive.Write("outside/precious");
    drive.Write("tree/sub/file");
    OpenSearch search(Path(L"tree\\*"));
    while (std::wstring_view(search.data.cFileName) != L"sub")
        ASSERT_TRUE(search.Next());
    std::filesystem::remove_all(drive.Host("tree/sub"));
    std::filesystem::create_symlink(drive.Host("outside"), drive.Host("tree/sub"));
    EXPECT_EQ(NamesOf(Path(L"tree\\sub\\*")), Names{L"code 267"});

    // And one further up: what is deleted lies in the directory that is open.
    std::filesystem::rename(drive.Host("tree"), drive.Host("moved"));
    std::filesystem::create_directory(drive.Host("tree"));
    drive.Write("tree/sub", "another");
    EXPECT_TRUE(DeleteFileW(Path(L"tree\\sub").c_str()));
    EXPECT_TRUE(drive.Exists("tree/sub"));
    EXPECT_FALSE(drive.Exists("moved/sub"));
    EXPECT_TRUE(drive.Exists("outside/precious"));
}

TEST_F(Searching, ALinkThatWasToldOfIsFollowed)
{
    drive.Write("outside/file");
    ASSERT_EQ(::mkdir(drive.Host("tree").c_str(), 0777), 0);
    ASSERT_EQ(::symlink("../outside", drive.Host("tree/link").c_str()), 0);
    OpenSearch search(Path(L"tree\\*"));
    while (std::wstring_view(search.data.cFileName) != L"link")
        ASSERT_TRUE(search.Next());
    EXPECT_EQ(NamesOf(Path(L"tree\\link\\*")), (Names{L".", L"..", L"file"}));
}

TEST_F(Searching, EndsOnAnyThreadAndIsForgotten)
{
    drive.Write("tree/file");
    std::size_t const descriptors = OpenDescriptors();
    WIN32_FIND_DATAW data;
    HANDLE const search = FindFirstFileW(Path(L"tree\\*").c_str(), &data);
    std::thread([&] { EXPECT_TRUE(FindClose(search)); }).join();
    EXPECT_EQ(OpenDescriptors(), descriptors);
    std::filesystem::rename(drive.Host("tree"), drive.Host("moved"));
    drive.Write("tree/file");
    EXPECT_TRUE(DeleteFileW(Path(L"tree\\file").c_str()));
    EXPECT_TRUE(drive.Exists("moved/file"));
}

TEST_F(Searching, TakesFewDescriptorsInTheDepth)
{
    constexpr int depth = 60;
    std::string host = "d";
    for (int i = 0; i < depth; ++i, host += "/m")
        for (char const* const name : {"/a", "/z"})
            drive.Write(host + name);
    drive.Write(host + "/bottom");
    std::size_t const before = OpenDescriptors();
    std::size_t most = 0;
    int deleted = 0;
    std::function<void(std::wstring const&)> const deleteBelow = [&](std::wstring const& directory)
    {
        OpenSearch search(directory + L"\\*");
        ASSERT_TRUE(search) << GetLastError();
        while (search.Next())
        {
            std::wstring const name = search.data.cFileName;
            if (name == L"..")
                continue;
            std::wstring const path = directory + L"\\" + name;
            bool const isDirectory = (search.data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
            if (isDirectory)
                deleteBelow(path);
            ASSERT_TRUE(isDirectory ? RemoveDirectoryW(path.c_str()) : DeleteFileW(path.c_str())) << GetLastError();
            ++deleted;
        }
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
        most = std::max(most, OpenDescriptors() - before);
    };
    deleteBelow(Path(L"d"));
    EXPECT_EQ(deleted, 3 * depth + 1);
    EXPECT_LE(most, 20U);
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(Searching, AParkedDirectoryIsNotMistakenForAnother)
{
    std::string host = "d";
    std::wstring path = Path(L"d");
    std::list<OpenSearch> searches;
    std::size_t const before = OpenDescriptors();
    drive.Write("outside/precious");
    drive.Write("d/precious");
    for (int i = 0; i < 30; ++i, host += "/m", path += L"\\m")
    {
        ::mkdir(drive.Host(host).c_str(), 0777);
        ASSERT_TRUE(searches.emplace_back(path + L"\\*"));
    }
    OpenSearch& parked = searches.front();
    std::filesystem::rename(drive.Host("d"), drive.Host("moved"));
    std::filesystem::create_symlink("outside", drive.Host("d"));
    VOK_EXPECT_CODE(3, DeleteFileW(Path(L"d\\precious").c_str()));
    VOK_EXPECT_CODE(3, parked.Next());
    EXPECT_TRUE(drive.Exists("outside/precious"));
    EXPECT_TRUE(drive.Exists("moved/precious"));
    std::filesystem::remove(drive.Host("d"));
    std::filesystem::rename(drive.Host("moved"), drive.Host("d"));
    EXPECT_TRUE(parked.Next());
    EXPECT_STREQ(parked.data.cFileName, L".."); // nothing is lost
    EXPECT_TRUE(DeleteFileW(Path(L"d\\precious").c_str()));
    for (OpenSearch& each : searches) // which take turns
    {
        EXPECT_TRUE(each.Next());
        EXPECT_LE(OpenDescriptors() - before, 20U);
    }
}

} // namespace
