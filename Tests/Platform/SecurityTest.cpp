// Tokens, and threads that act as somebody else.
#include "HandleTable.h"
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

TEST(Impersonation, ChangesTheCallingThreadAlone)
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
    OpenHandle const token(OpenUserToken("nobody"));
    ASSERT_TRUE(ImpersonateLoggedOnUser(token.Get()));
    KernelIdentity const impersonated;
    EXPECT_TRUE(impersonated.Has("Uid:\t65534\t65534\t0\t65534")) << impersonated.text;
    EXPECT_TRUE(impersonated.Has("Gid:\t65534\t65534\t0\t65534")) << impersonated.text;
    EXPECT_TRUE(impersonated.Has("Groups:\t65534 ")) << impersonated.text;
    EXPECT_TRUE(impersonated.Has("CapEff:\t0000000000000000")) << impersonated.text;
    HANDLE const made =
        CreateFileW(drive.Path(L"made").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    EXPECT_TRUE(CloseHandle(made));
    EXPECT_EQ(CodeOf(
                  [&]
                  {
                      return CreateFileW(drive.Path(L"secret").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0,
                                         nullptr) != INVALID_HANDLE_VALUE;
                  }),
              ERROR_ACCESS_DENIED);
    EXPECT_EQ(::kill(owner.Process(), 0), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(::ptrace(PTRACE_ATTACH, owner.Process(), nullptr, nullptr), -1);
    turn = 1;
    turn.notify_all();
    other.join();
    EXPECT_TRUE(RevertToSelf());
    EXPECT_EQ(KernelIdentity(), before);
    struct stat status;
    ASSERT_EQ(::stat(drive.Host("made").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, nobody);
    EXPECT_EQ(status.st_gid, nobody);
}

TEST(Impersonation, GoesFromOneUserToAnotherAndBackToTheProcess)
{
    VOK_NEEDS_SUPERUSER();
    KernelIdentity const before;
    OpenHandle const first(OpenUserToken("nobody"));
    OpenHandle const second(OpenUserToken("daemon"));
    ASSERT_TRUE(ImpersonateLoggedOnUser(first.Get()));
    ASSERT_TRUE(ImpersonateLoggedOnUser(second.Get()));
    EXPECT_TRUE(KernelIdentity().Has("Uid:\t1\t1\t0\t1"));
    for (char const* const what : {"reverted", "nothing to revert"})
    {
        EXPECT_TRUE(RevertToSelf());
        EXPECT_EQ(KernelIdentity(), before) << what;
    }
}

TEST(Impersonation, NeedsTheRightsOfATokenThatIsOpen)
{
    struct Case
    {
        DWORD access;
        DWORD code;
    };
    for (auto const& [access, code] :
         {Case{TOKEN_QUERY | TOKEN_DUPLICATE, ERROR_SUCCESS}, Case{MAXIMUM_ALLOWED, ERROR_SUCCESS},
          Case{TOKEN_QUERY, ERROR_ACCESS_DENIED}, Case{TOKEN_DUPLICATE, ERROR_ACCESS_DENIED},
          Case{TOKEN_QUERY | TOKEN_IMPERSONATE, ERROR_ACCESS_DENIED}, // a primary one
          Case{0, ERROR_ACCESS_DENIED}})
    {
        OpenHandle const token = OwnToken(access);
        EXPECT_EQ(CodeOf([&] { return ImpersonateLoggedOnUser(token.Get()); }), code) << access;
        EXPECT_TRUE(RevertToSelf());
    }
    HANDLE const closed = OwnToken(MAXIMUM_ALLOWED).Get();
    OpenHandle const event(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    for (HANDLE const wrong : {closed, event.Get(), HANDLE{nullptr}, GetCurrentProcess()})
    {
        EXPECT_EQ(CodeOf([&] { return ImpersonateLoggedOnUser(wrong); }), ERROR_INVALID_HANDLE);
        EXPECT_EQ(CodeOf(
                      [&]
                      {
                          DWORD value;
                          return GetTokenInformation(wrong, TokenSessionId, &value, sizeof value, &value);
                      }),
                  ERROR_INVALID_HANDLE);
    }
    EXPECT_EQ(CodeOf([&] { return OwnToken(0x80000000); }), ERROR_ACCESS_DENIED);
}

TEST(Impersonation, OfAnotherIsRefusedWithoutThePrivilege)
{
    RunAsOrdinaryUser(
        []
        {
            KernelIdentity const before;
            OpenHandle const token(OpenUserToken("daemon"));
            EXPECT_EQ(CodeOf([&] { return ImpersonateLoggedOnUser(token.Get()); }), ERROR_PRIVILEGE_NOT_HELD);
            EXPECT_EQ(KernelIdentity(), before);
            OpenHandle const own = OwnToken(MAXIMUM_ALLOWED);
            EXPECT_TRUE(ImpersonateLoggedOnUser(own.Get())); // one may be oneself
            EXPECT_EQ(KernelIdentity(), before);
            EXPECT_TRUE(Impersonates());
            EXPECT_TRUE(RevertToSelf());
            EXPECT_EQ(CodeOf([] { return Impersonates(); }), ERROR_NO_TOKEN);
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

TEST(Impersonation, IsInheritedByThreadsOfTheHostUntilTheyRevert)
{
    VOK_NEEDS_SUPERUSER();
    KernelIdentity const before;
    OpenHandle const token(OpenUserToken("daemon"));
    ASSERT_TRUE(ImpersonateLoggedOnUser(token.Get()));
    std::thread(
        [&]
        {
            EXPECT_TRUE(KernelIdentity().Has("Uid:\t1\t1\t0\t1"));
            OpenHandle const own = OwnToken(TOKEN_QUERY);
            Identity identity;
            EXPECT_TRUE(FindIdentityOfToken(own.Get(), TOKEN_QUERY, identity));
            EXPECT_EQ(identity.user, 0U);
            EXPECT_TRUE(Impersonates());
            EXPECT_TRUE(RevertToSelf());
            EXPECT_EQ(KernelIdentity(), before);
        })
        .join();
    EXPECT_TRUE(RevertToSelf());
}

TEST(Impersonation, IsNotForThreadsOfTheTimerPool)
{
    VOK_NEEDS_SUPERUSER();
    auto const run = [] // where the pool has no threads yet
    {
        KernelIdentity const before;
        EXPECT_TRUE(ImpersonateLoggedOnUser(OpenHandle(OpenUserToken("daemon")).Get()));
        KernelIdentity seen;
        PTP_TIMER const timer = CreateThreadpoolTimer([](PTP_CALLBACK_INSTANCE, PVOID context, PTP_TIMER)
                                                      { *static_cast<KernelIdentity*>(context) = KernelIdentity(); },
                                                      &seen, nullptr);
        FILETIME due{};
        SetThreadpoolTimer(timer, &due, 0, 0);
        WaitForThreadpoolTimerCallbacks(timer, FALSE);
        CloseThreadpoolTimer(timer);
        EXPECT_EQ(seen, before);
    };
    EXPECT_EQ(InChild(run), 0);
}

TEST(Impersonation, IsEachThreadsOwn)
{
    VOK_NEEDS_SUPERUSER();
    TestDrive const drive;
    ASSERT_EQ(::chmod(drive.Host().c_str(), 0777), 0);
    std::vector<std::string> const users{"daemon", "bin", "sys", "games", "man", "mail", "news", "nobody"};
    auto const until = std::chrono::steady_clock::now() + (TakesLong() ? 60s : 300ms);
    std::vector<std::thread> threads;
    threads.reserve(users.size());
    std::atomic<int> rounds = 0;
    for (std::string const& user : users)
        threads.emplace_back(
            [&, user]
            {
                std::string const name = drive.Host(user);
                KernelIdentity const before;
                while (std::chrono::steady_clock::now() < until && !testing::Test::HasFailure())
                {
                    OpenHandle const token(OpenUserToken(user));
                    Identity identity;
                    ASSERT_TRUE(FindIdentityOfToken(token.Get(), TOKEN_QUERY, identity));
                    ASSERT_TRUE(ImpersonateLoggedOnUser(token.Get()));
                    HANDLE const file = CreateFileW(drive.Path(std::wstring(user.begin(), user.end())).c_str(),
                                                    GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
                    ASSERT_NE(file, INVALID_HANDLE_VALUE) << user << GetLastError();
                    CloseHandle(file);
                    KernelIdentity const impersonated;
                    ASSERT_TRUE(RevertToSelf());
                    struct stat status;
                    ASSERT_EQ(::stat(name.c_str(), &status), 0);
                    ASSERT_EQ(status.st_uid, identity.user);
                    ASSERT_EQ(status.st_gid, identity.group);
                    ASSERT_EQ(impersonated.user, identity.user);
                    ASSERT_EQ(KernelIdentity(), before);
                    ASSERT_EQ(::unlink(name.c_str()), 0);
                    ++rounds;
                }
            });
    for (std::thread& thread : threads)
        thread.join();
    RecordProperty("rounds", rounds);
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
    struct
    {
        HANDLE token;
        int informationClass;
        DWORD* result;
        DWORD size;
        DWORD code;
    } const refusals[] = {
        {own.Get(), TokenType, &result, 3, ERROR_INSUFFICIENT_BUFFER},
        {own.Get(), 9, &result, 4, ERROR_INVALID_PARAMETER},
        {own.Get(), TokenType, nullptr, 4, ERROR_NOACCESS},
        {blind.Get(), TokenType, &result, 4, ERROR_ACCESS_DENIED},
    };
    for (auto const& [token, informationClass, buffer, size, code] : refusals)
    {
        auto const get = [&, token = token, asked = static_cast<TOKEN_INFORMATION_CLASS>(informationClass),
                          buffer = buffer, size = size]
        { return GetTokenInformation(token, asked, buffer, size, &length); };
        EXPECT_EQ(CodeOf(get), code);
        EXPECT_EQ(length, 4U);
    }
    EXPECT_EQ(CodeOf([&] { return OpenThreadToken(GetCurrentProcess(), TOKEN_QUERY, FALSE, &thread); }),
              ERROR_INVALID_HANDLE);
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
    EXPECT_TRUE(impersonated.Has("Uid:\t1\t1\t0\t1")) << impersonated.text;
    EXPECT_TRUE(impersonated.Has("Gid:\t1\t1\t0\t1")) << impersonated.text;
    EXPECT_TRUE(impersonated.Has("Groups:\t ")) << impersonated.text;
    sleeper.Kill();
    EXPECT_EQ(sleeper.Join(), -SIGKILL);
    HANDLE none = nullptr;
    EXPECT_EQ(CodeOf([&] { return OpenProcessToken(process.Get(), TOKEN_QUERY, &none); }), ERROR_ACCESS_DENIED);
    EXPECT_EQ(CodeOf([&] { return OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, id); }), ERROR_INVALID_PARAMETER);
    DWORD session = 0;
    EXPECT_EQ(CodeOf([&] { return ProcessIdToSessionId(id, &session); }), ERROR_INVALID_PARAMETER);
}

TEST(Tokens, OfAProcessThatTheKernelDoesNotShowAreRefused)
{
    VOK_NEEDS_SUPERUSER();
    Sleeper const sleeper;
    RunAsOrdinaryUser(
        [&]
        {
            auto const id = static_cast<DWORD>(sleeper.Process());
            EXPECT_EQ(CodeOf([&] { return OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, id); }), ERROR_ACCESS_DENIED);
            OpenHandle const process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
            HANDLE none = nullptr;
            EXPECT_EQ(CodeOf([&] { return OpenProcessToken(process.Get(), TOKEN_QUERY, &none); }), ERROR_ACCESS_DENIED);
        });
}

TEST(Processes, AreOpenedByTheirNumber)
{
    struct Case
    {
        DWORD access;
        DWORD id;
        DWORD code;
    };
    DWORD const self = GetCurrentProcessId();
    for (auto const& [access, id, code] :
         {Case{PROCESS_QUERY_INFORMATION, self, ERROR_SUCCESS},
          Case{PROCESS_QUERY_LIMITED_INFORMATION, self, ERROR_SUCCESS}, Case{0x0001, self, ERROR_ACCESS_DENIED},
          Case{0, self, ERROR_ACCESS_DENIED}, Case{PROCESS_QUERY_INFORMATION, 0, ERROR_INVALID_PARAMETER},
          Case{PROCESS_QUERY_INFORMATION, 0xFFFFFFFF, ERROR_INVALID_PARAMETER}})
    {
        auto const open = [access = access, id = id]
        {
            OpenHandle process(OpenProcess(access, FALSE, id));
            HANDLE token = nullptr;
            EXPECT_TRUE(!process || (OpenProcessToken(process.Get(), TOKEN_QUERY, &token) && CloseHandle(token)));
            return process;
        };
        EXPECT_EQ(CodeOf(open), code) << access << ' ' << id;
    }
    DWORD session = 0;
    EXPECT_TRUE(ProcessIdToSessionId(self, &session));
    EXPECT_EQ(session, static_cast<DWORD>(::getsid(0)));
    EXPECT_EQ(CodeOf([&] { return ProcessIdToSessionId(0, &session); }), ERROR_INVALID_PARAMETER);
}
