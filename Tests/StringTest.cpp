#include "Support/LogRecorder.h"
#include "Support/Thrown.h"

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/String.h>

#include <gtest/gtest.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

namespace
{

constexpr int noSuchPage = 77777;

} // namespace

TEST(StringConversion, ConvertsBothWays)
{
    struct
    {
        int page;
        std::string narrow;
        std::wstring wide;
    } const cases[] = {
        {CP_UTF8, std::string("a\0b", 3), std::wstring(L"a\0b", 3)},
        {CP_UTF8, std::string(10000, 'x') + "\xE2\x82\xAC", std::wstring(10000, L'x') + L"\u20AC"},
        {1252, "\xE9", L"\u00E9"},
    };
    for (auto const& each : cases)
    {
        EXPECT_EQ(String::StringToWstring(each.narrow, each.page), each.wide);
        EXPECT_EQ(String::WstringToString(each.wide, each.page), each.narrow);
        EXPECT_EQ(String::StringToWstring(each.narrow.c_str(), each.page), std::wstring(each.wide.c_str()));
        EXPECT_EQ(String::WstringToString(each.wide.c_str(), each.page), std::string(each.narrow.c_str()));
    }
}

TEST(StringConversion, NothingIsNothingWhateverThePage)
{
    EXPECT_EQ(String::StringToWstring("", noSuchPage), L"");
    EXPECT_EQ(String::StringToWstring(nullptr, noSuchPage), L"");
    EXPECT_EQ(String::WstringToString(L"", noSuchPage), "");
    EXPECT_EQ(String::WstringToString(static_cast<wchar_t const*>(nullptr), noSuchPage), "");
}

TEST(StringConversion, AnUnknownPageFailsInTheFirstPass)
{
    LogRecorder recorder;
    auto const expect = [&](auto convert, std::string const& function, std::string const& text)
    {
        WindowsError const error = Thrown<WindowsError>(convert);
        EXPECT_EQ(error.code().value(), ERROR_INVALID_PARAMETER);
        EXPECT_EQ(WithoutLine(error.Message()), "Source/Vok/String.cpp: " + function + " " + WindowsErrorToStringA(87) +
                                                    " (Windows Error 87). " + text);
        EXPECT_EQ(recorder.LinesWithFunction().back(), function + ": Throwing last error " + error.Message());
    };
    expect([] { String::StringToWstring("x", noSuchPage); }, "Brindle::Vok::String::StringToWstring",
           "MultiByteToWideChar length calculation");
    expect([] { String::WstringToString(L"x", noSuchPage); }, "Brindle::Vok::String::WstringToString",
           "WideCharToMultiByte length calculation");
}
