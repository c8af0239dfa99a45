// Paths by example, and what they are made of and become. PathOracleTest.cpp holds all their rules.
#include "Support/LogRecorder.h"

#include <Brindle/Vok/Path.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>

using namespace Brindle::Vok;
using Brindle::Vok::Testing::LogRecorder;
using testing::ElementsAre;

TEST(Path, IsTakenApart)
{
    struct Row
    {
        wchar_t const* text;
        wchar_t const* prefix;
        wchar_t const* driveAndDirectory; ///< in the normal form
        wchar_t const* name;              ///< without the extension
        wchar_t const* extension;
        wchar_t const* server = L"";
        wchar_t const* share = L"";
    };
    for (Row const& row : {
             Row{LR"(C:\a\..\b\c.tar.gz)", L"", LR"(C:\b)", L"c.tar", L".gz"},
             Row{L"a.b/c", L"", L"a.b", L"c", L""},
             Row{LR"(a\..\C:x.txt)", L"", L"C:", L"x", L".txt"},
             Row{L".bashrc", L"", L"", L"", L".bashrc"},
             Row{L"..", L"", L"", L".", L"."},
             Row{LR"(\\server\..\x)", LR"(\\)", LR"(\)", L"", L"", L"x"},
             Row{LR"(\\?\C:\a\..\b.txt)", LR"(\\?\)", LR"(C:\a\..)", L"b", L".txt"},
             Row{LR"(\\?\UNC\server\share\f.txt)", LR"(\\?\UNC\)", LR"(\)", L"f", L".txt", L"server", L"share"},
         })
    {
        Path const path(row.text);
        SCOPED_TRACE(path.ToStringA());
        EXPECT_EQ(path.PrefixText(), row.prefix);
        EXPECT_EQ(path.DriveAndDirectoryNormalized(), row.driveAndDirectory);
        EXPECT_EQ(path.NameWithoutExtension(), row.name);
        EXPECT_EQ(path.ExtensionWithDot(), row.extension);
        EXPECT_EQ(path.Server(), row.server);
        EXPECT_EQ(path.Share(), row.share);
    }
}

TEST(Path, IsRewrittenJoinedAndMerged)
{
    std::pair<Path, wchar_t const*> const cases[] = {
        {Path(LR"(C:\a\b.txt)").WithChangedExtension(L"doc"), LR"(C:\a\b.doc)"},
        {Path(LR"(C:\a\b.txt\..)").WithChangedExtension(L"c"), LR"(C:\a\b.txt\...c)"},
        {Path(LR"(C:/a\\b\..\.\c)").Normalized(), LR"(C:\a\c)"},
        {Path(LR"(a\.\.\.\b)").Normalized(), LR"(a\.\b)"}, // of several in a row every second one stays
        {Path(LR"(..\..)").Normalized(), L""},
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
    for (LogStatement const& statement : recorder.Statements())
    {
        EXPECT_EQ(statement.severity, VokLogSeverity::error);
        EXPECT_STREQ(statement.file, "Source/Vok/Path.cpp");
    }
    char const* const names[] = {"none", "unc", "extendedLength", "extendedLengthUnc"};
    for (int prefix = 0; prefix < 4; ++prefix)
        EXPECT_EQ(ToStringA(static_cast<PathPrefix>(prefix)), names[prefix]);
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

TEST(Path, StandardPathsKeepTheText)
{
    std::wstring const texts[] = {L"",
                                  L"C:/a\\b.c",
                                  L"//server/..//x/.",
                                  L"\\\\?\\C:\\a",
                                  L"\u00E9\u4E00\uFFFD\uFFFF",
                                  L"a\xD83D\xDE00"
                                  L"b/\xDBFF\xDFFF"};
    for (std::wstring const& text : texts)
    {
        std::filesystem::path const path = Path(text).ToStdPath();
        std::u16string const units = path.u16string();
        EXPECT_EQ(std::wstring(units.begin(), units.end()), text);
        EXPECT_EQ(Path(path.string()).ToString(), text);
    }
    EXPECT_EQ(Path("C:/\xC3\xA9\xF0\x9F\x98\x80").ToStdPath(), std::filesystem::path(u8"C:/\u00E9\U0001F600"));
    // A lone surrogate, and what is no code unit of 16 bits.
    std::wstring const illFormed = {L'a', wchar_t(0xD83D), L'b', wchar_t(0xDE00), wchar_t(0x1F600)};
    EXPECT_EQ(Path(illFormed).ToStdPath(), std::filesystem::path(u8"a\uFFFDb\uFFFD\uFFFD"));
}

TEST(Path, StandsInFormatsOfBothWidths)
{
    class Derived : public Path
    {
        using Path::Path;
    };
    Path const path(L"C:\\\u00E9");
    EXPECT_EQ(FormatString("[{}] [{:>5}]", path, Derived(L"x")), "[C:\\\xC3\xA9] [    x]");
    EXPECT_EQ(FormatStringW(L"[{}] [{:>5}]", path, Derived(L"x")), L"[C:\\\u00E9] [    x]");
    EXPECT_EQ(FormatLogMessage(L"[{}]", path), "[C:\\\xC3\xA9]");
    LogRecorder recorder;
    VOK_LOG(info, "opened [{}]", path);
    EXPECT_THAT(recorder.Lines(), ElementsAre("info: opened [C:\\\xC3\xA9]"));
}

TEST(Path, AllocatesOnlyTheStringsThatItReturns)
{
    EXPECT_EQ(std::system(VOK_TEST_CHILDREN "/PathAllocations"), 0); // it counts what its whole process allocates
}
