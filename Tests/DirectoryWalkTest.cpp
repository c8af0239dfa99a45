// Walking directories of the first generation: what is met, in what circumstances, and by which algorithms.
#include "Support/Directories.h"
#include "Support/HostFaults.h"

#include <iterator>
#include <sys/stat.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using DirectoryWalk = DirectoryTests;

static_assert(std::input_iterator<FileSystemIterator>);
static_assert(!std::copyable<FileSystemIterator>);
static_assert(std::sentinel_for<std::default_sentinel_t, FileSystemIterator>);

TEST_F(DirectoryWalk, GoesByKind)
{
    EXPECT_THAT(NamesIn(L""), IsEmpty());
    drive.Write("a");
    drive.Write("..x");
    drive.Write("s/inner");
    EXPECT_THAT(NamesIn(L""), ElementsAre(L"..x", L"a", L"s"));
    EXPECT_THAT(NamesIn(L"", FileSystemIterateType::Files), ElementsAre(L"..x", L"a"));
    EXPECT_THAT(NamesIn(L"", FileSystemIterateType::Directories), ElementsAre(L"s"));

    auto const missing = Thrown<WindowsError>([&] { NamesIn(L"none"); });
    EXPECT_EQ(WithoutLine(missing.Message()),
              MessageOf("FileSystemIterator::FileSystemIterator", 3, "FindFirstFileW [" + Text(L"none") + "]"));
    FileSystemIterator end;
    auto const further = Thrown<WindowsError>([&] { ++end; });
    EXPECT_EQ(WithoutLine(further.Message()), MessageOf("FileSystemIterator::increment", 6, "FindNextFileW"));
}

TEST_F(DirectoryWalk, GoesOnWhereTheIteratorIsMovedTo)
{
    for (char const* name : {"a", "b", "c", "s/inner"})
        drive.Write(name);
    DirectoryInfo directory = fileSystem->MakeDirectoryInfo(drive.Path());
    int met = 0;
    for (FileSystemIterator walk = directory.begin(); walk != directory.end(); ++walk)
    {
        FileSystemIterator other = directory.begin(); // whose own search ends now
        other = std::move(walk);
        EXPECT_TRUE(walk == directory.end());
        walk = std::move(other);
        met += walk->Exists() ? 1 : 0;
    }
    EXPECT_EQ(met, 4);
    EXPECT_EQ(std::ranges::count_if(directory.begin(), std::default_sentinel, &PathInfo::IsFile), 3);
}

TEST_F(DirectoryWalk, PassesOverWhatVanishesMeanwhile)
{
    drive.Write("d/file");
    auto const vanish = [&](auto... arguments)
    {
        int const result = SystemCalls::ExtendedStatusAt.host(arguments...);
        std::filesystem::remove(drive.Host("d/file"));
        return result;
    };
    SystemCalls::Redirection const vanishing(SystemCalls::ExtendedStatusAt, vanish);
    EXPECT_THAT(NamesIn(L"d", FileSystemIterateType::Files), IsEmpty());
}

TEST_F(DirectoryWalk, TellsOddFilesFromDirectoriesAndDeletionTakesThem)
{
    drive.Write("target/precious");
    drive.Write("d/..x/.a\\b:c*\xFF. ");
    std::filesystem::create_symlink("missing", drive.Host("d/dangling"));
    std::filesystem::create_symlink("loop", drive.Host("d/loop"));
    std::filesystem::create_symlink("../target", drive.Host("d/to directory"));
    ASSERT_EQ(::mkfifo(drive.Host("d/pipe").c_str(), 0666), 0);
    ASSERT_EQ(::mknod(drive.Host("d/socket").c_str(), S_IFSOCK | 0666, 0), 0);
    EXPECT_THAT(NamesIn(L"d", FileSystemIterateType::Files), ElementsAre(L"dangling", L"loop", L"pipe", L"socket"));
    EXPECT_THAT(NamesIn(L"d", FileSystemIterateType::Directories), ElementsAre(L"..x", L"to directory"));
    EXPECT_EQ(DeletionMessage(drive.Path(L"d")), noError);
    EXPECT_FALSE(drive.Exists("d"));
    EXPECT_TRUE(drive.Exists("target/precious"));
}

} // namespace
