#include "Support/ChildProcess.h"
#include "Support/Descriptors.h"
#include "Support/HostFaults.h"
#include "Support/OpenHandle.h"
#include "Support/TestDrive.h"

#include <gtest/gtest.h>

#include <barrier>
#include <sys/file.h>
#include <thread>
#include <vector>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

namespace
{

struct Terms
{
    DWORD access;
    DWORD share;
};

std::vector<Terms> AllTerms()
{
    std::vector<Terms> all;
    for (DWORD const access :
         {GENERIC_READ, GENERIC_WRITE, GENERIC_READ | GENERIC_WRITE, DELETE, GENERIC_READ | DELETE, GENERIC_ALL})
        for (DWORD share = 0; share <= allShares; ++share)
            all.push_back({access, share});
    return all;
}

DWORD UsesOf(DWORD access)
{
    return ((access & (GENERIC_READ | GENERIC_ALL)) != 0 ? FILE_SHARE_READ : 0) |
           ((access & (GENERIC_WRITE | GENERIC_ALL)) != 0 ? FILE_SHARE_WRITE : 0) |
           ((access & (DELETE | GENERIC_ALL)) != 0 ? FILE_SHARE_DELETE : 0);
}

bool Fit(Terms const& a, Terms const& b)
{
    return (UsesOf(a.access) & ~b.share) == 0 && (UsesOf(b.access) & ~a.share) == 0;
}

class Sharing : public testing::Test
{
protected:
    Sharing() { drive.Write("file", "content"); }

    OpenHandle OpenWith(Terms const& terms, DWORD disposition = OPEN_EXISTING)
    {
        return Open(drive.Path(L"file"), terms.access, terms.share, disposition);
    }
    DWORD CodeWith(Terms const& terms, DWORD disposition = OPEN_EXISTING)
    {
        return CodeOf([&] { return OpenWith(terms, disposition); });
    }
    DWORD DeletionCode()
    {
        return CodeOf([&] { return DeleteFileW(drive.Path(L"file").c_str()); });
    }

