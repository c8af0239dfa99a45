// Saving, stopping and restoring the impersonation of a thread.
#include <Brindle/Vok/PlatformHost.h>
#include <Brindle/Vok/UnImpersonator.h>
#include <Brindle/Vok/VokAccessToken.h>

#include "Support/KernelIdentity.h"
#include "Support/LogRecorder.h"
#include "Support/OwnImpersonation.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::ElementsAre;
using testing::IsEmpty;

using VokAccessTokens = ImpersonationTests;
using ImpersonationSavers = ImpersonationTests;

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
