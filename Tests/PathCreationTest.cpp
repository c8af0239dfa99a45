// Making directories with all their parents: the order of the questions, through a stand-in for the disk, and the
// result on a real one.
#include "Support/ChildProcess.h"
#include "Support/LogRecorder.h"
#include "Support/TestDrive.h"

#include <Brindle/Vok/Path.h>
#include <Brindle/Vok/PlatformHost.h>

#include <gmock/gmock.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <utility>
#include <vector>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

/// What exists, which code a query or a creation fails with, and the calls in their order.
struct Disk
{
    std::set<std::wstring> existing = {};
    unsigned long queryFailure = 3;
    std::map<std::wstring, unsigned long> creationFailures = {};
    std::vector<std::wstring> calls = {};
    unsigned long lastError = 0;
};

class RecordedPath : public Path
{
public:
    RecordedPath(std::wstring text, Disk& disk) : Path(std::move(text)), disk(disk) {}

protected:
    int CreateDir() const override
    {
        disk.calls.push_back(L"+" + ToString());
        auto const failure = disk.creationFailures.find(ToString());
        disk.lastError = failure == disk.creationFailures.end() ? 0 : failure->second;
        return disk.lastError == 0 ? -1 : 0; // whatever isn't 0 is success
    }
    unsigned long CreateParentPath(Path const& parent) const override
    {
        return RecordedPath(parent.ToString(), disk).CreatePath();
    }
    unsigned long FileAttributes() const override
    {
        disk.calls.push_back(ToString());
        disk.lastError = disk.queryFailure;
        return disk.existing.count(ToString()) != 0 ? FILE_ATTRIBUTE_NORMAL : 0xFFFFFFFFUL;
    }
    unsigned long LastError() const override { return disk.lastError; }

private:
    Disk& disk;
};

struct Creation
{
    std::wstring text;
    Disk disk;
    unsigned long result;
    std::vector<std::wstring> calls; ///< a query as the text, a creation with + before it
    std::vector<std::string> logged = {};
};

void Expect(Creation const& creation)
{
    SCOPED_TRACE(Path(creation.text).ToStringA());
    LogRecorder recorder;
    Disk disk = creation.disk;
    EXPECT_EQ(RecordedPath(creation.text, disk).CreatePath(), creation.result);
    EXPECT_EQ(disk.calls, creation.calls);
    EXPECT_EQ(recorder.LinesWithFunction(), creation.logged);
}

std::vector<std::string> QueryLogged(unsigned long code)
{
    return {"Brindle::Vok::Path::CreatePath: GetFileAttributes error: [" + std::to_string(code) + "]"};
}

} // namespace

TEST(PathCreation, AsksFromTheEndAndCreatesFromTheBeginning)
{
    Creation const cases[] = {
        {LR"(C:\a\b\c)",
         {{LR"(C:\)"}},
         0,
         {LR"(C:\a\b\c)", LR"(C:\a\b)", LR"(C:\a)", LR"(C:\)", LR"(+C:\a)", LR"(+C:\a\b)", LR"(+C:\a\b\c)"}},
        {LR"(C:\a\b\c)", {{LR"(C:\a\b\c)"}}, 0, {LR"(C:\a\b\c)"}},
        {LR"(\\?\C:)", {{}, 87}, 0, {LR"(\\?\C:)"}},
        {LR"(\\?\C:\a)", {{LR"(C:\)"}}, 0, {LR"(\\?\C:\a)", LR"(C:\)", LR"(+\\?\C:\a)"}},
        {LR"(\\?\C:\a\b)", {{LR"(C:\)"}}, 0, {LR"(\\?\C:\a\b)", LR"(C:\a)", LR"(C:\)", LR"(+C:\a)", LR"(+\\?\C:\a\b)"}},
        {LR"(C:\x)", {{LR"(C:\)"}, 3, {{LR"(C:\x)", 183}}}, 0, {LR"(C:\x)", LR"(C:\)", LR"(+C:\x)"}},
        {LR"(\\server\share\a)", {{LR"(\)"}}, 0, {LR"(\\server\share\a)", LR"(\)", LR"(+\\server\share\a)"}},
        {LR"(C:\a\)", {{LR"(C:\)"}}, 0, {LR"(C:\a\)", LR"(C:\a)", LR"(C:\)", LR"(+C:\a)", LR"(+C:\a\)"}},
        {LR"(C:\a\..\b)",
         {{LR"(C:\)"}},
         0,
         {LR"(C:\a\..\b)", LR"(C:\a\..)", LR"(C:\a)", LR"(C:\)", LR"(+C:\a)", LR"(+C:\a\..)", LR"(+C:\a\..\b)"}},
        {L"C:/a/b", {{L"C:"}}, 0, {L"C:/a/b", L"C:", L"+C:/a/b"}},
        // A query that fails with no reason is logged and taken for a missing name.
        {LR"(C:\x)", {{LR"(C:\)"}, 0}, 0, {LR"(C:\x)", LR"(C:\)", LR"(+C:\x)"}, QueryLogged(0)},
    };
    for (Creation const& each : cases)
        Expect(each);
}

