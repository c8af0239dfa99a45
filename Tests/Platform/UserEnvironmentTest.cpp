#include "EnvironmentFile.h"

#include "Support/HostFaults.h"
#include "Support/HostVariable.h"
#include "Support/OpenHandle.h"
#include "Support/TestDrive.h"

#include <Brindle/Vok/Platform.h>
#include <Brindle/Vok/PlatformHost.h>

#include <gmock/gmock.h>

#include <pwd.h>
#include <string>
#include <string_view>
#include <vector>

using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;
using testing::Contains;
using testing::ElementsAre;
using testing::IsSupersetOf;
using testing::Not;

TEST(EnvironmentFile, LinesOfAnotherFormCountAsNone)
{
    using Variables = std::vector<std::pair<std::string, std::string>>;
    std::pair<std::string_view, Variables> const cases[] = {
        {"", {}},
        {"A=b", {{"A", "b"}}},
        {" A1_=b c \r\n\n#B=c\nexport C=\"d # e\nexportD=\nA1_=e",
         {{"A1_", "b c"}, {"C", "\"d"}, {"exportD", ""}, {"A1_", "e"}}},
        {"A=\"b\"\nB='c d'\nC=\"'d'\"\nD=\"\nE='f\"",
         {{"A", "b"}, {"B", "c d"}, {"C", "'d'"}, {"D", "\""}, {"E", "'f\""}}},
        {"export\t A=b=c", {{"A", "b=c"}}},
        {"A\n=b\nA-B=c\nA =d\nexport export A=e\nexport", {}},
        {std::string_view("A=b\0c\nB=d", 9), {{"B", "d"}}},
    };
    for (auto const& [file, expected] : cases)
        EXPECT_EQ(ParseEnvironmentFile(file), expected) << file;
}

namespace
{

class UserEnvironment : public testing::Test
{
protected:
    /// The entries of a block, made while the system's file has this content.
    std::vector<std::wstring> Block(HANDLE token, bool inherit, std::string const& file)
    {
        drive.Write("environment", file);
        SystemCalls::Redirection const instead(SystemCalls::Open,
                                               [this](int directory, char const* path, int flags, mode_t mode)
                                               {
                                                   std::string const own = drive.Host("environment");
                                                   bool const isFile = std::string_view(path) == "/etc/environment";
                                                   return SystemCalls::Open.host(directory, isFile ? own.c_str() : path,
                                                                                 flags, mode);
                                               });
        void* block = nullptr;
        EXPECT_EQ(CodeOf([&] { return CreateEnvironmentBlock(&block, token, inherit); }), 0U);
        std::vector<std::wstring> entries;
        for (auto const* at = static_cast<wchar_t const*>(block); *at != 0; at += entries.back().size() + 1)
            entries.emplace_back(at);
        EXPECT_EQ(CodeOf([&] { return DestroyEnvironmentBlock(block); }), 0U);
        return entries;
    }

    TestDrive drive;
    HostVariable const mixed{"Vok_Test", "of process"};
    HostVariable const temp{"TEMP", "/of/process"};
};

TEST_F(UserEnvironment, IsSortedWithoutCaseAndHoldsANameOnce)
{
    EXPECT_THAT(Block(nullptr, false, "b=1\nA=2\n_=3\nC=\xC3\xA9\na=4\n"),
                ElementsAre(L"a=4", L"b=1", L"C=\u00E9", L"TEMP=C:\\tmp", L"TMP=C:\\tmp", L"_=3"));
    EXPECT_THAT(Block(nullptr, false, "tmp=/a:b\n"), ElementsAre(L"TEMP=C:\\a\uF03Ab", L"tmp=C:\\a\uF03Ab"));
    EXPECT_THAT(Block(nullptr, false, "TEMP=X:\\t\n"), ElementsAre(L"TEMP=X:\\t", L"TMP=X:\\t"));
}

TEST_F(UserEnvironment, IsInheritedBelowTheSystems)
{
    EXPECT_THAT(Block(nullptr, true, ""), IsSupersetOf({L"Vok_Test=of process", L"TEMP=C:\\of\\process"}));
    auto const both = Block(nullptr, true, "VOK_TEST=of system\nTEMP=/of/system");
    EXPECT_THAT(both, IsSupersetOf({L"VOK_TEST=of system", L"TEMP=C:\\of\\system"}));
    EXPECT_THAT(both, Not(Contains(L"Vok_Test=of process")));
}

TEST_F(UserEnvironment, OfATokenHasWhatTheDatabaseSaysOfItsUser)
{
    OpenHandle const nobody(OpenUserToken("nobody"));
    EXPECT_THAT(Block(nobody.Get(), false, "username=other\nX=y"),
                ElementsAre(L"APPDATA=C:\\nonexistent\\.config", L"HOME=/nonexistent", L"HOMEDRIVE=C:",
                            L"HOMEPATH=\\nonexistent", L"LOCALAPPDATA=C:\\nonexistent\\.local\\share",
                            L"LOGNAME=nobody", L"SHELL=/usr/sbin/nologin", L"TEMP=C:\\tmp", L"TMP=C:\\tmp",
                            L"USER=nobody", L"USERNAME=nobody", L"USERPROFILE=C:\\nonexistent", L"X=y"));
}

TEST_F(UserEnvironment, FailuresHaveTheirCodesAndLeaveNull)
{
    auto const codeOf = [](HANDLE token)
    {
        void* block = &token;
        DWORD const code = CodeOf([&] { return CreateEnvironmentBlock(&block, token, TRUE); });
        EXPECT_EQ(block, nullptr);
        return code;
    };
    EXPECT_EQ(CodeOf([] { return CreateEnvironmentBlock(nullptr, nullptr, TRUE); }), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(codeOf(INVALID_HANDLE_VALUE), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(codeOf(OwnToken(TOKEN_QUERY).Get()), DWORD{ERROR_ACCESS_DENIED});
    SystemCalls::Redirection const none(SystemCalls::FindUser,
                                        [](auto, auto, auto, auto, passwd** found)
                                        {
                                            *found = nullptr;
                                            return 0;
                                        });
    EXPECT_EQ(codeOf(OwnToken(TOKEN_QUERY | TOKEN_DUPLICATE).Get()), DWORD{ERROR_NO_SUCH_USER});
}

TEST_F(UserEnvironment, NothingIsFreedThatIsNoBlock)
{
    wchar_t foreign[2] = {};
    void* block = nullptr;
    ASSERT_TRUE(CreateEnvironmentBlock(&block, nullptr, FALSE));
    for (void* const none : {static_cast<void*>(foreign), static_cast<void*>(static_cast<wchar_t*>(block) + 1),
                             static_cast<void*>(nullptr)})
        VOK_EXPECT_CODE(ERROR_INVALID_PARAMETER, DestroyEnvironmentBlock(none));
    VOK_EXPECT_CODE(ERROR_SUCCESS, DestroyEnvironmentBlock(block));
    VOK_EXPECT_CODE(ERROR_INVALID_PARAMETER, DestroyEnvironmentBlock(block));
}

} // namespace
