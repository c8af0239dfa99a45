// Joining and merging.
#include "Support/LogRecorder.h"

#include <Brindle/Vok/Path.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace Brindle::Vok;
using Brindle::Vok::Testing::LogRecorder;

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
        {LR"(C:\a)", LR"(D:\b)", LR"(C:\a\D:\b)"},
        {L"C:/a", L"b", LR"(C:/a\b)"},
        {LR"(C:\a)", L"/b", LR"(C:\a\/b)"},
    };
    LogRecorder recorder;
    for (auto const& each : cases)
        EXPECT_EQ(Path::Join(each.a, each.b).ToString(), each.expected);
    EXPECT_TRUE(recorder.Statements().empty());
}

TEST(PathJoin, TakesThreeAndFour)
{
    EXPECT_EQ(Path::Join(LR"(C:\a)", L"b", L"c.txt").ToString(), LR"(C:\a\b\c.txt)");
    EXPECT_EQ(Path::Join(LR"(C:\a\)", LR"(\b\)", LR"(\c)").ToString(), LR"(C:\a\b\c)");
    EXPECT_EQ(Path::Join(L"", L"", L"c").ToString(), L"c");
    EXPECT_EQ(Path::Join(L"a", L"", L"c").ToString(), LR"(a\c)");
    EXPECT_EQ(Path::Join(LR"(C:\a)", L"b", L"c", L"d.txt").ToString(), LR"(C:\a\b\c\d.txt)");
    EXPECT_EQ(Path::Join(L"a", L"", L"", L"d").ToString(), LR"(a\d)");
    EXPECT_EQ(Path::Join(L"", L"", L"", L"").ToString(), L"");
    EXPECT_EQ(Path::Join(LR"(a\)", L"", LR"(\)", L"d").ToString(), LR"(a\d)");
}

TEST(PathMerge, SeesTheSecondPathFromTheFirst)
{
    using Lines = std::vector<std::string>;
    std::string const merge = "Brindle::Vok::Path::MergeInternal: ";
    std::string const firstAssertion = merge + "Assertion failed: aPath.Prefix() == PathPrefix::none || aPath.Prefix() "
                                               "== PathPrefix::extendedLength";
    std::string const secondAssertion = merge + "Assertion failed: bPath.Prefix() == PathPrefix::none";
    std::string const slashMessage =
        merge + "This shouldn't happen as if b starts with a slash it is not a relative path";
    struct
    {
        wchar_t const* a;
        wchar_t const* b;
        wchar_t const* expected;
        Lines logged;
    } const cases[] = {
        {LR"(C:\a)", L"b", LR"(C:\a\b)", {}},
        {LR"(C:\a\)", L"b", LR"(C:\a\b)", {}},
        {LR"(a\b)", L"c", LR"(a\b\c)", {}},
        {LR"(C:\a\)", LR"(..\b)", LR"(C:\a\..\b)", {}},
        {L"", L"b", L"b", {}},
        {LR"(C:\a)", L"", LR"(C:\a)", {}},
        {LR"(C:\a)", LR"(\b)", LR"(C:\b)", {}},
        {LR"(C:\a\b\..)", LR"(\c)", LR"(C:\c)", {}},
        {L"C:/a", LR"(\b)", LR"(C:\b)", {}},
        {LR"(\x)", LR"(\b)", LR"(\b)", {}},
        {L"a", LR"(\b)", LR"(\b)", {}},
        {LR"(C:\a)", LR"(D:\b)", LR"(D:\b)", {}},
        {LR"(C:\a)", L"D:b", LR"(C:\a\b)", {}},
        {LR"(C:\a\)", L"D:b", LR"(C:\a\b)", {}},
        {LR"(C:\a)", L"C:", LR"(C:\a\)", {}},
        {LR"(C:\a\)", L"D:", LR"(C:\a\)", {}},
        {LR"(C:\a)", L"D:/b", LR"(C:\a\/b)", {}},
        {LR"(C:\a)", L"/b", LR"(C:\a\/b)", {}},
        {L"C:/a", L"b", LR"(C:/a\b)", {}},
        {LR"(\\?\C:\a)", L"b", LR"(\\?\C:\a\b)", {}},
        {LR"(\\?\C:\a)", LR"(\b)", LR"(C:\b)", {}},
        {LR"(\\s\h\d)", L"e", LR"(\\s\h\d\e)", {firstAssertion}},
        {LR"(\\s\h\d)", LR"(\e)", LR"(\e)", {firstAssertion}},
        {LR"(C:\a)", LR"(\\s\h)", LR"(\\s\h)", {secondAssertion}},
        {LR"(C:\a)", LR"(\\?\D:\b)", LR"(\\?\D:\b)", {secondAssertion}},
        {LR"(C:\a)", LR"(\)", LR"(C:\a\)", {slashMessage}},
        {LR"(C:\a\)", LR"(\)", LR"(C:\a\)", {slashMessage}},
        {LR"(\\s\h)", LR"(\\t\i)", LR"(\\t\i)", {firstAssertion, secondAssertion}},
        {LR"(x\..\D:\a)", LR"(\b)", LR"(D:\b)", {}},
        {LR"(\\s\h)", L"", LR"(\\s\h)", {firstAssertion}},
        {L"", LR"(\)", LR"(\)", {}},
    };
    for (auto const& each : cases)
    {
        LogRecorder recorder;
        EXPECT_EQ(Path::Merge(each.a, each.b).ToString(), each.expected);
        EXPECT_EQ(recorder.LinesWithFunction(), each.logged)
            << Path(each.a).ToStringA() << ' ' << Path(each.b).ToStringA();
        for (LogStatement const& statement : recorder.Statements())
        {
            EXPECT_EQ(statement.severity, VokLogSeverity::error);
            EXPECT_STREQ(statement.file, "Source/Vok/Path.cpp");
        }
    }
}

TEST(PathMerge, FoldsFromTheLeft)
{
    EXPECT_EQ(Path::Merge(LR"(C:\a)", L"b", L"c.txt").ToString(), LR"(C:\a\b\c.txt)");
    EXPECT_EQ(Path::Merge(LR"(C:\a)", LR"(\b)", L"c").ToString(), LR"(C:\b\c)");
    EXPECT_EQ(Path::Merge(LR"(C:\a)", LR"(D:\b)", LR"(\c)").ToString(), LR"(D:\c)");
    EXPECT_EQ(Path::Merge(LR"(C:\a)", L"b", LR"(D:\c)").ToString(), LR"(D:\c)");
    EXPECT_EQ(Path::Merge(LR"(C:\a)", L"b", L"c", L"d.txt").ToString(), LR"(C:\a\b\c\d.txt)");
    EXPECT_EQ(Path::Merge(LR"(C:\a)", L"b", LR"(\c)", L"d").ToString(), LR"(C:\c\d)");
    EXPECT_EQ(Path::Merge(L"", L"", L"", L"x").ToString(), L"x");
}
