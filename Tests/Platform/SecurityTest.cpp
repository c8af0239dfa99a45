// Tokens, and threads that act as somebody else.
#include "Tokens.h"

#include "Support/Directories.h"
#include "Support/StandIn.h"

using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;
using namespace std::chrono_literals;

namespace
{

constexpr unsigned nobody = 65534;

bool Impersonate(std::string const& user)
{
    OpenHandle const token(OpenUserToken(user));
    return ImpersonateLoggedOnUser(token.Get()) != FALSE;
}

} // namespace

TEST(Impersonation, ChangesTheCallingThreadAloneUntilItReverts)
{
    VOK_NEEDS_SUPERUSER();
    TestDrive const drive;
    ASSERT_EQ(::chmod(drive.Host().c_str(), 0777), 0);
    drive.Write("secret");
    ASSERT_EQ(::chmod(drive.Host("secret").c_str(), 0600), 0);
    KernelIdentity const before;
    std::atomic<int> turn = 0;
    std::thread other(
        [&]
        {
            turn.wait(0);
            EXPECT_EQ(KernelIdentity(), before);
        });
    ASSERT_TRUE(Impersonate("daemon") && Impersonate("nobody"));
    KernelIdentity const impersonated;
    for (char const* const line : {"Uid:\t65534\t65534\t0\t65534", "Gid:\t65534\t65534\t0\t65534", "Groups:\t65534 ",
                                   "CapEff:\t0000000000000000"})
        EXPECT_TRUE(impersonated.Has(line)) << line << '\n' << impersonated.text;
    EXPECT_TRUE(Open(drive.Path(L"made"), GENERIC_WRITE, 0, CREATE_NEW));
    VOK_EXPECT_CODE(ERROR_ACCESS_DENIED, Open(drive.Path(L"secret"), GENERIC_READ));
    turn = 1;
    turn.notify_all();
    other.join();
    EXPECT_TRUE(RevertToSelf());
    EXPECT_EQ(KernelIdentity(), before);
    struct stat status;
    ASSERT_EQ(::stat(drive.Host("made").c_str(), &status), 0);
    EXPECT_TRUE(status.st_uid == nobody && status.st_gid == nobody);
}

TEST(Impersonation, NeedsTheRightsOfATokenThatIsOpen)
{
    VOK_EXPECT_CODE(ERROR_SUCCESS, ImpersonateLoggedOnUser(OwnToken(TOKEN_QUERY | TOKEN_DUPLICATE).Get()));
    EXPECT_TRUE(RevertToSelf());
    // A primary token isn't for TOKEN_IMPERSONATE.
    for (DWORD const access : std::initializer_list<DWORD>{TOKEN_DUPLICATE, TOKEN_QUERY | TOKEN_IMPERSONATE})
        VOK_EXPECT_CODE(ERROR_ACCESS_DENIED, ImpersonateLoggedOnUser(OwnToken(access).Get())) << access;
    HANDLE const closed = OwnToken(MAXIMUM_ALLOWED).Get();
    for (HANDLE const wrong : {closed, HANDLE{nullptr}, GetCurrentProcess()})
        VOK_EXPECT_CODE(ERROR_INVALID_HANDLE, ImpersonateLoggedOnUser(wrong));
}

TEST(Impersonation, OfAnotherIsRefusedWithoutThePrivilege)
{
    RunAsOrdinaryUser(
        []
        {
            KernelIdentity const before;
            VOK_EXPECT_CODE(ERROR_PRIVILEGE_NOT_HELD, Impersonate("daemon"));
            EXPECT_EQ(KernelIdentity(), before);
            OpenHandle const own = OwnToken(MAXIMUM_ALLOWED);
            EXPECT_TRUE(ImpersonateLoggedOnUser(own.Get())); // one may be oneself
            EXPECT_EQ(KernelIdentity(), before);
            EXPECT_TRUE(Impersonates());
            EXPECT_TRUE(RevertToSelf());
            VOK_EXPECT_CODE(ERROR_NO_TOKEN, Impersonates());
        });
}

TEST(ImpersonationDeathTest, EndsTheProcessWhenTheWayBackIsRefused)
{
    VOK_NEEDS_SUPERUSER();
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            SystemCalls::Redirection const users(SystemCalls::SetUsers, FailingWith(EPERM));
            SystemCalls::Redirection const groups(SystemCalls::SetGroups,
                                                  FailingAt(SystemCalls::SetGroups, 1, EPERM, always));
            Impersonate("daemon");
        },
        "terminate called");
}

TEST(Impersonation, IsEachThreadsOwn)
{
    VOK_NEEDS_SUPERUSER();
    auto const until = std::chrono::steady_clock::now() + (TakesLong() ? 60s : 300ms);
    std::atomic<int> rounds = 0;
    auto const work = [&](char const* user, unsigned number)
    {
        KernelIdentity const before;
        while (std::chrono::steady_clock::now() < until && !testing::Test::HasFailure())
        {
            ASSERT_TRUE(Impersonate(user));
            KernelIdentity const impersonated;
            ASSERT_TRUE(RevertToSelf());
            ASSERT_EQ(impersonated.user, number);
            ASSERT_EQ(KernelIdentity(), before);
            ++rounds;
        }
    };
    std::vector<std::thread> threads;
    for (auto const& [user, number] : {std::pair("daemon", 1U), {"bin", 2U}, {"sys", 3U}, {"nobody", nobody}})
        threads.emplace_back(work, user, number);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GE(rounds, 4);
}

