#include "UserDirs.h"

#include "Support/HostVariable.h"
#include "Support/KernelIdentity.h"
#include "Support/OpenHandle.h"
#include "Support/TestDrive.h"

#include <Brindle/Vok/Platform.h>
#include <Brindle/Vok/PlatformHost.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <sys/stat.h>

using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;

TEST(UserDirs, LinesOfAnotherFormCountAsNone)
{
    using namespace std::string_literals;
    std::pair<char const*, char const*> const cases[] = {
        {"XDG_A_DIR=\"$HOME/a\"", "/h/a"},
        {"XDG_A_DIR=\"$HOME/a\"\nXDG_A_DIR=\"/b\"\n", "/b"},
        {"XDG_A_DIR=\"/b\"\nXDG_A_DIR=\"bad\"\nXDG_AB_DIR=\"/c\"\n#XDG_A_DIR=\"/d\"\n", "/b"},
        {" \tXDG_A_DIR = \"$HOME\" # home\r\n", "/h"},
        {R"(XDG_A_DIR="/a\"b\\\$c#")", "/a\"b\\$c#"},
    };
    for (auto const& [file, expected] : cases)
        EXPECT_EQ(FindUserDirectory(file, "XDG_A_DIR", "/h"), expected) << file;
    for (std::string const& file : {"XDG_A_DIR=\"$HOMER/a\""s, "XDG_A_DIR=\"/a"s, "XDG_A_DIR=\"/a\" b"s,
                                    "XDG_A_DIR=/a"s, "export XDG_A_DIR=\"/a\""s, "XDG_A_DIR=\"/a\0b\""s})
        EXPECT_FALSE(FindUserDirectory(file, "XDG_A_DIR", "/h")) << file;
}

namespace
{

constexpr DWORD unverified = KF_FLAG_DONT_VERIFY;

/// The path, or the code as text.
std::wstring Find(GUID const& id, DWORD flags, HANDLE token = nullptr)
{
    constexpr DWORD untouched = 4711;
    wchar_t before;
    PWSTR path = &before;
    SetLastError(untouched);
    HRESULT const result = SHGetKnownFolderPath(id, flags, token, &path);
    EXPECT_EQ(GetLastError(), untouched);
    EXPECT_EQ(result == S_OK, path != nullptr);
    std::wstring text = path ? path : std::to_wstring(result & 0xFFFF) + (result >> 16 == -0x7FF9 ? L"" : L"!");
    CoTaskMemFree(path);
    return text;
}

class KnownFolders : public testing::Test
{
protected:
    KnownFolders() { std::filesystem::create_directory(drive.Host("h")); }

    std::wstring Windows(std::string const& name) const { return OfHost(drive.Host(name)); }

    TestDrive drive;
    HostVariable const home{"HOME", drive.Host("h/").c_str()};
    HostVariable const configuration{"XDG_CONFIG_HOME", nullptr};
    HostVariable const data{"XDG_DATA_HOME", nullptr};
    HostVariable const cache{"XDG_CACHE_HOME", nullptr};
    HostVariable const machine{"XDG_CONFIG_DIRS", nullptr};
};

} // namespace

TEST_F(KnownFolders, FollowTheVariablesAndTheFileOfUserDirectories)
{
    drive.Write("h/.config/user-dirs.dirs", "XDG_MUSIC_DIR=\"/never\"");
    drive.Write("c/user-dirs.dirs", "XDG_MUSIC_DIR=\"/m:\"\nXDG_VIDEOS_DIR=\"$HOME/v/\"\nXDG_DESKTOP_DIR=\"$HOME\"\n");
    configuration.Set((drive.Host() + "//c/").c_str());
    data.Set("/d");
    cache.Set("relative"); // which counts as none
    machine.Set("relative::/e/:/f");
    std::wstring const h = Windows("h");
    std::tuple<GUID, std::wstring, std::wstring> const cases[] = {
        {FOLDERID_Profile, h, h},
        {FOLDERID_RoamingAppData, h + L"\\.config", Windows("c")},
        {FOLDERID_LocalAppData, h + L"\\.local\\share", L"C:\\d"},
        {FOLDERID_InternetCache, h + L"\\.cache", h + L"\\.cache"},
        {FOLDERID_ProgramData, L"C:\\etc\\xdg", L"C:\\e"},
        {FOLDERID_CommonStartup, L"C:\\etc\\xdg\\autostart", L"C:\\e\\autostart"},
        {FOLDERID_Desktop, h + L"\\Desktop", h},
        {FOLDERID_Music, h, L"C:\\m\uF03A"},
        {FOLDERID_Videos, h, h + L"\\v"},
        {FOLDERID_System, L"C:\\usr\\lib", L"C:\\usr\\lib"},
    };
    for (auto const& [id, byDefault, withVariables] : cases)
    {
        EXPECT_EQ(Find(id, unverified), withVariables);
        EXPECT_EQ(Find(id, unverified | KF_FLAG_DEFAULT_PATH | KF_FLAG_NOT_PARENT_RELATIVE), byDefault);
    }
}

