// What the pieces of a path are.
#include "Support/LogRecorder.h"

#include <Brindle/Vok/Path.h>

#include <gmock/gmock.h>

#include <functional>
#include <string>

using namespace Brindle::Vok;
using Brindle::Vok::Testing::LogRecorder;

namespace
{

struct Pieces
{
    wchar_t const* text;
    std::wstring drive = {};
    std::wstring directory = {}; ///< as it is stored
    std::wstring directoryNormalized = {};
    std::wstring name = {};
    std::wstring extension = {};
    bool hasExtension = false;
    std::wstring server = {};
    std::wstring share = {};
};

Pieces const withoutPrefix[] = {
    {L""},
    {L"C:", L"C:"},
    {L"1:x", L"1:", L"", L"", L"x"},
    {L".bashrc", L"", L"", L"", L"", L".bashrc", true},
    {L"file.", L"", L"", L"", L"file", L"."},
    {L"..", L"", L"", L"", L".", L"."},
    {LR"(C:\a\b\c.tar.gz)", L"C:", LR"(a\b)", LR"(a\b)", L"c.tar", L".gz", true},
    {LR"(C:\x.y\)", L"C:", L"x.y", L"x.y"},
    {LR"(C:\a\b\.)", L"C:", LR"(a\b)", LR"(a\b)", L"", L"."},
    {LR"(C:\\x)", L"C:", L"", L"", L"x"},
    {LR"(a\\b)", L"", LR"(a\)", L"a", L"b"},
    {LR"(C:\a\..)", L"C:", L"a", L""},
    {LR"(C:\a\b\..\c.txt)", L"C:", LR"(a\b\..)", L"a", L"c", L".txt", true},
    {L"C:/a/b.txt", L"C:", L"", L"a", L"b", L".txt", true},
    {L"a.b/c", L"", L"", L"a.b", L"c", L"", true},
    {L"//server/share/x.txt", L"", L"", LR"(server\share)", L"x", L".txt", true},
    {LR"(a\..\C:x.txt)", L"C:", LR"(a\..)", L"", L"x", L".txt", true},
    {LR"(x:c\..\d:y.z)", L"x:", L"c\\..", L"", L"d:y", L".z", true},
};

Pieces const withPrefix[] = {
    {LR"(\\)"},
    {LR"(\\server)", L"", L"", L"", L"", L"", false, L"server"},
    {LR"(\\srv.dom\share)", L"", L"", L"", L"", L"", false, L"srv.dom", L"share"},
    {LR"(\\server\share\file.txt)", L"", L"", L"", L"file", L".txt", true, L"server", L"share"},
    {LR"(\\server\share\dir\..\..\x)", L"", LR"(dir\..\..)", L"", L"", L"", false, L"server", L"x"},
    {LR"(\\server\..\x)", L"", L"", L"", L"", L"", false, L"x"},
    {LR"(\\?\C:\a\..\b.txt)", L"C:", LR"(a\..)", LR"(a\..)", L"b", L".txt", true},
    {LR"(\\?\C:\\a)", L"C:", L"", L"", LR"(\a)"},
    {LR"(\\?\UNC\server\share\dir\f.txt)", L"", L"dir", L"dir", L"f", L".txt", true, L"server", L"share"},
    {LR"(\\?\unc\server\share)", L"", LR"(unc\server)", LR"(unc\server)", L"share"},
    {LR"(\\.\COM1)", L"", L"", L"", L"COM1"},
};

void ExpectPieces(Pieces const& pieces)
{
    Path const path(pieces.text);
    SCOPED_TRACE(path.ToStringA());
    EXPECT_EQ(path.DriveWithColon(), pieces.drive);
    EXPECT_EQ(path.Directory(), pieces.directory);
    EXPECT_EQ(path.DirectoryNormalized(), pieces.directoryNormalized);
    EXPECT_EQ(path.NameWithoutExtension(), pieces.name);
    EXPECT_EQ(path.ExtensionWithDot(), pieces.extension);
    EXPECT_EQ(path.NameWithExtension(), pieces.name + pieces.extension);
    EXPECT_EQ(path.HasExtension(), pieces.hasExtension);
    EXPECT_EQ(path.Server(), pieces.server);
    EXPECT_EQ(path.Share(), pieces.share);
}

} // namespace

