// The checked forms of platform calls.
#include "Support/Failures.h"
#include "Support/PortableExecutableBuilder.h"
#include "Support/TestDrive.h"

#include <Brindle/Vok/PlatformHost.h>
#include <Brindle/Vok/VokWindows.h>

#include <gmock/gmock.h>

#include <filesystem>
#include <vector>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(VokCreateFile, ThrowsOrSetsWhatFailedWithoutAStatement)
{
    TestDrive const drive;
    drive.Write("plain.txt", "kept");
    LogRecorder recorder;
    std::wstring const path = drive.Path(L"plain.txt") + std::wstring(L"\0.bak", 5); // no file, and no plain.txt
    Error const error =
        Thrown<Error>([&] { VokCreateFile(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr); });
    ExpectFailure(error, "VokWindows", "VokCreateFile", ERROR_INVALID_NAME,
                  "CreateFile failed, path[" + WideToUtf8(drive.Path(L"plain.txt")) + "]");
    Error assigned;
    EXPECT_FALSE(VokCreateFile(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr, assigned).IsValid());
    EXPECT_EQ(assigned.Message(), error.Message()); // its line too
    EXPECT_EQ(drive.Read("plain.txt"), "kept");
    EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST(VokGetFileVersionInfo, GivesTheResourceOrItsCodeWithoutAText)
{
    LogRecorder recorder;
    TestDrive const drive;
    std::string const info = VersionInfo(3, 4);
    drive.Write("x.dll", BuildImage({.resources = {{16, {{1, {{0, info}}}}}}}));
    EXPECT_EQ(VokGetFileVersionInfo(drive.Path(L"x.dll")), std::vector<unsigned char>(info.begin(), info.end()));
    auto const run = [path = drive.Path(std::wstring(L"x.dll\0", 6))] { VokGetFileVersionInfo(path); };
    ExpectFailure(Thrown<WindowsError>(run), "VokWindows", "VokGetFileVersionInfo", ERROR_INVALID_NAME, "");
    EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST(VokEnvironment, GivesAVariableOrToleratesOrThrowsItsLack)
{
    LogRecorder recorder;
    EXPECT_EQ(VokGetEnvironmentVariable(L"VOK_TEST", true), L"");
    EXPECT_THAT(recorder.Lines(), ElementsAre("info: Environment variable [VOK_TEST] not found"));
    ExpectLoggedFailure([] { VokGetEnvironmentVariable(L"VOK_TEST", false); }, "VokWindows",
                        "VokGetEnvironmentVariable", ERROR_ENVVAR_NOT_FOUND,
                        "GetEnvironmentVariable [VOK_TEST] - failed with error");
    SetEnvironmentVariableW(L"VOK_TEST", L"");
    EXPECT_FALSE(Thrown<WindowsError>([] { VokGetEnvironmentVariable(L"VOK_TEST", true); }).Failed());
    SetEnvironmentVariableW(L"VOK_TEST", L"abc");
    EXPECT_EQ(VokGetEnvironmentVariable(L"VOK_TEST", false), std::wstring(L"abc\0", 4)); // required, as is the above
    // What is expanded fits the first buffer, or just doesn't.
    for (std::size_t const length : {0U, 1022U, 1023U, 40000U})
    {
        std::wstring const text(length, L'x');
        SetEnvironmentVariableW(L"VOK_TEST", (text + L"y").c_str());
        EXPECT_EQ(VokExpandEnvironmentStrings(L"%VOK_TEST%"), text + L"y");
    }
    SetEnvironmentVariableW(L"VOK_TEST", nullptr);
}

TEST(VokNames, AreThePlatforms)
{
    std::string const program = std::filesystem::read_symlink("/proc/self/exe");
    EXPECT_EQ(VokGetModuleFileName(nullptr), OfHost(program));
    EXPECT_EQ(VokGetModuleFileNameA(nullptr), WideToUtf8(OfHost(program)));
    wchar_t name[257];
    DWORD size = 257;
    EXPECT_TRUE(GetComputerNameExW(ComputerNameDnsFullyQualified, name, &size));
    EXPECT_EQ(VokGetComputerNameEx(ComputerNameDnsFullyQualified), name);
    EXPECT_FALSE(VokGetUserName().empty());
    EXPECT_EQ(VokGetSystemDirectory(), L"C:\\usr\\lib");
    LogRecorder const recorder;
    EXPECT_THAT(Thrown<WindowsError>([] { VokGetComputerNameEx(ComputerNameMax); }).Message(),
                testing::EndsWith("(Windows Error 87). GetComputerNameEx Failed"));
    std::string const assertion = "error: Assertion failed: GetLastError() == 234L";
    EXPECT_THAT(recorder.Lines(), ElementsAre(assertion, testing::HasSubstr("Throwing last error")));
}

TEST(VokLoadLibrary, LoadsOrThrowsWhatThePlatformRefuses)
{
    EXPECT_TRUE(VokLoadLibrary(L"libanl.so.1").IsValid());
    ExpectLoggedFailure([] { VokLoadLibrary(L"libnone.so"); }, "VokWindows", "VokLoadLibrary", 126,
                        "LoadLibrary Failed [libnone.so]");
}

TEST(VokCreateSemaphore, OverlooksThatTheCallFails)
{
    LogRecorder recorder;
    Error error;
    auto const semaphore = VokCreateSemaphore(nullptr, 1, 2, nullptr, error);
    EXPECT_EQ(WaitForSingleObject(semaphore.Get(), 0), WAIT_OBJECT_0);
    for (auto const& [initial, maximum] : {std::pair{2L, 1L}, {0L, 1L << 32 | 1}})
    {
        auto const none = VokCreateSemaphore(nullptr, initial, maximum, L"a", error);
        EXPECT_EQ(none.Get(), nullptr);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    }
    EXPECT_FALSE(error.Failed());
    EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST(VokRegOpenKey, GivesTheStatusAndClosesWhatTheResultHeld)
{
    TestDrive const drive;
    drive.Write("key/value");
    ASSERT_TRUE(Platform::MapRegistry(HKEY_CURRENT_USER, drive.Host()));
    LogRecorder recorder;
    HandleOwner<Detail::RegistryHkeyHandleTraits> result;
    ASSERT_EQ(VokRegOpenKey(HKEY_CURRENT_USER, L"Key", 0, KEY_READ, result), ERROR_SUCCESS);
    HKEY const first = result.Get();
    EXPECT_EQ(VokRegOpenKey(HKEY_CURRENT_USER, L"none", 0, KEY_READ, result), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(result.Get(), nullptr);
    EXPECT_EQ(RegCloseKey(first), ERROR_INVALID_HANDLE);
    EXPECT_THAT(recorder.Lines(), ElementsAre("error: Opening registry key [none] failed with error [2]"));
}
