// Saving, stopping and restoring the impersonation of a thread.
#include <Brindle/Vok/PlatformHost.h>
#include <Brindle/Vok/UnImpersonator.h>
#include <Brindle/Vok/VokAccessToken.h>

#include "Support/HostFaults.h"
#include "Support/KernelIdentity.h"
#include "Support/LogRecorder.h"
#include "Support/OwnImpersonation.h"
#include "Support/Replacement.h"

#include <gmock/gmock.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

/// The code with which OpenThreadToken fails; 0 lets it through.
std::function<DWORD(DWORD access, BOOL openAsSelf)> refuseThreadToken;
/// What GetTokenInformation tells as the type; 0 stands for a failure with the code 24.
std::optional<int> tokenType;

bool Refuses(DWORD access, BOOL openAsSelf)
{
    DWORD const code = refuseThreadToken ? refuseThreadToken(access, openAsSelf) : 0;
    return code != 0 && (SetLastError(code), true);
}

BOOL TellType(void* information)
{
    *static_cast<TOKEN_TYPE*>(information) = static_cast<TOKEN_TYPE>(*tokenType);
    return *tokenType != 0 || (SetLastError(24), false);
}

} // namespace

VOK_TEST_REPLACE(Refuses(access, openAsSelf), FALSE, BOOL, OpenThreadToken,
                 (HANDLE a, DWORD access, BOOL openAsSelf, PHANDLE d), (a, access, openAsSelf, d))
VOK_TEST_REPLACE(kind == TokenType && tokenType, TellType(information), BOOL, GetTokenInformation,
                 (HANDLE a, TOKEN_INFORMATION_CLASS kind, LPVOID information, DWORD d, DWORD* e),
                 (a, kind, information, d, e))

namespace
{

constexpr DWORD query = TOKEN_QUERY;
constexpr DWORD impersonation = TOKEN_QUERY | TOKEN_IMPERSONATE;
constexpr DWORD duplication = TOKEN_QUERY | TOKEN_DUPLICATE;
constexpr DWORD self = 0x100; ///< added to the rights that are asked for as self

using VokAccessTokens = ImpersonationTests;
using ImpersonationSavers = ImpersonationTests;

} // namespace

