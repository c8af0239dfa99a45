#include "Support/LogRecorder.h"

#include <Brindle/Vok/Path.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Brindle::Vok;
using Brindle::Vok::Testing::LogRecorder;
using testing::ElementsAre;

TEST(Path, IsClassifiedByItsText)
{
    struct
    {
        wchar_t const* text;
        PathPrefix prefix;
        bool isUnc;
        bool isExtendedLength;
        bool isRelative;
    } const cases[] = {
        {L"", PathPrefix::none, false, false, true},
        {L"a", PathPrefix::none, false, false, true},
        {LR"(\)", PathPrefix::none, false, false, true},
        {LR"(\x)", PathPrefix::none, false, false, false},
        {L"C:", PathPrefix::none, false, false, true},
        {L"C:x.txt", PathPrefix::none, false, false, true},
        {LR"(C:\)", PathPrefix::none, false, false, false},
        {LR"(?:\)", PathPrefix::none, false, false, false},
        {L"C:/a/b.txt", PathPrefix::none, false, false, true},
        {L"//server/share/x.txt", PathPrefix::none, false, false, true},
        {LR"(\\)", PathPrefix::unc, true, false, false},
        {LR"(\\server\share)", PathPrefix::unc, true, false, false},
        {LR"(\\?\C:\a)", PathPrefix::extendedLength, false, true, false},
        {LR"(\\?\UNC\server\share)", PathPrefix::extendedLengthUnc, true, true, false},
        {LR"(\\?\unc\server\share)", PathPrefix::extendedLength, false, true, false},
        {LR"(\\.\COM1)", PathPrefix::extendedLength, false, true, false},
    };
    for (auto const& each : cases)
    {
        Path const path(each.text);
        EXPECT_EQ(path.Prefix(), each.prefix) << path.ToStringA();
        EXPECT_EQ(path.IsUnc(), each.isUnc) << path.ToStringA();
        EXPECT_EQ(path.IsExtendedLength(), each.isExtendedLength) << path.ToStringA();
        EXPECT_EQ(path.IsRelative(), each.isRelative) << path.ToStringA();
        EXPECT_EQ(path.ToString(), each.text);
    }
}

TEST(Path, PrefixTexts)
{
    struct
    {
        wchar_t const* path;
        char const* name;
        wchar_t const* prefixText;
    } const cases[] = {
        {L"a", "none", L""},
        {LR"(\\a)", "unc", LR"(\\)"},
        {LR"(\\?\a)", "extendedLength", LR"(\\?\)"},
        {LR"(\\?\UNC\a)", "extendedLengthUnc", LR"(\\?\UNC\)"},
        {LR"(\\.\a)", "extendedLength", LR"(\\?\)"},
    };
    for (auto const& each : cases)
    {
        EXPECT_EQ(ToStringA(Path(each.path).Prefix()), each.name);
        EXPECT_EQ(Path(each.path).PrefixText(), each.prefixText);
    }
}

TEST(Path, DevicesAndUnknownPrefixesAreLogged)
{
    LogRecorder recorder;
    Path const device(LR"(\\.\COM1)");
    device.Prefix();
    device.IsUnc();
    EXPECT_EQ(ToString(static_cast<PathPrefix>(9)), L"unknown PathPrefix");
    EXPECT_THAT(recorder.LinesWithFunction(),
                ElementsAre(R"(Brindle::Vok::Path::Prefix: Device path not supported [\\.\COM1])",
                            R"(Brindle::Vok::Path::Prefix: Device path not supported [\\.\COM1])",
                            "Brindle::Vok::ToString: unknown PathPrefix 9"));
    EXPECT_THAT(recorder.Lines(), testing::Each(testing::StartsWith("error: ")));
    EXPECT_STREQ(recorder.Statements()[0].file, "Source/Vok/Path.cpp");
}

TEST(Path, KeepsItsTextThroughEveryConstruction)
{
    std::string const narrow = "C:/a//\xC3\xA9\xF0\x9F\x98\x80/../c";
    std::wstring const wide = L"C:/a//\u00E9\xD83D\xDE00/../c";
    EXPECT_EQ(Path(narrow).ToString(), wide);
    EXPECT_EQ(Path(narrow.c_str()).ToString(), wide);
    EXPECT_EQ(Path(wide.c_str()).ToString(), wide);
    EXPECT_EQ(Path(wide).ToStringA(), narrow);
    EXPECT_EQ(Path("").ToString(), L"");
    EXPECT_EQ(Path(static_cast<char const*>(nullptr)).ToString(), L"");

    Path original(wide);
    Path const copy = original;
    Path moved = std::move(original);
    EXPECT_EQ(original.ToString(), L"");
    original = std::move(moved);
    EXPECT_EQ(moved.ToString(), L"");
    EXPECT_EQ(original.ToString(), copy.ToString());
}

TEST(Path, StandardPathsJoinSurrogates)
{
    EXPECT_EQ(Path("C:/\xC3\xA9\xF0\x9F\x98\x80").ToStdPath(), std::filesystem::path(u8"C:/\u00E9\U0001F600"));
    std::wstring const loneOnes = {L'a', wchar_t(0xD83D), L'b', wchar_t(0xDE00)};
    EXPECT_EQ(Path(loneOnes).ToStdPath(), std::filesystem::path(u8"a\uFFFDb\uFFFD"));
}

TEST(PathJoin, HasOneSeparatorAtTheSeam)
{
    struct
    {
        wchar_t const* a;
        wchar_t const* b;
        wchar_t const* expected;
    } const cases[] = {
        {LR"(C:\a)", L"b", LR"(C:\a\b)"},
        {LR"(C:\a\)", L"b", LR"(C:\a\b)"},
        {LR"(C:\a)", LR"(\b)", LR"(C:\a\b)"},
        {LR"(C:\a\)", LR"(\b)", LR"(C:\a\b)"},
        {LR"(C:\a\)", LR"(\\b)", LR"(C:\a\\b)"},
        {L"", L"b", L"b"},
        {L"a", L"", L"a"},
        {L"", L"", L""},
        {L"C:", L"b", LR"(C:\b)"},
        {L"a", LR"(..\b)", LR"(a\..\b)"},
        {LR"(C:\a)", LR"(C:\b)", LR"(C:\a\C:\b)"},
        {L"C:/a", L"b", LR"(C:/a\b)"},
        {LR"(C:\a)", L"/b", LR"(C:\a\/b)"},
    };
    for (auto const& each : cases)
        EXPECT_EQ(Path::Join(each.a, each.b).ToString(), each.expected);
}

TEST(PathJoin, TakesThreeAndFour)
{
    EXPECT_EQ(Path::Join(LR"(C:\a\)", LR"(\b\)", LR"(\c)").ToString(), LR"(C:\a\b\c)");
    EXPECT_EQ(Path::Join(L"", L"", L"c").ToString(), L"c");
    EXPECT_EQ(Path::Join(L"a", L"", L"c").ToString(), LR"(a\c)");
    EXPECT_EQ(Path::Join(LR"(C:\a)", L"b", L"c", L"d.txt").ToString(), LR"(C:\a\b\c\d.txt)");
    EXPECT_EQ(Path::Join(L"a", L"", L"", L"d").ToString(), LR"(a\d)");
    // Four are paired, which shows where a seam has separators on both sides of an empty pair.
    EXPECT_EQ(Path::Join(LR"(a\)", L"", LR"(\)", L"d").ToString(), LR"(a\d)");
}
