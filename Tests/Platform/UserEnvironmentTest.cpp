#include "Support/StandIn.h"

#include <gmock/gmock.h>

using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;
using testing::Contains;
using testing::ElementsAre;
using testing::IsSupersetOf;
using testing::Not;

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

TEST_F(UserEnvironment, NeedsATokensRightsAndFreesNothingThatIsNoBlock)
{
    void* block = this;
    VOK_EXPECT_CODE(ERROR_INVALID_HANDLE, CreateEnvironmentBlock(&block, INVALID_HANDLE_VALUE, TRUE));
    VOK_EXPECT_CODE(ERROR_ACCESS_DENIED, CreateEnvironmentBlock(&block, OwnToken(TOKEN_QUERY).Get(), TRUE));
    EXPECT_EQ(block, nullptr);
    ASSERT_TRUE(CreateEnvironmentBlock(&block, nullptr, FALSE));
    for (void* const none : {static_cast<void*>(this), static_cast<void*>(nullptr)})
        VOK_EXPECT_CODE(ERROR_INVALID_PARAMETER, DestroyEnvironmentBlock(none));
    VOK_EXPECT_CODE(ERROR_SUCCESS, DestroyEnvironmentBlock(block));
    VOK_EXPECT_CODE(ERROR_INVALID_PARAMETER, DestroyEnvironmentBlock(block));
}

} // namespace
