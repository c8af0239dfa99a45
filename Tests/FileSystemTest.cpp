// Whole-file text I/O of the first generation, on a real disk.
#include "Support/ChildProcess.h"
#include "Support/Descriptors.h"
#include "Support/LogRecorder.h"
#include "Support/TestDrive.h"

#include <Brindle/Vok/FileSystem.h>
#include <Brindle/Vok/VokWindows.h>

#include "SystemCalls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <sys/stat.h>
#include <unistd.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Platform;
using Brindle::Vok::Testing::ChildProcess;
using Brindle::Vok::Testing::LogRecorder;
using Brindle::Vok::Testing::OpenDescriptors;
using Brindle::Vok::Testing::TestDrive;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr auto withMark = ByteOrderMarkPolicy::Write;
constexpr auto withoutMark = ByteOrderMarkPolicy::Omit;
constexpr auto unchanged = LineEndingPolicy::Unchanged;
constexpr auto windows = LineEndingPolicy::Windows;

std::string Bytes(std::initializer_list<int> bytes)
{
    return std::string(bytes.begin(), bytes.end());
}

class TextFile : public testing::Test
{
protected:
    std::unique_ptr<File> Make(std::wstring const& name) const { return MakeFileSystem()->MakeFile(drive.Path(name)); }

    /// The bytes that the disk has after a write.
    template <class Text>
    std::string Written(Text const& text, TextEncoding encoding, ByteOrderMarkPolicy mark, LineEndingPolicy endings)
    {
        Make(L"written.txt")->WriteAllText(text, encoding, mark, endings);
        return drive.Read("written.txt");
    }

    /// Runs what must fail, and holds code, type and whole message against the expectation. {} in it stands for the
    /// location's line. Nothing may be left open.
    template <class ErrorType>
    void ExpectError(std::function<void()> const& run, int code, std::string const& location, std::string const& text)
    {
        std::size_t const descriptors = OpenDescriptors();
        try
        {
            run();
            ADD_FAILURE() << "nothing thrown";
        }
        catch (Error const& error)
        {
            EXPECT_EQ(typeid(error), typeid(ErrorType));
            EXPECT_EQ(error.code(), std::error_code(code, std::system_category()));
            EXPECT_TRUE(error.Failed());
            std::size_t const behindLine = error.Message().find(')');
            EXPECT_EQ(error.Message().substr(0, error.Message().find('(')) + error.Message().substr(behindLine + 1),
                      location + " " + WindowsErrorToStringA(static_cast<unsigned long>(code)) + " (Windows Error " +
                          std::to_string(code) + "). " + text);
        }
        EXPECT_EQ(OpenDescriptors(), descriptors);
    }

    void ExpectOpenError(std::function<void()> const& run, int code, std::wstring const& path)
    {
        ExpectError<Error>(run, code, "Source/Vok/VokWindows.cpp: Brindle::Vok::VokCreateFile",
                           "CreateFile failed, path[" + WideToUtf8(path) + "]");
    }

    TestDrive drive;
    std::string const writer = "Source/Vok/FileSystem.cpp: Brindle::Vok::FileImpl::WriteAllText";
    std::string const reader = "Source/Vok/FileSystem.cpp: Brindle::Vok::FileImpl::ReadAllTextA";
};

} // namespace

