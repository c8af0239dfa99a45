#include "Support/Descriptors.h"
#include "Support/HostFaults.h"
#include "Support/OpenHandle.h"
#include "Support/TestDrive.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <thread>

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
        {OPEN_EXISTING, FILE_APPEND_DATA, {2, 0, 5, 5, 3, 3}, "old"},
        {OPEN_EXISTING, GENERIC_READ, {2, 0, 0, 5, 3, 3}, "old"},
        {OPEN_EXISTING, FILE_READ_ATTRIBUTES, {2, 0, 0, 5, 3, 3}, "old"},
        {OPEN_ALWAYS, GENERIC_WRITE, {0, 0, 5, 5, 3, 3}, "old"},
        {OPEN_ALWAYS, 0, {0, 0, 0, 5, 3, 3}, "old"},
        {TRUNCATE_EXISTING, GENERIC_WRITE, {2, 0, 5, 5, 3, 3}, ""},
        {TRUNCATE_EXISTING, GENERIC_READ, {87, 87, 87, 87, 87, 87}, "old"},
        {6, GENERIC_READ, {87, 87, 87, 87, 87, 87}, "old"},
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
            std::size_t const descriptors = OpenDescriptors();
            EXPECT_EQ(OpenCode(names[target], each.access, each.disposition), each.codes[target])
                << "disposition " << each.disposition << ", access " << each.access << ", target " << target;
            EXPECT_EQ(OpenDescriptors(), descriptors);
            EXPECT_EQ(drive.Read("file"), target == 1 && each.codes[target] == 0 ? each.content : "old");
            EXPECT_EQ(drive.Read("readOnly"), "kept");
            EXPECT_EQ(drive.Exists("missing"), target == 0 && each.codes[target] == 0);
        }
}

TEST_F(Files, ArgumentsThatCantBeHonouredFail)
{
    drive.Write("file");
    drive.Write("directory/x");
    ASSERT_EQ(::symlink("file", drive.Host("link").c_str()), 0);
    ASSERT_EQ(::symlink("loop", drive.Host("loop").c_str()), 0);
    std::tuple<std::wstring, DWORD, DWORD, DWORD, DWORD> const cases[] = {
        {L"file", GENERIC_READ, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE, 50},
        {L"file", 0x02000000, OPEN_EXISTING, 0, 50},
        {L"file\\", GENERIC_READ, OPEN_EXISTING, 0, 123},
        {L"new\\", GENERIC_WRITE, CREATE_NEW, 0, 123},
        {L"new\\", GENERIC_WRITE, CREATE_ALWAYS, 0, 123},
        {L"new\\", GENERIC_WRITE, OPEN_ALWAYS, 0, 123},
        {L"new\\", GENERIC_READ, OPEN_EXISTING, 0, 2},
        {L"directory", GENERIC_READ, OPEN_ALWAYS, FILE_FLAG_BACKUP_SEMANTICS, 0},
        {L"directory", readWrite, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, 0},
        {L"directory", GENERIC_WRITE, CREATE_ALWAYS, FILE_FLAG_BACKUP_SEMANTICS, 5},
        {L"loop", GENERIC_READ, OPEN_EXISTING, 0, 1921},
        {L"link", GENERIC_READ, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, 0},
        {L"loop", GENERIC_READ, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, 0},
        {L"file", GENERIC_WRITE, OPEN_EXISTING, FILE_FLAG_WRITE_THROUGH | FILE_FLAG_SEQUENTIAL_SCAN, 0},
        {std::wstring(256, L'n'), GENERIC_READ, OPEN_EXISTING, 0, 206},
    };
    for (auto const& [name, access, disposition, flags, code] : cases)
        EXPECT_EQ(OpenCode(name, access, disposition, flags), code)
            << testing::PrintToString(name) << " flags " << flags;
    VOK_EXPECT_CODE(87, Open(drive.Path(L"file"), GENERIC_READ, 8));
    EXPECT_FALSE(drive.Exists("new"));
}

