// The second generation's service, and what its objects of every kind have in common.
#include "Support/ChildProcess.h"
#include "Support/HostVariable.h"
#include "Support/ObjectsV2.h"

#include <stdexcept>

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
    std::pair<std::wstring, DWORD> const cases[] = {
        {L"file", FILE_ATTRIBUTE_ARCHIVE}, {L"d", FILE_ATTRIBUTE_DIRECTORY}, {L"none", ~0U}, {L"none\\file", ~0U}};
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
            EXPECT_EQ(QuestionsOf([&] { kind.object->Refresh(); }), 0);
            EXPECT_GT(QuestionsOf(ask), 0);
            Error error = FromBefore();
            EXPECT_GT(QuestionsOf([&] { kind.object->Refresh(error); }), 0);
            EXPECT_FALSE(error.Failed());
            EXPECT_EQ(QuestionsOf(ask), 0);
        }
    auto const file = File(L"file");
    EXPECT_EQ(file->Size(), 5U);
    std::filesystem::remove(drive.Host("file"));
    EXPECT_TRUE(file->Exists());
    file->Refresh();
    EXPECT_FALSE(file->Exists());
    EXPECT_EQ(file->Size(), 5U); // required
    EXPECT_EQ(File(L"file")->Size(), 0U);
}

TEST_F(Objects, ThrowFromEveryQuestionWhatKeepsThemFromAnswering)
{
    std::filesystem::create_symlink("/dev/null", drive.Host("device"));
    drive.Write("held");
    HoldingProcess const holder([&] { return Open(drive.Path(L"held"), GENERIC_READ); });
    for (std::size_t i = 0; i < 3; ++i)
    {
        drive.Write("d/file");
        auto const kinds = AllKinds(L"d\\file");
        V2::IPathInfo& object = *kinds[i].object;
        std::string const load = kinds[i].Function("Load");
        LogRecorder const recorder;
        {
            SystemCalls::Redirection const refused(SystemCalls::StatusAt, FailingWith(EACCES));
            Error error;
            object.Refresh(error);
            Expect(error, 5, load, "GetFileAttributes " + Quoted(L"d\\file"));
        }
        EXPECT_TRUE(object.IsFile()); // it asks again
        ExpectThrown<WindowsError>([&] { AllKinds(L"device")[i].object->Exists(); }, 1, load, "GetFileSizeEx");
        ExpectNotOpened<WindowsError>([&] { AllKinds(L"held")[i].object->Exists(); }, 32, L"held");
        // What vanishes in the middle of a question is missing only for the next one.
        auto const ask = [&](std::string const& vanishing)
        {
            auto const vanish = [&](auto... arguments)
            { return std::filesystem::remove_all(drive.Host(vanishing)), SystemCalls::Open.host(arguments...); };
            SystemCalls::Redirection const redirection(SystemCalls::Open, vanish);
            object.Refresh();
            object.Exists();
        };
        ExpectThrown<WindowsError>([&] { ask("d/file"); }, 6, load, "GetFileTime");
        EXPECT_FALSE(object.Exists());
        drive.Write("d/file");
        ExpectNotOpened<WindowsError>([&] { ask("d"); }, 3, L"d\\file");
        EXPECT_FALSE(object.Exists());
        // An opening that failed is told by nobody.
        std::string const throwing = "Brindle::Vok::V2::" + load + ": Throwing last error ";
        std::string const catching = "Brindle::Vok::V2::" + kinds[i].Function("Refresh::<lambda_1>::operator ()");
        EXPECT_THAT(recorder.LinesWithFunction(),
                    ElementsAre(StartsWith(throwing), StartsWith(catching + ": Caught Vok::WindowsError. ["),
                                StartsWith(throwing), StartsWith(throwing)));
        EXPECT_THAT(recorder.Lines(), testing::Each(StartsWith("error: ")));
    }
}

