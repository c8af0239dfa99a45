// What a thread goes back to, in processes whose own identity is an odd one.
#include "Identity.h"
#include "Tokens.h"

#include "Support/ChildProcess.h"
#include "Support/HostFaults.h"
#include "Support/KernelIdentity.h"
#include "Support/OwnImpersonation.h"

#include <Brindle/Vok/Platform.h>
#include <Brindle/Vok/PlatformHost.h>

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <string>
#include <sys/fsuid.h>
#include <sys/prctl.h>
#include <thread>

using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;

namespace
{

bool Impersonate(std::string const& user)
{
    OpenHandle const token(OpenUserToken(user));
    return ImpersonateLoggedOnUser(token.Get()) != FALSE;
}

bool DropCapabilities()
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct const none[2]{};
    return SystemCalls::SetCapabilities(&header, none) == 0;
}

} // namespace

TEST(ProcessIdentity, ThatWasGivenUpDoesNotComeBack)
{
    VOK_NEEDS_SUPERUSER();
    for (bool const isSetUserId : {false, true})
    {
        RunInChild(
            [&]
            {
                ASSERT_EQ(::setresgid(1000, 1000, isSetUserId ? 1000 : 0), 0);
                ASSERT_EQ(::setresuid(isSetUserId ? 1000 : 0, 0, 0), 0);
                ASSERT_TRUE(Impersonate("nobody"));
                ASSERT_TRUE(RevertToSelf());
                ASSERT_EQ(::setresuid(1000, 1000, 0), 0);
                KernelIdentity const dropped;
                VOK_EXPECT_CODE(ERROR_NO_TOKEN, Impersonates());
                EXPECT_TRUE(RevertToSelf());
                EXPECT_EQ(KernelIdentity(), dropped);
            });
    }
}

TEST(ProcessIdentity, IsNotLeftWithoutAWayBack)
{
    VOK_NEEDS_SUPERUSER();
    RunInChild(
        []
        {
            ASSERT_EQ(::setresuid(1000, 1, 1), 0); // as a program that belongs to daemon
            KernelIdentity const before;
            OpenHandle const own = OwnToken(MAXIMUM_ALLOWED);
            EXPECT_TRUE(ImpersonateLoggedOnUser(own.Get()));
            EXPECT_EQ(KernelIdentity(), before);
            EXPECT_TRUE(RevertToSelf());
            EXPECT_EQ(KernelIdentity(), before);
        });
    RunInChild(
        []
        {
            ASSERT_EQ(::setresuid(0, 1000, 0), 0);
            ASSERT_TRUE(DropCapabilities());
            KernelIdentity const before;
            VOK_EXPECT_CODE(ERROR_PRIVILEGE_NOT_HELD, Impersonate("root")); // the kernel would let it
            EXPECT_EQ(KernelIdentity(), before);
        });
}

TEST(ProcessIdentity, IsWhatThreadsThatInheritAnotherRevertTo)
{
    VOK_NEEDS_SUPERUSER();
    auto const inherit = [](char const* user)
    {
        KernelIdentity const before;
        ASSERT_TRUE(Impersonate(user));
        KernelIdentity const impersonated;
        EXPECT_NE(impersonated, before);
        auto const run = [&]
        {
            EXPECT_EQ(KernelIdentity(), impersonated);
            VOK_EXPECT_CODE(ERROR_SUCCESS, Impersonates());
            Identity identity;
            EXPECT_TRUE(FindIdentityOfToken(OwnToken(TOKEN_QUERY).Get(), TOKEN_QUERY, identity));
            EXPECT_EQ(identity.user, 0U);
            EXPECT_TRUE(RevertToSelf());
            EXPECT_EQ(KernelIdentity(), before);
        };
        std::thread(run).join();
        EXPECT_TRUE(RevertToSelf());
    };
    RunInChild(
        [&]
        {
            gid_t const group = 12345;
            ASSERT_EQ(::setgroups(1, &group), 0);
            inherit("root"); // who differs in groups alone
        });
    inherit("daemon");
}