TEST(Tokens, TellTheirTypeAndSession)
{
    DWORD value = 0;
    DWORD length = 0;
    auto const ask = [&](HANDLE token, int what, DWORD size = sizeof value)
    { return GetTokenInformation(token, static_cast<TOKEN_INFORMATION_CLASS>(what), &value, size, &length); };
    OpenHandle const own = OwnToken(TOKEN_QUERY | TOKEN_DUPLICATE);
    EXPECT_TRUE(ask(own.Get(), TokenType));
    EXPECT_EQ(value, DWORD{TokenPrimary});
    EXPECT_TRUE(ask(own.Get(), TokenSessionId));
    EXPECT_EQ(value, static_cast<DWORD>(::getsid(0)));
    ASSERT_TRUE(ImpersonateLoggedOnUser(own.Get()));
    HANDLE thread = nullptr;
    EXPECT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &thread));
    EXPECT_TRUE(ask(thread, TokenType));
    EXPECT_EQ(value, DWORD{TokenImpersonation});
    EXPECT_TRUE(CloseHandle(thread));
    EXPECT_TRUE(RevertToSelf());

    VOK_EXPECT_CODE(ERROR_INSUFFICIENT_BUFFER, ask(own.Get(), TokenType, 3));
    VOK_EXPECT_CODE(ERROR_ACCESS_DENIED, ask(OwnToken(TOKEN_DUPLICATE).Get(), TokenType));
    VOK_EXPECT_CODE(ERROR_NO_SUCH_USER, OpenUserToken(std::string("root\0x", 6)));
}

TEST(Tokens, OfAnotherProcessAreThatProcesss)
{
    VOK_NEEDS_SUPERUSER();
    HoldingProcess sleeper([] { return ::setgroups(0, nullptr) + ::setresgid(1, 1, 1) + ::setresuid(1, 1, 1) == 0; });
    auto const id = static_cast<DWORD>(sleeper.Process());
    OpenHandle const process(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, id));
    HANDLE opened = nullptr;
    ASSERT_TRUE(OpenProcessToken(process.Get(), MAXIMUM_ALLOWED, &opened));
    OpenHandle const token(opened);
    EXPECT_TRUE(ImpersonateLoggedOnUser(token.Get()));
    KernelIdentity const impersonated;
    EXPECT_TRUE(RevertToSelf());
    for (char const* const line : {"Uid:\t1\t1\t0\t1", "Gid:\t1\t1\t0\t1", "Groups:\t "})
        EXPECT_TRUE(impersonated.Has(line)) << line << '\n' << impersonated.text;
    sleeper.Kill();
    EXPECT_EQ(sleeper.Join(), -SIGKILL);
    VOK_EXPECT_CODE(ERROR_ACCESS_DENIED, OpenProcessToken(process.Get(), TOKEN_QUERY, &opened));
    VOK_EXPECT_CODE(ERROR_INVALID_PARAMETER, OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, id));
    DWORD session = 0;
    VOK_EXPECT_CODE(ERROR_INVALID_PARAMETER, ProcessIdToSessionId(id, &session));
}

TEST(ProcessIdentity, ThatWasGivenUpDoesNotComeBack)
{
    VOK_NEEDS_SUPERUSER();
    RunInChild(
        []
        {
            ASSERT_TRUE(Impersonate("nobody"));
            ASSERT_TRUE(RevertToSelf());
            ASSERT_EQ(::setresgid(1000, 1000, 1000), 0);
            ASSERT_EQ(::setresuid(1000, 1000, 0), 0);
            KernelIdentity const dropped;
            VOK_EXPECT_CODE(ERROR_NO_TOKEN, Impersonates());
            EXPECT_TRUE(RevertToSelf());
            EXPECT_EQ(KernelIdentity(), dropped);
        });
}

TEST(ProcessIdentity, IsWhatThreadsThatInheritAnotherRevertTo)
{
    VOK_NEEDS_SUPERUSER();
    KernelIdentity const before;
    ASSERT_TRUE(Impersonate("daemon"));
    KernelIdentity const impersonated;
    auto const run = [&]
    {
        EXPECT_EQ(KernelIdentity(), impersonated);
        VOK_EXPECT_CODE(ERROR_SUCCESS, Impersonates());
        EXPECT_TRUE(RevertToSelf());
        EXPECT_EQ(KernelIdentity(), before);
    };
    std::thread(run).join();
    EXPECT_TRUE(RevertToSelf());
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
    auto const lookAndImpersonate = [](PTP_CALLBACK_INSTANCE, PVOID seen, PTP_TIMER)
    {
        *static_cast<KernelIdentity*>(seen) = KernelIdentity();
        EXPECT_TRUE(Impersonate("nobody"));
    };
    RunInChild(
        [&]
        {
            KernelIdentity const before;
            ASSERT_TRUE(Impersonate("daemon")); // while the pool has no threads yet
            for (int i = 0; i < 5; ++i)
                EXPECT_EQ(run(lookAndImpersonate), before);
        });
}