TEST(PathCreation, StopsWithTheFirstFailure)
{
    Creation const cases[] = {
        {L"", {}, 87, {}},
        {LR"(C:\)", {}, 161, {LR"(C:\)"}},
        {L"C:", {}, 161, {L"C:"}},
        {LR"(C:\)", {{}, 5}, 161, {LR"(C:\)"}, QueryLogged(5)},
        {L"foo", {{}, 2}, 87, {L"foo"}},
        {LR"(foo\bar)", {}, 87, {LR"(foo\bar)", L"foo"}},
        {LR"(a\)", {}, 87, {LR"(a\)", L"a"}},
        {LR"(\\?\)", {}, 161, {LR"(\\?\)"}},
        {LR"(\\?\)", {{}, 5}, 5, {LR"(\\?\)"}, QueryLogged(5)},
        {LR"(\\?\C:)", {}, 161, {LR"(\\?\C:)", L"C:"}},
        {LR"(C:\x)", {{}, 5}, 5, {LR"(C:\x)"}, QueryLogged(5)},
        {LR"(C:\x)", {{}, 87}, 87, {LR"(C:\x)"}},
        {LR"(C:\x)", {{LR"(C:\)"}, 3, {{LR"(C:\x)", 5}}}, 5, {LR"(C:\x)", LR"(C:\)", LR"(+C:\x)"}},
        {LR"(C:\x\y)", {{LR"(C:\)"}, 3, {{LR"(C:\x)", 5}}}, 5, {LR"(C:\x\y)", LR"(C:\x)", LR"(C:\)", LR"(+C:\x)"}},
        {LR"(\\server\share\a\b)", {}, 161, {LR"(\\server\share\a\b)", LR"(\a)", LR"(\)"}},
    };
    for (Creation const& each : cases)
        Expect(each);
}

TEST(PathCreation, OnlySixteenIsADirectory)
{
    struct Answer : Path
    {
        explicit Answer(unsigned long answer) : answer(answer) {}
        unsigned long IsDirectoryImpl() const override { return answer; }
        unsigned long answer;
    };
    EXPECT_TRUE(Answer(16).IsDirectory());
    EXPECT_TRUE(Answer(16).DirectoryExists());
    for (unsigned long const other : {0UL, 1UL, 17UL, 48UL, 0xFFFFFFFFUL})
        EXPECT_FALSE(Answer(other).IsDirectory() || Answer(other).DirectoryExists()) << other;
}

TEST(PathCreation, MakesDirectoriesOnADrive)
{
    TestDrive const drive;
    std::wstring const extended = L"\\\\?\\" + drive.Path(L"e\\f\\g");
    EXPECT_FALSE(Path(drive.Path(L"a\\b\\c")).IsDirectory());
    for (std::wstring const& text : {drive.Path(L"a\\b\\c"), drive.Path(L"a\\b\\c"), drive.Path(L"a\\d\\"),
                                     drive.Path(L"a\\..\\x\\y"), drive.Path(), extended})
    {
        SCOPED_TRACE(Path(text).ToStringA());
        EXPECT_EQ(Path(text).CreatePath(), 0U);
        EXPECT_TRUE(Path(text).IsDirectory());
        EXPECT_TRUE(Path(text).DirectoryExists());
    }
    for (char const* made : {"a/b/c", "a/d", "x/y", "e/f/g"})
        EXPECT_TRUE(std::filesystem::is_directory(drive.Host(made))) << made;
}

TEST(PathCreation, TellsWhatIsInTheWay)
{
    TestDrive const drive;
    drive.Write("file");
    LogRecorder recorder;
    // A file counts as existing, and nothing can be made below one.
    EXPECT_EQ(Path(drive.Path(L"file")).CreatePath(), 0U);
    EXPECT_FALSE(Path(drive.Path(L"file")).IsDirectory());
    EXPECT_EQ(Path(drive.Path(L"file\\a\\b")).CreatePath(), ERROR_PATH_NOT_FOUND);
    EXPECT_THAT(recorder.Lines(), IsEmpty());

    EXPECT_EQ(Path(L"not-there\\at-all").CreatePath(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(Path(L"4:\\a").CreatePath(), ERROR_INVALID_NAME) << "no drive letter";
}

TEST(PathCreation, MakesOneDirectoryBehindAShare)
{
    TestDrive const drive;
    ASSERT_TRUE(Platform::MapShare(L"path-server", L"share", drive.Host()));
    EXPECT_EQ(Path(LR"(\\path-server\share\a)").CreatePath(), 0U);
    EXPECT_TRUE(Path(LR"(\\path-server\share\a)").IsDirectory());
}

TEST(PathCreation, ThreadsMakeOverlappingTrees)
{
    TestDrive const drive;
    auto const make = [&drive](int order)
    {
        for (int i = 0; i < 200; ++i)
        {
            int const number = order == 0 ? i : 199 - i;
            std::wstring const name = std::to_wstring(number / 10) + L"\\" + std::to_wstring(number % 10) + L"\\x\\y";
            EXPECT_EQ(Path(drive.Path(name)).CreatePath(), 0U);
            EXPECT_TRUE(Path(drive.Path(name)).IsDirectory());
        }
    };
    std::thread threads[] = {std::thread(make, 0), std::thread(make, 1), std::thread(make, 0)};
    for (std::thread& thread : threads)
        thread.join();
}

TEST(PathCreation, WithoutPermissionNothingIsMade)
{
    TestDrive const drive;
    std::filesystem::create_directory(drive.Host("closed"));
    ASSERT_EQ(::chmod(drive.Host().c_str(), 0755), 0);
    ASSERT_EQ(::chmod(drive.Host("closed").c_str(), 0555), 0);
    RunAsOrdinaryUser([&] { EXPECT_EQ(Path(drive.Path(L"closed\\a\\b")).CreatePath(), ERROR_ACCESS_DENIED); });
    EXPECT_FALSE(drive.Exists("closed/a"));
}
