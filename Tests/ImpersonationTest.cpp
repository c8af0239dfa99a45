// Saving, stopping and restoring the impersonation of a thread, and the session that a process runs in.
#include "SystemCalls.h"

#include <Brindle/Vok/DirectoryMonitor.h>
#include <Brindle/Vok/PlatformHost.h>
#include <Brindle/Vok/Synchronization.h>
#include <Brindle/Vok/UnImpersonator.h>
#include <Brindle/Vok/VokWindows.h>

#include "Support/ChildProcess.h"
#include "Support/HostFaults.h"
#include "Support/KernelIdentity.h"
#include "Support/LogRecorder.h"
#include "Support/TestDrive.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
namespace SystemCalls = Brindle::Vok::Platform::SystemCalls;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

/// What OpenThreadToken gives in the place of the platform's own result; nothing lets it through.
std::function<std::optional<DWORD>(DWORD access, BOOL openAsSelf)> refuseThreadToken;
/// What GetTokenInformation tells as the type, or the code with which it fails to.
std::optional<TOKEN_TYPE> tokenType;
DWORD tokenTypeCode = 0;
int reversions = 0;
int impersonations = 0;

} // namespace

extern "C" BOOL WINAPI __real_OpenThreadToken(HANDLE, DWORD, BOOL, PHANDLE) noexcept;
extern "C" BOOL WINAPI __wrap_OpenThreadToken(HANDLE thread, DWORD access, BOOL openAsSelf, PHANDLE token) noexcept
{
    std::optional<DWORD> const code = refuseThreadToken ? refuseThreadToken(access, openAsSelf) : std::nullopt;
    return code ? SetLastError(*code), FALSE : __real_OpenThreadToken(thread, access, openAsSelf, token);
}

extern "C" BOOL WINAPI __real_GetTokenInformation(HANDLE, TOKEN_INFORMATION_CLASS, LPVOID, DWORD, DWORD*) noexcept;
extern "C" BOOL WINAPI __wrap_GetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS informationClass,
                                                  LPVOID information, DWORD length, DWORD* returnLength) noexcept
{
    if (informationClass == TokenType && tokenTypeCode != 0)
        return SetLastError(tokenTypeCode), FALSE;
    BOOL const succeeded = __real_GetTokenInformation(token, informationClass, information, length, returnLength);
    if (succeeded && informationClass == TokenType && tokenType)
        *static_cast<TOKEN_TYPE*>(information) = *tokenType;
    return succeeded;
}

extern "C" BOOL WINAPI __real_RevertToSelf() noexcept;
extern "C" BOOL WINAPI __wrap_RevertToSelf() noexcept
{
    ++reversions;
    return __real_RevertToSelf();
}

extern "C" BOOL WINAPI __real_ImpersonateLoggedOnUser(HANDLE) noexcept;
extern "C" BOOL WINAPI __wrap_ImpersonateLoggedOnUser(HANDLE token) noexcept
{
    ++impersonations;
    return __real_ImpersonateLoggedOnUser(token);
}

namespace
{

constexpr char const* impersonatesAgain = "info: Reverting back to saved impersonation state";
constexpr char const* hasImpersonated = "info: Succeeded to revert with ImpersonateLoggedOnUser";
constexpr char const* leavesAlone = "info: Not reverting as no impersonation occurred";

bool Impersonates()
{
    HANDLE token = nullptr;
    return OpenThreadToken(GetCurrentThread(), 0, FALSE, &token) && CloseHandle(token);
}

/// Threads impersonate with the process's own token here, which everybody may, so most of this runs without privileges.
struct ImpersonationTests : testing::Test
{
    ImpersonationTests() { OpenProcessToken(GetCurrentProcess(), MAXIMUM_ALLOWED, &token); }
    ~ImpersonationTests() override
    {
        refuseThreadToken = nullptr;
        tokenType.reset();
        tokenTypeCode = 0;
        EXPECT_TRUE(RevertToSelf());
        EXPECT_TRUE(CloseHandle(token));
    }

    void Impersonate() const
    {
        ASSERT_TRUE(ImpersonateLoggedOnUser(token));
        reversions = impersonations = 0;
    }