TEST_F(KnownFolders, AreLookedForOrMade)
{
    std::wstring const data = Windows("h") + L"\\.local\\share";
    EXPECT_EQ(Find(FOLDERID_LocalAppData, 0), L"2");
    mode_t const before = ::umask(0);
    EXPECT_EQ(Find(FOLDERID_LocalAppData, KF_FLAG_CREATE), data);
    ::umask(before);
    EXPECT_EQ(Find(FOLDERID_LocalAppData, 0), data);
    for (char const* const made : {"h/.local", "h/.local/share"})
        EXPECT_EQ(drive.Mode(made), 0700U);
    drive.Write("h/.config");
    EXPECT_EQ(Find(FOLDERID_RoamingAppData, 0), L"3");
    EXPECT_EQ(Find(FOLDERID_Startup, KF_FLAG_CREATE), L"3");
}

TEST_F(KnownFolders, WrongArgumentsAndHostFailuresHaveTheirCodes)
{
    EXPECT_EQ(SHGetKnownFolderPath(FOLDERID_Profile, 0, nullptr, nullptr), E_INVALIDARG);
    EXPECT_EQ(Find(FOLDERID_Profile, 1), L"87");
    EXPECT_EQ(Find(FOLDERID_Profile, KF_FLAG_NOT_PARENT_RELATIVE), L"87");
    EXPECT_EQ(Find(FOLDERID_ProgramFiles, unverified), L"2");
    EXPECT_EQ(Find(GUID{}, KF_FLAG_CREATE), L"2");
    // A FIFO is no file.
    std::filesystem::create_directories(drive.Host("h/.config"));
    ASSERT_EQ(::mkfifo(drive.Host("h/.config/user-dirs.dirs").c_str(), 0600), 0);
    EXPECT_EQ(Find(FOLDERID_Music, unverified), Windows("h"));
}

TEST_F(KnownFolders, ATokenNeedsItsRights)
{
    EXPECT_EQ(Find(FOLDERID_Profile, 0, OwnToken(TOKEN_QUERY | TOKEN_IMPERSONATE).Get()), Windows("h"));
    EXPECT_EQ(Find(FOLDERID_Profile, 0, OwnToken(TOKEN_QUERY).Get()), L"5");
    EXPECT_EQ(Find(FOLDERID_Profile, 0, OwnToken(TOKEN_IMPERSONATE).Get()), L"5");
    EXPECT_EQ(Find(FOLDERID_Profile, 0, INVALID_HANDLE_VALUE), L"6");
}

TEST_F(KnownFolders, OfAnotherUserAreFoundAndMadeAsThatUser)
{
    VOK_NEEDS_SUPERUSER();
    configuration.Set("/c");
    OpenHandle const process = OwnToken(TOKEN_QUERY | TOKEN_IMPERSONATE);
    OpenHandle const nobody(OpenUserToken("nobody"));
    auto const expectHomeOfNobody = [](HANDLE token)
    {
        EXPECT_EQ(Find(FOLDERID_RoamingAppData, unverified, token), L"C:\\nonexistent\\.config");
        EXPECT_EQ(Find(FOLDERID_Desktop, unverified, token), L"C:\\nonexistent\\Desktop");
        EXPECT_EQ(Find(FOLDERID_Profile, 0, token), L"2");
        EXPECT_EQ(Find(FOLDERID_Profile, KF_FLAG_CREATE, token), L"5"); // the superuser could
    };
    KernelIdentity const before;
    expectHomeOfNobody(nobody.Get());
    EXPECT_EQ(KernelIdentity(), before);

    ASSERT_TRUE(ImpersonateLoggedOnUser(nobody.Get()));
    KernelIdentity const meanwhile;
    expectHomeOfNobody(nullptr);
    std::wstring const found = Find(FOLDERID_RoamingAppData, unverified, process.Get());
    KernelIdentity const after;
    ASSERT_TRUE(RevertToSelf());
    EXPECT_EQ(found, L"C:\\c");
    EXPECT_EQ(after, meanwhile);
    EXPECT_EQ(KernelIdentity(), before);
}
