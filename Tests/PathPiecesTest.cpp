// What the pieces of a path are.
#include "Support/LogRecorder.h"

#include <Brindle/Vok/Path.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

using namespace Brindle::Vok;
using Brindle::Vok::Testing::LogRecorder;

TEST(PathPieces, OfTheNormalisedText)
{
    struct
    {
        wchar_t const* text;
        std::wstring remainder;
        PathPrefix prefix;
        bool rooted;
        std::wstring drive;
        std::wstring directory;
        std::wstring name;
        std::wstring extension;
        std::wstring server;
        std::wstring share;
    } const cases[] = {
        {L"", L"", PathPrefix::none, false, L"", L"", L"", L"", L"", L""},
        {L"a", L"a", PathPrefix::none, false, L"", L"", L"a", L"", L"", L""},
        {L"a.b", L"a.b", PathPrefix::none, false, L"", L"", L"a", L".b", L"", L""},
        {L".bashrc", L".bashrc", PathPrefix::none, false, L"", L"", L"", L".bashrc", L"", L""},
        {L"file.", L"file.", PathPrefix::none, false, L"", L"", L"file", L".", L"", L""},
        {L".", L".", PathPrefix::none, false, L"", L"", L"", L".", L"", L""},
        {L"..", L"..", PathPrefix::none, false, L"", L"", L".", L".", L"", L""},
        {LR"(..\x)", LR"(..\x)", PathPrefix::none, false, L"", L"..", L"x", L"", L"", L""},
        {L"C:", L"C:", PathPrefix::none, false, L"C:", L"", L"", L"", L"", L""},
        {L"1:x", L"1:x", PathPrefix::none, false, L"1:", L"", L"x", L"", L"", L""},
        {L"C:x.txt", L"C:x.txt", PathPrefix::none, false, L"C:", L"", L"x", L".txt", L"", L""},
        {LR"(C:\)", LR"(C:\)", PathPrefix::none, true, L"C:", L"", L"", L"", L"", L""},
        {LR"(C:\a\b.txt)", LR"(C:\a\b.txt)", PathPrefix::none, true, L"C:", L"a", L"b", L".txt", L"", L""},
        {LR"(C:\a\b\c.tar.gz)", LR"(C:\a\b\c.tar.gz)", PathPrefix::none, true, L"C:", LR"(a\b)", L"c.tar", L".gz", L"",
         L""},
        {LR"(C:\x\)", LR"(C:\x\)", PathPrefix::none, true, L"C:", L"x", L"", L"", L"", L""},
        {LR"(C:\x.y\)", LR"(C:\x.y\)", PathPrefix::none, true, L"C:", L"x.y", L"", L"", L"", L""},
        {LR"(C:\a.b\c)", LR"(C:\a.b\c)", PathPrefix::none, true, L"C:", L"a.b", L"c", L"", L"", L""},
        {LR"(C:\a\b\\)", LR"(C:\a\b\)", PathPrefix::none, true, L"C:", LR"(a\b)", L"", L"", L"", L""},
        {LR"(C:\a\b\.)", LR"(C:\a\b\.)", PathPrefix::none, true, L"C:", LR"(a\b)", L"", L".", L"", L""},
        {LR"(C:\a\..)", LR"(C:\)", PathPrefix::none, true, L"C:", L"", L"", L"", L"", L""},
        {LR"(C:\..\x)", LR"(C:\..\x)", PathPrefix::none, true, L"C:", L"..", L"x", L"", L"", L""},
        {L"C:/a/b.txt", LR"(C:\a\b.txt)", PathPrefix::none, true, L"C:", L"a", L"b", L".txt", L"", L""},
        {LR"(\a\b.txt)", LR"(\a\b.txt)", PathPrefix::none, true, L"", L"a", L"b", L".txt", L"", L""},
        {LR"(\x)", LR"(\x)", PathPrefix::none, true, L"", L"", L"x", L"", L"", L""},
        {L"//server/share/x.txt", LR"(\server\share\x.txt)", PathPrefix::none, true, L"", LR"(server\share)", L"x",
         L".txt", L"", L""},
        {LR"(\\)", L"", PathPrefix::unc, true, L"", L"", L"", L"", L"", L""},
        {LR"(\\server)", L"server", PathPrefix::unc, true, L"", L"", L"", L"", L"server", L""},
        {LR"(\\server\share)", LR"(server\share)", PathPrefix::unc, true, L"", L"", L"", L"", L"server", L"share"},
        {LR"(\\srv.dom\share)", LR"(srv.dom\share)", PathPrefix::unc, true, L"", L"", L"", L"", L"srv.dom", L"share"},
        {LR"(\\server\share\file.txt)", LR"(server\share\file.txt)", PathPrefix::unc, true, L"", L"", L"file", L".txt",
         L"server", L"share"},
        {LR"(\\server\share\dir\file.txt)", LR"(server\share\dir\file.txt)", PathPrefix::unc, true, L"", L"dir",
         L"file", L".txt", L"server", L"share"},
        {LR"(\\server\share\d\)", LR"(server\share\d\)", PathPrefix::unc, true, L"", L"d", L"", L"", L"server",
         L"share"},
        {LR"(\\server\share\dir\..\..\x)", LR"(server\x)", PathPrefix::unc, true, L"", L"", L"", L"", L"server", L"x"},
        {LR"(\\server\..\x)", L"x", PathPrefix::unc, true, L"", L"", L"", L"", L"x", L""},
        {LR"(\\?\)", L"", PathPrefix::extendedLength, false, L"", L"", L"", L"", L"", L""},
        {LR"(\\?\C:)", L"C:", PathPrefix::extendedLength, false, L"C:", L"", L"", L"", L"", L""},
        {LR"(\\?\C:\a\..\b.txt)", LR"(C:\a\..\b.txt)", PathPrefix::extendedLength, true, L"C:", LR"(a\..)", L"b",
         L".txt", L"", L""},
        {LR"(\\?\C:\\a)", LR"(C:\\a)", PathPrefix::extendedLength, true, L"C:", L"", LR"(\a)", L"", L"", L""},
        {LR"(\\?\UNC\)", L"", PathPrefix::extendedLengthUnc, true, L"", L"", L"", L"", L"", L""},
        {LR"(\\?\UNC\server\share\dir\f.txt)", LR"(server\share\dir\f.txt)", PathPrefix::extendedLengthUnc, true, L"",
         L"dir", L"f", L".txt", L"server", L"share"},
        {LR"(\\?\unc\server\share)", LR"(unc\server\share)", PathPrefix::extendedLength, false, L"", LR"(unc\server)",
         L"share", L"", L"", L""},
        {LR"(\\.\COM1)", L"COM1", PathPrefix::extendedLength, false, L"", L"", L"COM1", L"", L"", L""},
        {LR"(\\.\C:\a\b.txt)", LR"(C:\a\b.txt)", PathPrefix::extendedLength, true, L"C:", L"a", L"b", L".txt", L"",
         L""},
    };
    for (auto const& each : cases)
    {
        Path const path(each.text);
        SCOPED_TRACE(path.ToStringA());
        EXPECT_EQ(path.Prefix(), each.prefix);
        EXPECT_EQ(path.Normalized().ToString(), path.PrefixText() + each.remainder);
        EXPECT_EQ(path.DriveWithColon(), each.drive);
        EXPECT_EQ(path.Server(), each.server);
        EXPECT_EQ(path.Share(), each.share);
        EXPECT_EQ(path.DirectoryNormalized(), each.directory);
        EXPECT_EQ(path.DriveAndDirectoryNormalized(), each.drive + (each.rooted ? L"\\" : L"") + each.directory);
        EXPECT_EQ(path.NameWithoutExtension(), each.name);
        EXPECT_EQ(path.ExtensionWithDot(), each.extension);
        EXPECT_EQ(path.NameWithExtension(), each.name + each.extension);
    }
}