TEST(ProcessIdentity, OfOneThreadIsNotGivenToAnothersChild)
{
    VOK_NEEDS_SUPERUSER();
    RunInChild(
        []
        {
            ASSERT_TRUE(Impersonate("nobody"));
            std::thread(
                [] // it has other groups than the first thread, by the kernel's own call
                {
                    ASSERT_TRUE(RevertToSelf());
                    gid_t const group = 103;
                    ASSERT_EQ(SystemCalls::SetOtherGroups(1, &group), 0);
                    ASSERT_TRUE(Impersonate("nobody"));
                })
                .join();
            std::thread(
                []
                {
                    KernelIdentity const impersonated;
                    VOK_EXPECT_CODE(ERROR_ACCESS_DENIED, RevertToSelf());
                    EXPECT_EQ(KernelIdentity(), impersonated);
                })
                .join();
            EXPECT_TRUE(RevertToSelf());
        });
}

TEST(ProcessIdentity, ComesBackWithAllThatBelongsToIt)
{
    VOK_NEEDS_SUPERUSER();
    RunInChild(
        []
        {
            ::setfsuid(1);
            ::setfsgid(2);
            ASSERT_EQ(::prctl(PR_SET_DUMPABLE, 1), 0);
            ASSERT_EQ(::prctl(PR_SET_PDEATHSIG, SIGTERM), 0);
            KernelIdentity const before;
            int signal = 0;
            ASSERT_TRUE(Impersonate("nobody"));
            EXPECT_TRUE(KernelIdentity().Has("Uid:\t65534\t65534\t0\t65534"));
            ASSERT_TRUE(RevertToSelf());
            EXPECT_EQ(KernelIdentity(), before);
            EXPECT_EQ(::prctl(PR_GET_DUMPABLE), 1);
            EXPECT_EQ(::prctl(PR_GET_PDEATHSIG, &signal), 0);
            EXPECT_EQ(signal, SIGTERM);
        });
}

TEST(ProcessIdentity, IsThatOfTheThreadsOfTimers)
{
    VOK_NEEDS_SUPERUSER();
    auto const run = [](PTP_TIMER_CALLBACK function)
    {
        KernelIdentity seen;
        PTP_TIMER const timer = CreateThreadpoolTimer(function, &seen, nullptr);
        FILETIME due{};
        SetThreadpoolTimer(timer, &due, 0, 0);
        WaitForThreadpoolTimerCallbacks(timer, FALSE);
        CloseThreadpoolTimer(timer);
        return seen;
    };
    auto const look = [](PTP_CALLBACK_INSTANCE, PVOID seen, PTP_TIMER)
    { *static_cast<KernelIdentity*>(seen) = KernelIdentity(); };
    RunInChild(
        [&]
        {
            KernelIdentity const before;
            ASSERT_TRUE(Impersonate("daemon")); // while the pool has no threads yet
            EXPECT_EQ(run(look), before);
            for (int i = 0; i < 5; ++i)
            {
                run([](PTP_CALLBACK_INSTANCE, PVOID, PTP_TIMER) { EXPECT_TRUE(Impersonate("nobody")); });
                EXPECT_EQ(run(look), before);
            }
        });
}

TEST(UserTokens, AreNotMadeOfLookUpsThatRanShort)
{
    {
        SystemCalls::Redirection const fault(SystemCalls::FindUserNamed, [](auto...) { return 0; });
        EXPECT_EQ(OpenUserToken("root"), nullptr);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_SUCH_USER});
        SystemCalls::Redirection const none(SystemCalls::Open, FailingWith(EMFILE));
        EXPECT_EQ(OpenUserToken("root"), nullptr);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_TOO_MANY_OPEN_FILES});
    }
    std::ifstream list("/etc/group");
    std::string member;
    for (std::string line; member.empty() && std::getline(list, line);)
        member = line.substr(line.rfind(':') + 1, line.find(',') - line.rfind(':') - 1);
    if (member.empty())
        GTEST_SKIP() << "this host's list puts nobody into a group";
    SystemCalls::Redirection const fault(SystemCalls::FindGroupsOf,
                                         [](char const*, gid_t group, gid_t* groups, int* count)
                                         {
                                             *groups = group;
                                             return *count = 1;
                                         });
    EXPECT_EQ(OpenUserToken(member), nullptr) << member;
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_SYSTEM_RESOURCES});
}