    HANDLE token = nullptr;
};

struct VokAccessTokens : ImpersonationTests
{
};
struct ImpersonationSavers : ImpersonationTests
{
};
struct UnImpersonators : ImpersonationTests
{
};

} // namespace

TEST_F(VokAccessTokens, CaptureTheThreadsImpersonation)
{
    LogRecorder const recorder;
    VokAccessToken captured;
    EXPECT_TRUE(captured.GetCurrentTokenForImpersonation());
    EXPECT_EQ(captured.GetHandle(), nullptr); // not impersonating
    Impersonate();
    std::vector<DWORD> rights;
    refuseThreadToken = [&](DWORD access, BOOL openAsSelf) -> std::optional<DWORD>
    {
        EXPECT_FALSE(openAsSelf);
        return rights.push_back(access), std::nullopt;
    };
    EXPECT_TRUE(captured.GetCurrentTokenForImpersonation());
    EXPECT_THAT(rights, ElementsAre(8U, 12U));
    EXPECT_TRUE(RevertToSelf());
    EXPECT_TRUE(captured.ImpersonateLoggedOnUser());
    captured.Clear(); // the impersonation stays
    refuseThreadToken = nullptr;
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
        std::vector<DWORD> rights; // asked for, 0x100 more as self
        std::vector<std::string> lines;
    };
    std::string const asSelf = "warning: Error Failed to GetThreadToken Error [5]. Trying as self...";
    for (auto const& [codes, type, typeCode, isCaptured, rights, lines] :
         {Case{{5, 0, 0}, {}, 0, true, {8, 0x108, 0x10C}, {asSelf}},
          Case{{5, 7},
               {},
               0,
               false,
               {8, 0x108},
               {asSelf, "error: Failed to GetThreadToken() as the current process. Error: [7]"}},
          Case{{0, 6}, {}, 0, false, {8, 12}, {"error: Error Failed to GetThreadToken impersonate Error [6]"}},
          Case{{0, 0}, TokenPrimary, 0, true, {8, 10}, {}},
          Case{{0, 6}, TokenPrimary, 0, false, {8, 10}, {"error: Error Failed to GetThreadToken primary Error [6]"}},
          Case{{0},
               static_cast<TOKEN_TYPE>(3),
               0,
               false,
               {8},
               {"error: Error Failed to GetThreadToken. unknown type Error [77]"}},
          Case{{0}, {}, 24, false, {8}, {"error: Error Failed to GetType Error [24]"}}})
    {
        Impersonate();
        VokAccessToken captured;
        EXPECT_TRUE(captured.GetCurrentTokenForImpersonation()); // to be let go of
        HANDLE const held = captured.GetHandle();
        LogRecorder const recorder;
        std::vector<DWORD> asked;
        tokenType = type;
        tokenTypeCode = typeCode;
        refuseThreadToken = [&](DWORD access, BOOL openAsSelf) -> std::optional<DWORD>
        {
            DWORD const code = codes[std::min(asked.size(), codes.size() - 1)];
            asked.push_back(access + (openAsSelf ? 0x100 : 0));
            return code != 0 ? std::optional(code) : std::nullopt;
        };
        SetLastError(77);
        EXPECT_EQ(captured.GetCurrentTokenForImpersonation(), isCaptured);
        EXPECT_EQ(captured.GetHandle() != nullptr, isCaptured);
        EXPECT_FALSE(CloseHandle(held));
        EXPECT_EQ(asked, rights);
        EXPECT_EQ(recorder.Lines(), lines);
        for (LogStatement const& statement : recorder.Statements())
            EXPECT_STREQ(statement.function, "Brindle::Vok::VokAccessToken::GetCurrentTokenForImpersonation");
        refuseThreadToken = nullptr;
        tokenType.reset();
        tokenTypeCode = 0;
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
        EXPECT_EQ(reversions, reverts ? 1 : 0);
        EXPECT_EQ(impersonations, 0);
        EXPECT_EQ(Impersonates(), !reverts);
        EXPECT_EQ(recorder.Lines(), reverts ? std::vector<std::string>{} : std::vector<std::string>{leavesAlone});
        EXPECT_TRUE(RevertToSelf());
    }
}

