// Tokens, and threads that act as somebody else.
#include "HandleTable.h"
#include "Tokens.h"

#include "Support/ChildProcess.h"
#include "Support/Directories.h"
#include "Support/HostFaults.h"
#include "Support/KernelIdentity.h"
#include "Support/TestDrive.h"

#include <Brindle/Vok/Platform.h>
#include <Brindle/Vok/PlatformHost.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
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

struct Token
{
    explicit Token(std::string const& user) : handle(OpenUserToken(user)) { EXPECT_NE(handle, nullptr) << user; }
    explicit Token(HANDLE handle) : handle(handle) {}
    ~Token() { CloseHandle(handle); }
    Token(Token const&) = delete;
    Token& operator=(Token const&) = delete;

    HANDLE handle;
};

/// Of the calling process, or null with the last error set.
HANDLE OpenOwnToken(DWORD access)
{
    HANDLE token = nullptr;
    OpenProcessToken(GetCurrentProcess(), access, &token);
    return token;
}

template <class Call>
DWORD CodeOf(Call call)
{
    SetLastError(ERROR_SUCCESS);
    bool const succeeded = call() ? true : false;
    EXPECT_EQ(succeeded, GetLastError() == ERROR_SUCCESS);
    return GetLastError();
}

/// A process that waits for its end as somebody.
struct Sleeper : ChildProcess
{
    explicit Sleeper(unsigned user = ::geteuid())
        : ChildProcess(
              [user](Channel const& channel)
              {
                  if (user != ::geteuid() && (::setgroups(0, nullptr) != 0 || ::setresgid(user, user, user) != 0 ||
                                              ::setresuid(user, user, user) != 0))
                      return 255;
                  channel.Ready();
                  return channel.Wait() ? 0 : 1;
              })
    {
        WaitUntilReady();
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
    Token const token("nobody");
    ASSERT_TRUE(ImpersonateLoggedOnUser(token.handle));
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
    Token const first("nobody");
    Token const second("daemon");
    for (int round = 0; round < 3; ++round)
    {
        ASSERT_TRUE(ImpersonateLoggedOnUser(first.handle));
        ASSERT_TRUE(ImpersonateLoggedOnUser(second.handle));
        EXPECT_TRUE(KernelIdentity().Has("Uid:\t1\t1\t0\t1"));
        EXPECT_TRUE(RevertToSelf());
        EXPECT_EQ(KernelIdentity(), before);
        EXPECT_TRUE(RevertToSelf()); // nothing to do
    }
    EXPECT_EQ(KernelIdentity(), before);
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
        Token const token(OpenOwnToken(access));
        EXPECT_EQ(CodeOf([&] { return ImpersonateLoggedOnUser(token.handle); }), code) << access;
        EXPECT_TRUE(RevertToSelf());
    }
    HANDLE const closed = OpenOwnToken(MAXIMUM_ALLOWED);
    EXPECT_TRUE(CloseHandle(closed));
    Token const event(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    for (HANDLE const wrong : {closed, event.handle, HANDLE{nullptr}, GetCurrentProcess()})
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
    EXPECT_EQ(CodeOf([&] { return OpenOwnToken(0x80000000); }), ERROR_ACCESS_DENIED);
}

TEST(Impersonation, OfAnotherIsRefusedWithoutThePrivilege)
{
    RunAsOrdinaryUser(
        []
        {
            KernelIdentity const before;
            Token const token("daemon");
            EXPECT_EQ(CodeOf([&] { return ImpersonateLoggedOnUser(token.handle); }), ERROR_PRIVILEGE_NOT_HELD);
            EXPECT_EQ(KernelIdentity(), before);
            Token const own(OpenOwnToken(MAXIMUM_ALLOWED));
            EXPECT_TRUE(ImpersonateLoggedOnUser(own.handle)); // one may be oneself
            EXPECT_EQ(KernelIdentity(), before);
            HANDLE thread = nullptr;
            EXPECT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, FALSE, &thread));
            EXPECT_TRUE(CloseHandle(thread));
            EXPECT_TRUE(RevertToSelf());
            EXPECT_EQ(CodeOf([&] { return OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, FALSE, &thread); }),
                      ERROR_NO_TOKEN);
        });
}

