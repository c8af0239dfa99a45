// Directories of the first generation, on a real disk: questions, what a service sees, creation, temporary ones.
#include "Support/Directories.h"
#include "Support/HostFaults.h"
#include "Support/HostVariable.h"
#include "Support/OpenHandle.h"

#include "Vok/FileSystemImpl.h"

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::ElementsAre;

namespace
{

using Directories = DirectoryTests;

TEST_F(Directories, AreAskedForByTheFirstQuestionThatSucceedsUntilRefresh)
{
    PathInfo info = fileSystem->MakePathInfo(drive.Path(L"file"));
    {
        SystemCalls::Redirection const refused(SystemCalls::StatusAt, FailingWith(EACCES));
        EXPECT_EQ(WithoutLine(Thrown<WindowsError>([&] { info.Exists(); }).Message()),
                  MessageOf("PathInfo::Impl::Load", 5, "GetFileAttributes [" + Text(L"file") + "]"));
    }
    EXPECT_FALSE(info.Exists() || info.IsDirectory() || info.IsFile());
    EXPECT_EQ(info.Attributes(), FileAttributes::none);
    drive.Write("file");
    PathInfo copy = info;
    info.Refresh();
    EXPECT_TRUE(info.Exists() && info.IsFile());
    EXPECT_FALSE(copy.Exists());
    EXPECT_FALSE(info.Delete());
    EXPECT_TRUE(drive.Exists("file"));
    EXPECT_EQ(WithoutLine(Thrown<WindowsError>([&] { fileSystem->VokCreateDirectory(L"Q:\\a\\b"); }).Message()),
              MessageOf("FileSystemImpl::VokCreateDirectory", 3, "CreateDirectory [Q:\\a]"));
    EXPECT_THROW(FileSystemImpl().MakePathInfo(drive.Path()), std::bad_weak_ptr);
}

TEST_F(Directories, AreAssignedWithTheirAnswersAndGoTheirOwnWay)
{
    DirectoryInfo directory = fileSystem->MakeDirectoryInfo(drive.Path(L"new"));
    directory.Create();
    EXPECT_EQ(directory.CreateSubdirectory(L"x\\y").ToString(), drive.Path(L"new\\x\\y"));
    EXPECT_TRUE(drive.Exists("new/x/y"));
    PathInfo info = fileSystem->MakePathInfo(drive.Path(L"missing"));
    EXPECT_TRUE(!info.Exists() && directory.Exists());
    info = directory;
    DirectoryInfo other = fileSystem->MakeDirectoryInfo(drive.Path(L"other"));
    other = std::as_const(directory);
    other = *&other;
    directory.MoveTo(drive.Path(L"elsewhere"));
    EXPECT_EQ(directory.ToString(), drive.Path(L"new"));
    EXPECT_TRUE(directory.Delete());
    EXPECT_FALSE(directory.Delete());
    EXPECT_EQ(info.ToString(), drive.Path(L"new"));
    EXPECT_TRUE(info.Exists());
    EXPECT_TRUE(other.Exists() && !directory.Exists());
}

TEST_F(Directories, TemporaryOnesGoWithTheirOwner)
{
    HostVariable const temp("TEMP", drive.Host("tmp").c_str());
    LogRecorder const recorder(VokLogSeverity::info);
    {
        TempDirectory first = fileSystem->MakeTempDirectory();
        std::wstring const path = first.Path().ToString();
        drive.Write("tmp/" + WideToUtf8(first.Path().NameWithExtension()) + "/file");
        TempDirectory second = std::move(first);
        second = TempDirectory(fileSystem, drive.Path(L"t"));
        EXPECT_FALSE(fileSystem->MakePathInfo(path).Exists());
        drive.Write("t/file");
        Error error;
        second.Delete(error); // it stays the owner of what it has deleted
        EXPECT_FALSE(drive.Exists("t") || error.Failed());
    }
    std::string const statement = "info: Deleting directory that doesn't exist [" + Text(L"t") + "]";
    EXPECT_THAT(recorder.Lines(), ElementsAre(statement));
}

TEST_F(Directories, ATemporaryOneThatStaysIsLogged)
{
    drive.Write("t/file");
    OpenHandle const held = Open(drive.Path(L"t\\file"), GENERIC_READ);
    LogRecorder const recorder(VokLogSeverity::error);
    {
        TempDirectory const temporary(fileSystem, drive.Path(L"t"));
    }
    EXPECT_THAT(recorder.LinesWithFunction(),
                ElementsAre(testing::StartsWith("Brindle::Vok::TempDirectory::Impl::~Impl: Failed to delete "
                                                "TempDirectory[" +
                                                Text(L"t") + "] error[Source/Vok/FileSystem.cpp(")));
}

} // namespace
