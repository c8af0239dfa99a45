#include "Support/StandIn.h"

#include <barrier>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

namespace
{

struct Terms
{
    DWORD access;
    DWORD share;
};

constexpr DWORD accesses[] = {GENERIC_READ, GENERIC_WRITE, DELETE, GENERIC_READ | DELETE, GENERIC_ALL};
/// As shares are named.
constexpr DWORD uses[] = {FILE_SHARE_READ, FILE_SHARE_WRITE, FILE_SHARE_DELETE, FILE_SHARE_READ | FILE_SHARE_DELETE,
                          allShares};

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
    for (unsigned round = 0; round < 5 * 8 * 5 * 8; ++round)
    {
        unsigned const first = round % 5;
        unsigned const second = round / 5 % 5;
        DWORD const firstShare = round / 25 % 8;
        DWORD const secondShare = round / 200;
        bool const fits = (uses[first] & ~secondShare) == 0 && (uses[second] & ~firstShare) == 0;
        OpenHandle const held = OpenWith({accesses[first], firstShare});
        ASSERT_TRUE(held);
        ASSERT_EQ(CodeWith({accesses[second], secondShare}), fits ? 0U : 32U) << "round " << round;
    }
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

TEST_F(Sharing, IsLookedAtBeforeAnythingIsChanged)
{
    OpenHandle held = OpenWith({GENERIC_READ, FILE_SHARE_READ});
    for (DWORD const disposition : {CREATE_ALWAYS, TRUNCATE_EXISTING})
        EXPECT_EQ(CodeWith({GENERIC_WRITE, 0}, disposition), 32U);
    EXPECT_EQ(CodeWith({GENERIC_READ, allShares}, CREATE_ALWAYS), 32U) << "to empty is to write";
    EXPECT_EQ(DeletionCode(), 32U);
    EXPECT_EQ(CodeWith({0, 0}), 0U) << "to ask is no use";
    EXPECT_EQ(drive.Read("file"), "content");
    held.Close();
    held = OpenWith({GENERIC_READ, allShares});
    EXPECT_EQ(DeletionCode(), 0U);
}

TEST_F(Sharing, HoldsBetweenProcessesAndEndsWithTheirDeath)
{
    HoldingProcess child([&] { return OpenWith({GENERIC_READ, FILE_SHARE_READ}); });
    EXPECT_EQ(CodeWith({GENERIC_WRITE, allShares}), 32U);
    EXPECT_EQ(CodeWith({GENERIC_READ, FILE_SHARE_READ}), 0U);
    EXPECT_EQ(DeletionCode(), 32U);
    child.Kill();
    EXPECT_EQ(child.Join(), -SIGKILL);
    EXPECT_EQ(CodeWith({GENERIC_WRITE, 0}), 0U);
}

TEST_F(Sharing, OneOfTwoThatRaceAlwaysWins)
{
    for (int round = 0; round < 450; ++round)
    {
        std::barrier start(2);
        auto const race = [&](OpenHandle& handle, Terms const& terms)
        {
            start.arrive_and_wait();
            handle = OpenWith(terms);
        };
        OpenHandle one;
        OpenHandle two;
        std::thread other(race, std::ref(two), Terms{GENERIC_WRITE, round % 2 == 0 ? allShares : FILE_SHARE_READ});
        race(one, {GENERIC_READ, FILE_SHARE_READ});
        other.join();
        ASSERT_NE(static_cast<bool>(one), static_cast<bool>(two));
    }
}

TEST_F(Sharing, ACreationIsNotLostToAnOpeningThatComesInBetween)
{
    std::wstring const path = drive.Path(L"lock");
    ChildProcess peeper(
        [&](ChildProcess::Channel& channel) -> int
        {
            channel.Ready();
            for (;;)
                OpenHandle const held = Open(path, GENERIC_READ);
        });
    peeper.WaitUntilReady();
    for (int round = 0; round < 3000; ++round)
    {
        ASSERT_TRUE(Open(path, GENERIC_WRITE, 0, CREATE_NEW)) << "round " << round << ": " << GetLastError();
        ASSERT_EQ(::unlink(drive.Host("lock").c_str()), 0);
    }
}

// The mark of a file in the making.
TEST_F(Sharing, ACreationThatDiedKeepsNobodyOut)
{
    ASSERT_EQ(::chmod(drive.Host("file").c_str(), 01644), 0);
    for (DWORD const disposition : {OPEN_EXISTING, CREATE_ALWAYS})
        EXPECT_EQ(CodeWith({GENERIC_WRITE, 0}, disposition), 0U);
}

// A child has a copy of every descriptor until it runs its program.
TEST_F(Sharing, IsAMatterOfTheHandleAndNotOfTheCopyInAForkedChild)
{
    for (DWORD const share : {0U, FILE_SHARE_READ})
    {
        OpenHandle held = OpenWith({GENERIC_READ | GENERIC_WRITE, share});
        RunInChild([&] { held.Close(); });
        EXPECT_EQ(CodeWith({GENERIC_WRITE, allShares}), 32U);
        HoldingProcess const keeping([] { return 0; });
        held.Close();
        EXPECT_EQ(CodeWith({GENERIC_WRITE, 0}), 0U);
    }
}

} // namespace
