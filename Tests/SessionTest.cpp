// The session that a process runs in, and the token of a process.
#include <Brindle/Vok/VokWindows.h>

#include "Support/ChildProcess.h"
#include "Support/Failures.h"
#include "Support/HostFaults.h"
#include "Support/OwnImpersonation.h"

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

TEST_F(SessionIds, AreTheHostsOrComeFromATokenWhereThePlatformRefuses)
{
    Error error;
    EXPECT_EQ(GetSessionId(error), own);
    EXPECT_EQ(GetSessionId(nullptr), own);
    Impersonate();
    LogRecorder const recorder(VokLogSeverity::info);
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
    Error error;
    EXPECT_EQ(GetSessionId(0x7FFFFFFF, token, error), none);
    ExpectFailure(error, "VokWindows", "GetSessionId", 87, "ProcessIdToSessionId");
    // With a token, an error of the host's opening of the process, and what is told then.
    std::tuple<HANDLE, int, char const*, char const*> const cases[] = {
        {blind.Get(), 0, "`anonymous-namespace'::SessionIdFromToken", "GetTokenInformation"},
        {nullptr, EACCES, "GetSessionId", "Error, Unable to OpenProcess()"},
        {nullptr, 0, "GetSessionId", "Unable to OpenThreadToken()"},
    };
    HoldingProcess const other([] { return 0; });
    SystemCalls::Redirection const session(
        SystemCalls::GetSession, [&](pid_t process)
        { return process == other.Process() ? FailingWith(EPERM)() : SystemCalls::GetSession.host(process); });
    for (auto const& [token, openError, function, text] : cases)
    {
        Error failed;
        SystemCalls::Redirection const process(
            SystemCalls::OpenProcess, [openError = openError](pid_t id)
            { return openError != 0 ? FailingWith(openError)() : SystemCalls::OpenProcess.host(id); });
        EXPECT_EQ(GetSessionId(static_cast<unsigned long>(other.Process()), token, failed), none);
        ExpectFailure(failed, "VokWindows", function, 5, text);
    }
}

TEST(VokOpenProcessToken, ChecksItsProcess)
{
    LogRecorder const recorder(VokLogSeverity::error);
    EXPECT_TRUE(VokOpenProcessToken(GetCurrentProcess(), TOKEN_QUERY).IsValid());
    ExpectLoggedFailure([] { VokOpenProcessToken(nullptr, TOKEN_QUERY); }, "VokWindows", "VokOpenProcessToken", 6,
                        "OpenProcessToken Failed");
    EXPECT_THAT(recorder.Lines(), ElementsAre("error: Assertion failed: processHandle != 0", testing::_));
}
