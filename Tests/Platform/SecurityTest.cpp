// Tokens, and threads that act as somebody else.
#include "Tokens.h"

#include "Support/ChildProcess.h"
#include "Support/Directories.h"
#include "Support/HostFaults.h"
#include "Support/KernelIdentity.h"
#include "Support/OwnImpersonation.h"
#include "Support/TestDrive.h"

#include <Brindle/Vok/Platform.h>
#include <Brindle/Vok/PlatformHost.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <sys/ptrace.h>
#include <thread>
#include <vector>

using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;
using namespace std::chrono_literals;

namespace
{

constexpr unsigned nobody = 65534;

/// A process that waits for its end as somebody.
struct Sleeper : HoldingProcess
{
    explicit Sleeper(unsigned user = ::geteuid())
        : HoldingProcess(
              [user]
              {
                  return user == ::geteuid() || (::setgroups(0, nullptr) == 0 && ::setresgid(user, user, user) == 0 &&
                                                 ::setresuid(user, user, user) == 0);
              })
    {
    }
};

} // namespace

TEST(Impersonation, ChangesTheCallingThreadAloneUntilItReverts)
{
    VOK_NEEDS_SUPERUSER();
    TestDrive const drive;
    ASSERT_EQ(::chmod(drive.Host().c_str(), 0777), 0);
    drive.Write("secret");
    ASSERT_EQ(::chmod(drive.Host("secret").c_str(), 0600), 0);
    Sleeper const owner;
    KernelIdentity const before;
    std::atomic<int> turn = 0;
    std::thread other(
        [&]
        {
            turn.wait(0);
            EXPECT_EQ(KernelIdentity(), before);
        });
    OpenHandle const first(OpenUserToken("daemon"));
    OpenHandle const token(OpenUserToken("nobody"));
    ASSERT_TRUE(ImpersonateLoggedOnUser(first.Get()));
    ASSERT_TRUE(ImpersonateLoggedOnUser(token.Get()));
    KernelIdentity const impersonated;
    for (char const* const line : {"Uid:\t65534\t65534\t0\t65534", "Gid:\t65534\t65534\t0\t65534", "Groups:\t65534 ",
                                   "CapEff:\t0000000000000000"})
        EXPECT_TRUE(impersonated.Has(line)) << line << '\n' << impersonated.text;
    EXPECT_TRUE(Open(drive.Path(L"made"), GENERIC_WRITE, 0, CREATE_NEW));
    VOK_EXPECT_CODE(ERROR_ACCESS_DENIED, Open(drive.Path(L"secret"), GENERIC_READ));
    EXPECT_EQ(::kill(owner.Process(), 0), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(::ptrace(PTRACE_ATTACH, owner.Process(), nullptr, nullptr), -1);
    turn = 1;
    turn.notify_all();
    other.join();
    for (char const* const what : {"reverted", "nothing to revert"})
    {
        EXPECT_TRUE(RevertToSelf());
        EXPECT_EQ(KernelIdentity(), before) << what;
    }
    struct stat status;
    ASSERT_EQ(::stat(drive.Host("made").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, nobody);
    EXPECT_EQ(status.st_gid, nobody);
}

TEST(Impersonation, NeedsTheRightsOfATokenThatIsOpen)
{
    for (DWORD const access : std::initializer_list<DWORD>{TOKEN_QUERY | TOKEN_DUPLICATE, MAXIMUM_ALLOWED})
    {
        VOK_EXPECT_CODE(ERROR_SUCCESS, ImpersonateLoggedOnUser(OwnToken(access).Get())) << access;
        EXPECT_TRUE(RevertToSelf());
    }
    // A primary token isn't for TOKEN_IMPERSONATE.
    for (DWORD const access :
         std::initializer_list<DWORD>{TOKEN_QUERY, TOKEN_DUPLICATE, TOKEN_QUERY | TOKEN_IMPERSONATE, 0})
        VOK_EXPECT_CODE(ERROR_ACCESS_DENIED, ImpersonateLoggedOnUser(OwnToken(access).Get())) << access;
    HANDLE const closed = OwnToken(MAXIMUM_ALLOWED).Get();
    OpenHandle const event(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    DWORD value;
    for (HANDLE const wrong : {closed, event.Get(), HANDLE{nullptr}, GetCurrentProcess()})
    {
        VOK_EXPECT_CODE(ERROR_INVALID_HANDLE, ImpersonateLoggedOnUser(wrong));
        VOK_EXPECT_CODE(ERROR_INVALID_HANDLE, GetTokenInformation(wrong, TokenSessionId, &value, sizeof value, &value));
    }
    VOK_EXPECT_CODE(ERROR_ACCESS_DENIED, OwnToken(0x80000000));
}

TEST(Impersonation, OfAnotherIsRefusedWithoutThePrivilege)
{
    RunAsOrdinaryUser(
        []
        {
            KernelIdentity const before;
            OpenHandle const token(OpenUserToken("daemon"));
            VOK_EXPECT_CODE(ERROR_PRIVILEGE_NOT_HELD, ImpersonateLoggedOnUser(token.Get()));
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
    OpenHandle const token(OpenUserToken("daemon"));
    EXPECT_DEATH(
        {
            SystemCalls::Redirection const users(SystemCalls::SetUsers, FailingWith(EPERM));
            SystemCalls::Redirection const groups(SystemCalls::SetGroups,
                                                  FailingAt(SystemCalls::SetGroups, 1, EPERM, always));
            ImpersonateLoggedOnUser(token.Get());
        },
        "terminate called");
}

TEST(Impersonation, IsEachThreadsOwn)
{
    VOK_NEEDS_SUPERUSER();
    auto const until = std::chrono::steady_clock::now() + (TakesLong() ? 60s : 300ms);
    std::atomic<int> rounds = 0;
    auto const work = [&](char const* user)
    {
        KernelIdentity const before;
        while (std::chrono::steady_clock::now() < until && !testing::Test::HasFailure())
        {
            OpenHandle const token(OpenUserToken(user));
            Identity identity;
            ASSERT_TRUE(FindIdentityOfToken(token.Get(), TOKEN_QUERY, identity));
            ASSERT_TRUE(ImpersonateLoggedOnUser(token.Get()));
            KernelIdentity const impersonated;
            ASSERT_TRUE(RevertToSelf());
            ASSERT_EQ(impersonated.user, identity.user);
            ASSERT_EQ(KernelIdentity(), before);
            ++rounds;
        }
    };
    std::vector<std::thread> threads;
    for (char const* const user : {"daemon", "bin", "sys", "games", "man", "mail", "news", "nobody"})
        threads.emplace_back(work, user);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GE(rounds, 8);
}

// Tokens and processes

TEST(Tokens, TellTheirTypeAndSession)
{
    auto const value = [](HANDLE token, TOKEN_INFORMATION_CLASS informationClass)
    {
        DWORD result = 0;
        DWORD length = 0;
        EXPECT_TRUE(GetTokenInformation(token, informationClass, &result, sizeof result, &length));
        EXPECT_EQ(length, 4U);
        return result;
    };
    OpenHandle const own = OwnToken(TOKEN_QUERY | TOKEN_DUPLICATE);
    EXPECT_EQ(value(own.Get(), TokenType), TokenPrimary);
    EXPECT_EQ(value(own.Get(), TokenSessionId), static_cast<DWORD>(::getsid(0)));
    ASSERT_TRUE(ImpersonateLoggedOnUser(own.Get()));
    HANDLE thread = nullptr;
    EXPECT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &thread));
    EXPECT_EQ(value(thread, TokenType), TokenImpersonation);
    EXPECT_TRUE(CloseHandle(thread));
    EXPECT_TRUE(RevertToSelf());

    DWORD result = 0;
    DWORD length = 0;
    OpenHandle const blind = OwnToken(TOKEN_DUPLICATE);
    std::tuple<HANDLE, int, DWORD*, DWORD, DWORD> const refusals[] = {
        {own.Get(), TokenType, &result, 3, ERROR_INSUFFICIENT_BUFFER},
        {own.Get(), 9, &result, 4, ERROR_INVALID_PARAMETER},
        {own.Get(), TokenType, nullptr, 4, ERROR_NOACCESS},
        {blind.Get(), TokenType, &result, 4, ERROR_ACCESS_DENIED},
    };
    for (auto const& [token, kind, buffer, size, code] : refusals)
    {
        auto const asked = static_cast<TOKEN_INFORMATION_CLASS>(kind);
        VOK_EXPECT_CODE(code, GetTokenInformation(token, asked, buffer, size, &length));
    }
    EXPECT_EQ(length, 4U);
    VOK_EXPECT_CODE(ERROR_INVALID_HANDLE, OpenThreadToken(GetCurrentProcess(), TOKEN_QUERY, FALSE, &thread));
    for (std::string const& user : {std::string("no such user"), std::string(), std::string("root\0x", 6)})
        EXPECT_EQ(CodeOf([&] { return OpenUserToken(user); }), ERROR_NO_SUCH_USER) << user;
}

TEST(Tokens, OfAnotherProcessAreThatProcesss)
{
    VOK_NEEDS_SUPERUSER();
    Sleeper sleeper(1);
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

TEST(Tokens, OfAProcessThatTheKernelDoesNotShowAreRefused)
{
    VOK_NEEDS_SUPERUSER();
    Sleeper const sleeper;
    RunAsOrdinaryUser(
        [&]
        {
            auto const id = static_cast<DWORD>(sleeper.Process());
            VOK_EXPECT_CODE(ERROR_ACCESS_DENIED, OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, id));
            OpenHandle const process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
            HANDLE none = nullptr;
            VOK_EXPECT_CODE(ERROR_ACCESS_DENIED, OpenProcessToken(process.Get(), TOKEN_QUERY, &none));
        });
}

TEST(Processes, AreOpenedByTheirNumber)
{
    DWORD const self = GetCurrentProcessId();
    std::tuple<DWORD, DWORD, DWORD> const cases[] = {
        {PROCESS_QUERY_INFORMATION, self, ERROR_SUCCESS},
        {PROCESS_QUERY_LIMITED_INFORMATION, self, ERROR_SUCCESS},
        {0x0001, self, ERROR_ACCESS_DENIED},
        {0, self, ERROR_ACCESS_DENIED},
        {PROCESS_QUERY_INFORMATION, 0, ERROR_INVALID_PARAMETER},
        {PROCESS_QUERY_INFORMATION, 0xFFFFFFFF, ERROR_INVALID_PARAMETER},
    };
    for (auto const& [access, id, code] : cases)
    {
        OpenHandle process;
        VOK_EXPECT_CODE(code, process = OpenHandle(OpenProcess(access, FALSE, id)));
        HANDLE token = nullptr;
        EXPECT_TRUE(!process || (OpenProcessToken(process.Get(), TOKEN_QUERY, &token) && CloseHandle(token)));
    }
    DWORD session = 0;
    EXPECT_TRUE(ProcessIdToSessionId(self, &session));
    EXPECT_EQ(session, static_cast<DWORD>(::getsid(0)));
    VOK_EXPECT_CODE(ERROR_INVALID_PARAMETER, ProcessIdToSessionId(0, &session));
}