TEST(PathPieces, OfTextsWithoutAPrefix)
{
    for (Pieces const& each : withoutPrefix)
        ExpectPieces(each);
}

TEST(PathPieces, OfTextsWithAPrefix)
{
    for (Pieces const& each : withPrefix)
        ExpectPieces(each);
}

TEST(PathPieces, DriveAndDirectoryShowTheRoot)
{
    struct
    {
        wchar_t const* text;
        wchar_t const* stored;
        wchar_t const* normalized;
    } const cases[] = {
        {L"C:x.txt", L"C:", L"C:"},
        {LR"(\x)", LR"(\)", LR"(\)"},
        {LR"(.\x)", L".", L"."},
        {LR"(C:\a\..)", LR"(C:\a)", LR"(C:\)"},
        {LR"(C:\.\a)", LR"(C:\.)", LR"(C:\)"},
        {LR"(C:\\x)", LR"(C:\)", LR"(C:\)"},
        {L"C:/a/b.txt", L"C:", LR"(C:\a)"},
        {L"//server/share/x.txt", L"", LR"(\server\share)"},
        {LR"(\\server)", LR"(\)", LR"(\)"},
        {LR"(\\server\share\dir\file.txt)", LR"(\dir)", LR"(\dir)"},
        {LR"(\\?\C:\)", LR"(C:\)", LR"(C:\)"},
    };
    for (auto const& each : cases)
    {
        Path const path(each.text);
        SCOPED_TRACE(path.ToStringA());
        EXPECT_EQ(path.DriveAndDirectory(), each.stored);
        EXPECT_EQ(path.Parent().ToString(), each.stored);
        EXPECT_EQ(path.DriveAndDirectoryNormalized(), each.normalized);
    }
}

TEST(PathPieces, ChangingTheExtension)
{
    struct
    {
        wchar_t const* text;
        wchar_t const* extension;
        wchar_t const* expected;
    } const cases[] = {
        {LR"(C:\a\b.txt)", L"doc", LR"(C:\a\b.doc)"},
        {LR"(C:\a\b.txt)", L".doc", LR"(C:\a\b.doc)"},
        {LR"(C:\a\b.txt)", L"", LR"(C:\a\b)"},
        {LR"(C:\a\b)", L"doc", LR"(C:\a\b.doc)"},
        {L"a.txt", L"a.b", L"a.a.b"},
        {L"file.", L"x", L"file.x"},
        {L".bashrc", L"x", L".x"},
        {L"..", L"x", L"..x"},
        {L"", L"txt", L".txt"},
        {L"C:/a.txt", L"b", L"C:/a.b"},
        {LR"(C:\a\b.txt\..\c.tar)", L"gz", LR"(C:\a\b.txt\..\c.gz)"},
        {LR"(C:\a\b.txt\..)", L"c", LR"(C:\a\b.txt\...c)"},
        {LR"(C:\a\b.txt\\)", L"x", LR"(C:\a\b.txt\\.x)"},
        {LR"(\\?\C:\a.txt)", L"x", LR"(\\?\C:\a.x)"},
        {LR"(\\server\share)", L"x", LR"(\\server\share.x)"},
    };
    for (auto const& each : cases)
        EXPECT_EQ(Path(each.text).WithChangedExtension(each.extension).ToString(), each.expected);
}

TEST(PathPieces, EachQuestionAboutAPrefixLogsADevicePath)
{
    Path const device(LR"(\\.\a\b.c)");
    struct
    {
        std::function<void()> run;
        std::size_t count;
    } const cases[] = {
        {[&] { device.Prefix(); }, 1},         {[&] { device.PrefixText(); }, 1},
        {[&] { device.Directory(); }, 2},      {[&] { Path::Merge(device, L"\\x"); }, 4},
        {[&] { (void)(device < device); }, 2}, {[&] { (void)(device == device); }, 6},
    };
    for (auto const& each : cases)
    {
        LogRecorder recorder;
        each.run();
        EXPECT_EQ(recorder.Statements().size(), each.count) << "case " << &each - cases;
        EXPECT_THAT(recorder.LinesWithFunction(),
                    testing::Each(R"(Brindle::Vok::Path::Prefix: Device path not supported [\\.\a\b.c])"));
    }
}