TEST_F(Objects, ChangeWhetherTheyAreReadOnly)
{
    drive.Write("file");
    drive.Write("d/file");
    LogRecorder const recorder;
    for (wchar_t const* name : {L"file", L"d"})
        for (Kind const& kind : AllKinds(name))
        {
            DWORD const mask = kind.object->Attributes().Mask();
            kind.object->SetReadOnly(true);
            EXPECT_EQ(QuestionsOf([&] { EXPECT_EQ(kind.object->Attributes().Mask(), mask | 1); }), 0);
            EXPECT_EQ(PathInfo(name)->Attributes().Mask(), mask | 1);
            {
                SystemCalls::Redirection const refused(SystemCalls::ChangeModeAt, FailingWith(EPERM));
                ExpectThrown<Error>([&] { kind.object->SetReadOnly(false); }, 5, kind.Function("SetAttributes"),
                                    "SetFileAttributes");
                EXPECT_TRUE(kind.object->Attributes().IsReadOnly());
            }
            kind.object->SetReadOnly(false);
            EXPECT_EQ(PathInfo(name)->Attributes().Mask(), mask);
        }
    for (Kind const& kind : AllKinds(L"none"))
    {
        EXPECT_FALSE(kind.object->Exists());
        Error error;
        kind.object->SetReadOnly(true, error);
        Expect(error, 2, kind.Function("SetReadOnly"), "GetFileAttributes " + Quoted(L"none"));
        EXPECT_EQ(QuestionsOf([&] { EXPECT_EQ(kind.object->Attributes().Mask(), ~0U); }), 0);
    }
    EXPECT_THAT(recorder.Statements(), IsEmpty());
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
            auto const object = PathInfo(name);
            EXPECT_EQ(object->Delete(error), isThere);
            EXPECT_FALSE(error.Failed() || drive.Exists(WideToUtf8(name)));
            EXPECT_EQ(QuestionsOf([&] { EXPECT_EQ(object->Exists(), isThere); }), 0);
        }
    {
        OpenHandle const held = Open(drive.Path(L"held"), GENERIC_WRITE, FILE_SHARE_READ, CREATE_NEW);
        EXPECT_TRUE(PathInfo(L"held")->Delete(error)); // required
        Expect(error, 32, "File::Delete", "DeleteFile failed");
    }
    OpenHandle const held = Open(drive.Path(L"held"), GENERIC_READ);
    EXPECT_FALSE(PathInfo(L"held")->Delete(error));
    ExpectNotOpened<Error>([&] { PathInfo(L"held")->Delete(); }, 32, L"held");
    // What the platform can't answer.
    struct Odd final : V2::PathInfo
    {
        using PathInfo::PathInfo;
        bool IsFile() override { return false; }
    };
    LogRecorder const recorder;
    drive.Write("file");
    EXPECT_FALSE(std::make_unique<Odd>(drive.Path(L"file"), std::make_shared<V2::FileSystem>())->Delete());
    EXPECT_THAT(recorder.Lines(), ElementsAre("error: Assertion failed: !Exists()"));
    EXPECT_EQ(recorder.Statements()[0].function, "Brindle::Vok::V2::" + AllKinds(L"")[0].Function("Delete"));
}

