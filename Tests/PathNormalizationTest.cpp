// The normal form of paths, step by step with what each step leaves behind.
#include <Brindle/Vok/Path.h>

#include "Vok/PathNormalization.h"

#include <gtest/gtest.h>

#include <string>

using namespace Brindle::Vok;

namespace
{

struct
{
    wchar_t const* text;
    wchar_t const* expected;
} const cases[] = {
    {L"", L""},
    {L"C:/a//b", LR"(C:\a\b)"},
    {LR"(a\\\\\b)", LR"(a\b)"},
    {L"//s/h", LR"(\s\h)"},
    {LR"(C:\a\b\)", LR"(C:\a\b\)"},
    // Components of one dot: every second one in a row stays, and so does one at the beginning or the end.
    {LR"(C:\a\.\b)", LR"(C:\a\b)"},
    {LR"(a\.\.\.\b)", LR"(a\.\b)"},
    {LR"(/./\./x)", LR"(\.\x)"},
    {LR"(.\.\x)", LR"(.\x)"},
    {LR"(x\.)", LR"(x\.)"},
    // Components of two, and names that look like them.
    {LR"(C:\a\b\..\..\c)", LR"(C:\c)"},
    {LR"(a\...\..\b)", LR"(a\b)"},
    {LR"(C:\b..\..b\c)", LR"(C:\b..\..b\c)"},
    {LR"(a\..\b)", L"b"},
    {LR"(\a\..\b)", LR"(\b)"},
    {LR"(C:a\..\b)", L"C:b"},
    {LR"(ab:c\..\d)", L"ab:d"},
    {LR"(ab:\..\d)", L"d"},
    {LR"(..\a\..\b)", LR"(..\b)"},
    {LR"(C:\a\..\..\x)", LR"(C:\..\x)"},
    {LR"(\..\x)", LR"(\..\x)"},
    {LR"(..\..\x)", LR"(..\..\x)"},
    {LR"(x\..\..\y)", LR"(..\y)"},
    {LR"(C:a\..\..\b)", LR"(C:..\b)"},
    {LR"(a\..\.\..\b)", LR"(..\b)"},
    // At the end a name that begins with two dots counts as a parent that wasn't resolved.
    {LR"(C:\a\b\..)", LR"(C:\a\)"},
    {LR"(C:a\..)", L"C:"},
    {LR"(C:\..)", LR"(C:\..)"},
    {LR"(a\..)", L""},
    {LR"(..\..)", L""},
    {LR"(..\..\..)", LR"(..\..\..)"},
    {LR"(a\..b\..)", LR"(a\..b\..)"},
    {LR"(a\..b\..\c)", LR"(a\c)"},
    // A share is a component like others; behind an extended-length prefix nothing changes.
    {LR"(\\server\\share/dir/..\x)", LR"(\\server\share\x)"},
    {LR"(\\s\h\..\..)", LR"(\\)"},
    {LR"(\\server\..\x)", LR"(\\x)"},
    {LR"(\\?\C:/a/../b)", LR"(\\?\C:/a/../b)"},
    {LR"(\\?\UNC\s\h\a\..\b)", LR"(\\?\UNC\s\h\a\..\b)"},
    {LR"(\\.\C:\a\..\b)", LR"(\\?\C:\a\..\b)"},
};

} // namespace

TEST(PathNormalization, ResolvesDotsAndSeparators)
{
    for (auto const& each : cases)
        EXPECT_EQ(Path(each.text).Normalized().ToString(), each.expected) << Path(each.text).ToStringA();
    // As a whole path this would have a prefix.
    std::wstring text = LR"(\\a)";
    text.resize(Detail::NormalizeNonExtendedLengthPath(text, text.data()));
    EXPECT_EQ(text, LR"(\a)");
}