TEST_F(Files, ReadOnlyCreationGivesAHandleThatWrites)
{
    for (DWORD const disposition : {CREATE_NEW, CREATE_ALWAYS, OPEN_ALWAYS})
    {
        std::filesystem::remove(drive.Host("file"));
        OpenHandle const file = Open(drive.Path(L"file"), GENERIC_WRITE, 0, disposition, FILE_ATTRIBUTE_READONLY);
        EXPECT_EQ(WriteCode(file, "text"), "0:4");
        EXPECT_EQ(drive.Mode("file"), 0444U);
    }
    EXPECT_EQ(OpenCode(L"file", GENERIC_WRITE, CREATE_ALWAYS, FILE_ATTRIBUTE_READONLY), 5U);
    drive.Write("writable", "old");
    auto const fail = [&](auto& call)
    {
        SystemCalls::Redirection const refusing(call, FailingWith(EPERM));
        EXPECT_EQ(OpenCode(L"writable", GENERIC_WRITE, CREATE_ALWAYS, FILE_ATTRIBUTE_READONLY), 5U);
        EXPECT_EQ(drive.Read("writable"), "old");
        EXPECT_NE(drive.Mode("writable") & 0200U, 0U);
    };
    fail(SystemCalls::ChangeModeOf); // another one's file
    fail(SystemCalls::Truncate);
    EXPECT_EQ(OpenCode(L"writable", GENERIC_WRITE, CREATE_ALWAYS, FILE_ATTRIBUTE_READONLY), 0U);
    EXPECT_EQ(drive.Mode("writable"), 0444U);
    EXPECT_EQ(drive.Read("writable"), "");
}

TEST_F(Files, TransfersMoveThePositionAndEndAtTheEnd)
{
    OpenHandle file = Open(drive.Path(L"file"), readWrite, 0, CREATE_NEW);
    EXPECT_EQ(drive.Mode("file"), 0644U);
    EXPECT_EQ(WriteCode(file, "first "), "0:6");
    EXPECT_EQ(WriteCode(file, ""), "0:0");
    EXPECT_EQ(WriteCode(file, "second"), "0:6");
    EXPECT_EQ(CodeOf([&] { return WriteFile(file.Get(), "!", 1, nullptr, nullptr); }), 0U);
    EXPECT_EQ(ReadAll(file), "0:");
    file.Close();
    file = Open(drive.Path(L"file"), GENERIC_READ);
    EXPECT_EQ(ReadAll(file, 6), "0:first ");
    EXPECT_EQ(ReadAll(file), "0:second!");
    EXPECT_EQ(ReadAll(file), "0:");
    EXPECT_EQ(ReadAll(file, 0), "0:");
    file.Close();
    file = Open(drive.Path(L"file"), FILE_APPEND_DATA);
    EXPECT_EQ(WriteCode(file, "end"), "0:3");
    EXPECT_EQ(drive.Read("file"), "first second!end");
}

TEST_F(Files, TransfersNeedTheirRight)
{
    drive.Write("directory/x");
    ASSERT_EQ(::symlink("file", drive.Host("link").c_str()), 0);
    struct
    {
        wchar_t const* name;
        DWORD access;
        DWORD flags;
        char const* read;
        char const* write;
    } const cases[] = {
        {L"file", GENERIC_READ, 0, "0:text", "5:0"},
        {L"file", GENERIC_ALL, 0, "0:text", "0:1"},
        {L"file", GENERIC_WRITE, 0, "5:", "0:1"},
        {L"file", FILE_APPEND_DATA, 0, "5:", "0:1"},
        {L"file", 0, 0, "5:", "5:0"},
        {L"directory", readWrite, FILE_FLAG_BACKUP_SEMANTICS, "1:", "1:0"},
        {L"link", readWrite, FILE_FLAG_OPEN_REPARSE_POINT, "1:", "1:0"},
        {L"file", readWrite, FILE_FLAG_OVERLAPPED, "87:", "87:0"},
        {L"no handle", readWrite, 0, "6:", "6:0"},
    };
    for (auto const& each : cases)
    {
        drive.Write("file", "text");
        OpenHandle const file = Open(drive.Path(each.name), each.access, 0, OPEN_EXISTING, each.flags);
        EXPECT_EQ(ReadAll(file), each.read) << each.access << ' ' << each.flags;
        EXPECT_EQ(WriteCode(file, "x"), each.write) << each.access << ' ' << each.flags;
    }
    OpenHandle const file = Open(drive.Path(L"file"), readWrite);
    OVERLAPPED overlapped = {};
    VOK_EXPECT_CODE(50, ReadFile(file.Get(), &overlapped, 1, nullptr, &overlapped));
}