    TestDrive drive;
};

TEST_F(Sharing, ADeletionTakesNoOtherFileThanTheOneThatItHolds)
{
    int calls = 0;
    SystemCalls::Redirection const slow(SystemCalls::LockRange,
                                        [&](int descriptor, int command, struct flock* range)
                                        {
                                            if (calls++ == 0)
                                            {
                                                std::filesystem::remove(drive.Host("file"));
                                                drive.Write("file", "another");
                                            }
                                            return SystemCalls::LockRange.host(descriptor, command, range);
                                        });
    EXPECT_EQ(DeletionCode(), 0U);
    EXPECT_GE(calls, 4) << "two calls hold a file; the one that had taken the name was deleted without being held";
}

TEST_F(Sharing, HoldsForEveryPairOfHandles)
{
    std::size_t const descriptors = OpenDescriptors();
    for (Terms const& first : AllTerms())
    {
        OpenHandle const held = OpenWith(first);
        ASSERT_TRUE(held);
        for (Terms const& second : AllTerms())
            ASSERT_EQ(CodeWith(second), Fit(first, second) ? 0U : 32U)
                << std::hex << first.access << '/' << first.share << " then " << second.access << '/' << second.share;
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(Sharing, HoldsForAThirdHandleThatFitsTheFirstOnly)
{
    Terms const reader{GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE};
    Terms const writer{GENERIC_WRITE, allShares};
    OpenHandle const first = OpenWith(reader);
    OpenHandle second = OpenWith(writer);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(CodeWith({GENERIC_READ, FILE_SHARE_READ}), 32U);
    second.Close();
    EXPECT_EQ(CodeWith({GENERIC_READ, FILE_SHARE_READ}), 0U);
}

TEST_F(Sharing, ConcernsNeitherAttributesNorDevices)
{
    OpenHandle const held = OpenWith({GENERIC_READ | GENERIC_WRITE, 0});
    for (DWORD const access : {0U, FILE_READ_ATTRIBUTES, FILE_WRITE_ATTRIBUTES, SYNCHRONIZE})
        EXPECT_EQ(CodeWith({access, 0}), 0U);
    OpenHandle const one = Open(L"C:\\dev\\null", GENERIC_WRITE, 0);
    OpenHandle const other = Open(L"C:\\dev\\null", GENERIC_WRITE, 0);
    EXPECT_TRUE(one && other);
}

TEST_F(Sharing, IsLookedAtBeforeAnythingIsChanged)
{
    OpenHandle const held = OpenWith({GENERIC_READ, FILE_SHARE_READ});
    for (DWORD const disposition : {CREATE_ALWAYS, TRUNCATE_EXISTING})
        EXPECT_EQ(CodeWith({GENERIC_WRITE, 0}, disposition), 32U);
    EXPECT_EQ(CodeWith({GENERIC_READ, allShares}, CREATE_ALWAYS), 32U) << "to empty is to write";
    EXPECT_EQ(DeletionCode(), 32U);
    EXPECT_EQ(drive.Read("file"), "content");
}

TEST_F(Sharing, OfDeletionAllowsDeleting)
{
    std::filesystem::create_directory(drive.Host("directory"));
    for (DWORD const share : {FILE_SHARE_READ | FILE_SHARE_WRITE, allShares})
    {
        DWORD const expected = share == allShares ? 0U : 32U;
        OpenHandle const directory =
            Open(drive.Path(L"directory"), FILE_LIST_DIRECTORY, share, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
        OpenHandle const file = OpenWith({GENERIC_READ, share});
        ASSERT_TRUE(directory && file);
        EXPECT_EQ(CodeOf([&] { return RemoveDirectoryW(drive.Path(L"directory").c_str()); }), expected);
        EXPECT_EQ(DeletionCode(), expected);
    }
    EXPECT_FALSE(drive.Exists("file") || drive.Exists("directory"));
}

TEST_F(Sharing, HoldsBetweenProcessesAndEndsWithTheirDeath)
{
    for (Terms const& terms : {Terms{GENERIC_WRITE, 0}, Terms{GENERIC_READ, FILE_SHARE_READ}})
    {
        HoldingProcess child([&] { return OpenWith(terms); });
        EXPECT_EQ(CodeWith({GENERIC_WRITE, allShares}), 32U);
        EXPECT_EQ(CodeWith({GENERIC_READ, FILE_SHARE_READ}), terms.share == 0 ? 32U : 0U);
        EXPECT_EQ(DeletionCode(), 32U);
        child.Kill();
        EXPECT_EQ(child.Join(), -SIGKILL);
        EXPECT_EQ(CodeWith({GENERIC_WRITE, 0}), 0U);
    }
}

TEST_F(Sharing, HonoursAForeignLockOfTheWholeFile)
{
    int const foreign = ::open(drive.Host("file").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(foreign, LOCK_EX), 0);
    EXPECT_EQ(CodeWith({GENERIC_READ, allShares}), 32U);
    ASSERT_EQ(::flock(foreign, LOCK_SH), 0);
    EXPECT_EQ(CodeWith({GENERIC_READ, allShares}), 0U);
    EXPECT_EQ(CodeWith({GENERIC_READ, 0}), 32U);
    ::close(foreign);
}

// A listing of open files keeps a closed one for the moment of its look.
TEST_F(Sharing, AFileThatIsKeptForAMomentIsNotInUse)
{
    for (Terms const& terms : {Terms{GENERIC_READ, 0}, Terms{GENERIC_READ, FILE_SHARE_READ}})
    {
        int keeper = ::open(drive.Host("file").c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(::flock(keeper, LOCK_EX), 0);
        SystemCalls::Redirection const lettingGo(SystemCalls::Sleep,
                                                 [&](timespec const*) { return ::close(std::exchange(keeper, -1)); });
        EXPECT_EQ(CodeWith(terms), 0U);
        EXPECT_EQ(keeper, -1);
    }
    int pauses = 0;
    SystemCalls::Redirection const counted(SystemCalls::Sleep, [&](timespec const*) { return ++pauses, 0; });
    OpenHandle const held = OpenWith({GENERIC_READ, 0});
    EXPECT_EQ(CodeWith({GENERIC_READ, 0}), 32U);
    EXPECT_EQ(pauses, 2) << "who holds it is known";
}

TEST_F(Sharing, OneOfTwoThatRaceAlwaysWins)
{
    std::pair<Terms, Terms> const pairs[] = {
        {{GENERIC_READ, FILE_SHARE_READ}, {GENERIC_WRITE, allShares}},
        {{GENERIC_WRITE, FILE_SHARE_READ}, {GENERIC_WRITE, FILE_SHARE_READ}},
        {{GENERIC_WRITE, 0}, {GENERIC_READ, FILE_SHARE_READ}},
    };
    for (int round = 0; round < 450; ++round)
    {
        auto const& [first, second] = pairs[round % 3];
        std::barrier start(2);
        auto const race = [&](OpenHandle& handle, Terms const& terms)
        {
            start.arrive_and_wait();
            handle = OpenWith(terms);
        };
        OpenHandle one;
        OpenHandle two;
        std::thread other(race, std::ref(two), second);
        race(one, first);
        other.join();
        ASSERT_NE(static_cast<bool>(one), static_cast<bool>(two));
    }
}

TEST_F(Sharing, AnOpeningThatMeetsItsFilesDeletionLooksAnew)
{
    // Deleted after the opening has found it and before it has its lock.
    bool deleted = false;
    auto const lock = [&](int descriptor, int operation)
    {
        if (!std::exchange(deleted, true))
            ::unlink(drive.Host("file").c_str());
        return SystemCalls::LockWhole.host(descriptor, operation);
    };
    SystemCalls::Redirection const late(SystemCalls::LockWhole, lock);
    EXPECT_EQ(CodeWith({GENERIC_READ, 0}), 2U);
    drive.Write("file", "content");
    deleted = false;
    OpenHandle const made = OpenWith({GENERIC_WRITE, 0}, OPEN_ALWAYS);
    ASSERT_TRUE(made);
    EXPECT_TRUE(drive.Exists("file"));
}

TEST_F(Sharing, OnAFileSystemWithoutLocksOnlyWhatNeedsNoneSucceeds)
{
    for (int const error : {EOPNOTSUPP, ENOSYS, EINVAL})
    {
        SystemCalls::Redirection const none(SystemCalls::LockWhole, FailingWith(error));
        EXPECT_EQ(CodeWith({GENERIC_READ, 0}), 50U);
        EXPECT_EQ(CodeWith({GENERIC_READ, FILE_SHARE_READ}), 50U);
        EXPECT_EQ(CodeWith({GENERIC_READ, allShares}), 0U);
    }
    // Exclusive locks for descriptors that write only.
    auto const lock = [](int descriptor, int operation)
    {
        bool const refuses = (operation & LOCK_EX) != 0 && (::fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_RDONLY;
        return refuses ? FailingWith(EBADF)() : SystemCalls::LockWhole.host(descriptor, operation);
    };
    SystemCalls::Redirection const writers(SystemCalls::LockWhole, lock);
    OpenHandle const held = OpenWith({GENERIC_READ, 0});
    EXPECT_TRUE(held);
    for (Terms const& terms : {Terms{GENERIC_READ, 0}, Terms{GENERIC_READ, allShares}, Terms{GENERIC_WRITE, 0}})
        EXPECT_EQ(CodeWith(terms), 32U);
}

// A child has a copy of every descriptor until it runs its program.
TEST_F(Sharing, IsAMatterOfTheHandleAndNotOfTheCopyInAForkedChild)
{
    for (DWORD const share : {0U, FILE_SHARE_READ})
    {
        OpenHandle held = OpenWith({GENERIC_READ | GENERIC_WRITE, share});
        ChildProcess closing([&](ChildProcess::Channel&) { return held.Close(), 0; });
        EXPECT_EQ(closing.Join(), 0);
        EXPECT_EQ(CodeWith({GENERIC_WRITE, allShares}), 32U);
        ChildProcess keeping([](ChildProcess::Channel& channel) { return channel.Wait() ? 0 : 1; });
        held.Close();
        EXPECT_EQ(CodeWith({GENERIC_WRITE, 0}), 0U);
        keeping.Go();
        EXPECT_EQ(keeping.Join(), 0);
    }
}

TEST_F(Sharing, NeedsNoRightToReadForWritersAndDeleters)
{
    ASSERT_EQ(::chmod(drive.Host().c_str(), 0777), 0);
    ASSERT_EQ(::chmod(drive.Host("file").c_str(), 0222), 0);
    RunAsOrdinaryUser(
        [&]
        {
            EXPECT_EQ(CodeWith({GENERIC_READ, 0}), 5U);
            OpenHandle const writer = OpenWith({GENERIC_WRITE, FILE_SHARE_WRITE | FILE_SHARE_DELETE});
            OpenHandle const second = OpenWith({GENERIC_WRITE, FILE_SHARE_WRITE | FILE_SHARE_DELETE});
            OpenHandle const deleter = OpenWith({DELETE, allShares});
            EXPECT_TRUE(writer && second && deleter);
            EXPECT_EQ(CodeWith({GENERIC_WRITE, FILE_SHARE_READ}), 32U);
            EXPECT_EQ(DeletionCode(), 0U);
        });
}

} // namespace
