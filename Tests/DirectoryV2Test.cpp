// Directories of the second generation: listing, creation and deletion.
#include "Support/ObjectsV2.h"

#include <algorithm>
#include <unistd.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using DirectoryV2 = ObjectTests;

/// The paths without the drive, in the order of their texts.
template <class Interface>
std::vector<std::string> PathsOf(std::vector<std::shared_ptr<Interface>> const& list)
{
    std::vector<std::string> paths;
    for (auto const& entry : list)
        paths.push_back(entry->Path().ToStringA().substr(3));
    std::ranges::sort(paths);
    return paths;
}

TEST_F(DirectoryV2, ListsByPatternInThreeKinds)
{
    auto const directory = Directory(L"d");
    for (char const* name : {"d/a.txt", "d/b.TXT", "d/.git", "d/s/c.txt"})
        drive.Write(name);
    std::filesystem::create_symlink("s", drive.Host("d/link"));
    std::pair<wchar_t const*, std::vector<std::string>> const cases[] = {
        {L"*", {"d\\.git", "d\\a.txt", "d\\b.TXT", "d\\link", "d\\s"}},
        {L"*.txt", {"d\\a.txt", "d\\b.TXT"}},
        {L"*.none", {}},
        {L"s\\*.txt", {"d\\c.txt"}}, // required: without the pattern's directory
        {L"", {"d\\d"}},             // required: the directory itself, as its own entry
    };
    for (auto const& [pattern, paths] : cases)
        EXPECT_EQ(PathsOf(directory->PathInfos(pattern)), paths) << WideToUtf8(pattern);
    EXPECT_THAT(PathsOf(directory->Directories(L"*")), ElementsAre("d\\s"));
    EXPECT_THAT(PathsOf(directory->Files(L"*")), ElementsAre("d\\.git", "d\\a.txt", "d\\b.TXT", "d\\link"));
}

TEST_F(DirectoryV2, ListsPathInfosWithTheirAnswersAndTheOthersWithout)
{
    drive.Write("d/a");
    ASSERT_EQ(::truncate(drive.Host("d/a").c_str(), 0x100000005), 0); // sparse
    auto const directory = Directory(L"d");
    auto const listed = std::dynamic_pointer_cast<V2::IFile>(directory->PathInfos(L"a").at(0));
    auto const file = directory->Files(L"*").at(0);
    std::filesystem::remove_all(drive.Host("d"));
    EXPECT_TRUE(listed->Exists() && listed->IsFile() && !listed->IsDirectory());
    EXPECT_EQ(listed->Size(), 0x100000005U);
    EXPECT_EQ(listed->Attributes().Mask(), FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_FALSE(file->Exists());
    listed->Refresh();
    EXPECT_FALSE(listed->Exists());
}

TEST_F(DirectoryV2, TellsWhyItCannotBeListed)
{
    drive.Write("d/file");
    for (auto const& [name, code] : {std::pair(L"none", 3U), {L"d\\file", 267U}})
        ExpectThrown<WindowsError>([&, name = name] { Directory(name)->Files(L"*"); }, code, "Directory::PathInfos",
                                   "FindFirstFileW " + Quoted(name));
}

TEST_F(DirectoryV2, IsDeletedOrEmptied)
{
    std::string const function = "FileSystem::DeleteDirectoryInternal";
    auto const directory = Directory(L"d");
    drive.Write("d/s/file");
    LogRecorder const recorder;
    directory->DeleteContent();
    EXPECT_TRUE(directory->Exists());
    EXPECT_THAT(directory->PathInfos(L"*"), IsEmpty());
    OpenHandle held = Open(drive.Path(L"d\\held"), GENERIC_WRITE, 0, CREATE_NEW);
    Error error;
    EXPECT_TRUE(directory->Delete(error));
    Expect(error, 32, function, "DeleteFileW " + Quoted(L"d\\held"));
    held.Close();
    EXPECT_TRUE(directory->Exists() && directory->Delete());
    EXPECT_THAT(recorder.Statements(), IsEmpty());
    EXPECT_FALSE(drive.Exists("d") || directory->Delete());
    std::string const statement = ": Deleting directory that doesn't exist " + Quoted(L"d");
    EXPECT_THAT(recorder.LinesWithFunction(), ElementsAre("Brindle::Vok::V2::" + function + statement));
}

} // namespace
