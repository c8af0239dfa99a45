#include "Names.h"

#include "Support/StandIn.h"

using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;

namespace
{

struct NameCase
{
    std::wstring text;
    std::string host; // `~` at the start stands for the directory behind drive T: and the share.
    bool namesDirectory = false;
};

class Names : public testing::Test
{
protected:
    Names()
    {
        MapDrive(L'T', drive.Host());
        MapShare(L"Server", L"Share", drive.Host());
    }
    ~Names() override { UnmapDrive(L'T'); }

    TestDrive drive;
};

TEST_F(Names, EveryFormLeadsToItsHostPath)
{
    std::string many = "/";
    for (int i = 0; i < 700; ++i)
        many += "\xE2\x82\xAC";
    NameCase const cases[] = {
        {L"C:\\tmp\\a", "/tmp/a"},
        {L"c:/tmp/a", "/tmp/a"},
        {L"C:\\tmp\\", "/tmp", true},
        {L"C:", "."},
        {L"T:\\a", "~/a"},
        {L"T:", "~"},
        {L"\\\\server\\SHARE\\a", "~/a"},
        {L"\\\\?\\unc\\server\\share\\a", "~/a"},
        {L"\\\\.\\T:\\a\\..\\b/c", "~/b/c"},
        // Dots fold by text and stay below their root.
        {L"..\\..\\a", "../../a"},
        {L"..\\a\\..\\..\\b", "../../b"},
        {L"C:\\..\\..\\a", "/a"},
        {L"C:\\a\\.\\b\\..\\c", "/a/c"},
        {L"\\\\Server\\Share\\..\\..\\a\\", "~/a", true},
        // Characters become bytes.
        {L"C:\\\u00E9\xD83D\xDE00", "/\xC3\xA9\xF0\x9F\x98\x80"},
        {L"C:\\" + std::wstring(700, L'\u20AC'), many},
    };
    for (NameCase const& each : cases)
    {
        SCOPED_TRACE(testing::PrintToString(each.text));
        HostPath path;
        VOK_EXPECT_CODE(0, path.Assign(each.text.c_str()));
        EXPECT_EQ(path.View(), each.host.starts_with('~') ? drive.Host() + each.host.substr(1) : each.host);
        EXPECT_EQ(path.Text()[path.View().size()], '\0');
        EXPECT_EQ(path.NamesDirectory(), each.namesDirectory);
    }
}

TEST_F(Names, WhatIsNoPathFailsWithItsCode)
{
    std::pair<DWORD, std::vector<std::wstring>> const cases[] = {
        {2, {L"\\\\.\\pipe\\x"}},
        {3, {L"", L"Q:\\a", L"\\\\?\\Q:\\a", L"\\\\?\\"}},
        {53, {L"\\\\nobody\\share\\a"}},
        {67, {L"\\\\server\\other\\a"}},
        {87, {L"\\\\?\\C:"}},
        {123, {L"\\\\?\\C:\\a/b", L"\\\\?\\C:\\a\\.", L"\\\\?\\UNC\\server\\share\\..", L"C:\\a<", L"C:\\a:b"}},
        {123, {L"C:\\\x1F", L"C:\\\xD83D", L"C:\\\xDC7F", L"C:\\\x10000"}},
        {161, {L"\\\\"}},
    };
    for (auto const& [code, texts] : cases)
        for (std::wstring const& text : texts)
            VOK_EXPECT_CODE(code, HostPath().Assign(text.c_str())) << testing::PrintToString(text);
}

TEST(HostNames, BecomeTextThatLeadsBackToTheSameBytes)
{
    std::pair<std::string, std::wstring> const cases[] = {
        {"a:b\\c*?\"<>|\x01\x1F", L"a\xF03A"
                                  L"b\xF05C"
                                  L"c\xF02A\xF03F\xF022\xF03C\xF03E\xF07C\xF001\xF01F"},
        {"\xFFx\xC3", L"\xDCFFx\xDCC3"},
        {"\xED\xA0\x80", L"\xDCED\xDCA0\xDC80"},
        {"\xEF\x80\xBA", L"\xDCEF\xDC80\xDCBA"},                         // U+F03A itself
        {"\xEF\x80\xAF\xEF\x80\x80\xEF\x81\xBF", L"\xF02F\xF000\xF07F"}, // Neighbours that stand for nothing
        {"\xED\xB2\x80", L"\xDCED\xDCB2\xDC80"},                         // U+DC80 itself
    };
    for (auto const& [name, text] : cases)
    {
        EXPECT_EQ(WideNameFromHost(name), text);
        HostPath path;
        EXPECT_TRUE(path.Assign(text));
        EXPECT_EQ(path.View(), name);
    }
}

TEST(HostNames, WholePathsBecomeWindowsSyntax)
{
    std::pair<char const*, wchar_t const*> const cases[] = {
        {"/tmp", L"C:\\tmp"}, {"/", L"C:\\"}, {"//a///b/", L"C:\\a\\b\\"}, {"a/?b", L"a\\\uF03Fb"}, {"", L""}};
    for (auto const& [host, text] : cases)
        EXPECT_EQ(WindowsPathFromHost(host), text);
}

TEST(Mappings, AreCheckedAndKeepTheirDirectoryWhenTheWorkingOneChanges)
{
    TestDrive drive;
    drive.Write("inside/file");
    std::filesystem::path const before = std::filesystem::current_path();
    std::filesystem::current_path(drive.Host());
    EXPECT_TRUE(MapDrive(L'd', "inside/"));
    EXPECT_TRUE(MapShare(L"relative", L"share", "inside"));
    std::filesystem::current_path(before);
    HostPath path;
    for (wchar_t const* const text : {L"D:\\file", L"\\\\RELATIVE\\SHARE\\file"})
    {
        EXPECT_TRUE(path.Assign(text));
        EXPECT_EQ(path.View(), drive.Host("inside/file"));
    }
    VOK_EXPECT_CODE(85, MapDrive(L'D', "/"));
    EXPECT_TRUE(UnmapDrive(L'D'));
    EXPECT_FALSE(path.Assign(L"D:\\file"));
    VOK_EXPECT_CODE(15, MapDrive(L'1', "/"));
    VOK_EXPECT_CODE(267, MapDrive(L'D', drive.Host("inside/file")));
}

} // namespace
