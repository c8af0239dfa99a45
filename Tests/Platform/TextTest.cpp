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
    std::string longBytes;
    std::wstring longWide;
    for (unsigned i = 0; i < 1000; ++i) // more than one chunk
        longBytes += "x\x94\x39\xFC\x36", longWide += L"x\xD83D\xDE00";
    std::tuple<UINT, std::string, std::wstring> const cases[] = {
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
        {54936, longBytes, longWide},
        {65000, "+AOk-", L"\u00E9"},
    };
    for (auto const& [page, bytes, wide] : cases)
    {
        EXPECT_EQ(ToWide(page, bytes), wide) << page;
        EXPECT_EQ(ToPage(page, wide), bytes) << page;
    }
}

TEST(CodePages, ReplaceWhatIsIllFormedUnlessItIsForbidden)
{
    std::tuple<UINT, std::string_view, std::wstring_view> const cases[] = {
        {CP_UTF8, "a\xE2\x82z", L"a\uFFFDz"},
        {CP_UTF8, "\xF1\x80\x80\xE1\x80\xC2z", L"\xFFFD\xFFFD\xFFFDz"}, // one for each maximal part
        {CP_UTF8, "\xED\xA0\x80\xC0\xAF", L"\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD"},
        {932, "a\x82", L"a\uFFFD"},
        {932, "\xFFz", L"\uFFFDz"},
        {20127, "a\xC3\xA9", L"a\uFFFD\uFFFD"},
    };
    for (auto const& [page, bytes, wide] : cases)
    {
        EXPECT_EQ(ToWide(page, bytes), wide) << page;
        auto const length = static_cast<int>(bytes.size());
        VOK_EXPECT_CODE(ERROR_NO_UNICODE_TRANSLATION,
                        MultiByteToWideChar(page, MB_ERR_INVALID_CHARS, bytes.data(), length, nullptr, 0))
            << page;
    }
    EXPECT_EQ(ToWide(CP_UTF8, "\xC3\xA9", MB_ERR_INVALID_CHARS), L"\u00E9");
    EXPECT_EQ(ToWide(1252, "\xE9", MB_ERR_INVALID_CHARS), L"\u00E9");
}

TEST(CodePages, PutADefaultCharacterForWhatTheyLack)
{
    std::tuple<UINT, std::wstring_view, char const*, std::string_view, BOOL> const cases[] = {
        {1252, L"a\u4E00b", nullptr, "a?b", TRUE},
        {1252, L"a\u4E00b", "#", "a#b", TRUE},
        {1252, L"\xD83D\xDE00!", nullptr, "?!", TRUE},
        {1252, L"\xD83D", nullptr, "?", TRUE},
        {1252, L"\u20AC", nullptr, "\x80", FALSE},
        {932, L"\u0E01", "\x81\xA0", "\x81\xA0", TRUE},
        {50220, L"\u3042\u0E01\u3042", nullptr, "\x1B$B$\"\x1B(B?\x1B$B$\"\x1B(B", TRUE},
        {54936, L"\xD83D", nullptr, "\x84\x31\xA4\x37", FALSE},
    };
    for (auto const& [page, wide, defaultCharacter, bytes, isUsed] : cases)
    {
        BOOL used = 2;
        EXPECT_EQ(ToPage(page, wide, defaultCharacter, &used), bytes);
        EXPECT_EQ(used, isUsed) << page;
    }
}

TEST(CodePages, RefuseToWidenWhatThePlatformRefuses)
{
    wchar_t out[9];
    struct
    {
        char const* why;
        DWORD code;
        UINT page;
        DWORD flags;
        char const* text;
        int length;
        int size;
        wchar_t* out;
    } const cases[] = {
        {"no text", 87, CP_UTF8, 0, nullptr, 1, 9, out},
        {"length 0", 87, CP_UTF8, 0, "a", 0, 9, out},
        {"size below 0", 87, CP_UTF8, 0, "a", 1, -1, out},
        {"no room", 87, CP_UTF8, 0, "a", 1, 9, nullptr},
        {"unknown page", 87, 4, 0, "a", 1, 9, out},
        {"UTF-16 as a page", 87, 1200, 0, "a", 1, 9, out},
        {"unknown flag", 1004, CP_UTF8, 1, "a", 1, 9, out},
        {"strict UTF-7", 1004, 65000, MB_ERR_INVALID_CHARS, "a", 1, 9, out},
        {"too small", 122, CP_UTF8, 0, "abc", 3, 2, out},
        {"too small by the NUL", 122, CP_UTF8, 0, "ab", -1, 2, out},
        {"too small for a page", 122, 1252, 0, "abc", 3, 2, out},
    };
    for (auto const& each : cases)
        VOK_EXPECT_CODE(each.code,
                        MultiByteToWideChar(each.page, each.flags, each.text, each.length, each.out, each.size))
            << each.why;
}