TEST_F(ImpersonationSavers, PutTheImpersonationBack)
{
    Impersonate();
    LogRecorder const recorder;
    {
        ImpersonationSaver const saver;
        EXPECT_TRUE(saver.WasImpersonating());
        EXPECT_TRUE(RevertToSelf());
        EXPECT_FALSE(Impersonates());
        reversions = 0;
    }
    EXPECT_TRUE(Impersonates());
    EXPECT_EQ(reversions, 1);
    EXPECT_EQ(impersonations, 1);
    EXPECT_THAT(recorder.Lines(), ElementsAre(impersonatesAgain, hasImpersonated));
    EXPECT_STREQ(recorder.Statements()[0].function, "Brindle::Vok::ImpersonationSaver::~ImpersonationSaver");
}

TEST_F(ImpersonationSavers, HaveNothingToPutBackIfItCouldNotBeCaptured)
{
    Impersonate();
    refuseThreadToken = [](DWORD, BOOL) { return std::optional<DWORD>(5); };
    {
        ImpersonationSaver const saver;
        EXPECT_FALSE(saver.WasImpersonating());
        refuseThreadToken = nullptr;
    }
    EXPECT_FALSE(Impersonates());
}

TEST_F(ImpersonationSavers, NestAlsoWhenAnExceptionPasses)
{
    VOK_NEEDS_SUPERUSER();
    KernelIdentity const process;
    HANDLE const daemon = Platform::OpenUserToken("daemon");
    HANDLE const somebody = Platform::OpenUserToken("nobody");
    try
    {
        ImpersonationSaver const outer;
        EXPECT_TRUE(ImpersonateLoggedOnUser(daemon));
        KernelIdentity const asDaemon;
        try
        {
            ImpersonationSaver const inner;
            EXPECT_TRUE(ImpersonateLoggedOnUser(somebody));
            {
                UnImpersonator const asProcess;
                EXPECT_EQ(KernelIdentity(), process);
            }
            EXPECT_EQ(KernelIdentity().user, 65534U);
            throw 1;
        }
        catch (int)
        {
            EXPECT_EQ(KernelIdentity(), asDaemon);
            throw;
        }
    }
    catch (int)
    {
        EXPECT_EQ(KernelIdentity(), process);
    }
    EXPECT_TRUE(CloseHandle(daemon));
    EXPECT_TRUE(CloseHandle(somebody));
}

TEST_F(ImpersonationSavers, LogWhatTheKernelRefusesAndGoOn)
{
    VOK_NEEDS_SUPERUSER();
    HANDLE const daemon = Platform::OpenUserToken("daemon");
    EXPECT_TRUE(ImpersonateLoggedOnUser(daemon));
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
    EXPECT_TRUE(CloseHandle(daemon));
}

TEST_F(UnImpersonators, StopAnImpersonationForTheirScope)
{
    LogRecorder const recorder;
    reversions = 0;
    {
        UnImpersonator const nothing;
        EXPECT_EQ(reversions, 0);
    }
    EXPECT_EQ(reversions, 1);
    Impersonate();
    {
        UnImpersonator const asProcess;
        EXPECT_FALSE(Impersonates());
    }
    EXPECT_TRUE(Impersonates());
    EXPECT_EQ(reversions, 2);
    EXPECT_THAT(recorder.Lines(),
                ElementsAre("trace: [ENTER]", "trace: [EXIT]", "trace: [ENTER]", "info: Impersonation stopped",
                            "trace: [EXIT]", impersonatesAgain, hasImpersonated));
    EXPECT_STREQ(recorder.Statements()[0].function, "Brindle::Vok::UnImpersonator::UnImpersonator");
}

