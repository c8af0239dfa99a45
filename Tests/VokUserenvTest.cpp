#include "Support/Failures.h"

#include <Brindle/Vok/VokUserenv.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

TEST(VokCreateEnvironmentBlock, GivesABlockThatItsOwnerFreesOrTheLastError)
{
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
    ExpectLoggedFailure([] { VokCreateEnvironmentBlock(INVALID_HANDLE_VALUE, false); }, "VokUserenv",
                        "VokCreateEnvironmentBlock", 6, "CreateEnvironmentBlock");
    LogRecorder const recorder;
    EXPECT_EQ(VokCreateEnvironmentBlock(INVALID_HANDLE_VALUE, false, error).Get(), nullptr);
    ExpectFailure(error, "VokUserenv", "VokCreateEnvironmentBlock", 6, "CreateEnvironmentBlock");
    EXPECT_TRUE(recorder.Lines().empty());
}
