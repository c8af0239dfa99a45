// Directories of the first generation, on a real disk.
#include "Support/Descriptors.h"
#include "Support/LogRecorder.h"
#include "Support/OpenHandle.h"
#include "Support/TestDrive.h"
#include "Support/Thrown.h"

#include "Vok/DeletionGuard.h"
#include "Vok/FileSystemImpl.h"

#include <Brindle/Vok/FileSystem.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class Directories : public testing::Test
{
protected:
    std::vector<std::wstring> NamesIn(std::wstring const& name, FileSystemIterateType type)
    {
        std::vector<std::wstring> names;
        FileSystemIterator iterator(fileSystem, drive.Path(name), type);
        for (; iterator != FileSystemIterator(); ++iterator)
            names.push_back(iterator->Path().NameWithExtension());
        std::sort(names.begin(), names.end());
        return names;
    }

    std::string MessageOf(std::string const& function, DWORD code, std::string const& text) const
    {
        return "Source/Vok/FileSystem.cpp: Brindle::Vok::" + function + " " + WindowsErrorToStringA(code) +
               " (Windows Error " + std::to_string(code) + ")." + (text.empty() ? "" : " " + text);
    }

    std::string Text(std::wstring const& name) const { return WideToUtf8(drive.Path(name)); }

    TestDrive drive;
    std::shared_ptr<FileSystem> const fileSystem = MakeFileSystem();
};

/// A service that sees what reaches it.
class WatchingService final : public FileSystem
{
public:
    TempDirectory MakeTempDirectory() override { return inner->MakeTempDirectory(); }
    PathInfo MakePathInfo(Path path) override { return inner->MakePathInfo(std::move(path)); }
    DirectoryInfo MakeDirectoryInfo(Path path) override { return inner->MakeDirectoryInfo(std::move(path)); }
    std::unique_ptr<File> MakeFile(Path path) override { return inner->MakeFile(std::move(path)); }
    void VokCreateDirectory(Path path) override { calls.push_back("create " + path.ToStringA()); }
    bool DeleteDirectory(Path path, Error&) override { return calls.push_back("delete& " + path.ToStringA()), true; }
    bool DeleteDirectory(Path path) override { return calls.push_back("delete " + path.ToStringA()), true; }

    std::vector<std::string> calls;
    std::shared_ptr<FileSystem> inner = MakeFileSystem();
};

TEST_F(Directories, AnAnswerIsKeptUntilRefresh)
{
    PathInfo info = fileSystem->MakePathInfo(drive.Path(L"file"));
    EXPECT_FALSE(info.Exists() || info.IsDirectory() || info.IsFile());
    EXPECT_EQ(info.Attributes(), FileAttributes::none);
    drive.Write("file");
    EXPECT_FALSE(info.Exists());
    PathInfo copy = info;
    info.Refresh();
    EXPECT_TRUE(info.Exists() && info.IsFile());
    EXPECT_FALSE(copy.Exists());
    EXPECT_FALSE(info.Delete());
    EXPECT_TRUE(drive.Exists("file"));
    info = DirectoryInfo(drive.Path(), fileSystem);
    EXPECT_TRUE(info.IsDirectory());
    DirectoryInfo directory = fileSystem->MakeDirectoryInfo(drive.Path(L"new"));
    directory.Create();
    directory.MoveTo(drive.Path(L"elsewhere"));
    EXPECT_TRUE(directory.Exists());
    EXPECT_EQ(directory.ToString(), drive.Path(L"new"));
    EXPECT_EQ(directory.CreateSubdirectory(L"x\\y").ToString(), drive.Path(L"new\\x\\y"));
    EXPECT_TRUE(drive.Exists("new/x/y"));
    EXPECT_TRUE(directory.Delete());
    EXPECT_FALSE(directory.Delete());
}

