#include <Brindle/Platform/Text.h>

#include "HostErrors.h"
#include "SystemTexts.h"

#include "Support/OpenHandle.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace
{

using namespace Brindle::Vok::Platform;
using Brindle::Vok::Testing::CodeOf;
using namespace std::string_literals;
using namespace std::string_view_literals;

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
        {866, "\xAF\xE0", L"\u043F\u0440"},
        {932, "\x82\xA0\xB1", L"\u3042\uFF71"},
        {949, "\xB0\xA1", L"\uAC00"},
        {950, "\xA7\x41", L"\u4F60"},
        {1252, "\x80\xE9", L"\u20AC\u00E9"},
        {20866, "\xD0\xD2", L"\u043F\u0440"},
        {28591, "\xFF", L"\u00FF"},
        {28605, "\xA4", L"\u20AC"},
        {50220, "\x1B$B$\"\x1B(B", L"\u3042"},
        {54936, "\x94\x39\xFC\x36", L"\xD83D\xDE00"},
        {65000, "+AOk-", L"\u00E9"},
    };
    for (auto const& each : cases)
    {
        EXPECT_EQ(ToWide(each.page, each.bytes), each.wide) << each.page;
        EXPECT_EQ(ToPage(each.page, each.wide), each.bytes) << each.page;
    }
}

TEST(CodePages, ConvertTextsLongerThanOneChunk)
{
    std::string bytes;
    std::wstring wide;
    for (unsigned i = 0; i < 1000; ++i)
        bytes += "x\x94\x39\xFC\x36", wide += L"x\xD83D\xDE00";
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
        {CP_UTF8, "a\xE2\x82z", L"a\uFFFDz"},
        {CP_UTF8, "\xF1\x80\x80\xE1\x80\xC2z", L"\xFFFD\xFFFD\xFFFDz"}, // one for each maximal part
        {CP_UTF8, "\xED\xA0\x80\xC0\xAF", L"\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD"},
        {932, "a\x82", L"a\uFFFD"},
        {932, "\xFFz", L"\uFFFDz"},
        {20127, "a\xC3\xA9", L"a\uFFFD\uFFFD"},
    };
    for (auto const& each : cases)
    {
        EXPECT_EQ(ToWide(each.page, each.bytes), each.wide) << each.page;
        auto const length = static_cast<int>(each.bytes.size());
        auto const convert = [&]
        { return MultiByteToWideChar(each.page, MB_ERR_INVALID_CHARS, each.bytes.data(), length, nullptr, 0); };
        EXPECT_EQ(CodeOf(convert), DWORD{ERROR_NO_UNICODE_TRANSLATION}) << each.page;
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
    for (auto const& each : cases)
    {
        BOOL used = 2;
        EXPECT_EQ(ToPage(each.page, each.wide, each.defaultCharacter, &used), each.bytes);
        EXPECT_EQ(used, each.used) << each.page;
    }
}

TEST(CodePages, RefuseToWidenWhatThePlatformRefuses)
{
    struct
    {
        char const* why;
        UINT page;
        DWORD flags;
        char const* text;
        int length;
        int size;
        DWORD code;
    } const cases[] = {
        {"no text", CP_UTF8, 0, nullptr, 1, 9, 87},
        {"length 0", CP_UTF8, 0, "a", 0, 9, 87},
        {"size below 0", CP_UTF8, 0, "a", 1, -1, 87},
        {"unknown page", 4, 0, "a", 1, 9, 87},
        {"UTF-16 as a page", 1200, 0, "a", 1, 9, 87},
        {"unknown flag", CP_UTF8, 1, "a", 1, 9, 1004},
        {"strict UTF-7", 65000, MB_ERR_INVALID_CHARS, "a", 1, 9, 1004},
        {"too small", CP_UTF8, 0, "abc", 3, 2, 122},
        {"too small by the NUL", CP_UTF8, 0, "ab", -1, 2, 122},
        {"too small for a page", 1252, 0, "abc", 3, 2, 122},
    };
    wchar_t out[9];
    for (auto const& each : cases)
        EXPECT_EQ(
            CodeOf([&] { return MultiByteToWideChar(each.page, each.flags, each.text, each.length, out, each.size); }),
            each.code)
            << each.why;
    EXPECT_EQ(CodeOf([] { return MultiByteToWideChar(CP_UTF8, 0, "a", 1, nullptr, 9); }), 87U);
}

