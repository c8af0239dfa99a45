// Equality, order and hash.
#include "Support/LogRecorder.h"

#include <Brindle/Vok/Path.h>

#include <gmock/gmock.h>

#include <string>
#include <unordered_set>
#include <vector>

using namespace Brindle::Vok;
using Brindle::Vok::Testing::LogRecorder;

TEST(PathComparison, EqualityAndOrderAreRelationsOfTheirOwn)
{
    struct
    {
        std::wstring a;
        std::wstring b;
        bool equal;
        bool less;
        bool greater;
        bool asserts;
    } const cases[] = {
        {LR"(C:\A)", LR"(c:\a)", true, false, false, false},
        {LR"(C:\a\..\b)", LR"(C:\b)", true, true, false, false},
        {L"C:/a", LR"(C:\a)", true, true, false, false},
        {LR"(C:\a\\)", LR"(C:\a)", false, false, true, false},
        {LR"(\\?\C:\a)", LR"(C:\a)", true, true, false, true},
        {LR"(\\S\x)", LR"(S\x)", true, true, false, true},
        {LR"(\\?\C:\a\..\b)", LR"(\\?\C:\b)", false, true, false, false},
        {LR"(C:\a)", LR"(C:\b)", false, true, false, false},
        {L"a_b", L"aXb", false, true, false, false},
        {L"\u00C9", L"\u00E9", false, true, false, false}, // A to Z alone are folded
        {std::wstring(L"a\0b", 3), std::wstring(L"A\0c", 3), true, false, false, false},
        {std::wstring(L"a\0\\..\\b", 7), L"b", true, true, false, false},
        {L"a", L"a\xFFFF", false, true, false, false},
        {LR"(C:\a)", LR"(C:\a\)", false, true, false, false},
        {L"", L"", true, false, false, false},
    };
    for (auto const& each : cases)
    {
        SCOPED_TRACE(Path(each.a).ToStringA() + " " + Path(each.b).ToStringA());
        LogRecorder recorder;
        EXPECT_EQ(Path(each.a) == Path(each.b), each.equal);
        EXPECT_EQ(Path(each.a) < Path(each.b), each.less);
        EXPECT_EQ(Path(each.a) > Path(each.b), each.greater);
        EXPECT_EQ(Path(each.a) != Path(each.b), !each.equal);
        std::vector<std::string> expected;
        for (char const* function : {"operator ==", "operator <", "operator >", "operator =="})
        {
            if (each.asserts)
                expected.push_back(std::string("Brindle::Vok::") + function +
                                   ": Assertion failed: lhs.Prefix() == rhs.Prefix()");
        }
        EXPECT_EQ(recorder.LinesWithFunction(), expected);
        if (each.equal)
        {
            EXPECT_EQ(std::hash<Path>()(each.a), std::hash<Path>()(each.b));
        }
    }
}

TEST(PathComparison, AHashSetHoldsEqualPathsOnce)
{
    std::unordered_set<Path> paths;
    for (wchar_t const* text :
         {LR"(C:\a\b)", L"c:/A/./b", LR"(\\?\C:\a\b)", LR"(C:\a\b\)", LR"(C:\a\c)", LR"(a\b)", L"ab"})
        paths.insert(text);
    EXPECT_EQ(paths.size(), 5U);
    EXPECT_EQ(paths.count(LR"(C:\x\..\A\\B)"), 1U);
}