TEST_F(Files, OpeningAFifoDoesNotHang)
{
    ASSERT_EQ(::mkfifo(drive.Host("fifo").c_str(), 0666), 0);
    EXPECT_EQ(OpenCode(L"fifo", GENERIC_WRITE), 21U);
    OpenHandle reader = Open(drive.Path(L"fifo"), GENERIC_READ);
    OpenHandle const writer = Open(drive.Path(L"fifo"), GENERIC_WRITE, 0, OPEN_ALWAYS);
    ASSERT_TRUE(reader && writer);
    EXPECT_EQ(WriteCode(writer, "now"), "0:3");
    EXPECT_EQ(ReadAll(reader), "0:now");
    // Transfers do wait.
    std::thread late([&] { EXPECT_EQ(WriteCode(writer, "late"), "0:4"); });
    EXPECT_EQ(ReadAll(reader), "0:late");
    late.join();
    reader.Close();
    EXPECT_EQ(WriteCode(writer, "gone"), "232:0");
    OpenHandle const null = Open(L"C:\\dev\\null", readWrite);
    OpenHandle const again = Open(L"C:\\dev\\null", readWrite);
    EXPECT_EQ(WriteCode(null, "nothing"), "0:7");
    EXPECT_EQ(ReadAll(again), "0:");
}