TEST(CodePages, RefuseToNarrowWhatThePlatformRefuses)
{
    struct
    {
        char const* why;
        UINT page;
        DWORD flags;
        std::wstring_view text;
        int size;
        char const* defaultCharacter;
        bool asksForUse;
        DWORD code;
    } const cases[] = {
        {"no text", CP_UTF8, 0, {}, 9, nullptr, false, 87},
        {"unknown page", 99999, 0, L"a", 9, nullptr, false, 87},
        {"default for UTF-8", CP_UTF8, 0, L"a", 9, "?", false, 87},
        {"used flag for UTF-8", CP_UTF8, 0, L"a", 9, nullptr, true, 87},
        {"default for UTF-7", 65000, 0, L"a", 9, "?", false, 87},
        {"unknown flag", CP_UTF8, 0x200, L"a", 9, nullptr, false, 1004},
        {"strict small page", 1252, WC_ERR_INVALID_CHARS, L"a", 9, nullptr, false, 1004},
        {"lone surrogate", CP_UTF8, WC_ERR_INVALID_CHARS, L"\xD83D", 9, nullptr, false, 1113},
        {"a unit that is none", CP_UTF8, WC_ERR_INVALID_CHARS, L"\x10000", 9, nullptr, false, 1113},
        {"lone surrogate in GB18030", 54936, WC_ERR_INVALID_CHARS, L"\xD83D", 9, nullptr, false, 1113},
        {"too small", CP_UTF8, 0, L"\u20AC", 2, nullptr, false, 122},
        {"too small for a page", 1252, 0, L"abc", 2, nullptr, false, 122},
    };
    for (auto const& each : cases)
    {
        char out[9];
        BOOL used;
        auto const convert = [&]
        {
            return WideCharToMultiByte(each.page, each.flags, each.text.data(), static_cast<int>(each.text.size()), out,
                                       each.size, each.defaultCharacter, each.asksForUse ? &used : nullptr);
        };
        EXPECT_EQ(CodeOf(convert), each.code) << each.why;
    }
}

TEST(CodePages, CountTheTerminatorOfATextWithoutLength)
{
    wchar_t wide[4];
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "ab", -1, nullptr, 0), 3);
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "ab", -1, wide, 3), 3);
    EXPECT_EQ(std::wstring_view(wide, 3), L"ab\0"sv);
    char bytes[4];
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"\u00E9", -1, bytes, 4, nullptr, nullptr), 3);
    EXPECT_EQ(std::string_view(bytes, 3), "\xC3\xA9\0"sv);
}

TEST(SystemTexts, AreShortLinesInBothWidths)
{
    for (DWORD code = 0; code < 12000; ++code)
    {
        std::string const text(SystemTextOf(code));
        if (text.empty())
            continue;
        EXPECT_TRUE(text.find("\r\n") == text.size() - 2 && text.ends_with(".\r\n")) << code;
    }
}

TEST(SystemTexts, ExistForEveryCodeThatTheStandInGives)
{
    for (int const code :
         {1,    11,   12,   13,   14,   15,   16,   18,   21,   23,   29,   30,   33,   38,   39,   53,   64,
          67,   80,   82,   85,   109,  110,  111,  122,  126,  127,  131,  160,  161,  193,  203,  234,  259,
          267,  288,  298,  317,  534,  996,  997,  1001, 1004, 1006, 1008, 1010, 1011, 1022, 1113, 1155, 1167,
          1168, 1223, 1225, 1237, 1300, 1314, 1317, 1326, 1460, 1627, 1812, 1813, 1815, 1920})
        EXPECT_FALSE(SystemTextOf(static_cast<DWORD>(code)).empty()) << code;
    for (int error = 1; error < 140; ++error)
        EXPECT_FALSE(SystemTextOf(CodeFromHost(error)).empty()) << error;
    for (auto const result : {E_NOTIMPL, E_NOINTERFACE, E_POINTER, E_ABORT, E_FAIL, E_UNEXPECTED, E_ACCESSDENIED,
                              E_HANDLE, E_OUTOFMEMORY, E_INVALIDARG})
        EXPECT_FALSE(SystemTextOf(static_cast<DWORD>(result)).empty()) << result;
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
        DWORD size;
        long expected;
    } const cases[] = {
        {"unknown code", fromSystem, 40000, 0, 100, ERROR_MR_MID_NOT_FOUND},
        {"unknown HRESULT", fromSystem, 0x80040200, 0, 100, ERROR_MR_MID_NOT_FOUND},
        {"unknown code of the Win32 facility", fromSystem, 0x8007FFFF, 0, 100, ERROR_MR_MID_NOT_FOUND},
        {"inserts that are not ignored", fromSystem, 193, 0, 100, ERROR_INVALID_PARAMETER},
        {"no source", 0, 5, 0, 100, ERROR_INVALID_PARAMETER},
        {"a string as the source", 0x400, 5, 0, 100, ERROR_INVALID_PARAMETER},
        {"a line width", fromSystem | 40, 5, 0, 100, ERROR_INVALID_PARAMETER},
        {"German", fromSystem, 5, 0x407, 100, ERROR_RESOURCE_LANG_NOT_FOUND},
        {"no room for the end", fromSystem, 5, 0, 19, ERROR_INSUFFICIENT_BUFFER},
    };
    char buffer[100];
    auto const code = [](DWORD flags, DWORD code, DWORD language, char* out, DWORD size)
    { return CodeOf([&] { return FormatMessageA(flags, nullptr, code, language, out, size, nullptr); }); };
    for (auto const& each : cases)
        EXPECT_EQ(code(each.flags, each.code, each.language, buffer, each.size), static_cast<DWORD>(each.expected))
            << each.why;
    EXPECT_EQ(code(fromSystem, 5, 0, nullptr, 100), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(code(fromSystem, 5, 0, buffer, 20), 0U);
    EXPECT_STREQ(buffer, "Access is denied.\r\n");
}

} // namespace
