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
#include <thread>
#include <unistd.h>
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
std::string HostOf(std::wstring const& path)
{
    std::string host(path.begin() + 2, path.end());
    std::ranges::replace(host, '\\', '/');
    return host;
}

DWORD CodeOfLoading(wchar_t const* name)
{
    HMODULE module = nullptr;
    DWORD const code = CodeOf([&] { return module = LoadLibraryW(name); });
    EXPECT_EQ(code == ERROR_SUCCESS, FreeLibrary(module) != 0);
    return code;
}

DWORD CodeOfLoading(std::wstring const& name)
{
    return CodeOfLoading(name.c_str());
}

struct Modules : testing::Test
{
    Modules()
    {
        HMODULE const small = LoadLibraryW(smallLibrary);
        content = Read(HostOf(PathOf(small)));
        FreeLibrary(small);
    }

    static std::string Read(std::string const& path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::string Patched(std::size_t at, char by) const { return std::string(content).replace(at, 1, 1, by); }

    TestDrive drive;
    std::string content;
};

bool IsMapped(std::string const& path)
{
    return Modules::Read("/proc/self/maps").find(path) != std::string::npos;
}

TEST_F(Modules, AreLoadedAndFreedByTheirHandlesAlone)
{
    drive.Write("a b.so", content);
    HMODULE const first = LoadLibraryW(drive.Path(L"x\\..\\A\\..\\a b.so").c_str());
    HMODULE const second = LoadLibraryW(drive.Path(L"a b.so").c_str());
    EXPECT_EQ(HostOf(PathOf(first)), drive.Host("a b.so"));
    EXPECT_EQ(CodeOf([&] { return CloseHandle(reinterpret_cast<HANDLE>(first)); }), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(CodeOf([&] { return FreeLibrary(first); }), 0U);
    EXPECT_TRUE(IsMapped(drive.Host("a b.so")));
    EXPECT_EQ(CodeOf([&] { return FreeLibrary(first); }), DWORD{ERROR_INVALID_HANDLE});
    wchar_t name[1];
    EXPECT_EQ(CodeOf([&] { return GetModuleFileNameW(first, name, 1); }), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_TRUE(FreeLibrary(second));
    EXPECT_FALSE(IsMapped(drive.Host("a b.so")));
}

TEST_F(Modules, ThatCannotBeLoadedSayWhy)
{
    std::string const ofNeed = "libc.so.6";
    std::string needy = content;
    needy.replace(needy.find(ofNeed), ofNeed.size(), "libq.so.6");
    struct
    {
        wchar_t const* name;
        std::string content;
        long code;
    } const files[] = {
        {L"text", "no library, though it is as long as the header of one has to be, 64 bytes", ERROR_BAD_EXE_FORMAT},
        {L"empty", "", ERROR_BAD_EXE_FORMAT},
        {L"class", Patched(EI_CLASS, ELFCLASS32), ERROR_BAD_EXE_FORMAT},
        {L"machine", Patched(offsetof(Elf64_Ehdr, e_machine), EM_386), ERROR_BAD_EXE_FORMAT},
        {L"header", content.substr(0, sizeof(Elf64_Ehdr)), ERROR_BAD_EXE_FORMAT},
        {L"half", content.substr(0, content.size() / 2), ERROR_BAD_EXE_FORMAT},
        {L"segments", Patched(offsetof(Elf64_Ehdr, e_phoff) + 7, '\x7F'), ERROR_BAD_EXE_FORMAT},
        {L"program", Read("/proc/self/exe"), ERROR_BAD_EXE_FORMAT},
        {L"needy", needy, ERROR_MOD_NOT_FOUND},
        {L"whole", content, ERROR_SUCCESS},
    };
    for (auto const& file : files)
    {
        drive.Write(std::filesystem::path(file.name).string(), file.content);
        EXPECT_EQ(CodeOfLoading(drive.Path(file.name)), static_cast<DWORD>(file.code)) << file.name;
    }
    ASSERT_EQ(::mkfifo(drive.Host("fifo").c_str(), 0600), 0);
    std::pair<std::wstring, long> const names[] = {
        {L"", ERROR_INVALID_PARAMETER},
        {L"libnone.so", ERROR_MOD_NOT_FOUND},
        {L"libc.so", ERROR_BAD_EXE_FORMAT}, // what linkers read
        {drive.Path(L"none.so"), ERROR_MOD_NOT_FOUND},
        {drive.Path(L"whole\\none.so"), ERROR_MOD_NOT_FOUND},
        {drive.Path(L"whole\\"), ERROR_MOD_NOT_FOUND},
        {L"A:\\none.so", ERROR_MOD_NOT_FOUND},
        {drive.Path(L"fi*fo"), ERROR_INVALID_NAME},
        {drive.Path(L"fifo"), ERROR_BAD_EXE_FORMAT},
        {drive.Path(), ERROR_ACCESS_DENIED},
    };
    for (auto const& [name, code] : names)
    {
        EXPECT_EQ(CodeOfLoading(name), static_cast<DWORD>(code)) << std::filesystem::path(name);
    }
    EXPECT_EQ(CodeOfLoading(nullptr), DWORD{ERROR_INVALID_PARAMETER});
    std::filesystem::permissions(drive.Host(), std::filesystem::perms(0755));
    std::filesystem::permissions(drive.Host("whole"), std::filesystem::perms(0200));
    RunAsOrdinaryUser([&] { EXPECT_EQ(CodeOfLoading(drive.Path(L"whole")), DWORD{ERROR_ACCESS_DENIED}); });
}

TEST_F(Modules, RunOutOfMemory)
{
    drive.Write("whole", content);
    {
        SystemCalls::Redirection const none(SystemCalls::OpenLibrary,
                                            [](auto...) { return FailingWith(ENOMEM)(), nullptr; });
        EXPECT_EQ(CodeOfLoading(drive.Path(L"whole")), DWORD{ERROR_NOT_ENOUGH_MEMORY});
        EXPECT_EQ(CodeOfLoading(smallLibrary), DWORD{ERROR_NOT_ENOUGH_MEMORY});
    }
    SystemCalls::Redirection const refused(SystemCalls::OpenLibrary, [](auto...) { return nullptr; });
    SystemCalls::Redirection const noRoom(SystemCalls::ReserveMemory, [](auto...) { return MAP_FAILED; });
    EXPECT_EQ(CodeOfLoading(drive.Path(L"whole")), DWORD{ERROR_NOT_ENOUGH_MEMORY});
    SystemCalls::Redirection const damaged(SystemCalls::ReadAt, FailingWith(EIO));
    EXPECT_EQ(CodeOfLoading(drive.Path(L"whole")), DWORD{ERROR_IO_DEVICE});
}

TEST_F(Modules, KeepTheAbsolutePathOfTheTimeTheyWereLoaded)
{
    auto const before = std::filesystem::current_path();
    std::string const deep = "deep\xC3\xA9/" + std::string(200, 'd');
    drive.Write(deep + "/w.so", content);
    std::filesystem::current_path(drive.Host(deep));
    std::vector<HMODULE> const modules{LoadLibraryW(L".\\w.so"), LoadLibraryW(L"C:w.so"), LoadLibraryW(L"x/../w.so")};
    std::filesystem::current_path(before);
    for (HMODULE const module : modules)
    {
        char path[1000];
        DWORD const count = GetModuleFileNameA(module, path, sizeof path);
        std::string expected = "C:" + drive.Host(deep + "/w.so");
        std::ranges::replace(expected, '/', '\\');
        EXPECT_EQ(std::string(path, count), expected);
        EXPECT_TRUE(FreeLibrary(module));
    }
}

TEST(ModulePaths, AreCutToTheBuffer)
{
    std::wstring const whole = PathOf(nullptr);
    EXPECT_EQ(HostOf(whole), std::filesystem::read_symlink("/proc/self/exe"));
    auto const size = static_cast<DWORD>(whole.size());
    std::wstring path(size + 1, L'x');
    EXPECT_EQ(CodeOf([&] { return GetModuleFileNameW(nullptr, path.data(), size + 1) == size; }), 0U);
    EXPECT_EQ(path, whole + L'\0');
    SetLastError(0);
    EXPECT_EQ(GetModuleFileNameW(nullptr, path.data(), size), size);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
    EXPECT_EQ(path, whole.substr(0, size - 1) + std::wstring(2, L'\0'));
    char bytes[3] = "xx";
    EXPECT_EQ(GetModuleFileNameA(nullptr, bytes, 2), 2U);
    EXPECT_STREQ(bytes, "C");
    EXPECT_EQ(CodeOf([] { return GetModuleFileNameA(nullptr, nullptr, 0); }), DWORD{ERROR_INSUFFICIENT_BUFFER});
    EXPECT_EQ(CodeOf([] { return GetModuleFileNameW(nullptr, nullptr, 1); }), DWORD{ERROR_INVALID_PARAMETER});
    SystemCalls::Redirection const fail(SystemCalls::ReadLink, FailingWith(EACCES));
    EXPECT_EQ(CodeOf([&] { return GetModuleFileNameW(nullptr, path.data(), size); }), DWORD{ERROR_ACCESS_DENIED});
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

TEST_F(Modules, MayBeUsedByManyThreads)
{
    drive.Write("whole", content);
    auto const use = [&]
    {
        for (int round = 0; round < 100; ++round)
        {
            EXPECT_EQ(CodeOfLoading(drive.Path(L"whole")), 0U);
        }
    };
    std::thread other(use);
    use();
    other.join();
}

} // namespace
