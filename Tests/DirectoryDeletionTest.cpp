// Deletion of directories of the first generation: what goes, what stops it and what is left then, and that nothing
// outside is ever touched.
#include "Support/ChildProcess.h"
#include "Support/Directories.h"
#include "Support/OpenHandle.h"

#include "Vok/DeletionGuard.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <sstream>
#include <thread>
#include <unistd.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using DirectoryDeletion = DirectoryTests;

TEST_F(DirectoryDeletion, TakesEverythingAndOfContentAllButTheTopDirectory)
{
    drive.Write("outside/precious");
    drive.Write("d/s/t/file");
    SetMode("d/s/t/file", 0444);
    std::filesystem::create_symlink(drive.Host("outside"), drive.Host("d/link"));
    LogRecorder const recorder;
    DirectoryInfo directory = fileSystem->MakeDirectoryInfo(drive.Path(L"d"));
    directory.DeleteContent();
    EXPECT_THAT(NamesIn(L"d"), IsEmpty());
    EXPECT_TRUE(drive.Exists("outside/precious"));
    drive.Write("d/s/t/file");
    EXPECT_TRUE(fileSystem->DeleteDirectory(drive.Path(L"d")));
    EXPECT_THAT(recorder.Statements(), IsEmpty());
    EXPECT_FALSE(fileSystem->DeleteDirectory(drive.Path(L"d")));
    directory.DeleteContent();
    std::string const statement = "info: Deleting directory that doesn't exist [" + Text(L"d") + "]";
    EXPECT_THAT(recorder.Lines(), ElementsAre(statement, statement));
}

TEST_F(DirectoryDeletion, StopsAtAFileThatIsHeld)
{
    for (wchar_t const* name : {L"d\\held", L"d\\s\\held"})
    {
        fileSystem->VokCreateDirectory(Path(drive.Path(name)).Parent());
        OpenHandle const held = Open(drive.Path(name), GENERIC_WRITE, FILE_SHARE_READ, CREATE_NEW);
        std::string const text = name[2] == L'h' ? "DeleteFileW [" + Text(name) + "]" : ""; // of the top directory only
        EXPECT_EQ(DeletionMessage(drive.Path(L"d")), DeletionFailure(32, text));
        std::filesystem::remove_all(drive.Host("d"));
    }
}

TEST(DeletionGuard, RefusesWhatNamesNoDirectoryBelowARoot)
{
    using Detail::CodeAgainstDeleting;
    EXPECT_EQ(CodeAgainstDeleting(L""), 87U);
    EXPECT_EQ(CodeAgainstDeleting(std::wstring_view(L"C:\\\0a", 5)), 123U);
    std::wistringstream roots(
        L"C: C:\\ \\ / . .. a\\.. C:. C:\\. C:\\a\\..\\ c:/a/../.. \\\\?\\C: \\\\?\\C:\\ \\\\.\\C:\\ //./C:/ "
        L"\\\\server\\share \\\\server\\share\\ \\\\server \\\\ \\\\?\\ "
        L"\\\\?\\UNC\\server\\share \\\\?\\uNc\\server\\share\\.");
    for (std::wstring root; roots >> root;)
        EXPECT_EQ(CodeAgainstDeleting(root), 5U) << WideToUtf8(root);
    for (wchar_t const* path : {L"a", L"C:a", L"C:\\a", L"\\a", L"..\\a", L"C:\\a\\b\\..", L"\\\\?\\C:\\a",
                                L"\\\\server\\share\\a", L"\\\\?\\UNC\\server\\share\\a", L"..."})
        EXPECT_EQ(CodeAgainstDeleting(path), 0U) << WideToUtf8(path);
}

