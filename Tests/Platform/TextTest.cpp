#include <Brindle/Platform/Text.h>

#include "HostErrors.h"
#include "SystemTexts.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace
{

using namespace Brindle::Vok::Platform;
using namespace std::string_literals;
using namespace std::string_view_literals;

constexpr DWORD untouched = 4711;

/// Both passes, the way the platform wants them. Fails when they don't agree.
std::wstring ToWide(UINT page, std::string_view text, DWORD flags = 0)
{
    auto const length = static_cast<int>(text.size());
    int const size = MultiByteToWideChar(page, flags, text.data(), length, nullptr, 0);
    std::wstring result(static_cast<std::size_t>(size), L'\0');
    EXPECT_EQ(MultiByteToWideChar(page, flags, text.data(), length, result.data(), size), size);
    return result;
}

std::string ToPage(UINT page, std::wstring_view text, char const* defaultCharacter = nullptr, BOOL* used = nullptr)
{
    auto const length = static_cast<int>(text.size());
    int const size = WideCharToMultiByte(page, 0, text.data(), length, nullptr, 0, defaultCharacter, used);
    std::string result(static_cast<std::size_t>(size), '\0');
    EXPECT_EQ(WideCharToMultiByte(page, 0, text.data(), length, result.data(), size, defaultCharacter, used), size);
    return result;
}

TEST(CodePages, ConvertBothWays)
{
    SetLastError(untouched);
    struct
    {
        UINT page;
        std::string bytes;
        std::wstring wide;
    } const cases[] = {
        {CP_UTF8, "a\xC3\xA9\xF0\x9F\x98\x80", L"a\u00E9\xD83D\xDE00"},
        {CP_ACP, "\xE2\x82\xAC", L"\u20AC"},
        {CP_UTF8, "a\0b"s, L"a\0b"s},
        {37, "\xC1\x4B", L"A."},
        {437, "\x81\xE1", L"\u00FC\u00DF"},
        {850, "\x9B", L"\u00F8"},
        {866, "\xAF\xE0", L"\u043F\u0440"},
        {932, "\x82\xA0\xB1", L"\u3042\uFF71"},
        {936, "\xC4\xE3", L"\u4F60"},
        {949, "\xB0\xA1", L"\uAC00"},
        {950, "\xA7\x41", L"\u4F60"},
        {1250, "\x9C", L"\u015B"},
        {1252, "\x80\xE9", L"\u20AC\u00E9"},
        {1258, "\xC0", L"\u00C0"},
        {20127, "plain", L"plain"},
        {20866, "\xD0\xD2", L"\u043F\u0440"},
        {21866, "\xA4", L"\u0454"},
        {28591, "\xFF", L"\u00FF"},
        {28605, "\xA4", L"\u20AC"},
        {50220, "\x1B$B$\"\x1B(B", L"\u3042"},
        {54936, "\x94\x39\xFC\x36", L"\xD83D\xDE00"},
        {65000, "+AOk-", L"\u00E9"},
    };
    for (auto const& c : cases)
    {
        EXPECT_EQ(ToWide(c.page, c.bytes), c.wide) << c.page;
        EXPECT_EQ(ToPage(c.page, c.wide), c.bytes) << c.page;
    }
    EXPECT_EQ(GetLastError(), untouched) << "a success must leave it alone";
}

TEST(CodePages, ConvertTextsLongerThanOneChunk)
{
    std::string bytes;
    std::wstring wide;
    for (unsigned i = 0; i < 1000; ++i)
    {
        bytes += "x\x94\x39\xFC\x36";
        wide += L"x\xD83D\xDE00";
    }
    EXPECT_EQ(ToWide(54936, bytes), wide);
    EXPECT_EQ(ToPage(54936, wide), bytes);
}

TEST(CodePages, ReplaceWhatIsIllFormedUnlessItIsForbidden)
{
    struct
    {
        UINT page;
        std::string_view bytes;
        std::wstring_view wide;
    } const cases[] = {
        {CP_UTF8, "a\xE2\x82z", L"a\uFFFDz"},   {932, "a\x82", L"a\uFFFD"}, {932, "\xFFz", L"\uFFFDz"},
        {20127, "a\xC3\xA9", L"a\uFFFD\uFFFD"}, {949, "\xFFz", L"\uFFFDz"},
    };
    for (auto const& c : cases)
    {
        EXPECT_EQ(ToWide(c.page, c.bytes), c.wide) << c.page;
        SetLastError(untouched);
        EXPECT_EQ(MultiByteToWideChar(c.page, MB_ERR_INVALID_CHARS, c.bytes.data(), static_cast<int>(c.bytes.size()),
                                      nullptr, 0),
                  0);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_UNICODE_TRANSLATION}) << c.page;
    }
    EXPECT_EQ(ToWide(CP_UTF8, "\xC3\xA9", MB_ERR_INVALID_CHARS), L"\u00E9");
    EXPECT_EQ(ToWide(1252, "\xE9", MB_ERR_INVALID_CHARS), L"\u00E9");
}

