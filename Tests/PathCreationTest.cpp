// Making directories with all their parents.
#include "Support/LogRecorder.h"
#include "Support/TestDrive.h"

#include <Brindle/Vok/Path.h>
#include <Brindle/Vok/PlatformHost.h>

#include <gmock/gmock.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

TEST(PathCreation, MakesDirectoriesOrTellsWhatIsInTheWay)
{
    TestDrive const drive;
    ASSERT_TRUE(Platform::MapShare(L"path-server", L"share", drive.Host()));
    drive.Write("file");
    struct
    {
        std::wstring text;
        unsigned long result;
        char const* made;
    } const cases[] = {
        {drive.Path(L"a\\b\\c"), 0, "a/b/c"},
        {drive.Path(L"a\\b\\c"), 0, "a/b/c"},
        {drive.Path(L"a\\..\\x\\y\\"), 0, "x/y"},
        {L"\\\\?\\" + drive.Path(L"e\\f"), 0, "e/f"},
        {LR"(\\path-server\share\d)", 0, "d"},
        {drive.Path(L"file"), 0, nullptr}, // counts as existing
        {drive.Path(L"file\\a\\b"), ERROR_PATH_NOT_FOUND, nullptr},
        {L"not-there\\at-all", ERROR_INVALID_PARAMETER, nullptr},
        {L"", ERROR_INVALID_PARAMETER, nullptr},
    };
    for (auto const& each : cases)
    {
        EXPECT_EQ(Path(each.text).CreatePath(), each.result) << WideToUtf8(each.text);
        EXPECT_EQ(Path(each.text).IsDirectory(), each.made != nullptr);
        EXPECT_TRUE(each.made == nullptr || drive.Exists(each.made));
    }
}

TEST(PathCreation, LogsAQueryThatFails)
{
    struct Unknown : Path
    {
        using Path::Path;
        unsigned long FileAttributes() const override { return 0xFFFFFFFF; }
        unsigned long LastError() const override { return 5; }
    };
    LogRecorder const recorder;
    EXPECT_EQ(Unknown(L"C:\\x").CreatePath(), 5U);
    EXPECT_THAT(recorder.Lines(), testing::ElementsAre("error: GetFileAttributes error: [5]"));
}
