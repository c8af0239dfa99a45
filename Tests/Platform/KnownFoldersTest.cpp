
#include "Support/StandIn.h"

using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;

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
    drive.Write("c/user-dirs.dirs", "XDG_MUSIC_DIR=\"/m:\"\nXDG_DESKTOP_DIR=\"$HOME\"\n");
    configuration.Set((drive.Host() + "//c/").c_str());
    data.Set("/d");
    cache.Set("relative"); // which counts as none
    machine.Set("relative::/e/:/f");
    std::wstring const h = Windows("h");
    std::tuple<GUID, std::wstring, std::wstring> const cases[] = {
        {FOLDERID_Profile, h, h},
        {FOLDERID_LocalAppData, h + L"\\.local\\share", L"C:\\d"},
        {FOLDERID_InternetCache, h + L"\\.cache", h + L"\\.cache"},
        {FOLDERID_ProgramData, L"C:\\etc\\xdg", L"C:\\e"},
        {FOLDERID_Desktop, h + L"\\Desktop", h},
        {FOLDERID_Music, h, L"C:\\m\uF03A"},
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
}

TEST_F(KnownFolders, WrongArgumentsHaveTheirCodes)
{
    EXPECT_EQ(SHGetKnownFolderPath(FOLDERID_Profile, 0, nullptr, nullptr), E_INVALIDARG);
    EXPECT_EQ(Find(FOLDERID_Profile, 1), L"87");
    EXPECT_EQ(Find(FOLDERID_ProgramFiles, unverified), L"2");
    EXPECT_EQ(Find(FOLDERID_Profile, 0, OwnToken(TOKEN_QUERY).Get()), L"5");
    EXPECT_EQ(Find(FOLDERID_Profile, 0, INVALID_HANDLE_VALUE), L"6");
}

TEST_F(KnownFolders, OfAnotherUserAreFoundAndMadeAsThatUser)
{
    VOK_NEEDS_SUPERUSER();
    configuration.Set("/c");
    OpenHandle const process = OwnToken(TOKEN_QUERY | TOKEN_IMPERSONATE);
    OpenHandle const nobody(OpenUserToken("nobody"));
    KernelIdentity const before;
    EXPECT_EQ(Find(FOLDERID_RoamingAppData, unverified, nobody.Get()), L"C:\\nonexistent\\.config");
    EXPECT_EQ(Find(FOLDERID_Profile, KF_FLAG_CREATE, nobody.Get()), L"5") << "the superuser could";
    EXPECT_EQ(KernelIdentity(), before);

    ASSERT_TRUE(ImpersonateLoggedOnUser(nobody.Get()));
    KernelIdentity const meanwhile;
    EXPECT_EQ(Find(FOLDERID_RoamingAppData, unverified), L"C:\\nonexistent\\.config");
    EXPECT_EQ(Find(FOLDERID_RoamingAppData, unverified, process.Get()), L"C:\\c");
    EXPECT_EQ(KernelIdentity(), meanwhile);
    ASSERT_TRUE(RevertToSelf());
}
