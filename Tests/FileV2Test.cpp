// Whole files of the second generation: reading, writing and deletion.
#include "Support/ObjectsV2.h"

#include <unistd.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr auto utf16 = TextEncoding::Utf16;
constexpr auto withMark = ByteOrderMarkPolicy::Write;
constexpr auto unchanged = LineEndingPolicy::Unchanged;

using FileV2 = ObjectTests;

TEST_F(FileV2, ReadsTextsByTheirMark)
{
    struct
    {
        std::string bytes;
        std::wstring text;
        std::string narrow;
    } const cases[] = {
        {"", L"", ""},
        {"\377\376", L"", ""},
        {"\357\273", L"\xBBEF", "\357\273"},
        {"\357\273\277\r\n\303\251\0b"s, L"\r\n\u00E9", "\r\n\303\251\0b"s},
        {"\377\376a\0\0\0b\0"s, L"a\0b"s, "a"},
        {"\377\376a\0b"s, L"a", "ab"},
        {"\376\377\0a"s, L"\xFFFE\x6100", "\376\377\0a"s},
    };
    LogRecorder const recorder;
    for (auto const& each : cases)
    {
        drive.Write("file", each.bytes);
        auto const file = File(L"file");
        std::vector<unsigned char> const bytes = file->ReadAllBytes();
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), each.bytes);
        EXPECT_GE(bytes.capacity(), bytes.size() + 2); // for the terminators
        EXPECT_EQ(file->ReadAllTextA(), each.narrow);
        Error error = FromBefore();
        EXPECT_EQ(file->ReadAllText(error), each.text);
        EXPECT_FALSE(error.Failed());
    }
    EXPECT_THAT(recorder.Statements(), IsEmpty());
}

TEST_F(FileV2, TellsWhyItCannotBeReadOrWritten)
{
    ExpectNotOpened<Error>([&] { File(L"none\\file")->WriteAllText(L"text", utf16, withMark, unchanged); }, 3,
                           L"none\\file");
    ExpectNotOpened<Error>([&] { File(L"none\\file")->WriteAllBytes({1}); }, 3, L"none\\file");
    ExpectNotOpened<Error>([&] { File(L"none")->ReadAllText(); }, 2, L"none");
    LogRecorder const recorder;
    Error error;
    EXPECT_EQ(File(L"none")->ReadAllText(error), L"");
    Expect(error, 2, "VokCreateFile", "CreateFile failed, path" + Quoted(L"none"));
    EXPECT_THAT(recorder.LinesWithFunction(),
                ElementsAre("Brindle::Vok::V2::File::ReadAllText::<lambda_1>::operator (): Caught Vok::Error. [" +
                            error.Message() + "]"));

    drive.Write("file", "0123456789");
    auto const expect = [&](DWORD code, std::string const& text)
    { ExpectThrown<WindowsError>([&] { File(L"file")->ReadAllTextA(); }, code, "File::ReadAllBytes", text); };
    {
        auto const cut = [&](auto... arguments)
        { return ::truncate(drive.Host("file").c_str(), 4), SystemCalls::Read.host(arguments...); };
        SystemCalls::Redirection const cutting(SystemCalls::Read, cut);
        expect(ERROR_FUNCTION_FAILED, "Failed to read entire file");
    }
    ASSERT_EQ(::truncate(drive.Host("file").c_str(), 0x100000005), 0); // sparse
    expect(ERROR_FUNCTION_FAILED, "GetFileSize returned a big number. [4294967301]");
    ExpectThrown<WindowsError>([&] { fileSystem->MakeFile(L"\\dev\\null")->ReadAllBytes(); }, ERROR_INVALID_FUNCTION,
                               "File::ReadAllBytes", "GetFileSize failed [\\dev\\null]");
}

} // namespace
