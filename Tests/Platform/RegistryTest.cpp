#include "Support/StandIn.h"

using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;

namespace
{

class Registry : public testing::Test
{
protected:
    Registry()
    {
        for (char const* const name : {"root/One/two/*", "root/one", "root/TWO", "root/Two", "outside"})
            std::filesystem::create_directories(drive.Host(name));
        drive.Write("root/file");
        std::filesystem::create_directory_symlink(drive.Host("outside"), drive.Host("root/link"));
        std::filesystem::create_directory_symlink("one", drive.Host("root/ONE"));
        EXPECT_TRUE(MapRegistry(HKEY_LOCAL_MACHINE, drive.Host("root")));
    }

    /// The status, and in `place` the name of the directory behind a key that has a handle of its own.
    LSTATUS Open(HKEY key, wchar_t const* subkey, REGSAM access = KEY_READ, DWORD options = 0)
    {
        constexpr DWORD untouched = 4711;
        int last = -1;
        SystemCalls::Redirection const look(SystemCalls::Open, [&](auto... arguments)
                                            { return last = SystemCalls::Open.host(arguments...); });
        auto opened = reinterpret_cast<HKEY>(&place);
        SetLastError(untouched);
        LSTATUS const status = RegOpenKeyExW(key, subkey, options, access, &opened);
        EXPECT_EQ(opened == nullptr, status != ERROR_SUCCESS);
        bool const isOwn = opened && opened != key;
        place = isOwn ? std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(last)).filename() : "";
        EXPECT_EQ(RegCloseKey(opened), opened ? ERROR_SUCCESS : ERROR_INVALID_HANDLE);
        EXPECT_EQ(GetLastError(), untouched);
        return status;
    }

    TestDrive drive;
    std::string place;
};

TEST_F(Registry, KeysAreDirectoriesBelowTheMappedOne)
{
    std::pair<wchar_t const*, char const*> const cases[] = {
        {L"one", "one"}, {L"One\\two", "two"},    {L"oNe", "One"}, // the first of those that are directories
        {L"tWO", "TWO"}, {L"One\\\\TWO\\*", "*"}, {nullptr, ""},   {L"", ""},
    };
    for (auto const& [name, directory] : cases)
    {
        EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, name), ERROR_SUCCESS) << name;
        EXPECT_EQ(place, directory);
    }
    for (wchar_t const* const none : {L"one\\none", L"One/two", L"file", L"\xD800", L"link", L"..\\outside", L"one\\."})
        EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, none), ERROR_FILE_NOT_FOUND) << none;
    EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, L"\\one"), ERROR_BAD_PATHNAME);
    for (wchar_t const* const name : {L"one", static_cast<wchar_t const*>(nullptr)})
        EXPECT_EQ(Open(HKEY_USERS, name), ERROR_FILE_NOT_FOUND);
}

TEST_F(Registry, AKeyStaysWhereItIsWhenItsRootIsMappedAnew)
{
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"One", 0, KEY_READ, &key), ERROR_SUCCESS);
    std::filesystem::rename(drive.Host("root/One"), drive.Host("outside/moved"));
    EXPECT_TRUE(MapRegistry(HKEY_LOCAL_MACHINE, drive.Host("outside")));
    EXPECT_EQ(Open(key, L""), ERROR_SUCCESS);
    EXPECT_EQ(place, "moved");
    EXPECT_EQ(Open(key, L".."), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, L"Moved"), ERROR_SUCCESS);
    EXPECT_FALSE(CloseHandle(reinterpret_cast<HANDLE>(key)));
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    EXPECT_EQ(Open(key, L"two"), ERROR_INVALID_HANDLE);
    EXPECT_EQ(RegCloseKey(key), ERROR_INVALID_HANDLE);
}

TEST_F(Registry, RightsAndOptionsAreChecked)
{
    std::tuple<REGSAM, DWORD, LSTATUS> const cases[] = {
        {0, 0, ERROR_SUCCESS},
        {KEY_WRITE, 0, ERROR_ACCESS_DENIED},
        {KEY_READ | KEY_WOW64_32KEY | KEY_WOW64_64KEY, 0, ERROR_INVALID_PARAMETER},
        {KEY_READ, 1, ERROR_INVALID_PARAMETER},
    };
    for (auto const& [access, options, status] : cases)
        EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, L"one", access, options), status) << access << ' ' << options;
    EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, L"none", KEY_WRITE), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"one", 0, KEY_READ, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(Open(reinterpret_cast<HKEY>(std::uintptr_t{0x80000002}), L"one"), ERROR_INVALID_HANDLE);
}

} // namespace
