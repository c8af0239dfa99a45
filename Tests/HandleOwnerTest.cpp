#include <Brindle/Vok/HandleOwner.h>

#include <gmock/gmock.h>

#include <utility>
#include <vector>

using namespace Brindle::Vok;
using testing::ElementsAre;

namespace
{

/// Handles are numbers; 0 is none.
struct RecordingTraits
{
    using Raw = int;
    static constexpr int InvalidValue = 0;
    static void Close(int raw) noexcept { closed.push_back(raw); }
    static inline std::vector<int> closed;
};

using Owner = HandleOwner<RecordingTraits>;

} // namespace

TEST(HandleOwner, ClosesWhatItOwnsOnce)
{
    {
        Owner const none;
        EXPECT_FALSE(none.IsValid());
        Owner first(1);
        Owner second(std::move(first));
        EXPECT_FALSE(first.IsValid());
        Owner third(3);
        third = std::move(second);
        Owner& same = third;
        third = std::move(same);
        third.Reset(1);
        EXPECT_EQ(third.Get(), 1);
        EXPECT_THAT(RecordingTraits::closed, ElementsAre(3));
        third.Reset(2);
        Owner(4).Reset();
    }
    EXPECT_THAT(RecordingTraits::closed, ElementsAre(3, 1, 4, 2));
}

TEST(HandleOwner, TheTraitsSayWhatIsNoHandle)
{
    EXPECT_FALSE(HandleOwner<Detail::InvalidHandleTraits>(INVALID_HANDLE_VALUE).IsValid());
    EXPECT_TRUE(HandleOwner<Detail::NullHandleTraits>(INVALID_HANDLE_VALUE).IsValid());
    EXPECT_FALSE(HandleOwner<Detail::NullHandleTraits>().IsValid());
}
