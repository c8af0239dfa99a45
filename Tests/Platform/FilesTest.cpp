#include "Support/StandIn.h"

#include <sys/resource.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

namespace
{

constexpr DWORD readWrite = GENERIC_READ | GENERIC_WRITE;

class Files : public testing::Test
{
protected:
    Files() { ::umask(022); }

    DWORD OpenCode(std::wstring const& name, DWORD access, DWORD disposition = OPEN_EXISTING, DWORD flags = 0x80)
    {
        return CodeOf([&] { return Open(drive.Path(name), access, 0, disposition, flags); });
    }
    std::string WriteCode(OpenHandle const& file, std::string const& text)
    {
        DWORD written = 77;
        DWORD const code = CodeOf(
            [&] { return WriteFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr); });
        return std::to_string(code) + ':' + std::to_string(written);
    }
    std::string ReadAll(OpenHandle const& file, DWORD count = 100)
    {
        std::string text(count, '?');
        DWORD transferred = 77;
        DWORD const code = CodeOf([&] { return ReadFile(file.Get(), text.data(), count, &transferred, nullptr); });
        return std::to_string(code) + ':' + text.substr(0, transferred);
    }

    TestDrive drive;
};

TEST_F(Files, EachDispositionMeetsEachTarget)
{
    wchar_t const* const names[] = {L"missing", L"file", L"readOnly", L"directory", L"none\\x", L"file\\x"};
    struct
    {
        DWORD disposition;
        DWORD access;
        DWORD codes[6];
        char const* content; // Of the file afterwards.
    } const cases[] = {
        {CREATE_NEW, GENERIC_WRITE, {0, 80, 80, 80, 3, 3}, "old"},
        {CREATE_ALWAYS, GENERIC_WRITE, {0, 0, 5, 5, 3, 3}, ""},
        {OPEN_EXISTING, GENERIC_WRITE, {2, 0, 5, 5, 3, 3}, "old"},
        {OPEN_EXISTING, GENERIC_READ, {2, 0, 0, 5, 3, 3}, "old"},
        {OPEN_ALWAYS, GENERIC_WRITE, {0, 0, 5, 5, 3, 3}, "old"},
        {TRUNCATE_EXISTING, GENERIC_WRITE, {2, 0, 5, 5, 3, 3}, ""},
        {TRUNCATE_EXISTING, GENERIC_READ, {87, 87, 87, 87, 87, 87}, "old"},
    };
    for (auto const& each : cases)
        for (std::size_t target = 0; target < std::size(names); ++target)
        {
            std::filesystem::remove(drive.Host("missing"));
            std::filesystem::remove(drive.Host("readOnly"));
            drive.Write("file", "old");
            drive.Write("readOnly", "kept");
            ::chmod(drive.Host("readOnly").c_str(), 0444);
            drive.Write("directory/x");
            EXPECT_EQ(OpenCode(names[target], each.access, each.disposition), each.codes[target])
                << "disposition " << each.disposition << ", access " << each.access << ", target " << target;
            EXPECT_EQ(drive.Read("file"), target == 1 && each.codes[target] == 0 ? each.content : "old");
            EXPECT_EQ(drive.Read("readOnly"), "kept");
            EXPECT_EQ(drive.Exists("missing"), target == 0 && each.codes[target] == 0);
        }
}

TEST_F(Files, ArgumentsThatCantBeHonouredFail)
{
    drive.Write("file");
    drive.Write("directory/x");
    ASSERT_EQ(::symlink("loop", drive.Host("loop").c_str()), 0);
    std::tuple<std::wstring, DWORD, DWORD, DWORD, DWORD> const cases[] = {
        {L"file", GENERIC_READ, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE, 50},
        {L"file\\", GENERIC_READ, OPEN_EXISTING, 0, 123},
        {L"new\\", GENERIC_WRITE, OPEN_ALWAYS, 0, 123},
        {L"directory", readWrite, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, 0},
        {L"loop", GENERIC_READ, OPEN_EXISTING, 0, 1921},
        {L"loop", GENERIC_READ, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, 0},
        {std::wstring(256, L'n'), GENERIC_READ, OPEN_EXISTING, 0, 206},
    };
    for (auto const& [name, access, disposition, flags, code] : cases)
        EXPECT_EQ(OpenCode(name, access, disposition, flags), code) << std::filesystem::path(name) << ' ' << flags;
    VOK_EXPECT_CODE(87, Open(drive.Path(L"file"), GENERIC_READ, 8));
    EXPECT_FALSE(drive.Exists("new"));
}

