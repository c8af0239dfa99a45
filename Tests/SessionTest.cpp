// The session that a process runs in, and the token of a process.
#include "SystemCalls.h"

#include <Brindle/Vok/PlatformHost.h>
#include <Brindle/Vok/VokWindows.h>

#include "Support/ChildProcess.h"
#include "Support/Failures.h"
#include "Support/HostFaults.h"
#include "Support/KernelIdentity.h"
#include "Support/LogRecorder.h"
#include "Support/OwnImpersonation.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>

#include <string>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::ElementsAre;

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
        return {SystemCalls::GetSession, FailingAt(SystemCalls::GetSession, 0, EPERM)};
    }
};

} // namespace

TEST_F(SessionIds, AreTheHosts)
{
    Error error;
    {
        LogRecorder const recorder;
        EXPECT_EQ(GetSessionId(error), own);
        EXPECT_THAT(recorder.LinesWithFunction(),
                    ElementsAre("Brindle::Vok::GetSessionId: [ENTER]", "Brindle::Vok::GetSessionId: [EXIT]"));
    }
    EXPECT_EQ(GetSessionId(nullptr, error), own);
    EXPECT_EQ(GetSessionId(nullptr), own);
    EXPECT_EQ(GetSessionId(static_cast<unsigned long>(::getpid()), nullptr), own);
    EXPECT_FALSE(error.Failed());
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
    OpenHandle const blind = OwnToken(TOKEN_DUPLICATE);
    ChildProcess const other([](auto const& channel) { return channel.Wait() ? 0 : 1; });
    ChildProcess child([](auto const&) { return 0; });
    pid_t const ended = child.Process();
    EXPECT_EQ(child.Join(), 0);
    std::string const of = "Source/Vok/VokWindows.cpp: Brindle::Vok::";
    std::string const gone = of + "GetSessionId A parameter is wrong. (Windows Error 87). ProcessIdToSessionId";
    std::string const denied = "Access is denied. (Windows Error 5). ";
    struct
    {
        pid_t id;
        HANDLE token;
        int openError; // of the host's opening of the process
        int code;
        std::string message;
    } const cases[] = {
        {ended, token, 0, 87, gone},
        {other.Process(), blind.Get(), 0, 5,
         of + "`anonymous-namespace'::SessionIdFromToken " + denied + "GetTokenInformation"},
        {other.Process(), nullptr, EACCES, 5, of + "GetSessionId " + denied + "Error, Unable to OpenProcess()"},
        {other.Process(), nullptr, 0, 5, of + "GetSessionId " + denied + "Unable to OpenThreadToken()"},
    };
    for (auto const& each : cases)
    {
        Impersonate();
        Error error;
        {
            SystemCalls::Redirection const session(
                SystemCalls::GetSession, [&](pid_t process)
                { return process == other.Process() ? FailingWith(EPERM)() : SystemCalls::GetSession.host(process); });
            SystemCalls::Redirection const process(
                SystemCalls::OpenProcess, [error = each.openError](pid_t id)
                { return error != 0 ? FailingWith(error)() : SystemCalls::OpenProcess.host(id); });
            EXPECT_EQ(GetSessionId(static_cast<unsigned long>(each.id), each.token, error), none);
            EXPECT_EQ(WithoutLine(error.Message()), each.message);
            EXPECT_EQ(error.code(), std::error_code(each.code, std::system_category()));
        }
        EXPECT_TRUE(Impersonates());
    }
    Error const thrown = Thrown<Error>([&] { GetSessionId(static_cast<unsigned long>(ended), token); });
    EXPECT_EQ(WithoutLine(thrown.Message()), gone);
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
    OpenHandle const daemon(Platform::OpenUserToken("daemon"));
    EXPECT_TRUE(ImpersonateLoggedOnUser(daemon.Get())); // who may not look into it
    KernelIdentity const impersonated;
    auto const id = static_cast<unsigned long>(other.Process());
    {
        auto const refusal = RefuseOnce();
        EXPECT_EQ(GetSessionId(id, nullptr), id);
    }
    EXPECT_EQ(KernelIdentity(), impersonated);
    EXPECT_TRUE(RevertToSelf()); // who may end it
}

TEST(VokOpenProcessToken, ChecksItsProcess)
{
    LogRecorder const recorder(VokLogSeverity::error);
    EXPECT_TRUE(VokOpenProcessToken(GetCurrentProcess(), TOKEN_QUERY).IsValid());
    ExpectLoggedFailure([] { VokOpenProcessToken(nullptr, TOKEN_QUERY); }, "VokWindows", "VokOpenProcessToken", 6,
                        "OpenProcessToken Failed");
    EXPECT_THAT(recorder.Lines(), ElementsAre("error: Assertion failed: processHandle != 0", testing::_));
}
