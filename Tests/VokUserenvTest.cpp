#include "Support/LogRecorder.h"
#include "Support/Thrown.h"

#include <Brindle/Vok/VokUserenv.h>

#include <gmock/gmock.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(VokCreateEnvironmentBlock, GivesABlockThatItsOwnerFrees)
{
    LogRecorder recorder;
    Error error;
    void* freed = nullptr;
    {
        auto const block = VokCreateEnvironmentBlock(nullptr, true);
        auto const other = VokCreateEnvironmentBlock(nullptr, false, error);
        EXPECT_FALSE(error.Failed());
        ASSERT_TRUE(block.IsValid() && other.IsValid());
        EXPECT_NE(*static_cast<wchar_t const*>(block.Get()), L'\0');
        freed = block.Get();
    }
    EXPECT_FALSE(DestroyEnvironmentBlock(freed));
    EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST(VokCreateEnvironmentBlock, ThrowsOrSetsTheLastError)
{
    constexpr char failure[] = "Source/Vok/VokUserenv.cpp: Brindle::Vok::VokCreateEnvironmentBlock The handle is not "
                               "valid. (Windows Error 6). CreateEnvironmentBlock";
    LogRecorder recorder;
    WindowsError const thrown = Thrown<WindowsError>([] { VokCreateEnvironmentBlock(INVALID_HANDLE_VALUE, false); });
    EXPECT_EQ(thrown.code(), std::error_code(6, std::system_category()));
    EXPECT_EQ(WithoutLine(thrown.Message()), failure);
    EXPECT_THAT(recorder.Lines(), ElementsAre("error: Throwing last error " + thrown.Message()));
    Error error;
    EXPECT_EQ(VokCreateEnvironmentBlock(INVALID_HANDLE_VALUE, false, error).Get(), nullptr);
    EXPECT_EQ(error.code(), std::error_code(6, std::system_category()));
    EXPECT_EQ(WithoutLine(error.Message()), failure);
}