TEST_F(Files, SizesAreThoseOfTheMoment)
{
    drive.Write("file", "12345");
    drive.Write("directory/x");
    LARGE_INTEGER size;
    auto const sizeOf = [&](OpenHandle const& file)
    {
        VOK_EXPECT_CODE(0, GetFileSizeEx(file.Get(), &size));
        return size.QuadPart;
    };
    OpenHandle file = Open(drive.Path(L"file"), readWrite);
    EXPECT_EQ(sizeOf(file), 5); // as opening has seen it
    EXPECT_EQ(WriteCode(file, "1234567"), "0:7");
    EXPECT_EQ(sizeOf(file), 7);
    file.Close();
    file = Open(drive.Path(L"file"), GENERIC_READ);
    EXPECT_EQ(sizeOf(file), 7);
    ASSERT_EQ(::truncate(drive.Host("file").c_str(), 5'000'000'000), 0);
    EXPECT_EQ(sizeOf(file), 5'000'000'000);
    EXPECT_EQ(sizeOf(Open(drive.Path(L"file"), 0, 0)), 5'000'000'000);
    EXPECT_EQ(sizeOf(Open(drive.Path(L"directory"), GENERIC_READ, 0, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS)), 0);
    VOK_EXPECT_CODE(87, GetFileSizeEx(file.Get(), nullptr));
    VOK_EXPECT_CODE(1, GetFileSizeEx(Open(L"C:\\dev\\null", GENERIC_READ).Get(), &size));
    VOK_EXPECT_CODE(6, GetFileSizeEx(INVALID_HANDLE_VALUE, &size));
}

TEST_F(Files, TimesCountFrom1601)
{
    drive.Write("file");
    timespec const times[] = {{0, 0}, {1'700'000'000, 123'456'789}};
    ASSERT_EQ(::utimensat(AT_FDCWD, drive.Host("file").c_str(), times, 0), 0);
    auto const ticks = [](FILETIME const& time)
    { return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime; };
    for (DWORD const access : {GENERIC_READ, FILE_READ_ATTRIBUTES})
    {
        OpenHandle const file = Open(drive.Path(L"file"), access, allShares);
        FILETIME creation, lastAccess, lastWrite;
        VOK_EXPECT_CODE(0, GetFileTime(file.Get(), &creation, &lastAccess, &lastWrite));
        EXPECT_EQ(ticks(lastAccess), 116'444'736'000'000'000U);
        EXPECT_EQ(ticks(lastWrite), 133'444'736'001'234'567U);
        auto const now = static_cast<std::uint64_t>(::time(nullptr)) * 10'000'000 + 116'444'736'000'000'000U;
        EXPECT_LT(ticks(creation), now + 20'000'000);
        EXPECT_GT(ticks(creation), now - 600'000'000);
        EXPECT_TRUE(GetFileTime(file.Get(), nullptr, nullptr, nullptr));
    }
    VOK_EXPECT_CODE(6, GetFileTime(INVALID_HANDLE_VALUE, nullptr, nullptr, nullptr));
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
        {L"directory", FILE_ATTRIBUTE_DIRECTORY},    {L"directory\\", FILE_ATTRIBUTE_DIRECTORY},
        {L"dirLink", FILE_ATTRIBUTE_DIRECTORY},      {L"", FILE_ATTRIBUTE_DIRECTORY},
        {L"dangling", FILE_ATTRIBUTE_REPARSE_POINT}, {L"fifo", FILE_ATTRIBUTE_NORMAL}};
    for (auto const& [name, attributes] : cases)
    {
        SCOPED_TRACE(testing::PrintToString(std::wstring(name)));
        EXPECT_EQ(GetFileAttributesW(drive.Path(name).c_str()), attributes);
        EXPECT_EQ(PathIsDirectoryW(drive.Path(name).c_str()), attributes == FILE_ATTRIBUTE_DIRECTORY ? 0x10 : 0);
    }
    for (auto const& [name, code] : {std::pair(L"none", 2), {L"none\\x", 3}, {L"file\\", 123}})
        VOK_EXPECT_CODE(code, GetFileAttributesW(drive.Path(name).c_str()) != INVALID_FILE_ATTRIBUTES);
}

TEST_F(Files, OnlyTheReadOnlyAttributeIsSet)
{
    drive.Write("file");
    ASSERT_EQ(::symlink("file", drive.Host("link").c_str()), 0);
    auto const set = [&](wchar_t const* name, DWORD attributes)
    { return CodeOf([&] { return SetFileAttributesW(drive.Path(name).c_str(), attributes); }); };
    EXPECT_EQ(set(L"file", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN), 0U);
    EXPECT_EQ(drive.Mode("file"), 0444U);
    EXPECT_EQ(GetFileAttributesW(drive.Path(L"file").c_str()), FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(set(L"link", FILE_ATTRIBUTE_NORMAL), 0U);
    EXPECT_EQ(drive.Mode("file"), 0644U);
    EXPECT_EQ(set(L"none", 0), 2U);
    SystemCalls::Redirection const refusing(SystemCalls::ChangeModeAt, FailingWith(EPERM));
    EXPECT_EQ(set(L"file", FILE_ATTRIBUTE_HIDDEN), 0U) << "nothing is to be changed";
    EXPECT_EQ(set(L"file", FILE_ATTRIBUTE_READONLY), 5U);
}

TEST_F(Files, AreDeletedAndDirectoriesMadeAndRemoved)
{
    for (char const* const name : {"file", "readOnly", "full/x", "target/x"})
        drive.Write(name);
    for (char const* const name : {"empty", "readOnlyDirectory"})
        std::filesystem::create_directory(drive.Host(name));
    ::chmod(drive.Host("readOnly").c_str(), 0444);
    ::chmod(drive.Host("readOnlyDirectory").c_str(), 0555);
    ASSERT_EQ(::symlink("target", drive.Host("link").c_str()), 0);
    using Call = BOOL (*)(LPCWSTR) noexcept;
    Call const make = [](LPCWSTR path) noexcept { return CreateDirectoryW(path, nullptr); };
    std::tuple<Call, wchar_t const*, DWORD> const cases[] = {
        {make, L"new", 0},
        {make, L"new\\sub\\", 0},
        {make, L"new", 183},
        {make, L"none\\x", 3},
        {RemoveDirectoryW, L"new\\sub\\", 0},
        {RemoveDirectoryW, L"file", 267},
        {RemoveDirectoryW, L"link", 267},
        {RemoveDirectoryW, L"full", 145},
        {RemoveDirectoryW, L"readOnlyDirectory", 5},
        {RemoveDirectoryW, L"", 5},
        {RemoveDirectoryW, L"empty", 0},
        {DeleteFileW, L"file\\", 123},
        {DeleteFileW, L"file", 0},
        {DeleteFileW, L"full", 5},
        {DeleteFileW, L"readOnly", 5},
        {DeleteFileW, L"link", 0},
    };
    for (auto const& [call, name, code] : cases)
        VOK_EXPECT_CODE(code, call(drive.Path(name).c_str())) << testing::PrintToString(std::wstring(name));
    for (char const* const gone : {"new/sub", "empty", "file", "link"})
        EXPECT_FALSE(drive.Exists(gone)) << gone;
    for (char const* const kept : {"readOnly", "full/x", "target/x", "readOnlyDirectory", "new"})
        EXPECT_TRUE(drive.Exists(kept)) << kept;
}

} // namespace
