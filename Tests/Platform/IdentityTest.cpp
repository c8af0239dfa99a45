// What a thread goes back to, in processes whose own identity is an odd one.
#include "Identity.h"

#include "Support/ChildProcess.h"
#include "Support/HostFaults.h"
#include "Support/KernelIdentity.h"

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

/// In a process of its own, which begins as the superuser.
template <class Run>
void RunInChild(Run run)
{
    EXPECT_EQ(InChild(run), 0);
}

bool Impersonate(std::string const& user)
{
    HANDLE const token = OpenUserToken(user);
    EXPECT_NE(token, nullptr);
    bool const succeeded = ImpersonateLoggedOnUser(token) != FALSE;
    DWORD const code = GetLastError();
    EXPECT_TRUE(CloseHandle(token));
    SetLastError(code);
    return succeeded;
}

DWORD CodeOfOpeningOwnToken()
{
    HANDLE token = nullptr;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, FALSE, &token))
        return GetLastError();
    EXPECT_TRUE(CloseHandle(token));
    return ERROR_SUCCESS;
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
                EXPECT_EQ(CodeOfOpeningOwnToken(), ERROR_NO_TOKEN);
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
            HANDLE own = nullptr;
            ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), MAXIMUM_ALLOWED, &own));
            EXPECT_TRUE(ImpersonateLoggedOnUser(own));
            EXPECT_EQ(KernelIdentity(), before);
            EXPECT_TRUE(RevertToSelf());
            EXPECT_EQ(KernelIdentity(), before);
            EXPECT_TRUE(CloseHandle(own));
        });
    RunInChild(
        []
        {
            ASSERT_EQ(::setresuid(0, 1000, 0), 0);
            ASSERT_TRUE(DropCapabilities());
            KernelIdentity const before;
            EXPECT_FALSE(Impersonate("root")); // the kernel would let it
            EXPECT_EQ(GetLastError(), DWORD{ERROR_PRIVILEGE_NOT_HELD});
            EXPECT_EQ(KernelIdentity(), before);
        });
}

TEST(ProcessIdentity, IsFoundByThreadsThatDifferInGroupsAlone)
{
    VOK_NEEDS_SUPERUSER();
    RunInChild(
        []
        {
            gid_t const group = 12345;
            ASSERT_EQ(::setgroups(1, &group), 0);
            KernelIdentity const before;
            ASSERT_TRUE(Impersonate("root"));
            std::thread(
                [&]
                {
                    EXPECT_NE(KernelIdentity(), before);
                    EXPECT_EQ(CodeOfOpeningOwnToken(), DWORD{ERROR_SUCCESS});
                    EXPECT_TRUE(RevertToSelf());
                    EXPECT_EQ(KernelIdentity(), before);
                })
                .join();
            EXPECT_TRUE(RevertToSelf());
        });
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
                    EXPECT_FALSE(RevertToSelf());
                    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
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

TEST(ProcessIdentity, IsBackForTheNextTimer)
{
    VOK_NEEDS_SUPERUSER();
    RunInChild(
        []
        {
            KernelIdentity const before;
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
            for (int i = 0; i < 5; ++i)
            {
                run([](PTP_CALLBACK_INSTANCE, PVOID, PTP_TIMER) { EXPECT_TRUE(Impersonate("nobody")); });
                EXPECT_EQ(run([](PTP_CALLBACK_INSTANCE, PVOID seen, PTP_TIMER)
                              { *static_cast<KernelIdentity*>(seen) = KernelIdentity(); }),
                          before);
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
