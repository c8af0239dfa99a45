// Walking directories of the first generation: what is met, in what circumstances, and by which algorithms.
#include "Support/Descriptors.h"
#include "Support/Directories.h"
#include "Support/HostFaults.h"

#include <iterator>
#include <malloc.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

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

TEST_F(DirectoryWalk, GoesByKindAndAsksOnlyWhereAFilterDoes)
{
    EXPECT_THAT(NamesIn(L""), IsEmpty());
    drive.Write("a");
    drive.Write("..x");
    drive.Write("s/inner");
    int questions = 0;
    auto const counted = [&](auto... arguments) { return ++questions, SystemCalls::StatusAt.host(arguments...); };
    SystemCalls::Redirection const counting(SystemCalls::StatusAt, counted);
    EXPECT_THAT(NamesIn(L""), ElementsAre(L"..x", L"a", L"s"));
    EXPECT_THAT(NamesIn(L"", static_cast<FileSystemIterateType>(3)), ElementsAre(L"..x", L"a", L"s"));
    EXPECT_EQ(questions, 0);
    EXPECT_THAT(NamesIn(L"", FileSystemIterateType::Files), ElementsAre(L"..x", L"a"));
    EXPECT_LE(questions, 3);
    EXPECT_THAT(NamesIn(L"", FileSystemIterateType::Directories), ElementsAre(L"s"));

    auto const missing = Thrown<WindowsError>([&] { NamesIn(L"none"); });
    EXPECT_EQ(WithoutLine(missing.Message()),
              MessageOf("FileSystemIterator::FileSystemIterator", 3, "FindFirstFileW [" + Text(L"none") + "]"));
    FileSystemIterator end;
    auto const further = Thrown<WindowsError>([&] { ++end; });
    EXPECT_EQ(WithoutLine(further.Message()), MessageOf("FileSystemIterator::increment", 6, "FindNextFileW"));
}

TEST_F(DirectoryWalk, ServesAlgorithmsThatPassOnceAndGoesOnWhereTheIteratorIsMovedTo)
{
    for (char const* name : {"a", "b", "c", "s/inner"})
        drive.Write(name);
    DirectoryInfo directory = fileSystem->MakeDirectoryInfo(drive.Path());
    std::vector<PathInfo> whole;
    std::ranges::copy(directory.begin(), std::default_sentinel, std::back_inserter(whole));
    EXPECT_EQ(std::ranges::count_if(directory.begin(), std::default_sentinel, &PathInfo::IsFile), 3);
    EXPECT_TRUE(std::ranges::find_if(directory.begin(), std::default_sentinel, &PathInfo::IsDirectory)->Exists());
    std::size_t const descriptors = OpenDescriptors();
    std::vector<std::wstring> moved;
    FileSystemIterator walk = directory.begin();
    EXPECT_FALSE(walk == walk);
    for (; walk != directory.end(); ++walk)
    {
        moved.push_back(walk->ToString());
        FileSystemIterator other = directory.begin(); // whose own search ends now
        other = std::move(walk);
        EXPECT_TRUE(walk == directory.end());
        walk = std::move(other);
        EXPECT_EQ(OpenDescriptors(), descriptors + 1);
    }
    EXPECT_TRUE(std::ranges::equal(moved, whole, {}, {}, &PathInfo::ToString));
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(DirectoryWalk, PassesOverWhatVanishesMeanwhile)
{
    TestDrive const quick(QuickPlace());
    for (int i = 0; i < 1500; ++i) // more than one answer of the host holds
        quick.Write("d/" + std::to_string(i));
    FileSystemIterator walk(fileSystem, quick.Path(L"d"), FileSystemIterateType::All);
    std::filesystem::remove_all(quick.Host("d"));
    EXPECT_FALSE(walk->Exists());
    EXPECT_EQ(++walk, FileSystemIterator());

    // Between the search and the question that its filter asks.
    drive.Write("e/file");
    auto const vanish = [&](auto... arguments)
    {
        int const result = SystemCalls::ExtendedStatusAt.host(arguments...);
        std::filesystem::remove(drive.Host("e/file"));
        return result;
    };
    SystemCalls::Redirection const vanishing(SystemCalls::ExtendedStatusAt, vanish);
    EXPECT_THAT(NamesIn(L"e", FileSystemIterateType::Files), IsEmpty());
}

TEST_F(DirectoryWalk, TakesNoMoreMemoryForMoreEntries)
{
    TestDrive const large(QuickPlace());
    int const count = TakesLong() ? 1'000'000 : 20'000;
    large.Write("original");
    std::filesystem::create_directory(large.Host("d"));
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(::link(large.Host("original").c_str(), large.Host("d/" + std::to_string(i)).c_str()), 0);
    DirectoryInfo directory = fileSystem->MakeDirectoryInfo(large.Path(L"d"));
    FileSystemIterator walk = directory.begin();
    auto const inUse = []
    {
        struct mallinfo2 const heap = ::mallinfo2();
        return heap.uordblks + heap.hblkhd;
    };
    std::size_t first = 0;
    std::size_t most = 0;
    int met = 0;
    for (; walk != directory.end(); ++walk)
    {
        ++met;
        if (met == 5000)
            first = inUse();
        if (met >= 5000 && met % 1000 == 0)
            most = std::max(most, inUse());
    }
    EXPECT_EQ(met, count);
    EXPECT_LE(most, first + 4096);
}

TEST_F(DirectoryWalk, TellsOddFilesFromDirectoriesAndDeletionTakesThem)
{
    drive.Write("target/precious");
    drive.Write("d/..x/.a\\b:c*\xFF. ");
    std::vector<std::wstring> files{L"dangling", L"loop", L"pipe", L"socket"};
    std::filesystem::create_symlink("missing", drive.Host("d/dangling"));
    std::filesystem::create_symlink("loop", drive.Host("d/loop"));
    std::filesystem::create_symlink("../target", drive.Host("d/to directory"));
    ASSERT_EQ(::mkfifo(drive.Host("d/pipe").c_str(), 0666), 0);
    ASSERT_EQ(::mknod(drive.Host("d/socket").c_str(), S_IFSOCK | 0666, 0), 0);
    if (::mknod(drive.Host("d/device").c_str(), S_IFCHR | 0666, ::makedev(1, 3)) == 0) // needs a right
        files.insert(files.begin() + 1, L"device");
    EXPECT_EQ(NamesIn(L"d", FileSystemIterateType::Files), files);
    EXPECT_THAT(NamesIn(L"d", FileSystemIterateType::Directories), ElementsAre(L"..x", L"to directory"));
    EXPECT_EQ(DeletionMessage(drive.Path(L"d")), noError);
    EXPECT_FALSE(drive.Exists("d"));
    EXPECT_TRUE(drive.Exists("target/precious"));
}

} // namespace
