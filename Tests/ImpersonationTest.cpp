// Saving, stopping and restoring the impersonation of a thread.
#include "SystemCalls.h"

#include <Brindle/Vok/DirectoryMonitor.h>
#include <Brindle/Vok/PlatformHost.h>
#include <Brindle/Vok/Synchronization.h>
#include <Brindle/Vok/UnImpersonator.h>
#include <Brindle/Vok/VokAccessToken.h>

#include "Support/HostFaults.h"
#include "Support/KernelIdentity.h"
#include "Support/LogRecorder.h"
#include "Support/OwnImpersonation.h"
#include "Support/Replacement.h"
#include "Support/TestDrive.h"

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
/// What GetTokenInformation tells as the type, or the code with which it fails to.
std::optional<TOKEN_TYPE> tokenType;
DWORD tokenTypeCode = 0;

bool Refuses(DWORD access, BOOL openAsSelf)
{
    DWORD const code = refuseThreadToken ? refuseThreadToken(access, openAsSelf) : 0;
    return code != 0 && (SetLastError(code), true);
}

BOOL TellType(void* information)
{
    if (tokenTypeCode != 0)
        return SetLastError(tokenTypeCode), FALSE;
    *static_cast<TOKEN_TYPE*>(information) = *tokenType;
    return TRUE;
}

} // namespace

VOK_TEST_REPLACE(Refuses(access, openAsSelf), FALSE, BOOL, OpenThreadToken,
                 (HANDLE a, DWORD access, BOOL openAsSelf, PHANDLE d), (a, access, openAsSelf, d))
VOK_TEST_REPLACE(kind == TokenType && (tokenType || tokenTypeCode != 0), TellType(information), BOOL,
                 GetTokenInformation, (HANDLE a, TOKEN_INFORMATION_CLASS kind, LPVOID information, DWORD d, DWORD* e),
                 (a, kind, information, d, e))

namespace
{

constexpr DWORD query = TOKEN_QUERY;
constexpr DWORD impersonation = TOKEN_QUERY | TOKEN_IMPERSONATE;
constexpr DWORD duplication = TOKEN_QUERY | TOKEN_DUPLICATE;
constexpr DWORD self = 0x100; ///< added to the rights that are asked for as self
constexpr char const* leavesAlone = "info: Not reverting as no impersonation occurred";

struct ReplacedImpersonationTests : ImpersonationTests
{
    ~ReplacedImpersonationTests() override { LetThrough(); }

