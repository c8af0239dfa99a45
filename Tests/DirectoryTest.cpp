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

/// The real service, with a record of what reaches it.
struct RecordingService final : FileSystemImpl
{
    using FileSystemImpl::DeleteDirectory;
    void VokCreateDirectory(Path path) override
    {
        calls.push_back("create " + path.ToStringA());
        FileSystemImpl::VokCreateDirectory(path);
    }
    bool DeleteDirectory(Path path, Error& error) override
    {
        calls.push_back("delete& " + path.ToStringA());
        return FileSystemImpl::DeleteDirectory(path, error);
    }

    std::vector<std::string> calls;
};

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

TEST_F(Directories, AServiceIsAskedForCreationsAndDeletions)
{
    auto const service = std::make_shared<RecordingService>();
    drive.Write("d/file");
    DirectoryInfo directory(drive.Path(L"d"), service);
    directory.Create();
    directory.DeleteContent(); // the only one that it isn't asked for
    EXPECT_FALSE(drive.Exists("d/file"));
    directory.Delete();
    EXPECT_THAT(service->calls, ElementsAre("create " + Text(L"d"), "delete& " + Text(L"d")));
    EXPECT_EQ(WithoutLine(Thrown<WindowsError>([&] { fileSystem->VokCreateDirectory(L"Q:\\a\\b"); }).Message()),
              MessageOf("FileSystemImpl::VokCreateDirectory", 3, "CreateDirectory [Q:\\a]"));
    EXPECT_THROW(FileSystemImpl().MakePathInfo(drive.Path()), std::bad_weak_ptr);
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

        // It stays the owner of what it has deleted.
        drive.Write("t/file");
        Error error;
        VOK_SET_ERROR(error, WindowsError, 1234, "from before");
        std::string const before = error.Message();
        second.Delete(error);
        EXPECT_FALSE(drive.Exists("t"));
        second.Delete(error);
        EXPECT_EQ(error.Message(), before);
    }
    std::string const statement = "info: Deleting directory that doesn't exist [" + Text(L"t") + "]";
    EXPECT_THAT(recorder.Lines(), ElementsAre(statement, statement));
}

TEST_F(Directories, ATemporaryOneThatStaysIsLogged)
{
    drive.Write("t/file");
    OpenHandle const held = Open(drive.Path(L"t\\file"), GENERIC_READ);
    LogRecorder const recorder(VokLogSeverity::error);
    {
        TempDirectory temporary(fileSystem, drive.Path(L"t"));
        EXPECT_EQ(WithoutLine(Thrown<WindowsError>([&] { temporary.Delete(); }).Message()),
                  DeletionFailure(32, "DeleteFileW [" + Text(L"t\\file") + "]"));
    }
    ASSERT_EQ(recorder.Statements().size(), 1U);
    EXPECT_STREQ(recorder.Statements()[0].function, "Brindle::Vok::TempDirectory::Impl::~Impl");
    EXPECT_TRUE(recorder.Statements()[0].message.starts_with("Failed to delete TempDirectory[" + Text(L"t") +
                                                             "] error[Source/Vok/FileSystem.cpp("));
}

} // namespace
