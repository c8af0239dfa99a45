// Whole-file text I/O of the first generation, on a real disk, and what both generations write.
#include "Support/Failures.h"
#include "Support/OpenHandle.h"
#include "Support/TestDrive.h"

#include <Brindle/Vok/FileSystem.h>
#include <Brindle/Vok/FileSystemV2.h>

#include <gmock/gmock.h>

#include <unistd.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;
using namespace std::string_literals;
using testing::IsEmpty;

namespace
{

constexpr auto withMark = ByteOrderMarkPolicy::Write;
constexpr auto withoutMark = ByteOrderMarkPolicy::Omit;
constexpr auto unchanged = LineEndingPolicy::Unchanged;
constexpr auto windows = LineEndingPolicy::Windows;

class TextFile : public testing::Test
{
protected:
    std::unique_ptr<File> Make(std::wstring const& name) const { return MakeFileSystem()->MakeFile(drive.Path(name)); }

    /// The bytes that the disk has after a write, which both generations make the same.
    template <class Text>
    std::string Written(Text const& text, TextEncoding encoding, ByteOrderMarkPolicy mark, LineEndingPolicy endings)
    {
        std::string written[2];
        for (std::string& bytes : written)
        {
            drive.Write("written.txt", "a longer text from before");
            if (&bytes == written)
                Make(L"written.txt")->WriteAllText(text, encoding, mark, endings);
            else
                V2::MakeFileSystem()->MakeFile(drive.Path(L"written.txt"))->WriteAllText(text, encoding, mark, endings);
            bytes = drive.Read("written.txt");
        }
        EXPECT_EQ(written[0], written[1]);
        return written[0];
    }

    TestDrive drive;
};

} // namespace

TEST_F(TextFile, EveryFormByteForByte)
{
    LogRecorder recorder;
    auto const utf8 = TextEncoding::Utf8;
    auto const utf16 = TextEncoding::Utf16;
    auto const otherEndings = static_cast<LineEndingPolicy>(2);
    auto const otherEncoding = static_cast<TextEncoding>(2);
    std::wstring const emoji = L"\xD83D\xDE00";
    std::pair<std::string, std::string> const cases[] = {
        {Written(std::wstring(L"a\nb"), utf16, withMark, windows), "\377\376a\0\r\0\n\0b\0"s},
        {Written(std::wstring(L"a\r\nb\rc\n"), utf8, withoutMark, windows), "a\r\nb\r\nc\r\n"},
        {Written(std::string("\r\r\n\n\r\n"), utf8, withoutMark, windows), "\r\n\r\n\r\n\r\n"},
        {Written(std::string("\xC3\xA9"), utf16, withMark, unchanged), "\377\376\351\0"s},
        {Written(std::wstring(L"\u00E9"), utf8, withMark, unchanged), "\xEF\xBB\xBF\xC3\xA9"},
        {Written(emoji, utf16, withoutMark, unchanged), "\x3D\xD8\0\xDE"s},
        {Written(emoji, utf8, withoutMark, unchanged), "\xF0\x9F\x98\x80"},
        {Written(std::wstring(L"a\0b", 3), utf8, withoutMark, unchanged), std::string("a\0b", 3)},
        {Written(std::wstring(L"text"), utf8, withMark, otherEndings), "\xEF\xBB\xBF"},
        {Written(std::string("x"), otherEncoding, withMark, windows), "a longer text from before"},
    };
    for (auto const& [actual, expected] : cases)
        EXPECT_EQ(actual, expected);
    EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(TextFile, ReadsTheBytesAsTheyAre)
{
    for (std::string const& content : {std::string("\xEF\xBB\xBF\r\n\0b", 7), std::string(1 << 20, 'x')})
    {
        drive.Write("read.txt", content);
        EXPECT_EQ(Make(L"read.txt")->ReadAllTextA(), content);
    }
    ASSERT_EQ(::truncate(drive.Host("read.txt").c_str(), 0x100000000), 0); // sparse
    ExpectFailure(Thrown<WindowsError>([&] { Make(L"read.txt")->ReadAllTextA(); }), "FileSystem",
                  "FileImpl::ReadAllTextA", ERROR_FUNCTION_FAILED, "GetFileSize returned a big number. [4294967296]");
}

TEST_F(TextFile, AFailedOpenIsWhatTheWrapperThrows)
{
    LogRecorder recorder;
    drive.Write("held.txt", "kept");
    OpenHandle const holder = Open(drive.Path(L"held.txt"), GENERIC_READ, allShares);
    std::unique_ptr<File> const file = Make(L"held.txt");
    std::string const text = "CreateFile failed, path[" + WideToUtf8(drive.Path(L"held.txt")) + "]";
    auto const read = [&] { file->ReadAllTextA(); };
    auto const write = [&] { file->WriteAllText(std::string("x"), TextEncoding::Utf8, withMark, unchanged); };
    ExpectFailure(Thrown<Error>(read), "VokWindows", "VokCreateFile", ERROR_SHARING_VIOLATION, text);
    ExpectFailure(Thrown<Error>(write), "VokWindows", "VokCreateFile", ERROR_SHARING_VIOLATION, text);
    EXPECT_THAT(recorder.Lines(), IsEmpty());
    EXPECT_EQ(drive.Read("held.txt"), "kept");
}