    static void LetThrough()
    {
        refuseThreadToken = nullptr;
        tokenType.reset();
        tokenTypeCode = 0;
    }
};

using VokAccessTokens = ReplacedImpersonationTests;
using ImpersonationSavers = ReplacedImpersonationTests;
using UnImpersonators = ReplacedImpersonationTests;

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
    captured.Clear(); // the impersonation stays
    EXPECT_TRUE(Impersonates());
    EXPECT_FALSE(captured.ImpersonateLoggedOnUser()); // nothing to do it with
    EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(VokAccessTokens, LogWhyNothingIsCaptured)
{
    struct Case
    {
        std::vector<DWORD> codes; // of each opening, 0 lets it through
        std::optional<TOKEN_TYPE> type;
        DWORD typeCode;
        bool isCaptured;
        std::vector<DWORD> rights; // asked for
        std::vector<std::string> lines;
    };
    std::string const asSelf = "warning: Error Failed to GetThreadToken Error [5]. Trying as self...";
    std::string const neither = "error: Failed to GetThreadToken() as the current process. Error: [7]";
    std::string const failed = "error: Error Failed to Get";
    auto const unknown = static_cast<TOKEN_TYPE>(3);
    for (auto const& [codes, type, typeCode, isCaptured, rights, lines] :
         {Case{{0}, {}, 0, true, {query, impersonation}, {}},
          Case{{5, 0, 0}, {}, 0, true, {query, self + query, self + impersonation}, {asSelf}},
          Case{{5, 7}, {}, 0, false, {query, self + query}, {asSelf, neither}},
          Case{{0, 6}, {}, 0, false, {query, impersonation}, {failed + "ThreadToken impersonate Error [6]"}},
          Case{{0, 0}, TokenPrimary, 0, true, {query, duplication}, {}},
          Case{{0, 6}, TokenPrimary, 0, false, {query, duplication}, {failed + "ThreadToken primary Error [6]"}},
          Case{{0}, unknown, 0, false, {query}, {failed + "ThreadToken. unknown type Error [77]"}},
          Case{{0}, {}, 24, false, {query}, {failed + "Type Error [24]"}}})
    {
        Impersonate();
        VokAccessToken captured;
        EXPECT_TRUE(captured.GetCurrentTokenForImpersonation()); // to be let go of
        HANDLE const held = captured.GetHandle();
        LogRecorder const recorder;
        std::vector<DWORD> asked;
        tokenType = type;
        tokenTypeCode = typeCode;
        refuseThreadToken = [&, &codes = codes](DWORD access, BOOL openAsSelf)
        {
            asked.push_back(access + (openAsSelf ? self : 0));
            return codes[std::min(asked.size(), codes.size()) - 1];
        };
        SetLastError(77);
        EXPECT_EQ(captured.GetCurrentTokenForImpersonation(), isCaptured);
        EXPECT_EQ(captured.GetHandle() != nullptr, isCaptured);
        EXPECT_FALSE(CloseHandle(held));
        EXPECT_EQ(asked, rights);
        EXPECT_EQ(recorder.Lines(), lines);
        for (LogStatement const& statement : recorder.Statements())
            EXPECT_STREQ(statement.function, "Brindle::Vok::VokAccessToken::GetCurrentTokenForImpersonation");
        LetThrough();
    }
}

TEST_F(VokAccessTokens, ForgetATokenThatIsNotTheirs)
{
    {
        VokAccessToken foreign;
        foreign.AttachForeign(token);
        EXPECT_TRUE(foreign.ImpersonateLoggedOnUser());
        foreign.Clear();
        EXPECT_EQ(foreign.GetHandle(), nullptr);
        foreign.AttachForeign(token);
        foreign.AttachForeign(token);
    }
    TOKEN_TYPE type{};
    VokAccessToken own;
    own.AttachForeign(token);
    EXPECT_TRUE(own.GetType(&type)); // still open
    EXPECT_TRUE(own.GetCurrentTokenForImpersonation());
    HANDLE const held = own.GetHandle();
    own.AttachForeign(nullptr);
    EXPECT_FALSE(CloseHandle(held)); // that one was its own
}

TEST_F(ImpersonationSavers, RevertByWhatIsReported)
{
    struct Case
    {
        std::vector<int> reports;
        bool reverts;
    };
    for (auto const& [reports, reverts] :
         {Case{{}, true}, Case{{0}, false}, Case{{1}, true}, Case{{2}, false}, Case{{-1}, false}, Case{{1, 0}, true},
          Case{{0, 1}, true}, Case{{0, 2}, true}, Case{{2, 0}, false}, Case{{0, 0}, false}, Case{{0, 1, 0}, true}})
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
        EXPECT_EQ(recorder.Lines(), reverts ? std::vector<std::string>{} : std::vector<std::string>{leavesAlone});
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
        ImpersonationSaver const saver;
        SystemCalls::Redirection const refusal(SystemCalls::SetCapabilities, FailingWith(EPERM));
        {
            UnImpersonator const asProcess;
        }
        // The saver ends behind the refusal.
    }
    std::string const cannotRevert = "error: Failed to RevertToSelf. Error [1314]";
    std::string const cannotImpersonate = "error: Failed to Revert with ImpersonateLoggedOnUser. Error [1314]";
    EXPECT_THAT(recorder.Lines(),
                ElementsAre("trace: [ENTER]", "error: Failed to stop impersonating [1314]", "trace: [EXIT]",
                            cannotRevert, impersonatesAgain, cannotImpersonate, hasImpersonated, // required
                            impersonatesAgain, hasImpersonated));
    EXPECT_EQ(KernelIdentity(), impersonated);
}

TEST_F(UnImpersonators, StopAnImpersonationForTheirScope)
{
    LogRecorder const recorder;
    {
        UnImpersonator const nothing;
        Impersonate();
    }
    EXPECT_FALSE(Impersonates());
    Impersonate();
    {
        UnImpersonator const asProcess;
        EXPECT_FALSE(Impersonates());
    }
    EXPECT_TRUE(Impersonates());
    EXPECT_THAT(recorder.Lines(),
                ElementsAre("trace: [ENTER]", "trace: [EXIT]", "trace: [ENTER]", "info: Impersonation stopped",
                            "trace: [EXIT]", impersonatesAgain, hasImpersonated));
    EXPECT_STREQ(recorder.Statements().front().function, "Brindle::Vok::UnImpersonator::UnImpersonator");
    EXPECT_STREQ(recorder.Statements().back().function, "Brindle::Vok::ImpersonationSaver::~ImpersonationSaver");
    // One whose token could not be captured isn't stopped, nor is there a way back to it.
    refuseThreadToken = [](auto...) { return DWORD{5}; };
    {
        UnImpersonator const asProcess;
        refuseThreadToken = nullptr;
        EXPECT_TRUE(Impersonates());
    }
    EXPECT_FALSE(Impersonates());
}

TEST(Impersonation, IsNotForTheThreadOfAMonitor)
{
    VOK_NEEDS_SUPERUSER();
    TestDrive const drive;
    KernelIdentity const process;
    EXPECT_TRUE(ImpersonateLoggedOnUser(OpenHandle(Platform::OpenUserToken("daemon")).Get()));
    Event told(L"", true);
    KernelIdentity seen;
    auto const monitor = MakeDirectoryMonitorFactory()->MakeDirectoryMonitor( // of a directory that is closed to daemon
        Path(drive.Path()),
        [&](DirectoryChange const&)
        {
            seen = KernelIdentity();
            told.Set();
        });
    EXPECT_TRUE(RevertToSelf());
    drive.Write("new");
    EXPECT_EQ(told.WaitOrTimeout(10'000), EventWaitResult::signalled);
    EXPECT_EQ(seen, process);
}
