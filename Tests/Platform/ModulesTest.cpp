#include "Support/StandIn.h"

#include <elf.h>

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

struct Modules : testing::Test
{
    Modules()
    {
        HMODULE const small = LoadLibraryW(smallLibrary);
        content = Read(HostOf(PathOf(small)));
        FreeLibrary(small);
    }

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
    drive.Write("whole", content);
    drive.Write("text", "no library, though it is as long as the header of one has to be, 64 bytes");
    drive.Write("segments", std::string(content).replace(offsetof(Elf64_Ehdr, e_phoff) + 7, 1, "\x7F"));
    drive.Write("needy", std::string(content).replace(content.find("libc.so.6"), 4, "none"));
    ASSERT_EQ(::mkfifo(drive.Host("fifo").c_str(), 0600), 0);
    std::pair<DWORD, std::vector<std::wstring>> const cases[] = {
        {ERROR_SUCCESS, {drive.Path(L"whole")}},
        {ERROR_BAD_EXE_FORMAT, {drive.Path(L"text"), drive.Path(L"segments"), drive.Path(L"fifo")}},
        {ERROR_MOD_NOT_FOUND, {drive.Path(L"whole\\none.so"), L"A:\\none.so", drive.Path(L"needy")}},
        {ERROR_ACCESS_DENIED, {drive.Path()}},
    };
    for (auto const& [code, names] : cases)
        for (std::wstring const& name : names)
        {
            HMODULE module = nullptr;
            VOK_EXPECT_CODE(code, module = LoadLibraryW(name.c_str())) << std::filesystem::path(name);
            FreeLibrary(module);
        }
}

TEST(ModulePaths, AreCutToTheBuffer)
{
    wchar_t path[] = L"####";
    VOK_EXPECT_CODE(ERROR_INSUFFICIENT_BUFFER, GetModuleFileNameW(nullptr, path, 3) != 3);
    EXPECT_EQ(std::wstring_view(path, 4), std::wstring_view(L"C:\0#", 4));
}

} // namespace
