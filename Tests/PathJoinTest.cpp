// Joining and merging.
#include "Support/LogRecorder.h"

#include <Brindle/Vok/Path.h>

#include <gmock/gmock.h>

#include <string>
#include <vector>

using namespace Brindle::Vok;
using Brindle::Vok::Testing::LogRecorder;

namespace
{

/// What the operation makes of two, three or four paths.
template <class Operation>
std::wstring Apply(Operation const& operation, std::vector<Path> const& paths)
{
    Path const result = paths.size() == 2   ? operation(paths[0], paths[1])
                        : paths.size() == 3 ? operation(paths[0], paths[1], paths[2])
                                            : operation(paths.at(0), paths.at(1), paths.at(2), paths.at(3));
    return result.ToString();
}

constexpr auto join = [](auto const&... paths) { return Path::Join(paths...); };
constexpr auto merge = [](auto const&... paths) { return Path::Merge(paths...); };

} // namespace

TEST(PathJoin, HasOneSeparatorAtEachSeam)
{
    struct
    {
        std::vector<Path> paths;
        wchar_t const* expected;
    } const cases[] = {
        {{LR"(C:\a)", L"b"}, LR"(C:\a\b)"},
        {{LR"(C:\a\)", L"b"}, LR"(C:\a\b)"},
        {{LR"(C:\a)", LR"(\b)"}, LR"(C:\a\b)"},
        {{LR"(C:\a\)", LR"(\b)"}, LR"(C:\a\b)"},
        {{LR"(C:\a\)", LR"(\\b)"}, LR"(C:\a\\b)"},
        {{L"", L"b"}, L"b"},
        {{L"a", L""}, L"a"},
        {{L"C:", L"b"}, LR"(C:\b)"},
        {{L"a", LR"(..\b)"}, LR"(a\..\b)"},
        {{LR"(C:\a)", LR"(D:\b)"}, LR"(C:\a\D:\b)"},
        {{L"C:/a", L"b"}, LR"(C:/a\b)"},
        {{LR"(C:\a)", L"/b"}, LR"(C:\a\/b)"},
        {{LR"(C:\a)", L"b", L"c.txt"}, LR"(C:\a\b\c.txt)"},
        {{LR"(C:\a\)", LR"(\b\)", LR"(\c)"}, LR"(C:\a\b\c)"},
        {{L"a", L"", L"c"}, LR"(a\c)"},
        {{LR"(C:\a)", L"b", L"c", L"d.txt"}, LR"(C:\a\b\c\d.txt)"},
        {{L"a", L"", L"", L"d"}, LR"(a\d)"},
        {{L"", L"", L"", L""}, L""},
        {{LR"(a\)", L"", LR"(\)", L"d"}, LR"(a\d)"},
    };
    LogRecorder recorder;
    for (auto const& each : cases)
        EXPECT_EQ(Apply(join, each.paths), each.expected);
    EXPECT_TRUE(recorder.Statements().empty());
}

TEST(PathMerge, SeesEachPathFromTheOneBefore)
{
    struct
    {
        std::vector<Path> paths;
        wchar_t const* expected;
    } const cases[] = {
        {{LR"(C:\a)", L"b"}, LR"(C:\a\b)"},
        {{LR"(C:\a\)", L"b"}, LR"(C:\a\b)"},
        {{LR"(C:\a\)", LR"(..\b)"}, LR"(C:\a\..\b)"},
        {{L"", L"b"}, L"b"},
        {{L"", LR"(\)"}, LR"(\)"},
        {{LR"(C:\a)", L""}, LR"(C:\a)"},
        {{LR"(C:\a)", LR"(\b)"}, LR"(C:\b)"},
        {{LR"(C:\a\b\..)", LR"(\c)"}, LR"(C:\c)"},
        {{L"C:/a", LR"(\b)"}, LR"(C:\b)"},
        {{LR"(x\..\D:\a)", LR"(\b)"}, LR"(D:\b)"},
        {{L"a", LR"(\b)"}, LR"(\b)"},
        {{LR"(C:\a)", LR"(D:\b)"}, LR"(D:\b)"},
        {{LR"(C:\a)", L"D:b"}, LR"(C:\a\b)"},
        {{LR"(C:\a)", L"C:"}, LR"(C:\a\)"},
        {{LR"(C:\a)", L"D:/b"}, LR"(C:\a\/b)"},
        {{LR"(C:\a)", L"/b"}, LR"(C:\a\/b)"},
        {{L"C:/a", L"b"}, LR"(C:/a\b)"},
        {{LR"(\\?\C:\a)", L"b"}, LR"(\\?\C:\a\b)"},
        {{LR"(\\?\C:\a)", LR"(\b)"}, LR"(C:\b)"},
        {{LR"(C:\a)", L"b", L"c.txt"}, LR"(C:\a\b\c.txt)"},
        {{LR"(C:\a)", LR"(\b)", L"c"}, LR"(C:\b\c)"},
        {{LR"(C:\a)", LR"(D:\b)", LR"(\c)"}, LR"(D:\c)"},
        {{LR"(C:\a)", L"b", LR"(D:\c)"}, LR"(D:\c)"},
        {{LR"(C:\a)", L"b", L"c", L"d.txt"}, LR"(C:\a\b\c\d.txt)"},
        {{LR"(C:\a)", L"b", LR"(\c)", L"d"}, LR"(C:\c\d)"},
        {{L"", L"", L"", L"x"}, L"x"},
    };
    LogRecorder recorder;
    for (auto const& each : cases)
        EXPECT_EQ(Apply(merge, each.paths), each.expected);
    EXPECT_THAT(recorder.Lines(), testing::IsEmpty());
}

TEST(PathMerge, GoesOnBehindWhatItLogs)
{
    std::string const function = "Brindle::Vok::Path::MergeInternal: ";
    std::string const firstAssertion = function +
                                       "Assertion failed: aPath.Prefix() == PathPrefix::none || aPath.Prefix() "
                                       "== PathPrefix::extendedLength";
    std::string const secondAssertion = function + "Assertion failed: bPath.Prefix() == PathPrefix::none";
    std::string const slashMessage =
        function + "This shouldn't happen as if b starts with a slash it is not a relative path";
    struct
    {
        wchar_t const* a;
        wchar_t const* b;
        wchar_t const* expected;
        std::vector<std::string> logged;
    } const cases[] = {
        {LR"(\\s\h\d)", L"e", LR"(\\s\h\d\e)", {firstAssertion}},
        {LR"(\\s\h\d)", LR"(\e)", LR"(\e)", {firstAssertion}},
        {LR"(\\s\h)", L"", LR"(\\s\h)", {firstAssertion}},
        {LR"(C:\a)", LR"(\\s\h)", LR"(\\s\h)", {secondAssertion}},
        {LR"(C:\a)", LR"(\\?\D:\b)", LR"(\\?\D:\b)", {secondAssertion}},
        {LR"(\\s\h)", LR"(\\t\i)", LR"(\\t\i)", {firstAssertion, secondAssertion}},
        {LR"(C:\a)", LR"(\)", LR"(C:\a\)", {slashMessage}},
        {LR"(C:\a\)", LR"(\)", LR"(C:\a\)", {slashMessage}},
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