TEST(Impersonation, IsAllOrNothing)
{
    VOK_NEEDS_SUPERUSER();
    Token const daemon("daemon");
    Token const somebody("nobody");
    auto const failOnce = [](auto& call, int at, int error)
    {
        return [&call, at, error](auto... arguments) mutable
        {
            if (at-- != 0)
                return call.host(arguments...);
            errno = error;
            return -1L;
        };
    };
    KernelIdentity const process;
    auto const expectNothingChanges = [&](char const* what, int error, DWORD code)
    {
        EXPECT_EQ(CodeOf([&] { return ImpersonateLoggedOnUser(daemon.handle); }), code) << what << error;
        EXPECT_EQ(KernelIdentity(), process) << what;
        ASSERT_TRUE(ImpersonateLoggedOnUser(daemon.handle)) << what; // the fault was one of one call
        KernelIdentity const impersonated;
        EXPECT_TRUE(RevertToSelf());
        EXPECT_NE(impersonated, process);
    };
    auto const expectStaysImpersonated = [&](auto& call, int at, char const* what)
    {
        ASSERT_TRUE(ImpersonateLoggedOnUser(daemon.handle));
        KernelIdentity const impersonated;
        {
            SystemCalls::Redirection const fault(call, failOnce(call, at, ENOMEM));
            EXPECT_EQ(CodeOf([&] { return RevertToSelf(); }), ERROR_NOT_ENOUGH_MEMORY) << what;
            EXPECT_EQ(KernelIdentity(), impersonated) << what;
        }
        {
            SystemCalls::Redirection const fault(call, failOnce(call, at, EAGAIN));
            EXPECT_EQ(CodeOf([&] { return ImpersonateLoggedOnUser(somebody.handle); }), ERROR_NO_SYSTEM_RESOURCES);
            EXPECT_EQ(KernelIdentity(), impersonated) << what;
        }
        EXPECT_TRUE(RevertToSelf());
        EXPECT_EQ(KernelIdentity(), process) << what;
    };
    auto const check = [&](auto& call, int at, char const* what)
    {
        for (auto const& [error, code] :
             {std::pair{EPERM, ERROR_PRIVILEGE_NOT_HELD}, {ENOMEM, ERROR_NOT_ENOUGH_MEMORY}})
        {
            SystemCalls::Redirection const fault(call, failOnce(call, at, error));
            expectNothingChanges(what, error, static_cast<DWORD>(code));
        }
        expectStaysImpersonated(call, at, what);
    };
    check(SystemCalls::SetOtherGroups, 0, "supplementary groups");
    check(SystemCalls::SetGroups, 0, "group");
    check(SystemCalls::SetUsers, 0, "user");
    check(SystemCalls::SetCapabilities, 0, "capabilities at first");
    check(SystemCalls::SetCapabilities, 1, "capabilities at last");
}

TEST(ImpersonationDeathTest, EndsTheProcessWhenTheWayBackIsRefused)
{
    VOK_NEEDS_SUPERUSER();
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    Token const token("daemon");
    EXPECT_DEATH(
        {
            SystemCalls::Redirection const users(SystemCalls::SetUsers, FailingWith(EPERM));
            int calls = 0;
            SystemCalls::Redirection const groups(
                SystemCalls::SetGroups, [&](gid_t real, gid_t effective, gid_t saved)
                { return calls++ == 0 ? SystemCalls::SetGroups.host(real, effective, saved) : -1L; });
            ImpersonateLoggedOnUser(token.handle);
        },
        "terminate called");
}

TEST(Impersonation, EndsWithItsThread)
{
    VOK_NEEDS_SUPERUSER();
    KernelIdentity const before;
    Token const token("daemon");
    for (int i = 0; i < 8; ++i)
        std::thread([&] { EXPECT_TRUE(ImpersonateLoggedOnUser(token.handle)); }).join();
    EXPECT_EQ(KernelIdentity(), before);
    std::thread([&] { EXPECT_EQ(KernelIdentity(), before); }).join();
}

TEST(Impersonation, IsInheritedByThreadsOfTheHostUntilTheyRevert)
{
    VOK_NEEDS_SUPERUSER();
    KernelIdentity const before;
    Token const token("daemon");
    ASSERT_TRUE(ImpersonateLoggedOnUser(token.handle));
    std::thread(
        [&]
        {
            EXPECT_TRUE(KernelIdentity().Has("Uid:\t1\t1\t0\t1"));
            Token const own(OpenOwnToken(TOKEN_QUERY));
            Identity identity;
            EXPECT_TRUE(FindIdentityOfToken(own.handle, TOKEN_QUERY, identity));
            EXPECT_EQ(identity.user, 0U);
            HANDLE thread = nullptr;
            EXPECT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, FALSE, &thread));
            EXPECT_TRUE(CloseHandle(thread));
            EXPECT_TRUE(RevertToSelf());
            EXPECT_EQ(KernelIdentity(), before);
        })
        .join();
    EXPECT_TRUE(RevertToSelf());
}

TEST(Impersonation, IsNotForThreadsOfTheTimerPool)
{
    VOK_NEEDS_SUPERUSER();
    ChildProcess child( // in which the pool has no threads yet
        [](auto const&)
        {
            KernelIdentity const before;
            Token const token("daemon");
            EXPECT_TRUE(ImpersonateLoggedOnUser(token.handle));
            KernelIdentity seen;
            PTP_TIMER const timer =
                CreateThreadpoolTimer([](PTP_CALLBACK_INSTANCE, PVOID context, PTP_TIMER)
                                      { *static_cast<KernelIdentity*>(context) = KernelIdentity(); },
                                      &seen, nullptr);
            FILETIME due{};
            SetThreadpoolTimer(timer, &due, 0, 0);
            WaitForThreadpoolTimerCallbacks(timer, FALSE);
            CloseThreadpoolTimer(timer);
            EXPECT_EQ(seen, before);
            return testing::Test::HasFailure() ? 1 : 0;
        });
    EXPECT_EQ(child.Join(), 0);
}

