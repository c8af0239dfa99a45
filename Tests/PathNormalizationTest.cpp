// The normal form of paths, step by step with what each step leaves behind.
#include <Brindle/Vok/Path.h>

#include "Vok/PathNormalization.h"

#include <gtest/gtest.h>

using namespace Brindle::Vok;

TEST(PathNormalization, OfTheTextBehindThePrefix)
{
    struct
    {
        std::wstring text;
        std::wstring expected;
    } const cases[] = {
        {L"a/b", LR"(a\b)"},
        {L"C:/x/./y", LR"(C:\x\y)"},
        {L"a//b", LR"(a\b)"},
        {LR"(a\\\\\b)", LR"(a\b)"},
        {LR"(C:\a\\\b)", LR"(C:\a\b)"},
        {LR"(\\a)", LR"(\a)"},
        {LR"(C:\a\.\b)", LR"(C:\a\b)"},
        {LR"(\.\x)", LR"(\x)"},
        {LR"(C:\a\.\.\b)", LR"(C:\a\.\b)"},
        {LR"(a\.\.\.\b)", LR"(a\.\b)"},
        {LR"(\.\.\x)", LR"(\.\x)"},
        {LR"(.\.\x)", LR"(.\x)"},
        {LR"(x\.)", LR"(x\.)"},
        {LR"(C:\.)", LR"(C:\.)"},
        {LR"(C:\a\b\)", LR"(C:\a\b\)"},
        {L"...", L"..."},
        {LR"(\...)", LR"(\...)"},
        {LR"(C:\a\...\b)", LR"(C:\a\...\b)"},
        {LR"(C:\a\b..\c)", LR"(C:\a\b..\c)"},
        {LR"(C:\a\..b\c)", LR"(C:\a\..b\c)"},
        {LR"(C:\a\b\..\c)", LR"(C:\a\c)"},
        {LR"(C:\a\..\b)", LR"(C:\b)"},
        {LR"(C:\a\b\..\..\c)", LR"(C:\c)"},
        {LR"(a\...\..\b)", LR"(a\b)"},
        {LR"(a\b\..\c)", LR"(a\c)"},
        {LR"(a\..\b)", L"b"},
        {LR"(a\b\..\..\c)", L"c"},
        {LR"(a\b\c\..\..\..\d)", L"d"},
        {LR"(\a\..\b)", LR"(\b)"},
        {LR"(C:a\..\b)", L"C:b"},
        {LR"(ab:c\..\d)", L"ab:d"},
        {LR"(server\share\..\x)", LR"(server\x)"},
        {LR"(server\..\x)", L"x"},
        {LR"(..\a\..\b)", LR"(..\b)"},
        {LR"(..\..\a\..\b)", LR"(..\..\b)"},
        {L"C:/a/../b/./c//d", LR"(C:\b\c\d)"},
        {LR"(C:\a\..\..\x)", LR"(C:\..\x)"},
        {LR"(C:\a\..\..\..\b)", LR"(C:\..\..\b)"},
        {LR"(C:\..\x)", LR"(C:\..\x)"},
        {LR"(\..\x)", LR"(\..\x)"},
        {LR"(\..\..\x)", LR"(\..\..\x)"},
        {LR"(\a\..\..\..\b)", LR"(\..\..\b)"},
        {LR"(..\x)", LR"(..\x)"},
        {LR"(..\..\x)", LR"(..\..\x)"},
        {LR"(..\..\..\x)", LR"(..\..\..\x)"},
        {LR"(..\..\..\..\x)", LR"(..\..\..\..\x)"},
        {LR"(x\..\..\y)", LR"(..\y)"},
        {LR"(xy\..\..\y)", LR"(..\y)"},
        {LR"(a\..\..\..\b)", LR"(..\..\b)"},
        {LR"(C:\a\b\..)", LR"(C:\a\)"},
        {LR"(C:\a\..)", LR"(C:\)"},
        {LR"(C:\..)", LR"(C:\..)"},
        {LR"(C:a\..)", L"C:"},
        {LR"(\a\..)", LR"(\)"},
        {LR"(\..)", LR"(\..)"},
        {LR"(a\b\..)", LR"(a\)"},
        {LR"(a\..)", L""},
        {LR"(x\..\..)", L".."},
        {LR"(..\..)", L""},
        {LR"(..\..\..)", LR"(..\..\..)"},
        {LR"(..\..\\)", LR"(..\..\)"},
        {LR"(C:..\x)", LR"(C:..\x)"},
        // At the end a name that begins with two dots counts as a parent that wasn't resolved.
        {LR"(a\..b\..)", LR"(a\..b\..)"},
        {LR"(a\..b\..\c)", LR"(a\c)"},
        {LR"(..\..\)", LR"(..\..\)"},
        {LR"(.\.)", LR"(.\.)"},
        {LR"(a\.\..)", L""},
        {LR"(a\..\.\..\b)", LR"(..\b)"},
        {LR"(C:a\b\..\..)", L"C:"},
        {LR"(C:a\..\..\b)", LR"(C:..\b)"},
        {LR"(ab:\..\d)", L"d"},
        {LR"(\)", LR"(\)"},
        {L"///", LR"(\)"},
        {LR"(/./\./x)", LR"(\.\x)"},
    };
    for (auto const& each : cases)
    {
        std::wstring text = each.text;
        text.resize(Detail::NormalizeNonExtendedLengthPath(text, text.data()));
        EXPECT_EQ(text, each.expected) << Path(each.text).ToStringA();
    }
}

TEST(PathNormalization, OfWholePaths)
{
    struct
    {
        wchar_t const* text;
        wchar_t const* expected;
    } const cases[] = {
        {L"C:/a/../b", LR"(C:\b)"},
        {LR"(\\server\share\a\..\b)", LR"(\\server\share\b)"},
        {LR"(\\server\\share)", LR"(\\server\share)"},
        {LR"(\\server/share/x)", LR"(\\server\share\x)"},
        {LR"(\\s\h\..)", LR"(\\s\)"},
        {LR"(\\s\h\..\..)", LR"(\\)"},
        {LR"(\\s\..)", LR"(\\)"},
        {LR"(\\server\..\x)", LR"(\\x)"},
        {LR"(\\server\share\dir\..\..\x)", LR"(\\server\x)"},
        {L"//s/h", LR"(\s\h)"},
        {LR"(/\s)", LR"(\s)"},
        {LR"(\\?\C:/a/../b)", LR"(\\?\C:/a/../b)"},
        {LR"(\\?\UNC\s\h\a\..\b)", LR"(\\?\UNC\s\h\a\..\b)"},
        {LR"(\\.\COM1)", LR"(\\?\COM1)"},
        {LR"(\\.\C:\a\..\b)", LR"(\\?\C:\a\..\b)"},
        {L"", L""},
    };
    for (auto const& each : cases)
        EXPECT_EQ(Path(each.text).Normalized().ToString(), each.expected);
}
