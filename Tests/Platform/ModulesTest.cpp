#include "SystemCalls.h"

#include <Brindle/Platform/Modules.h>

#include "Support/ChildProcess.h"
#include "Support/HostFaults.h"
#include "Support/OpenHandle.h"
#include "Support/TestDrive.h"

#include <gtest/gtest.h>

#include <elf.h>
#include <filesystem>
#include <string>
#include <sys/mman.h>
#include <vector>

using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;

namespace
{

/// A small library of every host, which no test program loads.
constexpr wchar_t smallLibrary[] = L"libanl.so.1";

std::wstring PathOf(HMODULE module)
{
    std::wstring path(5000, L'\0');
    DWORD count = 0;
    EXPECT_EQ(CodeOf([&] { return count = GetModuleFileNameW(module, path.data(), 5000); }), 0U);
    return path.substr(0, count);
}

/// The host's path, for the drive C.
std::string HostOf(auto const& text)
{
    std::basic_string const path(text);
    std::string host(path.begin() + 2, path.end());
    std::ranges::replace(host, '\\', '/');
    return host;
}

std::string Read(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

DWORD CodeOfLoading(wchar_t const* name)
{
    HMODULE module = nullptr;
    DWORD const code = CodeOf([&] { return module = LoadLibraryW(name); });
    EXPECT_EQ(code == ERROR_SUCCESS, FreeLibrary(module) != 0);
    return code;
}

struct Modules : testing::Test
{
    Modules()
    {
        HMODULE const small = LoadLibraryW(smallLibrary);
        content = Read(HostOf(PathOf(small)));
        FreeLibrary(small);
    }

    std::string Patched(std::size_t at, char by) const { return std::string(content).replace(at, 1, 1, by); }

    TestDrive drive;
    std::string content;
};

TEST_F(Modules, KeepTheirPathAndAreFreedByTheirHandlesAlone)
{
    auto const before = std::filesystem::current_path();
    drive.Write("d\xC3\xA9/w.so", content);
    std::filesystem::current_path(drive.Host("d\xC3\xA9"));
    auto const isMapped = [&] { return Read("/proc/self/maps").find(drive.Host()) != std::string::npos; };
    std::vector<HMODULE> modules;
    for (std::wstring const& name :
         {drive.Path(L"x\\..\\D\u00E9\\..\\d\u00E9\\w.so"), {L".\\w.so"}, {L"C:w.so"}, {L"x/../w.so"}})
        modules.push_back(LoadLibraryW(name.c_str()));
    std::filesystem::current_path(before);
    for (HMODULE const module : modules)
    {
        EXPECT_TRUE(isMapped());
        char path[1000] = "";
        EXPECT_NE(GetModuleFileNameA(module, path, sizeof path), 0U);
        EXPECT_EQ(HostOf(path), drive.Host("d\xC3\xA9/w.so"));
        VOK_EXPECT_CODE(ERROR_INVALID_HANDLE, CloseHandle(reinterpret_cast<HANDLE>(module)));
        VOK_EXPECT_CODE(ERROR_SUCCESS, FreeLibrary(module));
        VOK_EXPECT_CODE(ERROR_INVALID_HANDLE, FreeLibrary(module));
        VOK_EXPECT_CODE(ERROR_INVALID_HANDLE, GetModuleFileNameA(module, path, 9));
    }
    EXPECT_FALSE(isMapped());
}

TEST_F(Modules, ThatCannotBeLoadedSayWhy)
{
    std::pair<std::string, std::string> const files[] = {
        {"text", "no library, though it is as long as the header of one has to be, 64 bytes"},
        {"class", Patched(EI_CLASS, ELFCLASS32)},
        {"machine", Patched(offsetof(Elf64_Ehdr, e_machine), EM_386)},
        {"half", content.substr(0, content.size() / 2)},
        {"segments", Patched(offsetof(Elf64_Ehdr, e_phoff) + 7, '\x7F')},
        {"program", Read("/proc/self/exe")},
        {"needy", Patched(content.find("libc.so.6") + 3, 'q')},
        {"whole", content},
    };
    for (auto const& [name, file] : files)
        drive.Write(name, file);
    ASSERT_EQ(::mkfifo(drive.Host("fifo").c_str(), 0600), 0);
    std::vector<std::wstring> badFormat{L"libc.so"}; // what linkers read
    for (wchar_t const* const name : {L"text", L"class", L"machine", L"half", L"segments", L"program", L"fifo"})
        badFormat.push_back(drive.Path(name));
    std::pair<DWORD, std::vector<std::wstring>> const cases[] = {
        {ERROR_SUCCESS, {drive.Path(L"whole")}},
        {ERROR_INVALID_PARAMETER, {L""}},
        {ERROR_BAD_EXE_FORMAT, badFormat},
        {ERROR_MOD_NOT_FOUND, {drive.Path(L"whole\\none.so"), L"A:\\none.so", drive.Path(L"needy")}},
        {ERROR_ACCESS_DENIED, {drive.Path()}},
    };
    for (auto const& [code, names] : cases)
        for (std::wstring const& name : names)
            EXPECT_EQ(CodeOfLoading(name.c_str()), code) << std::filesystem::path(name);
    EXPECT_EQ(CodeOfLoading(nullptr), DWORD{ERROR_INVALID_PARAMETER});
    std::filesystem::permissions(drive.Host(), std::filesystem::perms(0755));
    std::filesystem::permissions(drive.Host("whole"), std::filesystem::perms(0200));
    RunAsOrdinaryUser([&] { EXPECT_EQ(CodeOfLoading(drive.Path(L"whole").c_str()), DWORD{ERROR_ACCESS_DENIED}); });
}

TEST_F(Modules, RunOutOfMemory)
{
    drive.Write("whole", content);
    int error = ENOMEM;
    SystemCalls::Redirection const refused(SystemCalls::OpenLibrary, [&](auto...) { return errno = error, nullptr; });
    EXPECT_EQ(CodeOfLoading(smallLibrary), DWORD{ERROR_NOT_ENOUGH_MEMORY});
    error = 0;
    SystemCalls::Redirection const noRoom(SystemCalls::ReserveMemory, [](auto...) { return MAP_FAILED; });
    EXPECT_EQ(CodeOfLoading(drive.Path(L"whole").c_str()), DWORD{ERROR_NOT_ENOUGH_MEMORY});
}

TEST(ModulePaths, AreCutToTheBuffer)
{
    std::wstring const whole = PathOf(nullptr);
    EXPECT_EQ(HostOf(whole), std::filesystem::read_symlink("/proc/self/exe"));
    auto const size = static_cast<DWORD>(whole.size());
    std::wstring path(size, L'x');
    EXPECT_EQ(GetModuleFileNameW(nullptr, path.data(), size), size);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
    EXPECT_EQ(path, whole.substr(0, size - 1) + L'\0');
    VOK_EXPECT_CODE(ERROR_INSUFFICIENT_BUFFER, GetModuleFileNameA(nullptr, nullptr, 0));
    VOK_EXPECT_CODE(ERROR_INVALID_PARAMETER, GetModuleFileNameW(nullptr, nullptr, 1));
}

TEST(ModulePaths, OfAProgramCalledDeletedAreWhole)
{
    TestDrive const drive;
    std::string const path = drive.Host("it (deleted)");
    SystemCalls::Redirection const link(SystemCalls::ReadLink, [&](char const*, char* text, std::size_t size)
                                        { return static_cast<ssize_t>(path.copy(text, size)); });
    EXPECT_EQ(HostOf(PathOf(nullptr)), drive.Host("it"));
    std::filesystem::create_symlink("/proc/self/exe", path);
    EXPECT_EQ(HostOf(PathOf(nullptr)), path);
}

} // namespace
