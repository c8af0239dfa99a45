#include "HostErrors.h"
#include "SystemTexts.h"

#include "Support/StandIn.h"

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
        {CP_UTF8, "a\0b"s, L"a\0b"s},
        {932, "\x82\xA0\xB1", L"\u3042\uFF71"},
        {1252, "\x80\xE9", L"\u20AC\u00E9"},
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
        {CP_UTF8, "\xF1\x80\x80\xE1\x80\xC2z", L"\xFFFD\xFFFD\xFFFDz"}, // one for each maximal part
        {CP_UTF8, "\xED\xA0\x80\xC0\xAF", L"\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD"},
        {932, "a\x82", L"a\uFFFD"},
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
}

TEST(CodePages, PutADefaultCharacterForWhatTheyLack)
{
    std::tuple<UINT, std::wstring_view, char const*, std::string_view, BOOL> const cases[] = {
        {1252, L"a\u4E00b", nullptr, "a?b", TRUE},
        {1252, L"a\u4E00b", "#", "a#b", TRUE},
        {1252, L"\xD83D\xDE00!", nullptr, "?!", TRUE},
        {932, L"\u0E01", "\x81\xA0", "\x81\xA0", TRUE},
        {54936, L"\xD83D", nullptr, "\x84\x31\xA4\x37", FALSE},
    };
    for (auto const& [page, wide, defaultCharacter, bytes, isUsed] : cases)
    {
        BOOL used = 2;
        EXPECT_EQ(ToPage(page, wide, defaultCharacter, &used), bytes);
        EXPECT_EQ(used, isUsed) << page;
    }
}

TEST(CodePages, RefuseWhatThePlatformRefuses)
{
    wchar_t wide[9];
    std::tuple<char const*, DWORD, UINT, DWORD, char const*, int, int> const toWide[] = {
        {"no text", 87, CP_UTF8, 0, nullptr, 1, 9},
        {"unknown page", 87, 4, 0, "a", 1, 9},
        {"unknown flag", 1004, CP_UTF8, 1, "a", 1, 9},
        {"strict UTF-7", 1004, 65000, MB_ERR_INVALID_CHARS, "a", 1, 9},
        {"too small by the NUL", 122, CP_UTF8, 0, "ab", -1, 2},
    };
    for (auto const& [why, code, page, flags, text, length, size] : toWide)
        VOK_EXPECT_CODE(code, MultiByteToWideChar(page, flags, text, length, wide, size)) << why;
    char bytes[9];
    std::tuple<char const*, DWORD, UINT, DWORD, wchar_t const*, int, char const*> const toBytes[] = {
        {"default for UTF-8", 87, CP_UTF8, 0, L"a", 9, "?"},
        {"strict small page", 1004, 1252, WC_ERR_INVALID_CHARS, L"a", 9, nullptr},
        {"lone surrogate", 1113, CP_UTF8, WC_ERR_INVALID_CHARS, L"\xD83D", 9, nullptr},
        {"lone surrogate in GB18030", 1113, 54936, WC_ERR_INVALID_CHARS, L"\xD83D", 9, nullptr},
        {"too small", 122, CP_UTF8, 0, L"\u20AC", 2, nullptr},
    };
    for (auto const& [why, code, page, flags, text, size, defaultCharacter] : toBytes)
        VOK_EXPECT_CODE(code, WideCharToMultiByte(page, flags, text, 1, bytes, size, defaultCharacter, nullptr)) << why;
}

TEST(CodePages, CountTheTerminatorOfATextWithoutLength)
{
    wchar_t wide[] = L"####";
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "ab", -1, wide, 3), 3);
    EXPECT_EQ(std::wstring_view(wide, 4), L"ab\0#"sv);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"\u00E9", -1, nullptr, 0, nullptr, nullptr), 3);
}

TEST(SystemTexts, AreEnglishOrRefused)
{
    char buffer[100];
    constexpr DWORD fromSystem = FORMAT_MESSAGE_FROM_SYSTEM;
    std::tuple<char const*, DWORD, DWORD, DWORD, DWORD, DWORD> const cases[] = {
        {"unknown code of the Win32 facility", ERROR_MR_MID_NOT_FOUND, fromSystem, 0x8007FFFF, 0, 100},
        {"inserts that are not ignored", ERROR_INVALID_PARAMETER, fromSystem, 193, 0, 100},
        {"German", ERROR_RESOURCE_LANG_NOT_FOUND, fromSystem, 5, 0x407, 100},
        {"no room for the end", ERROR_INSUFFICIENT_BUFFER, fromSystem, 5, 0, 19},
        {"just enough room", ERROR_SUCCESS, fromSystem, 5, 0, 20},
    };
    for (auto const& [why, expected, flags, code, language, size] : cases)
        VOK_EXPECT_CODE(expected, FormatMessageA(flags, nullptr, code, language, buffer, size, nullptr)) << why;
    EXPECT_STREQ(buffer, "Access is denied.\r\n");
    for (int error = 1; error < 140; ++error)
        EXPECT_FALSE(SystemTextOf(CodeFromHost(error)).empty()) << error;
}

} // namespace