TEST(CodePages, PutADefaultCharacterForWhatTheyLack)
{
    struct
    {
        UINT page;
        std::wstring_view wide;
        char const* defaultCharacter;
        std::string_view bytes;
        BOOL used;
    } const cases[] = {
        {1252, L"a\u4E00b", nullptr, "a?b", TRUE},
        {1252, L"a\u4E00b", "#", "a#b", TRUE},
        {1252, L"\xD83D\xDE00!", nullptr, "?!", TRUE},
        {1252, L"\xD83D", nullptr, "?", TRUE},
        {1252, L"\u20AC", nullptr, "\x80", FALSE},
        {932, L"\u0E01", "\x81\xA0", "\x81\xA0", TRUE},
        {50220, L"\u3042\u0E01\u3042", nullptr, "\x1B$B$\"\x1B(B?\x1B$B$\"\x1B(B", TRUE},
        {54936, L"\xD83D", nullptr, "\x84\x31\xA4\x37", FALSE},
    };
    for (auto const& c : cases)
    {
        BOOL used = 2;
        EXPECT_EQ(ToPage(c.page, c.wide, c.defaultCharacter, &used), c.bytes);
        EXPECT_EQ(used, c.used) << c.page;
    }
}

struct FailingCase
{
    char const* why;
    int (*call)(wchar_t* wide, char* bytes);
    long expected;
};

