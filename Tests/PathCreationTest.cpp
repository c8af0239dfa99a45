// Making directories with all their parents: the order of the questions, through a stand-in for the disk, and the
// result on a real one.
#include "Support/LogRecorder.h"
#include "Support/TestDrive.h"

#include <Brindle/Vok/Path.h>

#include <gmock/gmock.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

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

} // namespace

TEST(PathCreation, AsksFromTheEndAndCreatesFromTheBeginningUntilTheFirstFailure)
{
    struct
    {
        std::wstring text;
        Disk disk;
        unsigned long result;
        std::vector<std::wstring> calls; ///< a query as the text, a creation with + before it
        bool isLogged = false;
    } const cases[] = {
        {LR"(C:\a\b)", {{LR"(C:\)"}}, 0, {LR"(C:\a\b)", LR"(C:\a)", LR"(C:\)", LR"(+C:\a)", LR"(+C:\a\b)"}},
        {LR"(\\?\C:\a\b)", {{LR"(C:\)"}}, 0, {LR"(\\?\C:\a\b)", LR"(C:\a)", LR"(C:\)", LR"(+C:\a)", LR"(+\\?\C:\a\b)"}},
        {LR"(C:\x)", {{LR"(C:\)"}, 3, {{LR"(C:\x)", 183}}}, 0, {LR"(C:\x)", LR"(C:\)", LR"(+C:\x)"}},
        {LR"(\\server\share\a)", {{LR"(\)"}}, 0, {LR"(\\server\share\a)", LR"(\)", LR"(+\\server\share\a)"}},
        {LR"(C:\a\)", {{LR"(C:\)"}}, 0, {LR"(C:\a\)", LR"(C:\a)", LR"(C:\)", LR"(+C:\a)", LR"(+C:\a\)"}},
        // A query that fails with no reason is logged and taken for a missing name.
        {LR"(C:\x)", {{LR"(C:\)"}, 0}, 0, {LR"(C:\x)", LR"(C:\)", LR"(+C:\x)"}, true},
        {L"", {}, 87, {}},
        {LR"(C:\)", {}, 161, {LR"(C:\)"}},
        {L"foo", {{}, 2}, 87, {L"foo"}},
        {LR"(\\?\)", {}, 161, {LR"(\\?\)"}},
        {LR"(C:\x)", {{}, 5}, 5, {LR"(C:\x)"}, true},
        {LR"(C:\x\y)", {{LR"(C:\)"}, 3, {{LR"(C:\x)", 5}}}, 5, {LR"(C:\x\y)", LR"(C:\x)", LR"(C:\)", LR"(+C:\x)"}},
    };
    for (auto const& each : cases)
    {
        SCOPED_TRACE(Path(each.text).ToStringA());
        LogRecorder const recorder;
        Disk disk = each.disk;
        EXPECT_EQ(RecordedPath(each.text, disk).CreatePath(), each.result);
        EXPECT_EQ(disk.calls, each.calls);
        std::vector<std::string> const line{"error: GetFileAttributes error: [" +
                                            std::to_string(each.disk.queryFailure) + "]"};
        EXPECT_EQ(recorder.Lines(), each.isLogged ? line : std::vector<std::string>{});
    }
}

TEST(PathCreation, MakesDirectoriesOrTellsWhatIsInTheWay)
{
    TestDrive const drive;
    drive.Write("file");
    EXPECT_EQ(Path(drive.Path(L"a\\..\\x\\y\\")).CreatePath(), DWORD{ERROR_SUCCESS});
    EXPECT_TRUE(std::filesystem::is_directory(drive.Host("x/y")));
    EXPECT_EQ(Path(drive.Path(L"file")).CreatePath(), DWORD{ERROR_SUCCESS}); // counts as existing
    EXPECT_EQ(Path(drive.Path(L"file\\a\\b")).CreatePath(), DWORD{ERROR_PATH_NOT_FOUND});
    EXPECT_TRUE(Path(drive.Path(L"x")).IsDirectory());
    EXPECT_FALSE(Path(drive.Path(L"file")).IsDirectory());
}
