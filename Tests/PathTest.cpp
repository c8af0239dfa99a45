// Paths by example, and what they are made of and become. PathOracleTest.cpp holds all their rules.
#include "Support/LogRecorder.h"

#include <Brindle/Vok/Path.h>

#include <gmock/gmock.h>

#include <clocale>
#include <filesystem>
#include <string>
#include <utility>

using namespace Brindle::Vok;
using Brindle::Vok::Testing::LogRecorder;
using testing::ElementsAre;

TEST(Path, IsRewrittenJoinedAndMerged)
{
    std::pair<Path, wchar_t const*> const cases[] = {
        {Path(LR"(C:\a\b.txt)").WithChangedExtension(L"doc"), LR"(C:\a\b.doc)"},
        {Path(LR"(C:\a\b.txt\..)").WithChangedExtension(L"c"), LR"(C:\a\b.txt\...c)"},
        {Path(LR"(C:/a\\b\..\.\c)").Normalized(), LR"(C:\a\c)"},
        {Path(LR"(a\.\.\.\b)").Normalized(), LR"(a\.\b)"}, // of several in a row every second one stays
        {Path(LR"(\\s\h\..\..)").Normalized(), LR"(\\)"},
        {Path(LR"(\\.\C:\a\..\b)").Normalized(), LR"(\\?\C:\a\..\b)"},
        {Path::Join(LR"(a\)", L"", LR"(\)", L"d"), LR"(a\d)"},
        {Path::Join(LR"(C:\a)", L"/b"), LR"(C:\a\/b)"},
        {Path::Merge(LR"(\\?\C:\a)", LR"(\b)", L"c"), LR"(C:\b\c)"},
        {Path::Merge(LR"(C:\a)", L"D:b"), LR"(C:\a\b)"},
        {Path::Merge(LR"(C:\a)", LR"(D:\b)"), LR"(D:\b)"},
    };
    for (auto const& [actual, expected] : cases)
        EXPECT_EQ(actual.ToString(), expected);
}

TEST(Path, OddOnesAreLogged)
{
    LogRecorder recorder;
    Path const device(LR"(\\.\COM1)");
    EXPECT_EQ(device, Path(LR"(\\?\com1)"));
    Path::Merge(LR"(\\s\h)", LR"(\\t\i)");
    Path::Merge(LR"(C:\a)", LR"(\)");
    EXPECT_LT(Path(LR"(\\s)"), Path(L"C:"));
    EXPECT_EQ(ToString(static_cast<PathPrefix>(9)), L"unknown PathPrefix");
    std::string const isDevice = R"(Brindle::Vok::Path::Prefix: Device path not supported [\\.\COM1])";
    std::string const merging = "Brindle::Vok::Path::MergeInternal: ";
    EXPECT_THAT(recorder.LinesWithFunction(),
                ElementsAre(isDevice, isDevice, isDevice,
                            merging + "Assertion failed: aPath.Prefix() == PathPrefix::none || aPath.Prefix() == "
                                      "PathPrefix::extendedLength",
                            merging + "Assertion failed: bPath.Prefix() == PathPrefix::none",
                            merging + "This shouldn't happen as if b starts with a slash it is not a relative path",
                            "Brindle::Vok::operator <: Assertion failed: lhs.Prefix() == rhs.Prefix()",
                            "Brindle::Vok::ToString: unknown PathPrefix 9"));
}

TEST(Path, FoldsLettersBeyondAsciiAsTheLocaleDoes)
{
    std::string const before = std::setlocale(LC_CTYPE, nullptr);
    Path const capital(L"C:\\I\u00C9");
    Path const small(L"C:\\i\u00E9");
    std::setlocale(LC_CTYPE, "C");
    EXPECT_NE(capital, small);
    EXPECT_LT(capital, small);
    std::setlocale(LC_CTYPE, "C.UTF-8");
    EXPECT_EQ(capital, small);
    EXPECT_FALSE(capital < small || small < capital);
    EXPECT_EQ(std::hash<Path>()(capital), std::hash<Path>()(small));
    std::setlocale(LC_CTYPE, before.c_str());
}

TEST(Path, KeepsItsTextThroughEveryConstruction)
{
    std::string const narrow = "C:/a//\xC3\xA9\xF0\x9F\x98\x80/../c";
    std::wstring const wide = L"C:/a//\u00E9\xD83D\xDE00/../c";
    EXPECT_EQ(Path(narrow).ToString(), wide);
    EXPECT_EQ(Path(wide).ToStringA(), narrow);
    EXPECT_EQ(Path(static_cast<char const*>(nullptr)).ToString(), L"");

    EXPECT_EQ(Path(wide).ToStdPath(), std::filesystem::path(u8"C:/a//\u00E9\U0001F600/../c"));
    EXPECT_EQ(FormatString("[{:>16}]", Path(L"C:\\\u00E9")), "[            C:\\\u00E9]");
    EXPECT_EQ(FormatStringW(L"[{}]", Path(wide)), L"[" + wide + L"]");
    // A lone surrogate, and what is no code unit of 16 bits.
    std::wstring const illFormed = {L'a', wchar_t(0xD83D), L'b', wchar_t(0xDE00), wchar_t(0x1F600)};
    EXPECT_EQ(Path(illFormed).ToStdPath(), std::filesystem::path(u8"a\uFFFDb\uFFFD\uFFFD"));
}