TEST(CodePages, RefuseWhatThePlatformRefuses)
{
    FailingCase const cases[] = {
        {"no text", [](auto* w, auto*) { return MultiByteToWideChar(CP_UTF8, 0, nullptr, 1, w, 9); }, 87},
        {"length 0", [](auto* w, auto*) { return MultiByteToWideChar(CP_UTF8, 0, "a", 0, w, 9); }, 87},
        {"no buffer", [](auto*, auto*) { return MultiByteToWideChar(CP_UTF8, 0, "a", 1, nullptr, 9); }, 87},
        {"size below 0", [](auto* w, auto*) { return MultiByteToWideChar(CP_UTF8, 0, "a", 1, w, -1); }, 87},
        {"unknown page", [](auto* w, auto*) { return MultiByteToWideChar(4, 0, "a", 1, w, 9); }, 87},
        {"UTF-16 as a page", [](auto* w, auto*) { return MultiByteToWideChar(1200, 0, "a", 1, w, 9); }, 87},
        {"unknown flag", [](auto* w, auto*) { return MultiByteToWideChar(CP_UTF8, 1, "a", 1, w, 9); }, 1004},
        {"strict UTF-7", [](auto* w, auto*) { return MultiByteToWideChar(65000, 8, "a", 1, w, 9); }, 1004},
        {"too small", [](auto* w, auto*) { return MultiByteToWideChar(CP_UTF8, 0, "abc", 3, w, 2); }, 122},
        {"too small by the NUL", [](auto* w, auto*) { return MultiByteToWideChar(CP_UTF8, 0, "ab", -1, w, 2); }, 122},
        {"too small a page", [](auto* w, auto*) { return MultiByteToWideChar(1252, 0, "abc", 3, w, 2); }, 122},
        {"no wide text",
         [](auto*, auto* b) { return WideCharToMultiByte(CP_UTF8, 0, nullptr, 1, b, 9, nullptr, nullptr); }, 87},
        {"wide length 0",
         [](auto*, auto* b) { return WideCharToMultiByte(CP_UTF8, 0, L"a", 0, b, 9, nullptr, nullptr); }, 87},
        {"no byte buffer",
         [](auto*, auto*) { return WideCharToMultiByte(CP_UTF8, 0, L"a", 1, nullptr, 9, nullptr, nullptr); }, 87},
        {"page without number",
         [](auto*, auto* b) { return WideCharToMultiByte(99999, 0, L"a", 1, b, 9, nullptr, nullptr); }, 87},
        {"default for UTF-8",
         [](auto*, auto* b) { return WideCharToMultiByte(CP_UTF8, 0, L"a", 1, b, 9, "?", nullptr); }, 87},
        {"used flag for UTF-8",
         [](auto*, auto* b)
         {
             BOOL used;
             return WideCharToMultiByte(CP_UTF8, 0, L"a", 1, b, 9, nullptr, &used);
         },
         87},
        {"default for UTF-7", [](auto*, auto* b) { return WideCharToMultiByte(65000, 0, L"a", 1, b, 9, "?", nullptr); },
         87},
        {"unknown wide flag",
         [](auto*, auto* b) { return WideCharToMultiByte(CP_UTF8, 0x200, L"a", 1, b, 9, nullptr, nullptr); }, 1004},
        {"strict small page",
         [](auto*, auto* b)
         { return WideCharToMultiByte(1252, WC_ERR_INVALID_CHARS, L"a", 1, b, 9, nullptr, nullptr); },
         1004},
        {"lone surrogate",
         [](auto*, auto* b)
         { return WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, L"\xD83D", 1, b, 9, nullptr, nullptr); },
         1113},
        {"lone surrogate in GB18030",
         [](auto*, auto* b)
         { return WideCharToMultiByte(54936, WC_ERR_INVALID_CHARS, L"\xD83D", 1, b, 9, nullptr, nullptr); },
         1113},
        {"too small for bytes",
         [](auto*, auto* b) { return WideCharToMultiByte(CP_UTF8, 0, L"\u20AC", 1, b, 2, nullptr, nullptr); }, 122},
        {"too small for a page",
         [](auto*, auto* b) { return WideCharToMultiByte(1252, 0, L"abc", 3, b, 2, nullptr, nullptr); }, 122},
    };
    for (auto const& c : cases)
    {
        wchar_t wide[9];
        char bytes[9];
        SetLastError(untouched);
        EXPECT_EQ(c.call(wide, bytes), 0) << c.why;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(c.expected)) << c.why;
    }
}

TEST(CodePages, CountTheTerminatorOfATextWithoutLength)
{
    wchar_t wide[4];
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "ab", -1, nullptr, 0), 3);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "ab", -1, wide, 4), 3);
    EXPECT_EQ(std::wstring_view(wide, 3), L"ab\0"sv);
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "ab", -1, wide, 3), 3);
    char bytes[4];
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"\u00E9", -1, bytes, 4, nullptr, nullptr), 3);
    EXPECT_EQ(std::string_view(bytes, 3), "\xC3\xA9\0"sv);
}

constexpr DWORD allocated = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM;

std::string NarrowMessage(DWORD flags, DWORD code)
{
    char* text = nullptr;
    auto const length = FormatMessageA(flags, nullptr, code, 0, reinterpret_cast<char*>(&text), 0, nullptr);
    std::string const result(text != nullptr ? text : "");
    EXPECT_EQ(length, result.size());
    EXPECT_EQ(LocalFree(text), nullptr);
    return result;
}

