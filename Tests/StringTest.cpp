#include "Support/Failures.h"

#include <Brindle/Vok/String.h>

#include <gtest/gtest.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

TEST(StringConversion, ConvertsBothWays)
{
    struct
    {
        int page;
        std::string narrow;
        std::wstring wide;
    } const cases[] = {
        {CP_UTF8, std::string("a\0\xE2\x82\xAC", 5), std::wstring(L"a\0\u20AC", 3)},
        {1252, "\xE9", L"\u00E9"},
    };
    for (auto const& each : cases)
    {
        EXPECT_EQ(String::StringToWstring(each.narrow, each.page), each.wide);
        EXPECT_EQ(String::WstringToString(each.wide, each.page), each.narrow);
    }
}

TEST(StringConversion, AnUnknownPageFailsUnlessThereIsNothing)
{
    constexpr int noSuchPage = 77777;
    EXPECT_EQ(String::StringToWstring(nullptr, noSuchPage), L"");
    EXPECT_EQ(String::WstringToString(L"", noSuchPage), "");
    ExpectLoggedFailure([] { String::StringToWstring("x", noSuchPage); }, "String", "String::StringToWstring", 87,
                        "MultiByteToWideChar length calculation");
    ExpectLoggedFailure([] { String::WstringToString(L"x", noSuchPage); }, "String", "String::WstringToString", 87,
                        "WideCharToMultiByte length calculation");
}
