#include "HandleTable.h"

#include "Support/StandIn.h"

using namespace Brindle::Vok;
using namespace Brindle::Vok::Platform;

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
    Testing::OpenHandle const event(CreateEventW(nullptr, FALSE, FALSE, nullptr));

    VOK_EXPECT_CODE(0, HandleTable::Find<Counted>(open));
    std::int64_t const generation = std::int64_t{1} << 32;
    for (HANDLE const wrong : {HANDLE(nullptr), INVALID_HANDLE_VALUE, stale, event.Get(), Moved(open, 1),
                               Moved(open, generation), Moved(open, 4 * 1024 * 4096), Moved(nullptr, 0xFFFFFFFC)})
        VOK_EXPECT_CODE(6, HandleTable::Find<Counted>(wrong)) << wrong;
    {
        auto const use = HandleTable::Find<Counted>(open);
        VOK_EXPECT_CODE(0, CloseHandle(open));
        VOK_EXPECT_CODE(6, CloseHandle(open));
        EXPECT_EQ(alive, 2) << "what is in use outlives its closing";
        EXPECT_EQ(use->intact, 1);
    }
    EXPECT_EQ(alive, 1);
    EXPECT_TRUE(CloseHandle(reused));
    EXPECT_EQ(alive, 0);
}

TEST(HandleTable, IsSafeForThreadsThatMakeFindAndClose)
{
    constexpr int rounds = 20'000;
    std::size_t const before = HandleTable::OpenCount();
    std::atomic<int> alive{0};
    std::atomic<int> closed{0};
    std::vector<std::atomic<HANDLE>> shared(6000);
    auto const work = [&](unsigned seed)
    {
        std::mt19937 random(seed);
        for (int round = 0; round < rounds; ++round)
        {
            std::size_t const number = round % 2 == 0 ? 0 : random() % shared.size();
            std::atomic<HANDLE>& place = shared[number];
            HandleTable::Make<Counted>(alive); // gone at once, as it is not opened
            HANDLE const replaced = place.exchange(HandleTable::Make<Counted>(alive).Open());
            closed += CloseHandle(replaced);
            auto const use = HandleTable::Find<Counted>(place);
            closed += number == 0 && CloseHandle(place) ? 1 : 0;
            EXPECT_TRUE(!use || use->intact == 1);
        }
    };
    std::thread threads[] = {std::thread(work, 1), std::thread(work, 2), std::thread(work, 3)};
    for (std::thread& thread : threads)
        thread.join();
    for (HANDLE const handle : shared)
        closed += CloseHandle(handle);
    EXPECT_EQ(closed, 3 * rounds) << "each handle is closed once";
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(HandleTable::OpenCount(), before);
}

} // namespace