TEST(Impersonation, IsEachThreadsOwn)
{
    VOK_NEEDS_SUPERUSER();
    TestDrive const drive;
    ASSERT_EQ(::chmod(drive.Host().c_str(), 0777), 0);
    std::vector<std::string> const users{"daemon", "bin", "sys", "games", "man", "mail", "news", "nobody"};
    auto const until = std::chrono::steady_clock::now() + (TakesLong() ? 60s : 300ms);
    std::vector<std::thread> threads;
    std::atomic<int> rounds = 0;
    for (std::string const& user : users)
        threads.emplace_back(
            [&, user]
            {
                std::string const name = drive.Host(user);
                KernelIdentity const before;
                while (std::chrono::steady_clock::now() < until && !testing::Test::HasFailure())
                {
                    Token const token(user);
                    Identity identity;
                    ASSERT_TRUE(FindIdentityOfToken(token.handle, TOKEN_QUERY, identity));
                    ASSERT_TRUE(ImpersonateLoggedOnUser(token.handle));
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
    Token const own(OpenOwnToken(TOKEN_QUERY | TOKEN_DUPLICATE));
    EXPECT_EQ(value(own.handle, TokenType), TokenPrimary);
    EXPECT_EQ(value(own.handle, TokenSessionId), static_cast<DWORD>(::getsid(0)));
    ASSERT_TRUE(ImpersonateLoggedOnUser(own.handle));
    HANDLE thread = nullptr;
    EXPECT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &thread));
    EXPECT_EQ(value(thread, TokenType), TokenImpersonation);
    EXPECT_TRUE(CloseHandle(thread));
    EXPECT_TRUE(RevertToSelf());

    DWORD result = 0;
    DWORD length = 0;
    EXPECT_EQ(CodeOf([&] { return GetTokenInformation(own.handle, TokenType, &result, 3, &length); }),
              ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(length, 4U);
    EXPECT_EQ(
        CodeOf(
            [&]
            { return GetTokenInformation(own.handle, static_cast<TOKEN_INFORMATION_CLASS>(9), &result, 4, &length); }),
        ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CodeOf([&] { return GetTokenInformation(own.handle, TokenType, nullptr, 4, &length); }), ERROR_NOACCESS);
    Token const blind(OpenOwnToken(TOKEN_DUPLICATE));
    EXPECT_EQ(CodeOf([&] { return GetTokenInformation(blind.handle, TokenType, &result, 4, &length); }),
              ERROR_ACCESS_DENIED);
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
    Token const process(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, id));
    HANDLE opened = nullptr;
    ASSERT_TRUE(OpenProcessToken(process.handle, MAXIMUM_ALLOWED, &opened));
    Token const token(opened);
    EXPECT_TRUE(ImpersonateLoggedOnUser(token.handle));
    KernelIdentity const impersonated;
    EXPECT_TRUE(RevertToSelf());
    EXPECT_TRUE(impersonated.Has("Uid:\t1\t1\t0\t1")) << impersonated.text;
    EXPECT_TRUE(impersonated.Has("Gid:\t1\t1\t0\t1")) << impersonated.text;
    EXPECT_TRUE(impersonated.Has("Groups:\t ")) << impersonated.text;
    sleeper.Kill();
    EXPECT_EQ(sleeper.Join(), -SIGKILL);
    HANDLE none = nullptr;
    EXPECT_EQ(CodeOf([&] { return OpenProcessToken(process.handle, TOKEN_QUERY, &none); }), ERROR_ACCESS_DENIED);
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
            Token const process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
            HANDLE none = nullptr;
            EXPECT_EQ(CodeOf([&] { return OpenProcessToken(process.handle, TOKEN_QUERY, &none); }),
                      ERROR_ACCESS_DENIED);
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
        EXPECT_EQ(CodeOf(
                      [&]
                      {
                          HANDLE const process = OpenProcess(access, FALSE, id);
                          HANDLE token = nullptr;
                          if (process != nullptr)
                          {
                              EXPECT_TRUE(OpenProcessToken(process, TOKEN_QUERY, &token));
                              EXPECT_TRUE(CloseHandle(token));
                              EXPECT_TRUE(CloseHandle(process));
                          }
                          return process != nullptr;
                      }),
                  code)
            << access << ' ' << id;
    }
    DWORD session = 0;
    EXPECT_TRUE(ProcessIdToSessionId(self, &session));
    EXPECT_EQ(session, static_cast<DWORD>(::getsid(0)));
    for (DWORD const none : {0U, 0x80000000U, 0xFFFFFFFFU})
        EXPECT_EQ(CodeOf([&] { return ProcessIdToSessionId(none, &session); }), ERROR_INVALID_PARAMETER);
}