TEST_F(VokAccessTokens, CaptureTheThreadsImpersonation)
{
    LogRecorder const recorder;
    VokAccessToken captured;
    EXPECT_TRUE(captured.GetCurrentTokenForImpersonation());
    EXPECT_EQ(captured.GetHandle(), nullptr); // not impersonating
    Impersonate();
    EXPECT_TRUE(captured.GetCurrentTokenForImpersonation());
    EXPECT_TRUE(RevertToSelf());
    EXPECT_TRUE(captured.ImpersonateLoggedOnUser());
    HANDLE const held = captured.GetHandle();
    captured.AttachForeign(token);
    EXPECT_FALSE(CloseHandle(held)); // that one was its own
    captured.Clear();                // the impersonation stays
    EXPECT_TRUE(Impersonates());
    EXPECT_FALSE(captured.ImpersonateLoggedOnUser()); // nothing to do it with
    captured.AttachForeign(token);
    TOKEN_TYPE type{};
    EXPECT_TRUE(captured.GetType(&type)); // is still open
    EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(VokAccessTokens, LogWhyNothingIsCaptured)
{
    struct Case
    {
        std::vector<DWORD> codes; // of each opening, 0 lets it through
        std::optional<int> type;
        bool isCaptured;
        std::vector<DWORD> rights; // asked for
        std::vector<std::string> lines;
    };
    std::string const asSelf = "warning: Error Failed to GetThreadToken Error [5]. Trying as self...";
    std::string const neither = "error: Failed to GetThreadToken() as the current process. Error: [7]";
    std::string const failed = "error: Error Failed to Get";
    for (auto const& [codes, type, isCaptured, rights, lines] :
         {Case{{5, 0, 0}, {}, true, {query, self + query, self + impersonation}, {asSelf}},
          Case{{5, 7}, {}, false, {query, self + query}, {asSelf, neither}},
          Case{{0, 6}, {}, false, {query, impersonation}, {failed + "ThreadToken impersonate Error [6]"}},
          Case{{0, 0}, TokenPrimary, true, {query, duplication}, {}},
          Case{{0, 6}, TokenPrimary, false, {query, duplication}, {failed + "ThreadToken primary Error [6]"}},
          Case{{0}, 3, false, {query}, {failed + "ThreadToken. unknown type Error [77]"}},
          Case{{0}, 0, false, {query}, {failed + "Type Error [24]"}}})
    {
        Impersonate();
        VokAccessToken captured;
        LogRecorder const recorder;
        std::vector<DWORD> asked;
        tokenType = type;
        refuseThreadToken = [&, &codes = codes](DWORD access, BOOL openAsSelf)
        {
            asked.push_back(access + (openAsSelf ? self : 0));
            return codes[std::min(asked.size(), codes.size()) - 1];
        };
        SetLastError(77);
        EXPECT_EQ(captured.GetCurrentTokenForImpersonation(), isCaptured);
        refuseThreadToken = nullptr;
        tokenType.reset();
        EXPECT_EQ(captured.GetHandle() != nullptr, isCaptured);
        EXPECT_EQ(asked, rights);
        EXPECT_EQ(recorder.Lines(), lines);
    }
}

TEST_F(ImpersonationSavers, RevertByWhatIsReported)
{
    std::pair<std::vector<int>, bool> const cases[] = {{{}, true},     {{0}, false},   {{1}, true},    {{-1}, false},
                                                       {{1, 0}, true}, {{0, 2}, true}, {{2, 0}, false}};
    for (auto const& [reports, reverts] : cases)
    {
        LogRecorder const recorder;
        {
            ImpersonationSaver saver;
            EXPECT_FALSE(saver.WasImpersonating());
            for (int const occurred : reports)
                saver.SetImpersonationOccurred(occurred);
            Impersonate();
        }
        EXPECT_EQ(Impersonates(), !reverts);
        std::vector<std::string> const line{"info: Not reverting as no impersonation occurred"};
        EXPECT_EQ(recorder.Lines(), reverts ? std::vector<std::string>{} : line);
        EXPECT_TRUE(RevertToSelf());
    }
}

TEST_F(ImpersonationSavers, NestAlsoWhenAnExceptionPasses)
{
    VOK_NEEDS_SUPERUSER();
    KernelIdentity const process;
    OpenHandle const daemon(Platform::OpenUserToken("daemon"));
    OpenHandle const somebody(Platform::OpenUserToken("nobody"));
    {
        ImpersonationSaver const outer;
        EXPECT_TRUE(ImpersonateLoggedOnUser(daemon.Get()));
        KernelIdentity const asDaemon;
        auto const fail = [&]
        {
            ImpersonationSaver const inner;
            EXPECT_TRUE(ImpersonateLoggedOnUser(somebody.Get()));
            {
                UnImpersonator const asProcess;
                EXPECT_EQ(KernelIdentity(), process);
            }
            EXPECT_EQ(KernelIdentity().user, 65534U);
            throw 1;
        };
        EXPECT_THROW(fail(), int);
        EXPECT_EQ(KernelIdentity(), asDaemon);
    }
    EXPECT_EQ(KernelIdentity(), process);
}

TEST_F(ImpersonationSavers, LogWhatTheKernelRefusesAndGoOn)
{
    VOK_NEEDS_SUPERUSER();
    OpenHandle const daemon(Platform::OpenUserToken("daemon"));
    EXPECT_TRUE(ImpersonateLoggedOnUser(daemon.Get()));
    KernelIdentity const impersonated;
    LogRecorder const recorder;
    {
        SystemCalls::Redirection const refusal(SystemCalls::SetCapabilities, FailingWith(EPERM));
        UnImpersonator const asProcess;
    }
    EXPECT_THAT(recorder.Lines(),
                ElementsAre("trace: [ENTER]", "error: Failed to stop impersonating [1314]", "trace: [EXIT]",
                            "error: Failed to RevertToSelf. Error [1314]", impersonatesAgain,
                            "error: Failed to Revert with ImpersonateLoggedOnUser. Error [1314]",
                            hasImpersonated)); // required
    EXPECT_EQ(KernelIdentity(), impersonated);
}

TEST_F(ImpersonationSavers, AreInWhatStopsAnImpersonationForAScope)
{
    LogRecorder const recorder;
    Impersonate();
    {
        UnImpersonator const asProcess;
        EXPECT_FALSE(Impersonates());
    }
    EXPECT_TRUE(Impersonates());
    EXPECT_THAT(recorder.Lines(), ElementsAre("trace: [ENTER]", "info: Impersonation stopped", "trace: [EXIT]",
                                              impersonatesAgain, hasImpersonated));
}