TEST_F(Directories, AServiceSeesWhatIsItsOwn)
{
    auto const service = std::make_shared<WatchingService>();
    drive.Write("d/file");
    DirectoryInfo directory(drive.Path(L"d"), service);
    directory.Create();
    directory.CreateSubdirectory(L"s");
    directory.Delete();
    directory.DeleteContent();
    EXPECT_FALSE(drive.Exists("d/file"));
    {
        TempDirectory temporary(service, drive.Path(L"t"));
        temporary.Delete();
    }
    EXPECT_THAT(service->calls, ElementsAre("create " + Text(L"d"), "create " + Text(L"d\\s"), "delete " + Text(L"d"),
                                            "delete& " + Text(L"t"), "delete& " + Text(L"t")));
}

TEST_F(Directories, CreationMakesParentsAndNamesWhatFails)
{
    fileSystem->VokCreateDirectory(drive.Path(L"a\\b\\c"));
    fileSystem->VokCreateDirectory(drive.Path(L"a\\b\\c"));
    EXPECT_TRUE(drive.Exists("a/b/c"));
    auto const error = Thrown<WindowsError>([&] { fileSystem->VokCreateDirectory(L"Q:\\a\\b"); });
    EXPECT_EQ(WithoutLine(error.Message()),
              MessageOf("FileSystemImpl::VokCreateDirectory", 3, "CreateDirectory [Q:\\a]"));
    FileSystemImpl unshared;
    EXPECT_THROW(unshared.MakePathInfo(drive.Path()), std::bad_weak_ptr);
    EXPECT_TRUE(unshared.MakeFile(drive.Path(L"file")));
}

TEST_F(Directories, AreWalkedByKind)
{
    EXPECT_THAT(NamesIn(L"", FileSystemIterateType::All), IsEmpty());
    drive.Write("a");
    drive.Write("..x");
    drive.Write("s/inner");
    ASSERT_EQ(::symlink("missing", drive.Host("dangling").c_str()), 0);
    EXPECT_THAT(NamesIn(L"", FileSystemIterateType::All), ElementsAre(L"..x", L"a", L"dangling", L"s"));
    EXPECT_THAT(NamesIn(L"", FileSystemIterateType::Files), ElementsAre(L"..x", L"a", L"dangling"));
    EXPECT_THAT(NamesIn(L"", FileSystemIterateType::Directories), ElementsAre(L"s"));

    DirectoryInfo directory = fileSystem->MakeDirectoryInfo(drive.Path());
    FileSystemIterator first = directory.begin();
    EXPECT_FALSE(first == first);
    FileSystemIterator second = std::move(first);
    EXPECT_EQ(first, directory.end());
    std::ptrdiff_t const rest = std::ranges::distance(std::move(second), std::default_sentinel);
    EXPECT_EQ(rest, 4);

    auto const missing = Thrown<WindowsError>([&] { NamesIn(L"none", FileSystemIterateType::All); });
    EXPECT_EQ(WithoutLine(missing.Message()),
              MessageOf("FileSystemIterator::FileSystemIterator", 3, "FindFirstFileW [" + Text(L"none") + "]"));
    FileSystemIterator end;
    auto const further = Thrown<WindowsError>([&] { ++end; });
    EXPECT_EQ(WithoutLine(further.Message()), MessageOf("FileSystemIterator::increment", 6, "FindNextFileW"));
}

