#include "SystemCalls.h"

#include <Brindle/Platform/System.h>

#include "Support/HostFaults.h"
#include "Support/OpenHandle.h"
#include "Support/TestDrive.h"

#include <gtest/gtest.h>

#include <cstring>
#include <pwd.h>
#include <string>
#include <thread>
#include <unistd.h>

using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;

namespace
{

/// The name, asked for in the platform's two calls.
std::wstring ComputerName(COMPUTER_NAME_FORMAT format)
{
    DWORD size = 0;
    EXPECT_EQ(CodeOf([&] { return GetComputerNameExW(format, nullptr, &size); }), DWORD{ERROR_MORE_DATA});
    std::wstring name(size, L'x');
    DWORD tooSmall = size - 1;
    EXPECT_EQ(CodeOf([&] { return GetComputerNameExW(format, tooSmall ? name.data() : nullptr, &tooSmall); }),
              DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(tooSmall, size);
    EXPECT_EQ(CodeOf([&] { return GetComputerNameExW(format, name.data(), &size); }), 0U);
    EXPECT_EQ(size, name.size() - 1);
    EXPECT_EQ(name.back(), L'\0');
    return name.substr(0, size);
}

std::string UserName()
{
    wchar_t buffer[257];
    DWORD size = 257;
    EXPECT_EQ(CodeOf([&] { return GetUserNameW(buffer, &size); }), 0U);
    std::wstring const name(buffer);
    EXPECT_EQ(size, name.size() + 1);
    return {name.begin(), name.end()};
}

DWORD CodeOfUserName()
{
    DWORD size = 0;
    return CodeOf([&] { return GetUserNameW(nullptr, &size); });
}

TEST(ComputerNames, FollowTheHostsNameAndItsListOfHosts)
{
    struct
    {
        char const* nodeName;
        char const* hosts;
        wchar_t const* netBios;
        wchar_t const* host;
        wchar_t const* domain;
        wchar_t const* whole;
    } const cases[] = {
        {"iron", "", L"IRON", L"iron", L"", L"iron"},
        {"sixteen-letters1.a.org", "127.0.0.1 sixteen-letters1.b.org sixteen-letters1", L"SIXTEEN-LETTERS",
         L"sixteen-letters1", L"a.org", L"sixteen-letters1.a.org"},
        {"iron", "# 1 iron.no iron\n127.0.0.1 localhost\n\n127.0.1.1\tIron.example.org  other iron # c\r\n", L"IRON",
         L"iron", L"example.org", L"iron.example.org"},
        {"iron", "10.0.0.1 iron.elsewhere.org\n10.0.0.2 ironing.org iron\n1 iron. iron\n1", L"IRON", L"iron", L"",
         L"iron"},
        {"", "127.0.0.1 .org", L"", L"", L"", L""},
        {"w\xC3\xA9", "", L"W\u00E9", L"w\u00E9", L"", L"w\u00E9"},
    };
    TestDrive const drive;
    for (auto const& c : cases)
    {
        SCOPED_TRACE(c.hosts);
        drive.Write("hosts", c.hosts);
        SystemCalls::Redirection const names(SystemCalls::GetHostNames, [&](utsname* names)
                                             { return std::strcpy(names->nodename, c.nodeName), 0; });
        SystemCalls::Redirection const open(
            SystemCalls::Open, [&](int directory, char const*, int flags, mode_t mode)
            { return SystemCalls::Open.host(directory, drive.Host("hosts").c_str(), flags, mode); });
        for (auto const physical : {0, 4})
        {
            EXPECT_EQ(ComputerName(static_cast<COMPUTER_NAME_FORMAT>(physical)), c.netBios);
            EXPECT_EQ(ComputerName(static_cast<COMPUTER_NAME_FORMAT>(physical + 1)), c.host);
            EXPECT_EQ(ComputerName(static_cast<COMPUTER_NAME_FORMAT>(physical + 2)), c.domain);
            EXPECT_EQ(ComputerName(static_cast<COMPUTER_NAME_FORMAT>(physical + 3)), c.whole);
        }
        SystemCalls::Redirection const damaged(SystemCalls::ReadAt, FailingWith(EIO));
        EXPECT_EQ(ComputerName(ComputerNameDnsHostname), c.host);
    }
}

TEST(ComputerNames, AreRefused)
{
    wchar_t buffer[1];
    DWORD size = 1;
    auto const code = [](int format, wchar_t* buffer, DWORD* size)
    { return CodeOf([&] { return GetComputerNameExW(static_cast<COMPUTER_NAME_FORMAT>(format), buffer, size); }); };
    EXPECT_EQ(code(-1, buffer, &size), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(code(8, buffer, &size), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(code(0, buffer, nullptr), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(code(0, nullptr, &size), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(size, 1U);
    SystemCalls::Redirection const fail(SystemCalls::GetHostNames, FailingWith(EFAULT));
    EXPECT_EQ(code(0, buffer, &size), DWORD{ERROR_NOACCESS});
}

TEST(UserNames, AreOfTheThreadsEffectiveUser)
{
    EXPECT_EQ(UserName(), ::getpwuid(::geteuid())->pw_name);
    std::string ofOther = "nobody";
    std::thread(
        [&]
        {
            constexpr uid_t nobody = 65534;
            constexpr auto unchanged = static_cast<uid_t>(-1);
            if (::syscall(SYS_setresuid, unchanged, nobody, unchanged) == 0) // of this thread alone
                ofOther = UserName();
        })
        .join();
    EXPECT_EQ(ofOther, "nobody");
    EXPECT_EQ(UserName(), ::getpwuid(::geteuid())->pw_name);
}

TEST(UserNames, NeedTheirSizeAndAUserOfThatNumber)
{
    DWORD const needed = static_cast<DWORD>(UserName().size() + 1);
    wchar_t buffer[257];
    DWORD size = needed - 1;
    EXPECT_EQ(CodeOf([&] { return GetUserNameW(buffer, &size); }), DWORD{ERROR_INSUFFICIENT_BUFFER});
    EXPECT_EQ(size, needed);
    EXPECT_EQ(CodeOf([&] { return GetUserNameW(nullptr, &size); }), DWORD{ERROR_INSUFFICIENT_BUFFER});
    EXPECT_EQ(CodeOf([&] { return GetUserNameW(buffer, &size); }), 0U);
    EXPECT_EQ(CodeOf([&] { return GetUserNameW(buffer, nullptr); }), DWORD{ERROR_INVALID_PARAMETER});
    SystemCalls::Redirection const unknown(SystemCalls::GetEffectiveUser, [] { return uid_t{3'999'999'999}; });
    EXPECT_EQ(CodeOfUserName(), DWORD{ERROR_NO_SUCH_USER});
}

TEST(UserNames, AreLookedUpAgainAndFailWithTheHostsReason)
{
    std::string const expected = UserName();
    std::size_t calls = 0;
    {
        SystemCalls::Redirection const halting(
            SystemCalls::FindUser,
            [&](uid_t number, passwd* user, char* texts, std::size_t size, passwd** found)
            {
                constexpr int errors[] = {EINTR, ERANGE, ERANGE};
                return calls < 3 ? errors[calls++] : SystemCalls::FindUser.host(number, user, texts, size, found);
            });
        EXPECT_EQ(UserName(), expected);
        EXPECT_EQ(calls, 3U);
    }
    for (auto const& [error, code] :
         {std::pair{EIO, ERROR_IO_DEVICE}, {EMFILE, ERROR_TOO_MANY_OPEN_FILES}, {ENOENT, ERROR_NO_SUCH_USER}})
    {
        SystemCalls::Redirection const failing(SystemCalls::FindUser, [error = error](auto...) { return error; });
        EXPECT_EQ(CodeOfUserName(), static_cast<DWORD>(code));
    }
}

TEST(SystemDirectory, GivesItsTextOrTheSizeThatItNeeds)
{
    std::wstring const expected = L"C:\\usr\\lib";
    wchar_t buffer[11] = L"kept";
    EXPECT_EQ(CodeOf([&] { return GetSystemDirectoryW(nullptr, 0) == 11; }), 0U);
    EXPECT_EQ(CodeOf([&] { return GetSystemDirectoryW(buffer, 10) == 11; }), 0U);
    EXPECT_STREQ(buffer, L"kept");
    EXPECT_EQ(CodeOf([&] { return GetSystemDirectoryW(buffer, 11) == 10; }), 0U);
    EXPECT_EQ(buffer, expected);
    EXPECT_NE(GetFileAttributesW(buffer) & FILE_ATTRIBUTE_DIRECTORY, 0U);
}

} // namespace