TEST_F(UnImpersonators, LeaveTheThreadAsTheProcessIfTheTokenCouldNotBeCaptured)
{
    Impersonate();
    refuseThreadToken = [](DWORD, BOOL) { return std::optional<DWORD>(5); };
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
    HANDLE const daemon = Platform::OpenUserToken("daemon");
    EXPECT_TRUE(ImpersonateLoggedOnUser(daemon));
    EXPECT_TRUE(CloseHandle(daemon));
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

// Sessions

namespace
{

struct SessionIds : ImpersonationTests
{
    static constexpr unsigned long none = 0xFFFFFFFF;
    unsigned long const own = static_cast<unsigned long>(::getsid(0));
    std::string const falls = "warning: ERROR_ACCESS_DENIED - falling back to GetTokenInformation()";

    /// The kernel refuses to tell the session of any process at the first time.
    SystemCalls::Redirection<pid_t(pid_t)> RefuseOnce() const
    {
        return {SystemCalls::GetSession, [refuses = true](pid_t process) mutable {
                    return std::exchange(refuses, false) ? FailingWith(EPERM)() : SystemCalls::GetSession.host(process);
                }};
    }
};

} // namespace

TEST_F(SessionIds, AreTheHosts)
{
    LogRecorder const recorder;
    Error error;
    EXPECT_EQ(GetSessionId(error), own);
    EXPECT_EQ(GetSessionId(nullptr, error), own);
    EXPECT_EQ(GetSessionId(nullptr), own);
    EXPECT_EQ(GetSessionId(static_cast<unsigned long>(::getpid()), nullptr), own);
    EXPECT_FALSE(error.Failed());
    EXPECT_EQ(recorder.LinesWithFunction(),
              std::vector<std::string>({"Brindle::Vok::GetSessionId: [ENTER]", "Brindle::Vok::GetSessionId: [EXIT]",
                                        "Brindle::Vok::GetSessionId: [ENTER]", "Brindle::Vok::GetSessionId: [EXIT]",
                                        "Brindle::Vok::GetSessionId: [ENTER]", "Brindle::Vok::GetSessionId: [EXIT]",
                                        "Brindle::Vok::GetSessionId: [ENTER]", "Brindle::Vok::GetSessionId: [EXIT]"}));
}

TEST_F(SessionIds, OfAProcessThatIsNotThereAreAFailure)
{
    ChildProcess child([](auto const&) { return 0; });
    auto const ended = static_cast<unsigned long>(child.Process());
    EXPECT_EQ(child.Join(), 0);
    LogRecorder const recorder;
    Error error;
    EXPECT_EQ(GetSessionId(ended, token, error), none);
    std::string const message =
        "Source/Vok/VokWindows.cpp: Brindle::Vok::GetSessionId A parameter is wrong. (Windows Error 87). "
        "ProcessIdToSessionId";
    EXPECT_EQ(WithoutLine(error.Message()), message);
    EXPECT_TRUE(error.Failed());
    Error const thrown = Thrown<Error>([&] { GetSessionId(ended, token); });
    EXPECT_EQ(thrown.code(), std::error_code(87, std::system_category()));
    EXPECT_EQ(WithoutLine(thrown.Message()), message);
    EXPECT_THAT(recorder.Lines(), ElementsAre("trace: [ENTER]", "trace: [EXIT]", "trace: [ENTER]", "trace: [EXIT]"));
}

TEST_F(SessionIds, ComeFromATokenWhereThePlatformRefuses)
{
    Impersonate();
    LogRecorder const recorder(VokLogSeverity::info);
    Error error;
    {
        auto const refusal = RefuseOnce();
        EXPECT_EQ(GetSessionId(token, error), own);
    }
    EXPECT_THAT(recorder.Lines(), ElementsAre(falls)); // nothing of impersonation
    EXPECT_EQ(reversions, 0);
    {
        auto const refusal = RefuseOnce();
        EXPECT_EQ(GetSessionId(error), own);
    }
    EXPECT_THAT(recorder.Lines(),
                ElementsAre(falls, falls, "info: Impersonation stopped", impersonatesAgain, hasImpersonated));
    EXPECT_TRUE(Impersonates());
    EXPECT_FALSE(error.Failed());
    Error failed = WindowsError(1, nullptr, 0, nullptr, "");
    auto const refusal = RefuseOnce();
    EXPECT_EQ(GetSessionId(token, failed), none); // required: it had failed before
}

TEST_F(SessionIds, TellWhatTheWayRoundFailedAt)
{
    struct Case
    {
        HANDLE token;
        int openError; // of the host's opening of the process
        DWORD code;
        std::string text;
    };
    HANDLE blind = nullptr;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_DUPLICATE, &blind));
    ChildProcess const other([](auto const& channel) { return channel.Wait() ? 0 : 1; });
    std::string const body =
        "Source/Vok/VokWindows.cpp: Brindle::Vok::GetSessionId Access is denied. (Windows Error 5). ";
    std::string const ofToken = "Source/Vok/VokWindows.cpp: Brindle::Vok::`anonymous-namespace'::SessionIdFromToken "
                                "Access is denied. (Windows Error 5). ";
    for (auto const& [given, openError, code, message] :
         {Case{blind, 0, 5, ofToken + "GetTokenInformation"},
          Case{nullptr, EACCES, 5, body + "Error, Unable to OpenProcess()"},
          Case{nullptr, 0, 5, body + "Unable to OpenThreadToken()"}})
    {
        Impersonate();
        Error error;
        {
            SystemCalls::Redirection const session(
                SystemCalls::GetSession, [&](pid_t process)
                { return process == other.Process() ? FailingWith(EPERM)() : SystemCalls::GetSession.host(process); });
            SystemCalls::Redirection const process(
                SystemCalls::OpenProcess, [error = openError](pid_t id)
                { return error != 0 ? FailingWith(error)() : SystemCalls::OpenProcess.host(id); });
            EXPECT_EQ(GetSessionId(static_cast<unsigned long>(other.Process()), given, error), none);
            EXPECT_EQ(WithoutLine(error.Message()), message);
            EXPECT_EQ(error.code().value(), static_cast<int>(code));
        }
        EXPECT_TRUE(Impersonates());
    }
    EXPECT_TRUE(CloseHandle(blind));
}