TEST(PathPieces, OfTheStoredText)
{
    struct
    {
        wchar_t const* text;
        wchar_t const* directory;
        wchar_t const* directoryNormalized;
        wchar_t const* driveAndDirectory;
        wchar_t const* driveAndDirectoryNormalized;
    } const cases[] = {
        {LR"(C:\a\b.txt)", L"a", L"a", LR"(C:\a)", LR"(C:\a)"},
        {LR"(C:\a\b\c.tar.gz)", LR"(a\b)", LR"(a\b)", LR"(C:\a\b)", LR"(C:\a\b)"},
        {LR"(C:\x\)", L"x", L"x", LR"(C:\x)", LR"(C:\x)"},
        {LR"(C:\)", L"", L"", LR"(C:\)", LR"(C:\)"},
        {L"C:", L"", L"", L"C:", L"C:"},
        {L"C:x.txt", L"", L"", L"C:", L"C:"},
        {LR"(\x)", L"", L"", LR"(\)", LR"(\)"},
        {L"a", L"", L"", L"", L""},
        {LR"(.\x)", L".", L".", L".", L"."},
        {LR"(C:\a\b\\)", LR"(a\b\)", LR"(a\b)", LR"(C:\a\b\)", LR"(C:\a\b)"},
        {LR"(a\\b)", LR"(a\)", L"a", LR"(a\)", L"a"},
        {LR"(C:\\x)", L"", L"", LR"(C:\)", LR"(C:\)"},
        {LR"(C:\a\..)", L"a", L"", LR"(C:\a)", LR"(C:\)"},
        {LR"(C:\a\b\..\c.txt)", LR"(a\b\..)", L"a", LR"(C:\a\b\..)", LR"(C:\a)"},
        {LR"(C:\.\a)", L".", L"", LR"(C:\.)", LR"(C:\)"},
        {L"C:/a/b.txt", L"", L"a", L"C:", LR"(C:\a)"},
        {LR"(C:\a/b\c.d)", L"a/b", LR"(a\b)", LR"(C:\a/b)", LR"(C:\a\b)"},
        {L"//server/share/x.txt", L"", LR"(server\share)", L"", LR"(\server\share)"},
        {LR"(\\server\share)", L"", L"", LR"(\)", LR"(\)"},
        {LR"(\\server\share\dir\file.txt)", L"dir", L"dir", LR"(\dir)", LR"(\dir)"},
        {LR"(\\?\C:\)", L"", L"", LR"(C:\)", LR"(C:\)"},
        {LR"(\\?\C:\a\..\b.txt)", LR"(a\..)", LR"(a\..)", LR"(C:\a\..)", LR"(C:\a\..)"},
        {LR"(\\?\UNC\server\share\dir\f.txt)", L"dir", L"dir", LR"(\dir)", LR"(\dir)"},
        {LR"(\\.\COM1)", L"", L"", L"", L""},
    };
    for (auto const& each : cases)
    {
        Path const path(each.text);
        SCOPED_TRACE(path.ToStringA());
        EXPECT_EQ(path.Directory(), each.directory);
        EXPECT_EQ(path.DirectoryNormalized(), each.directoryNormalized);
        EXPECT_EQ(path.DriveAndDirectory(), each.driveAndDirectory);
        EXPECT_EQ(path.Parent().ToString(), each.driveAndDirectory);
        EXPECT_EQ(path.DriveAndDirectoryNormalized(), each.driveAndDirectoryNormalized);
    }
}