TEST(CodePages, RefuseToNarrowWhatThePlatformRefuses)
{
    char out[9];
    BOOL used;
    struct
    {
        char const* why;
        DWORD code;
        UINT page;
        DWORD flags;
        wchar_t const* text;
        int length;
        int size = 9;
        char const* defaultCharacter = nullptr;
        BOOL* used = nullptr;
    } const cases[] = {
        {"no text", 87, CP_UTF8, 0, nullptr, 0},
        {"unknown page", 87, 99999, 0, L"a", 1},
        {"default for UTF-8", 87, CP_UTF8, 0, L"a", 1, 9, "?"},
        {"used flag for UTF-8", 87, CP_UTF8, 0, L"a", 1, 9, nullptr, &used},
        {"default for UTF-7", 87, 65000, 0, L"a", 1, 9, "?"},
        {"unknown flag", 1004, CP_UTF8, 0x200, L"a", 1},
        {"strict small page", 1004, 1252, WC_ERR_INVALID_CHARS, L"a", 1},
        {"lone surrogate", 1113, CP_UTF8, WC_ERR_INVALID_CHARS, L"\xD83D", 1},
        {"a unit that is none", 1113, CP_UTF8, WC_ERR_INVALID_CHARS, L"\x10000", 1},
        {"lone surrogate in GB18030", 1113, 54936, WC_ERR_INVALID_CHARS, L"\xD83D", 1},
        {"too small", 122, CP_UTF8, 0, L"\u20AC", 1, 2},
        {"too small for a page", 122, 1252, 0, L"abc", 3, 2},
    };
    for (auto const& each : cases)
        VOK_EXPECT_CODE(each.code, WideCharToMultiByte(each.page, each.flags, each.text, each.length, out, each.size,
                                                       each.defaultCharacter, each.used))
            << each.why;
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

TEST(SystemTexts, AreShortLines)
{
    for (DWORD code = 0; code < 12000; ++code)
    {
        std::string_view const text = SystemTextOf(code);
        EXPECT_TRUE(text.empty() || (text.find("\r\n") == text.size() - 2 && text.ends_with(".\r\n"))) << code;
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
    char buffer[100];
    constexpr DWORD fromSystem = FORMAT_MESSAGE_FROM_SYSTEM;
    struct
    {
        char const* why;
        DWORD expected;
        DWORD flags;
        DWORD code;
        DWORD language = 0;
        DWORD size = 100;
        bool hasBuffer = true;
    } const cases[] = {
        {"unknown code", ERROR_MR_MID_NOT_FOUND, fromSystem, 40000},
        {"unknown HRESULT", ERROR_MR_MID_NOT_FOUND, fromSystem, 0x80040200},
        {"unknown code of the Win32 facility", ERROR_MR_MID_NOT_FOUND, fromSystem, 0x8007FFFF},
        {"inserts that are not ignored", ERROR_INVALID_PARAMETER, fromSystem, 193},
        {"no source", ERROR_INVALID_PARAMETER, 0, 5},
        {"a string as the source", ERROR_INVALID_PARAMETER, 0x400, 5},
        {"a line width", ERROR_INVALID_PARAMETER, fromSystem | 40, 5},
        {"no buffer", ERROR_INVALID_PARAMETER, fromSystem, 5, 0, 100, false},
        {"German", ERROR_RESOURCE_LANG_NOT_FOUND, fromSystem, 5, 0x407},
        {"no room for the end", ERROR_INSUFFICIENT_BUFFER, fromSystem, 5, 0, 19},
        {"just enough room", ERROR_SUCCESS, fromSystem, 5, 0, 20},
    };
    for (auto const& each : cases)
        VOK_EXPECT_CODE(each.expected, FormatMessageA(each.flags, nullptr, each.code, each.language,
                                                      each.hasBuffer ? buffer : nullptr, each.size, nullptr))
            << each.why;
    EXPECT_STREQ(buffer, "Access is denied.\r\n");
}

} // namespace