TEST_F(Objects, RefuseATextThatIsNoPathAndAWholeDrive)
{
    drive.Write("kept/file", "kept");
    for (std::wstring const& name : {std::wstring(L"kept\0x", 6), std::wstring(L"kept\\file\0", 10)})
    {
        auto const expect = [](auto run) { EXPECT_EQ(Thrown<WindowsError>(run).code().value(), 123); };
        for (Kind const& kind : AllKinds(name))
        {
            EXPECT_EQ(Thrown<Error>([&] { kind.object->SetReadOnly(true); }).code().value(), 123);
            Error error;
            EXPECT_EQ(kind.object->Delete(error), kind.interface == "IDirectory");
            EXPECT_EQ(error.code().value(), 123);
            expect([&] { kind.object->Exists(); });
        }
        expect([&] { Directory(name)->DeleteContent(); });
        expect([&] { Directory(L"")->CreateSubdirectory(name); });
        expect([&] { Directory(L"")->PathInfos(name); });
        EXPECT_EQ(Thrown<Error>([&] { File(name)->WriteAllBytes({}); }).code().value(), 123);
    }
    std::string const function = "FileSystem::DeleteDirectoryInternal";
    ExpectThrown<WindowsError>([&] { Directory(L"")->Delete(); }, 5, function, "Path " + Quoted(L""));
    ExpectThrown<WindowsError>([&] { Directory(L"")->DeleteContent(); }, 5, function, "Path " + Quoted(L""));
    ExpectThrown<Error>([&] { PathInfo(L"")->Delete(); }, 5, function, "Path " + Quoted(L""));
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

    V2::FileSystem unshared;
    EXPECT_THROW(unshared.MakePathInfo(drive.Path()), std::bad_weak_ptr);
    EXPECT_THROW(unshared.MakeDirectory(drive.Path()), std::bad_weak_ptr);
    EXPECT_THROW(unshared.MakeFile(drive.Path()), std::bad_weak_ptr);
    EXPECT_THROW(unshared.MakeTempDirectory(), std::bad_weak_ptr);
    std::wstring const path = unshared.MakeTempFilePath().ToString();
    EXPECT_NE(path, unshared.MakeTempFilePath().ToString());
    EXPECT_THAT(WideToUtf8(path.substr(drive.Path().size())),
                testing::MatchesRegex("tmp.\\{[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\}\\.tmp"));
    EXPECT_EQ(Directory(L"tmp")->Directories(L"{*}").size(), 1U); // the temporary one stays behind
    EXPECT_EQ(Directory(L"tmp")->PathInfos(L"*").size(), 1U);
}

TEST_F(ServiceV2, DeletesTemporaryDirectoriesWithTheirObjectsOrTellsWhyNot)
{
    LogRecorder const recorder(VokLogSeverity::info);
    auto directory = fileSystem->MakeTempDirectory();
    EXPECT_THAT(directory->Path().ToStringA(), EndsWith("}"));
    directory->CreateSubdirectory(L"a\\b");
    directory.reset();
    EXPECT_THAT(Directory(L"tmp")->PathInfos(L"*"), IsEmpty());
    EXPECT_THAT(recorder.Statements(), IsEmpty());

    directory = fileSystem->MakeTempDirectory();
    std::string const missing = directory->Path().ToStringA();
    EXPECT_TRUE(directory->Delete());
    directory = fileSystem->MakeTempDirectory();
    std::string const failing = directory->Path().ToStringA();
    OpenHandle const held = Open(directory->ToString() + L"\\held", GENERIC_WRITE, 0, CREATE_NEW);
    directory.reset();
    EXPECT_EQ(Directory(L"tmp")->Directories(L"*").size(), 1U);
    std::string const begin =
        "error: Failed to delete TempDirectory[" + failing + "] error[Source/Vok/FileSystemV2.cpp";
    EXPECT_THAT(recorder.Lines(),
                ElementsAre("info: Deleting directory that doesn't exist [" + missing + "]",
                            testing::AllOf(StartsWith(begin),
                                           EndsWith("(Windows Error 32). DeleteFileW [" + failing + "\\held]]"))));
    EXPECT_STREQ(recorder.Statements().back().function, "Brindle::Vok::V2::TempDirectory::~TempDirectory");

    directory = fileSystem->MakeTempDirectory();
    directory->Delete();
    auto const fail = [](LogStatement const&) { throw std::runtime_error("which reaches nobody"); };
    SubscriptionForLogCallbacks const failure(fail, VokLogSeverity::info);
    directory.reset();
}

} // namespace