TEST_F(SessionIds, OfAnotherUsersProcessAreTakenAsTheProcess)
{
    VOK_NEEDS_SUPERUSER();
    ChildProcess const other(
        [](ChildProcess::Channel const& channel)
        {
            EXPECT_GT(::setsid(), 0);
            channel.Ready();
            return channel.Wait() ? 0 : 1;
        });
    other.WaitUntilReady();
    HANDLE const daemon = Platform::OpenUserToken("daemon");
    EXPECT_TRUE(ImpersonateLoggedOnUser(daemon)); // who may not look into it
    KernelIdentity const impersonated;
    auto const id = static_cast<unsigned long>(other.Process());
    {
        auto const refusal = RefuseOnce();
        EXPECT_EQ(GetSessionId(id, nullptr), id);
    }
    EXPECT_EQ(KernelIdentity(), impersonated);
    EXPECT_TRUE(RevertToSelf()); // who may end it
    EXPECT_TRUE(CloseHandle(daemon));
}

TEST_F(ImpersonationTests, VokOpenProcessTokenChecksItsProcess)
{
    LogRecorder const recorder;
    TOKEN_TYPE type{};
    VokAccessToken opened;
    HandleOwner<Detail::NullHandleTraits> const owner = VokOpenProcessToken(GetCurrentProcess(), TOKEN_QUERY);
    opened.AttachForeign(owner.Get());
    EXPECT_TRUE(opened.GetType(&type));
    EXPECT_EQ(type, TokenPrimary);
    EXPECT_THAT(recorder.Lines(), IsEmpty());
    WindowsError const error = Thrown<WindowsError>([] { VokOpenProcessToken(nullptr, TOKEN_QUERY); });
    EXPECT_EQ(error.code(), std::error_code(6, std::system_category()));
    EXPECT_EQ(WithoutLine(error.Message()),
              "Source/Vok/VokWindows.cpp: Brindle::Vok::VokOpenProcessToken The handle is "
              "not valid. (Windows Error 6). OpenProcessToken Failed");
    EXPECT_THAT(recorder.Lines(), ElementsAre("error: Assertion failed: processHandle != 0",
                                              "error: Throwing last error " + error.Message()));
}