TEST_F(DirectoryDeletion, RefusesWholeDrivesLinksFilesAndPatterns)
{
    drive.Write("outside/precious");
    drive.Write("d/x");
    for (auto const& [link, target] : {std::pair{"link", "outside"}, {"circle", "circle"}})
        std::filesystem::create_symlink(target, drive.Host(link));
    struct
    {
        std::vector<wchar_t const*> names;
        DWORD code;
        bool isNamed;
    } const cases[] = {
        {{L"", L"a\\.."}, ERROR_ACCESS_DENIED, true},
        {{L"link", L"link\\", L"link/", L"link\\."}, ERROR_DIRECTORY, true},
        {{L"outside\\precious"}, ERROR_DIRECTORY, false},
        {{L"circle"}, ERROR_CANT_RESOLVE_FILENAME, false},
        {{L"none?", L"d*", L"d\\*.none"}, ERROR_INVALID_NAME, false},
    };
    for (auto const& [names, code, isNamed] : cases)
        for (wchar_t const* name : names)
        {
            EXPECT_EQ(DeletionMessage(drive.Path(name)),
                      DeletionFailure(code, isNamed ? "Path [" + Text(name) + "]" : ""));
            DirectoryInfo directory = fileSystem->MakeDirectoryInfo(drive.Path(name));
            EXPECT_EQ(Thrown<WindowsError>([&] { directory.DeleteContent(); }).code().value(), static_cast<int>(code));
        }
    EXPECT_TRUE(drive.Exists("outside/precious") && drive.Exists("d/x"));
}

TEST_F(DirectoryDeletion, OfAPathThatDoesNotFitEndsTheProcess)
{
    std::size_t const most = MAX_PATH - 1 - drive.Path(L"d\\").size();
    for (std::size_t const length : {most, most + 1})
    {
        std::string const name = "d/" + std::string(length, 'x');
        drive.Write(name);
        int const status = InChild([&] { EXPECT_EQ(DeletionMessage(drive.Path(L"d")), noError); });
        EXPECT_EQ(status, length == most ? 0 : -SIGABRT);
        EXPECT_EQ(drive.Exists(name), length != most);
    }
}

TEST_F(DirectoryDeletion, RefusesReadOnlyDirectoriesAndNeedsRights)
{
    SetMode("", 0755);
    drive.Write("d/file");
    SetMode("d", 0555);
    std::string const path = Text(L"d");
    auto const expect = [&](std::string const& text)
    { EXPECT_EQ(DeletionMessage(drive.Path(L"d")), DeletionFailure(5, text)); };
    RunAsOrdinaryUser([&] { expect("DeleteFileW [" + path + "\\file]"); });
    SetMode("d", 0755);
    std::filesystem::remove(drive.Host("d/file"));
    SetMode("d", 0555);
    expect("Path [" + path + "]");
}

// A thread swaps something on the way to the files for a link, as fast as it can, to where files of the same names are.
TEST_F(DirectoryDeletion, IsLedNowhereByLinksThatAreSwappedIn)
{
    constexpr int files = 20;
    TestDrive const quick(QuickPlace());
    auto const makeTree = [&](std::string const& top)
    {
        std::filesystem::create_directories(quick.Host(top + "/a/b/c"));
        for (int i = 0; i < files; ++i)
            ::close(::open(quick.Host(top + "/a/b/c/" + std::to_string(i)).c_str(), O_CREAT | O_CLOEXEC, 0444));
    };
    makeTree("outside");
    int round = 0;
    for (std::string const place : {"", "/a", "/a/b", "/a/b/c", "/a/b/c/7"})
    {
        std::atomic<int> swaps{0};
        std::jthread swapper(
            [&, inside = quick.Host("d" + place), link = quick.Host("link")](std::stop_token const& stops)
            {
                while (!stops.stop_requested())
                    if (::renameat2(AT_FDCWD, inside.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE) == 0)
                        ++swaps;
            });
        auto const end = std::chrono::steady_clock::now() + std::chrono::milliseconds(TakesLong() ? 30'000 : 500);
        while (std::chrono::steady_clock::now() < end)
        {
            makeTree("fresh");
            std::filesystem::create_symlink(quick.Host("outside" + place), quick.Host("link"));
            std::filesystem::rename(quick.Host("fresh"), quick.Host("d"));
            WindowsError error;
            fileSystem->DeleteDirectory(quick.Path(L"d"), error);
            for (char const* name : {"d", "link"}) // in which a swap that has begun may still come
            {
                std::error_code ignored;
                std::string const rest = quick.Host("rest" + std::to_string(++round));
                std::filesystem::rename(quick.Host(name), rest, ignored);
                std::filesystem::remove_all(rest, ignored);
            }
        }
        swapper = {};
        EXPECT_GT(swaps, 0);
        for (int i = 0; i < files; ++i)
            EXPECT_EQ(quick.Mode("outside/a/b/c/" + std::to_string(i)), 0444U) << place;
    }
}

} // namespace
