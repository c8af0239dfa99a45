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
        ASSERT_TRUE(block.IsValid());
        EXPECT_NE(*static_cast<wchar_t const*>(block.Get()), L'\0');
        freed = block.Get();
    }
    EXPECT_FALSE(DestroyEnvironmentBlock(freed));
    ExpectLoggedFailure([] { VokCreateEnvironmentBlock(INVALID_HANDLE_VALUE, false); }, "VokUserenv",
                        "VokCreateEnvironmentBlock", 6, "CreateEnvironmentBlock");
    EXPECT_EQ(VokCreateEnvironmentBlock(INVALID_HANDLE_VALUE, false, error).Get(), nullptr);
    ExpectFailure(error, "VokUserenv", "VokCreateEnvironmentBlock", 6, "CreateEnvironmentBlock");
}