TEST_F(Directories, AreDeletedWithEverythingInThem)
{
    drive.Write("outside/precious");
    drive.Write("d/s/t/file");
    drive.Write("d/\xFF:\xF0\x9F\x98\x80 .");
    drive.Write("d/readonly");
    ASSERT_EQ(::chmod(drive.Host("d/readonly").c_str(), 0444), 0);
    ASSERT_EQ(::symlink(drive.Host("outside").c_str(), drive.Host("d/link").c_str()), 0);
    ASSERT_EQ(::symlink("nowhere", drive.Host("d/dangling").c_str()), 0);
    ASSERT_EQ(::mkfifo(drive.Host("d/pipe").c_str(), 0666), 0);
    std::size_t const descriptors = OpenDescriptors();
    LogRecorder const recorder;
    EXPECT_TRUE(fileSystem->DeleteDirectory(drive.Path(L"d")));
    EXPECT_FALSE(drive.Exists("d"));
    EXPECT_TRUE(drive.Exists("outside/precious"));
    EXPECT_FALSE(fileSystem->DeleteDirectory(drive.Path(L"d")));
    EXPECT_THAT(recorder.LinesWithFunction(),
                ElementsAre("Brindle::Vok::FileSystemImpl::DeleteDirectoryInternal: Deleting directory that doesn't "
                            "exist [" +
                            Text(L"d") + "]"));
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(Directories, AHeldFileStopsTheirDeletion)
{
    drive.Write("d/held");
    drive.Write("d/s/held");
    std::string const function = "FileSystemImpl::DeleteDirectoryInternal";
    {
        OpenHandle const held = Open(drive.Path(L"d\\s\\held"), GENERIC_READ);
        std::filesystem::remove(drive.Host("d/held"));
        auto const error = Thrown<WindowsError>([&] { fileSystem->DeleteDirectory(drive.Path(L"d")); });
        EXPECT_EQ(WithoutLine(error.Message()), MessageOf(function, 32, ""));
    }
    OpenHandle const held = Open(drive.Path(L"d\\s\\held"), GENERIC_READ);
    WindowsError error;
    EXPECT_TRUE(fileSystem->DeleteDirectory(drive.Path(L"d\\s"), error));
    EXPECT_EQ(WithoutLine(error.Message()), MessageOf(function, 32, "DeleteFileW [" + Text(L"d\\s\\held") + "]"));
    drive.Write("file");
    EXPECT_TRUE(fileSystem->DeleteDirectory(drive.Path(L"file"), error));
    EXPECT_EQ(error.code().value(), 267);
}

TEST(DeletionGuard, RefusesWhatNamesNoDirectoryBelowARoot)
{
    using Detail::CodeAgainstDeleting;
    EXPECT_EQ(CodeAgainstDeleting(L""), 87U);
    EXPECT_EQ(CodeAgainstDeleting(std::wstring_view(L"C:\\\0a", 5)), 123U);
    for (wchar_t const* root : {L"C:",
                                L"C:\\",
                                L"\\",
                                L"/",
                                L".",
                                L"..",
                                L"a\\..",
                                L"C:.",
                                L"C:\\.",
                                L"C:\\a\\..\\",
                                L"c:/a/../..",
                                L"\\\\?\\C:",
                                L"\\\\?\\C:\\",
                                L"\\\\.\\C:\\",
                                L"//./C:/",
                                L"\\\\server\\share",
                                L"\\\\server\\share\\",
                                L"\\\\server",
                                L"\\\\",
                                L"\\\\?\\",
                                L"\\\\?\\UNC\\server\\share",
                                L"\\\\?\\uNc\\server\\share\\."})
        EXPECT_EQ(CodeAgainstDeleting(root), 5U) << WideToUtf8(root);
    for (wchar_t const* path : {L"a", L"C:a", L"C:\\a", L"\\a", L"..\\a", L"C:\\a\\b\\..", L"\\\\?\\C:\\a",
                                L"\\\\server\\share\\a", L"\\\\?\\UNC\\server\\share\\a", L"..."})
        EXPECT_EQ(CodeAgainstDeleting(path), 0U) << WideToUtf8(path);
}

TEST_F(Directories, AWholeDriveIsNotDeleted)
{
    drive.Write("file");
    for (std::wstring const& root : {drive.Path(), drive.Path(L"a\\.."), L"\\\\?\\" + drive.Path()})
    {
        WindowsError error;
        EXPECT_TRUE(fileSystem->DeleteDirectory(root, error));
        EXPECT_EQ(WithoutLine(error.Message()),
                  MessageOf("FileSystemImpl::DeleteDirectoryInternal", 5, "Path [" + WideToUtf8(root) + "]"));
        EXPECT_EQ(Thrown<WindowsError>([&] { DirectoryInfo(root, fileSystem).DeleteContent(); }).code().value(), 5);
    }
    EXPECT_TRUE(drive.Exists("file"));
}

TEST_F(Directories, APathThatDoesNotFitEndsTheProcess)
{
    std::string const deep = "d/" + std::string(120, 'x') + "/" + std::string(140, 'y');
    drive.Write(deep + "/file");
    drive.Write("d/" + std::string(120, 'x') + "/file");
    pid_t const child = ::fork();
    if (child == 0)
    {
        fileSystem->DeleteDirectory(drive.Path(L"d"));
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_TRUE(drive.Exists(deep + "/file"));
}

TEST_F(Directories, TemporaryOnesGoWithTheirOwner)
{
    ::setenv("TEMP", drive.Host("tmp").c_str(), 1);
    LogRecorder const recorder(VokLogSeverity::info);
    {
        TempDirectory first = fileSystem->MakeTempDirectory();
        std::wstring const path = first.Path().ToString();
        drive.Write("tmp/" + WideToUtf8(first.Path().NameWithExtension()) + "/file");
        TempDirectory second = std::move(first);
        EXPECT_TRUE(fileSystem->MakePathInfo(path).Exists());
        second = TempDirectory(fileSystem, drive.Path(L"never made"));
        EXPECT_FALSE(fileSystem->MakePathInfo(path).Exists());
    }
    EXPECT_THAT(recorder.Lines(),
                ElementsAre("info: Deleting directory that doesn't exist [" + Text(L"never made") + "]"));
    ::unsetenv("TEMP");
}

TEST_F(Directories, ATemporaryOneThatStaysIsLogged)
{
    drive.Write("t/file");
    OpenHandle const held = Open(drive.Path(L"t\\file"), GENERIC_READ);
    LogRecorder const recorder(VokLogSeverity::error);
    {
        TempDirectory const temporary(fileSystem, drive.Path(L"t"));
    }
    ASSERT_EQ(recorder.Statements().size(), 1U);
    EXPECT_STREQ(recorder.Statements()[0].function, "Brindle::Vok::TempDirectory::Impl::~Impl");
    EXPECT_TRUE(recorder.Statements()[0].message.starts_with("Failed to delete TempDirectory[" + Text(L"t") +
                                                             "] error[Source/Vok/FileSystem.cpp("));
}

TEST_F(Directories, LinksPutInTheirPlaceLeadNowhere)
{
    for (int i = 0; i < 20; ++i)
        drive.Write("outside/precious" + std::to_string(i));
    std::atomic<bool> stops{false};
    std::thread swapper(
        [&]
        {
            std::string const place = drive.Host("d/sub");
            while (!stops)
            {
                std::error_code ignored;
                std::filesystem::rename(place, drive.Host("aside"), ignored);
                std::filesystem::create_symlink(drive.Host("outside"), place, ignored);
                std::filesystem::remove(place, ignored);
                std::filesystem::rename(drive.Host("aside"), place, ignored);
            }
        });
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (std::chrono::steady_clock::now() < end)
    {
        std::error_code ignored;
        for (int i = 0; i < 20; ++i)
        {
            std::filesystem::create_directories(drive.Host("d/sub"), ignored);
            int const file = ::open(drive.Host("d/sub/file" + std::to_string(i)).c_str(), O_CREAT | O_CLOEXEC, 0666);
            if (file >= 0)
                ::close(file);
        }
        WindowsError error;
        fileSystem->DeleteDirectory(drive.Path(L"d"), error);
    }
    stops = true;
    swapper.join();
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(drive.Exists("outside/precious" + std::to_string(i)));
}

} // namespace
