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

TEST(Path, IsClassifiedByItsText)
{
    struct
    {
        wchar_t const* text;
        PathPrefix prefix;
        char const* prefixName;
        wchar_t const* prefixText;
        bool isUnc;
        bool isExtendedLength;
        bool isRelative;
    } const cases[] = {
        {L"", PathPrefix::none, "none", L"", false, false, true},
        {L"a", PathPrefix::none, "none", L"", false, false, true},
        {LR"(\)", PathPrefix::none, "none", L"", false, false, true},
        {LR"(\x)", PathPrefix::none, "none", L"", false, false, false},
        {L"C:", PathPrefix::none, "none", L"", false, false, true},
        {L"C:x.txt", PathPrefix::none, "none", L"", false, false, true},
        {LR"(C:\)", PathPrefix::none, "none", L"", false, false, false},
        {LR"(?:\)", PathPrefix::none, "none", L"", false, false, false},
        {L"C:/a/b.txt", PathPrefix::none, "none", L"", false, false, true},
        {L"//server/share/x.txt", PathPrefix::none, "none", L"", false, false, true},
        {LR"(\\)", PathPrefix::unc, "unc", LR"(\\)", true, false, false},
        {LR"(\\server\share)", PathPrefix::unc, "unc", LR"(\\)", true, false, false},
        {LR"(\\?\C:\a)", PathPrefix::extendedLength, "extendedLength", LR"(\\?\)", false, true, false},
        {LR"(\\?\UNC\)", PathPrefix::extendedLengthUnc, "extendedLengthUnc", LR"(\\?\UNC\)", true, true, false},
        {LR"(\\?\unc\server\share)", PathPrefix::extendedLength, "extendedLength", LR"(\\?\)", false, true, false},
        {LR"(\\.\COM1)", PathPrefix::extendedLength, "extendedLength", LR"(\\?\)", false, true, false},
    };
    for (auto const& each : cases)
    {
        Path const path(each.text);
        SCOPED_TRACE(path.ToStringA());
        EXPECT_EQ(path.Prefix(), each.prefix);
        EXPECT_EQ(ToStringA(path.Prefix()), each.prefixName);
        EXPECT_EQ(path.PrefixText(), each.prefixText);
        EXPECT_EQ(path.IsUnc(), each.isUnc);
        EXPECT_EQ(path.IsExtendedLength(), each.isExtendedLength);
        EXPECT_EQ(path.IsRelative(), each.isRelative);
        EXPECT_EQ(path.ToString(), each.text);
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
