#include "Support/StandIn.h"

#include <cstring>

using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;

namespace
{

/// The name, asked for in the platform's two calls.
std::wstring ComputerName(int format)
{
    auto const get = [=](wchar_t* buffer, DWORD* size)
    { return CodeOf([=] { return GetComputerNameExW(static_cast<COMPUTER_NAME_FORMAT>(format), buffer, size); }); };
    DWORD size = 0;
    EXPECT_EQ(get(nullptr, &size), DWORD{ERROR_MORE_DATA});
    std::wstring name(size--, L'x');
    EXPECT_EQ(get(size ? name.data() : nullptr, &size), DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(size, name.size());
    EXPECT_EQ(get(name.data(), &size), 0U);
    EXPECT_EQ(size, name.size() - 1);
    return name.c_str();
}

TEST(ComputerNames, FollowTheHostsNameAndItsListOfHosts)
{
    struct
    {
        char const* nodeName;
        char const* hosts;
        std::wstring names[4];
    } const cases[] = {
        {"iron",
         "10.0.0.1 iron.elsewhere.org\n10.0.0.2 ironing.org iron\n1 iron. iron\n1",
         {L"IRON", L"iron", L"", L"iron"}},
        {"sixteen-letters1.a.org",
         "127.0.0.1 sixteen-letters1.b.org sixteen-letters1",
         {L"SIXTEEN-LETTERS", L"sixteen-letters1", L"a.org", L"sixteen-letters1.a.org"}},
        {"iron",
         "# 1 iron.no iron\n127.0.0.1 localhost\n\n127.0.1.1\tIron.example.org  other iron # c\r\n",
         {L"IRON", L"iron", L"example.org", L"iron.example.org"}},
    };
    TestDrive const drive;
    for (auto const& each : cases)
    {
        drive.Write("hosts", each.hosts);
        SystemCalls::Redirection const names(SystemCalls::GetHostNames, [&](utsname* names)
                                             { return std::strcpy(names->nodename, each.nodeName), 0; });
        SystemCalls::Redirection const open(
            SystemCalls::Open, [&](int directory, char const*, int flags, mode_t mode)
            { return SystemCalls::Open.host(directory, drive.Host("hosts").c_str(), flags, mode); });
        for (int format = 0; format < ComputerNameMax; ++format)
            EXPECT_EQ(ComputerName(format), each.names[format % 4]) << each.hosts;
    }
}

TEST(UserNames, AreOfTheEffectiveUser)
{
    std::string const expected = ::getpwuid(::geteuid())->pw_name;
    wchar_t buffer[257];
    DWORD size = 1;
    VOK_EXPECT_CODE(ERROR_INSUFFICIENT_BUFFER, GetUserNameW(buffer, &size));
    EXPECT_EQ(size, expected.size() + 1);
    VOK_EXPECT_CODE(0, GetUserNameW(buffer, &size));
    EXPECT_EQ(std::filesystem::path(buffer), expected);
}

TEST(SystemDirectory, GivesItsTextOrTheSizeThatItNeeds)
{
    wchar_t buffer[11] = L"kept";
    VOK_EXPECT_CODE(0, GetSystemDirectoryW(buffer, 10) == 11);
    EXPECT_STREQ(buffer, L"kept");
    VOK_EXPECT_CODE(0, GetSystemDirectoryW(buffer, 11) == 10);
    EXPECT_STREQ(buffer, L"C:\\usr\\lib");
}

} // namespace
