// Deletion of many files without opening each.
#include "Support/StandIn.h"

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

namespace
{

class QuickDeletion : public testing::Test
{
protected:
    std::wstring Path(std::wstring const& name) const { return drive.Path(name); }

    void MakeFiles(int count) const
    {
        for (int i = 0; i < count; ++i)
            drive.Write("d/file" + std::to_string(i));
    }

    OpenHandle OpenFile(int number) const { return Open(Path(L"d\\file" + std::to_wstring(number)), GENERIC_READ); }

    /// Deletes every file in d within a search and gives how many couldn't be, each with a sharing violation. `between`
    /// is called with the number of files that had their turn.
    int DeleteAll(std::function<void(int)> const& between = [](int) {}) const
    {
        int turns = 0;
        int refused = 0;
        WIN32_FIND_DATAW data;
        HANDLE const search = FindFirstFileW(Path(L"d\\*").c_str(), &data);
        while (FindNextFileW(search, &data))
        {
            if (std::wstring_view(data.cFileName) == L"..")
                continue;
            between(turns++);
            if (DeleteFileW(Path(L"d\\" + std::wstring(data.cFileName)).c_str()))
                continue;
            EXPECT_TRUE(GetLastError() == ERROR_SHARING_VIOLATION || GetLastError() == ERROR_FILE_NOT_FOUND);
            ++refused;
        }
        EXPECT_TRUE(FindClose(search));
        return refused;
    }

    TestDrive drive;
};

/// Other test programs that run at the same time aren't there for this one.
struct Alone
{
    SystemCalls::Redirection<int(int, int, struct flock*)> const alone{
        SystemCalls::LockRange, [](int descriptor, int command, struct flock* range)
        {
            if (command != F_OFD_GETLK || range->l_start != 0 || range->l_len != 1)
                return SystemCalls::LockRange.host(descriptor, command, range);
            range->l_type = F_UNLCK;
            return 0;
        }};
};

TEST_F(QuickDeletion, SparesWhatThisProcessHolds)
{
    MakeFiles(50);
    Alone const alone;
    int opened = 0;
    SystemCalls::Redirection const counting(SystemCalls::Open, [&](auto... arguments)
                                            { return ++opened, SystemCalls::Open.host(arguments...); });
    std::vector<OpenHandle> held;
    for (int i = 0; i < 50; i += 5)
        held.push_back(OpenFile(i));
    int openedLate = 0;
    int const refused = DeleteAll(
        [&](int turn)
        {
            // Some that are still there, when the deletion has long been quick.
            for (int i = 1; turn == 20 && i < 50; i += 5)
                openedLate += held.emplace_back(OpenFile(i)) ? 1 : 0;
        });
    EXPECT_GT(openedLate, 0);
    EXPECT_EQ(refused, 10 + openedLate);
    for (int i = 0; i < 50; i += 5)
        EXPECT_TRUE(drive.Exists("d/file" + std::to_string(i)));
    EXPECT_LT(opened, 50) << "it was never quick";
}

TEST_F(QuickDeletion, SparesWhatAnotherProcessComesToHold)
{
    MakeFiles(50);
    std::optional<Alone> alone(std::in_place);
    std::optional<HoldingProcess> child;
    auto const openAll = [&]
    {
        std::vector<OpenHandle> held;
        for (int i = 0; i < 50; ++i)
            held.push_back(OpenFile(i));
        return held;
    };
    int const refused = DeleteAll(
        [&](int turn)
        {
            if (turn != 20)
                return;
            alone.reset();
            child.emplace(openAll);
        });
    EXPECT_EQ(refused, 30);
}

TEST_F(QuickDeletion, NeverTakesTheNameOfAFileThatIsHeld)
{
    Alone const alone;
    std::atomic<bool> stops{false};
    std::atomic<int> lost{0};
    auto const open = [&]
    {
        for (int i = 0; !stops; i = (i + 7) % 64)
        {
            OpenHandle const held = OpenFile(i);
            lost += held && !drive.Exists("d/file" + std::to_string(i)) ? 1 : 0;
        }
    };
    std::thread opener(open);
    for (int round = 0; round < 30; ++round)
    {
        MakeFiles(64);
        DeleteAll();
    }
    stops = true;
    opener.join();
    EXPECT_EQ(lost, 0);
}

} // namespace
