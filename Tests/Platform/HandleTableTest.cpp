#include "HandleTable.h"

#include "Support/OpenHandle.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

using namespace Brindle::Vok::Platform;
using Brindle::Vok::Testing::CodeOf;

namespace
{

class Counted final : public Object
{
public:
    static constexpr Kinds kinds = KindsOf(Kind::semaphore);

    explicit Counted(std::atomic<int>& alive) noexcept : Object(Kind::semaphore), alive(alive) { ++alive; }
    ~Counted() override
    {
        intact = 0;
        --alive;
    }

    int intact = 1;

private:
    std::atomic<int>& alive;
};

class Search final : public Object
{
public:
    static constexpr Kinds kinds = KindsOf(Kind::search);
    Search() noexcept : Object(Kind::search) {}
};

HANDLE Moved(HANDLE handle, std::int64_t by)
{
    return reinterpret_cast<HANDLE>(reinterpret_cast<std::int64_t>(handle) + by);
}

TEST(HandleTable, OnlyAnOpenHandleOfTheRightKindIsFound)
{
    std::atomic<int> alive{0};
    HANDLE const open = HandleTable::Make<Counted>(alive).Open();
    HANDLE const stale = HandleTable::Make<Counted>(alive).Open();
    ASSERT_TRUE(CloseHandle(stale));
    HANDLE const reused = HandleTable::Make<Counted>(alive).Open();
    EXPECT_NE(reused, stale);
    HANDLE const search = HandleTable::Make<Search>().Open();

    EXPECT_EQ(CodeOf([&] { return HandleTable::Find<Counted>(open); }), 0U);
    EXPECT_EQ(CodeOf([&] { return HandleTable::Find<Search>(search); }), 0U);
    std::int64_t const generation = std::int64_t{1} << 32;
    for (HANDLE const wrong :
         {HANDLE(nullptr), INVALID_HANDLE_VALUE, stale, search, Moved(open, 1), Moved(open, 2), Moved(open, generation),
          Moved(open, -generation), Moved(open, 4 * 1024 * 4096), Moved(nullptr, 4), Moved(nullptr, 0xFFFFFFFC)})
    {
        EXPECT_EQ(CodeOf([&] { return HandleTable::Find<Counted>(wrong); }), 6U) << wrong;
        EXPECT_EQ(CodeOf([&] { return CloseHandle(wrong); }), 6U) << wrong;
    }
    EXPECT_EQ(alive, 2);
    EXPECT_EQ(CodeOf([&] { return CloseHandle(open); }), 0U);
    EXPECT_EQ(CodeOf([&] { return CloseHandle(open); }), 6U);
    EXPECT_TRUE(CloseHandle(reused));
    EXPECT_TRUE(HandleTable::Close(search, Search::kinds));
    EXPECT_EQ(alive, 0);
}

TEST(HandleTable, AnObjectInUseOutlivesItsClosing)
{
    std::atomic<int> alive{0};
    HANDLE const handle = HandleTable::Make<Counted>(alive).Open();
    {
        auto const use = HandleTable::Find<Counted>(handle);
        EXPECT_TRUE(CloseHandle(handle));
        EXPECT_FALSE(HandleTable::Find<Counted>(handle));
        EXPECT_EQ(alive, 1);
        EXPECT_EQ(use->intact, 1);
    }
    EXPECT_EQ(alive, 0);
}

TEST(HandleTable, ManyHandlesAreDistinctAndGiveTheirMemoryBack)
{
    std::atomic<int> alive{0};
    std::size_t const before = HandleTable::OpenCount();
    std::set<HANDLE> handles;
    for (int i = 0; i < 5000; ++i)
        handles.insert(HandleTable::Make<Counted>(alive).Open());
    EXPECT_EQ(handles.size(), 5000U);
    EXPECT_EQ(HandleTable::OpenCount(), before + 5000);
    for (HANDLE const handle : handles)
        EXPECT_TRUE(CloseHandle(handle));
    EXPECT_EQ(alive, 0);
}

TEST(HandleTable, ThreadsThatMakeAtTheSameTimeNeverShareAPlace)
{
    std::atomic<int> alive{0};
    auto const work = [&]
    {
        for (int round = 0; round < 10; ++round)
        {
            std::vector<HANDLE> handles;
            for (int i = 0; i < 1500; ++i)
            {
                HandleTable::Make<Counted>(alive); // gone at once, as it is not opened
                handles.push_back(HandleTable::Make<Counted>(alive).Open());
            }
            for (HANDLE const handle : handles)
                EXPECT_TRUE(CloseHandle(handle));
        }
    };
    std::thread threads[] = {std::thread(work), std::thread(work), std::thread(work)};
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(alive, 0);
}

TEST(HandleTable, ThreadsThatFindAndCloseNeverSeeADestroyedObject)
{
    std::atomic<int> alive{0};
    std::atomic<HANDLE> shared{nullptr};
    std::atomic<bool> done{false};
    std::atomic<int> closed{0};
    auto const read = [&]
    {
        while (!done)
        {
            auto const use = HandleTable::Find<Counted>(shared);
            EXPECT_TRUE(!use || use->intact == 1);
            closed += CloseHandle(shared);
        }
    };
    std::thread readers[] = {std::thread(read), std::thread(read), std::thread(read)};
    for (int i = 0; i < 5000; ++i)
    {
        shared = HandleTable::Make<Counted>(alive).Open();
        closed += CloseHandle(shared);
    }
    done = true;
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(closed, 5000) << "each handle is closed once";
    EXPECT_EQ(alive, 0);
}

} // namespace