std::wstring WideMessage(DWORD flags, DWORD code)
{
    wchar_t* text = nullptr;
    auto const length = FormatMessageW(flags, nullptr, code, 0x400, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    std::wstring const result(text != nullptr ? text : L"");
    EXPECT_EQ(length, result.size());
    LocalFree(text);
    return result;
}

TEST(SystemTexts, AreShortLinesInBothWidths)
{
    std::vector<DWORD> codes;
    for (DWORD code = 0; code < 12000; ++code)
        codes.push_back(code);
    for (DWORD code = 0x80000000; code < 0x80050000; ++code)
        codes.push_back(code);
    unsigned found = 0;
    for (auto const code : codes)
    {
        std::string const text(SystemTextOf(code));
        if (text.empty())
            continue;
        ++found;
        EXPECT_EQ(text.find("\r\n"), text.size() - 2) << code;
        EXPECT_TRUE(text.ends_with(".\r\n")) << code;
        EXPECT_EQ(NarrowMessage(allocated | FORMAT_MESSAGE_IGNORE_INSERTS, code), text);
        EXPECT_EQ(WideMessage(allocated | FORMAT_MESSAGE_IGNORE_INSERTS, code), std::wstring(text.begin(), text.end()));
    }
    EXPECT_GT(found, 200U);
}

TEST(SystemTexts, ExistForEveryCodeThatTheStandInGives)
{
    DWORD const codes[] = {
        ERROR_INVALID_FUNCTION,
        ERROR_BAD_FORMAT,
        ERROR_INVALID_ACCESS,
        ERROR_INVALID_DATA,
        ERROR_OUTOFMEMORY,
        ERROR_INVALID_DRIVE,
        ERROR_CURRENT_DIRECTORY,
        ERROR_NO_MORE_FILES,
        ERROR_NOT_READY,
        ERROR_CRC,
        ERROR_WRITE_FAULT,
        ERROR_READ_FAULT,
        ERROR_LOCK_VIOLATION,
        ERROR_HANDLE_EOF,
        ERROR_HANDLE_DISK_FULL,
        ERROR_BAD_NETPATH,
        ERROR_NETNAME_DELETED,
        ERROR_BAD_NET_NAME,
        ERROR_FILE_EXISTS,
        ERROR_CANNOT_MAKE,
        ERROR_ALREADY_ASSIGNED,
        ERROR_BROKEN_PIPE,
        ERROR_OPEN_FAILED,
        ERROR_BUFFER_OVERFLOW,
        ERROR_INSUFFICIENT_BUFFER,
        ERROR_MOD_NOT_FOUND,
        ERROR_PROC_NOT_FOUND,
        ERROR_NEGATIVE_SEEK,
        ERROR_BAD_ARGUMENTS,
        ERROR_BAD_PATHNAME,
        ERROR_BAD_EXE_FORMAT,
        ERROR_ENVVAR_NOT_FOUND,
        ERROR_MORE_DATA,
        ERROR_NO_MORE_ITEMS,
        ERROR_DIRECTORY,
        ERROR_NOT_OWNER,
        ERROR_TOO_MANY_POSTS,
        ERROR_MR_MID_NOT_FOUND,
        ERROR_ARITHMETIC_OVERFLOW,
        ERROR_IO_INCOMPLETE,
        ERROR_IO_PENDING,
        ERROR_STACK_OVERFLOW,
        ERROR_INVALID_FLAGS,
        ERROR_FILE_INVALID,
        ERROR_NO_TOKEN,
        ERROR_BADKEY,
        ERROR_CANTOPEN,
        ERROR_NOTIFY_ENUM_DIR,
        ERROR_NO_UNICODE_TRANSLATION,
        ERROR_NO_ASSOCIATION,
        ERROR_DEVICE_NOT_CONNECTED,
        ERROR_NOT_FOUND,
        ERROR_CANCELLED,
        ERROR_CONNECTION_REFUSED,
        ERROR_RETRY,
        ERROR_NOT_ALL_ASSIGNED,
        ERROR_PRIVILEGE_NOT_HELD,
        ERROR_NO_SUCH_USER,
        ERROR_LOGON_FAILURE,
        ERROR_TIMEOUT,
        ERROR_FUNCTION_FAILED,
        ERROR_RESOURCE_DATA_NOT_FOUND,
        ERROR_RESOURCE_TYPE_NOT_FOUND,
        ERROR_RESOURCE_LANG_NOT_FOUND,
        ERROR_CANT_ACCESS_FILE,
    };
    for (auto const code : codes)
        EXPECT_FALSE(SystemTextOf(code).empty()) << code;
    for (int error = 1; error < 140; ++error)
        EXPECT_FALSE(SystemTextOf(CodeFromHost(error)).empty()) << error;
    for (auto const result : {E_NOTIMPL, E_NOINTERFACE, E_POINTER, E_ABORT, E_FAIL, E_UNEXPECTED, E_ACCESSDENIED,
                              E_HANDLE, E_OUTOFMEMORY, E_INVALIDARG})
        EXPECT_FALSE(SystemTextOf(static_cast<DWORD>(result)).empty()) << result;
}

TEST(SystemTexts, OfTheWin32FacilityAreThoseOfTheirCodes)
{
    EXPECT_EQ(NarrowMessage(allocated, 0), "The operation was successful.\r\n");
    EXPECT_EQ(NarrowMessage(allocated, 5), "Access is denied.\r\n");
    EXPECT_EQ(NarrowMessage(allocated, 0x80070005), "Access is denied.\r\n");
    EXPECT_EQ(NarrowMessage(allocated, 0x80070483), NarrowMessage(allocated, 1155));
}

TEST(SystemTexts, WithInsertsNeedThemIgnored)
{
    SetLastError(untouched);
    EXPECT_EQ(NarrowMessage(allocated | FORMAT_MESSAGE_IGNORE_INSERTS, 193), "%1 is not a valid program.\r\n");
    EXPECT_EQ(GetLastError(), untouched);
    EXPECT_EQ(NarrowMessage(allocated, 193), "");
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(SystemTexts, FillABufferOfTheCaller)
{
    constexpr auto expected = L"Access is denied.\r\n"sv;
    wchar_t buffer[40];
    EXPECT_EQ(FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 0, buffer, expected.size() + 1, nullptr),
              expected.size());
    EXPECT_EQ(buffer, expected);
    EXPECT_EQ(FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 0, buffer, expected.size(), nullptr), 0U);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST(SystemTexts, AreRefusedHonestly)
{
    constexpr DWORD fromSystem = FORMAT_MESSAGE_FROM_SYSTEM;
    struct
    {
        char const* why;
        DWORD flags;
        DWORD code;
        DWORD language;
        bool hasBuffer;
        long expected;
    } const cases[] = {
        {"unknown code", fromSystem, 40000, 0, true, ERROR_MR_MID_NOT_FOUND},
        {"unknown HRESULT", fromSystem, 0x80040200, 0, true, ERROR_MR_MID_NOT_FOUND},
        {"unknown code of the Win32 facility", fromSystem, 0x8007FFFF, 0, true, ERROR_MR_MID_NOT_FOUND},
        {"no source", 0, 5, 0, true, ERROR_INVALID_PARAMETER},
        {"a string as the source", 0x400, 5, 0, true, ERROR_INVALID_PARAMETER},
        {"a line width", fromSystem | 40, 5, 0, true, ERROR_INVALID_PARAMETER},
        {"no buffer", fromSystem, 5, 0, false, ERROR_INVALID_PARAMETER},
        {"German", fromSystem, 5, 0x407, true, ERROR_RESOURCE_LANG_NOT_FOUND},
    };
    for (auto const& c : cases)
    {
        char buffer[100];
        EXPECT_EQ(FormatMessageA(c.flags, nullptr, c.code, c.language, c.hasBuffer ? buffer : nullptr, 100, nullptr),
                  0U)
            << c.why;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(c.expected)) << c.why;
    }
    char* text = reinterpret_cast<char*>(1);
    EXPECT_EQ(FormatMessageA(allocated, nullptr, 40000, 0, reinterpret_cast<char*>(&text), 0, nullptr), 0U);
    EXPECT_EQ(text, nullptr);
}

} // namespace