TEST_F(TextFile, EveryFormByteForByte)
{
    LogRecorder recorder;
    auto const utf8 = TextEncoding::Utf8;
    auto const utf16 = TextEncoding::Utf16;
    auto const otherEndings = static_cast<LineEndingPolicy>(2);
    auto const otherMark = static_cast<ByteOrderMarkPolicy>(7);
    std::wstring const emoji = L"\xD83D\xDE00";
    struct
    {
        std::string actual;
        std::string expected;
    } const cases[] = {
        {Written(std::wstring(L"a\nb"), utf16, withMark, windows),
         Bytes({0xFF, 0xFE, 0x61, 0, 0x0D, 0, 0x0A, 0, 0x62, 0})},
        {Written(std::wstring(L"a\r\nb\rc\n"), utf8, withoutMark, windows), "a\r\nb\r\nc\r\n"},
        {Written(std::string("\r\r\n\n\r\n"), utf8, withoutMark, windows), "\r\n\r\n\r\n\r\n"},
        {Written(std::string("\n\r"), utf8, withoutMark, windows), "\r\n\r\n"},
        {Written(std::string("a\nb\r"), utf8, withoutMark, unchanged), "a\nb\r"},
        {Written(std::string("\xC3\xA9"), utf16, withMark, unchanged), Bytes({0xFF, 0xFE, 0xE9, 0})},
        {Written(std::wstring(L"\u00E9"), utf8, withMark, unchanged), "\xEF\xBB\xBF\xC3\xA9"},
        {Written(emoji, utf16, withoutMark, unchanged), Bytes({0x3D, 0xD8, 0x00, 0xDE})},
        {Written(std::wstring(1, wchar_t(0x1F600)), utf16, withoutMark, unchanged), Bytes({0xFD, 0xFF})},
        {Written(emoji, utf8, withoutMark, unchanged), "\xF0\x9F\x98\x80"},
        {Written(std::string(), utf8, withMark, windows), "\xEF\xBB\xBF"},
        {Written(std::wstring(), utf16, withoutMark, windows), ""},
        {Written(std::wstring(L"a\0b", 3), utf8, withoutMark, unchanged), std::string("a\0b", 3)},
        {Written(std::wstring(L"text"), utf8, withMark, otherEndings), "\xEF\xBB\xBF"},
        {Written(std::string("text"), utf16, withMark, otherEndings), "\xFF\xFE"},
        {Written(std::string("a"), utf8, otherMark, unchanged), "a"},
        {Written(std::string("\xFF"), utf16, withoutMark, unchanged), Bytes({0xFD, 0xFF})},
    };
    for (auto const& each : cases)
        EXPECT_EQ(each.actual, each.expected);
    EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(TextFile, AnUnknownEncodingTouchesNothing)
{
    auto const other = static_cast<TextEncoding>(2);
    drive.Write("written.txt", "kept");
    EXPECT_EQ(Written(std::string("x"), other, withMark, windows), "kept");
    EXPECT_EQ(Written(std::wstring(L"x"), other, withMark, windows), "kept");
    Make(L"none.txt")->WriteAllText(std::string("x"), other, withMark, windows);
    EXPECT_FALSE(drive.Exists("none.txt"));
}

TEST_F(TextFile, ReadsTheBytesAsTheyAre)
{
    for (std::string const& content :
         {std::string(), std::string("\xEF\xBB\xBF") + "a", std::string("a\r\n\0b", 5), std::string(1 << 20, 'x')})
    {
        drive.Write("read.txt", content);
        EXPECT_EQ(Make(L"read.txt")->ReadAllTextA(), content);
    }
}

TEST_F(TextFile, WritesReplaceAndShorten)
{
    Written(std::string(1000, 'x'), TextEncoding::Utf8, withoutMark, unchanged);
    EXPECT_EQ(Written(std::string("y"), TextEncoding::Utf8, withoutMark, unchanged), "y");
}

TEST_F(TextFile, AFailedOpenIsWhatTheWrapperThrows)
{
    LogRecorder recorder;
    drive.Write("plain.txt", "kept");
    drive.Write("read-only.txt", "kept");
    ::chmod(drive.Host("read-only.txt").c_str(), 0444);
    std::filesystem::create_directory(drive.Host("directory"));
    struct
    {
        std::wstring path;
        int readCode;
        int writeCode;
    } const cases[] = {
        {drive.Path(L"missing.txt"), ERROR_FILE_NOT_FOUND, 0},
        {drive.Path(L"missing\\file.txt"), ERROR_PATH_NOT_FOUND, ERROR_PATH_NOT_FOUND},
        {drive.Path(L"directory"), ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED},
        {drive.Path(L"read-only.txt"), 0, ERROR_ACCESS_DENIED},
        {L"B:\\file.txt", ERROR_PATH_NOT_FOUND, ERROR_PATH_NOT_FOUND},
        {L"\\\\no-server\\share\\file.txt", ERROR_BAD_NETPATH, ERROR_BAD_NETPATH},
        {drive.Path(L"a?b"), ERROR_INVALID_NAME, ERROR_INVALID_NAME},
        {L"", ERROR_PATH_NOT_FOUND, ERROR_PATH_NOT_FOUND},
    };
    for (auto const& each : cases)
    {
        std::unique_ptr<File> const file = MakeFileSystem()->MakeFile(each.path);
        if (each.readCode != 0)
            ExpectOpenError([&] { file->ReadAllTextA(); }, each.readCode, each.path);
        if (each.writeCode != 0)
            ExpectOpenError([&] { file->WriteAllText(std::string("x"), TextEncoding::Utf8, withMark, unchanged); },
                            each.writeCode, each.path);
    }
    EXPECT_THAT(recorder.Lines(), IsEmpty());
    EXPECT_EQ(drive.Read("read-only.txt"), "kept");
    Error error;
    VokCreateFile(static_cast<wchar_t const*>(nullptr), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr, error);
    EXPECT_TRUE(error.Message().ends_with("CreateFile failed, path[(null)]")) << error.Message();
}

TEST_F(TextFile, APathWithANulNamesNoFile)
{
    drive.Write("plain.txt", "kept");
    std::wstring const path = drive.Path(L"plain.txt") + std::wstring(L"\0.bak", 5);
    auto const run = [&]
    { MakeFileSystem()->MakeFile(path)->WriteAllText(std::string("x"), TextEncoding::Utf8, withMark, unchanged); };
    ExpectError<Error>(run, ERROR_INVALID_NAME, "Source/Vok/VokWindows.cpp: Brindle::Vok::VokCreateFile",
                       "CreateFile failed, path[" + WideToUtf8(drive.Path(L"plain.txt"))); // ends at the NUL
    EXPECT_EQ(drive.Read("plain.txt"), "kept");
}

TEST_F(TextFile, AFileThatAnotherProcessHoldsIsRefusedUntilItGoes)
{
    drive.Write("held.txt", "kept");
    ChildProcess child(
        [&](ChildProcess::Channel& channel)
        {
            HANDLE const file = CreateFileW(drive.Path(L"held.txt").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                            OPEN_EXISTING, 0, nullptr);
            channel.Ready();
            channel.Wait();
            return file == INVALID_HANDLE_VALUE;
        });
    child.WaitUntilReady();
    std::unique_ptr<File> const file = Make(L"held.txt");
    auto const attempt = [&] { file->WriteAllText(std::string("x"), TextEncoding::Utf8, withoutMark, unchanged); };
    ExpectOpenError(attempt, ERROR_SHARING_VIOLATION, drive.Path(L"held.txt"));
    ExpectOpenError([&] { file->ReadAllTextA(); }, ERROR_SHARING_VIOLATION, drive.Path(L"held.txt"));
    EXPECT_EQ(drive.Read("held.txt"), "kept");
    child.Kill();
    child.Join();
    attempt();
    EXPECT_EQ(drive.Read("held.txt"), "x");
}

TEST_F(TextFile, AFullDiskIsReportedForTheMarkAndForTheBody)
{
    std::wstring const path = drive.Path(L"full.txt");
    std::unique_ptr<File> const file = Make(L"full.txt");
    LogRecorder recorder;
    for (TextEncoding const encoding : {TextEncoding::Utf8, TextEncoding::Utf16})
    {
        auto const failAt = [&](int call)
        {
            SystemCalls::Redirection const redirect(SystemCalls::Write,
                                                    [&call](int descriptor, void const* bytes, size_t count) -> ssize_t
                                                    {
                                                        if (--call > 0)
                                                            return SystemCalls::Write.host(descriptor, bytes, count);
                                                        errno = ENOSPC;
                                                        return -1;
                                                    });
            file->WriteAllText(std::wstring(L"text"), encoding, withMark, unchanged);
        };
        ExpectError<WindowsError>([&] { failAt(1); }, ERROR_DISK_FULL, writer,
                                  "WriteFile bom [" + WideToUtf8(path) + "].");
        EXPECT_EQ(drive.Read("full.txt"), "");
        ExpectError<WindowsError>([&] { failAt(2); }, ERROR_DISK_FULL, writer,
                                  "WriteFile content failed [" + WideToUtf8(path) + "]");
        EXPECT_EQ(drive.Read("full.txt"), encoding == TextEncoding::Utf8 ? "\xEF\xBB\xBF" : "\xFF\xFE");
    }
    EXPECT_THAT(recorder.Lines(), testing::Each(testing::StartsWith("error: Throwing last error ")));
}

TEST_F(TextFile, InterruptionsAndShortTransfersAreCarriedOn)
{
    int calls = 0;
    SystemCalls::Redirection const write(SystemCalls::Write,
                                         [&](int descriptor, void const* bytes, size_t count) -> ssize_t
                                         {
                                             if (++calls % 2 != 0)
                                             {
                                                 errno = EINTR;
                                                 return -1;
                                             }
                                             return SystemCalls::Write.host(descriptor, bytes,
                                                                            std::min(count, size_t(3)));
                                         });
    SystemCalls::Redirection const read(SystemCalls::Read,
                                        [&](int descriptor, void* bytes, size_t count) -> ssize_t
                                        {
                                            if (++calls % 2 != 0)
                                            {
                                                errno = EINTR;
                                                return -1;
                                            }
                                            return SystemCalls::Read.host(descriptor, bytes,
                                                                          std::min(count, size_t(3)));
                                        });
    LogRecorder recorder;
    std::unique_ptr<File> const file = Make(L"slow.txt");
    file->WriteAllText(std::string("0123456789"), TextEncoding::Utf8, ByteOrderMarkPolicy::Write, unchanged);
    EXPECT_EQ(file->ReadAllTextA(), "\xEF\xBB\xBF"
                                    "0123456789");
    EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(TextFile, ReadFailures)
{
    drive.Write("read.txt", "0123456789");
    std::unique_ptr<File> const file = Make(L"read.txt");
    {
        SystemCalls::Redirection const redirect(SystemCalls::Read,
                                                [](int, void*, size_t) -> ssize_t
                                                {
                                                    errno = EIO;
                                                    return -1;
                                                });
        ExpectError<WindowsError>([&] { file->ReadAllTextA(); }, ERROR_IO_DEVICE, reader, "ReadFile failed");
    }
    {
        SystemCalls::Redirection const redirect(SystemCalls::Read, [](int, void*, size_t) -> ssize_t { return 0; });
        ExpectError<WindowsError>([&] { file->ReadAllTextA(); }, ERROR_FUNCTION_FAILED, reader,
                                  "Failed to read entire file");
    }
    {
        ASSERT_EQ(::truncate(drive.Host("read.txt").c_str(), 0x100000000), 0); // sparse
        ExpectError<WindowsError>([&] { file->ReadAllTextA(); }, ERROR_FUNCTION_FAILED, reader,
                                  "GetFileSize returned a big number. [4294967296]");
    }
}

TEST_F(TextFile, UsedUpDescriptorsAreReported)
{
    drive.Write("read.txt", "x");
    SystemCalls::Redirection const redirect(SystemCalls::Open,
                                            [](char const*, int, mode_t)
                                            {
                                                errno = EMFILE;
                                                return -1;
                                            });
    ExpectOpenError([&] { Make(L"read.txt")->ReadAllTextA(); }, ERROR_TOO_MANY_OPEN_FILES, drive.Path(L"read.txt"));
}

namespace
{

class WrapperEnvironment : public testing::Test
{
protected:
    ~WrapperEnvironment() override { SetEnvironmentVariableW(L"VOK_TEST", nullptr); }

    static void Set(std::wstring const& value) { SetEnvironmentVariableW(L"VOK_TEST", value.c_str()); }
};

} // namespace

TEST_F(WrapperEnvironment, AVariableComesWithItsTerminatorInItsSize)
{
    Set(L"abc");
    EXPECT_EQ(VokGetEnvironmentVariable(L"VOK_TEST", false), std::wstring(L"abc\0", 4));
}

TEST_F(WrapperEnvironment, AMissingVariableIsToleratedOrThrown)
{
    LogRecorder recorder;
    EXPECT_EQ(VokGetEnvironmentVariable(L"VOK_TEST", true), L"");
    EXPECT_THAT(recorder.LinesWithFunction(),
                ElementsAre("Brindle::Vok::VokGetEnvironmentVariable: Environment variable [VOK_TEST] not found"));
    EXPECT_EQ(recorder.Statements()[0].severity, VokLogSeverity::info);
    try
    {
        VokGetEnvironmentVariable(L"VOK_TEST", false);
        ADD_FAILURE();
    }
    catch (WindowsError const& error)
    {
        EXPECT_EQ(error.code().value(), ERROR_ENVVAR_NOT_FOUND);
        EXPECT_TRUE(error.Message().ends_with("GetEnvironmentVariable [VOK_TEST] - failed with error"));
    }
}

TEST_F(WrapperEnvironment, AnEmptyVariableThrowsWithTheCodeOfSuccess)
{
    Set(L"");
    try
    {
        VokGetEnvironmentVariable(L"VOK_TEST", true);
        ADD_FAILURE();
    }
    catch (WindowsError const& error)
    {
        EXPECT_EQ(error.code().value(), 0);
        EXPECT_FALSE(error.Failed());
    }
}

TEST_F(WrapperEnvironment, ExpansionAroundTheFirstBufferSize)
{
    for (std::size_t const length : {0U, 1U, 1022U, 1023U, 1024U, 1025U, 40000U})
    {
        std::wstring const text(length, L'x');
        EXPECT_EQ(VokExpandEnvironmentStrings(text), text) << length;
        Set(text + L"y");
        EXPECT_EQ(VokExpandEnvironmentStrings(L"<%VOK_TEST%>%VOK_NONE%"), L"<" + text + L"y>%VOK_NONE%");
    }
}
