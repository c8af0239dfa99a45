// The second generation's service, and what its objects of every kind have in common.
#include "Support/ChildProcess.h"
#include "Support/HostVariable.h"
#include "Support/ObjectsV2.h"

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

namespace
{

using Objects = ObjectTests;

TEST_F(Objects, AskTheDiskOnceAndKeepTheAnswersUntilRefresh)
{
    drive.Write("file", "12345");
    drive.Write("d/file");
    std::pair<wchar_t const*, DWORD> const cases[] = {
        {L"file", FILE_ATTRIBUTE_ARCHIVE}, {L"d", FILE_ATTRIBUTE_DIRECTORY}, {L"none\\file", ~0U}};
    for (auto const& [name, mask] : cases)
        for (Kind const& kind : AllKinds(name))
        {
            auto const ask = [&object = *kind.object, mask = mask]
            {
                EXPECT_EQ(object.Exists(), mask != ~0U);
                EXPECT_EQ(object.IsFile(), mask == FILE_ATTRIBUTE_ARCHIVE);
                EXPECT_EQ(object.IsDirectory(), mask == FILE_ATTRIBUTE_DIRECTORY);
                EXPECT_EQ(object.Attributes().Mask(), mask);
            };
            EXPECT_GT(QuestionsOf(ask), 0);
            EXPECT_EQ(QuestionsOf(ask), 0);
        }
    auto const file = File(L"file");
    EXPECT_EQ(file->Size(), 5U);
    std::filesystem::remove(drive.Host("file"));
    EXPECT_TRUE(file->Exists());
    file->Refresh();
    EXPECT_FALSE(file->Exists());
    EXPECT_EQ(file->Size(), 5U); // required
}

TEST_F(Objects, ThrowFromEveryQuestionWhatKeepsThemFromAnswering)
{
    drive.Write("file");
    drive.Write("held");
    HoldingProcess const holder([&] { return Open(drive.Path(L"held"), GENERIC_READ); });
    for (std::size_t i = 0; i < 3; ++i)
    {
        Kind const kind = std::move(AllKinds(L"file")[i]);
        {
            SystemCalls::Redirection const refused(SystemCalls::StatusAt, FailingWith(EACCES));
            Error error;
            kind.object->Refresh(error);
            Expect(error, 5, kind.Function("Load"), "GetFileAttributes " + Quoted(L"file"));
        }
        EXPECT_TRUE(kind.object->IsFile()); // it asks again
        ExpectNotOpened<WindowsError>([&] { AllKinds(L"held")[i].object->Exists(); }, 32, L"held");
    }
}

TEST_F(Objects, ChangeWhetherTheyAreReadOnly)
{
    drive.Write("file");
    drive.Write("d/file");
    for (wchar_t const* name : {L"file", L"d"})
        for (Kind const& kind : AllKinds(name))
        {
            DWORD const mask = kind.object->Attributes().Mask();
            kind.object->SetReadOnly(true);
            EXPECT_EQ(kind.object->Attributes().Mask(), mask | 1);
            kind.object->SetReadOnly(false);
            EXPECT_EQ(PathInfo(name)->Attributes().Mask(), mask);
        }
    Error error;
    PathInfo(L"none")->SetReadOnly(true, error);
    Expect(error, 2, AllKinds(L"")[0].Function("SetReadOnly"), "GetFileAttributes " + Quoted(L"none"));
}

TEST_F(Objects, DeleteWhateverIsThere)
{
    drive.Write("d/s/file");
    drive.Write("file");
    PathInfo(L"file")->SetReadOnly(true);
    Error error = FromBefore();
    for (bool const isThere : {true, false})
        for (wchar_t const* name : {L"d", L"file"})
        {
            EXPECT_EQ(PathInfo(name)->Delete(error), isThere);
            EXPECT_FALSE(error.Failed() || drive.Exists(WideToUtf8(name)));
        }
    OpenHandle const held = Open(drive.Path(L"held"), GENERIC_WRITE, FILE_SHARE_READ, CREATE_NEW);
    EXPECT_TRUE(PathInfo(L"held")->Delete(error)); // required
    Expect(error, 32, "File::Delete", "DeleteFile failed");
}

TEST_F(Objects, RefuseATextThatIsNoPathAndAWholeDrive)
{
    drive.Write("kept/file", "kept");
    auto const codeOf = [](auto run) { return Thrown<WindowsError>(run).code().value(); };
    std::wstring const name(L"kept\0x", 6);
    for (Kind const& kind : AllKinds(name))
    {
        EXPECT_EQ(Thrown<Error>([&] { kind.object->SetReadOnly(true); }).code().value(), 123);
        Error error;
        kind.object->Delete(error);
        EXPECT_EQ(error.code().value(), 123);
    }
    EXPECT_EQ(codeOf([&] { Directory(name)->DeleteContent(); }), 123);
    EXPECT_EQ(codeOf([&] { Directory(L"")->CreateSubdirectory(name); }), 123);
    ExpectThrown<WindowsError>([&] { Directory(L"")->Delete(); }, 5, "FileSystem::DeleteDirectoryInternal",
                               "Path " + Quoted(L""));
    EXPECT_EQ(codeOf([&] { Directory(L"")->DeleteContent(); }), 5);
    EXPECT_EQ(drive.Read("kept/file"), "kept");
}

class ServiceV2 : public ObjectTests
{
protected:
    HostVariable const temp{"TEMP", WideToUtf8(drive.Path(L"tmp")).c_str()};
};

TEST_F(ServiceV2, LivesAsLongAsItsObjectsAndMustBeShared)
{
    auto const file = V2::MakeFileSystem()->MakeFile(drive.Path(L"file"));
    file->WriteAllBytes({'x'});
    EXPECT_TRUE(file->Delete());
    EXPECT_THROW(V2::FileSystem().MakePathInfo(drive.Path()), std::bad_weak_ptr);
    EXPECT_THAT(fileSystem->MakeTempFilePath().NameWithExtension(),
                testing::AllOf(StartsWith(L"{"), testing::SizeIs(42), EndsWith(L"}.tmp")));
}

TEST_F(ServiceV2, DeletesTemporaryDirectoriesWithTheirObjectsOrTellsWhyNot)
{
    LogRecorder const recorder(VokLogSeverity::info);
    auto directory = fileSystem->MakeTempDirectory();
    directory->CreateSubdirectory(L"a\\b");
    directory.reset();
    EXPECT_THAT(Directory(L"tmp")->PathInfos(L"*"), IsEmpty());

    directory = fileSystem->MakeTempDirectory();
    std::string const missing = directory->Path().ToStringA();
    EXPECT_TRUE(directory->Delete());
    directory = fileSystem->MakeTempDirectory();
    std::string const failing = directory->Path().ToStringA();
    OpenHandle const held = Open(directory->ToString() + L"\\held", GENERIC_WRITE, 0, CREATE_NEW);
    directory.reset();
    std::string const begin =
        "error: Failed to delete TempDirectory[" + failing + "] error[Source/Vok/FileSystemV2.cpp";
    EXPECT_THAT(recorder.Lines(),
                ElementsAre("info: Deleting directory that doesn't exist [" + missing + "]",
                            testing::AllOf(StartsWith(begin),
                                           EndsWith("(Windows Error 32). DeleteFileW [" + failing + "\\held]]"))));
}

} // namespace
