#include "Pattern.h"

#include "Support/StandIn.h"

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
        {L"a?", {L"a", L"ab"}, {L"abc"}},
        {L"a.?", {L"a", L"a.", L"a.b"}, {L"a.bc"}},
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
                                                             {Path(L"missing"), L"code 2"},
                                                             {Path(L"x*"), L"code 2"},
                                                             {Path(L"file\\*"), L"code 267"},
                                                             {L"", L"code 2"},
                                                             {L"Q:\\*", L"code 3"},
                                                             {L"\\\\nowhere\\share\\*", L"code 53"}};
    for (auto const& [pattern, code] : cases)
        EXPECT_EQ(NamesOf(pattern), Names{code});
    WIN32_FIND_DATAW data;
    OpenHandle const file = Open(Path(L"file"), GENERIC_READ);
    VOK_EXPECT_CODE(6, FindNextFileW(file.Get(), &data));
    VOK_EXPECT_CODE(6, FindClose(file.Get()));
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

TEST_F(Searching, AParkedDirectoryIsNotMistakenForAnother)
{
    drive.Write("outside/precious");
    drive.Write("d/precious");
    std::list<OpenSearch> searches;
    std::size_t const before = OpenDescriptors();
    std::wstring path = Path(L"d");
    for (std::string host = "d"; searches.size() < 30; host += "/m", path += L"\\m")
    {
        std::filesystem::create_directory(drive.Host(host));
        ASSERT_TRUE(searches.emplace_back(path + L"\\*"));
    }
    EXPECT_LE(OpenDescriptors() - before, 20U);
    std::filesystem::rename(drive.Host("d"), drive.Host("moved"));
    std::filesystem::create_symlink("outside", drive.Host("d"));
    VOK_EXPECT_CODE(3, DeleteFileW(Path(L"d\\precious").c_str()));
    VOK_EXPECT_CODE(3, searches.front().Next());
    EXPECT_TRUE(drive.Exists("outside/precious"));
    EXPECT_TRUE(drive.Exists("moved/precious"));
    std::filesystem::remove(drive.Host("d"));
    std::filesystem::rename(drive.Host("moved"), drive.Host("d"));
    for (OpenSearch& each : searches)
    {
        EXPECT_TRUE(each.Next());
        EXPECT_STREQ(each.data.cFileName, L"..") << "nothing is lost";
    }
}

} // namespace