TEST_F(Files, ReadOnlyCreationGivesAHandleThatWrites)
{
    OpenHandle const file = Open(drive.Path(L"file"), GENERIC_WRITE, 0, CREATE_NEW, FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(WriteCode(file, "text"), "0:4");
    EXPECT_EQ(drive.Mode("file"), 0444U);
}

TEST_F(Files, TransfersMoveThePositionAndEndAtTheEnd)
{
    OpenHandle file = Open(drive.Path(L"file"), readWrite, 0, CREATE_NEW);
    EXPECT_EQ(drive.Mode("file"), 0644U);
    EXPECT_EQ(WriteCode(file, "first "), "0:6");
    EXPECT_EQ(WriteCode(file, "second"), "0:6");
    EXPECT_EQ(ReadAll(file), "0:");
    file.Close();
    file = Open(drive.Path(L"file"), GENERIC_READ);
    EXPECT_EQ(ReadAll(file, 6), "0:first ");
    EXPECT_EQ(ReadAll(file), "0:second");
    EXPECT_EQ(ReadAll(file), "0:");
    file.Close();
    file = Open(drive.Path(L"file"), FILE_APPEND_DATA);
    EXPECT_EQ(WriteCode(file, "end"), "0:3");
    EXPECT_EQ(drive.Read("file"), "first secondend");
}

TEST_F(Files, TransfersNeedTheirRight)
{
    drive.Write("directory/x");
    std::tuple<wchar_t const*, DWORD, DWORD, char const*, char const*> const cases[] = {
        {L"file", GENERIC_READ, 0, "0:text", "5:0"},
        {L"file", GENERIC_WRITE, 0, "5:", "0:1"},
        {L"directory", readWrite, FILE_FLAG_BACKUP_SEMANTICS, "1:", "1:0"},
        {L"file", readWrite, FILE_FLAG_OVERLAPPED, "87:", "87:0"},
        {L"no handle", readWrite, 0, "6:", "6:0"},
    };
    for (auto const& [name, access, flags, read, written] : cases)
    {
        drive.Write("file", "text");
        OpenHandle const file = Open(drive.Path(name), access, 0, OPEN_EXISTING, flags);
        EXPECT_EQ(ReadAll(file), read) << access << ' ' << flags;
        EXPECT_EQ(WriteCode(file, "x"), written) << access << ' ' << flags;
    }
}

TEST_F(Files, OpeningAFifoDoesNotHang)
{
    ASSERT_EQ(::mkfifo(drive.Host("fifo").c_str(), 0666), 0);
    EXPECT_EQ(OpenCode(L"fifo", GENERIC_WRITE), 21U);
    OpenHandle reader = Open(drive.Path(L"fifo"), GENERIC_READ);
    OpenHandle const writer = Open(drive.Path(L"fifo"), GENERIC_WRITE);
    reader.Close();
    EXPECT_EQ(WriteCode(writer, "gone"), "232:0");
}

TEST_F(Files, ALimitOfTheirSizeIsAnErrorAndNoSignal)
{
    RunInChild(
        [&]
        {
            rlimit const limit{4, 4};
            EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
            OpenHandle const file = Open(drive.Path(L"file"), GENERIC_WRITE, 0, CREATE_NEW);
            EXPECT_EQ(WriteCode(file, "text"), "0:4");
            EXPECT_EQ(WriteCode(file, "x"), "223:0");
        });
}

TEST_F(Files, SizesAreThoseOfTheMoment)
{
    OpenHandle const file = Open(drive.Path(L"file"), readWrite, 0, CREATE_NEW);
    LARGE_INTEGER size;
    for (long long const expected : {0LL, 5'000'000'000LL})
    {
        ASSERT_EQ(::truncate(drive.Host("file").c_str(), expected), 0);
        VOK_EXPECT_CODE(0, GetFileSizeEx(file.Get(), &size));
        EXPECT_EQ(size.QuadPart, expected);
    }
    VOK_EXPECT_CODE(1, GetFileSizeEx(Open(L"C:\\dev\\null", GENERIC_READ).Get(), &size));
}

TEST_F(Files, TimesCountFrom1601)
{
    drive.Write("file");
    timespec const times[] = {{0, 0}, {1'700'000'000, 123'456'789}};
    ASSERT_EQ(::utimensat(AT_FDCWD, drive.Host("file").c_str(), times, 0), 0);
    auto const ticks = [](FILETIME const& time)
    { return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime; };
    OpenHandle const file = Open(drive.Path(L"file"), FILE_READ_ATTRIBUTES);
    FILETIME creation, lastAccess, lastWrite;
    VOK_EXPECT_CODE(0, GetFileTime(file.Get(), &creation, &lastAccess, &lastWrite));
    EXPECT_EQ(ticks(lastAccess), 116'444'736'000'000'000U);
    EXPECT_EQ(ticks(lastWrite), 133'444'736'001'234'567U);
    EXPECT_GT(ticks(creation), ticks(lastWrite));
    EXPECT_TRUE(GetFileTime(file.Get(), nullptr, nullptr, nullptr));
}

TEST_F(Files, AttributesAreRead)
{
    drive.Write("file");
    drive.Write("directory/x");
    ASSERT_EQ(::mkfifo(drive.Host("fifo").c_str(), 0666), 0);
    for (auto const& [target, link] : {std::pair("file", "link"), {"directory", "dirLink"}, {"none", "dangling"}})
        ASSERT_EQ(::symlink(target, drive.Host(link).c_str()), 0);
    std::pair<wchar_t const*, DWORD> const cases[] = {
        {L"file", FILE_ATTRIBUTE_ARCHIVE},           {L"link", FILE_ATTRIBUTE_ARCHIVE},
        {L"directory\\", FILE_ATTRIBUTE_DIRECTORY},  {L"dirLink", FILE_ATTRIBUTE_DIRECTORY},
        {L"dangling", FILE_ATTRIBUTE_REPARSE_POINT}, {L"fifo", FILE_ATTRIBUTE_NORMAL}};
    for (auto const& [name, attributes] : cases)
        EXPECT_EQ(GetFileAttributesW(drive.Path(name).c_str()), attributes) << std::filesystem::path(name);
    for (auto const& [name, code] : {std::pair(L"none", 2), {L"none\\x", 3}, {L"file\\", 123}})
        VOK_EXPECT_CODE(code, GetFileAttributesW(drive.Path(name).c_str()) != INVALID_FILE_ATTRIBUTES);
}

TEST_F(Files, AreDeletedAndDirectoriesMadeAndRemoved)
{
    for (char const* const name : {"file", "readOnly", "full/x", "target/x"})
        drive.Write(name);
    std::filesystem::create_directory(drive.Host("readOnlyDirectory"));
    ::chmod(drive.Host("readOnly").c_str(), 0444);
    ::chmod(drive.Host("readOnlyDirectory").c_str(), 0555);
    ASSERT_EQ(::symlink("target", drive.Host("link").c_str()), 0);
    using Call = BOOL (*)(LPCWSTR) noexcept;
    Call const make = [](LPCWSTR path) noexcept { return CreateDirectoryW(path, nullptr); };
    std::tuple<Call, wchar_t const*, DWORD> const cases[] = {
        {make, L"new", 0},
        {make, L"new", 183},
        {RemoveDirectoryW, L"new\\", 0},
        {RemoveDirectoryW, L"link", 267},
        {RemoveDirectoryW, L"full", 145},
        {RemoveDirectoryW, L"readOnlyDirectory", 5},
        {DeleteFileW, L"file", 0},
        {DeleteFileW, L"full", 5},
        {DeleteFileW, L"readOnly", 5},
        {DeleteFileW, L"link", 0},
    };
    for (auto const& [call, name, code] : cases)
        VOK_EXPECT_CODE(code, call(drive.Path(name).c_str())) << std::filesystem::path(name);
    for (char const* const gone : {"new", "file", "link"})
        EXPECT_FALSE(drive.Exists(gone)) << gone;
    for (char const* const kept : {"readOnly", "full/x", "target/x", "readOnlyDirectory"})
        EXPECT_TRUE(drive.Exists(kept)) << kept;
}

} // namespace