TEST(PathPieces, NamesAndExtensions)
{
    struct
    {
        wchar_t const* text;
        wchar_t const* withExtension;
        wchar_t const* withoutExtension;
        wchar_t const* extension;
        bool hasExtension;
    } const cases[] = {
        {LR"(C:\a\b.txt)", L"b.txt", L"b", L".txt", true},
        {LR"(C:\a\b\c.tar.gz)", L"c.tar.gz", L"c.tar", L".gz", true},
        {LR"(C:\a.b\c)", L"c", L"c", L"", false},
        {L".bashrc", L".bashrc", L"", L".bashrc", true},
        {L"file.", L"file.", L"file", L".", false},
        {L".", L".", L"", L".", false},
        {L"..", L"..", L".", L".", false},
        {LR"(C:\.)", L".", L"", L".", false},
        {LR"(C:\a\b\\)", L"", L"", L"", false},
        {LR"(C:\a\..)", L"", L"", L"", false},
        {L"a.b/c", L"c", L"c", L"", true},
        {LR"(\\srv.dom\share)", L"", L"", L"", false},
        {LR"(\\server\share\file.txt)", L"file.txt", L"file", L".txt", true},
        {LR"(\\?\C:\\a)", LR"(\a)", LR"(\a)", L"", false},
        {LR"(a\..\C:x.txt)", L"x.txt", L"x", L".txt", true},
        {LR"(x:c\..\d:y.z)", L"d:y.z", L"d:y", L".z", true},
        {LR"(a.\b)", L"b", L"b", L"", false},
    };
    for (auto const& each : cases)
    {
        Path const path(each.text);
        SCOPED_TRACE(path.ToStringA());
        EXPECT_EQ(path.NameWithExtension(), each.withExtension);
        EXPECT_EQ(path.NameWithoutExtension(), each.withoutExtension);
        EXPECT_EQ(path.ExtensionWithDot(), each.extension);
        EXPECT_EQ(path.HasExtension(), each.hasExtension);
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

TEST(PathPieces, ADevicePathIsLoggedForEachQuestionAboutItsPrefix)
{
    Path const device(LR"(\\.\a\b.c)");
    struct
    {
        std::function<void()> run;
        std::size_t count;
    } const cases[] = {
        {[&] { device.Prefix(); }, 1},
        {[&] { device.PrefixText(); }, 1},
        {[&] { device.IsUnc(); }, 1},
        {[&] { device.IsExtendedLength(); }, 1},
        {[&] { device.IsRelative(); }, 0},
        {[&] { device.HasExtension(); }, 0},
        {[&] { device.DriveWithColon(); }, 2},
        {[&] { device.Server(); }, 2},
        {[&] { device.Share(); }, 2},
        {[&] { device.Directory(); }, 2},
        {[&] { device.DirectoryNormalized(); }, 2},
        {[&] { device.DriveAndDirectory(); }, 2},
        {[&] { device.DriveAndDirectoryNormalized(); }, 2},
        {[&] { device.Parent(); }, 2},
        {[&] { device.NameWithExtension(); }, 2},
        {[&] { device.NameWithoutExtension(); }, 2},
        {[&] { device.ExtensionWithDot(); }, 2},
        {[&] { device.WithChangedExtension(L"x"); }, 2},
        {[&] { device.Normalized(); }, 2},
        {[&] { Path::Join(device, device); }, 0},
        {[&] { Path::Merge(device, L"x"); }, 2},
        {[&] { Path::Merge(device, L"\\x"); }, 4},
        {[&] { (void)(device < device); }, 2},
        {[&] { (void)(device == device); }, 6},
        {[&] { std::hash<Path>()(device); }, 0},
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
